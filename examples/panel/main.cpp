// A panel for the settings of a device.
//
// Usage: panel [--OPTION VALUE]... FOLDER STATE
//   FOLDER           where panel.xml, panel.lua, panel.css and report.xsl are
//   STATE            a folder that keeps the settings, and gets the report
//   --size WxH       of the window, 800x480 unless told otherwise; not larger than the screen
//   --script FILE    another script than panel.lua
//   --clock HH:MM    what the clock shows; time stands still, and nothing moves by itself
//   --observed yes   says what is to be seen, see walk/observer.h

#include <cstdio>
#include <map>
#include <optional>
#include <string>

#include <Oxil.h>
#include <gtk/gtk.h>

#include "panel.h"
#include "walk/observer.h"

namespace {

// A device has one look. What a desktop's user prefers would make it another one.
void pinLook(bool still)
{
    g_object_set(gtk_settings_get_default(), "gtk-theme-name", "Adwaita", "gtk-icon-theme-name",
                 "Adwaita", "gtk-font-name", "DejaVu Sans 10", "gtk-xft-antialias", 1,
                 "gtk-xft-hinting", 1, "gtk-xft-hintstyle", "hintslight", "gtk-xft-rgba", "none",
                 "gtk-xft-dpi", 96 * 1024, "gtk-cursor-blink", FALSE, "gtk-enable-animations",
                 still ? FALSE : TRUE, nullptr);
}

}  // namespace

int main(int argc, char** argv)
{
    const bool hasDisplay = gtk_init_check(&argc, &argv);
    std::map<std::string, std::string> words = {
        {"--size", "800x480"}, {"--script", ""}, {"--clock", ""}, {"--observed", ""}};
    int i = 1;
    for (; i + 1 < argc && words.count(argv[i]) > 0; i += 2) {
        words[argv[i]] = argv[i + 1];
    }
    const auto size = oxil::StringUtil::getTokens(words["--size"], "x");
    if (!hasDisplay || argc != i + 2 || size.size() != 2) {
        std::fprintf(stderr, "usage: panel [--OPTION VALUE]... FOLDER STATE, on a display\n");
        return 2;
    }
    pinLook(!words["--clock"].empty());

    //! [main]
    const panel::Options options = {
        argv[i],
        words["--script"],
        argv[i + 1],
        words["--clock"],
        {oxil::NumberParser::toInt(size[0]), oxil::NumberParser::toInt(size[1])}};
    panel::Panel panel(
        options, {std::string(argv[0]) + "-service", PANEL_REGISTRY, options.state + "/settings"});
    std::optional<panel::Observer> observer;
    if (!words["--observed"].empty()) {
        observer.emplace(panel.getWindow(), panel.getSettings());
    }
    return panel.run() ? 0 : 1;
    //! [main]
}
