#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>

#include "OxExport.h"
#include "OxMilliseconds.h"
#include "OxPayload.h"
#include "OxSerializedData.h"
#include "OxWireDecoder.h"

namespace oxil {

/** What a Channel accepts and keeps. */
struct ChannelLimits {
    WireLimits message;                   ///< what one received message may take
    std::size_t queue = 2 * 1024 * 1024;  ///< bytes that wait to be sent, with those of the message
                                          ///< that is being sent and the five in front of it
};

/**
 * Messages to another process and back, over a connected stream, on the GLib main loop.
 *
 * Both ends of a socket, a socket pair or two pipes have a Channel. What one sends, the other's
 * function gets as a SerializedData, in order. A request gets its answer, or a time-out:
 *
 * @code{.cpp}
 * channel.request({"getRooms", {}}, 1000, [](int status, const SerializedData& answer) { ... });
 * @endcode
 *
 * Messages travel in the wire form (the page on it tells how), so both ends may be of different
 * word size. Nothing that arrives is trusted: a peer that sends what no Channel sends, or more than
 * the limits allow, is given up, with a line in the log and a status.
 *
 * @par Callbacks
 * They run from the main loop, never from inside a member. Each may send, close, open or destroy
 * the channel, and may wait in a WaitingLoop: messages that arrive meanwhile are delivered there.
 * What a callback captured lives until it returns, and is let go of when the connection has ended
 * and OnClosed has returned. It must not throw: the process ends if it does. Callbacks may be empty.
 *
 * @par Sending
 * What the stream takes at once is sent at once; the rest waits in a queue and goes when there is
 * room. Nothing blocks, and no signal is raised when the other end is gone. What still waits when
 * the channel is closed or destroyed is lost: see getQueueSize().
 *
 * @par Threads
 * Everything on the thread that runs the default main context.
 *
 * @par Exceptions
 * `std::bad_alloc` from the members that take something; the channel is then as it was. What can't
 * be received for lack of memory ends the connection. GLib ends the process when it has no memory
 * for a source.
 */
class OXIL_API Channel {
public:
    /**
     * Gets a message.
     *
     * getContextId() is 0, or the number of a request, which waits for answer(). The data area
     * belongs to @p message, and both are gone when the callback returns.
     */
    using OnMessage = std::function<void(const SerializedData& message)>;

    /**
     * Told once that there will be no more messages, after the last one was delivered and every
     * request without answer was told. Not called after close() or when the channel is destroyed.
     *
     * @param status  STATUS_SUCCESS if the other end was closed in order and had been sent
     *                everything; STATUS_FAILURE after logging "Failed to read (%d)." or
     *                "Failed to write (%d)." with the number of the system's error, or
     *                "Not sent (%zu)." with the bytes in the queue of which nobody knows any more;
     *                STATUS_INVALID_STATE after logging "Closed within a message."; what
     *                WireDecoder returns and logs, or STATUS_INVALID_PARAMETER after logging
     *                "Invalid kind (%d)." or "Invalid context id (%u).", for a message that is
     *                refused; STATUS_OUT_OF_MEMORY
     *                after logging "Memory allocation failed."
     */
    using OnClosed = std::function<void(int status)>;

    /**
     * Gets the answer to a request, or learns that there won't be one. Called once, unless the
     * channel is closed by its owner before.
     *
     * @param status  STATUS_SUCCESS; STATUS_TIMED_OUT; or, when the connection has ended, the
     *                status of OnClosed, with STATUS_FAILURE in the place of STATUS_SUCCESS
     * @param answer  empty after a failure
     */
    using OnAnswer = std::function<void(int status, const SerializedData& answer)>;

    /** Makes a channel that is closed. */
    Channel() noexcept;

    /** Closes the channel. */
    ~Channel();

    Channel(const Channel&) = delete;
    Channel& operator=(const Channel&) = delete;

    /**
     * Takes over a connected stream; a channel that is open is closed first.
     *
     * The descriptor is closed with the channel, and made not to block (also for others that share
     * what it refers to, see `fcntl` in the POSIX manual) and not to be inherited.
     *
     * @return STATUS_SUCCESS; STATUS_INVALID_PARAMETER after logging "Invalid descriptor (%d)." for
     *         one that is not open. The channel is as it was then, and no descriptor was touched.
     */
    int open(int socket, const OnMessage& onMessage, const OnClosed& onClosed,
             const ChannelLimits& limits = ChannelLimits());

    /** The same with a stream in each direction: two pipes, say. */
    int open(int input, int output, const OnMessage& onMessage, const OnClosed& onClosed,
             const ChannelLimits& limits = ChannelLimits());

    /** Ends the connection; nothing is called any more. Does nothing if the channel is closed. */
    void close() noexcept;

    /** Whether messages can be sent. */
    bool isOpen() const noexcept;

    /** Bytes that wait to be sent; 0 if the channel is closed. */
    std::size_t getQueueSize() const noexcept;

    /**
     * Sends a message that expects no answer.
     *
     * @return STATUS_SUCCESS when it is sent or queued; STATUS_INVALID_STATE after logging
     *         "Invalid state." if the channel is closed; STATUS_FAILURE after logging
     *         "Failed to write (%d).", of which OnClosed is told from the main loop;
     *         STATUS_CAPACITY_EXCEEDED after logging
     *         "Queue is full (%zu)." with the bytes that would wait; or what Payload::encode()
     *         returns. After a failure nothing is sent. Success means no more than that the message
     *         is on its way: a request tells whether it has arrived.
     */
    int send(const Payload& payload);

    /**
     * Sends a message, and calls a function with its answer.
     *
     * Answers find their requests whatever their order.
     *
     * @param timeout  milliseconds, at least 1; an answer that arrives later is dropped
     * @return as send(); STATUS_INVALID_PARAMETER after logging "Invalid parameter (%d)." with a
     *         bad time-out. After a failure the function is not called: do not wait for it.
     */
    int request(const Payload& payload, int timeout, const OnAnswer& onAnswer);

    /** The same with a duration: `channel.request(payload, 2s, onAnswer)`. It is rounded up to
     *  milliseconds. */
    template <typename Rep, typename Period>
    int request(const Payload& payload, std::chrono::duration<Rep, Period> timeout,
                const OnAnswer& onAnswer)
    {
        return request(payload, internal::toMilliseconds(timeout), onAnswer);
    }

    /**
     * Answers a request, at once or later.
     *
     * @param contextId  of a message that was received since the channel was opened; the other end
     *                   of a new connection may have a request of its own with that number
     * @return as send(); STATUS_INVALID_PARAMETER after logging "Invalid parameter (%u)." for the
     *         number 0, of a message that expects no answer
     */
    int answer(unsigned int contextId, const Payload& payload);

private:
    class Connection;

    std::shared_ptr<Connection> __connection;
};

}  // namespace oxil
