// What Serializer::validate() says about a payload, against what really arrives of it.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "AllocationFailure.h"
#include "OxLogMatchers.h"
#include "OxSerializer.h"
#include "OxStatus.h"
#include "Records.h"

namespace oxil::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

Names texts()
{
    return {
        "",
        "text",
        std::string(254, 'x'),
        std::string(255, 'x'),
        std::string(256, 'x'),
        std::string(257, 'x'),
        std::string(10000, 'x'),
        std::string("with\0NUL", 8),
        std::string("NUL behind\0", 11),
        std::string(1, '\0'),
        "\xED\x95\x9C\xEA\xB8\x80",
    };
}

KeyValues recordWith(const std::string& text)
{
    return recordOf({KeyValue("first", 1), KeyValue("second", text), KeyValue("third", 3)});
}

/** A record that is not the first of a list. */
Records listWith(const std::string& text)
{
    return {recordWith("good"), recordWith(text)};
}

Pointers pointersTo(Records& records)
{
    Pointers pointers = {nullptr};
    for (KeyValues& record : records) {
        pointers.push_back(&record);
    }
    return pointers;
}

/** A place for a text in a payload. */
struct Place {
    std::string name;  // what validate() calls it
    std::function<int(const std::string& text, std::string* where)> validate;
    std::function<bool(const std::string& text)> arrives;
};

Place keyOfEntry(const std::string& text)
{
    return {text,
            [](const std::string& key, std::string* where) {
                return Serializer::validate(KeyValue(key, 1), where);
            },
            [](const std::string& key) {
                SerializedData data;
                KeyValue arrived;
                Serializer::serialize(KeyValue(key, 1), data);
                return Serializer::deserialize(data, arrived) == STATUS_SUCCESS &&
                       arrived == KeyValue(key, 1);
            }};
}

Place valueOfEntry()
{
    return {"key",
            [](const std::string& text, std::string* where) {
                return Serializer::validate(KeyValue("key", text), where);
            },
            [](const std::string& text) {
                SerializedData data;
                KeyValue arrived;
                Serializer::serialize(KeyValue("key", text), data);
                return Serializer::deserialize(data, arrived) == STATUS_SUCCESS &&
                       arrived == KeyValue("key", text);
            }};
}

Place valueOfRecord()
{
    return {"second",
            [](const std::string& text, std::string* where) {
                return Serializer::validate(recordWith(text), where);
            },
            [](const std::string& text) {
                SerializedData data;
                KeyValues arrived;
                Serializer::serialize(recordWith(text), data);
                return Serializer::deserialize(data, arrived) == STATUS_SUCCESS &&
                       arrived == recordWith(text);
            }};
}

Place valueOfExtraEntry()
{
    return {"key",
            [](const std::string& text, std::string* where) {
                return Serializer::validate(recordWith("good"), KeyValue("key", text), where);
            },
            [](const std::string& text) {
                SerializedData data;
                KeyValues arrived;
                KeyValue extra;
                Serializer::serialize(recordWith("good"), KeyValue("key", text), data);
                return Serializer::deserialize(data, arrived, extra) == STATUS_SUCCESS &&
                       arrived == recordWith("good") && extra == KeyValue("key", text);
            }};
}

Place valueOfList()
{
    return {"second",
            [](const std::string& text, std::string* where) {
                return Serializer::validate(listWith(text), where);
            },
            [](const std::string& text) {
                SerializedData data;
                Records arrived;
                Serializer::serialize(listWith(text), data);
                return Serializer::deserialize(data, arrived) == STATUS_SUCCESS &&
                       arrived == listWith(text);
            }};
}

Place valueOfListOfOneShape()
{
    return {"second",
            [](const std::string& text, std::string* where) {
                Records records = listWith(text);
                return Serializer::validate(pointersTo(records), where);
            },
            [](const std::string& text) {
                SerializedData data;
                Records arrived;
                Serializer::serialize(listWith(text), data, REPEATABLE);
                return Serializer::deserialize(data, arrived, REPEATABLE) == STATUS_SUCCESS &&
                       arrived == listWith(text);
            }};
}

/** The parts of a call, each of them good but one. */
struct Call {
    Call(const std::string& part, const std::string& text)
    {
        if (part == "names[1]") {
            names[1] = text;
        } else if (part == "method") {
            method = text;
        } else if (part == "params[1]") {
            params[1] = text;
        } else {
            extra = text;
        }
    }

    bool operator==(const Call& other) const
    {
        return names == other.names && method == other.method && params == other.params &&
               extra == other.extra;
    }

    Names names = {"good", "good"};
    std::string method = "good";
    Values params = {1, "good"};
    std::string extra = "good";
};

