#pragma once

#include <filesystem>
#include <optional>

namespace oxil::platform {

/** Size of a display in pixels; both are greater than 0. */
struct DisplaySize {
    int width;
    int height;
};

/**
 * Finds the machine's display in a tree like the kernel's /sys.
 *
 * The first connected connector of the graphics cards that names a usable preferred mode, by
 * ascending number of card and then by the connector's name; without one, the first framebuffer.
 *
 * @return nothing if there is no display, or none whose size can be read
 */
std::optional<DisplaySize> findDisplay(const std::filesystem::path& sysfs);

}  // namespace oxil::platform
