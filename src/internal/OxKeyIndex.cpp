#include "internal/OxKeyIndex.h"

#include <cstring>
#include <utility>

#include <sys/auxv.h>
#include <sys/random.h>

namespace oxil::internal {

HashSeed HashSeed::draw() noexcept
{
    HashSeed seed = {};
    if (getrandom(&seed, sizeof seed, GRND_NONBLOCK) == static_cast<ssize_t>(sizeof seed)) {
        return seed;
    }
    // Early at boot there are none yet, and a device that starts up can't wait for them. A process
    // has got as many bytes from the kernel when it was started.
    const void* bytes = reinterpret_cast<const void*>(getauxval(AT_RANDOM));
    if (bytes != nullptr) {
        std::memcpy(&seed, bytes, sizeof seed);
    }
    return seed;
}

const HashSeed& HashSeed::ofProcess() noexcept
{
    static const HashSeed seed = draw();
    return seed;
}

void KeyIndex::__grow()
{
    constexpr unsigned int FEWEST_BITS = 5;

    const unsigned int bits = __slots.empty() ? FEWEST_BITS : 33 - __shift;
    KeyIndex larger(__seed);
    larger.__slots.resize(std::size_t{1} << bits);
    larger.__shift = 32 - bits;
    for (const Slot& slot : __slots) {
        if (slot.position != ABSENT) {
            larger.insert(slot.hash, slot.position);
        }
    }
    *this = std::move(larger);
}

void KeyIndex::insert(std::uint32_t hash, int position) noexcept
{
    std::size_t i = __home(hash);
    while (__slots[i].position != ABSENT) {
        i = (i + 1) & __mask();
    }
    __slots[i].hash = hash;
    __slots[i].position = position;
    ++__count;
}

void KeyIndex::remove(std::uint32_t hash, int position) noexcept
{
    std::size_t hole = __home(hash);
    while (__slots[hole].position != position) {
        hole = (hole + 1) & __mask();
    }

    // Close the gap: a search ends at the first free slot, so every entry behind it that may move
    // nearer to its home slot does.
    for (std::size_t i = (hole + 1) & __mask(); __slots[i].position != ABSENT;
         i = (i + 1) & __mask()) {
        const std::size_t home = __home(__slots[i].hash);
        if (((i - home) & __mask()) >= ((i - hole) & __mask())) {
            __slots[hole] = __slots[i];
            hole = i;
        }
    }
    __slots[hole].position = ABSENT;
    --__count;

    for (Slot& slot : __slots) {
        slot.position -= slot.position > position ? 1 : 0;
    }
}

}  // namespace oxil::internal
