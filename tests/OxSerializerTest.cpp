#include "OxSerializer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <new>
#include <ostream>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "AllocationFailure.h"
#include "LogCapture.h"
#include "OxStatus.h"

namespace oxil::test {
namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

// ---- Records and lists of them ------------------------------------------------------------------

using Values = std::vector<Variant>;
using Names = std::vector<std::string>;
using Records = std::vector<KeyValues>;
using Pointers = std::vector<KeyValues*>;

KeyValues record(const std::vector<KeyValue>& entries)
{
    KeyValues result;
    for (const KeyValue& entry : entries) {
        EXPECT_EQ(result.add(entry), STATUS_SUCCESS);
    }
    return result;
}

/** A record of one small entry each: `{key: number}`. */
KeyValues small(const std::string& key, int number)
{
    return record({{key, number}});
}

/** A record of this many entries of kind BOOL. */
KeyValues wide(int count)
{
    KeyValues result;
    for (int i = 0; i < count; ++i) {
        EXPECT_EQ(result.add("key " + std::to_string(i), true), STATUS_SUCCESS);
    }
    return result;
}

Pointers pointersTo(Records& records)
{
    Pointers pointers;
    for (KeyValues& each : records) {
        pointers.push_back(&each);
    }
    return pointers;
}

/** Says which records there are, not all of their bytes. */
std::string textOf(const KeyValues& record)
{
    std::string text = "{";
    for (const KeyValue& entry : record.getKeyValues()) {
        text += " " + entry.getKey() + ": " + entry.getValue().getTypeName() + " " +
                entry.getValue().toString();
    }
    return text + " }";
}

Names textsOf(const Records& records)
{
    Names texts;
    for (const KeyValues& each : records) {
        texts.push_back(textOf(each));
    }
    return texts;
}

testing::AssertionResult sameRecords(const Records& actual, const Records& expected)
{
    if (actual == expected) {
        return testing::AssertionSuccess();
    }
    return testing::AssertionFailure() << testing::PrintToString(textsOf(actual)) << " instead of "
                                       << testing::PrintToString(textsOf(expected));
}

// ---- An iterator that keeps account -------------------------------------------------------------

/** Walks a list; its positions count down from 1000 in tens, so that only getPosition() knows. */
class RecordingIterator : public IBidirectionalIterator<KeyValues*> {
public:
    explicit RecordingIterator(const Pointers& records, std::size_t start = 0)
        : __records(records), __index(start)
    {
    }

    KeyValues* current() override
    {
        calls.push_back("current");
        return nullptr;
    }

    int moveTo(int position) override
    {
        calls.push_back("moveTo " + std::to_string(position));
        if (--__movesUntilFailure == 0) {
            return __moveFailure;
        }
        __index = static_cast<std::size_t>((1000 - position) / 10);
        return 0;
    }

    KeyValues* next() override
    {
        if (calls.empty() || calls.back() != "isEnd") {
            calls.push_back("next without isEnd");
        }
        calls.push_back("next");
        if (--__nextsUntilThrow == 0) {
            throw std::runtime_error("the source is gone");
        }
        return __records.at(__index++);
    }

    int getPosition() override
    {
        calls.push_back("getPosition");
        return 1000 - 10 * static_cast<int>(__index);
    }

    KeyValues* previous() override
    {
        calls.push_back("previous");
        return nullptr;
    }

    bool isBegin() override
    {
        calls.push_back("isBegin");
        return false;
    }

    bool isEnd() override
    {
        calls.push_back("isEnd");
        return __index == __records.size();
    }

    /** The calls in their order, without isEnd. */
    Names moves() const
    {
        Names result;
        for (const std::string& call : calls) {
            if (call != "isEnd") {
                result.push_back(call);
            }
        }
        return result;
    }

    void failMove(int nth, int result)
    {
        __movesUntilFailure = nth;
        __moveFailure = result;
    }

    void throwAtNext(int nth) { __nextsUntilThrow = nth; }

    Names calls;

private:
    Pointers __records;
    std::size_t __index;
    int __movesUntilFailure = 0;
    int __moveFailure = 0;
    int __nextsUntilThrow = 0;
};

/** The calls of some passes over some records, without isEnd. */
Names passes(int count, const std::string& position, int nexts)
{
    Names result = {"getPosition"};
    for (int i = 0; i < count; ++i) {
        result.push_back("moveTo " + position);
        result.insert(result.end(), static_cast<std::size_t>(nexts), "next");
    }
    return result;
}

// ---- Descriptions and bytes ---------------------------------------------------------------------

/** The type entries of one block: kind and size. */
using Types = std::vector<std::pair<int, int>>;

constexpr std::pair<int, int> TEXT(VARIANT_TYPE_STRING, 256);
constexpr std::pair<int, int> INT(VARIANT_TYPE_INT, 4);
constexpr std::pair<int, int> BOOL(VARIANT_TYPE_BOOL, 1);
constexpr std::pair<int, int> DOUBLE(VARIANT_TYPE_DOUBLE, 8);

Types times(int count, const Types& types)
{
    Types result;
    for (int i = 0; i < count; ++i) {
        result.insert(result.end(), types.begin(), types.end());
    }
    return result;
}

int sizeOf(const Types& types)
{
    int size = 0;
    for (const auto& type : types) {
        size += type.second;
    }
    return size;
}

std::vector<Types> blocksOf(const SerializedData& data)
{
    const SerializationInfo& info = data.getSerializationInfo();
    std::vector<Types> blocks;
    for (int b = 0; b < data.getBlockCount(); ++b) {
        Types types;
        for (int k = 0; k < info.typeCount[b]; ++k) {
            types.emplace_back(info.types[b][k], info.typeSizes[b][k]);
        }
        blocks.push_back(types);
    }
    return blocks;
}

Values valuesOf(const SerializedData& data, int block)
{
    const Values* values = data.getValues(block);
    EXPECT_NE(values, nullptr);
    return values != nullptr ? *values : Values();
}

const char* placeAt(const SerializedData& data, int offset)
{
    return static_cast<const char*>(data.getData()) + offset;
}

std::string textAt(const SerializedData& data, int offset)
{
    return placeAt(data, offset);
}

int intAt(const SerializedData& data, int offset)
{
    std::int32_t number = 0;
    std::memcpy(&number, placeAt(data, offset), sizeof number);
    return number;
}

/** What an INT reads where these four characters stand. */
int intOf(const char* characters)
{
    std::int32_t number = 0;
    std::memcpy(&number, characters, sizeof number);
    return number;
}

/** A description and bytes put together value by value, as a device could send them. */
class Sent {
public:
    explicit Sent(const std::vector<Values>& blocks)
    {
        SerializedData description;
        description.setBlockCount(static_cast<int>(blocks.size()));
        for (std::size_t b = 0; b < blocks.size(); ++b) {
            for (const Variant& value : blocks[b]) {
                EXPECT_EQ(description.addType(static_cast<int>(b), value.getType()), 0);
                const std::size_t start = __bytes.size();
                const int size =
                    value.getType() == VARIANT_TYPE_STRING ? 256 : value.getValueSize();
                __bytes.resize(start + static_cast<std::size_t>(size));
                EXPECT_EQ(value.toRaw(__bytes.data() + start, size), size);
            }
        }
        info = description.getSerializationInfo();
    }

    /** The receiver's object; it borrows the bytes, which end where the heap block ends. */
    std::unique_ptr<SerializedData> receive()
    {
        __bytes.shrink_to_fit();
        auto data = std::make_unique<SerializedData>(info);
        static const char nothing = 0;
        const void* const bytes = __bytes.empty() ? &nothing : __bytes.data();
        EXPECT_EQ(data->setData(bytes), STATUS_SUCCESS);
        return data;
    }

