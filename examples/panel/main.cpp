// A panel for the settings of a device.
//
// Usage: panel [--OPTION VALUE]... FOLDER STATE
//   FOLDER           where panel.xml, panel.lua, panel.css and report.xsl are
//   STATE            a folder that keeps the settings, and gets the report
//   --size WxH       of the window, 800x480 unless told otherwise; not larger than the screen
//   --script FILE    another script than panel.lua
//   --clock HH:MM    what the clock shows; time stands still, and nothing moves by itself
//   --observed yes   says what is to be seen, see observer.h

#include <cstdio>
#include <map>
#include <optional>
#include <string>

#include <Oxil.h>
#include <gtk/gtk.h>

#include "behaviour.h"
#include "observer.h"
#include "settings.h"
#include "window.h"

namespace {

using Options = std::map<std::string, std::string>;

// Puts the options' values in their place, and returns the number of words that they take.
int readOptions(int argc, char** argv, Options& options)
{
    int i = 1;
    while (i + 1 < argc && options.count(argv[i]) > 0) {
        options[argv[i]] = argv[i + 1];
        i += 2;
    }
    return i;
}

//! [pin]
// A device has one look. What a desktop's user prefers would make it another one.
void pinLook(bool still)
{
    g_object_set(gtk_settings_get_default(), "gtk-theme-name", "Adwaita", "gtk-icon-theme-name",
                 "Adwaita", "gtk-font-name", "DejaVu Sans 10", "gtk-xft-antialias", 1,
                 "gtk-xft-hinting", 1, "gtk-xft-hintstyle", "hintslight", "gtk-xft-rgba", "none",
                 "gtk-xft-dpi", 96 * 1024, "gtk-cursor-blink", FALSE, "gtk-enable-animations",
                 still ? FALSE : TRUE, nullptr);
}
//! [pin]

}  // namespace

int main(int argc, char** argv)
{
    Options options = {
        {"--size", "800x480"}, {"--script", ""}, {"--clock", ""}, {"--observed", ""}};
    const bool hasDisplay = gtk_init_check(&argc, &argv);
    const int words = readOptions(argc, argv, options);
    const auto size = oxil::StringUtil::getTokens(options["--size"], "x");
    if (!hasDisplay || argc != words + 2 || size.size() != 2) {
        std::fprintf(stderr, "usage: panel [--OPTION VALUE]... FOLDER STATE, on a display\n");
        return 2;
    }
    const std::string folder = argv[words];
    const std::string state = argv[words + 1];
    const std::string clock = options["--clock"];
    if (options["--script"].empty()) {
        options["--script"] = folder + "/panel.lua";
    }
    pinLook(!clock.empty());

    //! [main]
    panel::Settings settings(
        {std::string(argv[0]) + "-service", PANEL_REGISTRY, state + "/settings"});
    oxil::WaitingLoop loop;
    panel::Behaviour behaviour(folder, options["--script"], state + "/report.html", settings, loop);
    panel::Window window(
        behaviour, {oxil::NumberParser::toInt(size[0]), oxil::NumberParser::toInt(size[1])}, clock);
    std::optional<panel::Observer> observer;
    if (!options["--observed"].empty()) {
        observer.emplace(window, settings);
    }
    if (!behaviour.start(window)) {
        return 1;
    }
    loop.run();
    //! [main]
}
