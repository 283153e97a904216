// The panel's window: what is where. What happens is the listener's affair.
#pragma once

#include <map>
#include <string>
#include <vector>

#include <Oxil.h>
#include <gtk/gtk.h>

#include "controls.h"
#include "layout.h"

namespace panel {

// What the user does. The functions are called from the main loop.
class WindowListener {
public:
    virtual ~WindowListener() = default;

    // Whether another page may be shown instead of this one. May take its time.
    virtual bool onLeave(const std::string& page) = 0;
    virtual void onOpen(const std::string& page) = 0;

    virtual void onChanged(const std::string& setting, const oxil::Variant& value) = 0;
    virtual void onPressed(const std::string& button) = 0;

    // The question was answered.
    virtual void onAnswered(bool yes) = 0;

    // The window is to be closed.
    virtual void onClose() = 0;
};

class Window {
public:
    // In the size of the screen, as far as that is known and not larger than the one given. With a
    // time for the clock ("09:41") time stands still: nothing moves by itself.
    Window(WindowListener& listener, oxil::Dimension size, const std::string& time);
    ~Window();

    Window(const Window&) = delete;
    Window& operator=(const Window&) = delete;

    // Makes the pages anew.
    void build(const Layout& layout);
    const Layout& getLayout() const { return layout_; }

    // A word of the layout; the name itself if there is none.
    std::string getWord(const std::string& id) const;

    // Shows a page without asking anybody.
    void showPage(const std::string& id);
    const std::string& getPage() const { return page_; }

    // Of the rows. Throws std::invalid_argument if there is none with this name.
    void setValue(const std::string& id, const oxil::Variant& value);
    std::string getText(const std::string& id) const;
    void setOptions(const std::string& id, const Choices& options);
    void enable(const std::string& id, bool enabled);

    // A word beside the title of the page; the message below it; the question in front of it.
    void setState(const std::string& text);
    void setMessage(const std::string& text, bool bad);
    void setQuestion(bool shown);

    // The page that is shown while something takes its time, and how much of that is over.
    void setBusy(bool busy);
    void setProgress(int percent);

    // A style sheet of GTK.
    void setStyle(const std::string& css);

    bool isStill() const { return still_; }
    oxil::Dimension getSize() const;
    GtkWidget* getWidget() const { return window_; }

    // What is to be seen, and where the controls are, in lines.
    std::string describe() const;

private:
    GtkWidget* makeHeader(const std::string& time);
    GtkWidget* makePage(const Page& page);
    GtkWidget* makeRow(const Row& row);
    GtkWidget* makeBusyPage();
    GtkWidget* makeQuestion();
    GtkWidget* makeMessage();
    const Control& getControl(const std::string& id) const;
    void onSelected();
    void search();
    void select(const std::string& page);
    GtkWidget* getOpenRow() const;
    void arrange();
    void showTime();
    static gboolean onKey(GtkWidget* widget, GdkEventKey* event, void* data) noexcept;

    WindowListener& listener_;
    const bool still_;
    Layout layout_;
    std::map<std::string, Control> controls_;
    std::map<std::string, GtkWidget*> rows_;
    std::vector<GtkWidget*> names_;  // of the pages, in the list
    std::string page_;
    bool quiet_ = false;  // the panel itself changes something, and not the user
    bool narrow_ = false;
    oxil::Timer clock_;
    oxil::Timer later_;
    GtkCssProvider* css_;
    GtkWidget* window_;
    GtkWidget* content_;
    GtkWidget* list_;
    GtkWidget* stack_;
    GtkWidget* name_;
    GtkWidget* search_;
    GtkWidget* time_;
    GtkWidget* title_;
    GtkWidget* state_;
    GtkWidget* message_;
    GtkWidget* messageIcon_;
    GtkWidget* messageText_;
    GtkWidget* close_;
    GtkWidget* question_;
    GtkWidget* questionTitle_;
    GtkWidget* questionText_;
    GtkWidget* keep_;
    GtkWidget* drop_;
    GtkWidget* progress_;
    GtkWidget* cancel_;
};

}  // namespace panel
