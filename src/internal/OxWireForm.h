#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "OxSerializedData.h"
#include "internal/OxDataArea.h"

/** What WireEncoder and WireDecoder agree on; doc/wire-form.md shows it byte by byte. */
namespace oxil::internal {

inline constexpr char WIRE_MAGIC[] = {'O', 'x'};
inline constexpr char WIRE_VERSION = 1;

/** Magic and version; the length follows. */
inline constexpr std::size_t WIRE_PREFIX_SIZE = sizeof WIRE_MAGIC + sizeof WIRE_VERSION;

/** Bytes of a number of 32 bits, seven in each byte. */
inline constexpr std::size_t LONGEST_VARINT = 5;

/** In the list of kinds: kind and size of this entry are told behind the list. */
inline constexpr unsigned int TOLD_KIND = 15;

inline constexpr int LAST_KIND = VARIANT_TYPE_STRING;
static_assert(LAST_KIND < static_cast<int>(TOLD_KIND));

/** Bytes of the list of so many kinds, two in each byte. */
inline constexpr std::size_t kindsSize(std::size_t count)
{
    return (count + 1) / 2;
}

/** The size that is not told, -1 for kinds that nothing is known of. */
inline int defaultSizeOf(int kind)
{
    return getTypeSpace(static_cast<VariantType>(kind));
}

inline std::size_t varintSize(std::uint32_t number)
{
    std::size_t size = 1;
    for (; number >= 0x80; number >>= 7) {
        ++size;
    }
    return size;
}

/** Small numbers of either sign become small ones without: 0, -1, 1, -2 ... */
inline std::uint32_t toZigzag(std::int32_t number)
{
    const auto bits = static_cast<std::uint32_t>(number);
    return number < 0 ? ~(bits << 1) : bits << 1;
}

inline std::int32_t fromZigzag(std::uint32_t number)
{
    return static_cast<std::int32_t>((number >> 1) ^ (0 - (number & 1)));
}

/** Numbers travel with their low byte first. */
inline void copyNumber(void* to, const void* from, std::size_t size)
{
    if constexpr (__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__) {
        std::memcpy(to, from, size);
    } else {
        const auto* first = static_cast<const char*>(from);
        std::reverse_copy(first, first + size, static_cast<char*>(to));
    }
}

}  // namespace oxil::internal
