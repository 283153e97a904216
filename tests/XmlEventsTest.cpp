#include <OxXml.h>

#include <OxStatus.h>
#include <OxXmlDocument.h>
#include <OxXmlNode.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <libxml/parser.h>

#include <cstddef>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "AllocationFailure.h"
#include "OxLogMatchers.h"
#include "ScriptFile.h"
#include "XmlCalls.h"
#include "XmlReading.h"

namespace oxil::test {
namespace {

using testing::ElementsAre;
using testing::Ge;
using testing::IsEmpty;
using testing::SizeIs;

class XmlEventsTest : public XmlReading {};

// ---- Events ----

TEST_F(XmlEventsTest, EventsComeInDocumentOrderBeforeTheReadReturns)
{
    EXPECT_THAT(
        eventsOf("<?xml version='1.0'?>\n<!DOCTYPE list>\n<!-- note -->\n"
                 "<list kind='fruit'><item>apple</item>&amp;<item n='2'/><?go on?>rest</list>\n"),
        ElementsAre("start list|kind|fruit", "start item", "text apple", "end item", "text &",
                    "start item|n|2", "end item", "text rest", "end list"));
}

TEST_F(XmlEventsTest, AttributesComeInDocumentOrderAsNamesAndValues)
{
    const ScriptFile attributes("<a><b x='1' y='2'/><c z='' a='&quot;'/><d/></a>");
    std::vector<Texts> lists;
    Xml xml(attributes.path());
    xml.setOnStartElement(
        [&lists](const std::string&, const Texts& list) { lists.push_back(list); });

    EXPECT_EQ(xml.read(), STATUS_SUCCESS);

    EXPECT_THAT(lists, ElementsAre(IsEmpty(), ElementsAre("x", "1", "y", "2"),
                                   ElementsAre("z", "", "a", "\""), IsEmpty()));
}

TEST_F(XmlEventsTest, TheListenerIsToldBeforeTheFunctionsAndBothAreToldTheSame)
{
    for (const Form form : FORMS) {
        const std::string text = form == Form::Exact ? "text hi" : "text hi<b/></a>";
        recorder.clear();
        Xml xml(file.path());
        xml.setXmlEventListener(&recorder);
        recorder.setFunctions(xml);

        EXPECT_EQ(read(xml, form), STATUS_SUCCESS);

        EXPECT_THAT(recorder.events(),
                    ElementsAre("start a|x|1|y|2", "f:start a|x|1|y|2", text, "f:" + text,
                                "start b", "f:start b", "end b", "f:end b", "end a", "f:end a"));
    }
}

TEST_F(XmlEventsTest, EachReceiverIsOptional)
{
    for (const Form form : FORMS) {
        const std::string text = form == Form::Exact ? "text hi" : "text hi<b/></a>";
        Xml xml(file.path());

        EXPECT_EQ(read(xml, form), STATUS_SUCCESS) << "nobody listens";

        recorder.clear();
        recorder.setFunctions(xml, "");
        EXPECT_EQ(read(xml, form), STATUS_SUCCESS);
        EXPECT_THAT(recorder.events(),
                    ElementsAre("start a|x|1|y|2", text, "start b", "end b", "end a"));

        recorder.clear();
        xml.setOnStartElement(nullptr);
        EXPECT_EQ(read(xml, form), STATUS_SUCCESS);
        EXPECT_THAT(recorder.events(), ElementsAre(text, "end b", "end a"));

        recorder.clear();
        xml.setOnEndElement(nullptr);
        EXPECT_EQ(read(xml, form), STATUS_SUCCESS);
        EXPECT_THAT(recorder.events(), ElementsAre(text));

        recorder.clear();
        xml.setOnCharacters(nullptr);
        xml.setXmlEventListener(&recorder);
        EXPECT_EQ(read(xml, form), STATUS_SUCCESS);
        EXPECT_THAT(recorder.events(),
                    ElementsAre("start a|x|1|y|2", text, "start b", "end b", "end a"));

        recorder.clear();
        xml.setXmlEventListener(nullptr);
        EXPECT_EQ(read(xml, form), STATUS_SUCCESS);
        EXPECT_THAT(recorder.events(), IsEmpty());
    }
}

TEST_F(XmlEventsTest, AReaderMayBeUsedAgainAndAgain)
{
    const LogCapture log;
    const ScriptFile malformed("<a>");
    Xml xml(file.path());
    xml.setXmlEventListener(&recorder);

    EXPECT_EQ(xml.read(), STATUS_SUCCESS);
    EXPECT_EQ(xml.read(malformed.path()), STATUS_INVALID_PARAMETER);
    EXPECT_EQ(xml.read(file.path(), EXACT_TEXT), STATUS_SUCCESS);
    EXPECT_EQ(xml.read(), STATUS_SUCCESS);

    EXPECT_THAT(recorder.events(),
                ElementsAre("start a|x|1|y|2", "text hi<b/></a>", "start b", "end b", "end a",
                            "start a",  //
                            "start a|x|1|y|2", "text hi", "start b", "end b", "end a",
                            "start a|x|1|y|2", "text hi<b/></a>", "start b", "end b", "end a"));
    EXPECT_THAT(log.lines(), ElementsAre(readLogs("Xml parsing failed")));
}

TEST_F(XmlEventsTest, WhatTheEngineSaysIsHandedOnAsItIs)
{
    const struct {
        const char* what;
        const char* document;
        Texts events;
    } cases[] = {
        {"prefixes stay", "<p:a xmlns:p='u' p:x='1'/>", {"start p:a|xmlns:p|u|p:x|1", "end p:a"}},
        {"undeclared ones too", "<p:a p:x='1'/>", {"start p:a|p:x|1", "end p:a"}},
        {"references in attributes are replaced",
         "<a x='&lt;&gt;&quot;&apos;&#65;'/>",
         {"start a|x|<>\"'A", "end a"}},
        {"references in text are runs of their own",
         "<a>x&amp;&lt;&#65;</a>",
         {"start a", "text x", "text &", "text <", "text A", "end a"}},
        {"line ends in attributes are spaces", "<a x='1\n2\t3'/>", {"start a|x|1 2 3", "end a"}},
        {"CDATA is text", "<a><![CDATA[<x>&]]></a>", {"start a", "text <x>&", "end a"}},
        {"white space is text",
         "<a> <b/>\n</a>",
         {"start a", "text  ", "start b", "end b", "text \n", "end a"}},
        {"comments and instructions are nothing",
         "<?p i?><a><!-- c --><?q r?></a><!-- d -->",
         {"start a", "end a"}},
        {"what a document type supplies is nothing",
         "<!DOCTYPE a [<!ATTLIST a d CDATA '1'>]><a/>",
         {"start a", "end a"}},
        {"an entity is dropped where its declaration may stand in a file that is not read",
         "<!DOCTYPE a SYSTEM 'a.dtd' [<!ENTITY e 'x'>]><a b='1&e;2'>3&e;4</a>",
         {"start a|b|12", "text 3", "text 4", "end a"}},
        {"an include is an element",
         "<x:include xmlns:x='http://www.w3.org/2001/XInclude' href='/etc/hostname'/>",
         {"start x:include|xmlns:x|http://www.w3.org/2001/XInclude|href|/etc/hostname",
          "end x:include"}},
    };
    for (const auto& handedOn : cases) {
        EXPECT_EQ(eventsOf(handedOn.document), handedOn.events) << handedOn.what;
    }
}

TEST_F(XmlEventsTest, AttributesArriveAsTheDocumentMeansThemIfTextIsToBeExact)
{
    const struct {
        const char* written;
        std::string exact;
        std::string plain;
    } cases[] = {
        {"&amp;", "&", "&#38;"},
        {"&#38;", "&", "&#38;"},
        {"&#x26;", "&", "&#38;"},
        {"&amp;amp;", "&amp;", "&#38;amp;"},
        {"&#38;#38;", "&#38;", "&#38;#38;"},
        {"&amp;lt;", "&lt;", "&#38;lt;"},
        {"&lt;&#60;&#x3c;", "<<<", "<<<"},
        {"&gt;&quot;&apos;&#65;", ">\"'A", ">\"'A"},
        {"x&amp;y &amp;&amp; z", "x&y && z", "x&#38;y &#38;&#38; z"},
        {" 1&#10;2&#9;3\n4 ", " 1\n2\t3 4 ", " 1\n2\t3 4 "},
    };
    for (const auto& value : cases) {
        const std::string document = "<a x=\"" + std::string(value.written) + "\"/>";
        EXPECT_THAT(eventsOf(document, Form::Exact),
                    ElementsAre("start a|x|" + value.exact, "end a"))
            << document;
        EXPECT_THAT(eventsOf(document, Form::ToNul),
                    ElementsAre("start a|x|" + value.plain, "end a"))
            << document;
    }
}

TEST_F(XmlEventsTest, WhatIsReadExactlyAndWrittenAgainIsTheSame)
{
    const ScriptFile document("<a x='R&amp;D &amp;lt; &lt;&quot;'/>");
    for (int turn = 0; turn < 3; ++turn) {
        Texts attributes;
        Xml xml(document.path());
        xml.setOnStartElement([&](const std::string&, const Texts& list) { attributes = list; });
        ASSERT_EQ(xml.read(EXACT_TEXT), STATUS_SUCCESS);
        EXPECT_THAT(attributes, ElementsAre("x", "R&D &lt; <\""));

        XmlDocument written;
        XmlNode root("a");
        ASSERT_EQ(root.setAttribute(attributes[0], attributes[1]), STATUS_SUCCESS);
        ASSERT_EQ(written.setRootNode(&root), STATUS_SUCCESS);
        written.setOutputFilePath(document.path());
        ASSERT_EQ(written.write(), STATUS_SUCCESS);
    }
}

// ---- How far a text goes ----

TEST_F(XmlEventsTest, CharacterDataGoesOnToTheEndOfTheParsersBuffer)
{
    EXPECT_THAT(eventsOf("<a>hi<b/></a>", Form::ToNul),
                ElementsAre("start a", "text hi<b/></a>", "start b", "end b", "end a"));
    EXPECT_THAT(eventsOf("<a>one<b>two</b>three</a>\n<!-- tail -->", Form::ToNul),
                ElementsAre("start a", "text one<b>two</b>three</a>\n<!-- tail -->", "start b",
                            "text two</b>three</a>\n<!-- tail -->", "end b",
                            "text three</a>\n<!-- tail -->", "end a"));
    EXPECT_THAT(
        eventsOf("<a>hi&amp;<![CDATA[x]]></a>", Form::ToNul),
        ElementsAre("start a", "text hi&amp;<![CDATA[x]]></a>", "text &", "text x", "end a"))
        << "what the parser hands over in a place of its own ends there";
}

TEST_F(XmlEventsTest, EachTextThatRunsOnHasAllThatIsLeftOfTheFile)
{
    std::string document = "<a>";
    std::vector<std::size_t> begins;
    for (int i = 0; i < 200; ++i) {
        document += "<b>";
        begins.push_back(document.size());
        document += "text</b>";
    }
    document += "</a><!--" + std::string(300'000, 'c') + "-->";
    const ScriptFile large(document);
    std::vector<std::size_t> sizes;
    bool equal = true;
    Xml xml(large.path());
    xml.setOnCharacters([&](const std::string& text) {
        const std::size_t begin = sizes.size() < begins.size() ? begins[sizes.size()] : 0;
        equal = equal && document.compare(begin, std::string::npos, text) == 0;
        sizes.push_back(text.size());
    });

    EXPECT_EQ(xml.read(), STATUS_SUCCESS);

    EXPECT_EQ(sizes.size(), begins.size());
    EXPECT_TRUE(equal);
}

TEST_F(XmlEventsTest, ExactTextIsEachRunAlone)
{
    EXPECT_THAT(
        eventsOf("<a>one<b>two</b>three</a>\n<!-- tail -->"),
        ElementsAre("start a", "text one", "start b", "text two", "end b", "text three", "end a"));

    Xml xml;
    xml.setXmlEventListener(&recorder);
    EXPECT_EQ(xml.read(file.path(), EXACT_TEXT), STATUS_SUCCESS);
    EXPECT_EQ(xml.read(EXACT_TEXT), STATUS_SUCCESS);
    EXPECT_THAT(recorder.events(),
                ElementsAre("start a|x|1|y|2", "text hi", "start b", "end b", "end a",
                            "start a|x|1|y|2", "text hi", "start b", "end b", "end a"));
}

TEST_F(XmlEventsTest, ExactTextsPutTogetherAreTheDocumentsText)
{
    const std::string plain = repeated("a line\n", 20'000);
    const std::string accented = repeated("h\u00e9 \u20ac \U0001f600 ", 20'000);
    const std::string latin = repeated("h\xe9 ", 50'000);
    std::string fromLatin;
    for (const char c : latin) {
        fromLatin += c == '\xe9' ? "\u00e9" : std::string(1, c);
    }

    const struct {
        const char* what;
        std::string document;
        std::string text;
    } cases[] = {
        {"ASCII", "<a>" + plain + "</a>", plain},
        {"UTF-8", "<a>" + accented + "</a>", accented},
        {"CDATA", "<a><![CDATA[" + plain + "]]></a>", plain},
        {"CDATA of UTF-8", "<a><![CDATA[" + accented + "]]></a>", accented},
        {"many runs", "<a>" + plain + "<b>&lt;" + accented + "</b>&#x20ac;&amp;" + plain + "</a>",
         plain + "<" + accented + "\u20ac&" + plain},
        {"line ends", "<a>1\r\n2\r3\n</a>", "1\n2\n3\n"},
        {"Latin-1", "<?xml version='1.0' encoding='ISO-8859-1'?><a>" + latin + "</a>", fromLatin},
    };
    for (const auto& exact : cases) {
        EXPECT_TRUE(textOf(exact.document) == exact.text) << exact.what;
    }
}

TEST_F(XmlEventsTest, ExactTextOfUtf16InputIsUtf8)
{
    const std::u16string wide = repeated(u"h\u00e9 \u20ac \U0001f600 ascii ", 10'000);
    const std::string narrow = repeated("h\u00e9 \u20ac \U0001f600 ascii ", 10'000);
    std::string littleEndian;
    std::string bigEndian;
    for (const char16_t unit : u"\ufeff<a>" + wide + u"</a>") {
        const char low = static_cast<char>(unit & 0xff);
        const char high = static_cast<char>(unit >> 8);
        littleEndian.append({low, high});
        bigEndian.append({high, low});
    }

    EXPECT_TRUE(textOf(littleEndian) == narrow);
    EXPECT_TRUE(textOf(bigEndian) == narrow);
}

TEST_F(XmlEventsTest, ExactTextsCostNoMoreThanTheDocumentHas)
{
    std::string document = "<a>";
    std::size_t expected = 0;
    for (int i = 0; i < 20'000; ++i) {
        document += "<b>some text</b>\n";
        expected += std::strlen("some text\n");
    }
    const ScriptFile large(document + "</a>");
    std::size_t total = 0;
    Xml xml(large.path());
    xml.setOnCharacters([&total](const std::string& text) { total += text.size(); });

    EXPECT_EQ(xml.read(EXACT_TEXT), STATUS_SUCCESS);

    EXPECT_EQ(total, expected);
}

// ---- Dispatch ----

TEST_F(XmlEventsTest, AStartTagIsDeliveredWithItsAttributesUpToTheFirstNull)
{
    const char* pairs[] = {"x", "1", "y", "2", nullptr, "z", "3", nullptr};
    const char* odd[] = {"x", nullptr};
    const char* none[] = {nullptr};
    Xml xml;
    xml.setXmlEventListener(&recorder);
    recorder.setFunctions(xml);

    xml.__onStartElement("a", pairs);
    xml.__onStartElement("b", odd);
    xml.__onStartElement("c", none);
    xml.__onStartElement("d", nullptr);

    EXPECT_THAT(recorder.events(),
                ElementsAre("start a|x|1|y|2", "f:start a|x|1|y|2", "start b|x", "f:start b|x",
                            "start c", "f:start c", "start d", "f:start d"));
}

TEST_F(XmlEventsTest, AnEndTagIsDeliveredWithItsName)
{
    Xml xml;
    xml.setXmlEventListener(&recorder);
    recorder.setFunctions(xml);

    xml.__onEndElement("p:a");
    xml.__onEndElement("");

    EXPECT_THAT(recorder.events(), ElementsAre("end p:a", "f:end p:a", "end ", "f:end "));
}

TEST_F(XmlEventsTest, TextIsDeliveredUpToItsFirstNulWhateverItsLengthIsSaidToBe)
{
    Xml xml;
    xml.setXmlEventListener(&recorder);
    recorder.setFunctions(xml);

    xml.__onCharacters("abc", 3);
    xml.__onCharacters("abc", 1);
    xml.__onCharacters("abc\0def", 7);
    xml.__onCharacters("abc", 0);
    xml.__onCharacters("abc", -1);
    xml.__onCharacters("", 0);

    EXPECT_THAT(recorder.events(), ElementsAre("text abc", "f:text abc", "text abc", "f:text abc",
                                               "text abc", "f:text abc", "text abc", "f:text abc",
                                               "text abc", "f:text abc", "text ", "f:text "));
}

TEST_F(XmlEventsTest, ExactTextIsDeliveredAtTheLengthItHas)
{
    const char unterminated[] = {'a', 'b', 'c'};
    Xml xml;
    xml.setXmlEventListener(&recorder);
    recorder.setFunctions(xml);

    xml.__onExactCharacters("abcdef", 3);
    xml.__onExactCharacters(unterminated, 3);
    xml.__onExactCharacters("a\0b", 3);
    xml.__onExactCharacters("abc", 0);

    const std::string withNul("a\0b", 3);
    EXPECT_THAT(recorder.events(),
                ElementsAre("text abc", "f:text abc", "text abc", "f:text abc", "text " + withNul,
                            "f:text " + withNul, "text ", "f:text "));
}

TEST_F(XmlEventsTest, WhatNobodyListensToIsSkippedWithoutBuildingAnything)
{
    const std::string word(100, 'w');  // too long to be kept inside a string object
    const char* attributes[] = {word.c_str(), word.c_str(), nullptr};
    const auto starts = [&](Xml& xml) { xml.__onStartElement(word.c_str(), attributes); };
    const auto ends = [&](Xml& xml) { xml.__onEndElement(word.c_str()); };
    const auto texts = [&](Xml& xml) { xml.__onCharacters(word.c_str(), 100); };
    const auto exactTexts = [&](Xml& xml) { xml.__onExactCharacters(word.c_str(), 100); };
    const auto allocations = [](Xml& xml, const std::function<void(Xml&)>& event) {
        const long before = allocationCount();
        event(xml);
        return allocationCount() - before;
    };

    Xml nobody;
    Xml startOnly;
    startOnly.setOnStartElement([](const std::string&, const Texts&) {});
    Xml endOnly;
    endOnly.setOnEndElement([](const std::string&) {});
    Xml textOnly;
    textOnly.setOnCharacters([](const std::string&) {});

    const struct {
        const char* event;
        std::function<void(Xml&)> deliver;
        Xml* listening;
    } cases[] = {
        {"start", starts, &startOnly},
        {"end", ends, &endOnly},
        {"text", texts, &textOnly},
        {"exact text", exactTexts, &textOnly},
    };
    for (const auto& dispatch : cases) {
        for (Xml* xml : {&nobody, &startOnly, &endOnly, &textOnly}) {
            const long count = allocations(*xml, dispatch.deliver);
            if (xml == dispatch.listening) {
                EXPECT_GT(count, 0) << dispatch.event;
            } else {
                EXPECT_EQ(count, 0) << dispatch.event;
            }
        }
    }
}

// ---- The handler table ----

/** What a parser is given to call, and with what. */
struct Handlers {
    xmlSAXHandler table = {};
    void* context = nullptr;
};

/** Reads with this reader, and looks at what the parser was given. */
Handlers handlersOf(Xml& xml, const std::string& path, Form form)
{
    Handlers handlers;
    const XmlCalls engine([&handlers](xmlParserCtxtPtr context) {
        handlers.table = *context->sax;
        handlers.context = context->userData;
    });
    EXPECT_EQ(read(xml, path, form), STATUS_SUCCESS);
    EXPECT_EQ(engine.parsesBegun(), 1);
    return handlers;
}

TEST_F(XmlEventsTest, TheParserIsGivenThreeHandlersAndNothingElse)
{
    for (const Form form : FORMS) {
        Xml xml;
        const Handlers handlers = handlersOf(xml, file.path(), form);
        const xmlSAXHandler& table = handlers.table;

        EXPECT_EQ(handlers.context, &xml);
        EXPECT_NE(table.startElement, nullptr);
        EXPECT_NE(table.endElement, nullptr);
        EXPECT_NE(table.characters, nullptr);

        EXPECT_EQ(table.internalSubset, nullptr);
        EXPECT_EQ(table.isStandalone, nullptr);
        EXPECT_EQ(table.hasInternalSubset, nullptr);
        EXPECT_EQ(table.hasExternalSubset, nullptr);
        EXPECT_EQ(table.resolveEntity, nullptr);
        EXPECT_EQ(table.getEntity, nullptr);
        EXPECT_EQ(table.entityDecl, nullptr);
        EXPECT_EQ(table.notationDecl, nullptr);
        EXPECT_EQ(table.attributeDecl, nullptr);
        EXPECT_EQ(table.elementDecl, nullptr);
        EXPECT_EQ(table.unparsedEntityDecl, nullptr);
        EXPECT_EQ(table.setDocumentLocator, nullptr);
        EXPECT_EQ(table.startDocument, nullptr);
        EXPECT_EQ(table.endDocument, nullptr);
        EXPECT_EQ(table.reference, nullptr);
        EXPECT_EQ(table.ignorableWhitespace, nullptr);
        EXPECT_EQ(table.processingInstruction, nullptr);
        EXPECT_EQ(table.comment, nullptr);
        EXPECT_EQ(table.warning, nullptr);
        EXPECT_EQ(table.error, nullptr);
        EXPECT_EQ(table.fatalError, nullptr);
        EXPECT_EQ(table.getParameterEntity, nullptr);
        EXPECT_EQ(table.cdataBlock, nullptr);
        EXPECT_EQ(table.externalSubset, nullptr);
        EXPECT_EQ(table.initialized, 0u) << "the first generation of events";
        EXPECT_EQ(table._private, nullptr);
        EXPECT_EQ(table.startElementNs, nullptr);
        EXPECT_EQ(table.endElementNs, nullptr);
        EXPECT_EQ(table.serror, nullptr);
    }
}

TEST_F(XmlEventsTest, AHandlerDropsWhatHasNoReaderOrNoText)
{
    for (const Form form : FORMS) {
        Xml xml;
        xml.setXmlEventListener(&recorder);
        const Handlers handlers = handlersOf(xml, file.path(), form);
        const xmlSAXHandler& table = handlers.table;
        recorder.clear();
        LogCapture log;
        const auto logged = [](const char* function, const char* message) {
            return LoggedIn("OxXml.cpp", function, message);
        };

        table.startElement(nullptr, xmlText("a"), nullptr);
        table.startElement(nullptr, nullptr, nullptr);
        table.startElement(&xml, nullptr, nullptr);
        table.endElement(nullptr, xmlText("a"));
        table.endElement(nullptr, nullptr);
        table.endElement(&xml, nullptr);
        EXPECT_THAT(log.lines(), ElementsAre(logged("startElement", "Please check context."),
                                             logged("startElement", "Please check context."),
                                             logged("startElement", "Invalid parameter,"),
                                             logged("endElement", "Please check context."),
                                             logged("endElement", "Please check context."),
                                             logged("endElement", "Invalid parameter,")));

        log.clear();
        table.characters(nullptr, xmlText("t"), 1);
        table.characters(nullptr, nullptr, 0);
        table.characters(&xml, nullptr, 0);
        EXPECT_THAT(log.lines(), ElementsAre(logged("characters", "Please check context."),
                                             logged("characters", "Please check context."),
                                             logged("characters", "Invalid parameter,")));
        EXPECT_THAT(recorder.events(), IsEmpty());
    }
}

TEST_F(XmlEventsTest, AHandlerForwardsAttributesAndLengthUnchanged)
{
    for (const Form form : FORMS) {
        recorder.clear();
        Xml xml;
        xml.setXmlEventListener(&recorder);
        {
            const XmlCalls engine([](xmlParserCtxtPtr context) {
                const xmlChar* attributes[] = {xmlText("x"), xmlText("1"), nullptr};
                context->sax->startElement(context->userData, xmlText("first"), attributes);
                context->sax->startElement(context->userData, xmlText("second"), nullptr);
                context->sax->endElement(context->userData, xmlText("second"));
                context->sax->characters(context->userData, xmlText("abcdef"), 3);
            });
            EXPECT_EQ(read(xml, file.path(), form), STATUS_SUCCESS);
        }
        ASSERT_THAT(recorder.events(), SizeIs(Ge(4u)));
        EXPECT_EQ(recorder.events()[0], "start first|x|1");
        EXPECT_EQ(recorder.events()[1], "start second");
        EXPECT_EQ(recorder.events()[2], "end second");
        EXPECT_EQ(recorder.events()[3], form == Form::Exact ? "text abc" : "text abcdef");
    }
}

}  // namespace
}  // namespace oxil::test