    SerializationInfo info;

private:
    std::vector<char> __bytes;
};

// ---- Log lines ----------------------------------------------------------------------------------

using Lines = std::vector<testing::Matcher<const LogLine&>>;

constexpr const char* DATA_FILE = "OxSerializedData.cpp";
constexpr const char* ENTRY_FILE = "OxKeyValue.cpp";
constexpr const char* RECORD_FILE = "OxKeyValues.cpp";
constexpr const char* SERIALIZER_FILE = "OxSerializer.cpp";

/** What is logged when a type entry is refused below serialize(): one line for each level. */
Lines refused(int code, const std::vector<std::string>& files)
{
    Lines lines = {code == STATUS_CAPACITY_EXCEEDED
                       ? LoggedIn(DATA_FILE, "addType", "Max exceeded (2000).")
                       : LoggedIn(DATA_FILE, "addType", "Invalid parameter (-1).")};
    for (const std::string& file : files) {
        lines.push_back(
            LoggedIn(file, "setSerializedDataInfo", "r (" + std::to_string(code) + ")."));
    }
    lines.push_back(LoggedIn(SERIALIZER_FILE, "serialize", "r (" + std::to_string(code) + ")."));
    return lines;
}

testing::Matcher<const LogLine&> failed(const std::string& message)
{
    return LoggedIn(SERIALIZER_FILE, "deserialize", message);
}

testing::Matcher<const LogLine&> recordFailed(const std::string& message)
{
    return LoggedIn(RECORD_FILE, "deserialize", message);
}

testing::Matcher<const LogLine&> entryFailed(const std::string& message)
{
    return LoggedIn(ENTRY_FILE, "deserialize", message);
}

const testing::Matcher<const LogLine&>& tooLong()
{
    static const testing::Matcher<const LogLine&> line = Logged("toRaw", "destination is nullptr");
    return line;
}

// ---- Every overload that packs ------------------------------------------------------------------

using Pack = std::function<int(SerializedData&)>;

KeyValues sampleRecord()
{
    return record({{"id", 7}, {"name", "ok"}});
}

const Types SAMPLE_RECORD_TYPES = {TEXT, INT, TEXT, TEXT};

Records sampleRecords()
{
    return {record({{"a", 1}, {"b", 2.5}}), record({{"c", true}}), sampleRecord()};
}

Records sampleRecordsOfOneShape()
{
    return {record({{"a", 1}, {"b", true}}), record({{"a", -1}, {"b", false}}),
            record({{"a", 0}, {"b", true}})};
}

const Values SAMPLE_PARAMS = {1, "a", 2.5};
const Types SAMPLE_PARAM_TYPES = {INT, TEXT, DOUBLE};

struct PackCase {
    std::string name;
    Pack pack;
    std::vector<Types> blocks;
    int repeatCount = 0;  // of block 0
    const char* file = SERIALIZER_FILE;
};

void PrintTo(const PackCase& each, std::ostream* stream)
{
    *stream << each.name;
}

std::vector<PackCase> packCases()
{
    const std::vector<Types> list = {{INT, INT, INT},
                                     {TEXT, INT, TEXT, DOUBLE, TEXT, BOOL, TEXT, INT, TEXT, TEXT}};
    const std::vector<Types> repeated = {{TEXT, INT, TEXT, BOOL}};

    return {
        {"entry",
         [](SerializedData& data) { return Serializer::serialize(KeyValue("key", 2.5), data); },
         {{TEXT, DOUBLE}},
         0,
         ENTRY_FILE},
        {"record",
         [](SerializedData& data) { return Serializer::serialize(sampleRecord(), data); },
         {SAMPLE_RECORD_TYPES},
         0,
         RECORD_FILE},
        {"key_and_value",
         [](SerializedData& data) { return Serializer::serialize("key", Variant("v"), data); },
         {{TEXT, TEXT}},
         0,
         ENTRY_FILE},
        {"record_and_entry",
         [](SerializedData& data) {
             return Serializer::serialize(sampleRecord(), KeyValue("extra", true), data);
         },
         {SAMPLE_RECORD_TYPES, {TEXT, BOOL}}},
        {"record_and_method",
         [](SerializedData& data) {
             return Serializer::serialize(sampleRecord(), "open", SAMPLE_PARAMS, data);
         },
         {SAMPLE_RECORD_TYPES, {TEXT}, SAMPLE_PARAM_TYPES}},
        {"method",
         [](SerializedData& data) { return Serializer::serialize("open", SAMPLE_PARAMS, data); },
         {{TEXT}, SAMPLE_PARAM_TYPES}},
        {"method_and_text",
         [](SerializedData& data) {
             return Serializer::serialize("open", SAMPLE_PARAMS, "extra", data);
         },
         {{TEXT}, SAMPLE_PARAM_TYPES, {TEXT}}},
        {"names_method_and_text",
         [](SerializedData& data) {
             return Serializer::serialize({"n1", "n2"}, "open", SAMPLE_PARAMS, "extra", data);
         },
         {{TEXT, TEXT}, {TEXT}, SAMPLE_PARAM_TYPES, {TEXT}}},
        {"list", [](SerializedData& data) { return Serializer::serialize(sampleRecords(), data); },
         list},
        {"list_of_pointers",
         [](SerializedData& data) {
             Records records = sampleRecords();
             return Serializer::serialize(pointersTo(records), data);
         },
         list},
        {"repeated_list",
         [](SerializedData& data) {
             return Serializer::serialize(sampleRecordsOfOneShape(), data, REPEATABLE);
         },
         repeated, 3},
        {"repeated_list_of_pointers",
         [](SerializedData& data) {
             Records records = sampleRecordsOfOneShape();
             return Serializer::serialize(pointersTo(records), data, REPEATABLE);
         },
         repeated, 3},
        {"iterator",
         [](SerializedData& data) {
             Records records = sampleRecords();
             RecordingIterator iterator(pointersTo(records));
             return Serializer::serialize(&iterator, 3, data);
         },
         list},
        {"repeated_iterator",
         [](SerializedData& data) {
             Records records = sampleRecordsOfOneShape();
             RecordingIterator iterator(pointersTo(records));
             return Serializer::serialize(&iterator, 3, data, REPEATABLE);
         },
         repeated, 3},
    };
}

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

    EXPECT_TRUE(sameRecords({target}, {record({{"id", 1}, {"name", "ok"}})}));
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

    EXPECT_TRUE(sameRecords({target}, {record({{"first", 1}, {"id", 7}, {"name", "ok"}})}));
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
    const KeyValues holed = record({{"a", 1}, {"hole", Variant()}, {"b", 2}});
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
    const KeyValues big = record({{"big", std::string(257, 'x')}});
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

// ---- Lists of records ---------------------------------------------------------------------------

TEST(SerializerTest, PacksCountsAndThenTheEntriesOfAllRecords)
{
    const Records records = {record({{"a", 1}, {"b", 2}}),
                             record({{"a", 3}, {"b", "t"}, {"c", true}})};
    SerializedData data;
    ASSERT_EQ(Serializer::serialize(records, data), STATUS_SUCCESS);

    EXPECT_EQ(blocksOf(data),
              (std::vector<Types>{{INT, INT},
                                  {TEXT, INT, TEXT, INT, TEXT, INT, TEXT, TEXT, TEXT, BOOL}}));
    EXPECT_EQ(data.getDataSize(0), 8);
    EXPECT_EQ(intAt(data, 0), 2);
    EXPECT_EQ(intAt(data, 4), 3);
    EXPECT_EQ(textAt(data, 8), "a");
    EXPECT_EQ(intAt(data, 8 + 256), 1);
    EXPECT_EQ(textAt(data, 8 + 520), "a");
    EXPECT_EQ(intAt(data, 8 + 520 + 256), 3);
}

/** The two kinds of list that come out. */
enum class Form { Copies, OnHeap };

struct Unpacked {
    int result;
    Records records;
};

/** Unpacks behind one record that is already there; records on the heap are copied and deleted. */
Unpacked unpack(const SerializedData& data, Form form, bool repeated)
{
    Unpacked out;
    if (form == Form::Copies) {
        out.records = {small("already", 1)};
        out.result = repeated ? Serializer::deserialize(data, out.records, REPEATABLE)
                              : Serializer::deserialize(data, out.records);
    } else {
        Pointers pointers = {new KeyValues(small("already", 1))};
        out.result = repeated ? Serializer::deserialize(data, pointers, REPEATABLE)
                              : Serializer::deserialize(data, pointers);
        for (KeyValues* const pointer : pointers) {
            out.records.push_back(*std::unique_ptr<KeyValues>(pointer));
        }
    }
    EXPECT_FALSE(out.records.empty());
    EXPECT_TRUE(sameRecords({out.records.front()}, {small("already", 1)}));
    out.records.erase(out.records.begin());
    return out;
}

class SerializerListTest : public testing::TestWithParam<Form> {
protected:
    Unpacked unpackList(const SerializedData& data) { return unpack(data, GetParam(), false); }
    Unpacked unpackRepeated(const SerializedData& data) { return unpack(data, GetParam(), true); }

    void expectList(const SerializedData& data, const Records& expected)
    {
        const Unpacked out = unpackList(data);
        EXPECT_EQ(out.result, STATUS_SUCCESS);
        EXPECT_TRUE(sameRecords(out.records, expected));
    }

