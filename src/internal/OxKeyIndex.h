#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

namespace oxil::internal {

/** The position of a key that is not there. */
inline constexpr int ABSENT = -1;

/**
 * Secret numbers that hashes depend on.
 *
 * Keys come from other processes, too. Whoever could tell their hashes in advance would send keys
 * that all have the same one, and finding one of them would be a walk over all.
 */
struct HashSeed {
    std::uint64_t start;
    std::uint32_t low;
    std::uint32_t high;

    /** Random numbers of the kernel's. */
    static HashSeed draw() noexcept;

    /** The seed of this process, drawn at the first call; any thread may be the first. */
    static const HashSeed& ofProcess() noexcept;
};

/**
 * A key that is looked for.
 *
 * Its last eight bytes are compared first: keys with a common beginning differ there, and few keys
 * are much longer. Finding each of ten keys takes 0.81 of the instructions that comparing texts takes
 * (callgrind).
 */
class WantedKey {
public:
    explicit WantedKey(std::string_view key) noexcept
        : __key(key), __end(__readEnd(key.data(), key.size()))
    {
    }

    bool operator==(const std::string& other) const noexcept
    {
        const std::size_t size = __key.size();
        if (other.size() != size || __readEnd(other.data(), size) != __end) {
            return false;
        }
        for (std::size_t i = 0; i + WORD < size; i += WORD) {
            if (__readWord(other.data() + i) != __readWord(__key.data() + i)) {
                return false;
            }
        }
        return true;
    }

    std::uint32_t hash(const HashSeed& seed) const noexcept
    {
        constexpr std::uint64_t FACTOR = 0x9e3779b97f4a7c15;  // odd, and without a pattern

        std::uint64_t hash = seed.start + __key.size() * FACTOR;
        for (std::size_t i = 0; i + WORD < __key.size(); i += WORD) {
            hash = __mix(hash ^ __readWord(__key.data() + i), seed);
        }
        hash = __mix(hash ^ __end, seed);
        // Keys that count up give products that count up. The high bits of this one depend on all
        // bits of both halves.
        return static_cast<std::uint32_t>(((hash ^ hash >> 32) * FACTOR) >> 32);
    }

private:
    static constexpr std::size_t WORD = sizeof(std::uint64_t);

    /**
     * The product of the halves, each moved by a secret.
     *
     * How a change of the word changes the product depends on the other half, which is not known:
     * no two words have the same product, nor products with a known difference, but for one seed
     * in 2^32 or so. A multiplication by a secret factor would not do: the highest bit of a word is
     * the highest bit of any odd multiple.
     */
    static std::uint64_t __mix(std::uint64_t word, const HashSeed& seed) noexcept
    {
        const std::uint32_t low = static_cast<std::uint32_t>(word) + seed.low;
        const std::uint32_t high = static_cast<std::uint32_t>(word >> 32) + seed.high;
        return std::uint64_t{low} * high;
    }

    template <typename Word>
    static std::uint64_t __read(const char* bytes) noexcept
    {
        Word word;
        std::memcpy(&word, bytes, sizeof word);
        return word;
    }

    static std::uint64_t __readWord(const char* bytes) noexcept
    {
        return __read<std::uint64_t>(bytes);
    }

    /** The last bytes as a number, eight at the most; reads that overlap save a loop. */
    static std::uint64_t __readEnd(const char* bytes, std::size_t size) noexcept
    {
        if (size >= WORD) {
            return __readWord(bytes + size - WORD);
        }
        if (size >= WORD / 2) {
            return __read<std::uint32_t>(bytes) << 32 |
                   __read<std::uint32_t>(bytes + size - WORD / 2);
        }
        if (size == 0) {
            return 0;
        }
        return __read<std::uint8_t>(bytes) << 16 | __read<std::uint8_t>(bytes + size / 2) << 8 |
               __read<std::uint8_t>(bytes + size - 1);
    }

    std::string_view __key;
    std::uint64_t __end;
};

/**
 * Finds the position of a key in the entry list of a record.
 *
 * A hash table with open addressing and linear probing. It holds the hash and the position of every
 * entry, and no key: keys are compared in the entry list itself, through a function that tells
 * whether the entry at a position is the one looked for.
 */
class KeyIndex {
public:
    explicit KeyIndex(const HashSeed& seed) noexcept : __seed(seed) {}

    /** What the other members take as the hash of a key. */
    std::uint32_t hash(const WantedKey& key) const noexcept { return key.hash(__seed); }

    /** Makes room for one more entry, so that the next insert() can't fail. */
    void reserveOne()
    {
        if (2 * (__count + 1) > __slots.size()) {
            __grow();
        }
    }

    /** Adds an entry whose key is not there yet. */
    void insert(std::uint32_t hash, int position) noexcept;

    /** The position of the entry with this hash for which @p isKey says true, or ABSENT. */
    template <typename IsKey>
    int find(std::uint32_t hash, const IsKey& isKey) const noexcept
    {
        if (__slots.empty()) {
            return ABSENT;
        }
        std::size_t i = __home(hash);
        while (__slots[i].position != ABSENT &&
               !(__slots[i].hash == hash && isKey(__slots[i].position))) {
            i = (i + 1) & __mask();
        }
        return __slots[i].position;
    }

    /** Takes out the entry at a position and moves the later positions forward by one. */
    void remove(std::uint32_t hash, int position) noexcept;

private:
    struct Slot {
        std::uint32_t hash = 0;
        std::int32_t position = ABSENT;
    };

    void __grow();
    std::size_t __mask() const noexcept { return __slots.size() - 1; }
    std::size_t __home(std::uint32_t hash) const noexcept { return hash >> __shift; }

    HashSeed __seed;
    std::vector<Slot> __slots;  // a power of two of them, at the most half of them taken
    std::size_t __count = 0;
    unsigned int __shift = 32;  // what the number of slots leaves of the bits of a hash
};

}  // namespace oxil::internal
