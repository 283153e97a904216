#include "OxXmlDocument.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <libxml/parser.h>
#include <libxml/tree.h>

#include <filesystem>
#include <iterator>
#include <memory>
#include <ostream>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "AllocationFailure.h"
#include "EngineMessages.h"
#include "FileCalls.h"
#include "NativeXml.h"
#include "OutputFile.h"
#include "OxLogMatchers.h"
#include "OxStatus.h"
#include "OxXmlNode.h"
#include "OxXmlStyleSheet.h"
#include "ScriptFile.h"
#include "TreeCalls.h"

namespace oxil::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using Texts = std::vector<std::string>;

// ---- What the compiler can tell -----------------------------------------------------------------

static_assert(std::is_nothrow_destructible_v<XmlDocument>);
static_assert(!std::is_copy_constructible_v<XmlDocument> &&
              !std::is_copy_assignable_v<XmlDocument>);
static_assert(!std::is_move_constructible_v<XmlDocument> &&
              !std::is_move_assignable_v<XmlDocument>);
static_assert(std::is_same_v<void, decltype(std::declval<XmlDocument&>().setOutputFilePath(
                                       std::declval<const std::string&>()))>);
static_assert(
    std::is_same_v<void, decltype(std::declval<XmlDocument&>().__setXmlStyleSheet(nullptr))>);

// ---- Set-up -------------------------------------------------------------------------------------

const std::string DECLARATION = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";
const std::string LONG_NAME(64, 'p');

const LoggedBy logged("OxXmlDocument.cpp");

/** How many files this process has open. */
auto openFiles()
{
    const std::filesystem::directory_iterator files("/proc/self/fd");
    return std::distance(begin(files), end(files));
}

/** A stylesheet that is there for what it says in its xsl:output. */
class OutputSettings {
public:
    explicit OutputSettings(const std::string& output)
        : __file(
              "<xsl:stylesheet version='1.0' "
              "xmlns:xsl='http://www.w3.org/1999/XSL/Transform'><xsl:output " +
              output + "/></xsl:stylesheet>"),
          styleSheet(__file.path())
    {
        EXPECT_EQ(styleSheet.load(), STATUS_SUCCESS);
    }

private:
    ScriptFile __file;

public:
    XmlStyleSheet styleSheet;
};

// ---- Construction -------------------------------------------------------------------------------

TEST(XmlDocumentTest, ANewDocumentIsEmptyAndOfVersionOne)
{
    TreeCalls calls;
    {
        const XmlDocument document;

        const xmlDoc* native = document.__getNativeDocument();
        ASSERT_NE(native, nullptr);
        EXPECT_EQ(fromNative(native->version), "1.0");
        EXPECT_EQ(native->children, nullptr);
        EXPECT_EQ(document.getXmlStyleSheet(), nullptr);
    }
    EXPECT_THAT(calls.lines(), ElementsAre("new document 1.0", "free document"));
}

TEST(XmlDocumentTest, ANativeDocumentIsTakenOver)
{
    xmlDoc* native = parsed("<a/>");
    TreeCalls calls;
    {
        const XmlDocument document(native);

        EXPECT_EQ(document.__getNativeDocument(), native);
        EXPECT_EQ(document.getXmlStyleSheet(), nullptr);
    }
    EXPECT_THAT(calls.lines(), ElementsAre("free document"));
}

TEST(XmlDocumentTest, WithoutMemoryThereIsNoNativeDocumentAndNobodySaysSo)
{
    TreeCalls calls;
    calls.refuse(TreeCall::NewDocument);
    {
        const XmlDocument document;

        EXPECT_EQ(document.__getNativeDocument(), nullptr);
    }
    EXPECT_THAT(calls.lines(), ElementsAre("new document 1.0"));
}

TEST(XmlDocumentTest, ANullNativeDocumentIsTakenLikeNone)
{
    TreeCalls calls;
    {
        const XmlDocument document(nullptr);

        EXPECT_EQ(document.__getNativeDocument(), nullptr);
    }
    EXPECT_THAT(calls.lines(), IsEmpty());
}

