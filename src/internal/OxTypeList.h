#pragma once

#include <cstdint>

#include "OxSerializedData.h"

namespace oxil::internal {

/**
 * The type list of a block, for as many entries as one has to append.
 *
 * The counts of the description are those of before until this goes out of scope. A type is a byte,
 * and as far as the compiler knows, to store a byte may change any number: it would read and write
 * the counts for each entry.
 */
class TypeList {
public:
    TypeList(SerializationInfo& info, int block) noexcept
        : __info(info),
          __block(block),
          __count(info.typeCount[block]),
          __dataSize(static_cast<std::uint32_t>(info.dataSize[block]))
    {
    }

    ~TypeList()
    {
        __info.typeCount[__block] = __count;
        __info.dataSize[__block] = static_cast<std::int32_t>(__dataSize);
    }

    TypeList(const TypeList&) = delete;
    TypeList& operator=(const TypeList&) = delete;

    /** Whether so many more entries fit. A description made elsewhere may have any count. */
    bool hasRoom(int entryCount) const noexcept
    {
        return __count >= 0 && __count <= MAX_TYPE_COUNT - entryCount;
    }

    /** Appends an entry, for which there must be room. */
    void append(VariantType type, int size) noexcept
    {
        __info.types[__block][__count] = static_cast<std::uint8_t>(type);
        __info.typeSizes[__block][__count] = size;
        ++__count;
        __dataSize += static_cast<std::uint32_t>(size);
    }

private:
    SerializationInfo& __info;
    int __block;
    std::int32_t __count;
    std::uint32_t __dataSize;  // wraps around in a description made elsewhere
};

}  // namespace oxil::internal
