#include "GoldenEncoder.h"

#include <array>
#include <cmath>
#include <cstddef>

namespace oxil::test {
namespace {

constexpr std::size_t BLOCKS = 5;
constexpr std::size_t ENTRIES = 2000;
constexpr std::size_t SLOT = 256;

// Where the fields of a description start.
constexpr std::size_t BLOCK_COUNT = 0;
constexpr std::size_t TYPE_COUNT = 4;
constexpr std::size_t DATA_SIZE = 24;
constexpr std::size_t REPEAT_COUNT = 44;
constexpr std::size_t TYPES = 64;
constexpr std::size_t TYPE_SIZES = 10064;
constexpr std::size_t INFO_SIZE = 50064;

std::size_t widthOf(GoldenKind kind)
{
    switch (kind) {
        case GoldenKind::Int:
        case GoldenKind::UInt:
        case GoldenKind::Long:
        case GoldenKind::ULong:
        case GoldenKind::Float:
            return 4;
        case GoldenKind::LongLong:
        case GoldenKind::ULongLong:
        case GoldenKind::Double:
            return 8;
        case GoldenKind::Bool:
            return 1;
        case GoldenKind::Text:
            return SLOT;
    }
    return 0;
}

// The bits of a number that the format can hold exactly (no NaN).
std::uint64_t ieeeBits(double number, int exponentBits, int fractionBits)
{
    const int bias = (1 << (exponentBits - 1)) - 1;
    const double magnitude = std::fabs(number);
    std::uint64_t exponent = 0;
    double fraction = 0;

    if (std::isinf(number)) {
        exponent = (std::uint64_t{1} << exponentBits) - 1;
    } else {
        int power = 0;
        const double half = std::frexp(magnitude, &power);  // 0.5 <= half < 1, or 0
        if (power - 1 + bias < 1) {
            fraction = std::ldexp(magnitude, bias - 1 + fractionBits);
        } else if (half > 0) {
            exponent = static_cast<std::uint64_t>(power - 1 + bias);
            fraction = std::ldexp(2 * half - 1, fractionBits);
        }
    }

    const std::uint64_t sign = std::signbit(number) ? 1 : 0;
    return (((sign << exponentBits) | exponent) << fractionBits) |
           static_cast<std::uint64_t>(fraction);
}

std::uint64_t bitsOf(const GoldenValue& value)
{
    switch (value.kind) {
        case GoldenKind::Int:
        case GoldenKind::Long:
        case GoldenKind::LongLong:
            return static_cast<std::uint64_t>(std::get<std::int64_t>(value.content));
        case GoldenKind::Float:
            return ieeeBits(std::get<double>(value.content), 8, 23);
        case GoldenKind::Double:
            return ieeeBits(std::get<double>(value.content), 11, 52);
        default:
            return std::get<std::uint64_t>(value.content);
    }
}

std::uint8_t byteOf(std::uint64_t bits, std::size_t index)
{
    return static_cast<std::uint8_t>((bits >> (8 * index)) & 0xff);
}

// One block: what is described and what is written are separate, as in a list of one shape.
class Block {
public:
    void describe(GoldenKind kind)
    {
        __types.push_back(static_cast<std::uint8_t>(kind));
        __sizes.push_back(widthOf(kind));
    }

    void describe(const GoldenEntry& entry)
    {
        describe(GoldenKind::Text);
        describe(entry.value.kind);
    }

    void write(const std::string& text)
    {
        for (std::size_t i = 0; i < SLOT; ++i) {
            const bool inText = i < text.size();
            __data.push_back(inText ? static_cast<std::uint8_t>(text[i]) : std::uint8_t{0});
        }
    }

    void write(const GoldenValue& value)
    {
        if (value.kind == GoldenKind::Text) {
            write(std::get<std::string>(value.content));
            return;
        }
        const std::uint64_t bits = bitsOf(value);
        for (std::size_t i = 0; i < widthOf(value.kind); ++i) {
            __data.push_back(byteOf(bits, i));
        }
    }

