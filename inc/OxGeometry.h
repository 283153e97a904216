#pragma once

#include "OxDimension.h"
#include "OxPoint.h"
#include "OxRectangle.h"

/**
 * @file
 * Questions to points, sizes and rectangles, for those who include this header: `Oxil.h` doesn't.
 *
 * The classes themselves only hold numbers. A rectangle stands for the pixels from its position on
 * to the right and down; the column at `x + width` and the row at `y + height` are not among them.
 * One whose width or height is 0 or negative has none. Everything is right for all numbers, also
 * where an end is more than an `int` can count.
 */

namespace oxil {

namespace internal {

/** Whether one stretch of pixels is a part of another. */
constexpr bool spans(int start, int size, int innerStart, int innerSize) noexcept
{
    return innerStart >= start && 0LL + innerStart + innerSize <= 0LL + start + size;
}

/** Whether two stretches of pixels have one in common. */
constexpr bool meets(int start, int size, int otherStart, int otherSize) noexcept
{
    return start < 0LL + otherStart + otherSize && otherStart < 0LL + start + size;
}

}  // namespace internal

/** Whether both positions are the same. */
constexpr bool operator==(const Point& left, const Point& right) noexcept
{
    return left.x == right.x && left.y == right.y;
}

/** The negation of `operator==`. */
constexpr bool operator!=(const Point& left, const Point& right) noexcept
{
    return !(left == right);
}

/** Whether both sizes are the same. */
constexpr bool operator==(const Dimension& left, const Dimension& right) noexcept
{
    return left.width == right.width && left.height == right.height;
}

/** The negation of `operator==`. */
constexpr bool operator!=(const Dimension& left, const Dimension& right) noexcept
{
    return !(left == right);
}

/** The negation of `operator==`. */
constexpr bool operator!=(const Rectangle& left, const Rectangle& right) noexcept
{
    return !(left == right);
}

/** Whether there is no pixel in it. */
constexpr bool isEmpty(const Rectangle& rectangle) noexcept
{
    return rectangle.width <= 0 || rectangle.height <= 0;
}

/** Whether all pixels of @p inner are in @p outer; false if @p inner has none. */
constexpr bool contains(const Rectangle& outer, const Rectangle& inner) noexcept
{
    return !isEmpty(inner) && internal::spans(outer.x, outer.width, inner.x, inner.width) &&
           internal::spans(outer.y, outer.height, inner.y, inner.height);
}

/** Whether this pixel is in a rectangle. */
constexpr bool contains(const Rectangle& rectangle, const Point& pixel) noexcept
{
    return contains(rectangle, Rectangle(pixel.x, pixel.y, 1, 1));
}

/** Whether there is a pixel that is in both. */
constexpr bool intersects(const Rectangle& one, const Rectangle& other) noexcept
{
    return !isEmpty(one) && !isEmpty(other) &&
           internal::meets(one.x, one.width, other.x, other.width) &&
           internal::meets(one.y, one.height, other.y, other.height);
}

}  // namespace oxil
