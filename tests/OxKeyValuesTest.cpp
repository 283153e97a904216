#include "OxKeyValues.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstddef>
#include <functional>
#include <new>
#include <random>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "AllocationFailure.h"
#include "Equality.h"
#include "OxLogMatchers.h"
#include "OxStatus.h"
#include "Records.h"

namespace oxil::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

static_assert(std::is_nothrow_default_constructible_v<KeyValues>);
static_assert(std::is_nothrow_move_constructible_v<KeyValues>);
static_assert(std::is_nothrow_move_assignable_v<KeyValues>);
static_assert(std::is_nothrow_destructible_v<KeyValues>);
static_assert(std::is_copy_constructible_v<KeyValues> && std::is_copy_assignable_v<KeyValues>);

const LoggedBy logged("OxKeyValues.cpp");

std::string show(const KeyValue& entry)
{
    return entry.getKey() + " = " + entry.getValue().getTypeName() + " " +
           entry.getValue().toString();
}

void expectEntry(const KeyValue& actual, const KeyValue& expected)
{
    EXPECT_EQ(show(actual), show(expected));
    EXPECT_TRUE(actual == expected);
}

// Expects these entries in this order, to be found in every way there is, without a log line.
void expectRecord(const KeyValues& record, const std::vector<KeyValue>& expected)
{
    const int count = static_cast<int>(expected.size());
    ASSERT_EQ(record.getCount(), count);
    ASSERT_EQ(record.getKeyValues().size(), expected.size());

    std::vector<std::string> keys;
    std::vector<Variant> values;
    for (int index = 0; index < count; ++index) {
        const KeyValue& entry = expected[static_cast<std::size_t>(index)];
        const std::string key = entry.getKey();
        keys.push_back(key);
        values.push_back(entry.getValue());

        expectEntry(record.getKeyValues()[static_cast<std::size_t>(index)], entry);
        expectEntry(record.getKeyValue(index), entry);
        EXPECT_EQ(record.getKey(index), key);
        EXPECT_TRUE(record.getValue(index) == entry.getValue());
        if (!key.empty()) {
            EXPECT_EQ(record.getIndex(key), index) << key;
            expectEntry(record.getKeyValue(key), entry);
            EXPECT_TRUE(record.getValue(key) == entry.getValue()) << key;
            EXPECT_TRUE(record.isIncluded(entry)) << key;
            EXPECT_TRUE(record.isIncluded(key, entry.getValue())) << key;
        }
    }
    EXPECT_EQ(record.getKeys(), keys);
    EXPECT_TRUE(record.getValues() == values);
    EXPECT_EQ(record.getIndex("a key that nobody adds"), count);
}

std::vector<KeyValue> threeEntries()
{
    return {KeyValue("k1", Variant(1)), KeyValue("k2", Variant(2)), KeyValue("k3", Variant(3))};
}

// Short and long keys, and keys that differ in their last or first byte only.
std::string keyOf(int number)
{
    const std::string digits = std::to_string(number);
    switch (number % 3) {
        case 0:
            return "k" + digits;
        case 1:
            return "a long prefix that many of the keys have in common " + digits;
        default:
            return digits + std::string("\0 has a tail", 12);
    }
}

std::vector<KeyValue> numberedEntries(int count)
{
    std::vector<KeyValue> entries;
    for (int number = 0; number < count; ++number) {
        entries.emplace_back(keyOf(number), Variant(number));
    }
    return entries;
}

// A record of any size may be organised in another way than a smaller one, so the same is asked
// of small ones, of large ones, and of all sizes near which something might change.
const std::vector<int> SIZES = {0,  1,  2,  3,  4,  5,  7,  8,  9,  12,  15,  16,  17,  20,
                                24, 31, 32, 33, 40, 48, 63, 64, 65, 127, 128, 129, 255, 257};

TEST(KeyValuesTest, ANewRecordIsEmpty)
{
    const KeyValues record;

    EXPECT_EQ(record.getCount(), 0);
    EXPECT_EQ(record.getIndex("k1"), 0);
    EXPECT_THAT(record.getKeys(), IsEmpty());
    EXPECT_TRUE(record.getValues().empty());
    EXPECT_TRUE(record.getKeyValues().empty());
    expectEqual(record, KeyValues());
}

TEST(KeyValuesTest, EntriesKeepTheOrderInWhichTheyWereAdded)
{
    KeyValues record;

    EXPECT_EQ(record.add("k1", Variant(1)), STATUS_SUCCESS);
    EXPECT_EQ(record.add("k2", Variant(2)), STATUS_SUCCESS);
    EXPECT_EQ(record.add("k3", Variant(3)), STATUS_SUCCESS);

    EXPECT_THAT(record.getKeys(), ElementsAre("k1", "k2", "k3"));
    EXPECT_EQ(record.getIndex("k3"), 2);
    EXPECT_EQ(record.getIndex("k9"), 3);
    expectRecord(record, threeEntries());
}

TEST(KeyValuesTest, AnEntryCanBeAddedInThreeWays)
{
    const KeyValue copied("copied", Variant("x"));
    KeyValue moved("moved", Variant(2.5));
    KeyValues record;

    EXPECT_EQ(record.add(copied), STATUS_SUCCESS);
    EXPECT_EQ(record.add(std::move(moved)), STATUS_SUCCESS);
    EXPECT_EQ(record.add("named", "text"), STATUS_SUCCESS);

    expectEntry(copied, KeyValue("copied", Variant("x")));
    expectRecord(record, {KeyValue("copied", Variant("x")), KeyValue("moved", Variant(2.5)),
                          KeyValue("named", Variant("text"))});
}

TEST(KeyValuesTest, AnEntryHoldsAnyValue)
{
    const std::vector<KeyValue> entries = {KeyValue("none", Variant()),
                                           KeyValue("int", Variant(-1)),
                                           KeyValue("uint", Variant(1u)),
                                           KeyValue("long", Variant(-1L)),
                                           KeyValue("ulong", Variant(1UL)),
                                           KeyValue("longlong", Variant(-1LL)),
                                           KeyValue("ulonglong", Variant(1ULL)),
                                           KeyValue("float", Variant(1.5f)),
                                           KeyValue("double", Variant(1.5)),
                                           KeyValue("bool", Variant(true)),
                                           KeyValue("text", Variant(std::string(1000, 'x')))};

    expectRecord(recordOf(entries), entries);
}

