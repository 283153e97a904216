#include "OxXmlNode.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <libxml/parser.h>
#include <libxml/tree.h>

#include <functional>
#include <memory>
#include <ostream>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "AllocationFailure.h"
#include "NativeXml.h"
#include "OxLogMatchers.h"
#include "OxStatus.h"
#include "TreeCalls.h"

namespace oxil::test {
namespace {

using testing::AnyOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

using Texts = std::vector<std::string>;

// ---- What the compiler can tell -----------------------------------------------------------------

static_assert(std::is_nothrow_destructible_v<XmlNode>);
static_assert(
    std::is_same_v<XmlNode&, decltype(std::declval<XmlNode&>() = std::declval<const XmlNode&>())>);
static_assert(std::is_same_v<std::string, decltype(std::declval<const XmlNode&>().getAttribute(
                                              std::declval<const std::string&>()))>);
static_assert(std::is_same_v<const std::vector<XmlNode*>&,
                             decltype(std::declval<const XmlNode&>().getChildren())>);
static_assert(std::is_same_v<XmlNode*, decltype(std::declval<const XmlNode&>().getFirstChild())>);
static_assert(std::is_same_v<XmlNode*, decltype(std::declval<const XmlNode&>().getLastChild())>);

// ---- Set-up -------------------------------------------------------------------------------------

const LoggedBy logged("OxXmlNode.cpp");

std::string xml(const XmlNode& node)
{
    return xmlOf(node.__getNativeNode());
}

/** The native nodes right under one, by name. */
Texts nativeChildren(const XmlNode& node)
{
    Texts names;
    for (const xmlNode* child = node.__getNativeNode()->children; child != nullptr;
         child = child->next) {
        names.push_back(fromNative(child->name));
    }
    return names;
}

/** What a node is made of: short texts stand in their strings, and so in here. */
std::string bytesOf(const XmlNode& node)
{
    return {reinterpret_cast<const char*>(&node), sizeof node};
}

/** The same without the native node, which comes first. */
std::string bytesBehindNative(const XmlNode& node)
{
    return bytesOf(node).substr(sizeof(xmlNode*));
}

/** Lets go of all that a node shares with others, so that it can be destroyed. */
void giveUp(XmlNode& node)
{
    node = XmlNode();
}

struct FreeNative {
    void operator()(xmlNode* node) const { xmlFreeNode(node); }
    void operator()(xmlDoc* document) const { xmlFreeDoc(document); }
};

using NativeNode = std::unique_ptr<xmlNode, FreeNative>;
using NativeDocument = std::unique_ptr<xmlDoc, FreeNative>;

const std::string LONG_TEXT = "a text that has to have a memory block of its own, being this long";

/** A family whose members are made with `new`, as a parent expects. */
class XmlNodeTest : public testing::Test {
protected:
    XmlNodeTest() { parent = std::make_unique<XmlNode>("parent"); }

    XmlNode* add(const std::string& element)
    {
        auto* child = new XmlNode(element);
        EXPECT_EQ(parent->addChild(child), STATUS_SUCCESS);
        return child;
    }

