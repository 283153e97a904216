#include "OxSerializedData.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "AllocationFailure.h"
#include "Descriptions.h"
#include "FreeObserver.h"
#include "OxLogMatchers.h"
#include "OxStatus.h"

namespace oxil::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using Bytes = std::vector<std::uint8_t>;  // exactly sized on the heap, so an over-read is seen

bool sameBytes(const SerializationInfo& left, const SerializationInfo& right)
{
    return std::memcmp(&left, &right, sizeof left) == 0;
}

std::string parameterMessage(int parameter)
{
    return "Invalid parameter (" + std::to_string(parameter) + ").";
}

/** Copies of these bytes that belong to `malloc`. */
void* mallocCopy(const Bytes& bytes)
{
    void* memory = std::malloc(bytes.size());
    EXPECT_NE(memory, nullptr);
    std::memcpy(memory, bytes.data(), bytes.size());
    return memory;
}

void append(Bytes& bytes, const std::string& text, std::size_t slot)
{
    bytes.insert(bytes.end(), text.begin(), text.end());
    bytes.resize(bytes.size() + slot - text.size());
}

template <typename T>
void append(Bytes& bytes, T number)
{
    const std::size_t offset = bytes.size();
    bytes.resize(offset + sizeof number);
    std::memcpy(&bytes[offset], &number, sizeof number);
}

// ---- Types and construction ---------------------------------------------------------------------

static_assert(REPEATABLE == 0 && TRANSFER_OWNERSHIP == 0);
static_assert(MAX_BLOCK_COUNT == 5 && MAX_TYPE_COUNT == 2000, "the limits are part of the format");
static_assert(!std::is_copy_constructible_v<SerializedData>, "it may own its buffer");
static_assert(!std::is_copy_assignable_v<SerializedData>, "it may own its buffer");

TEST(SerializedDataTest, AFreshObjectHasOneBlockAndNothingElse)
{
    const SerializedData data;
    SerializationInfo expected = {};
    expected.blockCount = 1;

    EXPECT_TRUE(sameBytes(data.getSerializationInfo(), expected));
    EXPECT_EQ(data.getBlockCount(), 1);
    EXPECT_EQ(data.getTypeCount(), 0);
    EXPECT_EQ(data.getRepeatCount(0), 0);
    EXPECT_EQ(data.getDataSize(), 0);
    EXPECT_EQ(data.getTotalDataSize(), 0);
    EXPECT_EQ(data.getData(), nullptr);
    EXPECT_FALSE(data.isRemained());
    EXPECT_EQ(data.getContextId(), 0u);
}

TEST(SerializedDataTest, TheConstructorStoresCountsUpToFourUnchecked)
{
    for (const int count : {-2147483647 - 1, -1, 0, 1, 2, 3, 4}) {
        SCOPED_TRACE(count);
        const SerializedData data(count);
        SerializationInfo expected = {};
        expected.blockCount = count;

        EXPECT_EQ(data.getBlockCount(), count);
        EXPECT_TRUE(sameBytes(data.getSerializationInfo(), expected));
        EXPECT_EQ(data.getTotalDataSize(), 0);
    }
}

TEST(SerializedDataTest, TheConstructorRefusesFiveBlocksThatTheSetterTakes)
{
    for (const int count : {5, 6, INT_LIMIT}) {
        LogCapture log;

        SerializedData data(count);

        EXPECT_EQ(data.getBlockCount(), 0);
        EXPECT_THAT(log.lines(),
                    ElementsAre(LoggedIn("OxSerializedData.cpp", "SerializedData",
                                         "Invalid block count (" + std::to_string(count) + ").")));
        data.setBlockCount(5);
        EXPECT_EQ(data.getBlockCount(), 5);
        EXPECT_EQ(data.addType(4, VARIANT_TYPE_INT), STATUS_SUCCESS);
    }
}

TEST(SerializedDataTest, TheSetterTakesOneToFiveBlocks)
{
    SerializedData data;
    for (const int count : {5, 1, 3}) {
        data.setBlockCount(count);
        EXPECT_EQ(data.getBlockCount(), count);
    }

    LogCapture log;
    for (const int count : {0, -1, 6, INT_LIMIT}) {
        data.setBlockCount(count);
        EXPECT_EQ(data.getBlockCount(), 3);
    }
    EXPECT_THAT(log.lines(),
                ElementsAre(Logged("setBlockCount", "Invalid parameter (0)."),
                            Logged("setBlockCount", "Invalid parameter (-1)."),
                            Logged("setBlockCount", "Invalid block count (6)."),
                            Logged("setBlockCount", "Invalid block count (2147483647).")));
}

TEST(SerializedDataTest, SettingTheBlockCountKeepsTypeLists)
{
    SerializedData data(3);
    ASSERT_EQ(data.addType(0, VARIANT_TYPE_INT), STATUS_SUCCESS);
    ASSERT_EQ(data.addType(2, VARIANT_TYPE_STRING), STATUS_SUCCESS);
    data.setRepeatCount(2, 2);

    data.setBlockCount(1);
    EXPECT_EQ(data.getTotalDataSize(), 4);
    data.setBlockCount(3);

    EXPECT_EQ(data.getTypeCount(0), 1);
    EXPECT_EQ(data.getTypeCount(2), 1);
    EXPECT_EQ(data.getRepeatCount(2), 2);
    EXPECT_EQ(data.getTotalDataSize(), 4 + 2 * 256);
}

TEST(SerializedDataTest, ADescriptionIsCopiedWholeAndUnchecked)
{
    SerializationInfo info;
    std::memset(&info, 0x5A, sizeof info);

    SerializedData built(info);
    SerializedData assigned;
    EXPECT_EQ(assigned.setSerializationInfo(info), STATUS_SUCCESS);

    for (SerializedData* data : {&built, &assigned}) {
        EXPECT_NE(&data->getSerializationInfo(), &info);
        EXPECT_TRUE(sameBytes(data->getSerializationInfo(), info));
        EXPECT_EQ(data->getBlockCount(), 0x5A5A5A5A);
        EXPECT_EQ(data->getData(), nullptr);
        EXPECT_FALSE(data->isRemained());
        EXPECT_EQ(data->getContextId(), 0u);
    }
    info.blockCount = 2;
    EXPECT_EQ(built.getBlockCount(), 0x5A5A5A5A);
}

TEST(SerializedDataTest, TheDescriptionItselfIsHandedOut)
{
    SerializedData data;
    const SerializationInfo& info = data.getSerializationInfo();

    ASSERT_EQ(data.addType(VARIANT_TYPE_BOOL), STATUS_SUCCESS);
    EXPECT_EQ(info.typeCount[0], 1);

    ASSERT_EQ(data.setSerializationInfo(described({{}, {}})), STATUS_SUCCESS);
    EXPECT_EQ(&data.getSerializationInfo(), &info);
    EXPECT_EQ(info.blockCount, 2);
    EXPECT_EQ(info.typeCount[0], 0);

    ASSERT_EQ(data.setSerializationInfo(info), STATUS_SUCCESS);
    EXPECT_EQ(info.blockCount, 2);
}

