#include "OxWireEncoder.h"

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstring>

#include "OxLog.h"
#include "OxSerializer.h"
#include "OxStatus.h"
#include "internal/OxDescription.h"
#include "internal/OxWireForm.h"

namespace oxil {
namespace {

using namespace internal;

// Everything that an int can count.
constexpr DecodingLimits NO_LIMITS = {LLONG_MAX, LLONG_MAX};

/** Writes to a place that is known to be large enough. */
class WireWriter {
public:
    explicit WireWriter(char* place) : __place(place) {}

    void byte(unsigned int value) { *__place++ = static_cast<char>(value); }

    void bytes(const void* bytes, std::size_t size)
    {
        std::memcpy(__place, bytes, size);
        __place += size;
    }

    void varint(std::uint32_t number)
    {
        for (; number >= 0x80; number >>= 7) {
            byte(number | 0x80);
        }
        byte(number);
    }

    void number(const void* bytes, std::size_t size)
    {
        copyNumber(__place, bytes, size);
        __place += size;
    }

    void text(const std::string& text)
    {
        varint(static_cast<std::uint32_t>(text.size()));
        bytes(text.data(), text.size());
    }

    /** The value of a number; its bytes are those that it has in a data area. */
    void number(const Variant& value)
    {
        char bytes[sizeof(long long)];
        const int size = value.__copyNumber(bytes);
        number(bytes, static_cast<std::size_t>(size));
    }

private:
    char* __place;
};

/** Two kinds in each byte, the first one in its lower half. */
class KindWriter {
public:
    explicit KindWriter(WireWriter& output) : __output(output) {}

    ~KindWriter()
    {
        if (__isHalf) {
            __output.byte(__half);
        }
    }

    KindWriter(const KindWriter&) = delete;
    KindWriter& operator=(const KindWriter&) = delete;

    void kind(unsigned int kind)
    {
        if (__isHalf) {
            __output.byte(__half | kind << 4);
        } else {
            __half = kind;
        }
        __isHalf = !__isHalf;
    }

private:
    WireWriter& __output;
    unsigned int __half = 0;
    bool __isHalf = false;
};

/** Appends a message whose length is known: @p write is told where. */
template <typename Write>
void append(std::string& message, std::size_t length, const Write& write)
{
    const std::size_t begin = message.size();
    message.resize(begin + WIRE_PREFIX_SIZE + varintSize(static_cast<std::uint32_t>(length)) +
                   length);
    WireWriter writer(&message[begin]);
    writer.bytes(WIRE_MAGIC, sizeof WIRE_MAGIC);
    writer.byte(WIRE_VERSION);
    writer.varint(static_cast<std::uint32_t>(length));
    write(writer);
}

// ---- Any description and data area ---------------------------------------------------------------

/** One block of a description. */
struct Block {
    Block(const SerializationInfo& info, int block)
        : types(info.types[block]),
          sizes(info.typeSizes[block]),
          typeCount(info.typeCount[block]),
          repeatCount(info.repeatCount[block]),
          isRecord(typeCount % 2 == 0)
    {
        for (int i = 0; i < typeCount && isRecord; i += 2) {
            isRecord = types[i] == VARIANT_TYPE_STRING && isKnown(i);
        }
    }

    /** Whether the kind tells the size. */
    bool isKnown(int i) const { return sizes[i] == defaultSizeOf(types[i]); }

    const std::uint8_t* types;
    const std::int32_t* sizes;
    int typeCount;
    int repeatCount;
    bool isRecord;  // text slots as keys, and values

