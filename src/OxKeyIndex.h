#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "OxKeyValue.h"

namespace oxil::internal {

/**
 * Finds the position of a key in the entry list of a record.
 *
 * A hash table with open addressing and linear probing. It holds the hash and the position of every
 * entry, and no key: keys are compared in the entry list itself, through a function that tells
 * whether the entry at a position is the one looked for.
 */
class KeyIndex {
public:
    static std::uint32_t hash(const std::string& key) noexcept;

    /** Makes room for one more entry, so that the next insert() can't fail. */
    void reserveOne();

    /** Adds an entry whose key is not there yet. */
    void insert(std::uint32_t hash, int position) noexcept;

    /** The position of the entry with this hash for which @p isKey says true, or -1. */
    template <typename IsKey>
    int find(std::uint32_t hash, const IsKey& isKey) const noexcept
    {
        if (__slots.empty()) {
            return NOWHERE;
        }
        std::size_t i = hash & __mask();
        while (__slots[i].position != NOWHERE &&
               !(__slots[i].hash == hash && isKey(__slots[i].position))) {
            i = (i + 1) & __mask();
        }
        return __slots[i].position;
    }

    /** Takes out the entry at a position and moves the later positions forward by one. */
    void remove(std::uint32_t hash, int position) noexcept;

private:
    static constexpr int NOWHERE = -1;

    struct Slot {
        std::uint32_t hash = 0;
        std::int32_t position = NOWHERE;
    };

    std::size_t __mask() const noexcept { return __slots.size() - 1; }

    std::vector<Slot> __slots;  // a power of two of them, at the most half of them taken
    std::size_t __count = 0;
};

}  // namespace oxil::internal
