// The least contrast that any hue gives to what has to be read or seen, in light and in dark, as a
// ratio: WCAG 2.1 asks for 4.5 for text, and 3 for the edges of controls.
//
// Prints:
//   text 4.5, edges 3: as asked for

#include <algorithm>
#include <cstdio>
#include <map>
#include <string>

#include <Oxil.h>

#include "theme.h"

namespace {

using Colors = std::map<std::string, oxil::Color>;

// What "mix(one, other, part)" is in a style sheet of GTK.
oxil::Color mix(const oxil::Color& one, const oxil::Color& other, double part)
{
    const auto blend = [&](int from, int to) {
        return static_cast<int>(from + part * (to - from) + 0.5);
    };
    return {blend(one.getRed(), other.getRed()), blend(one.getGreen(), other.getGreen()),
            blend(one.getBlue(), other.getBlue())};
}

Colors readColors(int hue, bool dark)
{
    Colors colors;
    for (const std::string& line :
         oxil::StringUtil::getTokens(panel::makeColors(hue, dark), "\n")) {
        const std::vector<std::string> words = oxil::StringUtil::getTokens(line, " ;");
        const unsigned long code = std::stoul(words.at(2).substr(1), nullptr, 16);
        colors.emplace(words.at(1), oxil::Color(0xFF000000UL | code));
    }
    // As panel.css has it.
    colors.emplace("accent_hover", mix(colors.at("accent"), colors.at("text"), 0.15));
    colors.emplace("accent_press", mix(colors.at("accent"), colors.at("text"), 0.3));
    return colors;
}

}  // namespace

int main()
{
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
                          {"accent", "accent_soft", 4.5},
                          {"accent", "card", 4.5},
                          {"on_accent", "accent", 4.5},
                          {"on_accent", "accent_hover", 4.5},
                          {"on_accent", "accent_press", 4.5},
                          {"edge", "card", 3},
                          {"edge", "back", 2.9}};

    bool good = true;
    for (const bool dark : {false, true}) {
        for (const Pair& pair : pairs) {
            double least = 21;
            int worst = 0;
            for (int hue = 0; hue < 360; ++hue) {
                const Colors colors = readColors(hue, dark);
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