TEST(KeyValuesTest, AKeyIsAddedOnce)
{
    for (const int size : {3, 300}) {
        std::vector<KeyValue> entries = numberedEntries(size);
        entries.emplace_back("k2", Variant(2));
        KeyValues record = recordOf(entries);
        KeyValue movedFrom("k2", Variant("kept"));
        LogCapture log;

        EXPECT_EQ(record.add("k2", Variant(9)), STATUS_ALREADY_EXISTS);
        EXPECT_EQ(record.add(KeyValue("k2", Variant(2))), STATUS_ALREADY_EXISTS);
        EXPECT_EQ(record.add(std::move(movedFrom)), STATUS_ALREADY_EXISTS);

        const auto line = logged("add", "Key(k2) already exist.");
        EXPECT_THAT(log.lines(), ElementsAre(line, line, line));
        expectEntry(movedFrom, KeyValue("k2", Variant("kept")));
        log.clear();
        expectRecord(record, entries);
        EXPECT_THAT(log.lines(), IsEmpty());
    }
    EXPECT_EQ(STATUS_ALREADY_EXISTS, -524269);
}

TEST(KeyValuesTest, AKeyIsLoggedToTheLetter)
{
    KeyValues record = recordOf({KeyValue("100%n %s", Variant(1))});
    LogCapture log;

    EXPECT_EQ(record.add("100%n %s", Variant(2)), STATUS_ALREADY_EXISTS);
    EXPECT_TRUE(record.getValue("%d%n").empty());
    EXPECT_EQ(record.update(KeyValue("%n", Variant(2))), STATUS_INVALID_PARAMETER);

    EXPECT_THAT(log.lines(), ElementsAre(logged("add", "Key(100%n %s) already exist."),
                                         logged("getKeyValue", "Invalid key (%d%n)"),
                                         logged("remove", "Invalid parameter : index(1)."),
                                         logged("update", "Failed to remove (%n).")));
}

TEST(KeyValuesTest, ANamedValueNeedsAKey)
{
    KeyValues record;
    LogCapture log;

    EXPECT_EQ(record.add("", Variant(1)), STATUS_INVALID_PARAMETER);

    EXPECT_THAT(log.lines(), ElementsAre(logged("add", "Invalid parameter.")));
    expectRecord(record, {});
    EXPECT_EQ(STATUS_INVALID_PARAMETER, -22);
}

TEST(KeyValuesTest, KeysAreComparedByBytes)
{
    const std::vector<KeyValue> entries = {
        KeyValue("k", Variant(1)),
        KeyValue("K", Variant(2)),
        KeyValue(" k", Variant(3)),
        KeyValue("k ", Variant(4)),
        KeyValue("kk", Variant(5)),
        KeyValue(std::string("k\0", 2), Variant(6)),
        KeyValue(std::string("k\0a", 3), Variant(7)),
        KeyValue(std::string("k\0b", 3), Variant(8)),
        KeyValue(std::string(1, '\0'), Variant(9)),
        KeyValue("\xC3\xA4", Variant(10)),
        KeyValue("\xC3\x84", Variant(11)),
    };

    expectRecord(recordOf(entries), entries);
}

TEST(KeyValuesTest, AnEmptyKeyEntersAsAnEntryOnce)
{
    for (const int size : {0, 2, 300}) {
        std::vector<KeyValue> entries = numberedEntries(size);
        entries.emplace_back(KeyValue(Variant("nameless")));
        entries.emplace_back("later", Variant(1));
        KeyValues record = recordOf(entries);
        expectRecord(record, entries);
        LogCapture log;

        EXPECT_EQ(record.add(KeyValue()), STATUS_ALREADY_EXISTS);
        const KeyValue nameless(Variant("nameless"));
        EXPECT_EQ(record.add(nameless), STATUS_ALREADY_EXISTS);
        const auto line = logged("add", "Key() already exist.");
        EXPECT_THAT(log.lines(), ElementsAre(line, line));
        log.clear();

        // Its position is the only way to it.
        expectRecord(record, entries);
        EXPECT_THAT(log.lines(), IsEmpty());
        EXPECT_EQ(record.getIndex(""), -1);
        EXPECT_TRUE(record.getValue("").empty());
        EXPECT_FALSE(record.isIncluded(nameless));
        EXPECT_EQ(record.remove(nameless), STATUS_INVALID_PARAMETER);
        log.clear();
        EXPECT_EQ(record.remove(size), STATUS_SUCCESS);
        EXPECT_THAT(log.lines(), IsEmpty());

        entries.erase(entries.begin() + size);
        entries.emplace_back();
        EXPECT_EQ(record.add(KeyValue()), STATUS_SUCCESS);
        expectRecord(record, entries);
    }
}

TEST(KeyValuesTest, AnEmptyKeyIsNeverLookedUp)
{
    for (const KeyValues& record : {KeyValues(), recordOf({KeyValue(Variant(5))})}) {
        LogCapture log;

        EXPECT_EQ(record.getIndex(""), -1);
        expectEntry(record.getKeyValue(""), KeyValue());
        EXPECT_TRUE(record.getValue("").empty());

        EXPECT_THAT(log.lines(), ElementsAre(logged("getIndex", "Invalid parameter"),
                                             logged("getKeyValue", "Invalid parameter"),
                                             logged("getValue", "Invalid parameter")));
    }
}

TEST(KeyValuesTest, AnAbsentKeyIsLoggedByTheLookUpOfEntries)
{
    for (const int size : {0, 3, 300}) {
        const KeyValues record = recordOf(numberedEntries(size));
        LogCapture log;

        EXPECT_EQ(record.getIndex("absent"), size);
        EXPECT_THAT(log.lines(), IsEmpty());

        expectEntry(record.getKeyValue("absent"), KeyValue());
        EXPECT_TRUE(record.getValue("absent").empty());

        const auto line = logged("getKeyValue", "Invalid key (absent)");
        EXPECT_THAT(log.lines(), ElementsAre(line, line));
    }
}

