#include <poll.h>
#include <stdio.h>  // flockfile
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <memory>
#include <new>
#include <string_view>

#include "OxPlatform.h"

namespace {

/** Puts errno back; what is logged is often about to be reported by it. */
class ErrnoKeeper {
public:
    ErrnoKeeper() : __number(errno) {}
    ~ErrnoKeeper() { restore(); }

    ErrnoKeeper(const ErrnoKeeper&) = delete;
    ErrnoKeeper& operator=(const ErrnoKeeper&) = delete;

    void restore() const { errno = __number; }

private:
    const int __number;
};

/**
 * Keeps the other threads' lines out while one is written in pieces.
 *
 * The stream's own lock also keeps out the application's own output to it, and unlike a mutex it is
 * free again in the child of a fork().
 */
class StderrLock {
public:
    StderrLock() { flockfile(stderr); }
    ~StderrLock() { funlockfile(stderr); }

    StderrLock(const StderrLock&) = delete;
    StderrLock& operator=(const StderrLock&) = delete;
};

char priorityLetter(int priority)
{
    constexpr std::string_view LETTERS = "VDIWEF";
    constexpr int FIRST = 2;

    if (priority < FIRST || priority - FIRST >= static_cast<int>(LETTERS.size())) {
        return '?';
    }
    return LETTERS[static_cast<std::size_t>(priority - FIRST)];
}

bool isControl(char character)
{
    const auto byte = static_cast<unsigned char>(character);
    return byte < 0x20 || byte == 0x7f;
}

/** A character takes at most this much room when it is shown escaped: \x00. */
constexpr std::size_t WIDEST_ESCAPE = 4;

/** Returns the end of what it put down. */
char* putEscaped(char* end, std::string_view text)
{
    constexpr char DIGITS[] = "0123456789abcdef";

    for (const char character : text) {
        if (!isControl(character)) {
            *end++ = character;
            continue;
        }
        *end++ = '\\';
        if (character == '\n') {
            *end++ = 'n';
        } else if (character == '\r') {
            *end++ = 'r';
        } else if (character == '\t') {
            *end++ = 't';
        } else {
            const auto byte = static_cast<unsigned char>(character);
            *end++ = 'x';
            *end++ = DIGITS[byte >> 4U];
            *end++ = DIGITS[byte & 0xfU];
        }
    }
    return end;
}

/**
 * Room for a text, on the stack as long as that suffices: "Memory allocation failed" gets out also
 * where it is true.
 */
template <std::size_t SIZE>
class Room {
public:
    /** Returns null if memory ran out. To be called once. */
    char* reserve(std::size_t size)
    {
        if (size <= SIZE) {
            return __stack;
        }
        __heap.reset(new (std::nothrow) char[size]);
        return __heap.get();
    }

private:
    char __stack[SIZE];
    std::unique_ptr<char[]> __heap;
};

/** Returns 0 or a negative error number. */
int writeWhole(std::string_view text)
{
    const StderrLock lock;

    while (!text.empty()) {
        const ssize_t written = write(STDERR_FILENO, text.data(), text.size());
        if (written >= 0) {
            text.remove_prefix(static_cast<std::size_t>(written));
        } else if (errno == EAGAIN) {
            // Whoever shares the terminal may have made it non-blocking.
            pollfd writable{STDERR_FILENO, POLLOUT, 0};
            poll(&writable, 1, -1);
        } else if (errno != EINTR) {
            return -errno;
        }
    }
    return 0;
}

__attribute__((format(printf, 3, 0))) int print(int priority, std::string_view tag,
                                                const char* format, va_list arguments)
{
    const ErrnoKeeper callersErrno;

    va_list measured;
    va_copy(measured, arguments);
    const int length = std::vsnprintf(nullptr, 0, format, measured);
    va_end(measured);
    if (length < 0) {
        return -errno;
    }

    const std::size_t size = static_cast<std::size_t>(length) + 1;
    Room<1024> messageRoom;
    char* const message = messageRoom.reserve(size);
    if (message == nullptr) {
        return -ENOMEM;
    }
    callersErrno.restore();  // for %m
    std::vsnprintf(message, size, format, arguments);

    std::string_view text(message, size - 1);
    if (!text.empty() && text.back() == '\n') {
        text.remove_suffix(1);
    }

    constexpr std::size_t FRAME = std::string_view("E/: \n").size();
    if (text.size() + tag.size() > (INT_MAX - FRAME) / WIDEST_ESCAPE) {
        return -EOVERFLOW;
    }
    Room<4096> lineRoom;
    char* const line = lineRoom.reserve(FRAME + (text.size() + tag.size()) * WIDEST_ESCAPE);
    if (line == nullptr) {
        return -ENOMEM;
    }

    char* end = line;
    *end++ = priorityLetter(priority);
    *end++ = '/';
    end = putEscaped(end, tag);
    *end++ = ':';
    *end++ = ' ';
    end = putEscaped(end, text);
    *end++ = '\n';

    const std::string_view whole(line, static_cast<std::size_t>(end - line));
    const int status = writeWhole(whole);
    return status < 0 ? status : static_cast<int>(whole.size());
}

}  // namespace

[[gnu::format(printf, 4, 5)]] int __dlog_print(int /*logId*/, int priority, const char* tag,
                                               const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const int result = print(priority, tag == nullptr ? "(null)" : tag,
                             format == nullptr ? "(null)" : format, arguments);
    va_end(arguments);
    return result;
}
