#include "observer.h"

#include <cstdio>
#include <sstream>

namespace panel {

Observer::Observer(const Layout& layout, const std::function<int()>& getService, bool speaks)
    : layout_(layout), getService_(getService)
{
    if (!speaks) {
        return;
    }
    on(layout_.getWindow(), "realize", [this] {
        GdkFrameClock* clock = gtk_widget_get_frame_clock(layout_.getWindow());
        on(clock, "after-paint", [this] { rest(); });
    });
}

Observer::~Observer()
{
    if (source_ != 0) {
        g_source_remove(source_);
    }
}

//! [rest]
// Frames follow each other within 17 milliseconds, and whatever is to be done goes before this.
void Observer::rest()
{
    if (source_ != 0) {
        g_source_remove(source_);
    }
    const auto onRest = [](void* data) noexcept -> gboolean {
        static_cast<Observer*>(data)->tell();
        return G_SOURCE_REMOVE;
    };
    source_ = g_timeout_add_full(G_PRIORITY_LOW, 50, onRest, this, nullptr);
}
//! [rest]

// Where a widget is, as somebody who uses it has to know.
std::string Observer::describe(const std::string& name, GtkWidget* widget) const
{
    int x = 0;
    int y = 0;
    if (!gtk_widget_get_mapped(widget) ||
        !gtk_widget_translate_coordinates(widget, layout_.getWindow(), 0, 0, &x, &y)) {
        return "";
    }
    std::ostringstream out;
    out << "at\t" << name << '\t' << x << '\t' << y << '\t'
        << gtk_widget_get_allocated_width(widget) << '\t' << gtk_widget_get_allocated_height(widget)
        << '\n';
    return out.str();
}

std::string Observer::describe() const
{
    const auto isShown = [this](const char* id) {
        return gtk_widget_get_visible(layout_.getControl(id).widget) != FALSE;
    };
    GtkWidget* const focus = gtk_window_get_focus(GTK_WINDOW(layout_.getWindow()));
    std::ostringstream out;
    out << "page\t" << (isShown("busy") ? "busy" : layout_.getText("stack")) << "\nstate\t"
        << layout_.getText("state") << "\nmessage\t"
        << (isShown("message") ? layout_.getText("message-text") : "") << "\nquestion\t"
        << isShown("question") << "\nfocus\t"
        << (focus != nullptr ? gtk_widget_get_name(focus) : "") << "\nservice\t" << getService_()
        << '\n';
    GtkWidget* list = layout_.getControl("list").widget;
    while (!GTK_IS_LIST_BOX(list)) {
        list = gtk_bin_get_child(GTK_BIN(list));
    }
    int place = 0;
    for (const Page& page : layout_.getPages()) {
        GtkListBoxRow* entry = gtk_list_box_get_row_at_index(GTK_LIST_BOX(list), place++);
        out << describe("page:" + page.id, GTK_WIDGET(entry));
        for (const std::string& row : page.rows) {
            out << "value\t" << row << '\t' << layout_.getText(row) << '\n';
        }
    }
    for (const auto& [id, control] : layout_.getControls()) {
        gboolean isOpen = FALSE;
        if (GTK_IS_COMBO_BOX(control.widget)) {
            g_object_get(control.widget, "popup-shown", &isOpen, nullptr);
        }
        out << describe(id, control.widget) << (isOpen ? describe("option", control.widget) : "");
    }
    return out.str();
}

void Observer::tell()
{
    source_ = 0;
    const std::string now = describe();
    if (now == told_) {
        return;
    }
    told_ = now;
    gdk_display_sync(gtk_widget_get_display(layout_.getWindow()));  // it is on the screen
    std::printf("%s\n", now.c_str());
    std::fflush(stdout);
    for (int c = std::getchar(); c != '\n' && c != EOF; c = std::getchar()) {
    }
}

}  // namespace panel