// ---- Destruction --------------------------------------------------------------------------------

TEST(XmlDocumentTest, ADocumentIsTakenDownInOrder)
{
    LogCapture log;
    TreeCalls calls;
    auto document = std::make_unique<XmlDocument>(parsed("<root/>"));
    calls.watch(document->getRootNode(), "wrapper");
    document->setOutputFilePath(LONG_NAME);
    calls.answerNextSave(0);
    ASSERT_EQ(document->write(), STATUS_SUCCESS);
    calls.watch(calls.lastText(), "path");
    calls.clear();

    document = nullptr;

    EXPECT_THAT(calls.lines(), ElementsAre("release path", "unlink root", "free root",
                                           "release wrapper", "free document"));
}

TEST(XmlDocumentTest, ARootThatWasGivenIsTheCallersToDestroyFirst)
{
    TreeCalls calls;
    {
        XmlDocument document;
        XmlNode root("root");
        ASSERT_EQ(document.setRootNode(&root), STATUS_SUCCESS);
        ASSERT_EQ(root.addChild(new XmlNode("child")), STATUS_SUCCESS);
        calls.clear();
    }
    EXPECT_THAT(calls.lines(), ElementsAre("unlink root", "unlink child", "free child", "free root",
                                           "free document"));
}

TEST(XmlDocumentTest, ARootThatIsNeverDestroyedGoesWithItsTree)
{
    TreeCalls calls;
    XmlNode root("root");
    xmlNode* native = root.__getNativeNode();
    {
        XmlDocument document;
        ASSERT_EQ(document.setRootNode(&root), STATUS_SUCCESS);
        calls.watch(native, "native root");
        calls.clear();
    }
    EXPECT_THAT(calls.lines(), ElementsAre("free document", "release native root"));
    EXPECT_EQ(root.__getNativeNode(), native) << "the node itself is not touched";

    root = XmlNode();  // lets go of what is no more
}

TEST(XmlDocumentTest, AStyleSheetOutlivesTheDocument)
{
    OutputSettings text("method='text'");
    TreeCalls calls;
    const auto* native = text.styleSheet.__getNativeStyleSheet();
    {
        XmlDocument document;
        document.__setXmlStyleSheet(&text.styleSheet);
    }
    EXPECT_THAT(calls.lines(), ElementsAre("new document 1.0", "free document"));
    EXPECT_EQ(text.styleSheet.__getNativeStyleSheet(), native);
}

// ---- setRootNode --------------------------------------------------------------------------------

TEST(XmlDocumentTest, ANodeBecomesTheRootElement)
{
    XmlDocument document;
    XmlNode root("root");
    ASSERT_EQ(root.addChild(new XmlNode("child")), STATUS_SUCCESS);

    EXPECT_EQ(document.setRootNode(&root), STATUS_SUCCESS);

    EXPECT_EQ(document.getRootNode(), &root);
    EXPECT_EQ(xmlDocGetRootElement(document.__getNativeDocument()), root.__getNativeNode());
    EXPECT_EQ(root.getFirstChild()->__getNativeNode()->doc, document.__getNativeDocument());
    EXPECT_EQ(rootXml(document), "<root><child/></root>");

    EXPECT_EQ(document.setRootNode(&root), STATUS_SUCCESS) << "once more";
    EXPECT_EQ(rootXml(document), "<root><child/></root>");
}

TEST(XmlDocumentTest, ARootTakesThePlaceOfAnother)
{
    TreeCalls calls;
    XmlDocument document;
    XmlNode first("first");
    XmlNode second("second");
    ASSERT_EQ(document.setRootNode(&first), STATUS_SUCCESS);
    calls.clear();

    EXPECT_EQ(document.setRootNode(&second), STATUS_SUCCESS);

    EXPECT_EQ(document.getRootNode(), &second);
    EXPECT_EQ(rootXml(document), "<second/>");
    EXPECT_EQ(first.__getNativeNode()->parent, nullptr);
    EXPECT_THAT(calls.lines(), IsEmpty()) << "the first one is freed by nobody";
}

