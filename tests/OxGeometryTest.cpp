#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <new>
#include <ostream>
#include <type_traits>
#include <utility>
#include <vector>

#include "OxDimension.h"
#include "OxPoint.h"
#include "OxRectangle.h"

namespace oxil {

void PrintTo(const Rectangle& rectangle, std::ostream* stream)
{
    *stream << "(" << rectangle.x << ", " << rectangle.y << ", " << rectangle.width << ", "
            << rectangle.height << ")";
}

}  // namespace oxil

namespace oxil::test {
namespace {

using testing::ElementsAre;

// ---- What the types look like -------------------------------------------------------------------

template <typename Type>
constexpr bool IS_PLAIN_VALUE = std::is_standard_layout_v<Type>&&
    std::is_trivially_copyable_v<Type>&& std::is_trivially_destructible_v<Type>&&
        std::is_nothrow_default_constructible_v<Type>&& std::is_copy_constructible_v<Type>&&
            std::is_same_v<decltype(std::declval<Type&>() = std::declval<const Type&>()), Type&>;

static_assert(IS_PLAIN_VALUE<Point>);
static_assert(IS_PLAIN_VALUE<Dimension>);
static_assert(IS_PLAIN_VALUE<Rectangle>);

// The fields are the application's to read, each a signed number of 32 bits.
static_assert(std::is_same_v<decltype(Point::x), std::int32_t>);
static_assert(std::is_same_v<decltype(Point::y), std::int32_t>);
static_assert(std::is_same_v<decltype(Dimension::width), std::int32_t>);
static_assert(std::is_same_v<decltype(Dimension::height), std::int32_t>);
static_assert(std::is_same_v<decltype(Rectangle::x), std::int32_t>);
static_assert(std::is_same_v<decltype(Rectangle::y), std::int32_t>);
static_assert(std::is_same_v<decltype(Rectangle::width), std::int32_t>);
static_assert(std::is_same_v<decltype(Rectangle::height), std::int32_t>);

// No base class that the other types would share, and nothing to be mistaken for one another.
static_assert(!std::is_convertible_v<Point, Dimension> && !std::is_convertible_v<Dimension, Point>);
static_assert(!std::is_convertible_v<Rectangle, Point> && !std::is_convertible_v<Point, Rectangle>);
static_assert(!std::is_convertible_v<Rectangle, Dimension> && !std::is_convertible_v<int, Point>);
static_assert(!std::is_constructible_v<Rectangle, Dimension, Point>);

// The setters return nothing.
static_assert(std::is_void_v<decltype(std::declval<Point&>().setPosition(1, 2))>);
static_assert(std::is_void_v<decltype(std::declval<Point&>().setPosition(Point()))>);
static_assert(std::is_void_v<decltype(std::declval<Dimension&>().setSize(1, 2))>);
static_assert(std::is_void_v<decltype(std::declval<Rectangle&>().setSize(1, 2))>);
static_assert(std::is_void_v<decltype(std::declval<Rectangle&>().setSize(Dimension()))>);
static_assert(std::is_void_v<decltype(std::declval<Rectangle&>().setPosition(1, 2))>);
static_assert(std::is_void_v<decltype(std::declval<Rectangle&>().setPosition(Point()))>);
static_assert(std::is_void_v<decltype(std::declval<Rectangle&>().setBounds(1, 2, 3, 4))>);
static_assert(std::is_void_v<decltype(std::declval<Rectangle&>().setBounds(Point(), Dimension()))>);

// ---- Operators that there are, and that there are not -------------------------------------------

#define OXIL_DETECT(NAME, EXPRESSION)         \
    template <typename Type, typename = void> \
    constexpr bool NAME = false;              \
    template <typename Type>                  \
    constexpr bool NAME<Type, std::void_t<decltype(EXPRESSION)>> = true

OXIL_DETECT(HAS_EQUAL, std::declval<const Type&>() == std::declval<const Type&>());
OXIL_DETECT(HAS_UNEQUAL, std::declval<const Type&>() != std::declval<const Type&>());
OXIL_DETECT(HAS_LESS, std::declval<const Type&>() < std::declval<const Type&>());
OXIL_DETECT(HAS_PLUS, std::declval<const Type&>() + std::declval<const Type&>());
OXIL_DETECT(HAS_MINUS, std::declval<const Type&>() - std::declval<const Type&>());
OXIL_DETECT(HAS_PLUS_ASSIGN, std::declval<Type&>() += std::declval<const Type&>());
OXIL_DETECT(HAS_TIMES, std::declval<const Type&>() * 2);
OXIL_DETECT(HAS_NEGATION, -std::declval<const Type&>());
#undef OXIL_DETECT

// The detection itself works, on a type that has everything.
static_assert(HAS_EQUAL<int> && HAS_UNEQUAL<int> && HAS_LESS<int> && HAS_PLUS<int> &&
              HAS_MINUS<int> && HAS_PLUS_ASSIGN<int> && HAS_TIMES<int> && HAS_NEGATION<int>);

static_assert(!HAS_EQUAL<Point> && !HAS_EQUAL<Dimension> && HAS_EQUAL<Rectangle>);
static_assert(!HAS_UNEQUAL<Point> && !HAS_UNEQUAL<Dimension>);
#if __cplusplus <= 201703L  // later every equality brings its inequality
static_assert(!HAS_UNEQUAL<Rectangle>);
#endif

template <typename Type>
constexpr bool HAS_ARITHMETIC = HAS_LESS<Type> || HAS_PLUS<Type> || HAS_MINUS<Type> ||
                                HAS_PLUS_ASSIGN<Type> || HAS_TIMES<Type> || HAS_NEGATION<Type>;

static_assert(!HAS_ARITHMETIC<Point> && !HAS_ARITHMETIC<Dimension> && !HAS_ARITHMETIC<Rectangle>);

// ---- Helpers ------------------------------------------------------------------------------------

std::vector<int> fields(const Point& point)
{
    return {point.x, point.y};
}

std::vector<int> fields(const Dimension& dimension)
{
    return {dimension.width, dimension.height};
}

std::vector<int> fields(const Rectangle& rectangle)
{
    return {rectangle.x, rectangle.y, rectangle.width, rectangle.height};
}

// ---- Construction -------------------------------------------------------------------------------

TEST(GeometryTest, DefaultValuesAreZero)
{
    // The memory is not zero already.
    alignas(Rectangle) unsigned char memory[sizeof(Rectangle)];

    std::fill(std::begin(memory), std::end(memory), static_cast<unsigned char>(0xA5));
    EXPECT_THAT(fields(*new (memory) Point), ElementsAre(0, 0));
    std::fill(std::begin(memory), std::end(memory), static_cast<unsigned char>(0xA5));
    EXPECT_THAT(fields(*new (memory) Dimension), ElementsAre(0, 0));
    std::fill(std::begin(memory), std::end(memory), static_cast<unsigned char>(0xA5));
    EXPECT_THAT(fields(*new (memory) Rectangle), ElementsAre(0, 0, 0, 0));
}

TEST(GeometryTest, ValuesAreStoredAsGiven)
{
    EXPECT_THAT(fields(Point(1, 2)), ElementsAre(1, 2));
    EXPECT_THAT(fields(Dimension(3, 4)), ElementsAre(3, 4));
    EXPECT_THAT(fields(Rectangle(1, 2, 3, 4)), ElementsAre(1, 2, 3, 4));
    EXPECT_THAT(fields(Rectangle(Point(1, 2), Dimension(3, 4))), ElementsAre(1, 2, 3, 4));
}

TEST(GeometryTest, AnyNumbersAreAllowed)
{
    EXPECT_THAT(fields(Point(-1, INT_MIN)), ElementsAre(-1, INT_MIN));
    EXPECT_THAT(fields(Dimension(-3, INT_MAX)), ElementsAre(-3, INT_MAX));
    EXPECT_THAT(fields(Rectangle(INT_MIN, INT_MAX, -1, INT_MIN)),
                ElementsAre(INT_MIN, INT_MAX, -1, INT_MIN));

    Point point;
    point.setPosition(INT_MAX, -2);
    EXPECT_THAT(fields(point), ElementsAre(INT_MAX, -2));
    Dimension dimension;
    dimension.setSize(INT_MIN, -2);
    EXPECT_THAT(fields(dimension), ElementsAre(INT_MIN, -2));
    Rectangle rectangle;
    rectangle.setBounds(-1, -2, -3, INT_MIN);
    EXPECT_THAT(fields(rectangle), ElementsAre(-1, -2, -3, INT_MIN));
    rectangle.setBounds(Point(INT_MAX, -2), Dimension(-3, -4));
    EXPECT_THAT(fields(rectangle), ElementsAre(INT_MAX, -2, -3, -4));
}

// ---- Copies -------------------------------------------------------------------------------------

template <typename Type>
void expectCopies(Type original, Type other)
{
    const std::vector<int> content = fields(original);
    ASSERT_NE(fields(other), content);

    Type copy(original);
    EXPECT_EQ(fields(copy), content);

    Type& assigned = other = original;
    EXPECT_EQ(&assigned, &other);
    EXPECT_EQ(fields(other), content);

    const Type& self = other;
    other = self;
    EXPECT_EQ(fields(other), content);

    // Each has fields of its own.
    original = Type();
    EXPECT_EQ(fields(copy), content);
    EXPECT_EQ(fields(other), content);
}

TEST(GeometryTest, CopiesHaveTheSameFields)
{
    expectCopies(Point(1, 2), Point(3, 4));
    expectCopies(Dimension(1, 2), Dimension(3, 4));
    expectCopies(Rectangle(1, 2, 3, 4), Rectangle(5, 6, 7, 8));
}

// ---- Setters ------------------------------------------------------------------------------------

TEST(GeometryTest, PointMoves)
{
    Point point(1, 2);

    point.setPosition(3, 4);
    EXPECT_THAT(fields(point), ElementsAre(3, 4));

    point.setPosition(Point(5, 6));
    EXPECT_THAT(fields(point), ElementsAre(5, 6));

    point.setPosition(point);
    EXPECT_THAT(fields(point), ElementsAre(5, 6));
}

TEST(GeometryTest, DimensionChanges)
{
    Dimension dimension(1, 2);

    dimension.setSize(3, 4);

    EXPECT_THAT(fields(dimension), ElementsAre(3, 4));
}

TEST(GeometryTest, MovingARectangleKeepsItsSize)
{
    Rectangle rectangle(1, 2, 3, 4);

    rectangle.setPosition(5, 6);
    EXPECT_THAT(fields(rectangle), ElementsAre(5, 6, 3, 4));

    rectangle.setPosition(Point(7, 8));
    EXPECT_THAT(fields(rectangle), ElementsAre(7, 8, 3, 4));
}

TEST(GeometryTest, ResizingARectangleKeepsItsPosition)
{
    Rectangle rectangle(1, 2, 3, 4);

    rectangle.setSize(5, 6);
    EXPECT_THAT(fields(rectangle), ElementsAre(1, 2, 5, 6));

    rectangle.setSize(Dimension(7, 8));
    EXPECT_THAT(fields(rectangle), ElementsAre(1, 2, 7, 8));
}

TEST(GeometryTest, BoundsAreAllFourFields)
{
    Rectangle rectangle(1, 2, 3, 4);

    rectangle.setBounds(5, 6, 7, 8);
    EXPECT_THAT(fields(rectangle), ElementsAre(5, 6, 7, 8));

    rectangle.setBounds(Point(9, 10), Dimension(11, 12));
    EXPECT_THAT(fields(rectangle), ElementsAre(9, 10, 11, 12));
}

TEST(GeometryTest, FieldsMayBeWrittenDirectly)
{
    Rectangle rectangle(1, 2, 3, 4);

    rectangle.height = 5;

    EXPECT_EQ(rectangle, Rectangle(1, 2, 3, 5));
}

// ---- Comparison ---------------------------------------------------------------------------------

TEST(GeometryTest, RectanglesAreEqualIfAllFieldsAre)
{
    const Rectangle rectangle(1, 2, 3, 4);

    EXPECT_TRUE(rectangle == Rectangle(1, 2, 3, 4));
    EXPECT_TRUE(rectangle == rectangle);
    EXPECT_TRUE(Rectangle() == Rectangle(0, 0, 0, 0));
    EXPECT_TRUE(Rectangle(-1, -2, -3, -4) == Rectangle(Point(-1, -2), Dimension(-3, -4)));
}

TEST(GeometryTest, RectanglesThatDifferInOneFieldAreNotEqual)
{
    const Rectangle rectangle(1, 2, 3, 4);

    for (const Rectangle& other : {Rectangle(0, 2, 3, 4), Rectangle(1, 0, 3, 4),
                                   Rectangle(1, 2, 0, 4), Rectangle(1, 2, 3, 0)}) {
        EXPECT_FALSE(rectangle == other) << testing::PrintToString(other);
        EXPECT_FALSE(other == rectangle) << testing::PrintToString(other);
    }
    EXPECT_FALSE(rectangle == Rectangle(4, 3, 2, 1));
}

// ---- Before the program runs --------------------------------------------------------------------

constexpr Rectangle placed()
{
    Point point;
    point.setPosition(1, 2);
    Point other;
    other.setPosition(point);
    Dimension dimension;
    dimension.setSize(3, 4);

    Rectangle rectangle;
    rectangle.setBounds(other, dimension);
    rectangle.setSize(Dimension(5, 6));
    rectangle.setPosition(Point(7, 8));
    rectangle.setSize(rectangle.width + 1, rectangle.height);
    rectangle.setPosition(rectangle.x, rectangle.y + 1);

    Rectangle copy(0, 0, 0, 0);
    copy.setBounds(9, 9, 9, 9);
    copy = rectangle;
    return copy;
}

static_assert(placed() == Rectangle(7, 9, 6, 6));
static_assert(!(placed() == Rectangle(Point(7, 9), Dimension(6, 7))));
static_assert(Point().x == 0 && Point(1, 2).y == 2 && Dimension().height == 0);

}  // namespace
}  // namespace oxil::test