    /** The first entry whose kind is told, and the way to the next. */
    int first() const { return isRecord ? 1 : 0; }
    int step() const { return isRecord ? 2 : 1; }
};

/** Whether all these bytes are zero. */
bool isZero(const char* bytes, std::size_t size)
{
    return size == 0 || (*bytes == 0 && std::memcmp(bytes, bytes + 1, size - 1) == 0);
}

/** Calls visit(place, type, size) for every entry of all blocks and repetitions. */
template <typename Visit>
void forEachEntry(const SerializationInfo& info, const char* place, const Visit& visit)
{
    for (int block = 0; block < info.blockCount; ++block) {
        const int typeCount = info.typeCount[block];
        const int repeatCount = typeCount > 0 ? std::max(info.repeatCount[block], 1) : 0;
        for (int repetition = 0; repetition < repeatCount; ++repetition) {
            for (int i = 0; i < typeCount; ++i) {
                const auto size = static_cast<std::size_t>(info.typeSizes[block][i]);
                visit(place, info.types[block][i], size);
                place += size;
            }
        }
    }
}

std::size_t headSize(const Block& block)
{
    const int kinds = block.isRecord ? block.typeCount / 2 : block.typeCount;
    std::size_t size = varintSize(static_cast<std::uint32_t>(2 * block.typeCount + 1)) +
                       varintSize(toZigzag(block.repeatCount)) +
                       kindsSize(static_cast<std::size_t>(kinds));
    for (int i = block.first(); i < block.typeCount; i += block.step()) {
        if (!block.isKnown(i)) {
            size += 1 + varintSize(static_cast<std::uint32_t>(block.sizes[i]));
        }
    }
    return size;
}

void writeHead(const Block& block, WireWriter& output)
{
    output.varint(static_cast<std::uint32_t>(2 * block.typeCount + (block.isRecord ? 1 : 0)));
    output.varint(toZigzag(block.repeatCount));
    {
        KindWriter kinds(output);
        for (int i = block.first(); i < block.typeCount; i += block.step()) {
            kinds.kind(block.isKnown(i) ? block.types[i] : TOLD_KIND);
        }
    }
    for (int i = block.first(); i < block.typeCount; i += block.step()) {
        if (!block.isKnown(i)) {
            output.byte(block.types[i]);
            output.varint(static_cast<std::uint32_t>(block.sizes[i]));
        }
    }
}

/** What travels of a text slot. */
struct Text {
    Text(const char* slot, std::size_t size) : length(strnlen(slot, size))
    {
        // What a reader would not put there goes along.
        if (!isZero(slot + length, size - length)) {
            length = size;
            mark = size + 1;
        } else {
            mark = length;
        }
    }

    std::size_t length;
    std::size_t mark;  // the length, or what stands for the whole slot
};

/** Bytes of all entries. Texts in many slots of one byte take twice as many as these. */
std::uint64_t entriesSize(const SerializationInfo& info, const char* data)
{
    std::uint64_t total = 0;
    forEachEntry(info, data, [&](const char* place, int type, std::size_t size) {
        if (type == VARIANT_TYPE_STRING) {
            const Text text(place, size);
            total += varintSize(static_cast<std::uint32_t>(text.mark)) + text.length;
        } else {
            total += size;
        }
    });
    return total;
}

void writeEntries(const SerializationInfo& info, const char* data, WireWriter& output)
{
    forEachEntry(info, data, [&](const char* place, int type, std::size_t size) {
        if (type == VARIANT_TYPE_STRING) {
            const Text text(place, size);
            output.varint(static_cast<std::uint32_t>(text.mark));
            output.bytes(place, text.length);
        } else {
            output.number(place, size);
        }
    });
}

// ---- Records as Serializer would pack them, one repetition or more -------------------------------

/** Adds the bytes that a text takes; false if it would not arrive as it is. */
bool measure(const std::string& text, std::size_t& size)
{
    size += varintSize(static_cast<std::uint32_t>(text.size())) + text.size();
    return survives(text);
}

/** Adds the bytes that the entries take; false if packing them is more than copying. */
bool measure(const KeyValues& record, std::size_t& size)
{
    if (record.getCount() == 0 || record.getCount() > MAX_TYPE_COUNT / 2) {
        return false;
    }
    for (const KeyValue& entry : record.getKeyValues()) {
        const Variant& value = entry.__getValue();
        if (!measure(entry.__getKey(), size)) {
            return false;
        }
        if (value.getType() != VARIANT_TYPE_STRING) {
            if (value.empty()) {
                return false;
            }
            size += static_cast<std::size_t>(getValueSpace(value));
        } else if (!measure(value.__getText(), size)) {
            return false;
        }
    }
    return true;
}

bool isOfSameShape(const KeyValues& left, const KeyValues& right)
{
    const std::vector<KeyValue>& a = left.getKeyValues();
    const std::vector<KeyValue>& b = right.getKeyValues();
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](const KeyValue& one, const KeyValue& other) {
                          return one.__getValue().getType() == other.__getValue().getType();
                      });
}

