#include "theme.h"

#include <cmath>
#include <cstdio>
#include <map>
#include <utility>

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

//! [tints]
// Percents of saturation and value, in light and in dark; of the user's hue, unless there is one.
struct Tint {
    const char* name;
    std::pair<float, float> light;
    std::pair<float, float> dark;
    float hue = -1;
};

const Tint TINTS[] = {{"back", {3, 96}, {28, 10}},       {"card", {0, 100}, {22, 16}},
                      {"hover", {4, 93}, {22, 21}},      {"press", {6, 89}, {22, 26}},
                      {"line", {5, 89}, {20, 25}},       {"edge", {14, 62}, {14, 50}},
                      {"track", {8, 80}, {16, 38}},      {"text", {30, 14}, {3, 95}},
                      {"quiet", {18, 42}, {8, 70}},      {"faint", {8, 66}, {12, 42}},
                      {"accent", {82, 86}, {60, 96}},    {"accent_soft", {11, 97}, {45, 27}},
                      {"on_accent", {0, 100}, {60, 10}}, {"bad", {85, 70}, {50, 100}, 5},
                      {"bad_soft", {9, 99}, {45, 26}, 8}};
//! [tints]

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
    const float own = static_cast<float>(hue);
    std::map<std::string, oxil::Color> colors;
    for (const Tint& tint : TINTS) {
        const auto& [saturation, value] = dark ? tint.dark : tint.light;
        colors.emplace(tint.name, oxil::Color(tint.hue < 0 ? own : tint.hue, saturation, value));
    }
    colors.at("accent") = makeReadable(colors.at("accent"), colors.at("accent_soft"), 4.5);
    colors.at("edge") = makeReadable(colors.at("edge"), colors.at(dark ? "card" : "back"), 3);

    // Under the pointer and pressed, it is the same colour with less or more light.
    const float strong = colors.at("accent").getSaturation();
    const float bright = colors.at("accent").getValue();
    const auto add = [&](const char* name, float saturation, float value) {
        colors.emplace(name, oxil::Color(own, saturation, value));
    };
    add("accent_hover", dark ? strong - 10 : strong, dark ? 100 : bright - 7);
    add("accent_press", strong, dark ? 88 : bright - 15);

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
