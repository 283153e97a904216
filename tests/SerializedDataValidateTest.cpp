#include "OxSerializedData.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "AllocationFailure.h"
#include "Descriptions.h"
#include "OxKeyValue.h"
#include "OxKeyValues.h"
#include "OxLogMatchers.h"
#include "OxSerializer.h"
#include "OxStatus.h"

namespace oxil::test {
namespace {

using testing::ElementsAre;

void expectRefused(const SerializationInfo& info, std::size_t size, const std::string& message)
{
    SCOPED_TRACE(message);
    LogCapture log;

    EXPECT_EQ(SerializedData::validate(info, size), STATUS_INVALID_PARAMETER);

    EXPECT_THAT(log.lines(), ElementsAre(LoggedIn("OxSerializedData.cpp", "validate", message)));
}

/** Valid from @p size bytes on, and too short by the last byte of @p block below it. */
void expectNeeds(const SerializationInfo& info, std::size_t size, int block)
{
    SCOPED_TRACE(testing::Message() << "size " << size << ", block " << block);
    EXPECT_EQ(SerializedData::validate(info, size), STATUS_SUCCESS);
    EXPECT_EQ(SerializedData::validate(info, size + 1), STATUS_SUCCESS);
    EXPECT_EQ(SerializedData::validate(info, std::numeric_limits<std::size_t>::max()),
              STATUS_SUCCESS);
    expectRefused(info, size - 1, "Data is too short (" + std::to_string(block) + ").");
}

TEST(SerializedDataValidateTest, TakesNoneToFiveBlocks)
{
    for (const int count : {0, 1, 2, 3, 4, 5}) {
        SerializationInfo info = described({{}});
        info.blockCount = count;
        EXPECT_EQ(SerializedData::validate(info, 0), STATUS_SUCCESS);
    }
    for (const int count : {-1, -INT_LIMIT - 1, 6, INT_LIMIT}) {
        SerializationInfo info = described({{}});
        info.blockCount = count;
        expectRefused(info, 100000, "Invalid block count (" + std::to_string(count) + ").");
    }
}

TEST(SerializedDataValidateTest, TakesTwoThousandEntriesInABlock)
{
    SerializationInfo info = described({{{VARIANT_TYPE_BOOL, 1}}, {}});
    std::fill(std::begin(info.types[1]), std::end(info.types[1]), std::uint8_t{9});
    std::fill(std::begin(info.typeSizes[1]), std::end(info.typeSizes[1]), 1);
    info.typeCount[1] = 2000;
    info.dataSize[1] = 2000;
    expectNeeds(info, 2001, 1);

    for (const int count : {2001, INT_LIMIT, -1, -INT_LIMIT - 1}) {
        info.typeCount[1] = count;
        info.dataSize[1] = count;
        expectRefused(info, 1u << 30, "Invalid type count (" + std::to_string(count) + ").");
    }
}

TEST(SerializedDataValidateTest, TakesEveryKindInItsDefaultSize)
{
    std::vector<Entry> entries;
    std::size_t size = 0;
    for (const Entry& known : KINDS) {
        entries.push_back({known.type, known.size});
        size += static_cast<std::size_t>(known.size);
    }
    expectNeeds(described({entries}), size, 0);
}

TEST(SerializedDataValidateTest, RefusesKindsThatAreNotStorable)
{
    for (const int unknown : {0, 11, 12, 128, 255}) {
        const std::string message = "Invalid type (" + std::to_string(unknown) + ").";
        expectRefused(described({{{kind(unknown), 4}}}), 100, message);
        expectRefused(described({{{VARIANT_TYPE_INT, 4}, {kind(unknown), 4}}}), 100, message);
        expectRefused(described({{}, {{VARIANT_TYPE_INT, 4}, {kind(unknown), 4}}}), 100, message);
    }
}

TEST(SerializedDataValidateTest, AnEntryMayBeNarrowerThanItsKindButNotWider)
{
    for (const Entry& known : KINDS) {
        if (known.type == VARIANT_TYPE_STRING) {
            continue;
        }
        SCOPED_TRACE(known.type);
        for (int size = 1; size <= known.size; ++size) {
            expectNeeds(described({{{known.type, size}}}), static_cast<std::size_t>(size), 0);
        }
        for (const int size : {known.size + 1, INT_LIMIT, 0, -1, -INT_LIMIT - 1}) {
            SerializationInfo info = described({{{VARIANT_TYPE_BOOL, 1}, {known.type, 1}}});
            info.typeSizes[0][1] = size;
            info.dataSize[0] = size == INT_LIMIT ? size : size == -INT_LIMIT - 1 ? size : 1 + size;
            expectRefused(info, 1u << 30, "Invalid type size (" + std::to_string(size) + ").");
        }
    }
}

TEST(SerializedDataValidateTest, ATextSlotMayHaveAnySizeButNone)
{
    for (const int size : {256, 257, 1000, INT_LIMIT}) {
        expectNeeds(described({{{VARIANT_TYPE_STRING, size}}}), static_cast<std::size_t>(size), 0);
    }
    for (const int size : {0, -1, -INT_LIMIT - 1}) {
        SerializationInfo info = described({{{VARIANT_TYPE_STRING, 1}}});
        info.typeSizes[0][0] = size;
        info.dataSize[0] = size;
        expectRefused(info, 1000, "Invalid type size (" + std::to_string(size) + ").");
    }
}

TEST(SerializedDataValidateTest, The255BytesThatReadingATextMayTouchHaveToBeThere)
{
    for (const int size : {1, 2, 100, 254, 255}) {
        expectNeeds(described({{{VARIANT_TYPE_STRING, size}}}), 255, 0);
        expectNeeds(described({{{VARIANT_TYPE_INT, 4}, {VARIANT_TYPE_STRING, size}}}), 259, 0);
        expectNeeds(described({{{VARIANT_TYPE_LONGLONG, 8}},
                               {{VARIANT_TYPE_INT, 4}, {VARIANT_TYPE_STRING, size}}}),
                    267, 1);
    }
    // They may belong to what follows, in the same block or in a later one.
    expectNeeds(described({{{VARIANT_TYPE_STRING, 1}, {VARIANT_TYPE_STRING, 256}}}), 257, 0);
    expectNeeds(described({{{VARIANT_TYPE_STRING, 1}}, {}, {{VARIANT_TYPE_STRING, 256}}}), 257, 2);
    expectNeeds(described({{{VARIANT_TYPE_STRING, 10}, {VARIANT_TYPE_STRING, 10}}}), 265, 0);
    expectNeeds(described({{{VARIANT_TYPE_STRING, 100}}, {{VARIANT_TYPE_INT, 4}}}), 255, 0);
    // The last repetition starts furthest behind.
    SerializationInfo info = described({{{VARIANT_TYPE_STRING, 10}, {VARIANT_TYPE_BOOL, 1}}});
    info.repeatCount[0] = 3;
    expectNeeds(info, 2 * 11 + 255, 0);
    info.repeatCount[0] = 100;
    expectNeeds(info, 99 * 11 + 255, 0);
    info = described({{{VARIANT_TYPE_STRING, 1}, {VARIANT_TYPE_STRING, 256}}});
    info.repeatCount[0] = 2;
    expectNeeds(info, 2 * 257, 0);
}

TEST(SerializedDataValidateTest, EveryBlockAndRepetitionHasToBeThere)
{
    SerializationInfo info = described(
        {{{VARIANT_TYPE_INT, 4}, {VARIANT_TYPE_BOOL, 1}}, {}, {{VARIANT_TYPE_DOUBLE, 8}}});
    expectNeeds(info, 13, 2);
    expectRefused(info, 5, "Data is too short (2).");
    expectRefused(info, 4, "Data is too short (0).");
    expectRefused(info, 0, "Data is too short (0).");
    info.repeatCount[0] = 1;
    expectNeeds(info, 13, 2);
    info.repeatCount[0] = 3;
    expectNeeds(info, 23, 2);
    expectRefused(info, 14, "Data is too short (0).");
    info.repeatCount[2] = 2;
    expectNeeds(info, 31, 2);
    info.repeatCount[0] = -3;
    expectNeeds(info, 21, 2);
    info.repeatCount[1] = INT_LIMIT;  // nothing, that often
    expectNeeds(info, 21, 2);
}

TEST(SerializedDataValidateTest, TheDataSizeHasToBeTheSumOfTheEntrySizes)
{
    SerializationInfo info =
        described({{{VARIANT_TYPE_INT, 4}}, {{VARIANT_TYPE_INT, 4}, {VARIANT_TYPE_BOOL, 1}}});
    for (const int size : {4, 6, 0, -1, INT_LIMIT, -INT_LIMIT - 1}) {
        info.dataSize[1] = size;
        expectRefused(info, 1u << 30, "Invalid data size (" + std::to_string(size) + ").");
    }
    info.dataSize[1] = 5;
    EXPECT_EQ(SerializedData::validate(info, 9), STATUS_SUCCESS);

    info = described({{}});
    info.dataSize[0] = 1;
    expectRefused(info, 100, "Invalid data size (1).");
}

/** Refused however much data is there, because the getters count in `int`. */
void expectTooLarge(const SerializationInfo& info, const std::string& message)
{
    for (const std::size_t size : {std::size_t{1} << 31, std::numeric_limits<std::size_t>::max()}) {
        SCOPED_TRACE(size);
        expectRefused(info, size, message);
    }
}

TEST(SerializedDataValidateTest, NoSumOverflows)
{
    // The sizes of one block's entries; the stored sum is what a 32-bit addition would give.
    SerializationInfo info = described({{{VARIANT_TYPE_STRING, INT_LIMIT}}});
    info.typeCount[0] = 3;
    std::fill_n(info.types[0], 3, std::uint8_t{10});
    info.typeSizes[0][1] = INT_LIMIT;
    info.typeSizes[0][2] = 258;
    info.dataSize[0] = 256;
    expectTooLarge(info, "Invalid data size (256).");

    // A block times its repetitions: 2^32 and a little, 2^31, and nearly 2^62 bytes.
    info = described({{{VARIANT_TYPE_STRING, 0x10000}}});
    info.repeatCount[0] = 0x10001;
    expectTooLarge(info, "Data is too short (0).");
    info.repeatCount[0] = 0x8000;
    expectTooLarge(info, "Data is too short (0).");
    info = described({{{VARIANT_TYPE_STRING, INT_LIMIT}}});
    info.repeatCount[0] = INT_LIMIT;
    expectTooLarge(info, "Data is too short (0).");
    info = described({{{VARIANT_TYPE_BOOL, 1}, {VARIANT_TYPE_BOOL, 1}}});
    info.repeatCount[0] = 0x40000000;
    expectTooLarge(info, "Data is too short (0).");

    // The sum of the blocks.
    info = described({{{VARIANT_TYPE_STRING, INT_LIMIT}}, {{VARIANT_TYPE_BOOL, 1}}});
    expectTooLarge(info, "Data is too short (1).");
    info = described({{{VARIANT_TYPE_STRING, INT_LIMIT}},
                      {{VARIANT_TYPE_STRING, INT_LIMIT}},
                      {{VARIANT_TYPE_STRING, 258}}});
    expectTooLarge(info, "Data is too short (1).");

    // As large as can be.
    info = described({{{VARIANT_TYPE_BOOL, 1}}});
    info.repeatCount[0] = INT_LIMIT;
    constexpr auto MOST = static_cast<std::size_t>(INT_LIMIT);
    EXPECT_EQ(SerializedData::validate(info, MOST, {INT_LIMIT, 48LL * INT_LIMIT}), STATUS_SUCCESS);
    expectRefused(info, MOST - 1, "Data is too short (0).");
    info = described({{{VARIANT_TYPE_STRING, INT_LIMIT - 1}}, {{VARIANT_TYPE_BOOL, 1}}});
    expectNeeds(info, static_cast<std::size_t>(INT_LIMIT), 1);
}

TEST(SerializedDataValidateTest, BlocksNotInUseDoNotCount)
{
    SerializationInfo info;
    std::memset(&info, 0xEE, sizeof info);
    info.blockCount = 1;
    info.typeCount[0] = 1;
    info.dataSize[0] = 4;
    info.repeatCount[0] = 0;
    info.types[0][0] = 1;
    info.typeSizes[0][0] = 4;

    expectNeeds(info, 4, 0);
}

TEST(SerializedDataValidateTest, OneLineNamesTheFirstFault)
{
    SerializationInfo info;
    std::memset(&info, 0xFF, sizeof info);
    expectRefused(info, 0, "Invalid block count (-1).");
    info.blockCount = 2;
    expectRefused(info, 0, "Invalid type count (-1).");
    info.typeCount[0] = 2;
    expectRefused(info, 0, "Invalid type (255).");
    info.types[0][0] = 1;
    expectRefused(info, 0, "Invalid type size (-1).");
    info.typeSizes[0][0] = 4;
    expectRefused(info, 0, "Invalid type (255).");
    info.types[0][1] = 10;
    info.typeSizes[0][1] = 256;
    expectRefused(info, 0, "Invalid data size (-1).");
}

TEST(SerializedDataValidateTest, AllocatesNothing)
{
    SerializationInfo info = described({{}, {}, {}, {}, {}});
    for (int b = 0; b < 5; ++b) {
        info.typeCount[b] = 2000;
        info.dataSize[b] = 2000 * 256;
        info.repeatCount[b] = 10;
        std::fill(std::begin(info.types[b]), std::end(info.types[b]), std::uint8_t{10});
        std::fill(std::begin(info.typeSizes[b]), std::end(info.typeSizes[b]), 256);
    }
    const long before = allocationCount();

    const int result = SerializedData::validate(info, 5u * 10u * 2000u * 256u);

    EXPECT_EQ(allocationCount(), before);
    EXPECT_EQ(result, STATUS_SUCCESS);
}

TEST(SerializedDataValidateTest, WhatThePackersWritePasses)
{
    KeyValues record;
    ASSERT_EQ(record.add("id", Variant(7)), STATUS_SUCCESS);
    ASSERT_EQ(record.add("name", Variant("ok")), STATUS_SUCCESS);
    const std::vector<Variant> params = {Variant(true), Variant(1.5), Variant("text")};
    SerializedData data[5];
    ASSERT_EQ(Serializer::serialize(record, data[0]), STATUS_SUCCESS);
    ASSERT_EQ(Serializer::serialize(record, KeyValue("k", Variant(1LL)), data[1]), STATUS_SUCCESS);
    ASSERT_EQ(Serializer::serialize({"a", "b"}, "method", params, "extra", data[2]),
              STATUS_SUCCESS);
    ASSERT_EQ(Serializer::serialize(std::vector<KeyValues>(3, record), data[3]), STATUS_SUCCESS);
    ASSERT_EQ(Serializer::serialize(std::vector<KeyValues>(3, record), data[4], REPEATABLE),
              STATUS_SUCCESS);
    for (const SerializedData& one : data) {
        expectNeeds(one.getSerializationInfo(), static_cast<std::size_t>(one.getTotalDataSize()),
                    one.getBlockCount() - 1);
    }
}

// ---- Random descriptions ------------------------------------------------------------------------

class Randomness {
public:
    explicit Randomness(std::uint32_t seed) : __engine(seed) {}

