// Records and calls of any shape: what Serializer::validate() lets pass arrives as it was, in the
// bytes that the format tells of, through either form; what it doesn't is treated the same on every
// way into a message.

#include <OxIBidirectionalIterator.h>
#include <OxPayload.h>
#include <OxSerializedData.h>
#include <OxSerializer.h>
#include <OxStatus.h>
#include <OxWireDecoder.h>
#include <OxWireEncoder.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "Fuzz.h"
#include "GoldenEncoder.h"
#include "Input.h"
#include "Values.h"

namespace {

using namespace oxil;
using fuzz::Input;
using fuzz::isSame;
using fuzz::Values;
using test::GoldenLayout;

using Records = std::vector<KeyValues>;
using Pointers = std::vector<KeyValues*>;
using Names = std::vector<std::string>;

/** What payloads are made of. */
struct Parts {
    Records records;
    KeyValue entry;
    Names names;
    std::string method;
    Values params;
    std::string extra;
};

Parts makeParts(Input& input)
{
    Parts parts;
    const int recordCount = input.below(6);
    for (int i = 0; i < recordCount; ++i) {
        parts.records.push_back(fuzz::makeRecord(input));
    }
    const std::string key = input.text();
    parts.entry = KeyValue(key, fuzz::makeValue(input));
    for (int i = input.below(8); i > 0; --i) {
        parts.names.push_back(input.text());
    }
    parts.method = input.text();
    for (int i = input.below(16); i > 0; --i) {
        parts.params.push_back(fuzz::makeValue(input));
    }
    parts.extra = input.text();
    return parts;
}

/** Goes over records, of which some are missing. */
class Walk : public IBidirectionalIterator<KeyValues*> {
public:
    explicit Walk(const Pointers& records) : __records(records) {}

    int moveTo(int position) override
    {
        __position = position;
        return 0;
    }

    KeyValues* next() override { return __records[static_cast<std::size_t>(__position++)]; }
    int getPosition() override { return __position; }
    bool isEnd() override { return __position == static_cast<int>(__records.size()); }

private:
    const Pointers& __records;
    int __position = 0;
};

// ---- What arrives as it is

bool arrives(const std::string& text)
{
    return text.size() <= MAX_TEXT_LENGTH && text.find('\0') == std::string::npos;
}

bool arrives(const Variant& value)
{
    return value.is<std::string>() ? arrives(value.get<std::string>()) : !value.empty();
}

bool arrives(const KeyValue& entry)
{
    return !entry.getKey().empty() && arrives(entry.getKey()) && arrives(entry.getValue());
}

/** Looks for the first that doesn't arrive; false if there is one. */
bool arrives(const KeyValues& record, std::string& where)
{
    for (const KeyValue& entry : record.getKeyValues()) {
        if (!arrives(entry)) {
            where = entry.getKey();
            return false;
        }
    }
    return true;
}

bool arrives(const std::string& text, const char* name, std::string& where)
{
    where = arrives(text) ? where : name;
    return arrives(text);
}

template <typename Item>
bool arrive(const std::vector<Item>& items, const char* name, std::string& where)
{
    for (std::size_t i = 0; i < items.size(); ++i) {
        if (!arrives(items[i])) {
            where = std::string(name) + "[" + std::to_string(i) + "]";
            return false;
        }
    }
    return true;
}

/** Compares with what validate() says: a status, and where. */
void requireVerdict(int status, const std::string& where, bool expected,
                    const std::string& expectedWhere)
{
    FUZZ_REQUIRE(status == (expected ? STATUS_SUCCESS : STATUS_INVALID_PARAMETER));
    FUZZ_REQUIRE(where == expectedWhere);
    FUZZ_REQUIRE(fuzz::countLogged() == (expected ? 0 : 1));
}

// ---- The bytes, written a second time

test::GoldenValue toGolden(const Variant& value)
{
    const auto kind = static_cast<test::GoldenKind>(value.getType());
    switch (value.getType()) {
        case VARIANT_TYPE_INT:
        case VARIANT_TYPE_LONG:
        case VARIANT_TYPE_LONGLONG:
            return {kind, std::int64_t{value.toLongLong()}};
        case VARIANT_TYPE_FLOAT:
        case VARIANT_TYPE_DOUBLE:
            return {kind, value.toDouble()};
        case VARIANT_TYPE_STRING:
            return {kind, value.toString()};
        default:
            return {kind, std::uint64_t{value.toULongLong()}};
    }
}

test::GoldenRecord toGolden(const KeyValues& record)
{
    test::GoldenRecord golden;
    for (const KeyValue& entry : record.getKeyValues()) {
        golden.push_back({entry.getKey(), toGolden(entry.getValue())});
    }
    return golden;
}

/** What the encoder that knows nothing of the library can't write. */
bool isNan(const Variant& value)
{
    const VariantType type = value.getType();
    return (type == VARIANT_TYPE_FLOAT || type == VARIANT_TYPE_DOUBLE) &&
           std::isnan(value.toDouble());
}

bool hasNan(const Parts& parts)
{
    return isNan(parts.entry.getValue()) ||
           std::any_of(parts.params.begin(), parts.params.end(), isNan) ||
           std::any_of(parts.records.begin(), parts.records.end(), [](const KeyValues& record) {
               const Values values = record.getValues();
               return std::any_of(values.begin(), values.end(), isNan);
           });
}

void requireGolden(const Parts& parts, GoldenLayout layout, const SerializedData& data)
{
    if (hasNan(parts)) {
        return;
    }
    test::GoldenPayload payload;
    payload.layout = layout;
    for (const KeyValues& record : parts.records) {
        payload.records.push_back(toGolden(record));
    }
    payload.entry = {parts.entry.getKey(), toGolden(parts.entry.getValue())};
    payload.names = parts.names;
    payload.method = parts.method;
    for (const Variant& param : parts.params) {
        payload.params.push_back(toGolden(param));
    }
    payload.text = parts.extra;

    const test::GoldenBytes golden = test::encode(payload);
    FUZZ_REQUIRE(golden.info.size() == sizeof(SerializationInfo) &&
                 std::memcmp(golden.info.data(), &data.getSerializationInfo(),
                             sizeof(SerializationInfo)) == 0);
    FUZZ_REQUIRE(golden.data.size() == static_cast<std::size_t>(data.getTotalDataSize()) &&
                 std::equal(golden.data.begin(), golden.data.end(),
                            static_cast<const std::uint8_t*>(data.getData())));
}

// ---- On the way

/** What a call answered, logged and wrote. */
struct Answer {
    int status;
    std::string logged;
    std::string bytes;

