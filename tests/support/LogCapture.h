#pragma once

#include <gmock/gmock.h>

#include <cstddef>
#include <string>
#include <vector>

namespace oxil::test {

/** One call of the platform's logger. */
struct LogLine {
    int logId = -1;
    int priority = -1;
    std::string tag;
    bool framed = false;   ///< whether the format begins with the frame "%s: %s(%d) > "
    std::string file;      ///< first field of the frame
    std::string function;  ///< second field of the frame
    int line = 0;          ///< third field of the frame
    std::string message;   ///< what follows the frame
};

void PrintTo(const LogLine& line, std::ostream* stream);

/**
 * Collects what is logged while it lives. Captures nest; the innermost one gets the line.
 *
 * What is logged while none lives fails the running test: quiet paths are quiet without saying so.
 */
class LogCapture {
public:
    LogCapture();

    /** Counts all lines, and keeps no more than the first @p most. */
    explicit LogCapture(std::size_t most);

    ~LogCapture();

    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    const std::vector<LogLine>& lines() const { return __lines; }
    int count() const { return __count; }
    void clear() { __lines.clear(); }
    void add(const LogLine& line);

private:
    std::size_t __most;
    int __count = 0;
    LogCapture* __outer;
    std::vector<LogLine> __lines;
};

/**
 * Matches an error line of the library: main buffer, error priority, tag "OX", the frame with the
 * base name of a library file and a line number, this function and exactly this message.
 */
testing::Matcher<const LogLine&> Logged(const std::string& function, const std::string& message);

/** The same, and the file's base name is this one. */
testing::Matcher<const LogLine&> LoggedIn(const std::string& file, const std::string& function,
                                          const std::string& message);

/** LoggedIn() for a file that is named once: `const LoggedBy logged("OxTimer.cpp");`. */
class LoggedBy {
public:
    explicit LoggedBy(const std::string& file) : __file(file) {}

    testing::Matcher<const LogLine&> operator()(const std::string& function,
                                                const std::string& message) const
    {
        return LoggedIn(__file, function, message);
    }

private:
    std::string __file;
};

}  // namespace oxil::test
