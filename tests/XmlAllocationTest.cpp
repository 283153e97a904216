// What each allocation that fails leaves of documents: those of libxml2, and the library's own. Of
// libxslt's there is no word: it does not survive all of them.

#include <OxPlainFile.h>
#include <OxXml.h>
#include <OxXmlDocument.h>
#include <OxXmlElement.h>
#include <OxXmlNode.h>
#include <OxXmlStyleSheet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <libxml/xmlerror.h>

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "AllocationSweep.h"
#include "EngineMessages.h"
#include "OutputFile.h"
#include "ScriptFile.h"

namespace oxil::test {
namespace {

const std::string LONG(100, 'x');
const std::string DOCUMENT =
    "<a n='" + LONG + "'>one<b>" + LONG + "</b><!-- c --><c>two<![CDATA[ three]]></c></a>";

const std::vector<int> STATUSES = {STATUS_OUT_OF_MEMORY, STATUS_INVALID_STATE,
                                   STATUS_INVALID_PARAMETER};

/** What libxml2 remembers as its last error counts as nobody's. */
struct NoLastError {
    NoLastError() { xmlResetLastError(); }
    ~NoLastError() { xmlResetLastError(); }
};

class XmlAllocationTest : public testing::Test {
protected:
    /** Lets each allocation of a reading fail; then a reading tells everything. */
    void failEachReading(const std::function<int(Xml&)>& read)
    {
        const int failures = failEachAllocation([&](Attempt& attempt) {
            const NoLastError clean;
            Xml xml;
            std::string heard;
            xml.setOnStartElement(
                [&](const std::string& name, const std::vector<std::string>& attributes) {
                    heard += '<' + name;
                    for (const std::string& each : attributes) {
                        heard += ' ' + each;
                    }
                });
            xml.setOnCharacters([&](const std::string& text) { heard += text; });

            if (attempt.run([&] { return read(xml); }, STATUSES) != STATUS_SUCCESS) {
                heard.clear();
                EXPECT_EQ(read(xml), STATUS_SUCCESS);
            }

            EXPECT_EQ(heard, "<a n " + LONG + "one<b" + LONG + "<ctwo three");
        });
        EXPECT_GT(failures, 10);
    }