/** Leaves rubbish in the memory that the next description is likely to get. */
void soilMemory()
{
    const std::unique_ptr<volatile unsigned char[]> memory(
        new volatile unsigned char[sizeof(SerializationInfo) + sizeof(void*)]);
    for (std::size_t i = 0; i < sizeof(SerializationInfo); ++i) {
        memory[i] = 0xA5;
    }
}

TEST(SerializedDataTest, EveryByteOfADescriptionIsZeroWhereNothingWasDescribed)
{
    SerializationInfo expected = {};
    expected.blockCount = 3;
    expected.typeCount[1] = 2;
    expected.dataSize[1] = 12;
    expected.types[1][0] = VARIANT_TYPE_INT;
    expected.types[1][1] = VARIANT_TYPE_DOUBLE;
    expected.typeSizes[1][0] = 4;
    expected.typeSizes[1][1] = 8;

    for (const int lookAfter : {0, 1, 2}) {
        SCOPED_TRACE(lookAfter);
        soilMemory();
        SerializedData data(3);
        // Looked at before all types are there, it follows what comes later.
        const SerializationInfo* early = lookAfter == 0 ? &data.getSerializationInfo() : nullptr;
        EXPECT_EQ(data.addType(1, VARIANT_TYPE_INT, 4), STATUS_SUCCESS);
        early = lookAfter == 1 ? &data.getSerializationInfo() : early;
        EXPECT_EQ(data.addType(1, VARIANT_TYPE_DOUBLE, 8), STATUS_SUCCESS);

        EXPECT_TRUE(sameBytes(early != nullptr ? *early : data.getSerializationInfo(), expected));
    }
}

TEST(SerializedDataTest, ADescriptionThatIsReplacedIsTheNewOneToItsLastByte)
{
    soilMemory();
    SerializationInfo foreign;
    std::memset(&foreign, 0x3C, sizeof foreign);
    SerializedData data(2);

    EXPECT_EQ(data.setSerializationInfo(foreign), STATUS_SUCCESS);

    EXPECT_TRUE(sameBytes(data.getSerializationInfo(), foreign));
}

TEST(SerializedDataTest, EveryFieldOfTheDescriptionHasItsPlace)
{
    SerializedData data;
    data.setBlockCount(5);
    for (int b = 0; b < 5; ++b) {
        ASSERT_EQ(data.addType(b, VARIANT_TYPE_BOOL, 1), STATUS_SUCCESS);
        ASSERT_EQ(data.addType(b, VARIANT_TYPE_STRING, 300 + b), STATUS_SUCCESS);
        data.setRepeatCount(b, 7 + b);
    }

    Bytes raw(sizeof(SerializationInfo));
    std::memcpy(raw.data(), &data.getSerializationInfo(), raw.size());
    const auto integerAt = [&raw](std::size_t offset) {
        std::int32_t value = 0;
        std::memcpy(&value, &raw.at(offset), sizeof value);
        return value;
    };

    EXPECT_EQ(integerAt(0), 5);
    for (std::size_t b = 0; b < 5; ++b) {
        const int number = static_cast<int>(b);
        EXPECT_EQ(integerAt(4 + 4 * b), 2);
        EXPECT_EQ(integerAt(24 + 4 * b), 301 + number);
        EXPECT_EQ(integerAt(44 + 4 * b), 7 + number);
        EXPECT_EQ(raw.at(64 + 2000 * b), 9);
        EXPECT_EQ(raw.at(64 + 2000 * b + 1), 10);
        EXPECT_EQ(raw.at(64 + 2000 * b + 2), 0);
        EXPECT_EQ(integerAt(10064 + 8000 * b), 1);
        EXPECT_EQ(integerAt(10064 + 8000 * b + 4), 300 + number);
        EXPECT_EQ(integerAt(10064 + 8000 * b + 8), 0);
    }
}

TEST(SerializedDataTest, ApplicationsKeepAMarkAndANumberThatDoNotTravel)
{
    SerializedData data;
    const SerializationInfo before = data.getSerializationInfo();

    data.setRemained(true);
    data.setContextId(4000000000u);

    EXPECT_TRUE(data.isRemained());
    EXPECT_EQ(data.getContextId(), 4000000000u);
    EXPECT_TRUE(sameBytes(data.getSerializationInfo(), before));
    ASSERT_EQ(data.setSerializationInfo(before), STATUS_SUCCESS);
    EXPECT_TRUE(data.isRemained());
    EXPECT_EQ(data.getContextId(), 4000000000u);
    data.setRemained(false);
    EXPECT_FALSE(data.isRemained());
}

TEST(SerializedDataTest, OutOfMemoryAtConstructionIsLogged)
{
    const SerializationInfo info = described({{}});
    const std::vector<void (*)(const SerializationInfo&)> constructions = {
        [](const SerializationInfo&) { const SerializedData data; },
        [](const SerializationInfo&) { const SerializedData data(4); },
        [](const SerializationInfo& copied) { const SerializedData data(copied); }};

    for (const auto construct : constructions) {
        // The description is allocated in one of the two ways that don't throw.
        int failures = 0;
        for (const Allocation allocation : {Allocation::Malloc, Allocation::NothrowNew}) {
            LogCapture log;
            bool failed = false;
            {
                const AllocationFailure failure(allocation);
                construct(info);
                failed = failure.happened();
            }
            failures += failed ? 1 : 0;
            EXPECT_EQ(log.lines().size(), failed ? 1u : 0u);
            EXPECT_THAT(log.lines(),
                        testing::Each(LoggedIn("OxSerializedData.cpp", "SerializedData",
                                               "Memory allocation failed.")));
        }
        EXPECT_EQ(failures, 1);
    }
}

// ---- Type entries -------------------------------------------------------------------------------

TEST(SerializedDataTest, EveryKindHasItsDefaultSize)
{
    SerializedData data;
    int total = 0;
    int count = 0;
    for (const Entry& known : KINDS) {
        SCOPED_TRACE(known.type);
        EXPECT_EQ(data.__getTypeSize(known.type), known.size);
        EXPECT_EQ(data.addType(known.type), STATUS_SUCCESS);

        const SerializationInfo& info = data.getSerializationInfo();
        EXPECT_EQ(info.types[0][count], known.type);
        EXPECT_EQ(info.typeSizes[0][count], known.size);
        total += known.size;
        ++count;
        EXPECT_EQ(data.getTypeCount(), count);
        EXPECT_EQ(data.getTypeCount(0), count);
        EXPECT_EQ(data.getDataSize(), total);
        EXPECT_EQ(data.getDataSize(0), total);
    }
    EXPECT_EQ(total, 4 * 5 + 8 * 3 + 1 + 256);
}