TEST(KeyValuesTest, APositionBeyondTheEndGivesNothing)
{
    for (const int size : {0, 3, 300}) {
        const KeyValues record = recordOf(numberedEntries(size));
        for (const int index : {size, size + 1, INT_MAX}) {
            LogCapture log;

            expectEntry(record.getKeyValue(index), KeyValue());
            EXPECT_EQ(record.getKey(index), "");
            EXPECT_TRUE(record.getValue(index).empty());

            const std::string message = "Invalid parameter : index(" + std::to_string(index) + ").";
            EXPECT_THAT(log.lines(),
                        ElementsAre(logged("getKeyValue", message), logged("getKey", message),
                                    logged("getValue", message)));
        }
    }
}

TEST(KeyValuesTest, ANegativePositionThrows)
{
    for (const int size : {0, 3, 300}) {
        const std::vector<KeyValue> entries = numberedEntries(size);
        KeyValues record = recordOf(entries);
        for (const int index : {-1, -size - 1, INT_MIN}) {
            EXPECT_THROW(record.getKeyValue(index), std::out_of_range);
            EXPECT_THROW(record.getKey(index), std::out_of_range);
            EXPECT_THROW(record.getValue(index), std::out_of_range);
            EXPECT_THROW(record.update(index, Variant(1)), std::out_of_range);
        }
        expectRecord(record, entries);
    }
}

TEST(KeyValuesTest, AnEntryIsIncludedWithTheSameValueOfTheSameKind)
{
    KeyValues record;
    ASSERT_EQ(record.add("k1", Variant(1)), STATUS_SUCCESS);
    ASSERT_EQ(record.add("k2", Variant("text")), STATUS_SUCCESS);

    EXPECT_TRUE(record.isIncluded("k1", Variant(1)));
    EXPECT_TRUE(record.isIncluded(KeyValue("k1", Variant(1))));
    EXPECT_TRUE(record.isIncluded("k2", "text"));
    EXPECT_FALSE(record.isIncluded("k1", Variant(1L)));
    EXPECT_FALSE(record.isIncluded("k1", Variant(2)));
    EXPECT_FALSE(record.isIncluded("k1", Variant()));
    EXPECT_FALSE(record.isIncluded(KeyValue("k1", Variant("1"))));
    EXPECT_FALSE(record.isIncluded("k2", Variant(1)));
}

TEST(KeyValuesTest, AskingWhetherAnAbsentKeyIsIncludedIsLogged)
{
    const KeyValues record = recordOf(threeEntries());
    LogCapture log;

    EXPECT_FALSE(record.isIncluded("K1", Variant(1)));
    EXPECT_FALSE(record.isIncluded(KeyValue(std::string("k9"))));

    EXPECT_THAT(log.lines(), ElementsAre(logged("getKeyValue", "Invalid key (K1)"),
                                         logged("getKeyValue", "Invalid key (k9)")));
}

TEST(KeyValuesTest, AnEmptyEntryIsIncludedInEveryRecord)
{
    for (const KeyValues& record : {KeyValues(), recordOf(threeEntries()),
                                    recordOf({KeyValue(Variant(5))}), recordOf({KeyValue()})}) {
        LogCapture log;

        EXPECT_TRUE(record.isIncluded(KeyValue()));
        EXPECT_TRUE(record.isIncluded("", Variant()));
        EXPECT_FALSE(record.isIncluded("", Variant(5)));

        const auto line = logged("getKeyValue", "Invalid parameter");
        EXPECT_THAT(log.lines(), ElementsAre(line, line, line));
    }
}

TEST(KeyValuesTest, AnUpdateKeepsTheEntryInItsPlace)
{
    KeyValues record = recordOf(threeEntries());

    EXPECT_EQ(record.update("k2", Variant(std::string("x"))), STATUS_SUCCESS);
    expectRecord(record, {KeyValue("k1", Variant(1)), KeyValue("k2", Variant("x")),
                          KeyValue("k3", Variant(3))});

    EXPECT_EQ(record.update(KeyValue("k1", Variant(1L))), STATUS_SUCCESS);
    EXPECT_EQ(record.update(2, Variant(2.5)), STATUS_SUCCESS);
    expectRecord(record, {KeyValue("k1", Variant(1L)), KeyValue("k2", Variant("x")),
                          KeyValue("k3", Variant(2.5))});
}

TEST(KeyValuesTest, AnyValueReplacesAnyOther)
{
    const std::vector<Variant> values = {Variant(),    Variant(1),    Variant(1u),   Variant(1L),
                                         Variant(1UL), Variant(1LL),  Variant(1ULL), Variant(1.0f),
                                         Variant(1.0), Variant(true), Variant("1")};
    KeyValues record = recordOf(threeEntries());

    for (const Variant& before : values) {
        for (const Variant& after : values) {
            EXPECT_EQ(record.update("k2", before), STATUS_SUCCESS);
            EXPECT_EQ(record.update(1, after), STATUS_SUCCESS);
            expectEntry(record.getKeyValue("k2"), KeyValue("k2", after));
        }
    }
    EXPECT_THAT(record.getKeys(), ElementsAre("k1", "k2", "k3"));
}

TEST(KeyValuesTest, UpdatingAnEntryNeverAddsOne)
{
    for (const int size : {0, 3, 300}) {
        const std::vector<KeyValue> entries = numberedEntries(size);
        KeyValues record = recordOf(entries);
        const std::string count = std::to_string(size);
        LogCapture log;

        EXPECT_EQ(record.update(KeyValue("absent", Variant(1))), STATUS_INVALID_PARAMETER);

        EXPECT_THAT(log.lines(),
                    ElementsAre(logged("remove", "Invalid parameter : index(" + count + ")."),
                                logged("update", "Failed to remove (absent).")));
        log.clear();
        expectRecord(record, entries);
        EXPECT_THAT(log.lines(), IsEmpty());
    }
}