TEST(XmlDocumentTest, TheRootOfALoadedDocumentIsReplacedAndNotFreed)
{
    XmlDocument document(parsed("<!-- before --><loaded/><!-- behind -->"));
    xmlNode* loaded = xmlDocGetRootElement(document.__getNativeDocument());
    XmlNode root("root");

    EXPECT_EQ(document.setRootNode(&root), STATUS_SUCCESS);

    EXPECT_EQ(rootXml(document), "<root/>");
    EXPECT_EQ(fromNative(loaded->name), "loaded");
    EXPECT_EQ(loaded->parent, nullptr);
    xmlFreeNode(loaded);
}

TEST(XmlDocumentTest, ANodeWithoutNativeNodeIsAcceptedAsRoot)
{
    XmlDocument document(parsed("<a/>"));
    XmlNode empty;

    EXPECT_EQ(document.setRootNode(&empty), STATUS_SUCCESS);

    EXPECT_EQ(document.getRootNode(), &empty);
    EXPECT_EQ(rootXml(document), "<a/>") << "the tree stays as it was";
}

TEST(XmlDocumentTest, ANullRootIsRefused)
{
    LogCapture log;
    XmlDocument document;
    XmlNode root("root");
    ASSERT_EQ(document.setRootNode(&root), STATUS_SUCCESS);

    EXPECT_EQ(document.setRootNode(nullptr), STATUS_INVALID_PARAMETER);
    EXPECT_EQ(XmlDocument(nullptr).setRootNode(nullptr), STATUS_INVALID_PARAMETER);

    EXPECT_EQ(document.getRootNode(), &root);
    EXPECT_EQ(rootXml(document), "<root/>");
    const auto refused = logged("setRootNode", "Invalid parameter.");
    EXPECT_THAT(log.lines(), ElementsAre(refused, refused));
}

TEST(XmlDocumentTest, WithoutNativeDocumentThereIsNoRoot)
{
    LogCapture log;
    XmlDocument document(nullptr);
    XmlNode root("root");

    EXPECT_EQ(document.setRootNode(&root), STATUS_INVALID_STATE);
    EXPECT_EQ(document.getRootNode(), nullptr);

    EXPECT_EQ(root.__getNativeNode()->doc, nullptr);
    EXPECT_THAT(log.lines(), ElementsAre(logged("setRootNode", "Invalid state."),
                                         logged("getRootNode", "Invalid state.")));
}

// ---- getRootNode --------------------------------------------------------------------------------

TEST(XmlDocumentTest, TheRootOfALoadedDocumentIsWrappedOnce)
{
    const XmlDocument document(parsed("<a><b/></a>"));

    XmlNode* root = document.getRootNode();

    ASSERT_NE(root, nullptr);
    EXPECT_EQ(root->__getNativeNode(), xmlDocGetRootElement(document.__getNativeDocument()));
    EXPECT_THAT(root->getChildren(), IsEmpty()) << "native children have no wrappers";
    EXPECT_EQ(document.getRootNode(), root);
    EXPECT_EQ(document.getRootNode(), root);
}

TEST(XmlDocumentTest, TheWrapperOfTheRootEditsTheTree)
{
    TreeCalls calls;
    const XmlDocument document(parsed("<a x='1'><b/></a>"));

    XmlNode* root = document.getRootNode();
    ASSERT_NE(root, nullptr);
    EXPECT_EQ(root->getAttribute("x"), "1");
    EXPECT_EQ(root->setAttribute("x", "2"), STATUS_SUCCESS);
    EXPECT_EQ(root->addChild(new XmlNode("c")), STATUS_SUCCESS);

    EXPECT_EQ(rootXml(document), "<a x=\"2\"><b/><c/></a>");
}

