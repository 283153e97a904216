#include "OxWireDecoder.h"

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <utility>

#include "OxLog.h"
#include "OxSerializer.h"
#include "OxStatus.h"
#include "internal/OxDescription.h"
#include "internal/OxWireForm.h"

namespace oxil {
namespace {

using namespace internal;

/** Reads bytes up to an end. What is not there or out of range is zero, and remembered. */
class WireReader {
public:
    WireReader(const void* bytes, std::size_t size)
        : __begin(static_cast<const unsigned char*>(bytes)), __place(__begin), __end(__begin + size)
    {
    }

    /** Whether everything has been there. */
    bool isGood() const { return __isGood; }

    bool isAtEnd() const { return __place == __end; }

    std::size_t left() const { return static_cast<std::size_t>(__end - __place); }

    /** Bytes read, up to the first bad one. */
    std::size_t offset() const { return static_cast<std::size_t>(__place - __begin); }

    /** So many bytes; null if there are fewer. */
    const char* bytes(std::size_t size)
    {
        if (size > left()) {
            fail();
        }
        if (!__isGood) {
            return nullptr;
        }
        const unsigned char* bytes = __place;
        __place += size;
        return reinterpret_cast<const char*>(bytes);
    }

    unsigned int byte()
    {
        const char* byte = bytes(1);
        return byte != nullptr ? static_cast<unsigned char>(*byte) : 0;
    }

    std::uint32_t varint()
    {
        std::uint64_t number = 0;
        for (unsigned int shift = 0; shift < 7 * LONGEST_VARINT; shift += 7) {
            const unsigned int part = byte();
            number |= static_cast<std::uint64_t>(part & 0x7F) << shift;
            if (part < 0x80) {
                if (number > UINT32_MAX) {
                    fail();
                }
                return __isGood ? static_cast<std::uint32_t>(number) : 0;
            }
        }
        fail();
        return 0;
    }

