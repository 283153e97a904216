#include <Oxil.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

#include "AllocationFailure.h"
#include "OxLogMatchers.h"

/** What a record offers besides the strict members: nothing is logged that is no mistake. */
namespace oxil::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const LoggedBy logged("OxKeyValues.cpp");

const std::string LONG_KEY = "a key that is too long for a text without memory of its own";

TEST(RecordAccessTest, ARecordIsMadeOfAList)
{
    const KeyValues lamp = {{"name", "hall"}, {"brightness", 80}, {"on", true}};

    ASSERT_EQ(lamp.getCount(), 3);
    EXPECT_EQ(lamp.getKeyValue(0), KeyValue("name", "hall"));
    EXPECT_EQ(lamp.getKeyValue(1), KeyValue("brightness", 80));
    EXPECT_EQ(lamp.getKeyValue(2), KeyValue("on", true));
    EXPECT_EQ((KeyValues{{"name", "hall"}, {"brightness", 80}, {"on", true}}), lamp);
}

TEST(RecordAccessTest, AListIsRefusedWhatAddRefuses)
{
    LogCapture log;
    const KeyValues record = {{"a", 1}, {"", 2}, {"a", 3}, {"b", 4}};

    EXPECT_THAT(log.lines(), ElementsAre(logged("add", "Invalid parameter."),
                                         logged("add", "Key(a) already exist.")));
    EXPECT_EQ(record, (KeyValues{{"a", 1}, {"b", 4}}));
}

TEST(RecordAccessTest, EntriesAreWalkedWithoutCopies)
{
    const KeyValues lamp = {{"name", "hall"}, {"brightness", 80}};

    std::vector<std::string> seen;
    for (const auto& [key, value] : lamp) {
        seen.push_back(key + "=" + value.toString());
    }
    EXPECT_THAT(seen, ElementsAre("name=hall", "brightness=80"));

    EXPECT_EQ(&*lamp.begin(), lamp.getKeyValues().data());
    EXPECT_EQ(lamp.end() - lamp.begin(), lamp.getCount());
    const auto& [key, value] = *lamp.begin();
    EXPECT_EQ(&key, &lamp.begin()->get<0>());
    EXPECT_EQ(&value, &lamp.begin()->get<1>());
    EXPECT_EQ(KeyValues().begin(), KeyValues().end());
}

TEST(RecordAccessTest, ContainsIsSilent)
{
    KeyValues record = {{"a", 1}, {LONG_KEY, 2}};
    record.add(KeyValue(Variant(3)));  // with an empty key

    EXPECT_TRUE(record.contains("a"));
    EXPECT_TRUE(record.contains(LONG_KEY));
    EXPECT_TRUE(record.contains(std::string_view("abc", 1)));
    EXPECT_FALSE(record.contains("b"));
    EXPECT_FALSE(record.contains(""));
}

TEST(RecordAccessTest, GetIsTypedByItsFallback)
{
    const KeyValues record = {{"int", 7},     {"uint", 8u},   {"long", 9L},       {"ulong", 10UL},
                              {"ll", 11LL},   {"ull", 12ULL}, {"f", 0.5f},        {"d", 1.5},
                              {"bool", true}, {"text", "x"},  {"none", Variant()}};

    EXPECT_EQ(record.get("int", 0), 7);
    EXPECT_EQ(record.get("uint", 0u), 8u);
    EXPECT_EQ(record.get("long", 0L), 9L);
    EXPECT_EQ(record.get("ulong", 0UL), 10UL);
    EXPECT_EQ(record.get("ll", 0LL), 11LL);
    EXPECT_EQ(record.get("ull", 0ULL), 12ULL);
    EXPECT_EQ(record.get("f", 0.0f), 0.5f);
    EXPECT_EQ(record.get("d", 0.0), 1.5);
    EXPECT_EQ(record.get("bool", false), true);
    EXPECT_EQ(record.get("text", ""), "x");
    EXPECT_EQ(record.get("text", std::string()), "x");

    // What the table of conversions allows, and nothing else.
    EXPECT_EQ(record.get("int", 0.0), 7.0);
    EXPECT_EQ(record.get("int", "none"), "7");
    EXPECT_EQ(record.get("bool", 5), 1);
    EXPECT_EQ(record.get("none", "fallback"), "null");
    EXPECT_EQ(record.get("ll", 5), 5);
    EXPECT_EQ(record.get("d", 0.5f), 0.5f);
    EXPECT_EQ(record.get("text", 5), 5);
    EXPECT_EQ(record.get("none", 5), 5);

    EXPECT_EQ(record.get("absent", 5), 5);
    EXPECT_EQ(record.get("", 5), 5);
    EXPECT_EQ(record.get("absent", "fallback"), "fallback");
}

TEST(RecordAccessTest, SetAddsOrReplaces)
{
    KeyValues record = {{"a", 1}, {"b", 2}};

    EXPECT_EQ(record.set("a", "one"), STATUS_SUCCESS);
    EXPECT_EQ(record.set("c", 3), STATUS_SUCCESS);
    EXPECT_EQ(record, (KeyValues{{"a", "one"}, {"b", 2}, {"c", 3}}));

    LogCapture log;
    EXPECT_EQ(record.set("", 4), STATUS_INVALID_PARAMETER);
    EXPECT_THAT(log.lines(), ElementsAre(logged("set", "Invalid parameter.")));
    EXPECT_EQ(record.getCount(), 3);
}

TEST(RecordAccessTest, SetTakesValuesAndKeysOfTheRecordItself)
{
    KeyValues record = {{"a", "a text that is too long for a place without memory of its own"}};
    record.set("b", record.begin()->get<1>());
    record.set("c", record.begin()->get<1>());
    record.set("d", record.begin()->get<1>());
    record.set("e", record.begin()->get<1>());
    for (const auto& [key, value] : record) {
        EXPECT_EQ(value, record.getValue("a")) << key;
    }
    EXPECT_EQ(record.set(record.begin()->get<0>(), record.getKeyValues()[1].get<1>()),
              STATUS_SUCCESS);
    EXPECT_EQ(record.getCount(), 5);
}

TEST(RecordAccessTest, LargeRecordsAreSearchedTheSameWay)
{
    KeyValues record;
    for (int i = 0; i < 100; ++i) {
        EXPECT_EQ(record.set("key " + std::to_string(i), i), STATUS_SUCCESS);
    }
    for (int i = 0; i < 100; ++i) {
        EXPECT_EQ(record.get("key " + std::to_string(i), -1), i);
        EXPECT_EQ(record.set("key " + std::to_string(i), -i), STATUS_SUCCESS);
    }
    EXPECT_EQ(record.getCount(), 100);
    EXPECT_EQ(record.get("key 99", 0), -99);
    EXPECT_FALSE(record.contains("key 100"));
}

TEST(RecordAccessTest, LookingCopiesNoKey)
{
    KeyValues record = {{LONG_KEY, 1}};
    const char* const literal = LONG_KEY.c_str();

    bool contained = false;
    int before = 0;
    int r = STATUS_FAILURE;
    bool allocated = true;
    {
        const AllocationFailure failure(Allocation::ThrowingNew);
        contained = record.contains(literal);
        before = record.get(literal, 0);
        r = record.set(literal, 2);
        allocated = failure.happened();
    }
    EXPECT_TRUE(contained);
    EXPECT_EQ(before, 1);
    EXPECT_EQ(r, STATUS_SUCCESS);
    EXPECT_FALSE(allocated);
}

}  // namespace
}  // namespace oxil::test
