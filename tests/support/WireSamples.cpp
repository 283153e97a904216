#include "WireSamples.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>

#include "OxLogMatchers.h"

namespace oxil::test {
namespace {

// Of most messages there are many; a few are as large as they can be.
int typeCountOf(Random& random)
{
    if (random.oneIn(60)) {
        return random.oneOf<int>({MAX_TYPE_COUNT, MAX_TYPE_COUNT - 1});
    }
    return random.below(random.oneIn(3) ? 40 : 8);
}

int repeatCountOf(Random& random, int typeCount)
{
    if (typeCount == 0) {
        return random.oneOf<int>({0, 1, INT_MAX, INT_MIN});
    }
    if (typeCount > 40 || random.oneIn(2)) {
        return random.oneOf<int>({0, 1, -1, INT_MIN});
    }
    return random.oneOf<int>({2, 3, 63, 64, 65});
}

int textSlotOf(Random& random)
{
    return random.oneIn(2) ? random.oneOf<int>({1, 2, 126, 127, 128, 254, 255, 257, 600})
                           : 1 + random.below(300);
}

void addType(Random& random, bool isKey, bool unknownKinds, SerializedData& data, int block)
{
    if (isKey) {
        data.addType(block, VARIANT_TYPE_STRING);
        return;
    }
    if (unknownKinds && random.oneIn(4)) {
        const int kind = random.oneOf<int>({0, 11, 15, 200, 255});
        data.addType(block, static_cast<VariantType>(kind), 1 + random.below(300));
        return;
    }
    const auto type = static_cast<VariantType>(1 + random.below(10));
    if (random.oneIn(3)) {
        const bool isText = type == VARIANT_TYPE_STRING;
        const int widest = isText ? 0 : data.__getTypeSize(type);
        data.addType(block, type, isText ? textSlotOf(random) : 1 + random.below(widest));
        return;
    }
    data.addType(block, type);
}

void describe(Random& random, SerializedData& data, bool unknownKinds)
{
    // Five blocks are refused by the constructor, and none by the setter.
    const int blockCount = random.below(MAX_BLOCK_COUNT + 1);
    SerializationInfo info = {};
    info.blockCount = blockCount;
    data.setSerializationInfo(info);
    for (int block = 0; block < blockCount; ++block) {
        const int typeCount = typeCountOf(random);
        const bool keys = random.oneIn(2);
        for (int i = 0; i < typeCount; ++i) {
            addType(random, keys && i % 2 == 0, unknownKinds, data, block);
        }
        data.setRepeatCount(block, repeatCountOf(random, typeCount));
    }

    info = data.getSerializationInfo();
    if (random.oneIn(2)) {
        // Whatever stands where nothing is in use.
        for (int block = 0; block < MAX_BLOCK_COUNT; ++block) {
            if (block >= blockCount) {
                info.repeatCount[block] = info.dataSize[block] = random.below(1000);
            }
            for (int i = info.typeCount[block]; i < MAX_TYPE_COUNT; ++i) {
                info.types[block][i] = 1;
                info.typeSizes[block][i] = -1;
            }
        }
        data.setSerializationInfo(info);
    }
}

void fillSlot(Random& random, std::uint8_t* slot, int size)
{
    const int length = random.oneIn(4) ? size : random.below(size + 1);
    for (int i = 0; i < length; ++i) {
        slot[i] = static_cast<std::uint8_t>(1 + random.below(255));
    }
    if (length < size && random.oneIn(3)) {
        slot[length + random.below(size - length)] = 'x';
    } else if (length < size && random.oneIn(4)) {
        slot[size - 1] = 'x';
    }
}

std::string oddText(Random& random)
{
    const int length =
        random.oneIn(3) ? random.oneOf<int>({0, 1, 127, 128, 254, 255}) : random.below(20);
    std::string text(static_cast<std::size_t>(length), 'x');
    for (char& character : text) {
        character = static_cast<char>(1 + random.below(255));
    }
    if (random.oneIn(12)) {
        text.resize(static_cast<std::size_t>(random.oneOf<int>({256, 257, 258, 1000})), 'y');
    }
    if (!text.empty() && random.oneIn(15)) {
        text[static_cast<std::size_t>(random.below(static_cast<int>(text.size())))] = '\0';
    }
    return text;
}

Variant oddValue(Random& random)
{
    const int number = random.below(INT_MAX);
    switch (random.below(30)) {
        case 0:
            return Variant();
        case 1:
            return Variant(static_cast<unsigned int>(number));
        case 2:
            return Variant(static_cast<long>(-number));
        case 3:
            return Variant(static_cast<unsigned long>(number));
        case 4:
            return Variant(-5000000000LL - number);
        case 5:
            return Variant(5000000000ULL);
        case 6:
            return Variant(static_cast<float>(number) / 3);
        case 7:
            return Variant(number / 7.0);
        case 8:
            return Variant(random.oneIn(2));
        default:
            return random.oneIn(2) ? Variant(number) : Variant(oddText(random));
    }
}

}  // namespace

int Random::below(int end)
{
    return static_cast<int>(__engine() % static_cast<std::uint32_t>(end));
}

void fill(Random& random, SerializedData& data, bool unknownKinds)
{
    describe(random, data, unknownKinds);

    const SerializationInfo& info = data.getSerializationInfo();
    const auto size = static_cast<std::size_t>(data.getTotalDataSize());
    // Of just this size, so that a sanitizer sees a step beyond; never null.
    auto* area = static_cast<std::uint8_t*>(std::calloc(std::max(size, std::size_t{1}), 1));
    std::uint8_t* place = area;
    for (int block = 0; block < info.blockCount; ++block) {
        const int times = info.typeCount[block] > 0 ? std::max(info.repeatCount[block], 1) : 0;
        for (int time = 0; time < times; ++time) {
            for (int i = 0; i < info.typeCount[block]; ++i) {
                const int width = info.typeSizes[block][i];
                if (info.types[block][i] == VARIANT_TYPE_STRING) {
                    fillSlot(random, place, width);
                } else {
                    std::generate(place, place + width, [&random] { return random.byte(); });
                }
                place += width;
            }
        }
    }
    data.setData(area, TRANSFER_OWNERSHIP);
}

KeyValues oddRecord(Random& random)
{
    int count = random.below(12);
    if (random.oneIn(40)) {
        count = random.oneOf<int>({999, 1000, 1001, 1002, 1200});
    }
    const LogCapture refusals;
    KeyValues record;
    for (int i = 0; i < count; ++i) {
        // Most are made distinct; what is the same in the 255 characters that arrive stays a trap.
        std::string key = oddText(random);
        if (!key.empty() && !random.oneIn(20)) {
            key = std::to_string(i) + key;
        }
        if (count > 40) {
            static_cast<void>(record.add(KeyValue(key, i)));
            continue;
        }
        Variant value = oddValue(random);
        static_cast<void>(record.add(KeyValue("x" + key, value)));
        if (random.oneIn(40)) {
            static_cast<void>(record.add(KeyValue("", value)));
        }
    }
    return record;
}

GoldenBytes bytesOf(const SerializedData& data)
{
    GoldenBytes bytes;
    const SerializationInfo info = usedPartOf(data.getSerializationInfo());
    bytes.info.resize(sizeof info);
    std::memcpy(bytes.info.data(), &info, sizeof info);
    bytes.data.resize(static_cast<std::size_t>(data.getTotalDataSize()));
    if (!bytes.data.empty()) {
        std::memcpy(bytes.data.data(), data.getData(), bytes.data.size());
    }
    return bytes;
}

SerializationInfo usedPartOf(const SerializationInfo& info)
{
    SerializationInfo used = {};
    used.blockCount = info.blockCount;
    for (int block = 0; block < info.blockCount; ++block) {
        used.typeCount[block] = info.typeCount[block];
        used.dataSize[block] = info.dataSize[block];
        used.repeatCount[block] = info.repeatCount[block];
        std::copy_n(info.types[block], info.typeCount[block], used.types[block]);
        std::copy_n(info.typeSizes[block], info.typeCount[block], used.typeSizes[block]);
    }
    return used;
}

std::string textOf(const std::vector<std::uint8_t>& bytes)
{
    return std::string(bytes.begin(), bytes.end());
}

}  // namespace oxil::test