TEST(XmlDocumentTest, ARootThatIsNotThereIsWrappedTooAndKept)
{
    const XmlDocument document;

    XmlNode* root = document.getRootNode();

    ASSERT_NE(root, nullptr);
    EXPECT_EQ(root->__getNativeNode(), nullptr);

    // Also when there is a root by now.
    xmlDocSetRootElement(document.__getNativeDocument(), xmlNewNode(nullptr, xmlText("late")));
    EXPECT_EQ(document.getRootNode(), root);
    EXPECT_EQ(root->__getNativeNode(), nullptr);
    EXPECT_EQ(rootXml(document), "<late/>");
}

TEST(XmlDocumentTest, ARootThatWasGivenGoesBeforeTheWrapper)
{
    TreeCalls calls;
    {
        XmlDocument document(parsed("<loaded/>"));
        const XmlNode* wrapper = document.getRootNode();
        XmlNode root("root");

        EXPECT_EQ(document.setRootNode(&root), STATUS_SUCCESS);

        EXPECT_EQ(document.getRootNode(), &root);
        EXPECT_NE(document.getRootNode(), wrapper);
        EXPECT_EQ(fromNative(wrapper->__getNativeNode()->name), "loaded") << "it lives on";
        calls.clear();
    }
    EXPECT_THAT(calls.lines(), ElementsAre("unlink root", "free root", "unlink loaded",
                                           "free loaded", "free document"));
}

TEST(XmlDocumentTest, WithoutMemoryThereIsNoWrapperYet)
{
    LogCapture log;
    const XmlDocument document(parsed("<a/>"));
    XmlNode* root = nullptr;
    bool failed = false;
    {
        const AllocationFailure failure(Allocation::NothrowNew);
        root = document.getRootNode();
        failed = failure.happened();
    }
    EXPECT_TRUE(failed);
    EXPECT_EQ(root, nullptr);
    EXPECT_THAT(log.lines(), ElementsAre(logged("getRootNode", "Invalid state.")));

    ASSERT_NE(document.getRootNode(), nullptr) << "the next call tries again";
    EXPECT_EQ(document.getRootNode()->__getNativeNode(),
              xmlDocGetRootElement(document.__getNativeDocument()));
}

TEST(XmlDocumentTest, ARootThatWasGivenNeedsNoWrapper)
{
    XmlDocument document;
    XmlNode root("root");
    ASSERT_EQ(document.setRootNode(&root), STATUS_SUCCESS);

    const AllocationFailure failure(Allocation::NothrowNew);
    const XmlNode* found = document.getRootNode();
    const bool failed = failure.happened();

    EXPECT_FALSE(failed);
    EXPECT_EQ(found, &root);
}

// ---- The stylesheet -----------------------------------------------------------------------------

TEST(XmlDocumentTest, AStyleSheetIsKeptUntilAnotherIsSet)
{
    LogCapture log;
    XmlDocument document;
    XmlStyleSheet first("first.xsl");
    XmlStyleSheet second("second.xsl");

    document.__setXmlStyleSheet(nullptr);
    EXPECT_EQ(document.getXmlStyleSheet(), nullptr);
    document.__setXmlStyleSheet(&first);
    EXPECT_EQ(document.getXmlStyleSheet(), &first);
    document.__setXmlStyleSheet(&second);
    EXPECT_EQ(document.getXmlStyleSheet(), &second);
    document.__setXmlStyleSheet(nullptr);
    EXPECT_EQ(document.getXmlStyleSheet(), &second);

    const auto refused = logged("__setXmlStyleSheet", "Invalid paramter.");
    EXPECT_THAT(log.lines(), ElementsAre(refused, refused));
}

// ---- write --------------------------------------------------------------------------------------

class XmlDocumentWriteTest : public testing::Test {
protected:
    /** Writes a document to the output file; what the file holds then. */
    std::string written(XmlDocument& document)
    {
        document.setOutputFilePath(output.path());
        EXPECT_EQ(document.write(), STATUS_SUCCESS);
        return output.content();
    }

