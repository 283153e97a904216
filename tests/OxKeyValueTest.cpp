#include "OxKeyValue.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <new>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "AllocationFailure.h"
#include "OxLogMatchers.h"

namespace oxil::test {
namespace {

using testing::ElementsAre;

static_assert(std::is_nothrow_default_constructible_v<KeyValue>);
static_assert(std::is_nothrow_move_constructible_v<KeyValue>);
static_assert(std::is_nothrow_move_assignable_v<KeyValue>);
static_assert(std::is_nothrow_destructible_v<KeyValue>);
static_assert(std::is_nothrow_constructible_v<KeyValue, std::string&&, Variant&&>);
static_assert(std::is_copy_constructible_v<KeyValue> && std::is_copy_assignable_v<KeyValue>);

// What the getters hand out is a copy.
static_assert(std::is_same_v<decltype(std::declval<const KeyValue&>().getKey()), std::string>);
static_assert(std::is_same_v<decltype(std::declval<const KeyValue&>().getValue()), Variant>);

const LoggedBy logged("OxKeyValue.cpp");

void expectEntry(const KeyValue& entry, const std::string& key, const Variant& value)
{
    EXPECT_EQ(entry.getKey(), key);
    EXPECT_EQ(entry.getValue().getTypeName(), value.getTypeName());
    EXPECT_EQ(entry.getValue().toString(), value.toString());
    EXPECT_TRUE(entry.getValue() == value);
}

const std::string LONG_KEY(100, 'k');
const std::string LONG_TEXT(500, 'x');

TEST(KeyValueTest, TheDefaultHasAnEmptyKeyAndNoValue)
{
    expectEntry(KeyValue(), "", Variant());
    EXPECT_TRUE(KeyValue().getValue().empty());
}

TEST(KeyValueTest, AKeyAloneHasNoValue)
{
    const std::string key = "k";

    expectEntry(KeyValue(key), "k", Variant());
}

TEST(KeyValueTest, AValueAloneHasAnEmptyKey)
{
    const Variant value(LONG_TEXT);

    expectEntry(KeyValue(value), "", value);
    expectEntry(KeyValue(Variant(5)), "", Variant(5));
    expectEntry(KeyValue(Variant("text")), "", Variant("text"));
}

TEST(KeyValueTest, ConstructionTakesAnyKey)
{
    expectEntry(KeyValue(std::string()), "", Variant());
    EXPECT_TRUE(KeyValue(std::string()) == KeyValue());
    expectEntry(KeyValue("", Variant(1)), "", Variant(1));
    expectEntry(KeyValue(std::string("a\0b", 3), Variant(1)), std::string("a\0b", 3), Variant(1));
    expectEntry(KeyValue(std::string(10000, 'k'), Variant()), std::string(10000, 'k'), Variant());
}

TEST(KeyValueTest, KeyAndValueAreCopied)
{
    std::string key = LONG_KEY;
    Variant value(LONG_TEXT);
    const KeyValue entry(key, value);

    key = "changed";
    value = Variant(5);

    expectEntry(entry, LONG_KEY, Variant(LONG_TEXT));
}

TEST(KeyValueTest, KeyAndValueAreTakenOverWithoutACopy)
{
    std::string key = LONG_KEY;
    Variant value(LONG_TEXT);

    const long before = allocationCount();
    KeyValue entry(std::move(key), std::move(value));
    KeyValue moved(std::move(entry));
    KeyValue assigned;
    assigned = std::move(moved);
    const long after = allocationCount();

    EXPECT_EQ(after, before);
    expectEntry(assigned, LONG_KEY, Variant(LONG_TEXT));
}

TEST(KeyValueTest, ATextValueIsNoBoolean)
{
    expectEntry(KeyValue("k", "text"), "k", Variant("text"));
    expectEntry(KeyValue("k", true), "k", Variant(true));
    expectEntry(KeyValue("k", 1), "k", Variant(1));

    KeyValue entry;
    entry.set("k", "text");
    expectEntry(entry, "k", Variant("text"));
    entry.setValue("other");
    expectEntry(entry, "k", Variant("other"));
}

TEST(KeyValueTest, ACopyIsEqualAndIndependent)
{
    KeyValue entry(LONG_KEY, Variant(LONG_TEXT));
    const KeyValue copy(entry);
    EXPECT_TRUE(copy == entry);

    entry.set("other", Variant(1));

    expectEntry(copy, LONG_KEY, Variant(LONG_TEXT));
    expectEntry(entry, "other", Variant(1));
}

TEST(KeyValueTest, AssignmentReplacesKeyAndValue)
{
    const KeyValue source(LONG_KEY, Variant(LONG_TEXT));
    KeyValue entry("a", Variant(1));

    EXPECT_EQ(&(entry = source), &entry);
    expectEntry(entry, LONG_KEY, Variant(LONG_TEXT));
    expectEntry(source, LONG_KEY, Variant(LONG_TEXT));

    // An empty key is refused by the setters only.
    entry = KeyValue();
    expectEntry(entry, "", Variant());

    KeyValue moved("a", Variant(1));
    EXPECT_EQ(&(moved = KeyValue("b", Variant(2))), &moved);
    expectEntry(moved, "b", Variant(2));
}

TEST(KeyValueTest, SelfAssignmentLeavesTheEntryAsItWas)
{
    KeyValue entry(LONG_KEY, Variant(LONG_TEXT));
    const KeyValue& same = entry;

    EXPECT_EQ(&(entry = same), &entry);

    expectEntry(entry, LONG_KEY, Variant(LONG_TEXT));
}

TEST(KeyValueTest, EntriesAreEqualWhenKeysAndValuesAre)
{
    const KeyValue entry("k", Variant(1));
    const std::vector<KeyValue> others = {KeyValue("k", Variant(1L)),
                                          KeyValue("k", Variant(2)),
                                          KeyValue("k", Variant("1")),
                                          KeyValue("k", Variant()),
                                          KeyValue("K", Variant(1)),
                                          KeyValue("kk", Variant(1)),
                                          KeyValue(std::string("k\0", 2), Variant(1)),
                                          KeyValue("", Variant(1)),
                                          KeyValue()};

    EXPECT_TRUE(entry == KeyValue("k", Variant(1)));
    EXPECT_FALSE(entry != KeyValue("k", Variant(1)));
    EXPECT_TRUE(KeyValue() == KeyValue());
    for (const KeyValue& other : others) {
        SCOPED_TRACE(other.getKey() + " " + other.getValue().getTypeName());
        EXPECT_FALSE(entry == other);
        EXPECT_TRUE(entry != other);
        EXPECT_FALSE(other == entry);
    }
}

TEST(KeyValueTest, KeysAreComparedBeyondANulByte)
{
    const KeyValue entry(std::string("a\0b", 3), Variant(1));

    EXPECT_TRUE(entry == KeyValue(std::string("a\0b", 3), Variant(1)));
    EXPECT_TRUE(entry != KeyValue(std::string("a\0c", 3), Variant(1)));
}

TEST(KeyValueTest, AnEntryWhoseValueIsNoNumberIsUnequalToItself)
{
    const KeyValue entry("k", Variant(std::nan("")));
    const KeyValue& same = entry;

    EXPECT_FALSE(entry == same);
    EXPECT_TRUE(entry != same);
}

TEST(KeyValueTest, SetReplacesBoth)
{
    KeyValue entry("a", Variant(1));

    entry.set("b", Variant("text"));

    expectEntry(entry, "b", Variant("text"));
}

TEST(KeyValueTest, SetWithAnEmptyKeyChangesNothing)
{
    KeyValue entry("a", Variant(1));
    LogCapture log;

    entry.set("", Variant(5));

    expectEntry(entry, "a", Variant(1));
    EXPECT_THAT(log.lines(), ElementsAre(logged("set", "Invalid parameter")));
}

// Makes the change once for each allocation that it asks for, and lets that one fail.
template <typename Change>
void expectAllOrNothing(const Change& change, const KeyValue& changed)
{
    bool happened = true;
    int failures = 0;
    for (int nth = 1; happened; ++nth) {
        SCOPED_TRACE(nth);
        KeyValue entry("a", Variant(1));
        bool thrown = false;
        {
            const AllocationFailure failure(Allocation::ThrowingNew, nth);
            try {
                change(entry);
            } catch (const std::bad_alloc&) {
                thrown = true;
            }
            happened = failure.happened();
        }
        EXPECT_EQ(thrown, happened);
        failures += thrown;
        if (thrown) {
            expectEntry(entry, "a", Variant(1));
            change(entry);
        }
        expectEntry(entry, changed.getKey(), changed.getValue());
    }
    EXPECT_EQ(failures, 2) << "the key and the text";
}

TEST(KeyValueTest, WithoutMemoryNothingChanges)
{
    const std::string key = LONG_KEY;
    const Variant value(LONG_TEXT);
    const KeyValue source(key, value);

    expectAllOrNothing([&](KeyValue& entry) { entry.set(key, value); }, source);
    expectAllOrNothing([&](KeyValue& entry) { entry = source; }, source);
}

TEST(KeyValueTest, SetKeyKeepsTheValue)
{
    KeyValue entry("a", Variant(1));

    entry.setKey("b");

    expectEntry(entry, "b", Variant(1));
}

TEST(KeyValueTest, SetKeyRefusesAnEmptyKey)
{
    KeyValue entry("a", Variant(1));
    LogCapture log;

    entry.setKey("");

    expectEntry(entry, "a", Variant(1));
    EXPECT_THAT(log.lines(), ElementsAre(logged("setKey", "Invalid parameter")));
}

TEST(KeyValueTest, ANulByteIsAKeyLikeAnyOther)
{
    const std::string key(1, '\0');
    KeyValue entry;

    entry.setKey(key);
    expectEntry(entry, key, Variant());

    entry.set(key + key, Variant(1));
    expectEntry(entry, key + key, Variant(1));
}

TEST(KeyValueTest, SetValueTakesAnyValueAndKeepsTheKey)
{
    KeyValue entry("a", Variant(1));

    for (const Variant& value : {Variant(LONG_TEXT), Variant(2.5), Variant(), Variant(false)}) {
        entry.setValue(value);
        expectEntry(entry, "a", value);
    }
}

TEST(KeyValueTest, AValueCanBeSetWhileTheKeyIsEmpty)
{
    KeyValue entry;

    entry.setValue(Variant(1));

    expectEntry(entry, "", Variant(1));
}

TEST(KeyValueTest, WhatAGetterHandsOutIsIndependent)
{
    const KeyValue entry("key", Variant("text"));

    std::string key = entry.getKey();
    Variant value = entry.getValue();
    key += "more";
    value = Variant(1);

    expectEntry(entry, "key", Variant("text"));
}

}  // namespace
}  // namespace oxil::test