    void expectRepeated(const SerializedData& data, const Records& expected)
    {
        const Unpacked out = unpackRepeated(data);
        EXPECT_EQ(out.result, STATUS_SUCCESS);
        EXPECT_TRUE(sameRecords(out.records, expected));
    }

    int packRepeated(Records records, SerializedData& data)
    {
        return GetParam() == Form::Copies
                   ? Serializer::serialize(records, data, REPEATABLE)
                   : Serializer::serialize(pointersTo(records), data, REPEATABLE);
    }

    int packList(Records records, SerializedData& data)
    {
        return GetParam() == Form::Copies ? Serializer::serialize(records, data)
                                          : Serializer::serialize(pointersTo(records), data);
    }
};

std::string formNameOf(const testing::TestParamInfo<Form>& info)
{
    return info.param == Form::Copies ? "copies" : "on_heap";
}

INSTANTIATE_TEST_SUITE_P(Forms, SerializerListTest, testing::Values(Form::Copies, Form::OnHeap),
                         formNameOf);

TEST_P(SerializerListTest, PassesRecordsOfAnyShape)
{
    SerializedData data;
    ASSERT_EQ(packList(sampleRecords(), data), STATUS_SUCCESS);

    expectList(data, sampleRecords());
}

TEST_P(SerializerListTest, LosesEmptyRecords)
{
    SerializedData data;
    ASSERT_EQ(
        packList({KeyValues(), small("a", 1), KeyValues(), KeyValues(), small("b", 2), KeyValues()},
                 data),
        STATUS_SUCCESS);

    EXPECT_EQ(valuesOf(data, 0), (Values{0, 1, 0, 0, 1, 0}));
    expectList(data, {small("a", 1), small("b", 2)});

    SerializedData onlyEmpty;
    ASSERT_EQ(packList({KeyValues(), KeyValues()}, onlyEmpty), STATUS_SUCCESS);
    EXPECT_EQ(blocksOf(onlyEmpty), (std::vector<Types>{{INT, INT}, {}}));
    expectList(onlyEmpty, {});
}

TEST_P(SerializerListTest, PassesAListWithoutRecords)
{
    SerializedData data(4);
    EXPECT_EQ(packList({}, data), STATUS_SUCCESS);

    EXPECT_EQ(blocksOf(data), (std::vector<Types>{{}, {}}));
    EXPECT_EQ(data.getTotalDataSize(), 0);
    expectList(data, {});
}

TEST_P(SerializerListTest, TakesAThousandRecordsOfOneEntryAndNoMore)
{
    const Records thousand(1000, small("k", 1));
    SerializedData data;
    EXPECT_EQ(packList(thousand, data), STATUS_SUCCESS);
    EXPECT_EQ(data.getTypeCount(0), 1000);
    EXPECT_EQ(data.getTypeCount(1), 2000);
    expectList(data, thousand);

    LogCapture log;
    SerializedData tooSmall;
    EXPECT_EQ(packList(Records(1001, small("k", 1)), tooSmall), STATUS_CAPACITY_EXCEEDED);
    EXPECT_THAT(log.lines(), ElementsAreArray(refused(-524268, {ENTRY_FILE, RECORD_FILE})));
    EXPECT_EQ(tooSmall.getTypeCount(0), 1001);
    EXPECT_EQ(tooSmall.getTypeCount(1), 2000);
    EXPECT_EQ(tooSmall.getData(), nullptr);
}

TEST(SerializerTest, SkipsNullRecordsOfAList)
{
    KeyValues first = small("a", 1);
    KeyValues second = small("b", 2);
    const Pointers pointers = {nullptr, &first, nullptr, &second, nullptr};

    SerializedData data;
    EXPECT_EQ(Serializer::serialize(pointers, data), STATUS_SUCCESS);
    EXPECT_EQ(blocksOf(data), (std::vector<Types>{{INT, INT}, {TEXT, INT, TEXT, INT}}));
    Records records;
    EXPECT_EQ(Serializer::deserialize(data, records), STATUS_SUCCESS);
    EXPECT_TRUE(sameRecords(records, {first, second}));

    SerializedData repeated;
    EXPECT_EQ(Serializer::serialize(pointers, repeated, REPEATABLE), STATUS_SUCCESS);
    EXPECT_EQ(blocksOf(repeated), (std::vector<Types>{{TEXT, INT}}));
    EXPECT_EQ(repeated.getRepeatCount(0), 2);
    records.clear();
    EXPECT_EQ(Serializer::deserialize(repeated, records, REPEATABLE), STATUS_SUCCESS);
    EXPECT_TRUE(sameRecords(records, {first, second}));

    const Pointers nothing = {nullptr, nullptr};
    SerializedData none;
    EXPECT_EQ(Serializer::serialize(nothing, none), STATUS_SUCCESS);
    EXPECT_EQ(blocksOf(none), (std::vector<Types>{{}, {}}));
    SerializedData repeatedNone;
    EXPECT_EQ(Serializer::serialize(nothing, repeatedNone, REPEATABLE), STATUS_SUCCESS);
    EXPECT_EQ(blocksOf(repeatedNone), (std::vector<Types>{{}}));
    EXPECT_EQ(repeatedNone.getTotalDataSize(), 0);
}

TEST_P(SerializerListTest, ReadsNoMoreEntriesThanThereAre)
{
    struct Row {
        std::string name;
        Values counts;
        Values entries;
        Records records;
        bool promisedTooMuch;
    };
    const Values pair = {"a", 1};
    const Values twoPairs = {"a", 1, "b", 2};
    const std::vector<Row> rows = {
        {"the first promises too much", {3, 1}, twoPairs, {}, true},
        {"a later one promises too much", {1, 2}, twoPairs, {small("a", 1)}, true},
        {"one too many", {1, 1, 1}, twoPairs, {small("a", 1), small("b", 2)}, true},
        {"nothing there", {1}, {}, {}, true},
        {"half an entry", {1}, {"a"}, {}, true},
        {"an entry and a half", {1, 1}, {"a", 1, "b"}, {small("a", 1)}, true},
        {"the greatest count", {INT_MAX}, twoPairs, {}, true},
        {"twice the count is too great for an int", {1 << 30}, twoPairs, {}, true},
        {"twice the count would come out as two", {INT_MIN + 1}, twoPairs, {}, false},
        {"counts below one",
         {0, -1, 1, INT_MIN, 1},
         twoPairs,
         {small("a", 1), small("b", 2)},
         false},
        {"entries left over", {1}, twoPairs, {small("a", 1)}, false},
        {"half an entry left over", {1}, {"a", 1, "b"}, {small("a", 1)}, false},
        {"no counts", {}, pair, {}, false},
        {"a boolean for one", {true}, pair, {small("a", 1)}, false},
    };

    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        Sent sent({row.counts, row.entries});
        const auto data = sent.receive();
        LogCapture log;

        const Unpacked out = unpackList(*data);

        EXPECT_EQ(out.result, row.promisedTooMuch ? STATUS_INVALID_PARAMETER : STATUS_SUCCESS);
        EXPECT_TRUE(sameRecords(out.records, row.records));
        if (row.promisedTooMuch) {
            EXPECT_THAT(log.lines(), ElementsAre(failed("Invalid state.")));
        } else {
            EXPECT_THAT(log.lines(), IsEmpty());
        }
    }
}

TEST_P(SerializerListTest, TakesACountThatIsNoIntForNone)
{
    Sent sent({{"1", 1, 1u}, {"a", 1, "b", 2}});
    const auto data = sent.receive();
    LogCapture log;

    expectList(*data, {small("a", 1)});

    EXPECT_THAT(log.lines(), ElementsAre(Logged("toInt", "Invalid conversion (10) to INT"),
                                         Logged("toInt", "Invalid conversion (2) to INT")));
}

TEST_P(SerializerListTest, DropsEntriesThatARecordCannotTake)
{
    Sent sent({{3, 1}, {"a", 1, "a", 2, "", 3, 4, 5}});
    const auto data = sent.receive();
    LogCapture log;

    expectList(*data, {small("a", 1), small("4", 5)});

    EXPECT_THAT(log.lines(), ElementsAre(LoggedIn(RECORD_FILE, "add", "Key(a) already exist."),
                                         LoggedIn(RECORD_FILE, "add", "Invalid parameter.")));
}

// ---- Lists of records of one shape --------------------------------------------------------------

