// Splitting text into tokens.

#include "OxStringUtil.h"

#include <bitset>
#include <climits>
#include <cstddef>
#include <cstring>
#include <random>
#include <string>
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

    /** Lower-case words of 1 to 24 letters, ended now and then by more than one delimiter. */
    void addWord(const std::string& delimiters)
    {
        std::string word(1 + random() % 24, ' ');
        for (char& letter : word) {
            letter = static_cast<char>('a' + random() % 26);
        }
        text += word;
        tokens.push_back(word);
        do {
            text += delimiters[random() % delimiters.size()];
        } while (random() % 8 == 0);
    }

    std::mt19937 random{1};
};

Sample makeText(std::size_t size, const std::string& delimiters)
{
    Sample sample;
    while (sample.text.size() < size) {
        sample.addWord(delimiters);
    }
    return sample;
}

Sample makeWords(int count, const std::string& delimiters)
{
    Sample sample;
    for (int i = 0; i < count; ++i) {
        sample.addWord(delimiters);
    }
    return sample;
}

Tokens splitByTable(const std::string& text, const std::string& delimiters)
{
    std::bitset<UCHAR_MAX + 1> table;
    for (const char delimiter : delimiters) {
        table.set(static_cast<unsigned char>(delimiter));
    }
    const auto isDelimiter = [&](const char* at) { return table[static_cast<unsigned char>(*at)]; };

    Tokens tokens;
    const char* at = text.data();
    const char* const end = at + text.size();
    while (at != end) {
        if (isDelimiter(at)) {
            ++at;
            continue;
        }
        const char* const start = at;
        do {
            ++at;
        } while (at != end && !isDelimiter(at));
        tokens.emplace_back(start, at);
    }
    return tokens;
}

/** It writes into what it splits, so that has to be a copy. */
Tokens splitByStrtok(std::string text, const std::string& delimiters)
{
    Tokens tokens;
    char* rest = nullptr;
    for (const char* token = strtok_r(text.data(), delimiters.c_str(), &rest); token != nullptr;
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

void addTokens(const std::string& operation, int size, const std::string& delimiters)
{
    const Sample sample = makeText(static_cast<std::size_t>(size), delimiters);
    const std::string text = sample.text;

    competeAt(
        size, operation, "floor", [=] { return splitByTable(text, delimiters); }, sample.tokens);
    competeAt(
        size, operation, "oxil", [=] { return StringUtil::getTokens(text, delimiters); },
        sample.tokens);
    competeAt(
        size, operation, "strtok_r", [=] { return splitByStrtok(text, delimiters); },
        sample.tokens);
#ifdef HAS_ABSL_STRINGS
    competeAt(
        size, operation, "absl", [=] { return splitByAbsl(text, delimiters); }, sample.tokens);
#endif
}

void addGrowth(int count)
{
    const std::string delimiters = " ,;\t\n";
    const Sample sample = makeWords(count, delimiters);
    const std::string text = sample.text;

    competeAt(
        count, "growth: tokenise", "oxil", [=] { return StringUtil::getTokens(text, delimiters); },
        sample.tokens);
}

}  // namespace
}  // namespace oxil::bench

int main(int argc, char** argv)
{
    for (const int size : {1024, 1024 * 1024}) {
        oxil::bench::addTokens("tokens: several delimiters", size, " ,;\t\n");
        oxil::bench::addTokens("tokens: one delimiter", size, ",");
    }
    for (int count = 10; count <= 100000; count *= 10) {
        oxil::bench::addGrowth(count);
    }
    return oxil::bench::run(argc, argv);
}
