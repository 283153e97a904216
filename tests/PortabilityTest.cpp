#include <OxColor.h>
#include <OxKeyValue.h>
#include <OxKeyValues.h>
#include <OxNumberParser.h>
#include <OxSerializedData.h>
#include <OxSerializer.h>
#include <OxStatus.h>
#include <OxTimer.h>
#include <OxVariant.h>
#include <OxWaitingLoop.h>
#include <OxXml.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include "LoadedScript.h"
#include "LuaChunk.h"
#include "MainLoopCalls.h"
#include "NativeApi.h"
#include "OxLogMatchers.h"
#include "ScriptFile.h"

/*
 * What a 32-bit ARM device and a 64-bit desktop host might do differently, and must not: values at
 * odd addresses, unsigned `char`, narrow `long` and `size_t`, the last bit of floating-point
 * numbers, conversions out of range, a small stack, exceptions beside the frames of C libraries.
 * Every expected value is a constant, the same for both.
 */

namespace oxil::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using Bytes = std::vector<std::uint8_t>;

constexpr std::uint8_t UNTOUCHED = 0xA5;
constexpr std::size_t SLOT = 256;
constexpr std::size_t SHIFTS = 8;  ///< one past the largest misalignment

template <typename To, typename From>
To sameBits(const From& from)
{
    static_assert(sizeof(To) == sizeof(From) && std::is_trivially_copyable_v<To>);
    To to;
    std::memcpy(&to, &from, sizeof to);
    return to;
}

std::uint32_t bitsOf(float number)
{
    return sameBits<std::uint32_t>(number);
}

std::uint64_t bitsOf(double number)
{
    return sameBits<std::uint64_t>(number);
}

float floatOf(std::uint32_t bits)
{
    return sameBits<float>(bits);
}

double doubleOf(std::uint64_t bits)
{
    return sameBits<double>(bits);
}

/** Every byte that a text can hold, those that are negative as a signed `char` included. */
std::string allBytes()
{
    std::string text;
    for (int byte = 1; byte <= 255; ++byte) {
        text.push_back(static_cast<char>(byte));
    }
    return text;
}

std::vector<char> highBytes()
{
    std::vector<char> bytes;
    for (int byte = 128; byte <= 255; ++byte) {
        bytes.push_back(static_cast<char>(byte));
    }
    return bytes;
}

// ---- Values at odd places -----------------------------------------------------------------------

struct Sample {
    Variant value;
    Bytes bytes;
};

/** Values of all kinds but text, and their bytes on the device, no two alike in one value. */
const std::vector<Sample>& samples()
{
    static const std::vector<Sample> SAMPLES = {
        {Variant(-0x01020304), {0xFC, 0xFC, 0xFD, 0xFE}},
        {Variant(0xF1E2D3C4U), {0xC4, 0xD3, 0xE2, 0xF1}},
        {Variant(0x12345678L), {0x78, 0x56, 0x34, 0x12}},
        {Variant(0x9ABCDEF0UL), {0xF0, 0xDE, 0xBC, 0x9A}},
        {Variant(-0x0102030405060708LL), {0xF8, 0xF8, 0xF9, 0xFA, 0xFB, 0xFC, 0xFD, 0xFE}},
        {Variant(0xF8E7D6C5B4A39281ULL), {0x81, 0x92, 0xA3, 0xB4, 0xC5, 0xD6, 0xE7, 0xF8}},
        {Variant(floatOf(0x3F9E0610U)), {0x10, 0x06, 0x9E, 0x3F}},
        {Variant(floatOf(0xFFC12345U)), {0x45, 0x23, 0xC1, 0xFF}},  // no number
        {Variant(doubleOf(0xC05EDD2F1A9FBE77U)), {0x77, 0xBE, 0x9F, 0x1A, 0x2F, 0xDD, 0x5E, 0xC0}},
        {Variant(doubleOf(0x7FF9876543210ABCU)), {0xBC, 0x0A, 0x21, 0x43, 0x65, 0x87, 0xF9, 0x7F}},
        {Variant(true), {0x01}},
    };
    return SAMPLES;
}

Bytes rawOf(const Variant& value)
{
    Bytes bytes(8, UNTOUCHED);
    const int size = value.toRaw(bytes.data());
    bytes.resize(static_cast<std::size_t>(std::max(size, 0)));
    return bytes;
}

/** The same kind and the same bytes; values that are no numbers are not equal to themselves. */
void expectSame(const Variant& value, const Sample& sample)
{
    EXPECT_EQ(value.getType(), sample.value.getType());
    EXPECT_EQ(rawOf(value), sample.bytes);
}

void append(Bytes& bytes, const Bytes& more)
{
    bytes.insert(bytes.end(), more.begin(), more.end());
}

/** A text in a slot, with zeros behind it. */
void append(Bytes& bytes, const std::string& text, std::size_t slot)
{
    const std::size_t end = bytes.size() + slot;
    append(bytes, Bytes(text.begin(), text.end()));
    bytes.resize(end);
}

/** Room at a misaligned address, with untouched bytes round it. */
class ShiftedRoom {
public:
    // What is allocated is aligned for every kind, the shift is counted from there.
    ShiftedRoom(std::size_t shift, std::size_t size)
        : __room(GUARD + shift + size + GUARD, UNTOUCHED), __begin(GUARD + shift), __size(size)
    {
    }

    std::uint8_t* data() { return &__room[__begin]; }