TEST(KeyValuesTest, AnEntryWithAnEmptyKeyCannotBeUpdated)
{
    std::vector<KeyValue> entries = threeEntries();
    entries.emplace_back();
    KeyValues record = recordOf(entries);
    const auto refused = ElementsAre(logged("getIndex", "Invalid parameter"),
                                     logged("remove", "Invalid parameter : index(-1)."),
                                     logged("update", "Failed to remove ()."));
    LogCapture log;

    EXPECT_EQ(record.update(KeyValue(Variant(1))), STATUS_INVALID_PARAMETER);
    EXPECT_THAT(log.lines(), refused);
    log.clear();
    EXPECT_EQ(record.update(3, Variant(1)), STATUS_INVALID_PARAMETER);
    EXPECT_THAT(log.lines(), refused);
    log.clear();

    expectRecord(record, entries);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(KeyValuesTest, UpdatingTheValueOfAnAbsentKeyFailsWithTheWholeStory)
{
    for (const int size : {0, 3, 300}) {
        const std::vector<KeyValue> entries = numberedEntries(size);
        KeyValues record = recordOf(entries);
        LogCapture log;

        EXPECT_EQ(record.update("absent", Variant(1)), STATUS_INVALID_PARAMETER);

        EXPECT_THAT(log.lines(), ElementsAre(logged("getKeyValue", "Invalid key (absent)"),
                                             logged("getIndex", "Invalid parameter"),
                                             logged("remove", "Invalid parameter : index(-1)."),
                                             logged("update", "Failed to remove ().")));
        log.clear();
        expectRecord(record, entries);
        EXPECT_THAT(log.lines(), IsEmpty());
    }
}

TEST(KeyValuesTest, UpdatingTheValueOfAnEmptyKeyFailsWithTheWholeStory)
{
    std::vector<KeyValue> entries = threeEntries();
    entries.emplace_back(KeyValue(Variant(5)));
    KeyValues record = recordOf(entries);
    LogCapture log;

    EXPECT_EQ(record.update("", Variant(1)), STATUS_INVALID_PARAMETER);

    EXPECT_THAT(log.lines(), ElementsAre(logged("getKeyValue", "Invalid parameter"),
                                         logged("getIndex", "Invalid parameter"),
                                         logged("remove", "Invalid parameter : index(-1)."),
                                         logged("update", "Failed to remove ().")));
    expectRecord(record, entries);
}

TEST(KeyValuesTest, UpdatingAPositionBeyondTheEndFailsWithTheWholeStory)
{
    for (const int size : {0, 3, 300}) {
        const std::vector<KeyValue> entries = numberedEntries(size);
        KeyValues record = recordOf(entries);
        for (const int index : {size, size + 1, INT_MAX}) {
            LogCapture log;

            EXPECT_EQ(record.update(index, Variant(1)), STATUS_INVALID_PARAMETER);

            EXPECT_THAT(log.lines(),
                        ElementsAre(logged("getKeyValue", "Invalid parameter : index(" +
                                                              std::to_string(index) + ")."),
                                    logged("getIndex", "Invalid parameter"),
                                    logged("remove", "Invalid parameter : index(-1)."),
                                    logged("update", "Failed to remove ().")));
        }
        expectRecord(record, entries);
    }
}

TEST(KeyValuesTest, ARemovalMovesLaterEntriesForward)
{
    KeyValues record = recordOf(threeEntries());

    EXPECT_EQ(record.remove("k2"), STATUS_SUCCESS);
    expectRecord(record, {KeyValue("k1", Variant(1)), KeyValue("k3", Variant(3))});
    EXPECT_EQ(record.getIndex("k2"), 2);

    EXPECT_EQ(record.remove(0), STATUS_SUCCESS);
    expectRecord(record, {KeyValue("k3", Variant(3))});

    EXPECT_EQ(record.remove(KeyValue("k3", Variant(42))), STATUS_SUCCESS);
    expectRecord(record, {});
}

TEST(KeyValuesTest, RemovingAnAbsentKeyIsNoFailure)
{
    for (const int size : {0, 3, 300}) {
        const std::vector<KeyValue> entries = numberedEntries(size);
        KeyValues record = recordOf(entries);

        EXPECT_EQ(record.remove("absent"), STATUS_SUCCESS);
        EXPECT_EQ(record.remove(KeyValue("absent", Variant(1))), STATUS_SUCCESS);

        expectRecord(record, entries);
    }
}

TEST(KeyValuesTest, ARemovalRefusesAnEmptyKey)
{
    std::vector<KeyValue> entries = threeEntries();
    entries.emplace_back();
    KeyValues record = recordOf(entries);
    LogCapture log;

    EXPECT_EQ(record.remove(""), STATUS_INVALID_PARAMETER);
    EXPECT_EQ(record.remove(KeyValue()), STATUS_INVALID_PARAMETER);

    const auto line = logged("remove", "Invalid parameter.");
    EXPECT_THAT(log.lines(), ElementsAre(line, line));
    expectRecord(record, entries);
}

TEST(KeyValuesTest, ARemovalRefusesAPositionOutsideTheRecord)
{
    for (const int size : {0, 3, 300}) {
        const std::vector<KeyValue> entries = numberedEntries(size);
        KeyValues record = recordOf(entries);
        for (const int index : {-1, INT_MIN, size, size + 2, INT_MAX}) {
            LogCapture log;

            EXPECT_EQ(record.remove(index), STATUS_INVALID_PARAMETER);

            EXPECT_THAT(log.lines(),
                        ElementsAre(logged("remove", "Invalid parameter : index(" +
                                                         std::to_string(index) + ").")));
        }
        expectRecord(record, entries);
    }
}

TEST(KeyValuesTest, ARemovedKeyCanBeAddedAgainAtTheEnd)
{
    for (const int size : {3, 300}) {
        std::vector<KeyValue> entries = numberedEntries(size);
        KeyValues record = recordOf(entries);

        EXPECT_EQ(record.remove(keyOf(1)), STATUS_SUCCESS);
        EXPECT_EQ(record.add(keyOf(1), Variant("again")), STATUS_SUCCESS);

        entries.erase(entries.begin() + 1);
        entries.emplace_back(keyOf(1), Variant("again"));
        expectRecord(record, entries);
    }
}

TEST(KeyValuesTest, EqualRecordsHaveTheSameOrder)
{
    const KeyValue first("k1", Variant(1));
    const KeyValue second("k2", Variant(2));

    expectEqual(recordOf({first, second}), recordOf({first, second}));
    expectUnequal(recordOf({first, second}), recordOf({second, first}));
}

TEST(KeyValuesTest, EqualRecordsHaveEqualEntries)
{
    const KeyValues record = recordOf(threeEntries());
    std::vector<KeyValue> others = threeEntries();

    expectUnequal(record, KeyValues());
    expectUnequal(record, recordOf({others[0], others[1]}));
    others.emplace_back();
    expectUnequal(record, recordOf(others));
    others.pop_back();
    for (const KeyValue& other :
         {KeyValue("k3", Variant(3L)), KeyValue("k3", Variant(4)), KeyValue("K3", Variant(3)),
          KeyValue("k3", Variant()), KeyValue(Variant(3))}) {
        others[2] = other;
        expectUnequal(record, recordOf(others));
    }
}

TEST(KeyValuesTest, ARecordWithAValueThatIsNoNumberIsUnequalToItself)
{
    const Variant nan(std::nan(""));
    KeyValues record = recordOf({KeyValue("k1", Variant(1)), KeyValue("nan", nan)});
    const KeyValues& same = record;

    expectUnequal(record, same);
    EXPECT_FALSE(record.isIncluded("nan", nan));
    EXPECT_EQ(record.update("nan", Variant(1)), STATUS_SUCCESS);
    expectEqual(record, same);
}

TEST(KeyValuesTest, HowARecordCameAboutDoesNotMatterForEquality)
{
    const KeyValues straight = recordOf(threeEntries());
    KeyValues roundabout = recordOf(numberedEntries(500));

    for (int number = 0; number < 500; ++number) {
        EXPECT_EQ(roundabout.remove(keyOf(number)), STATUS_SUCCESS);
    }
    expectEqual(roundabout, KeyValues());
    EXPECT_EQ(roundabout.add("k1", Variant("old")), STATUS_SUCCESS);
    EXPECT_EQ(roundabout.add("k2", Variant(2)), STATUS_SUCCESS);
    EXPECT_EQ(roundabout.add("k3", Variant(3)), STATUS_SUCCESS);
    EXPECT_EQ(roundabout.update("k1", Variant(1)), STATUS_SUCCESS);

    expectEqual(roundabout, straight);
    expectRecord(roundabout, threeEntries());
}

TEST(KeyValuesTest, ACopyIsEqualAndIndependent)
{
    for (const int size : SIZES) {
        const std::vector<KeyValue> entries = numberedEntries(size);
        KeyValues original = recordOf(entries);
        KeyValues copy(original);
        expectEqual(copy, original);
        expectRecord(copy, entries);

        EXPECT_EQ(copy.add("added", Variant(1)), STATUS_SUCCESS);
        EXPECT_EQ(copy.remove(0), STATUS_SUCCESS);
        expectRecord(original, entries);

        while (original.getCount() > 0) {
            ASSERT_EQ(original.remove(0), STATUS_SUCCESS);
        }
        std::vector<KeyValue> changed = entries;
        changed.emplace_back("added", Variant(1));
        changed.erase(changed.begin());
        expectRecord(copy, changed);
    }
}

TEST(KeyValuesTest, AssignmentReplacesEverything)
{
    for (const int before : {0, 1, 20, 300}) {
        for (const int after : {0, 1, 20, 300}) {
            SCOPED_TRACE(std::to_string(before) + " by " + std::to_string(after));
            const std::vector<KeyValue> old = {KeyValue("old", Variant(1))};
            std::vector<KeyValue> entries = numberedEntries(after);
            const KeyValues source = recordOf(entries);

            KeyValues copied = recordOf(numberedEntries(before));
            ASSERT_EQ(copied.add(old[0]), STATUS_SUCCESS);
            EXPECT_EQ(&(copied = source), &copied);
            expectRecord(copied, entries);
            expectRecord(source, entries);

            KeyValues moved = recordOf(numberedEntries(before));
            ASSERT_EQ(moved.add(old[0]), STATUS_SUCCESS);
            KeyValues from = source;
            EXPECT_EQ(&(moved = std::move(from)), &moved);
            expectRecord(moved, entries);
            expectRecord(from, {});

            // Nothing of what was there is left behind, and both go on working.
            entries.push_back(old[0]);
            EXPECT_EQ(copied.add(old[0]), STATUS_SUCCESS);
            expectRecord(copied, entries);
            EXPECT_EQ(moved.add(old[0]), STATUS_SUCCESS);
            expectRecord(moved, entries);
            EXPECT_EQ(from.add(old[0]), STATUS_SUCCESS);
            expectRecord(from, old);
        }
    }
}

TEST(KeyValuesTest, MovingLeavesAnEmptyRecord)
{
    for (const int size : SIZES) {
        const std::vector<KeyValue> entries = numberedEntries(size);
        KeyValues source = recordOf(entries);

        const KeyValues moved(std::move(source));

        expectRecord(moved, entries);
        expectRecord(source, {});
        for (const KeyValue& entry : entries) {
            EXPECT_EQ(source.add(entry), STATUS_SUCCESS);
        }
        expectRecord(source, entries);
    }
}

TEST(KeyValuesTest, SelfAssignmentLeavesTheRecordAsItWas)
{
    for (const int size : {0, 3, 300}) {
        const std::vector<KeyValue> entries = numberedEntries(size);
        KeyValues record = recordOf(entries);
        const KeyValues& same = record;

        EXPECT_EQ(&(record = same), &record);

        expectRecord(record, entries);
    }
}

TEST(KeyValuesTest, WhatAGetterHandsOutIsIndependent)
{
    KeyValues record = recordOf(threeEntries());

    KeyValue entry = record.getKeyValue("k1");
    entry.set("changed", Variant("changed"));
    std::vector<std::string> keys = record.getKeys();
    keys.clear();
    std::vector<Variant> values = record.getValues();
    values[0] = Variant("changed");
    expectRecord(record, threeEntries());

    const KeyValue kept = record.getKeyValue(1);
    EXPECT_EQ(record.update("k2", Variant("new")), STATUS_SUCCESS);
    EXPECT_EQ(record.remove(0), STATUS_SUCCESS);
    expectEntry(kept, KeyValue("k2", Variant(2)));
}

TEST(KeyValuesTest, WhatIsAddedIsACopy)
{
    KeyValue entry("key", Variant("text"));
    std::string key = "named";
    Variant value("text");
    KeyValues record;
    ASSERT_EQ(record.add(entry), STATUS_SUCCESS);
    ASSERT_EQ(record.add(key, value), STATUS_SUCCESS);

    entry.set("other", Variant(1));
    key = "other";
    value = Variant(1);

    expectRecord(record, {KeyValue("key", Variant("text")), KeyValue("named", Variant("text"))});
}

TEST(KeyValuesTest, TheEntriesAreHandedOutByReference)
{
    KeyValues record = recordOf(threeEntries());
    const std::vector<KeyValue>& entries = record.getKeyValues();

    EXPECT_EQ(record.add("k4", Variant(4)), STATUS_SUCCESS);
    EXPECT_EQ(record.update("k1", Variant("new")), STATUS_SUCCESS);
    EXPECT_EQ(record.remove("k2"), STATUS_SUCCESS);

    EXPECT_EQ(&entries, &record.getKeyValues());
    ASSERT_EQ(entries.size(), 3u);
    expectEntry(entries[0], KeyValue("k1", Variant("new")));
    expectEntry(entries[2], KeyValue("k4", Variant(4)));

    // The list of entries is the first field.
    EXPECT_EQ(static_cast<const void*>(&entries), static_cast<const void*>(&record));
}

TEST(KeyValuesTest, AnOperationTakesAReferenceIntoItsOwnRecord)
{
    for (const int size : {1, 2, 16, 300}) {
        for (const int position : {0, size / 2, size - 1}) {
            SCOPED_TRACE(std::to_string(position) + " of " + std::to_string(size));
            const std::vector<KeyValue> entries = numberedEntries(size);
            const auto at = static_cast<std::size_t>(position);
            const std::string key = keyOf(position);
            KeyValues record = recordOf(entries);

            EXPECT_TRUE(record.isIncluded(record.getKeyValues()[at]));
            EXPECT_EQ(record.update(record.getKeyValues()[at]), STATUS_SUCCESS);
            EXPECT_EQ(record.update(record.getKeyValues()[at].getKey(),
                                    record.getKeyValues()[at].getValue()),
                      STATUS_SUCCESS);
            EXPECT_EQ(record.update(position, record.getKeyValues()[at].getValue()),
                      STATUS_SUCCESS);
            expectRecord(record, entries);

            LogCapture log;
            EXPECT_EQ(record.add(record.getKeyValues()[at]), STATUS_ALREADY_EXISTS);
            EXPECT_EQ(log.lines().size(), 1u);
            expectRecord(record, entries);

            std::vector<KeyValue> rest = entries;
            rest.erase(rest.begin() + position);
            EXPECT_EQ(record.remove(record.getKeyValues()[at]), STATUS_SUCCESS);
            expectRecord(record, rest);
            EXPECT_EQ(record.add(entries[at]), STATUS_SUCCESS);
            EXPECT_EQ(record.remove(record.getKeyValues().back().getKey()), STATUS_SUCCESS);
            expectRecord(record, rest);
        }
    }
}

TEST(KeyValuesTest, ARecordWorksAtEverySizeItGrowsAndShrinksThrough)
{
    constexpr int LARGEST = 150;
    std::vector<KeyValue> entries;
    KeyValues record;

    for (int size = 1; size <= LARGEST; ++size) {
        entries.emplace_back(keyOf(size), Variant(size));
        ASSERT_EQ(record.add(entries.back()), STATUS_SUCCESS);
        expectRecord(record, entries);
        LogCapture log;
        ASSERT_EQ(record.add(keyOf(size / 2 + 1), Variant()), STATUS_ALREADY_EXISTS);
    }
    for (int step = 0; !entries.empty(); ++step) {
        const std::size_t positions[] = {0, entries.size() - 1, entries.size() / 2};
        const std::size_t position = positions[step % 3];
        ASSERT_EQ(record.remove(entries[position].getKey()), STATUS_SUCCESS);
        entries.erase(entries.begin() + static_cast<std::ptrdiff_t>(position));
        expectRecord(record, entries);
    }
}

TEST(KeyValuesTest, ThousandsOfEntriesAreFound)
{
    constexpr int COUNT = 5000;
    std::vector<KeyValue> entries = numberedEntries(COUNT);
    KeyValues record = recordOf(entries);
    expectRecord(record, entries);

    // Out of the front, the middle and the end, by key and by position.
    for (int round = 0; round < 300; ++round) {
        const std::size_t position = static_cast<std::size_t>(round) * 7 % entries.size();
        ASSERT_EQ(record.remove(entries[position].getKey()), STATUS_SUCCESS);
        entries.erase(entries.begin() + static_cast<std::ptrdiff_t>(position));
        ASSERT_EQ(record.remove(0), STATUS_SUCCESS);
        entries.erase(entries.begin());
        ASSERT_EQ(record.remove(record.getCount() - 1), STATUS_SUCCESS);
        entries.pop_back();
    }
    expectRecord(record, entries);
    expectEqual(record, recordOf(entries));
}

// Says how many of these lookups look at an entry besides the one that is wanted. Behind the back of
// the record all its entries get the key that is looked for: whoever asks one entry after the other
// takes another one for it.
int countOthersAsked(KeyValues& record)
{
    auto& entries = const_cast<std::vector<KeyValue>&>(record.getKeyValues());
    const std::vector<KeyValue> before = entries;
    int others = 0;
    for (std::size_t wanted = 0; wanted < before.size(); wanted += 10) {
        const std::string key = before[wanted].getKey();
        const Variant value = before[wanted].getValue();
        for (std::size_t i = 0; i < before.size(); ++i) {
            entries[i] = KeyValue(key, i == wanted ? value : Variant("another"));
        }
        others += record.getKeyValue(key).getValue() != value;
        others += record.getValue(key) != value;
        others += record.getIndex(key) != static_cast<int>(wanted);
        others += !record.isIncluded(KeyValue(key, value));
        entries = before;
    }
    return others;
}

TEST(KeyValuesTest, AKeyIsFoundInALargeRecordWithoutAskingEntryAfterEntry)
{
    KeyValues large = recordOf(numberedEntries(1000));
    KeyValues copy(large);
    KeyValues assigned;
    assigned = large;

    // Of 400 lookups; one at random is to be expected in ten thousand runs of this test.
    EXPECT_LE(countOthersAsked(large), 4);
    EXPECT_LE(countOthersAsked(copy), 4);
    EXPECT_LE(countOthersAsked(assigned), 4);
    KeyValues moved(std::move(large));
    EXPECT_LE(countOthersAsked(moved), 4);
}

TEST(KeyValuesTest, AddingAndRemovingInTurnTakesNoMoreAndMoreMemory)
{
    for (const int size : {3, 300}) {
        KeyValues record = recordOf(numberedEntries(size));
        const auto allocationsOf = [&](int rounds) {
            const long before = allocationCount();
            for (int round = 0; round < rounds; ++round) {
                EXPECT_EQ(record.add(KeyValue("key", Variant(round))), STATUS_SUCCESS);
                EXPECT_EQ(record.remove("key"), STATUS_SUCCESS);
            }
            return allocationCount() - before;
        };

        allocationsOf(1000);
        const long settled = allocationsOf(1000);
        EXPECT_EQ(allocationsOf(16000), 16 * settled);
    }
}

// A record beside a plain list of entries that says what the record should hold.
class RandomWalk {
public:
    void run(int steps)
    {
        for (int step = 0; step < steps && !testing::Test::HasFailure(); ++step) {
            // The record grows and shrinks in turn, through the sizes where something may change.
            __growing = step / 1500 % 2 == 0;
            SCOPED_TRACE("step " + std::to_string(step));
            __change();
            __probe();
            if (step % 300 == 0) {
                __copyAround();
                expectRecord(__record, __entries);
                expectEqual(__record, recordOf(__entries));
            }
            __largest = std::max(__largest, __entries.size());
            __smallest = step < 1500 ? __largest : std::min(__smallest, __entries.size());
        }
        expectRecord(__record, __entries);
    }

    std::size_t largest() const { return __largest; }
    std::size_t smallest() const { return __smallest; }

private:
    int __below(int limit) { return static_cast<int>(__random() % static_cast<unsigned>(limit)); }

    std::size_t __find(const std::string& key) const
    {
        const auto hasKey = [&key](const KeyValue& entry) { return entry.getKey() == key; };
        return static_cast<std::size_t>(std::find_if(__entries.begin(), __entries.end(), hasKey) -
                                        __entries.begin());
    }

    Variant __anyValue()
    {
        switch (__below(4)) {
            case 0:
                return Variant(__below(1000));
            case 1:
                return Variant(std::string(static_cast<std::size_t>(__below(40)), 'x'));
            case 2:
                return Variant(__below(1000) / 8.0);
            default:
                return Variant();
        }
    }

    // A failure says why; a success says nothing.
    template <typename Call>
    void __expect(int status, const Call& call)
    {
        LogCapture log;
        EXPECT_EQ(call(), status);
        EXPECT_EQ(log.lines().empty(), status == STATUS_SUCCESS);
    }

    void __change()
    {
        const int choice = __below(10);
        if (choice < 2) {
            __update();
        } else if ((choice < 8) == __growing) {
            __add();
        } else {
            __remove();
        }
    }

    void __add()
    {
        const KeyValue entry(keyOf(__below(1200)), __anyValue());
        const bool isNew = __find(entry.getKey()) == __entries.size();
        __expect(isNew ? STATUS_SUCCESS : STATUS_ALREADY_EXISTS, [&] {
            switch (__below(3)) {
                case 0:
                    return __record.add(entry);
                case 1:
                    return __record.add(KeyValue(entry));
                default:
                    return __record.add(entry.getKey(), entry.getValue());
            }
        });
        if (isNew) {
            __entries.push_back(entry);
        }
    }

    // Mostly of an entry that is there, now and then of one that may not be.
    std::size_t __anyPosition()
    {
        if (__entries.empty() || __below(8) == 0) {
            return __find(keyOf(__below(1200)));
        }
        return static_cast<std::size_t>(__below(static_cast<int>(__entries.size())));
    }

    std::string __keyAt(std::size_t position) const
    {
        return position < __entries.size() ? __entries[position].getKey() : "absent";
    }

    void __update()
    {
        const std::size_t position = __anyPosition();
        const bool exists = position < __entries.size();
        const KeyValue entry(__keyAt(position), __anyValue());
        __expect(exists ? STATUS_SUCCESS : STATUS_INVALID_PARAMETER, [&] {
            switch (__below(3)) {
                case 0:
                    return __record.update(entry);
                case 1:
                    return __record.update(entry.getKey(), entry.getValue());
                default:
                    return __record.update(static_cast<int>(position), entry.getValue());
            }
        });
        if (exists) {
            __entries[position] = entry;
        }
    }

    void __remove()
    {
        const std::size_t position = __anyPosition();
        const bool exists = position < __entries.size();
        const std::string key = __keyAt(position);
        const int way = __below(3);
        __expect(exists || way > 0 ? STATUS_SUCCESS : STATUS_INVALID_PARAMETER, [&] {
            switch (way) {
                case 0:
                    return __record.remove(static_cast<int>(position));
                case 1:
                    return __record.remove(key);
                default:
                    return __record.remove(KeyValue(key, Variant("ignored")));
            }
        });
        if (exists) {
            __entries.erase(__entries.begin() + static_cast<std::ptrdiff_t>(position));
        }
    }

    void __probe()
    {
        ASSERT_EQ(__record.getCount(), static_cast<int>(__entries.size()));
        const std::string key = keyOf(__below(1200));
        const std::size_t position = __find(key);
        ASSERT_EQ(__record.getIndex(key), static_cast<int>(position));
        if (position < __entries.size()) {
            ASSERT_TRUE(__record.isIncluded(__entries[position]));
        }
    }

    void __copyAround()
    {
        KeyValues copy(__record);
        KeyValues assigned = recordOf(numberedEntries(__below(100)));
        assigned = copy;
        expectEqual(assigned, __record);
        __record = std::move(assigned);
    }

    std::mt19937 __random{20120417};
    bool __growing = true;
    std::vector<KeyValue> __entries;
    KeyValues __record;
    std::size_t __largest = 0;
    std::size_t __smallest = 0;
};

TEST(KeyValuesTest, ALongRandomLifeAgreesWithAPlainList)
{
    RandomWalk walk;

    walk.run(12000);

    // The walk went where it should.
    EXPECT_GT(walk.largest(), 400u);
    EXPECT_LT(walk.smallest(), 4u);
}

// An operation on a record whose first entry has the key of number 0, and what it makes of it.
struct Change {
    const char* name;
    std::function<int(KeyValues&)> apply;
    std::function<void(std::vector<KeyValue>&)> expected;
};

const std::string LONG_KEY(100, 'k');
const std::string LONG_TEXT(500, 'x');

std::vector<Change> changes()
{
    const std::string key = keyOf(0);
    const std::string longKey = LONG_KEY;
    const Variant longValue(LONG_TEXT);
    const KeyValue added(longKey, longValue);
    const KeyValue updated(key, longValue);
    const KeyValues other = recordOf(numberedEntries(70));
    const auto append = [added](std::vector<KeyValue>& entries) { entries.push_back(added); };
    const auto replace = [updated](std::vector<KeyValue>& entries) { entries[0] = updated; };
    const auto erase = [](std::vector<KeyValue>& entries) { entries.erase(entries.begin()); };

    return {
        {"add(entry)", [added](KeyValues& record) { return record.add(added); }, append},
        {"add(copy of entry)", [added](KeyValues& record) { return record.add(KeyValue(added)); },
         append},
        {"add(key, value)",
         [longKey, longValue](KeyValues& record) { return record.add(longKey, longValue); },
         append},
        {"update(entry)", [updated](KeyValues& record) { return record.update(updated); }, replace},
        {"update(key, value)",
         [key, longValue](KeyValues& record) { return record.update(key, longValue); }, replace},
        {"update(index, value)",
         [longValue](KeyValues& record) { return record.update(0, longValue); }, replace},
        {"remove(key)", [key](KeyValues& record) { return record.remove(key); }, erase},
        {"remove(entry)", [updated](KeyValues& record) { return record.remove(updated); }, erase},
        {"remove(index)", [](KeyValues& record) { return record.remove(0); }, erase},
        {"assignment",
         [other](KeyValues& record) {
             record = other;
             return STATUS_SUCCESS;
         },
         [](std::vector<KeyValue>& entries) { entries = numberedEntries(70); }},
    };
}

// Applies the change once for every allocation that it makes, and lets that one fail.
void expectUnchangedWithoutMemory(const Change& change, const std::vector<KeyValue>& before,
                                  bool roomToGrow)
{
    std::vector<KeyValue> after = before;
    change.expected(after);
    const KeyValues grown = recordOf(before);

    bool happened = true;
    for (int nth = 1; happened; ++nth) {
        KeyValues record = roomToGrow ? recordOf(before) : KeyValues(grown);
        const KeyValues copy(record);
        bool thrown = false;
        int status = STATUS_FAILURE;
        {
            const AllocationFailure failure(Allocation::ThrowingNew, nth);
            try {
                status = change.apply(record);
            } catch (const std::bad_alloc&) {
                thrown = true;
            }
            happened = failure.happened();
        }
        EXPECT_EQ(thrown, happened);
        if (thrown) {
            expectEqual(record, copy);
            expectRecord(record, before);
            status = change.apply(record);
        }
        EXPECT_EQ(status, STATUS_SUCCESS);
        expectRecord(record, after);
        ASSERT_FALSE(testing::Test::HasFailure()) << "allocation " << nth;
    }
}

TEST(KeyValuesTest, WithoutMemoryARecordIsAsItWas)
{
    for (const Change& change : changes()) {
        for (const int size : SIZES) {
            SCOPED_TRACE(change.name + (" at size " + std::to_string(size)));
            if (size > 0) {
                const std::vector<KeyValue> before = numberedEntries(size);
                expectUnchangedWithoutMemory(change, before, true);
                expectUnchangedWithoutMemory(change, before, false);
            }
        }
    }
}

TEST(KeyValuesTest, AnAddWithoutMemoryThrowsAndLeavesTheEntryItWasGiven)
{
    for (const int size : SIZES) {
        SCOPED_TRACE(size);
        const std::vector<KeyValue> before = numberedEntries(size);
        bool happened = true;
        int failures = 0;
        for (int nth = 1; happened; ++nth) {
            const KeyValues source = recordOf(before);
            KeyValues record(source);  // a copy has no room to spare
            KeyValue entry(LONG_KEY, Variant(LONG_TEXT));
            bool thrown = false;
            {
                const AllocationFailure failure(Allocation::ThrowingNew, nth);
                try {
                    record.add(std::move(entry));
                } catch (const std::bad_alloc&) {
                    thrown = true;
                }
                happened = failure.happened();
            }
            EXPECT_EQ(thrown, happened);
            if (thrown) {
                ++failures;
                expectEntry(entry, KeyValue(LONG_KEY, Variant(LONG_TEXT)));
                expectRecord(record, before);
            }
            ASSERT_FALSE(HasFailure());
        }
        EXPECT_GT(failures, 0);
    }
}

TEST(KeyValuesTest, ACopyWithoutMemoryLeavesNothingBehind)
{
    for (const int size : {1, 20, 300}) {
        const std::vector<KeyValue> entries = numberedEntries(size);
        const KeyValues record = recordOf(entries);
        int failures = 0;
        bool happened = true;
        for (int nth = 1; happened; ++nth) {
            bool thrown = false;
            {
                const AllocationFailure failure(Allocation::ThrowingNew, nth);
                try {
                    const KeyValues copy(record);
                } catch (const std::bad_alloc&) {
                    thrown = true;
                }
                happened = failure.happened();
            }
            EXPECT_EQ(thrown, happened);
            failures += thrown;
        }
        EXPECT_GT(failures, 0);
        expectRecord(record, entries);
    }
}

}  // namespace
}  // namespace oxil::test
