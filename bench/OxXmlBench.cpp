// Reading XML as a stream of events.

#include "OxXml.h"

#include <libxml/parser.h>

#include <cstddef>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#ifdef HAS_EXPAT
#include <expat.h>
#endif
#ifdef HAS_LIBXMLPP
#include <libxml++/libxml++.h>
#endif

#include "Bench.h"
#include "OxStatus.h"
#include "TemporaryFile.h"

namespace oxil::bench {
namespace {

/** What a reader has seen of a document; text counts in bytes, and only if it is asked for. */
struct Events {
    std::size_t starts = 0;
    std::size_t attributes = 0;
    std::size_t ends = 0;
    std::size_t text = 0;

    bool operator==(const Events& other) const
    {
        return starts == other.starts && attributes == other.attributes && ends == other.ends &&
               text == other.text;
    }
};

/** A layout: groups of widgets, one to a line, each with attributes and a caption. */
class Layout {
public:
    explicit Layout(int widgets)
    {
        open("layout", "");
        for (int i = 0; i < widgets; ++i) {
            addWidget();
        }
        endGroup();
        close("layout");
    }

    const std::string& getContent() const { return __content; }

    /** All of them, or without text. */
    Events getEvents(bool withText) const
    {
        Events events = __events;
        events.text = withText ? events.text : 0;
        return events;
    }

private:
    void addWidget()
    {
        constexpr std::size_t PER_GROUP = 50;

        if (__count % PER_GROUP == 0) {
            endGroup();
            text("\n  ");
            open("group", R"( title="a group of widgets" visible="true")");
            __events.attributes += 2;
            __inGroup = true;
        }
        const std::string number = std::to_string(++__count);
        text("\n    ");
        open("widget", " id=\"w" + number + "\" x=\"" + number + R"(" y="20" width="320")");
        __events.attributes += 4;
        text("Caption of widget " + number);
        if (__count % 10 == 0) {
            __content += " &amp; more";
            __events.text += std::strlen(" & more");
        }
        close("widget");
    }

    void open(const std::string& name, const std::string& attributes)
    {
        __content += '<' + name + attributes + '>';
        ++__events.starts;
    }

    void close(const std::string& name)
    {
        __content += "</" + name + '>';
        ++__events.ends;
    }

    void text(const std::string& text)
    {
        __content += text;
        __events.text += text.size();
    }

    void endGroup()
    {
        if (__inGroup) {
            text("\n  ");
            close("group");
        }
    }

    std::string __content;
    Events __events;
    std::size_t __count = 0;
    bool __inGroup = false;
};

// ---- The engine itself

/** A name and a value for each attribute, and null behind them. */
template <typename Character>
std::size_t countAttributes(const Character** attributes)
{
    std::size_t count = 0;
    while (attributes != nullptr && attributes[count] != nullptr) {
        ++count;
    }
    return count / 2;
}

/** A file in memory, for those who parse from there. */
struct Content {
    explicit Content(const std::string& path)
    {
        const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "r"),
                                                                   std::fclose);
        std::fseek(file.get(), 0, SEEK_END);
        const auto length = static_cast<std::size_t>(std::ftell(file.get()));
        std::rewind(file.get());
        data.reset(new char[length]);
        size = static_cast<int>(std::fread(data.get(), 1, length, file.get()));
    }

    std::unique_ptr<char[]> data;
    int size;
};

Events readByLibxml(const std::string& path, bool withText)
{
    xmlSAXHandler handlers{};
    handlers.startElement = [](void* events, const xmlChar*, const xmlChar** attributes) {
        ++static_cast<Events*>(events)->starts;
        static_cast<Events*>(events)->attributes += countAttributes(attributes);
    };
    handlers.endElement = [](void* events, const xmlChar*) {
        ++static_cast<Events*>(events)->ends;
    };
    if (withText) {
        handlers.characters = [](void* events, const xmlChar*, int length) {
            static_cast<Events*>(events)->text += static_cast<std::size_t>(length);
        };
    }

    Events events;
    const Content content(path);
    const bool done =
        xmlSAXUserParseMemory(&handlers, &events, content.data.get(), content.size) == 0;
    return done ? events : Events();
}

