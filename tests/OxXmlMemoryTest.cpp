#include <OxPlainFile.h>
#include <OxStatus.h>
#include <OxXml.h>
#include <OxXmlDocument.h>
#include <OxXmlStyleSheet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <libxml/parser.h>
#include <libxml/tree.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "EngineMemory.h"
#include "EngineMessages.h"
#include "OxLogMatchers.h"
#include "ScriptFile.h"

namespace oxil::test {
namespace {

using testing::AnyOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::IsSupersetOf;
using testing::SizeIs;
using testing::StartsWith;

/**
 * A little of everything that the engine keeps in memory.
 *
 * One attribute is declared and no more: two may meet in one place of a table that libxml2 2.9 seeds
 * with the time, and that there is no memory for the second it tells nobody.
 */
const std::string SAMPLE =
    "<?xml version='1.0' encoding='ISO-8859-1'?><!DOCTYPE a [<!ELEMENT a ANY><!ATTLIST a d CDATA "
    "'supplied'>]><!--c--><a x='1&amp;' id='i' xmlns='http://u' "
    "xmlns:p='http://v' p:q='r'>t\xe9&lt;<![CDATA[<]]><?p i?><b n1='1' n2='2' n3='3' n4='4' n5='5' "
    "n6='6' n7='7' n8='8' n9='9' n10='10' n11='11'/><p:c><d/></p:c>a text that is too long for the "
    "place that the engine has inside a node &amp; another one behind it</a>\n";

/** In how many requests for memory, more than there are, a failure is tried. */
constexpr int LIMIT = 1'000;

/** Reads with the n-th request of the engine for memory failing; all events as one text. */
struct Reading {
    Reading(const std::string& path, int nth, int (*read)(Xml&, const std::string&),
            const std::function<void()>& reaction = nullptr)
    {
        Xml xml;
        xml.setOnStartElement(
            [&](const std::string& name, const std::vector<std::string>& attributes) {
                events += "start " + name;
                for (const std::string& attribute : attributes) {
                    events += "|" + attribute;
                }
                events += '\n';
                if (reaction) {
                    reaction();
                }
            });
        xml.setOnCharacters([&](const std::string& text) { events += "text " + text + '\n'; });
        xml.setOnEndElement([&](const std::string& name) { events += "end " + name + '\n'; });

        const EngineMemory failure(nth);
        result = read(xml, path);
        failed = failure.hasFailed();
    }

