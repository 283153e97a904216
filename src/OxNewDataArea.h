#pragma once

#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "OxSerializedData.h"
#include "OxStatus.h"

namespace oxil::internal {

/** The data area that a SerializedData is about to get. */
class NewDataArea {
public:
    /** Allocates what @p target describes, or @p space bytes if those are more. */
    NewDataArea(SerializedData& target, long long space)
        : __target(target),
          // At least one byte: an empty payload succeeds also where malloc(0) gives a null pointer.
          __size(std::max({static_cast<long long>(target.getTotalDataSize()), space, 1LL})),
          // What doesn't fit an int can't be described, and no memory is asked for it.
          __memory(__size <= INT_MAX ? std::malloc(static_cast<std::size_t>(__size)) : nullptr,
                   std::free)
    {
    }

    /** Where it starts; null if there is no memory. */
    void* get() const noexcept { return __memory.get(); }

    std::size_t size() const noexcept { return static_cast<std::size_t>(__size); }

    /** Gives it to the target; what is behind the first @p written bytes is zero then. */
    int handOver(std::size_t written)
    {
        // What memory held before must not leave the process.
        std::memset(static_cast<char*>(__memory.get()) + written, 0, size() - written);
        return __target.setData(__memory.release(), TRANSFER_OWNERSHIP);
    }

private:
    SerializedData& __target;
    long long __size;
    std::unique_ptr<void, void (*)(void*)> __memory;
};

}  // namespace oxil::internal
