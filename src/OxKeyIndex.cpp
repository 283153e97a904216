#include "OxKeyIndex.h"

#include <functional>

namespace oxil::internal {

std::uint32_t KeyIndex::hash(const std::string& key) noexcept
{
    return static_cast<std::uint32_t>(std::hash<std::string>()(key));
}

void KeyIndex::reserveOne()
{
    constexpr std::size_t FEWEST = 32;

    if (2 * (__count + 1) <= __slots.size()) {
        return;
    }
    KeyIndex larger;
    larger.__slots.resize(__slots.empty() ? FEWEST : 2 * __slots.size());
    for (const Slot& slot : __slots) {
        if (slot.position != NOWHERE) {
            larger.insert(slot.hash, slot.position);
        }
    }
    *this = std::move(larger);
}

void KeyIndex::insert(std::uint32_t hash, int position) noexcept
{
    std::size_t i = hash & __mask();
    while (__slots[i].position != NOWHERE) {
        i = (i + 1) & __mask();
    }
    __slots[i].hash = hash;
    __slots[i].position = position;
    ++__count;
}

void KeyIndex::remove(std::uint32_t hash, int position) noexcept
{
    std::size_t hole = hash & __mask();
    while (__slots[hole].position != position) {
        hole = (hole + 1) & __mask();
    }

    // Close the gap: a search ends at the first free slot, so every entry behind it that may move
    // nearer to its home slot does.
    for (std::size_t i = (hole + 1) & __mask(); __slots[i].position != NOWHERE;
         i = (i + 1) & __mask()) {
        const std::size_t home = __slots[i].hash & __mask();
        if (((i - home) & __mask()) >= ((i - hole) & __mask())) {
            __slots[hole] = __slots[i];
            hole = i;
        }
    }
    __slots[hole].position = NOWHERE;
    --__count;

    for (Slot& slot : __slots) {
        slot.position -= slot.position > position ? 1 : 0;
    }
}

}  // namespace oxil::internal