/** The same for records of one shape, which have to be some, and whose message an int can count: a
 *  text takes a byte more there than its slot, at most. */
bool measure(const std::vector<KeyValues>& records, std::size_t& size)
{
    return !records.empty() && records.front().getCount() > 0 &&
           records.size() <= INT_MAX / 2 / records.front().__getSpace() &&
           std::all_of(records.begin(), records.end(), [&](const KeyValues& record) {
               return isOfSameShape(record, records.front()) && measure(record, size);
           });
}

void writeEntries(const KeyValues& record, WireWriter& output)
{
    for (const KeyValue& entry : record.getKeyValues()) {
        output.text(entry.__getKey());
        const Variant& value = entry.__getValue();
        if (value.getType() == VARIANT_TYPE_STRING) {
            output.text(value.__getText());
        } else {
            output.number(value);
        }
    }
}

std::size_t headSize(const KeyValues& record, std::int32_t repeatCount)
{
    const auto count = static_cast<std::uint32_t>(record.getCount());
    return varintSize(4 * count + 1) + varintSize(toZigzag(repeatCount)) + kindsSize(count);
}

void writeHead(const KeyValues& record, std::int32_t repeatCount, WireWriter& output)
{
    output.byte(1);  // one block
    output.varint(4 * static_cast<std::uint32_t>(record.getCount()) + 1);
    output.varint(toZigzag(repeatCount));
    KindWriter kinds(output);
    for (const KeyValue& entry : record.getKeyValues()) {
        kinds.kind(static_cast<unsigned int>(entry.__getValue().getType()));
    }
}

}  // namespace

int WireEncoder::encode(const SerializedData& data, std::string& message)
{
    const char* area = static_cast<const char*>(data.getData());
    if (area == nullptr) {
        OX_ERROR("data is nullptr.");
        return STATUS_INVALID_STATE;
    }
    const SerializationInfo& info = data.__getInfo();
    long long reach = 0;
    const int r = internal::validate(info, INT_MAX, NO_LIMITS, true, reach);
    if (r != STATUS_SUCCESS) {
        return r;
    }

    std::uint64_t length = 1 + entriesSize(info, area);
    for (int block = 0; block < info.blockCount; ++block) {
        length += headSize(Block(info, block));
    }
    if (length > INT_MAX) {
        OX_ERROR("Message is too long (%llu).", static_cast<unsigned long long>(length));
        return STATUS_CAPACITY_EXCEEDED;
    }
    append(message, static_cast<std::size_t>(length), [&](WireWriter& output) {
        output.byte(static_cast<unsigned int>(info.blockCount));
        for (int block = 0; block < info.blockCount; ++block) {
            writeHead(Block(info, block), output);
        }
        writeEntries(info, area, output);
    });
    return STATUS_SUCCESS;
}

int WireEncoder::encode(const KeyValues& record, std::string& message)
{
    std::size_t size = 0;
    if (measure(record, size)) {
        append(message, 1 + headSize(record, 0) + size, [&](WireWriter& output) {
            writeHead(record, 0, output);
            writeEntries(record, output);
        });
        return STATUS_SUCCESS;
    }
    // Whatever is refused, cut or out of place is so in the same way.
    SerializedData data;
    const int r = data.__isUsable() ? record.serialize(data) : STATUS_OUT_OF_MEMORY;
    return r == STATUS_SUCCESS ? encode(data, message) : r;
}

int WireEncoder::encode(const std::vector<KeyValues>& records, std::string& message,
                        Repeatable repeatable)
{
    std::size_t size = 0;
    if (measure(records, size)) {
        const KeyValues& first = records.front();
        const auto count = static_cast<std::int32_t>(records.size());
        append(message, 1 + headSize(first, count) + size, [&](WireWriter& output) {
            writeHead(first, count, output);
            for (const KeyValues& record : records) {
                writeEntries(record, output);
            }
        });
        return STATUS_SUCCESS;
    }
    SerializedData data;
    const int r =
        data.__isUsable() ? Serializer::serialize(records, data, repeatable) : STATUS_OUT_OF_MEMORY;
    return r == STATUS_SUCCESS ? encode(data, message) : r;
}

}  // namespace oxil
