#pragma once

#include <cstdint>
#include <string>
#include <variant>
#include <vector>

namespace oxil::test {

/**
 * @file
 * The serialized form written a second time, byte by byte, as a witness against the library.
 *
 * Nothing here includes or calls the library, and nothing depends on the host: every integer is
 * put down as little-endian bytes, every floating-point number by the arithmetic of IEEE 754. So
 * the bytes are those of the device, whatever compiles this.
 */

/** The kinds of value, with the numbers that stand in type lists. */
enum class GoldenKind : std::uint8_t {
    Int = 1,
    UInt,
    Long,
    ULong,
    LongLong,
    ULongLong,
    Float,
    Double,
    Bool,
    Text
};

/** A value: Int, Long and LongLong are signed; UInt, ULong, ULongLong and Bool unsigned. */
struct GoldenValue {
    GoldenKind kind = GoldenKind::Int;
    std::variant<std::int64_t, std::uint64_t, double, std::string> content;
};

struct GoldenEntry {
    std::string key;
    GoldenValue value;
};

using GoldenRecord = std::vector<GoldenEntry>;

enum class GoldenLayout {
    Entry,
    Record,
    RecordAndEntry,
    RecordAndMethod,
    Method,
    MethodAndText,
    NamesMethodAndText,
    List,
    RepeatedList
};

/** What is packed; parts that the layout has no place for are not looked at. */
struct GoldenPayload {
    std::string name;  ///< of the files, without suffix
    GoldenLayout layout = GoldenLayout::Entry;
    std::vector<GoldenRecord> records;  ///< exactly one unless the layout is a list
    GoldenEntry entry;
    std::vector<std::string> names;
    std::string method;
    std::vector<GoldenValue> params;
    std::string text;
};

/** A packed payload. */
struct GoldenBytes {
    std::vector<std::uint8_t> info;  ///< the description
    std::vector<std::uint8_t> data;
};

/** Packs a payload whose keys and texts fit their slots. What is left of a slot is zero. */
GoldenBytes encode(const GoldenPayload& payload);

/** The payloads that the files hold: every layout, every kind, and the extremes of both. */
std::vector<GoldenPayload> goldenPayloads();

}  // namespace oxil::test
