#include "GoldenWireEncoder.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <utility>

namespace oxil::test {
namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::uint8_t TEXT = 10;
constexpr std::uint8_t TOLD = 15;

struct Entry {
    std::uint8_t kind;
    std::uint32_t size;
};

struct Block {
    std::vector<Entry> entries;
    std::int32_t repeatCount;
    std::vector<Bytes> values;  // of all repetitions, cut from the data area
};

std::uint32_t numberAt(const Bytes& bytes, std::size_t offset)
{
    std::uint32_t number = 0;
    for (std::size_t i = 4; i-- > 0;) {
        number = number * 256 + bytes.at(offset + i);
    }
    return number;
}

std::vector<Block> blocksOf(const GoldenBytes& bytes)
{
    std::vector<Block> blocks(numberAt(bytes.info, 0));
    std::size_t place = 0;  // in the data area
    for (std::size_t number = 0; number < blocks.size(); ++number) {
        Block& block = blocks[number];
        const std::uint32_t count = numberAt(bytes.info, 4 + 4 * number);
        for (std::uint32_t i = 0; i < count; ++i) {
            block.entries.push_back(
                {bytes.info.at(64 + 2000 * number + i),
                 numberAt(bytes.info, 10064 + 8000 * number + 4 * std::size_t{i})});
        }
        block.repeatCount = static_cast<std::int32_t>(numberAt(bytes.info, 44 + 4 * number));
        const std::int32_t times = count > 0 ? std::max(block.repeatCount, 1) : 0;
        for (std::int32_t i = 0; i < times; ++i) {
            for (const Entry& entry : block.entries) {
                const auto begin = bytes.data.begin() + static_cast<std::ptrdiff_t>(place);
                block.values.emplace_back(begin, begin + static_cast<std::ptrdiff_t>(entry.size));
                place += entry.size;
            }
        }
    }
    return blocks;
}

// ---- The message

void putVarint(Bytes& out, std::uint32_t number)
{
    while (number > 127) {
        out.push_back(static_cast<std::uint8_t>(number % 128 + 128));
        number /= 128;
    }
    out.push_back(static_cast<std::uint8_t>(number));
}

std::uint32_t zigzag(std::int32_t number)
{
    const std::int64_t wide = number;
    return static_cast<std::uint32_t>(wide >= 0 ? 2 * wide : -2 * wide - 1);
}

std::uint8_t sign(const Entry& entry)
{
    constexpr std::uint32_t SIZES[] = {0, 4, 4, 4, 4, 8, 8, 4, 8, 1, 256};
    const bool usual = entry.kind >= 1 && entry.kind <= TEXT && entry.size == SIZES[entry.kind];
    return usual ? entry.kind : TOLD;
}

bool isKey(const Entry& entry)
{
    return entry.kind == TEXT && entry.size == 256;
}

bool holdsRecords(const Block& block)
{
    for (std::size_t i = 0; i < block.entries.size(); i += 2) {
        if (!isKey(block.entries[i])) {
            return false;
        }
    }
    return block.entries.size() % 2 == 0;
}

void putHead(Bytes& out, const Block& block)
{
    const bool records = holdsRecords(block);
    putVarint(out, static_cast<std::uint32_t>(2 * block.entries.size() + (records ? 1 : 0)));
    putVarint(out, zigzag(block.repeatCount));

    std::vector<Entry> told;
    for (std::size_t i = records ? 1 : 0; i < block.entries.size(); i += records ? 2 : 1) {
        told.push_back(block.entries[i]);
    }
    for (std::size_t i = 0; i < told.size(); i += 2) {
        const int high = i + 1 < told.size() ? sign(told[i + 1]) : 0;
        out.push_back(static_cast<std::uint8_t>(sign(told[i]) + 16 * high));
    }
    for (const Entry& entry : told) {
        if (sign(entry) == TOLD) {
            out.push_back(entry.kind);
            putVarint(out, entry.size);
        }
    }
}

void putValue(Bytes& out, std::uint8_t kind, const Bytes& value)
{
    auto end = value.end();
    if (kind == TEXT) {
        end = std::find(value.begin(), value.end(), 0);
        const bool onlyText = std::all_of(end, value.end(), [](int byte) { return byte == 0; });
        if (onlyText) {
            putVarint(out, static_cast<std::uint32_t>(end - value.begin()));
        } else {
            putVarint(out, static_cast<std::uint32_t>(value.size() + 1));
            end = value.end();
        }
    }
    out.insert(out.end(), value.begin(), end);
}

// ---- JSON

std::uint64_t bitsOf(const Bytes& value)
{
    std::uint64_t bits = 0;
    for (std::size_t i = value.size(); i-- > 0;) {
        bits = bits << 8 | value[i];
    }
    return bits;
}

std::string floating(double number)
{
    if (std::isinf(number)) {
        return number < 0 ? "\"-inf\"" : "\"inf\"";
    }
    char text[40];
    std::snprintf(text, sizeof text, "%.17g", number);
    // Python's integers have no negative zero.
    return std::strpbrk(text, ".e") != nullptr ? text : std::string(text) + ".0";
}

template <typename Number, typename Bits>
double floatingOf(Bits bits)
{
    static_assert(sizeof(Number) == sizeof(Bits));
    Number number;
    std::memcpy(&number, &bits, sizeof number);
    return static_cast<double>(number);
}

/** A text of UTF-8, but for two bytes that the payloads have to show what becomes of others. */
std::string quoted(const Bytes& value)
{
    std::string text(value.begin(), std::find(value.begin(), value.end(), 0));
    for (const auto& [bytes, written] : {std::pair("\\", "\\\\"), std::pair("\"", "\\\""),
                                         std::pair("\x80\xff", "\\\\x80\\\\xff")}) {
        const std::string replacement = written;
        for (std::size_t place = text.find(bytes); place != std::string::npos;
             place = text.find(bytes, place + replacement.size())) {
            text.replace(place, std::strlen(bytes), replacement);
        }
    }
    return '"' + text + '"';
}

std::string jsonOf(std::uint8_t kind, const Bytes& value)
{
    const std::uint64_t bits = bitsOf(value);
    const auto half = static_cast<std::uint32_t>(bits);
    switch (static_cast<GoldenKind>(kind)) {
        case GoldenKind::Int:
            return "{\"INT\": " + std::to_string(static_cast<std::int32_t>(half)) + "}";
        case GoldenKind::UInt:
            return "{\"UINT\": " + std::to_string(half) + "}";
        case GoldenKind::Long:
            return "{\"LONG\": " + std::to_string(static_cast<std::int32_t>(half)) + "}";
        case GoldenKind::ULong:
            return "{\"ULONG\": " + std::to_string(half) + "}";
        case GoldenKind::LongLong:
            return "{\"LONGLONG\": " + std::to_string(static_cast<std::int64_t>(bits)) + "}";
        case GoldenKind::ULongLong:
            return "{\"ULONGLONG\": " + std::to_string(bits) + "}";
        case GoldenKind::Float:
            return "{\"FLOAT\": " + floating(floatingOf<float>(half)) + "}";
        case GoldenKind::Double:
            return "{\"DOUBLE\": " + floating(floatingOf<double>(bits)) + "}";
        case GoldenKind::Bool:
            return std::string("{\"BOOL\": ") + (bits != 0 ? "true" : "false") + "}";
        case GoldenKind::Text:
            break;
    }
    return "{\"STRING\": " + quoted(value) + "}";
}

}  // namespace

