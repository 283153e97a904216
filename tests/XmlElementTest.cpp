#include <OxXml.h>
#include <OxXmlDocument.h>
#include <OxXmlElement.h>
#include <OxXmlNode.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <libxml/tree.h>
#include <libxml/xmlerror.h>

#include <iterator>
#include <memory>
#include <new>
#include <string>
#include <type_traits>
#include <vector>

#include "AllocationFailure.h"
#include "EngineMemory.h"
#include "EngineMessages.h"
#include "ScriptFile.h"
#include "SmallStack.h"
#include "TreeCalls.h"

namespace oxil::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

static_assert(std::is_trivially_copyable_v<XmlElement>);
static_assert(sizeof(XmlElement) == sizeof(void*));
static_assert(!std::is_convertible_v<XmlElement, bool>);
static_assert(!std::is_convertible_v<_xmlNode*, XmlElement>);

std::unique_ptr<XmlDocument> load(const std::string& text)
{
    std::unique_ptr<XmlDocument> document = XmlDocument::loadText(text);
    EXPECT_NE(document, nullptr) << text;
    return document;
}

/** As Xml::load() does it, with references to entities. */
std::unique_ptr<XmlDocument> loadWithEntities(const std::string& text)
{
    const ScriptFile file(text);
    Xml xml(file.path());
    return std::unique_ptr<XmlDocument>(xml.load());
}

std::vector<std::string> namesIn(XmlElement element)
{
    std::vector<std::string> names;
    for (const XmlElement child : element) {
        names.push_back(child.getName());
    }
    return names;
}

TEST(XmlElementTest, ChildrenComeInDocumentOrderAndAreElements)
{
    const auto document = load("<r>text<!--c--><a><x/></a><?p i?><![CDATA[<z/>]]> <b/>\n<a/></r>");
    const XmlElement root = document->getRootElement();

    EXPECT_EQ(root.getName(), "r");
    EXPECT_THAT(namesIn(root), ElementsAre("a", "b", "a"));
    EXPECT_THAT(namesIn(root.first()), ElementsAre("x"));
    EXPECT_THAT(namesIn(root.first("b")), IsEmpty());
    EXPECT_EQ(std::distance(root.begin(), root.end()), 3);
    EXPECT_EQ(root.begin()->getName(), "a");
    XmlElement::Iterator place = root.begin();
    EXPECT_EQ((*place++).getName(), "a");
    EXPECT_EQ((*place).getName(), "b");
    EXPECT_EQ(std::vector<XmlElement>(root.begin(), root.end()).back(), root.first().next("a"));
}

TEST(XmlElementTest, ElementsAreFoundByNameAndByPlace)
{
    const auto document = load("<r>1<a n='1'/>2<b n='2'/><a n='3'/>3<c n='4'/></r>");
    const XmlElement root = document->getRootElement();

    EXPECT_EQ(root.first().getAttribute("n"), "1");
    EXPECT_EQ(root.first("b").getAttribute("n"), "2");
    EXPECT_EQ(root.first("a").next().getAttribute("n"), "2");
    EXPECT_EQ(root.first("a").next("a").getAttribute("n"), "3");
    EXPECT_EQ(root.first("b").next("c").getAttribute("n"), "4");
    EXPECT_FALSE(root.first("r"));
    EXPECT_FALSE(root.first("A"));
    EXPECT_FALSE(root.first("c").next());
    EXPECT_FALSE(root.first("b").next("b"));
    EXPECT_FALSE(root.next());
}

TEST(XmlElementTest, TheWayUpEndsAtTheRoot)
{
    const auto document = load("<r><a><b/></a></r>");
    const XmlElement root = document->getRootElement();

    EXPECT_EQ(root.first("a").first("b").getParent(), root.first("a"));
    EXPECT_EQ(root.first("a").getParent(), root);
    EXPECT_FALSE(root.getParent());
    EXPECT_NE(root.first("a"), root);
}

