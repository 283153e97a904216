#include "observer.h"

#include <cstdio>
#include <sstream>

namespace panel {

Observer::Observer(const Window& window, const Settings& settings)
    : window_(window), settings_(settings)
{
    on(window_.getWidget(), "realize", [this] {
        GdkFrameClock* clock = gtk_widget_get_frame_clock(window_.getWidget());
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
        !gtk_widget_translate_coordinates(widget, window_.getWidget(), 0, 0, &x, &y)) {
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
        return gtk_widget_get_visible(window_.getControl(id).widget) != FALSE;
    };
    GtkStack* const stack = GTK_STACK(window_.getControl("stack").widget);
    std::ostringstream out;
    out << "page\t" << gtk_stack_get_visible_child_name(stack) << "\nstate\t"
        << window_.getControl("state").getText() << "\nmessage\t"
        << (isShown("message") ? window_.getControl("message-text").getText() : "")
        << "\nquestion\t" << isShown("question") << "\nservice\t"
        << (settings_.isConnected() ? settings_.getProcessId() : 0) << '\n';
    for (const Page& page : window_.getPages()) {
        out << describe("page:" + page.id, page.entry);
        for (const Row& row : page.rows) {
            out << "value\t" << row.id << '\t' << window_.getControl(row.id).getText() << '\n';
        }
    }
    for (const auto& [id, control] : window_.getControls()) {
        out << describe(id, control.widget);
    }
    GtkWidget* focus = gtk_window_get_focus(GTK_WINDOW(window_.getWidget()));
    if (focus != nullptr) {
        const bool isOption = gtk_widget_get_ancestor(focus, GTK_TYPE_POPOVER) != nullptr;
        out << describe("focus", focus) << (isOption ? describe("option", focus) : "");
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
    gdk_display_sync(gtk_widget_get_display(window_.getWidget()));  // it is on the screen
    std::printf("%s\n", now.c_str());
    std::fflush(stdout);
    for (int c = std::getchar(); c != '\n' && c != EOF; c = std::getchar()) {
    }
}

}  // namespace panel
