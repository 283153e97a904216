// Documents as events: they are those of libxml2's own event stream, whichever way a document is read,
// whoever listens, and whatever is done from inside one of them.

#include <OxPlainFile.h>
#include <OxStatus.h>
#include <OxXml.h>
#include <libxml/parser.h>
#include <libxml/parserInternals.h>
#include <libxml/tree.h>

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "Fuzz.h"
#include "Input.h"
#include "MemoryFile.h"
#include "XmlEngine.h"

namespace {

using namespace oxil;
using fuzz::Input;

using Texts = std::vector<std::string>;

enum class Way { Text, PlainFile, ExactFile, File };

enum class Reaction {
    None,
    Throw,
    ReplaceFunctions,
    RemoveFunctions,
    ReplaceListener,
    RemoveListener,
    ReadOther,  // with another reader, whose function throws at the end
    ReadSame    // with this reader, and with a copy of it, and an event without a document
};

/** What is done when so many events have been noted. */
struct Plan {
    Reaction reaction;
    std::size_t when;
};

std::string startEvent(const std::string& name, const Texts& attributes)
{
    std::string event = "start " + name;
    for (const std::string& attribute : attributes) {
        event += "|" + attribute;
    }
    return event;
}

// ---- libxml2's own events

struct Events {
    Texts list;
    bool isExact;
    bool isWellFormed;
};

const char* toChars(const xmlChar* text)
{
    return reinterpret_cast<const char*>(text);
}

Events parse(std::string_view document, bool isExact)
{
    Events events = {{}, isExact, false};
    const std::unique_ptr<xmlParserCtxt, void (*)(xmlParserCtxtPtr)> context(
        xmlCreateMemoryParserCtxt(document.data(), static_cast<int>(document.size())),
        [](xmlParserCtxtPtr parser) {
            if (parser != nullptr) {
                xmlFreeDoc(parser->myDoc);
            }
            xmlFreeParserCtxt(parser);
        });
    if (context == nullptr) {
        return events;
    }
    xmlSAXHandler handler = {};
    handler.startElement = [](void* data, const xmlChar* name, const xmlChar** attributes) {
        Texts texts;
        for (; attributes != nullptr && *attributes != nullptr; ++attributes) {
            texts.emplace_back(toChars(*attributes));
        }
        static_cast<Events*>(data)->list.push_back(startEvent(toChars(name), texts));
    };
    handler.endElement = [](void* data, const xmlChar* name) {
        static_cast<Events*>(data)->list.push_back(std::string("end ") + toChars(name));
    };
    handler.characters = [](void* data, const xmlChar* text, int length) {
        auto& into = *static_cast<Events*>(data);
        const std::string run = into.isExact
                                    ? std::string(toChars(text), static_cast<std::size_t>(length))
                                    : std::string(toChars(text));
        into.list.push_back("text " + run);
    };
    *context->sax = handler;
    context->userData = &events;
    if (isExact) {
        xmlCtxtUseOptions(context.get(), XML_PARSE_NOENT);
    }
    xmlParseDocument(context.get());
    events.isWellFormed = context->wellFormed != 0;
    return events;
}

// ---- What should be noted

/** A reader as its header describes it: listener first, and both looked at for each event. */
class Model {
public:
    Model(const Plan& plan, const std::string& other, int receivers) : __plan(plan), __other(other)
    {
        __listener = receivers % 2 != 0 ? "listener " : "";
        __function = receivers / 2 != 0 ? "function " : "";
    }

    void read(const Events& events)
    {
        for (const std::string& event : events.list) {
            __deliver(event);
            if (__hasThrown) {
                return;
            }
        }
    }

    const Texts& notes() const { return __notes; }
    bool hasThrown() const { return __hasThrown; }

private:
    void __deliver(const std::string& event)
    {
        if (!__listener.empty()) {
            __note(__listener + event);
        }
        if (!__function.empty() && !__hasThrown) {
            __note(__function + event);
        }
    }

    void __note(const std::string& note)
    {
        __notes.push_back(note);
        if (__notes.size() != __plan.when) {
            return;
        }
        switch (__plan.reaction) {
            case Reaction::None:
                break;
            case Reaction::Throw:
                __hasThrown = true;
                break;
            case Reaction::ReplaceFunctions:
                __function = "replaced ";
                break;
            case Reaction::RemoveFunctions:
                __function.clear();
                break;
            case Reaction::ReplaceListener:
                __listener = "other ";
                break;
            case Reaction::RemoveListener:
                __listener.clear();
                break;
            case Reaction::ReadOther:
                for (const std::string& event : parse(__other, true).list) {
                    if (event.compare(0, 4, "text") == 0) {
                        __notes.push_back("nested " + event);
                    }
                }
                break;
            case Reaction::ReadSame:
                read(parse(__other, true));
                read(parse(__other, true));
                __deliver("text direct");
                break;
        }
    }

    Plan __plan;
    std::string __other;
    std::string __listener;
    std::string __function;
    Texts __notes;
    bool __hasThrown = false;
};

// ---- What is noted

class Subject;

class Listener : public IXmlEventListener {
public:
    Listener(Subject& subject, const std::string& prefix) : __subject(subject), __prefix(prefix) {}

    void onStartElement(const std::string& name, const Texts& attributes) override;
    void onEndElement(const std::string& name) override;
    void onCharacters(const std::string& text) override;

private:
    Subject& __subject;
    std::string __prefix;
};

/** A reader with its receivers. */
class Subject {
public:
    Subject(const Plan& plan, const std::string& other, int receivers)
        : __plan(plan), __other(other)
    {
        if (receivers % 2 != 0) {
            __xml.setXmlEventListener(&__listener);
        }
        if (receivers / 2 != 0) {
            __setFunctions("function ");
        }
    }