    Bytes content() const
    {
        const auto first = __room.begin() + static_cast<std::ptrdiff_t>(__begin);
        return Bytes(first, first + static_cast<std::ptrdiff_t>(__size));
    }

    void expectNothingElseTouched() const
    {
        for (std::size_t i = 0; i < __room.size(); ++i) {
            if (i < __begin || i >= __begin + __size) {
                EXPECT_EQ(__room[i], UNTOUCHED) << "byte " << i << " of the room";
            }
        }
    }

private:
    static constexpr std::size_t GUARD = 8;

    Bytes __room;
    std::size_t __begin;
    std::size_t __size;
};

TEST(PortabilityTest, EveryKindIsReadAtEveryMisalignment)
{
    for (std::size_t shift = 0; shift < SHIFTS; ++shift) {
        for (std::size_t width = 1; width <= SHIFTS; ++width) {
            SCOPED_TRACE(testing::Message() << "data at " << shift << ", value at " << width);
            const std::string text(width - 1, 't');

            // Each value in a block of its own behind the same text of odd or even length.
            for (const Sample& sample : samples()) {
                ShiftedRoom room(shift, width + sample.bytes.size());
                std::copy(text.begin(), text.end(), room.data());
                room.data()[width - 1] = 0;
                std::copy(sample.bytes.begin(), sample.bytes.end(), room.data() + width);
                SerializedData data;
                data.setBlockCount(2);
                ASSERT_EQ(data.addType(0, VARIANT_TYPE_STRING, static_cast<int>(width)),
                          STATUS_SUCCESS);
                ASSERT_EQ(data.addType(1, sample.value.getType()), STATUS_SUCCESS);
                ASSERT_EQ(data.setData(static_cast<const void*>(room.data())), STATUS_SUCCESS);

                EXPECT_EQ(data.getData(1), room.data() + width);
                ASSERT_NE(data.getValues(0), nullptr);
                EXPECT_THAT(*data.getValues(0), ElementsAre(Variant(text)));
                ASSERT_NE(data.getValues(1), nullptr);
                ASSERT_EQ(data.getValues(1)->size(), 1U);
                expectSame(data.getValues(1)->front(), sample);
            }
        }
    }
}

TEST(PortabilityTest, EntriesAndRecordsAreCopiedToEveryMisalignment)
{
    KeyValues record;
    Bytes recordBytes;
    for (const Sample& sample : samples()) {
        const std::string key = "key" + std::to_string(record.getCount());
        ASSERT_EQ(record.add(key, sample.value), STATUS_SUCCESS);
        append(recordBytes, key, SLOT);
        append(recordBytes, sample.bytes);
        // One byte more each time, so that the following ones come to stand at every place.
        const std::string oddKey = "odd" + std::to_string(record.getCount());
        ASSERT_EQ(record.add(oddKey, Variant(true)), STATUS_SUCCESS);
        append(recordBytes, oddKey, SLOT);
        recordBytes.push_back(1);
    }

    for (std::size_t shift = 0; shift < SHIFTS; ++shift) {
        SCOPED_TRACE(shift);
        for (const Sample& sample : samples()) {
            Bytes bytes;
            append(bytes, "id", SLOT);
            append(bytes, sample.bytes);
            ShiftedRoom room(shift, bytes.size());

            EXPECT_EQ(KeyValue("id", sample.value).copySerializedData(room.data()),
                      static_cast<int>(bytes.size()));

            EXPECT_EQ(room.content(), bytes);
            room.expectNothingElseTouched();
        }

        ShiftedRoom room(shift, recordBytes.size());
        EXPECT_EQ(record.copySerializedData(room.data()), static_cast<int>(recordBytes.size()));
        EXPECT_EQ(room.content(), recordBytes);
        room.expectNothingElseTouched();
    }
}

TEST(PortabilityTest, ParametersOfACallArePackedAndUnpackedAtEveryMisalignment)
{
    for (std::size_t shift = 0; shift < SHIFTS; ++shift) {
        SCOPED_TRACE(shift);
        std::vector<Sample> sent(shift, {Variant(true), {1}});
        for (const Sample& sample : samples()) {
            sent.push_back(sample);
        }
        std::vector<Variant> params;
        Bytes bytes;
        for (const Sample& sample : sent) {
            params.push_back(sample.value);
            append(bytes, sample.bytes);
        }
        SerializedData packed;
        ASSERT_EQ(Serializer::serialize("call", params, packed), STATUS_SUCCESS);
        ASSERT_EQ(packed.getTotalDataSize(), static_cast<int>(SLOT + bytes.size()));
        const auto* first = static_cast<const std::uint8_t*>(packed.getData());
        EXPECT_EQ(Bytes(first + SLOT, first + SLOT + bytes.size()), bytes);

        ShiftedRoom room(shift, SLOT + bytes.size());
        std::copy(first, first + SLOT + bytes.size(), room.data());
        SerializedData received(packed.getSerializationInfo());
        ASSERT_EQ(received.setData(static_cast<const void*>(room.data())), STATUS_SUCCESS);
        std::string method;
        std::vector<Variant> values;
        EXPECT_EQ(Serializer::deserialize(received, method, values), STATUS_SUCCESS);

        EXPECT_EQ(method, "call");
        ASSERT_EQ(values.size(), sent.size());
        for (std::size_t i = 0; i < sent.size(); ++i) {
            expectSame(values[i], sent[i]);
        }
    }
}

