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
#include <thread>
#include <vector>

#include "LogCapture.h"
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

TEST_F(XmlThreadsTest, ManyThreadsReadAndLoadAtOnce)
{
    const ScriptFile document("<a xmlns:p='http://u' x='1&amp;'>text<p:b/><![CDATA[data]]></a>");
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([&document] {
            for (int j = 0; j < 200; ++j) {
                int events = 0;
                Xml xml(document.path());
                xml.setOnEndElement([&events](const std::string&) { ++events; });
                EXPECT_EQ(xml.read(EXACT_TEXT), STATUS_SUCCESS);
                EXPECT_EQ(events, 2);
                EXPECT_NE(std::unique_ptr<XmlDocument>(xml.load()), nullptr);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

// ---- The first use of the engine, which needs a process of its own ----

/** Ends the process: successfully if this initialised the parser. */
void firstUse(const std::function<void()>& use)
{
    const int before = parserInitialisations();
    use();
    std::_Exit(before == 0 && parserInitialisations() > 0 ? EXIT_SUCCESS : EXIT_FAILURE);
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

}  // namespace
}  // namespace oxil::test
