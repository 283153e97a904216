#include <OxStatus.h>
#include <OxXml.h>
#include <OxXmlDocument.h>
#include <OxXmlNode.h>
#include <OxXmlStyleSheet.h>
#include <gtest/gtest.h>
#include <libxml/parser.h>

#include <chrono>
#include <cstdlib>
#include <functional>
#include <future>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "FreshProcess.h"
#include "ManyThreads.h"
#include "OxLogMatchers.h"
#include "ScriptFile.h"
#include "XmlCalls.h"

namespace oxil::test {
namespace {

using namespace std::chrono_literals;

/** Where a thread waits until the test lets it go on. */
class Stop {
public:
    /** For the thread. */
    void arrive()
    {
        __arrived.set_value();
        __released.get_future().wait();
    }

    /** For the test: waits until the thread is there. */
    void await() { __arrived.get_future().wait(); }

    void release() { __released.set_value(); }

private:
    std::promise<void> __arrived;
    std::promise<void> __released;
};

class XmlThreadsTest : public testing::Test {
protected:
    /** Reads with this thread, calling the function in the only event. */
    int read(const std::function<void()>& inside = nullptr) const
    {
        Xml xml(file.path());
        xml.setOnEndElement([&inside](const std::string&) {
            if (inside) {
                inside();
            }
        });
        return xml.read();
    }

