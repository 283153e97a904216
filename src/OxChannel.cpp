#include "OxChannel.h"

#include <glib.h>

#include <cstdint>
#include <map>
#include <memory>
#include <new>
#include <set>
#include <string>
#include <utility>

#include "OxLog.h"
#include "OxStatus.h"
#include "internal/OxStream.h"
#include "internal/OxWireForm.h"

namespace oxil {
namespace {

using internal::Stream;

constexpr std::size_t CHUNK_SIZE = 16 * 1024;

// What had arrived when the other direction broke is delivered, but nobody keeps this end busy.
constexpr int MOST_LAST_CHUNKS = 64;

constexpr unsigned int INPUT = G_IO_IN;
constexpr unsigned int ROOM = G_IO_OUT;

constexpr gint64 MICROSECONDS_OF_MILLISECOND = 1000;
constexpr gint64 NEVER = -1;
constexpr gint64 AT_ONCE = 0;

/** What stands in front of a message of the wire form, followed by the number of a request. */
enum class Kind : unsigned char { MESSAGE, REQUEST, ANSWER };

constexpr std::size_t FRONT_SIZE = sizeof(Kind) + sizeof(std::uint32_t);

/** Calls a function of the application, which must not throw. */
template <typename Function, typename... Arguments>
void call(const Function& function, const Arguments&... arguments) noexcept
{
    if (function) {
        function(arguments...);
    }
}

}  // namespace

/**
 * A stream and its source in the main loop, from open() to the end.
 *
 * It outlives its channel while it is being dispatched: callbacks may do anything to that.
 */
class Channel::Connection : public std::enable_shared_from_this<Connection> {
public:
    Connection(const OnMessage& onMessage, const OnClosed& onClosed, const ChannelLimits& limits)
        : __onMessage(std::make_shared<OnMessage>(onMessage)),
          __onClosed(onClosed),
          __limits(limits)
    {
    }

    ~Connection() { __shut(); }

    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    /** Takes over the descriptors, which may be one and the same. */
    void open(int input, int output);

    /** Ends the connection, and tells nobody. */
    void abandon() noexcept
    {
        __isAbandoned = true;
        __shut();
    }

    /** Whether anything can be sent. */
    bool isWritable() const noexcept { return __isOpen() && !__isBroken; }

    std::size_t getQueueSize() const noexcept { return __queue.size() - __sent; }

    int send(Kind kind, unsigned int contextId, const Payload& payload);

    int request(const Payload& payload, int timeout, const OnAnswer& onAnswer);

private:
    struct Request {
        gint64 deadline;
        OnAnswer onAnswer;
    };

    using Requests = std::map<unsigned int, Request>;

    /** What the main loop knows. */
    struct Source {
        GSource base;
        Connection* connection;
    };

    static Connection& __of(GSource* source) noexcept
    {
        return *static_cast<Source*>(static_cast<void*>(source))->connection;
    }

    bool __isOpen() const noexcept { return __source != nullptr; }
    bool __isReady(gpointer tag) const noexcept;
    void __onReady() noexcept;
    void __transfer();
    void __flush() noexcept;
    void __watchOutput() noexcept;
    int __receive();
    void __deliver();
    int __deliverFirst();
    OnAnswer __take(Requests::iterator request) noexcept;
    void __expire() noexcept;
    int __explainEnd(int result) const noexcept;
    void __finish(int status) noexcept;
    void __shut() noexcept;

    std::shared_ptr<const OnMessage> __onMessage;  // it may be running when the connection ends
    OnClosed __onClosed;
    ChannelLimits __limits;
    Stream __input;
    Stream __output;  // not open if the input goes both ways
    GSource* __source = nullptr;
    gpointer __inputTag = nullptr;
    gpointer __outputTag = nullptr;  // null unless there is an output that is waited for

    std::string __received;
    std::size_t __delivered = 0;  // bytes at the beginning of what was received
    bool __mayDeliver = false;    // whether a whole message may be behind them

    std::string __queue;
    std::size_t __sent = 0;      // bytes at the beginning of the queue
    bool __isWaiting = false;    // for the main loop to tell that there is room
    bool __isBroken = false;     // whether a write has failed
    bool __isAbandoned = false;  // by the channel

