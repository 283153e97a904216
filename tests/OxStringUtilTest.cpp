#include "OxStringUtil.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <type_traits>
#include <vector>

#include "AllocationFailure.h"
#include "OxLogMatchers.h"

namespace oxil::test {
namespace {

using namespace std::string_literals;

using testing::ElementsAre;
using testing::IsEmpty;

using Tokens = std::vector<std::string>;

// The initializer names exactly one type, so an overload or another result is refused here.
constexpr Tokens (*GET_TOKENS)(const std::string&, const std::string&) = &StringUtil::getTokens;

static_assert(!std::is_default_constructible_v<StringUtil>);
static_assert(std::is_empty_v<StringUtil>);

// ---- Empty arguments ----------------------------------------------------------------------------

void expectRefused(const std::string& text, const std::string& delimiters)
{
    LogCapture log;

    EXPECT_THAT(GET_TOKENS(text, delimiters), IsEmpty());

    EXPECT_THAT(log.lines(),
                ElementsAre(LoggedIn("OxStringUtil.cpp", "getTokens", "Invalid parameter.")));
}

TEST(StringUtilTest, EmptyTextHasNoTokensAndIsLogged)
{
    expectRefused("", ",");
}

TEST(StringUtilTest, EmptyDelimitersGiveNoTokensAndAreLogged)
{
    expectRefused("a,b", "");
}

TEST(StringUtilTest, BothArgumentsEmptyAreLoggedOnce)
{
    expectRefused("", "");
}

TEST(StringUtilTest, NulIsTextAndDelimiter)
{
    EXPECT_THAT(StringUtil::getTokens("\0"s, ","), ElementsAre("\0"s));
    EXPECT_THAT(StringUtil::getTokens("a", "\0"s), ElementsAre("a"));
    EXPECT_THAT(StringUtil::getTokens("\0"s, "\0"s), IsEmpty());
}

// ---- Tokens -------------------------------------------------------------------------------------

TEST(StringUtilTest, TextIsSplitAtEveryCharacterOfTheDelimiters)
{
    struct Row {
        std::string text;
        std::string delimiters;
        Tokens tokens;
    };
    const std::vector<Row> rows = {
        {"a,b", ",", {"a", "b"}},
        {"a,,b", ",", {"a", "b"}},
        {" ab\tcd ", " \t", {"ab", "cd"}},
        {"whole text", ",", {"whole text"}},
        {"x", ",", {"x"}},
        {",", ",", {}},
        {",;, ;", ",; ", {}},
        {",a", ",", {"a"}},
        {"a,", ",", {"a"}},
        {",,,a,,,", ",", {"a"}},
        // a set, not a separator
        {"one::two:three", "::", {"one", "two", "three"}},
        {"key=value;key=other", ";=", {"key", "value", "key", "other"}},
        {"a, b", ", ", {"a", "b"}},
        {"a b", ", ", {"a", "b"}},
        {"abcab", "ba", {"c"}},
        // tokens that are alike stay, in their order
        {"b,a,b,a", ",", {"b", "a", "b", "a"}},
        {"A,a", "a", {"A,"}},
        {"a\nb\r\nc", "\r\n", {"a", "b", "c"}},
        {"1.5e3", ".", {"1", "5e3"}},
        // bytes of any value
        {"a\0b\0\0c"s, "\0"s, {"a", "b", "c"}},
        {"a\0b,c"s, ",", {"a\0b"s, "c"}},
        {"a\0b,c"s, ",\0"s, {"a", "b", "c"}},
        {"a\0b,c"s, "\0,"s, {"a", "b", "c"}},
        {"\0a\0"s, ","s, {"\0a\0"s}},
        {"a\xff\x80z", "\xff", {"a", "\x80z"}},
        {"a\xff\x80z", "\x7f", {"a\xff\x80z"}},
        {"a\x7fz", "\xff", {"a\x7fz"}},
        {"\xc3\xa4\xc3\xb6", "\xc3", {"\xa4", "\xb6"}},
    };

    for (const Row& row : rows) {
        EXPECT_EQ(StringUtil::getTokens(row.text, row.delimiters), row.tokens)
            << testing::PrintToString(row.text) << " at " << testing::PrintToString(row.delimiters);
    }
}

TEST(StringUtilTest, ArgumentsMayBeTheSameText)
{
    const std::string text = "a,b";

    EXPECT_THAT(StringUtil::getTokens(text, text), IsEmpty());
}

TEST(StringUtilTest, AnyByteIsADelimiter)
{
    for (int i = 0; i < 256; ++i) {
        const char delimiter = static_cast<char>(i);
        const std::string left = i == 'l' ? "L" : "l";
        const std::string right = i == 'r' ? "R" : "r";

        EXPECT_THAT(StringUtil::getTokens(left + delimiter + right, std::string(1, delimiter)),
                    ElementsAre(left, right))
            << i;
    }
}

std::string allBytes()
{
    std::string bytes;
    for (int i = 0; i < 256; ++i) {
        bytes += static_cast<char>(i);
    }
    return bytes;
}

TEST(StringUtilTest, AllBytesAreDelimitersAtOnce)
{
    EXPECT_THAT(StringUtil::getTokens(allBytes(), allBytes()), IsEmpty());
    EXPECT_THAT(StringUtil::getTokens("anything", allBytes()), IsEmpty());
}

TEST(StringUtilTest, AllBytesButOneAreDelimiters)
{
    for (std::size_t i = 0; i < 256; ++i) {
        const std::string bytes = allBytes();
        const std::string token(3, bytes[i]);
        std::string others = bytes;
        others.erase(i, 1);

        EXPECT_THAT(StringUtil::getTokens(others + token + others, others), ElementsAre(token))
            << i;
    }
}

TEST(StringUtilTest, AllBytesButOneAreText)
{
    for (std::size_t i = 1; i < 255; ++i) {
        const std::string bytes = allBytes();

        EXPECT_THAT(StringUtil::getTokens(bytes, bytes.substr(i, 1)),
                    ElementsAre(bytes.substr(0, i), bytes.substr(i + 1)))
            << i;
    }
}

// ---- All texts of a kind ------------------------------------------------------------------------

/** All texts over an alphabet up to a length, the empty one first. */
Tokens allTexts(const std::string& alphabet, std::size_t length)
{
    Tokens texts = {""};
    for (std::size_t i = 0; i < texts.size(); ++i) {
        if (texts[i].size() < length) {
            for (const char character : alphabet) {
                texts.push_back(texts[i] + character);
            }
        }
    }
    return texts;
}

/** Letter by letter, so that it has nothing in common with a search for positions. */
Tokens split(const std::string& text, const std::string& delimiters)
{
    Tokens tokens;
    bool inside = false;
    for (const char character : text) {
        const bool delimits = delimiters.find(character) != std::string::npos;
        if (!delimits && !inside) {
            tokens.emplace_back();
        }
        if (!delimits) {
            tokens.back() += character;
        }
        inside = !delimits;
    }
    return tokens;
}

TEST(StringUtilTest, ShortTextsAreSplitAtAllDelimiters)
{
    const std::string alphabet = "ab, ";
    const Tokens texts = allTexts(alphabet, 6);
    ASSERT_EQ(texts.size(), 1U + 4 + 16 + 64 + 256 + 1024 + 4096);

    for (unsigned int set = 1; set < 16; ++set) {
        std::string delimiters;
        for (std::size_t i = 0; i < alphabet.size(); ++i) {
            if ((set >> i & 1U) != 0) {
                delimiters += alphabet[i];
            }
        }
        for (std::size_t i = 1; i < texts.size(); ++i) {
            ASSERT_EQ(StringUtil::getTokens(texts[i], delimiters), split(texts[i], delimiters))
                << "'" << texts[i] << "' at '" << delimiters << "'";
        }
    }
}

TEST(StringUtilTest, TheBeginningOfATextMayMislead)
{
    // Room is made as for a text that goes on as it begins.
    for (const std::string& delimiters : {","s, ",;"s}) {
        std::string text;
        Tokens expected;
        for (const std::size_t length : {1U, 1000U, 1U, 100000U, 1U}) {
            for (int i = 0; i < 50; ++i) {
                expected.emplace_back(length, static_cast<char>('a' + i % 26));
                text += expected.back() + std::string(length, delimiters.back());
            }
        }

        EXPECT_EQ(GET_TOKENS(text, delimiters), expected);
        EXPECT_EQ(GET_TOKENS(std::string(5000, delimiters[0]) + text, delimiters), expected);
    }
}

TEST(StringUtilTest, OrderAndRepetitionOfTheDelimitersDoNotMatter)
{
    const Tokens texts = allTexts("ab, ", 4);

    for (const std::string delimiters : {" ,", ",,", " , ", "b,b"}) {
        for (std::size_t i = 1; i < texts.size(); ++i) {
            ASSERT_EQ(StringUtil::getTokens(texts[i], delimiters), split(texts[i], delimiters))
                << "'" << texts[i] << "' at '" << delimiters << "'";
        }
    }
}

// ---- Long texts ---------------------------------------------------------------------------------

TEST(StringUtilTest, EachTokenIsCopiedOnce)
{
    constexpr int COUNT = 64;
    const std::string token(100, 'x');
    std::string text;
    for (int i = 0; i < COUNT; ++i) {
        text += token + ",;";
    }
    const std::string delimiters = ";,";

    const long before = allocationCount();
    const Tokens tokens = StringUtil::getTokens(text, delimiters);
    const long allocations = allocationCount() - before;

    EXPECT_EQ(tokens, Tokens(COUNT, token));
    EXPECT_GE(allocations, COUNT);
    EXPECT_LT(allocations, COUNT + 10);  // a vector that grows to that size
}

}  // namespace
}  // namespace oxil::test
