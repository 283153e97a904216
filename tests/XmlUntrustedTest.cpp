#include <OxXml.h>

#include <OxStatus.h>
#include <OxXmlDocument.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <libxml/parser.h>

#include <cstddef>
#include <memory>
#include <string>

#include "EngineMessages.h"
#include "FileCalls.h"
#include "OxLogMatchers.h"
#include "ScriptFile.h"
#include "XmlReading.h"

namespace oxil::test {
namespace {

using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

class XmlUntrustedTest : public XmlReading {};

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

TEST_F(XmlUntrustedTest, WhatCannotBeTrustedIsReadOrRefusedAndOpensNothingElse)
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
    const bool isNew = LIBXML_VERSION >= 21500;
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
        {"NUL behind the document", "<a/>" + nul, !isNew, !isNew},
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
        {"declarations of a file", declaring(parameterEntity, "<a/>"), isNew, true},
        {"a document type of a file", "<!DOCTYPE a SYSTEM '/etc/hostname'><a/>", true, true},
        {"one of the network", "<!DOCTYPE a SYSTEM 'http://127.0.0.1:9/'><a/>", true, true},
        {"a billion laughs", bomb("<a>&l9;</a>"), false, false},
        {"a billion laughs in an attribute", bomb("<a b='&l9;'/>"), false, false},
        {"an entity made of itself", declaring("<!ENTITY e '&f;'><!ENTITY f '&e;'>", "<a>&e;</a>"),
         false, false},
        {"256 levels", repeated("<a>", 256) + repeated("</a>", 256), true, true},
        {"258 levels", repeated("<a>", 258) + repeated("</a>", 258), false, false},
        {"100,000 levels", repeated("<a>", 100'000) + repeated("</a>", 100'000), false, false},
        {"100,000 open tags", repeated("<a>", 100'000), false, false},
        {"attribute to 10 MB", "<a b='" + std::string(9'999'991, 'x') + "'/>", true, true},
        {"attribute to more", "<a b='" + std::string(10'000'001, 'x') + "'/>", false, false},
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

TEST_F(XmlUntrustedTest, AnEmptyFileIsNotLoadedEither)
{
    const EngineMessages quiet;
    const LogCapture log;
    const ScriptFile empty("");
    Xml xml(empty.path());

    EXPECT_EQ(xml.load(), nullptr);

    EXPECT_THAT(log.lines(), ElementsAre(loadFails(empty.path())));
}

TEST_F(XmlUntrustedTest, ManyAttributesArriveInOrder)
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

TEST_F(XmlUntrustedTest, ADocumentThatIsCutOffAnywhereIsRefused)
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

TEST_F(XmlUntrustedTest, ADocumentWithADamagedByteIsReadOrRefused)
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
