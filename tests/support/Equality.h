#pragma once

#include <gtest/gtest.h>

namespace oxil::test {

/** Expects that both operators say so, whichever side is asked. */
template <typename Type>
void expectEqual(const Type& left, const Type& right)
{
    EXPECT_TRUE(left == right);
    EXPECT_TRUE(right == left);
    EXPECT_FALSE(left != right);
    EXPECT_FALSE(right != left);
}

template <typename Type>
void expectUnequal(const Type& left, const Type& right)
{
    EXPECT_FALSE(left == right);
    EXPECT_FALSE(right == left);
    EXPECT_TRUE(left != right);
    EXPECT_TRUE(right != left);
}

}  // namespace oxil::test
