#include "AllocationFailure.h"

#include <dlfcn.h>
#include <malloc.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <new>

extern "C" void* __libc_malloc(std::size_t size);
extern "C" void* __libc_calloc(std::size_t count, std::size_t size);
extern "C" void* __libc_realloc(void* memory, std::size_t size);

// Present under the address sanitizer, whose free() takes only what its own malloc() gave.
extern "C" __attribute__((weak)) void* __interceptor_malloc(std::size_t size);
extern "C" __attribute__((weak)) void* __interceptor_calloc(std::size_t count, std::size_t size);
extern "C" __attribute__((weak)) void* __interceptor_realloc(void* memory, std::size_t size);

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
thread_local BlockCount* blocks = nullptr;
thread_local int pauses = 0;

/** What a block really takes. */
long long sizeOf(void* memory)
{
    return static_cast<long long>(malloc_usable_size(memory) + sizeof(std::size_t));
}

/** Whether this is in GLib. */
bool isInGlib(const void* place)
{
    Dl_info info;
    return dladdr(place, &info) != 0 && std::strstr(info.dli_fname, "/libglib-2.0") != nullptr;
}

// What follows is not instrumented: the address sanitizer's own start calls malloc() and free(),
// before there is shadow memory.
#define NOT_INSTRUMENTED __attribute__((no_sanitize("address")))

/** Counts a request; whether it is the one to fail. */
NOT_INSTRUMENTED bool isRefused(Allocation kind, const void* caller) noexcept
{
    ++count;
    const bool counts = remaining > 0 && pauses == 0 &&
                        (kind == failing || (failing == Allocation::Any && !isInGlib(caller)));
    if (!counts || --remaining > 0) {
        return false;
    }
    failed = true;
    errno = ENOMEM;
    return true;
}

/** Counts what was granted; null, too. */
NOT_INSTRUMENTED void* granted(void* memory, const void* caller) noexcept
{
    if (memory != nullptr) {
        if (metering) {
            heldBytes += sizeOf(memory);
            peakBytes = std::max(peakBytes, heldBytes);
        }
        if (blocks != nullptr && pauses == 0 && !isInGlib(caller)) {
            const AllocationPause pause;
            blocks->add(memory, caller);
        }
    }
    return memory;
}

NOT_INSTRUMENTED void* allocate(Allocation kind, std::size_t size, const void* caller) noexcept
{
    if (isRefused(kind, caller)) {
        return nullptr;
    }
    void* memory =
        __interceptor_malloc != nullptr ? __interceptor_malloc(size) : __libc_malloc(size);
    if (dirty && memory != nullptr) {
        std::memset(memory, 0xA5, size);
    }
    return granted(memory, caller);
}

NOT_INSTRUMENTED void* allocateZeros(std::size_t number, std::size_t size,
                                     const void* caller) noexcept
{
    if (isRefused(Allocation::Calloc, caller)) {
        return nullptr;
    }
    return granted(__interceptor_calloc != nullptr ? __interceptor_calloc(number, size)
                                                   : __libc_calloc(number, size),
                   caller);
}

NOT_INSTRUMENTED void* reallocate(void* memory, std::size_t size, const void* caller) noexcept
{
    const bool grows = memory == nullptr || size > malloc_usable_size(memory);
    if (grows && isRefused(Allocation::Realloc, caller)) {
        return nullptr;
    }
    const long long sizeBefore = memory != nullptr ? sizeOf(memory) : 0;
    const void* owner = nullptr;
    if (memory != nullptr && blocks != nullptr && pauses == 0) {
        const AllocationPause pause;
        owner = blocks->getCaller(memory);
    }
    void* place = __interceptor_realloc != nullptr ? __interceptor_realloc(memory, size)
                                                   : __libc_realloc(memory, size);
    if (memory == nullptr) {
        return granted(place, caller);
    }
    if (metering && (place != nullptr || size == 0)) {
        heldBytes += (place != nullptr ? sizeOf(place) : 0) - sizeBefore;
        peakBytes = std::max(peakBytes, heldBytes);
    }
    if (owner != nullptr && (place != nullptr || size == 0)) {
        const AllocationPause pause;
        blocks->remove(memory);
        if (place != nullptr) {
            blocks->add(place, owner);
        }
    }
    return place;
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

BlockCount::BlockCount()
{
    blocks = this;
}

BlockCount::~BlockCount()
{
    blocks = nullptr;
}

std::string BlockCount::describe() const
{
    const AllocationPause pause;
    std::string text;
    for (const auto& [block, caller] : __blocks) {
        Dl_info info = {};
        dladdr(caller, &info);
        text += info.dli_fname != nullptr ? info.dli_fname : "?";
        text += ": ";
        text += info.dli_sname != nullptr ? info.dli_sname : "?";
        text += '\n';
    }
    return text;
}

const void* BlockCount::getCaller(const void* block) const
{
    const auto place = __blocks.find(block);
    return place != __blocks.end() ? place->second : nullptr;
}

AllocationPause::AllocationPause()
{
    ++pauses;
}

AllocationPause::~AllocationPause()
{
    --pauses;
}

NOT_INSTRUMENTED void countRelease(void* memory)
{
    if (memory == nullptr) {
        return;
    }
    if (metering) {
        heldBytes -= sizeOf(memory);
    }
    if (blocks != nullptr && pauses == 0) {
        const AllocationPause pause;
        blocks->remove(memory);
    }
}

long allocationCount()
{
    return count;
}

}  // namespace oxil::test

using oxil::test::allocate;
using oxil::test::Allocation;

#define CALLER __builtin_return_address(0)

extern "C" __attribute__((visibility("default"))) void* malloc(std::size_t size)
{
    return allocate(Allocation::Malloc, size, CALLER);
}

extern "C" __attribute__((visibility("default"))) void* calloc(std::size_t count, std::size_t size)
{
    return oxil::test::allocateZeros(count, size, CALLER);
}

extern "C" __attribute__((visibility("default"))) void* realloc(void* memory, std::size_t size)
{
    return oxil::test::reallocate(memory, size, CALLER);
}

void* operator new(std::size_t size)
{
    void* memory = allocate(Allocation::ThrowingNew, size > 0 ? size : 1, CALLER);
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
    return allocate(Allocation::NothrowNew, size > 0 ? size : 1, CALLER);
}

void* operator new[](std::size_t size, const std::nothrow_t&) noexcept
{
    return allocate(Allocation::NothrowNew, size > 0 ? size : 1, CALLER);
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