// ---- The library

Events readByOxil(const std::string& path, bool withText)
{
    Events events;
    Xml xml;
    xml.setOnStartElement([&](const std::string&, const std::vector<std::string>& attributes) {
        ++events.starts;
        events.attributes += attributes.size() / 2;
    });
    xml.setOnEndElement([&](const std::string&) { ++events.ends; });
    if (withText) {
        xml.setOnCharacters([&](const std::string& text) { events.text += text.size(); });
    }
    const int r = withText ? xml.read(path, EXACT_TEXT) : xml.read(path);
    return r == STATUS_SUCCESS ? events : Events();
}

// ---- Peers

#ifdef HAS_EXPAT
Events readByExpat(const std::string& path, bool withText)
{
    Events events;
    const std::unique_ptr<XML_ParserStruct, void (*)(XML_Parser)> parser(XML_ParserCreate(nullptr),
                                                                         XML_ParserFree);
    XML_SetUserData(parser.get(), &events);
    XML_SetElementHandler(
        parser.get(),
        [](void* seen, const XML_Char*, const XML_Char** attributes) {
            ++static_cast<Events*>(seen)->starts;
            static_cast<Events*>(seen)->attributes += countAttributes(attributes);
        },
        [](void* seen, const XML_Char*) { ++static_cast<Events*>(seen)->ends; });
    if (withText) {
        XML_SetCharacterDataHandler(parser.get(), [](void* seen, const XML_Char*, int length) {
            static_cast<Events*>(seen)->text += static_cast<std::size_t>(length);
        });
    }
    const Content content(path);
    const bool done =
        XML_Parse(parser.get(), content.data.get(), content.size, XML_TRUE) == XML_STATUS_OK;
    return done ? events : Events();
}
#endif

#ifdef HAS_LIBXMLPP
class Counter : public xmlpp::SaxParser {
public:
    explicit Counter(bool withText) : __withText(withText) {}

    Events events;

protected:
    void on_start_element(const Glib::ustring&, const AttributeList& attributes) override
    {
        ++events.starts;
        events.attributes += attributes.size();
    }

    void on_end_element(const Glib::ustring&) override { ++events.ends; }

    void on_characters(const Glib::ustring& text) override
    {
        events.text += __withText ? text.bytes() : 0;
    }

private:
    bool __withText;
};

Events readByLibxmlpp(const std::string& path, bool withText)
{
    Counter counter(withText);
    counter.parse_file(path);
    return counter.events;
}
#endif

// ---- The operations

template <typename Read>
void addReading(const std::string& contender, const Read& read, const std::vector<int>& sizes)
{
    for (const bool withText : {false, true}) {
        const std::string operation = withText ? "XML events with exact text, per widget"
                                               : "XML events without text, per widget";
        for (const int widgets : sizes) {
            add(operation, contender, widgets, [=](benchmark::State& state, int) {
                const Layout layout(widgets);
                const TemporaryFile file(layout.getContent());
                expect(state, read(file.path(), withText) == layout.getEvents(withText));
                for (auto _ : state) {
                    benchmark::DoNotOptimize(read(file.path(), withText));
                }
                state.SetItemsProcessed(state.iterations() * widgets);
            });
        }
    }
}

}  // namespace
}  // namespace oxil::bench

int main(int argc, char** argv)
{
    using namespace oxil::bench;

    addReading("floor: libxml2", readByLibxml, {10000, 100000});
    addReading("oxil", readByOxil, {10, 100, 1000, 10000, 100000});
#ifdef HAS_EXPAT
    addReading("expat", readByExpat, {10000, 100000});
#endif
#ifdef HAS_LIBXMLPP
    addReading("libxml++", readByLibxmlpp, {10000, 100000});
#endif
    return run(argc, argv);
}
