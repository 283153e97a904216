#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <ostream>
#include <set>
#include <string>
#include <vector>

#include "AllocationFailure.h"
#include "GoldenEncoder.h"
#include "GoldenWireEncoder.h"
#include "OxSerializer.h"
#include "OxStatus.h"
#include "OxWireDecoder.h"
#include "OxWireEncoder.h"
#include "Payload.h"

namespace oxil::test {

void PrintTo(const GoldenPayload& payload, std::ostream* stream)
{
    *stream << payload.name;
}

namespace {

using Bytes = std::vector<std::uint8_t>;

// ---- Files and bytes

const std::filesystem::path DIRECTORY = OXIL_TEST_DATA;

Bytes read(const std::string& name)
{
    std::ifstream file(DIRECTORY / name, std::ios::binary);
    EXPECT_TRUE(file.is_open()) << name;

    Bytes bytes;
    for (std::istreambuf_iterator<char> i(file); i != std::istreambuf_iterator<char>(); ++i) {
        bytes.push_back(static_cast<std::uint8_t>(*i));
    }
    return bytes;
}

Bytes copyOf(const void* memory, std::size_t size)
{
    Bytes bytes(size);
    if (size > 0) {
        std::memcpy(bytes.data(), memory, size);
    }
    return bytes;
}

// Says where the bytes differ instead of printing them all.
testing::AssertionResult sameBytes(const Bytes& actual, const Bytes& expected)
{
    if (actual.size() != expected.size()) {
        return testing::AssertionFailure()
               << actual.size() << " bytes instead of " << expected.size();
    }
    for (std::size_t i = 0; i < expected.size(); ++i) {
        if (actual[i] != expected[i]) {
            return testing::AssertionFailure() << "byte " << i << " is " << int{actual[i]}
                                               << " instead of " << int{expected[i]};
        }
    }
    return testing::AssertionSuccess();
}

// ---- The tests

class GoldenFilesTest : public testing::TestWithParam<GoldenPayload> {
protected:
    const GoldenPayload& golden() const { return GetParam(); }
    const Bytes info = read(golden().name + ".info");
    const Bytes data = read(golden().name + ".data");
    const Bytes wire = read(golden().name + ".wire");
};

TEST_P(GoldenFilesTest, HoldWhatTheEncoderWrites)
{
    const GoldenBytes bytes = encode(golden());

    EXPECT_TRUE(sameBytes(info, bytes.info));
    EXPECT_TRUE(sameBytes(data, bytes.data));
    EXPECT_TRUE(sameBytes(wire, encodeWire(bytes)));
    const std::string json = toJson(bytes);
    EXPECT_TRUE(sameBytes(read(golden().name + ".json"), Bytes(json.begin(), json.end())));
}

TEST_P(GoldenFilesTest, HoldWhatTheLibraryWrites)
{
    const std::vector<Pack> packs = packsOf(golden().layout);

    for (std::size_t i = 0; i < packs.size(); ++i) {
        SCOPED_TRACE("overload " + std::to_string(i));
        Payload payload = payloadOf(golden());
        const DirtyMemory dirty;
        SerializedData packed;

        ASSERT_EQ(packs[i](payload, packed), STATUS_SUCCESS);

        ASSERT_GE(packed.getTotalDataSize(), 0);
        const auto size = static_cast<std::size_t>(packed.getTotalDataSize());
        const SerializationInfo& description = packed.getSerializationInfo();
        EXPECT_TRUE(sameBytes(copyOf(&description, sizeof description), info));
        EXPECT_TRUE(sameBytes(copyOf(packed.getData(), size), data));
        std::string message;
        EXPECT_EQ(WireEncoder::encode(packed, message), STATUS_SUCCESS);
        EXPECT_TRUE(sameBytes(Bytes(message.begin(), message.end()), wire));
    }
}

TEST_P(GoldenFilesTest, HoldMessagesOfDescriptionAndData)
{
    SerializedData received;

    ASSERT_EQ(WireDecoder::decode(wire.data(), wire.size(), received), STATUS_SUCCESS);

    const SerializationInfo& description = received.getSerializationInfo();
    EXPECT_TRUE(sameBytes(copyOf(&description, sizeof description), info));
    EXPECT_TRUE(sameBytes(copyOf(received.getData(), data.size()), data));
    for (const Unpack& unpack : unpacksOf(golden().layout)) {
        Payload payload;
        EXPECT_EQ(unpack(received, payload), STATUS_SUCCESS);
        EXPECT_EQ(difference(golden(), payload), "");
    }
}

TEST_P(GoldenFilesTest, AreReadBackByTheLibrary)
{
    SerializationInfo description;
    ASSERT_EQ(info.size(), sizeof description);
    std::memcpy(&description, info.data(), sizeof description);
    EXPECT_EQ(SerializedData::validate(description, data.size()), STATUS_SUCCESS);

    // Of exact size, so that a sanitizer sees a read beyond the end; never null.
    const std::unique_ptr<std::uint8_t[]> area(new std::uint8_t[data.size()]);
    std::copy(data.begin(), data.end(), area.get());

    const std::vector<Unpack> unpacks = unpacksOf(golden().layout);
    for (std::size_t i = 0; i < unpacks.size(); ++i) {
        SCOPED_TRACE("overload " + std::to_string(i));
        SerializedData received(description);
        ASSERT_EQ(received.setData(static_cast<const void*>(area.get())), STATUS_SUCCESS);
        EXPECT_EQ(received.getTotalDataSize(), static_cast<int>(data.size()));
        Payload payload;

        EXPECT_EQ(unpacks[i](received, payload), STATUS_SUCCESS);

        EXPECT_EQ(difference(golden(), payload), "");
    }
}

std::string nameOf(const testing::TestParamInfo<GoldenPayload>& info)
{
    std::string name = info.param.name;
    std::replace(name.begin(), name.end(), '-', '_');
    return name;
}

INSTANTIATE_TEST_SUITE_P(Payloads, GoldenFilesTest, testing::ValuesIn(goldenPayloads()), nameOf);

TEST(GoldenEncoderTest, WritesARecordAsAPersonWould)
{
    GoldenPayload payload;
    payload.layout = GoldenLayout::Record;
    payload.records = {{{"id", {GoldenKind::Int, std::int64_t{7}}},
                        {"name", {GoldenKind::Text, std::string("ok")}}}};

    const GoldenBytes bytes = encode(payload);

    Bytes description(50064);
    description[0] = 1;      // block count
    description[4] = 4;      // type count of block 0
    description[24] = 0x04;  // data size of block 0: 772
    description[25] = 0x03;
    description[64] = 10;  // types: text, int, text, text
    description[65] = 1;
    description[66] = 10;
    description[67] = 10;
    description[10065] = 1;  // sizes: 256, 4, 256, 256
    description[10068] = 4;
    description[10073] = 1;
    description[10077] = 1;
    EXPECT_TRUE(sameBytes(bytes.info, description));

    Bytes data(772);
    const auto write = [&](std::size_t offset, const Bytes& written) {
        for (std::size_t i = 0; i < written.size(); ++i) {
            data[offset + i] = written[i];
        }
    };
    write(0, {0x69, 0x64, 0x00});
    write(256, {0x07, 0x00, 0x00, 0x00});
    write(260, {0x6e, 0x61, 0x6d, 0x65, 0x00});
    write(516, {0x6f, 0x6b, 0x00});
    EXPECT_TRUE(sameBytes(bytes.data, data));
}

TEST(GoldenEncoderTest, StartsEveryBlockWhereItsListsAre)
{
    GoldenPayload payload;
    payload.layout = GoldenLayout::NamesMethodAndText;
    payload.names = {"n"};
    payload.params = {{GoldenKind::Bool, std::uint64_t{1}}};

    const GoldenBytes bytes = encode(payload);

    Bytes description(50064);
    description[0] = 4;
    for (const std::size_t block : {0u, 1u, 3u}) {
        description[4 + 4 * block] = 1;
        description[24 + 4 * block + 1] = 1;
        description[64 + 2000 * block] = 10;
        description[10064 + 8000 * block + 1] = 1;
    }
    description[12] = 1;
    description[32] = 1;
    description[4064] = 9;
    description[26064] = 1;
    EXPECT_TRUE(sameBytes(bytes.info, description));
    EXPECT_EQ(bytes.data.size(), 769u);
    EXPECT_EQ(bytes.data[512], 1);
}

TEST(GoldenEncoderTest, DescribesARepeatedListOnceAndCountsIt)
{
    GoldenPayload payload;
    payload.layout = GoldenLayout::RepeatedList;
    payload.records.resize(258, {{"k", {GoldenKind::Bool, std::uint64_t{1}}}});

    const GoldenBytes bytes = encode(payload);

    Bytes description(50064);
    description[0] = 1;
    description[4] = 2;
    description[24] = 1;  // 257 bytes
    description[25] = 1;
    description[44] = 2;  // 258 times
    description[45] = 1;
    description[64] = 10;
    description[65] = 9;
    description[10065] = 1;
    description[10068] = 1;
    EXPECT_TRUE(sameBytes(bytes.info, description));
    EXPECT_EQ(bytes.data.size(), 258u * 257u);
}

TEST(GoldenEncoderTest, WritesEachKindLittleEndian)
{
    struct Row {
        GoldenValue value;
        Bytes bytes;
    };
    const auto number = [](std::int64_t value) { return value; };
    const auto natural = [](std::uint64_t value) { return value; };
    const std::vector<Row> rows = {
        {{GoldenKind::Int, number(-2)}, {0xfe, 0xff, 0xff, 0xff}},
        {{GoldenKind::UInt, natural(0x01020304)}, {0x04, 0x03, 0x02, 0x01}},
        {{GoldenKind::Long, number(-2147483647 - 1)}, {0x00, 0x00, 0x00, 0x80}},
        {{GoldenKind::ULong, natural(0x80000001)}, {0x01, 0x00, 0x00, 0x80}},
        {{GoldenKind::LongLong, number(-2)}, {0xfe, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff}},
        {{GoldenKind::ULongLong, natural(0x0102030405060708)}, {8, 7, 6, 5, 4, 3, 2, 1}},
        {{GoldenKind::Float, 1.5}, {0x00, 0x00, 0xc0, 0x3f}},
        {{GoldenKind::Float, -0.0}, {0x00, 0x00, 0x00, 0x80}},
        {{GoldenKind::Float, 0x1p-149}, {0x01, 0x00, 0x00, 0x00}},
        {{GoldenKind::Float, 0x1p-126}, {0x00, 0x00, 0x80, 0x00}},
        {{GoldenKind::Float, -0x1.fffffep127}, {0xff, 0xff, 0x7f, 0xff}},
        {{GoldenKind::Float, HUGE_VAL}, {0x00, 0x00, 0x80, 0x7f}},
        {{GoldenKind::Double, 0.1}, {0x9a, 0x99, 0x99, 0x99, 0x99, 0x99, 0xb9, 0x3f}},
        {{GoldenKind::Double, 0.0}, {0, 0, 0, 0, 0, 0, 0, 0}},
        {{GoldenKind::Double, 0x1p-1074}, {1, 0, 0, 0, 0, 0, 0, 0}},
        {{GoldenKind::Double, -0x1p-1022}, {0, 0, 0, 0, 0, 0, 0x10, 0x80}},
        {{GoldenKind::Double, 0x1.fffffffffffffp1023},
         {0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xef, 0x7f}},
        {{GoldenKind::Double, -HUGE_VAL}, {0, 0, 0, 0, 0, 0, 0xf0, 0xff}},
        {{GoldenKind::Bool, natural(1)}, {0x01}},
        {{GoldenKind::Bool, natural(0)}, {0x00}},
    };

    for (std::size_t i = 0; i < rows.size(); ++i) {
        SCOPED_TRACE("row " + std::to_string(i));
        GoldenPayload payload;
        payload.layout = GoldenLayout::Method;
        payload.params = {rows[i].value};

        const GoldenBytes bytes = encode(payload);

        ASSERT_EQ(bytes.info[64 + 2000], static_cast<std::uint8_t>(rows[i].value.kind));
        EXPECT_EQ(bytes.info[10064 + 8000], rows[i].bytes.size());
        EXPECT_TRUE(sameBytes(Bytes(bytes.data.begin() + 256, bytes.data.end()), rows[i].bytes));
    }
}

TEST(GoldenWireEncoderTest, WritesARecordAsAPersonWould)
{
    GoldenPayload payload;
    payload.layout = GoldenLayout::Record;
    payload.records = {{{"id", {GoldenKind::Int, std::int64_t{7}}},
                        {"name", {GoldenKind::Text, std::string("ok")}}}};

    const Bytes message = encodeWire(encode(payload));

    EXPECT_TRUE(
        sameBytes(message, {0x4f, 0x78, 0x01, 0x13, 0x01, 0x09, 0x00, 0xa1, 0x02, 'i', 'd', 0x07,
                            0x00, 0x00, 0x00, 0x04, 'n',  'a',  'm',  'e',  0x02, 'o', 'k'}));
}

TEST(GoldenWireEncoderTest, WritesBlocksRepetitionsAndLongTextsAsAPersonWould)
{
    GoldenPayload payload;
    payload.layout = GoldenLayout::RepeatedList;
    payload.records.resize(65, {{"k", {GoldenKind::Bool, std::uint64_t{1}}}});
    payload.records[0][0].key = std::string(200, 'x');

    const Bytes message = encodeWire(encode(payload));

    Bytes expected = {0x4f, 0x78, 0x01, 0x90, 0x03, 0x01, 0x05, 0x82, 0x01, 0x09, 0xc8, 0x01};
    expected.resize(expected.size() + 200, 'x');
    expected.push_back(1);
    for (int i = 1; i < 65; ++i) {
        expected.insert(expected.end(), {1, 'k', 1});
    }
    EXPECT_TRUE(sameBytes(message, expected));
}

TEST(GoldenFilesDirectoryTest, HoldsNoFilesOfPayloadsThatAreGone)
{
    const std::set<std::string> extensions = {".info", ".data", ".wire", ".json"};
    std::set<std::string> known;
    for (const GoldenPayload& payload : goldenPayloads()) {
        for (const std::string& extension : extensions) {
            known.insert(payload.name + extension);
        }
    }

    std::set<std::string> present;
    for (const auto& file : std::filesystem::directory_iterator(DIRECTORY)) {
        if (extensions.count(file.path().extension().string()) > 0) {
            present.insert(file.path().filename().string());
        }
    }

    EXPECT_EQ(present, known);
}

}  // namespace
}  // namespace oxil::test
