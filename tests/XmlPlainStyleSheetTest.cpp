#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <libxml/parser.h>
#include <libxml/tree.h>
#include <libxslt/security.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "EngineMemory.h"
#include "EngineMessages.h"
#include "OxLogMatchers.h"
#include "OxPlainFile.h"
#include "OxStatus.h"
#include "OxXmlDocument.h"
#include "OxXmlNode.h"
#include "OxXmlStyleSheet.h"
#include "TreeCalls.h"

namespace oxil::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

const std::string XSLT = "version='1.0' xmlns:xsl='http://www.w3.org/1999/XSL/Transform'";

/** A stylesheet that makes this of any document. */
std::string sheetMaking(const std::string& result)
{
    return "<xsl:stylesheet " + XSLT + "><xsl:template match='/'>" + result +
           "</xsl:template></xsl:stylesheet>";
}

/** What libxml2 was asked to open meanwhile. */
class Opened {
public:
    Opened()
    {
        urls.clear();
        xmlSetExternalEntityLoader(note);
    }

    ~Opened() { xmlSetExternalEntityLoader(__before); }

    Opened(const Opened&) = delete;
    Opened& operator=(const Opened&) = delete;

    static inline std::vector<std::string> urls;

private:
    static xmlParserInputPtr note(const char* url, const char*, xmlParserCtxtPtr)
    {
        urls.emplace_back(url);
        return nullptr;
    }

    xmlExternalEntityLoader __before = xmlGetExternalEntityLoader();
};

/** Stylesheets by all sorts of names, in a folder of their own, which is the current one. */
class XmlPlainStyleSheetTest : public testing::Test {
protected:
    XmlPlainStyleSheetTest() : __before(std::filesystem::current_path())
    {
        std::string name = testing::TempDir() + "oxil sheets-XXXXXX";
        EXPECT_NE(mkdtemp(name.data()), nullptr);
        folder = name;
        std::filesystem::current_path(folder);
    }

    ~XmlPlainStyleSheetTest() override
    {
        std::filesystem::current_path(__before);
        std::filesystem::remove_all(folder);
    }

    static void make(const std::string& path, const std::string& content)
    {
        std::ofstream file(path, std::ios::binary);
        file << content;
        EXPECT_TRUE(file.flush()) << path;
    }

    /** What a stylesheet makes of a document, without declaration; "" if it makes nothing. */
    static std::string applied(XmlStyleSheet& styleSheet)
    {
        XmlDocument document;
        const std::unique_ptr<XmlDocument> result(styleSheet.apply(&document));
        if (result == nullptr) {
            return "";
        }
        xmlBuffer* buffer = xmlBufferCreate();
        xmlNodeDump(buffer, result->__getNativeDocument(),
                    xmlDocGetRootElement(result->__getNativeDocument()), 0, 0);
        std::string text = reinterpret_cast<const char*>(xmlBufferContent(buffer));
        xmlBufferFree(buffer);
        return text;
    }

    static std::string appliedFrom(const std::string& path, PlainFile file = PLAIN_FILE)
    {
        XmlStyleSheet styleSheet(path);
        return styleSheet.load(file) == STATUS_SUCCESS ? applied(styleSheet) : "";
    }

    /** Expects that a file is refused with this reason. */
    static void expectRefused(const std::string& path, int error, PlainFile file = PLAIN_FILE)
    {
        const EngineMessages quiet;
        const LogCapture log;
        XmlStyleSheet styleSheet(path);

        EXPECT_EQ(styleSheet.load(file), STATUS_INVALID_STATE);

        EXPECT_EQ(styleSheet.__getNativeStyleSheet(), nullptr);
        EXPECT_THAT(log.lines(), ElementsAre(LoggedIn("OxXmlStyleSheet.cpp", "load",
                                                      "Invalid state. (" + path + ")(" +
                                                          std::strerror(error) + ")")));
    }

    std::string folder;

private:
    std::filesystem::path __before;
};

TEST_F(XmlPlainStyleSheetTest, AnyNameIsTheNameOfAFile)
{
    for (const std::string name : {"a b.xsl", "a%20b.xsl", "100%.xsl", "100%41.xsl", "-", "a:b.xsl",
                                   "file:a.xsl", "\xff.xsl"}) {
        make(name, sheetMaking("<made/>"));
        EXPECT_EQ(appliedFrom(name), "<made/>") << name;
        EXPECT_EQ(appliedFrom(folder + "/" + name), "<made/>") << name;
    }
}

TEST_F(XmlPlainStyleSheetTest, NothingButARegularFileOfTheAllowedSizeIsRead)
{
    const std::string sheet = sheetMaking("<made/>");
    make("a.xsl", sheet);
    ASSERT_EQ(mkfifo("pipe", 0600), 0);
    const Opened opened;

    EXPECT_EQ(appliedFrom("a.xsl", PlainFile{sheet.size()}), "<made/>");
    expectRefused("a.xsl", EFBIG, PlainFile{sheet.size() - 1});
    expectRefused("pipe", EINVAL);
    expectRefused(folder, EISDIR);
    expectRefused("-", ENOENT);
    expectRefused("file://" + folder + "/a.xsl", ENOENT);
    expectRefused("http://127.0.0.1:9/a.xsl", ENOENT);

    EXPECT_THAT(Opened::urls, IsEmpty());
}

