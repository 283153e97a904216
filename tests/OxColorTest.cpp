#include "Equality.h"
#include "OxColor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstring>
#include <limits>
#include <ostream>
#include <type_traits>
#include <utility>
#include <vector>

namespace oxil {

void PrintTo(const Color& color, std::ostream* stream)
{
    *stream << std::hex << color.getRGB32() << std::dec << " (" << color.getHue() << ", "
            << color.getSaturation() << ", " << color.getValue() << ")";
}

}  // namespace oxil

namespace oxil::test {
namespace {

using testing::ElementsAre;

constexpr float INFINITE = std::numeric_limits<float>::infinity();
constexpr float NOT_A_NUMBER = std::numeric_limits<float>::quiet_NaN();

static_assert(sizeof(float) == sizeof(std::uint32_t) && std::numeric_limits<float>::is_iec559);

// ---- What the type looks like -------------------------------------------------------------------

static_assert(std::is_trivially_copyable_v<Color> && std::is_standard_layout_v<Color>);
static_assert(std::is_trivially_destructible_v<Color>);
static_assert(!std::is_default_constructible_v<Color>);
static_assert(std::is_copy_constructible_v<Color> && std::is_move_constructible_v<Color>);
static_assert(
    std::is_same_v<decltype(std::declval<Color&>() = std::declval<const Color&>()), Color&>);
static_assert(std::is_same_v<decltype(std::declval<Color&>() = std::declval<Color>()), Color&>);

static_assert(std::is_same_v<decltype(std::declval<const Color&>().getRGB32()), unsigned int>);
static_assert(std::is_same_v<decltype(std::declval<const Color&>().getRed()), int>);
static_assert(std::is_same_v<decltype(std::declval<const Color&>().getAlpha()), int>);
static_assert(std::is_same_v<decltype(std::declval<const Color&>().getHue()), float>);
static_assert(std::is_void_v<decltype(std::declval<Color&>().setRed(1))>);
static_assert(std::is_void_v<decltype(std::declval<Color&>().setAlpha(1))>);
static_assert(std::is_void_v<decltype(std::declval<Color&>().setRGB32(1U, true))>);
static_assert(std::is_void_v<decltype(std::declval<Color&>().setHue(1.0f))>);

// ---- Helpers ------------------------------------------------------------------------------------

std::uint32_t bitsOf(float number)
{
    std::uint32_t bits;
    std::memcpy(&bits, &number, sizeof bits);
    return bits;
}

/** Hue, saturation and value, bit for bit. */
struct HsvBits {
    std::uint32_t hue;
    std::uint32_t saturation;
    std::uint32_t value;
};

bool operator==(const HsvBits& left, const HsvBits& right)
{
    return left.hue == right.hue && left.saturation == right.saturation &&
           left.value == right.value;
}

void PrintTo(const HsvBits& bits, std::ostream* stream)
{
    *stream << std::hex << "{" << bits.hue << ", " << bits.saturation << ", " << bits.value << "}"
            << std::dec;
}

HsvBits hsvBits(const Color& color)
{
    return {bitsOf(color.getHue()), bitsOf(color.getSaturation()), bitsOf(color.getValue())};
}

HsvBits hsvBits(float hue, float saturation, float value)
{
    return {bitsOf(hue), bitsOf(saturation), bitsOf(value)};
}

std::vector<int> bytes(const Color& color)
{
    return {color.getRed(), color.getGreen(), color.getBlue(), color.getAlpha()};
}

Color grey(int level)
{
    return Color(level, level, level);
}

/** The same word and, bit for bit, the same hue, saturation and value. */
void expectSame(const Color& color, const Color& expected)
{
    EXPECT_EQ(color.getRGB32(), expected.getRGB32());
    EXPECT_EQ(hsvBits(color), hsvBits(expected));
}

std::uint32_t withAlpha(std::uint32_t word, std::uint32_t alpha)
{
    return (word & 0x00FFFFFFU) | alpha << 24U;
}

// ---- From RGB to HSV and back -------------------------------------------------------------------

struct RgbRow {
    std::uint32_t word;
    HsvBits hsv;
    std::uint32_t back;  ///< the word computed from the row's hue, saturation and value
};

// Printed by tests/tools/colors.py.
const RgbRow RGB_ROWS[] = {
    {0xFF000000, {0x00000000, 0x00000000, 0x00000000}, 0xFF000000},
    {0xFFFFFFFF, {0x00000000, 0x00000000, 0x42C80000}, 0xFFFFFFFF},
    {0xFFFF0000, {0x00000000, 0x42C80000, 0x42C80000}, 0xFFFF0000},
    {0xFF00FF00, {0x42F00000, 0x42C80000, 0x42C80000}, 0xFF00FF00},
    {0xFF0000FF, {0x43700000, 0x42C80000, 0x42C80000}, 0xFF0000FF},
    {0xFFFFFF00, {0x42700000, 0x42C80000, 0x42C80000}, 0xFFFFFF00},
    {0xFF00FFFF, {0x43340000, 0x42C80000, 0x42C80000}, 0xFF00FFFF},
    {0xFFFF00FF, {0x43960000, 0x42C80000, 0x42C80000}, 0xFFFF00FF},
    {0xFF010101, {0x00000000, 0x00000000, 0x3EC8C8CA}, 0xFF010101},
    {0xFF010000, {0x00000000, 0x42C80000, 0x3EC8C8CA}, 0xFF010000},
    {0xFF000100, {0x42F00000, 0x42C80000, 0x3EC8C8CA}, 0xFF000100},
    {0xFF000001, {0x43700000, 0x42C80000, 0x3EC8C8CA}, 0xFF000001},
    {0xFF010100, {0x42700000, 0x42C80000, 0x3EC8C8CA}, 0xFF010100},
    {0xFF000101, {0x43340000, 0x42C80000, 0x3EC8C8CA}, 0xFF000101},
    {0xFF010001, {0x43960000, 0x42C80000, 0x3EC8C8CA}, 0xFF010001},
    {0xFFFEFFFF, {0x43340000, 0x3EC8C8CA, 0x42C80000}, 0xFFFEFFFF},
    {0xFFFFFEFF, {0x43960000, 0x3EC8C8CA, 0x42C80000}, 0xFFFFFEFF},
    {0xFFFFFFFE, {0x42700000, 0x3EC8C8CA, 0x42C80000}, 0xFFFFFFFE},
    {0xFFFF0001, {0x43B3E1E2, 0x42C80000, 0x42C80000}, 0xFFFF0000},
    {0xFFFF0100, {0x3E70F0F2, 0x42C80000, 0x42C80000}, 0xFFFF0100},
    {0xFF807F7F, {0x00000000, 0x3F480000, 0x4248C8CA}, 0xFF807F7F},
    {0xFF7F8080, {0x43340000, 0x3F480000, 0x4248C8CA}, 0xFF7F8080},
    {0xFF2D2D2D, {0x00000000, 0x00000000, 0x418D2D2D}, 0xFF2C2C2C},
    {0xFFFDFDFD, {0x00000000, 0x00000000, 0x42C66E6E}, 0xFFFCFCFC},
    {0xFF808080, {0x00000000, 0x00000000, 0x4248C8CA}, 0xFF808080},
    {0x00123456, {0x43520000, 0x429E23B9, 0x4206E6E7}, 0x00123456},
    {0x80FEDCBA, {0x41F00000, 0x41D62C58, 0x42C73737}, 0x80FEDCBA},
    {0x01C0FFEE, {0x4323CF3D, 0x41C5A5A6, 0x42C80000}, 0x01C0FFEE},
    {0x7F0F3C78, {0x43564924, 0x42AF0000, 0x423C3C3C}, 0x7F0F3C78},
    {0xFF824420, {0x41B05398, 0x4296C4EC, 0x424BEBED}, 0xFF824420},
    {0xFFFDE63C, {0x42536623, 0x429891B5, 0x42C66E6E}, 0xFFFCE53C},
    {0xFFF16BC2, {0x43A085BB, 0x425E681A, 0x42BD0505}, 0xFFF16BC2},
    {0xFFF90E30, {0x43AFA8DA, 0x42BCC149, 0x42C34B4B}, 0xFFF90E30},
    {0xFFC7DD01, {0x42840000, 0x42C71853, 0x42AD5555}, 0xFFC6DC01},
    {0xFF88E475, {0x42DB759F, 0x4242BCA1, 0x42B2D2D3}, 0xFF88E475},
    {0xFF0FA234, {0x43071A1F, 0x42B57B42, 0x427E1E1F}, 0xFF0FA233},
    {0xFF040D0B, {0x4326AAAB, 0x428A7628, 0x40A32323}, 0xFF040D0B},
    {0xFFC36ED8, {0x43900E7E, 0x42444BDA, 0x42A9696A}, 0xFFC36ED8},
    {0xFF710EE0, {0x43862492, 0x42BB8000, 0x42AFAFB0}, 0xFF700EE0},
    {0xFF77B0FD, {0x43567A45, 0x4253DB92, 0x42C66E6E}, 0xFF77AFFC},
    {0xFF7076EB, {0x436D12BB, 0x42515C98, 0x42B85050}, 0xFF7076EB},
};

TEST(ColorTest, HueSaturationAndValueComeFromTheWord)
{
    for (const RgbRow& row : RGB_ROWS) {
        SCOPED_TRACE(testing::PrintToString(Color(row.word)));

        const Color color(row.word);

        EXPECT_EQ(color.getRGB32(), row.word);
        EXPECT_EQ(hsvBits(color), row.hsv);
    }
}

TEST(ColorTest, EveryWayToGiveRgbComputesTheSame)
{
    for (const RgbRow& row : RGB_ROWS) {
        const Color color(row.word);
        SCOPED_TRACE(testing::PrintToString(color));
        const int red = color.getRed();
        const int green = color.getGreen();
        const int blue = color.getBlue();
        const int alpha = color.getAlpha();

        expectSame(Color(red, green, blue, alpha), color);
        expectSame(Color(red, green, blue), Color(withAlpha(row.word, 255)));

        Color set(1, 2, 3, 4);
        set.setRGB32(row.word, true);
        expectSame(set, color);

        Color setOpaque(1, 2, 3, 4);
        setOpaque.setRGB32(row.word, false);
        expectSame(setOpaque, Color(withAlpha(row.word, 255)));

        Color parts(1.0f, 2.0f, 3.0f, alpha);
        parts.setRed(red);
        parts.setGreen(green);
        parts.setBlue(blue);
        expectSame(parts, color);

        Color recomputed(color);
        recomputed.__calculateHSV();
        expectSame(recomputed, color);
    }
}

TEST(ColorTest, WayBackLowersChannelsByOneAtMost)
{
    for (const RgbRow& row : RGB_ROWS) {
        SCOPED_TRACE(testing::PrintToString(Color(row.word)));
        Color color(row.word);

        color.__calculateRGB();

        EXPECT_EQ(color.getRGB32(), row.back);
        EXPECT_EQ(hsvBits(color), row.hsv);
        const std::vector<int> before = bytes(Color(row.word));
        const std::vector<int> after = bytes(color);
        for (std::size_t i = 0; i < before.size(); ++i) {
            EXPECT_TRUE(after[i] == before[i] || after[i] == before[i] - 1) << i;
        }
    }
}

/** What becomes of every n-th of the 2^24 colours. */
struct Figures {
    std::uint32_t step;
    int drifting;
    int largestDrift;
    std::uint64_t digest;  ///< of hue, saturation, value and the word after the way back
};

// Printed by tests/tools/colors.py, called with the step. All colours take a second if the compiler
// optimizes, and too many otherwise.
#ifdef __OPTIMIZE__
constexpr Figures FIGURES = {1, 5917285, 1, 0xAB80F51774218D17U};
#else
constexpr Figures FIGURES = {61, 96924, 1, 0xA36E2D90FECF6846U};
#endif

TEST(ColorTest, AllColorsHaveTheSameBitsOnEveryHost)
{
    int drifting = 0;
    int largestDrift = 0;
    bool withinRange = true;
    std::uint64_t digest = 0;

    Color color(0, 0, 0, 0);
    for (std::uint32_t word = 0; word < 1U << 24U; word += FIGURES.step) {
        color.setRGB32(word, true);
        const HsvBits hsv = hsvBits(color);
        withinRange = withinRange && color.getHue() >= 0.0f && color.getHue() < 360.0f &&
                      color.getSaturation() >= 0.0f && color.getSaturation() <= 100.0f &&
                      color.getValue() >= 0.0f && color.getValue() <= 100.0f;
        color.__calculateRGB();

        const std::uint32_t back = color.getRGB32();
        if (back != word) {
            ++drifting;
            for (const unsigned int shift : {0U, 8U, 16U, 24U}) {
                const int drift =
                    static_cast<int>(word >> shift & 255U) - static_cast<int>(back >> shift & 255U);
                ASSERT_GE(drift, 0) << std::hex << word;  // never higher
                largestDrift = std::max(largestDrift, drift);
            }
        }
        for (const std::uint32_t number : {hsv.hue, hsv.saturation, hsv.value, back}) {
            digest = digest * 31U + number;
        }
    }

    EXPECT_EQ(drifting, FIGURES.drifting);
    EXPECT_EQ(largestDrift, FIGURES.largestDrift);
    EXPECT_EQ(digest, FIGURES.digest);
    EXPECT_TRUE(withinRange);
}

// ---- Greys --------------------------------------------------------------------------------------

TEST(ColorTest, GreysHaveNeitherHueNorSaturation)
{
    for (int level = 0; level < 256; ++level) {
        SCOPED_TRACE(level);
        EXPECT_EQ(bitsOf(grey(level).getHue()), 0U);
        EXPECT_EQ(bitsOf(grey(level).getSaturation()), 0U);
    }
    EXPECT_EQ(grey(0).getValue(), 0.0f);
    EXPECT_EQ(grey(255).getValue(), 100.0f);
}

TEST(ColorTest, NineteenGreysComeBackOneLower)
{
    // Printed by tests/tools/colors.py.
    const std::vector<std::pair<int, int>> expected = {
        {45, 44},   {53, 52},   {61, 60},   {83, 82},   {90, 89},   {99, 98},   {106, 105},
        {115, 114}, {122, 121}, {166, 165}, {180, 179}, {189, 188}, {198, 197}, {207, 206},
        {212, 211}, {221, 220}, {230, 229}, {244, 243}, {253, 252},
    };

    std::vector<std::pair<int, int>> changed;
    for (int level = 0; level < 256; ++level) {
        Color color = grey(level);
        color.setValue(color.getValue());
        EXPECT_EQ(color.getGreen(), color.getRed());
        EXPECT_EQ(color.getBlue(), color.getRed());
        if (color.getRed() != level) {
            changed.emplace_back(level, color.getRed());
        }
    }

    EXPECT_EQ(changed.size(), 19U);
    EXPECT_EQ(changed, expected);
}

// ---- From HSV to RGB ----------------------------------------------------------------------------

struct HsvRow {
    float hue;
    float saturation;
    float value;
    std::uint32_t word;
};

void PrintTo(const HsvRow& row, std::ostream* stream)
{
    *stream << row.hue << ", " << row.saturation << ", " << row.value;
}

// Printed by tests/tools/colors.py.
const HsvRow HSV_ROWS[] = {
    {0.0f, 100.0f, 100.0f, 0xFFFF0000},
    {15.0f, 100.0f, 100.0f, 0xFFFF3F00},
    {30.0f, 50.0f, 80.0f, 0xFFCC9966},
    {59.5f, 33.2999992f, 66.5999985f, 0xFFA9A971},
    {60.0f, 100.0f, 100.0f, 0xFFFFFF00},
    {75.0f, 100.0f, 100.0f, 0xFFBFFF00},
    {90.0f, 50.0f, 80.0f, 0xFF99CC66},
    {119.5f, 33.2999992f, 66.5999985f, 0xFF71A971},
    {120.0f, 100.0f, 100.0f, 0xFF00FF00},
    {135.0f, 100.0f, 100.0f, 0xFF00FF3F},
    {150.0f, 50.0f, 80.0f, 0xFF66CC99},
    {179.5f, 33.2999992f, 66.5999985f, 0xFF71A9A9},
    {180.0f, 100.0f, 100.0f, 0xFF00FFFF},
    {195.0f, 100.0f, 100.0f, 0xFF00BFFF},
    {210.0f, 50.0f, 80.0f, 0xFF6699CC},
    {239.5f, 33.2999992f, 66.5999985f, 0xFF7171A9},
    {240.0f, 100.0f, 100.0f, 0xFF0000FF},
    {255.0f, 100.0f, 100.0f, 0xFF3F00FF},
    {270.0f, 50.0f, 80.0f, 0xFF9966CC},
    {299.5f, 33.2999992f, 66.5999985f, 0xFFA971A9},
    {300.0f, 100.0f, 100.0f, 0xFFFF00FF},
    {315.0f, 100.0f, 100.0f, 0xFFFF00BF},
    {330.0f, 50.0f, 80.0f, 0xFFCC6699},
    {359.5f, 33.2999992f, 66.5999985f, 0xFFA97171},
    {59.9999962f, 75.0f, 90.0f, 0xFFE5E539},
    {60.0000038f, 75.0f, 90.0f, 0xFFE5E539},
    {119.999992f, 75.0f, 90.0f, 0xFF39E539},
    {120.000008f, 75.0f, 90.0f, 0xFF39E539},
    {179.999985f, 75.0f, 90.0f, 0xFF39E5E5},
    {180.000015f, 75.0f, 90.0f, 0xFF39E5E5},
    {239.999985f, 75.0f, 90.0f, 0xFF3939E5},
    {240.000015f, 75.0f, 90.0f, 0xFF3939E5},
    {299.999969f, 75.0f, 90.0f, 0xFFE539E5},
    {300.000031f, 75.0f, 90.0f, 0xFFE539E5},
    {359.999969f, 75.0f, 90.0f, 0xFFE53939},
    {360.000031f, 75.0f, 90.0f, 0xFFE53939},
    {360.0f, 100.0f, 100.0f, 0xFFFF0000},
    {360.0f, 40.0f, 70.0f, 0xFFB26B6B},
    {375.0f, 100.0f, 100.0f, 0xFFFF3F00},
    {400.0f, 80.0f, 60.0f, 0xFF99701E},
    {420.0f, 60.0f, 60.0f, 0xFF993D3D},
    {719.5f, 50.0f, 50.0f, 0xFF7F7E3F},
    {1080.0f, 100.0f, 100.0f, 0xFFFF0000},
    {-0.0f, 100.0f, 100.0f, 0xFFFF0000},
    {-1.0f, 100.0f, 100.0f, 0xFFFFFC00},
    {-30.0f, 100.0f, 100.0f, 0xFFFF8100},
    {-30.0f, 50.0f, 80.0f, 0xFFCC3366},
    {-59.5f, 100.0f, 100.0f, 0xFFFF0400},
    {-60.0f, 100.0f, 100.0f, 0xFFFF0000},
    {-90.0f, 60.0f, 90.0f, 0xFFE5165B},
    {-360.0f, 100.0f, 100.0f, 0xFFFF0000},
    {0.0f, 0.0f, 100.0f, 0xFFFFFFFF},
    {200.0f, 0.0f, 50.0f, 0xFF7F7F7F},
    {200.0f, -0.0f, 50.0f, 0xFF7F7F7F},
    {77.0f, 1.40129846e-45f, 50.0f, 0xFF7F7F7F},
    {77.0f, 150.0f, 100.0f, 0xFF92FF81},
    {200.0f, 150.0f, 100.0f, 0xFF817FFF},
    {300.0f, 200.0f, 50.0f, 0xFF7F817F},
    {20.0f, -50.0f, 50.0f, 0xFF7FAABF},
    {140.0f, -100.0f, 90.0f, 0xFFCBE57E},
    {50.0f, 100.0f, 200.0f, 0xFFFEA900},
    {250.0f, 30.0f, 101.0f, 0xFFC1B401},
    {10.0f, 0.0f, 101.0f, 0xFF010101},
    {10.0f, 0.0f, -1.0f, 0xFFFEFEFE},
    {110.0f, 70.0f, -30.0f, 0xFFE1B4EA},
    {310.0f, 100.0f, -100.0f, 0xFF01002C},
    {0.0f, 0.0f, 0.0f, 0xFF000000},
    {123.0f, 45.0f, 0.0f, 0xFF000000},
    {123.0f, 45.0f, 0.300000012f, 0xFF000000},
    {210.0f, 100.0f, 39.2000008f, 0xFF003163},
    {1e+09f, 50.0f, 50.0f, 0xFF7F3F3F},
    {1.00000002e+20f, 50.0f, 50.0f, 0xFF7FFF3F},
    {-1.00000002e+20f, 50.0f, 50.0f, 0xFF7F003F},
    {3.00000001e+38f, 100.0f, 0.00100000005f, 0xFF00FF00},
    {30.0f, 1.00000002e+20f, 50.0f, 0xFF7F0000},
    {30.0f, -1.00000002e+20f, 50.0f, 0xFF7FFFFF},
    {30.0f, 50.0f, 1e+09f, 0xFFFF8000},
    {150.0f, 50.0f, 1e+09f, 0xFF00FF80},
    {150.0f, 50.0f, -1e+09f, 0xFF000080},
    {45.0f, 0.0f, 1e+10f, 0xFFFFFFFF},
    {45.0f, 0.0f, -1e+10f, 0xFF000000},
    {45.0f, 0.0f, 1000000.0f, 0xFFF0F0F0},
    {100.0f, 3.00000001e+38f, 3.00000001e+38f, 0xFF00FF00},
    {45.0f, 0.0f, 842150400.0f, 0xFF808080},
    {INFINITE, 50.0f, 50.0f, 0xFF7FFF3F},
    {-INFINITE, 50.0f, 50.0f, 0xFF7F003F},
    {NOT_A_NUMBER, 50.0f, 50.0f, 0xFF7F003F},
    {NOT_A_NUMBER, 100.0f, 100.0f, 0xFFFF0000},
    {INFINITE, 100.0f, 0.0f, 0xFF000000},
    {90.0f, INFINITE, 50.0f, 0xFF007F00},
    {90.0f, -INFINITE, 50.0f, 0xFFFF7FFF},
    {90.0f, NOT_A_NUMBER, 50.0f, 0xFF007F00},
    {90.0f, INFINITE, 0.0f, 0xFF000000},
    {90.0f, 50.0f, INFINITE, 0xFF00FF00},
    {270.0f, 50.0f, -INFINITE, 0xFF000000},
    {90.0f, 50.0f, NOT_A_NUMBER, 0xFF000000},
    {0.0f, 0.0f, INFINITE, 0xFFFFFFFF},
    {0.0f, 0.0f, -INFINITE, 0xFF000000},
    {0.0f, 0.0f, NOT_A_NUMBER, 0xFF000000},
    {120.0f, 100.0f, INFINITE, 0xFF00FF00},
    {NOT_A_NUMBER, NOT_A_NUMBER, NOT_A_NUMBER, 0xFF000000},
    {NOT_A_NUMBER, 0.0f, 50.0f, 0xFF7F7F7F},
    {INFINITE, 0.0f, 50.0f, 0xFF7F7F7F},
    {INFINITE, INFINITE, INFINITE, 0xFFFF0000},
};

TEST(ColorTest, WordComesFromHueSaturationAndValue)
{
    for (const HsvRow& row : HSV_ROWS) {
        SCOPED_TRACE(testing::PrintToString(row));

        const Color color(row.hue, row.saturation, row.value);

        EXPECT_EQ(color.getRGB32(), row.word);
        EXPECT_EQ(hsvBits(color), hsvBits(row.hue, row.saturation, row.value));
    }
}

TEST(ColorTest, EveryWayToGiveHsvComputesTheSameAndKeepsAlpha)
{
    for (const HsvRow& row : HSV_ROWS) {
        SCOPED_TRACE(testing::PrintToString(row));

        for (const int alpha : {0, 1, 127, 128, 255}) {
            const std::uint32_t word = withAlpha(row.word, static_cast<std::uint32_t>(alpha));

            const Color color(row.hue, row.saturation, row.value, alpha);
            EXPECT_EQ(color.getRGB32(), word);
            EXPECT_EQ(hsvBits(color), hsvBits(row.hue, row.saturation, row.value));

            Color parts(10, 20, 30, alpha);
            parts.setHue(row.hue);
            parts.setSaturation(row.saturation);
            parts.setValue(row.value);
            expectSame(parts, color);

            Color otherOrder(10, 20, 30, alpha);
            otherOrder.setValue(row.value);
            otherOrder.setSaturation(row.saturation);
            otherOrder.setHue(row.hue);
            expectSame(otherOrder, color);

            Color recomputed(color);
            recomputed.__calculateRGB();
            expectSame(recomputed, color);
        }
    }
}

TEST(ColorTest, SectorsOfTheHueMixTheChannels)
{
    // Value 250, least channel 50 and, a quarter into the sector, 50 above or below.
    constexpr float SATURATION = 80.0f;
    constexpr float VALUE = 98.05f;
    struct Row {
        float hue;
        std::vector<int> bytes;
    };
    const std::vector<Row> rows = {
        {15.0f, {250, 100, 50, 255}},  {75.0f, {200, 250, 50, 255}},
        {135.0f, {50, 250, 100, 255}}, {195.0f, {50, 200, 250, 255}},
        {255.0f, {100, 50, 250, 255}}, {315.0f, {250, 50, 200, 255}},
        {375.0f, {250, 100, 50, 255}}, {435.0f, {250, 100, 50, 255}},
        {735.0f, {250, 100, 50, 255}}, {-15.0f, {250, 0, 50, 255}},
        {-75.0f, {250, 0, 50, 255}},   {-345.0f, {250, 156, 50, 255}},
    };

    for (const Row& row : rows) {
        EXPECT_EQ(bytes(Color(row.hue, SATURATION, VALUE)), row.bytes) << row.hue;
    }
}

TEST(ColorTest, HueOf360IsHueOf0)
{
    for (const float saturation : {0.0f, 12.5f, 50.0f, 100.0f}) {
        for (const float value : {0.0f, 33.3f, 50.0f, 100.0f}) {
            EXPECT_EQ(Color(360.0f, saturation, value).getRGB32(),
                      Color(0.0f, saturation, value).getRGB32());
        }
    }
    EXPECT_EQ(Color(360.0f, 100.0f, 100.0f).getHue(), 360.0f);
}

TEST(ColorTest, NegativeHueWrapsTheGreenChannel)
{
    // 0 - 127.5 is cut to -127.
    EXPECT_THAT(bytes(Color(-30.0f, 100.0f, 100.0f)), ElementsAre(255, 129, 0, 255));
    // 51 - 102 is -51.
    EXPECT_THAT(bytes(Color(-30.0f, 80.0f, 100.0f)), ElementsAre(255, 205, 51, 255));
}

TEST(ColorTest, ChannelsOutOfRangeWrap)
{
    EXPECT_THAT(bytes(Color(0.0f, 0.0f, 101.0f)), ElementsAre(1, 1, 1, 255));
    EXPECT_THAT(bytes(Color(0.0f, 0.0f, 200.0f)), ElementsAre(254, 254, 254, 255));
    EXPECT_THAT(bytes(Color(0.0f, 0.0f, -100.0f)), ElementsAre(1, 1, 1, 255));
    EXPECT_THAT(bytes(Color(0.0f, 200.0f, 100.0f)), ElementsAre(255, 1, 1, 255));
}

TEST(ColorTest, NumbersBeyondAllChannelsAreCutToTheLimitsOfAnInteger)
{
    // The low bytes of 2147483647, of -2147483648 and of what is no number.
    EXPECT_THAT(bytes(Color(0.0f, 0.0f, 1e30f)), ElementsAre(255, 255, 255, 255));
    EXPECT_THAT(bytes(Color(0.0f, 0.0f, -1e30f)), ElementsAre(0, 0, 0, 255));
    EXPECT_THAT(bytes(Color(0.0f, 0.0f, INFINITE)), ElementsAre(255, 255, 255, 255));
    EXPECT_THAT(bytes(Color(0.0f, 0.0f, -INFINITE)), ElementsAre(0, 0, 0, 255));
    EXPECT_THAT(bytes(Color(0.0f, 0.0f, NOT_A_NUMBER)), ElementsAre(0, 0, 0, 255));
    // A hue that is no number lies in the first sector.
    EXPECT_THAT(bytes(Color(NOT_A_NUMBER, 100.0f, 100.0f)), ElementsAre(255, 0, 0, 255));
}

TEST(ColorTest, WellKnownColors)
{
    EXPECT_EQ(Color(255, 0, 0).getRGB32(), 0xFFFF0000U);
    EXPECT_EQ(hsvBits(Color(255, 0, 0)), hsvBits(0.0f, 100.0f, 100.0f));
    EXPECT_EQ(hsvBits(Color(0, 255, 0)), hsvBits(120.0f, 100.0f, 100.0f));
    EXPECT_EQ(hsvBits(Color(0, 0, 255)), hsvBits(240.0f, 100.0f, 100.0f));
    EXPECT_EQ(hsvBits(Color(255, 255, 0)), hsvBits(60.0f, 100.0f, 100.0f));
    EXPECT_EQ(hsvBits(Color(0, 255, 255)), hsvBits(180.0f, 100.0f, 100.0f));
    EXPECT_EQ(hsvBits(Color(255, 0, 255)), hsvBits(300.0f, 100.0f, 100.0f));
    EXPECT_EQ(hsvBits(Color(0, 0, 0)), hsvBits(0.0f, 0.0f, 0.0f));
    EXPECT_EQ(Color(0.0f, 0.0f, 100.0f).getRGB32(), 0xFFFFFFFFU);
    EXPECT_EQ(Color(120.0f, 100.0f, 100.0f).getRGB32(), 0xFF00FF00U);
}

// ---- Construction -------------------------------------------------------------------------------

TEST(ColorTest, WordIsMadeOfAlphaRedGreenAndBlue)
{
    EXPECT_EQ(Color(0x12, 0x34, 0x56, 0x78).getRGB32(), 0x78123456U);
    EXPECT_EQ(Color(0x12, 0x34, 0x56).getRGB32(), 0xFF123456U);
    EXPECT_EQ(Color(0x78123456UL).getRGB32(), 0x78123456U);
    EXPECT_EQ(Color(0x00123456UL).getRGB32(), 0x00123456U);
    EXPECT_THAT(bytes(Color(0x78123456UL)), ElementsAre(0x12, 0x34, 0x56, 0x78));
    EXPECT_THAT(bytes(Color(0xFEDCBA98UL)), ElementsAre(0xDC, 0xBA, 0x98, 0xFE));
}

TEST(ColorTest, LowEightBitsOfEachComponentCount)
{
    struct Row {
        int given;
        int stored;
    };
    for (const Row row : {Row{0, 0}, Row{255, 255}, Row{256, 0}, Row{257, 1}, Row{511, 255},
                          Row{-1, 255}, Row{-2, 254}, Row{-256, 0}, Row{0x12345678, 0x78},
                          Row{INT_MAX, 255}, Row{INT_MIN, 0}, Row{INT_MIN + 1, 1}}) {
        SCOPED_TRACE(row.given);

        EXPECT_THAT(bytes(Color(row.given, 2, 3, 4)), ElementsAre(row.stored, 2, 3, 4));
        EXPECT_THAT(bytes(Color(1, row.given, 3, 4)), ElementsAre(1, row.stored, 3, 4));
        EXPECT_THAT(bytes(Color(1, 2, row.given, 4)), ElementsAre(1, 2, row.stored, 4));
        EXPECT_THAT(bytes(Color(1, 2, 3, row.given)), ElementsAre(1, 2, 3, row.stored));
        EXPECT_THAT(bytes(Color(row.given, row.given, row.given)),
                    ElementsAre(row.stored, row.stored, row.stored, 255));
        EXPECT_THAT(bytes(Color(0.0f, 100.0f, 100.0f, row.given)),
                    ElementsAre(255, 0, 0, row.stored));
        expectSame(Color(row.given, 2, 3, 4), Color(row.stored, 2, 3, 4));
        expectSame(Color(1, row.given, 3, 4), Color(1, row.stored, 3, 4));
        expectSame(Color(1, 2, row.given, 4), Color(1, 2, row.stored, 4));
    }
}

TEST(ColorTest, OnlyLow32BitsOfALongWordCount)
{
    const unsigned long word = ~0UL << 16U << 16U | 0x78123456UL;  // no more than that on a device

    expectSame(Color(word), Color(0x12, 0x34, 0x56, 0x78));
}

TEST(ColorTest, HsvColorsAreOpaqueUnlessToldOtherwise)
{
    EXPECT_EQ(Color(120.0f, 100.0f, 100.0f).getRGB32(), 0xFF00FF00U);
    EXPECT_EQ(Color(120.0f, 100.0f, 100.0f, 0x80).getRGB32(), 0x8000FF00U);
    EXPECT_EQ(Color(120.0f, 100.0f, 100.0f, 0).getRGB32(), 0x0000FF00U);
}

TEST(ColorTest, FieldsAreWordHueSaturationAndValue)
{
    const Color color(30.0f, 50.0f, 80.0f, 0x12);

    std::uint32_t fields[4];
    static_assert(sizeof fields == sizeof color);
    std::memcpy(fields, &color, sizeof color);

    EXPECT_THAT(fields, ElementsAre(0x12CC9966U, bitsOf(30.0f), bitsOf(50.0f), bitsOf(80.0f)));
}

// ---- Copies -------------------------------------------------------------------------------------

TEST(ColorTest, CopiesHaveAllFourFields)
{
    // What it is made of doesn't follow from one another, so nothing may be computed anew.
    Color original(720.5f, -3.0f, 250.0f, 0x12);
    const Color expected(720.5f, -3.0f, 250.0f, 0x12);

    const Color copy(original);
    expectSame(copy, expected);

    Color assigned(1, 2, 3);
    Color& result = assigned = original;
    EXPECT_EQ(&result, &assigned);
    expectSame(assigned, expected);

    const Color& self = assigned;
    assigned = self;
    expectSame(assigned, expected);

    original.setRGB32(0, true);
    expectSame(copy, expected);
    expectSame(assigned, expected);
}

TEST(ColorTest, MovesAreCopies)
{
    Color original(720.5f, -3.0f, 250.0f, 0x12);
    const Color expected(original);

    const Color constructed(std::move(original));
    expectSame(constructed, expected);
    expectSame(original, expected);

    Color assigned(1, 2, 3);
    Color& result = assigned = std::move(original);
    EXPECT_EQ(&result, &assigned);
    expectSame(assigned, expected);
    expectSame(original, expected);

    Color& self = original;
    original = std::move(self);
    expectSame(original, expected);
}

// ---- Getters ------------------------------------------------------------------------------------

TEST(ColorTest, ComponentsComeTogether)
{
    const Color color(30.0f, 50.0f, 80.0f, 0x12);

    int red = -1;
    int green = -1;
    int blue = -1;
    int alpha = -1;
    color.getColorComponents(red, green, blue, alpha);
    EXPECT_THAT((std::vector<int>{red, green, blue, alpha}), ElementsAre(0xCC, 0x99, 0x66, 0x12));

    float hue = -1.0f;
    float saturation = -1.0f;
    float value = -1.0f;
    alpha = -1;
    color.getColorComponents(hue, saturation, value, alpha);
    EXPECT_EQ(hsvBits(hue, saturation, value), hsvBits(30.0f, 50.0f, 80.0f));
    EXPECT_EQ(alpha, 0x12);
}

TEST(ColorTest, ComponentsOfAnOpaqueColorAreNotNegative)
{
    const Color color(0xFFFEFDFCUL);

    int red = 0;
    int green = 0;
    int blue = 0;
    int alpha = 0;
    color.getColorComponents(red, green, blue, alpha);
    EXPECT_THAT((std::vector<int>{red, green, blue, alpha}), ElementsAre(254, 253, 252, 255));
    EXPECT_THAT(bytes(color), ElementsAre(254, 253, 252, 255));

    float hue = 0.0f;
    float saturation = 0.0f;
    float value = 0.0f;
    alpha = 0;
    color.getColorComponents(hue, saturation, value, alpha);
    EXPECT_EQ(hsvBits(hue, saturation, value), hsvBits(color));
    EXPECT_EQ(alpha, 255);
}

// ---- Setters ------------------------------------------------------------------------------------

TEST(ColorTest, OneChannelIsReplacedAndHsvComputedAnew)
{
    for (const int given : {0, 7, 200, 255, 256, 300, -1, -200, INT_MAX, INT_MIN}) {
        SCOPED_TRACE(given);
        const Color original(0x12, 0x34, 0x56, 0x78);

        Color red(original);
        red.setRed(given);
        expectSame(red, Color(given, 0x34, 0x56, 0x78));

        Color green(original);
        green.setGreen(given);
        expectSame(green, Color(0x12, given, 0x56, 0x78));

        Color blue(original);
        blue.setBlue(given);
        expectSame(blue, Color(0x12, 0x34, given, 0x78));
    }
}

TEST(ColorTest, SettingAChannelToWhatItIsReplacesStoredHsv)
{
    const Color original(390.0f, 50.0f, 80.0f, 0x12);
    const Color expected(static_cast<unsigned long>(original.getRGB32()));
    ASSERT_NE(original, expected);

    Color red(original);
    red.setRed(original.getRed());
    expectSame(red, expected);

    Color green(original);
    green.setGreen(original.getGreen());
    expectSame(green, expected);

    Color blue(original);
    blue.setBlue(original.getBlue());
    expectSame(blue, expected);

    Color word(original);
    word.setRGB32(original.getRGB32(), true);
    expectSame(word, expected);

    Color recomputed(original);
    recomputed.__calculateHSV();
    expectSame(recomputed, expected);
}

TEST(ColorTest, WordIsStoredWithItsAlphaOrOpaque)
{
    Color color(1, 2, 3, 4);

    color.setRGB32(0x00123456, false);
    expectSame(color, Color(0xFF123456UL));

    color.setRGB32(0x00123456, true);
    expectSame(color, Color(0x00123456UL));

    color.setRGB32(0x80654321, false);
    expectSame(color, Color(0xFF654321UL));

    color.setRGB32(0x80654321, true);
    expectSame(color, Color(0x80654321UL));
}

TEST(ColorTest, AlphaChangesNothingElse)
{
    struct Row {
        int given;
        std::uint32_t stored;
    };
    // Of these, neither view gives the other if it is computed anew.
    for (const Color& original : {grey(45), Color(390.0f, -50.0f, 80.0f, 7),
                                  Color(NOT_A_NUMBER, INFINITE, -0.0f), Color(0x80C0FFEEUL)}) {
        SCOPED_TRACE(testing::PrintToString(original));
        for (const Row row :
             {Row{0, 0}, Row{1, 1}, Row{128, 128}, Row{255, 255}, Row{256, 0}, Row{-1, 255},
              Row{0x1234, 0x34}, Row{INT_MIN, 0}, Row{INT_MAX, 255}}) {
            Color color(original);

            color.setAlpha(row.given);

            EXPECT_EQ(color.getRGB32(), withAlpha(original.getRGB32(), row.stored));
            EXPECT_EQ(hsvBits(color), hsvBits(original));
        }
    }
}

TEST(ColorTest, OnePartOfHsvIsStoredAndTheWordComputedAnew)
{
    for (const float given : {0.0f, -0.0f, 12.5f, 99.9f, 100.0f, 250.0f, 360.0f, 1000.0f, -30.0f,
                              1e20f, INFINITE, NOT_A_NUMBER}) {
        SCOPED_TRACE(given);
        const Color original(200.0f, 60.0f, 70.0f, 0x12);

        Color hue(original);
        hue.setHue(given);
        expectSame(hue, Color(given, 60.0f, 70.0f, 0x12));

        Color saturation(original);
        saturation.setSaturation(given);
        expectSame(saturation, Color(200.0f, given, 70.0f, 0x12));

        Color value(original);
        value.setValue(given);
        expectSame(value, Color(200.0f, 60.0f, given, 0x12));
    }
}

TEST(ColorTest, GreyDriftsWhenItsValueIsSetToWhatItIs)
{
    Color color = grey(45);
    const HsvBits before = hsvBits(color);

    color.setValue(color.getValue());

    EXPECT_THAT(bytes(color), ElementsAre(44, 44, 44, 255));
    EXPECT_EQ(hsvBits(color), before);

    Color hue = grey(45);
    hue.setHue(10.0f);
    EXPECT_THAT(bytes(hue), ElementsAre(44, 44, 44, 255));
    EXPECT_EQ(hue.getHue(), 10.0f);
}

TEST(ColorTest, HueIsKeptWhileAColorIsGrey)
{
    Color color(200.0f, 60.0f, 70.0f);
    const Color before(color);

    color.setSaturation(0.0f);
    EXPECT_THAT(bytes(color), ElementsAre(178, 178, 178, 255));
    color.setSaturation(60.0f);

    expectSame(color, before);
}

// ---- Comparison ---------------------------------------------------------------------------------

TEST(ColorTest, ColorsAreEqualIfAllFourFieldsAre)
{
    const Color color(0x12, 0x34, 0x56, 0x78);

    expectEqual(color, color);
    expectEqual(color, Color(0x78123456UL));
    expectEqual(Color(30.0f, 50.0f, 80.0f), Color(30.0f, 50.0f, 80.0f, 255));
    expectEqual(Color(0.0f, 50.0f, 80.0f), Color(-0.0f, 50.0f, 80.0f));
    expectEqual(Color(0.0f, 100.0f, 100.0f), Color(255, 0, 0));
}

TEST(ColorTest, ColorsThatDifferInOneFieldAreNotEqual)
{
    struct Pair {
        Color left;
        Color right;
        bool sameWord;
    };
    const std::vector<Pair> pairs = {
        {Color(1, 2, 3, 4), Color(1, 2, 3, 5), false},
        {Color(10.0f, 0.0f, 50.0f), Color(20.0f, 0.0f, 50.0f), true},
        {Color(10.0f, 20.0f, 0.0f), Color(10.0f, 30.0f, 0.0f), true},
        {Color(10.0f, 0.0f, 50.0f), Color(10.0f, 0.0f, 50.1f), true},
    };

    for (const Pair& pair : pairs) {
        SCOPED_TRACE(testing::PrintToString(pair.left));
        ASSERT_EQ(pair.left.getRGB32() == pair.right.getRGB32(), pair.sameWord);
        expectUnequal(pair.left, pair.right);
    }
}

TEST(ColorTest, ColorMadeFromHsvDiffersFromTheOneMadeFromItsWord)
{
    const Color fromHsv(31.0f, 50.0f, 80.0f);
    const Color fromWord(static_cast<unsigned long>(fromHsv.getRGB32()));

    ASSERT_EQ(fromHsv.getRGB32(), fromWord.getRGB32());
    expectUnequal(fromHsv, fromWord);
}

TEST(ColorTest, ColorWithWhatIsNoNumberEqualsNothing)
{
    for (const Color& color : {Color(NOT_A_NUMBER, 50.0f, 50.0f), Color(10.0f, NOT_A_NUMBER, 50.0f),
                               Color(10.0f, 50.0f, NOT_A_NUMBER)}) {
        expectUnequal(color, color);
    }
}

}  // namespace
}  // namespace oxil::test
