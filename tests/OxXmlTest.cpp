#include <OxXml.h>

#include <OxStatus.h>
#include <OxXmlDocument.h>
#include <OxXmlNode.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <libxml/parser.h>
#include <libxml/tree.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <functional>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "AllocationFailure.h"
#include "EngineMessages.h"
#include "FileCalls.h"
#include "FreeObserver.h"
#include "LogCapture.h"
#include "ScriptFile.h"
#include "XmlCalls.h"

namespace oxil::test {
namespace {

using testing::AllOf;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::EndsWith;
using testing::Field;
using testing::Ge;
using testing::IsEmpty;
using testing::Le;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;

static_assert(std::has_virtual_destructor_v<IXmlEventListener>);
static_assert(std::is_copy_constructible_v<Xml> && std::is_copy_assignable_v<Xml>);
static_assert(std::is_convertible_v<std::string, Xml>);

using Texts = std::vector<std::string>;

/** How far the text of a run of character data goes. */
enum class Form { ToNul, Exact };

constexpr Form FORMS[] = {Form::ToNul, Form::Exact};

int read(Xml& xml, const std::string& path, Form form)
{
    return form == Form::Exact ? xml.read(path, EXACT_TEXT) : xml.read(path);
}

int read(Xml& xml, Form form)
{
    return form == Form::Exact ? xml.read(EXACT_TEXT) : xml.read();
}

/**
 * Writes events down, one line each ("start a|x|1", "end a", "text hi"), and then does what the
 * test wants. Hears of them as a listener, by functions, or both.
 */
class Recorder : public IXmlEventListener {
public:
    using Reaction = std::function<void(const std::string& event)>;

    void onStartElement(const std::string& name, const Texts& attributes) override
    {
        start("", name, attributes);
    }

    void onEndElement(const std::string& name) override { note("end " + name); }

    void onCharacters(const std::string& text) override { note("text " + text); }

    /** Sets functions, whose lines begin with `f:` to tell them from the listener's. */
    void setFunctions(Xml& xml, const std::string& prefix = "f:")
    {
        xml.setOnStartElement([this, prefix](const std::string& name, const Texts& attributes) {
            start(prefix, name, attributes);
        });
        xml.setOnEndElement(
            [this, prefix](const std::string& name) { note(prefix + "end " + name); });
        xml.setOnCharacters(
            [this, prefix](const std::string& text) { note(prefix + "text " + text); });
    }

    void react(const Reaction& reaction) { __reaction = reaction; }

    /** Does this at one event only, recognised by its line. */
    void reactTo(const std::string& event, const std::function<void()>& reaction)
    {
        __reaction = [event, reaction](const std::string& line) {
            if (line == event) {
                reaction();
            }
        };
    }

    const Texts& events() const { return __events; }

    /** The last event, empty if there was none. */
    std::string last() const { return __events.empty() ? "" : __events.back(); }

    void clear() { __events.clear(); }

private:
    void start(const std::string& prefix, const std::string& name, const Texts& attributes)
    {
        std::string line = prefix + "start " + name;
        for (const std::string& attribute : attributes) {
            line += "|" + attribute;
        }
        note(line);
    }

    void note(const std::string& line)
    {
        __events.push_back(line);
        if (__reaction) {
            __reaction(line);
        }
    }

    Texts __events;
    Reaction __reaction;
};

/** Records what libxml2 wants to open besides the files that read() opens. */
class LoadedUrls {
public:
    LoadedUrls() : __loader(xmlGetExternalEntityLoader())
    {
        current = this;
        xmlSetExternalEntityLoader(load);
    }

    ~LoadedUrls()
    {
        xmlSetExternalEntityLoader(__loader);
        current = nullptr;
    }

    LoadedUrls(const LoadedUrls&) = delete;
    LoadedUrls& operator=(const LoadedUrls&) = delete;

    const Texts& urls() const { return __urls; }

private:
    static xmlParserInputPtr load(const char* url, const char* id, xmlParserCtxtPtr context)
    {
        current->__urls.push_back(url != nullptr ? url : "");
        return current->__loader(url, id, context);
    }

    static inline LoadedUrls* current = nullptr;

    xmlExternalEntityLoader __loader;
    Texts __urls;
};

const xmlChar* xmlText(const char* text)
{
    return reinterpret_cast<const xmlChar*>(text);
}

template <typename Char>
std::basic_string<Char> repeated(const Char* text, int count)
{
    std::basic_string<Char> all;
    for (int i = 0; i < count; ++i) {
        all += text;
    }
    return all;
}

/** A reader, a document for it, and somebody who listens. */
class XmlTest : public testing::Test {
protected:
    /** Reads a document with a fresh reader, and gives the events that its listener had. */
    static Texts eventsOf(const std::string& document, Form form = Form::Exact,
                          int expected = STATUS_SUCCESS)
    {
        const ScriptFile file(document);
        Recorder recorder;
        Xml xml(file.path());
        xml.setXmlEventListener(&recorder);
        EXPECT_EQ(read(xml, form), expected);
        return recorder.events();
    }

    /** The texts of all runs put together. */
    static std::string textOf(const std::string& document)
    {
        const ScriptFile file(document);
        std::string all;
        Xml xml(file.path());
        xml.setOnCharacters([&](const std::string& text) {
            all += text;
            if (all.size() > 2 * document.size()) {  // UTF-8 may need more bytes than the document
                throw std::length_error("more text than the document can have");
            }
        });
        EXPECT_EQ(xml.read(EXACT_TEXT), STATUS_SUCCESS);
        return all;
    }

    static testing::Matcher<const LogLine&> readLogs(const std::string& message)
    {
        return LoggedIn("OxXml.cpp", "read", message);
    }

    static testing::Matcher<const LogLine&> loadLogs(const std::string& message)
    {
        return LoggedIn("OxXml.cpp", "load", message);
    }

    /** That load() could make nothing of this file; why is what the system last said. */
    static testing::Matcher<const LogLine&> loadFails(const std::string& path)
    {
        return AllOf(Field("logId", &LogLine::logId, 0), Field("priority", &LogLine::priority, 6),
                     Field("tag", &LogLine::tag, "OX"), Field("framed", &LogLine::framed, true),
                     Field("file", &LogLine::file, "OxXml.cpp"),
                     Field("function", &LogLine::function, "load"),
                     Field("message", &LogLine::message,
                           AllOf(StartsWith("Invalid state. (" + path + ")("), EndsWith(")"),
                                 Not(EndsWith("()")))));
    }

    /** The name of a document's root element. */
    static std::string rootOf(const XmlDocument& document)
    {
        const xmlNode* root = xmlDocGetRootElement(document.__getNativeDocument());
        return root != nullptr ? reinterpret_cast<const char*>(root->name) : "";
    }

    /** Loads with the path that is remembered, and gives the root's name; "" without document. */
    static std::string loadedRoot(Xml& xml)
    {
        const std::unique_ptr<XmlDocument> document(xml.load());
        return document ? rootOf(*document) : "";
    }

