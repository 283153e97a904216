#pragma once

#include <chrono>
#include <functional>
#include <memory>

#include "OxCallback.h"
#include "OxExport.h"
#include "OxMilliseconds.h"
#include "OxSerializedData.h"  // Repeatable

namespace oxil {

/**
 * Calls a function from the main loop after a delay, once or again and again.
 *
 * A timer owns its source in the GLib default main context: destroying or cancelling the timer
 * removes the source.
 *
 * @par Threads
 * Start, cancel and destroy a timer on the thread that runs the default main context; the callback
 * runs there too, also from inside WaitingLoop::run() and WaitingLoop::wait().
 *
 * @par Memory
 * A timer that fires once gives up a cell of 4 bytes each time it does, deliberately: the cell is
 * not freed. With the C library's bookkeeping it takes 32 bytes of the heap on a 64-bit host and 16
 * on the device. A timer that repeats gives up nothing.
 *
 * GLib ends the process when it has no memory for a source.
 *
 * @par Example
 * @snippet countdown/main.cpp countdown
 */
class OXIL_API Timer {
public:
    /** Makes a timer that is not armed and fires once when it is. */
    Timer();

    /** Removes the source if the timer is armed, and those that nobody owns, see start(); then lets
     *  go of the callback. */
    ~Timer();

    Timer(const Timer&) = delete;
    Timer& operator=(const Timer&) = delete;

    /**
     * Arms the timer; an armed timer is rearmed, and its earlier callback never runs again.
     *
     * The callback has been replaced whatever is returned.
     *
     * @param interval  delay in milliseconds; 0 means the next iteration of the main loop, and a
     *                  negative delay is a very long one (it is taken as unsigned, see
     *                  `g_timeout_add` in the GLib manual)
     * @param callback  copied, and kept until it is replaced or the timer is destroyed, also after
     *                  a timer that fires once has fired. It may cancel, restart or destroy this
     *                  timer and still use what it captured until it returns; when it runs, a timer
     *                  that fires once is already unarmed. Its own state lasts from one expiry to
     *                  the next. It must not throw: the process ends if it does. It may be empty.
     * @return STATUS_SUCCESS; STATUS_INVALID_STATE after logging "Invalid state." under the name
     *         __start, if the main loop refused the source (the timer stays armed or not as
     *         it was); STATUS_OUT_OF_MEMORY after logging "Memory allocation failed." there. In
     *         that last case the source runs without an owner: it fires all the same, and neither
     *         cancel() nor another start() stops it; the destructor does.
     */
    int start(int interval, const std::function<void()>& callback);

    /**
     * The same, calling every @p interval milliseconds until cancel().
     *
     * @note Repetition sticks: a later start() without Repeatable repeats as well.
     */
    int start(int interval, const std::function<void()>& callback, Repeatable);

    /** The same as the first form with a duration: `timer.start(2s, callback)`. It is rounded up to
     *  milliseconds; a negative one is 0, and the longest one INT_MAX milliseconds. */
    template <typename Rep, typename Period>
    int start(std::chrono::duration<Rep, Period> interval, const std::function<void()>& callback)
    {
        return start(internal::toMilliseconds(interval), callback);
    }

    /** The same, calling again and again until cancel(). */
    template <typename Rep, typename Period>
    int start(std::chrono::duration<Rep, Period> interval, const std::function<void()>& callback,
              Repeatable repeatable)
    {
        return start(internal::toMilliseconds(interval), callback, repeatable);
    }

    /** Disarms the timer. Does nothing if it is not armed. */
    void cancel();

private:
    using SourceId = unsigned int;

    int __start(int interval, const std::function<void()>& callback);
    OXIL_LOCAL void __leaveBehind(SourceId source);
    static int __timerExpired(void* data) noexcept;
    bool __onTimerExpired();
    OXIL_LOCAL static void __removeSource(SourceId* source);

    bool __repeating = false;
    internal::Callback<void()> __callback;
    std::unique_ptr<SourceId, void (*)(SourceId*)> __source;
};

}  // namespace oxil