TEST(SerializedDataTest, OtherKindsHaveNoDefaultSize)
{
    SerializedData data;
    const SerializationInfo before = data.getSerializationInfo();
    LogCapture log;
    for (const int number : {0, 11, -1, 255, 256 + 1, 256 + 10, INT_LIMIT}) {
        SCOPED_TRACE(number);
        log.clear();

        EXPECT_EQ(data.__getTypeSize(kind(number)), -1);
        EXPECT_EQ(data.addType(kind(number)), STATUS_INVALID_PARAMETER);
        EXPECT_EQ(data.addType(0, kind(number)), STATUS_INVALID_PARAMETER);

        EXPECT_THAT(log.lines(), ElementsAre(Logged("addType", "Invalid parameter (-1)."),
                                             Logged("addType", "Invalid parameter (-1).")));
    }
    EXPECT_TRUE(sameBytes(data.getSerializationInfo(), before));
}

TEST(SerializedDataTest, AnyKindIsStoredAsItsLowByteWhenItsSizeIsGiven)
{
    SerializedData data;
    const std::vector<std::pair<int, int>> stored = {{0, 0},         {11, 11},  {255, 255},
                                                     {256 + 10, 10}, {-1, 255}, {0x7FFFFF01, 1}};
    for (std::size_t i = 0; i < stored.size(); ++i) {
        EXPECT_EQ(data.addType(0, kind(stored[i].first), 3), STATUS_SUCCESS);
        EXPECT_EQ(data.getSerializationInfo().types[0][i], stored[i].second);
        EXPECT_EQ(data.getSerializationInfo().typeSizes[0][i], 3);
    }
    EXPECT_EQ(data.getDataSize(), 18);
}

TEST(SerializedDataTest, EntriesGoToTheBlockTheyAreAddedTo)
{
    SerializedData data(3);

    EXPECT_EQ(data.addType(1, VARIANT_TYPE_STRING), STATUS_SUCCESS);
    EXPECT_EQ(data.addType(2, VARIANT_TYPE_DOUBLE, 5), STATUS_SUCCESS);
    EXPECT_EQ(data.addType(2, VARIANT_TYPE_BOOL), STATUS_SUCCESS);
    EXPECT_EQ(data.addType(VARIANT_TYPE_STRING, 100000), STATUS_SUCCESS);

    const SerializationInfo& info = data.getSerializationInfo();
    EXPECT_THAT(info.typeCount, ElementsAre(1, 1, 2, 0, 0));
    EXPECT_THAT(info.dataSize, ElementsAre(100000, 256, 6, 0, 0));
    EXPECT_THAT(info.repeatCount, ElementsAre(0, 0, 0, 0, 0));
    EXPECT_EQ(info.types[2][0], VARIANT_TYPE_DOUBLE);
    EXPECT_EQ(info.typeSizes[2][0], 5);
    EXPECT_EQ(info.types[2][1], VARIANT_TYPE_BOOL);
    EXPECT_EQ(info.typeSizes[2][1], 1);
    EXPECT_EQ(data.getTotalDataSize(), 100262);
}

TEST(SerializedDataTest, ASizeBelowOneIsRefusedBeforeTheBlockIsLookedAt)
{
    SerializedData data;
    SerializedData blockless(0);
    const SerializationInfo before = data.getSerializationInfo();
    LogCapture log;

    EXPECT_EQ(data.addType(0, VARIANT_TYPE_INT, 0), STATUS_INVALID_PARAMETER);
    EXPECT_EQ(data.addType(7, VARIANT_TYPE_INT, -3), STATUS_INVALID_PARAMETER);
    EXPECT_EQ(data.addType(VARIANT_TYPE_INT, 0), STATUS_INVALID_PARAMETER);
    EXPECT_EQ(blockless.addType(VARIANT_TYPE_INT, -4), STATUS_INVALID_PARAMETER);
    EXPECT_EQ(blockless.addType(VARIANT_TYPE_NONE), STATUS_INVALID_PARAMETER);

    EXPECT_THAT(log.lines(), ElementsAre(Logged("addType", "Invalid parameter (0)."),
                                         Logged("addType", "Invalid parameter (-3)."),
                                         Logged("addType", "Invalid parameter (0)."),
                                         Logged("addType", "Invalid parameter (-4)."),
                                         Logged("addType", "Invalid parameter (-1).")));
    EXPECT_TRUE(sameBytes(data.getSerializationInfo(), before));
}

TEST(SerializedDataTest, ABlockTakesTwoThousandEntries)
{
    SerializedData data(2);
    for (int i = 0; i < 2000; ++i) {
        ASSERT_EQ(data.addType(0, VARIANT_TYPE_BOOL), STATUS_SUCCESS);
    }
    const SerializationInfo before = data.getSerializationInfo();
    LogCapture log;

    EXPECT_EQ(data.addType(0, VARIANT_TYPE_BOOL, 1), STATUS_CAPACITY_EXCEEDED);
    EXPECT_EQ(data.addType(0, VARIANT_TYPE_BOOL), STATUS_CAPACITY_EXCEEDED);
    EXPECT_EQ(data.addType(VARIANT_TYPE_BOOL, 1), STATUS_CAPACITY_EXCEEDED);
    EXPECT_EQ(data.addType(VARIANT_TYPE_BOOL), -524268);
    EXPECT_EQ(data.addType(0, VARIANT_TYPE_BOOL, 0), STATUS_INVALID_PARAMETER);

    EXPECT_THAT(log.lines(), ElementsAre(Logged("addType", "Max exceeded (2000)."),
                                         Logged("addType", "Max exceeded (2000)."),
                                         Logged("addType", "Max exceeded (2000)."),
                                         Logged("addType", "Max exceeded (2000)."),
                                         Logged("addType", "Invalid parameter (0).")));
    EXPECT_TRUE(sameBytes(data.getSerializationInfo(), before));
    EXPECT_EQ(data.getTypeCount(), 2000);
    EXPECT_EQ(data.addType(1, VARIANT_TYPE_BOOL), STATUS_SUCCESS);
}

/** Every member that takes a block refuses this one, with one line, and changes nothing. */
void expectBadBlock(SerializedData& data, int block)
{
    SCOPED_TRACE(block);
    const SerializationInfo before = data.getSerializationInfo();
    const std::string message = parameterMessage(block);
    LogCapture log;

    EXPECT_EQ(data.addType(block, VARIANT_TYPE_INT, 4), STATUS_INVALID_PARAMETER);
    EXPECT_EQ(data.addType(block, VARIANT_TYPE_INT), STATUS_INVALID_PARAMETER);
    EXPECT_EQ(data.addType(block, VARIANT_TYPE_NONE), STATUS_INVALID_PARAMETER);
    data.setRepeatCount(block, 3);
    EXPECT_EQ(data.getRepeatCount(block), STATUS_FAILURE);
    EXPECT_EQ(data.getTypeCount(block), STATUS_FAILURE);
    EXPECT_EQ(data.getDataSize(block), STATUS_FAILURE);
    EXPECT_EQ(data.getData(block), nullptr);
    EXPECT_EQ(data.getValues(block), nullptr);

    EXPECT_THAT(log.lines(),
                ElementsAre(Logged("addType", message), Logged("addType", message),
                            Logged("addType", message), Logged("setRepeatCount", message),
                            Logged("getRepeatCount", message), Logged("getTypeCount", message),
                            Logged("getDataSize", message), Logged("getData", message),
                            Logged("getValues", message)));
    EXPECT_TRUE(sameBytes(data.getSerializationInfo(), before));
}

