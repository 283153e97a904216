#include "OxWaitingLoop.h"

#include <glib.h>

#include <new>

#include "OxLog.h"
#include "OxStatus.h"
#include "OxTimer.h"
#include "internal/OxRunningFunction.h"
#include "internal/OxWatch.h"

namespace oxil {

using internal::Watch;

namespace {

/** Asks the predicate every so often, or expires once if there is none. */
void start(Timer& timer, int interval, bool hasPredicate, const std::function<void()>& onExpired)
{
    if (hasPredicate) {
        timer.start(interval, onExpired, REPEATABLE);
    } else {
        timer.start(interval, onExpired);
    }
}

/** Enters a mode and prepares its time-out; if that throws, the mode is as it was. */
template <typename Prepare>
void enter(bool& active, const Prepare& prepare)
{
    const bool wasActive = active;
    active = true;
    try {
        prepare();
    } catch (...) {
        active = active && wasActive;
        throw;
    }
}

}  // namespace

WaitingLoop::WaitingLoop()
    : __runTimer(new (std::nothrow) Timer()),
      __waitTimer(new (std::nothrow) Timer()),
      __mainLoop(g_main_loop_new(g_main_context_default(), TRUE),
                 [](GMainLoop* loop) { g_main_loop_unref(loop); })
{
}

WaitingLoop::~WaitingLoop()
{
    __mainLoop.reset();
    delete __waitTimer;
    delete __runTimer;
}

int WaitingLoop::run()
{
    return run(__noTimeout, std::function<bool()>());
}

int WaitingLoop::run(int interval)
{
    return run(interval, std::function<bool()>());
}

int WaitingLoop::run(int interval, const std::function<bool()>& predicate)
{
    enter(__running, [&] { __startRunTimer(interval, predicate); });
    // GLib holds a reference of its own meanwhile, so that the loop object may be destroyed inside.
    g_main_loop_run(__mainLoop.get());
    return 0;
}

int WaitingLoop::wait()
{
    return wait(__noTimeout, std::function<bool()>());
}

int WaitingLoop::wait(int interval)
{
    return wait(interval, std::function<bool()>());
}

int WaitingLoop::wait(int interval, const std::function<bool()>& predicate)
{
    enter(__waiting, [&] { __startWaitTimer(interval, predicate); });

    const Watch watch(*this);
    while (watch.isIntact() && isWaiting()) {
        g_main_context_iteration(g_main_context_default(), FALSE);
    }
    return 0;
}

void WaitingLoop::quit()
{
    __cancelTimer();
    if (isRunning() && __mainLoop != nullptr) {
        g_main_loop_quit(__mainLoop.get());
    }
    __running = false;
}

void WaitingLoop::go()
{
    __cancelTimer();
    __waiting = false;
}

bool WaitingLoop::isRunning() const
{
    return __running;
}

bool WaitingLoop::isWaiting() const
{
    return __waiting;
}

int WaitingLoop::__startRunTimer(int interval, const std::function<bool()>& predicate)
{
    __runPredicate = predicate;
    if (interval == __noTimeout) {
        return STATUS_SUCCESS;
    }
    if (__runTimer == nullptr) {
        OX_ERROR("Invalid state.");
        return STATUS_INVALID_STATE;
    }
    start(*__runTimer, interval, bool(__runPredicate), [this] { __runTimerExpired(); });
    return STATUS_SUCCESS;
}

int WaitingLoop::__startWaitTimer(int interval, const std::function<bool()>& predicate)
{
    __waitPredicate = predicate;
    if (interval == __noTimeout) {
        return STATUS_SUCCESS;
    }
    if (__waitTimer == nullptr) {
        OX_ERROR("Invalid state.");
        return STATUS_INVALID_STATE;
    }
    start(*__waitTimer, interval, bool(__waitPredicate), [this] { __waitTimerExpired(); });
    return STATUS_SUCCESS;
}

void WaitingLoop::__cancelTimer() const
{
    if (__runTimer != nullptr && __running) {
        __runTimer->cancel();
    }
    if (__waitTimer != nullptr && __waiting) {
        __waitTimer->cancel();
    }
}

void WaitingLoop::__runTimerExpired() noexcept
{
    __expire(__runPredicate);
}

void WaitingLoop::__waitTimerExpired() noexcept
{
    __expire(__waitPredicate);
}

/** Whichever timer has come to its end, both modes end. */
void WaitingLoop::__expire(Predicate& predicate)
{
    const Watch watch(*this);
    if (predicate && !predicate()) {
        return;
    }
    if (!watch.isIntact()) {
        return;
    }
    if (__running) {
        quit();
    }
    if (__waiting) {
        go();
    }
}

}  // namespace oxil
