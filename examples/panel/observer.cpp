#include "observer.h"

#include <cstdio>

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

void Observer::tell()
{
    source_ = 0;
    const std::string now = window_.describe() + "service\t" +
                            std::to_string(settings_.isConnected() ? settings_.getProcessId() : 0) +
                            "\n";
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
