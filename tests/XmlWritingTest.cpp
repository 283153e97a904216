#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "EngineMessages.h"
#include "FileCalls.h"
#include "FileSizeLimit.h"
#include "OutputFile.h"
#include "OxLogMatchers.h"
#include "OxPlainFile.h"
#include "OxStatus.h"
#include "OxXmlDocument.h"
#include "OxXmlNode.h"
#include "OxXmlStyleSheet.h"
#include "ScriptFile.h"
#include "TreeCalls.h"

namespace oxil::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const LoggedBy logged("OxXmlDocument.cpp");

/** Output files by all sorts of names, in a folder of their own, which is the current one. */
class XmlPlainWriteTest : public testing::Test {
protected:
    XmlPlainWriteTest() : __before(std::filesystem::current_path())
    {
        std::string name = testing::TempDir() + "oxil-write-XXXXXX";
        EXPECT_NE(mkdtemp(name.data()), nullptr);
        folder = name;
        std::filesystem::current_path(folder);

        auto root = std::make_unique<XmlNode>("root");
        root->addChild(std::make_unique<XmlNode>("child"));
        EXPECT_EQ(root->getFirstChild()->setContent("gr\xC3\xBC\xC3\x9F"), STATUS_SUCCESS);
        EXPECT_EQ(document.setRootNode(std::move(root)), STATUS_SUCCESS);
    }

    ~XmlPlainWriteTest() override
    {
        std::filesystem::current_path(__before);
        std::filesystem::remove_all(folder);
    }

    static std::string content(const std::string& path)
    {
        std::ifstream file(path, std::ios::binary);
        EXPECT_TRUE(file) << path;
        return {std::istreambuf_iterator<char>(file), {}};
    }

    /** The names in the folder. */
    std::vector<std::string> names() const
    {
        std::vector<std::string> all;
        for (const auto& entry : std::filesystem::directory_iterator(folder)) {
            all.push_back(entry.path().filename());
        }
        return all;
    }

    int write(const std::string& path)
    {
        document.setOutputFilePath(path);
        return document.write(PLAIN_FILE);
    }

    /** Makes the document's output that of a stylesheet. */
    void style()
    {
        ASSERT_EQ(__styleSheet.load(), STATUS_SUCCESS);
        document.__setXmlStyleSheet(&__styleSheet);
    }

    std::string folder;
    XmlDocument document;

private:
    std::filesystem::path __before;
    ScriptFile __file{
        "<xsl:stylesheet version='1.0' xmlns:xsl='http://www.w3.org/1999/XSL/Transform'>"
        "<xsl:output method='text' encoding='UTF-8'/></xsl:stylesheet>"};
    XmlStyleSheet __styleSheet{__file.path()};
};

TEST_F(XmlPlainWriteTest, TheBytesAreThoseOfWrite)
{
    for (const bool styled : {false, true}) {
        if (styled) {
            style();
        }
        document.setOutputFilePath(folder + "/a.xml");
        ASSERT_EQ(document.write(), STATUS_SUCCESS);

        EXPECT_EQ(write("b.xml"), STATUS_SUCCESS);

        EXPECT_EQ(content("b.xml"), content("a.xml"));
        EXPECT_EQ(content("b.xml"), styled ? "gr\xC3\xBC\xC3\x9F"
                                           : "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                                             "<root>\n  <child>gr\xC3\xBC\xC3\x9F</child>\n"
                                             "</root>\n");
    }
}

TEST_F(XmlPlainWriteTest, AnyNameIsTheNameOfAFile)
{
    for (const bool styled : {false, true}) {
        if (styled) {
            style();
        }
        for (const std::string name : {"a b.xml", "a%20b.xml", "100%.xml", "100%41.xml", "-",
                                       "a.xml.gz", "a:b.xml", "file:a.xml", "\xff.xml"}) {
            EXPECT_EQ(write(name), STATUS_SUCCESS) << name;
            EXPECT_THAT(names(), ElementsAre(name));
            std::filesystem::remove(name);
        }
    }
}

