#include "theme.h"

#include <cmath>
#include <cstdio>

namespace panel {
namespace {

// What counts is light, not its code (WCAG 2.1, relative luminance).
double getLight(int code)
{
    const double part = code / 255.0;
    return part <= 0.04045 ? part / 12.92 : std::pow((part + 0.055) / 1.055, 2.4);
}

double getLuminance(const oxil::Color& color)
{
    return 0.2126 * getLight(color.getRed()) + 0.7152 * getLight(color.getGreen()) +
           0.0722 * getLight(color.getBlue());
}

std::string define(const std::string& name, const oxil::Color& color)
{
    char code[8];
    std::snprintf(code, sizeof code, "#%06x", color.getRGB32() & 0xFFFFFF);
    return "@define-color " + name + " " + code + ";\n";
}

//! [readable]
// A colour that can be read on the other: as it is, or less bright, or in dark less strong.
oxil::Color makeReadable(oxil::Color color, const oxil::Color& other, double contrast)
{
    const bool onLight = other.getValue() > 50.0f;
    while (getContrast(color, other) < contrast && color.getValue() > 1.0f &&
           color.getSaturation() > 1.0f) {
        if (onLight) {
            color.setValue(color.getValue() - 1.0f);
        } else {
            color.setSaturation(color.getSaturation() - 1.0f);
        }
    }
    return color;
}
//! [readable]

}  // namespace

double getContrast(const oxil::Color& one, const oxil::Color& other)
{
    const double first = getLuminance(one) + 0.05;
    const double second = getLuminance(other) + 0.05;
    return first > second ? first / second : second / first;
}

//! [colors]
std::string makeColors(int hue, bool dark)
{
    const auto tint = [hue](float saturation, float value) {
        return oxil::Color(static_cast<float>(hue), saturation, value);
    };
    const oxil::Color back = dark ? tint(28, 10) : tint(3, 96);
    const oxil::Color card = dark ? tint(22, 16) : tint(0, 100);
    const oxil::Color soft = dark ? tint(45, 27) : tint(11, 97);
    const oxil::Color accent = makeReadable(dark ? tint(60, 96) : tint(82, 86), soft, 4.5);
    const float strong = accent.getSaturation();
    const float bright = accent.getValue();

    std::string colors = define("back", back) + define("card", card);
    colors += define("accent", accent) + define("accent_soft", soft);
    colors += define("accent_hover", dark ? tint(strong - 10, 100) : tint(strong, bright - 7));
    colors += define("accent_press", dark ? tint(strong, 88) : tint(strong, bright - 15));
    colors += define("on_accent", dark ? tint(60, 10) : tint(0, 100));
    colors +=
        define("edge", makeReadable(dark ? tint(14, 50) : tint(14, 62), dark ? card : back, 3));
    colors += define("hover", dark ? tint(22, 21) : tint(4, 93));
    colors += define("press", dark ? tint(22, 26) : tint(6, 89));
    colors += define("line", dark ? tint(20, 25) : tint(5, 89));
    colors += define("track", dark ? tint(16, 38) : tint(8, 80));
    colors += define("text", dark ? tint(3, 95) : tint(30, 14));
    colors += define("quiet", dark ? tint(8, 70) : tint(18, 42));
    colors += define("faint", dark ? tint(12, 42) : tint(8, 66));
    colors +=
        define("bad", dark ? oxil::Color(10.0f, 50.0f, 100.0f) : oxil::Color(5.0f, 85.0f, 70.0f));
    colors +=
        define("bad_soft", dark ? oxil::Color(8.0f, 45.0f, 26.0f) : oxil::Color(8.0f, 9.0f, 99.0f));
    for (int i = 0; i <= 6; ++i) {  // once round, for the slider of hues
        colors += define("hue" + std::to_string(i), oxil::Color(60.0f * static_cast<float>(i % 6),
                                                                dark ? 55.0f : 70.0f, 90.0f));
    }
    return colors;
}
//! [colors]

}  // namespace panel
