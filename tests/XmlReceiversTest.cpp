#include <OxXml.h>

#include <OxStatus.h>
#include <OxXmlDocument.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "FileCalls.h"
#include "OxLogMatchers.h"
#include "ScriptFile.h"
#include "XmlCalls.h"
#include "XmlReading.h"

namespace oxil::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::SizeIs;

class XmlReceiversTest : public XmlReading {};

// ---- Copies ----

TEST_F(XmlReceiversTest, ACopyHasThePathAndTheFunctionsAndSharesTheListener)
{
    const ScriptFile other("<other/>");
    Recorder functions;
    auto source = std::make_unique<Xml>(file.path());
    source->setXmlEventListener(&recorder);
    functions.setFunctions(*source, "");

    Xml copy(*source);
    Xml assigned(other.path());
    assigned.setOnEndElement([](const std::string&) { ADD_FAILURE() << "it was replaced"; });
    assigned = *source;
    EXPECT_EQ(source->read(other.path()), STATUS_SUCCESS);
    source->setOnStartElement(nullptr);
    source.reset();

    for (Xml* xml : {&copy, &assigned}) {
        recorder.clear();
        functions.clear();
        EXPECT_EQ(xml->read(EXACT_TEXT), STATUS_SUCCESS);
        EXPECT_THAT(recorder.events(),
                    ElementsAre("start a|x|1|y|2", "text hi", "start b", "end b", "end a"));
        EXPECT_EQ(functions.events(), recorder.events());
    }
}

// ---- Changing receivers ----

TEST_F(XmlReceiversTest, AReaderKeepsACopyOfAFunctionAndDestroysItAtLast)
{
    const auto start = std::make_shared<int>(0);
    const auto end = std::make_shared<int>(0);
    const auto text = std::make_shared<int>(0);
    {
        Xml xml(file.path());
        xml.setOnStartElement([start](const std::string&, const Texts&) { ++*start; });
        xml.setOnEndElement([end](const std::string&) { ++*end; });
        xml.setOnCharacters([text](const std::string&) { ++*text; });
        EXPECT_EQ(start.use_count(), 2);
        EXPECT_EQ(end.use_count(), 2);
        EXPECT_EQ(text.use_count(), 2);

        EXPECT_EQ(xml.read(), STATUS_SUCCESS);
        EXPECT_EQ(*start, 2);
        EXPECT_EQ(*end, 2);
        EXPECT_EQ(*text, 1);

        xml.setOnStartElement(nullptr);
        EXPECT_EQ(start.use_count(), 1);
    }
    EXPECT_EQ(end.use_count(), 1);
    EXPECT_EQ(text.use_count(), 1);
}

TEST_F(XmlReceiversTest, AListenerStaysTheCallersAndMayBeGoneBeforeTheReader)
{
    auto listener = std::make_unique<Recorder>();
    Xml xml(file.path());
    xml.setXmlEventListener(listener.get());
    EXPECT_EQ(xml.read(), STATUS_SUCCESS);
    EXPECT_THAT(listener->events(), SizeIs(5));

    listener.reset();
}

TEST_F(XmlReceiversTest, AFunctionThatCannotBeCopiedLeavesTheOldOneInPlace)
{
    struct Uncopyable {
        explicit Uncopyable(bool* refuse) : refusing(refuse) {}
        Uncopyable(const Uncopyable& other) : refusing(other.refusing)
        {
            if (*refusing) {
                throw std::runtime_error("no copy");
            }
        }
        void operator()(const std::string&, const Texts&) const {}
        void operator()(const std::string&) const {}
        bool* refusing;
    };

    bool refuse = false;
    const Xml::StartElementCallback start = Uncopyable(&refuse);
    const Xml::EndElementCallback end = Uncopyable(&refuse);
    refuse = true;
    Xml xml(file.path());
    recorder.setFunctions(xml, "");

    EXPECT_THROW(xml.setOnStartElement(start), std::runtime_error);
    EXPECT_THROW(xml.setOnEndElement(end), std::runtime_error);
    EXPECT_THROW(xml.setOnCharacters(end), std::runtime_error);

    EXPECT_EQ(xml.read(EXACT_TEXT), STATUS_SUCCESS);
    EXPECT_THAT(recorder.events(),
                ElementsAre("start a|x|1|y|2", "text hi", "start b", "end b", "end a"));
}

