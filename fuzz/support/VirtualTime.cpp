#include "VirtualTime.h"

#include <glib.h>
#include <time.h>

#include <vector>

#include "Fuzz.h"
#include "NextDefinition.h"

namespace {

constexpr long long NANOSECONDS = 1000 * 1000 * 1000;
constexpr long long NANOSECONDS_OF_MILLISECOND = 1000 * 1000;

bool isStarted = false;
long long now = NANOSECONDS;
std::vector<GMainLoop*> running;

gint pass(GPollFD* descriptors, guint count, gint timeout)
{
    if (timeout < 0) {
        oxil::fuzz::fail(__FILE__, __LINE__, "somebody will end the wait");
    }
    // Also who only looks takes some time.
    now += timeout > 0 ? timeout * NANOSECONDS_OF_MILLISECOND : NANOSECONDS_OF_MILLISECOND / 2;
    return g_poll(descriptors, count, 0);
}

}  // namespace

namespace oxil::fuzz {

void startVirtualTime()
{
    isStarted = true;
    g_main_context_set_poll_func(nullptr, pass);
}

void quitMainLoops()
{
    for (GMainLoop* loop : running) {
        g_main_loop_quit(loop);
    }
}

}  // namespace oxil::fuzz

// The executable's definitions win over those of the libraries.

int clock_gettime(clockid_t clock, timespec* time) noexcept
{
    static const auto next = oxil::test::real<int(clockid_t, timespec*)>("clock_gettime");
    if (!isStarted || clock != CLOCK_MONOTONIC) {
        return next(clock, time);
    }
    time->tv_sec = static_cast<time_t>(now / NANOSECONDS);
    time->tv_nsec = static_cast<long>(now % NANOSECONDS);
    return 0;
}

void g_main_loop_run(GMainLoop* loop)
{
    static const auto next = oxil::test::real<void(GMainLoop*)>("g_main_loop_run");
    running.push_back(loop);
    next(loop);
    running.pop_back();
}
