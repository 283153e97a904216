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

void addStartAndCancel()
{
    const std::string operation = "timer: start and cancel";

    compete(
        operation, "floor",
        [] { return g_source_remove(g_timeout_add(LONG_DELAY, onFired, &fired)) != 0; }, true);

    const auto timer = std::make_shared<Timer>();
    const std::function<void()> callback = [] { ++fired; };
    compete(
        operation, "oxil",
        [=] {
            const int r = timer->start(LONG_DELAY, callback);
            timer->cancel();
            return r;
        },
        STATUS_SUCCESS);

#ifdef HAS_GLIBMM
    compete(
        operation, "glibmm",
        [] {
            sigc::connection connection =
                Glib::signal_timeout().connect([] { return ++fired < 0; }, LONG_DELAY);
            connection.disconnect();
            return connection.connected();
        },
        false);
#endif
    require(g_main_context_pending(nullptr) == FALSE && fired == 0, operation.c_str());
}

// ---- One timer among others

/**
 * Registers a contender that starts one timer and waits until it fires, with so many timers armed.
 *
 * @param arm    arms so many timers that don't fire, and returns what keeps them armed
 * @param start  arms the one that fires at once
 */
template <typename Arm, typename Start>
void competeAmong(int count, const std::string& contender, const Arm& arm, const Start& start)
{
    const std::string operation = "timer: start and fire";

    const auto fire = [=] {
        fired = 0;
        start();
        return waitFor(1);
    };
    {
        const auto others = arm(count - 1);
        require(fire() == 1, (operation + " by " + contender).c_str());
    }
    require(g_main_context_pending(nullptr) == FALSE, operation.c_str());
    add(operation, contender, count, [=](benchmark::State& state, int) {
        const auto others = arm(count - 1);
        for (auto _ : state) {
            benchmark::DoNotOptimize(fire());
        }
        state.SetItemsProcessed(state.iterations());
    });
}

class Sources {
public:
    explicit Sources(int count)
    {
        for (int i = 0; i < count; ++i) {
            __ids.push_back(g_timeout_add(LONG_DELAY, onFired, &fired));
        }
    }

    ~Sources()
    {
        for (const guint id : __ids) {
            g_source_remove(id);
        }
    }

private:
    std::vector<guint> __ids;
};

#ifdef HAS_GLIBMM
class Connections {
public:
    explicit Connections(int count)
    {
        for (int i = 0; i < count; ++i) {
            __connections.push_back(
                Glib::signal_timeout().connect([] { return ++fired < 0; }, LONG_DELAY));
        }
    }

    ~Connections()
    {
        for (sigc::connection& connection : __connections) {
            connection.disconnect();
        }
    }

private:
    std::vector<sigc::connection> __connections;
};
#endif

void addStartAndFire(int count)
{
    const std::function<void()> callback = [] { ++fired; };

    competeAmong(
        count, "floor", [](int others) { return std::make_unique<Sources>(others); },
        [] { g_timeout_add(0, onFired, &fired); });

    const auto timer = std::make_shared<Timer>();
    competeAmong(
        count, "oxil",
        [=](int others) {
            auto timers = std::make_unique<std::vector<Timer>>(static_cast<std::size_t>(others));
            for (Timer& other : *timers) {
                other.start(LONG_DELAY, callback);
            }
            return timers;
        },
        [=] { timer->start(0, callback); });

#ifdef HAS_GLIBMM
    competeAmong(
        count, "glibmm", [](int others) { return std::make_unique<Connections>(others); },
        [] { Glib::signal_timeout().connect_once([] { ++fired; }, 0); });
#endif
}

// ---- All at once

/** So many timers are armed, and then all of them fire. */
void addStartAndFireAll(int count)
{
    const std::string operation = "timer: start and fire all";

    competeAt(
        count, operation, "floor",
        [=] {
            fired = 0;
            for (int i = 0; i < count; ++i) {
                g_timeout_add(0, onFired, &fired);
            }
            return waitFor(count);
        },
        count);

    const auto timers = std::make_shared<std::vector<Timer>>(static_cast<std::size_t>(count));
    const std::function<void()> callback = [] { ++fired; };
    competeAt(
        count, operation, "oxil",
        [=] {
            fired = 0;
            for (Timer& timer : *timers) {
                timer.start(0, callback);
            }
            return waitFor(count);
        },
        count);

#ifdef HAS_GLIBMM
    competeAt(
        count, operation, "glibmm",
        [=] {
            fired = 0;
            for (int i = 0; i < count; ++i) {
                Glib::signal_timeout().connect_once([] { ++fired; }, 0);
            }
            return waitFor(count);
        },
        count);
#endif
    require(g_main_context_pending(nullptr) == FALSE, operation.c_str());
}

}  // namespace
}  // namespace oxil::bench

int main(int argc, char** argv)
{
    oxil::bench::addStartAndCancel();
    for (const int count : {1, 100, 10000}) {
        oxil::bench::addStartAndFire(count);
        oxil::bench::addStartAndFireAll(count);
    }
    return oxil::bench::run(argc, argv);
}