TEST(PortabilityTest, RecordsAreReadBehindTextsOfOddLength)
{
    // A sender of its own kind, whose slots are as wide as their texts.
    SerializedData data;
    Bytes bytes;
    for (std::size_t i = 0; i < 3 * samples().size(); ++i) {
        const Sample& sample = samples()[i % samples().size()];
        const std::string key = std::string(1 + i % 7, 'k') + std::to_string(i);
        append(bytes, key, key.size() + 1);
        append(bytes, sample.bytes);
        ASSERT_EQ(data.addType(VARIANT_TYPE_STRING, static_cast<int>(key.size()) + 1),
                  STATUS_SUCCESS);
        ASSERT_EQ(data.addType(sample.value.getType()), STATUS_SUCCESS);
    }
    ASSERT_EQ(data.getTotalDataSize(), static_cast<int>(bytes.size()));

    for (std::size_t shift = 0; shift < SHIFTS; ++shift) {
        SCOPED_TRACE(shift);
        ShiftedRoom room(shift, bytes.size() + SLOT);
        std::copy(bytes.begin(), bytes.end(), room.data());
        SerializedData received(data.getSerializationInfo());
        EXPECT_EQ(SerializedData::validate(received.getSerializationInfo(), bytes.size() + SLOT),
                  STATUS_SUCCESS);
        ASSERT_EQ(received.setData(static_cast<const void*>(room.data())), STATUS_SUCCESS);
        KeyValues record;

        EXPECT_EQ(record.deserialize(received), STATUS_SUCCESS);

        ASSERT_EQ(record.getCount(), static_cast<int>(3 * samples().size()));
        for (int i = 0; i < record.getCount(); ++i) {
            const auto number = static_cast<std::size_t>(i);
            EXPECT_EQ(record.getKey(i), std::string(1 + number % 7, 'k') + std::to_string(i));
            expectSame(record.getValue(i), samples()[number % samples().size()]);
        }
    }
}

// ---- Bytes above 127 ----------------------------------------------------------------------------

TEST(PortabilityTest, KeysOfHighBytesAreKeysLikeOthers)
{
    KeyValues record;
    for (const char byte : highBytes()) {
        ASSERT_EQ(record.add(std::string(1, byte), Variant(record.getCount())), STATUS_SUCCESS);
        ASSERT_EQ(record.add(std::string(9, byte), Variant(record.getCount())), STATUS_SUCCESS);
    }

    ASSERT_EQ(record.getCount(), 256);
    for (int i = 0; i < 128; ++i) {
        const std::string key(1, static_cast<char>(128 + i));
        EXPECT_EQ(record.getIndex(key), 2 * i);
        EXPECT_EQ(record.getIndex(key + key), 256);
        EXPECT_EQ(record.getValue(key), Variant(2 * i));
        LogCapture log;
        EXPECT_EQ(record.add(key, Variant(0)), STATUS_ALREADY_EXISTS);
        EXPECT_THAT(log.lines(), ElementsAre(Logged("add", "Key(" + key + ") already exist.")));
    }
}

TEST(PortabilityTest, TextsOfAllBytesTravel)
{
    const std::string text = allBytes();  // exactly what fits into a slot
    const KeyValue entry(text, Variant(text));
    SerializedData data;
    ASSERT_EQ(entry.serialize(data), STATUS_SUCCESS);

    const auto* bytes = static_cast<const std::uint8_t*>(data.getData());
    for (std::size_t i = 0; i < 255; ++i) {
        EXPECT_EQ(bytes[i], i + 1);
        EXPECT_EQ(bytes[SLOT + i], i + 1);
    }
    EXPECT_EQ(bytes[255], 0);
    EXPECT_EQ(bytes[SLOT + 255], 0);
    EXPECT_EQ(KeyValue(data), entry);
    EXPECT_EQ(Variant(text).getValueSize(), 255);
}

TEST(PortabilityTest, HighBytesAreNeitherDigitsNorBlanks)
{
    for (const char byte : highBytes()) {
        const std::string before = byte + std::string("7");
        const std::string behind = std::string("7") + byte + "8";
        SCOPED_TRACE(testing::PrintToString(before));
        EXPECT_EQ(NumberParser::toInt(before), 0);
        EXPECT_EQ(NumberParser::toUInt(before), 0U);
        EXPECT_EQ(NumberParser::toLongLong(before), 0);
        EXPECT_EQ(bitsOf(NumberParser::toFloat(before)), 0U);
        EXPECT_EQ(bitsOf(NumberParser::toDouble(before)), 0U);
        EXPECT_FALSE(NumberParser::toBool(byte + std::string("1")));
        EXPECT_EQ(NumberParser::toInt(behind), 7);
        EXPECT_EQ(NumberParser::toUInt(behind), 7U);
        EXPECT_EQ(NumberParser::toLongLong(behind), 7);
        EXPECT_EQ(bitsOf(NumberParser::toFloat(behind)), 0x40E00000U);
        EXPECT_EQ(bitsOf(NumberParser::toDouble(behind)), 0x401C000000000000U);
        EXPECT_FALSE(NumberParser::toBool(std::string("1") + byte));
    }
}

