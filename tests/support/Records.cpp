#include "Records.h"

#include "OxStatus.h"

namespace oxil::test {
namespace {

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

}  // namespace

KeyValues recordOf(const std::vector<KeyValue>& entries)
{
    KeyValues result;
    for (const KeyValue& entry : entries) {
        EXPECT_EQ(result.add(entry), STATUS_SUCCESS);
    }
    return result;
}

KeyValues small(const std::string& key, int number)
{
    return recordOf({{key, number}});
}

KeyValues wide(int count)
{
    KeyValues result;
    for (int i = 0; i < count; ++i) {
        EXPECT_EQ(result.add("key " + std::to_string(i), true), STATUS_SUCCESS);
    }
    return result;
}

testing::AssertionResult sameRecords(const Records& actual, const Records& expected)
{
    if (actual == expected) {
        return testing::AssertionSuccess();
    }
    return testing::AssertionFailure() << testing::PrintToString(textsOf(actual)) << " instead of "
                                       << testing::PrintToString(textsOf(expected));
}

}  // namespace oxil::test
