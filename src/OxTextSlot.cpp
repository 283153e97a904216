#include "OxTextSlot.h"

#include <cstring>

namespace oxil::internal {

void copyText(void* destination, std::size_t size, const std::string& text) noexcept
{
    if (size == 0) {
        return;
    }
    const std::size_t length = strnlen(text.c_str(), size - 1);
    std::memcpy(destination, text.c_str(), length);
    static_cast<char*>(destination)[length] = '\0';
}

std::string readTextSlot(const void* slot)
{
    const char* text = static_cast<const char*>(slot);
    return std::string(text, strnlen(text, TEXT_SLOT_SIZE - 1));
}

}  // namespace oxil::internal
