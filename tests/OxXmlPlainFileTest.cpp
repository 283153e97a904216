#include <OxPlainFile.h>
#include <OxStatus.h>
#include <OxXml.h>
#include <OxXmlDocument.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <libxml/parser.h>
#include <libxml/tree.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

#include "AllocationFailure.h"
#include "EngineMessages.h"
#include "OpenedReferences.h"
#include "OxLogMatchers.h"

namespace oxil::test {
namespace {

using testing::AllOf;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

/** The bytes of `<r n='zipped'/>` as gzip packs them. */
constexpr unsigned char ZIPPED[] = {0x1f, 0x8b, 0x08, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
                                    0x03, 0xb3, 0x29, 0x52, 0xc8, 0xb3, 0x55, 0xaf, 0xca,
                                    0x2c, 0x28, 0x48, 0x4d, 0x51, 0xd7, 0xb7, 0x03, 0x00,
                                    0x90, 0x54, 0x68, 0x2f, 0x0f, 0x00, 0x00, 0x00};

/** Plain files by all sorts of names, in a folder of their own, which is the current one. */
class XmlPlainFileTest : public testing::Test {
protected:
    XmlPlainFileTest() : __before(std::filesystem::current_path())
    {
        std::string name = testing::TempDir() + "oxil-plain-XXXXXX";
        EXPECT_NE(mkdtemp(name.data()), nullptr);
        folder = name;
        std::filesystem::current_path(folder);
    }

    ~XmlPlainFileTest() override
    {
        std::filesystem::current_path(__before);
        std::filesystem::remove_all(folder);
    }

    /** Makes a file, and the folders on the way to it. */
    static void make(const std::string& path, const std::string& content)
    {
        const std::filesystem::path parent = std::filesystem::path(path).parent_path();
        if (!parent.empty()) {
            std::filesystem::create_directories(parent);
        }
        std::ofstream file(path, std::ios::binary);
        file << content;
        EXPECT_TRUE(file.flush()) << path;
    }

    /** The attribute `n` of the root element; "" without document. */
    static std::string nameIn(const std::unique_ptr<XmlDocument>& document)
    {
        if (document == nullptr) {
            return "";
        }
        xmlChar* value = xmlGetProp(xmlDocGetRootElement(document->__getNativeDocument()),
                                    reinterpret_cast<const xmlChar*>("n"));
        const std::string name = value != nullptr ? reinterpret_cast<const char*>(value) : "";
        xmlFree(value);
        return name;
    }

    static std::string loaded(const std::string& path, PlainFile file = PLAIN_FILE)
    {
        Xml xml;
        return nameIn(std::unique_ptr<XmlDocument>(xml.load(path, file)));
    }

    static std::string loadedByTheEngine(const std::string& path)
    {
        Xml xml("any");
        return nameIn(std::unique_ptr<XmlDocument>(xml.load(path)));
    }

    /** As loaded(), from the events. */
    static std::string readIn(const std::string& path, PlainFile file = PLAIN_FILE)
    {
        std::string name;
        Xml xml;
        xml.setOnStartElement([&name](const std::string&, const std::vector<std::string>& list) {
            name = list.size() == 2 ? list[1] : "";
        });
        return xml.read(path, file) == STATUS_SUCCESS ? name : "";
    }

    static testing::Matcher<const LogLine&> readFails(const std::string& path, int error)
    {
        return LoggedIn("OxXml.cpp", "read",
                        "File open failed : (" + path + ")(" + std::strerror(error) + ")");
    }

    static testing::Matcher<const LogLine&> loadFails(const std::string& path, int error)
    {
        return LoggedIn("OxXml.cpp", "load",
                        "Invalid state. (" + path + ")(" + std::strerror(error) + ")");
    }

