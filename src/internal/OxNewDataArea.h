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

/**
 * The data area that a SerializedData is about to get; made before the first type is added.
 *
 * If it is not handed over, the target is left without data: what it had may be shorter than what
 * its description says by then.
 */
class NewDataArea {
public:
    explicit NewDataArea(SerializedData& target) noexcept : __target(target) {}

    ~NewDataArea()
    {
        if (!__handedOver) {
            __target.__dropData();
        }
    }

    NewDataArea(const NewDataArea&) = delete;
    NewDataArea& operator=(const NewDataArea&) = delete;

    /** Allocates what is described by now, of all blocks, or @p space bytes if those are more;
     *  false if there is no memory. */
    bool allocate(long long space) noexcept
    {
        // At least one byte: an empty payload succeeds also where malloc(0) gives a null pointer.
        // What doesn't fit an int can't be described, and no memory is asked for it.
        const long long size = std::max({__getDescribedSize(), space, 1LL});
        if (size <= INT_MAX) {
            __size = static_cast<std::size_t>(size);
            __memory.reset(std::malloc(__size));
        }
        return __memory != nullptr;
    }

    char* begin() const noexcept { return static_cast<char*>(__memory.get()); }

    std::size_t size() const noexcept { return __size; }

    /** Gives it to the target; what is behind the first @p written bytes is zero then. */
    int handOver(std::size_t written)
    {
        // What memory held before must not leave the process.
        std::memset(begin() + written, 0, __size - written);
        __handedOver = true;
        return __target.setData(__memory.release(), TRANSFER_OWNERSHIP);
    }

private:
    /** Bytes of all blocks, without the overflow of SerializedData::getTotalDataSize(): repetitions
     *  are soon more than an int can count, and then any int is too small. */
    long long __getDescribedSize() const noexcept
    {
        const SerializationInfo& info = __target.__getInfo();
        long long size = 0;
        for (int block = 0; block < std::min(info.blockCount, MAX_BLOCK_COUNT); ++block) {
            const long long once = std::max(info.dataSize[block], 0);
            size = std::min(size + once * std::max(info.repeatCount[block], 1), 1LL + INT_MAX);
        }
        return size;
    }

    SerializedData& __target;
    std::size_t __size = 0;
    std::unique_ptr<void, void (*)(void*)> __memory{nullptr, std::free};
    bool __handedOver = false;
};

}  // namespace oxil::internal
