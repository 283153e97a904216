// What a peer may send to a Channel, in pieces: messages, requests and answers arrive as they would one
// by one, and the end is told as it is; whatever the callbacks do meanwhile.

#include <OxChannel.h>
#include <OxStatus.h>
#include <OxWireDecoder.h>
#include <glib.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Fuzz.h"
#include "Input.h"
#include "Messages.h"

namespace {

using namespace oxil;
using fuzz::Input;
using fuzz::toText;

/** What is told to the application, a text each. */
using Events = std::vector<std::string>;

constexpr int HOUR = 60 * 60 * 1000;

ChannelLimits makeLimits()
{
    ChannelLimits limits;
    limits.message.memory = 64 * 1024;
    limits.message.values = 4096;
    return limits;
}

std::string messageEvent(unsigned int contextId, const SerializedData& data)
{
    return "message " + std::to_string(contextId) + toText(data);
}

std::string answerEvent(unsigned int request, int status, const SerializedData& data)
{
    return "answer " + std::to_string(request) + " " + std::to_string(status) + toText(data);
}

std::string closedEvent(int status)
{
    return "closed " + std::to_string(status);
}

/** Reads a stream frame by frame, up to what is none. @return what OnClosed is told */
int readFrames(std::string_view stream, std::vector<bool>& isPending, Events& events)
{
    constexpr std::size_t FRONT = 5;
    const WireLimits limits = makeLimits().message;

    while (!stream.empty()) {
        const auto kind = static_cast<unsigned char>(stream[0]);
        if (kind > 2) {
            return STATUS_INVALID_PARAMETER;
        }
        if (stream.size() < FRONT) {
            return STATUS_INVALID_STATE;
        }
        Input front(stream.substr(1, FRONT - 1));
        const auto number = front.number<std::uint32_t>();
        if ((kind == 0) != (number == 0)) {
            return STATUS_INVALID_PARAMETER;
        }
        stream.remove_prefix(FRONT);
        std::size_t length = 0;
        int status = WireDecoder::getLength(stream.data(), stream.size(), length, limits);
        if (status != STATUS_SUCCESS) {
            return status;
        }
        if (length == 0 || length > stream.size()) {
            return STATUS_INVALID_STATE;
        }
        SerializedData data;
        status = WireDecoder::decode(stream.data(), length, data, limits);
        if (status != STATUS_SUCCESS) {
            return status;
        }
        stream.remove_prefix(length);
        if (kind != 2) {
            events.push_back(messageEvent(number, data));
        } else if (number <= isPending.size() && isPending[number - 1]) {
            isPending[number - 1] = false;
            events.push_back(answerEvent(number, STATUS_SUCCESS, data));
        }
    }
    return STATUS_SUCCESS;
}

/** A channel whose callbacks write down what they are told, and do something at one event. */
class Receiver {
public:
    enum class Reaction { None, Close, Destroy, Open, Send, Answer, Iterate, Replace };

    Receiver(int socket, Reaction reaction, std::size_t when)
        : __reaction(reaction), __when(when), __channel(std::make_unique<Channel>())
    {
        FUZZ_REQUIRE(__open(socket) == STATUS_SUCCESS);
    }

    void request(unsigned int number)
    {
        const int status = __channel->request(
            {"ask", {}}, HOUR, [this, number](int told, const SerializedData& answer) {
                __note(answerEvent(number, told, answer), 0);
            });
        FUZZ_REQUIRE(status == STATUS_SUCCESS);
    }

    const Events& events() const { return __events; }

    bool isOver() const { return __isOver; }

    /** Whether something was done that ends the delivery. */
    bool isGivenUp() const { return __isGivenUp; }

private:
    int __open(int socket)
    {
        return __channel->open(
            socket,
            [this](const SerializedData& message) {
                const unsigned int contextId = message.getContextId();
                __note(messageEvent(contextId, message), contextId);
            },
            [this](int status) {
                __isOver = true;
                __note(closedEvent(status), 0);
            },
            makeLimits());
    }