TEST(SerializedDataTest, ABadBlockIsNamed)
{
    const Bytes bytes(64);
    for (const int count : {1, 2, 5}) {
        SerializedData data(described(std::vector<std::vector<Entry>>(
            static_cast<std::size_t>(count), {{VARIANT_TYPE_INT, 4}})));
        ASSERT_EQ(data.setData(bytes.data()), STATUS_SUCCESS);
        for (const int block : {count, count + 1, -1, INT_LIMIT, -INT_LIMIT - 1}) {
            expectBadBlock(data, block);
        }
        EXPECT_EQ(data.getTypeCount(count - 1), 1);
    }
}

TEST(SerializedDataTest, WithoutBlocksEvenTheFirstIsBad)
{
    for (const int count : {0, -3}) {
        SerializedData data(count);
        expectBadBlock(data, 0);

        LogCapture log;
        EXPECT_EQ(data.addType(VARIANT_TYPE_INT, 4), STATUS_INVALID_PARAMETER);
        EXPECT_EQ(data.addType(VARIANT_TYPE_INT), STATUS_INVALID_PARAMETER);
        EXPECT_EQ(data.getTypeCount(), STATUS_FAILURE);
        EXPECT_EQ(data.getDataSize(), STATUS_FAILURE);
        EXPECT_EQ(data.getValues(), nullptr);
        EXPECT_EQ(data.getTotalDataSize(), 0);
        const std::string message = parameterMessage(0);
        EXPECT_THAT(log.lines(),
                    ElementsAre(Logged("addType", message), Logged("addType", message),
                                Logged("getTypeCount", message), Logged("getDataSize", message),
                                Logged("getValues", message)));
    }
}

TEST(SerializedDataTest, BlocksBeyondTheFifthAreBadWhateverTheDescriptionSays)
{
    SerializationInfo info = described(
        {{{VARIANT_TYPE_INT, 4}}, {}, {}, {}, {{VARIANT_TYPE_BOOL, 1}, {VARIANT_TYPE_BOOL, 1}}});
    const Bytes bytes = {1, 0, 0, 0, 1, 0};
    for (const int count : {6, 7, INT_LIMIT}) {
        info.blockCount = count;
        SerializedData data(info);
        ASSERT_EQ(data.setData(bytes.data()), STATUS_SUCCESS);

        expectBadBlock(data, 5);
        expectBadBlock(data, count - 1);
        EXPECT_EQ(data.getBlockCount(), count);
        EXPECT_EQ(data.getTypeCount(4), 2);
        ASSERT_NE(data.getValues(4), nullptr);
        EXPECT_THAT(*data.getValues(4), ElementsAre(Variant(true), Variant(false)));
    }
}

TEST(SerializedDataTest, OnlyTheFiveBlocksThatExistCountForTheTotalSize)
{
    SerializationInfo info = described({{{VARIANT_TYPE_INT, 4}}, {}, {}, {}, {{kind(0), 30}}});
    info.blockCount = INT_LIMIT;

    EXPECT_EQ(SerializedData(info).getTotalDataSize(), 34);
}

// ---- Sizes and places ---------------------------------------------------------------------------

TEST(SerializedDataTest, ARepeatCountMultipliesFromOneOn)
{
    SerializedData data(2);
    ASSERT_EQ(data.addType(0, VARIANT_TYPE_INT), STATUS_SUCCESS);
    ASSERT_EQ(data.addType(0, VARIANT_TYPE_INT), STATUS_SUCCESS);
    ASSERT_EQ(data.addType(1, VARIANT_TYPE_BOOL), STATUS_SUCCESS);
    const std::vector<std::pair<int, int>> sizes = {{0, 8},  {1, 8},  {2, 16},
                                                    {3, 24}, {-1, 8}, {-INT_LIMIT - 1, 8}};
    for (const auto& [count, size] : sizes) {
        SCOPED_TRACE(count);
        data.setRepeatCount(0, count);
        EXPECT_EQ(data.getRepeatCount(0), count);
        EXPECT_EQ(data.getRepeatCount(1), 0);
        EXPECT_EQ(data.getDataSize(), size);
        EXPECT_EQ(data.getDataSize(0), size);
        EXPECT_EQ(data.getDataSize(1), 1);
        EXPECT_EQ(data.getTotalDataSize(), size + 1);
        EXPECT_EQ(data.getTypeCount(), 2);
        EXPECT_EQ(data.getSerializationInfo().dataSize[0], 8);
    }
}

TEST(SerializedDataTest, ABlockStartsBehindTheBlocksBeforeIt)
{
    SerializedData data(described({{{VARIANT_TYPE_STRING, 10}},
                                   {{VARIANT_TYPE_STRING, 12}, {VARIANT_TYPE_LONGLONG, 8}},
                                   {{VARIANT_TYPE_BOOL, 1}}}));
    Bytes bytes(31 + 20);
    ASSERT_EQ(data.setData(bytes.data()), STATUS_SUCCESS);

    EXPECT_EQ(data.getData(), bytes.data());
    EXPECT_EQ(data.getData(0), bytes.data());
    EXPECT_EQ(data.getData(1), bytes.data() + 10);
    EXPECT_EQ(data.getData(2), bytes.data() + 30);
    data.setRepeatCount(1, 2);
    EXPECT_EQ(data.getData(1), bytes.data() + 10);
    EXPECT_EQ(data.getData(2), bytes.data() + 50);
    data.setRepeatCount(1, -2);
    EXPECT_EQ(data.getData(2), bytes.data() + 30);
}

TEST(SerializedDataTest, WithoutDataABlocksPlaceIsItsOffset)
{
    SerializedData data(described({{}, {{VARIANT_TYPE_STRING, 10}}, {}}));
    LogCapture log;

    EXPECT_EQ(data.getData(), nullptr);
    EXPECT_EQ(data.getData(0), nullptr);
    EXPECT_EQ(data.getData(1), nullptr);
    EXPECT_THAT(log.lines(), ElementsAre(Logged("getData", "Invalid ptr offset (0)."),
                                         Logged("getData", "Invalid ptr offset (0).")));
    log.clear();
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(data.getData(2)), 10u);
    EXPECT_THAT(log.lines(), IsEmpty());
}

// ---- The data area ------------------------------------------------------------------------------

int hand(SerializedData& data, void* memory, bool owned)
{
    return owned ? data.setData(memory, TRANSFER_OWNERSHIP)
                 : data.setData(static_cast<const void*>(memory));
}

TEST(SerializedDataTest, ABufferThatWasTakenOverIsFreedWithTheObject)
{
    for (const TransferOwnership tag : {TRANSFER_OWNERSHIP, static_cast<TransferOwnership>(1)}) {
        void* memory = mallocCopy({1, 2, 3});
        const FreeObserver observer(memory);
        {
            SerializedData data;
            ASSERT_EQ(data.setData(memory, tag), STATUS_SUCCESS);
            EXPECT_EQ(data.getData(), memory);
            EXPECT_EQ(observer.count(), 0);
        }
        EXPECT_EQ(observer.count(), 1);
    }
}

