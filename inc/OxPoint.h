#pragma once

#include "OxExport.h"

namespace oxil {

/** A position in pixels. Any values are stored as given, negative ones too. There is no comparison,
 *  deliberately. One object belongs to one thread at a time. */
class OXIL_API Point {
public:
    /** (0, 0). */
    constexpr Point() noexcept = default;

    /** From a position in pixels. */
    constexpr Point(int newX, int newY) noexcept : x(newX), y(newY) {}

    /** Sets both. */
    constexpr void setPosition(int newX, int newY) noexcept
    {
        x = newX;
        y = newY;
    }

    /** Sets both. */
    constexpr void setPosition(const Point& position) noexcept { *this = position; }

    int x = 0;  ///< pixels from the left
    int y = 0;  ///< pixels from the top
};

}  // namespace oxil