TEST_F(XmlReceiversTest, WhatAFunctionSetsCountsFromTheNextEventOn)
{
    const ScriptFile document("<a>1<b>2</b>3</a>");
    const Texts all = {"start a", "text 1", "start b", "text 2", "end b", "text 3", "end a"};
    for (const std::string& event : all) {
        SCOPED_TRACE(event);
        Recorder before;
        Recorder after;
        Xml xml(document.path());
        before.setFunctions(xml, "");
        before.reactTo(event, [&] {
            xml.setXmlEventListener(&after);
            after.setFunctions(xml);
        });

        EXPECT_EQ(xml.read(EXACT_TEXT), STATUS_SUCCESS);

        const auto next = std::find(all.begin(), all.end(), event) + 1;
        Texts rest;
        for (auto later = next; later != all.end(); ++later) {
            rest.insert(rest.end(), {*later, "f:" + *later});
        }
        EXPECT_EQ(before.events(), Texts(all.begin(), next));
        EXPECT_EQ(after.events(), rest);
    }
}

TEST_F(XmlReceiversTest, FunctionsThatAListenerSetsHearOfTheSameEventAndAnotherListenerOfTheNext)
{
    const ScriptFile document("<a>1<b>2</b>3</a>");
    const Texts all = {"start a", "text 1", "start b", "text 2", "end b", "text 3", "end a"};
    for (const std::string& event : all) {
        SCOPED_TRACE(event);
        Recorder before;
        Recorder after;
        Recorder functions;
        Xml xml(document.path());
        xml.setXmlEventListener(&before);
        before.reactTo(event, [&] {
            xml.setXmlEventListener(&after);
            functions.setFunctions(xml, "");
        });

        EXPECT_EQ(xml.read(EXACT_TEXT), STATUS_SUCCESS);

        const auto same = std::find(all.begin(), all.end(), event);
        EXPECT_EQ(before.events(), Texts(all.begin(), same + 1));
        EXPECT_EQ(after.events(), Texts(same + 1, all.end()));
        EXPECT_EQ(functions.events(), Texts(same, all.end()));
    }
}

TEST_F(XmlReceiversTest, WhatIsRemovedInsideAnEventIsNotCalledAnyMore)
{
    const ScriptFile document("<a>1<b>2</b>3</a>");
    for (const std::string prefix : {"", "f:"}) {
        for (const std::string kind : {"start b", "text 2", "end b"}) {
            const std::string event = prefix + kind;
            SCOPED_TRACE(event);
            recorder.clear();
            Xml xml(document.path());
            xml.setXmlEventListener(&recorder);
            recorder.setFunctions(xml);
            recorder.reactTo(event, [&xml] {
                xml.setXmlEventListener(nullptr);
                xml.setOnStartElement(nullptr);
                xml.setOnEndElement(nullptr);
                xml.setOnCharacters(nullptr);
            });

            EXPECT_EQ(xml.read(EXACT_TEXT), STATUS_SUCCESS);

            EXPECT_EQ(recorder.last(), event);
        }
    }
}

TEST_F(XmlReceiversTest, OneKindOfFunctionMayBeReplacedFromInsideAnother)
{
    Texts events;
    Xml xml(file.path());
    xml.setOnStartElement([&](const std::string& name, const Texts&) {
        xml.setOnEndElement(
            [&events, name](const std::string& end) { events.push_back(name + " " + end); });
    });

    EXPECT_EQ(xml.read(), STATUS_SUCCESS);

    EXPECT_THAT(events, ElementsAre("b b", "b a"));
}

