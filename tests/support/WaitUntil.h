#pragma once

#include <chrono>
#include <functional>
#include <thread>

namespace oxil::test {

/** Whether the condition, which other threads make true, came true in this time. */
inline bool waitUntil(const std::function<bool()>& condition, std::chrono::milliseconds limit)
{
    const auto end = std::chrono::steady_clock::now() + limit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::microseconds(100));
    }
    return true;
}

}  // namespace oxil::test