TEST(SerializedDataTest, ABorrowedBufferStaysWithItsOwner)
{
    void* memory = mallocCopy({1, 2, 3});
    const FreeObserver observer(memory);
    {
        SerializedData data;
        ASSERT_EQ(data.setData(static_cast<const void*>(memory)), STATUS_SUCCESS);
        EXPECT_EQ(data.getData(), memory);
    }
    EXPECT_EQ(observer.count(), 0);
    std::free(memory);
    EXPECT_EQ(observer.count(), 1);
}

TEST(SerializedDataTest, ANewBufferFreesThePreviousOneWhetherItWasOwnedOrNot)
{
    for (const bool firstOwned : {false, true}) {
        for (const bool secondOwned : {false, true}) {
            SCOPED_TRACE(testing::Message() << "owned: " << firstOwned << " " << secondOwned);
            void* first = mallocCopy({1});
            void* second = mallocCopy({2});
            const FreeObserver firstObserver(first);
            const FreeObserver secondObserver(second);
            int freedAtOnce = 0;
            {
                SerializedData data;
                ASSERT_EQ(hand(data, first, firstOwned), STATUS_SUCCESS);
                EXPECT_EQ(firstObserver.count(), 0);
                const int result = hand(data, second, secondOwned);
                freedAtOnce = firstObserver.count();
                EXPECT_EQ(result, STATUS_SUCCESS);
                EXPECT_EQ(data.getData(), second);
                EXPECT_EQ(secondObserver.count(), 0);
            }
            EXPECT_EQ(freedAtOnce, 1);
            EXPECT_EQ(secondObserver.count(), secondOwned ? 1 : 0);
            if (!secondOwned) {
                std::free(second);
            }
        }
    }
}

TEST(SerializedDataTest, ANullBufferIsRefusedAndChangesNothing)
{
    for (const bool owned : {false, true}) {
        void* memory = mallocCopy({1});
        const FreeObserver observer(memory);
        {
            SerializedData data;
            LogCapture log;
            EXPECT_EQ(data.setData(nullptr), STATUS_INVALID_PARAMETER);
            EXPECT_EQ(data.getData(), nullptr);
            ASSERT_EQ(hand(data, memory, owned), STATUS_SUCCESS);

            EXPECT_EQ(data.setData(nullptr), STATUS_INVALID_PARAMETER);
            EXPECT_EQ(data.setData(nullptr, TRANSFER_OWNERSHIP), STATUS_INVALID_PARAMETER);

            EXPECT_EQ(data.getData(), memory);
            EXPECT_EQ(observer.count(), 0);
            EXPECT_THAT(log.lines(), ElementsAre(LoggedIn("OxSerializedData.cpp", "setData",
                                                          "Invalid parameter."),
                                                 Logged("setData", "Invalid parameter."),
                                                 Logged("setData", "Invalid parameter.")));
        }
        EXPECT_EQ(observer.count(), owned ? 1 : 0);
        if (!owned) {
            std::free(memory);
        }
    }
}

TEST(SerializedDataTest, TheDescriptionIsFreedWithTheObject)
{
    auto data = std::make_unique<SerializedData>(described({{}}));
    const FreeObserver observer(&data->getSerializationInfo());

    ASSERT_EQ(data->setSerializationInfo(described({{}, {}})), STATUS_SUCCESS);
    EXPECT_EQ(observer.count(), 0);
    data.reset();

    EXPECT_EQ(observer.count(), 1);
}

// ---- Decoding -----------------------------------------------------------------------------------

TEST(SerializedDataTest, EveryKindIsDecodedFromItsBytesInHostOrder)
{
    struct Case {
        VariantType type;
        Bytes bytes;
        Variant expected;
    };
    const std::vector<Case> cases = {
        {VARIANT_TYPE_INT, {0x78, 0x56, 0x34, 0x12}, Variant(0x12345678)},
        {VARIANT_TYPE_INT, {0xFE, 0xFF, 0xFF, 0xFF}, Variant(-2)},
        {VARIANT_TYPE_UINT, {0xFE, 0xFF, 0xFF, 0xFF}, Variant(4294967294u)},
        {VARIANT_TYPE_LONG, {0xFE, 0xFF, 0xFF, 0xFF}, Variant(-2L)},
        {VARIANT_TYPE_ULONG, {0xFE, 0xFF, 0xFF, 0xFF}, Variant(4294967294uL)},
        {VARIANT_TYPE_LONGLONG, {0xFE, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}, Variant(-2LL)},
        {VARIANT_TYPE_LONGLONG, {8, 7, 6, 5, 4, 3, 2, 1}, Variant(0x0102030405060708LL)},
        {VARIANT_TYPE_ULONGLONG,
         {0xFE, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF},
         Variant(18446744073709551614uLL)},
        {VARIANT_TYPE_FLOAT, {0x00, 0x00, 0xC0, 0x3F}, Variant(1.5f)},
        {VARIANT_TYPE_DOUBLE, {0, 0, 0, 0, 0, 0, 0x04, 0xC0}, Variant(-2.5)},
        {VARIANT_TYPE_BOOL, {0}, Variant(false)},
        {VARIANT_TYPE_BOOL, {1}, Variant(true)},
    };
    for (const Case& one : cases) {
        SCOPED_TRACE(testing::Message() << "kind " << one.type);
        SerializedData data;
        ASSERT_EQ(data.addType(one.type), STATUS_SUCCESS);
        ASSERT_EQ(data.setData(one.bytes.data()), STATUS_SUCCESS);

        ASSERT_NE(data.getValues(), nullptr);
        EXPECT_THAT(*data.getValues(), ElementsAre(one.expected));
    }
}

TEST(SerializedDataTest, AnyOtherByteThanZeroIsTrue)
{
    for (const Bytes& bytes : {Bytes{2}, Bytes{128}, Bytes{255}}) {
        SerializedData data(described({{{VARIANT_TYPE_BOOL, 1}}}));
        ASSERT_EQ(data.setData(bytes.data()), STATUS_SUCCESS);

        ASSERT_NE(data.getValues(), nullptr);
        EXPECT_THAT(*data.getValues(), ElementsAre(Variant(true)));
        EXPECT_EQ(data.getValues()->front().toInt(), 1);
        EXPECT_EQ(data.getValues()->front().toString(), "1");
    }
}

