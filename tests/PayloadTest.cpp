#include "OxPayload.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

#include "OxChannel.h"
#include "OxLogMatchers.h"
#include "OxSerializer.h"
#include "OxStatus.h"
#include "OxWireDecoder.h"
#include "OxWireEncoder.h"
#include "Records.h"

namespace oxil::test {
namespace {

using oxil::Payload;
using testing::ElementsAre;
using testing::IsEmpty;

// ---- What the compiler can tell -----------------------------------------------------------------

static_assert(std::is_nothrow_constructible_v<Payload, const SerializedData&>);
static_assert(std::is_nothrow_constructible_v<Payload, const KeyValues&>);
static_assert(std::is_nothrow_constructible_v<Payload, const Records&>);
static_assert(std::is_nothrow_constructible_v<Payload, const Records&, Repeatable>);
static_assert(std::is_nothrow_constructible_v<Payload, const std::string&, const Values&>);
static_assert(std::is_convertible_v<const SerializedData&, Payload>);
static_assert(std::is_convertible_v<KeyValues, Payload>);
static_assert(std::is_convertible_v<Records, Payload>);

// A method call has parameters, and a text alone is nothing that is sent.
static_assert(!std::is_convertible_v<const char*, Payload>);
static_assert(!std::is_convertible_v<std::string, Payload>);
static_assert(!std::is_constructible_v<Payload, std::string>);
static_assert(!std::is_convertible_v<int, Payload>);
static_assert(!std::is_convertible_v<SerializedData*, Payload>);
static_assert(!std::is_convertible_v<KeyValues*, Payload>);
static_assert(!std::is_convertible_v<Values, Payload>);
static_assert(!std::is_convertible_v<std::nullptr_t, Payload>);

// ---- Each kind ----------------------------------------------------------------------------------

std::string encoded(const Payload& payload)
{
    std::string message = "before";
    EXPECT_EQ(payload.encode(message), STATUS_SUCCESS);
    EXPECT_EQ(message.substr(0, 6), "before");
    return message.substr(6);
}

/** The message of what the Serializer packs. */
template <typename... What>
std::string packed(const What&... what)
{
    SerializedData data;
    EXPECT_EQ(Serializer::serialize(what..., data), STATUS_SUCCESS);
    std::string message;
    EXPECT_EQ(WireEncoder::encode(data, message), STATUS_SUCCESS);
    return message;
}

const Records ROWS = {recordOf({{"id", 1}, {"name", "hall"}}),
                      recordOf({{"id", 2}, {"name", "kitchen"}})};
const Records MIXED = {recordOf({{"id", 1}}), recordOf({{"id", 2}, {"name", "kitchen"}})};

TEST(PayloadTest, ARecordIsPackedLikeTheSerializerDoes)
{
    EXPECT_EQ(encoded(ROWS[0]), packed(ROWS[0]));
}

TEST(PayloadTest, AListIsPackedLikeTheSerializerDoes)
{
    EXPECT_EQ(encoded(MIXED), packed(MIXED));
    EXPECT_EQ(encoded(Records()), packed(Records()));
}

TEST(PayloadTest, AListOfOneShapeIsPackedLikeTheSerializerDoes)
{
    SerializedData data;
    ASSERT_EQ(Serializer::serialize(ROWS, data, REPEATABLE), STATUS_SUCCESS);
    std::string message;
    ASSERT_EQ(WireEncoder::encode(data, message), STATUS_SUCCESS);

    EXPECT_EQ(encoded({ROWS, REPEATABLE}), message);
    EXPECT_NE(encoded({ROWS, REPEATABLE}), encoded(ROWS));
}

TEST(PayloadTest, AMethodCallIsPackedLikeTheSerializerDoes)
{
    const std::string method = "setVolume";
    const Values params = {40, "soft"};

    EXPECT_EQ(encoded({method, params}), packed(method, params));
    EXPECT_EQ(encoded({"", {}}), packed(std::string(), Values()));
}

TEST(PayloadTest, SerializedDataIsTakenAsItIs)
{
    SerializedData data;
    ASSERT_EQ(Serializer::serialize({"scene", "evening"}, "start", {1, true}, "now", data),
              STATUS_SUCCESS);
    std::string message;
    ASSERT_EQ(WireEncoder::encode(data, message), STATUS_SUCCESS);

    EXPECT_EQ(encoded(data), message);
}

// ---- What braces mean ---------------------------------------------------------------------------

/** The call as a receiver reads it; empty if the message is none. */
std::string callOf(const std::string& message)
{
    SerializedData data;
    EXPECT_EQ(WireDecoder::decode(message.data(), message.size(), data), STATUS_SUCCESS);
    std::string text;
    Values params;
    if (Serializer::deserialize(data, text, params) != STATUS_SUCCESS) {
        return "";
    }
    for (const Variant& param : params) {
        text += " " + param.getTypeName() + ":" + param.toString();
    }
    return text;
}

TEST(PayloadTest, BracesMakeAMethodCall)
{
    EXPECT_EQ(callOf(encoded({"getRooms", {}})), "getRooms");
    EXPECT_EQ(callOf(encoded({"ping", {1}})), "ping INT:1");
    EXPECT_EQ(callOf(encoded({"setVolume", {40, "soft"}})), "setVolume INT:40 STRING:soft");
    EXPECT_EQ(callOf(encoded({"setName", {"hall"}})), "setName STRING:hall");
    EXPECT_EQ(callOf(encoded({"setNames", {"hall", "kitchen"}})),
              "setNames STRING:hall STRING:kitchen");
    EXPECT_EQ(callOf(encoded({"mix", {true, 1.5, 2u, std::string("x")}})),
              "mix BOOL:1 DOUBLE:1.500000 UINT:2 STRING:x");
}

TEST(PayloadTest, WhatIsMadeForTheCallLivesLongEnough)
{
    const std::string text(60, 't');

    EXPECT_EQ(encoded({std::string(50, 'm'), Values(3, text)}),
              packed(std::string(50, 'm'), Values(3, text)));
    EXPECT_EQ(encoded(recordOf({{"name", text}})), packed(recordOf({{"name", text}})));
    EXPECT_EQ(encoded(Records(2, recordOf({{"name", text}}))),
              packed(Records(2, recordOf({{"name", text}}))));
}

TEST(PayloadTest, BracesAroundAnObjectMakeWhatItIs)
{
    EXPECT_EQ(encoded({ROWS[0]}), packed(ROWS[0]));
    EXPECT_EQ(encoded({MIXED}), packed(MIXED));
}

// ---- What can't be sent -------------------------------------------------------------------------

TEST(PayloadTest, WhatCantBePackedIsReportedAndAppendsNothing)
{
    std::string message = "before";
    LogCapture log;

    EXPECT_EQ(Payload(KeyValues()).encode(message), STATUS_INVALID_STATE);
    EXPECT_THAT(log.lines(),
                ElementsAre(testing::Field(&LogLine::message, "Invalid data size (0).")));
    EXPECT_EQ(message, "before");
}

TEST(PayloadTest, AParameterOfNoKindIsReported)
{
    const std::string method = "f";
    const Values params = {Variant()};
    std::string message = "before";
    LogCapture log;

    EXPECT_EQ(Payload(method, params).encode(message), STATUS_INVALID_PARAMETER);
    EXPECT_FALSE(log.lines().empty());
    EXPECT_EQ(message, "before");
}

TEST(PayloadTest, SerializedDataWithoutADataAreaIsReported)
{
    const SerializedData data;
    std::string message = "before";
    LogCapture log;

    EXPECT_EQ(Payload(data).encode(message), STATUS_INVALID_STATE);
    EXPECT_THAT(log.lines(), ElementsAre(Logged("encode", "data is nullptr.")));
    EXPECT_EQ(message, "before");
}

TEST(PayloadTest, AListThatIsTooLongIsReported)
{
    const Records records(1001, small("n", 1));
    std::string message = "before";
    LogCapture log;

    EXPECT_EQ(Payload(records).encode(message), STATUS_CAPACITY_EXCEEDED);
    EXPECT_FALSE(log.lines().empty());
    EXPECT_EQ(message, "before");
}

TEST(PayloadTest, AnEmptyListOfOneShapeIsRefusedLikeTheSerializerDoes)
{
    const Records none;
    std::string message = "before";

    EXPECT_THROW(Payload(none, REPEATABLE).encode(message), std::out_of_range);
    EXPECT_EQ(message, "before");
}

}  // namespace
}  // namespace oxil::test