    /** The same for a document that is parsed first, under output settings. */
    std::string written(const std::string& xml, const std::string& settings)
    {
        OutputSettings output_(settings);
        XmlDocument document(parsed(xml));
        document.__setXmlStyleSheet(&output_.styleSheet);
        return written(document);
    }

    const OutputFile output{"written.xml"};
};

TEST_F(XmlDocumentWriteTest, ADocumentIsWrittenIndentedInUtf8)
{
    XmlDocument document;
    XmlNode root("layout");
    ASSERT_EQ(root.setAttribute(Texts{"a", "1", "b", "2"}), STATUS_SUCCESS);
    ASSERT_EQ(document.setRootNode(&root), STATUS_SUCCESS);

    EXPECT_EQ(written(document), DECLARATION + "<layout a=\"1\" b=\"2\"/>\n");

    auto* item = new XmlNode("item");
    ASSERT_EQ(root.addChild(item), STATUS_SUCCESS);
    ASSERT_EQ(root.addChild(new XmlNode("item")), STATUS_SUCCESS);
    ASSERT_EQ(item->addChild(new XmlNode("part")), STATUS_SUCCESS);
    ASSERT_EQ(item->getFirstChild()->setContent("text"), STATUS_SUCCESS);

    EXPECT_EQ(written(document), DECLARATION +
                                     "<layout a=\"1\" b=\"2\">\n"
                                     "  <item>\n"
                                     "    <part>text</part>\n"
                                     "  </item>\n"
                                     "  <item/>\n"
                                     "</layout>\n");
}

TEST_F(XmlDocumentWriteTest, SpecialCharactersAreEscaped)
{
    XmlDocument document;
    XmlNode root("n");
    ASSERT_EQ(root.setAttribute("a", "<&>\"'\n\t"), STATUS_SUCCESS);
    ASSERT_EQ(root.setAttribute(Texts{"b", "<&amp;>\""}), STATUS_SUCCESS);
    ASSERT_EQ(root.setContent("1 < 2 && 3 > 2, "), STATUS_SUCCESS);
    ASSERT_EQ(root.setContent("&lt; \"]]>\""), STATUS_SUCCESS);
    ASSERT_EQ(document.setRootNode(&root), STATUS_SUCCESS);

    EXPECT_EQ(written(document),
              DECLARATION +
                  "<n a=\"&lt;&amp;&gt;&quot;'&#10;&#9;\" b=\"&lt;&amp;amp;&gt;&quot;\">"
                  "1 &lt; 2 &amp;&amp; 3 &gt; 2, &amp;lt; \"]]&gt;\"</n>\n");
}

TEST_F(XmlDocumentWriteTest, TextOfEveryScriptIsWrittenAsItIs)
{
    const std::string text = "\xC3\xA4 \xE2\x82\xAC \xE6\xBC\xA2 \xF0\x9F\x98\x80";
    XmlDocument document;
    XmlNode root("gr\xC3\xBC\xC3\x9F\x65");
    ASSERT_EQ(root.setAttribute("a", text), STATUS_SUCCESS);
    ASSERT_EQ(root.setContent(text), STATUS_SUCCESS);
    ASSERT_EQ(document.setRootNode(&root), STATUS_SUCCESS);

    EXPECT_EQ(written(document), DECLARATION + "<gr\xC3\xBC\xC3\x9F\x65 a=\"" + text + "\">" +
                                     text + "</gr\xC3\xBC\xC3\x9F\x65>\n");
}

TEST_F(XmlDocumentWriteTest, ALoadedDocumentOfAnotherEncodingBecomesUtf8)
{
    XmlDocument document(parsed("<?xml version='1.0' encoding='ISO-8859-1'?><a>\xE4</a>"));

    EXPECT_EQ(written(document), DECLARATION + "<a>\xC3\xA4</a>\n");
}

