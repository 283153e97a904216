#pragma once

#include <chrono>
#include <climits>
#include <cmath>

namespace oxil::internal {

/** A duration as the main loop takes it: rounded up to milliseconds, at least 0, at most INT_MAX. */
template <typename Rep, typename Period>
int toMilliseconds(std::chrono::duration<Rep, Period> duration) noexcept
{
    const double count = std::ceil(std::chrono::duration<double, std::milli>(duration).count());
    if (!(count > 0)) {
        return 0;
    }
    return count < INT_MAX ? static_cast<int>(count) : INT_MAX;
}

}  // namespace oxil::internal