    Requests __requests;
    std::set<std::pair<gint64, unsigned int>> __deadlines;  // of the requests, the next one first
    unsigned int __lastRequest = 0;
};

void Channel::Connection::open(int input, int output)
{
    static GSourceFuncs functions = {[](GSource* source, gint* timeout) -> gboolean {
                                         *timeout = -1;
                                         return __of(source).__mayDeliver;
                                     },
                                     [](GSource* source) -> gboolean {
                                         const Connection& self = __of(source);
                                         return self.__mayDeliver ||
                                                self.__isReady(self.__inputTag) ||
                                                self.__isReady(self.__outputTag);
                                     },
                                     [](GSource* source, GSourceFunc, gpointer) -> gboolean {
                                         __of(source).__onReady();
                                         return G_SOURCE_CONTINUE;
                                     },
                                     nullptr,
                                     nullptr,
                                     nullptr};

    __source = g_source_new(&functions, sizeof(Source));
    static_cast<Source*>(static_cast<void*>(__source))->connection = this;
    // A callback that waits in the main loop gets what arrives meanwhile.
    g_source_set_can_recurse(__source, TRUE);
    __input.take(input);
    __inputTag = g_source_add_unix_fd(__source, input, G_IO_IN);
    if (output != input) {
        __output.take(output);
    }
    g_source_attach(__source, nullptr);
}

int Channel::Connection::send(Kind kind, unsigned int contextId, const Payload& payload)
{
    const std::size_t begin = __queue.size();
    int r = STATUS_SUCCESS;
    try {
        char front[FRONT_SIZE] = {static_cast<char>(kind)};
        const std::uint32_t number = contextId;
        internal::copyNumber(front + sizeof kind, &number, sizeof number);
        __queue.append(front, sizeof front);
        r = payload.encode(__queue);
    } catch (...) {
        __queue.resize(begin);
        throw;
    }
    if (r == STATUS_SUCCESS && getQueueSize() > __limits.queue) {
        OX_ERROR("Queue is full (%zu).", getQueueSize());
        r = STATUS_CAPACITY_EXCEEDED;
    }
    if (r != STATUS_SUCCESS) {
        __queue.resize(begin);
        return r;
    }
    if (begin == 0) {
        __flush();
    }
    return __isBroken ? STATUS_FAILURE : STATUS_SUCCESS;
}

int Channel::Connection::request(const Payload& payload, int timeout, const OnAnswer& onAnswer)
{
    // The number 0 belongs to no request.
    do {
        ++__lastRequest;
    } while (__lastRequest == 0 || __requests.count(__lastRequest) != 0);

    const gint64 deadline =
        g_get_monotonic_time() + static_cast<gint64>(timeout) * MICROSECONDS_OF_MILLISECOND;
    const auto position = __requests.emplace(__lastRequest, Request{deadline, onAnswer}).first;
    int r = STATUS_SUCCESS;
    try {
        __deadlines.emplace(deadline, __lastRequest);
        r = send(Kind::REQUEST, __lastRequest, payload);
    } catch (...) {
        __take(position);
        throw;
    }
    if (r != STATUS_SUCCESS) {
        __take(position);
        return r;
    }
    const gint64 next = g_source_get_ready_time(__source);
    if (next == NEVER || next > deadline) {
        g_source_set_ready_time(__source, deadline);
    }
    return STATUS_SUCCESS;
}

/** Whether there is anything to learn about the stream. */
bool Channel::Connection::__isReady(gpointer tag) const noexcept
{
    return tag != nullptr && g_source_query_unix_fd(__source, tag) != 0;
}

void Channel::Connection::__onReady() noexcept
{
    const std::shared_ptr<Connection> self = shared_from_this();
    try {
        __transfer();
    } catch (const std::bad_alloc&) {
        OX_ERROR("Memory allocation failed.");
        __finish(STATUS_OUT_OF_MEMORY);
    }
}

void Channel::Connection::__transfer()
{
    const bool isReadable = __isReady(__inputTag);
    if (__isWaiting) {
        __flush();
    }
    const int result = isReadable ? __receive() : Stream::NOTHING_NOW;
    __deliver();
    __expire();
    // A write may have failed at any time: what had arrived until then is delivered.
    for (int i = 0; __isBroken && i < MOST_LAST_CHUNKS && __isOpen() && __receive() > 0; ++i) {
        __deliver();
    }
    if (__isOpen() && (__isBroken || result < 0)) {
        __finish(__isBroken ? STATUS_FAILURE : __explainEnd(result));
    }
}

/** Sends what there is room for. */
void Channel::Connection::__flush() noexcept
{
    Stream& stream = __output.isOpen() ? __output : __input;
    while (getQueueSize() > 0) {
        const int count = stream.write(__queue.data() + __sent, getQueueSize());
        if (count == Stream::FAILED) {
            OX_ERROR("Failed to write (%d).", stream.error());
            __isBroken = true;
            __sent = __queue.size();
            g_source_set_ready_time(__source, AT_ONCE);
        } else if (count == Stream::NOTHING_NOW) {
            break;
        } else {
            __sent += static_cast<std::size_t>(count);
        }
    }
    // Each byte is moved once on average.
    if (__sent >= __queue.size() / 2) {
        __queue.erase(0, __sent);
        __sent = 0;
    }
    __watchOutput();
}

/** Lets the main loop tell when there is room, as long as something waits for it. */
void Channel::Connection::__watchOutput() noexcept
{
    const bool isWaiting = getQueueSize() > 0;
    if (isWaiting == __isWaiting) {
        return;
    }
    __isWaiting = isWaiting;
    if (!__output.isOpen()) {
        g_source_modify_unix_fd(__source, __inputTag,
                                static_cast<GIOCondition>(isWaiting ? INPUT | ROOM : INPUT));
    } else if (isWaiting) {
        __outputTag = g_source_add_unix_fd(__source, __output.get(), G_IO_OUT);
    } else {
        // A pipe that nobody reads any more would wake the main loop again and again.
        g_source_remove_unix_fd(__source, std::exchange(__outputTag, nullptr));
    }
}

/** Reads a piece of what is there; the result is that of Stream::read(). */
int Channel::Connection::__receive()
{
    char chunk[CHUNK_SIZE];
    const int result = __input.read(chunk, sizeof chunk);
    if (result > 0) {
        __received.erase(0, __delivered);
        __delivered = 0;
        __received.append(chunk, static_cast<std::size_t>(result));
        __mayDeliver = true;
    }
    return result;
}

/** Calls back for every message that is there. */
void Channel::Connection::__deliver()
{
    while (__isOpen() && __mayDeliver) {
        const int r = __deliverFirst();
        if (r != STATUS_SUCCESS) {
            __finish(r);
        }
    }
}

int Channel::Connection::__deliverFirst()
{
    const char* front = __received.data() + __delivered;
    const std::size_t size = __received.size() - __delivered;
    __mayDeliver = false;
    if (size == 0) {
        return STATUS_SUCCESS;
    }
    const auto kind = static_cast<Kind>(*front);
    if (kind > Kind::ANSWER) {
        OX_ERROR("Invalid kind (%d).", static_cast<int>(kind));
        return STATUS_INVALID_PARAMETER;
    }
    if (size < FRONT_SIZE) {
        return STATUS_SUCCESS;
    }
    std::uint32_t contextId = 0;
    internal::copyNumber(&contextId, front + sizeof kind, sizeof contextId);
    if ((contextId == 0) != (kind == Kind::MESSAGE)) {
        OX_ERROR("Invalid context id (%u).", contextId);
        return STATUS_INVALID_PARAMETER;
    }
    const char* message = front + FRONT_SIZE;
    std::size_t length = 0;
    int r = WireDecoder::getLength(message, size - FRONT_SIZE, length, __limits.message);
    if (r != STATUS_SUCCESS || length == 0 || length > size - FRONT_SIZE) {
        return r;
    }

    SerializedData data;
    r = data.__isUsable() ? WireDecoder::decode(message, length, data, __limits.message)
                          : STATUS_OUT_OF_MEMORY;
    if (r != STATUS_SUCCESS) {
        return r;
    }
    data.setContextId(contextId);
    __delivered += FRONT_SIZE + length;
    __mayDeliver = true;
    if (kind != Kind::ANSWER) {
        const std::shared_ptr<const OnMessage> onMessage = __onMessage;
        call(*onMessage, data);
    } else if (const auto request = __requests.find(contextId); request != __requests.end()) {
        call(__take(request), STATUS_SUCCESS, data);
    }
    return STATUS_SUCCESS;
}

/** Takes out a request, which is about to be told or is not made after all. */
Channel::OnAnswer Channel::Connection::__take(Requests::iterator request) noexcept
{
    __deadlines.erase({request->second.deadline, request->first});
    OnAnswer onAnswer = std::move(request->second.onAnswer);
    __requests.erase(request);
    return onAnswer;
}

/** Ends the requests whose time is over. */
void Channel::Connection::__expire() noexcept
{
    while (__isOpen()) {
        const gint64 next = __deadlines.empty() ? NEVER : __deadlines.begin()->first;
        if (next == NEVER || next > g_get_monotonic_time()) {
            g_source_set_ready_time(__source, next);
            return;
        }
        const OnAnswer onAnswer = __take(__requests.find(__deadlines.begin()->second));
        call(onAnswer, STATUS_TIMED_OUT, SerializedData());
    }
}

/** The status of a stream that has come to its end. */
int Channel::Connection::__explainEnd(int result) const noexcept
{
    if (result == Stream::FAILED) {
        OX_ERROR("Failed to read (%d).", __input.error());
        return STATUS_FAILURE;
    }
    if (__received.size() > __delivered) {
        OX_ERROR("Closed within a message.");
        return STATUS_INVALID_STATE;
    }
    if (getQueueSize() > 0) {
        OX_ERROR("Not sent (%zu).", getQueueSize());
        return STATUS_FAILURE;
    }
    return STATUS_SUCCESS;
}

/** Ends the connection, and tells everyone who waits for something. */
void Channel::Connection::__finish(int status) noexcept
{
    __shut();
    while (!__isAbandoned && !__requests.empty()) {
        const OnAnswer onAnswer = __take(__requests.begin());
        call(onAnswer, status != STATUS_SUCCESS ? status : STATUS_FAILURE, SerializedData());
    }
    if (!__isAbandoned) {
        __isAbandoned = true;
        call(__onClosed, status);
    }
    // What they capture may be all that keeps the channel.
    __onClosed = nullptr;
    __onMessage = nullptr;
}

void Channel::Connection::__shut() noexcept
{
    if (__source != nullptr) {
        g_source_destroy(__source);
        g_source_unref(std::exchange(__source, nullptr));
    }
    __input.close();
    __output.close();
}

// --------------------------------------------------------------------------------------------------

Channel::Channel() noexcept = default;

Channel::~Channel()
{
    close();
}

int Channel::open(int socket, const OnMessage& onMessage, const OnClosed& onClosed,
                  const ChannelLimits& limits)
{
    return open(socket, socket, onMessage, onClosed, limits);
}

int Channel::open(int input, int output, const OnMessage& onMessage, const OnClosed& onClosed,
                  const ChannelLimits& limits)
{
    for (const int descriptor : {input, output}) {
        if (!Stream::isOpen(descriptor)) {
            OX_ERROR("Invalid descriptor (%d).", descriptor);
            return STATUS_INVALID_PARAMETER;
        }
    }
    const auto connection = std::make_shared<Connection>(onMessage, onClosed, limits);
    // What its functions capture may own this channel.
    const std::shared_ptr<Connection> before = std::exchange(__connection, connection);
    if (before != nullptr) {
        before->abandon();
    }
    connection->open(input, output);
    return STATUS_SUCCESS;
}

void Channel::close() noexcept
{
    if (__connection != nullptr) {
        // What it calls on its way out may destroy this channel.
        const std::shared_ptr<Connection> connection = std::move(__connection);
        connection->abandon();
    }
}

bool Channel::isOpen() const noexcept
{
    return __connection != nullptr && __connection->isWritable();
}

std::size_t Channel::getQueueSize() const noexcept
{
    return isOpen() ? __connection->getQueueSize() : 0;
}

int Channel::send(const Payload& payload)
{
    if (!isOpen()) {
        OX_ERROR("Invalid state.");
        return STATUS_INVALID_STATE;
    }
    return __connection->send(Kind::MESSAGE, 0, payload);
}

int Channel::request(const Payload& payload, int timeout, const OnAnswer& onAnswer)
{
    if (timeout < 1) {
        OX_ERROR("Invalid parameter (%d).", timeout);
        return STATUS_INVALID_PARAMETER;
    }
    if (!isOpen()) {
        OX_ERROR("Invalid state.");
        return STATUS_INVALID_STATE;
    }
    return __connection->request(payload, timeout, onAnswer);
}

int Channel::answer(unsigned int contextId, const Payload& payload)
{
    if (contextId == 0) {
        OX_ERROR("Invalid parameter (%u).", contextId);
        return STATUS_INVALID_PARAMETER;
    }
    if (!isOpen()) {
        OX_ERROR("Invalid state.");
        return STATUS_INVALID_STATE;
    }
    return __connection->send(Kind::ANSWER, contextId, payload);
}

}  // namespace oxil