    std::string events;
    int result = STATUS_SUCCESS;
    bool failed = false;
};

/** The ways to read, and the ways to load. */
int (*const READS[])(Xml&, const std::string&) = {
    [](Xml& xml, const std::string& path) { return xml.read(path); },
    [](Xml& xml, const std::string& path) { return xml.read(path, EXACT_TEXT); },
    [](Xml& xml, const std::string& path) { return xml.read(path, PLAIN_FILE); }};

XmlDocument* (*const LOADS[])(Xml&, const std::string&) = {
    [](Xml& xml, const std::string& path) { return xml.load(path); },
    [](Xml& xml, const std::string& path) { return xml.load(path, PLAIN_FILE); }};

/** A document as libxml2 writes it. */
std::string dumpOf(const XmlDocument& document)
{
    xmlChar* text = nullptr;
    int size = 0;
    xmlDocDumpMemory(document.__getNativeDocument(), &text, &size);
    const std::string dump(reinterpret_cast<const char*>(text), static_cast<std::size_t>(size));
    xmlFree(text);
    return dump;
}

void resetLastError()
{
    xmlResetLastError();
}

TEST(XmlMemoryTest, AReadThatSucceedsWithoutEnoughMemoryHasDeliveredEverything)
{
    const EngineMessages quiet;
    const ScriptFile file(SAMPLE);
    for (const auto& read : READS) {
        const Reading whole(file.path(), LIMIT, read);
        ASSERT_FALSE(whole.failed);
        ASSERT_EQ(whole.result, STATUS_SUCCESS);
        // What an application does in between doesn't count, nor hide anything.
        for (void (*const reaction)() : {static_cast<void (*)()>(nullptr), resetLastError}) {
            int refused = 0;
            bool failed = true;
            for (int nth = 1; failed && nth < LIMIT; ++nth) {
                const LogCapture log;
                const Reading reading(file.path(), nth, read, reaction);
                failed = reading.failed;
                if (reading.result == STATUS_SUCCESS) {
                    EXPECT_EQ(reading.events, whole.events) << "request " << nth;
                    EXPECT_THAT(log.lines(), IsEmpty()) << "request " << nth;
                } else {
                    EXPECT_EQ(reading.result, STATUS_INVALID_PARAMETER) << "request " << nth;
                    EXPECT_THAT(log.lines(),
                                ElementsAre(LoggedIn("OxXml.cpp", "read", "Xml parsing failed")))
                        << "request " << nth;
                    ++refused;
                }
            }
            EXPECT_FALSE(failed);
            EXPECT_GT(refused, 20);
        }
    }
}

TEST(XmlMemoryTest, ALoadThatSucceedsWithoutEnoughMemoryGivesTheWholeTree)
{
    const EngineMessages quiet;
    const ScriptFile file(SAMPLE);
    for (const auto& load : LOADS) {
        Xml xml(file.path());
        const std::unique_ptr<XmlDocument> whole(load(xml, file.path()));
        ASSERT_NE(whole, nullptr);
        const std::string expected = dumpOf(*whole);
        int explained = 0;
        bool failed = true;
        for (int nth = 1; failed && nth < LIMIT; ++nth) {
            const LogCapture log;
            std::unique_ptr<XmlDocument> document;
            {
                const EngineMemory failure(nth);
                document.reset(load(xml, file.path()));
                failed = failure.hasFailed();
            }
            if (document != nullptr) {
                EXPECT_EQ(dumpOf(*document), expected) << "request " << nth;
                EXPECT_THAT(log.lines(), IsEmpty()) << "request " << nth;
                continue;
            }
            ASSERT_THAT(log.lines(), SizeIs(1)) << "request " << nth;
            EXPECT_EQ(log.lines()[0].function, "load");
            EXPECT_THAT(log.lines()[0].message, HasSubstr("Invalid state. (" + file.path() + ")("));
            explained += log.lines()[0].message ==
                         "Invalid state. (" + file.path() + ")(" + std::strerror(ENOMEM) + ")";
        }
        EXPECT_FALSE(failed);
        EXPECT_GT(explained, 50);
    }
}

TEST(XmlMemoryTest, WhatAnApplicationHasNoMemoryForInsideAnEventIsItsOwnAffair)
{
    const EngineMessages quiet;
    const ScriptFile file(SAMPLE);
    const auto fail = [] {
        const EngineMemory failure(1);
        EXPECT_EQ(xmlStrdup(reinterpret_cast<const xmlChar*>("text")), nullptr);
    };
    for (const auto& read : READS) {
        EXPECT_EQ(Reading(file.path(), LIMIT, read, fail).result, STATUS_SUCCESS);
    }
}

TEST(XmlMemoryTest, WantOfMemoryOfBeforeIsForgotten)
{
    const EngineMessages quiet;
    const ScriptFile file(SAMPLE);
    const auto fail = [] {
        const EngineMemory failure(1);
        EXPECT_EQ(xmlStrdup(reinterpret_cast<const xmlChar*>("text")), nullptr);
    };
    for (const auto& read : READS) {
        fail();
        EXPECT_EQ(Reading(file.path(), LIMIT, read).result, STATUS_SUCCESS);
    }
    for (const auto& load : LOADS) {
        fail();
        Xml xml(file.path());
        EXPECT_NE(std::unique_ptr<XmlDocument>(load(xml, file.path())), nullptr);
    }
}

// ---- Stylesheets ----

/** Lets the n-th request of the engine fail after it was asked to open a file, while it lives. */
class FailureWhileParsing {
public:
    explicit FailureWhileParsing(int nth)
    {
        requests = nth;
        original = xmlGetExternalEntityLoader();
        xmlSetExternalEntityLoader(open);
    }

