#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <limits>
#include <vector>

#include "OxSerializedData.h"
#include "OxStatus.h"

namespace oxil::test {

inline constexpr int INT_LIMIT = std::numeric_limits<int>::max();

/** A type entry: kind and size. */
struct Entry {
    VariantType type;
    int size;
};

/** The storable kinds in their default sizes. */
inline constexpr Entry KINDS[] = {
    {VARIANT_TYPE_INT, 4},      {VARIANT_TYPE_UINT, 4},     {VARIANT_TYPE_LONG, 4},
    {VARIANT_TYPE_ULONG, 4},    {VARIANT_TYPE_LONGLONG, 8}, {VARIANT_TYPE_ULONGLONG, 8},
    {VARIANT_TYPE_FLOAT, 4},    {VARIANT_TYPE_DOUBLE, 8},   {VARIANT_TYPE_BOOL, 1},
    {VARIANT_TYPE_STRING, 256},
};

constexpr VariantType kind(int number)
{
    return static_cast<VariantType>(number);
}

/** A description of blocks with these entries. */
inline SerializationInfo described(const std::vector<std::vector<Entry>>& blocks)
{
    SerializedData data;
    data.setBlockCount(static_cast<int>(blocks.size()));
    for (std::size_t b = 0; b < blocks.size(); ++b) {
        for (const Entry& entry : blocks[b]) {
            EXPECT_EQ(data.addType(static_cast<int>(b), entry.type, entry.size), STATUS_SUCCESS);
        }
    }
    return data.getSerializationInfo();
}

}  // namespace oxil::test