TEST(PortabilityTest, ScriptsGetAndGiveAllBytesAndHaveFunctionsNamedByThem)
{
    LoadedScript loaded(R"(
        _G['\128\195\255'] = function(text)
            local sum = 0
            for i = 1, #text do sum = sum + i * text:byte(i) end
            return text:reverse(), sum
        end
    )");
    std::string reversed;
    int sum = 0;

    EXPECT_EQ(loaded.script.callMethod("\x80\xC3\xFF", std::tie(reversed, sum), allBytes()),
              STATUS_SUCCESS);

    std::string expected = allBytes();
    std::reverse(expected.begin(), expected.end());
    EXPECT_EQ(reversed, expected);
    EXPECT_EQ(sum, 5559680);  // 1 * 1 + 2 * 2 + ... + 255 * 255
    EXPECT_EQ(loaded.script.getMethodName(), "\x80\xC3\xFF");
}

// ---- Widths -------------------------------------------------------------------------------------

TEST(PortabilityTest, SizesAreCountedIn32Bits)
{
    SerializedData data;
    ASSERT_EQ(data.addType(VARIANT_TYPE_STRING, INT_MAX), STATUS_SUCCESS);
    EXPECT_EQ(data.getDataSize(), INT_MAX);
    EXPECT_EQ(data.getTotalDataSize(), INT_MAX);
    ASSERT_EQ(data.addType(VARIANT_TYPE_STRING, INT_MAX), STATUS_SUCCESS);
    EXPECT_EQ(data.getDataSize(), -2);
    EXPECT_EQ(data.getTotalDataSize(), -2);
    ASSERT_EQ(data.addType(VARIANT_TYPE_STRING, 7), STATUS_SUCCESS);
    EXPECT_EQ(data.getDataSize(), 5);
    EXPECT_EQ(data.getTypeCount(), 3);

    // Times a repeat count: 2^31 and 2^32 bytes.
    SerializedData repeated;
    ASSERT_EQ(repeated.addType(VARIANT_TYPE_STRING, 0x10000), STATUS_SUCCESS);
    repeated.setRepeatCount(0, 0x7FFF);
    EXPECT_EQ(repeated.getDataSize(), 0x7FFF0000);
    repeated.setRepeatCount(0, 0x8000);
    EXPECT_EQ(repeated.getDataSize(), INT_MIN);
    repeated.setRepeatCount(0, 0x10000);
    EXPECT_EQ(repeated.getDataSize(), 0);
    repeated.setRepeatCount(0, 0x10001);
    EXPECT_EQ(repeated.getDataSize(), 0x10000);
}

TEST(PortabilityTest, WhatTakes2GigabytesIsRefusedWithoutAskingForThem)
{
    SerializedData nearly;
    ASSERT_EQ(nearly.addType(VARIANT_TYPE_STRING, INT_MAX - 259), STATUS_SUCCESS);
    LogCapture log;

    // The entry takes 260 bytes more: 2^31 of them.
    EXPECT_EQ(KeyValue("k", Variant(1)).serialize(nearly), STATUS_INVALID_STATE);

    EXPECT_THAT(log.lines(), ElementsAre(Logged("serialize", "Invalid data size (-2147483648).")));
    EXPECT_EQ(nearly.getData(), nullptr);
}

TEST(PortabilityTest, IntervalsOfAScriptAreCutToTheLimitsOfAnInt)
{
    const std::vector<std::pair<std::string, unsigned int>> intervals = {
        {"2147483647", 2147483647U},
        {"2^31", 2147483647U},
        {"2^32 + 5", 2147483647U},
        {"2^53", 2147483647U},
        {"1e300", 2147483647U},
        {"1/0", 2147483647U},
        {"-1", 4294967295U},
        {"-2^31", 2147483648U},
        {"-2^31 - 1", 2147483648U},
        {"-2^32 + 5", 2147483648U},
        {"-1e300", 2147483648U},
        {"-1/0", 2147483648U},
        {"0/0", 0U},
        {"1.9999999999999", 1U},
        {"-0.9999999999999", 0U},
        {"1e-300", 0U},
        {"'4294967301'", 2147483647U},
    };
    MainLoopCalls calls;
    const LoadedScript loaded("");
    ASSERT_EQ(runChunk(loaded.state(), "loop = WaitingLoop.create()"), "");

    for (const auto& [interval, passed] : intervals) {
        SCOPED_TRACE(interval);
        EXPECT_EQ(runChunk(loaded.state(), "local timer = Timer.start(" + interval + R"(, '')
                                            Timer.stop(timer))"),
                  "");
        EXPECT_EQ(calls.timeout(calls.timeoutCount()).interval, passed);
    }

    // A waiting loop takes -1 for no time-out: 2^32 - 1 and the like are not -1.
    for (const std::string interval : {"2^32 - 1", "2^32 + 1", "1e18"}) {
        for (const std::string mode : {"run", "wait"}) {
            SCOPED_TRACE(mode);
            const std::size_t before = calls.timeoutCount();
            EXPECT_EQ(runChunk(loaded.state(), "function leave() WaitingLoop." +
                                                   std::string(mode == "run" ? "quit" : "go") +
                                                   R"((loop) end
                                                   local timer = Timer.start(0, 'leave')
                                                   WaitingLoop.)" +
                                                   mode + "Time(loop, " + interval +
                                                   ") Timer.stop(timer)"),
                      "");
            ASSERT_EQ(calls.timeoutCount(), before + 2);
            EXPECT_EQ(calls.timeout(before + 2).interval, 2147483647U);
        }
    }
    EXPECT_EQ(runChunk(loaded.state(), "WaitingLoop.destroy(loop)"), "");
}

