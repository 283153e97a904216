#pragma once

#include <cstdint>
#include <cstring>

namespace oxil::test {

/**
 * The position of a virtual function in the table of its class; -1 if it is not virtual.
 *
 * Reads the pointer to member as the Itanium C++ ABI lays it out, and its variant for ARM. A virtual
 * destructor takes two positions. An overload is picked by naming its type:
 * `virtualSlot<Script, int(bool&) const>(&Script::onGetReturnValue)`.
 */
template <typename Class, typename Function>
int virtualSlot(Function Class::*member)
{
    std::intptr_t words[2];
    static_assert(sizeof member == sizeof words);
    std::memcpy(words, &member, sizeof words);
#if defined(__arm__) || defined(__aarch64__)
    const bool isVirtual = (words[1] & 1) != 0;
    const std::intptr_t offset = words[0];
#else
    const bool isVirtual = (words[0] & 1) != 0;
    const std::intptr_t offset = words[0] - 1;
#endif
    return isVirtual ? static_cast<int>(offset / static_cast<std::intptr_t>(sizeof(void*))) : -1;
}

}  // namespace oxil::test