TEST(XmlElementTest, WhereNothingIsThereIsNothingInItAndNoLine)
{
    const XmlElement none;

    EXPECT_FALSE(none);
    EXPECT_EQ(none, XmlElement());
    EXPECT_EQ(none.__getNativeNode(), nullptr);
    EXPECT_EQ(none.getName(), "");
    EXPECT_EQ(none.getText(), "");
    EXPECT_FALSE(none.hasAttribute("a"));
    EXPECT_EQ(none.getAttribute("a"), "");
    EXPECT_EQ(none.getAttribute("a", "fallback"), "fallback");
    EXPECT_FALSE(none.first());
    EXPECT_FALSE(none.first("a"));
    EXPECT_FALSE(none.next());
    EXPECT_FALSE(none.next("a"));
    EXPECT_FALSE(none.getParent());
    EXPECT_EQ(none.begin(), none.end());
    EXPECT_EQ(none.first("a").next("b").first("c").getAttribute("d", "e"), "e");
}

TEST(XmlElementTest, ADocumentWithoutRootHasNone)
{
    EXPECT_FALSE(XmlDocument().getRootElement());
    EXPECT_FALSE(XmlDocument(nullptr).getRootElement());
}

TEST(XmlElementTest, TheRootIsTheOneOfTheTreeWhoeverMadeIt)
{
    XmlDocument document;
    auto root = std::make_unique<XmlNode>("page");
    root->addChild(std::make_unique<XmlNode>("title"));
    root->getFirstChild()->setContent("a < b & c");
    root->getFirstChild()->setAttribute("lang", "<en>");
    document.setRootNode(std::move(root));

    const XmlElement title = document.getRootElement().first("title");
    EXPECT_EQ(title.getText(), "a < b & c");
    EXPECT_EQ(title.getAttribute("lang"), "<en>");
    EXPECT_EQ(title.__getNativeNode(), document.getRootNode()->getFirstChild()->__getNativeNode());
}

TEST(XmlElementTest, AnAttributeIsThereOrThereIsSomethingElse)
{
    const auto document = load("<r a='1' empty=''/>");
    const XmlElement root = document->getRootElement();

    EXPECT_TRUE(root.hasAttribute("a"));
    EXPECT_EQ(root.getAttribute("a"), "1");
    EXPECT_EQ(root.getAttribute("a", "2"), "1");
    EXPECT_TRUE(root.hasAttribute("empty"));
    EXPECT_EQ(root.getAttribute("empty", "2"), "");
    EXPECT_FALSE(root.hasAttribute("b"));
    EXPECT_EQ(root.getAttribute("b"), "");
    EXPECT_EQ(root.getAttribute("b", "2"), "2");
    EXPECT_FALSE(root.hasAttribute(""));
    EXPECT_FALSE(root.hasAttribute("empt"));
    EXPECT_FALSE(root.hasAttribute("empty "));
    EXPECT_EQ(root.getAttribute(std::string_view("abc", 1)), "1");
}

TEST(XmlElementTest, PrefixesBelongToNamesAndNeedNotBeAskedFor)
{
    const auto document = load(
        "<p:r xmlns:p='http://p' xmlns:q='http://q' xmlns='http://d' p:x='1' y='2' q:y='3'"
        " xml:lang='de'><p:a n='1'/><q:a n='2'/><a n='3'/></p:r>");
    const XmlElement root = document->getRootElement();

    EXPECT_EQ(root.getName(), "p:r");
    EXPECT_THAT(namesIn(root), ElementsAre("p:a", "q:a", "a"));
    EXPECT_EQ(root.first("a").getAttribute("n"), "1");
    EXPECT_EQ(root.first("q:a").getAttribute("n"), "2");
    EXPECT_EQ(root.first("a").next("a").next("a").getAttribute("n"), "3");
    EXPECT_FALSE(root.first("p:a").next("p:a"));
    EXPECT_FALSE(root.first(":a"));
    EXPECT_FALSE(root.first("p;a"));
    EXPECT_FALSE(root.first("x:a"));
    EXPECT_FALSE(root.first("p:b"));
    EXPECT_FALSE(root.first("pa"));
    EXPECT_FALSE(root.first("p:ab"));
    EXPECT_EQ(root.getAttribute("x"), "1");
    EXPECT_EQ(root.getAttribute("p:x"), "1");
    EXPECT_EQ(root.getAttribute("y"), "2");
    EXPECT_EQ(root.getAttribute("q:y"), "3");
    EXPECT_EQ(root.getAttribute("xml:lang"), "de");
    EXPECT_FALSE(root.hasAttribute("q:x"));
    EXPECT_FALSE(root.hasAttribute("xmlns")) << "a declaration is no attribute";

    const TreeCalls values;  // frees what XmlNode::getAttribute() leaves behind
    const XmlNode& node = *document->getRootNode();
    for (const std::string name : {"x", "y", "lang"}) {
        EXPECT_EQ(root.getAttribute(name), node.getAttribute(name)) << name;
    }
}