    /** One of 0 to @p count - 1; the same numbers with every standard library. */
    int below(int count) { return static_cast<int>(__engine() % static_cast<unsigned int>(count)); }
    bool oneIn(int count) { return below(count) == 0; }

    int interesting()
    {
        constexpr int VALUES[] = {-INT_LIMIT - 1,
                                  -1,
                                  0,
                                  1,
                                  2,
                                  5,
                                  6,
                                  10,
                                  11,
                                  255,
                                  256,
                                  257,
                                  1999,
                                  2000,
                                  2001,
                                  65536,
                                  0x10001,
                                  4096,
                                  8192,
                                  1024,
                                  1 << 24,
                                  1 << 30,
                                  INT_LIMIT,
                                  3};
        return oneIn(4) ? static_cast<int>(__engine() >> 1) - (1 << 30)
                        : VALUES[below(static_cast<int>(std::size(VALUES)))];
    }

private:
    std::mt19937 __engine;
};

/** A description of the kind that Serializer reads, with the number of bytes that it needs. */
std::size_t describe(Randomness& random, SerializationInfo& info)
{
    enum Shape { OneText, Pairs, Counts, Anything };

    info = SerializationInfo();
    info.blockCount = 1 + random.below(5);
    std::size_t offset = 0;
    std::size_t needed = 0;
    for (int b = 0; b < info.blockCount; ++b) {
        const int shape = random.below(4);
        int count = random.oneIn(400) ? MAX_TYPE_COUNT : random.below(8);
        count = shape == OneText ? 1 : shape == Pairs ? count / 2 * 2 : count;
        info.typeCount[b] = count;
        for (int k = 0; k < count; ++k) {
            const bool text = shape == OneText || (shape == Pairs && k % 2 == 0);
            const Entry& known = text              ? KINDS[9]
                                 : shape == Counts ? KINDS[0]
                                                   : KINDS[random.below(10)];
            int size = known.size;
            if (random.oneIn(5)) {
                size = 1 + random.below(known.type == VARIANT_TYPE_STRING ? 400 : known.size);
            }
            info.types[b][k] = static_cast<std::uint8_t>(known.type);
            info.typeSizes[b][k] = size;
            info.dataSize[b] += size;
        }
        info.repeatCount[b] = random.oneIn(3) ? random.below(6) - 2 : 0;

        for (int r = 0; r < std::max(info.repeatCount[b], 1); ++r) {
            for (int k = 0; k < count; ++k) {
                if (info.types[b][k] == VARIANT_TYPE_STRING) {
                    needed = std::max(needed, offset + 255);
                }
                offset += static_cast<std::size_t>(info.typeSizes[b][k]);
            }
        }
    }
    return std::max(needed, offset);
}

/** Makes the stored sum right, so that it does not hide another fault. */
void sumUp(SerializationInfo& info, int block)
{
    std::int64_t sum = 0;
    for (int k = 0; k < std::clamp(info.typeCount[block], 0, MAX_TYPE_COUNT); ++k) {
        sum += info.typeSizes[block][k];
    }
    info.dataSize[block] =
        static_cast<std::int32_t>(std::clamp<std::int64_t>(sum, -INT_LIMIT, INT_LIMIT));
}

/** Breaks one field of the description, or leaves it right by chance. */
void mutate(Randomness& random, SerializationInfo& info)
{
    const int b = random.below(MAX_BLOCK_COUNT);
    const int k = random.below(std::clamp(info.typeCount[b], 1, MAX_TYPE_COUNT));
    std::int32_t& size = info.typeSizes[b][k];
    switch (random.below(6)) {
        case 0:
            info.blockCount = random.oneIn(2) ? 1 + random.below(5) : random.interesting();
            break;
        case 1:
            info.typeCount[b] = random.oneIn(2) ? random.below(10) : random.interesting();
            break;
        case 2:
            info.dataSize[b] = random.interesting();
            return;
        case 3:
            info.repeatCount[b] = random.oneIn(2) ? random.below(10) : random.interesting();
            break;
        case 4:
            info.types[b][k] = static_cast<std::uint8_t>(random.below(random.oneIn(4) ? 256 : 12));
            break;
        default:
            size = random.oneIn(3)   ? random.interesting()
                   : random.oneIn(2) ? random.below(300)
                                     : size + random.below(3) - 1;
            break;
    }
    if (!random.oneIn(4)) {
        sumUp(info, b);
    }
}

void fill(Randomness& random, std::uint8_t* bytes, std::size_t size)
{
    const int mode = random.below(4);
    for (std::size_t i = 0; i < size; ++i) {
        const int byte = mode == 0   ? random.below(256)
                         : mode == 1 ? (i % 4 == 0 ? random.below(4) : 0)
                         : mode == 2 ? 1 + random.below(255)
                                     : 0;
        bytes[i] = static_cast<std::uint8_t>(byte);
    }
}

void destroy(const std::vector<KeyValues*>& records)
{
    for (const KeyValues* record : records) {
        delete record;
    }
}

using Unpacker = int (*)(const SerializedData& data);

constexpr Unpacker UNPACKERS[] = {
    [](const SerializedData& data) {
        KeyValue entry;
        return Serializer::deserialize(data, entry);
    },
    [](const SerializedData& data) {
        KeyValues record;
        return Serializer::deserialize(data, record);
    },
    [](const SerializedData& data) {
        std::string key;
        Variant value;
        return Serializer::deserialize(data, key, value);
    },
    [](const SerializedData& data) {
        KeyValues record;
        KeyValue extra;
        return Serializer::deserialize(data, record, extra);
    },
    [](const SerializedData& data) {
        KeyValues record;
        std::string method;
        std::vector<Variant> params;
        return Serializer::deserialize(data, record, method, params);
    },
    [](const SerializedData& data) {
        std::string method;
        std::vector<Variant> params;
        return Serializer::deserialize(data, method, params);
    },
    [](const SerializedData& data) {
        std::string method;
        std::vector<Variant> params;
        std::string extra;
        return Serializer::deserialize(data, method, params, extra);
    },
    [](const SerializedData& data) {
        std::vector<std::string> names;
        std::string method;
        std::vector<Variant> params;
        std::string extra;
        return Serializer::deserialize(data, names, method, params, extra);
    },
    [](const SerializedData& data) {
        std::vector<KeyValues> records;
        return Serializer::deserialize(data, records);
    },
    [](const SerializedData& data) {
        std::vector<KeyValues*> records;
        const int result = Serializer::deserialize(data, records);
        destroy(records);
        return result;
    },
    [](const SerializedData& data) {
        std::vector<KeyValues> records;
        return Serializer::deserialize(data, records, REPEATABLE);
    },
    [](const SerializedData& data) {
        std::vector<KeyValues*> records;
        const int result = Serializer::deserialize(data, records, REPEATABLE);
        destroy(records);
        return result;
    },
};

/** Uses everything that reads by a description that was found good. */
void readEverything(const SerializationInfo& info, const std::uint8_t* bytes,
                    std::vector<int>& successes)
{
    SerializedData data(info);
    ASSERT_EQ(data.setData(bytes), STATUS_SUCCESS);

    int total = 0;
    for (int b = 0; b < data.getBlockCount(); ++b) {
        EXPECT_EQ(data.getData(b), bytes + total);
        total += data.getDataSize(b);

        const std::vector<Variant>* values = data.getValues(b);
        ASSERT_NE(values, nullptr);
        const std::int64_t count =
            std::int64_t{data.getTypeCount(b)} * std::max(data.getRepeatCount(b), 1);
        EXPECT_EQ(static_cast<std::int64_t>(values->size()), count);
    }
    EXPECT_EQ(data.getTotalDataSize(), total);

    for (std::size_t i = 0; i < std::size(UNPACKERS); ++i) {
        successes[i] += UNPACKERS[i](data) == STATUS_SUCCESS ? 1 : 0;
    }
}

TEST(SerializedDataValidateTest, WhatPassesCanBeReadWhole)
{
    constexpr int ROUNDS = 4000;
    Randomness random(20130617);
    LogCapture log;
    auto info = std::make_unique<SerializationInfo>();
    int passed = 0;
    int mutantsPassed = 0;
    int refused = 0;
    std::vector<int> successes(std::size(UNPACKERS));

    for (int round = 0; round < ROUNDS && !HasFailure(); ++round) {
        SCOPED_TRACE(round);
        log.clear();
        const std::size_t needed = describe(random, *info);
        const bool tooShort = needed > 0 && random.oneIn(8);
        const int missing = random.oneIn(2) ? 0 : random.below(300);
        const int spare = random.oneIn(2) ? 0 : random.below(300);
        const std::size_t size =
            tooShort ? needed - 1 - std::min(needed - 1, static_cast<std::size_t>(missing))
                     : needed + static_cast<std::size_t>(spare);
        const int mutations = random.oneIn(2) ? 1 + random.below(2) : 0;
        for (int i = 0; i < mutations; ++i) {
            mutate(random, *info);
        }
        // A new block for each round, so that its end is the end of the data.
        const std::unique_ptr<std::uint8_t[]> bytes(new std::uint8_t[size]);
        fill(random, bytes.get(), size);

        const int result = SerializedData::validate(*info, size);

        if (mutations == 0) {
            EXPECT_EQ(result, tooShort ? STATUS_INVALID_PARAMETER : STATUS_SUCCESS);
        }
        EXPECT_EQ(log.lines().size(), result == STATUS_SUCCESS ? 0u : 1u);
        if (result == STATUS_SUCCESS) {
            ++passed;
            mutantsPassed += mutations > 0 ? 1 : 0;
            readEverything(*info, bytes.get(), successes);
        } else {
            ++refused;
        }
    }

    EXPECT_GT(passed, ROUNDS / 3);
    EXPECT_GT(mutantsPassed, ROUNDS / 20);
    EXPECT_GT(refused, ROUNDS / 4);
    EXPECT_THAT(successes, testing::Each(testing::Ge(10)));
}

}  // namespace
}  // namespace oxil::test