    TreeCalls calls;
    std::unique_ptr<XmlNode> parent;
};

// ---- Construction -------------------------------------------------------------------------------

TEST(XmlNodeConstructionTest, AnEmptyNodeHasNoNativeNodeAndNoChildren)
{
    TreeCalls calls;
    {
        const XmlNode node;

        EXPECT_EQ(node.__getNativeNode(), nullptr);
        EXPECT_THAT(node.getChildren(), IsEmpty());
    }
    EXPECT_THAT(calls.lines(), IsEmpty());
}

TEST(XmlNodeConstructionTest, ANameMakesAnElementWithoutNamespace)
{
    const XmlNode node("layout");

    ASSERT_NE(node.__getNativeNode(), nullptr);
    EXPECT_EQ(node.__getNativeNode()->type, XML_ELEMENT_NODE);
    EXPECT_EQ(node.__getNativeNode()->ns, nullptr);
    EXPECT_EQ(node.__getNativeNode()->parent, nullptr);
    EXPECT_EQ(xml(node), "<layout/>");
    EXPECT_THAT(node.getChildren(), IsEmpty());
    EXPECT_THAT(bytesOf(node), HasSubstr("layout"));
}

TEST(XmlNodeConstructionTest, WithoutMemoryANamedNodeHasNoNativeNode)
{
    LogCapture log;
    TreeCalls calls;

    calls.refuse(TreeCall::NewNode);
    XmlNode node("layout");

    EXPECT_EQ(node.__getNativeNode(), nullptr);
    EXPECT_THAT(bytesOf(node), HasSubstr("layout")) << "the name is kept all the same";
    EXPECT_THAT(log.lines(), ElementsAre(logged("XmlNode", "XmlNode creation failed.")));

    EXPECT_EQ(node.setElement("later"), STATUS_SUCCESS);
    EXPECT_EQ(xml(node), "<later/>");
}

TEST(XmlNodeConstructionTest, ANativeNodeIsTakenOverAndItsChildrenGetNoWrappers)
{
    xmlNode* native = xmlNewNode(nullptr, xmlText("native"));
    const xmlNode* child = xmlNewChild(native, nullptr, xmlText("child"), nullptr);

    TreeCalls calls;
    calls.watch(child, "child");
    {
        const XmlNode node(native);

        EXPECT_EQ(node.__getNativeNode(), native);
        EXPECT_THAT(node.getChildren(), IsEmpty());
        EXPECT_THAT(bytesBehindNative(node), Not(HasSubstr("native")));
    }
    EXPECT_THAT(calls.lines(), ElementsAre("unlink native", "free native", "release child"));
}

TEST(XmlNodeConstructionTest, ANullNativeNodeIsTakenLikeNone)
{
    TreeCalls calls;
    {
        const XmlNode node(static_cast<xmlNode*>(nullptr));

        EXPECT_EQ(node.__getNativeNode(), nullptr);
    }
    EXPECT_THAT(calls.lines(), IsEmpty());
}

TEST(XmlNodeConstructionTest, ANativeNodeInsideADocumentLeavesItWithItsWrapper)
{
    const NativeDocument document(parsed("<a><b/><c><d/></c></a>"));
    xmlNode* root = xmlDocGetRootElement(document.get());
    {
        const XmlNode node(root->last);
    }
    EXPECT_EQ(xmlOf(root), "<a><b/></a>");
}

// ---- setElement ---------------------------------------------------------------------------------

TEST(XmlNodeElementTest, AnEmptyNodeIsGivenAnElement)
{
    TreeCalls calls;
    {
        XmlNode node;

        EXPECT_EQ(node.setElement("layout"), STATUS_SUCCESS);

        ASSERT_NE(node.__getNativeNode(), nullptr);
        EXPECT_EQ(node.__getNativeNode()->ns, nullptr);
        EXPECT_EQ(xml(node), "<layout/>");
        EXPECT_THAT(bytesOf(node), Not(HasSubstr("layout"))) << "only a constructor keeps the name";
    }
    EXPECT_THAT(calls.lines(), ElementsAre("new element layout", "unlink layout", "free layout"));
}

TEST_F(XmlNodeTest, ANewElementLeavesTheOldOneWhereItIs)
{
    XmlNode* child = add("old");
    ASSERT_EQ(child->addChild(new XmlNode("grandchild")), STATUS_SUCCESS);
    const XmlNode* grandchild = child->getFirstChild();
    xmlNode* old = child->__getNativeNode();
    const std::string before = bytesBehindNative(*child);
    calls.clear();

    EXPECT_EQ(child->setElement("new"), STATUS_SUCCESS);

    EXPECT_THAT(calls.lines(), ElementsAre("new element new")) << "the old one is not freed";
    EXPECT_NE(child->__getNativeNode(), old);
    EXPECT_EQ(child->__getNativeNode()->parent, nullptr) << "the new one is linked nowhere";
    EXPECT_EQ(xml(*child), "<new/>");
    EXPECT_EQ(xml(*parent), "<parent><old><grandchild/></old></parent>");
    EXPECT_THAT(child->getChildren(), ElementsAre(grandchild));
    EXPECT_EQ(bytesBehindNative(*child), before) << "the stored name stays";
}

TEST(XmlNodeElementTest, AnOldElementWithoutParentIsLostToTheNode)
{
    TreeCalls calls;
    auto node = std::make_unique<XmlNode>("old");
    const NativeNode old(node->__getNativeNode());
    ASSERT_EQ(node->setAttribute("a", "1"), STATUS_SUCCESS);
    ASSERT_EQ(node->setElement("new"), STATUS_SUCCESS);
    calls.clear();

    node = nullptr;

    EXPECT_THAT(calls.lines(), ElementsAre("unlink new", "free new"));
    EXPECT_EQ(xmlOf(old.get()), "<old a=\"1\"/>");
}

TEST(XmlNodeElementTest, WithoutMemoryThereIsNoElement)
{
    LogCapture log;
    TreeCalls calls;
    XmlNode node("old");
    const NativeNode old(node.__getNativeNode());

    calls.refuse(TreeCall::NewNode);
    EXPECT_EQ(node.setElement("new"), STATUS_OUT_OF_MEMORY);

    EXPECT_EQ(node.__getNativeNode(), nullptr);
    EXPECT_EQ(xmlOf(old.get()), "<old/>");
    EXPECT_THAT(log.lines(), ElementsAre(logged("setElement", "Memory allocation failed.")));
}

// ---- Without native node ------------------------------------------------------------------------

struct Unready {
    const char* function;
    std::function<int(XmlNode&)> call;
};

void PrintTo(const Unready& row, std::ostream* stream)
{
    *stream << row.function;
}

class XmlNodeWithoutNativeTest : public testing::TestWithParam<Unready> {};

TEST_P(XmlNodeWithoutNativeTest, NothingCanBeSet)
{
    LogCapture log;
    XmlNode node;
    const std::string before = bytesOf(node);

    EXPECT_EQ(GetParam().call(node), STATUS_INVALID_STATE);

    EXPECT_THAT(log.lines(), ElementsAre(logged(GetParam().function, "Invalid state.")));
    EXPECT_EQ(bytesOf(node), before);
}

INSTANTIATE_TEST_SUITE_P(
    Calls, XmlNodeWithoutNativeTest,
    testing::Values(
        Unready{"setAttribute", [](XmlNode& node) { return node.setAttribute("a", "1"); }},
        Unready{"setAttribute",
                [](XmlNode& node) {
                    return node.setAttribute(Texts{"a", "1"});
                }},
        Unready{"setAttribute", [](XmlNode& node) { return node.setAttribute(Texts{"a"}); }},
        Unready{"setAttribute", [](XmlNode& node) { return node.setAttribute(Texts{}); }},
        Unready{"setContent", [](XmlNode& node) { return node.setContent("text"); }}));

TEST(XmlNodeWithoutNativeTest, AnAttributeIsTheEmptyText)
{
    LogCapture log;
    const XmlNode node;

    EXPECT_EQ(node.getAttribute("a"), "");

    EXPECT_THAT(log.lines(), ElementsAre(logged("getAttribute", "Invalid state.")));
}

// ---- One attribute ------------------------------------------------------------------------------

TEST(XmlNodeAttributeTest, ASingleAttributeIsAddedOrReplaced)
{
    XmlNode node("n");

    EXPECT_EQ(node.setAttribute("b", "1"), STATUS_SUCCESS);
    EXPECT_EQ(node.setAttribute("a", "2"), STATUS_SUCCESS);
    EXPECT_EQ(xml(node), "<n b=\"1\" a=\"2\"/>");

    EXPECT_EQ(node.setAttribute("b", "3"), STATUS_SUCCESS);
    EXPECT_EQ(node.setAttribute("a", ""), STATUS_SUCCESS);
    EXPECT_EQ(xml(node), "<n b=\"3\" a=\"\"/>") << "each in its old place";
}

TEST(XmlNodeAttributeTest, ASingleAttributeLeavesTheStoredListAlone)
{
    TreeCalls calls;
    XmlNode node("n");
    ASSERT_EQ(node.setAttribute(Texts{"a", "1", "b", LONG_TEXT}), STATUS_SUCCESS);
    calls.watch(calls.lastText(), "the stored value");
    const std::string before = bytesOf(node);
    calls.clear();

    EXPECT_EQ(node.setAttribute("a", "2"), STATUS_SUCCESS);

    EXPECT_EQ(bytesOf(node), before);
    EXPECT_THAT(calls.lines(), IsEmpty());
    EXPECT_EQ(xml(node), "<n a=\"2\" b=\"" + LONG_TEXT + "\"/>");
}

TEST(XmlNodeAttributeTest, WhatLibxmlMakesOfAnAttributeIsIgnored)
{
    TreeCalls calls;
    XmlNode node("n");

    calls.refuse(TreeCall::SetAttribute);
    EXPECT_EQ(node.setAttribute("a", "1"), STATUS_SUCCESS);
    EXPECT_EQ(xml(node), "<n/>");

    calls.refuse(TreeCall::AddAttribute);
    EXPECT_EQ(node.setAttribute(Texts{"b", "2", "c", "3"}), STATUS_SUCCESS);
    EXPECT_EQ(xml(node), "<n c=\"3\"/>") << "the next one is added all the same";
}

// ---- A list of attributes -----------------------------------------------------------------------

TEST(XmlNodeAttributeTest, AListAddsItsPairsInOrder)
{
    XmlNode node("n");

    EXPECT_EQ(node.setAttribute(Texts{"b", "1", "a", "2", "c", ""}), STATUS_SUCCESS);

    EXPECT_EQ(xml(node), "<n b=\"1\" a=\"2\" c=\"\"/>");
}

TEST(XmlNodeAttributeTest, AListAddsAnAttributeThatIsThereAlready)
{
    TreeCalls calls;
    XmlNode node("n");
    ASSERT_EQ(node.setAttribute("a", "0"), STATUS_SUCCESS);

    EXPECT_EQ(node.setAttribute(Texts{"a", "1", "b", "2", "a", "3"}), STATUS_SUCCESS);
    EXPECT_EQ(xml(node), "<n a=\"0\" a=\"1\" b=\"2\" a=\"3\"/>");

    EXPECT_EQ(node.setAttribute(Texts{"b", "4"}), STATUS_SUCCESS);
    EXPECT_EQ(xml(node), "<n a=\"0\" a=\"1\" b=\"2\" a=\"3\" b=\"4\"/>");

    EXPECT_EQ(node.setAttribute("b", "5"), STATUS_SUCCESS);
    EXPECT_EQ(xml(node), "<n a=\"0\" a=\"1\" b=\"5\" a=\"3\" b=\"4\"/>");

    EXPECT_EQ(node.getAttribute("a"), "0");
    EXPECT_EQ(node.getAttribute("b"), "5");
}

TEST(XmlNodeAttributeTest, AnOddListAddsNothingAndKeepsTheStoredOne)
{
    LogCapture log;
    TreeCalls calls;
    XmlNode node("n");
    ASSERT_EQ(node.setAttribute(Texts{"a", LONG_TEXT}), STATUS_SUCCESS);
    calls.watch(calls.lastText(), "the stored value");
    const std::string before = bytesOf(node);
    calls.clear();

    EXPECT_EQ(node.setAttribute(Texts{"b", "1", "c"}), STATUS_INVALID_STATE);
    EXPECT_EQ(node.setAttribute(Texts{"b"}), STATUS_INVALID_STATE);

    EXPECT_EQ(xml(node), "<n a=\"" + LONG_TEXT + "\"/>");
    EXPECT_EQ(bytesOf(node), before);
    EXPECT_THAT(calls.lines(), IsEmpty());
    EXPECT_THAT(log.lines(), ElementsAre(logged("setAttribute", "Invalid state."),
                                         logged("setAttribute", "Invalid state.")));
}

TEST(XmlNodeAttributeTest, AnEmptyListSucceedsAndClearsTheStoredOne)
{
    TreeCalls calls;
    XmlNode node("n");
    ASSERT_EQ(node.setAttribute(Texts{"a", LONG_TEXT}), STATUS_SUCCESS);
    calls.watch(calls.lastText(), "the stored value");
    calls.clear();

    EXPECT_EQ(node.setAttribute(Texts{}), STATUS_SUCCESS);

    EXPECT_THAT(calls.lines(), ElementsAre("release the stored value"));
    EXPECT_EQ(xml(node), "<n a=\"" + LONG_TEXT + "\"/>") << "the attributes stay";
}

TEST(XmlNodeAttributeTest, TheListIsCopied)
{
    XmlNode node("n");
    Texts list{"a", LONG_TEXT};

    ASSERT_EQ(node.setAttribute(list), STATUS_SUCCESS);

    list.clear();
    EXPECT_EQ(xml(node), "<n a=\"" + LONG_TEXT + "\"/>");
}

// ---- getAttribute -------------------------------------------------------------------------------

TEST(XmlNodeAttributeTest, AValueIsRead)
{
    const NativeDocument document(parsed("<n a='1' b='' c='&lt;&#228;&amp;&quot;' xml:d='4'/>"));
    XmlNode node(xmlDocGetRootElement(document.get()));
    ASSERT_EQ(node.setAttribute("e", LONG_TEXT), STATUS_SUCCESS);

    const std::pair<const char*, std::string> expected[] = {
        {"a", "1"}, {"b", ""}, {"c", "<\xC3\xA4&\""}, {"d", "4"}, {"e", LONG_TEXT}};
    for (const auto& [name, value] : expected) {
        const TreeCalls calls;
        EXPECT_EQ(node.getAttribute(name), value) << name;
    }
}

TEST(XmlNodeAttributeTest, EachReadLeavesANativeCopyBehind)
{
    TreeCalls calls;
    XmlNode node("n");
    ASSERT_EQ(node.setAttribute("a", LONG_TEXT), STATUS_SUCCESS);

    EXPECT_EQ(node.getAttribute("a"), LONG_TEXT);
    EXPECT_EQ(node.getAttribute("a"), LONG_TEXT);

    EXPECT_EQ(calls.valuesMade(), 2);
    EXPECT_EQ(calls.valuesKept(), 2);
}

TEST(XmlNodeAttributeTest, AMissingAttributeThrows)
{
    TreeCalls calls;
    XmlNode node("n");
    EXPECT_THROW(node.getAttribute("a"), std::logic_error);

    ASSERT_EQ(node.setAttribute("a", "1"), STATUS_SUCCESS);
    EXPECT_THROW(node.getAttribute("A"), std::logic_error);
    EXPECT_EQ(node.getAttribute("a"), "1");
}

// ---- Content ------------------------------------------------------------------------------------

TEST(XmlNodeContentTest, ContentIsAppended)
{
    XmlNode node("n");

    EXPECT_EQ(node.setContent("first"), STATUS_SUCCESS);
    EXPECT_EQ(xml(node), "<n>first</n>");
    EXPECT_THAT(bytesOf(node), HasSubstr("first"));

    EXPECT_EQ(node.setContent("second"), STATUS_SUCCESS);
    EXPECT_EQ(xml(node), "<n>firstsecond</n>");
    EXPECT_THAT(nativeChildren(node), ElementsAre("text")) << "one text";
    EXPECT_THAT(bytesOf(node), HasSubstr("second"));
    EXPECT_THAT(bytesOf(node), Not(HasSubstr("first"))) << "only the last text is kept";

    EXPECT_EQ(node.setContent(""), STATUS_SUCCESS);
    EXPECT_EQ(xml(node), "<n>firstsecond</n>");
}

TEST(XmlNodeContentTest, ContentIsPlainText)
{
    XmlNode node("n");

    EXPECT_EQ(node.setContent("a < b && c > d &amp; \"e\" <f/>"), STATUS_SUCCESS);

    EXPECT_EQ(xml(node), "<n>a &lt; b &amp;&amp; c &gt; d &amp;amp; \"e\" &lt;f/&gt;</n>");
    EXPECT_THAT(nativeChildren(node), ElementsAre("text"));
}

TEST_F(XmlNodeTest, ContentGoesBehindTheChildren)
{
    ASSERT_EQ(parent->setContent("before "), STATUS_SUCCESS);
    XmlNode* child = add("child");
    EXPECT_EQ(parent->setContent(" behind"), STATUS_SUCCESS);

    EXPECT_EQ(xml(*parent), "<parent>before <child/> behind</parent>");
    EXPECT_THAT(parent->getChildren(), ElementsAre(child)) << "text has no wrapper";
}

// ---- addChild -----------------------------------------------------------------------------------

TEST_F(XmlNodeTest, ChildrenAreKeptInOrder)
{
    const std::vector<XmlNode*>& children = parent->getChildren();

    XmlNode* a = add("a");
    EXPECT_EQ(parent->getFirstChild(), a);
    EXPECT_EQ(parent->getLastChild(), a);

    XmlNode* b = add("b");
    XmlNode* c = add("c");
    EXPECT_EQ(parent->getFirstChild(), a);
    EXPECT_EQ(parent->getLastChild(), c);
    EXPECT_THAT(children, ElementsAre(a, b, c)) << "the list is the node's own";
    EXPECT_EQ(xml(*parent), "<parent><a/><b/><c/></parent>");
    EXPECT_EQ(b->__getNativeNode()->parent, parent->__getNativeNode());
    EXPECT_THAT(a->getChildren(), IsEmpty());
}

TEST_F(XmlNodeTest, ANullChildIsRefused)
{
    LogCapture log;

    EXPECT_EQ(parent->addChild(nullptr), STATUS_INVALID_PARAMETER);
    EXPECT_EQ(XmlNode().addChild(nullptr), STATUS_INVALID_PARAMETER) << "before anything else";

    EXPECT_THAT(parent->getChildren(), IsEmpty());
    EXPECT_THAT(log.lines(), ElementsAre(logged("addChild", "Invalid parameter."),
                                         logged("addChild", "Invalid parameter.")));
}

TEST_F(XmlNodeTest, WhatLibxmlRefusesStaysTheCallers)
{
    LogCapture log;
    XmlNode* child = add("child");
    XmlNode empty;
    XmlNode stranger("stranger");
    calls.clear();

    EXPECT_EQ(parent->addChild(&empty), STATUS_INVALID_STATE) << "a child without native node";
    EXPECT_EQ(parent->addChild(parent.get()), STATUS_INVALID_STATE) << "the node itself";
    EXPECT_EQ(empty.addChild(&stranger), STATUS_INVALID_STATE) << "a parent without native node";
    EXPECT_EQ(empty.addChild(&empty), STATUS_INVALID_STATE);

    EXPECT_THAT(parent->getChildren(), ElementsAre(child));
    EXPECT_THAT(empty.getChildren(), IsEmpty());
    EXPECT_EQ(xml(*parent), "<parent><child/></parent>");
    EXPECT_EQ(stranger.__getNativeNode()->parent, nullptr);
    EXPECT_THAT(calls.lines(), IsEmpty());
    const auto refused = logged("addChild", "Invalid state.");
    EXPECT_THAT(log.lines(), ElementsAre(refused, refused, refused, refused));
}

TEST_F(XmlNodeTest, AddingTwiceListsTwice)
{
    XmlNode* a = add("a");
    XmlNode* b = add("b");
    EXPECT_EQ(parent->addChild(a), STATUS_SUCCESS);

    EXPECT_THAT(parent->getChildren(), ElementsAre(a, b, a));
    // Later versions of libxml2 move it to the end.
    EXPECT_THAT(xml(*parent), AnyOf("<parent><a/><b/></parent>", "<parent><b/><a/></parent>"));

    // Both entries have to go before the parent does.
    EXPECT_EQ(parent->removeChild(a), STATUS_SUCCESS);
    delete a;
}

TEST_F(XmlNodeTest, ATextThatMeetsATextIsFreedAtOnce)
{
    ASSERT_EQ(parent->setContent("one, "), STATUS_SUCCESS);
    xmlNode* text = xmlNewText(xmlText("two"));
    auto* child = new XmlNode(text);
    calls.watch(text, "the added text");
    calls.clear();

    EXPECT_EQ(parent->addChild(child), STATUS_SUCCESS);

    EXPECT_THAT(calls.lines(), Contains("release the added text").Times(1));
    EXPECT_THAT(parent->getChildren(), ElementsAre(child));
    EXPECT_EQ(xml(*parent), "<parent>one, two</parent>");

    giveUp(*child);  // its native node is no more
}

// ---- removeChild --------------------------------------------------------------------------------

TEST_F(XmlNodeTest, ARemovedChildIsTheCallersAgain)
{
    XmlNode* a = add("a");
    XmlNode* b = add("b");
    XmlNode* c = add("c");
    ASSERT_EQ(b->addChild(new XmlNode("d")), STATUS_SUCCESS);
    calls.clear();

    EXPECT_EQ(parent->removeChild(b), STATUS_SUCCESS);

    EXPECT_THAT(calls.lines(), ElementsAre("unlink b"));
    EXPECT_THAT(parent->getChildren(), ElementsAre(a, c));
    EXPECT_EQ(xml(*parent), "<parent><a/><c/></parent>");
    EXPECT_EQ(xml(*b), "<b><d/></b>");
    EXPECT_EQ(b->__getNativeNode()->parent, nullptr);

    parent = nullptr;
    EXPECT_EQ(xml(*b), "<b><d/></b>") << "it outlives its parent";
    delete b;
}

TEST_F(XmlNodeTest, TheFirstAndTheLastChildCanGo)
{
    const std::unique_ptr<XmlNode> a(add("a"));
    XmlNode* b = add("b");
    const std::unique_ptr<XmlNode> c(add("c"));

    EXPECT_EQ(parent->removeChild(a.get()), STATUS_SUCCESS);
    EXPECT_THAT(parent->getChildren(), ElementsAre(b, c.get()));

    EXPECT_EQ(parent->removeChild(c.get()), STATUS_SUCCESS);
    EXPECT_THAT(parent->getChildren(), ElementsAre(b));
    EXPECT_EQ(xml(*parent), "<parent><b/></parent>");
}

TEST_F(XmlNodeTest, EveryEntryOfARemovedChildGoes)
{
    std::unique_ptr<XmlNode> twice(add("twice"));
    XmlNode* a = add("a");
    ASSERT_EQ(parent->addChild(twice.get()), STATUS_SUCCESS);
    ASSERT_EQ(parent->addChild(twice.get()), STATUS_SUCCESS);
    XmlNode* b = add("b");
    ASSERT_THAT(parent->getChildren(), ElementsAre(twice.get(), a, twice.get(), twice.get(), b));

    EXPECT_EQ(parent->removeChild(twice.get()), STATUS_SUCCESS);

    EXPECT_THAT(parent->getChildren(), ElementsAre(a, b));
    EXPECT_EQ(xml(*parent), "<parent><a/><b/></parent>");
}

TEST_F(XmlNodeTest, AStrangerIsUnlinkedToo)
{
    XmlNode* child = add("child");
    XmlNode other("other");
    auto* stranger = new XmlNode("stranger");
    ASSERT_EQ(other.addChild(stranger), STATUS_SUCCESS);

    EXPECT_EQ(parent->removeChild(stranger), STATUS_SUCCESS);

    EXPECT_EQ(xml(other), "<other/>");
    EXPECT_THAT(other.getChildren(), ElementsAre(stranger)) << "its parent still owns it";
    EXPECT_THAT(parent->getChildren(), ElementsAre(child));
    EXPECT_EQ(xml(*parent), "<parent><child/></parent>");
}

TEST_F(XmlNodeTest, RemovingSucceedsWithoutNativeNodes)
{
    XmlNode* child = add("child");
    XmlNode empty;

    EXPECT_EQ(parent->removeChild(&empty), STATUS_SUCCESS);
    EXPECT_EQ(empty.removeChild(&empty), STATUS_SUCCESS);
    EXPECT_THAT(parent->getChildren(), ElementsAre(child));

    EXPECT_EQ(empty.removeChild(child), STATUS_SUCCESS);
    EXPECT_EQ(xml(*parent), "<parent/>");
    EXPECT_THAT(parent->getChildren(), ElementsAre(child));
}

TEST_F(XmlNodeTest, NoChildIsRefused)
{
    LogCapture log;
    XmlNode* child = add("child");

    EXPECT_EQ(parent->removeChild(nullptr), STATUS_INVALID_PARAMETER);

    EXPECT_THAT(parent->getChildren(), ElementsAre(child));
    EXPECT_THAT(log.lines(), ElementsAre(logged("removeChild", "Invalid parameter.")));
}

TEST_F(XmlNodeTest, ARemovedChildCanBeAddedElsewhere)
{
    XmlNode* a = add("a");
    XmlNode* b = add("b");

    ASSERT_EQ(parent->removeChild(a), STATUS_SUCCESS);
    EXPECT_EQ(b->addChild(a), STATUS_SUCCESS);

    EXPECT_EQ(xml(*parent), "<parent><b><a/></b></parent>");
}

// ---- Destruction --------------------------------------------------------------------------------

TEST_F(XmlNodeTest, ATreeIsTakenDownInOrder)
{
    XmlNode* a = add("a");
    ASSERT_EQ(a->addChild(new XmlNode("a1")), STATUS_SUCCESS);
    ASSERT_EQ(a->addChild(new XmlNode("a2")), STATUS_SUCCESS);
    const XmlNode* b = add("b");
    calls.watch(a, "wrapper a");
    calls.watch(b, "wrapper b");
    calls.watch(parent->getChildren().data(), "list");
    calls.clear();

    parent = nullptr;

    EXPECT_THAT(calls.lines(),
                ElementsAre("unlink parent",                                             //
                            "unlink a", "unlink a1", "free a1", "unlink a2", "free a2",  //
                            "free a", "release wrapper a",                               //
                            "unlink b", "free b", "release wrapper b",                   //
                            "free parent", "release list"));
}

TEST_F(XmlNodeTest, NativeNodesWithoutWrapperGoWithTheirParent)
{
    add("wrapped");
    xmlNode* unwrapped =
        xmlNewChild(parent->__getNativeNode(), nullptr, xmlText("unwrapped"), nullptr);
    calls.watch(unwrapped, "the native child");
    calls.watch(xmlNewChild(unwrapped, nullptr, xmlText("deep"), nullptr), "the native grandchild");
    calls.clear();

    parent = nullptr;

    EXPECT_THAT(calls.lines(),
                ElementsAre("unlink parent", "unlink wrapped", "free wrapped", "free parent",
                            "release the native child", "release the native grandchild"));
}

TEST_F(XmlNodeTest, ANodeThatLostItsElementStillOwnsItsChildren)
{
    LogCapture log;
    const NativeNode old(parent->__getNativeNode());
    add("child");
    calls.refuse(TreeCall::NewNode);
    ASSERT_EQ(parent->setElement("new"), STATUS_OUT_OF_MEMORY);
    calls.clear();

    parent = nullptr;

    EXPECT_THAT(calls.lines(), ElementsAre("unlink child", "free child"));
    EXPECT_EQ(xmlOf(old.get()), "<parent/>");
}

TEST_F(XmlNodeTest, AMemberOfATreeLeavesItWhenItIsDestroyed)
{
    XmlNode* a = add("a");
    XmlNode* b = add("b");
    ASSERT_EQ(parent->removeChild(a), STATUS_SUCCESS);
    ASSERT_NE(xmlAddChild(b->__getNativeNode(), a->__getNativeNode()), nullptr);
    calls.clear();

    delete a;

    EXPECT_THAT(calls.lines(), ElementsAre("unlink a", "free a"));
    EXPECT_EQ(xml(*parent), "<parent><b/></parent>");
}

// ---- Copies -------------------------------------------------------------------------------------

TEST_F(XmlNodeTest, ACopySharesNativeNodeAndChildren)
{
    ASSERT_EQ(parent->setContent("content"), STATUS_SUCCESS);
    XmlNode* child = add("child");
    calls.clear();

    XmlNode copy(*parent);

    EXPECT_THAT(calls.lines(), IsEmpty());
    EXPECT_EQ(copy.__getNativeNode(), parent->__getNativeNode());
    EXPECT_THAT(copy.getChildren(), ElementsAre(child));
    EXPECT_NE(&copy.getChildren(), &parent->getChildren());
    EXPECT_THAT(bytesOf(copy), HasSubstr("parent"));
    EXPECT_THAT(bytesOf(copy), HasSubstr("content"));

    ASSERT_EQ(copy.setAttribute("a", "1"), STATUS_SUCCESS);
    EXPECT_EQ(xml(*parent), "<parent a=\"1\">content<child/></parent>");

    giveUp(copy);
    EXPECT_THAT(calls.lines(), IsEmpty());
    EXPECT_EQ(xml(*parent), "<parent a=\"1\">content<child/></parent>");
}

TEST_F(XmlNodeTest, TheListsOfCopiesGoTheirOwnWays)
{
    XmlNode* a = add("a");
    XmlNode copy(*parent);

    XmlNode* b = add("b");
    EXPECT_THAT(parent->getChildren(), ElementsAre(a, b));
    EXPECT_THAT(copy.getChildren(), ElementsAre(a));
    EXPECT_EQ(xml(copy), "<parent><a/><b/></parent>");

    EXPECT_EQ(copy.removeChild(a), STATUS_SUCCESS);
    EXPECT_THAT(copy.getChildren(), IsEmpty());
    EXPECT_THAT(parent->getChildren(), ElementsAre(a, b));
    EXPECT_EQ(xml(copy), "<parent><b/></parent>");

    giveUp(copy);
}

TEST_F(XmlNodeTest, EitherCopyMayBeTheOneThatIsDestroyed)
{
    add("child");
    auto copy = std::make_unique<XmlNode>(*parent);
    giveUp(*parent);
    calls.clear();

    copy = nullptr;

    EXPECT_THAT(calls.lines(),
                ElementsAre("unlink parent", "unlink child", "free child", "free parent"));
}

TEST(XmlNodeCopyTest, TheStoredAttributesAreCopied)
{
    TreeCalls calls;
    XmlNode node("n");
    XmlNode plain(node);
    ASSERT_EQ(node.setAttribute(Texts{"a", LONG_TEXT}), STATUS_SUCCESS);
    const void* stored = calls.lastText();

    long before = allocationCount();
    XmlNode copy(node);
    EXPECT_EQ(allocationCount() - before, 2) << "a list, and a text too long for its string";

    XmlNode assigned;
    before = allocationCount();
    assigned = node;
    EXPECT_EQ(allocationCount() - before, 2);

    calls.watch(stored, "the first list");
    before = allocationCount();
    assigned = plain;
    EXPECT_EQ(allocationCount() - before, 0);
    EXPECT_THAT(calls.lines(), ElementsAre("new element n"));

    ASSERT_EQ(node.setAttribute(Texts{}), STATUS_SUCCESS);
    EXPECT_THAT(calls.lines(), ElementsAre("new element n", "release the first list"))
        << "it was nobody else's";

    giveUp(plain);
    giveUp(copy);
    giveUp(assigned);
}

TEST_F(XmlNodeTest, AssignmentSharesAndFreesNothingOfTheTarget)
{
    ASSERT_EQ(parent->setContent("content"), STATUS_SUCCESS);
    XmlNode* child = add("child");
    XmlNode target("target");
    const NativeNode old(target.__getNativeNode());
    const auto oldChild = std::make_unique<XmlNode>("old");
    ASSERT_EQ(target.addChild(oldChild.get()), STATUS_SUCCESS);
    ASSERT_EQ(target.setContent("replaced"), STATUS_SUCCESS);
    calls.clear();

    XmlNode& result = (target = *parent);

    EXPECT_EQ(&result, &target);
    EXPECT_THAT(calls.lines(), IsEmpty());
    EXPECT_EQ(xmlOf(old.get()), "<target><old/>replaced</target>") << "unlinked or freed by nobody";
    EXPECT_EQ(target.__getNativeNode(), parent->__getNativeNode());
    EXPECT_THAT(target.getChildren(), ElementsAre(child));
    EXPECT_THAT(bytesOf(target), HasSubstr("parent"));
    EXPECT_THAT(bytesOf(target), HasSubstr("content"));
    EXPECT_THAT(bytesOf(target), Not(HasSubstr("target")));

    giveUp(target);
}

TEST_F(XmlNodeTest, AssigningANodeToItselfChangesNothing)
{
    ASSERT_EQ(parent->setAttribute(Texts{"a", LONG_TEXT}), STATUS_SUCCESS);
    XmlNode* child = add("child");
    const std::string before = bytesOf(*parent);
    calls.clear();

    XmlNode& self = *parent;
    EXPECT_EQ(&(*parent = self), parent.get());

    EXPECT_EQ(bytesOf(*parent), before);
    EXPECT_THAT(parent->getChildren(), ElementsAre(child));
    EXPECT_EQ(xml(*parent), "<parent a=\"" + LONG_TEXT + "\"><child/></parent>");
    EXPECT_THAT(calls.lines(), IsEmpty());
}

}  // namespace
}  // namespace oxil::test