    const ScriptFile file{DOCUMENT};
    const EngineMessages messages;
};

TEST_F(XmlAllocationTest, AFileIsReadOrReported)
{
    failEachReading([this](Xml& xml) { return xml.read(file.path(), EXACT_TEXT); });
    failEachReading([this](Xml& xml) { return xml.read(file.path(), PLAIN_FILE); });
}

TEST_F(XmlAllocationTest, ATextIsReadOrReported)
{
    failEachReading([](Xml& xml) { return xml.readText(DOCUMENT); });
}

TEST_F(XmlAllocationTest, ADocumentIsLoadedOrThereIsNone)
{
    const auto failEachLoading = [](const std::function<std::unique_ptr<XmlDocument>()>& load) {
        failEachAllocation([&](Attempt& attempt) {
            const NoLastError clean;
            std::unique_ptr<XmlDocument> document;

            const int r = attempt.run(
                [&] {
                    document = load();
                    return document != nullptr ? STATUS_SUCCESS : STATUS_OUT_OF_MEMORY;
                },
                STATUSES);

            EXPECT_EQ(document != nullptr, r == STATUS_SUCCESS);
            if (document != nullptr) {
                const XmlElement root = document->getRootElement();
                EXPECT_EQ(root.getAttribute("n", ""), LONG);
                EXPECT_EQ(root.first("b").getText(), LONG);
                EXPECT_EQ(root.first("c").getText(), "two three");
            }
        });
    };
    failEachLoading([] { return XmlDocument::loadText(DOCUMENT); });
    failEachLoading([this] { return XmlDocument::loadFile(file.path(), PLAIN_FILE); });
    failEachLoading([this] {
        Xml xml;
        return std::unique_ptr<XmlDocument>(xml.load(file.path(), PLAIN_FILE));
    });
}

TEST_F(XmlAllocationTest, WhatIsAskedOfAnElementIsAnsweredOrThrown)
{
    const std::unique_ptr<XmlDocument> document = XmlDocument::loadText(DOCUMENT);
    failEachAllocation([&](Attempt& attempt) {
        const NoLastError clean;
        std::string text;

        const int r = attempt.run([&] {
            const XmlElement root = document->getRootElement();
            text = root.getAttribute("n", "") + root.first("b").getText() +
                   root.first("c").getText() + root.getText();
            return STATUS_SUCCESS;
        });

        if (r == STATUS_SUCCESS) {
            EXPECT_EQ(text, LONG + LONG + "two three" + "one" + LONG + "two three");
        }
    });
}

TEST_F(XmlAllocationTest, ATreeIsMadeOrSomethingOfItIsReported)
{
    failEachAllocation([](Attempt& attempt) {
        const NoLastError clean;
        attempt.mayGoOn();  // an attribute may be missing, as a later read shows

        attempt.run(
            [&] {
                XmlDocument document;
                auto root = std::make_unique<XmlNode>("root");
                auto child = std::make_unique<XmlNode>(LONG);
                child->setAttribute(LONG, LONG);
                child->setAttribute({"a", LONG, "b", LONG});
                int r = child->setContent(LONG);
                r = r != STATUS_SUCCESS ? r : root->addChild(std::move(child));
                r = r != STATUS_SUCCESS ? r : document.setRootNode(std::move(root));
                return r;
            },
            STATUSES);
    });
}

TEST_F(XmlAllocationTest, ADocumentIsWrittenOrReported)
{
    const OutputFile output("written");
    const std::unique_ptr<XmlDocument> document = XmlDocument::loadText(DOCUMENT);
    ASSERT_NE(document, nullptr);
    document->setOutputFilePath(output.path());
    std::string whole;
    ASSERT_EQ(document->write(whole), STATUS_SUCCESS);

    failEachAllocation([&](Attempt& attempt) {
        const NoLastError clean;
        std::string text = "before";
        const int r = attempt.run([&] { return document->write(text); }, STATUSES);
        EXPECT_EQ(text, r == STATUS_SUCCESS ? whole : "before");
    });
    failEachAllocation([&](Attempt& attempt) {
        const NoLastError clean;
        const int r = attempt.run([&] { return document->write(PLAIN_FILE); }, STATUSES);
        if (r == STATUS_SUCCESS) {
            EXPECT_EQ(output.content(), whole);
        }
    });
    // Of write() without a choice there is no word: libxml2 itself may leave the file open.
}

TEST_F(XmlAllocationTest, AStylesheetTransformsOrReports)
{
    const ScriptFile sheet(
        "<xsl:stylesheet version='1.0' "
        "xmlns:xsl='http://www.w3.org/1999/XSL/Transform'>"
        "<xsl:template match='/'><o><xsl:value-of select='a/b'/></o>"
        "</xsl:template></xsl:stylesheet>");
    const std::unique_ptr<XmlDocument> document = XmlDocument::loadText(DOCUMENT);
    for (const Allocation kind : {Allocation::ThrowingNew, Allocation::NothrowNew}) {
        failEachAllocation(
            [&](Attempt& attempt) {
                const NoLastError clean;
                XmlStyleSheet styleSheet(sheet.path());
                std::unique_ptr<XmlDocument> result;

                const int r = attempt.run(
                    [&] {
                        const int status = styleSheet.load(PLAIN_FILE);
                        if (status == STATUS_SUCCESS && kind == Allocation::ThrowingNew) {
                            result = styleSheet.transform(*document);
                        }
                        return status;
                    },
                    STATUSES);

                if (r != STATUS_SUCCESS) {
                    EXPECT_EQ(styleSheet.load(PLAIN_FILE), STATUS_SUCCESS);
                }
                result = styleSheet.transform(*document);
                ASSERT_NE(result, nullptr);
                EXPECT_EQ(result->getRootElement().getText(), LONG);
            },
            0, kind);
    }
}

}  // namespace
}  // namespace oxil::test