// ---- Floating point as text ---------------------------------------------------------------------

TEST(PortabilityTest, DoublesAreTextsToTheLastDigit)
{
    const std::string largest =
        "17976931348623157081452742373170435679807056752584499659891747680315726078002853876058955"
        "86327668781715404589535143824642343213268894641827684675467035375169860499105765512820762"
        "45490090389328944075868508455133942304583236903222948165808559332123348274797";
    const std::vector<std::pair<std::uint64_t, std::string>> rows = {
        {0x0000000000000000U, "0.000000"},
        {0x8000000000000000U, "-0.000000"},
        // subnormal
        {0x0000000000000001U, "0.000000"},
        {0x8000000000000001U, "-0.000000"},
        {0x000FFFFFFFFFFFFFU, "0.000000"},
        {0x0010000000000000U, "0.000000"},
        // round half a digit: below, above, exactly (to the even one)
        {0x3EA0C6F7A0B5ED8DU, "0.000000"},
        {0x3EA0C6F7A657146FU, "0.000001"},
        {0x3EB92A737110E454U, "0.000002"},
        {0xBEC4F8B588E368F1U, "-0.000003"},
        {0x3F80000000000000U, "0.007812"},
        {0x3F98000000000000U, "0.023438"},
        {0xBF80000000000000U, "-0.007812"},
        {0x3FEFFFFEBDE0A0BFU, "0.999999"},
        {0x3FEFFFFEF39085F5U, "1.000000"},
        {0x3FF000008637BD06U, "1.000001"},
        {0x3FB999999999999AU, "0.100000"},
        {0x3FE5555555555555U, "0.666667"},
        {0x419D6F34547E6B75U, "123456789.123457"},
        // round the limits of integers
        {0x41E0000000000000U, "2147483648.000000"},
        {0x41EFFFFFFFF00000U, "4294967295.500000"},
        {0x4340000000000000U, "9007199254740992.000000"},
        {0xC3E0000000000000U, "-9223372036854775808.000000"},
        {0x43F0000000000000U, "18446744073709551616.000000"},
        // all digits of large ones
        {0x4480F0CF064DD592U, "10000000000000000000000.000000"},
        {0x44B52D02C7E14AF6U, "99999999999999991611392.000000"},
        {0x54B249AD2594C37DU,
         "1000000000000000015902891109759918046836080856394528138978132755774783877217038106081346"
         "9985856815104.000000"},
        {0x7FEFFFFFFFFFFFFFU, largest.substr(0, 255)},
        {0xFFEFFFFFFFFFFFFFU, "-" + largest.substr(0, 254)},
        {0x7FF0000000000000U, "inf"},
        {0xFFF0000000000000U, "-inf"},
        {0x7FF8000000000000U, "nan"},
        {0xFFF8000000000000U, "-nan"},
        {0x7FF8000000000123U, "nan"},
    };
    for (const auto& [bits, text] : rows) {
        EXPECT_EQ(Variant(doubleOf(bits)).toString(), text) << std::hex << bits;
    }
}

TEST(PortabilityTest, FloatsAreTextsToTheLastDigit)
{
    const std::vector<std::pair<std::uint32_t, std::string>> rows = {
        {0x00000000U, "0.000000"},
        {0x80000000U, "-0.000000"},
        {0x00000001U, "0.000000"},
        {0x807FFFFFU, "-0.000000"},
        {0x00800000U, "0.000000"},
        {0x350637BDU, "0.000000"},
        {0x35C9539CU, "0.000002"},
        {0xBC000000U, "-0.007812"},
        {0x3CC00000U, "0.023438"},
        {0x3DCCCCCDU, "0.100000"},
        {0x3E99999AU, "0.300000"},
        {0x3EAAAAABU, "0.333333"},
        {0xBF2AAAABU, "-0.666667"},
        {0x3F7FFFFFU, "1.000000"},
        {0x3F800001U, "1.000000"},
        {0x40490FDBU, "3.141593"},
        {0x4AFFFFFFU, "8388607.500000"},
        {0x4B800000U, "16777216.000000"},
        {0x4F000000U, "2147483648.000000"},
        {0xCF000000U, "-2147483648.000000"},
        {0x4F7FFFFFU, "4294967040.000000"},
        {0x501502F9U, "10000000000.000000"},
        {0x7149F2CAU, "1000000015047466219876688855040.000000"},
        {0xFF7FFFFFU, "-340282346638528859811704183484516925440.000000"},
        {0x7F800000U, "inf"},
        {0xFF800000U, "-inf"},
        {0x7FC00000U, "nan"},
        {0xFFC00000U, "-nan"},
        {0x7FC12345U, "nan"},
    };
    for (const auto& [bits, text] : rows) {
        EXPECT_EQ(Variant(floatOf(bits)).toString(), text) << std::hex << bits;
    }
}

// ---- Floating point, bit for bit ----------------------------------------------------------------