std::vector<Place> placesOfCalls()
{
    std::vector<Place> places;
    for (const char* part : {"names[1]", "method", "params[1]", "extra"}) {
        places.push_back({part,
                          [part](const std::string& text, std::string* where) {
                              const Call call(part, text);
                              return Serializer::validate(call.names, call.method, call.params,
                                                          call.extra, where);
                          },
                          [part](const std::string& text) {
                              const Call call(part, text);
                              Call arrived("method", "");
                              SerializedData data;
                              arrived.names.clear();
                              Serializer::serialize(call.names, call.method, call.params,
                                                    call.extra, data);
                              Serializer::deserialize(data, arrived.names, arrived.method,
                                                      arrived.params, arrived.extra);
                              return arrived == call;
                          }});
    }
    for (const char* part : {"method", "params[1]"}) {
        places.push_back({part,
                          [part](const std::string& text, std::string* where) {
                              const Call call(part, text);
                              return Serializer::validate(call.method, call.params, where);
                          },
                          [part](const std::string& text) {
                              const Call call(part, text);
                              Call arrived("method", "");
                              SerializedData data;
                              Serializer::serialize(call.method, call.params, data);
                              Serializer::deserialize(data, arrived.method, arrived.params);
                              return arrived.method == call.method && arrived.params == call.params;
                          }});
    }
    for (const char* part : {"method", "params[1]", "extra"}) {
        places.push_back(
            {part,
             [part](const std::string& text, std::string* where) {
                 const Call call(part, text);
                 return Serializer::validate(call.method, call.params, call.extra, where);
             },
             [part](const std::string& text) {
                 const Call call(part, text);
                 Call arrived("method", "");
                 SerializedData data;
                 Serializer::serialize(call.method, call.params, call.extra, data);
                 Serializer::deserialize(data, arrived.method, arrived.params, arrived.extra);
                 return arrived.method == call.method && arrived.params == call.params &&
                        arrived.extra == call.extra;
             }});
    }
    for (const char* part : {"method", "params[1]"}) {
        places.push_back(
            {part,
             [part](const std::string& text, std::string* where) {
                 const Call call(part, text);
                 return Serializer::validate(recordWith("good"), call.method, call.params, where);
             },
             [part](const std::string& text) {
                 const Call call(part, text);
                 Call arrived("method", "");
                 KeyValues record;
                 SerializedData data;
                 Serializer::serialize(recordWith("good"), call.method, call.params, data);
                 Serializer::deserialize(data, record, arrived.method, arrived.params);
                 return arrived.method == call.method && arrived.params == call.params;
             }});
    }
    return places;
}

TEST(SerializerValidateTest, SaysOfEveryTextInEveryPlaceWhetherItArrives)
{
    for (const std::string& text : texts()) {
        std::vector<Place> places = placesOfCalls();
        for (const Place& place : {keyOfEntry(text), valueOfEntry(), valueOfRecord(),
                                   valueOfExtraEntry(), valueOfList(), valueOfListOfOneShape()}) {
            places.push_back(place);
        }
        for (std::size_t i = 0; i < places.size(); ++i) {
            SCOPED_TRACE(testing::Message() << "place " << i << " with " << text.size()
                                            << " characters: " << text.substr(0, 20));
            const Place& place = places[i];
            bool arrives = false;
            {
                const LogCapture log;  // packing says what it says
                arrives = place.arrives(text);
            }
            std::string where = "untouched";
            const LogCapture log;

            EXPECT_EQ(place.validate(text, &where),
                      arrives ? STATUS_SUCCESS : STATUS_INVALID_PARAMETER);

            if (arrives) {
                EXPECT_EQ(where, "untouched");
                EXPECT_THAT(log.lines(), IsEmpty());
            } else {
                EXPECT_EQ(where, place.name);
                // A name in the log ends at its first NUL byte.
                const std::string name = place.name.c_str();
                EXPECT_THAT(log.lines(), ElementsAre(LoggedIn("OxSerializer.cpp", "validate",
                                                              "Not serializable (" + name + ").")));
            }
        }
    }
}

// ---- What else doesn't arrive -------------------------------------------------------------------

TEST(SerializerValidateTest, NamesAnEntryWithoutValueOrKey)
{
    const KeyValues holed = recordOf({KeyValue("first", 1), KeyValue("hole", Variant())});
    const LogCapture log;

    std::string where;
    EXPECT_EQ(Serializer::validate(holed, &where), STATUS_INVALID_PARAMETER);
    EXPECT_EQ(where, "hole");
    EXPECT_EQ(Serializer::validate("m", Values{1, Variant()}, &where), STATUS_INVALID_PARAMETER);
    EXPECT_EQ(where, "params[1]");
    EXPECT_EQ(Serializer::validate(recordOf({KeyValue("", 1)}), &where), STATUS_INVALID_PARAMETER);
    EXPECT_EQ(where, "");

    EXPECT_EQ(log.lines().size(), 3u);
}