    const ScriptFile file{"<a x='1' y='2'>hi<b/></a>"};
    Recorder recorder;
};

// ---- The steps of read() ----

TEST_F(XmlTest, AReadTakesItsStepsInOrderAndReleasesEverything)
{
    for (const Form form : FORMS) {
        FileCalls files;
        XmlCalls engine;
        Xml xml(file.path());
        EXPECT_THAT(files.calls(), IsEmpty()) << "constructing touches no file";

        EXPECT_EQ(read(xml, form), STATUS_SUCCESS);

        EXPECT_THAT(files.calls(),
                    ElementsAre("fopen r", "fseek end", "ftell", "fseek start", "fread", "fclose"));
        EXPECT_EQ(files.bytesAskedFor(), std::strlen("<a x='1' y='2'>hi<b/></a>"));
        EXPECT_TRUE(files.isEverythingReleased());
        EXPECT_TRUE(engine.isContextFreed());
    }
}

TEST_F(XmlTest, AnEmptyPathIsRefusedBeforeAnyFileIsTouched)
{
    for (const Form form : FORMS) {
        const LogCapture log;
        FileCalls files;
        Xml none;
        Xml empty("");
        Xml xml(file.path());

        EXPECT_EQ(read(none, form), STATUS_INVALID_STATE);
        EXPECT_EQ(read(none, "", form), STATUS_INVALID_STATE);
        EXPECT_EQ(read(empty, form), STATUS_INVALID_STATE);
        EXPECT_EQ(read(xml, "", form), STATUS_INVALID_STATE);

        EXPECT_THAT(files.calls(), IsEmpty());
        EXPECT_THAT(log.lines(), AllOf(SizeIs(4), Each(readLogs("xmlFilePath is empty string."))));
    }
}

TEST_F(XmlTest, AFileThatCannotBeOpenedIsNamedWithTheReason)
{
    const std::string missing = file.path() + ".missing";
    const std::string tooLong = "/" + std::string(400, 'n');

    for (const Form form : FORMS) {
        const LogCapture log;
        FileCalls files;
        Xml xml;

        EXPECT_EQ(read(xml, missing, form), STATUS_INVALID_PARAMETER);
        EXPECT_EQ(read(xml, tooLong, form), STATUS_INVALID_PARAMETER);

        EXPECT_THAT(files.calls(), ElementsAre("fopen r", "fopen r"));
        EXPECT_THAT(log.lines(), ElementsAre(readLogs("File open failed : (" + missing + ")(" +
                                                      std::strerror(ENOENT) + ")"),
                                             readLogs("File open failed : (" + tooLong + ")(" +
                                                      std::strerror(ENAMETOOLONG) + ")")));
    }
}

TEST_F(XmlTest, AFileThatCannotBePositionedIsRefusedWithTheReason)
{
    const struct {
        int nth;
        int error;
        std::vector<std::string_view> calls;
    } cases[] = {
        {1, EIO, {"fopen r", "fseek end", "fclose"}},
        {2, ESPIPE, {"fopen r", "fseek end", "ftell", "fseek start", "fclose"}},
    };
    for (const auto& position : cases) {
        for (const Form form : FORMS) {
            const LogCapture log;
            FileCalls files;
            files.failSeek(position.nth, position.error);
            Xml xml(file.path());
            xml.setXmlEventListener(&recorder);

            EXPECT_EQ(read(xml, form), STATUS_INVALID_STATE);

            EXPECT_THAT(files.calls(), ElementsAreArray(position.calls));
            EXPECT_TRUE(files.isEverythingReleased());
            EXPECT_THAT(
                log.lines(),
                ElementsAre(readLogs("(" + std::string(std::strerror(position.error)) + ")")));
        }
    }
    EXPECT_THAT(recorder.events(), IsEmpty());
}

TEST_F(XmlTest, AnEmptyFileIsRefusedBeforeAnyParsing)
{
    const ScriptFile empty("");
    for (const Form form : FORMS) {
        const LogCapture log;
        FileCalls files;
        XmlCalls engine;
        Xml xml;

        EXPECT_EQ(read(xml, empty.path(), form), STATUS_INVALID_STATE);

        EXPECT_THAT(files.calls(), ElementsAre("fopen r", "fseek end", "ftell", "fclose"));
        EXPECT_TRUE(files.isEverythingReleased());
        EXPECT_EQ(engine.parsesBegun(), 0);
        EXPECT_THAT(log.lines(), ElementsAre(readLogs("Please check the file size.")));
    }
}

TEST_F(XmlTest, ASizeBelowOneIsRefused)
{
    for (const long size : {0L, -1L}) {
        for (const Form form : FORMS) {
            const LogCapture log;
            FileCalls files;
            files.setPosition(size);
            Xml xml(file.path());

            EXPECT_EQ(read(xml, form), STATUS_INVALID_STATE);

            EXPECT_THAT(files.calls(), ElementsAre("fopen r", "fseek end", "ftell", "fclose"));
            EXPECT_TRUE(files.isEverythingReleased());
            EXPECT_THAT(log.lines(), ElementsAre(readLogs("Please check the file size.")));
        }
    }
}

TEST_F(XmlTest, WhatIsAsLargeAsAFolderHasNoPlaceInMemory)
{
    // What folders say is the largest number there is: of 32 bits on the device, of 64 on hosts.
    for (const long size : {static_cast<long>(INT_MAX), LONG_MAX}) {
        for (const Form form : FORMS) {
            const LogCapture log;
            FileCalls files;
            files.setPosition(size);
            XmlCalls engine;
            Xml xml(file.path());

            EXPECT_EQ(read(xml, form), STATUS_OUT_OF_MEMORY);

            EXPECT_THAT(files.calls(),
                        ElementsAre("fopen r", "fseek end", "ftell", "fseek start", "fclose"));
            EXPECT_TRUE(files.isEverythingReleased());
            EXPECT_EQ(engine.parsesBegun(), 0);
            EXPECT_EQ(engine.memoryCleanups(), 0);
            EXPECT_THAT(log.lines(), ElementsAre(readLogs("Memory allocation failed.")));
        }
    }
}

TEST_F(XmlTest, AFolderIsRefusedWithWhatItsFileSystemAnswers)
{
    for (const Form form : FORMS) {
        const LogCapture log;
        Xml xml;
        const std::string folder = testing::TempDir();
        const std::unique_ptr<std::FILE, int (*)(std::FILE*)> opened(
            std::fopen(folder.c_str(), "r"), std::fclose);
        ASSERT_NE(opened, nullptr);
        if (std::fseek(opened.get(), 0, SEEK_END) != 0) {
            EXPECT_EQ(read(xml, folder, form), STATUS_INVALID_STATE);  // tmpfs, say
        } else if (std::ftell(opened.get()) >= INT_MAX) {
            EXPECT_EQ(read(xml, folder, form), STATUS_OUT_OF_MEMORY);  // ext4, say
            EXPECT_THAT(log.lines(), ElementsAre(readLogs("Memory allocation failed.")));
        } else {
            EXPECT_EQ(read(xml, folder, form), STATUS_INVALID_STATE);
            EXPECT_THAT(log.lines(), ElementsAre(readLogs("Please check the file size.")));
        }
        EXPECT_THAT(log.lines(), SizeIs(1));
    }
}

TEST_F(XmlTest, WithoutMemoryForTheFileNothingIsRead)
{
    for (const Form form : FORMS) {
        const LogCapture log;
        FileCalls files;
        XmlCalls engine;
        Xml xml(file.path());

        int result = STATUS_SUCCESS;
        {
            const AllocationFailure failure(Allocation::NothrowNew);
            result = read(xml, form);
            EXPECT_TRUE(failure.happened());
        }

        EXPECT_EQ(result, STATUS_OUT_OF_MEMORY);
        EXPECT_THAT(files.calls(),
                    ElementsAre("fopen r", "fseek end", "ftell", "fseek start", "fclose"));
        EXPECT_TRUE(files.isEverythingReleased());
        EXPECT_EQ(engine.parsesBegun(), 0);
        EXPECT_THAT(log.lines(), ElementsAre(readLogs("Memory allocation failed.")));
    }
}

TEST_F(XmlTest, AFileThatGivesNoByteIsRefused)
{
    for (const Form form : FORMS) {
        const LogCapture log;
        FileCalls files;
        files.setReadCount(0);
        XmlCalls engine;
        Xml xml(file.path());

        EXPECT_EQ(read(xml, form), STATUS_INVALID_STATE);

        EXPECT_THAT(files.calls(),
                    ElementsAre("fopen r", "fseek end", "ftell", "fseek start", "fread", "fclose"));
        EXPECT_TRUE(files.isEverythingReleased());
        EXPECT_EQ(engine.parsesBegun(), 0);
        EXPECT_THAT(log.lines(), ElementsAre(readLogs("Please check the file size.")));
    }
}

TEST_F(XmlTest, AShortReadIsParsedAtTheFullSizeAllTheSame)
{
    const std::string document = "<a x='1'/>";
    const ScriptFile padded(document + std::string(50, ' '));
    for (const Form form : FORMS) {
        FileCalls files;
        files.setReadCount(document.size());
        std::ptrdiff_t given = 0;
        const XmlCalls engine([&given](xmlParserCtxtPtr context) {
            given = context->input->end - context->input->base;
        });
        recorder.clear();
        Xml xml(padded.path());
        xml.setXmlEventListener(&recorder);

        EXPECT_EQ(read(xml, form), STATUS_SUCCESS);

        EXPECT_EQ(given, static_cast<std::ptrdiff_t>(document.size() + 50));
        EXPECT_THAT(recorder.events(), ElementsAre("start a|x|1", "end a"));
        EXPECT_TRUE(files.isEverythingReleased());
    }
}

TEST_F(XmlTest, WhatAShortReadLeavesIsFilledWithLineEndsInTheDocumentsEncoding)
{
    const auto wide = [](const std::string& text, bool bigEndian) {
        std::string all;
        for (const char c : text) {
            all.append(bigEndian ? std::string{'\0', c} : std::string{c, '\0'});
        }
        return all;
    };
    const std::string text = "<?xml version='1.0'?><a/>";
    const struct {
        const char* what;
        std::string document;
        std::string filling;
    } cases[] = {
        {"UTF-8", text, "\n\n\n\n"},
        {"UTF-8 with a byte order mark", "\xef\xbb\xbf" + text, "\n\n\n\n"},
        {"UTF-16, little endian", wide(text, false), std::string("\n\0\n\0", 4)},
        {"the same with a byte order mark", "\xff\xfe" + wide(text, false),
         std::string("\n\0\n\0", 4)},
        {"UTF-16, big endian", wide(text, true), std::string("\0\n\0\n", 4)},
        {"the same with a byte order mark", "\xfe\xff" + wide(text, true),
         std::string("\0\n\0\n", 4)},
    };
    for (const auto& shortened : cases) {
        SCOPED_TRACE(shortened.what);
        // What a read leaves out here is there all the same, so it has to be overwritten.
        const ScriptFile longer(shortened.document + "<<<<");
        for (const Form form : FORMS) {
            FileCalls files;
            files.setReadCount(shortened.document.size());
            std::string given;
            const XmlCalls engine([&given](xmlParserCtxtPtr context) {
                given.assign(reinterpret_cast<const char*>(context->input->base),
                             reinterpret_cast<const char*>(context->input->end));
            });
            recorder.clear();
            Xml xml(longer.path());
            xml.setXmlEventListener(&recorder);

            EXPECT_EQ(read(xml, form), STATUS_SUCCESS);

            EXPECT_EQ(given, shortened.document + shortened.filling);
            EXPECT_THAT(recorder.events(), ElementsAre("start a", "end a"));
        }
    }
}

TEST_F(XmlTest, OfAReadOfOneByteTheRestIsLineEnds)
{
    const LogCapture log;
    FileCalls files;
    files.setReadCount(1);
    Xml xml(file.path());

    EXPECT_EQ(xml.read(), STATUS_INVALID_PARAMETER);

    EXPECT_THAT(log.lines(), ElementsAre(readLogs("Xml parsing failed")));
}

TEST_F(XmlTest, ADocumentThatIsNotWellFormedFailsAfterTheEventsBeforeTheError)
{
    const ScriptFile malformed("<a><b/>t<c></a>");
    for (const Form form : FORMS) {
        const LogCapture log;
        FileCalls files;
        XmlCalls engine;
        recorder.clear();
        Xml xml(malformed.path());
        xml.setXmlEventListener(&recorder);

        EXPECT_EQ(read(xml, form), STATUS_INVALID_PARAMETER);

        EXPECT_THAT(recorder.events(),
                    ElementsAre("start a", "start b", "end b",
                                form == Form::Exact ? "text t" : "text t<c></a>", "start c"));
        EXPECT_TRUE(files.isEverythingReleased());
        EXPECT_TRUE(engine.isContextFreed());
        EXPECT_THAT(log.lines(), ElementsAre(readLogs("Xml parsing failed")));
    }
}

TEST_F(XmlTest, OnlyTheMemoryOfTheEngineIsCleanedUpAndOnlyAfterSuccess)
{
    const ScriptFile malformed("<a>");
    const EngineMessages quiet;
    for (const Form form : FORMS) {
        LogCapture log;
        XmlCalls engine;
        Xml xml;

        EXPECT_EQ(read(xml, "", form), STATUS_INVALID_STATE);
        EXPECT_EQ(read(xml, malformed.path() + ".missing", form), STATUS_INVALID_PARAMETER);
        EXPECT_EQ(read(xml, malformed.path(), form), STATUS_INVALID_PARAMETER);
        EXPECT_EQ(xml.load(), nullptr);
        EXPECT_THAT(log.lines(), SizeIs(4));
        log.clear();
        xml.setOnEndElement([](const std::string&) { throw std::runtime_error("enough"); });
        EXPECT_THROW(read(xml, file.path(), form), std::runtime_error);
        EXPECT_EQ(loadedRoot(xml), "a");
        EXPECT_EQ(engine.memoryCleanups(), 0);

        xml.setOnEndElement(nullptr);
        EXPECT_EQ(read(xml, form), STATUS_SUCCESS);
        EXPECT_EQ(engine.memoryCleanups(), 1);
        EXPECT_EQ(read(xml, form), STATUS_SUCCESS);
        EXPECT_EQ(engine.memoryCleanups(), 2);
        EXPECT_EQ(engine.parserCleanups(), 0);
        EXPECT_THAT(log.lines(), IsEmpty());
    }
}

TEST_F(XmlTest, RunningOutOfMemoryOnTheWayReachesTheCallerAndReleasesEverything)
{
    const ScriptFile longTexts("<a attribute='" + std::string(64, 'v') + "'>" +
                               std::string(64, 't') + "</a>");
    for (const Form form : FORMS) {
        Xml xml;
        recorder.setFunctions(xml);
        int failures = 0;
        for (bool failed = true; failed && failures < 100; failures += failed ? 1 : 0) {
            FileCalls files;
            bool thrown = false;
            int result = STATUS_SUCCESS;
            {
                const AllocationFailure failure(Allocation::ThrowingNew, failures + 1);
                try {
                    result = read(xml, longTexts.path(), form);
                } catch (const std::bad_alloc&) {
                    thrown = true;
                }
                failed = failure.happened();
            }
            EXPECT_EQ(thrown, failed) << "allocation " << failures + 1;
            EXPECT_EQ(result, STATUS_SUCCESS);
            EXPECT_TRUE(files.isEverythingReleased()) << "allocation " << failures + 1;
        }
        EXPECT_THAT(failures, AllOf(Ge(5), Le(99)));
    }
}

TEST_F(XmlTest, RunningOutOfMemoryInsideTheEngineIsAFailureLikeAnyOther)
{
    const EngineMessages quiet;
    Xml xml(file.path());
    EXPECT_EQ(xml.read(), STATUS_SUCCESS) << "what is made once is there from now on";

    for (const Form form : FORMS) {
        int refused = 0;
        int malformed = 0;
        bool failed = true;
        for (int nth = 1; failed && nth < 200; ++nth) {
            const LogCapture log;
            FileCalls files;
            int result = STATUS_SUCCESS;
            {
                const AllocationFailure failure(Allocation::Malloc, nth);
                result = read(xml, form);
                failed = failure.happened();
            }
            EXPECT_TRUE(files.isEverythingReleased()) << "allocation " << nth;
            if (result == STATUS_SUCCESS) {
                EXPECT_THAT(log.lines(), IsEmpty()) << "allocation " << nth;
                continue;
            }
            EXPECT_TRUE(failed) << "allocation " << nth;
            EXPECT_EQ(result, STATUS_INVALID_PARAMETER) << "allocation " << nth;
            ASSERT_THAT(log.lines(), SizeIs(1)) << "allocation " << nth;
            ++(log.lines()[0].message == "Xml parsing failed" ? malformed : refused);
        }
        EXPECT_FALSE(failed);
        EXPECT_GT(malformed, 5);
        EXPECT_THAT(refused, Le(1)) << "the file itself needs memory to be opened";
    }
}

// ---- The path ----

TEST_F(XmlTest, AReaderKeepsTheLastPathThatAReadWasGiven)
{
    const ScriptFile other("<other/>");
    for (const Form form : FORMS) {
        recorder.clear();
        Xml xml(file.path());
        xml.setXmlEventListener(&recorder);

        EXPECT_EQ(read(xml, other.path(), form), STATUS_SUCCESS);
        EXPECT_EQ(read(xml, form), STATUS_SUCCESS);
        EXPECT_EQ(loadedRoot(xml), "other");

        EXPECT_THAT(recorder.events(),
                    ElementsAre("start other", "end other", "start other", "end other"));
    }
}

TEST_F(XmlTest, AReadThatIsRefusedForItsEmptyPathForgetsNothing)
{
    for (const Form form : FORMS) {
        LogCapture log;
        Xml xml(file.path());

        EXPECT_EQ(read(xml, "", form), STATUS_INVALID_STATE);
        log.clear();

        EXPECT_EQ(read(xml, form), STATUS_SUCCESS);
        EXPECT_EQ(loadedRoot(xml), "a");
        EXPECT_THAT(log.lines(), IsEmpty());
    }
}

TEST_F(XmlTest, APathIsKeptEvenIfItsFileCannotBeOpened)
{
    for (const Form form : FORMS) {
        LogCapture log;
        const std::string path = file.path() + ".missing";
        Xml xml(file.path());

        EXPECT_EQ(read(xml, path, form), STATUS_INVALID_PARAMETER);
        EXPECT_EQ(read(xml, form), STATUS_INVALID_PARAMETER);

        EXPECT_THAT(log.lines(),
                    AllOf(SizeIs(2), Each(readLogs("File open failed : (" + path + ")(" +
                                                   std::strerror(ENOENT) + ")"))));
    }
}

TEST_F(XmlTest, AReaderMadeWithoutPathReadsOnceItIsGivenOne)
{
    for (const Form form : FORMS) {
        recorder.clear();
        Xml xml;
        xml.setXmlEventListener(&recorder);

        EXPECT_EQ(read(xml, file.path(), form), STATUS_SUCCESS);
        EXPECT_EQ(read(xml, form), STATUS_SUCCESS);

        EXPECT_THAT(recorder.events(), SizeIs(10));
    }
}

// ---- load() ----

TEST_F(XmlTest, AFileIsLoadedIntoADocumentOfTheCallers)
{
    Xml xml(file.path());
    xml.setXmlEventListener(&recorder);
    recorder.setFunctions(xml);

    std::unique_ptr<XmlDocument> first(xml.load());
    const std::unique_ptr<XmlDocument> second(xml.load(file.path()));

    ASSERT_NE(first, nullptr);
    ASSERT_NE(second, nullptr);
    EXPECT_NE(first->__getNativeDocument(), second->__getNativeDocument());
    first.reset();
    EXPECT_EQ(rootOf(*second), "a");
    EXPECT_NE(xmlHasProp(second->getRootNode()->__getNativeNode(), xmlText("y")), nullptr);
    EXPECT_THAT(recorder.events(), IsEmpty()) << "loading delivers no events";
}

TEST_F(XmlTest, ALoadChecksThePathItHasAndNotTheOneItIsGiven)
{
    const LogCapture log;
    FileCalls files;
    Xml xml;
    Xml empty("");

    EXPECT_EQ(xml.load(), nullptr);
    EXPECT_EQ(xml.load(file.path()), nullptr);
    EXPECT_EQ(xml.load(file.path()), nullptr) << "the refused path was not stored";
    EXPECT_EQ(xml.load(""), nullptr);
    EXPECT_EQ(empty.load(file.path()), nullptr);
    EXPECT_THAT(log.lines(), AllOf(SizeIs(5), Each(loadLogs("xmlFilePath is empty string."))));
    EXPECT_THAT(files.calls(), IsEmpty());
}

TEST_F(XmlTest, ALoadIsPossibleOnceAReadHasLeftItsPath)
{
    Xml xml;
    EXPECT_EQ(xml.read(file.path()), STATUS_SUCCESS);

    EXPECT_EQ(loadedRoot(xml), "a");
}

TEST_F(XmlTest, AReaderKeepsTheLastPathThatALoadWasGiven)
{
    const ScriptFile other("<other/>");
    Xml xml(file.path());
    xml.setXmlEventListener(&recorder);

    const std::unique_ptr<XmlDocument> document(xml.load(other.path()));

    ASSERT_NE(document, nullptr);
    EXPECT_EQ(rootOf(*document), "other");
    EXPECT_EQ(loadedRoot(xml), "other");
    EXPECT_EQ(xml.read(), STATUS_SUCCESS);
    EXPECT_THAT(recorder.events(), ElementsAre("start other", "end other"));
}

TEST_F(XmlTest, ALoadOfAnEmptyPathStoresIt)
{
    const EngineMessages quiet;
    const LogCapture log;
    Xml xml(file.path());

    EXPECT_EQ(xml.load(""), nullptr);
    EXPECT_EQ(xml.load(file.path()), nullptr);
    EXPECT_EQ(xml.read(), STATUS_INVALID_STATE);

    EXPECT_THAT(log.lines(), ElementsAre(loadFails(""), loadLogs("xmlFilePath is empty string."),
                                         readLogs("xmlFilePath is empty string.")));
}

TEST_F(XmlTest, AMissingFileIsNotLoadedButItsPathIsKept)
{
    const EngineMessages quiet;
    const LogCapture log;
    const std::string path = file.path() + ".missing";
    const std::string reason = std::strerror(ENOENT);
    Xml xml(file.path());

    EXPECT_EQ(xml.load(path), nullptr);
    EXPECT_EQ(xml.load(), nullptr);
    EXPECT_EQ(xml.read(), STATUS_INVALID_PARAMETER);

    EXPECT_THAT(log.lines(),
                ElementsAre(loadLogs("Invalid state. (" + path + ")(" + reason + ")"),
                            loadLogs("Invalid state. (" + path + ")(" + reason + ")"),
                            readLogs("File open failed : (" + path + ")(" + reason + ")")));
}

TEST_F(XmlTest, ADocumentThatIsNotWellFormedIsNotLoaded)
{
    const EngineMessages quiet;
    const LogCapture log;
    const ScriptFile malformed("<a><b></a>");
    Xml xml(malformed.path());

    EXPECT_EQ(xml.load(), nullptr);

    EXPECT_THAT(log.lines(), ElementsAre(loadFails(malformed.path())));
    EXPECT_THAT(quiet.text(), Not(IsEmpty())) << "libxml2 explains it to the application's handler";
}

TEST_F(XmlTest, WithoutMemoryForTheDocumentALoadLosesTheTree)
{
    const LogCapture log;
    XmlCalls engine;
    Xml xml(file.path());

    const XmlDocument* document = nullptr;
    {
        const AllocationFailure failure(Allocation::NothrowNew);
        document = xml.load();
        EXPECT_TRUE(failure.happened());
    }

    EXPECT_EQ(document, nullptr);
    EXPECT_THAT(log.lines(), ElementsAre(loadLogs("Memory allocation failed.")));
    ASSERT_NE(engine.document(), nullptr);
    const FreeObserver tree(engine.document());
    xmlFreeDoc(engine.document());
    EXPECT_EQ(tree.count(), 1) << "it had not been freed";
    EXPECT_EQ(loadedRoot(xml), "a") << "the reader still works";
}

// ---- Events ----

TEST_F(XmlTest, EventsComeInDocumentOrderBeforeTheReadReturns)
{
    EXPECT_THAT(
        eventsOf("<?xml version='1.0'?>\n<!DOCTYPE list>\n<!-- note -->\n"
                 "<list kind='fruit'><item>apple</item>&amp;<item n='2'/><?go on?>rest</list>\n"),
        ElementsAre("start list|kind|fruit", "start item", "text apple", "end item", "text &",
                    "start item|n|2", "end item", "text rest", "end list"));
}

TEST_F(XmlTest, AttributesComeInDocumentOrderAsNamesAndValues)
{
    const ScriptFile attributes("<a><b x='1' y='2'/><c z='' a='&quot;'/><d/></a>");
    std::vector<Texts> lists;
    Xml xml(attributes.path());
    xml.setOnStartElement(
        [&lists](const std::string&, const Texts& list) { lists.push_back(list); });

    EXPECT_EQ(xml.read(), STATUS_SUCCESS);

    EXPECT_THAT(lists, ElementsAre(IsEmpty(), ElementsAre("x", "1", "y", "2"),
                                   ElementsAre("z", "", "a", "\""), IsEmpty()));
}

TEST_F(XmlTest, TheListenerIsToldBeforeTheFunctionsAndBothAreToldTheSame)
{
    for (const Form form : FORMS) {
        const std::string text = form == Form::Exact ? "text hi" : "text hi<b/></a>";
        recorder.clear();
        Xml xml(file.path());
        xml.setXmlEventListener(&recorder);
        recorder.setFunctions(xml);

        EXPECT_EQ(read(xml, form), STATUS_SUCCESS);

        EXPECT_THAT(recorder.events(),
                    ElementsAre("start a|x|1|y|2", "f:start a|x|1|y|2", text, "f:" + text,
                                "start b", "f:start b", "end b", "f:end b", "end a", "f:end a"));
    }
}

TEST_F(XmlTest, EachReceiverIsOptional)
{
    for (const Form form : FORMS) {
        const std::string text = form == Form::Exact ? "text hi" : "text hi<b/></a>";
        Xml xml(file.path());

        EXPECT_EQ(read(xml, form), STATUS_SUCCESS) << "nobody listens";

        recorder.clear();
        recorder.setFunctions(xml, "");
        EXPECT_EQ(read(xml, form), STATUS_SUCCESS);
        EXPECT_THAT(recorder.events(),
                    ElementsAre("start a|x|1|y|2", text, "start b", "end b", "end a"));

        recorder.clear();
        xml.setOnStartElement(nullptr);
        EXPECT_EQ(read(xml, form), STATUS_SUCCESS);
        EXPECT_THAT(recorder.events(), ElementsAre(text, "end b", "end a"));

        recorder.clear();
        xml.setOnEndElement(nullptr);
        EXPECT_EQ(read(xml, form), STATUS_SUCCESS);
        EXPECT_THAT(recorder.events(), ElementsAre(text));

        recorder.clear();
        xml.setOnCharacters(nullptr);
        xml.setXmlEventListener(&recorder);
        EXPECT_EQ(read(xml, form), STATUS_SUCCESS);
        EXPECT_THAT(recorder.events(),
                    ElementsAre("start a|x|1|y|2", text, "start b", "end b", "end a"));

        recorder.clear();
        xml.setXmlEventListener(nullptr);
        EXPECT_EQ(read(xml, form), STATUS_SUCCESS);
        EXPECT_THAT(recorder.events(), IsEmpty());
    }
}

TEST_F(XmlTest, AReaderMayBeUsedAgainAndAgain)
{
    const LogCapture log;
    const ScriptFile malformed("<a>");
    Xml xml(file.path());
    xml.setXmlEventListener(&recorder);

    EXPECT_EQ(xml.read(), STATUS_SUCCESS);
    EXPECT_EQ(xml.read(malformed.path()), STATUS_INVALID_PARAMETER);
    EXPECT_EQ(xml.read(file.path(), EXACT_TEXT), STATUS_SUCCESS);
    EXPECT_EQ(xml.read(), STATUS_SUCCESS);

    EXPECT_THAT(recorder.events(),
                ElementsAre("start a|x|1|y|2", "text hi<b/></a>", "start b", "end b", "end a",
                            "start a",  //
                            "start a|x|1|y|2", "text hi", "start b", "end b", "end a",
                            "start a|x|1|y|2", "text hi<b/></a>", "start b", "end b", "end a"));
    EXPECT_THAT(log.lines(), ElementsAre(readLogs("Xml parsing failed")));
}

TEST_F(XmlTest, WhatTheEngineSaysIsHandedOnAsItIs)
{
    const struct {
        const char* what;
        const char* document;
        Texts events;
    } cases[] = {
        {"prefixes stay", "<p:a xmlns:p='u' p:x='1'/>", {"start p:a|xmlns:p|u|p:x|1", "end p:a"}},
        {"undeclared ones too", "<p:a p:x='1'/>", {"start p:a|p:x|1", "end p:a"}},
        {"references in attributes are replaced",
         "<a x='&lt;&gt;&quot;&apos;&#65;'/>",
         {"start a|x|<>\"'A", "end a"}},
        {"references in text are runs of their own",
         "<a>x&amp;&lt;&#65;</a>",
         {"start a", "text x", "text &", "text <", "text A", "end a"}},
        {"line ends in attributes are spaces", "<a x='1\n2\t3'/>", {"start a|x|1 2 3", "end a"}},
        {"CDATA is text", "<a><![CDATA[<x>&]]></a>", {"start a", "text <x>&", "end a"}},
        {"white space is text",
         "<a> <b/>\n</a>",
         {"start a", "text  ", "start b", "end b", "text \n", "end a"}},
        {"comments and instructions are nothing",
         "<?p i?><a><!-- c --><?q r?></a><!-- d -->",
         {"start a", "end a"}},
        {"what a document type supplies is nothing",
         "<!DOCTYPE a [<!ATTLIST a d CDATA '1'>]><a/>",
         {"start a", "end a"}},
        {"an entity is dropped where its declaration may stand in a file that is not read",
         "<!DOCTYPE a SYSTEM 'a.dtd' [<!ENTITY e 'x'>]><a b='1&e;2'>3&e;4</a>",
         {"start a|b|12", "text 3", "text 4", "end a"}},
        {"an include is an element",
         "<x:include xmlns:x='http://www.w3.org/2001/XInclude' href='/etc/hostname'/>",
         {"start x:include|xmlns:x|http://www.w3.org/2001/XInclude|href|/etc/hostname",
          "end x:include"}},
    };
    for (const auto& handedOn : cases) {
        EXPECT_EQ(eventsOf(handedOn.document), handedOn.events) << handedOn.what;
    }
}

TEST_F(XmlTest, AttributesArriveAsTheDocumentMeansThemIfTextIsToBeExact)
{
    const struct {
        const char* written;
        std::string exact;
        std::string plain;
    } cases[] = {
        {"&amp;", "&", "&#38;"},
        {"&#38;", "&", "&#38;"},
        {"&#x26;", "&", "&#38;"},
        {"&amp;amp;", "&amp;", "&#38;amp;"},
        {"&#38;#38;", "&#38;", "&#38;#38;"},
        {"&amp;lt;", "&lt;", "&#38;lt;"},
        {"&lt;&#60;&#x3c;", "<<<", "<<<"},
        {"&gt;&quot;&apos;&#65;", ">\"'A", ">\"'A"},
        {"x&amp;y &amp;&amp; z", "x&y && z", "x&#38;y &#38;&#38; z"},
        {" 1&#10;2&#9;3\n4 ", " 1\n2\t3 4 ", " 1\n2\t3 4 "},
    };
    for (const auto& value : cases) {
        const std::string document = "<a x=\"" + std::string(value.written) + "\"/>";
        EXPECT_THAT(eventsOf(document, Form::Exact),
                    ElementsAre("start a|x|" + value.exact, "end a"))
            << document;
        EXPECT_THAT(eventsOf(document, Form::ToNul),
                    ElementsAre("start a|x|" + value.plain, "end a"))
            << document;
    }
}

TEST_F(XmlTest, WhatIsReadExactlyAndWrittenAgainIsTheSame)
{
    const ScriptFile document("<a x='R&amp;D &amp;lt; &lt;&quot;'/>");
    for (int turn = 0; turn < 3; ++turn) {
        Texts attributes;
        Xml xml(document.path());
        xml.setOnStartElement([&](const std::string&, const Texts& list) { attributes = list; });
        ASSERT_EQ(xml.read(EXACT_TEXT), STATUS_SUCCESS);
        EXPECT_THAT(attributes, ElementsAre("x", "R&D &lt; <\""));

        XmlDocument written;
        XmlNode root("a");
        ASSERT_EQ(root.setAttribute(attributes[0], attributes[1]), STATUS_SUCCESS);
        ASSERT_EQ(written.setRootNode(&root), STATUS_SUCCESS);
        written.setOutputFilePath(document.path());
        ASSERT_EQ(written.write(), STATUS_SUCCESS);
    }
}

// ---- How far a text goes ----

TEST_F(XmlTest, CharacterDataGoesOnToTheEndOfTheParsersBuffer)
{
    EXPECT_THAT(eventsOf("<a>hi<b/></a>", Form::ToNul),
                ElementsAre("start a", "text hi<b/></a>", "start b", "end b", "end a"));
    EXPECT_THAT(eventsOf("<a>one<b>two</b>three</a>\n<!-- tail -->", Form::ToNul),
                ElementsAre("start a", "text one<b>two</b>three</a>\n<!-- tail -->", "start b",
                            "text two</b>three</a>\n<!-- tail -->", "end b",
                            "text three</a>\n<!-- tail -->", "end a"));
    EXPECT_THAT(
        eventsOf("<a>hi&amp;<![CDATA[x]]></a>", Form::ToNul),
        ElementsAre("start a", "text hi&amp;<![CDATA[x]]></a>", "text &", "text x", "end a"))
        << "what the parser hands over in a place of its own ends there";
}

TEST_F(XmlTest, EachTextThatRunsOnHasAllThatIsLeftOfTheFile)
{
    std::string document = "<a>";
    std::vector<std::size_t> begins;
    for (int i = 0; i < 200; ++i) {
        document += "<b>";
        begins.push_back(document.size());
        document += "text</b>";
    }
    document += "</a><!--" + std::string(300'000, 'c') + "-->";
    const ScriptFile large(document);
    std::vector<std::size_t> sizes;
    bool equal = true;
    Xml xml(large.path());
    xml.setOnCharacters([&](const std::string& text) {
        const std::size_t begin = sizes.size() < begins.size() ? begins[sizes.size()] : 0;
        equal = equal && document.compare(begin, std::string::npos, text) == 0;
        sizes.push_back(text.size());
    });

    EXPECT_EQ(xml.read(), STATUS_SUCCESS);

    EXPECT_EQ(sizes.size(), begins.size());
    EXPECT_TRUE(equal);
}

TEST_F(XmlTest, ExactTextIsEachRunAlone)
{
    EXPECT_THAT(
        eventsOf("<a>one<b>two</b>three</a>\n<!-- tail -->"),
        ElementsAre("start a", "text one", "start b", "text two", "end b", "text three", "end a"));

    Xml xml;
    xml.setXmlEventListener(&recorder);
    EXPECT_EQ(xml.read(file.path(), EXACT_TEXT), STATUS_SUCCESS);
    EXPECT_EQ(xml.read(EXACT_TEXT), STATUS_SUCCESS);
    EXPECT_THAT(recorder.events(),
                ElementsAre("start a|x|1|y|2", "text hi", "start b", "end b", "end a",
                            "start a|x|1|y|2", "text hi", "start b", "end b", "end a"));
}

TEST_F(XmlTest, ExactTextsPutTogetherAreTheDocumentsText)
{
    const std::string plain = repeated("a line\n", 20'000);
    const std::string accented = repeated("h\u00e9 \u20ac \U0001f600 ", 20'000);
    const std::string latin = repeated("h\xe9 ", 50'000);
    std::string fromLatin;
    for (const char c : latin) {
        fromLatin += c == '\xe9' ? "\u00e9" : std::string(1, c);
    }

    const struct {
        const char* what;
        std::string document;
        std::string text;
    } cases[] = {
        {"ASCII", "<a>" + plain + "</a>", plain},
        {"UTF-8", "<a>" + accented + "</a>", accented},
        {"CDATA", "<a><![CDATA[" + plain + "]]></a>", plain},
        {"CDATA of UTF-8", "<a><![CDATA[" + accented + "]]></a>", accented},
        {"many runs", "<a>" + plain + "<b>&lt;" + accented + "</b>&#x20ac;&amp;" + plain + "</a>",
         plain + "<" + accented + "\u20ac&" + plain},
        {"line ends", "<a>1\r\n2\r3\n</a>", "1\n2\n3\n"},
        {"Latin-1", "<?xml version='1.0' encoding='ISO-8859-1'?><a>" + latin + "</a>", fromLatin},
    };
    for (const auto& exact : cases) {
        EXPECT_TRUE(textOf(exact.document) == exact.text) << exact.what;
    }
}

TEST_F(XmlTest, ExactTextOfUtf16InputIsUtf8)
{
    const std::u16string wide = repeated(u"h\u00e9 \u20ac \U0001f600 ascii ", 10'000);
    const std::string narrow = repeated("h\u00e9 \u20ac \U0001f600 ascii ", 10'000);
    std::string littleEndian;
    std::string bigEndian;
    for (const char16_t unit : u"\ufeff<a>" + wide + u"</a>") {
        const char low = static_cast<char>(unit & 0xff);
        const char high = static_cast<char>(unit >> 8);
        littleEndian.append({low, high});
        bigEndian.append({high, low});
    }

    EXPECT_TRUE(textOf(littleEndian) == narrow);
    EXPECT_TRUE(textOf(bigEndian) == narrow);
}

TEST_F(XmlTest, ExactTextsCostNoMoreThanTheDocumentHas)
{
    std::string document = "<a>";
    std::size_t expected = 0;
    for (int i = 0; i < 20'000; ++i) {
        document += "<b>some text</b>\n";
        expected += std::strlen("some text\n");
    }
    const ScriptFile large(document + "</a>");
    std::size_t total = 0;
    Xml xml(large.path());
    xml.setOnCharacters([&total](const std::string& text) { total += text.size(); });

    EXPECT_EQ(xml.read(EXACT_TEXT), STATUS_SUCCESS);

    EXPECT_EQ(total, expected);
}

// ---- Dispatch ----

TEST_F(XmlTest, AStartTagIsDeliveredWithItsAttributesUpToTheFirstNull)
{
    const char* pairs[] = {"x", "1", "y", "2", nullptr, "z", "3", nullptr};
    const char* odd[] = {"x", nullptr};
    const char* none[] = {nullptr};
    Xml xml;
    xml.setXmlEventListener(&recorder);
    recorder.setFunctions(xml);

    xml.__onStartElement("a", pairs);
    xml.__onStartElement("b", odd);
    xml.__onStartElement("c", none);
    xml.__onStartElement("d", nullptr);

    EXPECT_THAT(recorder.events(),
                ElementsAre("start a|x|1|y|2", "f:start a|x|1|y|2", "start b|x", "f:start b|x",
                            "start c", "f:start c", "start d", "f:start d"));
}

TEST_F(XmlTest, AnEndTagIsDeliveredWithItsName)
{
    Xml xml;
    xml.setXmlEventListener(&recorder);
    recorder.setFunctions(xml);

    xml.__onEndElement("p:a");
    xml.__onEndElement("");

    EXPECT_THAT(recorder.events(), ElementsAre("end p:a", "f:end p:a", "end ", "f:end "));
}

TEST_F(XmlTest, TextIsDeliveredUpToItsFirstNulWhateverItsLengthIsSaidToBe)
{
    Xml xml;
    xml.setXmlEventListener(&recorder);
    recorder.setFunctions(xml);

    xml.__onCharacters("abc", 3);
    xml.__onCharacters("abc", 1);
    xml.__onCharacters("abc\0def", 7);
    xml.__onCharacters("abc", 0);
    xml.__onCharacters("abc", -1);
    xml.__onCharacters("", 0);

    EXPECT_THAT(recorder.events(), ElementsAre("text abc", "f:text abc", "text abc", "f:text abc",
                                               "text abc", "f:text abc", "text abc", "f:text abc",
                                               "text abc", "f:text abc", "text ", "f:text "));
}

TEST_F(XmlTest, ExactTextIsDeliveredAtTheLengthItHas)
{
    const char unterminated[] = {'a', 'b', 'c'};
    Xml xml;
    xml.setXmlEventListener(&recorder);
    recorder.setFunctions(xml);

    xml.__onExactCharacters("abcdef", 3);
    xml.__onExactCharacters(unterminated, 3);
    xml.__onExactCharacters("a\0b", 3);
    xml.__onExactCharacters("abc", 0);

    const std::string withNul("a\0b", 3);
    EXPECT_THAT(recorder.events(),
                ElementsAre("text abc", "f:text abc", "text abc", "f:text abc", "text " + withNul,
                            "f:text " + withNul, "text ", "f:text "));
}

TEST_F(XmlTest, WhatNobodyListensToIsSkippedWithoutBuildingAnything)
{
    const std::string word(100, 'w');  // too long to be kept inside a string object
    const char* attributes[] = {word.c_str(), word.c_str(), nullptr};
    const auto starts = [&](Xml& xml) { xml.__onStartElement(word.c_str(), attributes); };
    const auto ends = [&](Xml& xml) { xml.__onEndElement(word.c_str()); };
    const auto texts = [&](Xml& xml) { xml.__onCharacters(word.c_str(), 100); };
    const auto exactTexts = [&](Xml& xml) { xml.__onExactCharacters(word.c_str(), 100); };
    const auto allocations = [](Xml& xml, const std::function<void(Xml&)>& event) {
        const long before = allocationCount();
        event(xml);
        return allocationCount() - before;
    };

    Xml nobody;
    Xml startOnly;
    startOnly.setOnStartElement([](const std::string&, const Texts&) {});
    Xml endOnly;
    endOnly.setOnEndElement([](const std::string&) {});
    Xml textOnly;
    textOnly.setOnCharacters([](const std::string&) {});

    const struct {
        const char* event;
        std::function<void(Xml&)> deliver;
        Xml* listening;
    } cases[] = {
        {"start", starts, &startOnly},
        {"end", ends, &endOnly},
        {"text", texts, &textOnly},
        {"exact text", exactTexts, &textOnly},
    };
    for (const auto& dispatch : cases) {
        for (Xml* xml : {&nobody, &startOnly, &endOnly, &textOnly}) {
            const long count = allocations(*xml, dispatch.deliver);
            if (xml == dispatch.listening) {
                EXPECT_GT(count, 0) << dispatch.event;
            } else {
                EXPECT_EQ(count, 0) << dispatch.event;
            }
        }
    }
}

// ---- The handler table ----

/** What a parser is given to call, and with what. */
struct Handlers {
    xmlSAXHandler table = {};
    void* context = nullptr;
};

/** Reads with this reader, and looks at what the parser was given. */
Handlers handlersOf(Xml& xml, const std::string& path, Form form)
{
    Handlers handlers;
    const XmlCalls engine([&handlers](xmlParserCtxtPtr context) {
        handlers.table = *context->sax;
        handlers.context = context->userData;
    });
    EXPECT_EQ(read(xml, path, form), STATUS_SUCCESS);
    EXPECT_EQ(engine.parsesBegun(), 1);
    return handlers;
}

TEST_F(XmlTest, TheParserIsGivenThreeHandlersAndNothingElse)
{
    for (const Form form : FORMS) {
        Xml xml;
        const Handlers handlers = handlersOf(xml, file.path(), form);
        const xmlSAXHandler& table = handlers.table;

        EXPECT_EQ(handlers.context, &xml);
        EXPECT_NE(table.startElement, nullptr);
        EXPECT_NE(table.endElement, nullptr);
        EXPECT_NE(table.characters, nullptr);

        EXPECT_EQ(table.internalSubset, nullptr);
        EXPECT_EQ(table.isStandalone, nullptr);
        EXPECT_EQ(table.hasInternalSubset, nullptr);
        EXPECT_EQ(table.hasExternalSubset, nullptr);
        EXPECT_EQ(table.resolveEntity, nullptr);
        EXPECT_EQ(table.getEntity, nullptr);
        EXPECT_EQ(table.entityDecl, nullptr);
        EXPECT_EQ(table.notationDecl, nullptr);
        EXPECT_EQ(table.attributeDecl, nullptr);
        EXPECT_EQ(table.elementDecl, nullptr);
        EXPECT_EQ(table.unparsedEntityDecl, nullptr);
        EXPECT_EQ(table.setDocumentLocator, nullptr);
        EXPECT_EQ(table.startDocument, nullptr);
        EXPECT_EQ(table.endDocument, nullptr);
        EXPECT_EQ(table.reference, nullptr);
        EXPECT_EQ(table.ignorableWhitespace, nullptr);
        EXPECT_EQ(table.processingInstruction, nullptr);
        EXPECT_EQ(table.comment, nullptr);
        EXPECT_EQ(table.warning, nullptr);
        EXPECT_EQ(table.error, nullptr);
        EXPECT_EQ(table.fatalError, nullptr);
        EXPECT_EQ(table.getParameterEntity, nullptr);
        EXPECT_EQ(table.cdataBlock, nullptr);
        EXPECT_EQ(table.externalSubset, nullptr);
        EXPECT_EQ(table.initialized, 0u) << "the first generation of events";
        EXPECT_EQ(table._private, nullptr);
        EXPECT_EQ(table.startElementNs, nullptr);
        EXPECT_EQ(table.endElementNs, nullptr);
        EXPECT_EQ(table.serror, nullptr);
    }
}

TEST_F(XmlTest, AllReadersShareTheirHandlers)
{
    for (const Form form : FORMS) {
        Xml first;
        Xml second(file.path());
        const Handlers ofFirst = handlersOf(first, file.path(), form);
        const Handlers ofSecond = handlersOf(second, file.path(), form);

        EXPECT_EQ(ofFirst.table.startElement, ofSecond.table.startElement);
        EXPECT_EQ(ofFirst.table.endElement, ofSecond.table.endElement);
        EXPECT_EQ(ofFirst.table.characters, ofSecond.table.characters);
        EXPECT_NE(ofFirst.context, ofSecond.context);
    }
}

TEST_F(XmlTest, AHandlerDropsWhatHasNoReaderOrNoText)
{
    for (const Form form : FORMS) {
        Xml xml;
        xml.setXmlEventListener(&recorder);
        const Handlers handlers = handlersOf(xml, file.path(), form);
        const xmlSAXHandler& table = handlers.table;
        recorder.clear();
        LogCapture log;
        const auto logged = [](const char* function, const char* message) {
            return LoggedIn("OxXml.cpp", function, message);
        };

        table.startElement(nullptr, xmlText("a"), nullptr);
        table.startElement(nullptr, nullptr, nullptr);
        table.startElement(&xml, nullptr, nullptr);
        table.endElement(nullptr, xmlText("a"));
        table.endElement(nullptr, nullptr);
        table.endElement(&xml, nullptr);
        EXPECT_THAT(log.lines(), ElementsAre(logged("startElement", "Please check context."),
                                             logged("startElement", "Please check context."),
                                             logged("startElement", "Invalid parameter,"),
                                             logged("endElement", "Please check context."),
                                             logged("endElement", "Please check context."),
                                             logged("endElement", "Invalid parameter,")));

        log.clear();
        table.characters(nullptr, xmlText("t"), 1);
        table.characters(nullptr, nullptr, 0);
        table.characters(&xml, nullptr, 0);
        EXPECT_THAT(log.lines(), ElementsAre(logged("characters", "Please check context."),
                                             logged("characters", "Please check context."),
                                             logged("characters", "Invalid parameter,")));
        EXPECT_THAT(recorder.events(), IsEmpty());
    }
}

TEST_F(XmlTest, AHandlerForwardsAttributesAndLengthUnchanged)
{
    for (const Form form : FORMS) {
        recorder.clear();
        Xml xml;
        xml.setXmlEventListener(&recorder);
        {
            const XmlCalls engine([](xmlParserCtxtPtr context) {
                const xmlChar* attributes[] = {xmlText("x"), xmlText("1"), nullptr};
                context->sax->startElement(context->userData, xmlText("first"), attributes);
                context->sax->startElement(context->userData, xmlText("second"), nullptr);
                context->sax->endElement(context->userData, xmlText("second"));
                context->sax->characters(context->userData, xmlText("abcdef"), 3);
            });
            EXPECT_EQ(read(xml, file.path(), form), STATUS_SUCCESS);
        }
        ASSERT_THAT(recorder.events(), SizeIs(Ge(4u)));
        EXPECT_EQ(recorder.events()[0], "start first|x|1");
        EXPECT_EQ(recorder.events()[1], "start second");
        EXPECT_EQ(recorder.events()[2], "end second");
        EXPECT_EQ(recorder.events()[3], form == Form::Exact ? "text abc" : "text abcdef");
    }
}

// ---- Copies ----

TEST_F(XmlTest, ACopyHasThePathAndTheFunctionsAndSharesTheListener)
{
    const ScriptFile other("<other/>");
    Recorder functions;
    auto source = std::make_unique<Xml>(file.path());
    source->setXmlEventListener(&recorder);
    functions.setFunctions(*source, "");

    Xml copy(*source);
    Xml assigned(other.path());
    assigned.setOnEndElement([](const std::string&) { ADD_FAILURE() << "it was replaced"; });
    assigned = *source;
    EXPECT_EQ(source->read(other.path()), STATUS_SUCCESS);
    source->setOnStartElement(nullptr);
    source.reset();

    for (Xml* xml : {&copy, &assigned}) {
        recorder.clear();
        functions.clear();
        EXPECT_EQ(xml->read(EXACT_TEXT), STATUS_SUCCESS);
        EXPECT_THAT(recorder.events(),
                    ElementsAre("start a|x|1|y|2", "text hi", "start b", "end b", "end a"));
        EXPECT_EQ(functions.events(), recorder.events());
    }
}

// ---- Changing receivers ----

TEST_F(XmlTest, AReaderKeepsACopyOfAFunctionAndDestroysItAtLast)
{
    const auto start = std::make_shared<int>(0);
    const auto end = std::make_shared<int>(0);
    const auto text = std::make_shared<int>(0);
    {
        Xml xml(file.path());
        xml.setOnStartElement([start](const std::string&, const Texts&) { ++*start; });
        xml.setOnEndElement([end](const std::string&) { ++*end; });
        xml.setOnCharacters([text](const std::string&) { ++*text; });
        EXPECT_EQ(start.use_count(), 2);
        EXPECT_EQ(end.use_count(), 2);
        EXPECT_EQ(text.use_count(), 2);

        EXPECT_EQ(xml.read(), STATUS_SUCCESS);
        EXPECT_EQ(*start, 2);
        EXPECT_EQ(*end, 2);
        EXPECT_EQ(*text, 1);

        xml.setOnStartElement(nullptr);
        EXPECT_EQ(start.use_count(), 1);
    }
    EXPECT_EQ(end.use_count(), 1);
    EXPECT_EQ(text.use_count(), 1);
}

TEST_F(XmlTest, AListenerStaysTheCallersAndMayBeGoneBeforeTheReader)
{
    auto listener = std::make_unique<Recorder>();
    Xml xml(file.path());
    xml.setXmlEventListener(listener.get());
    EXPECT_EQ(xml.read(), STATUS_SUCCESS);
    EXPECT_THAT(listener->events(), SizeIs(5));

    listener.reset();
}

TEST_F(XmlTest, AFunctionThatCannotBeCopiedLeavesTheOldOneInPlace)
{
    struct Uncopyable {
        explicit Uncopyable(bool* refuse) : refusing(refuse) {}
        Uncopyable(const Uncopyable& other) : refusing(other.refusing)
        {
            if (*refusing) {
                throw std::runtime_error("no copy");
            }
        }
        void operator()(const std::string&, const Texts&) const {}
        void operator()(const std::string&) const {}
        bool* refusing;
    };

    bool refuse = false;
    const Xml::StartElementCallback start = Uncopyable(&refuse);
    const Xml::EndElementCallback end = Uncopyable(&refuse);
    refuse = true;
    Xml xml(file.path());
    recorder.setFunctions(xml, "");

    EXPECT_THROW(xml.setOnStartElement(start), std::runtime_error);
    EXPECT_THROW(xml.setOnEndElement(end), std::runtime_error);
    EXPECT_THROW(xml.setOnCharacters(end), std::runtime_error);

    EXPECT_EQ(xml.read(EXACT_TEXT), STATUS_SUCCESS);
    EXPECT_THAT(recorder.events(),
                ElementsAre("start a|x|1|y|2", "text hi", "start b", "end b", "end a"));
}

TEST_F(XmlTest, WhatAFunctionSetsCountsFromTheNextEventOn)
{
    const ScriptFile document("<a>1<b>2</b>3</a>");
    const Texts all = {"start a", "text 1", "start b", "text 2", "end b", "text 3", "end a"};
    for (const std::string& event : all) {
        SCOPED_TRACE(event);
        Recorder before;
        Recorder after;
        Xml xml(document.path());
        before.setFunctions(xml, "");
        before.reactTo(event, [&] {
            xml.setXmlEventListener(&after);
            after.setFunctions(xml);
        });

        EXPECT_EQ(xml.read(EXACT_TEXT), STATUS_SUCCESS);

        const auto next = std::find(all.begin(), all.end(), event) + 1;
        Texts rest;
        for (auto later = next; later != all.end(); ++later) {
            rest.insert(rest.end(), {*later, "f:" + *later});
        }
        EXPECT_EQ(before.events(), Texts(all.begin(), next));
        EXPECT_EQ(after.events(), rest);
    }
}

TEST_F(XmlTest, FunctionsThatAListenerSetsHearOfTheSameEventAndAnotherListenerOfTheNext)
{
    const ScriptFile document("<a>1<b>2</b>3</a>");
    const Texts all = {"start a", "text 1", "start b", "text 2", "end b", "text 3", "end a"};
    for (const std::string& event : all) {
        SCOPED_TRACE(event);
        Recorder before;
        Recorder after;
        Recorder functions;
        Xml xml(document.path());
        xml.setXmlEventListener(&before);
        before.reactTo(event, [&] {
            xml.setXmlEventListener(&after);
            functions.setFunctions(xml, "");
        });

        EXPECT_EQ(xml.read(EXACT_TEXT), STATUS_SUCCESS);

        const auto same = std::find(all.begin(), all.end(), event);
        EXPECT_EQ(before.events(), Texts(all.begin(), same + 1));
        EXPECT_EQ(after.events(), Texts(same + 1, all.end()));
        EXPECT_EQ(functions.events(), Texts(same, all.end()));
    }
}

TEST_F(XmlTest, WhatIsRemovedInsideAnEventIsNotCalledAnyMore)
{
    const ScriptFile document("<a>1<b>2</b>3</a>");
    for (const std::string prefix : {"", "f:"}) {
        for (const std::string kind : {"start b", "text 2", "end b"}) {
            const std::string event = prefix + kind;
            SCOPED_TRACE(event);
            recorder.clear();
            Xml xml(document.path());
            xml.setXmlEventListener(&recorder);
            recorder.setFunctions(xml);
            recorder.reactTo(event, [&xml] {
                xml.setXmlEventListener(nullptr);
                xml.setOnStartElement(nullptr);
                xml.setOnEndElement(nullptr);
                xml.setOnCharacters(nullptr);
            });

            EXPECT_EQ(xml.read(EXACT_TEXT), STATUS_SUCCESS);

            EXPECT_EQ(recorder.last(), event);
        }
    }
}

TEST_F(XmlTest, OneKindOfFunctionMayBeReplacedFromInsideAnother)
{
    Texts events;
    Xml xml(file.path());
    xml.setOnStartElement([&](const std::string& name, const Texts&) {
        xml.setOnEndElement(
            [&events, name](const std::string& end) { events.push_back(name + " " + end); });
    });

    EXPECT_EQ(xml.read(), STATUS_SUCCESS);

    EXPECT_THAT(events, ElementsAre("b b", "b a"));
}

TEST_F(XmlTest, AFunctionThatReplacesItselfStillHasWhatItCaptured)
{
    const ScriptFile document("<a>1<b>2</b>3</a>");
    using Own = std::shared_ptr<const std::string>;
    using WeakOwn = std::weak_ptr<const std::string>;
    const auto made = [](const char* text) { return std::make_shared<const std::string>(text); };

    for (const bool removing : {false, true}) {
        Texts events;
        std::vector<WeakOwn> captured;
        const auto use = [&](const WeakOwn& own) {
            const Own alive = own.lock();
            events.push_back(alive ? *alive : "gone");
            captured.push_back(own);
        };
        Xml xml(document.path());
        const auto replacement = [&](const char* text) -> std::function<void(const std::string&)> {
            if (removing) {
                return nullptr;
            }
            return [&events, text](const std::string&) { events.push_back(text); };
        };

        xml.setOnStartElement([&, own = made("own start")](const std::string&, const Texts&) {
            const WeakOwn watch = own;
            if (removing) {
                xml.setOnStartElement(nullptr);
            } else {
                xml.setOnStartElement(
                    [&](const std::string&, const Texts&) { events.push_back("new start"); });
            }
            use(watch);
        });
        xml.setOnEndElement([&, own = made("own end")](const std::string&) {
            const WeakOwn watch = own;
            xml.setOnEndElement(replacement("new end"));
            use(watch);
        });
        xml.setOnCharacters([&, own = made("own text")](const std::string&) {
            const WeakOwn watch = own;
            xml.setOnCharacters(replacement("new text"));
            use(watch);
        });

        EXPECT_EQ(xml.read(EXACT_TEXT), STATUS_SUCCESS);

        if (removing) {
            EXPECT_THAT(events, ElementsAre("own start", "own text", "own end"));
        } else {
            EXPECT_THAT(events, ElementsAre("own start", "own text", "new start", "new text",
                                            "own end", "new text", "new end"));
        }
        for (const WeakOwn& own : captured) {
            EXPECT_TRUE(own.expired()) << "what was replaced is destroyed";
        }
    }
}

TEST_F(XmlTest, AListenerMayRemoveAndDestroyItselfInsideAnEvent)
{
    struct Once : IXmlEventListener {
        Once(Xml& reader, int& calls) : xml(reader), count(calls) {}
        void onStartElement(const std::string&, const Texts&) override {}
        void onEndElement(const std::string&) override
        {
            ++count;
            xml.setXmlEventListener(nullptr);
            delete this;
        }
        void onCharacters(const std::string&) override {}
        Xml& xml;
        int& count;
    };

    int calls = 0;
    Xml xml(file.path());
    recorder.setFunctions(xml, "");
    xml.setXmlEventListener(new Once(xml, calls));

    EXPECT_EQ(xml.read(), STATUS_SUCCESS);

    EXPECT_EQ(calls, 1);
    EXPECT_THAT(recorder.events(), SizeIs(5));
}

TEST_F(XmlTest, AFunctionsOwnStateLastsFromOneEventToTheNextAndFromReadToRead)
{
    std::vector<int> starts;
    std::vector<int> ends;
    std::vector<int> texts;
    const ScriptFile document("<a>1<b>2</b></a>");
    Xml xml(document.path());
    Xml::EndElementCallback end = [&, n = 0](const std::string&) mutable { ends.push_back(++n); };
    xml.setOnStartElement(
        [&, n = 0](const std::string&, const Texts&) mutable { starts.push_back(++n); });
    xml.setOnEndElement(end);
    xml.setOnCharacters([&, n = 0](const std::string&) mutable { texts.push_back(++n); });

    EXPECT_EQ(xml.read(), STATUS_SUCCESS);
    EXPECT_EQ(xml.read(EXACT_TEXT), STATUS_SUCCESS);
    end("the caller's own");

    EXPECT_THAT(starts, ElementsAre(1, 2, 3, 4));
    EXPECT_THAT(ends, ElementsAre(1, 2, 3, 4, 1)) << "the reader has a copy";
    EXPECT_THAT(texts, ElementsAre(1, 2, 3, 4));
}

// ---- A read inside a read ----

TEST_F(XmlTest, AnotherReaderMayReadInsideAnEvent)
{
    const ScriptFile inner("<i>in</i>");
    for (const std::string event : {"start b", "text out", "end b"}) {
        for (const Form form : FORMS) {
            const ScriptFile outer("<o><b>out</b></o>");
            Xml other(inner.path());
            other.setXmlEventListener(&recorder);
            recorder.clear();
            Xml xml(outer.path());
            xml.setXmlEventListener(&recorder);
            recorder.reactTo(event, [&] { EXPECT_EQ(read(other, form), STATUS_SUCCESS); });

            EXPECT_EQ(xml.read(EXACT_TEXT), STATUS_SUCCESS);

            Texts expected = {"start o", "start b", "text out", "end b", "end o"};
            const auto place = std::find(expected.begin(), expected.end(), event);
            const Texts nested = {"start i", form == Form::Exact ? "text in" : "text in</i>",
                                  "end i"};
            expected.insert(place + 1, nested.begin(), nested.end());
            EXPECT_EQ(recorder.events(), expected);
        }
    }
}

TEST_F(XmlTest, AReaderMayReadAnotherFileInsideItsOwnEvent)
{
    const ScriptFile outer("<o><b>out</b>more</o>");
    const ScriptFile inner("<i>in</i>");
    for (const bool byFunction : {false, true}) {
        recorder.clear();
        FileCalls files;
        Xml xml(outer.path());
        if (byFunction) {
            recorder.setFunctions(xml, "");
        } else {
            xml.setXmlEventListener(&recorder);
        }
        recorder.reactTo("start b", [&] { EXPECT_EQ(xml.read(inner.path()), STATUS_SUCCESS); });

        EXPECT_EQ(xml.read(EXACT_TEXT), STATUS_SUCCESS);
        EXPECT_TRUE(files.isEverythingReleased());
        EXPECT_THAT(recorder.events(), ElementsAre("start o", "start b",               //
                                                   "start i", "text in</i>", "end i",  //
                                                   "text out", "end b", "text more", "end o"))
            << "each of the two keeps its form";

        recorder.clear();
        EXPECT_EQ(xml.read(EXACT_TEXT), STATUS_SUCCESS);
        EXPECT_THAT(recorder.events(), ElementsAre("start i", "text in", "end i"))
            << "the path of the inner one is the one remembered";
    }
}

TEST_F(XmlTest, AnEventThatIsDeliveredFromInsideAnotherLeavesItsTextsAlone)
{
    Recorder inside;
    Xml other;
    inside.setFunctions(other, "");
    const auto deliver = [&other] {
        const char* attributes[] = {"u", "v", nullptr};
        other.__onStartElement("other", attributes);
        other.__onCharacters("other text", 10);
        other.__onExactCharacters("exact text", 10);
        other.__onEndElement("other");
    };

    Texts seen;
    Xml xml(file.path());
    xml.setOnStartElement([&](const std::string& name, const Texts& attributes) {
        deliver();
        seen.push_back("start " + name);
        seen.insert(seen.end(), attributes.begin(), attributes.end());
    });
    xml.setOnEndElement([&](const std::string& name) {
        deliver();
        seen.push_back("end " + name);
    });
    xml.setOnCharacters([&](const std::string& text) {
        deliver();
        seen.push_back("text " + text);
    });

    EXPECT_EQ(read(xml, Form::Exact), STATUS_SUCCESS);

    EXPECT_THAT(seen,
                ElementsAre("start a", "x", "1", "y", "2", "text hi", "start b", "end b", "end a"));
    // Five times the same four events.
    EXPECT_THAT(inside.events(), SizeIs(20));
    EXPECT_EQ(Texts(inside.events().begin(), inside.events().begin() + 4),
              Texts({"start other|u|v", "text other text", "text exact text", "end other"}));
}

TEST_F(XmlTest, AFunctionsOwnStateIsOneInNestedReadsToo)
{
    const ScriptFile inner("<i/>");
    std::vector<int> counts;
    Xml xml(file.path());
    xml.setOnStartElement([&, n = 0](const std::string& name, const Texts&) mutable {
        counts.push_back(++n);
        if (name == "a") {
            EXPECT_EQ(xml.read(inner.path()), STATUS_SUCCESS);
            counts.push_back(n);
        }
    });

    EXPECT_EQ(xml.read(), STATUS_SUCCESS);

    EXPECT_THAT(counts, ElementsAre(1, 2, 2, 3));
}

TEST_F(XmlTest, AnInnerReadThatFailsDoesNotStopTheOuterOne)
{
    const LogCapture log;
    const ScriptFile malformed("<i>");
    Xml xml(file.path());
    xml.setXmlEventListener(&recorder);
    recorder.reactTo("start b",
                     [&] { EXPECT_EQ(xml.read(malformed.path()), STATUS_INVALID_PARAMETER); });

    EXPECT_EQ(xml.read(EXACT_TEXT), STATUS_SUCCESS);

    EXPECT_THAT(recorder.events(),
                ElementsAre("start a|x|1|y|2", "text hi", "start b", "start i", "end b", "end a"));
    EXPECT_THAT(log.lines(), ElementsAre(readLogs("Xml parsing failed")));
}

TEST_F(XmlTest, ALoadInsideAnEventDoesNotDisturbTheRead)
{
    const ScriptFile inner("<i/>");
    Xml xml(file.path());
    xml.setXmlEventListener(&recorder);
    recorder.reactTo("start b", [&] {
        const std::unique_ptr<XmlDocument> document(xml.load(inner.path()));
        ASSERT_NE(document, nullptr);
        EXPECT_EQ(rootOf(*document), "i");
    });

    EXPECT_EQ(xml.read(EXACT_TEXT), STATUS_SUCCESS);

    EXPECT_THAT(recorder.events(), SizeIs(5));
}

// ---- Exceptions ----

/** What only an exception object of the right type and content can tell. */
struct Refusal : std::runtime_error {
    explicit Refusal(const std::string& event) : std::runtime_error("refused: " + event) {}
};

TEST_F(XmlTest, AnExceptionStopsTheParserAndReachesTheCallerOfTheRead)
{
    const ScriptFile document("<a><b x='1'/>1<c>2</c>3<d/></a>");
    const Texts all = {"start a", "start b|x|1", "end b",   "text 1", "start c", "text 2",
                       "end c",   "text 3",      "start d", "end d",  "end a"};
    const std::string prefixes[] = {"", "f:"};

    for (std::size_t last = 0; last < all.size(); ++last) {
        for (const std::string& prefix : prefixes) {
            const std::string event = prefix + all[last];
            SCOPED_TRACE(event);
            recorder.clear();
            FileCalls files;
            XmlCalls engine;
            Xml xml(document.path());
            xml.setXmlEventListener(&recorder);
            recorder.setFunctions(xml);
            recorder.reactTo(event, [&event] { throw Refusal(event); });

            try {
                xml.read(EXACT_TEXT);
                ADD_FAILURE() << "no exception";
            } catch (const Refusal& refusal) {
                EXPECT_EQ(refusal.what(), "refused: " + event);
            }

            EXPECT_EQ(recorder.events().size(), 2 * last + (prefix.empty() ? 1 : 2));
            EXPECT_EQ(recorder.last(), event);
            EXPECT_TRUE(files.isEverythingReleased());
            EXPECT_THAT(files.calls(), Contains("fclose"));
            EXPECT_TRUE(engine.isContextFreed());
            EXPECT_EQ(engine.parsesReturned(), 1) << "no frame of libxml2 was unwound";
            EXPECT_EQ(engine.memoryCleanups(), 0);
        }
    }
}

TEST_F(XmlTest, AnExceptionMayBeOfAnyTypeInBothFormsAndOneReaderGoesOn)
{
    for (const Form form : FORMS) {
        const std::string text = form == Form::Exact ? "text hi" : "text hi<b/></a>";
        Xml xml(file.path());
        xml.setXmlEventListener(&recorder);
        for (const std::string& event :
             {std::string("start a|x|1|y|2"), text, std::string("start b"), std::string("end a")}) {
            SCOPED_TRACE(event);

            recorder.reactTo(event, [] { throw 42; });
            try {
                read(xml, form);
                ADD_FAILURE() << "no exception";
            } catch (int thrown) {
                EXPECT_EQ(thrown, 42);
            }
            EXPECT_EQ(recorder.last(), event);

            recorder.reactTo(event, [] { throw std::out_of_range("far out"); });
            EXPECT_THROW(read(xml, form), std::out_of_range);
            EXPECT_EQ(recorder.last(), event);

            recorder.reactTo(event, [] { throw std::make_unique<int>(7); });
            EXPECT_THROW(read(xml, form), std::unique_ptr<int>);

            recorder.react(nullptr);
            recorder.clear();
            EXPECT_EQ(read(xml, form), STATUS_SUCCESS);
            EXPECT_THAT(recorder.events(),
                        ElementsAre("start a|x|1|y|2", text, "start b", "end b", "end a"));
            EXPECT_EQ(loadedRoot(xml), "a");
            recorder.clear();
        }
    }
}

TEST_F(XmlTest, AFunctionThatThrewIsStillThereWithItsState)
{
    std::vector<int> starts;
    std::vector<int> ends;
    std::vector<int> texts;
    Xml xml(file.path());
    const auto count = [](std::vector<int>& counts, int& n) {
        counts.push_back(++n);
        if (n == 1) {
            throw Refusal("first");
        }
    };
    xml.setOnStartElement(
        [&, n = 0](const std::string&, const Texts&) mutable { count(starts, n); });
    xml.setOnCharacters([&, n = 0](const std::string&) mutable { count(texts, n); });
    xml.setOnEndElement([&, n = 0](const std::string&) mutable { count(ends, n); });

    EXPECT_THROW(xml.read(), Refusal);
    EXPECT_THROW(xml.read(EXACT_TEXT), Refusal);
    EXPECT_THROW(xml.read(), Refusal);
    EXPECT_EQ(xml.read(), STATUS_SUCCESS);

    EXPECT_THAT(starts, ElementsAre(1, 2, 3, 4, 5, 6));
    EXPECT_THAT(texts, ElementsAre(1, 2, 3));
    EXPECT_THAT(ends, ElementsAre(1, 2, 3));
}

TEST_F(XmlTest, AnExceptionLeavesNoFurtherRunOfALongText)
{
    std::string text;
    while (text.size() < 5'000) {
        text += "h\u00e9 ";
    }
    const ScriptFile document("<a>" + text + "&amp;<![CDATA[" + text + "]]></a>");
    for (const Form form : FORMS) {
        int texts = 0;
        Xml xml(document.path());
        xml.setOnCharacters([&texts](const std::string&) {
            ++texts;
            throw Refusal("text");
        });

        EXPECT_THROW(read(xml, form), Refusal);

        EXPECT_EQ(texts, 1);
    }
}

TEST_F(XmlTest, AnExceptionCountsMoreThanAnErrorThatWouldHaveFollowed)
{
    const ScriptFile malformed("<a><b></a>");
    for (const Form form : FORMS) {
        recorder.clear();
        FileCalls files;
        Xml xml(malformed.path());
        xml.setXmlEventListener(&recorder);
        recorder.reactTo("start b", [] { throw Refusal("start b"); });

        EXPECT_THROW(read(xml, form), Refusal);  // logs nothing

        EXPECT_THAT(recorder.events(), ElementsAre("start a", "start b"));
        EXPECT_TRUE(files.isEverythingReleased());
    }
}

TEST_F(XmlTest, AnExceptionOfAnInnerReadStopsTheInnerOneOnlyIfItIsCaught)
{
    const ScriptFile inner("<i>1<j/></i>");
    for (const bool sameReader : {false, true}) {
        for (const Form form : FORMS) {
            recorder.clear();
            Xml xml(file.path());
            Xml other;
            xml.setXmlEventListener(&recorder);
            other.setXmlEventListener(&recorder);
            recorder.react([&](const std::string& event) {
                if (event == "start b") {
                    EXPECT_THROW(read(sameReader ? xml : other, inner.path(), form), Refusal);
                } else if (event == "start j") {
                    throw Refusal(event);
                }
            });

            EXPECT_EQ(xml.read(EXACT_TEXT), STATUS_SUCCESS);

            EXPECT_THAT(recorder.events(),
                        ElementsAre("start a|x|1|y|2", "text hi", "start b", "start i",
                                    form == Form::Exact ? "text 1" : "text 1<j/></i>", "start j",
                                    "end b", "end a"));
        }
    }
}

TEST_F(XmlTest, AnExceptionOfAnInnerReadThatIsNotCaughtStopsBoth)
{
    const ScriptFile inner("<i>1<j/></i>");
    for (const bool sameReader : {false, true}) {
        for (const Form form : FORMS) {
            recorder.clear();
            FileCalls files;
            XmlCalls engine;
            Xml xml(file.path());
            Xml other;
            xml.setXmlEventListener(&recorder);
            other.setXmlEventListener(&recorder);
            recorder.react([&](const std::string& event) {
                if (event == "start b") {
                    read(sameReader ? xml : other, inner.path(), form);
                } else if (event == "start j") {
                    throw Refusal(event);
                }
            });

            try {
                xml.read(EXACT_TEXT);
                ADD_FAILURE() << "no exception";
            } catch (const Refusal& refusal) {
                EXPECT_STREQ(refusal.what(), "refused: start j");
            }

            EXPECT_EQ(recorder.last(), "start j");
            EXPECT_TRUE(files.isEverythingReleased());
            EXPECT_EQ(engine.parsesReturned(), 2);

            recorder.react(nullptr);
            recorder.clear();
            EXPECT_EQ(xml.read(file.path(), EXACT_TEXT), STATUS_SUCCESS);
            EXPECT_THAT(recorder.events(), SizeIs(5));
        }
    }
}

TEST_F(XmlTest, AnExceptionAfterAnInnerReadStopsTheOuterOne)
{
    const ScriptFile inner("<i/>");
    Xml xml(file.path());
    xml.setXmlEventListener(&recorder);
    recorder.reactTo("start b", [&] {
        EXPECT_EQ(xml.read(inner.path()), STATUS_SUCCESS);
        throw Refusal("start b");
    });

    EXPECT_THROW(xml.read(EXACT_TEXT), Refusal);

    EXPECT_THAT(recorder.events(),
                ElementsAre("start a|x|1|y|2", "text hi", "start b", "start i", "end i"));
}

TEST_F(XmlTest, AnExceptionOfADirectDeliveryReachesItsCaller)
{
    Xml xml;
    xml.setXmlEventListener(&recorder);
    recorder.setFunctions(xml);
    recorder.react([](const std::string& event) { throw Refusal(event); });

    EXPECT_THROW(xml.__onStartElement("a", nullptr), Refusal);
    EXPECT_THROW(xml.__onEndElement("a"), Refusal);
    EXPECT_THROW(xml.__onCharacters("t", 1), Refusal);
    EXPECT_THROW(xml.__onExactCharacters("t", 1), Refusal);

    EXPECT_THAT(recorder.events(), ElementsAre("start a", "end a", "text t", "text t"));
}

// ---- Untrusted input ----

/** Entities each of which is ten times the one before. */
std::string bomb(const std::string& use)
{
    std::string document = "<!DOCTYPE a [<!ENTITY l0 'lol'>";
    for (int i = 1; i < 10; ++i) {
        document += "<!ENTITY l" + std::to_string(i) + " '" +
                    repeated(("&l" + std::to_string(i - 1) + ";").c_str(), 10) + "'>";
    }
    return document + "]>" + use;
}

std::string withAttributes(int count)
{
    std::string document = "<a";
    for (int i = 0; i < count; ++i) {
        document += " n" + std::to_string(i) + "='" + std::to_string(i) + "'";
    }
    return document + "/>";
}

TEST_F(XmlTest, WhatCannotBeTrustedIsReadOrRefusedAndOpensNothingElse)
{
    const std::string fileEntity = "<!ENTITY e SYSTEM 'file:///etc/hostname'>";
    const std::string httpEntity = "<!ENTITY e SYSTEM 'http://127.0.0.1:9/'>";
    const std::string parameterEntity = "<!ENTITY % p SYSTEM 'file:///etc/hostname'> %p;";
    const auto declaring = [](const std::string& declarations, const std::string& rest) {
        return "<!DOCTYPE a [" + declarations + "]>" + rest;
    };
    const auto encoded = [](const std::string& name, const std::string& rest) {
        return "<?xml version='1.0' encoding='" + name + "'?>" + rest;
    };
    const std::string nul(1, '\0');
    const std::string bom = "\xef\xbb\xbf";

    const struct {
        const char* what;
        std::string document;
        bool isRead;
        bool isLoaded;
    } cases[] = {
        {"white space only", " \n\t", false, false},
        {"a byte order mark only", bom, false, false},
        {"a byte order mark", bom + "<a/>", true, true},
        {"a byte order mark of UTF-16", std::string("\xff\xfe<\0a\0/\0>\0", 10), true, true},
        {"NUL bytes only", std::string(8, '\0'), false, false},
        {"NUL in text", "<a>x" + nul + "y</a>", false, false},
        {"NUL in a tag", "<a" + nul + "/>", false, false},
        {"NUL in an attribute", "<a b='x" + nul + "y'/>", false, false},
        {"NUL behind the document", "<a/>" + nul, true, true},
        {"bytes that are no UTF-8", "<a>x\xffy</a>", false, false},
        {"an attribute that is no UTF-8", "<a b='\xc3('/>", false, false},
        {"an overlong NUL", "<a>\xc0\x80</a>", false, false},
        {"half a surrogate", "<a>\xed\xa0\x80</a>", false, false},
        {"half a surrogate in UTF-16", std::string("\xff\xfe<\0a\0>\0\0\xd8x\0<\0/\0a\0>\0", 20),
         false, false},
        {"a control character", "<a>\x01</a>", false, false},
        {"an encoding that nobody knows", encoded("nonsense", "<a/>"), false, false},
        {"UTF-16 that is none", encoded("UTF-16", "<a/>"), false, false},
        {"Latin-1 that says it is UTF-8", encoded("UTF-8", "<a>\xe9</a>"), false, false},
        {"UTF-8 that says it is ASCII", encoded("US-ASCII", "<a>\xc3\xa9</a>"), false, false},
        {"UTF-8 that says it is Latin-1", encoded("ISO-8859-1", "<a>\xc3\xa9</a>"), true, true},
        {"two roots", "<a/><b/>", false, false},
        {"text behind the root", "<a/>x", false, false},
        {"an attribute twice", "<a x='1' x='2'/>", false, false},
        {"an entity that is not declared", "<a>&e;</a>", false, false},
        {"an entity of its own", declaring("<!ENTITY e 'x'>", "<a>1&e;2</a>"), false, true},
        {"one in an attribute", declaring("<!ENTITY e 'x'>", "<a b='&e;'/>"), false, true},
        {"one that is not used", declaring("<!ENTITY e 'x'>", "<a/>"), true, true},
        {"one beside declarations that are not read",
         "<!DOCTYPE a SYSTEM 'a.dtd' [<!ENTITY e 'x'>]><a>&e;</a>", true, true},
        {"an entity of a file", declaring(fileEntity, "<a>&e;</a>"), false, true},
        {"an entity of the network", declaring(httpEntity, "<a>&e;</a>"), false, true},
        {"declarations of a file", declaring(parameterEntity, "<a/>"), false, true},
        {"a document type of a file", "<!DOCTYPE a SYSTEM '/etc/hostname'><a/>", true, true},
        {"one of the network", "<!DOCTYPE a SYSTEM 'http://127.0.0.1:9/'><a/>", true, true},
        {"a billion laughs", bomb("<a>&l9;</a>"), false, false},
        {"a billion laughs in an attribute", bomb("<a b='&l9;'/>"), false, false},
        {"an entity made of itself", declaring("<!ENTITY e '&f;'><!ENTITY f '&e;'>", "<a>&e;</a>"),
         false, false},
        {"257 levels", repeated("<a>", 257) + repeated("</a>", 257), true, true},
        {"258 levels", repeated("<a>", 258) + repeated("</a>", 258), false, false},
        {"100,000 levels", repeated("<a>", 100'000) + repeated("</a>", 100'000), false, false},
        {"100,000 open tags", repeated("<a>", 100'000), false, false},
        {"attribute to 10 MB", "<a b='" + std::string(9'999'991, 'x') + "'/>", true, true},
        {"attribute to more", "<a b='" + std::string(9'999'992, 'x') + "'/>", false, false},
        {"11 MB of CDATA", "<a><![CDATA[" + std::string(11'000'000, 'x') + "]]></a>", false, false},
        {"11 MB of text", "<a>" + std::string(11'000'000, 'x') + "</a>", true, false},
        {"a name of 60,000 bytes", "<" + std::string(60'000, 'n') + "/>", false, false},
        {"2,000 attributes", withAttributes(2'000), true, true},
    };
    for (const auto& input : cases) {
        SCOPED_TRACE(input.what);
        const ScriptFile untrusted(input.document);
        const EngineMessages quiet;
        LogCapture log;
        Xml xml(untrusted.path());

        const LoadedUrls loaded;
        for (const Form form : FORMS) {
            log.clear();
            FileCalls files;
            EXPECT_EQ(read(xml, form), input.isRead ? STATUS_SUCCESS : STATUS_INVALID_PARAMETER);
            EXPECT_TRUE(files.isEverythingReleased());
            if (input.isRead) {
                EXPECT_THAT(log.lines(), IsEmpty());
            } else {
                EXPECT_THAT(log.lines(), ElementsAre(readLogs("Xml parsing failed")));
            }
        }
        EXPECT_THAT(loaded.urls(), IsEmpty());

        log.clear();
        const std::unique_ptr<XmlDocument> document(xml.load());
        EXPECT_EQ(document != nullptr, input.isLoaded);
        if (input.isLoaded) {
            EXPECT_THAT(log.lines(), IsEmpty());
        } else {
            EXPECT_THAT(log.lines(), ElementsAre(loadFails(untrusted.path())));
        }
        EXPECT_THAT(loaded.urls(), Each(untrusted.path()));
    }
}

TEST_F(XmlTest, AnEmptyFileIsNotLoadedEither)
{
    const EngineMessages quiet;
    const LogCapture log;
    const ScriptFile empty("");
    Xml xml(empty.path());

    EXPECT_EQ(xml.load(), nullptr);

    EXPECT_THAT(log.lines(), ElementsAre(loadFails(empty.path())));
}

TEST_F(XmlTest, ManyAttributesArriveInOrder)
{
    const ScriptFile many(withAttributes(2'000));
    Texts attributes;
    Xml xml(many.path());
    xml.setOnStartElement([&](const std::string&, const Texts& list) { attributes = list; });

    EXPECT_EQ(xml.read(), STATUS_SUCCESS);

    ASSERT_EQ(attributes.size(), 4'000u);
    for (std::size_t i = 0; i < 2'000; ++i) {
        ASSERT_EQ(attributes[2 * i], "n" + std::to_string(i));
        ASSERT_EQ(attributes[2 * i + 1], std::to_string(i));
    }
}

/** A little of everything that a parser has to get through. */
const std::string SAMPLE =
    "<?xml version='1.0' encoding='UTF-8'?><!DOCTYPE a [<!ELEMENT a ANY><!ATTLIST a x CDATA "
    "#IMPLIED>]><!--c--><a x='1&amp;'>t\xc3\xa9&lt;<![CDATA[<]]><?p i?><b/></a>\n";

/** Reads a file in both forms: success, or a refusal that is logged; nothing else. */
void expectReadOrRefused(const ScriptFile& untrusted)
{
    for (const Form form : FORMS) {
        const LogCapture log;
        FileCalls files;
        Recorder recorder;
        Xml xml(untrusted.path());
        xml.setXmlEventListener(&recorder);

        const int result = read(xml, form);

        EXPECT_TRUE(files.isEverythingReleased());
        EXPECT_TRUE(result == STATUS_SUCCESS || result == STATUS_INVALID_PARAMETER) << result;
        EXPECT_EQ(log.lines().size(), result == STATUS_SUCCESS ? 0u : 1u);
        for (const LogLine& line : log.lines()) {
            EXPECT_EQ(line.message, "Xml parsing failed");
        }
    }
}

TEST_F(XmlTest, ADocumentThatIsCutOffAnywhereIsRefused)
{
    const std::size_t complete = SAMPLE.size() - 1;  // without the last line's end
    const EngineMessages quiet;
    for (std::size_t size = 1; size <= SAMPLE.size(); ++size) {
        const ScriptFile cut(SAMPLE.substr(0, size));
        SCOPED_TRACE(size);
        expectReadOrRefused(cut);

        LogCapture log;
        Xml xml(cut.path());
        EXPECT_EQ(xml.read(), size >= complete ? STATUS_SUCCESS : STATUS_INVALID_PARAMETER);
        EXPECT_EQ(loadedRoot(xml), size >= complete ? "a" : "");
    }
}

TEST_F(XmlTest, ADocumentWithADamagedByteIsReadOrRefused)
{
    const EngineMessages quiet;
    const ScriptFile damaged(SAMPLE);
    for (std::size_t place = 0; place < SAMPLE.size(); ++place) {
        for (const char byte : {'\0', '<', '\'', '\xff'}) {
            std::string document = SAMPLE;
            document[place] = byte;
            damaged.write(document);
            SCOPED_TRACE(document);
            expectReadOrRefused(damaged);
        }
    }
}

}  // namespace
}  // namespace oxil::test
