#include "OxWireEncoder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstring>
#include <string>
#include <vector>

#include "OxLogMatchers.h"
#include "OxStatus.h"
#include "OxWireDecoder.h"

namespace oxil::test {
namespace {

using testing::ElementsAre;

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

TEST(WireEncoderTest, AppendsToWhatIsThere)
{
    KeyValues record;
    ASSERT_EQ(record.add("k", true), STATUS_SUCCESS);
    SerializedData data;
    ASSERT_EQ(record.serialize(data), STATUS_SUCCESS);
    const std::string one("\x4F\x78\x01\x07\x01\x05\x00\x09\x01k\x01", 11);
    const std::string two("\x4F\x78\x01\x0A\x01\x05\x04\x09\x01k\x01\x01k\x01", 14);

    std::string messages = "before";
    EXPECT_EQ(WireEncoder::encode(record, messages), STATUS_SUCCESS);
    EXPECT_EQ(WireEncoder::encode(data, messages), STATUS_SUCCESS);
    EXPECT_EQ(WireEncoder::encode({record, record}, messages, REPEATABLE), STATUS_SUCCESS);

    EXPECT_EQ(messages, "before" + one + one + two);
}

TEST(WireEncoderTest, WithoutADataAreaThereIsNoMessage)
{
    SerializedData data;
    data.addType(VARIANT_TYPE_INT);
    std::string message = "kept";
    LogCapture log;

    EXPECT_EQ(WireEncoder::encode(data, message), STATUS_INVALID_STATE);

    EXPECT_THAT(log.lines(), ElementsAre(Logged("encode", "data is nullptr.")));
    EXPECT_EQ(message, "kept");
}

TEST(WireEncoderTest, ADescriptionThatIsWrongIsRefused)
{
    struct Row {
        std::string reason;
        void (*spoil)(SerializationInfo& info);
    };
    const std::vector<Row> rows = {
        {"Invalid block count (6).", [](SerializationInfo& info) { info.blockCount = 6; }},
        {"Invalid block count (-1).", [](SerializationInfo& info) { info.blockCount = -1; }},
        {"Invalid type count (2001).", [](SerializationInfo& info) { info.typeCount[0] = 2001; }},
        {"Invalid type size (0).", [](SerializationInfo& info) { info.typeSizes[0][0] = 0; }},
        {"Invalid type size (5).", [](SerializationInfo& info) { info.typeSizes[0][0] = 5; }},
        {"Invalid data size (5).", [](SerializationInfo& info) { info.dataSize[0] = 5; }},
        {"Data is too short (0).",
         [](SerializationInfo& info) { info.repeatCount[0] = 536870912; }},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.reason);
        const char area[8] = {};
        SerializationInfo info = {};
        info.blockCount = 1;
        info.typeCount[0] = 1;
        info.dataSize[0] = 4;
        info.types[0][0] = VARIANT_TYPE_INT;
        info.typeSizes[0][0] = 4;
        row.spoil(info);
        SerializedData data(info);
        data.setData(static_cast<const void*>(area));
        std::string message = "kept";
        LogCapture log;

        EXPECT_EQ(WireEncoder::encode(data, message), STATUS_INVALID_PARAMETER);

        ASSERT_EQ(log.count(), 1);
        EXPECT_THAT(log.lines(), ElementsAre(Logged("validate", row.reason)));
        EXPECT_EQ(message, "kept");
    }
}

TEST(WireEncoderTest, AMessageThatAnIntCannotCountIsRefused)
{
    // Texts that fill their slots take two bytes more than these. Few bytes of memory, many times:
    // nobody would have two gigabytes of it for a test.
    constexpr std::size_t PIECE = 2 * 1024 * 1024;
    constexpr std::size_t PIECES = 1020;
    constexpr int TEXTS = 8350000;
    static_assert(TEXTS * 256ULL <= PIECE * PIECES);
    const int file = memfd_create("texts", 0);
    ASSERT_GE(file, 0);
    ASSERT_EQ(ftruncate(file, PIECE), 0);
    auto* area = static_cast<char*>(mmap(nullptr, PIECE * PIECES, PROT_NONE,
                                         MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0));
    if (static_cast<void*>(area) == MAP_FAILED) {
        close(file);
        GTEST_SKIP() << "no two gigabytes of addresses";
    }
    for (std::size_t i = 0; i < PIECES; ++i) {
        ASSERT_NE(
            mmap(area + i * PIECE, PIECE, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_FIXED, file, 0),
            MAP_FAILED);
    }
    close(file);
    std::memset(area, 'x', PIECE);
    std::string message = "kept";
    LogCapture log;
    {
        SerializedData data;
        data.addType(VARIANT_TYPE_STRING);
        data.setRepeatCount(0, TEXTS);
        data.setData(static_cast<const void*>(area));
        EXPECT_EQ(WireEncoder::encode(data, message), STATUS_CAPACITY_EXCEEDED);
    }

    // One block, its head of 1 + 4 + 1 bytes, and 256 + 2 for each text.
    EXPECT_THAT(log.lines(), ElementsAre(Logged("encode", "Message is too long (2154300007).")));
    EXPECT_EQ(message, "kept");
    munmap(area, PIECE * PIECES);
}

}  // namespace
}  // namespace oxil::test
