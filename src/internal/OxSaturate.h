#pragma once

#include <cstdint>

namespace oxil::internal {

/**
 * A number without its fraction. Saturates; NaN gives 0.
 *
 * ARM's instruction does so, where C++ leaves it undefined and other processors differ.
 */
inline int saturate(double value)
{
    if (value >= INT32_MAX) {
        return INT32_MAX;
    }
    if (value <= INT32_MIN) {
        return INT32_MIN;
    }
    return value == value ? static_cast<int>(value) : 0;
}

}  // namespace oxil::internal
