#include <Oxil.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <sstream>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <vector>

#include "LoadedScript.h"
#include "LuaChunk.h"
#include "MainLoopCalls.h"
#include "OxObjectManager.h"
#include "VirtualSlot.h"

/*
 * Applications are built against the headers and run with whatever library the device has, so each
 * class keeps its size, the places of its fields and the order of its virtual functions. The
 * numbers are those of the Itanium C++ ABI and its variant for ARM, with the strings, lists and
 * functions of libstdc++ (the C++11 ones).
 *
 * abi/ has the whole interface: functions, enumerators and each virtual function, too. But that is
 * what "./dev abi --update" made of the library last, as g++ lays it out, and it is compared where
 * libabigail is. Here stands what is promised, written by hand, for each compiler and each run.
 */

namespace oxil::test {
namespace {

using testing::ElementsAre;

// ---- Fields -------------------------------------------------------------------------------------

/** A class or a field of it: where it stands and how much room it takes. */
struct Place {
    std::string name;
    std::ptrdiff_t offset;
    std::size_t size;
    std::size_t alignment;
};

bool operator==(const Place& left, const Place& right)
{
    return std::tie(left.name, left.offset, left.size, left.alignment) ==
           std::tie(right.name, right.offset, right.size, right.alignment);
}

void PrintTo(const Place& place, std::ostream* stream)
{
    *stream << place.name << " at " << place.offset << ": " << place.size << " bytes, aligned to "
            << place.alignment;
}

/** The name of a field, as the compiler writes it into that of a function made for the field. */
template <auto Field>
std::string nameOf()
{
    const std::string_view function = __PRETTY_FUNCTION__;  // ...Field = &oxil::Class::name]
    const std::size_t begin = function.rfind("::", function.find_first_of(";]")) + 2;
    return std::string(function.substr(begin, function.find_first_of(";]") - begin));
}

template <auto Field, typename Class, typename Type>
Place placeOf(Type Class::*field)
{
    std::ptrdiff_t offset = 0;  // what a pointer to a data member consists of
    static_assert(sizeof field == sizeof offset);
    std::memcpy(&offset, &field, sizeof offset);
    return {nameOf<Field>(), offset, sizeof(Type), alignof(Type)};
}

template <typename Class>
struct FieldsOf {
};

/**
 * Defines fields(FieldsOf<Class>). Private members may be named where this is instantiated, since
 * access is not checked in the arguments of an explicit instantiation.
 */
template <typename Class, auto... Fields>
struct Expose {
    friend std::vector<Place> fields(FieldsOf<Class>) { return {placeOf<Fields>(Fields)...}; }
};

/**
 * Compares a class and all its fields, in their order, with a table: in the first line the class,
 * in the others its fields. Each has its offset, size and alignment twice, first on 32-bit ARM and
 * then on 64-bit hosts, as which 64-bit ARM counts. A class with virtual functions has the pointer to
 * their table in front.
 */
template <typename Class>
void expectLayout(const std::string& table)
{
    static_assert(sizeof(void*) == 4 || sizeof(void*) == 8);
    std::vector<Place> expected;
    std::istringstream text(table);
    Place device;
    Place host;
    while (text >> device.name >> device.offset >> device.size >> device.alignment >> host.offset >>
           host.size >> host.alignment) {
        host.name = device.name;
        expected.push_back(sizeof(void*) == 4 ? device : host);
    }
    ASSERT_TRUE(text.eof() && !expected.empty()) << "not a table:" << table;

    std::vector<Place> places = {{expected.front().name, 0, sizeof(Class), alignof(Class)}};
    for (const Place& field : fields(FieldsOf<Class>())) {
        places.push_back(field);
    }
    EXPECT_EQ(places, expected);
}

// ---- Values and records -------------------------------------------------------------------------

std::vector<Place> fields(FieldsOf<Variant>);
template struct Expose<Variant, &Variant::__type, &Variant::__number, &Variant::__text>;

TEST(LayoutTest, Variant)
{
    // What a number may be aligned to decides: 64 bits also on the device.
    expectLayout<Variant>(R"(
        Variant      0  40  8     0  48  8
        __type       0   4  4     0   4  4
        __number     8   8  8     8   8  8
        __text      16  24  4    16  32  8
    )");
    EXPECT_EQ(sizeof(VariantType), 4U);
}

std::vector<Place> fields(FieldsOf<KeyValue>);
template struct Expose<KeyValue, &KeyValue::__key, &KeyValue::__value>;

TEST(LayoutTest, KeyValue)
{
    expectLayout<KeyValue>(R"(
        KeyValue     0  64  8     0  80  8
        __key        0  24  4     0  32  8
        __value     24  40  8    32  48  8
    )");
}

std::vector<Place> fields(FieldsOf<KeyValues>);
template struct Expose<KeyValues, &KeyValues::__entries, &KeyValues::__index>;

TEST(LayoutTest, KeyValues)
{
    // The index is elsewhere, and only there for a record that is not small.
    expectLayout<KeyValues>(R"(
        KeyValues    0  16  4     0  32  8
        __entries    0  12  4     0  24  8
        __index     12   4  4    24   8  8
    )");
}

// ---- Serialization ------------------------------------------------------------------------------

std::vector<Place> fields(FieldsOf<SerializationInfo>);
template struct Expose<SerializationInfo, &SerializationInfo::blockCount,
                       &SerializationInfo::typeCount, &SerializationInfo::dataSize,
                       &SerializationInfo::repeatCount, &SerializationInfo::types,
                       &SerializationInfo::typeSizes>;

TEST(LayoutTest, SerializationInfo)
{
    // It travels as it is: the same everywhere.
    expectLayout<SerializationInfo>(R"(
        SerializationInfo      0  50064  4         0  50064  4
        blockCount             0      4  4         0      4  4
        typeCount              4     20  4         4     20  4
        dataSize              24     20  4        24     20  4
        repeatCount           44     20  4        44     20  4
        types                 64  10000  1        64  10000  1
        typeSizes          10064  40000  4     10064  40000  4
    )");
    EXPECT_TRUE(std::is_trivially_copyable_v<SerializationInfo>);
    EXPECT_TRUE(std::is_standard_layout_v<SerializationInfo>);

    // The lists of a block, within the fields above.
    EXPECT_EQ(sizeof SerializationInfo::types[0], 2000U);
    EXPECT_EQ(sizeof SerializationInfo::typeSizes[0], 8000U);
}

std::vector<Place> fields(FieldsOf<SerializedData>);
template struct Expose<SerializedData, &SerializedData::__info, &SerializedData::__release,
                       &SerializedData::__data, &SerializedData::__ownsData,
                       &SerializedData::__values, &SerializedData::__remained,
                       &SerializedData::__contextId>;

TEST(LayoutTest, SerializedData)
{
    expectLayout<SerializedData>(R"(
        SerializedData   0  84  4      0  160  8
        __info           0   4  4      0    8  8
        __release        4   4  4      8    8  8
        __data           8   4  4     16    8  8
        __ownsData      12   1  1     24    1  1
        __values        16  60  4     32  120  8
        __remained      76   1  1    152    1  1
        __contextId     80   4  4    156    4  4
    )");
    EXPECT_EQ(sizeof(Repeatable), 4U);
    EXPECT_EQ(sizeof(TransferOwnership), 4U);
}

// ---- Helpers ------------------------------------------------------------------------------------

std::vector<Place> fields(FieldsOf<Point>);
template struct Expose<Point, &Point::x, &Point::y>;

TEST(LayoutTest, Point)
{
    expectLayout<Point>(R"(
        Point   0  8  4    0  8  4
        x       0  4  4    0  4  4
        y       4  4  4    4  4  4
    )");
}

std::vector<Place> fields(FieldsOf<Dimension>);
template struct Expose<Dimension, &Dimension::width, &Dimension::height>;

TEST(LayoutTest, Dimension)
{
    expectLayout<Dimension>(R"(
        Dimension   0  8  4    0  8  4
        width       0  4  4    0  4  4
        height      4  4  4    4  4  4
    )");
}

std::vector<Place> fields(FieldsOf<Rectangle>);
template struct Expose<Rectangle, &Rectangle::x, &Rectangle::y, &Rectangle::width,
                       &Rectangle::height>;

TEST(LayoutTest, Rectangle)
{
    expectLayout<Rectangle>(R"(
        Rectangle    0  16  4     0  16  4
        x            0   4  4     0   4  4
        y            4   4  4     4   4  4
        width        8   4  4     8   4  4
        height      12   4  4    12   4  4
    )");
}

std::vector<Place> fields(FieldsOf<Screen>);
template struct Expose<Screen, &Screen::__width, &Screen::__height, &Screen::__size>;

TEST(LayoutTest, Screen)
{
    expectLayout<Screen>(R"(
        Screen     0  16  4    0  16  4
        __width    0   4  4    0   4  4
        __height   4   4  4    4   4  4
        __size     8   8  4    8   8  4
    )");
}

std::vector<Place> fields(FieldsOf<Color>);
template struct Expose<Color, &Color::__rgb32, &Color::__hue, &Color::__saturation,
                       &Color::__value>;

TEST(LayoutTest, Color)
{
    expectLayout<Color>(R"(
        Color          0  16  4     0  16  4
        __rgb32        0   4  4     0   4  4
        __hue          4   4  4     4   4  4
        __saturation   8   4  4     8   4  4
        __value       12   4  4    12   4  4
    )");
}

TEST(LayoutTest, ClassesOfStaticFunctionsHaveNoFields)
{
    EXPECT_TRUE(std::is_empty_v<NumberParser>);
    EXPECT_TRUE(std::is_empty_v<StringUtil>);
    EXPECT_TRUE(std::is_empty_v<Serializer>);
    EXPECT_TRUE(std::is_empty_v<WireEncoder>);
}

std::vector<Place> fields(FieldsOf<WireLimits>);
template struct Expose<WireLimits, &WireLimits::bytes, &WireLimits::blocks, &WireLimits::values,
                       &WireLimits::memory, &WireLimits::unknownKinds>;

TEST(LayoutTest, WireLimits)
{
    expectLayout<WireLimits>(R"(
        WireLimits     0  32  8     0  40  8
        bytes          0   4  4     0   8  8
        blocks         4   4  4     8   4  4
        values         8   8  8    16   8  8
        memory        16   8  8    24   8  8
        unknownKinds  24   1  1    32   1  1
    )");
}

std::vector<Place> fields(FieldsOf<WireDecoder>);
template struct Expose<WireDecoder, &WireDecoder::__limits, &WireDecoder::__bytes,
                       &WireDecoder::__begin, &WireDecoder::__end, &WireDecoder::__status>;

TEST(LayoutTest, WireDecoder)
{
    expectLayout<WireDecoder>(R"(
        WireDecoder   0  72  8     0  96  8
        __limits      0  32  8     0  40  8
        __bytes      32  24  4    40  32  8
        __begin      56   4  4    72   8  8
        __end        60   4  4    80   8  8
        __status     64   4  4    88   4  4
    )");
    EXPECT_FALSE(std::is_polymorphic_v<WireDecoder>);
}

// ---- Main loop ----------------------------------------------------------------------------------

std::vector<Place> fields(FieldsOf<Timer>);
template struct Expose<Timer, &Timer::__repeating, &Timer::__callback, &Timer::__source>;

TEST(LayoutTest, Timer)
{
    // The owner of the source holds its deleter, too.
    expectLayout<Timer>(R"(
        Timer         0  28  4     0  56  8
        __repeating   0   1  1     0   1  1
        __callback    4  16  4     8  32  8
        __source     20   8  4    40  16  8
    )");
}

std::vector<Place> fields(FieldsOf<WaitingLoop>);
template struct Expose<WaitingLoop, &WaitingLoop::__runPredicate, &WaitingLoop::__waitPredicate,
                       &WaitingLoop::__runTimer, &WaitingLoop::__waitTimer,
                       &WaitingLoop::__mainLoop, &WaitingLoop::__running, &WaitingLoop::__waiting,
                       &WaitingLoop::__noTimeout>;

TEST(LayoutTest, WaitingLoop)
{
    // The deleter of the main loop is a std::function.
    expectLayout<WaitingLoop>(R"(
        WaitingLoop       0  68  4      0  128  8
        __runPredicate    0  16  4      0   32  8
        __waitPredicate  16  16  4     32   32  8
        __runTimer       32   4  4     64    8  8
        __waitTimer      36   4  4     72    8  8
        __mainLoop       40  20  4     80   40  8
        __running        60   1  1    120    1  1
        __waiting        61   1  1    121    1  1
        __noTimeout      64   4  4    124    4  4
    )");
}

// ---- Scripts ------------------------------------------------------------------------------------

std::vector<Place> fields(FieldsOf<Script>);
template struct Expose<Script, &Script::__filePath, &Script::__methodName, &Script::__returnCount,
                       &Script::__parameterCount>;

TEST(LayoutTest, Script)
{
    expectLayout<Script>(R"(
        Script             0  60  4     0  80  8
        __filePath         4  24  4     8  32  8
        __methodName      28  24  4    40  32  8
        __returnCount     52   4  4    72   4  4
        __parameterCount  56   4  4    76   4  4
    )");
}

std::vector<Place> fields(FieldsOf<LuaScript>);
template struct Expose<LuaScript, &LuaScript::__luaState, &LuaScript::__baseApi,
                       &LuaScript::__luaApis, &LuaScript::__returnIndex, &LuaScript::__apisLoaded>;

TEST(LayoutTest, LuaScript)
{
    // Behind the fields of Script.
    expectLayout<LuaScript>(R"(
        LuaScript       0  92  4      0  136  8
        __luaState     60   8  4     80   16  8
        __baseApi      68   4  4     96    8  8
        __luaApis      72  12  4    104   24  8
        __returnIndex  84   4  4    128    4  4
        __apisLoaded   88   1  1    132    1  1
    )");
    EXPECT_TRUE((std::is_base_of_v<Script, LuaScript>));
}

std::vector<Place> fields(FieldsOf<LuaApi>);
template struct Expose<LuaApi, &LuaApi::__luaScript, &LuaApi::__loaded>;

TEST(LayoutTest, LuaApi)
{
    expectLayout<LuaApi>(R"(
        LuaApi        0  12  4     0  24  8
        __luaScript   4   4  4     8   8  8
        __loaded      8   1  1    16   1  1
    )");
}

std::vector<Place> fields(FieldsOf<BaseLuaApi>);
template struct Expose<BaseLuaApi>;

TEST(LayoutTest, BaseLuaApi)
{
    expectLayout<BaseLuaApi>(R"(
        BaseLuaApi   0  12  4    0  24  8
    )");
    EXPECT_TRUE((std::is_base_of_v<LuaApi, BaseLuaApi>));
}

std::vector<Place> fields(FieldsOf<LuaGuard>);
template struct Expose<LuaGuard, &LuaGuard::__state, &LuaGuard::__reason>;

TEST(LayoutTest, LuaGuard)
{
    expectLayout<LuaGuard>(R"(
        LuaGuard   0  260  4    0  264  8
        __state    0    4  4    0    8  8
        __reason   4  256  1    8  256  1
    )");
}

std::vector<Place> fields(FieldsOf<ObjectManager<WaitingLoop>>);
template struct Expose<ObjectManager<WaitingLoop>, &ObjectManager<WaitingLoop>::__objects,
                       &ObjectManager<WaitingLoop>::__invalidHandle>;

TEST(LayoutTest, ObjectManager)
{
    expectLayout<ObjectManager<WaitingLoop>>(R"(
        ObjectManager     0  16  4     0  32  8
        __objects         0  12  4     0  24  8
        __invalidHandle  12   4  4    24   4  4
    )");
}

TEST(LayoutTest, TheTimerOfAScriptIsATimerWithAStateAndAName)
{
    // Its class is no part of the interface; the main loop knows where such an object is.
    MainLoopCalls calls;
    const LoadedScript loaded("");
    ASSERT_EQ(runChunk(loaded.state(), "handle = Timer.start(3600000, 'tick')"), "");
    const auto* object = static_cast<const char*>(calls.timeout(1).data);

    const char* state = object + (sizeof(void*) == 4 ? 28 : 56);
    const lua_State* storedState = nullptr;
    std::memcpy(&storedState, state, sizeof storedState);
    EXPECT_EQ(storedState, loaded.state());

    // A string begins with a pointer to its text, which is kept in the string if it is short.
    const char* name = state + sizeof(void*);
    const char* storedText = nullptr;
    std::memcpy(&storedText, name, sizeof storedText);
    ASSERT_EQ(storedText, name + 2 * sizeof(void*));
    EXPECT_STREQ(storedText, "tick");

    EXPECT_EQ(runChunk(loaded.state(), "Timer.stop(handle)"), "");
}

// ---- XML ----------------------------------------------------------------------------------------

std::vector<Place> fields(FieldsOf<Xml>);
template struct Expose<Xml, &Xml::__listener, &Xml::__xmlFilePath, &Xml::__startElementCallback,
                       &Xml::__endElementCallback, &Xml::__charactersCallback>;

TEST(LayoutTest, Xml)
{
    expectLayout<Xml>(R"(
        Xml                      0  76  4      0  136  8
        __listener               0   4  4      0    8  8
        __xmlFilePath            4  24  4      8   32  8
        __startElementCallback  28  16  4     40   32  8
        __endElementCallback    44  16  4     72   32  8
        __charactersCallback    60  16  4    104   32  8
    )");
}

std::vector<Place> fields(FieldsOf<XmlNode>);
template struct Expose<XmlNode, &XmlNode::__native, &XmlNode::__element, &XmlNode::__content,
                       &XmlNode::__attributes, &XmlNode::__children>;

TEST(LayoutTest, XmlNode)
{
    expectLayout<XmlNode>(R"(
        XmlNode        0  76  4      0  120  8
        __native       0   4  4      0    8  8
        __element      4  24  4      8   32  8
        __content     28  24  4     40   32  8
        __attributes  52  12  4     72   24  8
        __children    64  12  4     96   24  8
    )");
}

std::vector<Place> fields(FieldsOf<XmlDocument>);
template struct Expose<XmlDocument, &XmlDocument::__document, &XmlDocument::__ownRoot,
                       &XmlDocument::__rootNode, &XmlDocument::__outputFilePath,
                       &XmlDocument::__styleSheet>;

TEST(LayoutTest, XmlDocument)
{
    // The owner of the native document holds its deleter, too; that of the root has none.
    expectLayout<XmlDocument>(R"(
        XmlDocument        0  44  4     0  72  8
        __document         0   8  4     0  16  8
        __ownRoot          8   4  4    16   8  8
        __rootNode        12   4  4    24   8  8
        __outputFilePath  16  24  4    32  32  8
        __styleSheet      40   4  4    64   8  8
    )");
}

std::vector<Place> fields(FieldsOf<XmlStyleSheet>);
template struct Expose<XmlStyleSheet, &XmlStyleSheet::__path, &XmlStyleSheet::__native>;

TEST(LayoutTest, XmlStyleSheet)
{
    expectLayout<XmlStyleSheet>(R"(
        XmlStyleSheet   0  28  4     0  40  8
        __path          0  24  4     0  32  8
        __native       24   4  4    32   8  8
    )");
}

// ---- Virtual functions --------------------------------------------------------------------------

/** A virtual function: its place in the table of its class, and who defined it last. */
struct Slot {
    std::string name;
    int place;
    bool own;  ///< defined by the class itself, not by its base
};

bool operator==(const Slot& left, const Slot& right)
{
    return std::tie(left.name, left.place, left.own) ==
           std::tie(right.name, right.place, right.own);
}

void PrintTo(const Slot& slot, std::ostream* stream)
{
    *stream << slot.name << " at " << slot.place << (slot.own ? "" : ", inherited");
}

/** The slot of a member of @p Owner; an overload is picked by naming its type, too. */
template <typename Owner, typename Function, typename Class>
Slot slot(const std::string& name, Function Class::*member)
{
    return {name, virtualSlot<Class, Function>(member), std::is_same_v<Owner, Class>};
}

template <typename Owner>
std::vector<Slot> hooksOf()
{
    const std::string added = "onMethodParameterAdded";
    const std::string get = "onGetReturnValue";
    using std::string;
    return {
        slot<Owner>("onLoading", &Owner::onLoading),
        slot<Owner>("onMethodCalling", &Owner::onMethodCalling),
        slot<Owner>("onMethodCalled", &Owner::onMethodCalled),
        slot<Owner, int(const string&)>(added + "(string)", &Owner::onMethodParameterAdded),
        slot<Owner, int(bool)>(added + "(bool)", &Owner::onMethodParameterAdded),
        slot<Owner, int(int)>(added + "(int)", &Owner::onMethodParameterAdded),
        slot<Owner, int(float)>(added + "(float)", &Owner::onMethodParameterAdded),
        slot<Owner, int(bool&) const>(get + "(bool)", &Owner::onGetReturnValue),
        slot<Owner, int(int&) const>(get + "(int)", &Owner::onGetReturnValue),
        slot<Owner, int(float&) const>(get + "(float)", &Owner::onGetReturnValue),
        slot<Owner, int(string&) const>(get + "(string)", &Owner::onGetReturnValue),
        slot<Owner>("onReturnValueEvaluateBegin", &Owner::onReturnValueEvaluateBegin),
        slot<Owner>("onReturnValueEvaluateEnd", &Owner::onReturnValueEvaluateEnd),
    };
}

// A virtual destructor takes the places 0 and 1.
const std::vector<Slot> HOOKS = {
    {"onLoading", 2, true},
    {"onMethodCalling", 3, true},
    {"onMethodCalled", 4, true},
    {"onMethodParameterAdded(string)", 5, true},
    {"onMethodParameterAdded(bool)", 6, true},
    {"onMethodParameterAdded(int)", 7, true},
    {"onMethodParameterAdded(float)", 8, true},
    {"onGetReturnValue(bool)", 9, true},
    {"onGetReturnValue(int)", 10, true},
    {"onGetReturnValue(float)", 11, true},
    {"onGetReturnValue(string)", 12, true},
    {"onReturnValueEvaluateBegin", 13, true},
    {"onReturnValueEvaluateEnd", 14, true},
};

TEST(VirtualFunctionsTest, Script)
{
    EXPECT_EQ(hooksOf<Script>(), HOOKS);
    EXPECT_TRUE(std::is_abstract_v<Script> && std::has_virtual_destructor_v<Script>);
}

TEST(VirtualFunctionsTest, LuaScriptOverridesAllOfThem)
{
    EXPECT_EQ(hooksOf<LuaScript>(), HOOKS);
    EXPECT_FALSE(std::is_abstract_v<LuaScript>);
}

TEST(VirtualFunctionsTest, LuaApi)
{
    EXPECT_THAT((std::vector<Slot>{slot<LuaApi>("onLoading", &LuaApi::onLoading),
                                   slot<LuaApi>("onUnloading", &LuaApi::onUnloading)}),
                ElementsAre(Slot{"onLoading", 2, true}, Slot{"onUnloading", 3, true}));
    EXPECT_TRUE(std::is_abstract_v<LuaApi> && std::has_virtual_destructor_v<LuaApi>);
}

TEST(VirtualFunctionsTest, BaseLuaApiOverridesLoadingOnly)
{
    EXPECT_THAT((std::vector<Slot>{slot<BaseLuaApi>("onLoading", &BaseLuaApi::onLoading),
                                   slot<BaseLuaApi>("onUnloading", &BaseLuaApi::onUnloading)}),
                ElementsAre(Slot{"onLoading", 2, true}, Slot{"onUnloading", 3, false}));
    EXPECT_FALSE(std::is_abstract_v<BaseLuaApi>);
}

TEST(VirtualFunctionsTest, XmlEventListener)
{
    using Listener = IXmlEventListener;
    EXPECT_THAT((std::vector<Slot>{slot<Listener>("onStartElement", &Listener::onStartElement),
                                   slot<Listener>("onEndElement", &Listener::onEndElement),
                                   slot<Listener>("onCharacters", &Listener::onCharacters)}),
                ElementsAre(Slot{"onStartElement", 2, true}, Slot{"onEndElement", 3, true},
                            Slot{"onCharacters", 4, true}));
    EXPECT_TRUE(std::has_virtual_destructor_v<Listener>);
    EXPECT_EQ(sizeof(Listener), sizeof(void*));
}

TEST(VirtualFunctionsTest, BidirectionalIterator)
{
    using Iterator = IBidirectionalIterator<KeyValues*>;
    EXPECT_THAT(
        (std::vector<Slot>{slot<Iterator>("current", &Iterator::current),
                           slot<Iterator>("moveTo", &Iterator::moveTo),
                           slot<Iterator>("next", &Iterator::next),
                           slot<Iterator>("getPosition", &Iterator::getPosition),
                           slot<Iterator>("previous", &Iterator::previous),
                           slot<Iterator>("isBegin", &Iterator::isBegin),
                           slot<Iterator>("isEnd", &Iterator::isEnd)}),
        ElementsAre(Slot{"current", 2, true}, Slot{"moveTo", 3, true}, Slot{"next", 4, true},
                    Slot{"getPosition", 5, true}, Slot{"previous", 6, true},
                    Slot{"isBegin", 7, true}, Slot{"isEnd", 8, true}));
    EXPECT_TRUE(std::is_abstract_v<Iterator> && std::has_virtual_destructor_v<Iterator>);
    EXPECT_EQ(sizeof(Iterator), sizeof(void*));
}

}  // namespace
}  // namespace oxil::test