TEST(SerializedDataTest, NarrowNumbersLeaveTheHighBytesZero)
{
    for (int size = 1; size <= 8; ++size) {
        SCOPED_TRACE(size);
        const std::uint64_t all = ~std::uint64_t{0} >> (64 - 8 * size);
        std::vector<Entry> entries = {{VARIANT_TYPE_LONGLONG, size},
                                      {VARIANT_TYPE_ULONGLONG, size}};
        std::vector<Variant> expected = {Variant(static_cast<long long>(all)),
                                         Variant(static_cast<unsigned long long>(all))};
        // The low bytes of a floating-point number count in units of its smallest value, as long as
        // they don't reach far into the exponent.
        if (size < 8) {
            entries.push_back({VARIANT_TYPE_DOUBLE, size});
            expected.push_back(size < 7 ? Variant(std::ldexp(static_cast<double>(all), -1074))
                                        : Variant(std::ldexp(9007199254740991.0, 15 - 1023 - 52)));
        }
        if (size < 4) {
            for (const VariantType type : {VARIANT_TYPE_FLOAT, VARIANT_TYPE_INT, VARIANT_TYPE_UINT,
                                           VARIANT_TYPE_LONG, VARIANT_TYPE_ULONG}) {
                entries.push_back({type, size});
            }
            expected.push_back(Variant(std::ldexp(static_cast<float>(all), -149)));
            expected.push_back(Variant(static_cast<int>(all)));
            expected.push_back(Variant(static_cast<unsigned int>(all)));
            expected.push_back(Variant(static_cast<long>(all)));
            expected.push_back(Variant(static_cast<unsigned long>(all)));
        }
        const Bytes bytes(entries.size() * static_cast<std::size_t>(size), 0xFF);
        SerializedData data(described({entries}));
        ASSERT_EQ(data.setData(bytes.data()), STATUS_SUCCESS);

        ASSERT_NE(data.getValues(), nullptr);
        EXPECT_EQ(*data.getValues(), expected);
    }
}

TEST(SerializedDataTest, ValuesNeedNoAlignment)
{
    std::vector<Entry> entries;
    Bytes bytes;
    std::vector<Variant> expected;
    const auto add = [&](VariantType type, const auto& value) {
        bytes.push_back(1);
        append(bytes, value);
        entries.push_back({VARIANT_TYPE_BOOL, 1});
        entries.push_back({type, static_cast<int>(sizeof value)});
        expected.emplace_back(true);
        expected.emplace_back(value);
    };
    for (int round = 0; round < 8; ++round) {
        add(VARIANT_TYPE_INT, -70000 - round);
        add(VARIANT_TYPE_UINT, 3000000000u);
        add(VARIANT_TYPE_LONGLONG, -5000000000LL - round);
        add(VARIANT_TYPE_ULONGLONG, 18000000000000000000uLL);
        add(VARIANT_TYPE_FLOAT, 0.25f);
        add(VARIANT_TYPE_DOUBLE, -1e300);
        bytes.push_back(0);
        entries.push_back({VARIANT_TYPE_BOOL, 1});
        expected.emplace_back(false);
    }
    SerializedData data(described({{{VARIANT_TYPE_BOOL, 1}}, entries}));
    bytes.insert(bytes.begin(), 1);
    ASSERT_EQ(data.setData(bytes.data()), STATUS_SUCCESS);

    ASSERT_NE(data.getValues(1), nullptr);
    EXPECT_EQ(*data.getValues(1), expected);
}

TEST(SerializedDataTest, ATextEndsAtItsFirstNulAndTakesItsWholeSlot)
{
    Bytes bytes;
    append(bytes, "hello", 256);
    append(bytes, std::string("ab\0cd", 5), 256);
    append(bytes, "", 256);
    append(bytes, std::string(255, 'x'), 256);
    append(bytes, "\xC3\xA9 100%s %n", 256);
    append(bytes, 7);
    SerializedData data;
    for (int i = 0; i < 5; ++i) {
        ASSERT_EQ(data.addType(VARIANT_TYPE_STRING), STATUS_SUCCESS);
    }
    ASSERT_EQ(data.addType(VARIANT_TYPE_INT), STATUS_SUCCESS);
    ASSERT_EQ(data.getTotalDataSize(), static_cast<int>(bytes.size()));
    ASSERT_EQ(data.setData(bytes.data()), STATUS_SUCCESS);

    ASSERT_NE(data.getValues(), nullptr);
    EXPECT_THAT(*data.getValues(), ElementsAre(Variant("hello"), Variant("ab"), Variant(""),
                                               Variant(std::string(255, 'x')),
                                               Variant("\xC3\xA9 100%s %n"), Variant(7)));
}

TEST(SerializedDataTest, ASlotWithoutNulIsReadAsItsFirst255BytesAndNoFurther)
{
    for (const int size : {255, 256, 257, 1000}) {
        SCOPED_TRACE(size);
        const Bytes bytes(4 + static_cast<std::size_t>(size), 'y');
        SerializedData data(described({{{VARIANT_TYPE_INT, 4}, {VARIANT_TYPE_STRING, size}}}));
        ASSERT_EQ(data.setData(bytes.data()), STATUS_SUCCESS);

        ASSERT_NE(data.getValues(), nullptr);
        EXPECT_THAT(*data.getValues(),
                    ElementsAre(Variant(0x79797979), Variant(std::string(255, 'y'))));
    }
}

TEST(SerializedDataTest, ATerminatedTextIsReadNoFurtherThanItsNul)
{
    const Bytes bytes = {'a', 'b', 0};
    SerializedData data(described({{{VARIANT_TYPE_STRING, 3}}}));
    ASSERT_EQ(data.setData(bytes.data()), STATUS_SUCCESS);

    ASSERT_NE(data.getValues(), nullptr);
    EXPECT_THAT(*data.getValues(), ElementsAre(Variant("ab")));
}

TEST(SerializedDataTest, ATextInANarrowSlotRunsIntoWhatFollows)
{
    const Bytes bytes = {'a', 'b', 'c', 'd', 'e', 0, 0, 0};
    SerializedData data(described({{{VARIANT_TYPE_STRING, 4}, {VARIANT_TYPE_INT, 4}}}));
    ASSERT_EQ(data.setData(bytes.data()), STATUS_SUCCESS);

    ASSERT_NE(data.getValues(), nullptr);
    EXPECT_THAT(*data.getValues(), ElementsAre(Variant("abcde"), Variant('e' + 0)));
}

TEST(SerializedDataTest, ARepeatedBlockYieldsItsTypeListAgainAndAgain)
{
    SerializedData data(
        described({{{VARIANT_TYPE_INT, 4}, {VARIANT_TYPE_BOOL, 1}}, {{VARIANT_TYPE_INT, 4}}}));
    data.setRepeatCount(0, 3);
    const Bytes bytes = {1, 0, 0, 0, 1, 2, 0, 0, 0, 0, 3, 0, 0, 0, 1, 9, 0, 0, 0};
    ASSERT_EQ(data.getTotalDataSize(), static_cast<int>(bytes.size()));
    ASSERT_EQ(data.setData(bytes.data()), STATUS_SUCCESS);

    ASSERT_NE(data.getValues(0), nullptr);
    EXPECT_THAT(*data.getValues(0), ElementsAre(Variant(1), Variant(true), Variant(2),
                                                Variant(false), Variant(3), Variant(true)));
    ASSERT_NE(data.getValues(1), nullptr);
    EXPECT_THAT(*data.getValues(1), ElementsAre(Variant(9)));
}

