#include <gtest/gtest.h>
#include <libxml/tree.h>

#include <initializer_list>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "EngineMessages.h"
#include "OutputFile.h"
#include "OxLogMatchers.h"
#include "OxPlainFile.h"
#include "OxStatus.h"
#include "OxXml.h"
#include "OxXmlDocument.h"
#include "OxXmlNode.h"
#include "TreeCalls.h"

namespace oxil::test {
namespace {

/** Whether a text that is written as content and as an attribute comes back. */
bool comesBack(const std::string& text)
{
    const OutputFile file("text.xml");
    {
        XmlDocument document;
        auto root = std::make_unique<XmlNode>("n");
        EXPECT_EQ(root->setContent(text), STATUS_SUCCESS);
        EXPECT_EQ(root->setAttribute("a", text), STATUS_SUCCESS);
        EXPECT_EQ(document.setRootNode(std::move(root)), STATUS_SUCCESS);
        document.setOutputFilePath(file.path());
        if (document.write(PLAIN_FILE) != STATUS_SUCCESS) {
            return false;
        }
    }
    Xml xml;
    const std::unique_ptr<XmlDocument> document(xml.load(file.path(), PLAIN_FILE));
    if (document == nullptr) {
        return false;
    }
    const TreeCalls calls;
    xmlChar* content = xmlNodeGetContent(document->getRootNode()->__getNativeNode());
    const bool same = reinterpret_cast<const char*>(content) == text &&
                      document->getRootNode()->getAttribute("a") == text;
    xmlFree(content);
    return same;
}

std::string inUtf8(char32_t code)
{
    const auto byte = [](char32_t value) { return static_cast<char>(value); };
    if (code < 0x80) {
        return {byte(code)};
    }
    if (code < 0x800) {
        return {byte(0xC0 | code >> 6), byte(0x80 | (code & 0x3F))};
    }
    if (code < 0x10000) {
        return {byte(0xE0 | code >> 12), byte(0x80 | (code >> 6 & 0x3F)),
                byte(0x80 | (code & 0x3F))};
    }
    return {byte(0xF0 | code >> 18), byte(0x80 | (code >> 12 & 0x3F)),
            byte(0x80 | (code >> 6 & 0x3F)), byte(0x80 | (code & 0x3F))};
}

TEST(XmlTextTest, IsWhatComesBackAfterItWasWritten)
{
    std::vector<std::string> texts{"", "plain", "<&>\"']]>", "a\xC3", "\xE2\x82", "\xF0\x9F\x98",
                                   // more bytes than the character needs
                                   "\xC0\xAF", "\xC1\xBF", "\xE0\x9F\xBF", "\xF0\x8F\xBF\xBF",
                                   // no such code, no such first byte
                                   "\xF4\x90\x80\x80", "\xF8\x90\x80\x80", "\xF8\x88\x80\x80\x80",
                                   "\xFE", "\xFF",
                                   // what follows is no continuation
                                   "\xC3(", "\xE2(\x82", "\xE2\x82(", "\xF0\x9F\x98(", "\x80"};
    for (char32_t code = 0; code < 0x100; ++code) {
        texts.push_back("a" + inUtf8(code) + "b");
        texts.push_back("a" + std::string(1, static_cast<char>(code)) + "b");
    }
    for (const char32_t code : std::initializer_list<char32_t>{
             0x7FF, 0x800, 0xFFF, 0x1000, 0xD7FF, 0xD800, 0xDBFF, 0xDC00, 0xDFFF, 0xE000, 0xFDD0,
             0xFFFD, 0xFFFE, 0xFFFF, 0x10000, 0x1FFFE, 0x10FFFF, 0x110000, 0x1FFFFF}) {
        texts.push_back("a" + inUtf8(code) + "b");
    }
    const EngineMessages messages;
    const LogCapture log;
    int held = 0;
    for (const std::string& text : texts) {
        EXPECT_EQ(XmlNode::isText(text), comesBack(text)) << testing::PrintToString(text);
        held += XmlNode::isText(text);
    }
    EXPECT_GT(held, 300);
    EXPECT_GT(static_cast<int>(texts.size()) - held, 150);
}

}  // namespace
}  // namespace oxil::test