TEST_P(SerializerListTest, DescribesRecordsOfOneShapeOnce)
{
    SerializedData data(4);
    ASSERT_EQ(packRepeated(sampleRecordsOfOneShape(), data), STATUS_SUCCESS);

    EXPECT_EQ(blocksOf(data), (std::vector<Types>{{TEXT, INT, TEXT, BOOL}}));
    EXPECT_EQ(data.getRepeatCount(0), 3);
    EXPECT_EQ(data.getDataSize(), 3 * 517);
    EXPECT_EQ(intAt(data, 517 + 256), -1);
    expectRepeated(data, sampleRecordsOfOneShape());
}

TEST_P(SerializerListTest, TakesAnyNumberOfRecordsOfOneShape)
{
    for (const std::size_t count : {std::size_t{1}, std::size_t{1000}, std::size_t{3000}}) {
        Records records;
        for (std::size_t i = 0; i < count; ++i) {
            records.push_back(small("k", static_cast<int>(i)));
        }
        SerializedData data;
        EXPECT_EQ(packRepeated(records, data), STATUS_SUCCESS);
        EXPECT_EQ(data.getTypeCount(), 2);
        EXPECT_EQ(data.getRepeatCount(0), static_cast<int>(count));
        expectRepeated(data, records);
    }
}

TEST_P(SerializerListTest, NeedsOneRecordToRepeat)
{
    SerializedData data(3);

    EXPECT_THROW(packRepeated({}, data), std::out_of_range);

    EXPECT_EQ(blocksOf(data), (std::vector<Types>{{}}));
    EXPECT_EQ(data.getData(), nullptr);
}

TEST_P(SerializerListTest, ReadsRecordsThatDifferWithTheTypesOfTheFirst)
{
    // 260 bytes, then 512, then 260: each is written right behind the one before.
    SerializedData data;
    ASSERT_EQ(
        packRepeated({small("first", 1), record({{"second", "ABCDEFGHIJ"}}), small("0123third", 3)},
                     data),
        STATUS_SUCCESS);

    EXPECT_EQ(data.getTotalDataSize(), 3 * 260);
    EXPECT_EQ(textAt(data, 772), "0123third");
    EXPECT_EQ(intAt(data, 772 + 256), 3);
    expectRepeated(
        data, {small("first", 1), small("second", intOf("ABCD")), small("EFGHIJ", intOf("thir"))});
}

TEST_P(SerializerListTest, WritesRecordsThatAreLargerThanTheFirst)
{
    SerializedData data;
    ASSERT_EQ(packRepeated({small("first", 1), wide(40), record({{"last", "text"}})}, data),
              STATUS_SUCCESS);

    EXPECT_EQ(data.getTotalDataSize(), 3 * 260);
    EXPECT_EQ(textAt(data, 260 + 39 * 257), "key 39");
    EXPECT_EQ(textAt(data, 260 + 40 * 257), "last");
    EXPECT_EQ(textAt(data, 260 + 40 * 257 + 256), "text");
}

TEST_P(SerializerListTest, WritesRecordsThatAreSmallerThanTheFirst)
{
    SerializedData data;
    ASSERT_EQ(packRepeated({record({{"first", "text"}}), small("second", intOf("ABCD")),
                            KeyValues(), small("EFGH", 7)},
                           data),
              STATUS_SUCCESS);

    EXPECT_EQ(data.getTotalDataSize(), 4 * 512);
    LogCapture log;  // what the smaller records left are empty keys
    const Unpacked out = unpackRepeated(data);
    EXPECT_EQ(out.result, STATUS_SUCCESS);
    ASSERT_GE(out.records.size(), 2u);
    EXPECT_TRUE(sameRecords({out.records[0], out.records[1]},
                            {record({{"first", "text"}}), record({{"second", "ABCDEFGH"}})}));
}

TEST_P(SerializerListTest, WritesWhatItCanOfLaterRecordsOfOneShape)
{
    SerializedData data;
    {
        LogCapture log;
        ASSERT_EQ(packRepeated({small("a", 1), record({{"hole", Variant()}, {"b", 2}})}, data),
                  STATUS_SUCCESS);
        EXPECT_THAT(log.lines(), ElementsAre(Logged("toRaw", "Invalid type (0).")));
    }
    EXPECT_EQ(textAt(data, 260 + 255), "b");
    EXPECT_EQ(intAt(data, 260 + 255 + 256), 2);
}

TEST_P(SerializerListTest, PassesEmptyRecordsOfOneShapeAsNoRecords)
{
    SerializedData data;
    ASSERT_EQ(packRepeated({KeyValues(), KeyValues()}, data), STATUS_SUCCESS);
    EXPECT_EQ(blocksOf(data), (std::vector<Types>{{}}));
    EXPECT_EQ(data.getRepeatCount(0), 2);
    expectRepeated(data, {});

    SerializedData larger;
    ASSERT_EQ(packRepeated({KeyValues(), sampleRecord()}, larger), STATUS_SUCCESS);
    EXPECT_EQ(larger.getTotalDataSize(), 0);
    expectRepeated(larger, {});
}

TEST_P(SerializerListTest, ReadsOneRecordWithoutRepeatCount)
{
    for (const int repeatCount : {0, -1, INT_MIN, 1}) {
        Sent sent({{"a", 1}});
        sent.info.repeatCount[0] = repeatCount;
        expectRepeated(*sent.receive(), {small("a", 1)});
    }
}

TEST_P(SerializerListTest, ReadsNoRecordWithoutTypes)
{
    for (const int repeatCount : {0, 3, -1}) {
        Sent sent(std::vector<Values>(1));
        sent.info.repeatCount[0] = repeatCount;
        expectRepeated(*sent.receive(), {});
    }
}

TEST_P(SerializerListTest, RefusesHalfAnEntryToRepeat)
{
    for (const Values& types : {Values{"a"}, Values{"a", 1, "b"}}) {
        Sent sent({types});
        const auto data = sent.receive();
        LogCapture log;

        const Unpacked out = unpackRepeated(*data);

        EXPECT_EQ(out.result, STATUS_INVALID_PARAMETER);
        EXPECT_THAT(out.records, IsEmpty());
        EXPECT_THAT(log.lines(),
                    ElementsAre(recordFailed("Invalid key-value pair."), failed("Invalid state.")));
    }
}

TEST_P(SerializerListTest, CutsTheLastRunShortWhereUnknownKindsYieldedNothing)
{
    const auto unknown = LoggedIn(DATA_FILE, "getValues", "Invalid type (11).");
    {
        Sent sent({{"a", 1, "b", "c", 2, "d"}});
        sent.info.typeCount[0] = 4;
        sent.info.types[0][3] = 11;
        sent.info.repeatCount[0] = 2;
        const auto data = sent.receive();
        LogCapture log;

        expectRepeated(*data, {record({{"a", 1}, {"b", "c"}}), record({{"2", "d"}})});

        EXPECT_THAT(log.lines(), ElementsAre(unknown, unknown));
    }
    {
        Sent sent({{"a", "b", "c"}});
        sent.info.typeCount[0] = 2;
        sent.info.types[0][1] = 11;
        sent.info.repeatCount[0] = 3;
        const auto data = sent.receive();
        LogCapture log;

        const Unpacked out = unpackRepeated(*data);

        EXPECT_EQ(out.result, STATUS_INVALID_PARAMETER);
        EXPECT_TRUE(sameRecords(out.records, {record({{"a", "b"}})}));
        EXPECT_THAT(log.lines(),
                    ElementsAre(unknown, unknown, unknown, recordFailed("Invalid key-value pair."),
                                failed("Invalid state.")));
    }
}

// ---- Records on the heap ------------------------------------------------------------------------

TEST(SerializerTest, KeepsTheRecordsReadBeforeMemoryRanOut)
{
    struct Row {
        const char* name;
        int (*pack)(const Records&, SerializedData&);
        int (*unpack)(const SerializedData&, Pointers&);
    };
    const std::vector<Row> rows = {
        {"list", [](const Records& r, SerializedData& d) { return Serializer::serialize(r, d); },
         [](const SerializedData& d, Pointers& p) { return Serializer::deserialize(d, p); }},
        {"repeated list",
         [](const Records& r, SerializedData& d) {
             return Serializer::serialize(r, d, REPEATABLE);
         },
         [](const SerializedData& d, Pointers& p) {
             return Serializer::deserialize(d, p, REPEATABLE);
         }},
    };

    const Records records = {small("a", 1), small("a", 2), small("a", 3)};
    for (const Row& row : rows) {
        for (int n = 1; n <= 3; ++n) {
            SCOPED_TRACE(std::string(row.name) + ", record " + std::to_string(n));
            SerializedData data;
            ASSERT_EQ(row.pack(records, data), STATUS_SUCCESS);
            Pointers pointers;
            LogCapture log;
            int result = 0;

            {
                const AllocationFailure failure(Allocation::NothrowNew, n);
                result = row.unpack(data, pointers);
                EXPECT_TRUE(failure.happened());
            }

            EXPECT_EQ(result, STATUS_OUT_OF_MEMORY);
            EXPECT_THAT(log.lines(), ElementsAre(failed("Memory allocation failed.")));
            EXPECT_EQ(pointers.size(), static_cast<std::size_t>(n - 1));
            for (std::size_t i = 0; i < pointers.size(); ++i) {
                EXPECT_TRUE(sameRecords({*pointers[i]}, {records[i]}));
                delete pointers[i];
            }
        }
    }
}

