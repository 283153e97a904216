#pragma once

#include <cstddef>
#include <string>

namespace oxil::internal {

/** Bytes of a text in a data area: at most 255 characters and a NUL. */
inline constexpr std::size_t TEXT_SLOT_SIZE = 256;

/**
 * Writes a text up to its first NUL byte, cut to @p size - 1 characters, and a terminating NUL.
 *
 * What is behind the NUL stays as it is. Nothing is written when @p size is 0.
 */
void copyText(void* destination, std::size_t size, const std::string& text) noexcept;

/** The same into a slot; returns the slot's size. */
inline std::size_t copyTextSlot(void* slot, const std::string& text) noexcept
{
    copyText(slot, TEXT_SLOT_SIZE, text);
    return TEXT_SLOT_SIZE;
}

/** The text that starts at @p slot: up to the first NUL byte, 255 characters at the most. */
std::string readTextSlot(const void* slot);

}  // namespace oxil::internal
