#pragma once

#include <cstddef>
#include <iosfwd>
#include <string>
#include <vector>

/** What tests of an application may use beside the library, of any framework or none. */
namespace oxil::test {

/** One call of the platform's logger. */
struct LogLine {
    int logId = -1;        ///< the log buffer; the main one, 0, is the library's
    int priority = -1;     ///< 6 for errors, 4 for what scripts print
    std::string tag;       ///< "OX" for the library's own lines
    bool framed = false;   ///< whether the format begins with the frame "%s: %s(%d) > "
    std::string file;      ///< first field of the frame, the base name of a source; or empty
    std::string function;  ///< second field of the frame, without class or arguments; or empty
    int line = 0;          ///< third field of the frame; or 0
    std::string message;   ///< what follows the frame
};

/** Writes everything that is known of the line, as a failed test shows it. */
std::ostream& operator<<(std::ostream& stream, const LogLine& line);

/**
 * Collects what is logged while it lives, in a test program.
 *
 * The program links `oxil::testing` (with pkg-config: `oxil-testing`), which defines
 * `__dlog_print`: a definition in the executable wins over the one of the platform, be it the stand-in
 * of a development host or the device's own library. So the program must not define that function
 * itself, and the platform's log gets nothing. Lines of the application's own are collected, too, if
 * they come by `__dlog_print`.
 *
 * Captures nest; the innermost one gets the line. They are destroyed in the opposite order.
 *
 * A line that is logged while none lives is an error: quiet paths are quiet without saying so. It is
 * written to the standard error output and ends the process with abort(), unless onUnexpected() says
 * otherwise. OxLogMatchers.h makes it a failure of the running test of GoogleTest.
 *
 * @par Threads
 * Lines may come from any thread. A capture is made and destroyed on one thread, and read when no
 * other thread logs.
 *
 * @par Example
 * @snippet application/nightlight_test.cpp capture
 */
class LogCapture {
public:
    LogCapture();

    /** Counts all lines, and keeps no more than the first @p most. */
    explicit LogCapture(std::size_t most);

    ~LogCapture();

    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    /** What has been logged since it was made, or since clear(), in order. */
    const std::vector<LogLine>& lines() const { return __lines; }

    /** How many lines there were since it was made, also those that are not kept or were cleared. */
    int count() const { return __count; }

    /** Forgets the lines that are kept. */
    void clear() { __lines.clear(); }

    /** What is told of a line that no capture expects; on the thread that logs. */
    using UnexpectedLine = void (*)(const LogLine& line);

    /**
     * Has a function called for each line that no capture expects, instead of ending the process.
     *
     * With a framework that has no header here this is a line of `main()`: a function that fails the
     * running test and goes on.
     *
     * @param function  null for abort() again
     * @return the function so far, null for abort()
     */
    static UnexpectedLine onUnexpected(UnexpectedLine function);

    /** Gives a line to the innermost capture; for the logger. */
    static void __add(const LogLine& line);

private:
    std::size_t __most;
    int __count = 0;
    LogCapture* __outer;
    std::vector<LogLine> __lines;
};

}  // namespace oxil::test