TEST(XmlElementTest, APrefixThatNobodyDeclaresIsAPartOfTheName)
{
    const EngineMessages quiet;
    const auto document = load("<p:r p:x='1'/>");
    const XmlElement root = document->getRootElement();

    EXPECT_EQ(root.getName(), "p:r");
    EXPECT_EQ(root.getAttribute("p:x"), "1");
    EXPECT_FALSE(root.hasAttribute("x"));
}

TEST(XmlElementTest, TextIsAllThatStandsThere)
{
    const auto document = load(
        "<r><a>plain</a><b> 1 &lt; 2 &amp;&#xe4; </b><c><![CDATA[<x>&amp;]]></c>"
        "<d>one<!--no--><e> two</e><?p no?>\n<![CDATA[&]]></d><e/><f></f></r>");
    const XmlElement root = document->getRootElement();

    EXPECT_EQ(root.first("a").getText(), "plain");
    EXPECT_EQ(root.first("b").getText(), " 1 < 2 &\u00e4 ");
    EXPECT_EQ(root.first("c").getText(), "<x>&amp;");
    EXPECT_EQ(root.first("d").getText(), "one two\n&");
    EXPECT_EQ(root.first("e").getText(), "");
    EXPECT_EQ(root.first("f").getText(), "");
    EXPECT_EQ(load("<r><!--only--></r>")->getRootElement().getText(), "");
}

TEST(XmlElementTest, AttributesHaveTheirWhiteSpaceAndReferencesReplaced)
{
    const auto document = load("<r a=' 1\n2 ' b='&lt;&#10;&amp;&quot;'/>");

    EXPECT_EQ(document->getRootElement().getAttribute("a"), " 1 2 ");
    EXPECT_EQ(document->getRootElement().getAttribute("b"), "<\n&\"");
}

TEST(XmlElementTest, EntitiesOfATreeThatHasThemCountWithTheirText)
{
    const auto document = loadWithEntities(
        "<!DOCTYPE r [<!ENTITY e 'text'><!ENTITY m '<b/>in'>]><r a='1&e;2' c='&e;'>3&e;4&m;</r>");
    ASSERT_NE(document, nullptr);
    const XmlElement root = document->getRootElement();

    EXPECT_EQ(root.getText(), "3text4in");
    EXPECT_EQ(root.getAttribute("a"), "1text2");
    EXPECT_EQ(root.getAttribute("c"), "text");
    EXPECT_THAT(namesIn(root), IsEmpty()) << "what stands in an entity is no child";
}

TEST(XmlElementTest, WhatADocumentTypeSuppliesIsAnAttribute)
{
    const auto document =
        load("<!DOCTYPE r [<!ATTLIST r d CDATA 'default' i CDATA #IMPLIED>]><r><r d='own'/></r>");
    const XmlElement root = document->getRootElement();

    EXPECT_TRUE(root.hasAttribute("d"));
    EXPECT_EQ(root.getAttribute("d", "fallback"), "default");
    const TreeCalls values;  // frees what XmlNode::getAttribute() leaves behind
    EXPECT_EQ(root.getAttribute("d"), document->getRootNode()->getAttribute("d"));
    EXPECT_EQ(root.first().getAttribute("d"), "own");
    EXPECT_FALSE(root.hasAttribute("i"));
    EXPECT_EQ(root.getAttribute("i", "fallback"), "fallback");
}

TEST(XmlElementTest, WhatIsChangedInTheTreeIsSeen)
{
    const auto document = load("<r a='1'><b/></r>");
    const XmlElement root = document->getRootElement();

    document->getRootNode()->setAttribute("a", "2");
    document->getRootNode()->setContent("more");

    EXPECT_EQ(root.getAttribute("a"), "2");
    EXPECT_EQ(root.getText(), "more");
}