TEST(SerializerTest, LosesNoMemoryWhenOutputsThrow)
{
    const Records records = {small("a", 1), small("a", 2), small("a", 3)};

    for (const bool repeated : {false, true}) {
        SerializedData packed;
        ASSERT_EQ(repeated ? Serializer::serialize(records, packed, REPEATABLE)
                           : Serializer::serialize(records, packed),
                  STATUS_SUCCESS);

        // Every allocation fails once; an output that holds something has to grow on the way.
        bool succeeded = false;
        for (int n = 1; !succeeded; ++n) {
            SCOPED_TRACE("allocation " + std::to_string(n));
            ASSERT_LT(n, 1000);
            SerializedData data(packed.getSerializationInfo());
            ASSERT_EQ(data.setData(static_cast<const void*>(packed.getData())), STATUS_SUCCESS);
            Pointers pointers = {new KeyValues(small("already", 1))};
            bool thrown = false;
            bool happened = false;

            {
                const AllocationFailure failure(Allocation::ThrowingNew, n);
                try {
                    succeeded = (repeated ? Serializer::deserialize(data, pointers, REPEATABLE)
                                          : Serializer::deserialize(data, pointers)) == 0;
                } catch (const std::bad_alloc&) {
                    thrown = true;
                }
                happened = failure.happened();
            }

            EXPECT_EQ(thrown, happened);
            EXPECT_EQ(succeeded, !happened);
            EXPECT_TRUE(happened || n > 1) << "nothing was asked for";
            for (KeyValues* const pointer : pointers) {
                EXPECT_NE(pointer, nullptr);
                delete pointer;
            }
        }
    }
}

// ---- Iterators ----------------------------------------------------------------------------------

class SerializerIteratorTest : public testing::Test {
protected:
    Records records = {small("a", 1), small("b", 2), small("c", 3), small("d", 4)};
    const Pointers pointers = pointersTo(records);
    SerializedData data;

    Records unpacked(bool repeated)
    {
        Records result;
        EXPECT_EQ(repeated ? Serializer::deserialize(data, result, REPEATABLE)
                           : Serializer::deserialize(data, result),
                  STATUS_SUCCESS);
        return result;
    }
};

TEST_F(SerializerIteratorTest, IsWalkedThreeTimes)
{
    RecordingIterator iterator(pointers);

    EXPECT_EQ(Serializer::serialize(&iterator, 100, data), STATUS_SUCCESS);

    EXPECT_EQ(iterator.moves(), passes(3, "1000", 4));
    EXPECT_TRUE(sameRecords(unpacked(false), records));
}

TEST_F(SerializerIteratorTest, IsWalkedTwiceForRecordsOfOneShape)
{
    RecordingIterator iterator(pointers);

    EXPECT_EQ(Serializer::serialize(&iterator, 100, data, REPEATABLE), STATUS_SUCCESS);

    EXPECT_EQ(iterator.moves(), passes(2, "1000", 4));
    EXPECT_EQ(data.getRepeatCount(0), 4);
    EXPECT_TRUE(sameRecords(unpacked(true), records));
}

TEST_F(SerializerIteratorTest, IsWalkedFromWhereItStands)
{
    RecordingIterator iterator(pointers, 2);
    EXPECT_EQ(Serializer::serialize(&iterator, 100, data), STATUS_SUCCESS);
    EXPECT_EQ(iterator.moves(), passes(3, "980", 2));
    EXPECT_TRUE(sameRecords(unpacked(false), {records[2], records[3]}));

    RecordingIterator repeated(pointers, 2);
    SerializedData other;
    EXPECT_EQ(Serializer::serialize(&repeated, 100, other, REPEATABLE), STATUS_SUCCESS);
    EXPECT_EQ(repeated.moves(), passes(2, "980", 2));
    EXPECT_EQ(other.getRepeatCount(0), 2);
}

TEST_F(SerializerIteratorTest, GivesAtMostAsManyRecordsAsAskedFor)
{
    for (const int count : {1, 3, 4}) {
        const Records expected(records.begin(), records.begin() + count);
        {
            RecordingIterator iterator(pointers);
            SerializedData target;
            EXPECT_EQ(Serializer::serialize(&iterator, count, target), STATUS_SUCCESS);
            EXPECT_EQ(iterator.moves(), passes(3, "1000", count));
            Records out;
            EXPECT_EQ(Serializer::deserialize(target, out), STATUS_SUCCESS);
            EXPECT_TRUE(sameRecords(out, expected));
        }
        {
            RecordingIterator iterator(pointers);
            SerializedData target;
            EXPECT_EQ(Serializer::serialize(&iterator, count, target, REPEATABLE), STATUS_SUCCESS);
            EXPECT_EQ(iterator.moves(), passes(2, "1000", count));
            EXPECT_EQ(target.getRepeatCount(0), count);
            Records out;
            EXPECT_EQ(Serializer::deserialize(target, out, REPEATABLE), STATUS_SUCCESS);
            EXPECT_TRUE(sameRecords(out, expected));
        }
    }
}

TEST_F(SerializerIteratorTest, NeedNotGiveARecord)
{
    struct Row {
        Pointers records;
        int count;
        int nexts;
    };
    const std::vector<Row> rows = {
        {{}, 5, 0}, {pointers, 0, 0}, {pointers, -1, 0}, {{nullptr, nullptr}, 5, 2}};

    for (const Row& row : rows) {
        RecordingIterator iterator(row.records);
        SerializedData plain(4);
        EXPECT_EQ(Serializer::serialize(&iterator, row.count, plain), STATUS_SUCCESS);
        EXPECT_EQ(iterator.moves(), passes(3, "1000", row.nexts));
        EXPECT_EQ(blocksOf(plain), (std::vector<Types>{{}, {}}));
        EXPECT_EQ(plain.getTotalDataSize(), 0);
        Records out;
        EXPECT_EQ(Serializer::deserialize(plain, out), STATUS_SUCCESS);
        EXPECT_THAT(out, IsEmpty());

        RecordingIterator repeatedIterator(row.records);
        SerializedData repeated(4);
        EXPECT_EQ(Serializer::serialize(&repeatedIterator, row.count, repeated, REPEATABLE),
                  STATUS_SUCCESS);
        EXPECT_EQ(repeatedIterator.moves(), passes(2, "1000", row.nexts));
        EXPECT_EQ(blocksOf(repeated), (std::vector<Types>{{}}));
        EXPECT_EQ(repeated.getRepeatCount(0), 0);
        EXPECT_EQ(repeated.getTotalDataSize(), 0);
        EXPECT_EQ(Serializer::deserialize(repeated, out, REPEATABLE), STATUS_SUCCESS);
        EXPECT_THAT(out, IsEmpty());
    }
}

TEST_F(SerializerIteratorTest, MayGiveNullRecordsWhichCount)
{
    const Pointers holed = {nullptr, &records[0], nullptr, &records[1], &records[2]};

    RecordingIterator iterator(holed);
    EXPECT_EQ(Serializer::serialize(&iterator, 4, data), STATUS_SUCCESS);
    EXPECT_EQ(iterator.moves(), passes(3, "1000", 4));
    EXPECT_EQ(blocksOf(data), (std::vector<Types>{{INT, INT}, {TEXT, INT, TEXT, INT}}));
    EXPECT_TRUE(sameRecords(unpacked(false), {records[0], records[1]}));

    RecordingIterator repeated(holed);
    SerializedData other;
    EXPECT_EQ(Serializer::serialize(&repeated, 4, other, REPEATABLE), STATUS_SUCCESS);
    EXPECT_EQ(repeated.moves(), passes(2, "1000", 4));
    EXPECT_EQ(blocksOf(other), (std::vector<Types>{{TEXT, INT}}));
    EXPECT_EQ(other.getRepeatCount(0), 2);
    Records out;
    EXPECT_EQ(Serializer::deserialize(other, out, REPEATABLE), STATUS_SUCCESS);
    EXPECT_TRUE(sameRecords(out, {records[0], records[1]}));
}

