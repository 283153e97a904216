#include "window.h"

#include <algorithm>
#include <stdexcept>

namespace panel {
namespace {

constexpr int NARROW = 640;  // pixels: a window that is narrower lists its pages without names

using oxil::KeyValues;

//! [screen]
// A device has one screen, and the panel all of it. A desktop's is larger, or not known here.
oxil::Dimension fit(oxil::Dimension size)
{
    const oxil::Dimension screen = oxil::Screen::getInstance()->getSize();
    if (screen.width > 0 && screen.height > 0) {
        size.width = std::min(size.width, screen.width);
        size.height = std::min(size.height, screen.height);
    }
    return size;
}
//! [screen]

// An element's attributes, and "title": its text in the language, or else in English.
KeyValues toItem(const std::vector<std::string>& attributes, const std::string& language)
{
    KeyValues item;
    for (std::size_t i = 0; i + 1 < attributes.size(); i += 2) {
        item.add(attributes[i], attributes[i + 1]);
    }
    item.set("title", item.get(language, item.get("en", "")));
    return item;
}

// Containers differ in how they take what is put into them.
void put(GtkWidget* container, GtkWidget* child, const std::string& id)
{
    if (GTK_IS_STACK(container)) {
        gtk_stack_add_named(GTK_STACK(container), child, id.c_str());
    } else if (GTK_IS_OVERLAY(container) && gtk_bin_get_child(GTK_BIN(container)) != nullptr) {
        gtk_overlay_add_overlay(GTK_OVERLAY(container), child);
    } else {
        gtk_container_add(GTK_CONTAINER(container), child);
    }
}

// Whether a text has another one in it, in whatever case.
bool contains(const std::string& text, const std::string& part)
{
    char* const folded = g_utf8_casefold(text.c_str(), -1);
    char* const wanted = g_utf8_casefold(part.c_str(), -1);
    const bool found = std::string(folded).find(wanted) != std::string::npos;
    g_free(folded);
    g_free(wanted);
    return found;
}

}  // namespace

Window::Window(oxil::Dimension size, const Listener& listener)
    : tell_(listener), css_(gtk_css_provider_new()), window_(gtk_window_new(GTK_WINDOW_TOPLEVEL))
{
    gtk_style_context_add_provider_for_screen(gdk_screen_get_default(), GTK_STYLE_PROVIDER(css_),
                                              GTK_STYLE_PROVIDER_PRIORITY_APPLICATION);
    size = fit(size);
    gtk_window_set_default_size(GTK_WINDOW(window_), size.width, size.height);
    const auto onDelete = [](GtkWidget*, GdkEvent*, void* data) noexcept -> gboolean {
        static_cast<Window*>(data)->tell_("onClose", "", {});
        return TRUE;  // it goes with this object
    };
    g_signal_connect(window_, "delete-event", G_CALLBACK(+onDelete), this);
    g_signal_connect(window_, "key-press-event", G_CALLBACK(onKey), this);
    on(window_, "size-allocate", [this] {
        if (narrow_ != (getSize().width < NARROW)) {
            later_.start(0, [this] { arrange(); });  // not within the allocation
        }
    });
}

Window::~Window()
{
    quiet_ = true;
    gtk_widget_destroy(window_);
    gtk_style_context_remove_provider_for_screen(gdk_screen_get_default(),
                                                 GTK_STYLE_PROVIDER(css_));
    g_object_unref(css_);
}

//! [build]
bool Window::build(const std::string& layoutPath, const std::string& language)
{
    quiet_ = true;
    gtk_widget_set_default_direction(language == "ar" ? GTK_TEXT_DIR_RTL : GTK_TEXT_DIR_LTR);
    GtkWidget* const old = gtk_bin_get_child(GTK_BIN(window_));
    if (old != nullptr) {
        gtk_widget_destroy(old);
    }
    controls_.clear();
    words_.clear();
    pages_.clear();
    open_.assign(1, Control());
    open_.back().inside = window_;

    oxil::Xml xml(layoutPath);
    xml.setOnStartElement([&](const std::string& name, const std::vector<std::string>& attributes) {
        begin(name, toItem(attributes, language));
    });
    xml.setOnEndElement([this](const std::string&) { open_.pop_back(); });
    if (xml.read(oxil::EXACT_TEXT) != oxil::STATUS_SUCCESS || pages_.empty()) {
        return false;
    }
    gtk_widget_show_all(gtk_bin_get_child(GTK_BIN(window_)));
    show("message", false);
    show("question", false);
    on(getControl("pages").widget, "row-selected", [this] { onSelected(); });
    quiet_ = false;
    arrange();
    return true;
}

// Each element begins something, and none has text: what it says stands in its attributes.
void Window::begin(const std::string& element, const KeyValues& item)
{
    const Control parent = open_.back();
    const std::string id = item.get("id", "");
    const std::string title = item.get("title", "");
    open_.push_back(parent);
    if (element == "word") {
        words_[id] = title;
    } else if (element == "option") {
        options_.push_back(item);
        parent.setOptions(options_);
    } else if (element != "panel") {
        const auto onChanged = [this, element, id](const oxil::Variant& value) {
            if (id == "search") {
                search(value.toString());
            } else if (id == "close") {
                setMessage("", false);
            } else if (!quiet_) {
                tell_(element == "button" ? "onPressed" : "onChanged", id, value);
            }
        };
        const Control control = makeControl(element, item, onChanged);
        const bool isButton = element == "button" && parent.foot != nullptr;
        put(isButton ? parent.foot : parent.inside, control.outside, id);
        open_.back() = control;
        options_.clear();
        if (!id.empty()) {
            controls_[id] = control;
        }
        if (element == "page") {
            gtk_container_add(GTK_CONTAINER(getControl("pages").widget), control.widget);
            pages_.push_back({id, title, title, control.widget, {}});
        } else if (element == "hint") {
            pages_.back().rows.back().text += " " + title;
        } else if (isButton) {
            pages_.back().text += " " + title;
        } else if (parent.foot != nullptr) {
            pages_.back().rows.push_back({id, title, title, control.outside});
        }
    }
}
//! [build]

std::string Window::getWord(const std::string& id) const
{
    const auto word = words_.find(id);
    return word != words_.end() ? word->second : id;
}

void Window::arrange()
{
    narrow_ = getSize().width < NARROW;
    style(getControl("content").widget, "narrow", narrow_);
    for (const Page& page : pages_) {
        GList* const parts = gtk_container_get_children(GTK_CONTAINER(page.entry));
        gtk_widget_set_visible(GTK_WIDGET(g_list_last(parts)->data), !narrow_);
        g_list_free(parts);
        gtk_widget_set_halign(page.entry, narrow_ ? GTK_ALIGN_CENTER : GTK_ALIGN_FILL);
    }
}

//! [leave]
// The list shows the page that is open until the script agrees to another one.
void Window::onSelected()
{
    GtkListBoxRow* row = gtk_list_box_get_selected_row(GTK_LIST_BOX(getControl("pages").widget));
    if (quiet_ || row == nullptr) {
        return;
    }
    const auto place = static_cast<std::size_t>(gtk_list_box_row_get_index(row));
    const std::string wanted = pages_.at(place).id;
    if (wanted != page_) {
        select(page_);
        leaveFor(wanted);
    }
}

void Window::leaveFor(const std::string& wanted)
{
    const oxil::Variant may = tell_("onLeave", page_, {});
    if (!may.is<bool>() || may.get<bool>()) {
        open(wanted);
    }
}
//! [leave]

void Window::select(const std::string& id)
{
    for (const Page& page : pages_) {
        if (page.id == id) {
            GtkWidget* const list = getControl("pages").widget;
            GtkWidget* const row = gtk_widget_get_parent(page.entry);
            const bool focused = gtk_widget_get_visible(window_) == FALSE ||
                                 gtk_container_get_focus_child(GTK_CONTAINER(list)) != nullptr;
            quiet_ = true;
            gtk_list_box_select_row(GTK_LIST_BOX(list), GTK_LIST_BOX_ROW(row));
            quiet_ = false;
            if (focused) {
                gtk_widget_grab_focus(row);
            }
            set("title", page.title);
        }
    }
}

void Window::open(const std::string& page)
{
    page_ = page;
    select(page);
    turn(page);
    gtk_widget_show(window_);
    tell_("onOpen", page, {});
}

void Window::turn(const std::string& id)
{
    gtk_stack_set_visible_child_name(GTK_STACK(getControl("stack").widget), id.c_str());
}

// Pages and rows that have the text in them stay; the first of these pages is shown.
void Window::search(const std::string& text)
{
    std::string first;
    bool here = false;
    for (const Page& page : pages_) {
        const bool named = contains(page.text, text);
        bool found = named;
        for (const Row& row : page.rows) {
            const bool fits = contains(row.text, text);
            found = found || fits;
            gtk_widget_set_visible(row.widget, named || fits);
        }
        gtk_widget_set_visible(gtk_widget_get_parent(page.entry), found);
        here = here || (found && page.id == page_);
        first = found && first.empty() ? page.id : first;
    }
    set("state", first.empty() ? getWord("nothing") : "");
    if (!here && !first.empty()) {
        leaveFor(first);
    }
}

const Control& Window::getControl(const std::string& id) const
{
    const auto control = controls_.find(id);
    if (control == controls_.end()) {
        throw std::invalid_argument("no row " + id);
    }
    return control->second;
}

void Window::set(const std::string& id, const oxil::Variant& value)
{
    const Control& control = getControl(id);
    quiet_ = true;
    control.set(value);
    quiet_ = false;
}

void Window::setOptions(const std::string& id, const std::vector<KeyValues>& options)
{
    getControl(id).setOptions(options);
}

void Window::enable(const std::string& id, bool enabled)
{
    gtk_widget_set_sensitive(getControl(id).outside, enabled);
}

void Window::show(const std::string& id, bool shown)
{
    gtk_widget_set_visible(getControl(id).outside, shown);
}

// Of the list, the page that is open.
void Window::focus(const std::string& id)
{
    GtkWidget* widget = getControl(id).widget;
    if (GTK_IS_LIST_BOX(widget)) {
        widget = GTK_WIDGET(gtk_list_box_get_selected_row(GTK_LIST_BOX(widget)));
    }
    gtk_widget_grab_focus(widget);
}

void Window::setMessage(const std::string& text, bool bad)
{
    set("message-text", text);
    show("notice", !bad);
    show("warning", bad);
    style(getControl("message").widget, "bad", bad);
    show("message", !text.empty());
}

void Window::setStyle(const std::string& css)
{
    gtk_css_provider_load_from_data(css_, css.data(), static_cast<gssize>(css.size()), nullptr);
}

oxil::Dimension Window::getSize() const
{
    oxil::Dimension size(0, 0);
    gtk_window_get_size(GTK_WINDOW(window_), &size.width, &size.height);
    return size;
}

gboolean Window::onKey(GtkWidget*, GdkEventKey* event, void* data) noexcept
{
    Window& window = *static_cast<Window*>(data);
    const bool control = (event->state & GDK_CONTROL_MASK) != 0;
    if (event->keyval == GDK_KEY_Escape &&
        gtk_widget_get_visible(window.getControl("question").widget)) {
        window.tell_("onPressed", "keep", {});
        return TRUE;
    }
    if (control && event->keyval == GDK_KEY_q) {
        gtk_window_close(GTK_WINDOW(window.window_));
        return TRUE;
    }
    if (control && event->keyval == GDK_KEY_f) {
        window.focus("search");
        return TRUE;
    }
    // Among pages one goes with the arrows; the tabulator leads out of the list.
    GtkWidget* page = gtk_stack_get_visible_child(GTK_STACK(window.getControl("stack").widget));
    GtkContainer* list = GTK_CONTAINER(window.getControl("pages").widget);
    if (event->keyval == GDK_KEY_Tab && page != nullptr &&
        gtk_container_get_focus_child(list) != nullptr) {
        return gtk_widget_child_focus(page, GTK_DIR_TAB_FORWARD);
    }
    return FALSE;
}

}  // namespace panel
