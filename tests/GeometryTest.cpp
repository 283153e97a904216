#include "OxGeometry.h"

#include <gtest/gtest.h>

#include <climits>

namespace oxil::test {
namespace {

constexpr Rectangle FIELD(10, 20, 4, 3);  // columns 10 to 13, rows 20 to 22

// Every question can be asked while compiling.
static_assert(Point(1, 2) == Point(1, 2) && Dimension(1, 2) == Dimension(1, 2));
static_assert(contains(FIELD, Point(10, 20)) && contains(FIELD, FIELD) && intersects(FIELD, FIELD));

TEST(GeometryTest, PositionsAndSizesAreEqualIfBothNumbersAre)
{
    EXPECT_TRUE(Point(1, 2) == Point(1, 2));
    EXPECT_FALSE(Point(1, 2) == Point(0, 2));
    EXPECT_FALSE(Point(1, 2) == Point(1, 0));
    EXPECT_FALSE(Point(1, 2) != Point(1, 2));
    EXPECT_TRUE(Point(1, 2) != Point(2, 1));

    EXPECT_TRUE(Dimension(1, 2) == Dimension(1, 2));
    EXPECT_FALSE(Dimension(1, 2) == Dimension(0, 2));
    EXPECT_FALSE(Dimension(1, 2) == Dimension(1, 0));
    EXPECT_FALSE(Dimension(1, 2) != Dimension(1, 2));
    EXPECT_TRUE(Dimension(1, 2) != Dimension(2, 1));

    EXPECT_FALSE(FIELD != FIELD);
    EXPECT_TRUE(FIELD != Rectangle(10, 20, 4, 4));
}

TEST(GeometryTest, ARectangleHasPixelsIfItHasWidthAndHeight)
{
    EXPECT_FALSE(isEmpty(Rectangle(0, 0, 1, 1)));
    EXPECT_TRUE(isEmpty(Rectangle(0, 0, 0, 1)));
    EXPECT_TRUE(isEmpty(Rectangle(0, 0, 1, 0)));
    EXPECT_TRUE(isEmpty(Rectangle(0, 0, -1, 1)));
    EXPECT_TRUE(isEmpty(Rectangle(0, 0, 1, -1)));
}

TEST(GeometryTest, ARectangleContainsItsPixelsAndNoOthers)
{
    for (int x = 8; x < 16; ++x) {
        for (int y = 18; y < 25; ++y) {
            const bool isInside = x >= 10 && x < 14 && y >= 20 && y < 23;
            EXPECT_EQ(contains(FIELD, Point(x, y)), isInside) << x << ", " << y;
        }
    }
    EXPECT_FALSE(contains(Rectangle(5, 5, 0, 0), Point(5, 5)));
    EXPECT_FALSE(contains(Rectangle(5, 5, -3, -3), Point(4, 4)));
}

/** Counts pixels, one by one. */
bool haveOneInCommon(const Rectangle& one, const Rectangle& other)
{
    for (int x = other.x; x < other.x + other.width; ++x) {
        for (int y = other.y; y < other.y + other.height; ++y) {
            if (contains(one, Point(x, y))) {
                return true;
            }
        }
    }
    return false;
}

bool haveAllInCommon(const Rectangle& outer, const Rectangle& inner)
{
    for (int x = inner.x; x < inner.x + inner.width; ++x) {
        for (int y = inner.y; y < inner.y + inner.height; ++y) {
            if (!contains(outer, Point(x, y))) {
                return false;
            }
        }
    }
    return !isEmpty(inner);
}

TEST(GeometryTest, RectanglesAreComparedPixelByPixel)
{
    int meeting = 0;
    int inside = 0;
    for (int x = 8; x < 15; ++x) {
        for (int y = 18; y < 24; ++y) {
            for (int width = -1; width < 6; ++width) {
                for (int height = -1; height < 5; ++height) {
                    const Rectangle other(x, y, width, height);
                    ASSERT_EQ(intersects(FIELD, other), haveOneInCommon(FIELD, other));
                    ASSERT_EQ(intersects(other, FIELD), intersects(FIELD, other));
                    ASSERT_EQ(contains(FIELD, other), haveAllInCommon(FIELD, other));
                    meeting += intersects(FIELD, other) ? 1 : 0;
                    inside += contains(FIELD, other) ? 1 : 0;
                }
            }
        }
    }
    EXPECT_GT(meeting, inside);
    EXPECT_EQ(inside, 10 * 6);  // places and widths, times places and heights
}

TEST(GeometryTest, EndsMayBeMoreThanAnIntCanCount)
{
    const Rectangle far(INT_MAX - 1, INT_MAX - 1, INT_MAX, INT_MAX);

    EXPECT_TRUE(contains(far, Point(INT_MAX, INT_MAX)));
    EXPECT_FALSE(contains(far, Point(INT_MIN, INT_MIN)));
    EXPECT_TRUE(intersects(far, Rectangle(INT_MAX, INT_MAX, 1, 1)));
    EXPECT_TRUE(contains(Rectangle(INT_MIN, INT_MIN, INT_MAX, INT_MAX), Point(-2, -2)));
    EXPECT_FALSE(contains(Rectangle(INT_MIN, INT_MIN, INT_MAX, INT_MAX), Point(-1, -1)));
    EXPECT_FALSE(intersects(Rectangle(INT_MIN, 0, 1, 1), Rectangle(INT_MAX, 0, 1, 1)));
}

}  // namespace
}  // namespace oxil::test