    const ScriptFile file{"<a/>"};
};

TEST_F(XmlThreadsTest, TwoReadsThatEndTogetherCleanUpOneAfterTheOther)
{
    MemoryCleanups cleanups;
    cleanups.slowDown(300ms);
    Stop stop;
    auto other = std::async(std::launch::async, [&] { return read([&stop] { stop.arrive(); }); });
    stop.await();

    EXPECT_EQ(read([&stop] { stop.release(); }), STATUS_SUCCESS);

    EXPECT_EQ(other.get(), STATUS_SUCCESS);
    EXPECT_EQ(cleanups.most(), 1);
    EXPECT_GE(cleanups.count(), 1);
}

TEST_F(XmlThreadsTest, NothingIsCleanedUpUnderAnotherThreadThatReads)
{
    for (const bool throws : {false, true}) {
        MemoryCleanups cleanups;
        Stop stop;
        auto other = std::async(std::launch::async, [&] {
            return read([&] {
                stop.arrive();
                if (throws) {
                    throw std::runtime_error("enough");
                }
            });
        });
        stop.await();

        EXPECT_EQ(read(), STATUS_SUCCESS);
        EXPECT_EQ(read([this] { EXPECT_EQ(read(), STATUS_SUCCESS); }), STATUS_SUCCESS);
        EXPECT_EQ(cleanups.count(), 0);

        stop.release();
        if (throws) {
            EXPECT_THROW(other.get(), std::runtime_error);
        } else {
            EXPECT_EQ(other.get(), STATUS_SUCCESS);
        }
        EXPECT_EQ(cleanups.count(), 1) << "the last one to leave has made up for it";
        EXPECT_EQ(read(), STATUS_SUCCESS);
        EXPECT_EQ(cleanups.count(), 2);
    }
}

TEST_F(XmlThreadsTest, AReadInsideAReadOfItsOwnThreadCleansUpAtOnce)
{
    const MemoryCleanups cleanups;
    EXPECT_EQ(read([&] {
                  EXPECT_EQ(read(), STATUS_SUCCESS);
                  EXPECT_EQ(cleanups.count(), 1);
              }),
              STATUS_SUCCESS);
    EXPECT_EQ(cleanups.count(), 2);
}

Stop* loadingStop = nullptr;
xmlExternalEntityLoader originalLoader = nullptr;

xmlParserInputPtr loadSlowly(const char* url, const char* id, xmlParserCtxtPtr context)
{
    loadingStop->arrive();
    return originalLoader(url, id, context);
}

TEST_F(XmlThreadsTest, NothingIsCleanedUpUnderAnotherThreadThatLoads)
{
    const ScriptFile sheet(
        "<s:stylesheet version='1.0' xmlns:s='http://www.w3.org/1999/XSL/Transform'/>");
    const std::function<bool()> loads[] = {
        [this] {
            Xml xml(file.path());
            return std::unique_ptr<XmlDocument>(xml.load()) != nullptr;
        },
        [&sheet] { return XmlStyleSheet(sheet.path()).load() == STATUS_SUCCESS; }};
    for (const auto& load : loads) {
        const MemoryCleanups cleanups;
        Stop stop;
        loadingStop = &stop;
        originalLoader = xmlGetExternalEntityLoader();
        xmlSetExternalEntityLoader(loadSlowly);
        auto other = std::async(std::launch::async, load);
        stop.await();
        xmlSetExternalEntityLoader(originalLoader);

        EXPECT_EQ(read(), STATUS_SUCCESS);
        EXPECT_EQ(cleanups.count(), 0);

        stop.release();
        EXPECT_TRUE(other.get());
        EXPECT_EQ(cleanups.count(), 1);
    }
}

TEST_F(XmlThreadsTest, TreesOfDifferentThreadsHaveNothingInCommon)
{
    onManyThreads([](int number) {
        for (int i = 0; i < 50; ++i) {
            const std::string text = std::to_string(number) + " & " + std::to_string(i);
            XmlDocument document;
            auto root = std::make_unique<XmlNode>("root");
            root->setAttribute("text", text);
            root->addChild(std::make_unique<XmlNode>("child"));
            root->getFirstChild()->setContent(text);
            document.setRootNode(std::move(root));
            std::string written;
            EXPECT_EQ(document.write(written), STATUS_SUCCESS);

            const auto read = XmlDocument::loadText(written);
            ASSERT_NE(read, nullptr);
            EXPECT_EQ(read->getRootElement().getAttribute("text"), text);
            EXPECT_EQ(read->getRootElement().first("child").getText(), text);
        }
    });
}

TEST_F(XmlThreadsTest, ResultsMayGoToOtherThreadsThanTheirStyleSheet)
{
    const ScriptFile sheet(
        "<s:stylesheet version='1.0' xmlns:s='http://www.w3.org/1999/XSL/Transform'>"
        "<s:template match='/'><names><name><s:value-of select='a/@x'/></name></names>"
        "</s:template></s:stylesheet>");
    XmlStyleSheet styleSheet(sheet.path());
    ASSERT_EQ(styleSheet.load(), STATUS_SUCCESS);
    const auto source = XmlDocument::loadText("<a x='1'/>");
    std::vector<std::future<void>> others;
    for (int i = 0; i < 50; ++i) {
        auto result = styleSheet.transform(*source);
        ASSERT_NE(result, nullptr);
        others.push_back(std::async(std::launch::async, [tree = std::move(result)] {
            EXPECT_EQ(tree->getRootElement().first("name").getText(), "1");
            std::string text;
            EXPECT_EQ(tree->write(text), STATUS_SUCCESS);
        }));
    }
}

TEST_F(XmlThreadsTest, ManyThreadsReadAndLoadAtOnce)
{
    const ScriptFile document("<a xmlns:p='http://u' x='1&amp;'>text<p:b/><![CDATA[data]]></a>");
    onManyThreads([&document](int) {
        for (int i = 0; i < 200; ++i) {
            int events = 0;
            Xml xml(document.path());
            xml.setOnEndElement([&events](const std::string&) { ++events; });
            EXPECT_EQ(xml.read(EXACT_TEXT), STATUS_SUCCESS);
            EXPECT_EQ(events, 2);
            EXPECT_NE(std::unique_ptr<XmlDocument>(xml.load()), nullptr);
        }
    });
}

// ---- The first use of the engines, which needs a process of its own ----

/** Ends the process: successfully if this initialised the parser, and the catalogs once. */
void firstUse(const std::function<void()>& use)
{
    const int before = parserInitialisations();
    use();
    use();
    std::_Exit(before == 0 && parserInitialisations() > 0 && catalogInitialisations() == 1
                   ? EXIT_SUCCESS
                   : EXIT_FAILURE);
}

TEST(XmlThreadsDeathTest, WhateverComesFirstInitialisesTheParser)
{
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    const auto succeeds = testing::ExitedWithCode(EXIT_SUCCESS);
    EXPECT_EXIT(firstUse([] { const XmlDocument document; }), succeeds, "");
    EXPECT_EXIT(firstUse([] { const XmlNode node("a"); }), succeeds, "");
    EXPECT_EXIT(firstUse([] { XmlNode().setElement("a"); }), succeeds, "");
    EXPECT_EXIT(firstUse([] { XmlStyleSheet("/dev/null").load(); }), succeeds, "");
    EXPECT_EXIT(
        firstUse([] { const std::unique_ptr<XmlDocument> document(Xml("/dev/null").load()); }),
        succeeds, "");
}

TEST(XmlThreadsDeathTest, ManyThreadsMayBeTheFirstToReadAndToBuild)
{
    const ScriptFile file("<a x='1'>text</a>");
    inFreshProcess([&file] {
        onManyThreads([&file](int number) {
            if (number % 2 == 0) {
                const std::unique_ptr<XmlDocument> tree(Xml(file.path()).load());
                EXPECT_NE(tree, nullptr);
            } else {
                XmlDocument tree;
                EXPECT_EQ(tree.setRootNode(std::make_unique<XmlNode>("a")), STATUS_SUCCESS);
            }
        });
    });
}

/** A stylesheet that works only with what libxslt adds to XPath when it is initialised. */
constexpr const char* NODE_SET =
    "<s:stylesheet version='1.0' xmlns:s='http://www.w3.org/1999/XSL/Transform'"
    " xmlns:x='http://xmlsoft.org/XSLT/namespace'><s:output method='text'/>"
    "<s:template match='/'><s:variable name='tree'><b>found</b></s:variable>"
    "<s:value-of select='x:node-set($tree)/b'/></s:template></s:stylesheet>";

TEST(XmlThreadsDeathTest, NoStyleSheetIsUsedBeforeTheFirstOneHasInitialisedLibxslt)
{
    const ScriptFile file("<a/>");
    const ScriptFile sheet(NODE_SET);
    inFreshProcess([&file, &sheet] {
        slowDownXsltInitialisation(300ms);
        onManyThreads([&file, &sheet](int) {
            XmlStyleSheet styleSheet(sheet.path());
            EXPECT_EQ(styleSheet.load(), STATUS_SUCCESS);
            const auto source = XmlDocument::loadFile(file.path());
            ASSERT_NE(source, nullptr);
            const auto result = styleSheet.transform(*source);
            ASSERT_NE(result, nullptr);
            result->__setXmlStyleSheet(&styleSheet);
            std::string text;
            EXPECT_EQ(result->write(text), STATUS_SUCCESS);
            EXPECT_EQ(text, "found");
        });
    });
}

}  // namespace
}  // namespace oxil::test