    Xml& xml() { return __xml; }
    const Texts& notes() const { return __notes; }

    void note(const std::string& note)
    {
        __notes.push_back(note);
        if (__notes.size() == __plan.when) {
            __react();
        }
    }

private:
    void __setFunctions(const std::string& prefix)
    {
        __xml.setOnStartElement([this, prefix](const std::string& name, const Texts& attributes) {
            note(prefix + startEvent(name, attributes));
        });
        __xml.setOnEndElement(
            [this, prefix](const std::string& name) { note(prefix + "end " + name); });
        // What is captured lasts until the call returns, also if it replaces itself.
        __xml.setOnCharacters([this, prefix](const std::string& text) {
            const std::string before = prefix + "text " + text;
            note(before);
            FUZZ_REQUIRE(prefix + "text " + text == before);
        });
    }

    void __react()
    {
        switch (__plan.reaction) {
            case Reaction::None:
                break;
            case Reaction::Throw:
                throw std::runtime_error("thrown");
            case Reaction::ReplaceFunctions:
                __setFunctions("replaced ");
                break;
            case Reaction::RemoveFunctions:
                __xml.setOnStartElement(nullptr);
                __xml.setOnEndElement(nullptr);
                __xml.setOnCharacters(nullptr);
                break;
            case Reaction::ReplaceListener:
                __xml.setXmlEventListener(&__otherListener);
                break;
            case Reaction::RemoveListener:
                __xml.setXmlEventListener(nullptr);
                break;
            case Reaction::ReadOther:
                __readOther();
                break;
            case Reaction::ReadSame: {
                const int expected =
                    parse(__other, true).isWellFormed ? STATUS_SUCCESS : STATUS_INVALID_PARAMETER;
                FUZZ_REQUIRE(__xml.readText(__other) == expected);
                Xml copy(__xml);
                FUZZ_REQUIRE(copy.readText(__other) == expected);
                __xml.__onCharacters("direct", 6);
                break;
            }
        }
    }

    void __readOther()
    {
        const Events expected = parse(__other, true);
        const fuzz::MemoryFile file(__other);
        Xml other(file.path());
        std::size_t count = 0;
        other.setOnStartElement([&](const std::string&, const Texts&) { ++count; });
        other.setOnCharacters([&](const std::string& text) {
            ++count;
            __notes.push_back("nested text " + text);
        });
        other.setOnEndElement([&](const std::string&) {
            if (++count == expected.list.size()) {
                throw std::length_error("over");
            }
        });
        try {
            const int status = other.read(EXACT_TEXT);
            FUZZ_REQUIRE((status == STATUS_SUCCESS) == expected.isWellFormed);
        } catch (const std::length_error&) {
            FUZZ_REQUIRE(count == expected.list.size());
        }
    }

    Plan __plan;
    std::string __other;
    Listener __listener{*this, "listener "};
    Listener __otherListener{*this, "other "};
    Texts __notes;
    Xml __xml;
};

void Listener::onStartElement(const std::string& name, const Texts& attributes)
{
    __subject.note(__prefix + startEvent(name, attributes));
}

void Listener::onEndElement(const std::string& name)
{
    __subject.note(__prefix + "end " + name);
}

void Listener::onCharacters(const std::string& text)
{
    __subject.note(__prefix + "text " + text);
}

int read(Xml& xml, std::string_view document, Way way)
{
    if (way == Way::Text) {
        return xml.readText(document);
    }
    const fuzz::MemoryFile file(document);
    switch (way) {
        case Way::PlainFile:
            return xml.read(file.path(), PLAIN_FILE);
        case Way::ExactFile:
            return xml.read(file.path(), EXACT_TEXT);
        default:
            return xml.read(file.path());
    }
}

[[maybe_unused]] const bool isIsolated = (fuzz::isolateXmlEngine(), true);

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size)
{
    Input input(bytes, size);
    const auto way = static_cast<Way>(input.below(4));
    const int receivers = input.below(4);
    const auto reaction = static_cast<Reaction>(input.below(8));
    const Plan plan = {reaction, static_cast<std::size_t>(input.below(16))};
    const std::string_view document = input.until("\n----\n");
    const std::string other(input.rest());

    const Events events = parse(document, way != Way::File);
    Model model(plan, other, receivers);
    model.read(events);
    int expected = events.isWellFormed ? STATUS_SUCCESS : STATUS_INVALID_PARAMETER;
    if (document.empty() && way != Way::Text) {
        expected = STATUS_INVALID_STATE;
    }

    Subject subject(plan, other, receivers);
    fuzz::clearLog();
    try {
        const int status = read(subject.xml(), document, way);
        FUZZ_REQUIRE(!model.hasThrown());
        FUZZ_REQUIRE(status == expected);
        if (plan.when == 0) {
            FUZZ_REQUIRE(fuzz::countLogged() == (expected == STATUS_SUCCESS ? 0 : 1));
        }
    } catch (const std::runtime_error& error) {
        FUZZ_REQUIRE(model.hasThrown() && std::string_view(error.what()) == "thrown");
        FUZZ_REQUIRE(fuzz::countLogged() == 0);
    }
    FUZZ_REQUIRE(subject.notes() == model.notes());
    return 0;
}
