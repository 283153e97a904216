#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "OxChannel.h"
#include "OxPayload.h"
#include "OxSerializedData.h"
#include "Streams.h"

namespace oxil::test {

/** A channel, and what its functions were told. */
class ChannelEnd {
public:
    /** Opens the channel; the functions add to the members below. */
    void open(Descriptor socket, const ChannelLimits& limits = ChannelLimits());
    void open(Descriptor input, Descriptor output, const ChannelLimits& limits = ChannelLimits());

    Channel::OnMessage onMessage();
    Channel::OnClosed onClosed();

    /** A function for the answer to a request: adds "7", or "status -110", to the answers. */
    Channel::OnAnswer onAnswer();

    /** Sends the record `{n: number}`. */
    int send(int number);

    /** Waits until there are so many messages, until the channel was closed so often, or for so
     *  many answers; false if that takes too long. */
    bool waitForMessages(std::size_t count);
    bool waitForClosed(std::size_t count = 1);
    bool waitForAnswers(std::size_t count);

    std::vector<std::string> messages;  ///< textOf() each
    std::vector<unsigned int> contextIds;
    std::vector<std::string> answers;
    std::vector<int> closed;
    Channel channel;  ///< goes first
};

/** The number of the record `{n: number}`; -1 if it is none. */
int numberOf(const SerializedData& message);

/** The message as text: "7" for the record `{n: 7}`; "setVolume(40, soft)" for a method call; and
 *  "a=1 b=2" for other records. */
std::string textOf(const SerializedData& message);

/** The record `{n: number}`. */
KeyValues numbered(int number);

enum class Kind : std::uint8_t { MESSAGE, REQUEST, ANSWER };

/** The bytes that travel for a message, put together here. */
std::string frameOf(const oxil::Payload& payload, Kind kind = Kind::MESSAGE,
                    std::uint32_t number = 0);
std::string framed(const std::string& message, Kind kind = Kind::MESSAGE, std::uint32_t number = 0);

}  // namespace oxil::test
