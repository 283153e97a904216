// The least contrast that any hue gives to what has to be read or seen, in light and in dark, as a
// ratio: WCAG 2.1 asks for 4.5 for text, and 3 for the edges of controls.
//
// Usage: panel-contrast STYLE_SHEET
//
// Prints:
//   text 4.5, edges 3: as asked for

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <vector>

#include <Oxil.h>

#include "theme.h"

namespace {

using Colors = std::map<std::string, oxil::Color>;

// What "mix(@one, @other, part)" is in a style sheet of GTK.
oxil::Color mix(const oxil::Color& one, const oxil::Color& other, double part)
{
    const auto blend = [&](int from, int to) {
        return static_cast<int>(from + part * (to - from) + 0.5);
    };
    return {blend(one.getRed(), other.getRed()), blend(one.getGreen(), other.getGreen()),
            blend(one.getBlue(), other.getBlue())};
}

// The colours that a style sheet defines.
Colors readColors(const std::string& css)
{
    Colors colors;
    for (const std::string& line : oxil::StringUtil::getTokens(css, "\n")) {
        char name[32];
        char one[32];
        char other[32];
        unsigned int code = 0;
        double part = 0;
        const char* const text = line.c_str();
        if (std::sscanf(text, "@define-color %31s #%x", name, &code) == 2) {
            colors.emplace(name, oxil::Color(0xFF000000UL | code));
        } else if (std::sscanf(text, "@define-color %31s mix(@%31[^,], @%31[^,], %lf", name, one,
                               other, &part) == 4) {
            colors.emplace(name, mix(colors.at(one), colors.at(other), part));
        } else if (std::sscanf(text, "@define-color %31s @%31[^;]", name, one) == 2) {
            colors.emplace(name, colors.at(one));
        }
    }
    return colors;
}

}  // namespace

int main(int, char** argv)
{
    std::ifstream file(argv[1]);
    const std::string css{std::istreambuf_iterator<char>(file), {}};
    struct Pair {
        const char* front;
        const char* back;
        double least;
    };
    const Pair pairs[] = {{"text", "card", 4.5},
                          {"text", "back", 4.5},
                          {"text", "hover", 4.5},
                          {"text", "press", 4.5},
                          {"text", "accent_soft", 4.5},
                          {"text", "bad_soft", 4.5},
                          {"quiet", "card", 4.5},
                          {"quiet", "back", 4.5},
                          {"placeholder_text_color", "card", 4.5},
                          {"accent", "accent_soft", 4.5},
                          {"accent", "card", 4.5},
                          {"on_accent", "accent", 4.5},
                          {"on_accent", "accent_hover", 4.5},
                          {"on_accent", "accent_press", 4.5},
                          {"edge", "card", 3},
                          {"edge", "back", 3}};

    bool good = true;
    for (const bool dark : {false, true}) {
        std::vector<Colors> themes;
        for (int hue = 0; hue < 360; ++hue) {
            themes.push_back(readColors(panel::makeColors(hue, dark) + css));
        }
        for (const Pair& pair : pairs) {
            double least = 21;
            int worst = 0;
            for (int hue = 0; hue < 360; ++hue) {
                const Colors& colors = themes[static_cast<std::size_t>(hue)];
                const double contrast =
                    panel::getContrast(colors.at(pair.front), colors.at(pair.back));
                if (contrast < least) {
                    least = contrast;
                    worst = hue;
                }
            }
            if (least < pair.least) {
                std::printf("%s on %s, %s, hue %d: %.2f\n", pair.front, pair.back,
                            dark ? "dark" : "light", worst, least);
                good = false;
            }
        }
    }
    if (good) {
        std::printf("text 4.5, edges 3: as asked for\n");
    }
    return good ? 0 : 1;
}