TEST_F(SerializerIteratorTest, MayGiveRecordsThatAreLargerThanTheFirst)
{
    KeyValues large = wide(40);
    KeyValues last = record({{"last", "text"}});
    RecordingIterator iterator({&records[0], &large, &last});

    EXPECT_EQ(Serializer::serialize(&iterator, 100, data, REPEATABLE), STATUS_SUCCESS);

    EXPECT_EQ(data.getTotalDataSize(), 3 * 260);
    EXPECT_EQ(textAt(data, 260 + 40 * 257 + 256), "text");
}

TEST_F(SerializerIteratorTest, FailsWhenItDoesNotMove)
{
    for (const int result : {1, -1, -22, 524271}) {
        for (int pass = 1; pass <= 3; ++pass) {
            SCOPED_TRACE("pass " + std::to_string(pass) + ", " + std::to_string(result));
            RecordingIterator iterator(pointers);
            iterator.failMove(pass, result);
            SerializedData target;
            LogCapture log;

            EXPECT_EQ(Serializer::serialize(&iterator, 2, target), STATUS_INVALID_STATE);

            EXPECT_THAT(log.lines(),
                        ElementsAre(LoggedIn(SERIALIZER_FILE, "serialize", "Invalid state.")));
            Names moves = passes(pass - 1, "1000", 2);
            moves.push_back("moveTo 1000");
            EXPECT_EQ(iterator.moves(), moves);
            EXPECT_EQ(blocksOf(target),
                      pass == 1 ? (std::vector<Types>{{}, {}})
                                : (std::vector<Types>{{INT, INT}, {TEXT, INT, TEXT, INT}}));
            EXPECT_EQ(target.getData(), nullptr);
        }
        for (int pass = 1; pass <= 2; ++pass) {
            SCOPED_TRACE("repeated, pass " + std::to_string(pass) + ", " + std::to_string(result));
            RecordingIterator iterator(pointers);
            iterator.failMove(pass, result);
            SerializedData target;
            LogCapture log;

            EXPECT_EQ(Serializer::serialize(&iterator, 2, target, REPEATABLE),
                      STATUS_INVALID_STATE);

            EXPECT_THAT(log.lines(),
                        ElementsAre(LoggedIn(SERIALIZER_FILE, "serialize", "Invalid state.")));
            Names moves = passes(pass - 1, "1000", 2);
            moves.push_back("moveTo 1000");
            EXPECT_EQ(iterator.moves(), moves);
            EXPECT_EQ(blocksOf(target),
                      pass == 1 ? (std::vector<Types>{{}}) : (std::vector<Types>{{TEXT, INT}}));
            EXPECT_EQ(target.getData(), nullptr);
        }
    }
}

TEST_F(SerializerIteratorTest, IsLeftAloneOnceSomethingFailed)
{
    KeyValues holed = record({{"hole", Variant()}});
    {
        RecordingIterator iterator({&records[0], &holed, &records[1]});
        LogCapture log;
        EXPECT_EQ(Serializer::serialize(&iterator, 100, data), STATUS_INVALID_PARAMETER);
        EXPECT_EQ(iterator.moves(), passes(1, "1000", 2));
    }
    {
        RecordingIterator iterator(pointers);
        SerializedData target;
        LogCapture log;
        {
            const AllocationFailure failure(Allocation::Malloc);
            EXPECT_EQ(Serializer::serialize(&iterator, 100, target), STATUS_OUT_OF_MEMORY);
        }
        EXPECT_EQ(iterator.moves(), passes(1, "1000", 4));
    }
    {
        RecordingIterator iterator(pointers);
        SerializedData target;
        LogCapture log;
        {
            const AllocationFailure failure(Allocation::Malloc);
            EXPECT_EQ(Serializer::serialize(&iterator, 100, target, REPEATABLE),
                      STATUS_OUT_OF_MEMORY);
        }
        EXPECT_EQ(iterator.moves(), passes(1, "1000", 4));
    }
}

TEST_F(SerializerIteratorTest, MayThrowAndNothingIsLost)
{
    for (int n = 1; n <= 12; ++n) {
        RecordingIterator iterator(pointers);
        iterator.throwAtNext(n);
        SerializedData target;
        ASSERT_EQ(Serializer::serialize("before", 1, target), STATUS_SUCCESS);
        EXPECT_THROW(Serializer::serialize(&iterator, 4, target), std::runtime_error);
        EXPECT_EQ(target.getData(), nullptr);
    }
    for (int n = 1; n <= 8; ++n) {
        RecordingIterator iterator(pointers);
        iterator.throwAtNext(n);
        SerializedData target;
        ASSERT_EQ(Serializer::serialize("before", 1, target), STATUS_SUCCESS);
        EXPECT_THROW(Serializer::serialize(&iterator, 4, target, REPEATABLE), std::runtime_error);
        EXPECT_EQ(target.getData(), nullptr);
    }
}

TEST_F(SerializerIteratorTest, MustBeThere)
{
    LogCapture log;

    EXPECT_EQ(Serializer::serialize(static_cast<RecordingIterator*>(nullptr), 1, data),
              STATUS_INVALID_PARAMETER);
    EXPECT_EQ(Serializer::serialize(static_cast<RecordingIterator*>(nullptr), 1, data, REPEATABLE),
              STATUS_INVALID_PARAMETER);

    EXPECT_THAT(log.lines(),
                ElementsAre(LoggedIn(SERIALIZER_FILE, "serialize", "Invalid parameter."),
                            LoggedIn(SERIALIZER_FILE, "serialize", "Invalid parameter.")));
    EXPECT_EQ(data.getData(), nullptr);
}

/** No more than an application has to write. */
class FourFunctionIterator : public IBidirectionalIterator<KeyValues*> {
public:
    int moveTo(int) override { return 0; }
    KeyValues* next() override { return nullptr; }
    int getPosition() override { return 0; }
    bool isEnd() override { return true; }
};

TEST_F(SerializerIteratorTest, ConsistsOfFourFunctionsAndThreeThatDoNothing)
{
    FourFunctionIterator iterator;
    IBidirectionalIterator<KeyValues*>& interface = iterator;

    EXPECT_EQ(interface.current(), nullptr);
    EXPECT_EQ(interface.previous(), nullptr);
    EXPECT_FALSE(interface.isBegin());
    EXPECT_TRUE(std::is_abstract_v<IBidirectionalIterator<KeyValues*>>);
    EXPECT_TRUE(std::has_virtual_destructor_v<IBidirectionalIterator<KeyValues*>>);
}

// ---- Reading what does not fit ------------------------------------------------------------------

/** Everything that can come out. */
struct Output {
    KeyValue entry{"earlier", 1};
    KeyValues record = small("earlier", 1);
    Names names = {"earlier"};
    std::string method = "earlier";
    Values params = {"earlier"};
    std::string text = "earlier";
    std::size_t listed = 0;
};

enum class Role { Entry, Record, Text, Params, NameList, Counts, Entries, Repeated };

struct UnpackCase {
    std::string name;
    Pack pack;
    std::function<int(const SerializedData&, Output&)> unpack;
    std::vector<Role> roles;
    bool lowest = false;  // the overloads that hand block 0 to the entry or the record
};

