// A description that may say anything, and data: validate() answers what a plain reading of the data
// answers, and what it lets pass is read by everybody as it is by that.

#include <OxSerializedData.h>
#include <OxSerializer.h>
#include <OxStatus.h>
#include <OxWireDecoder.h>
#include <OxWireEncoder.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Fuzz.h"
#include "GoldenWireEncoder.h"
#include "Input.h"
#include "Values.h"

namespace {

using namespace oxil;
using fuzz::Input;
using fuzz::isSame;
using fuzz::Values;

using Entries = std::vector<std::pair<std::string, Variant>>;

// What is read is within one of these.
constexpr DecodingLimits LIMITS[] = {{4000, 1024 * 1024}, {20, 4000}};
constexpr std::size_t MOST_VALUES = 4000;

// ---- What is received

void describeBlock(Input& input, SerializationInfo& info, int block)
{
    static const SerializedData sizes;
    const int count = input.byte();
    const int listed = count < 255 ? count : MAX_TYPE_COUNT;
    long long dataSize = 0;
    for (int i = 0; i < listed; ++i) {
        const bool isRepeated = count == 255 && i >= 4;  // a full list takes few bytes
        const int type = isRepeated ? info.types[block][i - 4] : input.byte();
        const int told = isRepeated ? 0 : input.byte();
        int size = sizes.__getTypeSize(static_cast<VariantType>(type));
        if (isRepeated) {
            size = info.typeSizes[block][i - 4];
        } else if (told == 255) {
            size = input.number<std::int32_t>();
        } else if (told > 0) {
            size = told;
        }
        info.types[block][i] = static_cast<std::uint8_t>(type);
        info.typeSizes[block][i] = size;
        dataSize += size;
    }
    info.typeCount[block] = listed;
    info.dataSize[block] = static_cast<std::int32_t>(dataSize);
    const int repeatCount = input.byte();
    info.repeatCount[block] = repeatCount < 255 ? repeatCount : input.number<std::int32_t>();
    switch (input.byte()) {
        case 1:
            info.typeCount[block] = input.number<std::int32_t>();
            break;
        case 2:
            info.dataSize[block] = input.number<std::int32_t>();
            break;
        default:
            break;
    }
}

SerializationInfo describe(Input& input)
{
    SerializationInfo info = {};
    info.blockCount = input.below(8) - 1;
    for (int block = 0; block < std::min(info.blockCount, MAX_BLOCK_COUNT); ++block) {
        describeBlock(input, info, block);
    }
    return info;
}

// ---- What it says

/** A value read byte by byte; those that are missing are zero. */
Variant read(int type, std::string_view place, int size)
{
    if (type == VARIANT_TYPE_STRING) {
        const std::string_view slot = place.substr(0, MAX_TEXT_LENGTH);
        return Variant(std::string(slot.substr(0, slot.find('\0'))));
    }
    std::uint64_t bits = 0;
    for (int i = size; i-- > 0;) {
        bits = bits << 8 | static_cast<unsigned char>(place[static_cast<std::size_t>(i)]);
    }
    const auto half = static_cast<std::uint32_t>(bits);
    float single = 0;
    double whole = 0;
    std::memcpy(&single, &half, sizeof single);
    std::memcpy(&whole, &bits, sizeof whole);
    switch (type) {
        case VARIANT_TYPE_INT:
            return Variant(static_cast<int>(half));
        case VARIANT_TYPE_UINT:
            return Variant(static_cast<unsigned int>(half));
        case VARIANT_TYPE_LONG:
            return Variant(static_cast<long>(static_cast<std::int32_t>(half)));
        case VARIANT_TYPE_ULONG:
            return Variant(static_cast<unsigned long>(half));
        case VARIANT_TYPE_LONGLONG:
            return Variant(static_cast<long long>(bits));
        case VARIANT_TYPE_ULONGLONG:
            return Variant(static_cast<unsigned long long>(bits));
        case VARIANT_TYPE_FLOAT:
            return Variant(single);
        case VARIANT_TYPE_DOUBLE:
            return Variant(whole);
        default:
            return Variant(bits != 0);
    }
}

/** Whether block and entries are described as they may be; what the data has to say comes then. */
bool isDescribed(const SerializationInfo& info, int block)
{
    constexpr int WIDEST[] = {0, 4, 4, 4, 4, 8, 8, 4, 8, 1, INT32_MAX};

    const int count = info.typeCount[block];
    if (count < 0 || count > MAX_TYPE_COUNT) {
        return false;
    }
    long long sum = 0;
    for (int i = 0; i < count; ++i) {
        const int type = info.types[block][i];
        const int size = info.typeSizes[block][i];
        if (type < VARIANT_TYPE_INT || type > VARIANT_TYPE_STRING || size < 1 ||
            size > WIDEST[type]) {
            return false;
        }
        sum += size;
    }
    return sum == info.dataSize[block];
}

/** Reads everything. @return as validate() */
int read(const SerializationInfo& info, std::string_view data, const DecodingLimits& limits,
         std::vector<Values>& blocks)
{
    constexpr long long BYTES_OF_VALUE = 48;
    constexpr long long BYTES_OF_TEXT = 272;

    if (info.blockCount < 0 || info.blockCount > MAX_BLOCK_COUNT) {
        return STATUS_INVALID_PARAMETER;
    }
    long long valueCount = 0;
    long long bytes = 0;
    std::size_t place = 0;
    for (int block = 0; block < info.blockCount; ++block) {
        if (!isDescribed(info, block)) {
            return STATUS_INVALID_PARAMETER;
        }
        Values& values = blocks.emplace_back();
        const int count = info.typeCount[block];
        const int turns = count > 0 ? std::max(info.repeatCount[block], 1) : 0;
        for (int turn = 0; turn < turns; ++turn) {
            for (int i = 0; i < count; ++i) {
                const int type = info.types[block][i];
                const int size = info.typeSizes[block][i];
                const bool isText = type == VARIANT_TYPE_STRING;
                const int reach = isText ? std::max(size, MAX_TEXT_LENGTH) : size;
                if (data.size() - place < static_cast<std::size_t>(reach)) {
                    return STATUS_INVALID_PARAMETER;
                }
                ++valueCount;
                bytes += BYTES_OF_VALUE + (isText ? BYTES_OF_TEXT : 0);
                if (values.size() < MOST_VALUES) {
                    values.push_back(read(type, data.substr(place), size));
                }
                place += static_cast<std::size_t>(size);
            }
        }
        if (valueCount > limits.values || bytes > limits.bytes) {
            return STATUS_CAPACITY_EXCEEDED;
        }
    }
    return STATUS_SUCCESS;
}

// ---- What everybody reads

/** The entries that the values of a record are; false for an odd number of them. */
bool toEntries(const Variant* first, std::size_t count, Entries& entries)
{
    if (count % 2 != 0) {
        return false;
    }
    std::set<std::string> keys;
    for (std::size_t i = 0; i < count; i += 2) {
        const std::string key = first[i].toString();
        if (!key.empty() && keys.insert(key).second) {
            entries.emplace_back(key, first[i + 1]);
        }
    }
    return true;
}

bool toEntries(const Values& values, Entries& entries)
{
    return toEntries(values.data(), values.size(), entries);
}

void requireSame(const KeyValues& record, const Entries& entries)
{
    FUZZ_REQUIRE(static_cast<std::size_t>(record.getCount()) == entries.size());
    int position = 0;
    for (const auto& [key, value] : entries) {
        FUZZ_REQUIRE(record.getKey(position) == key);
        FUZZ_REQUIRE(isSame(record.getValue(position), value));
        FUZZ_REQUIRE(isSame(record.getValue(key), value));
        ++position;
    }
}

void requireSame(const std::vector<KeyValues>& records, const std::vector<Entries>& expected)
{
    FUZZ_REQUIRE(records.size() == expected.size());
    for (std::size_t i = 0; i < records.size(); ++i) {
        requireSame(records[i], expected[i]);
    }
}

/** What Serializer makes of the records of a list. */
int readList(const std::vector<Values>& blocks, std::vector<Entries>& records)
{
    if (blocks.size() != 2) {
        return STATUS_INVALID_PARAMETER;
    }
    std::size_t position = 0;
    for (const Variant& value : blocks[0]) {
        const int count = value.is<bool>() ? (value.get<bool>() ? 1 : 0) : value.get<int>();
        if (count <= 0) {
            continue;
        }
        const std::size_t left = blocks[1].size() - position;
        if (static_cast<std::size_t>(count) > left / 2) {
            return STATUS_INVALID_PARAMETER;
        }
        const std::size_t size = 2 * static_cast<std::size_t>(count);
        toEntries(blocks[1].data() + position, size, records.emplace_back());
        position += size;
    }
    return STATUS_SUCCESS;
}

int readRepeated(const std::vector<Values>& blocks, int typeCount, std::vector<Entries>& records)
{
    if (blocks.size() != 1) {
        return STATUS_INVALID_PARAMETER;
    }
    const auto step = static_cast<std::size_t>(typeCount);
    for (std::size_t position = 0; position < blocks[0].size(); position += step) {
        Entries entries;
        if (!toEntries(blocks[0].data() + position, step, entries)) {
            return STATUS_INVALID_PARAMETER;
        }
        records.push_back(entries);
    }
    return STATUS_SUCCESS;
}

void readRecords(const SerializedData& data, const std::vector<Values>& blocks)
{
    Entries entries;
    const bool isRecord = !blocks.empty() && toEntries(blocks[0], entries);

    KeyValues record;
    FUZZ_REQUIRE(Serializer::deserialize(data, record) ==
                 (isRecord ? STATUS_SUCCESS : STATUS_INVALID_PARAMETER));
    requireSame(record, isRecord ? entries : Entries());

    KeyValue entry;
    const bool isEntry = isRecord && !blocks[0].empty();
    FUZZ_REQUIRE(Serializer::deserialize(data, entry) ==
                 (isEntry ? STATUS_SUCCESS : STATUS_INVALID_STATE));
    if (isEntry && !blocks[0][0].toString().empty()) {
        FUZZ_REQUIRE(entry.getKey() == blocks[0][0].toString());
        FUZZ_REQUIRE(isSame(entry.getValue(), blocks[0][1]));
    }

    std::vector<Entries> expected;
    std::vector<KeyValues> records;
    FUZZ_REQUIRE(Serializer::deserialize(data, records) == readList(blocks, expected));
    requireSame(records, expected);

    expected.clear();
    records.clear();
    FUZZ_REQUIRE(Serializer::deserialize(data, records, REPEATABLE) ==
                 readRepeated(blocks, data.getTypeCount(), expected));
    requireSame(records, expected);
}

void readCalls(const SerializedData& data, const std::vector<Values>& blocks)
{
    const auto isText = [&](std::size_t block) { return blocks[block].size() == 1; };
    const auto status = [](bool isGood) {
        return isGood ? STATUS_SUCCESS : STATUS_INVALID_PARAMETER;
    };
    KeyValues record;
    KeyValue entry;
    std::vector<std::string> names;
    std::string method;
    std::string extra;
    Values params;

    Entries entries;
    const bool isRecord = !blocks.empty() && toEntries(blocks[0], entries);
    const bool hasEntry = blocks.size() == 2 && !blocks[1].empty() && blocks[1].size() % 2 == 0;
    int expected = status(blocks.size() == 2 && isRecord);
    if (expected == STATUS_SUCCESS && !hasEntry) {
        expected = STATUS_INVALID_STATE;
    }
    FUZZ_REQUIRE(Serializer::deserialize(data, record, entry) == expected);

    expected = status(blocks.size() == 2 && isText(0));
    FUZZ_REQUIRE(Serializer::deserialize(data, method, params) == expected);
    if (expected == STATUS_SUCCESS) {
        FUZZ_REQUIRE(method == blocks[0][0].toString() && isSame(params, blocks[1]));
    }

    record = KeyValues();
    expected = status(blocks.size() == 3 && isRecord && isText(1));
    FUZZ_REQUIRE(Serializer::deserialize(data, record, method, params) == expected);
    if (expected == STATUS_SUCCESS) {
        requireSame(record, entries);
        FUZZ_REQUIRE(method == blocks[1][0].toString() && isSame(params, blocks[2]));
    }

    expected = status(blocks.size() == 3 && isText(0) && isText(2));
    FUZZ_REQUIRE(Serializer::deserialize(data, method, params, extra) == expected);
    if (expected == STATUS_SUCCESS) {
        FUZZ_REQUIRE(method == blocks[0][0].toString() && isSame(params, blocks[1]) &&
                     extra == blocks[2][0].toString());
    }

    expected = status(blocks.size() == 4 && isText(1) && isText(3));
    FUZZ_REQUIRE(Serializer::deserialize(data, names, method, params, extra) == expected);
    if (expected == STATUS_SUCCESS) {
        FUZZ_REQUIRE(std::equal(names.begin(), names.end(), blocks[0].begin(), blocks[0].end(),
                                [](const std::string& name, const Variant& value) {
                                    return name == value.toString();
                                }));
        FUZZ_REQUIRE(method == blocks[1][0].toString() && isSame(params, blocks[2]) &&
                     extra == blocks[3][0].toString());
    }
}

// ---- The wire form

test::GoldenBytes bytesOf(const SerializedData& data)
{
    test::GoldenBytes bytes;
    bytes.info.resize(sizeof(SerializationInfo));
    std::memcpy(bytes.info.data(), &data.getSerializationInfo(), sizeof(SerializationInfo));
    const auto* area = static_cast<const std::uint8_t*>(data.getData());
    bytes.data.assign(area, area + data.getTotalDataSize());
    return bytes;
}

void travel(const SerializedData& data)
{
    std::string message;
    FUZZ_REQUIRE(WireEncoder::encode(data, message) == STATUS_SUCCESS);
    const std::vector<std::uint8_t> expected = test::encodeWire(bytesOf(data));
    FUZZ_REQUIRE(std::equal(
        message.begin(), message.end(), expected.begin(), expected.end(),
        [](char one, std::uint8_t other) { return static_cast<std::uint8_t>(one) == other; }));

    SerializedData arrived;
    FUZZ_REQUIRE(WireDecoder::decode(message.data(), message.size(), arrived) == STATUS_SUCCESS);
    const test::GoldenBytes sent = bytesOf(data);
    const test::GoldenBytes received = bytesOf(arrived);
    FUZZ_REQUIRE(received.data == sent.data);
    // Of what is not in use nothing travels.
    const SerializationInfo& info = data.getSerializationInfo();
    for (int block = 0; block < MAX_BLOCK_COUNT; ++block) {
        const bool isUsed = block < info.blockCount;
        const int count = isUsed ? info.typeCount[block] : 0;
        const SerializationInfo& other = arrived.getSerializationInfo();
        FUZZ_REQUIRE(other.typeCount[block] == count);
        FUZZ_REQUIRE(other.dataSize[block] == (isUsed ? info.dataSize[block] : 0));
        FUZZ_REQUIRE(other.repeatCount[block] == (isUsed ? info.repeatCount[block] : 0));
        FUZZ_REQUIRE(std::equal(info.types[block], info.types[block] + count, other.types[block]));
        FUZZ_REQUIRE(std::equal(info.typeSizes[block], info.typeSizes[block] + count,
                                other.typeSizes[block]));
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size)
{
    Input input(bytes, size);
    const DecodingLimits& limits = LIMITS[input.below(2)];
    const SerializationInfo info = describe(input);
    const std::string_view rest = input.rest();

    // What the getters say must not overflow, whatever stands there.
    SerializedData data(info);
    for (int block = -1; block <= MAX_BLOCK_COUNT; ++block) {
        data.getTypeCount(block);
        data.getRepeatCount(block);
        data.getDataSize(block);
        data.getData(block);
    }
    data.getTotalDataSize();

    std::vector<Values> blocks;
    fuzz::clearLog();
    int status = SerializedData::validate(info, rest.size());
    FUZZ_REQUIRE(status == read(info, rest, SerializedData::getDefaultLimits(rest.size()), blocks));
    FUZZ_REQUIRE(fuzz::countLogged() == (status == STATUS_SUCCESS ? 0 : 1));

    blocks.clear();
    status = SerializedData::validate(info, rest.size(), limits);
    FUZZ_REQUIRE(status == read(info, rest, limits, blocks));
    if (status != STATUS_SUCCESS) {
        return 0;
    }

    // Of just this size, so that a sanitizer sees a step beyond; never null.
    std::unique_ptr<void, void (*)(void*)> area(std::malloc(std::max(rest.size(), std::size_t{1})),
                                                std::free);
    std::copy(rest.begin(), rest.end(), static_cast<char*>(area.get()));
    data.setData(area.release(), TRANSFER_OWNERSHIP);
    for (int block = 0; block < info.blockCount; ++block) {
        const Values* values = data.getValues(block);
        FUZZ_REQUIRE(values != nullptr);
        FUZZ_REQUIRE(isSame(*values, blocks[static_cast<std::size_t>(block)]));
    }
    readRecords(data, blocks);
    readCalls(data, blocks);
    travel(data);
    return 0;
}
