// What each allocation that fails leaves of values, texts, and what is stateless.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "AllocationSweep.h"
#include "OxColor.h"
#include "OxKeyValue.h"
#include "OxKeyValues.h"
#include "OxNumberParser.h"
#include "OxScreen.h"
#include "OxStreamOutput.h"
#include "OxStringUtil.h"
#include "OxVariant.h"
#include "PlatformCalls.h"
#include "Records.h"

namespace oxil::test {
namespace {

// Longer than what a text holds without memory of its own.
const std::string LONG(100, 'x');
const std::string OTHER(200, 'y');

TEST(ValueAllocationTest, AVariantIsWhatItWas)
{
    failEachAllocation([](Attempt& attempt) {
        Variant number(7);
        Variant text(LONG);
        std::string shown;

        const int r = attempt.run([&] {
            const Variant made(OTHER.c_str());
            const Variant copy(made);
            number = copy;
            text = OTHER;
            shown = text.toString();
            return STATUS_SUCCESS;
        });

        if (r == STATUS_SUCCESS) {
            EXPECT_EQ(shown, OTHER);
        }
        EXPECT_TRUE(number == Variant(7) || number == Variant(OTHER));
        EXPECT_TRUE(text == Variant(LONG) || text == Variant(OTHER));
        number = text;
        EXPECT_EQ(number, text);
    });
}

TEST(ValueAllocationTest, AnEntryIsWhatItWas)
{
    failEachAllocation([](Attempt& attempt) {
        const KeyValue other(OTHER, OTHER);
        KeyValue entry(LONG, LONG);

        const int r = attempt.run([&] {
            entry = other;
            return STATUS_SUCCESS;
        });

        EXPECT_EQ(entry, r == STATUS_SUCCESS ? other : KeyValue(LONG, LONG));
    });
}

TEST(ValueAllocationTest, ARecordHasTheEntryOrNot)
{
    // 7 is the last without an index of its keys, or near it; 40 have one that grows.
    for (const int count : {0, 1, 7, 8, 16, 40}) {
        failEachAllocation([count](Attempt& attempt) {
            KeyValues record = wide(count);

            const int r = attempt.run([&] { return record.add(LONG, OTHER); });

            const bool isThere = r == STATUS_SUCCESS;
            EXPECT_EQ(record.getCount(), count + (isThere ? 1 : 0));
            EXPECT_EQ(record.contains(LONG), isThere);
            if (!isThere) {
                EXPECT_EQ(record, wide(count));
                EXPECT_EQ(record.add(LONG, OTHER), STATUS_SUCCESS);
            }
            EXPECT_EQ(record.getKeyValue(LONG).getValue(), Variant(OTHER));
        });
    }
}

TEST(ValueAllocationTest, ARecordIsUpdatedOrNot)
{
    for (const int count : {1, 40}) {
        failEachAllocation([count](Attempt& attempt) {
            KeyValues record = wide(count);
            const std::string key = record.getKeyValue(0).getKey();

            const int r = attempt.run([&] { return record.update(key, OTHER); });

            const Variant& value = record.getKeyValues()[0].getValue();
            EXPECT_EQ(value,
                      r == STATUS_SUCCESS ? Variant(OTHER) : wide(1).getKeyValue(0).getValue());
            EXPECT_EQ(record.getCount(), count);
        });
    }
}

TEST(ValueAllocationTest, ACopyOfARecordIsMadeOrTheOldOneStays)
{
    for (const int count : {3, 40}) {
        failEachAllocation([count](Attempt& attempt) {
            const KeyValues source = wide(count);
            KeyValues target = small("a", 1);

            const int r = attempt.run([&] {
                target = source;
                return STATUS_SUCCESS;
            });

            EXPECT_EQ(target, r == STATUS_SUCCESS ? source : small("a", 1));
            EXPECT_EQ(target.remove(target.getKeyValue(0).getKey()), STATUS_SUCCESS);
        });
    }
}

TEST(ValueAllocationTest, ARecordOfAListIsThereOrNot)
{
    failEachAllocation([](Attempt& attempt) {
        std::optional<KeyValues> record;

        const int r = attempt.run([&] {
            record = KeyValues({{"a", LONG}, {LONG, 7}});
            record->set("b", OTHER);
            return STATUS_SUCCESS;
        });

        if (r == STATUS_SUCCESS) {
            EXPECT_EQ(*record, recordOf({{"a", LONG}, {LONG, 7}, {"b", OTHER}}));
        }
    });
}

// ---- What is shown

TEST(ValueAllocationTest, WhatIsShownIsWholeOrTheStreamSaysSo)
{
    failEachAllocation([](Attempt& attempt) {
        const KeyValues record = recordOf({{"text", LONG}, {"number", 7}});
        std::ostringstream stream;

        const int r = attempt.run([&] {
            stream << record << ' ' << Variant(0.5);
            return STATUS_SUCCESS;
        });

        // A stream takes what is thrown inside it as its own failure.
        if (r == STATUS_SUCCESS && stream.good()) {
            EXPECT_EQ(stream.str(), "{\"text\": \"" + LONG + "\", \"number\": 7} 0.5");
        }
    });
}

// ---- What has no state

TEST(ValueAllocationTest, AListOfTokensIsWholeOrThrown)
{
    failEachAllocation([](Attempt& attempt) {
        const std::string text = LONG + ", " + OTHER + ",z";
        std::vector<std::string> tokens;

        const int r = attempt.run([&] {
            tokens = StringUtil::getTokens(text, ", ");
            return STATUS_SUCCESS;
        });

        if (r == STATUS_SUCCESS) {
            EXPECT_EQ(tokens, std::vector<std::string>({LONG, OTHER, "z"}));
        }
    });
}

TEST(ValueAllocationTest, NumbersColoursAndTheScreenNeedNoMemory)
{
    const PlatformCalls platform;
    const Screen* screen = Screen::getInstance();
    const int failures = failEachAllocation([&](Attempt& attempt) {
        const std::string text = "-12.5";
        attempt.run([&] {
            NumberParser::toInt(text);
            NumberParser::toDouble(text);
            Color color(0x102030UL);
            color.setHue(120.0f);
            EXPECT_EQ(Screen::getInstance(), screen);
            screen->getSize();
            return STATUS_SUCCESS;
        });
    });
    EXPECT_EQ(failures, 0);
}

}  // namespace
}  // namespace oxil::test