TEST_F(XmlReceiversTest, AFunctionThatReplacesItselfStillHasWhatItCaptured)
{
    const ScriptFile document("<a>1<b>2</b>3</a>");
    using Own = std::shared_ptr<const std::string>;
    using WeakOwn = std::weak_ptr<const std::string>;
    const auto made = [](const char* text) { return std::make_shared<const std::string>(text); };

    for (const bool removing : {false, true}) {
        Texts events;
        std::vector<WeakOwn> captured;
        const auto use = [&](const WeakOwn& own) {
            const Own alive = own.lock();
            events.push_back(alive ? *alive : "gone");
            captured.push_back(own);
        };
        Xml xml(document.path());
        const auto replacement = [&](const char* text) -> std::function<void(const std::string&)> {
            if (removing) {
                return nullptr;
            }
            return [&events, text](const std::string&) { events.push_back(text); };
        };

        xml.setOnStartElement([&, own = made("own start")](const std::string&, const Texts&) {
            const WeakOwn watch = own;
            if (removing) {
                xml.setOnStartElement(nullptr);
            } else {
                xml.setOnStartElement(
                    [&](const std::string&, const Texts&) { events.push_back("new start"); });
            }
            use(watch);
        });
        xml.setOnEndElement([&, own = made("own end")](const std::string&) {
            const WeakOwn watch = own;
            xml.setOnEndElement(replacement("new end"));
            use(watch);
        });
        xml.setOnCharacters([&, own = made("own text")](const std::string&) {
            const WeakOwn watch = own;
            xml.setOnCharacters(replacement("new text"));
            use(watch);
        });

        EXPECT_EQ(xml.read(EXACT_TEXT), STATUS_SUCCESS);

        if (removing) {
            EXPECT_THAT(events, ElementsAre("own start", "own text", "own end"));
        } else {
            EXPECT_THAT(events, ElementsAre("own start", "own text", "new start", "new text",
                                            "own end", "new text", "new end"));
        }
        for (const WeakOwn& own : captured) {
            EXPECT_TRUE(own.expired()) << "what was replaced is destroyed";
        }
    }
}

TEST_F(XmlReceiversTest, AListenerMayRemoveAndDestroyItselfInsideAnEvent)
{
    struct Once : IXmlEventListener {
        Once(Xml& reader, int& calls) : xml(reader), count(calls) {}
        void onStartElement(const std::string&, const Texts&) override {}
        void onEndElement(const std::string&) override
        {
            ++count;
            xml.setXmlEventListener(nullptr);
            delete this;
        }
        void onCharacters(const std::string&) override {}
        Xml& xml;
        int& count;
    };

    int calls = 0;
    Xml xml(file.path());
    recorder.setFunctions(xml, "");
    xml.setXmlEventListener(new Once(xml, calls));

    EXPECT_EQ(xml.read(), STATUS_SUCCESS);

    EXPECT_EQ(calls, 1);
    EXPECT_THAT(recorder.events(), SizeIs(5));
}

TEST_F(XmlReceiversTest, AFunctionsOwnStateLastsFromOneEventToTheNextAndFromReadToRead)
{
    std::vector<int> starts;
    std::vector<int> ends;
    std::vector<int> texts;
    const ScriptFile document("<a>1<b>2</b></a>");
    Xml xml(document.path());
    Xml::EndElementCallback end = [&, n = 0](const std::string&) mutable { ends.push_back(++n); };
    xml.setOnStartElement(
        [&, n = 0](const std::string&, const Texts&) mutable { starts.push_back(++n); });
    xml.setOnEndElement(end);
    xml.setOnCharacters([&, n = 0](const std::string&) mutable { texts.push_back(++n); });

    EXPECT_EQ(xml.read(), STATUS_SUCCESS);
    EXPECT_EQ(xml.read(EXACT_TEXT), STATUS_SUCCESS);
    end("the caller's own");

    EXPECT_THAT(starts, ElementsAre(1, 2, 3, 4));
    EXPECT_THAT(ends, ElementsAre(1, 2, 3, 4, 1)) << "the reader has a copy";
    EXPECT_THAT(texts, ElementsAre(1, 2, 3, 4));
}

