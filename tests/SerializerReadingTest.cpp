#include "OxSerializer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <cstddef>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "OxLogMatchers.h"
#include "OxStatus.h"
#include "Records.h"
#include "SerializedBytes.h"
#include "SerializerCases.h"

namespace oxil::test {
namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;

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
             const Unpacked list = unpack(data, ListForm::Copies, false);
             out.listed = list.records.size();
             return list.result;
         },
         {Role::Counts, Role::Entries}},
        {"list of pointers",
         packOf("list"),
         [](Data data, Output& out) {
             const Unpacked list = unpack(data, ListForm::OnHeap, false);
             out.listed = list.records.size();
             return list.result;
         },
         {Role::Counts, Role::Entries}},
        {"repeated list",
         packOf("repeated_list"),
         [](Data data, Output& out) {
             const Unpacked list = unpack(data, ListForm::Copies, true);
             out.listed = list.records.size();
             return list.result;
         },
         {Role::Repeated}},
        {"repeated list of pointers",
         packOf("repeated_list"),
         [](Data data, Output& out) {
             const Unpacked list = unpack(data, ListForm::OnHeap, true);
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

TEST(SerializerReadingTest, RefusesAnotherNumberOfBlocks)
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

TEST(SerializerReadingTest, ReadsSingleEntriesAndRecordsWhateverTheNumberOfBlocks)
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

TEST(SerializerReadingTest, RefusesAnObjectWithoutData)
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

TEST(SerializerReadingTest, RefusesABlockThatCannotBeDecoded)
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

TEST(SerializerReadingTest, AnswersAKeyAndAValueThatCannotBeReadWithNothing)
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

TEST(SerializerReadingTest, DoesNotReadBackAnEntryWithoutKey)
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

TEST(SerializerReadingTest, RefusesATextBlockThatHoldsMoreOrLessThanOneValue)
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

TEST(SerializerReadingTest, RefusesHalfAnEntry)
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

TEST(SerializerReadingTest, ReadsTheFirstOfSeveralExtraEntries)
{
    Sent sent({{}, {"x", 1, "y", 2}});
    KeyValues target;
    KeyValue extra;

    EXPECT_EQ(Serializer::deserialize(*sent.receive(), target, extra), STATUS_SUCCESS);

    EXPECT_TRUE(extra == KeyValue("x", 1));
    EXPECT_EQ(target.getCount(), 0);
}

TEST(SerializerReadingTest, KeepsWhatWasReadBeforeAFailure)
{
    Output out;
    const auto fails = [](int result) { EXPECT_EQ(result, STATUS_INVALID_PARAMETER); };
    LogCapture log;

    {
        Sent sent({{"k", 2}, {}, {5}});
        fails(Serializer::deserialize(*sent.receive(), out.record, out.method, out.params));
        EXPECT_TRUE(sameRecords({out.record}, {recordOf({{"earlier", 1}, {"k", 2}})}));
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

TEST(SerializerReadingTest, ReadsValuesOfOtherKindsAsTexts)
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

TEST(SerializerReadingTest, ReadsParametersThatRepeat)
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

TEST(SerializerReadingTest, ReadsTheSameObjectAgain)
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

TEST(SerializerReadingTest, TellsHowManyRecordsOfAShapeFit)
{
    const std::vector<std::pair<int, int>> rows = {{1, 1000}, {2, 500}, {3, 333},  {4, 250},
                                                   {7, 142},  {501, 1}, {1000, 1}, {1001, 0}};
    for (const auto& [entries, count] : rows) {
        EXPECT_EQ(Serializer::getSerializableCount(wide(entries)), count) << entries << " entries";
    }
}

}  // namespace
}  // namespace oxil::test
