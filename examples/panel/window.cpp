#include "window.h"

#include <algorithm>
#include <chrono>
#include <ctime>
#include <sstream>
#include <stdexcept>

namespace panel {
namespace {

constexpr int NARROW = 640;  // pixels: a window that is narrower lists its pages without names

GtkWidget* fill(GtkWidget* box, const char* styleClass, std::initializer_list<GtkWidget*> children)
{
    style(box, styleClass);
    for (GtkWidget* child : children) {
        gtk_container_add(GTK_CONTAINER(box), child);
    }
    return box;
}

GtkWidget* makeColumn(const char* styleClass, std::initializer_list<GtkWidget*> children)
{
    return fill(gtk_box_new(GTK_ORIENTATION_VERTICAL, 0), styleClass, children);
}

// Distances within a line are no margins: those would stay on their side when the direction changes.
GtkWidget* makeLine(const char* styleClass, int distance,
                    std::initializer_list<GtkWidget*> children)
{
    return fill(gtk_box_new(GTK_ORIENTATION_HORIZONTAL, distance), styleClass, children);
}

GtkWidget* makeIcon(const std::string& name, int size)
{
    GtkWidget* icon = gtk_image_new_from_icon_name(name.c_str(), GTK_ICON_SIZE_MENU);
    gtk_image_set_pixel_size(GTK_IMAGE(icon), size);
    return icon;
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

}  // namespace

Window::Window(WindowListener& listener, oxil::Dimension size, const std::string& time)
    : listener_(listener),
      still_(!time.empty()),
      css_(gtk_css_provider_new()),
      window_(gtk_window_new(GTK_WINDOW_TOPLEVEL))
{
    gtk_style_context_add_provider_for_screen(gdk_screen_get_default(), GTK_STYLE_PROVIDER(css_),
                                              GTK_STYLE_PROVIDER_PRIORITY_APPLICATION);
    size = fit(size);
    gtk_window_set_default_size(GTK_WINDOW(window_), size.width, size.height);

    list_ = gtk_list_box_new();
    gtk_list_box_set_selection_mode(GTK_LIST_BOX(list_), GTK_SELECTION_BROWSE);
    style(list_, "pages");
    on(list_, "row-selected", [this] { onSelected(); });

    title_ = makeLabel("", "page-title");
    gtk_widget_set_hexpand(title_, TRUE);
    state_ = gtk_label_new("");
    style(state_, "state");
    stack_ = gtk_stack_new();
    gtk_widget_set_vexpand(stack_, TRUE);

    GtkWidget* head = makeLine("head", 16, {title_, state_});
    GtkWidget* main = makeColumn("main", {head, stack_, makeMessage()});
    gtk_widget_set_hexpand(main, TRUE);
    GtkWidget* body = makeLine("body", 0, {makeScrolled(list_), main});
    content_ = makeColumn("content", {makeHeader(time), body});

    GtkWidget* overlay = gtk_overlay_new();
    gtk_container_add(GTK_CONTAINER(overlay), content_);
    gtk_overlay_add_overlay(GTK_OVERLAY(overlay), makeQuestion());
    gtk_container_add(GTK_CONTAINER(window_), overlay);
    gtk_widget_show_all(overlay);
    gtk_widget_hide(message_);
    gtk_widget_hide(question_);

    const auto onDelete = [](GtkWidget*, GdkEvent*, void* data) noexcept -> gboolean {
        static_cast<Window*>(data)->listener_.onClose();
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

GtkWidget* Window::makeHeader(const std::string& time)
{
    name_ = gtk_label_new("");
    gtk_label_set_xalign(GTK_LABEL(name_), 0);
    gtk_widget_set_hexpand(name_, TRUE);
    style(name_, "name");

    search_ = gtk_search_entry_new();
    gtk_entry_set_width_chars(GTK_ENTRY(search_), 14);
    gtk_widget_set_valign(search_, GTK_ALIGN_CENTER);
    on(search_, "search-changed", [this] { search(); });
    on(search_, "stop-search", [this] { gtk_entry_set_text(GTK_ENTRY(search_), ""); });

    time_ = gtk_label_new(time.c_str());
    style(time_, "time");
    if (!still_) {
        showTime();
        clock_.start(
            std::chrono::seconds(1), [this] { showTime(); }, oxil::REPEATABLE);
    }
    return makeLine("header", 16, {name_, search_, time_});
}

void Window::showTime()
{
    const std::time_t now = std::time(nullptr);
    char text[8];
    std::strftime(text, sizeof text, "%H:%M", std::localtime(&now));
    gtk_label_set_text(GTK_LABEL(time_), text);
}

GtkWidget* Window::makeMessage()
{
    messageText_ = makeLabel("", "message-text");
    gtk_label_set_lines(GTK_LABEL(messageText_), 3);
    gtk_label_set_ellipsize(GTK_LABEL(messageText_), PANGO_ELLIPSIZE_END);
    gtk_widget_set_hexpand(messageText_, TRUE);
    close_ = gtk_button_new();
    gtk_container_add(GTK_CONTAINER(close_), makeIcon("window-close-symbolic", 16));
    gtk_widget_set_valign(close_, GTK_ALIGN_CENTER);
    style(close_, "flat");
    on(close_, "clicked", [this] { setMessage("", false); });
    messageIcon_ = makeIcon("", 16);
    message_ = makeLine("message", 12, {messageIcon_, messageText_, close_});
    return message_;
}

GtkWidget* Window::makeQuestion()
{
    questionTitle_ = makeLabel("", "question-title");
    questionText_ = makeLabel("", "question-text");
    gtk_label_set_max_width_chars(GTK_LABEL(questionText_), 36);
    keep_ = makeButton("", true, [this] { listener_.onAnswered(false); });
    drop_ = makeButton("", false, [this] { listener_.onAnswered(true); });
    GtkWidget* buttons = makeLine("buttons", 8, {drop_, keep_});
    gtk_widget_set_halign(buttons, GTK_ALIGN_END);
    GtkWidget* card = makeColumn("question", {questionTitle_, questionText_, buttons});
    gtk_widget_set_halign(card, GTK_ALIGN_CENTER);
    gtk_widget_set_valign(card, GTK_ALIGN_CENTER);
    gtk_widget_set_vexpand(card, TRUE);
    question_ = makeColumn("veil", {card});
    return question_;
}

GtkWidget* Window::makeBusyPage()
{
    GtkWidget* text = makeLabel(getWord("busy"), "busy-text");
    progress_ = gtk_progress_bar_new();
    cancel_ = makeButton(getWord("cancel"), false, [this] { listener_.onPressed("cancel"); });
    gtk_widget_set_halign(cancel_, GTK_ALIGN_CENTER);
    GtkWidget* box = makeColumn("busy", {text, progress_, cancel_});
    gtk_widget_set_halign(box, GTK_ALIGN_CENTER);
    gtk_widget_set_valign(box, GTK_ALIGN_CENTER);
    return box;
}

//! [build]
void Window::build(const Layout& layout)
{
    quiet_ = true;
    layout_ = layout;
    gtk_widget_set_default_direction(layout.rightToLeft ? GTK_TEXT_DIR_RTL : GTK_TEXT_DIR_LTR);
    removeChildren(list_);
    removeChildren(stack_);
    controls_.clear();
    rows_.clear();
    names_.clear();

    for (const Page& page : layout_.pages) {
        GtkWidget* name = gtk_label_new(page.title.c_str());
        gtk_label_set_xalign(GTK_LABEL(name), 0);
        gtk_label_set_ellipsize(GTK_LABEL(name), PANGO_ELLIPSIZE_END);
        names_.push_back(name);
        GtkWidget* entry = makeLine("entry", 12, {makeIcon(page.icon, 20), name});
        gtk_widget_set_tooltip_text(entry, page.title.c_str());
        gtk_list_box_insert(GTK_LIST_BOX(list_), entry, -1);
        gtk_stack_add_named(GTK_STACK(stack_), makePage(page), page.id.c_str());
    }
    gtk_stack_add_named(GTK_STACK(stack_), makeBusyPage(), "busy");

    gtk_label_set_text(GTK_LABEL(name_), getWord("title").c_str());
    gtk_entry_set_placeholder_text(GTK_ENTRY(search_), getWord("search").c_str());
    gtk_label_set_text(GTK_LABEL(questionTitle_), getWord("question").c_str());
    gtk_label_set_text(GTK_LABEL(questionText_), getWord("consequence").c_str());
    gtk_button_set_label(GTK_BUTTON(keep_), getWord("keep").c_str());
    gtk_button_set_label(GTK_BUTTON(drop_), getWord("drop").c_str());
    gtk_widget_show_all(list_);
    gtk_widget_show_all(stack_);
    quiet_ = false;
    arrange();
}
//! [build]

//! [page]
// A card of rows, and the buttons below it.
GtkWidget* Window::makePage(const Page& page)
{
    GtkWidget* card = makeColumn("card", {});
    GtkWidget* buttons = makeLine("buttons", 8, {});
    gtk_widget_set_halign(buttons, GTK_ALIGN_END);
    for (const Row& row : page.rows) {
        const bool isButton = row.kind == "button";
        const Control control = makeControl(row, [this, isButton, id = row.id](const auto& value) {
            if (isButton) {
                listener_.onPressed(id);
            } else if (!quiet_) {
                listener_.onChanged(id, value);
            }
        });
        controls_[row.id] = control;
        gtk_container_add(GTK_CONTAINER(isButton ? buttons : card),
                          isButton ? control.widget : makeRow(row));
    }
    return makeScrolled(makeColumn("page", {card, buttons}));
}

GtkWidget* Window::makeRow(const Row& row)
{
    GtkWidget* control = controls_[row.id].widget;
    GtkWidget* title = makeLabel(row.title, "title");
    gtk_label_set_mnemonic_widget(GTK_LABEL(title), control);  // what a screen reader says
    GtkWidget* texts = makeColumn("texts", {title});
    if (!row.hint.empty()) {
        gtk_container_add(GTK_CONTAINER(texts), makeLabel(row.hint, "hint"));
    }
    gtk_widget_set_valign(texts, GTK_ALIGN_CENTER);
    gtk_widget_set_valign(control, GTK_ALIGN_CENTER);
    const bool wide = gtk_widget_compute_expand(control, GTK_ORIENTATION_HORIZONTAL);
    gtk_widget_set_hexpand(texts, !wide);
    rows_[row.id] = makeLine("row", 16, {texts, control});
    return rows_[row.id];
}
//! [page]

std::string Window::getWord(const std::string& id) const
{
    const auto word = layout_.words.find(id);
    return word != layout_.words.end() ? word->second : id;
}

void Window::arrange()
{
    narrow_ = getSize().width < NARROW;
    style(content_, "narrow", narrow_);
    for (GtkWidget* name : names_) {
        gtk_widget_set_visible(name, !narrow_);
        gtk_widget_set_halign(gtk_widget_get_parent(name),
                              narrow_ ? GTK_ALIGN_CENTER : GTK_ALIGN_FILL);
    }
}

//! [leave]
// The list shows the page that is open until the listener agrees to another one.
void Window::onSelected()
{
    GtkListBoxRow* row = gtk_list_box_get_selected_row(GTK_LIST_BOX(list_));
    if (quiet_ || row == nullptr) {
        return;
    }
    const auto place = static_cast<std::size_t>(gtk_list_box_row_get_index(row));
    const std::string wanted = layout_.pages.at(place).id;
    if (wanted == page_) {
        return;
    }
    select(page_);
    if (listener_.onLeave(page_)) {
        showPage(wanted);
    }
}
//! [leave]

GtkWidget* Window::getOpenRow() const
{
    return GTK_WIDGET(gtk_list_box_get_selected_row(GTK_LIST_BOX(list_)));
}

void Window::select(const std::string& page)
{
    for (std::size_t i = 0; i < layout_.pages.size(); ++i) {
        if (layout_.pages[i].id == page) {
            quiet_ = true;
            GtkListBoxRow* row =
                gtk_list_box_get_row_at_index(GTK_LIST_BOX(list_), static_cast<int>(i));
            const bool focused = gtk_widget_get_visible(window_) == FALSE ||
                                 gtk_container_get_focus_child(GTK_CONTAINER(list_)) != nullptr;
            gtk_list_box_select_row(GTK_LIST_BOX(list_), row);
            if (focused) {
                gtk_widget_grab_focus(GTK_WIDGET(row));
            }
            gtk_label_set_text(GTK_LABEL(title_), layout_.pages[i].title.c_str());
            quiet_ = false;
        }
    }
}

void Window::showPage(const std::string& id)
{
    page_ = id;
    select(id);
    gtk_stack_set_visible_child_name(GTK_STACK(stack_), id.c_str());
    gtk_widget_show(window_);
    listener_.onOpen(id);
}

//! [search]
// Pages and rows that have the text in them stay; the first of these pages is shown.
void Window::search()
{
    const std::string text = gtk_entry_get_text(GTK_ENTRY(search_));
    std::string first;
    bool here = false;
    for (std::size_t i = 0; i < layout_.pages.size(); ++i) {
        const Page& page = layout_.pages[i];
        const bool named = contains(page.title, text);
        bool found = named;
        for (const Row& row : page.rows) {
            const bool fits = contains(row.title + " " + row.hint, text);
            found = found || fits;
            if (row.kind != "button") {
                gtk_widget_set_visible(rows_[row.id], named || fits);
            }
        }
        gtk_widget_set_visible(gtk_widget_get_parent(gtk_widget_get_parent(names_[i])), found);
        here = here || (found && page.id == page_);
        first = found && first.empty() ? page.id : first;
    }
    setState(first.empty() ? getWord("nothing") : "");
    if (!here && !first.empty() && listener_.onLeave(page_)) {
        showPage(first);
    }
}
//! [search]

const Control& Window::getControl(const std::string& id) const
{
    const auto control = controls_.find(id);
    if (control == controls_.end()) {
        throw std::invalid_argument("no row " + id);
    }
    return control->second;
}

void Window::setValue(const std::string& id, const oxil::Variant& value)
{
    const Control& control = getControl(id);
    quiet_ = true;
    control.set(value);
    quiet_ = false;
}

std::string Window::getText(const std::string& id) const
{
    const Control& control = getControl(id);
    return control.getText != nullptr ? control.getText() : "";
}

void Window::setOptions(const std::string& id, const Choices& options)
{
    getControl(id).setOptions(options);
}

void Window::enable(const std::string& id, bool enabled)
{
    const auto row = rows_.find(id);
    gtk_widget_set_sensitive(row != rows_.end() ? row->second : getControl(id).widget, enabled);
}

void Window::setState(const std::string& text)
{
    gtk_label_set_text(GTK_LABEL(state_), text.c_str());
}

void Window::setMessage(const std::string& text, bool bad)
{
    gtk_label_set_text(GTK_LABEL(messageText_), text.c_str());
    gtk_image_set_from_icon_name(GTK_IMAGE(messageIcon_),
                                 bad ? "dialog-warning-symbolic" : "help-about-symbolic",
                                 GTK_ICON_SIZE_MENU);
    style(message_, "bad", bad);
    gtk_widget_set_visible(message_, !text.empty());
}

//! [question]
// Nothing behind the question can be used until it is answered.
void Window::setQuestion(bool shown)
{
    gtk_widget_set_sensitive(content_, !shown);
    gtk_widget_set_visible(question_, shown);
    gtk_widget_grab_focus(shown ? keep_ : getOpenRow());
}
//! [question]

void Window::setBusy(bool busy)
{
    gtk_stack_set_visible_child_name(GTK_STACK(stack_), busy ? "busy" : page_.c_str());
    gtk_widget_set_sensitive(list_, !busy);
    gtk_widget_set_sensitive(search_, !busy);
    gtk_widget_grab_focus(busy ? cancel_ : getOpenRow());
}

void Window::setProgress(int percent)
{
    gtk_progress_bar_set_fraction(GTK_PROGRESS_BAR(progress_), percent / 100.0);
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
    if (event->keyval == GDK_KEY_Escape && gtk_widget_get_visible(window.question_)) {
        window.listener_.onAnswered(false);
        return TRUE;
    }
    const bool control = (event->state & GDK_CONTROL_MASK) != 0;
    if (control && event->keyval == GDK_KEY_q) {
        gtk_window_close(GTK_WINDOW(window.window_));
        return TRUE;
    }
    if (control && event->keyval == GDK_KEY_f) {
        gtk_widget_grab_focus(window.search_);
        return TRUE;
    }
    // Among pages one goes with the arrows; the tabulator leads out of the list.
    GtkWidget* page = gtk_stack_get_visible_child(GTK_STACK(window.stack_));
    if (event->keyval == GDK_KEY_Tab && page != nullptr &&
        gtk_container_get_focus_child(GTK_CONTAINER(window.list_)) != nullptr) {
        return gtk_widget_child_focus(page, GTK_DIR_TAB_FORWARD);
    }
    return FALSE;
}

//! [describe]
std::string Window::describe() const
{
    std::ostringstream out;
    const auto place = [&](const std::string& id, GtkWidget* widget) {
        int x = 0;
        int y = 0;
        if (gtk_widget_get_mapped(widget) &&
            gtk_widget_translate_coordinates(widget, window_, 0, 0, &x, &y)) {
            out << "at\t" << id << '\t' << x << '\t' << y << '\t'
                << gtk_widget_get_allocated_width(widget) << '\t'
                << gtk_widget_get_allocated_height(widget) << '\n';
        }
    };
    out << "page\t" << gtk_stack_get_visible_child_name(GTK_STACK(stack_)) << "\nstate\t"
        << gtk_label_get_text(GTK_LABEL(state_)) << "\nmessage\t"
        << (gtk_widget_get_visible(message_) ? gtk_label_get_text(GTK_LABEL(messageText_)) : "")
        << "\nquestion\t" << gtk_widget_get_visible(question_) << '\n';
    for (const auto& [id, control] : controls_) {
        if (control.getText != nullptr) {
            out << "value\t" << id << '\t' << control.getText() << '\n';
        }
        place(id, control.widget);
    }
    for (std::size_t i = 0; i < layout_.pages.size(); ++i) {
        place("page:" + layout_.pages[i].id, gtk_widget_get_parent(names_[i]));
    }
    GtkWidget* focus = gtk_window_get_focus(GTK_WINDOW(window_));
    if (focus != nullptr) {
        place("focus", focus);
        if (gtk_widget_get_ancestor(focus, GTK_TYPE_POPOVER) != nullptr) {
            place("option", focus);
        }
    }
    place("search", search_);
    place("close", close_);
    place("keep", keep_);
    place("drop", drop_);
    return out.str();
}
//! [describe]

}  // namespace panel