// ---- A read inside a read ----

TEST_F(XmlReceiversTest, AnotherReaderMayReadInsideAnEvent)
{
    const ScriptFile inner("<i>in</i>");
    for (const std::string event : {"start b", "text out", "end b"}) {
        for (const Form form : FORMS) {
            const ScriptFile outer("<o><b>out</b></o>");
            Xml other(inner.path());
            other.setXmlEventListener(&recorder);
            recorder.clear();
            Xml xml(outer.path());
            xml.setXmlEventListener(&recorder);
            recorder.reactTo(event, [&] { EXPECT_EQ(read(other, form), STATUS_SUCCESS); });

            EXPECT_EQ(xml.read(EXACT_TEXT), STATUS_SUCCESS);

            Texts expected = {"start o", "start b", "text out", "end b", "end o"};
            const auto place = std::find(expected.begin(), expected.end(), event);
            const Texts nested = {"start i", form == Form::Exact ? "text in" : "text in</i>",
                                  "end i"};
            expected.insert(place + 1, nested.begin(), nested.end());
            EXPECT_EQ(recorder.events(), expected);
        }
    }
}

TEST_F(XmlReceiversTest, AReaderMayReadAnotherFileInsideItsOwnEvent)
{
    const ScriptFile outer("<o><b>out</b>more</o>");
    const ScriptFile inner("<i>in</i>");
    for (const bool byFunction : {false, true}) {
        recorder.clear();
        FileCalls files;
        Xml xml(outer.path());
        if (byFunction) {
            recorder.setFunctions(xml, "");
        } else {
            xml.setXmlEventListener(&recorder);
        }
        recorder.reactTo("start b", [&] { EXPECT_EQ(xml.read(inner.path()), STATUS_SUCCESS); });

        EXPECT_EQ(xml.read(EXACT_TEXT), STATUS_SUCCESS);
        EXPECT_TRUE(files.isEverythingReleased());
        EXPECT_THAT(recorder.events(), ElementsAre("start o", "start b",               //
                                                   "start i", "text in</i>", "end i",  //
                                                   "text out", "end b", "text more", "end o"))
            << "each of the two keeps its form";

        recorder.clear();
        EXPECT_EQ(xml.read(EXACT_TEXT), STATUS_SUCCESS);
        EXPECT_THAT(recorder.events(), ElementsAre("start i", "text in", "end i"))
            << "the path of the inner one is the one remembered";
    }
}

TEST_F(XmlReceiversTest, AnEventThatIsDeliveredFromInsideAnotherLeavesItsTextsAlone)
{
    Recorder inside;
    Xml other;
    inside.setFunctions(other, "");
    const auto deliver = [&other] {
        const char* attributes[] = {"u", "v", nullptr};
        other.__onStartElement("other", attributes);
        other.__onCharacters("other text", 10);
        other.__onExactCharacters("exact text", 10);
        other.__onEndElement("other");
    };

    Texts seen;
    Xml xml(file.path());
    xml.setOnStartElement([&](const std::string& name, const Texts& attributes) {
        deliver();
        seen.push_back("start " + name);
        seen.insert(seen.end(), attributes.begin(), attributes.end());
    });
    xml.setOnEndElement([&](const std::string& name) {
        deliver();
        seen.push_back("end " + name);
    });
    xml.setOnCharacters([&](const std::string& text) {
        deliver();
        seen.push_back("text " + text);
    });

    EXPECT_EQ(read(xml, Form::Exact), STATUS_SUCCESS);

    EXPECT_THAT(seen,
                ElementsAre("start a", "x", "1", "y", "2", "text hi", "start b", "end b", "end a"));
    // Five times the same four events.
    EXPECT_THAT(inside.events(), SizeIs(20));
    EXPECT_EQ(Texts(inside.events().begin(), inside.events().begin() + 4),
              Texts({"start other|u|v", "text other text", "text exact text", "end other"}));
}

