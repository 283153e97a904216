#include <OxPlainFile.h>
#include <OxStatus.h>
#include <OxXml.h>
#include <OxXmlDocument.h>
#include <OxXmlElement.h>
#include <OxXmlNode.h>
#include <OxXmlStyleSheet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <libxml/parser.h>

#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "AllocationFailure.h"
#include "EngineMemory.h"
#include "EngineMessages.h"
#include "OpenedReferences.h"
#include "OutputFile.h"
#include "OxLogMatchers.h"
#include "ScriptFile.h"
#include "TreeCalls.h"

namespace oxil::test {
namespace {

using testing::ElementsAre;

const LoggedBy logged("OxXmlDocument.cpp");

/** The attribute `n` of the root; "" without document. */
std::string nameIn(const std::unique_ptr<XmlDocument>& document)
{
    return document != nullptr ? document->getRootElement().getAttribute("n") : "";
}

/** What Xml::readText() delivers, as one text. */
std::string eventsOf(std::string_view text, int expected = STATUS_SUCCESS)
{
    std::string events;
    Xml xml;
    xml.setOnStartElement([&](const std::string& name, const std::vector<std::string>& list) {
        events += "<" + name;
        for (const std::string& attribute : list) {
            events += "|" + attribute;
        }
        events += ">";
    });
    xml.setOnCharacters([&](const std::string& run) { events += run; });
    xml.setOnEndElement([&](const std::string& name) { events += "</" + name + ">"; });
    EXPECT_EQ(xml.readText(text), expected);
    return events;
}

// ---- Reading ------------------------------------------------------------------------------------

TEST(XmlInMemoryTest, ATextIsLoadedUpToItsLength)
{
    const std::string text = "<r n='1'/><no xml";

    EXPECT_EQ(nameIn(XmlDocument::loadText(std::string_view(text).substr(0, 10))), "1");
    EXPECT_EQ(eventsOf(std::string_view(text).substr(0, 10)), "<r|n|1></r>");
}

TEST(XmlInMemoryTest, ATreeNeedsItsTextNoMore)
{
    auto text = std::make_unique<std::string>("<r n='a value that is long enough'>and text</r>");
    const auto document = XmlDocument::loadText(*text);
    text = nullptr;

    EXPECT_EQ(nameIn(document), "a value that is long enough");
    EXPECT_EQ(document->getRootElement().getText(), "and text");
}

TEST(XmlInMemoryTest, EventsAreThoseOfExactText)
{
    EXPECT_EQ(eventsOf("<?xml version='1.0' encoding='ISO-8859-1'?><a x='1&amp;\xe4'>t\xe9&lt;"
                       "<b:c/>x<![CDATA[<]]><!--c--></a>"),
              "<a|x|1&\u00e4>t\u00e9<<b:c></b:c>x<</a>");
}

TEST(XmlInMemoryTest, TheListenerIsToldToo)
{
    struct Listener : IXmlEventListener {
        void onStartElement(const std::string& name, const std::vector<std::string>&) override
        {
            names.push_back(name);
        }
        void onEndElement(const std::string&) override {}
        void onCharacters(const std::string&) override {}

        std::vector<std::string> names;
    } listener;
    Xml xml;
    xml.setXmlEventListener(&listener);

    EXPECT_EQ(xml.readText("<a><b/></a>"), STATUS_SUCCESS);

    EXPECT_THAT(listener.names, ElementsAre("a", "b"));
}

TEST(XmlInMemoryTest, AnExceptionComesOutOfTheRead)
{
    Xml xml;
    int calls = 0;
    xml.setOnStartElement([&](const std::string&, const std::vector<std::string>&) {
        ++calls;
        throw std::runtime_error("no more");
    });
    const EngineMemory memory;

    EXPECT_THROW(xml.readText("<a><b/></a>"), std::runtime_error);

    EXPECT_EQ(calls, 1);
    EXPECT_EQ(memory.getBlockCount(), 0);
}

TEST(XmlInMemoryTest, ThePathRememberedStays)
{
    const ScriptFile file("<r n='1'/>");
    Xml xml(file.path());

    EXPECT_EQ(xml.readText("<r/>"), STATUS_SUCCESS);

    EXPECT_EQ(nameIn(std::unique_ptr<XmlDocument>(xml.load())), "1");
}

TEST(XmlInMemoryTest, WhatIsNoXmlIsRefused)
{
    const EngineMessages quiet;
    for (const std::string text : {"", " ", "<r>", "<r></s>", "<r/><s/>", "<r a='1' a='2'/>",
                                   "<r>&nobody;</r>", "\xff<r/>"}) {
        const LogCapture log;
        EXPECT_EQ(XmlDocument::loadText(text), nullptr) << text;
        eventsOf(text, STATUS_INVALID_PARAMETER);
        EXPECT_THAT(log.lines(),
                    ElementsAre(logged("loadText", "Xml parsing failed"),
                                LoggedIn("OxXml.cpp", "readText", "Xml parsing failed")))
            << text;
    }
    const LogCapture log;
    EXPECT_EQ(XmlDocument::loadText(std::string_view("<r>\0</r>", 8)), nullptr);
    EXPECT_EQ(XmlDocument::loadText({}), nullptr);
    EXPECT_EQ(log.count(), 2);
}

TEST(XmlInMemoryTest, ATextHasNoMoreBytesThanItIsAllowed)
{
    const std::string text = "<r n='1'/>";
    Xml xml;
    EXPECT_EQ(nameIn(XmlDocument::loadText(text, text.size())), "1");
    EXPECT_EQ(xml.readText(text, text.size()), STATUS_SUCCESS);

    const LogCapture log;
    EXPECT_EQ(XmlDocument::loadText(text, text.size() - 1), nullptr);
    EXPECT_EQ(xml.readText(text, text.size() - 1), STATUS_INVALID_PARAMETER);
    EXPECT_THAT(log.lines(),
                ElementsAre(logged("loadText", "Text is too long (10)."),
                            LoggedIn("OxXml.cpp", "readText", "Text is too long (10).")));
}

TEST(XmlInMemoryTest, TheLimitIsSixteenMebibytesByDefault)
{
    // The parser's own limits are smaller, for one comment, say.
    constexpr std::size_t LIMIT = 16 * 1024 * 1024;
    const auto makeText = [](std::size_t size) {
        std::string text = "<r n='1'>";
        while (text.size() < size - 2'000'000) {
            text += "<!--" + std::string(1'000'000, 'c') + "-->";
        }
        return text + "<!--" + std::string(size - text.size() - 11, 'c') + "--></r>";
    };
    std::string text = makeText(LIMIT);
    ASSERT_EQ(text.size(), LIMIT);
    EXPECT_EQ(nameIn(XmlDocument::loadText(text)), "1");
    EXPECT_EQ(eventsOf(text), "<r|n|1></r>");

    text = makeText(LIMIT + 1);
    const LogCapture log;
    EXPECT_EQ(XmlDocument::loadText(text), nullptr);
    eventsOf(text, STATUS_INVALID_PARAMETER);
    EXPECT_THAT(log.lines(),
                ElementsAre(logged("loadText", "Text is too long (16777217)."),
                            LoggedIn("OxXml.cpp", "readText", "Text is too long (16777217).")));
}

TEST(XmlInMemoryTest, MoreThanTheParserCanCountIsTooLongWhateverTheLimit)
{
    // Nothing of it is looked at.
    const std::string_view text("<r/>", std::size_t(INT_MAX) + 1);
    Xml xml;
    const LogCapture log;

    EXPECT_EQ(XmlDocument::loadText(text, SIZE_MAX), nullptr);
    EXPECT_EQ(xml.readText(text, SIZE_MAX), STATUS_INVALID_PARAMETER);

    EXPECT_THAT(log.lines(),
                ElementsAre(logged("loadText", "Text is too long (2147483648)."),
                            LoggedIn("OxXml.cpp", "readText", "Text is too long (2147483648).")));
}

// ---- Documents from outside ---------------------------------------------------------------------

TEST(XmlInMemoryTest, WhatADocumentRefersToIsNotReadWhateverTheProcessHasSet)
{
    const std::string text =
        "<!DOCTYPE r SYSTEM 'http://127.0.0.1:9/' [<!ENTITY e SYSTEM 'other.xml'><!ENTITY % p "
        "SYSTEM 'other.dtd'> %p;]><?oasis-xml-catalog catalog='catalog.xml'?><r n='1'>&e;</r>";
    const ScriptFile file(text);
    const OpenedReferences opened;
    const EngineMessages quiet;

    EXPECT_EQ(nameIn(XmlDocument::loadText(text)), "1");
    EXPECT_EQ(nameIn(XmlDocument::loadFile(file.path())), "1");
    EXPECT_EQ(eventsOf(text), "<r|n|1></r>");
    EXPECT_EQ(opened.getCount(), 0);
}

TEST(XmlInMemoryTest, EntitiesOfTheDocumentAreNotKnown)
{
    const EngineMessages quiet;
    const std::string type = "<!DOCTYPE r [<!ENTITY e 'text'><!ENTITY x SYSTEM '/etc/hosts'>]>";
    EXPECT_EQ(nameIn(XmlDocument::loadText(type + "<r n='1&lt;'/>")), "1<");

    for (const std::string root : {"<r>&e;</r>", "<r n='&e;'/>", "<r>&x;</r>"}) {
        const ScriptFile file(type + root);
        const LogCapture log;
        EXPECT_EQ(XmlDocument::loadText(type + root), nullptr) << root;
        EXPECT_EQ(XmlDocument::loadFile(file.path()), nullptr) << root;
        eventsOf(type + root, STATUS_INVALID_PARAMETER);
        EXPECT_EQ(log.count(), 3) << root;
    }
}

TEST(XmlInMemoryTest, EntitiesThatAreNoXmlAreNotKnownEither)
{
    const EngineMessages quiet;
    const std::string type =
        "<!DOCTYPE r SYSTEM 'none' [<!NOTATION t SYSTEM 't'><!ENTITY u SYSTEM 'u' NDATA t>]>";

    for (const std::string root : {"<r n='1'>&u;</r>", "<r n='1&u;'/>"}) {
        const ScriptFile file(type + root);
        EXPECT_EQ(nameIn(XmlDocument::loadText(type + root)), "1") << root;
        EXPECT_EQ(nameIn(XmlDocument::loadFile(file.path())), "1") << root;
        EXPECT_EQ(eventsOf(type + root), "<r|n|1></r>");
    }
}

TEST(XmlInMemoryTest, NoTextIsLongerThanTheDocument)
{
    const EngineMessages quiet;
    std::string references;
    for (int i = 0; i < 1000; ++i) {
        references += "&e;";
    }
    for (const std::string type : {"<!DOCTYPE r [", "<!DOCTYPE r SYSTEM 'none' ["}) {
        const std::string text = type + "<!ENTITY e '" + std::string(1000, 'x') + "'>]><r n='" +
                                 references + "'>" + references + "</r>";
        const LogCapture log;
        const auto document = XmlDocument::loadText(text);
        if (document != nullptr) {
            EXPECT_LE(document->getRootElement().getText().size(), text.size()) << type;
            EXPECT_LE(nameIn(document).size(), text.size()) << type;
        }
    }
}

TEST(XmlInMemoryTest, ADeepDocumentIsRefused)
{
    const auto nested = [](int levels) {
        std::string text;
        for (int level = 0; level < levels; ++level) {
            text += "<a>";
        }
        for (int level = 0; level < levels; ++level) {
            text += "</a>";
        }
        return text;
    };
    EXPECT_NE(XmlDocument::loadText(nested(256)), nullptr);

    const EngineMessages quiet;
    const LogCapture log;
    EXPECT_EQ(XmlDocument::loadText(nested(258)), nullptr);
    EXPECT_EQ(XmlDocument::loadText(nested(100000)), nullptr);
    EXPECT_EQ(log.count(), 2);
}

// ---- Files --------------------------------------------------------------------------------------

TEST(XmlInMemoryTest, AFileIsLoadedWithoutAReader)
{
    const ScriptFile file("<r n='1'/>");

    EXPECT_EQ(nameIn(XmlDocument::loadFile(file.path())), "1");
    EXPECT_EQ(nameIn(XmlDocument::loadFile(file.path(), PlainFile{10})), "1");

    const LogCapture log;
    const auto fails = [](const std::string& path, int error) {
        return logged("loadFile", "Invalid state. (" + path + ")(" + std::strerror(error) + ")");
    };
    EXPECT_EQ(XmlDocument::loadFile(file.path(), PlainFile{9}), nullptr);
    EXPECT_EQ(XmlDocument::loadFile("/nowhere"), nullptr);
    EXPECT_EQ(XmlDocument::loadFile(""), nullptr);
    EXPECT_EQ(XmlDocument::loadFile("/"), nullptr);
    EXPECT_EQ(XmlDocument::loadFile("/dev/zero"), nullptr);
    file.write("<r>");
    const EngineMessages quiet;
    EXPECT_EQ(XmlDocument::loadFile(file.path()), nullptr);
    EXPECT_THAT(log.lines(),
                ElementsAre(fails(file.path(), EFBIG), fails("/nowhere", ENOENT), fails("", ENOENT),
                            fails("/", EISDIR), fails("/dev/zero", EINVAL), fails(file.path(), 0)));
}

// ---- Writing ------------------------------------------------------------------------------------

std::string writtenToFile(XmlDocument& document)
{
    const OutputFile file("in-memory.xml");
    document.setOutputFilePath(file.path());
    EXPECT_EQ(document.write(), STATUS_SUCCESS);
    return file.content();
}

TEST(XmlInMemoryTest, ADocumentIsWrittenIndentedInUtf8)
{
    const auto document = XmlDocument::loadText(
        "<?xml version='1.0' encoding='ISO-8859-1'?><r n='&lt;'><a>\xe4</a><b/></r>");
    std::string text = "what was there";

    EXPECT_EQ(std::as_const(*document).write(text), STATUS_SUCCESS);

    EXPECT_EQ(text,
              "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<r n=\"&lt;\">\n  "
              "<a>\u00e4</a>\n  <b/>\n</r>\n");
    EXPECT_EQ(text, writtenToFile(*document));
}

TEST(XmlInMemoryTest, TheBytesAreThoseOfTheFile)
{
    for (const std::string& content :
         {std::string("<r/>"), "<r>" + std::string(100000, 'x') + "</r>",
          std::string(
              "<!DOCTYPE r [<!ATTLIST r a CDATA 'b'>]><!--c--><r><![CDATA[<]]>&#10;</r>")}) {
        const auto document = XmlDocument::loadText(content);
        std::string text;
        EXPECT_EQ(document->write(text), STATUS_SUCCESS);
        EXPECT_EQ(text, writtenToFile(*document));
    }
    XmlDocument empty;
    std::string text;
    EXPECT_EQ(empty.write(text), STATUS_SUCCESS);
    EXPECT_EQ(text, writtenToFile(empty));
    EXPECT_NE(text, "");
}

#if LIBXML_VERSION < 21000
TEST(XmlInMemoryTest, TheNameOfANamespaceIsWrittenWithoutEscapes)
{
    const LogCapture log;
    const EngineMessages quiet;
    const auto document = XmlDocument::loadText("<r xmlns='a&lt;b'/>");
    std::string text;
    ASSERT_EQ(document->write(text), STATUS_SUCCESS);

    EXPECT_EQ(XmlDocument::loadText(text), nullptr) << text;

    EXPECT_THAT(log.lines(), ElementsAre(logged("loadText", "Xml parsing failed")));
}
#endif

TEST(XmlInMemoryTest, WhatIsWrittenIsLoadedAgain)
{
    XmlDocument document;
    auto root = std::make_unique<XmlNode>("r");
    root->setAttribute("n", "<&>\"'\n\u00e4");
    document.setRootNode(std::move(root));
    std::string text;

    EXPECT_EQ(document.write(text), STATUS_SUCCESS);

    EXPECT_EQ(nameIn(XmlDocument::loadText(text)), "<&>\"'\n\u00e4");
}

constexpr char BEGIN[] =
    "<xsl:stylesheet version='1.0' xmlns:xsl='http://www.w3.org/1999/XSL/Transform'>";
constexpr char END[] =
    "<xsl:template match='/'><o><xsl:value-of select='.'/></o></xsl:template>"
    "</xsl:stylesheet>";

TEST(XmlInMemoryTest, AStyleSheetsSettingsCountAsForAFile)
{
    const auto source = XmlDocument::loadText("<r>a\u00e4</r>");
    for (const std::string settings :
         {"", "<xsl:output method='text'/>", "<xsl:output encoding='ISO-8859-1'/>",
          "<xsl:output encoding='UTF-16'/>", "<xsl:output method='html' indent='yes'/>",
          "<xsl:output omit-xml-declaration='yes'/>"}) {
        const ScriptFile file(BEGIN + settings + END);
        XmlStyleSheet styleSheet(file.path());
        ASSERT_EQ(styleSheet.load(), STATUS_SUCCESS);
        const std::unique_ptr<XmlDocument> result = styleSheet.transform(*source);
        ASSERT_NE(result, nullptr);
        result->__setXmlStyleSheet(&styleSheet);

        std::string text;
        EXPECT_EQ(result->write(text), STATUS_SUCCESS) << settings;
        EXPECT_EQ(text, writtenToFile(*result)) << settings;
        EXPECT_NE(text, "") << settings;
    }
}

TEST(XmlInMemoryTest, NoBytesAreATextToo)
{
    const auto source = XmlDocument::loadText("<r/>");
    const ScriptFile file(std::string(BEGIN) +
                          "<xsl:output method='text'/><xsl:template match='/'/></xsl:stylesheet>");
    XmlStyleSheet styleSheet(file.path());
    ASSERT_EQ(styleSheet.load(), STATUS_SUCCESS);
    const std::unique_ptr<XmlDocument> result = styleSheet.transform(*source);
    result->__setXmlStyleSheet(&styleSheet);
    std::string text = "what was there";

    EXPECT_EQ(result->write(text), STATUS_SUCCESS);

    EXPECT_EQ(text, "");
}

TEST(XmlInMemoryTest, WhatCannotBeWrittenLeavesTheTextAsItWas)
{
    const auto document = XmlDocument::loadText("<r/>");
    XmlStyleSheet neverLoaded("none.xsl");
    document->__setXmlStyleSheet(&neverLoaded);
    std::string text = "what was there";
    const LogCapture log;

    EXPECT_EQ(document->write(text), STATUS_INVALID_STATE);
    EXPECT_EQ(XmlDocument(nullptr).write(text), STATUS_INVALID_STATE);

    EXPECT_EQ(text, "what was there");
    EXPECT_THAT(log.lines(),
                ElementsAre(logged("write", "Invalid state."), logged("write", "Invalid state.")));
}

TEST(XmlInMemoryTest, WhatTheEnginesRefuseIsReported)
{
    const auto document = XmlDocument::loadText("<r/>");
    const ScriptFile file(std::string(BEGIN) + END);
    XmlStyleSheet styleSheet(file.path());
    ASSERT_EQ(styleSheet.load(), STATUS_SUCCESS);
    std::string text = "what was there";
    TreeCalls calls;
    const LogCapture log;

    calls.refuse(TreeCall::SaveDocument);
    EXPECT_EQ(document->write(text), STATUS_INVALID_STATE);
    document->__setXmlStyleSheet(&styleSheet);
    calls.refuse(TreeCall::SaveResult);
    EXPECT_EQ(document->write(text), STATUS_INVALID_STATE);

    EXPECT_EQ(text, "what was there");
    EXPECT_THAT(log.lines(),
                ElementsAre(logged("write", "Invalid state."), logged("write", "Invalid state.")));
}

// ---- Who owns what ------------------------------------------------------------------------------

TEST(XmlInMemoryTest, ATransformationSaysWhatApplySays)
{
    XmlDocument document;
    XmlStyleSheet neverLoaded("none.xsl");
    const EngineMessages quiet;
    const LogCapture log;

    EXPECT_EQ(neverLoaded.transform(document), nullptr);

    EXPECT_THAT(log.lines(),
                ElementsAre(LoggedIn("OxXmlStyleSheet.cpp", "apply", "Invalid state.")));
}

TEST(XmlInMemoryTest, AChildIsTakenWithItsOwner)
{
    XmlNode parent("parent");
    parent.addChild(std::make_unique<XmlNode>("one"));
    parent.addChild(std::make_unique<XmlNode>("two"));
    XmlNode* const two = parent.getLastChild();
    XmlNode stranger("stranger");
    XmlNode other("other");
    stranger.addChild(std::make_unique<XmlNode>("child"));

    const std::unique_ptr<XmlNode> taken = parent.takeChild(two);
    EXPECT_EQ(taken.get(), two);
    EXPECT_THAT(parent.getChildren(), ElementsAre(parent.getFirstChild()));
    EXPECT_FALSE(XmlElement(parent.__getNativeNode()).first("two"));

    const LogCapture log;
    EXPECT_EQ(parent.takeChild(nullptr), nullptr);
    EXPECT_EQ(parent.takeChild(two), nullptr);
    EXPECT_EQ(parent.takeChild(stranger.getFirstChild()), nullptr);
    EXPECT_TRUE(XmlElement(stranger.__getNativeNode()).first("child")) << "it stays linked";
    EXPECT_THAT(log.lines(), testing::AllOf(testing::SizeIs(3),
                                            testing::Each(LoggedIn("OxXmlNode.cpp", "takeChild",
                                                                   "Invalid parameter."))));
}

// ---- Without memory -----------------------------------------------------------------------------

const std::string SAMPLE =
    "<?xml version='1.0' encoding='ISO-8859-1'?><!DOCTYPE a [<!ATTLIST a d CDATA 'supplied'>]>"
    "<!--c--><a x='1&amp;' xmlns:p='http://v' p:q='r'>t\xe9&lt;<![CDATA[<]]><b n1='1' n2='2'/>"
    "<p:c><d/></p:c>a text that is too long for the place that the engine has inside a node</a>";

TEST(XmlInMemoryTest, WhatIsLoadedWithoutEnoughMemoryIsWhole)
{
    const EngineMessages quiet;
    std::string whole;
    ASSERT_EQ(XmlDocument::loadText(SAMPLE)->write(whole), STATUS_SUCCESS);
    int refused = 0;
    bool failed = true;
    for (int nth = 1; failed && nth < 1000; ++nth) {
        const LogCapture log;
        xmlResetLastError();  // which has its own texts
        const EngineMemory memory;
        std::unique_ptr<XmlDocument> document;
        {
            const EngineMemory failure(nth);
            document = XmlDocument::loadText(SAMPLE);
            failed = failure.hasFailed();
        }
        if (document != nullptr) {
            std::string text;
            EXPECT_EQ(document->write(text), STATUS_SUCCESS);
            EXPECT_EQ(text, whole) << nth;
            document = nullptr;
        } else {
            ++refused;
            EXPECT_THAT(log.lines(), ElementsAre(logged("loadText", "Memory allocation failed.")));
        }
        xmlResetLastError();
        EXPECT_EQ(memory.getBlockCount(), 0) << nth;
    }
    EXPECT_FALSE(failed);
    EXPECT_GT(refused, 10);
}

TEST(XmlInMemoryTest, WhatIsWrittenWithoutEnoughMemoryIsWhole)
{
    const EngineMessages quiet;
    const auto document = XmlDocument::loadText(SAMPLE);
    std::string whole;
    ASSERT_EQ(document->write(whole), STATUS_SUCCESS);
    int refused = 0;
    bool failed = true;
    for (int nth = 1; failed && nth < 1000; ++nth) {
        const LogCapture log;
        xmlResetLastError();
        const EngineMemory failure(nth);
        std::string text = "what was there";
        const int r = document->write(text);
        failed = failure.hasFailed();
        if (r == STATUS_SUCCESS) {
            EXPECT_EQ(text, whole) << nth;
        } else {
            ++refused;
            EXPECT_EQ(r, STATUS_INVALID_STATE);
            EXPECT_EQ(text, "what was there");
            EXPECT_THAT(log.lines(), ElementsAre(logged("write", "Invalid state.")));
        }
        xmlResetLastError();
        EXPECT_EQ(failure.getBlockCount(), 0) << nth;
    }
    EXPECT_FALSE(failed);
    EXPECT_GT(refused, 0);
}

TEST(XmlInMemoryTest, ADocumentThatCannotBeMadeLeavesNoTreeBehind)
{
    const ScriptFile file("<r/>");
    const LogCapture log;
    const EngineMemory memory;
    std::unique_ptr<XmlDocument> ofText;
    std::unique_ptr<XmlDocument> ofFile;
    {
        const AllocationFailure failure(Allocation::NothrowNew);
        ofText = XmlDocument::loadText("<r/>");
    }
    {
        const AllocationFailure failure(Allocation::NothrowNew, 2);  // the first is the content's
        ofFile = XmlDocument::loadFile(file.path());
    }
    EXPECT_EQ(ofText, nullptr);
    EXPECT_EQ(ofFile, nullptr);
    EXPECT_EQ(memory.getBlockCount(), 0);
    EXPECT_THAT(log.lines(),
                ElementsAre(logged("loadText", "Memory allocation failed."),
                            logged("loadFile", "Invalid state. (" + file.path() + ")(" +
                                                   std::strerror(ENOMEM) + ")")));
}

TEST(XmlInMemoryTest, ATextThatCannotBeCopiedLeavesNothingBehind)
{
    const auto document = XmlDocument::loadText(SAMPLE);
    std::string text = "short";
    const EngineMemory memory;
    bool thrown = false;
    {
        const AllocationFailure failure(Allocation::ThrowingNew);
        try {
            static_cast<void>(document->write(text));
        } catch (const std::bad_alloc&) {
            thrown = true;
        }
    }
    EXPECT_TRUE(thrown);
    EXPECT_EQ(text, "short");
    EXPECT_EQ(memory.getBlockCount(), 0);
}

}  // namespace
}  // namespace oxil::test
