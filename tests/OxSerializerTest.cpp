#include "OxSerializer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <vector>

#include "AllocationFailure.h"
#include "OxLogMatchers.h"
#include "OxStatus.h"
#include "Records.h"
#include "SerializedBytes.h"
#include "SerializerCases.h"

namespace oxil::test {
namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

class SerializerPackTest : public testing::TestWithParam<PackCase> {};

std::string nameOf(const testing::TestParamInfo<PackCase>& info)
{
    return info.param.name;
}

INSTANTIATE_TEST_SUITE_P(Overloads, SerializerPackTest, testing::ValuesIn(packCases()), nameOf);

TEST_P(SerializerPackTest, DescribesItsBlocksAndFillsThem)
{
    SerializedData data;

    EXPECT_EQ(GetParam().pack(data), STATUS_SUCCESS);

    EXPECT_EQ(blocksOf(data), GetParam().blocks);
    int total = 0;
    for (int b = 0; b < data.getBlockCount(); ++b) {
        const int size = sizeOf(GetParam().blocks.at(static_cast<std::size_t>(b)));
        const int repeatCount = b == 0 ? GetParam().repeatCount : 0;
        EXPECT_EQ(data.getSerializationInfo().dataSize[b], size);
        EXPECT_EQ(data.getRepeatCount(b), repeatCount);
        total += repeatCount > 0 ? size * repeatCount : size;
    }
    EXPECT_EQ(data.getTotalDataSize(), total);
    ASSERT_NE(data.getData(), nullptr);
    EXPECT_EQ(
        SerializedData::validate(data.getSerializationInfo(), static_cast<std::size_t>(total)),
        STATUS_SUCCESS);
}

TEST_P(SerializerPackTest, SaysWhenMemoryForTheDataRunsOut)
{
    SerializedData data;
    LogCapture log;
    int result = 0;

    {
        const AllocationFailure failure(Allocation::Malloc);
        result = GetParam().pack(data);
        EXPECT_TRUE(failure.happened());
    }

    EXPECT_EQ(result, STATUS_OUT_OF_MEMORY);
    EXPECT_THAT(log.lines(),
                ElementsAre(LoggedIn(GetParam().file, "serialize", "Memory allocation failed.")));
    EXPECT_EQ(blocksOf(data), GetParam().blocks);
    EXPECT_EQ(data.getData(), nullptr);
}

TEST_P(SerializerPackTest, LeavesNoDataAreaWhenItFails)
{
    SerializedData data;
    ASSERT_EQ(Serializer::serialize("before", Variant("gone"), data), STATUS_SUCCESS);
    LogCapture log;

    {
        const AllocationFailure failure(Allocation::Malloc);
        EXPECT_EQ(GetParam().pack(data), STATUS_OUT_OF_MEMORY);
    }

    EXPECT_EQ(data.getData(), nullptr);
    EXPECT_EQ(log.lines().size(), 1u);
}

TEST_P(SerializerPackTest, DoublesTheDescriptionAndFillsHalfTheDataWhenDoneTwice)
{
    SerializedData once;
    ASSERT_EQ(GetParam().pack(once), STATUS_SUCCESS);
    SerializedData twice;
    ASSERT_EQ(GetParam().pack(twice), STATUS_SUCCESS);

    EXPECT_EQ(GetParam().pack(twice), STATUS_SUCCESS);

    std::vector<Types> blocks;
    for (const Types& types : GetParam().blocks) {
        blocks.push_back(times(2, types));
    }
    EXPECT_EQ(blocksOf(twice), blocks);
    EXPECT_EQ(twice.getTotalDataSize(), 2 * once.getTotalDataSize());

    SerializedData firstHalf(once.getSerializationInfo());
    ASSERT_EQ(firstHalf.setData(static_cast<const void*>(twice.getData())), STATUS_SUCCESS);
    for (int b = 0; b < once.getBlockCount(); ++b) {
        EXPECT_EQ(valuesOf(firstHalf, b), valuesOf(once, b)) << "block " << b;
    }

    // All of it is there, also the half that nobody wrote.
    const std::vector<char> copy(placeAt(twice, 0), placeAt(twice, twice.getTotalDataSize()));
    EXPECT_EQ(copy.size(), static_cast<std::size_t>(twice.getTotalDataSize()));
}

TEST_P(SerializerPackTest, ReplacesTheBlockCountExceptForSingleEntriesAndRecords)
{
    SerializedData data(4);
    ASSERT_EQ(GetParam().pack(data), STATUS_SUCCESS);

    const bool single = GetParam().file != std::string(SERIALIZER_FILE);
    EXPECT_EQ(data.getBlockCount(), single ? 4 : static_cast<int>(GetParam().blocks.size()));
}

TEST_P(SerializerPackTest, LeavesTheApplicationsMarksAlone)
{
    SerializedData data;
    data.setRemained(true);
    data.setContextId(77);

    ASSERT_EQ(GetParam().pack(data), STATUS_SUCCESS);

    EXPECT_TRUE(data.isRemained());
    EXPECT_EQ(data.getContextId(), 77u);
}

// ---- What is packed comes out -------------------------------------------------------------------

TEST(SerializerTest, PacksAMethodCallIntoTwoBlocks)
{
    SerializedData data;
    ASSERT_EQ(Serializer::serialize("open", Values{1, std::string("a")}, data), STATUS_SUCCESS);

    EXPECT_EQ(blocksOf(data), (std::vector<Types>{{TEXT}, {INT, TEXT}}));
    EXPECT_EQ(data.getTotalDataSize(), 516);
    EXPECT_EQ(textAt(data, 0), "open");
    EXPECT_EQ(intAt(data, 256), 1);
    EXPECT_EQ(textAt(data, 260), "a");

    std::string method = "earlier";
    Values params = {9, 9, 9};
    EXPECT_EQ(Serializer::deserialize(data, method, params), STATUS_SUCCESS);
    EXPECT_EQ(method, "open");
    EXPECT_EQ(params, (Values{1, "a"}));
}

TEST(SerializerTest, TakesOneBracedValueForAnEntry)
{
    SerializedData data;

    ASSERT_EQ(Serializer::serialize("name", {Variant(1)}, data), STATUS_SUCCESS);

    EXPECT_EQ(blocksOf(data), (std::vector<Types>{{TEXT, INT}}));
}

TEST(SerializerTest, PassesEntriesThrough)
{
    SerializedData data;
    ASSERT_EQ(Serializer::serialize("key", Variant(-3), data), STATUS_SUCCESS);

    KeyValue entry;
    EXPECT_EQ(Serializer::deserialize(data, entry), STATUS_SUCCESS);
    EXPECT_TRUE(entry == KeyValue("key", -3));

    std::string key;
    Variant value;
    EXPECT_EQ(Serializer::deserialize(data, key, value), STATUS_SUCCESS);
    EXPECT_EQ(key, "key");
    EXPECT_EQ(value, Variant(-3));
}

TEST(SerializerTest, AddsTheEntriesOfARecordToThoseAlreadyThere)
{
    SerializedData data;
    ASSERT_EQ(Serializer::serialize(sampleRecord(), data), STATUS_SUCCESS);
    LogCapture log;

    KeyValues target = small("id", 1);
    EXPECT_EQ(Serializer::deserialize(data, target), STATUS_SUCCESS);

    EXPECT_TRUE(sameRecords({target}, {recordOf({{"id", 1}, {"name", "ok"}})}));
    EXPECT_THAT(log.lines(), ElementsAre(LoggedIn(RECORD_FILE, "add", "Key(id) already exist.")));
}

TEST(SerializerTest, PassesARecordWithAnExtraEntry)
{
    SerializedData data;
    ASSERT_EQ(Serializer::serialize(sampleRecord(), KeyValue("extra", 2.5), data), STATUS_SUCCESS);
    EXPECT_EQ(textAt(data, 772), "extra");

    KeyValues target = small("first", 1);
    KeyValue extra("earlier", 0);
    EXPECT_EQ(Serializer::deserialize(data, target, extra), STATUS_SUCCESS);

    EXPECT_TRUE(sameRecords({target}, {recordOf({{"first", 1}, {"id", 7}, {"name", "ok"}})}));
    EXPECT_TRUE(extra == KeyValue("extra", 2.5));
}

TEST(SerializerTest, PassesARecordWithAMethodCall)
{
    SerializedData data;
    ASSERT_EQ(Serializer::serialize(sampleRecord(), "open", SAMPLE_PARAMS, data), STATUS_SUCCESS);
    EXPECT_EQ(textAt(data, 772), "open");
    EXPECT_EQ(intAt(data, 1028), 1);

    KeyValues target;
    std::string method = "earlier";
    Values params = {9};
    EXPECT_EQ(Serializer::deserialize(data, target, method, params), STATUS_SUCCESS);

    EXPECT_TRUE(sameRecords({target}, {sampleRecord()}));
    EXPECT_EQ(method, "open");
    EXPECT_EQ(params, SAMPLE_PARAMS);
}

TEST(SerializerTest, PassesAMethodCallWithAText)
{
    SerializedData data;
    ASSERT_EQ(Serializer::serialize("open", SAMPLE_PARAMS, "extra", data), STATUS_SUCCESS);

    std::string method = "earlier";
    Values params = {9};
    std::string extra = "earlier";
    EXPECT_EQ(Serializer::deserialize(data, method, params, extra), STATUS_SUCCESS);

    EXPECT_EQ(method, "open");
    EXPECT_EQ(params, SAMPLE_PARAMS);
    EXPECT_EQ(extra, "extra");
}

TEST(SerializerTest, AppendsNamesAndReplacesTheRest)
{
    SerializedData data;
    ASSERT_EQ(Serializer::serialize({"n1", "", "n1"}, "open", SAMPLE_PARAMS, "extra", data),
              STATUS_SUCCESS);

    Names names = {"n0"};
    std::string method = "earlier";
    Values params = {9};
    std::string extra = "earlier";
    EXPECT_EQ(Serializer::deserialize(data, names, method, params, extra), STATUS_SUCCESS);

    EXPECT_THAT(names, ElementsAre("n0", "n1", "", "n1"));
    EXPECT_EQ(method, "open");
    EXPECT_EQ(params, SAMPLE_PARAMS);
    EXPECT_EQ(extra, "extra");
}

TEST(SerializerTest, CutsTextsToTheirSlotsAndAtTheFirstNul)
{
    const std::string cut(255, 'm');
    const std::string tooMuch(300, 'm');
    const std::string withNul("ab\0cd", 5);
    SerializedData data;
    ASSERT_EQ(Serializer::serialize({tooMuch, withNul}, tooMuch, {std::string(256, 'm'), withNul},
                                    tooMuch, data),
              STATUS_SUCCESS);
    EXPECT_EQ(data.getTotalDataSize(), 6 * 256);

    Names names;
    std::string method;
    Values params;
    std::string extra;
    EXPECT_EQ(Serializer::deserialize(data, names, method, params, extra), STATUS_SUCCESS);

    EXPECT_THAT(names, ElementsAre(cut, "ab"));
    EXPECT_EQ(method, cut);
    EXPECT_EQ(params, (Values{cut, "ab"}));
    EXPECT_EQ(extra, cut);

    SerializedData other;
    ASSERT_EQ(Serializer::serialize(KeyValues(), withNul, Values{}, other), STATUS_SUCCESS);
    KeyValues nothing;
    EXPECT_EQ(Serializer::deserialize(other, nothing, method, params), STATUS_SUCCESS);
    EXPECT_EQ(method, "ab");
}

TEST(SerializerTest, TakesBlocksWithoutEntries)
{
    const KeyValues none;
    KeyValues target = small("kept", 1);
    KeyValue entry;
    Names names = {"kept"};
    std::string method = "earlier";
    Values params = {9};
    std::string extra = "earlier";

    {
        SerializedData data;
        ASSERT_EQ(Serializer::serialize(none, KeyValue("k", 1), data), STATUS_SUCCESS);
        EXPECT_EQ(data.getTotalDataSize(), 260);
        EXPECT_EQ(Serializer::deserialize(data, target, entry), STATUS_SUCCESS);
        EXPECT_TRUE(entry == KeyValue("k", 1));
    }
    {
        SerializedData data;
        ASSERT_EQ(Serializer::serialize(none, "", Values{}, data), STATUS_SUCCESS);
        EXPECT_EQ(data.getTotalDataSize(), 256);
        EXPECT_EQ(Serializer::deserialize(data, target, method, params), STATUS_SUCCESS);
        EXPECT_EQ(method, "");
        EXPECT_THAT(params, IsEmpty());
    }
    {
        SerializedData data;
        method = "earlier";
        params = {9};
        ASSERT_EQ(Serializer::serialize("", Values{}, data), STATUS_SUCCESS);
        EXPECT_EQ(Serializer::deserialize(data, method, params), STATUS_SUCCESS);
        EXPECT_EQ(method, "");
        EXPECT_THAT(params, IsEmpty());
    }
    {
        SerializedData data;
        params = {9};
        ASSERT_EQ(Serializer::serialize("m", Values{}, "", data), STATUS_SUCCESS);
        EXPECT_EQ(Serializer::deserialize(data, method, params, extra), STATUS_SUCCESS);
        EXPECT_EQ(method, "m");
        EXPECT_THAT(params, IsEmpty());
        EXPECT_EQ(extra, "");
    }
    {
        SerializedData data;
        params = {9};
        ASSERT_EQ(Serializer::serialize(Names{}, "m", Values{}, "e", data), STATUS_SUCCESS);
        EXPECT_EQ(data.getTotalDataSize(), 512);
        EXPECT_EQ(Serializer::deserialize(data, names, method, params, extra), STATUS_SUCCESS);
        EXPECT_EQ(method, "m");
        EXPECT_THAT(params, IsEmpty());
        EXPECT_EQ(extra, "e");
    }
    EXPECT_THAT(names, ElementsAre("kept"));
    EXPECT_TRUE(sameRecords({target}, {small("kept", 1)}));
}

TEST(SerializerTest, RefusesAnEmptyRecordOnItsOwn)
{
    SerializedData data;
    LogCapture log;

    EXPECT_EQ(Serializer::serialize(KeyValues(), data), STATUS_INVALID_STATE);

    EXPECT_THAT(log.lines(),
                ElementsAre(LoggedIn(RECORD_FILE, "serialize", "Invalid data size (0).")));
    EXPECT_EQ(data.getData(), nullptr);
}

TEST(SerializerTest, PacksTheKeyAloneOfAnEntryWithoutValue)
{
    for (const Pack& pack : {Pack([](SerializedData& data) {
                                 return Serializer::serialize(KeyValue(std::string("key")), data);
                             }),
                             Pack([](SerializedData& data) {
                                 return Serializer::serialize("key", Variant(), data);
                             })}) {
        SerializedData data;
        {
            LogCapture log;
            EXPECT_EQ(pack(data), STATUS_SUCCESS);
            EXPECT_THAT(log.lines(),
                        ElementsAre(LoggedIn(DATA_FILE, "addType", "Invalid parameter (-1)."),
                                    LoggedIn(ENTRY_FILE, "setSerializedDataInfo", "r (-22)."),
                                    Logged("toRaw", "Invalid type (0).")));
        }
        EXPECT_EQ(blocksOf(data), (std::vector<Types>{{TEXT}}));
        EXPECT_EQ(textAt(data, 0), "key");

        LogCapture log;
        KeyValue entry("earlier", 1);
        EXPECT_EQ(Serializer::deserialize(data, entry), STATUS_INVALID_STATE);
        EXPECT_TRUE(entry == KeyValue("earlier", 1));
        std::string key = "earlier";
        Variant value = 1;
        EXPECT_EQ(Serializer::deserialize(data, key, value), STATUS_SUCCESS);
        EXPECT_EQ(key, "");
        EXPECT_TRUE(value.empty());
        EXPECT_THAT(log.lines(), ElementsAre(entryFailed("Invalid key-value pair."),
                                             entryFailed("Invalid key-value pair.")));
    }
}

// ---- Descriptions that are refused --------------------------------------------------------------

struct RefusalCase {
    std::string name;
    Pack pack;
    int code;
    std::vector<std::string> files;  // of the levels between addType and Serializer
    std::vector<Types> left;
};

TEST(SerializerTest, LogsEveryLevelOfARefusedDescriptionAndKeepsWhatWasAdded)
{
    const KeyValues holed = recordOf({{"a", 1}, {"hole", Variant()}, {"b", 2}});
    const Types upToHole = {TEXT, INT, TEXT};
    const Values holedParams = {1, Variant(), 2};
    const KeyValues huge = wide(1001);
    const Types full = times(1000, {TEXT, BOOL});
    const Values hugeParams(2001, Variant(1));
    const Types fullParams = times(2000, {INT});
    const Names hugeNames(2001, "n");
    const Types fullNames = times(2000, {TEXT});
    const KeyValues one = small("k", 1);
    const Types oneTypes = {TEXT, INT};

    Records withHole = {one, holed, one};
    Records manySmall(1001, one);
    Records manyEmpty(2001);
    Records holedFirst = {holed, one};
    Records hugeFirst = {huge, one};

    const std::vector<std::string> recordLevels = {ENTRY_FILE, RECORD_FILE};
    const std::vector<std::string> entryLevel = {ENTRY_FILE};
    const std::vector<std::string> noLevel;

    std::vector<RefusalCase> rows;
    const auto add = [&rows](const std::string& name, int code,
                             const std::vector<std::string>& files, const std::vector<Types>& left,
                             const Pack& pack) {
        rows.push_back({name, pack, code, files, left});
    };

    add("record and entry, record", -22, recordLevels, {upToHole, {}},
        [&](auto& d) { return Serializer::serialize(holed, KeyValue("k", 1), d); });
    add("record and entry, record too wide", -524268, recordLevels, {full, {}},
        [&](auto& d) { return Serializer::serialize(huge, KeyValue("k", 1), d); });
    add("record and entry, entry", -22, entryLevel, {oneTypes, {TEXT}},
        [&](auto& d) { return Serializer::serialize(one, KeyValue(std::string("hole")), d); });

    add("record and method, record", -22, recordLevels, {upToHole, {}, {}},
        [&](auto& d) { return Serializer::serialize(holed, "m", Values{1}, d); });
    add("record and method, record too wide", -524268, recordLevels, {full, {}, {}},
        [&](auto& d) { return Serializer::serialize(huge, "m", Values{1}, d); });
    add("record and method, parameter", -22, noLevel, {oneTypes, {TEXT}, {INT}},
        [&](auto& d) { return Serializer::serialize(one, "m", holedParams, d); });
    add("record and method, too many parameters", -524268, noLevel, {oneTypes, {TEXT}, fullParams},
        [&](auto& d) { return Serializer::serialize(one, "m", hugeParams, d); });

    add("method, parameter", -22, noLevel, {{TEXT}, {INT}},
        [&](auto& d) { return Serializer::serialize("m", holedParams, d); });
    add("method, too many parameters", -524268, noLevel, {{TEXT}, fullParams},
        [&](auto& d) { return Serializer::serialize("m", hugeParams, d); });

    add("method and text, parameter", -22, noLevel, {{TEXT}, {INT}, {}},
        [&](auto& d) { return Serializer::serialize("m", holedParams, "e", d); });
    add("method and text, too many parameters", -524268, noLevel, {{TEXT}, fullParams, {}},
        [&](auto& d) { return Serializer::serialize("m", hugeParams, "e", d); });

    add("names, too many", -524268, noLevel, {fullNames, {}, {}, {}},
        [&](auto& d) { return Serializer::serialize(hugeNames, "m", Values{1}, "e", d); });
    add("names, parameter", -22, noLevel, {{TEXT}, {TEXT}, {INT}, {}},
        [&](auto& d) { return Serializer::serialize({"n"}, "m", holedParams, "e", d); });
    add("names, too many parameters", -524268, noLevel, {{TEXT}, {TEXT}, fullParams, {}},
        [&](auto& d) { return Serializer::serialize({"n"}, "m", hugeParams, "e", d); });

    // The three ways of giving a list, in both layouts.
    const auto addLists = [&](const std::string& name, Records& list, int code,
                              const std::vector<std::string>& files,
                              const std::vector<Types>& left) {
        add(name, code, files, left, [&list](auto& d) { return Serializer::serialize(list, d); });
        add(name + ", pointers", code, files, left,
            [&list](auto& d) { return Serializer::serialize(pointersTo(list), d); });
        add(name + ", iterator", code, files, left, [&list](auto& d) {
            RecordingIterator iterator(pointersTo(list));
            return Serializer::serialize(&iterator, 5000, d);
        });
    };
    addLists("list, value", withHole, -22, recordLevels,
             {{INT, INT}, {TEXT, INT, TEXT, INT, TEXT}});
    addLists("list, too many entries", manySmall, -524268, recordLevels,
             {times(1001, {INT}), times(1000, oneTypes)});
    addLists("list, too many records", manyEmpty, -524268, noLevel, {times(2000, {INT}), {}});

    const auto addRepeatedLists = [&](const std::string& name, Records& list, int code,
                                      const std::vector<Types>& left) {
        add(name, code, recordLevels, left,
            [&list](auto& d) { return Serializer::serialize(list, d, REPEATABLE); });
        add(name + ", pointers", code, recordLevels, left,
            [&list](auto& d) { return Serializer::serialize(pointersTo(list), d, REPEATABLE); });
        add(name + ", iterator", code, recordLevels, left, [&list](auto& d) {
            RecordingIterator iterator(pointersTo(list));
            return Serializer::serialize(&iterator, 5000, d, REPEATABLE);
        });
    };
    addRepeatedLists("repeated list, value", holedFirst, -22, {upToHole});
    addRepeatedLists("repeated list, too wide", hugeFirst, -524268, {full});

    for (const RefusalCase& row : rows) {
        SCOPED_TRACE(row.name);
        SerializedData data;
        LogCapture log;

        EXPECT_EQ(row.pack(data), row.code);

        EXPECT_THAT(log.lines(), ElementsAreArray(refused(row.code, row.files)));
        EXPECT_EQ(blocksOf(data), row.left);
        EXPECT_EQ(data.getData(), nullptr);
    }
}

TEST(SerializerTest, TakesTheFullestBlocks)
{
    const std::string longName(255, 'n');
    {
        SerializedData data;
        EXPECT_EQ(Serializer::serialize(wide(1000), KeyValue("k", 1), data), STATUS_SUCCESS);
        KeyValues target;
        KeyValue extra;
        EXPECT_EQ(Serializer::deserialize(data, target, extra), STATUS_SUCCESS);
        EXPECT_TRUE(target == wide(1000));
        EXPECT_TRUE(extra == KeyValue("k", 1));
    }
    {
        const Names full(2000, longName);
        const Values fullParams(2000, Variant(true));
        SerializedData data;
        EXPECT_EQ(Serializer::serialize(full, longName, fullParams, longName, data),
                  STATUS_SUCCESS);
        EXPECT_EQ(data.getTotalDataSize(), 2000 * 256 + 256 + 2000 + 256);
        Names names;
        std::string method;
        Values params;
        std::string extra;
        EXPECT_EQ(Serializer::deserialize(data, names, method, params, extra), STATUS_SUCCESS);
        EXPECT_EQ(names, full);
        EXPECT_EQ(method, longName);
        EXPECT_EQ(params, fullParams);
        EXPECT_EQ(extra, longName);
    }
}

// ---- Texts that are too long --------------------------------------------------------------------

TEST(SerializerTest, PutsWhatFollowsATooLongParameter257BytesEarly)
{
    const std::string big(257, 'x');
    LogCapture log;

    SerializedData method;
    EXPECT_EQ(Serializer::serialize(std::string(255, 'm'), Values{big, 0x01010101, "t"}, method),
              STATUS_SUCCESS);
    EXPECT_EQ(blocksOf(method), (std::vector<Types>{{TEXT}, {TEXT, INT, TEXT}}));
    EXPECT_EQ(intAt(method, 255), 0x01010101);
    EXPECT_EQ(textAt(method, 259), "t");
    EXPECT_EQ(valuesOf(method, 0), Values{std::string(255, 'm')});  // its slot has no NUL now

    SerializedData text;
    EXPECT_EQ(Serializer::serialize("m", Values{7, big}, "extra", text), STATUS_SUCCESS);
    EXPECT_EQ(textAt(text, 259), "extra");
    EXPECT_EQ(text.getTotalDataSize(), 256 + 4 + 256 + 256);

    SerializedData names;
    EXPECT_EQ(Serializer::serialize({"n"}, "m", Values{big, big, 7}, "extra", names),
              STATUS_SUCCESS);
    EXPECT_EQ(intAt(names, 510), 7);
    EXPECT_EQ(textAt(names, 514), "extra");

    SerializedData withRecord;
    EXPECT_EQ(Serializer::serialize(small("k", 1), "m", Values{big, 7}, withRecord),
              STATUS_SUCCESS);
    EXPECT_EQ(intAt(withRecord, 260 + 255), 7);

    EXPECT_THAT(log.lines(), ElementsAre(tooLong(), tooLong(), tooLong(), tooLong(), tooLong()));
}

TEST(SerializerTest, PutsWhatFollowsATooLongValueOfARecord257BytesEarly)
{
    const KeyValues big = recordOf({{"big", std::string(257, 'x')}});
    LogCapture log;

    SerializedData withEntry;
    EXPECT_EQ(Serializer::serialize(big, KeyValue("extra", 5), withEntry), STATUS_SUCCESS);
    EXPECT_EQ(blocksOf(withEntry), (std::vector<Types>{{TEXT, TEXT}, {TEXT, INT}}));
    EXPECT_EQ(textAt(withEntry, 255), "extra");
    EXPECT_EQ(intAt(withEntry, 255 + 256), 5);

    SerializedData withMethod;
    EXPECT_EQ(Serializer::serialize(big, "open", Values{5}, withMethod), STATUS_SUCCESS);
    EXPECT_EQ(textAt(withMethod, 255), "open");
    EXPECT_EQ(intAt(withMethod, 255 + 256), 5);

    SerializedData list;
    EXPECT_EQ(Serializer::serialize(Records{big, small("next", 5)}, list), STATUS_SUCCESS);
    EXPECT_EQ(textAt(list, 8 + 255), "next");
    EXPECT_EQ(intAt(list, 8 + 255 + 256), 5);

    SerializedData repeated;
    EXPECT_EQ(Serializer::serialize(Records{big, small("next", 5)}, repeated, REPEATABLE),
              STATUS_SUCCESS);
    EXPECT_EQ(textAt(repeated, 255), "next");
    EXPECT_EQ(intAt(repeated, 255 + 256), 5);

    EXPECT_THAT(log.lines(), ElementsAre(tooLong(), tooLong(), tooLong(), tooLong()));
}

TEST(SerializerTest, NeverWritesInFrontOfTheDataHoweverManyTextsAreTooLong)
{
    Values params(600, Variant(std::string(257, 'x')));
    params.push_back(7);
    LogCapture log;

    SerializedData method;
    EXPECT_EQ(Serializer::serialize("m", params, method), STATUS_SUCCESS);
    EXPECT_EQ(method.getTotalDataSize(), 256 + 600 * 256 + 4);
    SerializedData text;
    EXPECT_EQ(Serializer::serialize("m", params, "extra", text), STATUS_SUCCESS);
    SerializedData names;
    EXPECT_EQ(Serializer::serialize({"n"}, "m", params, "extra", names), STATUS_SUCCESS);
    SerializedData withRecord;
    EXPECT_EQ(Serializer::serialize(KeyValues(), "m", params, withRecord), STATUS_SUCCESS);

    EXPECT_THAT(log.lines(), testing::AllOf(testing::SizeIs(4 * 600), testing::Each(tooLong())));
}

}  // namespace
}  // namespace oxil::test