TEST_F(XmlReceiversTest, AFunctionsOwnStateIsOneInNestedReadsToo)
{
    const ScriptFile inner("<i/>");
    std::vector<int> counts;
    Xml xml(file.path());
    xml.setOnStartElement([&, n = 0](const std::string& name, const Texts&) mutable {
        counts.push_back(++n);
        if (name == "a") {
            EXPECT_EQ(xml.read(inner.path()), STATUS_SUCCESS);
            counts.push_back(n);
        }
    });

    EXPECT_EQ(xml.read(), STATUS_SUCCESS);

    EXPECT_THAT(counts, ElementsAre(1, 2, 2, 3));
}

TEST_F(XmlReceiversTest, AnInnerReadThatFailsDoesNotStopTheOuterOne)
{
    const LogCapture log;
    const ScriptFile malformed("<i>");
    Xml xml(file.path());
    xml.setXmlEventListener(&recorder);
    recorder.reactTo("start b",
                     [&] { EXPECT_EQ(xml.read(malformed.path()), STATUS_INVALID_PARAMETER); });

    EXPECT_EQ(xml.read(EXACT_TEXT), STATUS_SUCCESS);

    EXPECT_THAT(recorder.events(),
                ElementsAre("start a|x|1|y|2", "text hi", "start b", "start i", "end b", "end a"));
    EXPECT_THAT(log.lines(), ElementsAre(readLogs("Xml parsing failed")));
}

TEST_F(XmlReceiversTest, ALoadInsideAnEventDoesNotDisturbTheRead)
{
    const ScriptFile inner("<i/>");
    Xml xml(file.path());
    xml.setXmlEventListener(&recorder);
    recorder.reactTo("start b", [&] {
        const std::unique_ptr<XmlDocument> document(xml.load(inner.path()));
        ASSERT_NE(document, nullptr);
        EXPECT_EQ(rootOf(*document), "i");
    });

    EXPECT_EQ(xml.read(EXACT_TEXT), STATUS_SUCCESS);

    EXPECT_THAT(recorder.events(), SizeIs(5));
}

// ---- Exceptions ----

/** What only an exception object of the right type and content can tell. */
struct Refusal : std::runtime_error {
    explicit Refusal(const std::string& event) : std::runtime_error("refused: " + event) {}
};

TEST_F(XmlReceiversTest, AnExceptionStopsTheParserAndReachesTheCallerOfTheRead)
{
    const ScriptFile document("<a><b x='1'/>1<c>2</c>3<d/></a>");
    const Texts all = {"start a", "start b|x|1", "end b",   "text 1", "start c", "text 2",
                       "end c",   "text 3",      "start d", "end d",  "end a"};
    const std::string prefixes[] = {"", "f:"};

    for (std::size_t last = 0; last < all.size(); ++last) {
        for (const std::string& prefix : prefixes) {
            const std::string event = prefix + all[last];
            SCOPED_TRACE(event);
            recorder.clear();
            FileCalls files;
            XmlCalls engine;
            Xml xml(document.path());
            xml.setXmlEventListener(&recorder);
            recorder.setFunctions(xml);
            recorder.reactTo(event, [&event] { throw Refusal(event); });

            try {
                xml.read(EXACT_TEXT);
                ADD_FAILURE() << "no exception";
            } catch (const Refusal& refusal) {
                EXPECT_EQ(refusal.what(), "refused: " + event);
            }

            EXPECT_EQ(recorder.events().size(), 2 * last + (prefix.empty() ? 1 : 2));
            EXPECT_EQ(recorder.last(), event);
            EXPECT_TRUE(files.isEverythingReleased());
            EXPECT_THAT(files.calls(), Contains("fclose"));
            EXPECT_TRUE(engine.isContextFreed());
            EXPECT_EQ(engine.parsesReturned(), 1) << "no frame of libxml2 was unwound";
            EXPECT_EQ(engine.memoryCleanups(), 0);
        }
    }
}

