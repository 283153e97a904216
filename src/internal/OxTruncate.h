#pragma once

#include <cstdint>

namespace oxil::internal {

/**
 * A number without its fraction.
 *
 * Out of range it is the limit, and 0 for what is no number: ARM's instruction does so, where C++
 * leaves it undefined and other processors differ.
 */
inline int truncate(double value)
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