    void write(const GoldenEntry& entry)
    {
        write(entry.key);
        write(entry.value);
    }

    void add(const std::string& text)
    {
        describe(GoldenKind::Text);
        write(text);
    }

    void add(const GoldenValue& value)
    {
        describe(value.kind);
        write(value);
    }

    void add(const GoldenEntry& entry)
    {
        describe(entry);
        write(entry);
    }

    template <typename Item>
    void addAll(const std::vector<Item>& items)
    {
        for (const Item& item : items) {
            add(item);
        }
    }

    void repeat(std::size_t count) { __repeatCount = count; }

    void appendTo(GoldenBytes& bytes, std::size_t number) const
    {
        std::size_t size = 0;
        for (std::size_t i = 0; i < __types.size(); ++i) {
            bytes.info[TYPES + ENTRIES * number + i] = __types[i];
            put(bytes, TYPE_SIZES + 4 * (ENTRIES * number + i), __sizes[i]);
            size += __sizes[i];
        }
        put(bytes, TYPE_COUNT + 4 * number, __types.size());
        put(bytes, DATA_SIZE + 4 * number, size);
        put(bytes, REPEAT_COUNT + 4 * number, __repeatCount);

        bytes.data.insert(bytes.data.end(), __data.begin(), __data.end());
    }

