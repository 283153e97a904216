#pragma once

#include "OxPlatform.h"

namespace oxil::internal {

inline constexpr int LOG_ID_MAIN = 0;
inline constexpr int LOG_PRIORITY_INFO = 4;
inline constexpr int LOG_PRIORITY_ERROR = 6;

[[gnu::format(printf, 1, 2)]] inline void checkFormat(const char*, ...) {}

// Out of the callers' hot paths; one instance for each list of argument types.
template <typename... Args>
[[gnu::cold, gnu::noinline]] void logPrint(int priority, const char* file, const char* function,
                                           int line, const char* format, Args... args)
{
    __dlog_print(LOG_ID_MAIN, priority, "OX", format, file, function, line, args...);
}

}  // namespace oxil::internal

/**
 * Logs a message with file, function and line in front.
 *
 * Not for use in a lambda or a helper on behalf of a member: the function named is the one that the
 * line stands in.
 */
#define OX_LOG(priority, ...) OX_LOG_AS(__func__, priority, __VA_ARGS__)

/** The same in the name of an inline function, which has only the rare path written elsewhere. */
#define OX_LOG_AS(function, priority, ...)                                      \
    do {                                                                        \
        if (false) {                                                            \
            ::oxil::internal::checkFormat(__VA_ARGS__);                         \
        }                                                                       \
        ::oxil::internal::logPrint(priority, __FILE_NAME__, function, __LINE__, \
                                   "%s: %s(%d) > " __VA_ARGS__);                \
    } while (false)

#define OX_ERROR(...) OX_LOG(::oxil::internal::LOG_PRIORITY_ERROR, __VA_ARGS__)
#define OX_ERROR_AS(function, ...) \
    OX_LOG_AS(function, ::oxil::internal::LOG_PRIORITY_ERROR, __VA_ARGS__)