Bytes encodeWire(const GoldenBytes& bytes)
{
    const std::vector<Block> blocks = blocksOf(bytes);
    Bytes body = {static_cast<std::uint8_t>(blocks.size())};
    for (const Block& block : blocks) {
        putHead(body, block);
    }
    for (const Block& block : blocks) {
        for (std::size_t i = 0; i < block.values.size(); ++i) {
            putValue(body, block.entries[i % block.entries.size()].kind, block.values[i]);
        }
    }

    Bytes message = {0x4F, 0x78, 0x01};
    putVarint(message, static_cast<std::uint32_t>(body.size()));
    message.insert(message.end(), body.begin(), body.end());
    return message;
}

std::string toJson(const GoldenBytes& bytes)
{
    std::string json = "{\"blocks\": [";
    const char* nextBlock = "";
    for (const Block& block : blocksOf(bytes)) {
        json += nextBlock;
        json += "{\"repeatCount\": " + std::to_string(block.repeatCount) + ", \"values\": [";
        for (std::size_t i = 0; i < block.values.size(); ++i) {
            const std::uint8_t kind = block.entries[i % block.entries.size()].kind;
            json += (i > 0 ? ", " : "") + jsonOf(kind, block.values[i]);
        }
        json += "]}";
        nextBlock = ", ";
    }
    return json + "]}\n";
}

}  // namespace oxil::test