TEST_F(XmlPlainStyleSheetTest, AnEmptyPathIsNotLoaded)
{
    const LogCapture log;
    XmlStyleSheet styleSheet("");

    EXPECT_EQ(styleSheet.load(PLAIN_FILE), STATUS_INVALID_STATE);

    EXPECT_THAT(log.lines(),
                ElementsAre(LoggedIn("OxXmlStyleSheet.cpp", "load", "Invalid state.")));
}

TEST_F(XmlPlainStyleSheetTest, WhatIsNoStyleSheetIsRefused)
{
    for (const std::string& content :
         {std::string("no XML"), std::string("<a"), std::string("<a/>"), std::string(),
          sheetMaking("<xsl:value-of select='1 +'/>"), sheetMaking("&undeclared;")}) {
        SCOPED_TRACE(content);
        make("a.xsl", content);
        expectRefused("a.xsl", 0);
    }
}

TEST_F(XmlPlainStyleSheetTest, ItIsCompiledAsByTheEngine)
{
    for (const std::string& sheet :
         {"<!DOCTYPE a [<!ENTITY e 'text'>]>" + sheetMaking("<a b='&e;'>&e;</a>"),
          sheetMaking("<a><![CDATA[<text>]]> b </a>"),
          "<a xsl:" + XSLT + "><xsl:value-of select='1 + 1'/></a>"}) {
        make("a.xsl", sheet);
        XmlStyleSheet reference("a.xsl");
        ASSERT_EQ(reference.load(), STATUS_SUCCESS);

        EXPECT_EQ(appliedFrom("a.xsl"), applied(reference));
        EXPECT_NE(applied(reference), "");
    }
}

TEST_F(XmlPlainStyleSheetTest, AStyleSheetOfSeveralFilesIsRefused)
{
    make("part.xsl", sheetMaking("<made/>"));
    for (const std::string name : {"include", "import"}) {
        SCOPED_TRACE(name);
        make("a.xsl", "<xsl:stylesheet " + XSLT + "> <!-- first --> <xsl:" + name +
                          " href='part.xsl'/></xsl:stylesheet>");
        XmlStyleSheet styleSheet("a.xsl");
        ASSERT_EQ(styleSheet.load(), STATUS_SUCCESS);

        const Opened opened;
        expectRefused("a.xsl", ENOTSUP);
        EXPECT_THAT(Opened::urls, IsEmpty());
    }
    make("a.xsl", sheetMaking("<include/>"));
    EXPECT_EQ(appliedFrom("a.xsl"), "<include/>") << "of no such namespace";
}

TEST_F(XmlPlainStyleSheetTest, EntitiesOfOtherFilesAreNotRead)
{
    make("part.xml", "<secret/>");
    const Opened opened;
    for (const std::string type : {"[<!ENTITY e SYSTEM 'part.xml'>]",
                                   "[<!ENTITY % p SYSTEM 'part.xml'> %p; <!ENTITY e 'x'>]",
                                   "SYSTEM 'part.xml' [<!ENTITY e SYSTEM 'part.xml'>]",
                                   "SYSTEM 'http://127.0.0.1:9/a.dtd'"}) {
        SCOPED_TRACE(type);
        const EngineMessages quiet;
        LogCapture log;  // of those that are refused
        make("a.xsl", "<!DOCTYPE a " + type + ">" + sheetMaking("<a>&e;</a>"));

        EXPECT_THAT(appliedFrom("a.xsl"), testing::Not(testing::HasSubstr("secret")));
    }
    EXPECT_THAT(Opened::urls, IsEmpty());
}

TEST_F(XmlPlainStyleSheetTest, LoadingAgainFreesWhatWasCompiled)
{
    make("a.xsl", sheetMaking("<first/>"));
    TreeCalls calls;
    XmlStyleSheet styleSheet("a.xsl");
    ASSERT_EQ(styleSheet.load(PLAIN_FILE), STATUS_SUCCESS);
    make("a.xsl", sheetMaking("<second/>"));
    calls.clear();

    EXPECT_EQ(styleSheet.load(PLAIN_FILE), STATUS_SUCCESS);
    EXPECT_THAT(calls.lines(), Contains("free stylesheet").Times(1));
    EXPECT_EQ(applied(styleSheet), "<second/>");

    calls.clear();
    std::filesystem::remove("a.xsl");
    const LogCapture log;
    EXPECT_EQ(styleSheet.load(PLAIN_FILE), STATUS_INVALID_STATE);
    EXPECT_EQ(log.lines().size(), 1U);
    EXPECT_THAT(calls.lines(), ElementsAre("free stylesheet"));
    EXPECT_EQ(styleSheet.__getNativeStyleSheet(), nullptr);
}

TEST_F(XmlPlainStyleSheetTest, NothingIsLeftBehind)
{
    make("good.xsl", sheetMaking("<made/>"));
    make("bad.xsl", sheetMaking("<xsl:value-of select='1 +'/>"));
    make("parts.xsl", "<xsl:stylesheet " + XSLT + "><xsl:include href='a'/></xsl:stylesheet>");
    EXPECT_EQ(appliedFrom("good.xsl"), "<made/>");  // the engines keep what they made by now

    const EngineMessages quiet;
    const LogCapture log;
    xmlResetLastError();  // it has texts of its own
    const EngineMemory memory;
    for (const std::string name : {"good.xsl", "bad.xsl", "parts.xsl"}) {
        appliedFrom(name);
        xmlResetLastError();
        EXPECT_EQ(memory.getBlockCount(), 0) << name;
    }
    EXPECT_EQ(log.lines().size(), 2U);
}

}  // namespace
}  // namespace oxil::test
