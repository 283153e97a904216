#pragma once

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "GoldenEncoder.h"
#include "OxKeyValues.h"
#include "OxSerializedData.h"

namespace oxil::test {

/** The same numbers in every run and on every host. */
class Random {
public:
    explicit Random(std::uint32_t seed) : __engine(seed) {}

    /** From 0 to @p end - 1. */
    int below(int end);

    bool oneIn(int count) { return below(count) == 0; }

    template <typename Item>
    const Item& oneOf(const std::vector<Item>& items)
    {
        return items[static_cast<std::size_t>(below(static_cast<int>(items.size())))];
    }

    std::uint8_t byte() { return static_cast<std::uint8_t>(below(256)); }

private:
    std::mt19937 __engine;
};

/**
 * Gives @p data a description that is in order, with all that is odd but legal, and a data area of
 * just the size that it describes.
 */
void fill(Random& random, SerializedData& data, bool unknownKinds = false);

/** A record as odd as one can be: long texts and keys, NUL bytes, values that can't be packed. */
KeyValues oddRecord(Random& random);

/** What a writer would send as two pieces, with zeros where nothing is in use. */
GoldenBytes bytesOf(const SerializedData& data);

/** The same description without what stands in it where nothing is in use. */
SerializationInfo usedPartOf(const SerializationInfo& info);

/** Bytes as a text, as messages are kept. */
std::string textOf(const std::vector<std::uint8_t>& bytes);

}  // namespace oxil::test