TEST_F(XmlPlainWriteTest, AUrlIsAFolderThatIsNotThere)
{
    const EngineMessages engine;
    for (const std::string& url : {"file://" + folder + "/a.xml", "file:" + folder + "/a.xml",
                                   std::string("http://127.0.0.1:9/a.xml")}) {
        const LogCapture log;
        EXPECT_EQ(write(url), STATUS_INVALID_STATE);
        EXPECT_THAT(log.lines(), ElementsAre(logged("write", "File open failed : (" + url + ")(" +
                                                                 std::strerror(ENOENT) + ")")));
    }
    EXPECT_THAT(names(), IsEmpty());
    EXPECT_EQ(engine.text(), "") << "the engine was not asked";
}

TEST_F(XmlPlainWriteTest, AFileThatWasThereIsReplaced)
{
    std::ofstream("a.xml") << std::string(10000, 'x');
    ASSERT_EQ(chmod("a.xml", 0600), 0);

    EXPECT_EQ(write("a.xml"), STATUS_SUCCESS);
    EXPECT_EQ(write("b.xml"), STATUS_SUCCESS);

    EXPECT_EQ(content("a.xml"), content("b.xml"));
}

TEST_F(XmlPlainWriteTest, WhatIsNoRegularFileIsLeftAlone)
{
    ASSERT_EQ(mkfifo("pipe", 0600), 0);
    for (const bool styled : {false, true}) {
        if (styled) {
            style();
        }
        const std::pair<std::string, int> rows[] = {
            {"pipe", ENXIO}, {"/dev/full", EINVAL}, {folder, EISDIR}};
        for (const auto& [path, error] : rows) {
            const LogCapture log;
            EXPECT_EQ(write(path), STATUS_INVALID_STATE);
            EXPECT_THAT(log.lines(),
                        ElementsAre(logged("write", "File open failed : (" + path + ")(" +
                                                        std::strerror(error) + ")")));
        }
    }
}

TEST_F(XmlPlainWriteTest, WithoutPathDocumentOrStyleSheetNoFileIsTouched)
{
    LogCapture log;
    XmlDocument nothing(nullptr);
    nothing.setOutputFilePath("a.xml");
    EXPECT_EQ(nothing.write(PLAIN_FILE), STATUS_INVALID_STATE);

    EXPECT_EQ(write(""), STATUS_INVALID_STATE);

    XmlStyleSheet unloaded("never-loaded.xsl");
    document.__setXmlStyleSheet(&unloaded);
    EXPECT_EQ(write("a.xml"), STATUS_INVALID_STATE);

    EXPECT_THAT(names(), IsEmpty());
    const auto refused = logged("write", "Invalid state.");
    EXPECT_THAT(log.lines(), ElementsAre(refused, refused, refused));
}

TEST_F(XmlPlainWriteTest, AFileThatIsCutShortIsReported)
{
    const EngineMessages messages;
    for (const bool styled : {false, true}) {
        if (styled) {
            style();
        }
        LogCapture log;
        int result = STATUS_SUCCESS;
        {
            const FileSizeLimit limit(5);
            result = write("a.xml");
        }
        EXPECT_EQ(result, STATUS_INVALID_STATE);
        EXPECT_THAT(log.lines(), ElementsAre(logged("write", "Invalid state.")));
        EXPECT_EQ(content("a.xml").size(), 5U);
    }
}

TEST_F(XmlPlainWriteTest, AFileThatCannotBeClosedIsReported)
{
    LogCapture log;
    int result = STATUS_SUCCESS;
    {
        FileCalls files;
        files.failClose();
        result = write("a.xml");
    }
    EXPECT_EQ(result, STATUS_INVALID_STATE);
    EXPECT_THAT(log.lines(), ElementsAre(logged("write", "Invalid state.")));
}

TEST_F(XmlPlainWriteTest, WhatLibxsltAnswersCounts)
{
    style();
    LogCapture log;
    TreeCalls calls;
    calls.refuse(TreeCall::SaveResult);

    EXPECT_EQ(write("a.xml"), STATUS_INVALID_STATE);

    EXPECT_THAT(log.lines(), ElementsAre(logged("write", "Invalid state.")));
}

}  // namespace
}  // namespace oxil::test
