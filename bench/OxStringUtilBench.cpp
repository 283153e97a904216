// Splitting text into tokens.

#include "OxStringUtil.h"

#include <array>
#include <climits>
#include <cstddef>
#include <cstring>
#include <random>
#include <string>
#include <utility>
#include <vector>

#ifdef HAS_ABSL_STRINGS
#include <absl/strings/str_split.h>
#endif

#include "Contender.h"

namespace oxil::bench {
namespace {

using Tokens = std::vector<std::string>;

struct Sample {
    std::string text;
    Tokens tokens;
};

/** Lower-case words of 1 to 24 letters, ended now and then by more than one delimiter. */
Sample makeWords(int count, const std::string& delimiters)
{
    std::mt19937 random(1);
    Sample sample;
    for (int i = 0; i < count; ++i) {
        std::string word(1 + random() % 24, ' ');
        for (char& letter : word) {
            letter = static_cast<char>('a' + random() % 26);
        }
        sample.text += word;
        sample.tokens.push_back(word);
        do {
            sample.text += delimiters[random() % delimiters.size()];
        } while (random() % 8 == 0);
    }
    return sample;
}

/** What finds one delimiter, and what finds any of several, fast. */
struct OneDelimiter {
    const char* find(const char* start, const char* end) const
    {
        const auto size = static_cast<std::size_t>(end - start);
        const void* found = std::memchr(start, delimiter, size);
        return found != nullptr ? static_cast<const char*>(found) : end;
    }
    bool operator()(char character) const { return character == delimiter; }

    char delimiter;
};

struct AnyDelimiter {
    const char* find(const char* start, const char* end) const
    {
        while (start != end && !(*this)(*start)) {
            ++start;
        }
        return start;
    }
    bool operator()(char character) const { return table[static_cast<unsigned char>(character)]; }

    std::array<bool, UCHAR_MAX + 1> table;
};

template <typename Delimiter>
Tokens splitPlainly(const std::string& text, const Delimiter& isDelimiter)
{
    Tokens tokens;
    const char* const end = text.data() + text.size();
    tokens.reserve(text.size() / 8);  // a guess that saves the growing
    for (const char* at = text.data(); at != end;) {
        if (isDelimiter(*at)) {
            ++at;
            continue;
        }
        const char* const start = at;
        at = isDelimiter.find(start + 1, end);
        tokens.emplace_back(start, static_cast<std::size_t>(at - start));
    }
    return tokens;
}

Tokens splitByHand(const std::string& text, const std::string& delimiters)
{
    if (delimiters.size() == 1) {
        return splitPlainly(text, OneDelimiter{delimiters[0]});
    }
    AnyDelimiter any{};
    for (const char delimiter : delimiters) {
        any.table[static_cast<unsigned char>(delimiter)] = true;
    }
    return splitPlainly(text, any);
}

Tokens splitByStrtok(const std::string& text, const std::string& delimiters)
{
    Tokens tokens;
    std::string copy = text;  // strtok_r() writes into it
    char* rest = nullptr;
    for (const char* token = strtok_r(copy.data(), delimiters.c_str(), &rest); token != nullptr;
         token = strtok_r(nullptr, delimiters.c_str(), &rest)) {
        tokens.emplace_back(token);
    }
    return tokens;
}

#ifdef HAS_ABSL_STRINGS
Tokens splitByAbsl(const std::string& text, const std::string& delimiters)
{
    if (delimiters.size() == 1) {
        return absl::StrSplit(text, delimiters[0], absl::SkipEmpty());
    }
    return absl::StrSplit(text, absl::ByAnyChar(delimiters), absl::SkipEmpty());
}
#endif

void addTokens(const std::string& contender,
               Tokens (*split)(const std::string&, const std::string&),
               const std::vector<int>& sizes)
{
    const std::pair<const char*, const char*> kinds[] = {{"tokens: several delimiters", " ,;\t\n"},
                                                         {"tokens: one delimiter", ","}};
    for (const auto& [operation, delimiters] : kinds) {
        for (const int words : sizes) {
            const Sample sample = makeWords(words, delimiters);
            competeAt(
                words, operation, contender,
                [=, delimiters = std::string(delimiters)] {
                    return split(sample.text, delimiters);
                },
                sample.tokens);
        }
    }
}

}  // namespace
}  // namespace oxil::bench

int main(int argc, char** argv)
{
    using namespace oxil::bench;

    addTokens("floor", splitByHand, {100, 100000});
    addTokens("oxil", oxil::StringUtil::getTokens, {10, 100, 1000, 10000, 100000});
    addTokens("strtok_r", splitByStrtok, {100, 100000});
#ifdef HAS_ABSL_STRINGS
    addTokens("absl", splitByAbsl, {100, 100000});
#endif
    return run(argc, argv);
}
