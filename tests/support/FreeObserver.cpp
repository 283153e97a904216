#include "FreeObserver.h"

#include <cstdlib>

#include "AllocationFailure.h"

extern "C" void __libc_free(void* memory);

// Present under the address sanitizer, whose free() takes only what its own malloc() gave.
extern "C" __attribute__((weak)) void __interceptor_free(void* memory);

namespace oxil::test {
namespace {

constexpr int SLOT_COUNT = 4;

// Plain zeros, because free() is called before main(), after it and while threads end.
thread_local const void* watched[SLOT_COUNT];
thread_local int counts[SLOT_COUNT];

}  // namespace

FreeObserver::FreeObserver(const void* memory) : __slot(0)
{
    while (watched[__slot] != nullptr) {
        if (++__slot == SLOT_COUNT) {
            std::abort();
        }
    }
    counts[__slot] = 0;
    watched[__slot] = memory;
}

FreeObserver::~FreeObserver()
{
    watched[__slot] = nullptr;
}

int FreeObserver::count() const
{
    return counts[__slot];
}

}  // namespace oxil::test

// Not instrumented: the address sanitizer's own start calls it, before there is shadow memory.
extern "C" __attribute__((visibility("default"), no_sanitize("address"))) void free(
    void* memory) noexcept
{
    using namespace oxil::test;

    if (memory != nullptr) {
        for (int i = 0; i < SLOT_COUNT; ++i) {
            if (watched[i] == memory) {
                ++counts[i];
            }
        }
    }
    countRelease(memory);
    if (__interceptor_free != nullptr) {
        __interceptor_free(memory);
    } else {
        __libc_free(memory);
    }
}
