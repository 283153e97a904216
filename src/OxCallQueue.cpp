#include "OxCallQueue.h"

#include <glib.h>

#include <deque>
#include <mutex>
#include <utility>

#include "OxStatus.h"

namespace oxil {
namespace {

constexpr gint64 NEVER = -1;
constexpr gint64 AT_ONCE = 0;

}  // namespace

/** What queue and senders share. The source is the main loop's, and goes with the queue. */
class CallQueue::State : public std::enable_shared_from_this<State> {
public:
    using Function = std::function<void()>;

    State() = default;
    ~State() { g_source_unref(__source); }

    State(const State&) = delete;
    State& operator=(const State&) = delete;

    void open()
    {
        static_cast<Source*>(static_cast<void*>(__source))->state = this;
        // A function that waits in the main loop lets those behind it pass.
        g_source_set_can_recurse(__source, TRUE);
        g_source_attach(__source, nullptr);
    }

    void close()
    {
        {
            const std::lock_guard<std::mutex> lock(__mutex);
            __isOpen = false;
        }
        g_source_destroy(__source);
        // Nobody adds to them any more. Each may own whatever there is, so nothing is locked.
        while (!__functions.empty()) {
            const Function first = std::move(__functions.front());
            __functions.pop_front();
        }
    }

    int post(const Function& function)
    {
        Function copy(function);
        const std::lock_guard<std::mutex> lock(__mutex);
        if (!__isOpen) {
            return STATUS_INVALID_STATE;
        }
        __functions.push_back(std::move(copy));
        g_source_set_ready_time(__source, AT_ONCE);
        return STATUS_SUCCESS;
    }

private:
    struct Source {
        GSource base;
        State* state;
    };

    static gboolean __dispatch(GSource* source, GSourceFunc, gpointer) noexcept
    {
        const auto self =
            static_cast<Source*>(static_cast<void*>(source))->state->shared_from_this();
        // One in each turn of the loop: whatever else there is has its turn in between.
        if (const Function function = self->__take()) {
            function();
        }
        return G_SOURCE_CONTINUE;
    }

    Function __take()
    {
        Function first;
        const std::lock_guard<std::mutex> lock(__mutex);
        if (!__functions.empty()) {
            first = std::move(__functions.front());
            __functions.pop_front();
        }
        if (__functions.empty()) {
            g_source_set_ready_time(__source, NEVER);
        }
        return first;
    }

    static inline GSourceFuncs __calls = {nullptr, nullptr, __dispatch, nullptr, nullptr, nullptr};

    std::mutex __mutex;
    std::deque<Function> __functions;
    bool __isOpen = true;
    GSource* __source = g_source_new(&__calls, sizeof(Source));
};

int CallQueue::Sender::post(const std::function<void()>& function) const
{
    return __state->post(function);
}

CallQueue::CallQueue() : __state(std::make_shared<State>())
{
    __state->open();
}

CallQueue::~CallQueue()
{
    __state->close();
}

}  // namespace oxil