TEST(PortabilityTest, TextsAreTheNearestNumbers)
{
    struct Row {
        std::string text;
        std::uint32_t asFloat;
        std::uint64_t asDouble;
    };
    const std::vector<Row> rows = {
        {"0.7", 0x3F333333U, 0x3FE6666666666666U},
        {"1e-5", 0x3727C5ACU, 0x3EE4F8B588E368F1U},
        {"4.35", 0x408B3333U, 0x4011666666666666U},
        {"3.14159265358979323846", 0x40490FDBU, 0x400921FB54442D18U},
        {"6.02214076e23", 0x66FF0C2EU, 0x44DFE185CA57C517U},
        {"6.62607015e-34", 0x085C305FU, 0x390B860BDE023111U},
        {"-1.602176634e-19", 0xA03D26D1U, 0xBC07A4DA290C1653U},
        {"1e22", 0x64078678U, 0x4480F0CF064DD592U},
        {"1e23", 0x65A96816U, 0x44B52D02C7E14AF6U},
        {"123456789012345678901234567890", 0x6FC77488U, 0x45F8EE90FF6C373EU},
        // half-way between two floats, and a little to either side
        {"16777217", 0x4B800000U, 0x4170000010000000U},
        {"16777219", 0x4B800002U, 0x4170000030000000U},
        {"33554431", 0x4C000000U, 0x417FFFFFF0000000U},
        {"1.000000059604644775390624", 0x3F800000U, 0x3FF0000010000000U},
        {"1.000000059604644775390625", 0x3F800000U, 0x3FF0000010000000U},
        {"1.000000059604644775390626", 0x3F800001U, 0x3FF0000010000000U},
        {"1.000000178813934326171875", 0x3F800002U, 0x3FF0000030000000U},
        // the same of doubles
        {"9007199254740993", 0x5A000000U, 0x4340000000000000U},
        {"9007199254740995", 0x5A000000U, 0x4340000000000002U},
        {"1.00000000000000011102230246251565404236316680908203124", 0x3F800000U,
         0x3FF0000000000000U},
        {"1.00000000000000011102230246251565404236316680908203125", 0x3F800000U,
         0x3FF0000000000000U},
        {"1.00000000000000011102230246251565404236316680908203126", 0x3F800000U,
         0x3FF0000000000001U},
        // the largest numbers, and half a digit more
        {"3.4028235677973365e38", 0x7F7FFFFFU, 0x47EFFFFFF0000000U},
        {"-3.4028235677973367e38", 0xFF800000U, 0xC7EFFFFFF0000000U},
        {"1.797693134862315807e308", 0x7F800000U, 0x7FEFFFFFFFFFFFFFU},
        {"1.797693134862315808e308", 0x7F800000U, 0x7FF0000000000000U},
        // the smallest ones
        {"1.1754943508222875e-38", 0x00800000U, 0x3810000000000000U},
        {"1.1754942807573643e-38", 0x00800000U, 0x380FFFFFE0000000U},
        {"7.006492321624085e-46", 0x00000000U, 0x3690000000000000U},
        {"7.006492321624086e-46", 0x00000001U, 0x3690000000000000U},
        {"2.2250738585072012e-308", 0x00000000U, 0x0010000000000000U},
        {"2.2250738585072011e-308", 0x00000000U, 0x000FFFFFFFFFFFFFU},
        {"9.5e-310", 0x00000000U, 0x0000AEE12CB08A99U},
        {"2.4703282292062327e-324", 0x00000000U, 0x0000000000000000U},
        {"2.4703282292062328e-324", 0x00000000U, 0x0000000000000001U},
        {"-7.4109846876186982e-324", 0x80000000U, 0x8000000000000002U},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.text);
        EXPECT_EQ(bitsOf(NumberParser::toFloat(row.text)), row.asFloat);
        EXPECT_EQ(bitsOf(NumberParser::toDouble(row.text)), row.asDouble);
    }
}

TEST(PortabilityTest, IntegersOf32BitsAreTheNearestNumbers)
{
    struct Row {
        Variant value;
        std::uint32_t asFloat;
        std::uint64_t asDouble;
    };
    const std::vector<Row> rows = {
        {Variant(16777215), 0x4B7FFFFFU, 0x416FFFFFE0000000U},
        {Variant(16777217), 0x4B800000U, 0x4170000010000000U},
        {Variant(16777219L), 0x4B800002U, 0x4170000030000000U},
        {Variant(-16777217L), 0xCB800000U, 0xC170000010000000U},
        {Variant(33554438), 0x4C000002U, 0x4180000030000000U},
        {Variant(2147483583), 0x4EFFFFFFU, 0x41DFFFFFEFC00000U},
        {Variant(2147483584L), 0x4F000000U, 0x41DFFFFFF0000000U},
        {Variant(2147483647), 0x4F000000U, 0x41DFFFFFFFC00000U},
        {Variant(-2147483583), 0xCEFFFFFFU, 0xC1DFFFFFEFC00000U},
        {Variant(-2147483647L - 1), 0xCF000000U, 0xC1E0000000000000U},
        {Variant(2147483648U), 0x4F000000U, 0x41E0000000000000U},
        {Variant(2147483776U), 0x4F000000U, 0x41E0000010000000U},
        {Variant(2147483777UL), 0x4F000001U, 0x41E0000010200000U},
        {Variant(2147484032U), 0x4F000002U, 0x41E0000030000000U},
        {Variant(4294967167UL), 0x4F7FFFFFU, 0x41EFFFFFEFE00000U},
        {Variant(4294967168U), 0x4F800000U, 0x41EFFFFFF0000000U},
        {Variant(4294967295UL), 0x4F800000U, 0x41EFFFFFFFE00000U},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.value.toString());
        EXPECT_EQ(bitsOf(row.value.toFloat()), row.asFloat);
        EXPECT_EQ(bitsOf(row.value.toDouble()), row.asDouble);
    }
}

