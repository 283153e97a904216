#include "theme.h"

#include <cmath>
#include <cstdio>
#include <map>
#include <utility>

namespace panel {
namespace {

// What counts is light, not its code (WCAG 2.1, relative luminance).
double getLuminance(const oxil::Color& color)
{
    const auto getLight = [](int code) {
        const double part = code / 255.0;
        return part <= 0.04045 ? part / 12.92 : std::pow((part + 0.055) / 1.055, 2.4);
    };
    return 0.2126 * getLight(color.getRed()) + 0.7152 * getLight(color.getGreen()) +
           0.0722 * getLight(color.getBlue());
}

//! [tints]
// Percents of saturation and value, in light and in dark; the hue is the user's.
struct Tint {
    const char* name;
    std::pair<float, float> light;
    std::pair<float, float> dark;
};

const Tint TINTS[] = {{"back", {3, 96}, {28, 10}},      {"card", {0, 100}, {22, 16}},
                      {"hover", {4, 93}, {22, 21}},     {"press", {6, 89}, {22, 26}},
                      {"line", {5, 89}, {20, 25}},      {"edge", {14, 62}, {14, 50}},
                      {"track", {8, 80}, {16, 38}},     {"text", {30, 14}, {3, 95}},
                      {"quiet", {18, 42}, {8, 70}},     {"faint", {8, 66}, {12, 42}},
                      {"accent", {82, 86}, {60, 96}},   {"accent_soft", {11, 97}, {45, 27}},
                      {"on_accent", {0, 100}, {60, 10}}};
//! [tints]

//! [readable]
// A colour that can be read on the other: as it is, or less bright, or in dark less strong.
oxil::Color makeReadable(oxil::Color color, const oxil::Color& other, double contrast)
{
    const bool onLight = other.getValue() > 50.0f;
    while (getContrast(color, other) < contrast && color.getValue() > 1.0f &&
           color.getSaturation() > 1.0f) {
        onLight ? color.setValue(color.getValue() - 1.0f)
                : color.setSaturation(color.getSaturation() - 1.0f);
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
    std::map<std::string, oxil::Color> colors;
    for (const Tint& tint : TINTS) {
        const auto& [saturation, value] = dark ? tint.dark : tint.light;
        colors.emplace(tint.name, oxil::Color(static_cast<float>(hue), saturation, value));
    }
    colors.emplace("bad_soft", dark ? oxil::Color(66, 39, 36) : oxil::Color(252, 232, 229));
    colors.at("accent") = makeReadable(colors.at("accent"), colors.at("accent_soft"), 4.5);
    colors.at("edge") = makeReadable(colors.at("edge"), colors.at(dark ? "card" : "back"), 3);

    std::string definitions;
    for (const auto& [name, color] : colors) {
        char code[8];
        std::snprintf(code, sizeof code, "#%06x", color.getRGB32() & 0xFFFFFF);
        definitions += "@define-color " + name + " " + code + ";\n";
    }
    return definitions;
}
//! [colors]

}  // namespace panel