TEST(XmlElementTest, NamesAndTextsOutliveTheDocument)
{
    auto document = load("<r a='a value that is too long for the place in a text'>text</r>");
    const XmlElement root = document->getRootElement();
    const std::string name = root.getName();
    const std::string text = root.getText();
    const std::string value = root.getAttribute("a");

    document = nullptr;

    EXPECT_EQ(name + text, "rtext");
    EXPECT_EQ(value, "a value that is too long for the place in a text");
}

TEST(XmlElementTest, DeepTreesAreWalkedAndTheirTextReadOnASmallStack)
{
    runOnSmallStack([] {
        XmlNode root("node");
        xmlNode* last = root.__getNativeNode();
        for (int level = 1; level < 200000; ++level) {
            last = xmlNewChild(last, nullptr, last->name, nullptr);
        }
        xmlNodeAddContent(last, reinterpret_cast<const xmlChar*>("deep"));

        const XmlElement top(root.__getNativeNode());
        XmlElement element = top;
        int levels = 1;
        for (; element.first("node"); element = element.first("node")) {
            ++levels;
        }
        EXPECT_EQ(levels, 200000);
        for (; element.getParent(); element = element.getParent()) {
            --levels;
        }
        EXPECT_EQ(levels, 1);
        EXPECT_EQ(element, top);
        EXPECT_EQ(top.getText(), "deep");
    });
}

TEST(XmlElementTest, WithoutMemoryThereIsNoTextInsteadOfAPartOfIt)
{
    const std::string longText(1000, 'x');
    const auto document =
        loadWithEntities("<!DOCTYPE r [<!ENTITY e '" + longText + "'>]><r a='&e;" + longText +
                         "'>" + longText + "<b/>" + longText + "</r>");
    ASSERT_NE(document, nullptr);
    const XmlElement root = document->getRootElement();
    const EngineMessages quiet;
    for (const bool isText : {true, false}) {
        int refused = 0;
        bool failed = true;
        for (int nth = 1; failed && nth < 1000; ++nth) {
            xmlResetLastError();  // which has its own texts
            const EngineMemory failure(nth);
            try {
                EXPECT_EQ(isText ? root.getText() : root.getAttribute("a"), longText + longText)
                    << nth;
            } catch (const std::bad_alloc&) {
                ++refused;
            }
            failed = failure.hasFailed();
            xmlResetLastError();
            EXPECT_EQ(failure.getBlockCount(), 0) << nth;
        }
        EXPECT_FALSE(failed);
        EXPECT_GT(refused, 0);
    }
}

TEST(XmlElementTest, ATextThatCannotBeCopiedLeavesNothingBehind)
{
    const std::string longText(1000, 'x');
    const auto document = load("<r>" + longText + "<b/>" + longText + "</r>");
    const EngineMemory memory;
    bool thrown = false;
    {
        const AllocationFailure failure(Allocation::ThrowingNew);
        try {
            static_cast<void>(document->getRootElement().getText());
        } catch (const std::bad_alloc&) {
            thrown = true;
        }
    }
    EXPECT_TRUE(thrown);
    EXPECT_EQ(memory.getBlockCount(), 0);
}

TEST(XmlElementTest, MostTextsAreCopiedOnceAndNotByTheEngine)
{
    const auto document = load("<r a='value'><t>text</t><c><![CDATA[data]]></c><e/></r>");
    const XmlElement root = document->getRootElement();
    const EngineMemory engine(1);

    EXPECT_EQ(root.getAttribute("a"), "value");
    EXPECT_EQ(root.first("t").getText(), "text");
    EXPECT_EQ(root.first("c").getText(), "data");
    EXPECT_EQ(root.first("e").getText(), "");

    EXPECT_FALSE(engine.hasFailed());
}

TEST(XmlElementTest, WalkingAllocatesNothing)
{
    const auto document = load("<r a='1'><an-element-with-a-long-name b='2'/><b/></r>");
    const XmlElement root = document->getRootElement();
    const EngineMemory engine;
    const long before = allocationCount();

    int count = 0;
    for (const XmlElement child : root) {
        count += child.hasAttribute("b") ? 1 : 10;
    }
    const bool found = bool(root.first("an-element-with-a-long-name").next("b").getParent());

    EXPECT_EQ(allocationCount(), before);
    EXPECT_EQ(engine.getBlockCount(), 0);
    EXPECT_EQ(count, 11);
    EXPECT_TRUE(found);
}

}  // namespace
}  // namespace oxil::test
