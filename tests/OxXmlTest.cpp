#include <OxXml.h>

#include <OxStatus.h>
#include <OxXmlDocument.h>
#include <OxXmlNode.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <libxml/parser.h>
#include <libxml/tree.h>

#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>

#include "AllocationFailure.h"
#include "EngineMessages.h"
#include "FileCalls.h"
#include "FreeObserver.h"
#include "OxLogMatchers.h"
#include "ScriptFile.h"
#include "XmlCalls.h"
#include "XmlReading.h"

namespace oxil::test {
namespace {

using testing::AllOf;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::Ge;
using testing::IsEmpty;
using testing::Le;
using testing::Not;
using testing::SizeIs;

static_assert(std::has_virtual_destructor_v<IXmlEventListener>);
static_assert(std::is_copy_constructible_v<Xml> && std::is_copy_assignable_v<Xml>);
static_assert(std::is_convertible_v<std::string, Xml>);

class XmlTest : public XmlReading {};

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
        Xml xml;

        EXPECT_EQ(read(xml, missing, form), STATUS_INVALID_PARAMETER);
        EXPECT_EQ(read(xml, tooLong, form), STATUS_INVALID_PARAMETER);

        EXPECT_THAT(log.lines(), ElementsAre(readLogs("File open failed : (" + missing + ")(" +
                                                      std::strerror(ENOENT) + ")"),
                                             readLogs("File open failed : (" + tooLong + ")(" +
                                                      std::strerror(ENAMETOOLONG) + ")")));
    }
}

TEST_F(XmlTest, AFileThatCannotBePositionedIsRefusedWithTheReason)
{
    for (const auto& [nth, error] : {std::pair(1, EIO), std::pair(2, ESPIPE)}) {
        for (const Form form : FORMS) {
            const LogCapture log;
            FileCalls files;
            files.failSeek(nth, error);
            Xml xml(file.path());
            xml.setXmlEventListener(&recorder);

            EXPECT_EQ(read(xml, form), STATUS_INVALID_STATE);

            EXPECT_TRUE(files.isEverythingReleased());
            EXPECT_THAT(log.lines(),
                        ElementsAre(readLogs("(" + std::string(std::strerror(error)) + ")")));
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
        EXPECT_THAT(files.calls(), Not(Contains("fread")));
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

}  // namespace
}  // namespace oxil::test