    ~FailureWhileParsing()
    {
        xmlSetExternalEntityLoader(original);
        failure.reset();
    }

    FailureWhileParsing(const FailureWhileParsing&) = delete;
    FailureWhileParsing& operator=(const FailureWhileParsing&) = delete;

    bool happened() const { return failure.has_value() && failure->hasFailed(); }

private:
    static xmlParserInputPtr open(const char* url, const char* id, xmlParserCtxtPtr context)
    {
        xmlParserInputPtr input = original(url, id, context);
        failure.emplace(requests);
        return input;
    }

    static inline int requests = 0;
    static inline xmlExternalEntityLoader original = nullptr;
    static inline std::optional<EngineMemory> failure;
};

/** How many requests for memory the parser makes for the sample at least. libxslt's own are not
 *  tried: it does not get over all of them. */
constexpr int PARSING = 50;

TEST(XmlMemoryTest, ATransformationThatSucceedsWithoutEnoughMemoryGivesTheWholeResult)
{
    const EngineMessages quiet;
    const ScriptFile file(SAMPLE);
    const ScriptFile sheet(
        "<x:stylesheet version='1.0' xmlns:x='http://www.w3.org/1999/XSL/Transform'><x:template "
        "match='/'><x:copy-of select='document(\"" +
        file.path() + "\")'/></x:template></x:stylesheet>");
    XmlStyleSheet styleSheet(sheet.path());
    ASSERT_EQ(styleSheet.load(), STATUS_SUCCESS);
    XmlDocument source;
    const std::string expected = dumpOf(*std::unique_ptr<XmlDocument>(styleSheet.apply(&source)));
    ASSERT_THAT(expected, HasSubstr("<d/>"));

    int refused = 0;
    for (int nth = 1; nth <= PARSING; ++nth) {
        SCOPED_TRACE(nth);
        const LogCapture log;
        std::unique_ptr<XmlDocument> result;
        {
            const FailureWhileParsing failure(nth);
            result.reset(styleSheet.apply(&source));
            EXPECT_TRUE(failure.happened());
        }
        if (result != nullptr) {
            // A document that can't even be begun is an empty set to libxslt, as a missing one is.
            EXPECT_THAT(dumpOf(*result), AnyOf(expected, "<?xml version=\"1.0\"?>\n"));
            EXPECT_THAT(log.lines(), IsEmpty());
        } else {
            EXPECT_THAT(log.lines(),
                        ElementsAre(LoggedIn("OxXmlStyleSheet.cpp", "apply", "Invalid state.")));
            ++refused;
        }
    }
    EXPECT_GT(refused, 20);
}

TEST(XmlMemoryTest, AStyleSheetThatIsLoadedWithoutEnoughMemoryIsWhole)
{
    const EngineMessages quiet;
    const ScriptFile sheet(
        "<?xml version='1.0' encoding='ISO-8859-1'?><x:stylesheet version='1.0' "
        "xmlns:x='http://www.w3.org/1999/XSL/Transform'><x:template "
        "match='/'>" +
        SAMPLE.substr(SAMPLE.find("<a ")) + "</x:template></x:stylesheet>");
    XmlDocument source;
    const auto applied = [&source](XmlStyleSheet& styleSheet) {
        return dumpOf(*std::unique_ptr<XmlDocument>(styleSheet.apply(&source)));
    };
    XmlStyleSheet reference(sheet.path());
    ASSERT_EQ(reference.load(), STATUS_SUCCESS);
    const std::string expected = applied(reference);

    int explained = 0;
    for (int nth = 1; nth <= PARSING; ++nth) {
        SCOPED_TRACE(nth);
        const LogCapture log;
        XmlStyleSheet styleSheet(sheet.path());
        int result = STATUS_SUCCESS;
        {
            const FailureWhileParsing failure(nth);
            result = styleSheet.load();
            EXPECT_TRUE(failure.happened());
        }
        if (result == STATUS_SUCCESS) {
            EXPECT_EQ(applied(styleSheet), expected);
            EXPECT_THAT(log.lines(), IsEmpty());
        } else {
            EXPECT_EQ(styleSheet.__getNativeStyleSheet(), nullptr);
            ASSERT_THAT(log.lines(), SizeIs(1));
            const std::string start = "Invalid state. (" + sheet.path() + ")(";
            EXPECT_THAT(log.lines()[0].message, StartsWith(start));
            explained += log.lines()[0].message == start + std::strerror(ENOMEM) + ")";
        }
    }
    EXPECT_GT(explained, 20);
}

// ---- The handlers of the application ----

std::string messages;

[[gnu::format(printf, 2, 3)]] void addMessage(void* context, const char* format, ...)
{
    EXPECT_EQ(context, &messages);
    va_list arguments;
    va_start(arguments, format);
    char text[100'000];
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    messages += text;
}

TEST(XmlMemoryTest, MessagesReachTheHandlerOfTheApplicationAsTheyAre)
{
    const EngineMessages restored;
    xmlSetGenericErrorFunc(&messages, addMessage);
    const std::string name(5'000, 'n');
    const ScriptFile file("<" + name + "></a>");

    messages.clear();
    xmlFreeDoc(xmlParseFile(file.path().c_str()));
    const std::string expected = messages;
    EXPECT_THAT(expected, HasSubstr("Opening and ending tag mismatch: " + name));

    const LogCapture log;
    Xml xml(file.path());
    messages.clear();
    EXPECT_EQ(xml.load(), nullptr);
    EXPECT_EQ(messages, expected);
    EXPECT_EQ(xmlGenericError, addMessage);
    EXPECT_EQ(xmlGenericErrorContext, &messages);
}

TEST(XmlMemoryTest, WithoutHandlerMessagesGoToTheStandardErrorOutput)
{
    const EngineMessages restored;
    xmlSetGenericErrorFunc(nullptr, nullptr);  // back to libxml2's own
    const ScriptFile malformed("<a>");
    const LogCapture log;
    Xml xml(malformed.path());

    testing::internal::CaptureStderr();
    EXPECT_EQ(xml.load(), nullptr);
    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                HasSubstr(malformed.path() + ":1: parser error : Premature end of data"));
}

TEST(XmlMemoryTest, ErrorsReachTheHandlerOfTheApplicationAsTheyAre)
{
    const EngineMessages unused;
    std::vector<int> codes;
    const xmlStructuredErrorFunc handler = [](void* list, auto* error) {
        static_cast<std::vector<int>*>(list)->push_back(error->code);
    };
    xmlSetStructuredErrorFunc(&codes, handler);
    const ScriptFile malformed("<a xmlns='relative'><p:b></a>");
    const ScriptFile file(SAMPLE);

    EXPECT_EQ(xmlParseFile(malformed.path().c_str()), nullptr);
    const std::vector<int> expected = codes;
    EXPECT_THAT(expected, IsSupersetOf({XML_WAR_NS_URI_RELATIVE, XML_NS_ERR_UNDEFINED_NAMESPACE,
                                        XML_ERR_TAG_NAME_MISMATCH}));

    codes.clear();
    const LogCapture log;
    Xml xml(malformed.path());
    EXPECT_EQ(xml.load(), nullptr);
    EXPECT_EQ(codes, expected);

    codes.clear();
    int found = 0;
    bool failed = true;
    for (int nth = 1; failed && nth < LIMIT; ++nth) {
        const EngineMemory failure(nth);
        const std::unique_ptr<XmlDocument> document(xml.load(file.path()));
        failed = failure.hasFailed();
        found += document == nullptr;
    }
    EXPECT_GT(found, 50);
    EXPECT_THAT(codes, testing::Contains(XML_ERR_NO_MEMORY));
    EXPECT_EQ(xmlStructuredErrorContext, &codes);
    xmlSetStructuredErrorFunc(nullptr, nullptr);
    EXPECT_EQ(unused.text(), "");
}

}  // namespace
}  // namespace oxil::test
