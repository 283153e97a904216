#pragma once

#include <atomic>
#include <functional>
#include <thread>
#include <vector>

namespace oxil::test {

inline constexpr int MANY_THREADS = 8;

/** Does something on many threads, none of which begins before all are there.
 *  @param work  gets the number of its thread, from 0 on */
inline void onManyThreads(const std::function<void(int)>& work)
{
    std::atomic<int> there{0};
    std::vector<std::thread> threads;
    for (int number = 0; number < MANY_THREADS; ++number) {
        threads.emplace_back([&there, &work, number] {
            ++there;
            while (there < MANY_THREADS) {
                std::this_thread::yield();
            }
            work(number);
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

}  // namespace oxil::test
