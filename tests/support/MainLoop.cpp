#include "MainLoop.h"

#include <glib.h>

namespace oxil::test {
namespace {

using Clock = std::chrono::steady_clock;

const bool complaintsAreFatal = [] {
    g_log_set_always_fatal(
        static_cast<GLogLevelFlags>(G_LOG_FATAL_MASK | G_LOG_LEVEL_CRITICAL | G_LOG_LEVEL_WARNING));
    return true;
}();

}  // namespace

bool iterateUntil(const std::function<bool()>& condition, std::chrono::milliseconds limit)
{
    static_cast<void>(complaintsAreFatal);
    const Clock::time_point deadline = Clock::now() + limit;
    // Ends a blocking iteration in which nothing else comes up.
    const guint wakeUp = g_timeout_add(
        1, [](gpointer) -> gboolean { return G_SOURCE_CONTINUE; }, nullptr);
    while (!condition() && Clock::now() < deadline) {
        g_main_context_iteration(nullptr, TRUE);
    }
    g_source_remove(wakeUp);
    return condition();
}

void iterateFor(std::chrono::milliseconds time)
{
    iterateUntil([] { return false; }, time);
}

bool hasSource(const void* data)
{
    return g_main_context_find_source_by_user_data(nullptr, const_cast<void*>(data)) != nullptr;
}

}  // namespace oxil::test