TEST(PortabilityTest, IntegersOf64BitsAreTheNearestNumbers)
{
    // A device converts them by a function that works with two halves.
    const std::vector<std::pair<Variant, std::uint64_t>> rows = {
        {Variant(4294967296LL), 0x41F0000000000000U},
        {Variant(-4294967297LL), 0xC1F0000000100000U},
        {Variant(4503599627370497LL), 0x4330000000000001U},
        {Variant(9007199254740993LL), 0x4340000000000000U},
        {Variant(9007199254740995LL), 0x4340000000000002U},
        {Variant(-9007199254740993LL), 0xC340000000000000U},
        {Variant(-9007199254740995LL), 0xC340000000000002U},
        {Variant(36028797018963972LL), 0x4360000000000000U},
        {Variant(9223372036854775295LL), 0x43DFFFFFFFFFFFFFU},
        {Variant(9223372036854775296LL), 0x43E0000000000000U},
        {Variant(-9223372036854775807LL), 0xC3E0000000000000U},
        {Variant(9007199254740993ULL), 0x4340000000000000U},
        {Variant(9223372036854775807ULL), 0x43E0000000000000U},
        {Variant(9223372036854776832ULL), 0x43E0000000000000U},
        {Variant(9223372036854776833ULL), 0x43E0000000000001U},
        {Variant(9223372036854779904ULL), 0x43E0000000000002U},
        {Variant(18446744073709550591ULL), 0x43EFFFFFFFFFFFFFU},
        {Variant(18446744073709550592ULL), 0x43F0000000000000U},
        {Variant(18446744073709551615ULL), 0x43F0000000000000U},
    };
    for (const auto& [value, bits] : rows) {
        EXPECT_EQ(bitsOf(value.toDouble()), bits) << value.toString();
    }
}

TEST(PortabilityTest, SubnormalNumbersAreNotTakenForZero)
{
    const std::uint32_t bits[] = {0x00000001U, 0x80000001U, 0x007FFFFFU, 0x00012345U};
    for (const std::uint32_t each : bits) {
        SCOPED_TRACE(testing::Message() << std::hex << each);
        const float number = floatOf(each);
        EXPECT_TRUE(Variant(number).toBool());
        EXPECT_TRUE(Variant(number) != Variant(0.0f));
        EXPECT_EQ(bitsOf(Variant(number).toFloat()), each);
        EXPECT_TRUE(Variant(Variant(number).toDouble()) != Variant(0.0));

        const Color color(number, number, number);
        EXPECT_EQ(bitsOf(color.getHue()), each);
        EXPECT_EQ(bitsOf(color.getSaturation()), each);
        EXPECT_EQ(bitsOf(color.getValue()), each);
        EXPECT_EQ(color.getRGB32(), 0xFF000000U);
        EXPECT_TRUE(color != Color(0.0f, 0.0f, 0.0f));
    }
    for (const std::uint64_t each : {0x0000000000000001ULL, 0x800FFFFFFFFFFFFFULL}) {
        EXPECT_TRUE(Variant(doubleOf(each)).toBool());
        EXPECT_TRUE(Variant(doubleOf(each)) != Variant(0.0));
        EXPECT_EQ(bitsOf(Variant(doubleOf(each)).toDouble()), each);
    }

    // Through Lua and back, whose numbers are doubles.
    LoadedScript loaded("function echo(number) return number, number * 2^100 end");
    float back = 0.0f;
    float scaled = 0.0f;
    EXPECT_EQ(loaded.script.callMethod("echo", std::tie(back, scaled), floatOf(0x00000003U)),
              STATUS_SUCCESS);
    EXPECT_EQ(bitsOf(back), 0x00000003U);
    EXPECT_EQ(bitsOf(scaled), 0x27C00000U);  // 3 * 2^-49
}

TEST(PortabilityTest, NumbersThatAreTooLargeForAFloatAreInfinite)
{
    LoadedScript loaded(R"(
        function large() return 3.4028235677973362e38, 3.4028235677973366e38, -1e300, 1e-300, -1/0 end
        function is(number) return number == 1/0 end
    )");
    float numbers[5] = {};

    EXPECT_EQ(loaded.script.callMethod(
                  "large", std::tie(numbers[0], numbers[1], numbers[2], numbers[3], numbers[4])),
              STATUS_SUCCESS);

    EXPECT_EQ(bitsOf(numbers[0]), 0x7F7FFFFFU);
    EXPECT_EQ(bitsOf(numbers[1]), 0x7F800000U);
    EXPECT_EQ(bitsOf(numbers[2]), 0xFF800000U);
    EXPECT_EQ(bitsOf(numbers[3]), 0x00000000U);
    EXPECT_EQ(bitsOf(numbers[4]), 0xFF800000U);

    bool infinite = false;
    EXPECT_EQ(loaded.script.callMethod("is", std::tie(infinite), 1e39), STATUS_SUCCESS);
    EXPECT_TRUE(infinite);
    EXPECT_EQ(loaded.script.callMethod("is", std::tie(infinite), 3e38), STATUS_SUCCESS);
    EXPECT_FALSE(infinite);
}

// ---- The stack ----------------------------------------------------------------------------------

/** Loops inside each other's callbacks, running and waiting in turn. */
class Nest {
public:
    explicit Nest(int depth) : __depth(depth) {}

