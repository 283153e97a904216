// What is moved into itself, as std::swap() and the algorithms may do, stays what it was.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <utility>

#include "OxKeyValue.h"
#include "OxKeyValues.h"
#include "OxLogMatchers.h"
#include "OxVariant.h"
#include "Records.h"

namespace oxil::test {
namespace {

using testing::ElementsAre;

// Longer than what a text holds without memory of its own.
const std::string LONG(100, 'x');

/** In a function of its own, so that no compiler sees that it is one and the same. */
template <typename T>
void move(T& from, T& to)
{
    to = std::move(from);
}

TEST(SelfMoveTest, AVariantStaysWhatItWas)
{
    for (const Variant& sample : {Variant(), Variant(7), Variant(0.5), Variant(LONG)}) {
        Variant value(sample);

        move(value, value);

        EXPECT_EQ(value, sample);
    }
}

TEST(SelfMoveTest, AnEntryStaysWhatItWas)
{
    const KeyValue sample(LONG, LONG);
    KeyValue entry(sample);

    move(entry, entry);

    EXPECT_EQ(entry, sample);
}

TEST(SelfMoveTest, ARecordStaysWhatItWasAndFindsItsKeys)
{
    for (const int count : {0, 1, 100}) {
        KeyValues record = wide(count);

        move(record, record);

        EXPECT_EQ(record, wide(count));
        for (int i = 0; i < count; ++i) {
            const std::string key = wide(count).getKeyValue(i).getKey();
            EXPECT_TRUE(record.contains(key)) << key;
        }
    }
}

// ---- A kind that there is none of ---------------------------------------------------------------

/** What stray bytes make of a value: its kind is the first of what it holds. */
Variant ofKind(int kind)
{
    Variant value;
    std::memcpy(static_cast<void*>(&value), &kind, sizeof kind);
    return value;
}

TEST(UnknownKindTest, IsConvertibleToNothing)
{
    for (const int kind : {-1, 11, 12, 1 << 30}) {
        const Variant value = ofKind(kind);
        const std::string number = std::to_string(kind);
        LogCapture log;

        EXPECT_EQ(value.toString(), "");
        EXPECT_EQ(value.toInt(), 0);
        EXPECT_FALSE(value.toBool());

        EXPECT_THAT(log.lines(),
                    ElementsAre(Logged("toString", "Invalid conversion (" + number + ") to STRING"),
                                Logged("toInt", "Invalid conversion (" + number + ") to INT"),
                                Logged("toBool", "Invalid conversion (" + number + ") to BOOL")));
    }
}

TEST(UnknownKindTest, HasNoNameAndIsNotWritten)
{
    const Variant value = ofKind(11);
    char place[16] = {};
    LogCapture log;

    EXPECT_EQ(value.getTypeName(), "");
    EXPECT_EQ(value.toRaw(place), -1);

    EXPECT_THAT(log.lines(), ElementsAre(Logged("toRaw", "Invalid type (11).")));
}

}  // namespace
}  // namespace oxil::test