TEST_F(XmlReceiversTest, AnExceptionMayBeOfAnyTypeInBothFormsAndOneReaderGoesOn)
{
    for (const Form form : FORMS) {
        const std::string text = form == Form::Exact ? "text hi" : "text hi<b/></a>";
        Xml xml(file.path());
        xml.setXmlEventListener(&recorder);
        for (const std::string& event :
             {std::string("start a|x|1|y|2"), text, std::string("start b"), std::string("end a")}) {
            SCOPED_TRACE(event);

            recorder.reactTo(event, [] { throw 42; });
            try {
                read(xml, form);
                ADD_FAILURE() << "no exception";
            } catch (int thrown) {
                EXPECT_EQ(thrown, 42);
            }
            EXPECT_EQ(recorder.last(), event);

            recorder.reactTo(event, [] { throw std::out_of_range("far out"); });
            EXPECT_THROW(read(xml, form), std::out_of_range);
            EXPECT_EQ(recorder.last(), event);

            recorder.reactTo(event, [] { throw std::make_unique<int>(7); });
            EXPECT_THROW(read(xml, form), std::unique_ptr<int>);

            recorder.react(nullptr);
            recorder.clear();
            EXPECT_EQ(read(xml, form), STATUS_SUCCESS);
            EXPECT_THAT(recorder.events(),
                        ElementsAre("start a|x|1|y|2", text, "start b", "end b", "end a"));
            EXPECT_EQ(loadedRoot(xml), "a");
            recorder.clear();
        }
    }
}

TEST_F(XmlReceiversTest, AFunctionThatThrewIsStillThereWithItsState)
{
    std::vector<int> starts;
    std::vector<int> ends;
    std::vector<int> texts;
    Xml xml(file.path());
    const auto count = [](std::vector<int>& counts, int& n) {
        counts.push_back(++n);
        if (n == 1) {
            throw Refusal("first");
        }
    };
    xml.setOnStartElement(
        [&, n = 0](const std::string&, const Texts&) mutable { count(starts, n); });
    xml.setOnCharacters([&, n = 0](const std::string&) mutable { count(texts, n); });
    xml.setOnEndElement([&, n = 0](const std::string&) mutable { count(ends, n); });

    EXPECT_THROW(xml.read(), Refusal);
    EXPECT_THROW(xml.read(EXACT_TEXT), Refusal);
    EXPECT_THROW(xml.read(), Refusal);
    EXPECT_EQ(xml.read(), STATUS_SUCCESS);

    EXPECT_THAT(starts, ElementsAre(1, 2, 3, 4, 5, 6));
    EXPECT_THAT(texts, ElementsAre(1, 2, 3));
    EXPECT_THAT(ends, ElementsAre(1, 2, 3));
}

TEST_F(XmlReceiversTest, AnExceptionLeavesNoFurtherRunOfALongText)
{
    std::string text;
    while (text.size() < 5'000) {
        text += "h\u00e9 ";
    }
    const ScriptFile document("<a>" + text + "&amp;<![CDATA[" + text + "]]></a>");
    for (const Form form : FORMS) {
        int texts = 0;
        Xml xml(document.path());
        xml.setOnCharacters([&texts](const std::string&) {
            ++texts;
            throw Refusal("text");
        });

        EXPECT_THROW(read(xml, form), Refusal);

        EXPECT_EQ(texts, 1);
    }
}

TEST_F(XmlReceiversTest, AnExceptionCountsMoreThanAnErrorThatWouldHaveFollowed)
{
    const ScriptFile malformed("<a><b></a>");
    for (const Form form : FORMS) {
        recorder.clear();
        FileCalls files;
        Xml xml(malformed.path());
        xml.setXmlEventListener(&recorder);
        recorder.reactTo("start b", [] { throw Refusal("start b"); });

        EXPECT_THROW(read(xml, form), Refusal);  // logs nothing

        EXPECT_THAT(recorder.events(), ElementsAre("start a", "start b"));
        EXPECT_TRUE(files.isEverythingReleased());
    }
}

