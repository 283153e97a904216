#include <Oxil.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "OxLogMatchers.h"

/*
 * What applications write without naming a type: each call here compiles, and chooses the same
 * function as ever. A constructor or an overload that is added must leave them all as they are.
 */

namespace oxil::test {
namespace {

using testing::ElementsAre;

// ---- What converts without being named, and what doesn't ----------------------------------------

static_assert(std::is_convertible_v<std::string, KeyValue>);
static_assert(std::is_convertible_v<const std::string&, KeyValue>);
static_assert(std::is_convertible_v<Variant, KeyValue>);
static_assert(std::is_convertible_v<SerializedData&, KeyValue>);
static_assert(std::is_convertible_v<SerializedData&, KeyValues>);
static_assert(std::is_convertible_v<const SerializationInfo&, SerializedData>);
static_assert(std::is_default_constructible_v<Serializer>);
static_assert(std::is_default_constructible_v<WireDecoder>);
static_assert(!std::is_convertible_v<WireLimits, WireDecoder>);

// A number is a value: as a block count it would make KeyValue(5) ambiguous.
static_assert(std::is_constructible_v<SerializedData, int>);
static_assert(!std::is_convertible_v<int, SerializedData>);
static_assert(std::is_constructible_v<KeyValue, int>);
static_assert(!std::is_convertible_v<int, KeyValue>);
static_assert(!std::is_constructible_v<KeyValues, int>);

// A C text is a key where an entry may stand as well: record.remove("key").
static_assert(std::is_constructible_v<KeyValue, const char*>);
static_assert(std::is_constructible_v<KeyValue, char*>);
static_assert(std::is_constructible_v<KeyValue, const char (&)[4]>);
static_assert(!std::is_convertible_v<const char*, KeyValue>);
static_assert(!std::is_constructible_v<KeyValue, int*>);
static_assert(!std::is_constructible_v<KeyValue, std::nullptr_t>);

// No list in braces is a text and its length.
template <typename Value, typename = void>
struct TakesATextAndItsLength : std::false_type {
};

template <typename Value>
struct TakesATextAndItsLength<Value, std::void_t<decltype(std::declval<Value&>() = {{}, "abc", 3})>>
    : std::true_type {
};

static_assert(TakesATextAndItsLength<std::vector<Variant>>::value);
static_assert(!TakesATextAndItsLength<Variant>::value);

/** What converts to a text or to a buffer, as types of applications do. */
struct Name {
    operator std::string() const { return "name"; }
};

struct Message {
    operator const SerializedData&() const { return data; }