std::vector<UnpackCase> unpackCases()
{
    const std::vector<PackCase> packs = packCases();
    const auto packOf = [&packs](const std::string& name) {
        for (const PackCase& each : packs) {
            if (each.name == name) {
                return each.pack;
            }
        }
        ADD_FAILURE() << name;
        return Pack();
    };
    using Data = const SerializedData&;

    return {
        {"entry",
         packOf("entry"),
         [](Data data, Output& out) { return Serializer::deserialize(data, out.entry); },
         {Role::Entry},
         true},
        {"record",
         packOf("record"),
         [](Data data, Output& out) { return Serializer::deserialize(data, out.record); },
         {Role::Record},
         true},
        {"record and entry",
         packOf("record_and_entry"),
         [](Data data, Output& out) {
             return Serializer::deserialize(data, out.record, out.entry);
         },
         {Role::Record, Role::Entry}},
        {"record and method",
         packOf("record_and_method"),
         [](Data data, Output& out) {
             return Serializer::deserialize(data, out.record, out.method, out.params);
         },
         {Role::Record, Role::Text, Role::Params}},
        {"method",
         packOf("method"),
         [](Data data, Output& out) {
             return Serializer::deserialize(data, out.method, out.params);
         },
         {Role::Text, Role::Params}},
        {"method and text",
         packOf("method_and_text"),
         [](Data data, Output& out) {
             return Serializer::deserialize(data, out.method, out.params, out.text);
         },
         {Role::Text, Role::Params, Role::Text}},
        {"names, method and text",
         packOf("names_method_and_text"),
         [](Data data, Output& out) {
             return Serializer::deserialize(data, out.names, out.method, out.params, out.text);
         },
         {Role::NameList, Role::Text, Role::Params, Role::Text}},
        {"list",
         packOf("list"),
         [](Data data, Output& out) {
             const Unpacked list = unpack(data, Form::Copies, false);
             out.listed = list.records.size();
             return list.result;
         },
         {Role::Counts, Role::Entries}},
        {"list of pointers",
         packOf("list"),
         [](Data data, Output& out) {
             const Unpacked list = unpack(data, Form::OnHeap, false);
             out.listed = list.records.size();
             return list.result;
         },
         {Role::Counts, Role::Entries}},
        {"repeated list",
         packOf("repeated_list"),
         [](Data data, Output& out) {
             const Unpacked list = unpack(data, Form::Copies, true);
             out.listed = list.records.size();
             return list.result;
         },
         {Role::Repeated}},
        {"repeated list of pointers",
         packOf("repeated_list"),
         [](Data data, Output& out) {
             const Unpacked list = unpack(data, Form::OnHeap, true);
             out.listed = list.records.size();
             return list.result;
         },
         {Role::Repeated}},
    };
}

void expectUntouched(const Output& out)
{
    const Output fresh;
    EXPECT_TRUE(out.entry == fresh.entry);
    EXPECT_TRUE(sameRecords({out.record}, {fresh.record}));
    EXPECT_EQ(out.names, fresh.names);
    EXPECT_EQ(out.method, fresh.method);
    EXPECT_EQ(out.params, fresh.params);
    EXPECT_EQ(out.text, fresh.text);
    EXPECT_EQ(out.listed, 0u);
}

/** The messages that follow when a block's values can't be had, and the code. */
std::pair<Lines, int> withoutValues(Role role, bool lowest)
{
    Lines lines;
    int code = STATUS_INVALID_PARAMETER;
    if (role == Role::Entry) {
        lines.push_back(entryFailed("values is nullptr."));
        code = STATUS_INVALID_STATE;
    } else if (role == Role::Record) {
        lines.push_back(recordFailed("values is nullptr."));
    } else {
        lines.push_back(failed("values is nullptr."));
    }
    if (!lowest && (role == Role::Entry || role == Role::Record)) {
        lines.push_back(failed("Invalid state."));
    }
    return {lines, code};
}

TEST(SerializerTest, RefusesAnotherNumberOfBlocks)
{
    for (const UnpackCase& each : unpackCases()) {
        if (each.lowest) {
            continue;
        }
        SerializedData packed;
        ASSERT_EQ(each.pack(packed), STATUS_SUCCESS);

        for (const int count : {-1, 0, 1, 2, 3, 4, 5, 6, INT_MAX}) {
            if (count == static_cast<int>(each.roles.size())) {
                continue;
            }
            SCOPED_TRACE(each.name + ", " + std::to_string(count) + " blocks");
            SerializationInfo info = packed.getSerializationInfo();
            info.blockCount = count;
            SerializedData data(info);
            ASSERT_EQ(data.setData(static_cast<const void*>(packed.getData())), STATUS_SUCCESS);
            LogCapture log;
            Output out;

            EXPECT_EQ(each.unpack(data, out), STATUS_INVALID_PARAMETER);

            EXPECT_THAT(log.lines(), ElementsAre(failed("Invalid block count (" +
                                                        std::to_string(count) + ").")));
            expectUntouched(out);
        }
    }
}

TEST(SerializerTest, ReadsSingleEntriesAndRecordsWhateverTheNumberOfBlocks)
{
    SerializedData data;
    ASSERT_EQ(Serializer::serialize("key", Variant(1), data), STATUS_SUCCESS);
    data.setBlockCount(5);

    KeyValue entry;
    EXPECT_EQ(Serializer::deserialize(data, entry), STATUS_SUCCESS);
    EXPECT_TRUE(entry == KeyValue("key", 1));
    KeyValues target;
    EXPECT_EQ(Serializer::deserialize(data, target), STATUS_SUCCESS);
    EXPECT_TRUE(sameRecords({target}, {small("key", 1)}));
}

TEST(SerializerTest, RefusesAnObjectWithoutData)
{
    for (const UnpackCase& each : unpackCases()) {
        SCOPED_TRACE(each.name);
        SerializedData packed;
        ASSERT_EQ(each.pack(packed), STATUS_SUCCESS);
        const SerializedData data(packed.getSerializationInfo());
        LogCapture log;
        Output out;

        const auto [lines, code] = withoutValues(each.roles.front(), each.lowest);
        EXPECT_EQ(each.unpack(data, out), code);

        expectUntouched(out);
        // A list may look at both blocks before it gives up.
        ASSERT_GE(log.lines().size(), 1 + lines.size());
        EXPECT_THAT(log.lines().front(), LoggedIn(DATA_FILE, "getValues", "__data is nullptr."));
        EXPECT_THAT((std::vector<LogLine>(log.lines().end() - static_cast<int>(lines.size()),
                                          log.lines().end())),
                    ElementsAreArray(lines));
    }
}

TEST(SerializerTest, RefusesABlockThatCannotBeDecoded)
{
    for (const UnpackCase& each : unpackCases()) {
        for (std::size_t b = 0; b < each.roles.size(); ++b) {
            SCOPED_TRACE(each.name + ", block " + std::to_string(b));
            SerializedData packed;
            ASSERT_EQ(each.pack(packed), STATUS_SUCCESS);
            SerializationInfo info = packed.getSerializationInfo();
            info.typeSizes[b][0] = 0;
            SerializedData data(info);
            ASSERT_EQ(data.setData(static_cast<const void*>(packed.getData())), STATUS_SUCCESS);
            LogCapture log;
            Output out;

            auto [lines, code] = withoutValues(each.roles[b], each.lowest);
            EXPECT_EQ(each.unpack(data, out), code);

            lines.insert(lines.begin(), LoggedIn(DATA_FILE, "getValues", "Invalid copySize (0)."));
            EXPECT_THAT(log.lines(), ElementsAreArray(lines));
            if (b == 0) {
                expectUntouched(out);
            }
            EXPECT_EQ(out.listed, 0u);
        }
    }
}

TEST(SerializerTest, AnswersAKeyAndAValueThatCannotBeReadWithNothing)
{
    const SerializedData data;
    LogCapture log;
    std::string key = "earlier";
    Variant value = 1;

    EXPECT_EQ(Serializer::deserialize(data, key, value), STATUS_SUCCESS);

    EXPECT_EQ(key, "");
    EXPECT_TRUE(value.empty());
    EXPECT_THAT(log.lines(), ElementsAre(LoggedIn(DATA_FILE, "getValues", "__data is nullptr."),
                                         entryFailed("values is nullptr.")));
}

TEST(SerializerTest, DoesNotReadBackAnEntryWithoutKey)
{
    SerializedData data;
    ASSERT_EQ(Serializer::serialize("", Variant(1), data), STATUS_SUCCESS);
    LogCapture log;
    std::string key = "earlier";
    Variant value = 2;

    EXPECT_EQ(Serializer::deserialize(data, key, value), STATUS_SUCCESS);
    KeyValue entry("earlier", 2);
    EXPECT_EQ(Serializer::deserialize(data, entry), STATUS_SUCCESS);

    EXPECT_EQ(key, "");
    EXPECT_TRUE(value.empty());
    EXPECT_TRUE(entry == KeyValue("earlier", 2));
    EXPECT_THAT(log.lines(), ElementsAre(LoggedIn(ENTRY_FILE, "set", "Invalid parameter"),
                                         LoggedIn(ENTRY_FILE, "set", "Invalid parameter")));
}

