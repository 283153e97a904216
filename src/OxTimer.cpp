#include "OxTimer.h"

#include <glib.h>

#include <new>

#include "OxLog.h"
#include "OxStatus.h"
#include "internal/OxRunningFunction.h"

namespace oxil {
namespace {

/** How many sources there are that nobody owns, each counted once more while it is dispatched. */
int strays = 0;

/** What a source that nobody owns carries: a place inside its timer, which is no one else's data. */
char* toMark(Timer* timer)
{
    return reinterpret_cast<char*>(timer) + 1;
}

Timer* fromMark(gpointer mark)
{
    return static_cast<Timer*>(static_cast<void*>(static_cast<char*>(mark) - 1));
}

}  // namespace

Timer::Timer() : __source(nullptr, __removeSource) {}

Timer::~Timer()
{
    if (strays > 0) {
        while (g_source_remove_by_user_data(toMark(this)) != FALSE) {
        }
    }
}

int Timer::start(int interval, const std::function<void()>& callback)
{
    return __start(interval, callback);
}

int Timer::start(int interval, const std::function<void()>& callback, Repeatable)
{
    __repeating = true;
    return __start(interval, callback);
}

void Timer::cancel()
{
    __source.reset();
}

int Timer::__start(int interval, const std::function<void()>& callback)
{
    __callback = callback;

    const SourceId id = g_timeout_add(static_cast<guint>(interval), __timerExpired, this);
    if (id == 0) {
        OX_ERROR("Invalid state.");
        return STATUS_INVALID_STATE;
    }
    SourceId* cell = new (std::nothrow) SourceId(id);
    if (cell == nullptr) {
        OX_ERROR("Memory allocation failed.");
        __leaveBehind(id);
        return STATUS_OUT_OF_MEMORY;
    }

    // The new source is in place before the old one goes, so an armed timer stays armed throughout.
    __source.reset(cell);
    return STATUS_SUCCESS;
}

/** Leaves a source without owner, but so that the destructor finds it. Needs no memory. */
void Timer::__leaveBehind(SourceId source)
{
    static GSourceCallbackFuncs functions = {
        [](gpointer) { ++strays; }, [](gpointer) { --strays; },
        [](gpointer mark, GSource*, GSourceFunc* function, gpointer* data) {
            *function = [](gpointer ofTimer) {
                Timer* timer = fromMark(ofTimer);
                // An expiry that disarms the timer takes the owner from whatever source it has.
                if (!timer->__repeating && timer->__source != nullptr) {
                    timer->__leaveBehind(*timer->__source);
                }
                return __timerExpired(timer);
            };
            *data = mark;
        }};

    ++strays;
    g_source_set_callback_indirect(g_main_context_find_source_by_id(nullptr, source), toMark(this),
                                   &functions);
}

int Timer::__timerExpired(void* data) noexcept
{
    if (data == nullptr) {
        OX_ERROR("Invalid parameter.");
        return G_SOURCE_REMOVE;
    }
    return static_cast<Timer*>(data)->__onTimerExpired() ? G_SOURCE_CONTINUE : G_SOURCE_REMOVE;
}

bool Timer::__onTimerExpired()
{
    const bool repeating = __repeating;
    if (!repeating) {
        // GLib removes the source itself. The cell goes without its deleter, which would ask GLib
        // to remove a source that is on its way out.
        static_cast<void>(__source.release());
    }
    if (__callback) {
        __callback();
    }
    // The callback may have destroyed this timer.
    return repeating;
}

void Timer::__removeSource(SourceId* source)
{
    g_source_remove(*source);
    delete source;
}

}  // namespace oxil
