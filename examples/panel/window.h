// The panel's window, as the layout file says it is. What happens in it is told.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

#include <Oxil.h>
#include <gtk/gtk.h>

#include "controls.h"

namespace panel {

struct Row {
    std::string id;  // the setting's name
    std::string title;
    std::string text;  // in which one searches
    GtkWidget* widget;
};

struct Page {
    std::string id;
    std::string title;
    std::string text;  // in which one searches: its title, and those of its buttons
    GtkWidget* entry;  // in the list of pages
    std::vector<Row> rows;
};

class Window {
public:
    // Is told from the main loop what the user does:
    //   onChanged(setting, value), onPressed(button), onOpen(page), onClose();
    //   onLeave(page), which may take its time: the page stays open if it returns false
    using Listener = std::function<oxil::Variant(const std::string& event, const std::string& id,
                                                 const oxil::Variant& value)>;

    // In the size of the screen, as far as that is known and not larger than the one given.
    Window(oxil::Dimension size, const Listener& listener);
    ~Window();

    Window(const Window&) = delete;
    Window& operator=(const Window&) = delete;

    // Makes everything anew, in a language ("en", "de", "ar"). False: the file could not be read, and
    // the log tells why.
    bool build(const std::string& layoutPath, const std::string& language);

    // A word of the layout file; the name itself if there is none.
    std::string getWord(const std::string& id) const;

    // Opens a page without asking anybody.
    void open(const std::string& page);
    std::string getPage() const { return page_; }
    const std::vector<Page>& getPages() const { return pages_; }

    // Of whatever has a name in the layout file; std::invalid_argument if nothing has this one.
    const Control& getControl(const std::string& id) const;
    const std::map<std::string, Control>& getControls() const { return controls_; }
    void set(const std::string& id, const oxil::Variant& value);
    void setOptions(const std::string& id, const std::vector<oxil::KeyValues>& options);
    void enable(const std::string& id, bool enabled);
    void show(const std::string& id, bool shown);
    void focus(const std::string& id);

    // Shows something in the place of the page that is open, or this again.
    void turn(const std::string& id);

    void setMessage(const std::string& text, bool bad);
    void setStyle(const std::string& css);  // of GTK
    oxil::Dimension getSize() const;
    GtkWidget* getWidget() const { return window_; }

private:
    void begin(const std::string& element, const oxil::KeyValues& item);
    void select(const std::string& id);
    void onSelected();
    void leaveFor(const std::string& wanted);
    void search(const std::string& text);
    void arrange();
    static gboolean onKey(GtkWidget* widget, GdkEventKey* event, void* data) noexcept;

    const Listener tell_;
    std::map<std::string, Control> controls_;
    std::map<std::string, std::string> words_;
    std::vector<Page> pages_;
    std::vector<Control> open_;             // elements of the file that is being read
    std::vector<oxil::KeyValues> options_;  // of the last of them
    std::string page_;
    bool quiet_ = false;  // the panel itself changes something, and not the user
    bool narrow_ = false;
    oxil::Timer later_;
    GtkCssProvider* css_;
    GtkWidget* window_;
};

}  // namespace panel