TEST_F(XmlReceiversTest, AnExceptionOfAnInnerReadStopsTheInnerOneOnlyIfItIsCaught)
{
    const ScriptFile inner("<i>1<j/></i>");
    for (const bool sameReader : {false, true}) {
        for (const Form form : FORMS) {
            recorder.clear();
            Xml xml(file.path());
            Xml other;
            xml.setXmlEventListener(&recorder);
            other.setXmlEventListener(&recorder);
            recorder.react([&](const std::string& event) {
                if (event == "start b") {
                    EXPECT_THROW(read(sameReader ? xml : other, inner.path(), form), Refusal);
                } else if (event == "start j") {
                    throw Refusal(event);
                }
            });

            EXPECT_EQ(xml.read(EXACT_TEXT), STATUS_SUCCESS);

            EXPECT_THAT(recorder.events(),
                        ElementsAre("start a|x|1|y|2", "text hi", "start b", "start i",
                                    form == Form::Exact ? "text 1" : "text 1<j/></i>", "start j",
                                    "end b", "end a"));
        }
    }
}

TEST_F(XmlReceiversTest, AnExceptionOfAnInnerReadThatIsNotCaughtStopsBoth)
{
    const ScriptFile inner("<i>1<j/></i>");
    for (const bool sameReader : {false, true}) {
        for (const Form form : FORMS) {
            recorder.clear();
            FileCalls files;
            XmlCalls engine;
            Xml xml(file.path());
            Xml other;
            xml.setXmlEventListener(&recorder);
            other.setXmlEventListener(&recorder);
            recorder.react([&](const std::string& event) {
                if (event == "start b") {
                    read(sameReader ? xml : other, inner.path(), form);
                } else if (event == "start j") {
                    throw Refusal(event);
                }
            });

            try {
                xml.read(EXACT_TEXT);
                ADD_FAILURE() << "no exception";
            } catch (const Refusal& refusal) {
                EXPECT_STREQ(refusal.what(), "refused: start j");
            }

            EXPECT_EQ(recorder.last(), "start j");
            EXPECT_TRUE(files.isEverythingReleased());
            EXPECT_EQ(engine.parsesReturned(), 2);

            recorder.react(nullptr);
            recorder.clear();
            EXPECT_EQ(xml.read(file.path(), EXACT_TEXT), STATUS_SUCCESS);
            EXPECT_THAT(recorder.events(), SizeIs(5));
        }
    }
}

TEST_F(XmlReceiversTest, AnExceptionAfterAnInnerReadStopsTheOuterOne)
{
    const ScriptFile inner("<i/>");
    Xml xml(file.path());
    xml.setXmlEventListener(&recorder);
    recorder.reactTo("start b", [&] {
        EXPECT_EQ(xml.read(inner.path()), STATUS_SUCCESS);
        throw Refusal("start b");
    });

    EXPECT_THROW(xml.read(EXACT_TEXT), Refusal);

    EXPECT_THAT(recorder.events(),
                ElementsAre("start a|x|1|y|2", "text hi", "start b", "start i", "end i"));
}

TEST_F(XmlReceiversTest, AnExceptionOfADirectDeliveryReachesItsCaller)
{
    Xml xml;
    xml.setXmlEventListener(&recorder);
    recorder.setFunctions(xml);
    recorder.react([](const std::string& event) { throw Refusal(event); });

    EXPECT_THROW(xml.__onStartElement("a", nullptr), Refusal);
    EXPECT_THROW(xml.__onEndElement("a"), Refusal);
    EXPECT_THROW(xml.__onCharacters("t", 1), Refusal);
    EXPECT_THROW(xml.__onExactCharacters("t", 1), Refusal);

    EXPECT_THAT(recorder.events(), ElementsAre("start a", "end a", "text t", "text t"));
}

}  // namespace
}  // namespace oxil::test