TEST(SerializerValidateTest, NamesOnlyTheFirst)
{
    const std::string big(300, 'x');
    const LogCapture log;
    std::string where;

    EXPECT_EQ(Serializer::validate({"n", big}, big, Values{big}, big, &where),
              STATUS_INVALID_PARAMETER);
    EXPECT_EQ(where, "names[1]");
    EXPECT_EQ(Serializer::validate(recordOf({KeyValue("a", big), KeyValue("b", big)}), big,
                                   Values{big}, &where),
              STATUS_INVALID_PARAMETER);
    EXPECT_EQ(where, "a");

    EXPECT_THAT(log.lines(), ElementsAre(Logged("validate", "Not serializable (names[1])."),
                                         Logged("validate", "Not serializable (a).")));
}

TEST(SerializerValidateTest, NeedsNoOneToTellWhere)
{
    const LogCapture log;

    EXPECT_EQ(Serializer::validate(recordWith("text")), STATUS_SUCCESS);
    EXPECT_EQ(Serializer::validate(KeyValue("key", std::string(256, 'x'))),
              STATUS_INVALID_PARAMETER);

    EXPECT_THAT(log.lines(), ElementsAre(Logged("validate", "Not serializable (key).")));
}

TEST(SerializerValidateTest, FindsNothingWrongWithListsAndCallsOfNothing)
{
    EXPECT_EQ(Serializer::validate(KeyValues()), STATUS_SUCCESS);
    EXPECT_EQ(Serializer::validate(Records()), STATUS_SUCCESS);
    EXPECT_EQ(Serializer::validate(Pointers{nullptr}), STATUS_SUCCESS);
    EXPECT_EQ(Serializer::validate("", Values()), STATUS_SUCCESS);
}

TEST(SerializerValidateTest, AllocatesNothingIfAllIsWell)
{
    const Records records(3, recordWith(std::string(255, 'x')));
    const Names names(3, std::string(255, 'x'));
    const Values params(3, Variant(names[0]));
    const long before = allocationCount();

    const int list = Serializer::validate(records);
    const int call = Serializer::validate(names, names[0], params, names[0]);
    const long after = allocationCount();

    EXPECT_EQ(list, STATUS_SUCCESS);
    EXPECT_EQ(call, STATUS_SUCCESS);
    EXPECT_EQ(after - before, 0);
}

// ---- Cutting ------------------------------------------------------------------------------------

TEST(SerializerCutTextTest, WhatFitsStaysAsItIs)
{
    for (const std::string& text :
         {std::string(), std::string("text"), std::string(255, 'x'), std::string(255, '\x80')}) {
        EXPECT_EQ(Serializer::cutText(text), text);
    }
}

TEST(SerializerCutTextTest, NoCharacterIsCutInTwo)
{
    for (const std::string& character :
         {std::string("x"), std::string("\xC3\xBC"), std::string("\xED\x95\x9C"),
          std::string("\xF0\x9F\x8C\xB3")}) {
        for (std::size_t before = 248; before <= 256; ++before) {
            SCOPED_TRACE(testing::Message() << before << ", " << character);
            const std::string front(before, 'x');
            const std::string text = front + character + std::string(20, 'y');

            const std::string cut = Serializer::cutText(text);

            const bool isCut = before < 255 && before + character.size() > 255;
            EXPECT_EQ(cut, text.substr(0, isCut ? before : 255));
            EXPECT_EQ(Serializer::validate(KeyValue("key", cut)), STATUS_SUCCESS);
        }
    }
}

TEST(SerializerCutTextTest, ANulEndsTheText)
{
    EXPECT_EQ(Serializer::cutText(std::string("front\0behind", 12)), "front");
    EXPECT_EQ(Serializer::cutText(std::string("\0\xBC", 2)), "");
    EXPECT_EQ(Serializer::cutText("\xC3" + std::string("\0\xBC", 2)), "\xC3");
}

TEST(SerializerCutTextTest, WhatIsNoUtf8IsCutAtTheEndOfTheSlot)
{
    const std::string noText(300, '\x80');

    EXPECT_EQ(Serializer::cutText(noText), noText.substr(0, 255));
    EXPECT_EQ(Serializer::cutText(std::string(251, 'x') + noText),
              std::string(251, 'x') + noText.substr(0, 4));
}

}  // namespace
}  // namespace oxil::test