    const SerializedData& data;
};

// ---- Entries ------------------------------------------------------------------------------------

std::string contentOf(const Variant& value)
{
    return value.getTypeName() + " " + value.toString();
}

std::string contentOf(const KeyValue& entry)
{
    return entry.getKey() + ": " + contentOf(entry.getValue());
}

TEST(OverloadTest, AnEntryIsMadeOfWhatItsArgumentIs)
{
    const std::string text = "key";
    char buffer[] = "key";
    const char* const pointer = buffer;
    const Variant variant("value");
    SerializedData data;
    ASSERT_EQ(KeyValue("key", 1).serialize(data), STATUS_SUCCESS);

    EXPECT_EQ(contentOf(KeyValue(text)), "key: NONE null");
    EXPECT_EQ(contentOf(KeyValue{text}), "key: NONE null");
    EXPECT_EQ(contentOf(KeyValue(Name())), "name: NONE null");
    EXPECT_EQ(contentOf(KeyValue(variant)), ": STRING value");
    EXPECT_EQ(contentOf(KeyValue{variant}), ": STRING value");
    EXPECT_EQ(contentOf(KeyValue(5)), ": INT 5");
    EXPECT_EQ(contentOf(KeyValue(5L)), ": LONG 5");
    EXPECT_EQ(contentOf(KeyValue(true)), ": BOOL 1");
    EXPECT_EQ(contentOf(KeyValue(2.5)), ": DOUBLE 2.500000");
    EXPECT_EQ(contentOf(KeyValue(data)), "key: INT 1");
    EXPECT_EQ(contentOf(KeyValue(Message{data})), "key: INT 1");
    EXPECT_EQ(contentOf(KeyValue("key", "value")), "key: STRING value");
    EXPECT_EQ(contentOf(KeyValue(text, 1u)), "key: UINT 1");
    EXPECT_EQ(contentOf(KeyValue{buffer, variant}), "key: STRING value");

    EXPECT_EQ(contentOf(KeyValue("key")), "key: NONE null");
    EXPECT_EQ(contentOf(KeyValue{"key"}), "key: NONE null");
    EXPECT_EQ(contentOf(KeyValue(buffer)), "key: NONE null");
    EXPECT_EQ(contentOf(KeyValue(pointer)), "key: NONE null");
    EXPECT_THROW(KeyValue(static_cast<const char*>(nullptr)), std::logic_error);
}

TEST(OverloadTest, AnEntryIsAssignedWithoutBeingNamed)
{
    const Variant variant(7u);
    SerializedData data;
    ASSERT_EQ(KeyValue("key", 1).serialize(data), STATUS_SUCCESS);

    KeyValue entry = std::string("key");
    EXPECT_EQ(contentOf(entry), "key: NONE null");
    entry = variant;
    EXPECT_EQ(contentOf(entry), ": UINT 7");
    entry = data;
    EXPECT_EQ(contentOf(entry), "key: INT 1");
    entry = {"other", "value"};
    EXPECT_EQ(contentOf(entry), "other: STRING value");
    entry = {};
    EXPECT_EQ(contentOf(entry), ": NONE null");
}

TEST(OverloadTest, AListOfEntriesIsMadeInBraces)
{
    const std::vector<KeyValue> entries = {{"a", 1}, {"b", "2"}, std::string("c"), Variant(4)};
    ASSERT_EQ(entries.size(), 4u);
    EXPECT_EQ(contentOf(entries[1]), "b: STRING 2");
    EXPECT_EQ(contentOf(entries[2]), "c: NONE null");
    EXPECT_EQ(contentOf(entries[3]), ": INT 4");

    EXPECT_EQ(std::vector<KeyValue>{5}.size(), 5u);
    EXPECT_EQ(std::vector<KeyValues>{5}.size(), 5u);
}

// ---- Records ------------------------------------------------------------------------------------

std::string contentOf(const KeyValues& record)
{
    std::string content;
    for (const KeyValue& entry : record.getKeyValues()) {
        content += (content.empty() ? "" : ", ") + contentOf(entry);
    }
    return content;
}

TEST(OverloadTest, ARecordIsFilledAndAskedInManyWays)
{
    const std::string text = "text";
    const Variant variant(7u);
    KeyValues record;

    EXPECT_EQ(record.add("a", 1), STATUS_SUCCESS);
    EXPECT_EQ(record.add(text, "value"), STATUS_SUCCESS);
    EXPECT_EQ(record.add(Name(), variant), STATUS_SUCCESS);
    EXPECT_EQ(record.add({"b", true}), STATUS_SUCCESS);
    EXPECT_EQ(record.add(KeyValue("c", 2.5)), STATUS_SUCCESS);
    EXPECT_EQ(record.add("d", {}), STATUS_SUCCESS);
    EXPECT_EQ(record.add(std::string("e")), STATUS_SUCCESS);
    EXPECT_EQ(contentOf(record),
              "a: INT 1, text: STRING value, name: UINT 7, b: BOOL 1, c: DOUBLE 2.500000, "
              "d: NONE null, e: NONE null");

    EXPECT_EQ(record.update("a", 2), STATUS_SUCCESS);
    EXPECT_EQ(record.update(1, "new"), STATUS_SUCCESS);
    EXPECT_EQ(record.update(0, 3), STATUS_SUCCESS);
    EXPECT_EQ(record.update({"b", false}), STATUS_SUCCESS);
    EXPECT_EQ(record.update(KeyValue("c", variant)), STATUS_SUCCESS);
    EXPECT_EQ(record.update(text, variant), STATUS_SUCCESS);
    EXPECT_EQ(contentOf(record),
              "a: INT 3, text: UINT 7, name: UINT 7, b: BOOL 0, c: UINT 7, d: NONE null, "
              "e: NONE null");

    EXPECT_TRUE(record.isIncluded("a", 3));
    EXPECT_TRUE(record.isIncluded({"a", 3}));
    EXPECT_TRUE(record.isIncluded(text, variant));
    EXPECT_TRUE(record.isIncluded(KeyValue("b", false)));
    EXPECT_TRUE(record.isIncluded(std::string("e")));
    EXPECT_EQ(record.getIndex("b"), 3);
    EXPECT_EQ(contentOf(record.getKeyValue(0)), "a: INT 3");
    EXPECT_EQ(contentOf(record.getKeyValue("a")), "a: INT 3");
    EXPECT_EQ(contentOf(record.getValue(0)), "INT 3");
    EXPECT_EQ(contentOf(record.getValue("a")), "INT 3");

    EXPECT_EQ(record.remove("a"), STATUS_SUCCESS);
    EXPECT_EQ(record.remove(text), STATUS_SUCCESS);
    EXPECT_EQ(record.remove(Name()), STATUS_SUCCESS);
    EXPECT_EQ(record.remove(KeyValue("b", 0)), STATUS_SUCCESS);
    EXPECT_EQ(record.remove(0), STATUS_SUCCESS);
    EXPECT_EQ(record.remove(0L), STATUS_SUCCESS);
    EXPECT_EQ(contentOf(record), "e: NONE null");
}

TEST(OverloadTest, ARecordIsMadeOfABuffer)
{
    SerializedData data;
    ASSERT_EQ(Serializer::serialize("key", 1, data), STATUS_SUCCESS);
    const SerializedData& constant = data;

    KeyValues record = data;
    EXPECT_EQ(contentOf(record), "key: INT 1");
    record = {};
    EXPECT_EQ(contentOf(record), "");
    record = constant;
    EXPECT_EQ(contentOf(record), "key: INT 1");
    EXPECT_EQ(contentOf(KeyValues(data)), "key: INT 1");
    EXPECT_EQ(contentOf(KeyValues(Message{data})), "key: INT 1");

    SerializedData reader = data.getSerializationInfo();
    EXPECT_EQ(reader.getDataSize(), data.getDataSize());
    EXPECT_EQ(SerializedData(2).getBlockCount(), 2);
}

// ---- Payloads -----------------------------------------------------------------------------------

/** What a call of Serializer::serialize() has packed: the values of all blocks. */
template <typename Serialize>
std::string packed(const Serialize& serialize)
{
    SerializedData data;
    EXPECT_EQ(serialize(data), STATUS_SUCCESS);
    std::string content;
    for (int block = 0; block < data.getBlockCount(); ++block) {
        content += block > 0 ? "|" : "";
        const char* separator = "";
        for (const Variant& value : *data.getValues(block)) {
            content += separator + value.toString();
            separator = ",";
        }
    }
    return content;
}

#define PACKED(...) \
    packed([&](SerializedData& data) { return Serializer::serialize(__VA_ARGS__, data); })
#define PACKED_REPEATED(...)                                         \
    packed([&](SerializedData& data) {                               \
        return Serializer::serialize(__VA_ARGS__, data, REPEATABLE); \
    })

class PayloadOverloadTest : public testing::Test {
protected:
    PayloadOverloadTest()
    {
        record.add("key", 1);
        other.add("other", 2);
    }