TEST(SerializedDataTest, TwoIntegersThreeTimesAreSixValues)
{
    SerializedData data(described({{{VARIANT_TYPE_INT, 4}, {VARIANT_TYPE_INT, 4}}}));
    data.setRepeatCount(0, 3);
    Bytes bytes;
    for (const int number : {1, 2, 3, 4, 5, 6}) {
        append(bytes, number);
    }
    EXPECT_EQ(data.getDataSize(), 24);
    ASSERT_EQ(data.setData(bytes.data()), STATUS_SUCCESS);

    ASSERT_NE(data.getValues(), nullptr);
    EXPECT_THAT(*data.getValues(), ElementsAre(Variant(1), Variant(2), Variant(3), Variant(4),
                                               Variant(5), Variant(6)));
}

TEST(SerializedDataTest, ARepeatCountBelowOneMeansOnce)
{
    const Bytes bytes = {5, 0, 0, 0};
    for (const int count : {0, -1, -INT_LIMIT - 1}) {
        SerializedData data(described({{{VARIANT_TYPE_INT, 4}}}));
        data.setRepeatCount(0, count);
        ASSERT_EQ(data.setData(bytes.data()), STATUS_SUCCESS);

        ASSERT_NE(data.getValues(), nullptr);
        EXPECT_THAT(*data.getValues(), ElementsAre(Variant(5)));
    }
}

TEST(SerializedDataTest, ABlockWithoutEntriesHasNoValues)
{
    const Bytes bytes = {5, 0, 0, 0};
    for (const int count : {0, 1, INT_LIMIT, -1}) {
        SerializedData data(described({{}}));
        data.setRepeatCount(0, count);
        ASSERT_EQ(data.setData(bytes.data()), STATUS_SUCCESS);

        ASSERT_NE(data.getValues(), nullptr);
        EXPECT_THAT(*data.getValues(), IsEmpty());

        // Nothing was decoded, so entries that come later are.
        data.setRepeatCount(0, 0);
        ASSERT_EQ(data.addType(VARIANT_TYPE_INT), STATUS_SUCCESS);
        EXPECT_THAT(*data.getValues(), ElementsAre(Variant(5)));
    }
}

TEST(SerializedDataTest, WithoutDataNoValuesAreDecoded)
{
    const SerializedData data(described({{{VARIANT_TYPE_INT, 4}}, {{VARIANT_TYPE_INT, 4}}}));
    LogCapture log;

    EXPECT_EQ(data.getValues(), nullptr);
    EXPECT_EQ(data.getValues(1), nullptr);

    EXPECT_THAT(log.lines(),
                ElementsAre(LoggedIn("OxSerializedData.cpp", "getValues", "__data is nullptr."),
                            Logged("getValues", "__data is nullptr.")));
}

TEST(SerializedDataTest, AnUnknownKindYieldsNothingAndTakesNoBytes)
{
    for (const int unknown : {0, 11, 255}) {
        const std::string message = "Invalid type (" + std::to_string(unknown) + ").";
        SerializedData data(described({{{kind(unknown), 4},
                                        {VARIANT_TYPE_INT, 4},
                                        {kind(unknown), 100},
                                        {VARIANT_TYPE_BOOL, 1},
                                        {kind(unknown), 1}}}));
        EXPECT_EQ(data.getDataSize(), 110);
        data.setRepeatCount(0, 2);
        const Bytes bytes = {1, 0, 0, 0, 1, 2, 0, 0, 0, 0};
        ASSERT_EQ(data.setData(bytes.data()), STATUS_SUCCESS);
        LogCapture log;

        ASSERT_NE(data.getValues(), nullptr);
        EXPECT_THAT(*data.getValues(),
                    ElementsAre(Variant(1), Variant(true), Variant(2), Variant(false)));
        EXPECT_THAT(log.lines(), testing::AllOf(testing::SizeIs(6),
                                                testing::Each(Logged("getValues", message))));
    }
}

TEST(SerializedDataTest, ABlockOfUnknownKindsAloneIsLookedAtAgain)
{
    SerializedData data(described({{{kind(0), 4}}}));
    const Bytes bytes(4);
    ASSERT_EQ(data.setData(bytes.data()), STATUS_SUCCESS);
    LogCapture log;
    for (int call = 0; call < 2; ++call) {
        ASSERT_NE(data.getValues(), nullptr);
        EXPECT_THAT(*data.getValues(), IsEmpty());
    }
    EXPECT_EQ(log.lines().size(), 4u);
}

TEST(SerializedDataTest, ABlockIsDecodedOnce)
{
    const Bytes first = {1, 0, 0, 0, 5, 0, 0, 0};
    void* lent = mallocCopy(first);  // freed by the second setData()
    const Bytes second = {2, 0, 0, 0, 6, 0, 0, 0};
    SerializedData data(described({{{VARIANT_TYPE_INT, 4}}, {{VARIANT_TYPE_INT, 4}}}));
    ASSERT_EQ(data.setData(static_cast<const void*>(lent)), STATUS_SUCCESS);
    const std::vector<Variant>* values = data.getValues();
    ASSERT_NE(values, nullptr);
    EXPECT_EQ(data.getValues(0), values);

    ASSERT_EQ(data.setData(second.data()), STATUS_SUCCESS);
    EXPECT_EQ(data.getValues(), values);
    EXPECT_THAT(*values, ElementsAre(Variant(1)));

    ASSERT_EQ(data.addType(VARIANT_TYPE_INT), STATUS_SUCCESS);
    data.setRepeatCount(0, 4);
    EXPECT_EQ(data.getValues(), values);
    EXPECT_THAT(*values, ElementsAre(Variant(1)));

    ASSERT_EQ(data.setSerializationInfo(
                  described({{{VARIANT_TYPE_STRING, 4}}, {{VARIANT_TYPE_UINT, 4}}})),
              STATUS_SUCCESS);
    EXPECT_EQ(data.getValues(), values);
    EXPECT_THAT(*values, ElementsAre(Variant(1)));

    // The other block was not decoded before.
    ASSERT_NE(data.getValues(1), nullptr);
    EXPECT_THAT(*data.getValues(1), ElementsAre(Variant(6u)));

    ASSERT_EQ(data.setSerializationInfo(described({{}})), STATUS_SUCCESS);
    LogCapture log;
    EXPECT_EQ(data.getValues(1), nullptr);
    EXPECT_THAT(log.lines(), ElementsAre(Logged("getValues", "Invalid parameter (1).")));
}

TEST(SerializedDataTest, AnEntryWithoutSizeEndsDecodingAndKeepsWhatWasBeforeIt)
{
    const Bytes bytes = {1, 0, 0, 0, 1};
    for (const int size : {0, -5}) {
        for (const int type : {1, 9, 10, 0}) {
            SCOPED_TRACE(testing::Message() << "kind " << type << ", size " << size);
            SerializationInfo info = described(
                {{{VARIANT_TYPE_INT, 4}, {VARIANT_TYPE_BOOL, 1}, {kind(type), 1}, {kind(1), 4}}});
            info.typeSizes[0][2] = size;
            SerializedData data(info);
            ASSERT_EQ(data.setData(bytes.data()), STATUS_SUCCESS);
            LogCapture log;

            EXPECT_EQ(data.getValues(), nullptr);
            EXPECT_THAT(log.lines(),
                        ElementsAre(LoggedIn("OxSerializedData.cpp", "getValues",
                                             "Invalid copySize (" + std::to_string(size) + ").")));
            log.clear();
            ASSERT_NE(data.getValues(), nullptr);
            EXPECT_THAT(*data.getValues(), ElementsAre(Variant(1), Variant(true)));
            EXPECT_THAT(log.lines(), IsEmpty());
        }
    }
}

