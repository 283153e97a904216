#pragma once

#include "OxExport.h"

namespace oxil {

/** A position in pixels. Any values are stored as given. */
class OXIL_API Point {
public:
    /** (0, 0). */
    constexpr Point() noexcept : x(0), y(0) {}

    constexpr Point(int newX, int newY) noexcept : x(newX), y(newY) {}

    constexpr void setPosition(int newX, int newY) noexcept
    {
        x = newX;
        y = newY;
    }

    constexpr void setPosition(const Point& position) noexcept { *this = position; }

    int x;
    int y;
};

}  // namespace oxil