TEST_F(XmlDocumentWriteTest, TwoAttributesOfOneNameMakeTheFileMalformed)
{
    const EngineMessages messages;
    XmlDocument document;
    XmlNode root("n");
    ASSERT_EQ(root.setAttribute(Texts{"a", "1"}), STATUS_SUCCESS);
    ASSERT_EQ(root.setAttribute(Texts{"a", "2"}), STATUS_SUCCESS);
    ASSERT_EQ(document.setRootNode(&root), STATUS_SUCCESS);

    EXPECT_EQ(written(document), DECLARATION + "<n a=\"1\" a=\"2\"/>\n");
    EXPECT_EQ(xmlParseFile(output.path().c_str()), nullptr);
}

TEST_F(XmlDocumentWriteTest, TextBesideElementsKeepsThemOnTheirLine)
{
    XmlDocument document(parsed("<a>text<b/><c><d/></c></a>"));

    EXPECT_EQ(written(document), DECLARATION + "<a>text<b/><c><d/></c></a>\n");
}

TEST_F(XmlDocumentWriteTest, ADocumentWithoutRootIsADeclaration)
{
    XmlDocument document;

    EXPECT_EQ(written(document), DECLARATION);
}

TEST_F(XmlDocumentWriteTest, AFileThatWasThereIsReplaced)
{
    output.fill(std::string(10000, 'x'));
    XmlDocument document(parsed("<a/>"));

    EXPECT_EQ(written(document), DECLARATION + "<a/>\n");
}

TEST_F(XmlDocumentWriteTest, ThePathIsTheLastOneThatWasSet)
{
    const OutputFile other("other.xml");
    XmlDocument document(parsed("<a/>"));
    document.setOutputFilePath(other.path());
    EXPECT_FALSE(other.exists()) << "no file is touched before it is written";

    EXPECT_EQ(written(document), DECLARATION + "<a/>\n");
    EXPECT_FALSE(other.exists());
}

TEST_F(XmlDocumentWriteTest, WithoutPathNothingIsWritten)
{
    OutputSettings settings("method='xml'");
    for (const bool styled : {false, true}) {
        for (const bool reset : {false, true}) {
            SCOPED_TRACE(testing::Message() << "styled " << styled << ", reset " << reset);
            LogCapture log;
            TreeCalls calls;
            XmlDocument document;
            if (styled) {
                document.__setXmlStyleSheet(&settings.styleSheet);
            }
            if (reset) {
                document.setOutputFilePath(output.path());
                document.setOutputFilePath("");
            }
            calls.clear();

            EXPECT_EQ(document.write(), STATUS_INVALID_STATE);

            EXPECT_THAT(log.lines(), ElementsAre(logged("write", "Invalid state.")));
            EXPECT_THAT(calls.lines(), IsEmpty()) << "the engines are not asked";
            EXPECT_FALSE(output.exists());
        }
    }
}

TEST_F(XmlDocumentWriteTest, OnlyANegativeAnswerIsAFailure)
{
    LogCapture log;
    TreeCalls calls;
    XmlDocument document(parsed("<a/>"));
    document.setOutputFilePath(output.path());

    const std::pair<int, int> rows[] = {
        {-1, STATUS_INVALID_STATE}, {-7, STATUS_INVALID_STATE}, {0, 0}, {1, 0}};
    for (const auto& [answer, status] : rows) {
        calls.answerNextSave(answer);
        EXPECT_EQ(document.write(), status) << answer;
    }
    const auto failed = logged("write", "Invalid state.");
    EXPECT_THAT(log.lines(), ElementsAre(failed, failed));
}

