#pragma once

#include <functional>
#include <memory>
#include <utility>

#include "OxExport.h"

namespace oxil {

/**
 * Functions that any thread hands to the main loop, which calls them in order.
 *
 * All other classes of the main loop belong to its thread. A thread that has computed or read
 * something gets it there like this:
 *
 * @snippet worker/main.cpp post
 *
 * What is handed over is called once, from the GLib default main context, also from inside
 * WaitingLoop::run() and WaitingLoop::wait(); never from inside post(). A function may hand over
 * others, which come after all that wait already, destroy the queue, or wait in a loop, where those
 * after it are called meanwhile. It must not throw: the process ends if it does.
 *
 * The queue belongs to whoever its functions are about: when it is destroyed, those that wait are
 * destroyed with it, and none is called any more.
 *
 * @par Threads
 * Make and destroy the queue on the thread that runs the default main context. A Sender belongs to
 * whichever thread has it, and may outlive the queue.
 *
 * @par Exceptions
 * `std::bad_alloc` from post(), which has then taken nothing. GLib ends the process when it has no
 * memory for a source.
 */
class OXIL_API CallQueue {
    class State;

public:
    /** The end of a queue that other threads have. Copies lead to the same queue. */
    class OXIL_API Sender {
    public:
        /**
         * Hands over a function.
         *
         * What happened on this thread before is seen by the function.
         *
         * @param function  copied; it is destroyed on the main loop's thread, or here if it is not
         *                  taken. An empty one is not called.
         * @return STATUS_SUCCESS when it is in the queue; STATUS_INVALID_STATE, without a log line,
         *         when there is no queue any more
         */
        int post(const std::function<void()>& function) const;

        /** Meant for the queue itself: nobody else has a state. */
        explicit Sender(std::shared_ptr<State> state) noexcept : __state(std::move(state)) {}

    private:
        std::shared_ptr<State> __state;
    };

    /** Makes an empty queue. */
    CallQueue();

    /** Destroys the functions that wait, the first one first. */
    ~CallQueue();

    CallQueue(const CallQueue&) = delete;
    CallQueue& operator=(const CallQueue&) = delete;

    /** What is given to another thread. */
    Sender getSender() const { return Sender(__state); }

private:
    std::shared_ptr<State> __state;
};

}  // namespace oxil
