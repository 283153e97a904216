// What tools/footprint measures. Does one operation again and again, so that the difference between
// two runs is the cost of the operation alone, or tells what objects take of the heap.
//
// footprint operations               name, number of repetitions and description of each operation
// footprint run NAME TIMES LUA XML   carries out an operation
// footprint growing                  name and description of what is done with many items at a time
// footprint grow NAME SIZE TIMES FILE  carries it out; FILE is what it reads or writes, if it does
// footprint memory LUA XML           description, sizeof, heap bytes of the first one and of another
// footprint libc                     version of the C library
//
// The lines' fields are separated by tabs. LUA is footprint.lua, XML a document of 100 KB.

#include <gnu/libc-version.h>
#include <malloc.h>

#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include <OxPlatform.h>
#include <Oxil.h>

// What is measured goes well; a line of the log means that something else was measured.
[[gnu::format(printf, 4, 5)]] int __dlog_print(int /*logId*/, int /*priority*/, const char* /*tag*/,
                                               const char* format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    std::vfprintf(stderr, format, arguments);
    va_end(arguments);
    std::fputc('\n', stderr);
    std::exit(3);
}

namespace {

struct Files {
    std::string lua;
    std::string xml;
};

void require(bool condition, const char* text)
{
    if (!condition) {
        std::fprintf(stderr, "footprint: %s\n", text);
        std::exit(3);
    }
}

/** Lets nothing that leads to the object be left out as unused. */
template <typename T>
void keep(T& object)
{
    asm volatile("" : : "r"(&object) : "memory");
}

// ---- Operations ----------------------------------------------------------------------------------

using Repeat = std::function<void(int)>;

/** Puts the operation into a loop, not behind a pointer: some are just a few instructions. */
template <typename Body>
Repeat repeat(Body body)
{
    return [body](int times) {
        for (int i = 0; i < times; ++i) {
            body();
        }
    };
}

struct Operation {
    const char* name;
    int times;
    const char* description;
    Repeat (*prepare)(const Files& files);
};

oxil::KeyValues makeRecord(int count)
{
    oxil::KeyValues record;
    for (int i = 0; i < count; ++i) {
        const std::string key = "property" + std::to_string(i);
        switch (i % 4) {
            case 0:
                record.add(key, oxil::Variant(i));
                break;
            case 1:
                record.add(key, oxil::Variant(i % 2 == 0));
                break;
            case 2:
                record.add(key, oxil::Variant(i * 0.5));
                break;
            default:
                record.add(key, oxil::Variant("a text of thirty-two characters."));
                break;
        }
    }
    return record;
}

Repeat nothing(const Files& /*files*/)
{
    return repeat([] { asm volatile("" : : : "memory"); });
}

template <typename Value>
Repeat make(Value value)
{
    return repeat([value] {
        const oxil::Variant variant(value);
        keep(variant);
    });
}

Repeat makeInt(const Files& /*files*/)
{
    return make(42);
}

Repeat makeShortText(const Files& /*files*/)
{
    return make("twelve chars");
}

Repeat makeLongText(const Files& /*files*/)
{
    return make("a text of thirty-two characters.");
}

Repeat copy(const oxil::Variant& original)
{
    return repeat([original] {
        const oxil::Variant variant(original);
        keep(variant);
    });
}

Repeat copyInt(const Files& /*files*/)
{
    return copy(42);
}

Repeat copyShortText(const Files& /*files*/)
{
    return copy("twelve chars");
}

Repeat copyLongText(const Files& /*files*/)
{
    return copy("a text of thirty-two characters.");
}

template <auto CONVERT>
Repeat convert(const oxil::Variant& original)
{
    return repeat([original] {
        keep(original);
        const auto result = (original.*CONVERT)();
        keep(result);
    });
}

Repeat intToInt(const Files& /*files*/)
{
    return convert<&oxil::Variant::toInt>(42);
}

Repeat intToDouble(const Files& /*files*/)
{
    return convert<&oxil::Variant::toDouble>(42);
}

Repeat intToString(const Files& /*files*/)
{
    return convert<&oxil::Variant::toString>(1234567);
}

Repeat doubleToString(const Files& /*files*/)
{
    return convert<&oxil::Variant::toString>(1234.5);
}

Repeat parseInt(const Files& /*files*/)
{
    const std::string text = "1234567";
    return repeat([text] {
        const int number = oxil::NumberParser::toInt(text);
        keep(number);
    });
}

template <int COUNT>
Repeat buildRecord(const Files& /*files*/)
{
    const oxil::KeyValues original = makeRecord(COUNT);
    return repeat([original] {
        oxil::KeyValues record;
        for (const oxil::KeyValue& entry : original.getKeyValues()) {
            record.add(entry);
        }
        keep(record);
    });
}

template <int COUNT>
Repeat lookUp(const Files& /*files*/)
{
    const oxil::KeyValues record = makeRecord(COUNT);
    const std::string key = record.getKey(COUNT / 2 * 2 - 2);  // its value is a number
    return repeat([record, key] {
        const oxil::Variant value = record.getValue(key);
        keep(value);
    });
}

template <int COUNT>
Repeat copyRecord(const Files& /*files*/)
{
    const oxil::KeyValues original = makeRecord(COUNT);
    return repeat([original] {
        const oxil::KeyValues record(original);
        keep(record);
    });
}

Repeat describe(const Files& /*files*/)
{
    return repeat([] {
        const oxil::SerializedData data;
        keep(data);
    });
}

Repeat copyDescription(const Files& /*files*/)
{
    const auto original = std::make_shared<oxil::SerializedData>();
    return repeat([original] {
        const oxil::SerializedData data(original->getSerializationInfo());
        keep(data);
    });
}

Repeat pack(const Files& /*files*/)
{
    const oxil::KeyValues record = makeRecord(10);
    return repeat([record] {
        oxil::SerializedData data;
        require(oxil::Serializer::serialize(record, data) == oxil::STATUS_SUCCESS, "not packed");
        keep(data);
    });
}

std::shared_ptr<oxil::SerializedData> makePackedRecord()
{
    auto data = std::make_shared<oxil::SerializedData>();
    require(oxil::Serializer::serialize(makeRecord(10), *data) == oxil::STATUS_SUCCESS,
            "not packed");
    return data;
}

Repeat validate(const Files& /*files*/)
{
    const auto packed = makePackedRecord();
    return repeat([packed] {
        const int status = oxil::SerializedData::validate(
            packed->getSerializationInfo(), static_cast<std::size_t>(packed->getTotalDataSize()));
        require(status == oxil::STATUS_SUCCESS, "not valid");
    });
}

Repeat unpack(const Files& /*files*/)
{
    const auto packed = makePackedRecord();
    return repeat([packed] {
        oxil::SerializedData data(packed->getSerializationInfo());
        data.setData(static_cast<const void*>(packed->getData()));
        oxil::KeyValues record;
        require(oxil::Serializer::deserialize(data, record) == oxil::STATUS_SUCCESS &&
                    record.getCount() == 10,
                "not unpacked");
        keep(record);
    });
}

Repeat tokenise(const Files& /*files*/)
{
    std::string text;
    for (int i = 0; text.size() < 1024; ++i) {
        text.append(static_cast<std::size_t>(1 + i * 7 % 11), 'x').append(i % 5 == 0 ? ", " : " ");
    }
    text.resize(1024);
    return repeat([text] {
        const std::vector<std::string> tokens = oxil::StringUtil::getTokens(text, " ,");
        keep(tokens);
    });
}

Repeat startTimer(const Files& /*files*/)
{
    const auto timer = std::make_shared<oxil::Timer>();
    const std::function<void()> callback = [] {};
    return repeat([timer, callback] {
        require(timer->start(1000, callback) == oxil::STATUS_SUCCESS, "not started");
        timer->cancel();
    });
}

std::shared_ptr<oxil::LuaScript> loadScript(const Files& files)
{
    auto script = std::make_shared<oxil::LuaScript>(files.lua);
    require(script->load() == oxil::STATUS_SUCCESS, "script not loaded");
    return script;
}

Repeat loadLua(const Files& files)
{
    return repeat([files] { loadScript(files); });
}

Repeat callLua(const Files& files)
{
    const auto script = loadScript(files);
    const std::string name = "nothing";
    return repeat([script, name] {
        require(script->callMethod(name, std::tie()) == oxil::STATUS_SUCCESS, "not called");
    });
}

Repeat callLuaWithNumbers(const Files& files)
{
    const auto script = loadScript(files);
    const std::string name = "add";
    return repeat([script, name] {
        int sum = 0;
        script->callMethod(name, std::tie(sum), 40, 2);
        require(sum == 42, "not called");
    });
}

Repeat callLuaWithText(const Files& files)
{
    const auto script = loadScript(files);
    const std::string name = "same";
    const std::string text = "a text of thirty-two characters.";
    return repeat([script, name, text] {
        std::string result;
        script->callMethod(name, std::tie(result), text);
        require(result == text, "not called");
    });
}

Repeat callNative(const Files& files)
{
    const auto script = loadScript(files);
    const std::string name = "askNative";
    return repeat([script, name] {
        int answers = 0;
        script->callMethod(name, std::tie(answers), 100);
        require(answers == 100, "not called");
    });
}

template <typename... Text>
Repeat readXml(const Files& files, Text... text)
{
    return repeat([files, text...] {
        oxil::Xml xml(files.xml);
        int starts = 0;
        int ends = 0;
        std::size_t length = 0;
        xml.setOnStartElement(
            [&](const std::string&, const std::vector<std::string>&) { ++starts; });
        xml.setOnEndElement([&](const std::string&) { ++ends; });
        xml.setOnCharacters([&](const std::string& characters) { length += characters.size(); });
        require(xml.read(text...) == oxil::STATUS_SUCCESS && starts > 1000 && starts == ends &&
                    length > 0,
                "not read");
    });
}

Repeat readExactXml(const Files& files)
{
    return readXml(files, oxil::EXACT_TEXT);
}

Repeat readXmlRunningOn(const Files& files)
{
    return readXml(files);
}

Repeat readXmlTags(const Files& files)
{
    return repeat([files] {
        oxil::Xml xml(files.xml);
        int starts = 0;
        xml.setOnStartElement(
            [&](const std::string&, const std::vector<std::string>&) { ++starts; });
        require(xml.read() == oxil::STATUS_SUCCESS && starts > 1000, "not read");
    });
}

std::unique_ptr<oxil::XmlDocument> loadDocument(const Files& files)
{
    std::unique_ptr<oxil::XmlDocument> document(oxil::Xml(files.xml).load());
    require(document != nullptr, "not loaded");
    return document;
}

Repeat loadXml(const Files& files)
{
    return repeat([files] { loadDocument(files); });
}

constexpr Operation OPERATIONS[] = {
    // The loop itself, to be taken off the others.
    {"nothing", 100000, "Nothing", nothing},

    {"make-int", 100000, "`Variant` made of an `int`", makeInt},
    {"make-short-text", 20000, "`Variant` made of a text of 12 characters", makeShortText},
    {"make-long-text", 20000, "`Variant` made of a text of 32 characters", makeLongText},
    {"copy-int", 100000, "`Variant` copied, `int`", copyInt},
    {"copy-short-text", 20000, "`Variant` copied, text of 12 characters", copyShortText},
    {"copy-long-text", 20000, "`Variant` copied, text of 32 characters", copyLongText},
    {"int-to-int", 100000, "`Variant::toInt()` of an `int`", intToInt},
    {"int-to-double", 100000, "`Variant::toDouble()` of an `int`", intToDouble},
    {"int-to-string", 20000, "`Variant::toString()` of an `int`", intToString},
    {"double-to-string", 5000, "`Variant::toString()` of a `double`", doubleToString},
    {"parse-int", 20000, "`NumberParser::toInt()`, 7 digits", parseInt},
    {"tokenise", 1000, "`StringUtil::getTokens()` of 1 KB", tokenise},

    {"build-10", 2000, "`KeyValues` of 10 entries built", buildRecord<10>},
    {"look-up-10", 20000, "`KeyValues::getValue()` of the 9th of 10 entries", lookUp<10>},
    {"copy-10", 2000, "`KeyValues` of 10 entries copied", copyRecord<10>},
    {"build-100", 500, "`KeyValues` of 100 entries built", buildRecord<100>},
    {"look-up-100", 20000, "`KeyValues::getValue()` of the 99th of 100 entries", lookUp<100>},
    {"copy-100", 500, "`KeyValues` of 100 entries copied", copyRecord<100>},

    {"describe", 1000, "`SerializedData` made", describe},
    {"copy-description", 1000, "`SerializedData` made of a description", copyDescription},
    {"pack-10", 500, "Record of 10 entries packed into a new `SerializedData`", pack},
    {"validate-10", 5000, "`SerializedData::validate()` of that", validate},
    {"unpack-10", 500, "Record of 10 entries unpacked from a description and its data", unpack},

    {"timer", 5000, "`Timer` started and cancelled", startTimer},

    {"lua-load", 20, "`LuaScript` of 20 lines made, loaded and destroyed", loadLua},
    {"lua-call", 10000, "Lua function called, no parameter, no result", callLua},
    {"lua-call-numbers", 10000, "Lua function called, 2 numbers, 1 result", callLuaWithNumbers},
    {"lua-call-text", 10000, "Lua function called, 1 text, 1 result", callLuaWithText},
    {"lua-native", 500, "100 calls of `WaitingLoop.isRunning` from Lua", callNative},

    {"xml-tags", 5, "`Xml::read()` of 100 KB, start tags only", readXmlTags},
    {"xml-exact", 5, "`Xml::read(EXACT_TEXT)` of 100 KB, all events", readExactXml},
    {"xml-running-on", 1, "`Xml::read()` of 100 KB, all events", readXmlRunningOn},
    {"xml-load", 5, "`Xml::load()` of 100 KB, the tree destroyed again", loadXml},
};

int tellOperations()
{
    for (const Operation& operation : OPERATIONS) {
        std::printf("%s\t%d\t%s\n", operation.name, operation.times, operation.description);
    }
    return 0;
}

int run(const char* name, int times, const Files& files)
{
    for (const Operation& operation : OPERATIONS) {
        if (std::strcmp(operation.name, name) == 0) {
            operation.prepare(files)(times);
            return 0;
        }
    }
    require(false, "no such operation");
    return 3;
}

// ---- Growth --------------------------------------------------------------------------------------

/** Something that is done with as many items as it is told. */
struct Growing {
    const char* name;
    const char* description;
    Repeat (*prepare)(int size, const std::string& file);
};

/** Names of the same length, however many there are. */
std::vector<std::string> makeNames(int size)
{
    std::vector<std::string> names;
    for (int i = 0; i < size; ++i) {
        names.push_back("name" + std::to_string(100000 + i));
    }
    return names;
}

oxil::KeyValues makeRecord(const std::vector<std::string>& names)
{
    oxil::KeyValues record;
    for (const std::string& name : names) {
        record.add(name, 42);
    }
    return record;
}

Repeat growAdding(int size, const std::string& /*file*/)
{
    const std::vector<std::string> names = makeNames(size);
    return repeat([names] {
        const oxil::KeyValues record = makeRecord(names);
        keep(record);
    });
}

Repeat growLookingUp(int size, const std::string& /*file*/)
{
    const std::vector<std::string> names = makeNames(size);
    const oxil::KeyValues record = makeRecord(names);
    return repeat([record, names] {
        for (const std::string& name : names) {
            const oxil::Variant value = record.getValue(name);
            keep(value);
        }
    });
}

std::shared_ptr<oxil::SerializedData> packList(const std::vector<oxil::KeyValues>& records)
{
    auto data = std::make_shared<oxil::SerializedData>();
    require(oxil::Serializer::serialize(records, *data, oxil::REPEATABLE) == oxil::STATUS_SUCCESS,
            "not packed");
    return data;
}

std::vector<oxil::KeyValues> makeList(int size)
{
    return std::vector<oxil::KeyValues>(static_cast<std::size_t>(size), makeRecord(4));
}

Repeat growPacking(int size, const std::string& /*file*/)
{
    const std::vector<oxil::KeyValues> records = makeList(size);
    return repeat([records] { packList(records); });
}

Repeat growUnpacking(int size, const std::string& /*file*/)
{
    const auto packed = packList(makeList(size));
    return repeat([packed, size] {
        oxil::SerializedData data(packed->getSerializationInfo());
        data.setData(static_cast<const void*>(packed->getData()));
        std::vector<oxil::KeyValues> records;
        require(oxil::Serializer::deserialize(data, records, oxil::REPEATABLE) ==
                        oxil::STATUS_SUCCESS &&
                    records.size() == static_cast<std::size_t>(size),
                "not unpacked");
    });
}

Repeat growTokenising(int size, const std::string& /*file*/)
{
    std::string text;
    for (const std::string& name : makeNames(size)) {
        text += name + ' ';
    }
    return repeat([text, size] {
        require(oxil::StringUtil::getTokens(text, " ,").size() == static_cast<std::size_t>(size),
                "not tokenised");
    });
}

Repeat growReading(int size, const std::string& file)
{
    std::ofstream document(file);
    document << "<catalogue>";
    for (const std::string& name : makeNames(size)) {
        document << "\n  <item id=\"" << name << "\">Hall</item>";
    }
    document << "\n</catalogue>\n";
    document.close();
    require(!document.fail(), "document not written");

    return repeat([file, size] {
        oxil::Xml xml(file);
        int starts = 0;
        int ends = 0;
        std::size_t length = 0;
        xml.setOnStartElement(
            [&](const std::string&, const std::vector<std::string>&) { ++starts; });
        xml.setOnEndElement([&](const std::string&) { ++ends; });
        xml.setOnCharacters([&](const std::string& text) { length += text.size(); });
        require(xml.read(oxil::EXACT_TEXT) == oxil::STATUS_SUCCESS && starts == size + 1 &&
                    ends == starts && length > 0,
                "not read");
    });
}

Repeat growWriting(int size, const std::string& file)
{
    const std::vector<std::string> names = makeNames(size);
    return repeat([names, file] {
        oxil::XmlDocument document;
        oxil::XmlNode root("catalogue");
        for (const std::string& name : names) {
            auto* item = new oxil::XmlNode("item");
            item->setAttribute("id", name);
            item->setContent("Hall");
            root.addChild(item);
        }
        document.setRootNode(&root);
        document.setOutputFilePath(file);
        require(document.write() == oxil::STATUS_SUCCESS, "not written");
    });
}

constexpr Growing GROWING[] = {
    {"add", "Entry added to a record of so many, `KeyValues::add()`", growAdding},
    {"look-up", "Entry looked up in a record of so many, `KeyValues::getValue()`", growLookingUp},
    {"pack", "Record of 4 entries packed into a list, `REPEATABLE`", growPacking},
    {"unpack", "Record of 4 entries unpacked from a list, `REPEATABLE`", growUnpacking},
    {"tokenise", "Token found by `StringUtil::getTokens()`", growTokenising},
    {"xml-read", "XML element read by `Xml::read(EXACT_TEXT)`, all events", growReading},
    {"xml-write", "XML element built, written by `XmlDocument::write()`, destroyed", growWriting},
};

int tellGrowing()
{
    for (const Growing& growing : GROWING) {
        std::printf("%s\t%s\n", growing.name, growing.description);
    }
    return 0;
}

int grow(const char* name, int size, int times, const std::string& file)
{
    for (const Growing& growing : GROWING) {
        if (std::strcmp(growing.name, name) == 0) {
            growing.prepare(size, file)(times);
            return 0;
        }
    }
    require(false, "no such operation");
    return 3;
}

// ---- Memory --------------------------------------------------------------------------------------

/** Bytes that the program has from malloc, what malloc needs for itself included. */
std::size_t heapInUse()
{
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

/** @param make  makes one with new */
template <typename Make>
void tellMemory(const char* description, Make make)
{
    const std::size_t before = heapInUse();
    const auto first = make();
    const std::size_t between = heapInUse();
    const auto second = make();
    const std::size_t after = heapInUse();
    std::printf("%s\t%zu\t%zu\t%zu\n", description, sizeof *first, between - before,
                after - between);
}

int tellMemory(const Files& files)
{
    std::setvbuf(stdout, nullptr, _IONBF, 0);  // no buffer that comes into being on the way

    tellMemory("`Variant` of a number", [] { return std::make_unique<oxil::Variant>(42); });
    tellMemory("`Variant` of a text of 32 characters",
               [] { return std::make_unique<oxil::Variant>("a text of thirty-two characters."); });
    tellMemory("`KeyValue`, made", [] { return std::make_unique<oxil::KeyValue>(); });
    tellMemory("`KeyValues`, made", [] { return std::make_unique<oxil::KeyValues>(); });
    tellMemory("`KeyValues` of 10 entries",
               [] { return std::make_unique<oxil::KeyValues>(makeRecord(10)); });
    tellMemory("`KeyValues` of 100 entries",
               [] { return std::make_unique<oxil::KeyValues>(makeRecord(100)); });
    tellMemory("`SerializedData`, made, with its description",
               [] { return std::make_unique<oxil::SerializedData>(); });
    tellMemory("`SerializedData` with a record of 10 entries", [] {
        auto data = std::make_unique<oxil::SerializedData>();
        require(oxil::Serializer::serialize(makeRecord(10), *data) == oxil::STATUS_SUCCESS,
                "not packed");
        return data;
    });
    tellMemory("the same, its values read", [] {
        auto data = std::make_unique<oxil::SerializedData>();
        require(oxil::Serializer::serialize(makeRecord(10), *data) == oxil::STATUS_SUCCESS &&
                    data->getValues() != nullptr,
                "not read");
        return data;
    });
    tellMemory("`Timer`, made", [] { return std::make_unique<oxil::Timer>(); });
    tellMemory("`Timer`, started", [] {
        auto timer = std::make_unique<oxil::Timer>();
        require(timer->start(1000, [] {}) == oxil::STATUS_SUCCESS, "not started");
        return timer;
    });
    tellMemory("`WaitingLoop`, made", [] { return std::make_unique<oxil::WaitingLoop>(); });
    tellMemory("`LuaScript`, made", [&] { return std::make_unique<oxil::LuaScript>(files.lua); });
    tellMemory("`LuaScript`, loaded", [&] {
        auto script = std::make_unique<oxil::LuaScript>(files.lua);
        require(script->load() == oxil::STATUS_SUCCESS, "script not loaded");
        return script;
    });
    tellMemory("`Xml`, made", [&] { return std::make_unique<oxil::Xml>(files.xml); });
    tellMemory("`XmlDocument` of 100 KB", [&] { return loadDocument(files); });

    return 0;
}

}  // namespace

int main(int argc, char** argv)
{
    const std::string command = argc > 1 ? argv[1] : "";
    if (command == "operations" && argc == 2) {
        return tellOperations();
    }
    if (command == "run" && argc == 6) {
        return run(argv[2], std::atoi(argv[3]), {argv[4], argv[5]});
    }
    if (command == "growing" && argc == 2) {
        return tellGrowing();
    }
    if (command == "grow" && argc == 6) {
        return grow(argv[2], std::atoi(argv[3]), std::atoi(argv[4]), argv[5]);
    }
    if (command == "memory" && argc == 4) {
        return tellMemory({argv[2], argv[3]});
    }
    if (command == "libc" && argc == 2) {
        std::puts(gnu_get_libc_version());
        return 0;
    }
    require(false, "see the source for what it wants");
}
