#pragma once

#include <OxXml.h>

#include <OxStatus.h>
#include <OxXmlDocument.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <libxml/parser.h>
#include <libxml/tree.h>

#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "NativeXml.h"
#include "OxLogMatchers.h"
#include "ScriptFile.h"

namespace oxil::test {

using Texts = std::vector<std::string>;

/** How far the text of a run of character data goes. */
enum class Form { ToNul, Exact };

inline constexpr Form FORMS[] = {Form::ToNul, Form::Exact};

inline int read(Xml& xml, const std::string& path, Form form)
{
    return form == Form::Exact ? xml.read(path, EXACT_TEXT) : xml.read(path);
}

inline int read(Xml& xml, Form form)
{
    return form == Form::Exact ? xml.read(EXACT_TEXT) : xml.read();
}

/**
 * Writes events down, one line each ("start a|x|1", "end a", "text hi"), and then does what the
 * test wants. Hears of them as a listener, by functions, or both.
 */
class Recorder : public IXmlEventListener {
public:
    using Reaction = std::function<void(const std::string& event)>;

    void onStartElement(const std::string& name, const Texts& attributes) override
    {
        start("", name, attributes);
    }

    void onEndElement(const std::string& name) override { note("end " + name); }

    void onCharacters(const std::string& text) override { note("text " + text); }

    /** Sets functions, whose lines begin with `f:` to tell them from the listener's. */
    void setFunctions(Xml& xml, const std::string& prefix = "f:")
    {
        xml.setOnStartElement([this, prefix](const std::string& name, const Texts& attributes) {
            start(prefix, name, attributes);
        });
        xml.setOnEndElement(
            [this, prefix](const std::string& name) { note(prefix + "end " + name); });
        xml.setOnCharacters(
            [this, prefix](const std::string& text) { note(prefix + "text " + text); });
    }

    void react(const Reaction& reaction) { __reaction = reaction; }

    /** Does this at one event only, recognised by its line. */
    void reactTo(const std::string& event, const std::function<void()>& reaction)
    {
        __reaction = [event, reaction](const std::string& line) {
            if (line == event) {
                reaction();
            }
        };
    }

    const Texts& events() const { return __events; }

    /** The last event, empty if there was none. */
    std::string last() const { return __events.empty() ? "" : __events.back(); }

    void clear() { __events.clear(); }

private:
    void start(const std::string& prefix, const std::string& name, const Texts& attributes)
    {
        std::string line = prefix + "start " + name;
        for (const std::string& attribute : attributes) {
            line += "|" + attribute;
        }
        note(line);
    }

    void note(const std::string& line)
    {
        __events.push_back(line);
        if (__reaction) {
            __reaction(line);
        }
    }

    Texts __events;
    Reaction __reaction;
};

template <typename Char>
std::basic_string<Char> repeated(const Char* text, int count)
{
    std::basic_string<Char> all;
    for (int i = 0; i < count; ++i) {
        all += text;
    }
    return all;
}

/** A reader, a document for it, and somebody who listens. */
class XmlReading : public testing::Test {
protected:
    /** Reads a document with a fresh reader, and gives the events that its listener had. */
    static Texts eventsOf(const std::string& document, Form form = Form::Exact,
                          int expected = STATUS_SUCCESS)
    {
        const ScriptFile file(document);
        Recorder recorder;
        Xml xml(file.path());
        xml.setXmlEventListener(&recorder);
        EXPECT_EQ(read(xml, form), expected);
        return recorder.events();
    }

    /** The texts of all runs put together. */
    static std::string textOf(const std::string& document)
    {
        const ScriptFile file(document);
        std::string all;
        Xml xml(file.path());
        xml.setOnCharacters([&](const std::string& text) {
            all += text;
            if (all.size() > 2 * document.size()) {  // UTF-8 may need more bytes than the document
                throw std::length_error("more text than the document can have");
            }
        });
        EXPECT_EQ(xml.read(EXACT_TEXT), STATUS_SUCCESS);
        return all;
    }

    static testing::Matcher<const LogLine&> readLogs(const std::string& message)
    {
        return LoggedIn("OxXml.cpp", "read", message);
    }

    static testing::Matcher<const LogLine&> loadLogs(const std::string& message)
    {
        return LoggedIn("OxXml.cpp", "load", message);
    }

    /** That load() could make nothing of this file; why is what the system last said. */
    static testing::Matcher<const LogLine&> loadFails(const std::string& path)
    {
        return testing::AllOf(
            testing::Field("logId", &LogLine::logId, 0),
            testing::Field("priority", &LogLine::priority, 6),
            testing::Field("tag", &LogLine::tag, "OX"),
            testing::Field("framed", &LogLine::framed, true),
            testing::Field("file", &LogLine::file, "OxXml.cpp"),
            testing::Field("function", &LogLine::function, "load"),
            testing::Field(
                "message", &LogLine::message,
                testing::AllOf(testing::StartsWith("Invalid state. (" + path + ")("),
                               testing::EndsWith(")"), testing::Not(testing::EndsWith("()")))));
    }

    /** The name of a document's root element. */
    static std::string rootOf(const XmlDocument& document)
    {
        const xmlNode* root = xmlDocGetRootElement(document.__getNativeDocument());
        return root != nullptr ? reinterpret_cast<const char*>(root->name) : "";
    }

    /** Loads with the path that is remembered, and gives the root's name; "" without document. */
    static std::string loadedRoot(Xml& xml)
    {
        const std::unique_ptr<XmlDocument> document(xml.load());
        return document ? rootOf(*document) : "";
    }

    const ScriptFile file{"<a x='1' y='2'>hi<b/></a>"};
    Recorder recorder;
};

}  // namespace oxil::test
