#pragma once

/**
 * @file
 * Log lines in tests with GoogleTest and GoogleMock, which the program links itself.
 *
 * In a program that includes this header, anywhere, a line that no LogCapture expects fails the running
 * test.
 */

#include <gmock/gmock.h>

#include <string>

#include "OxLogCapture.h"

namespace oxil::test {

/**
 * Matches an error line of the library: main buffer, error priority, tag "OX", the frame with the
 * base name of a library file and a line number, this function and exactly this message.
 *
 * Other lines are matched by their fields: `testing::Field(&LogLine::message, "text")`.
 *
 * @param function  as the log has it: "getKeyValue", without class or arguments
 * @param message   the text behind the frame, with its arguments
 */
inline testing::Matcher<const LogLine&> Logged(const std::string& function,
                                               const std::string& message)
{
    return testing::AllOf(
        testing::Field("logId", &LogLine::logId, 0),
        testing::Field("priority", &LogLine::priority, 6),
        testing::Field("tag", &LogLine::tag, "OX"),
        testing::Field("framed", &LogLine::framed, true),
        testing::Field("file", &LogLine::file, testing::MatchesRegex("Ox[A-Za-z]+[.](cpp|h)")),
        testing::Field("line", &LogLine::line, testing::Gt(0)),
        testing::Field("function", &LogLine::function, function),
        testing::Field("message", &LogLine::message, message));
}

/** The same, and the file's base name is this one. */
inline testing::Matcher<const LogLine&> LoggedIn(const std::string& file,
                                                 const std::string& function,
                                                 const std::string& message)
{
    return testing::AllOf(Logged(function, message), testing::Field("file", &LogLine::file, file));
}

/** LoggedIn() for a file that is named once: `const LoggedBy logged("OxTimer.cpp");`. */
class LoggedBy {
public:
    explicit LoggedBy(const std::string& file) : __file(file) {}  ///< for lines of this file

    /** Matches a line of that file. */
    testing::Matcher<const LogLine&> operator()(const std::string& function,
                                                const std::string& message) const
    {
        return LoggedIn(__file, function, message);
    }

private:
    std::string __file;
};

/** Matches what `Log.print` of a script writes: a line at information priority with this message. */
inline testing::Matcher<const LogLine&> Printed(const std::string& message)
{
    return testing::AllOf(testing::Field("logId", &LogLine::logId, 0),
                          testing::Field("priority", &LogLine::priority, 4),
                          testing::Field("tag", &LogLine::tag, "OX"),
                          testing::Field("framed", &LogLine::framed, true),
                          testing::Field("file", &LogLine::file, "OxBaseLuaApi.cpp"),
                          testing::Field("line", &LogLine::line, testing::Gt(0)),
                          testing::Field("function", &LogLine::function, "print"),
                          testing::Field("message", &LogLine::message, message));
}

/** Fails the running test; what LogCapture::onUnexpected() is given by this header. */
inline void failUnexpected(const LogLine& line)
{
    ADD_FAILURE() << "unexpected log line: " << line;
}

/** What was told of such lines before this header was there. */
inline const LogCapture::UnexpectedLine __toldBefore = LogCapture::onUnexpected(failUnexpected);

}  // namespace oxil::test
