#include "OxXml.h"

#include <libxml/parser.h>
#include <libxml/parserInternals.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <exception>
#include <memory>
#include <new>
#include <optional>

#include "OxLog.h"
#include "OxStatus.h"
#include "OxXmlDocument.h"
#include "internal/OxRunningFunction.h"
#include "internal/OxXmlEngine.h"
#include "internal/OxXmlFile.h"
#include "internal/OxXmlText.h"

namespace oxil {
namespace {

using internal::toText;

/** The texts of an event. */
struct Texts {
    std::string name;
    std::string text;
    std::vector<std::string> attributes;
    bool inUse = false;
};

/** One run of the event parser. Runs nest, when an event reads another file. */
class Parse {
public:
    /** As xmlSAXUserParseMemory() prepares it; that function has no way of being stopped. */
    Parse(const xmlSAXHandler& handlers, Xml& xml, const char* buffer, int size, int options = 0)
        : __context(nullptr, __freeContext), __outer(__innermost)
    {
        __innermost = this;
        xmlInitParser();
        forgetMemoryError();
        __context.reset(xmlCreateMemoryParserCtxt(buffer, size));
        if (__context != nullptr) {
            *__context->sax = handlers;
            __context->userData = &xml;
            if (options != 0) {
                xmlCtxtUseOptions(__context.get(), options);
            }
        }
    }

    ~Parse() { __innermost = __outer; }

    Parse(const Parse&) = delete;
    Parse& operator=(const Parse&) = delete;

    /** Delivers the events; false if the document is malformed, or if some of it may be missing
     *  for want of memory. Throws what an event threw. */
    bool run()
    {
        if (__context == nullptr) {
            return false;
        }
        xmlParseDocument(__context.get());
        if (__exception != nullptr) {
            std::rethrow_exception(__exception);
        }
        return __context->wellFormed != 0 && !__outOfMemory && !__hasRunOut();
    }

    /** Keeps the current exception and ends the __innermost run: the parser is C, and an exception
     *  must not pass through its frames. */
    static void stop() noexcept
    {
        __innermost->__exception = std::current_exception();
        xmlStopParser(__innermost->__context.get());
    }

    /** Null outside of runs. */
    static Parse* getInnermost() noexcept { return __innermost; }

    /** What is kept from one event to the next. */
    Texts& getTexts() noexcept { return __texts; }

    /** Before an event: the application may use the engine, and change its last error. */
    void keepMemoryError() noexcept
    {
        if (__hasRunOut()) {
            __outOfMemory = true;
        }
    }

    /** After an event: what the application had no memory for doesn't concern the run. */
    void forgetMemoryError() noexcept
    {
        if (__hasRunOut()) {
            xmlResetLastError();
        }
    }

private:
    bool __hasRunOut() const noexcept { return __lastError->code == XML_ERR_NO_MEMORY; }

    static void __freeContext(xmlParserCtxtPtr context)
    {
        xmlFreeDoc(context->myDoc);  // made for declarations in the document
        xmlFreeParserCtxt(context);
    }

    static thread_local Parse* __innermost;

    std::unique_ptr<xmlParserCtxt, void (*)(xmlParserCtxtPtr)> __context;
    std::exception_ptr __exception;
    Texts __texts;
    const xmlError* __lastError = internal::lastEngineError();
    bool __outOfMemory = false;
    Parse* __outer;
};

thread_local Parse* Parse::__innermost = nullptr;

/**
 * The texts of the current event, in the storage of the one before: most are like it.
 *
 * An event that is delivered from inside another one gets its own. Elements with four attributes
 * take 0.76 of the instructions that way (callgrind).
 */
class EventTexts {
public:
    EventTexts() noexcept : __parse(Parse::getInnermost())
    {
        if (__parse != nullptr) {
            __parse->keepMemoryError();
        }
        const bool isKeptFree = __parse != nullptr && !__parse->getTexts().inUse;
        __texts = isKeptFree ? &__parse->getTexts() : &__own.emplace();
        __texts->inUse = true;
    }

    ~EventTexts()
    {
        if (__parse != nullptr) {
            __parse->forgetMemoryError();
        }
        __texts->inUse = false;
    }

    EventTexts(const EventTexts&) = delete;
    EventTexts& operator=(const EventTexts&) = delete;

