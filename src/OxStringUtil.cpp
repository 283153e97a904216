#include "OxStringUtil.h"

#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstring>

#include "OxLog.h"

namespace oxil {
namespace {

/** Finds the ends of tokens at one delimiter. */
class OneDelimiter {
public:
    explicit OneDelimiter(char delimiter) : __delimiter(delimiter) {}

    bool contains(char character) const { return character == __delimiter; }

    const char* find(const char* start, const char* end) const
    {
        const void* found = std::memchr(start, static_cast<unsigned char>(__delimiter),
                                        static_cast<std::size_t>(end - start));
        return found != nullptr ? static_cast<const char*>(found) : end;
    }

private:
    char __delimiter;
};

/** Finds the ends of tokens at any of a set of delimiters. */
class SeveralDelimiters {
public:
    explicit SeveralDelimiters(const std::string& delimiters)
    {
        for (const char delimiter : delimiters) {
            __isDelimiter[static_cast<unsigned char>(delimiter)] = true;
        }
    }

    bool contains(char character) const
    {
        return __isDelimiter[static_cast<unsigned char>(character)];
    }

    const char* find(const char* start, const char* end) const
    {
        while (start != end && !contains(*start)) {
            ++start;
        }
        return start;
    }

private:
    bool __isDelimiter[UCHAR_MAX + 1] = {};
};

/**
 * Makes room for the tokens of a text of that size, if all of it is like the part that is read.
 *
 * Growing moves every token, so it is done in few steps; not in one, though, because the beginning
 * of a text may mislead. A thousand tokens take 0.9 of the instructions that way (callgrind).
 */
void makeRoom(std::vector<std::string>& tokens, std::size_t read, std::size_t size)
{
    constexpr std::size_t FIRST = 8;
    constexpr std::size_t MOST_TIMES = 8;

    const std::size_t count = tokens.size();
    if (count == 0) {
        tokens.reserve(FIRST);
        return;
    }
    const std::size_t expected = size / (read / count);  // each has taken 2 characters or more
    tokens.reserve(std::clamp(expected + expected / 8, count + count / 2, MOST_TIMES * count));
}

template <typename Delimiters>
std::vector<std::string> split(const std::string& text, const Delimiters& delimiters)
{
    std::vector<std::string> tokens;
    const char* const begin = text.data();
    const char* const end = begin + text.size();
    for (const char* at = begin; at != end;) {
        if (delimiters.contains(*at)) {
            ++at;
            continue;
        }
        const char* const start = at;
        at = delimiters.find(start + 1, end);
        if (tokens.size() == tokens.capacity()) {
            makeRoom(tokens, static_cast<std::size_t>(start - begin), text.size());
        }
        tokens.emplace_back(start, static_cast<std::size_t>(at - start));
    }
    return tokens;
}

}  // namespace

std::vector<std::string> StringUtil::getTokens(const std::string& text,
                                               const std::string& delimiters)
{
    if (text.empty()) {
        OX_ERROR("Invalid parameter.");
        return {};
    }
    if (delimiters.empty()) {
        OX_ERROR("Invalid parameter.");
        return {};
    }
    if (delimiters.size() == 1) {
        return split(text, OneDelimiter(delimiters[0]));
    }
    return split(text, SeveralDelimiters(delimiters));
}

}  // namespace oxil