/** Documents and paths that libxml2 can't save. */
TEST_F(XmlDocumentWriteTest, WhatCannotBeSavedIsReported)
{
    LogCapture log;
    const EngineMessages messages;
    const auto before = openFiles();

    XmlDocument document(parsed("<a/>"));
    document.setOutputFilePath(output.path() + "/no/such/folder");
    EXPECT_EQ(document.write(), STATUS_INVALID_STATE);

    document.setOutputFilePath(testing::TempDir());
    EXPECT_EQ(document.write(), STATUS_INVALID_STATE) << "a folder";

    XmlDocument nothing(nullptr);
    nothing.setOutputFilePath(output.path());
    EXPECT_EQ(nothing.write(), STATUS_INVALID_STATE) << "no native document";
    EXPECT_FALSE(output.exists());

    const auto failed = logged("write", "Invalid state.");
    EXPECT_THAT(log.lines(), ElementsAre(failed, failed, failed));
    EXPECT_EQ(openFiles(), before);
}

// ---- write through a stylesheet -----------------------------------------------------------------

struct Settings {
    const char* output;    ///< attributes of xsl:output
    const char* document;  ///< what is written
    const char* file;      ///< the bytes
};

void PrintTo(const Settings& row, std::ostream* stream)
{
    *stream << row.output;
}

const Settings SETTINGS[] = {
    {"method='xml'", "<a><b/>text</a>",  //
     "<?xml version=\"1.0\"?>\n<a><b/>text</a>\n"},
    {"method='xml' indent='no' encoding='UTF-8'", "<a><b/></a>",
     "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<a><b/></a>"},
    {"method='xml' indent='yes' encoding='UTF-8'", "<a><b><c/></b></a>",
     "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<a>\n  <b>\n    <c/>\n  </b>\n</a>\n"},
    {"method='xml' encoding='ISO-8859-1'", "<a>\xC3\xA4\xE2\x82\xAC</a>",
     "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>\n<a>\xE4&#8364;</a>\n"},
    {"method='xml' omit-xml-declaration='yes' encoding='UTF-8'", "<a>\xC3\xA4</a>",
     "<a>\xC3\xA4</a>\n"},
    {"method='html' indent='no'", "<p>a<br/>b</p>", "<p>a<br>b</p>\n"},
    {"method='text' encoding='UTF-8'", "<a>1 &lt; 2<b> &amp; \xC3\xA4</b></a>", "1 < 2 & \xC3\xA4"},
    {"method='text' encoding='ISO-8859-1'", "<a>\xC3\xA4</a>", "\xE4"},
    {"method='text'", "<a/>", ""}};

class XmlDocumentSettingsTest : public XmlDocumentWriteTest,
                                public testing::WithParamInterface<Settings> {};

TEST_P(XmlDocumentSettingsTest, AreThoseOfTheStyleSheet)
{
    EXPECT_EQ(written(GetParam().document, GetParam().output), GetParam().file);
}

INSTANTIATE_TEST_SUITE_P(Outputs, XmlDocumentSettingsTest, testing::ValuesIn(SETTINGS));

TEST_F(XmlDocumentWriteTest, AStyleSheetTakesThePlaceOfThePlainForm)
{
    OutputSettings text("method='text'");
    const std::string xml = "<a><b>text</b></a>";
    XmlDocument document(parsed(xml));

    EXPECT_EQ(written(document), DECLARATION + "<a>\n  <b>text</b>\n</a>\n");

    document.__setXmlStyleSheet(&text.styleSheet);
    EXPECT_EQ(written(document), "text") << "and what was in the file is gone";
    EXPECT_EQ(rootXml(document), xml);
}

TEST_F(XmlDocumentWriteTest, TheFileIsClosedBehindAStyleSheet)
{
    const auto before = openFiles();

    EXPECT_EQ(written("<a>text</a>", "method='text'"), "text");

    EXPECT_EQ(openFiles(), before);
}

TEST_F(XmlDocumentWriteTest, AFileThatCannotBeOpenedForAStyleSheetIsReported)
{
    OutputSettings text("method='text'");
    XmlStyleSheet unloaded("never-loaded.xsl");
    for (XmlStyleSheet* styleSheet : {&text.styleSheet, &unloaded}) {
        LogCapture log;
        TreeCalls calls;
        XmlDocument document(parsed("<a/>"));
        document.__setXmlStyleSheet(styleSheet);
        document.setOutputFilePath(output.path() + "/no/such/folder");
        calls.clear();

        EXPECT_EQ(document.write(), STATUS_INVALID_STATE);

        EXPECT_THAT(log.lines(), ElementsAre(logged("write", "fopen is failed")));
        EXPECT_THAT(calls.lines(), IsEmpty()) << "the engines are not asked";
    }
}

