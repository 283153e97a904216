#include "ChannelEnd.h"

#include <gtest/gtest.h>

#include <chrono>
#include <utility>

#include "MainLoop.h"
#include "OxKeyValues.h"
#include "OxSerializer.h"
#include "OxStatus.h"
#include "OxWireEncoder.h"

namespace oxil::test {
namespace {

constexpr std::chrono::seconds LIMIT(20);

}  // namespace

void ChannelEnd::open(Descriptor socket, const ChannelLimits& limits)
{
    ASSERT_EQ(channel.open(socket.release(), onMessage(), onClosed(), limits), STATUS_SUCCESS);
}

void ChannelEnd::open(Descriptor input, Descriptor output, const ChannelLimits& limits)
{
    ASSERT_EQ(channel.open(input.release(), output.release(), onMessage(), onClosed(), limits),
              STATUS_SUCCESS);
}

Channel::OnMessage ChannelEnd::onMessage()
{
    return [this](const SerializedData& message) {
        messages.push_back(textOf(message));
        contextIds.push_back(message.getContextId());
    };
}

Channel::OnClosed ChannelEnd::onClosed()
{
    return [this](int status) { closed.push_back(status); };
}

Channel::OnAnswer ChannelEnd::onAnswer()
{
    return [this](int status, const SerializedData& answer) {
        answers.push_back(status == STATUS_SUCCESS ? textOf(answer)
                                                   : "status " + std::to_string(status));
    };
}

int ChannelEnd::send(int number)
{
    return channel.send(numbered(number));
}

bool ChannelEnd::waitForMessages(std::size_t count)
{
    return iterateUntil([&] { return messages.size() >= count; }, LIMIT);
}

bool ChannelEnd::waitForClosed(std::size_t count)
{
    return iterateUntil([&] { return closed.size() >= count; }, LIMIT);
}

bool ChannelEnd::waitForAnswers(std::size_t count)
{
    return iterateUntil([&] { return answers.size() >= count; }, LIMIT);
}

int numberOf(const SerializedData& message)
{
    KeyValues record;
    if (message.getBlockCount() != 1 ||
        Serializer::deserialize(message, record) != STATUS_SUCCESS || record.getCount() != 1 ||
        record.getKeyValues().front().getKey() != "n") {
        return -1;
    }
    return record.getKeyValues().front().getValue().toInt();
}

std::string textOf(const SerializedData& message)
{
    std::string text;
    if (message.getBlockCount() == 2) {
        std::vector<Variant> params;
        EXPECT_EQ(Serializer::deserialize(message, text, params), STATUS_SUCCESS);
        text += "(";
        for (std::size_t i = 0; i < params.size(); ++i) {
            text += (i > 0 ? ", " : "") + params[i].toString();
        }
        return text + ")";
    }
    KeyValues record;
    EXPECT_EQ(Serializer::deserialize(message, record), STATUS_SUCCESS);
    const std::vector<KeyValue>& entries = record.getKeyValues();
    if (entries.size() == 1 && entries.front().getKey() == "n") {
        return entries.front().getValue().toString();
    }
    for (const KeyValue& entry : entries) {
        text += (text.empty() ? "" : " ") + entry.getKey() + "=" + entry.getValue().toString();
    }
    return text;
}

KeyValues numbered(int number)
{
    KeyValues record;
    EXPECT_EQ(record.add("n", number), STATUS_SUCCESS);
    return record;
}

std::string frameOf(const oxil::Payload& payload, Kind kind, std::uint32_t number)
{
    std::string message;
    EXPECT_EQ(payload.encode(message), STATUS_SUCCESS);
    return framed(message, kind, number);
}

std::string framed(const std::string& message, Kind kind, std::uint32_t number)
{
    std::string frame(1, static_cast<char>(kind));
    for (int shift = 0; shift < 32; shift += 8) {
        frame += static_cast<char>(number >> shift & 0xFF);
    }
    return frame + message;
}

}  // namespace oxil::test