    void __note(const std::string& event, unsigned int contextId)
    {
        FUZZ_REQUIRE(!__isGivenUp);
        __events.push_back(event);
        if (__events.size() == __when) {
            __react(contextId);
        }
    }

    void __react(unsigned int contextId)
    {
        switch (__reaction) {
            case Reaction::None:
                break;
            case Reaction::Close:
                __channel->close();
                __isGivenUp = true;
                break;
            case Reaction::Destroy:
                __channel.reset();
                __isGivenUp = true;
                break;
            case Reaction::Open: {
                int sockets[2];
                FUZZ_REQUIRE(socketpair(AF_UNIX, SOCK_STREAM, 0, sockets) == 0);
                FUZZ_REQUIRE(__open(sockets[0]) == STATUS_SUCCESS);
                __channel->close();
                ::close(sockets[1]);
                __isGivenUp = true;
                break;
            }
            case Reaction::Send:
                static_cast<void>(__channel->send({"hello", {1, "two"}}));
                break;
            case Reaction::Answer:
                static_cast<void>(__channel->answer(contextId, {"here", {}}));
                break;
            case Reaction::Iterate:
                for (int i = 0; i < 20; ++i) {
                    g_main_context_iteration(nullptr, FALSE);
                }
                break;
            case Reaction::Replace:
                FUZZ_REQUIRE(__channel->open(-1, nullptr, nullptr) == STATUS_INVALID_PARAMETER);
                break;
        }
    }

    Reaction __reaction;
    std::size_t __when;
    std::unique_ptr<Channel> __channel;
    Events __events;
    bool __isOver = false;
    bool __isGivenUp = false;
};

void iterate()
{
    while (g_main_context_iteration(nullptr, FALSE)) {
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size)
{
    Input input(bytes, size);
    const auto reaction = static_cast<Receiver::Reaction>(input.below(8));
    const auto when = static_cast<std::size_t>(input.below(8));
    const int requestCount = input.below(4);
    const int step = input.byte();
    const std::string stream = fuzz::makeChannelStream(input);

    Events expected;
    std::vector<bool> isPending(static_cast<std::size_t>(requestCount), true);
    const int end = readFrames(stream, isPending, expected);
    const int endOfRequests = end != STATUS_SUCCESS ? end : STATUS_FAILURE;
    for (unsigned int number = 1; number <= isPending.size(); ++number) {
        if (isPending[number - 1]) {
            expected.push_back(answerEvent(number, endOfRequests, SerializedData()));
        }
    }
    expected.push_back(closedEvent(end));

    int sockets[2];
    FUZZ_REQUIRE(socketpair(AF_UNIX, SOCK_STREAM, 0, sockets) == 0);
    Receiver receiver(sockets[0], reaction, when);
    for (int i = 1; i <= requestCount; ++i) {
        receiver.request(static_cast<unsigned int>(i));
    }
    fuzz::clearLog();
    // Few pieces, but for short streams: each takes a turn of the main loop.
    const int pieceSize = step + static_cast<int>(stream.size() / 64);
    for (std::string_view left = stream; !left.empty();) {
        const std::string_view piece = fuzz::takePiece(left, pieceSize);
        if (send(sockets[1], piece.data(), piece.size(), MSG_NOSIGNAL) !=
            static_cast<ssize_t>(piece.size())) {
            break;  // the channel has given up
        }
        iterate();
    }
    shutdown(sockets[1], SHUT_WR);
    for (int i = 0; i < 10 && !receiver.isOver() && !receiver.isGivenUp(); ++i) {
        iterate();
    }
    close(sockets[1]);

    if (receiver.isGivenUp()) {
        FUZZ_REQUIRE(receiver.events().size() == when);
        expected.resize(when);
    } else {
        FUZZ_REQUIRE(receiver.isOver());
    }
    FUZZ_REQUIRE(receiver.events() == expected);
    if (when == 0 || reaction == Receiver::Reaction::None) {
        FUZZ_REQUIRE(fuzz::countLogged() == (end == STATUS_SUCCESS ? 0 : 1));
    }
    return 0;
}
