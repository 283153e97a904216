// The window, and what is in it as the layout file says.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include <Oxil.h>
#include <gtk/gtk.h>

namespace panel {

// Whatever has a name in the layout file.
struct Control {
    GtkWidget* widget = nullptr;
    GObject* object = nullptr;  // has its value: the widget, or the range of a slider
    std::string property;       // is its value; empty if it has none
};

struct Page {
    std::string id;
    std::vector<std::string> rows;  // the names of its settings
};

class Layout {
public:
    // Called with what the user has changed, and with no value when a button is pressed.
    using OnChanged = std::function<void(const std::string& id, const oxil::Variant& value)>;

    Layout(const std::string& path, const OnChanged& onChanged) : path_(path), onChanged_(onChanged)
    {
    }
    ~Layout();

    Layout(const Layout&) = delete;
    Layout& operator=(const Layout&) = delete;

    // Fills the window anew, in a language ("en", "de", "ar"). Returns the texts of whatever has a
    // name. std::invalid_argument says what is wrong with the file.
    oxil::KeyValues read(const std::string& language);

    // Sets the value of a control, or another property of its widget, as GTK's own layout files do:
    // to "yes" or "center", say. std::invalid_argument if that can't be done.
    void set(const std::string& id, const oxil::Variant& value,
             const std::optional<std::string>& property = std::nullopt);

    void setOptions(const std::string& id, const std::vector<oxil::KeyValues>& options);

    // Shows only what matches a text, and everything on pages that do. Returns the page to be seen
    // then: the one that is open, or the first; an empty text if there is none.
    std::string search(const std::string& text, const std::string& open);

    std::string getText(const std::string& id) const;  // what the user sees of the value
    std::string getTitle(const std::string& id) const { return texts_.get(id, ""); }
    const Control& getControl(const std::string& id) const;
    const std::map<std::string, Control>& getControls() const { return controls_; }
    const std::vector<Page>& getPages() const { return pages_; }
    GtkWidget* getWindow() const { return window_; }

private:
    GtkWidget* begin(const std::string& element, const oxil::KeyValues& item, GtkWidget* parent);
    GtkWidget* addRow(const std::string& title, GtkWidget* control);
    Control makeControl(const std::string& element, const oxil::KeyValues& item);

    GtkWidget* const window_ = gtk_window_new(GTK_WINDOW_TOPLEVEL);
    const std::string path_;
    const OnChanged onChanged_;
    std::map<std::string, Control> controls_;
    std::vector<Page> pages_;
    oxil::KeyValues texts_;
    GtkWidget* rows_ = nullptr;  // where those of the last page go
    bool quiet_ = false;         // the panel itself changes something, and not the user
};

// Calls a function whenever an object emits a signal that expects nothing in return. The function
// lives as long as the object, and must not throw: GTK is C.
void on(void* object, const std::string& signal, std::function<void()> function);

}  // namespace panel