    void enter()
    {
        frames.push_back(reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0)));
        const bool running = frames.size() % 2 == 1;
        const std::size_t level = frames.size();
        WaitingLoop loop;
        Timer timer;
        ASSERT_EQ(timer.start(0,
                              [this, running, &loop] {
                                  if (static_cast<int>(frames.size()) < __depth) {
                                      enter();
                                  }
                                  running ? loop.quit() : loop.go();
                              }),
                  STATUS_SUCCESS);

        EXPECT_EQ(running ? loop.run() : loop.wait(), 0);

        EXPECT_FALSE(loop.isRunning() || loop.isWaiting());
        left.push_back(level);
    }

    std::vector<std::uintptr_t> frames;  ///< where each level stands, outermost first
    std::vector<std::size_t> left;       ///< the levels in the order in which they returned

private:
    int __depth;
};

TEST(PortabilityTest, FiftyLoopsInsideOneAnotherTakeLittleStack)
{
    Nest nest(50);

    nest.enter();

    ASSERT_EQ(nest.frames.size(), 50U);
    ASSERT_EQ(nest.left.size(), 50U);
    for (std::size_t i = 0; i < 50; ++i) {
        EXPECT_EQ(nest.left[i], 50 - i);
    }
    const std::uintptr_t used = nest.frames.front() - nest.frames.back();
    EXPECT_LT(used / 49, 8192U) << "bytes a level";
}

// ---- Exceptions beside the frames of C libraries ------------------------------------------------

struct Failure {
    int code;
};

/** Counts what the way of an exception destroys. */
class Passenger {
public:
    explicit Passenger(int& destroyed) : __destroyed(destroyed) {}
    ~Passenger() { ++__destroyed; }

    Passenger(const Passenger&) = delete;
    Passenger& operator=(const Passenger&) = delete;

private:
    int& __destroyed;
};

/** Calls a function from the callback of a timer inside a loop of either mode. */
void callInsideALoop(bool running, const std::function<void()>& function)
{
    WaitingLoop loop;
    Timer timer;
    ASSERT_EQ(timer.start(0,
                          [&] {
                              function();
                              running ? loop.quit() : loop.go();
                          }),
              STATUS_SUCCESS);
    EXPECT_EQ(running ? loop.run() : loop.wait(), 0);
}

TEST(PortabilityTest, AnExceptionPassesAParserAndThenAScriptInsideAMainLoop)
{
    const ScriptFile file("<a><b><c>text</c></b></a>");
    int destroyed = 0;
    int code = 0;
    NativeApi api([&](lua_State*, const std::string&) {
        const Passenger first(destroyed);
        Xml xml(file.path());
        xml.setOnCharacters([&](const std::string&) {
            const Passenger second(destroyed);
            throw Failure{code};
        });
        xml.read();
        FAIL() << "the exception has to leave the read";
    });
    LoadedScript loaded(R"(
        passed = 0
        function work() native.run() passed = passed + 1 end
        function handle() return (pcall(native.run)) end
    )",
                        {&api});
    const int top = loaded.top();

    for (const bool running : {true, false}) {
        SCOPED_TRACE(running);
        code += 42;
        destroyed = 0;
        int caught = 0;
        callInsideALoop(running, [&] {
            try {
                loaded.script.callMethod("work", std::tie());
            } catch (const Failure& failure) {
                caught = failure.code;
            }
        });
        EXPECT_EQ(caught, code);
        EXPECT_EQ(destroyed, 2);

        // The script may handle it instead.
        bool succeeded = true;
        callInsideALoop(running, [&] {
            EXPECT_EQ(loaded.script.callMethod("handle", std::tie(succeeded)), STATUS_SUCCESS);
        });
        EXPECT_FALSE(succeeded);
        EXPECT_EQ(destroyed, 4);
    }
    EXPECT_EQ(runChunk(loaded.state(), "return passed"), "0");
    EXPECT_EQ(loaded.top(), top + 2) << "as after any Lua error, a message for each failed call";
}

TEST(PortabilityTest, AnExceptionPassesAScriptAndThenAParserInsideAMainLoop)
{
    const ScriptFile file("<a><b><c>text</c></b><d/></a>");
    int destroyed = 0;
    NativeApi api([&](lua_State*, const std::string& text) {
        const Passenger passenger(destroyed);
        if (text == "c") {
            throw Failure{7};
        }
    });
    LoadedScript loaded("function start(name) native.run(name) last = name end", {&api});
    std::vector<std::string> ended;
    Xml xml(file.path());
    xml.setOnStartElement([&](const std::string& name, const std::vector<std::string>&) {
        const Passenger passenger(destroyed);
        loaded.script.callMethod("start", std::tie(), name);
    });
    xml.setOnEndElement([&](const std::string& name) { ended.push_back(name); });

    for (const bool running : {true, false}) {
        SCOPED_TRACE(running);
        destroyed = 0;
        int caught = 0;
        callInsideALoop(running, [&] {
            try {
                xml.read();
            } catch (const Failure& failure) {
                caught = failure.code;
            }
        });

        EXPECT_EQ(caught, 7);
        EXPECT_EQ(destroyed, 6);
        EXPECT_THAT(ended, IsEmpty());
        EXPECT_EQ(runChunk(loaded.state(), "return last"), "b");
    }

    // Reader and script are as good as before.
    api.body = [](lua_State*, const std::string&) {};
    EXPECT_EQ(xml.read(), STATUS_SUCCESS);
    EXPECT_THAT(ended, ElementsAre("c", "b", "d", "a"));
}

}  // namespace
}  // namespace oxil::test
