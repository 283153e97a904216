#pragma once

#include <cstddef>
#include <cstring>
#include <string>

/** How texts stand in a data area. */
namespace oxil::internal {

/** Bytes of a text in a data area: at most 255 characters and a NUL. */
inline constexpr std::size_t TEXT_SLOT_SIZE = 256;

/**
 * Writes a text up to its first NUL byte, cut to @p size - 1 characters, and a terminating NUL.
 *
 * What is behind the NUL stays as it is. Nothing is written when @p size is 0.
 *
 * @return the characters written
 */
inline std::size_t copyText(void* destination, std::size_t size, const std::string& text) noexcept
{
    if (size == 0) {
        return 0;
    }
    const std::size_t length = strnlen(text.c_str(), size - 1);
    std::memcpy(destination, text.c_str(), length);
    static_cast<char*>(destination)[length] = '\0';
    return length;
}

/** Writes a whole slot, with zeros behind the text; returns the slot's size. */
inline std::size_t copyTextSlot(void* slot, const std::string& text) noexcept
{
    const std::size_t length = copyText(slot, TEXT_SLOT_SIZE, text);
    std::memset(static_cast<char*>(slot) + length, 0, TEXT_SLOT_SIZE - length);
    return TEXT_SLOT_SIZE;
}

/** Whether a text comes out of its slot as it went in. */
inline bool survives(const std::string& text) noexcept
{
    return text.length() < TEXT_SLOT_SIZE &&
           std::memchr(text.data(), '\0', text.length()) == nullptr;
}

}  // namespace oxil::internal
