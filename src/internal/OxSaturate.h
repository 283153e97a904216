#pragma once

#include <limits>

namespace oxil::internal {

/**
 * A number without its fraction. Saturates; NaN gives 0.
 *
 * ARM's instruction does so, where C++ leaves it undefined and other processors differ.
 */
template <typename Integer = int>
Integer saturate(double value)
{
    using Limits = std::numeric_limits<Integer>;
    constexpr double END =
        2.0 * static_cast<double>(Limits::max() / 2 + 1);  // exact, max() may not be

    if (value >= END) {
        return Limits::max();
    }
    if (value <= static_cast<double>(Limits::min())) {
        return Limits::min();
    }
    return value == value ? static_cast<Integer>(value) : 0;
}

}  // namespace oxil::internal