    bool operator==(const Answer& other) const
    {
        return status == other.status && logged == other.logged && bytes == other.bytes;
    }
};

template <typename Encode>
Answer encoded(const Encode& encode)
{
    fuzz::clearLog();
    std::string message = "before";
    const int status = encode(message);
    FUZZ_REQUIRE(message.compare(0, 6, "before") == 0);
    FUZZ_REQUIRE(status == STATUS_SUCCESS || message.size() == 6);
    return {status, fuzz::getLog(), message.substr(6)};
}

/** Packs and sends on the long way. */
template <typename Pack>
Answer packed(const Pack& pack)
{
    return encoded([&](std::string& message) {
        SerializedData data;
        const int status = pack(data);
        return status == STATUS_SUCCESS ? WireEncoder::encode(data, message) : status;
    });
}

/** Description and data after the way over the wire. */
void travel(const SerializedData& data, SerializedData& arrived)
{
    std::string message;
    FUZZ_REQUIRE(WireEncoder::encode(data, message) == STATUS_SUCCESS);
    WireLimits limits;
    limits.bytes = 64 * 1024 * 1024;
    FUZZ_REQUIRE(WireDecoder::decode(message.data(), message.size(), arrived, limits) ==
                 STATUS_SUCCESS);
    FUZZ_REQUIRE(std::memcmp(&data.getSerializationInfo(), &arrived.getSerializationInfo(),
                             sizeof(SerializationInfo)) == 0);
    FUZZ_REQUIRE(std::memcmp(data.getData(), arrived.getData(),
                             static_cast<std::size_t>(data.getTotalDataSize())) == 0);
    FUZZ_REQUIRE(SerializedData::validate(arrived.getSerializationInfo(),
                                          static_cast<std::size_t>(arrived.getTotalDataSize())) ==
                 STATUS_SUCCESS);
}

// ---- Each payload

void tryEntry(const Parts& parts)
{
    std::string where;
    const std::string expected = arrives(parts.entry) ? "" : parts.entry.getKey();
    requireVerdict(Serializer::validate(parts.entry, &where), where, arrives(parts.entry),
                   expected);
    SerializedData data;
    const int status = Serializer::serialize(parts.entry, data);
    if (!arrives(parts.entry)) {
        return;
    }
    FUZZ_REQUIRE(status == STATUS_SUCCESS);
    requireGolden(parts, GoldenLayout::Entry, data);
    SerializedData arrived;
    travel(data, arrived);
    KeyValue entry;
    FUZZ_REQUIRE(Serializer::deserialize(arrived, entry) == STATUS_SUCCESS);
    FUZZ_REQUIRE(isSame(entry, parts.entry));
    std::string key;
    Variant value;
    FUZZ_REQUIRE(Serializer::deserialize(data, key, value) == STATUS_SUCCESS);
    FUZZ_REQUIRE(key == parts.entry.getKey() && isSame(value, parts.entry.getValue()));
}

void tryRecord(const Parts& parts)
{
    const KeyValues& record = parts.records[0];
    const Answer direct =
        encoded([&](std::string& message) { return WireEncoder::encode(record, message); });
    FUZZ_REQUIRE(direct == packed([&](SerializedData& data) { return record.serialize(data); }));
    FUZZ_REQUIRE(direct ==
                 encoded([&](std::string& message) { return Payload(record).encode(message); }));

    fuzz::clearLog();
    std::string where;
    std::string expected;
    const bool passes = arrives(record, expected);
    requireVerdict(Serializer::validate(record, &where), where, passes, expected);
    if (!passes || record.getCount() == 0 || record.getCount() > MAX_TYPE_COUNT / 2) {
        return;
    }
    SerializedData data;
    FUZZ_REQUIRE(Serializer::serialize(record, data) == STATUS_SUCCESS);
    requireGolden(parts, GoldenLayout::Record, data);
    SerializedData arrived;
    travel(data, arrived);
    KeyValues back;
    FUZZ_REQUIRE(Serializer::deserialize(arrived, back) == STATUS_SUCCESS);
    FUZZ_REQUIRE(isSame(back, record));
    KeyValues direct2;
    FUZZ_REQUIRE(WireDecoder::decode(direct.bytes.data(), direct.bytes.size(), direct2) ==
                 STATUS_SUCCESS);
    FUZZ_REQUIRE(isSame(direct2, record));
}

void tryRecordAndEntry(const Parts& parts)
{
    const KeyValues& record = parts.records[0];
    std::string where;
    std::string expected;
    bool passes = arrives(record, expected);
    if (passes && !arrives(parts.entry)) {
        expected = parts.entry.getKey();
        passes = false;
    }
    requireVerdict(Serializer::validate(record, parts.entry, &where), where, passes, expected);
    SerializedData data;
    const int status = Serializer::serialize(record, parts.entry, data);
    if (!passes || record.getCount() > MAX_TYPE_COUNT / 2) {
        return;
    }
    FUZZ_REQUIRE(status == STATUS_SUCCESS);
    requireGolden(parts, GoldenLayout::RecordAndEntry, data);
    SerializedData arrived;
    travel(data, arrived);
    KeyValues back;
    KeyValue entry;
    FUZZ_REQUIRE(Serializer::deserialize(arrived, back, entry) == STATUS_SUCCESS);
    FUZZ_REQUIRE(isSame(back, record) && isSame(entry, parts.entry));
}

void tryRecordAndMethod(const Parts& parts)
{
    const KeyValues& record = parts.records[0];
    std::string where;
    std::string expected;
    const bool passes = arrives(record, expected) && arrives(parts.method, "method", expected) &&
                        arrive(parts.params, "params", expected);
    requireVerdict(Serializer::validate(record, parts.method, parts.params, &where), where, passes,
                   expected);
    SerializedData data;
    const int status = Serializer::serialize(record, parts.method, parts.params, data);
    if (!passes || record.getCount() > MAX_TYPE_COUNT / 2) {
        return;
    }
    FUZZ_REQUIRE(status == STATUS_SUCCESS);
    requireGolden(parts, GoldenLayout::RecordAndMethod, data);
    SerializedData arrived;
    travel(data, arrived);
    KeyValues back;
    std::string method;
    Values params;
    FUZZ_REQUIRE(Serializer::deserialize(arrived, back, method, params) == STATUS_SUCCESS);
    FUZZ_REQUIRE(isSame(back, record) && method == parts.method && isSame(params, parts.params));
}

void tryMethod(const Parts& parts)
{
    const auto pack = [&](SerializedData& data) {
        return Serializer::serialize(parts.method, parts.params, data);
    };
    FUZZ_REQUIRE(packed(pack) == encoded([&](std::string& message) {
                     return Payload(parts.method, parts.params).encode(message);
                 }));

    fuzz::clearLog();
    std::string where;
    std::string expected;
    const bool passes =
        arrives(parts.method, "method", expected) && arrive(parts.params, "params", expected);
    requireVerdict(Serializer::validate(parts.method, parts.params, &where), where, passes,
                   expected);
    if (!passes) {
        return;
    }
    SerializedData data;
    FUZZ_REQUIRE(pack(data) == STATUS_SUCCESS);
    requireGolden(parts, GoldenLayout::Method, data);
    SerializedData arrived;
    travel(data, arrived);
    std::string method;
    Values params;
    FUZZ_REQUIRE(Serializer::deserialize(arrived, method, params) == STATUS_SUCCESS);
    FUZZ_REQUIRE(method == parts.method && isSame(params, parts.params));
}

void tryNamesAndMethod(const Parts& parts)
{
    std::string where;
    std::string expected;
    const bool rest = arrives(parts.method, "method", expected) &&
                      arrive(parts.params, "params", expected) &&
                      arrives(parts.extra, "extra", expected);
    requireVerdict(Serializer::validate(parts.method, parts.params, parts.extra, &where), where,
                   rest, expected);
    SerializedData data;
    int status = Serializer::serialize(parts.method, parts.params, parts.extra, data);
    std::string method;
    std::string extra;
    Values params;
    if (rest) {
        FUZZ_REQUIRE(status == STATUS_SUCCESS);
        requireGolden(parts, GoldenLayout::MethodAndText, data);
        SerializedData arrived;
        travel(data, arrived);
        FUZZ_REQUIRE(Serializer::deserialize(arrived, method, params, extra) == STATUS_SUCCESS);
        FUZZ_REQUIRE(method == parts.method && isSame(params, parts.params) &&
                     extra == parts.extra);
    }

    fuzz::clearLog();
    where.clear();
    std::string expectedName;
    const bool passes = arrive(parts.names, "names", expectedName) && rest;
    requireVerdict(
        Serializer::validate(parts.names, parts.method, parts.params, parts.extra, &where), where,
        passes, expectedName.empty() ? expected : expectedName);
    SerializedData all;
    status = Serializer::serialize(parts.names, parts.method, parts.params, parts.extra, all);
    if (passes) {
        FUZZ_REQUIRE(status == STATUS_SUCCESS);
        requireGolden(parts, GoldenLayout::NamesMethodAndText, all);
        SerializedData arrived;
        travel(all, arrived);
        Names names;
        FUZZ_REQUIRE(Serializer::deserialize(arrived, names, method, params, extra) ==
                     STATUS_SUCCESS);
        FUZZ_REQUIRE(names == parts.names && method == parts.method &&
                     isSame(params, parts.params) && extra == parts.extra);
    }
}

/** Pointers to the records, with none between two of them. */
Pointers pointersTo(Records& records)
{
    Pointers pointers;
    for (KeyValues& record : records) {
        pointers.push_back(&record);
        pointers.push_back(nullptr);
    }
    return pointers;
}

/** Whether all records of a list arrive, and their types find room in one block. */
bool listArrives(const Records& records)
{
    std::string expected;
    int entryCount = 0;
    bool passes = true;
    for (const KeyValues& record : records) {
        passes = passes && arrives(record, expected);
        entryCount += record.getCount();
    }
    std::string where;
    fuzz::clearLog();
    requireVerdict(Serializer::validate(records, &where), where, passes, expected);
    return passes && entryCount <= MAX_TYPE_COUNT / 2;
}

void tryList(Parts& parts)
{
    const auto pack = [&](SerializedData& data) {
        return Serializer::serialize(parts.records, data);
    };
    const Pointers pointers = pointersTo(parts.records);
    const Answer direct = packed(pack);
    FUZZ_REQUIRE(direct == packed([&](SerializedData& data) {
                     return Serializer::serialize(pointers, data);
                 }));
    FUZZ_REQUIRE(direct == packed([&](SerializedData& data) {
                     Walk walk(pointers);
                     return Serializer::serialize(&walk, 100, data);
                 }));
    FUZZ_REQUIRE(direct == encoded([&](std::string& message) {
                     return Payload(parts.records).encode(message);
                 }));
    if (!listArrives(parts.records)) {
        return;
    }
    SerializedData data;
    FUZZ_REQUIRE(pack(data) == STATUS_SUCCESS);
    requireGolden(parts, GoldenLayout::List, data);
    SerializedData arrived;
    travel(data, arrived);
    Records back;
    FUZZ_REQUIRE(Serializer::deserialize(arrived, back) == STATUS_SUCCESS);
    Records expected = parts.records;
    expected.erase(std::remove_if(expected.begin(), expected.end(),
                                  [](const KeyValues& record) { return record.getCount() == 0; }),
                   expected.end());
    FUZZ_REQUIRE(isSame(back, expected));
}

bool isOfSameShape(const KeyValues& one, const KeyValues& other)
{
    const std::vector<KeyValue>& some = one.getKeyValues();
    const std::vector<KeyValue>& others = other.getKeyValues();
    return std::equal(some.begin(), some.end(), others.begin(), others.end(),
                      [](const KeyValue& a, const KeyValue& b) {
                          return a.getValue().getType() == b.getValue().getType();
                      });
}

void tryRepeated(Parts& parts, bool isOneShape)
{
    if (isOneShape) {
        parts.records.resize(5, parts.records[0]);
    }
    const auto pack = [&](SerializedData& data) {
        return Serializer::serialize(parts.records, data, REPEATABLE);
    };
    const Pointers pointers = pointersTo(parts.records);
    const Answer direct = packed(pack);
    FUZZ_REQUIRE(direct == packed([&](SerializedData& data) {
                     return Serializer::serialize(pointers, data, REPEATABLE);
                 }));
    FUZZ_REQUIRE(direct == packed([&](SerializedData& data) {
                     Walk walk(pointers);
                     return Serializer::serialize(&walk, 100, data, REPEATABLE);
                 }));
    FUZZ_REQUIRE(direct == encoded([&](std::string& message) {
                     return WireEncoder::encode(parts.records, message, REPEATABLE);
                 }));
    FUZZ_REQUIRE(direct == encoded([&](std::string& message) {
                     return Payload(parts.records, REPEATABLE).encode(message);
                 }));

    const KeyValues& first = parts.records[0];
    const bool isRight =
        listArrives(parts.records) && first.getCount() > 0 &&
        std::all_of(parts.records.begin(), parts.records.end(),
                    [&](const KeyValues& record) { return isOfSameShape(record, first); });
    if (!isRight) {
        return;
    }
    SerializedData data;
    FUZZ_REQUIRE(pack(data) == STATUS_SUCCESS);
    requireGolden(parts, GoldenLayout::RepeatedList, data);
    SerializedData arrived;
    travel(data, arrived);
    Records back;
    FUZZ_REQUIRE(Serializer::deserialize(arrived, back, REPEATABLE) == STATUS_SUCCESS);
    FUZZ_REQUIRE(isSame(back, parts.records));
    Records directBack;
    FUZZ_REQUIRE(WireDecoder::decode(direct.bytes.data(), direct.bytes.size(), directBack,
                                     REPEATABLE) == STATUS_SUCCESS);
    FUZZ_REQUIRE(isSame(directBack, parts.records));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size)
{
    Input input(bytes, size);
    const int layout = input.below(10);
    Parts parts = makeParts(input);
    if (parts.records.empty()) {
        parts.records.emplace_back();
    }
    fuzz::clearLog();
    switch (layout) {
        case 0:
            tryEntry(parts);
            break;
        case 1:
        case 2:
            tryRecord(parts);
            break;
        case 3:
            tryRecordAndEntry(parts);
            break;
        case 4:
            tryRecordAndMethod(parts);
            break;
        case 5:
            tryMethod(parts);
            break;
        case 6:
            tryNamesAndMethod(parts);
            break;
        case 7:
            tryList(parts);
            break;
        default:
            tryRepeated(parts, layout == 8);
            break;
    }
    return 0;
}
