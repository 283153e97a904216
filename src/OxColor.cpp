#include "OxColor.h"

#include <algorithm>

#include "internal/OxSaturate.h"

namespace oxil {
namespace {

constexpr int OPAQUE = 255;
constexpr std::uint32_t ALPHA_MASK = 0xFF000000;

constexpr std::uint32_t pack(std::uint32_t alpha, std::uint32_t red, std::uint32_t green,
                             std::uint32_t blue)
{
    return alpha << 24 | (red & 0xFF) << 16 | (green & 0xFF) << 8 | (blue & 0xFF);
}

constexpr std::uint32_t toByte(int component)
{
    return static_cast<std::uint32_t>(component) & 0xFF;
}

std::uint32_t toChannel(float level)
{
    return static_cast<std::uint32_t>(internal::saturate(level));
}

}  // namespace

Color::Color(int red, int green, int blue, int alpha)
    : __rgb32(pack(toByte(alpha), toByte(red), toByte(green), toByte(blue)))
{
    __calculateHSV();
}

Color::Color(int red, int green, int blue) : Color(red, green, blue, OPAQUE) {}

Color::Color(unsigned long rgb32) : __rgb32(static_cast<std::uint32_t>(rgb32))
{
    __calculateHSV();
}

Color::Color(float hue, float saturation, float value, int alpha)
    : __rgb32(pack(toByte(alpha), 0, 0, 0)), __hue(hue), __saturation(saturation), __value(value)
{
    __calculateRGB();
}

Color::Color(float hue, float saturation, float value) : Color(hue, saturation, value, OPAQUE) {}

bool Color::operator==(const Color& other) const noexcept
{
    return __rgb32 == other.__rgb32 && __hue == other.__hue && __saturation == other.__saturation &&
           __value == other.__value;
}

bool Color::operator!=(const Color& other) const noexcept
{
    return !(*this == other);
}

int Color::getRed() const noexcept
{
    return static_cast<int>(__rgb32 >> 16 & 0xFF);
}

int Color::getGreen() const noexcept
{
    return static_cast<int>(__rgb32 >> 8 & 0xFF);
}

int Color::getBlue() const noexcept
{
    return static_cast<int>(__rgb32 & 0xFF);
}

int Color::getAlpha() const noexcept
{
    return static_cast<int>(__rgb32 >> 24);
}

unsigned int Color::getRGB32() const noexcept
{
    return __rgb32;
}

float Color::getHue() const noexcept
{
    return __hue;
}

float Color::getSaturation() const noexcept
{
    return __saturation;
}

float Color::getValue() const noexcept
{
    return __value;
}

void Color::getColorComponents(int& red, int& green, int& blue, int& alpha) const noexcept
{
    red = getRed();
    green = getGreen();
    blue = getBlue();
    alpha = getAlpha();
}

void Color::getColorComponents(float& hue, float& saturation, float& value,
                               int& alpha) const noexcept
{
    hue = __hue;
    saturation = __saturation;
    value = __value;
    alpha = getAlpha();
}

void Color::setRed(int red)
{
    __rgb32 = (__rgb32 & 0xFF00FFFF) | toByte(red) << 16;
    __calculateHSV();
}

void Color::setGreen(int green)
{
    __rgb32 = (__rgb32 & 0xFFFF00FF) | toByte(green) << 8;
    __calculateHSV();
}

void Color::setBlue(int blue)
{
    __rgb32 = (__rgb32 & 0xFFFFFF00) | toByte(blue);
    __calculateHSV();
}

void Color::setAlpha(int alpha)
{
    __rgb32 = (__rgb32 & ~ALPHA_MASK) | toByte(alpha) << 24;
}

void Color::setRGB32(unsigned int rgb32, bool withAlpha)
{
    __rgb32 = withAlpha ? rgb32 : rgb32 | ALPHA_MASK;
    __calculateHSV();
}

void Color::setHue(float hue)
{
    __hue = hue;
    __calculateRGB();
}

void Color::setSaturation(float saturation)
{
    __saturation = saturation;
    __calculateRGB();
}

void Color::setValue(float value)
{
    __value = value;
    __calculateRGB();
}

void Color::__calculateHSV()
{
    const int red = getRed();
    const int green = getGreen();
    const int blue = getBlue();
    const int most = std::max({red, green, blue});
    const int least = std::min({red, green, blue});

    // Each operation in this order: another one may round otherwise.
    __value = (static_cast<float>(most) / 255.0f) * 100.0f;
    if (most == 0 || most == least) {
        __hue = 0.0f;
        __saturation = 0.0f;
        return;
    }
    const float delta = static_cast<float>(most - least);
    __saturation = (delta / static_cast<float>(most)) * 100.0f;

    if (red == most) {
        __hue = (static_cast<float>(green - blue) / delta) * 60.0f;
    } else if (green == most) {
        __hue = 120.0f + (static_cast<float>(blue - red) / delta) * 60.0f;
    } else {
        __hue = 240.0f + (static_cast<float>(red - green) / delta) * 60.0f;
    }
    if (__hue < 0.0f) {
        __hue += 360.0f;
    }
}

void Color::__calculateRGB()
{
    const std::uint32_t alpha = __rgb32 >> 24;
    const float s = __saturation / 100.0f;
    const float v = (__value / 100.0f) * 255.0f;
    if (s == 0.0f) {
        const std::uint32_t level = toChannel(v);
        __rgb32 = pack(alpha, level, level, level);
        return;
    }

    const float chroma = s * v;
    const float m = v - chroma;
    const float h = __hue / 60.0f;
    const int sector = internal::saturate(h);
    const float f = h - static_cast<float>(sector);
    const float x = f * chroma;

    float red = v;
    float green = m + x;
    float blue = m;
    switch (sector) {
        case 1:
            red = v - x;
            green = v;
            blue = m;
            break;
        case 2:
            red = m;
            green = v;
            blue = m + x;
            break;
        case 3:
            red = m;
            green = v - x;
            blue = v;
            break;
        case 4:
            red = m + x;
            green = m;
            blue = v;
            break;
        case 5:
            red = v;
            green = m;
            blue = v - x;
            break;
        default:
            break;
    }
    __rgb32 = pack(alpha, toChannel(red), toChannel(green), toChannel(blue));
}

}  // namespace oxil
