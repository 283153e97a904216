#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <libxml/tree.h>

#include <memory>
#include <new>
#include <optional>
#include <string>

#include "AllocationFailure.h"
#include "EngineMemory.h"
#include "EngineMessages.h"
#include "OxLogMatchers.h"
#include "OxStatus.h"
#include "OxXmlNode.h"
#include "SmallStack.h"

namespace oxil::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const std::string LONG_TEXT = "a text that has to have a memory block of its own, being this long";

std::string contentOf(const XmlNode& node)
{
    xmlChar* content = xmlNodeGetContent(node.__getNativeNode());
    std::string text = reinterpret_cast<const char*>(content);
    xmlFree(content);
    return text;
}

// ---- Without memory -----------------------------------------------------------------------------

TEST(XmlTreeMemoryTest, ContentThatIsLostIsReported)
{
    const EngineMessages messages;
    for (const char* before : {"", "before, "}) {
        int failures = 0;
        for (bool failed = true; failed; failures += failed) {
            SCOPED_TRACE(testing::Message() << before << failures);
            LogCapture log;
            XmlNode node("n");
            ASSERT_EQ(node.setContent(before), STATUS_SUCCESS);
            int result = STATUS_SUCCESS;
            {
                const EngineMemory memory(failures + 1);
                result = node.setContent(LONG_TEXT);
                failed = memory.hasFailed();
            }
            if (failed) {
                EXPECT_EQ(result, STATUS_OUT_OF_MEMORY);
                EXPECT_THAT(log.lines(), ElementsAre(LoggedIn("OxXmlNode.cpp", "setContent",
                                                              "Memory allocation failed.")));
                EXPECT_EQ(contentOf(node), before);
                EXPECT_EQ(node.setContent("again"), STATUS_SUCCESS) << "a failure is no state";
                EXPECT_EQ(contentOf(node), before + std::string("again"));
            } else {
                EXPECT_EQ(result, STATUS_SUCCESS);
                EXPECT_THAT(log.lines(), IsEmpty());
                EXPECT_EQ(contentOf(node), before + LONG_TEXT);
            }
        }
        EXPECT_GT(failures, 1) << before;
    }
}

TEST(XmlTreeMemoryTest, ANodeThatCannotKeepItsNameLeavesNoElementBehind)
{
    int failures = 0;
    for (bool thrown = true; thrown; failures += thrown) {  // the test's own allocations among them
        const EngineMemory memory;
        std::optional<XmlNode> node;
        try {
            const AllocationFailure failure(Allocation::ThrowingNew, failures + 1);
            node.emplace(LONG_TEXT);
            thrown = false;
        } catch (const std::bad_alloc&) {
        }
        node.reset();
        EXPECT_EQ(memory.getBlockCount(), 0) << failures;
    }
    EXPECT_GT(failures, 0);
}

TEST(XmlTreeMemoryTest, AChildThatCannotBeListedIsNotLinked)
{
    XmlNode parent("parent");
    XmlNode child("child");
    bool thrown = false;
    {
        const AllocationFailure failure(Allocation::ThrowingNew);
        try {
            parent.addChild(&child);
        } catch (const std::bad_alloc&) {
            thrown = true;
        }
    }
    EXPECT_TRUE(thrown);
    EXPECT_THAT(parent.getChildren(), IsEmpty());
    EXPECT_EQ(parent.__getNativeNode()->children, nullptr);
    EXPECT_EQ(child.__getNativeNode()->parent, nullptr);
}

// ---- Depth --------------------------------------------------------------------------------------

TEST(XmlTreeMemoryTest, DeepTreesAreDestroyedOnASmallStack)
{
    runOnSmallStack([] {
        auto root = std::make_unique<XmlNode>("root");
        XmlNode* last = root.get();
        for (int level = 1; level < 200000; ++level) {
            auto* node = new XmlNode("node");
            ASSERT_EQ(last->addChild(node), STATUS_SUCCESS);
            last = node;
        }
        root = nullptr;
    });
}

TEST(XmlTreeMemoryTest, DeepNativeTreesAreDestroyedOnASmallStack)
{
    runOnSmallStack([] {
        const XmlNode root("root");
        xmlNode* last = root.__getNativeNode();
        for (int level = 1; level < 200000; ++level) {
            last = xmlNewChild(last, nullptr, last->name, nullptr);
        }
    });
}

}  // namespace
}  // namespace oxil::test