TEST(SerializerTest, RefusesATextBlockThatHoldsMoreOrLessThanOneValue)
{
    struct Change {
        const char* name;
        std::function<void(SerializationInfo&, std::size_t)> make;
    };
    const std::vector<Change> changes = {
        {"none",
         [](SerializationInfo& info, std::size_t b) {
             info.typeCount[b] = 0;
             info.dataSize[b] = 256;
         }},
        {"two",
         [](SerializationInfo& info, std::size_t b) {
             info.typeCount[b] = 2;
             info.types[b][1] = VARIANT_TYPE_INT;
             info.typeSizes[b][0] = 252;
             info.typeSizes[b][1] = 4;
         }},
        {"twice the one",
         [](SerializationInfo& info, std::size_t b) {
             info.typeSizes[b][0] = 128;
             info.dataSize[b] = 128;
             info.repeatCount[b] = 2;
         }},
    };

    for (const UnpackCase& each : unpackCases()) {
        for (std::size_t b = 0; b < each.roles.size(); ++b) {
            if (each.roles[b] != Role::Text) {
                continue;
            }
            for (const Change& change : changes) {
                SCOPED_TRACE(each.name + ", block " + std::to_string(b) + ", " + change.name);
                SerializedData packed;
                ASSERT_EQ(each.pack(packed), STATUS_SUCCESS);
                // Behind a text in the last place, room for what a slot of 128 bytes may touch.
                std::vector<char> bytes(placeAt(packed, 0),
                                        placeAt(packed, packed.getTotalDataSize()));
                bytes.resize(bytes.size() + 128);
                SerializationInfo info = packed.getSerializationInfo();
                change.make(info, b);
                SerializedData data(info);
                ASSERT_EQ(data.setData(static_cast<const void*>(bytes.data())), STATUS_SUCCESS);
                LogCapture log;
                Output out;

                EXPECT_EQ(each.unpack(data, out), STATUS_INVALID_PARAMETER);

                EXPECT_THAT(log.lines(), ElementsAre(failed("values is nullptr.")));
            }
        }
    }
}

TEST(SerializerTest, RefusesHalfAnEntry)
{
    KeyValues target;
    KeyValue extra;
    std::string method;
    Values params;
    {
        Sent sent({{"a", 1, "b"}, {"x", 1}});
        const auto data = sent.receive();
        LogCapture log;
        EXPECT_EQ(Serializer::deserialize(*data, target, extra), STATUS_INVALID_PARAMETER);
        EXPECT_THAT(log.lines(),
                    ElementsAre(recordFailed("Invalid key-value pair."), failed("Invalid state.")));
        EXPECT_TRUE(extra == KeyValue());
    }
    {
        Sent sent({{"a", 1, "b"}, {"m"}, {}});
        const auto data = sent.receive();
        LogCapture log;
        EXPECT_EQ(Serializer::deserialize(*data, target, method, params), STATUS_INVALID_PARAMETER);
        EXPECT_THAT(log.lines(),
                    ElementsAre(recordFailed("Invalid key-value pair."), failed("Invalid state.")));
        EXPECT_EQ(method, "");
    }
    EXPECT_EQ(target.getCount(), 0);

    for (const Values& values : {Values{"x"}, Values{"x", 1, "y"}, Values{}}) {
        Sent sent({{"a", 1}, values});
        const auto data = sent.receive();
        LogCapture log;
        KeyValues first;
        EXPECT_EQ(Serializer::deserialize(*data, first, extra), STATUS_INVALID_STATE);
        EXPECT_THAT(log.lines(),
                    ElementsAre(entryFailed("Invalid key-value pair."), failed("Invalid state.")));
        EXPECT_TRUE(sameRecords({first}, {small("a", 1)}));
        EXPECT_TRUE(extra == KeyValue());
    }
    {
        Sent sent({{"a", 1, "b"}});
        const auto data = sent.receive();
        LogCapture log;
        EXPECT_EQ(Serializer::deserialize(*data, extra), STATUS_INVALID_STATE);
        EXPECT_EQ(Serializer::deserialize(*data, target), STATUS_INVALID_PARAMETER);
        EXPECT_THAT(log.lines(), ElementsAre(entryFailed("Invalid key-value pair."),
                                             recordFailed("Invalid key-value pair.")));
    }
}

TEST(SerializerTest, ReadsTheFirstOfSeveralExtraEntries)
{
    Sent sent({{}, {"x", 1, "y", 2}});
    KeyValues target;
    KeyValue extra;

    EXPECT_EQ(Serializer::deserialize(*sent.receive(), target, extra), STATUS_SUCCESS);

    EXPECT_TRUE(extra == KeyValue("x", 1));
    EXPECT_EQ(target.getCount(), 0);
}

TEST(SerializerTest, KeepsWhatWasReadBeforeAFailure)
{
    Output out;
    const auto fails = [](int result) { EXPECT_EQ(result, STATUS_INVALID_PARAMETER); };
    LogCapture log;

    {
        Sent sent({{"k", 2}, {}, {5}});
        fails(Serializer::deserialize(*sent.receive(), out.record, out.method, out.params));
        EXPECT_TRUE(sameRecords({out.record}, {record({{"earlier", 1}, {"k", 2}})}));
        EXPECT_EQ(out.method, "earlier");
        EXPECT_EQ(out.params, Values{"earlier"});
    }
    {
        Sent sent({{"m1"}, {5}});
        sent.info.typeSizes[1][0] = 0;
        fails(Serializer::deserialize(*sent.receive(), out.method, out.params));
        EXPECT_EQ(out.method, "m1");
        EXPECT_EQ(out.params, Values{"earlier"});
    }
    {
        Sent sent({{"m2"}, {5}, {}});
        fails(Serializer::deserialize(*sent.receive(), out.method, out.params, out.text));
        EXPECT_EQ(out.method, "m2");
        EXPECT_EQ(out.params, Values{5});
        EXPECT_EQ(out.text, "earlier");
    }
    {
        Sent sent({{"n"}, {"m3"}, {6}, {}});
        fails(
            Serializer::deserialize(*sent.receive(), out.names, out.method, out.params, out.text));
        EXPECT_THAT(out.names, ElementsAre("earlier", "n"));
        EXPECT_EQ(out.method, "m3");
        EXPECT_EQ(out.params, Values{6});
        EXPECT_EQ(out.text, "earlier");
    }
    EXPECT_THAT(log.lines(), ElementsAre(failed("values is nullptr."),
                                         LoggedIn(DATA_FILE, "getValues", "Invalid copySize (0)."),
                                         failed("values is nullptr."), failed("values is nullptr."),
                                         failed("values is nullptr.")));
}

TEST(SerializerTest, ReadsValuesOfOtherKindsAsTexts)
{
    Sent sent({{1, 2.5f, "n", true}, {-7LL}, {}, {4u}});
    Names names;
    std::string method;
    Values params;
    std::string extra;

    EXPECT_EQ(Serializer::deserialize(*sent.receive(), names, method, params, extra),
              STATUS_SUCCESS);

    EXPECT_THAT(names, ElementsAre("1", "2.500000", "n", "1"));
    EXPECT_EQ(method, "-7");
    EXPECT_EQ(extra, "4");
}

TEST(SerializerTest, ReadsParametersThatRepeat)
{
    Sent sent({{"m"}, {1, 2, 1, 2, 1, 2}});
    sent.info.typeCount[1] = 2;
    sent.info.dataSize[1] = 8;
    sent.info.repeatCount[1] = 3;
    std::string method;
    Values params;

    EXPECT_EQ(Serializer::deserialize(*sent.receive(), method, params), STATUS_SUCCESS);

    EXPECT_EQ(params, (Values{1, 2, 1, 2, 1, 2}));
}

TEST(SerializerTest, ReadsTheSameObjectAgain)
{
    SerializedData data;
    ASSERT_EQ(Serializer::serialize({"n"}, "open", SAMPLE_PARAMS, "extra", data), STATUS_SUCCESS);

    for (int i = 0; i < 2; ++i) {
        Names names;
        std::string method;
        Values params;
        std::string extra;
        EXPECT_EQ(Serializer::deserialize(data, names, method, params, extra), STATUS_SUCCESS);
        EXPECT_THAT(names, ElementsAre("n"));
        EXPECT_EQ(method, "open");
        EXPECT_EQ(params, SAMPLE_PARAMS);
        EXPECT_EQ(extra, "extra");
    }
}

TEST(SerializerTest, TellsHowManyRecordsOfAShapeFit)
{
    const std::vector<std::pair<int, int>> rows = {{1, 1000}, {2, 500}, {3, 333},  {4, 250},
                                                   {7, 142},  {501, 1}, {1000, 1}, {1001, 0}};
    for (const auto& [entries, count] : rows) {
        EXPECT_EQ(Serializer::getSerializableCount(wide(entries)), count) << entries << " entries";
    }
}

}  // namespace
}  // namespace oxil::test
