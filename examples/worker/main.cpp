// A thread works, and the main loop shows how far it is.
//
// Prints:
//   25 %
//   50 %
//   75 %
//   100 %
//   the sum is 4999950000

#include <cstdio>
#include <thread>

#include <Oxil.h>

namespace {

//! [work]
// Everything that is shown is the main loop's: the thread only says what there is to show.
long long addUp(const oxil::CallQueue::Sender& display)
{
    constexpr int COUNT = 100000;
    long long sum = 0;
    for (int i = 0; i < COUNT; ++i) {
        sum += i;
        if ((i + 1) % (COUNT / 4) == 0) {
            display.post([done = (i + 1) / (COUNT / 100)] { std::printf("%d %%\n", done); });
        }
    }
    return sum;
}
//! [work]

}  // namespace

int main()
{
    //! [post]
    oxil::WaitingLoop loop;
    oxil::CallQueue queue;
    long long sum = 0;
    std::thread worker([&loop, &sum, display = queue.getSender()] {
        const long long result = addUp(display);
        display.post([&loop, &sum, result] {
            sum = result;
            loop.quit();
        });
    });
    loop.run();
    worker.join();
    //! [post]
    std::printf("the sum is %lld\n", sum);
}