    const std::string text = "text";
    const Variant variant{7};
    const KeyValue entry{"entry", 3};
    const std::vector<Variant> values{1, "2"};
    const std::vector<std::string> names{"a", "b"};
    KeyValues record;
    KeyValues other;
};

TEST_F(PayloadOverloadTest, AnEntryOrARecordAlone)
{
    EXPECT_EQ(PACKED(entry), "entry,3");
    EXPECT_EQ(PACKED({entry}), "entry,3");
    EXPECT_EQ(PACKED({"key", 1}), "key,1");
    EXPECT_EQ(PACKED({text, variant}), "text,7");
    EXPECT_EQ(PACKED({{"a"}, {"b"}}), "a,b");
    EXPECT_EQ(PACKED(record), "key,1");
    EXPECT_EQ(PACKED({record}), "key,1");
}

TEST_F(PayloadOverloadTest, AKeyAndAValue)
{
    EXPECT_EQ(PACKED("key", 1), "key,1");
    EXPECT_EQ(PACKED("key", 1L), "key,1");
    EXPECT_EQ(PACKED("key", "value"), "key,value");
    EXPECT_EQ(PACKED("key", text), "key,text");
    EXPECT_EQ(PACKED("key", std::string("value")), "key,value");
    EXPECT_EQ(PACKED("key", variant), "key,7");
    EXPECT_EQ(PACKED("key", {variant}), "key,7");
    EXPECT_EQ(PACKED(text, true), "text,1");
    EXPECT_EQ(PACKED(text, text), "text,text");
    EXPECT_EQ(PACKED(Name(), 1), "name,1");
    EXPECT_EQ(PACKED({"key"}, 1), "key,1");
    EXPECT_EQ(PACKED({"key"}, text), "key,text");
    EXPECT_EQ(PACKED({}, variant), ",7");
    EXPECT_EQ(PACKED({}, "value"), ",value");
    EXPECT_EQ(PACKED({}, text), ",text");
    EXPECT_EQ(PACKED({}, std::string("value")), ",value");
}

TEST_F(PayloadOverloadTest, ARecordAndAnEntry)
{
    EXPECT_EQ(PACKED(record, entry), "key,1|entry,3");
    EXPECT_EQ(PACKED(record, {"extra", 2.5}), "key,1|extra,2.500000");
    EXPECT_EQ(PACKED({record}, entry), "key,1|entry,3");
    EXPECT_EQ(PACKED({}, entry), "|entry,3");
}

TEST_F(PayloadOverloadTest, AMethodCall)
{
    EXPECT_EQ(PACKED("open", values), "open|1,2");
    EXPECT_EQ(PACKED("open", {1, "2"}), "open|1,2");
    EXPECT_EQ(PACKED("open", {"1", "2"}), "open|1,2");
    EXPECT_EQ(PACKED("open", {variant, variant}), "open|7,7");
    EXPECT_EQ(PACKED("open", {values}), "open|1,2");
    EXPECT_EQ(PACKED("open", {text, 1, "2", true}), "open|text,1,2,1");
    EXPECT_EQ(PACKED(text, std::vector<Variant>()), "text|");
    EXPECT_EQ(PACKED(text, std::vector<Variant>{variant}), "text|7");
    EXPECT_EQ(PACKED({}, values), "|1,2");
    EXPECT_EQ(PACKED("open", {1}, "extra"), "open|1|extra");
    EXPECT_EQ(PACKED("open", {}, text), "open||text");
    EXPECT_EQ(PACKED("open", {1, "2"}, "extra"), "open|1,2|extra");
    EXPECT_EQ(PACKED(text, values, text), "text|1,2|text");
    EXPECT_EQ(PACKED({}, values, "extra"), "|1,2|extra");
    EXPECT_EQ(PACKED(record, "open", values), "key,1|open|1,2");
    EXPECT_EQ(PACKED(record, "open", {1}), "key,1|open|1");
    EXPECT_EQ(PACKED(record, text, {}), "key,1|text|");
    EXPECT_EQ(PACKED({}, text, {}), "|text|");
    EXPECT_EQ(PACKED(names, "open", values, "extra"), "a,b|open|1,2|extra");
    EXPECT_EQ(PACKED({"a", "b", "c"}, text, {1, 2}, text), "a,b,c|text|1,2|text");
}

TEST_F(PayloadOverloadTest, AnEmptyParameterIsNoTagOfAValue)
{
    SerializedData data;
    LogCapture log;

    // Three parameters, of which the first can't be packed.
    EXPECT_EQ(Serializer::serialize("open", {{}, "abc", 3}, data), STATUS_INVALID_PARAMETER);

    EXPECT_EQ(data.getBlockCount(), 2);
    EXPECT_THAT(log.lines(), ElementsAre(Logged("addType", "Invalid parameter (-1)."),
                                         Logged("serialize", "r (-22).")));
}

TEST_F(PayloadOverloadTest, AListOfRecords)
{
    const std::vector<KeyValues> records = {record, other};
    const std::vector<KeyValues*> pointers = {&record, &other};

    EXPECT_EQ(PACKED(records), "1,1|key,1,other,2");
    EXPECT_EQ(PACKED(pointers), "1,1|key,1,other,2");
    EXPECT_EQ(PACKED({record, other}), "1,1|key,1,other,2");
    EXPECT_EQ(PACKED_REPEATED(records), "key,1,other,2");
    EXPECT_EQ(PACKED_REPEATED(pointers), "key,1,other,2");
    EXPECT_EQ(PACKED_REPEATED({record, other}), "key,1,other,2");
    EXPECT_EQ(PACKED_REPEATED({record}), "key,1");
    EXPECT_EQ(PACKED_REPEATED({&record}), "key,1");
}

TEST_F(PayloadOverloadTest, WhatConvertsToAnEntry)
{
    SerializedData source;
    ASSERT_EQ(record.serialize(source), STATUS_SUCCESS);

    EXPECT_EQ(PACKED(variant), ",7");
    EXPECT_EQ(PACKED(record, variant), "key,1|,7");
    EXPECT_EQ(PACKED(record, source), "key,1|key,1");
}

TEST_F(PayloadOverloadTest, AMessageIsOfSerializedDataARecordOrAList)
{
    SerializedData data;
    ASSERT_EQ(Serializer::serialize(record, data), STATUS_SUCCESS);
    std::string ofData;
    std::string ofRecord;
    std::string ofList;

    EXPECT_EQ(WireEncoder::encode(data, ofData), STATUS_SUCCESS);
    EXPECT_EQ(WireEncoder::encode(record, ofRecord), STATUS_SUCCESS);
    EXPECT_EQ(WireEncoder::encode({record, record}, ofList, REPEATABLE), STATUS_SUCCESS);

    EXPECT_EQ(ofRecord, ofData);
    std::vector<KeyValues> list;
    EXPECT_EQ(WireDecoder::decode(ofList.data(), ofList.size(), data), STATUS_SUCCESS);
    EXPECT_EQ(WireDecoder::decode(ofList.data(), ofList.size(), list, REPEATABLE, {}),
              STATUS_SUCCESS);
    EXPECT_EQ(data.getRepeatCount(0), 2);
    EXPECT_THAT(list, ElementsAre(record, record));
}

TEST_F(PayloadOverloadTest, ASerializerIsAnObjectWhereOneIsWanted)
{
    Serializer serializer;
    SerializedData data;
    KeyValues unpacked;

    EXPECT_EQ(serializer.serialize(record, data), STATUS_SUCCESS);
    EXPECT_EQ(serializer.deserialize(data, unpacked), STATUS_SUCCESS);
    EXPECT_EQ(unpacked, record);
}

// ---- XML ----------------------------------------------------------------------------------------

TEST(OverloadTest, ADocumentIsWrittenToItsFileUnlessATextIsGiven)
{
    static_assert(std::is_same_v<decltype(static_cast<int (XmlDocument::*)()>(&XmlDocument::write)),
                                 int (XmlDocument::*)()>);
    XmlDocument document;
    std::string text = "unchanged";
    LogCapture log;

    // There is no file to write to.
    EXPECT_EQ(document.write(), STATUS_INVALID_STATE);
    EXPECT_EQ(document.write({}), STATUS_INVALID_STATE);
    EXPECT_EQ(document.write(PLAIN_FILE), STATUS_INVALID_STATE);
    EXPECT_EQ(text, "unchanged");
    EXPECT_EQ(log.count(), 3);

    EXPECT_EQ(document.write(text), STATUS_SUCCESS);
    EXPECT_NE(text, "unchanged");
    EXPECT_EQ(log.count(), 3);
}

}  // namespace
}  // namespace oxil::test
