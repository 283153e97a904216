#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <libxml/tree.h>

#include <memory>
#include <string>
#include <utility>

#include "NativeXml.h"
#include "OxLogMatchers.h"
#include "OxStatus.h"
#include "OxXmlDocument.h"
#include "OxXmlNode.h"
#include "TreeCalls.h"

namespace oxil::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

std::unique_ptr<XmlNode> makeNode(const std::string& element)
{
    return std::make_unique<XmlNode>(element);
}

class XmlTreeOwnershipTest : public testing::Test {
protected:
    LogCapture log;
    TreeCalls calls;
};

// ---- Children -----------------------------------------------------------------------------------

TEST_F(XmlTreeOwnershipTest, AChildMovesIntoItsParent)
{
    {
        XmlNode parent("parent");
        std::unique_ptr<XmlNode> child = makeNode("child");
        const XmlNode* address = child.get();
        calls.clear();

        EXPECT_EQ(parent.addChild(std::move(child)), STATUS_SUCCESS);

        EXPECT_EQ(child, nullptr);
        EXPECT_THAT(parent.getChildren(), ElementsAre(address));
        EXPECT_THAT(calls.lines(), IsEmpty());
    }
    EXPECT_THAT(calls.lines(),
                ElementsAre("unlink parent", "unlink child", "free child", "free parent"));
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(XmlTreeOwnershipTest, AChildThatIsRefusedIsDestroyed)
{
    XmlNode empty;
    std::unique_ptr<XmlNode> child = makeNode("child");
    calls.clear();

    EXPECT_EQ(empty.addChild(std::move(child)), STATUS_INVALID_STATE);

    EXPECT_THAT(empty.getChildren(), IsEmpty());
    EXPECT_THAT(calls.lines(), ElementsAre("unlink child", "free child"));
    EXPECT_THAT(log.lines(), ElementsAre(LoggedIn("OxXmlNode.cpp", "addChild", "Invalid state.")));
}

TEST_F(XmlTreeOwnershipTest, NullIsNoChild)
{
    XmlNode parent("parent");

    EXPECT_EQ(parent.addChild(std::unique_ptr<XmlNode>()), STATUS_INVALID_PARAMETER);
    EXPECT_EQ(parent.addChild(nullptr), STATUS_INVALID_PARAMETER);

    const auto refused = LoggedIn("OxXmlNode.cpp", "addChild", "Invalid parameter.");
    EXPECT_THAT(log.lines(), ElementsAre(refused, refused));
}

TEST_F(XmlTreeOwnershipTest, ARemovedChildCanBeTakenBack)
{
    XmlNode parent("parent");
    ASSERT_EQ(parent.addChild(makeNode("child")), STATUS_SUCCESS);
    calls.clear();

    XmlNode* child = parent.getFirstChild();
    ASSERT_EQ(parent.removeChild(child), STATUS_SUCCESS);
    std::unique_ptr<XmlNode> mine(child);
    mine = nullptr;

    EXPECT_THAT(calls.lines(), ElementsAre("unlink child", "unlink child", "free child"));
}

// ---- Roots --------------------------------------------------------------------------------------

TEST_F(XmlTreeOwnershipTest, ARootMovesIntoItsDocument)
{
    {
        XmlDocument document;
        std::unique_ptr<XmlNode> root = makeNode("root");
        ASSERT_EQ(root->addChild(makeNode("child")), STATUS_SUCCESS);
        const XmlNode* address = root.get();
        calls.clear();

        EXPECT_EQ(document.setRootNode(std::move(root)), STATUS_SUCCESS);

        EXPECT_EQ(root, nullptr);
        EXPECT_EQ(document.getRootNode(), address);
        EXPECT_EQ(rootXml(document), "<root><child/></root>");
        EXPECT_THAT(calls.lines(), IsEmpty());
    }
    EXPECT_THAT(calls.lines(), ElementsAre("unlink root", "unlink child", "free child", "free root",
                                           "free document"));
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(XmlTreeOwnershipTest, ARootThatIsReplacedByAnOwnedOneIsDestroyed)
{
    XmlDocument document;
    ASSERT_EQ(document.setRootNode(makeNode("first")), STATUS_SUCCESS);
    std::unique_ptr<XmlNode> second = makeNode("second");
    calls.clear();

    EXPECT_EQ(document.setRootNode(std::move(second)), STATUS_SUCCESS);

    EXPECT_THAT(calls.lines(), ElementsAre("unlink first", "free first"));
    EXPECT_EQ(rootXml(document), "<second/>");
}

TEST_F(XmlTreeOwnershipTest, ARootThatTheDocumentMadeIsDestroyedToo)
{
    XmlDocument document;
    xmlDocSetRootElement(document.__getNativeDocument(),
                         xmlNewNode(nullptr, reinterpret_cast<const xmlChar*>("loaded")));
    ASSERT_NE(document.getRootNode(), nullptr);
    std::unique_ptr<XmlNode> root = makeNode("root");
    calls.clear();

    EXPECT_EQ(document.setRootNode(std::move(root)), STATUS_SUCCESS);

    EXPECT_THAT(calls.lines(), ElementsAre("unlink loaded", "free loaded"));
    EXPECT_EQ(rootXml(document), "<root/>");
}

TEST_F(XmlTreeOwnershipTest, ARootTakesOverFromOneOfTheCallers)
{
    XmlDocument document;
    XmlNode mine("mine");
    ASSERT_EQ(document.setRootNode(&mine), STATUS_SUCCESS);
    std::unique_ptr<XmlNode> root = makeNode("root");
    const XmlNode* address = root.get();
    calls.clear();

    EXPECT_EQ(document.setRootNode(std::move(root)), STATUS_SUCCESS);
    EXPECT_EQ(document.getRootNode(), address);
    EXPECT_EQ(rootXml(document), "<root/>");

    EXPECT_EQ(document.setRootNode(&mine), STATUS_SUCCESS) << "and back again";
    EXPECT_EQ(document.getRootNode(), &mine);
    EXPECT_EQ(rootXml(document), "<mine/>");
    EXPECT_THAT(calls.lines(), IsEmpty()) << "the document keeps the one that it owns";
}

TEST_F(XmlTreeOwnershipTest, ARemovedChildCanBecomeTheRoot)
{
    XmlDocument document;
    ASSERT_EQ(document.setRootNode(makeNode("root")), STATUS_SUCCESS);
    XmlNode* root = document.getRootNode();
    ASSERT_EQ(root->addChild(makeNode("child")), STATUS_SUCCESS);
    XmlNode* child = root->getFirstChild();
    ASSERT_EQ(root->removeChild(child), STATUS_SUCCESS);

    EXPECT_EQ(document.setRootNode(std::unique_ptr<XmlNode>(child)), STATUS_SUCCESS);

    EXPECT_EQ(document.getRootNode(), child);
    EXPECT_EQ(rootXml(document), "<child/>");
}

TEST_F(XmlTreeOwnershipTest, ARootThatIsRefusedIsDestroyed)
{
    XmlDocument nothing(nullptr);
    std::unique_ptr<XmlNode> root = makeNode("root");
    calls.clear();

    EXPECT_EQ(nothing.setRootNode(std::move(root)), STATUS_INVALID_STATE);

    EXPECT_THAT(calls.lines(), ElementsAre("unlink root", "free root"));
    EXPECT_THAT(log.lines(),
                ElementsAre(LoggedIn("OxXmlDocument.cpp", "setRootNode", "Invalid state.")));
}

TEST_F(XmlTreeOwnershipTest, NullIsNoRoot)
{
    XmlDocument document;
    ASSERT_EQ(document.setRootNode(makeNode("root")), STATUS_SUCCESS);

    EXPECT_EQ(document.setRootNode(std::unique_ptr<XmlNode>()), STATUS_INVALID_PARAMETER);
    EXPECT_EQ(document.setRootNode(nullptr), STATUS_INVALID_PARAMETER);

    EXPECT_EQ(rootXml(document), "<root/>");
    const auto refused = LoggedIn("OxXmlDocument.cpp", "setRootNode", "Invalid parameter.");
    EXPECT_THAT(log.lines(), ElementsAre(refused, refused));
}

}  // namespace
}  // namespace oxil::test
