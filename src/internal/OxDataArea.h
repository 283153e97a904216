#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "OxVariant.h"
#include "internal/OxTextSlot.h"

/** How keys and values stand in a data area. */
namespace oxil::internal {

inline bool survives(const Variant& value) noexcept
{
    return value.getType() == VARIANT_TYPE_STRING ? survives(value.__getText()) : !value.empty();
}

/** Bytes of a value of this kind; -1 for a kind that can't be stored. */
inline int getTypeSpace(VariantType type) noexcept
{
    return type == VARIANT_TYPE_STRING ? static_cast<int>(TEXT_SLOT_SIZE)
                                       : Variant::__getNumberSize(type);
}

inline int getValueSpace(const Variant& value) noexcept
{
    return getTypeSpace(value.getType());
}

/** Writes a value; returns its bytes, or -1 after Variant::toRaw() has logged why it can't. */
inline int writeValue(void* place, const Variant& value)
{
    if (value.getType() != VARIANT_TYPE_STRING) {
        const int size = value.__copyNumber(place);
        if (size > 0) {
            return size;
        }
    } else if (value.__getText().length() <= TEXT_SLOT_SIZE) {
        return static_cast<int>(copyTextSlot(place, value.__getText()));
    }
    return value.toRaw(place, getValueSpace(value));
}

/** Bytes that writeEntry() may write for an entry with this value. */
inline std::size_t getEntrySpace(const Variant& value) noexcept
{
    return TEXT_SLOT_SIZE + static_cast<std::size_t>(std::max(getValueSpace(value), 0));
}

/** Writes the two parts of an entry; returns their bytes, where a value that can't be written
 *  counts -1. */
inline int writeEntry(void* place, const std::string& key, const Variant& value)
{
    const std::size_t keySize = copyTextSlot(place, key);
    return writeValue(static_cast<char*>(place) + keySize, value) + static_cast<int>(keySize);
}

/** The number in the first @p size bytes at a place, with the bytes that are missing zero. */
template <typename Number>
Number readNumberAs(const void* place, std::size_t size)
{
    // Reading on would tear the values apart, and the description is beyond repair.
    if (size > sizeof(Number)) {
        std::abort();  // GCOVR_EXCL_LINE: what ends like this leaves no counts behind
    }
    Number number = 0;
    if (size == sizeof number) {
        std::memcpy(&number, place, sizeof number);  // a size known here: no call
    } else {
        std::memcpy(&number, place, size);
    }
    return number;
}

/** Gives the number or boolean of a known kind that stands at a place to @p take; false for any
 *  other kind. */
template <typename Take>
bool readNumber(int type, const void* place, std::size_t size, const Take& take)
{
    switch (type) {
        case VARIANT_TYPE_INT:
            take(static_cast<int>(readNumberAs<std::int32_t>(place, size)));
            return true;
        case VARIANT_TYPE_UINT:
            take(static_cast<unsigned int>(readNumberAs<std::uint32_t>(place, size)));
            return true;
        case VARIANT_TYPE_LONG:
            take(static_cast<long>(readNumberAs<std::int32_t>(place, size)));
            return true;
        case VARIANT_TYPE_ULONG:
            take(static_cast<unsigned long>(readNumberAs<std::uint32_t>(place, size)));
            return true;
        case VARIANT_TYPE_LONGLONG:
            take(readNumberAs<long long>(place, size));
            return true;
        case VARIANT_TYPE_ULONGLONG:
            take(readNumberAs<unsigned long long>(place, size));
            return true;
        case VARIANT_TYPE_FLOAT:
            take(readNumberAs<float>(place, size));
            return true;
        case VARIANT_TYPE_DOUBLE:
            take(readNumberAs<double>(place, size));
            return true;
        case VARIANT_TYPE_BOOL:
            take(readNumberAs<std::uint8_t>(place, size) != 0);
            return true;
        default:
            return false;
    }
}

}  // namespace oxil::internal
