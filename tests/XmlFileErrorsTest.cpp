// Plain files that change or fail while they are read or written.

#include <OxPlainFile.h>
#include <OxStatus.h>
#include <OxXml.h>
#include <OxXmlDocument.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <libxml/parser.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <functional>
#include <string>

#include "AllocationFailure.h"
#include "OutputFile.h"
#include "OxLogMatchers.h"
#include "ScriptFile.h"
#include "StreamCalls.h"

namespace oxil::test {
namespace {

using testing::ElementsAre;

[[gnu::format(printf, 2, 3)]] void append(void* text, const char* format, ...)
{
    char message[8192];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(message, sizeof message, format, arguments);
    va_end(arguments);
    static_cast<std::string*>(text)->append(message);
}

/** What libxml2 says meanwhile. */
std::string messagesOf(const std::function<void()>& function)
{
    std::string text;
    xmlSetGenericErrorFunc(&text, append);
    function();
    xmlSetGenericErrorFunc(nullptr, nullptr);
    return text;
}

/** The number that the next file gets that is opened. */
int nextDescriptor()
{
    const int next = dup(STDIN_FILENO);
    close(next);
    return next;
}

class XmlFileErrorsTest : public testing::Test {
protected:
    /** Reads the file while its descriptor misbehaves. */
    int read(const std::function<void(StreamCalls&)>& misbehave)
    {
        Xml xml;
        xml.setOnCharacters([this](const std::string& text) { heard += text; });
        StreamCalls calls({nextDescriptor()});
        misbehave(calls);
        const int r = xml.read(file.path(), PLAIN_FILE);
        EXPECT_GT(calls.readCount(), 0);
        return r;
    }

    const ScriptFile file{"<a>text</a>"};
    std::string heard;
};

TEST_F(XmlFileErrorsTest, ASignalDoesNotEndTheReading)
{
    EXPECT_EQ(read([](StreamCalls& calls) { calls.disturb(EINTR); }), STATUS_SUCCESS);
    EXPECT_EQ(heard, "text");
}

TEST_F(XmlFileErrorsTest, AByteAtATimeIsEnough)
{
    EXPECT_EQ(read([](StreamCalls& calls) { calls.passAtMost(1); }), STATUS_SUCCESS);
    EXPECT_EQ(heard, "text");
}

TEST_F(XmlFileErrorsTest, AReadThatFailsIsReported)
{
    LogCapture log;

    EXPECT_EQ(read([](StreamCalls& calls) { calls.failReading(EIO); }), STATUS_INVALID_PARAMETER);

    EXPECT_THAT(log.lines(), ElementsAre(LoggedIn("OxXml.cpp", "read",
                                                  "File open failed : (" + file.path() + ")(" +
                                                      std::strerror(EIO) + ")")));
    EXPECT_EQ(heard, "");
}

TEST_F(XmlFileErrorsTest, OfAFileThatIsCutMeanwhileThereIsWhatIsLeft)
{
    LogCapture log;

    EXPECT_EQ(read([this](StreamCalls& calls) {
                  calls.passAtMost(5);
                  calls.whenRead([this] { EXPECT_EQ(truncate(file.path().c_str(), 7), 0); });
              }),
              STATUS_INVALID_PARAMETER);

    EXPECT_THAT(log.lines(), ElementsAre(LoggedIn("OxXml.cpp", "read", "Xml parsing failed")));
    EXPECT_EQ(heard, "text");
}

TEST_F(XmlFileErrorsTest, AStreamThatCannotBeMadeWritesNothing)
{
    const OutputFile output("stream");
    output.fill("old");
    XmlDocument document;
    document.setOutputFilePath(output.path());
    LogCapture log;
    {
        const AllocationFailure failure(Allocation::Malloc);
        EXPECT_EQ(document.write(PLAIN_FILE), STATUS_INVALID_STATE);
        EXPECT_TRUE(failure.happened());
    }
    EXPECT_THAT(log.lines(), ElementsAre(LoggedIn("OxXmlDocument.cpp", "write",
                                                  "File open failed : (" + output.path() + ")(" +
                                                      std::strerror(ENOMEM) + ")")));
    EXPECT_EQ(nextDescriptor(), nextDescriptor());
}

// ---- Messages of the engine

TEST_F(XmlFileErrorsTest, OfALongMessageThatThereIsNoMemoryForTheBeginningArrives)
{
    const std::string name(3000, 'n');
    file.write("<a><" + name + "></a>");
    Xml xml("any");
    LogCapture log;
    const std::string whole = messagesOf([&] { EXPECT_EQ(xml.load(file.path()), nullptr); });
    const std::string cut = messagesOf([&] {
        const AllocationFailure failure(Allocation::NothrowNew);
        EXPECT_EQ(xml.load(file.path()), nullptr);
        EXPECT_TRUE(failure.happened());
    });

    const std::size_t place = whole.find(name.substr(0, 500));
    ASSERT_NE(place, std::string::npos);
    EXPECT_EQ(whole.compare(place, name.size(), name), 0);
    EXPECT_EQ(cut.compare(0, place + 500, whole, 0, place + 500), 0);
    EXPECT_LT(cut.size(), whole.size() - 1500);
}

}  // namespace
}  // namespace oxil::test