    Texts* operator->() const noexcept { return __texts; }

private:
    Parse* __parse;
    std::optional<Texts> __own;
    Texts* __texts;
};

/** As an assignment, which takes longer: it reckons with a source inside the destination. */
void assign(std::string& text, const char* source, std::size_t size)
{
    text.clear();
    text.append(source, size);
}

void assign(std::string& text, const char* source)
{
    assign(text, source, std::strlen(source));
}

/** Names often are those of the event before, and to compare is cheaper than to copy. */
void assignName(std::string& text, const char* name)
{
    if (std::strcmp(text.c_str(), name) != 0) {
        assign(text, name);
    }
}

/** @param attributes  name, value, name, value, ..., ended by null, or null itself */
void assignAttributes(std::vector<std::string>& list, const char** attributes)
{
    std::size_t count = 0;
    for (; attributes != nullptr && attributes[count] != nullptr; ++count) {
        if (count == list.size()) {
            list.emplace_back(attributes[count]);
        } else if (count % 2 == 0) {
            assignName(list[count], attributes[count]);
        } else {
            assign(list[count], attributes[count]);
        }
    }
    list.resize(count);
}

// ---- Events

template <typename Callback>
bool isHeard(const IXmlEventListener* listener, const Callback& callback)
{
    return listener != nullptr || bool(callback);
}

/** Tells the listener of an event, and then the function that is set for it. */
template <typename Event, typename Callback, typename... EventText>
void deliver(IXmlEventListener* listener, Event event, Callback& callback,
             const EventText&... texts)
{
    if (listener != nullptr) {
        (listener->*event)(texts...);
    }
    // The listener may have set or removed it.
    if (callback) {
        callback(texts...);
    }
}

// ---- Handlers, called by the parser, and named as the log shows them

void startElement(void* context, const xmlChar* name, const xmlChar** attributes) noexcept
{
    if (context == nullptr) {
        OX_ERROR("Please check context.");
        return;
    }
    if (name == nullptr) {
        OX_ERROR("Invalid parameter,");
        return;
    }
    try {
        static_cast<Xml*>(context)->__onStartElement(toText(name),
                                                     reinterpret_cast<const char**>(attributes));
    } catch (...) {
        Parse::stop();
    }
}

void endElement(void* context, const xmlChar* name) noexcept
{
    if (context == nullptr) {
        OX_ERROR("Please check context.");
        return;
    }
    if (name == nullptr) {
        OX_ERROR("Invalid parameter,");
        return;
    }
    try {
        static_cast<Xml*>(context)->__onEndElement(toText(name));
    } catch (...) {
        Parse::stop();
    }
}

template <void (Xml::*DELIVER)(const char*, int)>
void characters(void* context, const xmlChar* text, int length) noexcept
{
    if (context == nullptr) {
        OX_ERROR("Please check context.");
        return;
    }
    if (text == nullptr) {
        OX_ERROR("Invalid parameter,");
        return;
    }
    try {
        (static_cast<Xml*>(context)->*DELIVER)(toText(text), length);
    } catch (...) {
        Parse::stop();
    }
}

/** These three entries and no others keep the parser in its first-generation mode. */
constexpr xmlSAXHandler makeHandlers(charactersSAXFunc onCharacters)
{
    xmlSAXHandler handlers{};
    handlers.startElement = startElement;
    handlers.endElement = endElement;
    handlers.characters = onCharacters;
    return handlers;
}

constexpr xmlSAXHandler HANDLERS = makeHandlers(characters<&Xml::__onCharacters>);
constexpr xmlSAXHandler EXACT_HANDLERS = makeHandlers(characters<&Xml::__onExactCharacters>);

/** Has references in attributes replaced. Those to entities of the document itself don't count,
 *  because no handler makes them known. */
constexpr int EXACT_OPTIONS = XML_PARSE_NOENT;

/** Delivers the events of a document in memory; false as Parse::run(). */
bool deliverExactly(Xml& xml, std::string_view text)
{
    internal::EngineUse use;
    if (!Parse(EXACT_HANDLERS, xml, text.data(), static_cast<int>(text.size()), EXACT_OPTIONS)
             .run()) {
        return false;
    }
    use.cleanUpMemory();
    return true;
}

/** Line ends are what may stand behind any document: a NUL is not, to newer parsers. */
void fillWithLineEnds(char* text, std::size_t begin, std::size_t end)
{
    std::memset(text + begin, '\n', end - begin);
    const bool isLittleEndian = text[1] == '\0' || std::memcmp(text, "\xff\xfe", 2) == 0;
    const bool isBigEndian = text[0] == '\0' || std::memcmp(text, "\xfe\xff", 2) == 0;
    if (isLittleEndian || isBigEndian) {
        for (std::size_t i = begin; i < end; ++i) {
            if (i % 2 == (isLittleEndian ? 1 : 0)) {
                text[i] = '\0';
            }
        }
    }
}

/** Parses a file into a tree, as load() does.
 *  @param error  0, or what `errno` has a name for, after null */
xmlDocPtr parseFile(const std::string& path, int& error)
{
    const internal::EngineUse use;
    internal::MemoryWatch watch;
    errno = 0;  // so that no earlier failure is blamed for malformed XML
    xmlDocPtr document = xmlParseFile(path.c_str());
    error = errno;
    if (watch.hasRunOut()) {
        error = ENOMEM;
        xmlFreeDoc(document);  // nobody knows what it lacks
        return nullptr;
    }
    return document;
}

}  // namespace

IXmlEventListener::~IXmlEventListener() = default;

Xml::Xml() = default;

Xml::Xml(const std::string& xmlFilePath) : __xmlFilePath(xmlFilePath) {}

Xml::Xml(const Xml& other) = default;

Xml& Xml::operator=(const Xml& other) = default;

Xml::~Xml() = default;

int Xml::read(const std::string& xmlFilePath)
{
    return read(xmlFilePath, HANDLERS);
}

int Xml::read()
{
    return read(__xmlFilePath);
}

int Xml::read(const std::string& xmlFilePath, ExactText)
{
    return read(xmlFilePath, EXACT_HANDLERS);
}

int Xml::read(ExactText)
{
    return read(__xmlFilePath, EXACT_TEXT);
}

int Xml::read(const std::string& xmlFilePath, const _xmlSAXHandler& handlers)
{
    if (xmlFilePath.empty()) {
        OX_ERROR("xmlFilePath is empty string.");
        return STATUS_INVALID_STATE;
    }
    __xmlFilePath = xmlFilePath;

    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(
        std::fopen(__xmlFilePath.c_str(), "r"), std::fclose);
    if (file == nullptr) {
        OX_ERROR("File open failed : (%s)(%s)", __xmlFilePath.c_str(), std::strerror(errno));
        return STATUS_INVALID_PARAMETER;
    }
    if (std::fseek(file.get(), 0, SEEK_END) != 0) {
        OX_ERROR("(%s)", std::strerror(errno));
        return STATUS_INVALID_STATE;
    }
    const long size = std::ftell(file.get());
    if (size < 1) {
        OX_ERROR("Please check the file size.");
        return STATUS_INVALID_STATE;
    }
    if (std::fseek(file.get(), 0, SEEK_SET) != 0) {
        OX_ERROR("(%s)", std::strerror(errno));
        return STATUS_INVALID_STATE;
    }
    // Neither the device nor the parser has room for more. Folders of many file systems say that
    // they are as large.
    const std::unique_ptr<char[]> buffer(
        size < INT_MAX ? new (std::nothrow) char[static_cast<std::size_t>(size)] : nullptr);
    if (buffer == nullptr) {
        OX_ERROR("Memory allocation failed.");
        return STATUS_OUT_OF_MEMORY;
    }
    const std::size_t count =
        std::fread(buffer.get(), 1, static_cast<std::size_t>(size), file.get());
    if (count == 0) {
        OX_ERROR("Please check the file size.");
        return STATUS_INVALID_STATE;
    }
    // A file that has become shorter meanwhile is parsed with the size that it had.
    if (count < static_cast<std::size_t>(size)) {
        fillWithLineEnds(buffer.get(), count, static_cast<std::size_t>(size));
    }
    internal::EngineUse use;
    const int options = &handlers == &EXACT_HANDLERS ? EXACT_OPTIONS : 0;
    if (!Parse(handlers, *this, buffer.get(), static_cast<int>(size), options).run()) {
        OX_ERROR("Xml parsing failed");
        return STATUS_INVALID_PARAMETER;
    }
    use.cleanUpMemory();
    return STATUS_SUCCESS;
}

int Xml::read(const std::string& xmlFilePath, PlainFile file)
{
    if (xmlFilePath.empty()) {
        OX_ERROR("xmlFilePath is empty string.");
        return STATUS_INVALID_STATE;
    }
    __xmlFilePath = xmlFilePath;

    internal::FileContent content;
    const int error = internal::readPlainFile(__xmlFilePath, file, content);
    if (error == ENOMEM) {
        OX_ERROR("Memory allocation failed.");
        return STATUS_OUT_OF_MEMORY;
    }
    if (error != 0) {
        OX_ERROR("File open failed : (%s)(%s)", __xmlFilePath.c_str(), std::strerror(error));
        return STATUS_INVALID_PARAMETER;
    }
    if (content.size == 0) {
        OX_ERROR("Please check the file size.");
        return STATUS_INVALID_STATE;
    }
    if (!deliverExactly(*this, {content.bytes.get(), content.size})) {
        OX_ERROR("Xml parsing failed");
        return STATUS_INVALID_PARAMETER;
    }
    return STATUS_SUCCESS;
}

int Xml::readText(std::string_view text, std::size_t limit)
{
    if (text.size() > internal::mostBytes(limit)) {
        OX_ERROR("Text is too long (%zu).", text.size());
        return STATUS_INVALID_PARAMETER;
    }
    if (!deliverExactly(*this, text)) {
        OX_ERROR("Xml parsing failed");
        return STATUS_INVALID_PARAMETER;
    }
    return STATUS_SUCCESS;
}

XmlDocument* Xml::load(const std::string& xmlFilePath)
{
    if (__xmlFilePath.empty()) {
        OX_ERROR("xmlFilePath is empty string.");
        return nullptr;
    }
    __xmlFilePath = xmlFilePath;

    int error = 0;
    xmlDocPtr native = parseFile(__xmlFilePath, error);
    if (native == nullptr) {
        OX_ERROR("Invalid state. (%s)(%s)", __xmlFilePath.c_str(), std::strerror(error));
        return nullptr;
    }
    XmlDocument* document = new (std::nothrow) XmlDocument(native);
    if (document == nullptr) {
        OX_ERROR("Memory allocation failed.");
    }
    return document;
}

XmlDocument* Xml::load()
{
    return load(__xmlFilePath);
}

XmlDocument* Xml::load(const std::string& xmlFilePath, PlainFile file)
{
    if (xmlFilePath.empty()) {
        OX_ERROR("xmlFilePath is empty string.");
        return nullptr;
    }
    __xmlFilePath = xmlFilePath;

    int error = 0;
    xmlDocPtr native =
        internal::parsePlainFile(__xmlFilePath, file, internal::Entities::Kept, error);
    if (native == nullptr) {
        OX_ERROR("Invalid state. (%s)(%s)", __xmlFilePath.c_str(), std::strerror(error));
        return nullptr;
    }
    XmlDocument* document = new (std::nothrow) XmlDocument(native);
    if (document == nullptr) {
        OX_ERROR("Memory allocation failed.");
        xmlFreeDoc(native);
    }
    return document;
}

void Xml::setXmlEventListener(IXmlEventListener* listener)
{
    __listener = listener;
}

void Xml::setOnStartElement(const StartElementCallback& callback)
{
    __startElementCallback = callback;
}

void Xml::setOnEndElement(const EndElementCallback& callback)
{
    __endElementCallback = callback;
}

void Xml::setOnCharacters(const CharactersCallback& callback)
{
    __charactersCallback = callback;
}

void Xml::__onStartElement(const char* name, const char** attributes)
{
    if (isHeard(__listener, __startElementCallback)) {
        EventTexts texts;
        assignName(texts->name, name);
        assignAttributes(texts->attributes, attributes);
        deliver(__listener, &IXmlEventListener::onStartElement, __startElementCallback, texts->name,
                texts->attributes);
    }
}

void Xml::__onEndElement(const char* name)
{
    if (isHeard(__listener, __endElementCallback)) {
        EventTexts texts;
        assignName(texts->name, name);
        deliver(__listener, &IXmlEventListener::onEndElement, __endElementCallback, texts->name);
    }
}

void Xml::__onCharacters(const char* text, int)
{
    if (isHeard(__listener, __charactersCallback)) {
        EventTexts texts;
        assign(texts->text, text);
        deliver(__listener, &IXmlEventListener::onCharacters, __charactersCallback, texts->text);
    }
}

void Xml::__onExactCharacters(const char* text, int length)
{
    if (isHeard(__listener, __charactersCallback)) {
        EventTexts texts;
        assign(texts->text, text, static_cast<std::size_t>(length));
        deliver(__listener, &IXmlEventListener::onCharacters, __charactersCallback, texts->text);
    }
}

}  // namespace oxil
