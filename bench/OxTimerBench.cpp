// Arming timers, disarming them, letting them fire.

#include "OxTimer.h"

#include <glib.h>

#include <functional>
#include <memory>
#include <vector>

#ifdef HAS_GLIBMM
#include <glibmm/main.h>
#endif

#include "Contender.h"
#include "OxStatus.h"

namespace oxil::bench {
namespace {

constexpr int LONG_DELAY = 60000;

int fired = 0;

int onFired(void* count)
{
    ++*static_cast<int*>(count);
    return G_SOURCE_REMOVE;
}

int waitFor(int count)
{
    while (fired < count) {
        g_main_context_iteration(nullptr, TRUE);
    }
    return fired;
}

// ---- Started and cancelled

/** @param startAndCancel  takes the delay; a timer that is not cancelled would fire at once if it is 0 */
template <typename StartAndCancel>
void competeAtCancelling(const std::string& contender, const StartAndCancel& startAndCancel)
{
    add("timer: start and cancel", contender, [=](benchmark::State& state) {
        fired = 0;
        startAndCancel(0);
        expect(state, g_main_context_iteration(nullptr, FALSE) == FALSE && fired == 0);
        for (auto _ : state) {
            startAndCancel(LONG_DELAY);
        }
    });
}

void addStartAndCancel()
{
    competeAtCancelling("floor", [](int delay) {
        g_source_remove(g_timeout_add(static_cast<guint>(delay), onFired, &fired));
    });

    const auto timer = std::make_shared<Timer>();
    const std::function<void()> callback = [] { ++fired; };
    competeAtCancelling("oxil", [=](int delay) {
        timer->start(delay, callback);
        timer->cancel();
    });

#ifdef HAS_GLIBMM
    competeAtCancelling("glibmm", [](int delay) {
        Glib::signal_timeout()
            .connect([] { return ++fired < 0; }, static_cast<unsigned int>(delay))
            .disconnect();
    });
#endif
}

// ---- One timer among others

/** Sources that don't fire. The same ones surround each contender. */
void armOthers(int count)
{
    static std::vector<guint> others;
    while (static_cast<int>(others.size()) > count) {
        g_source_remove(others.back());
        others.pop_back();
    }
    while (static_cast<int>(others.size()) < count) {
        others.push_back(g_timeout_add(LONG_DELAY, onFired, &fired));
    }
}

/** One timer is started and fires, so many being armed. */
template <typename Start>
void competeAmong(int count, const std::string& contender, const Start& start)
{
    add("timer: start and fire", contender, count, [=](benchmark::State& state, int) {
        const auto fire = [=] {
            fired = 0;
            start();
            return waitFor(1);
        };
        armOthers(count - 1);
        expect(state, fire() == 1 && g_main_context_iteration(nullptr, FALSE) == FALSE);
        for (auto _ : state) {
            benchmark::DoNotOptimize(fire());
        }
    });
}

void addStartAndFire(int count)
{
    competeAmong(count, "floor", [] { g_timeout_add(0, onFired, &fired); });

    const auto timer = std::make_shared<Timer>();
    const std::function<void()> callback = [] { ++fired; };
    competeAmong(count, "oxil", [=] { timer->start(0, callback); });

#ifdef HAS_GLIBMM
    competeAmong(count, "glibmm", [] { Glib::signal_timeout().connect_once([] { ++fired; }, 0); });
#endif
}

// ---- All at once

/** So many timers are armed, and then all of them fire. */
template <typename StartAll>
void competeTogether(int count, const std::string& contender, const StartAll& startAll)
{
    competeAt(
        count, "timer: start and fire all", contender,
        [=] {
            armOthers(0);
            fired = 0;
            startAll();
            return waitFor(count);
        },
        count);
}

void addStartAndFireAll(int count)
{
    competeTogether(count, "floor", [=] {
        for (int i = 0; i < count; ++i) {
            g_timeout_add(0, onFired, &fired);
        }
    });

    const auto timers = std::make_shared<std::vector<Timer>>(static_cast<std::size_t>(count));
    const std::function<void()> callback = [] { ++fired; };
    competeTogether(count, "oxil", [=] {
        for (Timer& timer : *timers) {
            timer.start(0, callback);
        }
    });

#ifdef HAS_GLIBMM
    competeTogether(count, "glibmm", [=] {
        for (int i = 0; i < count; ++i) {
            Glib::signal_timeout().connect_once([] { ++fired; }, 0);
        }
    });
#endif
}

}  // namespace
}  // namespace oxil::bench

int main(int argc, char** argv)
{
    oxil::bench::addStartAndCancel();
    for (const int count : {1, 100, 10000}) {
        oxil::bench::addStartAndFire(count);
    }
    for (const int count : {100, 10000}) {
        oxil::bench::addStartAndFireAll(count);
    }
    return oxil::bench::run(argc, argv);
}