    static void put(GoldenBytes& bytes, std::size_t offset, std::size_t number)
    {
        for (std::size_t i = 0; i < 4; ++i) {
            bytes.info[offset + i] = byteOf(number, i);
        }
    }

private:
    std::vector<std::uint8_t> __types;
    std::vector<std::size_t> __sizes;
    std::vector<std::uint8_t> __data;
    std::size_t __repeatCount = 0;
};

GoldenValue integer(GoldenKind kind, std::int64_t number)
{
    return {kind, number};
}

GoldenValue natural(GoldenKind kind, std::uint64_t number)
{
    return {kind, number};
}

GoldenValue floating(GoldenKind kind, double number)
{
    return {kind, number};
}

GoldenValue text(const std::string& text)
{
    return {GoldenKind::Text, text};
}

std::string longText()
{
    std::string result;
    while (result.size() < SLOT - 1) {
        result += static_cast<char>('!' + result.size() % 94);
    }
    return result;
}

constexpr const char* FOREIGN_TEXT =
    "Gr\xc3\xbc\xc3\x9f"
    "e \xed\x95\x9c\xea\xb8\x80 \x80\xff";

struct Samples {
    std::string name;
    std::vector<GoldenValue> values;  // at least three; the first three are the extremes
};

std::vector<Samples> samplesOfEveryKind()
{
    const auto int32 = [](GoldenKind kind) {
        return std::vector<GoldenValue>{integer(kind, -2147483647 - 1),
                                        integer(kind, 2147483647),
                                        integer(kind, -1),
                                        integer(kind, 0),
                                        integer(kind, 7),
                                        integer(kind, -19088744)};
    };
    const auto uint32 = [](GoldenKind kind) {
        return std::vector<GoldenValue>{natural(kind, 0xffffffff), natural(kind, 0),
                                        natural(kind, 0x80000000), natural(kind, 0x01020304),
                                        natural(kind, 1)};
    };

    return {
        {"int", int32(GoldenKind::Int)},
        {"uint", uint32(GoldenKind::UInt)},
        {"long", int32(GoldenKind::Long)},
        {"ulong", uint32(GoldenKind::ULong)},
        {"longlong",
         {integer(GoldenKind::LongLong, -9223372036854775807 - 1),
          integer(GoldenKind::LongLong, 9223372036854775807), integer(GoldenKind::LongLong, -1),
          integer(GoldenKind::LongLong, 0), integer(GoldenKind::LongLong, -4294967297)}},
        {"ulonglong",
         {natural(GoldenKind::ULongLong, 0xffffffffffffffff), natural(GoldenKind::ULongLong, 0),
          natural(GoldenKind::ULongLong, 0x8000000000000000),
          natural(GoldenKind::ULongLong, 0x0102030405060708)}},
        {"float",
         {floating(GoldenKind::Float, -0x1.fffffep127),  // the lowest
          floating(GoldenKind::Float, 0x1p-149),         // the smallest above zero
          floating(GoldenKind::Float, -0.0), floating(GoldenKind::Float, HUGE_VAL),
          floating(GoldenKind::Float, -HUGE_VAL), floating(GoldenKind::Float, 0x1p-126),
          floating(GoldenKind::Float, 0x1.99999ap-4), floating(GoldenKind::Float, -2.25),
          floating(GoldenKind::Float, 0)}},
        {"double",
         {floating(GoldenKind::Double, -0x1.fffffffffffffp1023),
          floating(GoldenKind::Double, 0x1p-1074), floating(GoldenKind::Double, -0.0),
          floating(GoldenKind::Double, HUGE_VAL), floating(GoldenKind::Double, -HUGE_VAL),
          floating(GoldenKind::Double, 0x1p-1022), floating(GoldenKind::Double, 0.1),
          floating(GoldenKind::Double, -2.25), floating(GoldenKind::Double, 0)}},
        {"bool",
         {natural(GoldenKind::Bool, 1), natural(GoldenKind::Bool, 0),
          natural(GoldenKind::Bool, 1)}},
        {"string", {text(longText()), text(""), text(FOREIGN_TEXT), text("x"), text("%s%n 100%")}},
    };
}

std::vector<GoldenValue> everyValue()
{
    std::vector<GoldenValue> values;
    for (const Samples& samples : samplesOfEveryKind()) {
        values.insert(values.end(), samples.values.begin(), samples.values.end());
    }
    return values;
}

GoldenRecord recordOfEveryValue()
{
    GoldenRecord record;
    for (const Samples& samples : samplesOfEveryKind()) {
        for (const GoldenValue& value : samples.values) {
            record.push_back({samples.name + " " + std::to_string(record.size()), value});
        }
    }
    record.push_back({longText(), integer(GoldenKind::Int, 1)});
    record.push_back({FOREIGN_TEXT, text(FOREIGN_TEXT)});
    return record;
}

// Records of one shape, with one value of each kind.
GoldenRecord recordOfEveryKind(std::size_t number)
{
    GoldenRecord record;
    for (const Samples& samples : samplesOfEveryKind()) {
        record.push_back({samples.name, samples.values.at(number)});
    }
    return record;
}

// As many parameters as a block takes, so that the type lists are seen to their ends.
std::vector<GoldenValue> fullBlock()
{
    std::vector<GoldenValue> values;
    while (values.size() < ENTRIES) {
        for (const GoldenValue& value : everyValue()) {
            if (value.kind != GoldenKind::Text && values.size() < ENTRIES) {
                values.push_back(value);
            }
        }
    }
    return values;
}

}  // namespace

GoldenBytes encode(const GoldenPayload& payload)
{
    std::array<Block, BLOCKS> blocks;
    std::size_t blockCount = 0;

    switch (payload.layout) {
        case GoldenLayout::Entry:
            blocks[0].add(payload.entry);
            blockCount = 1;
            break;
        case GoldenLayout::Record:
            blocks[0].addAll(payload.records.at(0));
            blockCount = 1;
            break;
        case GoldenLayout::RecordAndEntry:
            blocks[0].addAll(payload.records.at(0));
            blocks[1].add(payload.entry);
            blockCount = 2;
            break;
        case GoldenLayout::RecordAndMethod:
            blocks[0].addAll(payload.records.at(0));
            blocks[1].add(payload.method);
            blocks[2].addAll(payload.params);
            blockCount = 3;
            break;
        case GoldenLayout::Method:
            blocks[0].add(payload.method);
            blocks[1].addAll(payload.params);
            blockCount = 2;
            break;
        case GoldenLayout::MethodAndText:
            blocks[0].add(payload.method);
            blocks[1].addAll(payload.params);
            blocks[2].add(payload.text);
            blockCount = 3;
            break;
        case GoldenLayout::NamesMethodAndText:
            blocks[0].addAll(payload.names);
            blocks[1].add(payload.method);
            blocks[2].addAll(payload.params);
            blocks[3].add(payload.text);
            blockCount = 4;
            break;
        case GoldenLayout::List:
            for (const GoldenRecord& record : payload.records) {
                blocks[0].add(integer(GoldenKind::Int, static_cast<std::int64_t>(record.size())));
                blocks[1].addAll(record);
            }
            blockCount = 2;
            break;
        case GoldenLayout::RepeatedList:
            for (const GoldenEntry& entry : payload.records.at(0)) {
                blocks[0].describe(entry);
            }
            for (const GoldenRecord& record : payload.records) {
                for (const GoldenEntry& entry : record) {
                    blocks[0].write(entry);
                }
            }
            blocks[0].repeat(payload.records.size());
            blockCount = 1;
            break;
    }

    GoldenBytes bytes;
    bytes.info.resize(INFO_SIZE);
    Block::put(bytes, BLOCK_COUNT, blockCount);
    for (std::size_t i = 0; i < blockCount; ++i) {
        blocks[i].appendTo(bytes, i);
    }
    return bytes;
}

std::vector<GoldenPayload> goldenPayloads()
{
    std::vector<GoldenPayload> payloads;
    const auto add = [&payloads](const std::string& name, GoldenLayout layout) -> GoldenPayload& {
        payloads.emplace_back();
        payloads.back().name = name;
        payloads.back().layout = layout;
        return payloads.back();
    };

    for (const Samples& samples : samplesOfEveryKind()) {
        add("entry-" + samples.name, GoldenLayout::Entry).entry = {"key", samples.values.at(0)};
    }
    add("entry-empty-string", GoldenLayout::Entry).entry = {longText(), text("")};

    add("record", GoldenLayout::Record).records = {recordOfEveryValue()};

    GoldenPayload& recordAndEntry = add("record-and-entry", GoldenLayout::RecordAndEntry);
    recordAndEntry.records = {recordOfEveryValue()};
    recordAndEntry.entry = {FOREIGN_TEXT, integer(GoldenKind::LongLong, -2)};

    GoldenPayload& recordAndMethod = add("record-and-method", GoldenLayout::RecordAndMethod);
    recordAndMethod.records = {recordOfEveryValue()};
    recordAndMethod.method = "open";
    recordAndMethod.params = everyValue();

    GoldenPayload& method = add("method", GoldenLayout::Method);
    method.method = longText();
    method.params = everyValue();

    GoldenPayload& fullMethod = add("method-full", GoldenLayout::Method);
    fullMethod.method = "full";
    fullMethod.params = fullBlock();

    GoldenPayload& methodAndText = add("method-and-text", GoldenLayout::MethodAndText);
    methodAndText.method = FOREIGN_TEXT;
    methodAndText.params = everyValue();
    methodAndText.text = longText();

    GoldenPayload& names = add("names-method-and-text", GoldenLayout::NamesMethodAndText);
    names.names = {"first", "", longText(), FOREIGN_TEXT, "first"};
    names.method = "notify";
    names.params = everyValue();
    names.text = "extra";

    // A method name and an extra text take their slots also when there is nothing in them.
    add("names-method-and-text-empty", GoldenLayout::NamesMethodAndText);

    add("list", GoldenLayout::List).records = {
        recordOfEveryValue(), {{"only", text("one")}}, recordOfEveryKind(0), recordOfEveryKind(1)};

    add("list-with-empty-records", GoldenLayout::List).records = {
        {}, {{"a", integer(GoldenKind::Int, -1)}}, {}, {}, {{"b", text("")}}, {}};

    add("list-empty", GoldenLayout::List);

    add("repeated-list", GoldenLayout::RepeatedList).records = {
        recordOfEveryKind(0), recordOfEveryKind(1), recordOfEveryKind(2)};

    return payloads;
}

}  // namespace oxil::test