    void fail() { __isGood = false; }

private:
    const unsigned char* __begin;
    const unsigned char* __place;
    const unsigned char* __end;
    bool __isGood = true;
};

/** The kind at a position of a list of them. */
unsigned int kindAt(const char* kinds, std::size_t i)
{
    const auto both = static_cast<unsigned char>(kinds[i / 2]);
    return i % 2 == 0 ? both & 0xF : both >> 4;
}

/** A list of kinds, of which the half byte that may be left over is zero; null if there is none. */
const char* readKinds(WireReader& input, std::size_t count)
{
    const char* kinds = input.bytes(kindsSize(count));
    if (kinds != nullptr && count % 2 != 0 && kindAt(kinds, count) != 0) {
        input.fail();
        return nullptr;
    }
    return kinds;
}

/** Reads the types of a block; the bytes that one repetition takes at least are returned. */
long long readHead(WireReader& input, SerializationInfo& info, int block)
{
    const std::uint32_t shape = input.varint();
    const std::size_t count = shape / 2;
    const bool isRecord = shape % 2 != 0;
    info.repeatCount[block] = fromZigzag(input.varint());
    if (count > MAX_TYPE_COUNT || (isRecord && count % 2 != 0)) {
        input.fail();
        return 0;
    }
    const std::size_t step = isRecord ? 2 : 1;
    const char* kinds = readKinds(input, count / step);
    if (kinds == nullptr) {
        return 0;
    }

    std::uint8_t* types = info.types[block];
    std::int32_t* sizes = info.typeSizes[block];
    long long dataSize = 0;
    long long least = 0;
    const auto add = [&](unsigned int type, std::int32_t size) {
        *types++ = static_cast<std::uint8_t>(type);
        *sizes++ = size;
        dataSize += size;
        least += type == VARIANT_TYPE_STRING ? 1 : size;
    };
    for (std::size_t i = 0; i < count / step; ++i) {
        if (isRecord) {
            add(VARIANT_TYPE_STRING, static_cast<std::int32_t>(TEXT_SLOT_SIZE));
        }
        const unsigned int kind = kindAt(kinds, i);
        if (kind == TOLD_KIND) {
            const unsigned int told = input.byte();
            const std::uint32_t size = input.varint();
            if (size < 1 || size > INT_MAX) {
                input.fail();
                return 0;
            }
            add(told, static_cast<std::int32_t>(size));
        } else if (const int size = defaultSizeOf(static_cast<int>(kind)); size > 0) {
            add(kind, size);
        } else {
            input.fail();
            return 0;
        }
    }
    if (dataSize > INT_MAX) {
        input.fail();
        return 0;
    }
    info.typeCount[block] = static_cast<std::int32_t>(count);
    info.dataSize[block] = static_cast<std::int32_t>(dataSize);
    return least;
}

/** Writes the data area; false if the message ends too early or too late. */
bool readEntries(WireReader& input, const SerializationInfo& info, char* place)
{
    for (int block = 0; block < info.blockCount; ++block) {
        const int typeCount = info.typeCount[block];
        const int repeatCount = typeCount > 0 ? std::max(info.repeatCount[block], 1) : 0;
        for (int repetition = 0; repetition < repeatCount; ++repetition) {
            for (int i = 0; i < typeCount; ++i) {
                const auto size = static_cast<std::size_t>(info.typeSizes[block][i]);
                std::size_t length = size;
                if (info.types[block][i] == VARIANT_TYPE_STRING) {
                    const std::size_t mark = input.varint();
                    if (mark > size + 1) {
                        input.fail();
                    }
                    length = std::min(mark, size);
                }
                const char* bytes = input.bytes(length);
                if (bytes == nullptr) {
                    return false;
                }
                if (info.types[block][i] == VARIANT_TYPE_STRING) {
                    std::memcpy(place, bytes, length);
                    std::memset(place + length, 0, size - length);
                } else {
                    copyNumber(place, bytes, size);
                }
                place += size;
            }
        }
    }
    return input.isAtEnd();
}

namespace steps {

/** What follows the length. Named after the member, because what is logged names the function. */
int decode(WireReader& input, SerializedData& data, const WireLimits& limits)
{
    SerializationInfo& info = data.__restart();
    const auto blockCount = static_cast<int>(input.byte());
    if (blockCount > std::min(limits.blocks, MAX_BLOCK_COUNT)) {
        OX_ERROR("Too many blocks (%d).", blockCount);
        return STATUS_CAPACITY_EXCEEDED;
    }
    info.blockCount = blockCount;
    // Bytes of the entries; those of one block fit into 62 bits, those of all may not.
    long long least = 0;
    const auto isThere = [&] {
        return input.isGood() && least <= static_cast<long long>(input.left());
    };
    for (int block = 0; block < blockCount && isThere(); ++block) {
        least += readHead(input, info, block) * std::max(info.repeatCount[block], 1);
    }
    if (!isThere()) {
        OX_ERROR("Invalid message (%zu).", input.offset());
        return STATUS_INVALID_PARAMETER;
    }

    long long needed = 0;
    const DecodingLimits bounds = {limits.values, limits.memory};
    const int r = internal::validate(info, INT_MAX, bounds, limits.unknownKinds, needed);
    if (r != STATUS_SUCCESS) {
        return r;
    }
    if (needed > limits.memory) {
        OX_ERROR("Too large when decoded (%lld).", needed);
        return STATUS_CAPACITY_EXCEEDED;
    }
    // What reading a narrow slot may touch behind the last entry is there, and zero.
    const auto total = static_cast<std::size_t>(data.getTotalDataSize());
    const std::size_t size = std::max(static_cast<std::size_t>(needed), std::size_t{1});
    std::unique_ptr<void, void (*)(void*)> area(std::malloc(size), std::free);
    if (area == nullptr) {
        OX_ERROR("Memory allocation failed.");
        return STATUS_OUT_OF_MEMORY;
    }
    auto* place = static_cast<char*>(area.get());
    if (!readEntries(input, info, place)) {
        OX_ERROR("Invalid message (%zu).", input.offset());
        return STATUS_INVALID_PARAMETER;
    }
    std::memset(place + total, 0, size - total);
    return data.setData(area.release(), TRANSFER_OWNERSHIP);
}

}  // namespace steps

// ---- Records without a detour --------------------------------------------------------------------

/** A block of records whose slots have their usual sizes, and nothing beside it. */
struct Records {
    std::size_t entryCount;
    std::size_t repeatCount;
    const char* kinds;
    const char* entries;
};

std::size_t numberSizeOf(unsigned int kind)
{
    return static_cast<std::size_t>(Variant::__getNumberSize(static_cast<VariantType>(kind)));
}

/** Looks for such a block, and at each of its bytes; false for everything else, good or bad. */
bool find(const void* bytes, std::size_t size, const WireLimits& limits, Records& records)
{
    WireReader input(bytes, size);
    const char* prefix = input.bytes(WIRE_PREFIX_SIZE);
    if (prefix == nullptr || std::memcmp(prefix, WIRE_MAGIC, sizeof WIRE_MAGIC) != 0 ||
        prefix[sizeof WIRE_MAGIC] != WIRE_VERSION || size > limits.bytes || limits.blocks < 1) {
        return false;
    }
    const std::size_t length = input.varint();
    if (length != input.left() || input.byte() != 1) {
        return false;
    }

    const std::uint32_t shape = input.varint();
    const int repeatCount = std::max(fromZigzag(input.varint()), 1);
    const std::size_t entryCount = shape / 4;
    const long long values = 2LL * static_cast<long long>(entryCount) * repeatCount;
    if (shape % 4 != 1 || entryCount == 0 || entryCount > MAX_TYPE_COUNT / 2 ||
        values > limits.values ||
        values > std::min<long long>(limits.memory, INT_MAX) / MOST_BYTES_OF_VALUE) {
        return false;
    }
    const char* kinds = readKinds(input, entryCount);
    if (kinds == nullptr) {
        return false;
    }

    const char* entries = input.bytes(0);
    const auto skipText = [&] {
        const std::size_t mark = input.varint();
        input.bytes(mark);
        return mark <= TEXT_SLOT_SIZE;
    };
    for (int repetition = 0; repetition < repeatCount; ++repetition) {
        for (std::size_t i = 0; i < entryCount; ++i) {
            const unsigned int kind = kindAt(kinds, i);
            bool isUsual = skipText();
            if (kind == VARIANT_TYPE_STRING) {
                isUsual = isUsual && skipText();
            } else {
                input.bytes(numberSizeOf(kind));  // of another kind, more than there are
            }
            if (!isUsual || !input.isGood()) {
                return false;
            }
        }
    }
    records = {entryCount, static_cast<std::size_t>(repeatCount), kinds, entries};
    return input.isAtEnd();
}

/** Takes a text that find() has looked at, as far as it is one. */
std::string takeText(const char*& place)
{
    std::size_t size = 0;
    unsigned int shift = 0;
    unsigned char part = 0;
    do {
        part = static_cast<unsigned char>(*place++);
        size |= static_cast<std::size_t>(part & 0x7F) << shift;
        shift += 7;
    } while (part >= 0x80);
    const char* text = place;
    place += size;
    return std::string(text, strnlen(text, std::min<std::size_t>(size, MAX_TEXT_LENGTH)));
}

/** Adds the entries of one repetition, all of which find() has looked at. */
void addEntries(const Records& records, const char*& place, KeyValues& record)
{
    record.__reserve(records.entryCount);
    for (std::size_t i = 0; i < records.entryCount; ++i) {
        std::string key = takeText(place);
        const auto add = [&](auto value) {
            if (key.empty()) {
                record.add(key, Variant());  // refused, and logged
            } else {
                record.add(KeyValue(std::move(key), Variant(std::move(value))));
            }
        };
        const unsigned int kind = kindAt(records.kinds, i);
        if (kind == VARIANT_TYPE_STRING) {
            add(takeText(place));
        } else {
            char number[sizeof(long long)];
            const std::size_t size = std::min(numberSizeOf(kind), sizeof number);
            copyNumber(number, place, size);
            place += size;
            internal::readNumber(static_cast<int>(kind), number, size, add);
        }
    }
}

}  // namespace

int WireDecoder::getLength(const void* bytes, std::size_t size, std::size_t& length,
                           const WireLimits& limits)
{
    length = 0;
    WireReader input(bytes, size);
    for (const char magic : WIRE_MAGIC) {
        if (!input.isAtEnd() && *input.bytes(1) != magic) {
            OX_ERROR("Invalid magic.");
            return STATUS_INVALID_PARAMETER;
        }
    }
    if (!input.isAtEnd()) {
        if (const unsigned int version = input.byte(); version != WIRE_VERSION) {
            OX_ERROR("Invalid version (%d).", static_cast<int>(version));
            return STATUS_INVALID_PARAMETER;
        }
    }
    const bool isThere = input.left() >= LONGEST_VARINT;
    const unsigned long long rest = input.varint();
    if (!input.isGood()) {
        if (!isThere) {
            return STATUS_SUCCESS;
        }
        OX_ERROR("Invalid message (%zu).", input.offset());
        return STATUS_INVALID_PARAMETER;
    }
    const unsigned long long total = input.offset() + rest;
    if (total > limits.bytes) {
        OX_ERROR("Message is too long (%llu).", total);
        return STATUS_CAPACITY_EXCEEDED;
    }
    length = static_cast<std::size_t>(total);
    return STATUS_SUCCESS;
}

int WireDecoder::decode(const void* bytes, std::size_t size, SerializedData& data,
                        const WireLimits& limits)
{
    data.__restart();
    std::size_t length = 0;
    int r = getLength(bytes, size, length, limits);
    if (r != STATUS_SUCCESS) {
        return r;
    }
    if (length != size) {
        OX_ERROR("Invalid message (%zu).", length == 0 ? size : std::min(size, length));
        return STATUS_INVALID_PARAMETER;
    }
    WireReader input(bytes, size);
    input.bytes(WIRE_PREFIX_SIZE);
    input.varint();
    r = steps::decode(input, data, limits);
    if (r != STATUS_SUCCESS) {
        data.__restart();
    }
    return r;
}

int WireDecoder::decode(const void* bytes, std::size_t size, KeyValues& record,
                        const WireLimits& limits)
{
    Records found;
    if (find(bytes, size, limits, found) && found.repeatCount == 1) {
        addEntries(found, found.entries, record);
        return STATUS_SUCCESS;
    }
    SerializedData data;
    const int r = data.__isUsable() ? decode(bytes, size, data, limits) : STATUS_OUT_OF_MEMORY;
    return r == STATUS_SUCCESS ? record.deserialize(data) : r;
}

int WireDecoder::decode(const void* bytes, std::size_t size, std::vector<KeyValues>& records,
                        Repeatable repeatable, const WireLimits& limits)
{
    Records found;
    if (find(bytes, size, limits, found)) {
        if (records.empty()) {
            records.reserve(found.repeatCount);
        }
        for (std::size_t i = 0; i < found.repeatCount; ++i) {
            KeyValues record;
            addEntries(found, found.entries, record);
            records.push_back(std::move(record));
        }
        return STATUS_SUCCESS;
    }
    SerializedData data;
    const int r = data.__isUsable() ? decode(bytes, size, data, limits) : STATUS_OUT_OF_MEMORY;
    return r == STATUS_SUCCESS ? Serializer::deserialize(data, records, repeatable) : r;
}

// ---- Streams -------------------------------------------------------------------------------------

WireDecoder::WireDecoder(const WireLimits& limits) : __limits(limits) {}

int WireDecoder::append(const void* bytes, std::size_t size)
{
    if (__status != STATUS_SUCCESS || size == 0) {
        return __status;
    }
    // Not at every call: what is left has to be moved.
    if (__begin > __bytes.size() / 2) {
        __bytes.erase(0, __begin);
        __end -= __begin;
        __begin = 0;
    }
    __bytes.append(static_cast<const char*>(bytes), size);

    std::size_t length = 0;
    do {
        __end += length;
        __status = getLength(__bytes.data() + __end, __bytes.size() - __end, length, __limits);
    } while (length > 0 && length <= __bytes.size() - __end);
    return __status;
}

bool WireDecoder::hasMessage() const noexcept
{
    return __begin < __end;
}

int WireDecoder::decode(SerializedData& data)
{
    return __decodeFirst(data);
}

int WireDecoder::decode(KeyValues& record)
{
    return __decodeFirst(record);
}

int WireDecoder::decode(std::vector<KeyValues>& records, Repeatable repeatable)
{
    return __decodeFirst(records, repeatable);
}

template <typename... Target>
int WireDecoder::__decodeFirst(Target&&... target)
{
    if (!hasMessage()) {
        return STATUS_NOT_FOUND;
    }
    const char* message = __bytes.data() + __begin;
    std::size_t length = 0;
    getLength(message, __end - __begin, length, __limits);
    __begin += length;
    return decode(message, length, target..., __limits);
}

}  // namespace oxil