TEST(SerializedDataTest, ABlockWhoseDecodingRanOutOfMemoryIsDecodedAnew)
{
    // Long enough for memory of their own, and more than are reserved at once.
    const std::string text(100, 't');
    SerializedData data;
    ASSERT_EQ(data.addType(VARIANT_TYPE_STRING, 101), STATUS_SUCCESS);
    for (const int count : {10, 70000}) {
        SCOPED_TRACE(count);
        data.setRepeatCount(0, count);
        const std::size_t size = static_cast<std::size_t>(count) * 101;
        Bytes bytes(size + 256);
        for (std::size_t i = 0; i < size; ++i) {
            bytes[i] = i % 101 < 100 ? 't' : 0;
        }
        for (const int nth : {1, 2, 5, count, count + 1}) {
            SCOPED_TRACE(nth);
            SerializedData received(data.getSerializationInfo());
            ASSERT_EQ(received.setData(bytes.data()), STATUS_SUCCESS);
            bool thrown = false;
            {
                const AllocationFailure failure(Allocation::ThrowingNew, nth);
                try {
                    received.getValues();
                } catch (const std::bad_alloc&) {
                    thrown = true;
                }
                EXPECT_TRUE(failure.happened());
            }
            EXPECT_TRUE(thrown);

            ASSERT_NE(received.getValues(), nullptr);
            EXPECT_EQ(received.getValues()->size(), static_cast<std::size_t>(count));
            EXPECT_EQ(received.getValues()->back(), Variant(text));
        }
    }
}

TEST(SerializedDataTest, AFailureAtTheFirstEntryComesBackEachTime)
{
    SerializationInfo info = described({{{VARIANT_TYPE_INT, 4}}});
    info.typeSizes[0][0] = 0;
    SerializedData data(info);
    const Bytes bytes(4);
    ASSERT_EQ(data.setData(bytes.data()), STATUS_SUCCESS);
    LogCapture log;

    EXPECT_EQ(data.getValues(), nullptr);
    EXPECT_EQ(data.getValues(), nullptr);

    EXPECT_THAT(log.lines(), ElementsAre(Logged("getValues", "Invalid copySize (0)."),
                                         Logged("getValues", "Invalid copySize (0).")));
}

TEST(SerializedDataTest, MoreEntriesThanABlockCanHaveAreNotRead)
{
    SerializationInfo info = described({{{VARIANT_TYPE_BOOL, 1}}});
    std::fill(std::begin(info.types[0]), std::end(info.types[0]), std::uint8_t{9});
    std::fill(std::begin(info.typeSizes[0]), std::end(info.typeSizes[0]), 1);
    const Bytes bytes(4000, 1);
    for (const int count : {2001, INT_LIMIT}) {
        const std::string message = "Max exceeded (" + std::to_string(count) + ").";
        info.typeCount[0] = count;
        SerializedData data(info);
        ASSERT_EQ(data.setData(bytes.data()), STATUS_SUCCESS);
        LogCapture log;

        EXPECT_EQ(data.getValues(), nullptr);
        EXPECT_EQ(data.addType(VARIANT_TYPE_BOOL), STATUS_CAPACITY_EXCEEDED);

        EXPECT_EQ(data.getTypeCount(), count);
        EXPECT_THAT(log.lines(),
                    ElementsAre(Logged("getValues", message), Logged("addType", message)));
    }

    info.typeCount[0] = 2000;
    SerializedData full(info);
    ASSERT_EQ(full.setData(bytes.data()), STATUS_SUCCESS);
    ASSERT_NE(full.getValues(), nullptr);
    EXPECT_EQ(full.getValues()->size(), 2000u);
}

TEST(SerializedDataTest, ANegativeTypeCountHasNoValuesAndTakesNoEntry)
{
    SerializationInfo info = described({{{VARIANT_TYPE_INT, 4}}});
    const Bytes bytes(4);
    for (const int count : {-1, -INT_LIMIT - 1}) {
        for (const int repeatCount : {0, 1}) {
            info.typeCount[0] = count;
            info.repeatCount[0] = repeatCount;
            SerializedData data(info);
            ASSERT_EQ(data.setData(bytes.data()), STATUS_SUCCESS);

            ASSERT_NE(data.getValues(), nullptr);
            EXPECT_THAT(*data.getValues(), IsEmpty());
            EXPECT_EQ(data.getTypeCount(), count);

            LogCapture log;
            EXPECT_EQ(data.addType(VARIANT_TYPE_INT), STATUS_CAPACITY_EXCEEDED);
            EXPECT_TRUE(sameBytes(data.getSerializationInfo(), info));
            EXPECT_THAT(
                log.lines(),
                ElementsAre(Logged("addType", "Max exceeded (" + std::to_string(count) + ").")));
        }
    }
}

TEST(SerializedDataTest, AHugeRepeatCountIsCountedWithoutOverflow)
{
    SerializationInfo info = described({{{VARIANT_TYPE_BOOL, 1}, {VARIANT_TYPE_BOOL, 1}}});
    info.dataSize[0] = 0;
    info.typeSizes[0][0] = 0;
    info.repeatCount[0] = INT_LIMIT;
    SerializedData data(info);
    const Bytes bytes(4);
    ASSERT_EQ(data.setData(bytes.data()), STATUS_SUCCESS);
    LogCapture log;

    EXPECT_EQ(data.getValues(), nullptr);

    EXPECT_THAT(log.lines(), ElementsAre(Logged("getValues", "Invalid copySize (0).")));
}

TEST(SerializedDataDeathTest, AnEntryWiderThanItsKindAborts)
{
    const Bytes bytes(64, 1);
    for (const Entry& known : KINDS) {
        if (known.type == VARIANT_TYPE_STRING) {
            continue;  // a text is cut instead
        }
        for (const int excess : {1, 8}) {
            SCOPED_TRACE(testing::Message() << "kind " << known.type << ", " << excess << " more");
            SerializedData data(
                described({{{VARIANT_TYPE_BOOL, 1}, {known.type, known.size + excess}}}));
            ASSERT_EQ(data.setData(bytes.data()), STATUS_SUCCESS);

            EXPECT_EXIT(data.getValues(), testing::KilledBySignal(SIGABRT), "");
        }
    }
}

TEST(SerializedDataDeathTest, AnAbsurdlyWideEntryAbortsBeforeAnythingIsRead)
{
    const Bytes bytes(8, 1);
    SerializedData data(described({{{VARIANT_TYPE_DOUBLE, INT_LIMIT}}}));
    ASSERT_EQ(data.setData(bytes.data()), STATUS_SUCCESS);

    EXPECT_EXIT(data.getValues(), testing::KilledBySignal(SIGABRT), "");
}

}  // namespace
}  // namespace oxil::test