    std::string folder;

private:
    std::filesystem::path __before;
};

TEST_F(XmlPlainFileTest, AnyNameIsTheNameOfAFile)
{
    const std::vector<std::string> names = {
        "a b.xml",     "a%20b.xml",        "100%.xml",   "100%41.xml",  "100A.xml",
        "a%00b.xml",   "a?b.xml",          "a#b.xml",    "a:b.xml",     "x y/z w.xml",
        "x%20y/z.xml", "http:/host/a.xml", "ftp:/a.xml", "file:/a.xml", "[a].xml",
        "-",           "h\u00e9.xml",      "\xff.xml",   "a\\b.xml",    "%.xml"};
    for (const std::string& name : names) {
        make(name, "<r n='" + std::to_string(&name - names.data()) + "'/>");
    }
    for (const std::string& name : names) {
        const std::string number = std::to_string(&name - names.data());
        EXPECT_EQ(loaded(name), number) << name;
        EXPECT_EQ(readIn(name), number) << name;
        EXPECT_EQ(loaded(folder + "/" + name), number) << name;
        EXPECT_EQ(readIn(folder + "/" + name), number) << name;

        Xml xml;
        EXPECT_EQ(xml.read(name), STATUS_SUCCESS) << name;
        const bool isUrl = LIBXML_VERSION >= 21500 && name == "file:/a.xml";
        if (name != "-" && !isUrl) {  // the standard input, to the engine
            EXPECT_EQ(loadedByTheEngine(name), number) << name;
        }
        EXPECT_EQ(loadedByTheEngine(folder + "/" + name), number) << name;
    }
}

TEST_F(XmlPlainFileTest, AUrlIsAFileThatIsNotThere)
{
    make("a.xml", "<r n='1'/>");
    const EngineMessages engine;
    for (const std::string& url : {"file://" + folder + "/a.xml", "file:" + folder + "/a.xml",
                                   std::string("http://127.0.0.1:9/"), std::string("-")}) {
        const LogCapture log;
        EXPECT_EQ(loaded(url), "");
        EXPECT_EQ(readIn(url), "");
        EXPECT_THAT(log.lines(), ElementsAre(loadFails(url, ENOENT), readFails(url, ENOENT)));
    }
    EXPECT_EQ(engine.text(), "") << "the engine was not asked";
}

TEST_F(XmlPlainFileTest, ACompressedFileIsNoXml)
{
    make("a.xml.gz", std::string(reinterpret_cast<const char*>(ZIPPED), sizeof ZIPPED));
    const EngineMessages quiet;
    LogCapture log;
    EXPECT_EQ(loadedByTheEngine("a.xml.gz"), LIBXML_VERSION < 21500 ? "zipped" : "");

    log.clear();
    EXPECT_EQ(loaded("a.xml.gz"), "");
    EXPECT_EQ(readIn("a.xml.gz"), "");
    EXPECT_THAT(log.lines(), ElementsAre(loadFails("a.xml.gz", 0),
                                         LoggedIn("OxXml.cpp", "read", "Xml parsing failed")));
}

TEST_F(XmlPlainFileTest, AFileHasNoMoreBytesThanItIsAllowed)
{
    const std::string document = "<r n='1'/>";
    make("a.xml", document);

    EXPECT_EQ(loaded("a.xml", PlainFile{document.size()}), "1");
    EXPECT_EQ(readIn("a.xml", PlainFile{document.size()}), "1");

    const LogCapture log;
    EXPECT_EQ(loaded("a.xml", PlainFile{document.size() - 1}), "");
    Xml xml;
    EXPECT_EQ(xml.read("a.xml", PlainFile{document.size() - 1}), STATUS_INVALID_PARAMETER);
    EXPECT_THAT(log.lines(), ElementsAre(loadFails("a.xml", EFBIG), readFails("a.xml", EFBIG)));
}

TEST_F(XmlPlainFileTest, TheLimitIsSixteenMebibytesByDefault)
{
    EXPECT_EQ(PLAIN_FILE.limit, 16u * 1024 * 1024);
    make("a.xml", "<r n='1'/>");
    std::filesystem::resize_file("a.xml", PLAIN_FILE.limit + 1);  // sparse

    const LogCapture log;
    EXPECT_EQ(loaded("a.xml"), "");
    EXPECT_EQ(readIn("a.xml"), "");
    EXPECT_THAT(log.lines(), ElementsAre(loadFails("a.xml", EFBIG), readFails("a.xml", EFBIG)));
}

TEST_F(XmlPlainFileTest, AFileOfMoreThanTheParserCanCountIsTooLargeWhateverTheLimit)
{
    make("a.xml", "<r n='1'/>");
    std::error_code error;
    std::filesystem::resize_file("a.xml", 0x80000000u, error);  // sparse
    if (error) {
        GTEST_SKIP() << "no file of this system is as large";
    }
    const LogCapture log;
    EXPECT_EQ(loaded("a.xml", PlainFile{SIZE_MAX}), "");
    EXPECT_EQ(readIn("a.xml", PlainFile{SIZE_MAX}), "");
    EXPECT_THAT(log.lines(), ElementsAre(loadFails("a.xml", EFBIG), readFails("a.xml", EFBIG)));
}

TEST_F(XmlPlainFileTest, APipeIsRefusedAtOnce)
{
    ASSERT_EQ(mkfifo("pipe", 0600), 0);

    const LogCapture log;
    EXPECT_EQ(loaded("pipe"), "");
    EXPECT_EQ(readIn("pipe"), "");
    EXPECT_THAT(log.lines(), ElementsAre(loadFails("pipe", EINVAL), readFails("pipe", EINVAL)));
}

TEST_F(XmlPlainFileTest, FoldersAndDevicesAreNoFiles)
{
    const LogCapture log;
    EXPECT_EQ(loaded(folder), "");
    EXPECT_EQ(readIn(folder), "");
    EXPECT_EQ(loaded("/dev/zero"), "");
    EXPECT_EQ(readIn("/dev/zero"), "");
    EXPECT_THAT(log.lines(),
                ElementsAre(loadFails(folder, EISDIR), readFails(folder, EISDIR),
                            loadFails("/dev/zero", EINVAL), readFails("/dev/zero", EINVAL)));
}

TEST_F(XmlPlainFileTest, AnEmptyFileAndAnEmptyPathAreRefused)
{
    make("empty", "");
    const EngineMessages quiet;
    const LogCapture log;
    Xml xml;
    EXPECT_EQ(xml.read("empty", PLAIN_FILE), STATUS_INVALID_STATE);
    EXPECT_EQ(xml.load("empty", PLAIN_FILE), nullptr);
    EXPECT_EQ(xml.read("", PLAIN_FILE), STATUS_INVALID_STATE);
    EXPECT_EQ(xml.load("", PLAIN_FILE), nullptr);

    EXPECT_THAT(log.lines(),
                ElementsAre(LoggedIn("OxXml.cpp", "read", "Please check the file size."),
                            loadFails("empty", 0),
                            LoggedIn("OxXml.cpp", "read", "xmlFilePath is empty string."),
                            LoggedIn("OxXml.cpp", "load", "xmlFilePath is empty string.")));
}

TEST_F(XmlPlainFileTest, ThePathIsRememberedByReadAndLoadAlike)
{
    make("a.xml", "<r n='1'/>");
    make("b.xml", "<r n='2'/>");
    Xml xml;

    EXPECT_EQ(nameIn(std::unique_ptr<XmlDocument>(xml.load("a.xml", PLAIN_FILE))), "1");
    EXPECT_EQ(nameIn(std::unique_ptr<XmlDocument>(xml.load())), "1");
    EXPECT_EQ(xml.read("b.xml", PLAIN_FILE), STATUS_SUCCESS);
    EXPECT_EQ(nameIn(std::unique_ptr<XmlDocument>(xml.load())), "2");
}

TEST_F(XmlPlainFileTest, TextIsExact)
{
    make("a.xml", "<a>one<b/>two</a>");
    std::vector<std::string> texts;
    Xml xml;
    xml.setOnCharacters([&texts](const std::string& text) { texts.push_back(text); });

    EXPECT_EQ(xml.read("a.xml", PLAIN_FILE), STATUS_SUCCESS);

    EXPECT_THAT(texts, ElementsAre("one", "two"));
}

TEST_F(XmlPlainFileTest, WhatADocumentRefersToIsNotReadWhateverTheProcessHasSet)
{
    make("a.xml",
         "<!DOCTYPE r SYSTEM 'http://127.0.0.1:9/' [<!ENTITY e SYSTEM 'other.xml'><!ENTITY % p "
         "SYSTEM 'other.dtd'> %p;]><?oasis-xml-catalog catalog='catalog.xml'?><r n='1'>&e;</r>");
    const OpenedReferences opened;

    EXPECT_EQ(loaded("a.xml"), "1");
    EXPECT_EQ(readIn("a.xml"), "1");
    EXPECT_EQ(opened.getCount(), 0);
}

TEST_F(XmlPlainFileTest, WithoutMemoryNothingIsReadAndNothingIsLost)
{
    make("a.xml", "<r n='1'/>");
    for (const int nth : {1, 2}) {  // the content, the document
        const LogCapture log;
        Xml xml;
        std::unique_ptr<XmlDocument> document;
        {
            const AllocationFailure failure(Allocation::NothrowNew, nth);
            document.reset(xml.load("a.xml", PLAIN_FILE));
            EXPECT_TRUE(failure.happened());
        }
        EXPECT_EQ(document, nullptr);
        EXPECT_THAT(log.lines(), ElementsAre(nth == 1 ? loadFails("a.xml", ENOMEM)
                                                      : LoggedIn("OxXml.cpp", "load",
                                                                 "Memory allocation failed.")));
    }

    const LogCapture log;
    int result = STATUS_SUCCESS;
    Xml xml;
    {
        const AllocationFailure failure(Allocation::NothrowNew);
        result = xml.read("a.xml", PLAIN_FILE);
    }
    EXPECT_EQ(result, STATUS_OUT_OF_MEMORY);
    EXPECT_THAT(log.lines(),
                ElementsAre(LoggedIn("OxXml.cpp", "read", "Memory allocation failed.")));
}

}  // namespace
}  // namespace oxil::test
