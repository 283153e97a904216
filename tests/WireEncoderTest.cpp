#include "OxWireEncoder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "OxStatus.h"
#include "OxWireDecoder.h"

namespace oxil::test {
namespace {

TEST(WireEncoderTest, WritesTheExampleOfTheManual)
{
    KeyValues record;
    ASSERT_EQ(record.add("id", 7), STATUS_SUCCESS);
    ASSERT_EQ(record.add("name", "ok"), STATUS_SUCCESS);
    SerializedData data;
    ASSERT_EQ(record.serialize(data), STATUS_SUCCESS);
    const std::string expected(
        "\x4F\x78\x01\x13\x01\x09\x00\xA1\x02id\x07\x00\x00\x00\x04name\x02ok", 23);

    std::string message;
    EXPECT_EQ(WireEncoder::encode(data, message), STATUS_SUCCESS);
    EXPECT_EQ(message, expected);

    message.clear();
    EXPECT_EQ(WireEncoder::encode(record, message), STATUS_SUCCESS);
    EXPECT_EQ(message, expected);

    KeyValues decoded;
    EXPECT_EQ(WireDecoder::decode(message.data(), message.size(), decoded), STATUS_SUCCESS);
    EXPECT_EQ(decoded, record);
}

}  // namespace
}  // namespace oxil::test
