#pragma once

#include "OxDimension.h"
#include "OxExport.h"
#include "OxPoint.h"

namespace oxil {

/** A position and a size in pixels. Any values are stored as given, negative sizes too.
 *  There is no operator!=, deliberately. One object belongs to one thread at a time. */
class OXIL_API Rectangle {
public:
    /** All 0. */
    constexpr Rectangle() noexcept = default;

    /** From position and size in pixels. */
    constexpr Rectangle(int newX, int newY, int newWidth, int newHeight) noexcept
        : x(newX), y(newY), width(newWidth), height(newHeight)
    {
    }

    /** From position and size. */
    constexpr Rectangle(const Point& position, const Dimension& size) noexcept
        : x(position.x), y(position.y), width(size.width), height(size.height)
    {
    }

    /** Whether position and size are the same. */
    constexpr bool operator==(const Rectangle& other) const noexcept
    {
        return x == other.x && y == other.y && width == other.width && height == other.height;
    }

    /** Leaves the position as it is. */
    constexpr void setSize(int newWidth, int newHeight) noexcept
    {
        width = newWidth;
        height = newHeight;
    }

    /** Leaves the position as it is. */
    constexpr void setSize(const Dimension& size) noexcept { setSize(size.width, size.height); }

    /** Leaves the size as it is. */
    constexpr void setPosition(int newX, int newY) noexcept
    {
        x = newX;
        y = newY;
    }

    /** Leaves the size as it is. */
    constexpr void setPosition(const Point& position) noexcept
    {
        setPosition(position.x, position.y);
    }

    /** Sets position and size. */
    constexpr void setBounds(int newX, int newY, int newWidth, int newHeight) noexcept
    {
        setPosition(newX, newY);
        setSize(newWidth, newHeight);
    }

    /** Sets position and size. */
    constexpr void setBounds(const Point& position, const Dimension& size) noexcept
    {
        setPosition(position);
        setSize(size);
    }

    int x = 0;       ///< pixels from the left
    int y = 0;       ///< pixels from the top
    int width = 0;   ///< pixels
    int height = 0;  ///< pixels
};

}  // namespace oxil
