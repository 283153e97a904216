// What tools/footprint counts: something is done with many items, again and again, so that the
// difference between two runs is the cost of the items alone.
//
// footprint                        name and description of what there is to do, with a tab between
// footprint NAME SIZE TIMES FILE   does it with SIZE items; FILE is what it reads or writes, if it does

#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
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
    return std::vector<oxil::KeyValues>(static_cast<std::size_t>(size), makeRecord(makeNames(4)));
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

}  // namespace

int main(int argc, char** argv)
{
    if (argc == 1) {
        for (const Growing& growing : GROWING) {
            std::printf("%s\t%s\n", growing.name, growing.description);
        }
        return 0;
    }
    require(argc == 5, "see the source for what it wants");
    for (const Growing& growing : GROWING) {
        if (std::strcmp(growing.name, argv[1]) == 0) {
            growing.prepare(std::atoi(argv[2]), argv[4])(std::atoi(argv[3]));
            return 0;
        }
    }
    require(false, "there is nothing of this name to do");
}