TEST_F(XmlDocumentWriteTest, AStyleSheetThatWasNeverLoadedEmptiesTheFile)
{
    XmlStyleSheet unloaded("never-loaded.xsl");
    for (const bool wasThere : {false, true}) {
        SCOPED_TRACE(wasThere ? "a file was there" : "no file was there");
        LogCapture log;
        TreeCalls calls;
        if (wasThere) {
            output.fill("something");
        }
        const auto before = openFiles();
        XmlDocument document(parsed("<a/>"));
        document.__setXmlStyleSheet(&unloaded);
        document.setOutputFilePath(output.path());
        calls.clear();

        EXPECT_EQ(document.write(), STATUS_INVALID_STATE);

        EXPECT_THAT(log.lines(), ElementsAre(logged("write", "Invalid state.")));
        EXPECT_THAT(calls.lines(), IsEmpty());
        EXPECT_EQ(output.content(), "");
        EXPECT_EQ(openFiles(), before) << "the file is closed";
    }
}

TEST_F(XmlDocumentWriteTest, WhatLibxsltMakesOfAResultIsIgnored)
{
    OutputSettings text("method='text'");
    const auto before = openFiles();
    output.fill("something");

    XmlDocument document(parsed("<a>text</a>"));
    document.__setXmlStyleSheet(&text.styleSheet);
    {
        TreeCalls calls;
        calls.refuse(TreeCall::SaveResult);
        EXPECT_EQ(written(document), "") << "refused";
    }

    output.fill("something");
    XmlDocument nothing(nullptr);
    nothing.__setXmlStyleSheet(&text.styleSheet);
    EXPECT_EQ(written(nothing), "") << "no native document";

    XmlDocument rootless;
    rootless.__setXmlStyleSheet(&text.styleSheet);
    EXPECT_EQ(written(rootless), "") << "no root element";

    EXPECT_EQ(openFiles(), before) << "the file is closed each time";
}

TEST_F(XmlDocumentWriteTest, AFullDiskIsReportedBehindAStyleSheetToo)
{
    const EngineMessages messages;
    OutputSettings text("method='text'");
    const auto before = openFiles();
    for (const std::size_t length : {std::size_t(1), std::size_t(100000)}) {
        for (const bool styled : {false, true}) {
            SCOPED_TRACE(testing::Message() << length << " bytes, styled " << styled);
            LogCapture log;
            XmlDocument document(parsed("<a>" + std::string(length, 'x') + "</a>"));
            if (styled) {
                document.__setXmlStyleSheet(&text.styleSheet);
            }
            document.setOutputFilePath("/dev/full");

            EXPECT_EQ(document.write(), STATUS_INVALID_STATE);

            EXPECT_THAT(log.lines(), ElementsAre(logged("write", "Invalid state.")));
        }
    }
    EXPECT_EQ(openFiles(), before);
}

TEST_F(XmlDocumentWriteTest, AFileThatCannotBeClosedIsReported)
{
    OutputSettings text("method='text'");
    LogCapture log;
    XmlDocument document(parsed("<a>text</a>"));
    document.__setXmlStyleSheet(&text.styleSheet);
    document.setOutputFilePath(output.path());
    int result = STATUS_SUCCESS;
    {
        FileCalls files;
        files.failClose();
        result = document.write();
        EXPECT_TRUE(files.isEverythingReleased());
    }
    EXPECT_EQ(result, STATUS_INVALID_STATE);
    EXPECT_THAT(log.lines(), ElementsAre(logged("write", "Invalid state.")));
}

}  // namespace
}  // namespace oxil::test
