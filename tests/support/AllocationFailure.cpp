#include "AllocationFailure.h"

#include <malloc.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <new>

extern "C" void* __libc_malloc(std::size_t size);

// Present under the address sanitizer, whose free() takes only what its own malloc() gave.
extern "C" __attribute__((weak)) void* __interceptor_malloc(std::size_t size);

namespace oxil::test {
namespace {

thread_local long count = 0;
thread_local int remaining = 0;  // 0: nothing is to fail
thread_local Allocation failing = Allocation::Malloc;
thread_local bool failed = false;
thread_local bool dirty = false;
thread_local bool metering = false;
thread_local long long heldBytes = 0;
thread_local long long peakBytes = 0;

/** What a block really takes. */
long long sizeOf(void* memory)
{
    return static_cast<long long>(malloc_usable_size(memory) + sizeof(std::size_t));
}

// Not instrumented: the address sanitizer's own start calls malloc() and free(), before there is
// shadow memory.
__attribute__((no_sanitize("address"))) void* allocate(Allocation kind, std::size_t size) noexcept
{
    ++count;
    if (remaining > 0 && kind == failing && --remaining == 0) {
        failed = true;
        return nullptr;
    }
    void* memory =
        __interceptor_malloc != nullptr ? __interceptor_malloc(size) : __libc_malloc(size);
    if (dirty && memory != nullptr) {
        std::memset(memory, 0xA5, size);
    }
    if (metering && memory != nullptr) {
        heldBytes += sizeOf(memory);
        peakBytes = std::max(peakBytes, heldBytes);
    }
    return memory;
}

}  // namespace

AllocationFailure::AllocationFailure(Allocation kind, int nth)
{
    failing = kind;
    failed = false;
    remaining = nth;
}

AllocationFailure::~AllocationFailure()
{
    remaining = 0;
}

bool AllocationFailure::happened() const
{
    return failed;
}

DirtyMemory::DirtyMemory()
{
    dirty = true;
}

DirtyMemory::~DirtyMemory()
{
    dirty = false;
}

AllocationMeter::AllocationMeter()
{
    heldBytes = 0;
    peakBytes = 0;
    metering = true;
}

AllocationMeter::~AllocationMeter()
{
    metering = false;
}

long long AllocationMeter::held() const
{
    return heldBytes;
}

long long AllocationMeter::peak() const
{
    return peakBytes;
}

// Not instrumented either.
__attribute__((no_sanitize("address"))) void countRelease(void* memory)
{
    if (metering && memory != nullptr) {
        heldBytes -= sizeOf(memory);
    }
}

long allocationCount()
{
    return count;
}

}  // namespace oxil::test

using oxil::test::allocate;
using oxil::test::Allocation;

extern "C" __attribute__((visibility("default"))) void* malloc(std::size_t size)
{
    return allocate(Allocation::Malloc, size);
}

void* operator new(std::size_t size)
{
    void* memory = allocate(Allocation::ThrowingNew, size > 0 ? size : 1);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

void* operator new[](std::size_t size)
{
    return operator new(size);
}

void* operator new(std::size_t size, const std::nothrow_t&) noexcept
{
    return allocate(Allocation::NothrowNew, size > 0 ? size : 1);
}

void* operator new[](std::size_t size, const std::nothrow_t&) noexcept
{
    return allocate(Allocation::NothrowNew, size > 0 ? size : 1);
}

void operator delete(void* memory) noexcept
{
    std::free(memory);
}

void operator delete[](void* memory) noexcept
{
    std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept
{
    std::free(memory);
}

void operator delete[](void* memory, std::size_t) noexcept
{
    std::free(memory);
}

void operator delete(void* memory, const std::nothrow_t&) noexcept
{
    std::free(memory);
}

void operator delete[](void* memory, const std::nothrow_t&) noexcept
{
    std::free(memory);
}
