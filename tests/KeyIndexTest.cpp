#include "internal/OxKeyIndex.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/auxv.h>
#include <sys/random.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "NextDefinition.h"

namespace oxil::test {
namespace {

using internal::HashSeed;
using internal::KeyIndex;
using internal::WantedKey;
using testing::Each;
using testing::Le;

constexpr std::uint64_t FACTOR = 0x9e3779b97f4a7c15;

bool operator==(const HashSeed& left, const HashSeed& right)
{
    return left.start == right.start && left.low == right.low && left.high == right.high;
}

// ---- Random numbers -----------------------------------------------------------------------------

enum class Randomness { Real, NotYet, Short };

Randomness randomness = Randomness::Real;
unsigned int flagsSeen = 0;

/** The kernel has no random numbers, or not enough of them, while this lives. */
class NoRandomness {
public:
    explicit NoRandomness(Randomness kind) { randomness = kind; }
    ~NoRandomness() { randomness = Randomness::Real; }

    NoRandomness(const NoRandomness&) = delete;
    NoRandomness& operator=(const NoRandomness&) = delete;
};

TEST(HashSeedTest, ASeedIsDrawnFromTheKernelWithoutWaiting)
{
    const HashSeed first = HashSeed::draw();
    const HashSeed second = HashSeed::draw();

    EXPECT_FALSE(first == second);
    EXPECT_EQ(flagsSeen, static_cast<unsigned int>(GRND_NONBLOCK));
}

TEST(HashSeedTest, EarlyAtBootTheBytesThatTheProcessWasGivenWillDo)
{
    HashSeed given = {};
    const unsigned long place = getauxval(AT_RANDOM);
    ASSERT_NE(place, 0u);
    std::memcpy(&given, reinterpret_cast<const void*>(place), sizeof given);

    for (const Randomness kind : {Randomness::NotYet, Randomness::Short}) {
        const NoRandomness missing(kind);
        EXPECT_TRUE(HashSeed::draw() == given);
    }
    EXPECT_FALSE(given == HashSeed{});
}

TEST(HashSeedTest, AProcessHasOneSeed)
{
    std::vector<const HashSeed*> seeds(8);
    std::vector<std::thread> threads;
    for (const HashSeed*& seed : seeds) {
        threads.emplace_back([&seed] { seed = &HashSeed::ofProcess(); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }

    EXPECT_THAT(seeds, Each(&HashSeed::ofProcess()));
    EXPECT_FALSE(HashSeed::ofProcess() == HashSeed{});
}

// ---- Keys that somebody has chosen --------------------------------------------------------------

std::string keyOf(const std::vector<std::uint64_t>& words)
{
    std::string key(words.size() * sizeof words[0], '\0');
    std::memcpy(key.data(), words.data(), key.size());
    return key;
}

/** A multiplication by a fixed factor as the hash, for keys of eight bytes. */
std::uint32_t multiplied(std::uint64_t word)
{
    return static_cast<std::uint32_t>(((sizeof word * FACTOR ^ word) * FACTOR) >> 32);
}

std::vector<std::string> keysOfOneProduct(std::uint64_t count)
{
    std::uint64_t inverse = FACTOR;  // correct in the lowest three bits; each round doubles them
    for (int bits = 3; bits < 64; bits *= 2) {
        inverse *= 2 - FACTOR * inverse;
    }
    std::vector<std::string> keys;
    for (std::uint64_t low = 0; low < count; ++low) {
        const std::uint64_t word = (std::uint64_t{0x12345678} << 32 | low) * inverse;
        keys.push_back(keyOf({word ^ sizeof word * FACTOR}));
        EXPECT_EQ(multiplied(word ^ sizeof word * FACTOR), 0x12345678u);
    }
    return keys;
}

/**
 * Keys of one hash where each word is added by exclusive or, multiplied by an odd factor, whichever
 * it is, and followed by a shift: the highest bit comes through, and the next word takes it back.
 */
std::vector<std::string> keysThatCancelThemselves(std::uint64_t count)
{
    std::vector<std::string> keys;
    for (std::uint64_t i = 0; i < count; ++i) {
        std::vector<std::uint64_t> words;
        for (std::uint64_t bits = i; words.size() < 32; bits /= 2) {
            const bool changed = bits % 2 != 0;
            words.push_back(changed ? std::uint64_t{1} << 63 : 0);
            words.push_back(changed ? std::uint64_t{1} << 63 | std::uint64_t{1} << 31 : 0);
        }
        words.push_back(0);
        keys.push_back(keyOf(words));
    }
    return keys;
}

/** Keys of one hash for who knows the seed: a factor of every product is zero. */
std::vector<std::string> keysForSeed(const HashSeed& seed, std::uint64_t count)
{
    std::vector<std::string> keys;
    for (std::uint64_t high = 0; high < count; ++high) {
        const std::uint64_t word = high << 32 | (0 - seed.low);
        keys.push_back(keyOf({word ^ (seed.start + sizeof word * FACTOR)}));
    }
    return keys;
}

/** Keys as programs have them. */
std::vector<std::string> numberedKeys(const std::string& name, std::uint64_t count)
{
    std::vector<std::string> keys;
    for (std::uint64_t i = 0; i < count; ++i) {
        keys.push_back(name + std::to_string(i));
    }
    return keys;
}

/** How many keys are compared while all of these are looked for and added. */
std::uint64_t comparisonsFor(const std::vector<std::string>& keys, const HashSeed& seed)
{
    std::uint64_t comparisons = 0;
    KeyIndex index(seed);
    for (std::size_t i = 0; i < keys.size(); ++i) {
        const WantedKey wanted(keys[i]);
        const std::uint32_t hash = index.hash(wanted);
        EXPECT_EQ(index.find(hash,
                             [&](int position) {
                                 ++comparisons;
                                 return wanted == keys[static_cast<std::size_t>(position)];
                             }),
                  -1);
        index.reserveOne();
        index.insert(hash, static_cast<int>(i));
    }
    return comparisons;
}

/** How many slots are looked at while these are added to an index that has room for all. */
std::uint64_t probesFor(const std::vector<std::string>& keys, const HashSeed& seed)
{
    const KeyIndex index(seed);
    unsigned int bits = 5;
    while (std::size_t{1} << bits < 2 * keys.size()) {
        ++bits;
    }
    std::vector<bool> taken(std::size_t{1} << bits);
    std::uint64_t probes = 0;
    for (const std::string& key : keys) {
        std::size_t slot = index.hash(WantedKey(key)) >> (32 - bits);
        while (++probes, taken[slot]) {
            slot = (slot + 1) % taken.size();
        }
        taken[slot] = true;
    }
    return probes;
}

void expectLinearCost(const std::vector<std::string>& keys, const HashSeed& seed)
{
    // Random hashes meet their like about once, and find a free slot after one and a half probes.
    EXPECT_LE(comparisonsFor(keys, seed), keys.size() / 100);
    EXPECT_LE(probesFor(keys, seed), 3 * keys.size());
}

TEST(KeyIndexTest, ChosenKeysCostNoMoreThanOthers)
{
    const HashSeed& seed = HashSeed::ofProcess();

    expectLinearCost(keysOfOneProduct(40000), seed);
    expectLinearCost(keysThatCancelThemselves(40000), seed);
    expectLinearCost(keysForSeed(HashSeed{}, 40000), seed);
    expectLinearCost(keysForSeed(HashSeed::draw(), 40000), seed);
}

TEST(KeyIndexTest, WhoKnowsTheSeedHasAWalkOverAllKeys)
{
    // That the keys above are as bad as they are meant to be, and the counts see it.
    const HashSeed seed = HashSeed::draw();
    const std::vector<std::string> keys = keysForSeed(seed, 1000);

    EXPECT_EQ(comparisonsFor(keys, seed), 1000u * 999u / 2);
    EXPECT_EQ(probesFor(keys, seed), 1000u * 1001u / 2);
}

TEST(KeyIndexTest, UsualKeysAreSpreadByEverySeed)
{
    for (int i = 0; i < 20; ++i) {
        const HashSeed seed = HashSeed::draw();
        SCOPED_TRACE(testing::Message()
                     << std::hex << seed.start << " " << seed.low << " " << seed.high);
        expectLinearCost(numberedKeys("", 4000), seed);
        expectLinearCost(numberedKeys("key", 4000), seed);
        expectLinearCost(numberedKeys("a common beginning ", 4000), seed);
    }
}

TEST(KeyIndexTest, TheSeedDecidesOnNothingButTheCost)
{
    const std::vector<std::string> keys = numberedKeys("key ", 300);
    for (const HashSeed& seed :
         {HashSeed{}, HashSeed{~std::uint64_t{0}, ~std::uint32_t{0}, 1}, HashSeed::draw()}) {
        KeyIndex index(seed);
        std::vector<std::string> entries;
        const auto find = [&](const std::string& key) {
            const WantedKey wanted(key);
            return index.find(index.hash(wanted), [&](int position) {
                return wanted == entries[static_cast<std::size_t>(position)];
            });
        };
        const auto expectAll = [&] {
            for (std::size_t i = 0; i < entries.size(); ++i) {
                EXPECT_EQ(find(entries[i]), static_cast<int>(i));
            }
        };

        for (const std::string& key : keys) {
            EXPECT_EQ(find(key), -1);
            index.reserveOne();
            index.insert(index.hash(WantedKey(key)), static_cast<int>(entries.size()));
            entries.push_back(key);
        }
        expectAll();
        for (int position = 290; position >= 0; position -= 10) {
            const auto entry = entries.begin() + position;
            const std::string key = *entry;
            index.remove(index.hash(WantedKey(key)), position);
            entries.erase(entry);
            EXPECT_EQ(find(key), -1);
        }
        expectAll();
    }
}

}  // namespace
}  // namespace oxil::test

extern "C" ssize_t getrandom(void* buffer, std::size_t size, unsigned int flags)
{
    using namespace oxil::test;

    flagsSeen = flags;
    switch (randomness) {
        case Randomness::NotYet:
            errno = EAGAIN;
            return -1;
        case Randomness::Short:
            std::memset(buffer, 0x55, size / 2);
            return static_cast<ssize_t>(size / 2);
        default:
            return real<ssize_t(void*, std::size_t, unsigned int)>("getrandom")(buffer, size,
                                                                                flags);
    }
}
