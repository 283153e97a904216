// Records packed into bytes and unpacked: one of ten entries, and a list of 500 with four each.

#include <array>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#ifdef HAS_MSGPACK
#include <msgpack.hpp>
#endif
#ifdef HAS_FLATBUFFERS
#include <flatbuffers/flatbuffers.h>
#endif

#include "Bench.h"
#include "Fields.h"
#include "OxKeyValues.h"
#include "OxSerializedData.h"
#include "OxSerializer.h"
#include "OxStatus.h"

namespace oxil::bench {
namespace {

constexpr int ENTRIES = 10;        // of the single record
constexpr int LIST_LENGTH = 500;   // records of the list
constexpr int LIST_ENTRIES = 4;    // of each of them
constexpr std::size_t SLOT = 256;  // bytes of a text in a data area
constexpr int BATCH = 8;           // unpackings that are timed together

// The plain record, and what everyone unpacks into but the library: key, value, key, value ...
using Fields = std::vector<std::pair<std::string, Value>>;
using FieldsList = std::vector<Fields>;
using Unpacked = std::vector<Value>;

Fields plainRecord(int entries)
{
    Fields record;
    for (int i = 0; i < entries; ++i) {
        record.emplace_back(key(i), value<Value>(i));
    }
    return record;
}

FieldsList plainList(int length, int entries)
{
    return FieldsList(static_cast<std::size_t>(length), plainRecord(entries));
}

KeyValues oxilRecord(int entries)
{
    KeyValues record;
    for (int i = 0; i < entries; ++i) {
        record.add(key(i), value<Variant>(i));
    }
    return record;
}

std::vector<KeyValues> oxilList(int length, int entries)
{
    return std::vector<KeyValues>(static_cast<std::size_t>(length), oxilRecord(entries));
}

/** Whether these are the records that plainList() makes. */
bool isUnpackedList(const Unpacked& values, int length, int entries)
{
    if (static_cast<int>(values.size()) != 2 * length * entries) {
        return false;
    }
    for (int i = 0; i < length * entries; ++i) {
        if (values[2 * i] != Value(key(i % entries)) ||
            values[2 * i + 1] != value<Value>(i % entries)) {
            return false;
        }
    }
    return true;
}

// ---- By hand: the bytes of the library's own form ------------------------------------------------

std::size_t sizeOf(const Value& value)
{
    switch (value.index()) {
        case VARIANT_TYPE_LONGLONG:
        case VARIANT_TYPE_ULONGLONG:
        case VARIANT_TYPE_DOUBLE:
            return 8;
        case VARIANT_TYPE_BOOL:
            return 1;
        case VARIANT_TYPE_STRING:
            return SLOT;
        default:
            return 4;
    }
}

/** The length of what a slot holds or takes. */
std::size_t slotLength(const char* text)
{
    std::size_t length = strnlen(text, SLOT - 1);
    // A compiler that knows the bound copies with an instruction that is far slower than memcpy().
    asm("" : "+r"(length));
    return length;
}

char* writeText(char* place, const std::string& text)
{
    const std::size_t length = slotLength(text.c_str());
    std::memcpy(place, text.c_str(), length);
    std::memset(place + length, 0, SLOT - length);
    return place + SLOT;
}

template <typename Number>
char* writeNumber(char* place, Number number)
{
    std::memcpy(place, &number, sizeof number);
    return place + sizeof number;
}

char* writeValue(char* place, const Value& value)
{
    switch (value.index()) {
        case VARIANT_TYPE_INT:
            return writeNumber(place, *std::get_if<int>(&value));
        case VARIANT_TYPE_UINT:
            return writeNumber(place, *std::get_if<unsigned int>(&value));
        case VARIANT_TYPE_LONG:
            return writeNumber(place, static_cast<std::int32_t>(*std::get_if<long>(&value)));
        case VARIANT_TYPE_ULONG:
            return writeNumber(place,
                               static_cast<std::uint32_t>(*std::get_if<unsigned long>(&value)));
        case VARIANT_TYPE_LONGLONG:
            return writeNumber(place, *std::get_if<long long>(&value));
        case VARIANT_TYPE_ULONGLONG:
            return writeNumber(place, *std::get_if<unsigned long long>(&value));
        case VARIANT_TYPE_FLOAT:
            return writeNumber(place, *std::get_if<float>(&value));
        case VARIANT_TYPE_DOUBLE:
            return writeNumber(place, *std::get_if<double>(&value));
        case VARIANT_TYPE_BOOL:
            return writeNumber(place, *std::get_if<bool>(&value));
        default:
            return writeText(place, *std::get_if<std::string>(&value));
    }
}

char* writeRecord(char* place, const Fields& record)
{
    for (const auto& field : record) {
        place = writeText(place, field.first);
        place = writeValue(place, field.second);
    }
    return place;
}

template <typename Number, typename Stored = Number>
const char* readNumber(const char* place, Unpacked& values)
{
    Stored number;
    std::memcpy(&number, place, sizeof number);
    values.emplace_back(static_cast<Number>(number));
    return place + sizeof number;
}

const char* readValue(const char* place, int type, Unpacked& values)
{
    switch (type) {
        case VARIANT_TYPE_INT:
            return readNumber<int>(place, values);
        case VARIANT_TYPE_UINT:
            return readNumber<unsigned int>(place, values);
        case VARIANT_TYPE_LONG:
            return readNumber<long, std::int32_t>(place, values);
        case VARIANT_TYPE_ULONG:
            return readNumber<unsigned long, std::uint32_t>(place, values);
        case VARIANT_TYPE_LONGLONG:
            return readNumber<long long>(place, values);
        case VARIANT_TYPE_ULONGLONG:
            return readNumber<unsigned long long>(place, values);
        case VARIANT_TYPE_FLOAT:
            return readNumber<float>(place, values);
        case VARIANT_TYPE_DOUBLE:
            return readNumber<double>(place, values);
        case VARIANT_TYPE_BOOL:
            return readNumber<bool, std::uint8_t>(place, values);
        default:
            values.emplace_back(std::in_place_type<std::string>, place, slotLength(place));
            return place + SLOT;
    }
}

/** Unpacks block 0 by its description, all repetitions. */
void readAll(const SerializationInfo& info, const char* place, Unpacked& values)
{
    const int repetitions = info.repeatCount[0] < 1 ? 1 : info.repeatCount[0];
    values.reserve(static_cast<std::size_t>(repetitions) *
                   static_cast<std::size_t>(info.typeCount[0]));
    for (int i = 0; i < repetitions; ++i) {
        for (int k = 0; k < info.typeCount[0]; ++k) {
            place = readValue(place, info.types[0][k], values);
        }
    }
}

// ---- The library ---------------------------------------------------------------------------------

int pack(const KeyValues& record, SerializedData& data)
{
    return Serializer::serialize(record, data);
}

int pack(const std::vector<KeyValues>& records, SerializedData& data)
{
    return Serializer::serialize(records, data, REPEATABLE);
}

int unpack(const SerializedData& data, KeyValues& record)
{
    return Serializer::deserialize(data, record);
}

int unpack(const SerializedData& data, std::vector<KeyValues>& records)
{
    return Serializer::deserialize(data, records, REPEATABLE);
}

/** What is to be unpacked, packed once; the same bytes for the library and by hand. */
template <typename Records>
std::unique_ptr<SerializedData> packed(const Records& records)
{
    auto data = std::make_unique<SerializedData>();
    require(pack(records, *data) == STATUS_SUCCESS, "pack");
    Records unpackedAgain;
    require(unpack(*data, unpackedAgain) == STATUS_SUCCESS && unpackedAgain == records, "unpack");
    return data;
}

const char* bytesOf(const SerializedData& data)
{
    return static_cast<const char*>(data.getData());
}

// ---- Peers ---------------------------------------------------------------------------------------

#ifdef HAS_MSGPACK
struct MsgPack {
    using Buffer = msgpack::sbuffer;

    static void pack(Buffer& buffer, const FieldsList& records)
    {
        msgpack::packer<Buffer> packer(buffer);
        packer.pack_array(static_cast<std::uint32_t>(records.size()));
        for (const Fields& record : records) {
            __pack(packer, record);
        }
    }

    static void pack(Buffer& buffer, const Fields& record)
    {
        msgpack::packer<Buffer> packer(buffer);
        __pack(packer, record);
    }

    static void unpack(const Buffer& buffer, Unpacked& values)
    {
        const msgpack::object_handle handle = msgpack::unpack(buffer.data(), buffer.size());
        const msgpack::object& root = handle.get();
        if (root.type == msgpack::type::MAP) {
            values.reserve(2 * root.via.map.size);
            __unpack(root.via.map, values);
            return;
        }
        const msgpack::object_array& records = root.via.array;
        values.reserve(2 * records.size * records.ptr[0].via.map.size);
        for (std::uint32_t i = 0; i < records.size; ++i) {
            __unpack(records.ptr[i].via.map, values);
        }
    }

private:
    static void __pack(msgpack::packer<Buffer>& packer, const Fields& record)
    {
        packer.pack_map(static_cast<std::uint32_t>(record.size()));
        for (const auto& field : record) {
            packer.pack(field.first);
            switch (field.second.index()) {
                case VARIANT_TYPE_INT:
                    packer.pack(*std::get_if<int>(&field.second));
                    break;
                case VARIANT_TYPE_DOUBLE:
                    packer.pack(*std::get_if<double>(&field.second));
                    break;
                case VARIANT_TYPE_BOOL:
                    packer.pack(*std::get_if<bool>(&field.second));
                    break;
                default:
                    packer.pack(*std::get_if<std::string>(&field.second));
                    break;
            }
        }
    }

    static void __unpack(const msgpack::object_map& map, Unpacked& values)
    {
        for (std::uint32_t i = 0; i < map.size; ++i) {
            const msgpack::object& name = map.ptr[i].key;
            const msgpack::object& value = map.ptr[i].val;
            values.emplace_back(std::in_place_type<std::string>, name.via.str.ptr,
                                name.via.str.size);
            switch (value.type) {
                case msgpack::type::POSITIVE_INTEGER:
                case msgpack::type::NEGATIVE_INTEGER:
                    values.emplace_back(static_cast<int>(value.via.i64));
                    break;
                case msgpack::type::FLOAT64:
                    values.emplace_back(value.via.f64);
                    break;
                case msgpack::type::BOOLEAN:
                    values.emplace_back(value.via.boolean);
                    break;
                default:
                    values.emplace_back(std::in_place_type<std::string>, value.via.str.ptr,
                                        value.via.str.size);
                    break;
            }
        }
    }
};
#endif

#ifdef HAS_FLATBUFFERS
/** Tables such as its schema compiler makes them: a list of records, which are lists of entries. */
struct FlatBuffers {
    using Buffer = flatbuffers::FlatBufferBuilder;

    static void pack(Buffer& buffer, const FieldsList& records)
    {
        std::vector<Offset> offsets;
        offsets.reserve(records.size());
        for (const Fields& record : records) {
            offsets.push_back(__pack(buffer, record));
        }
        buffer.Finish(__packList(buffer, offsets));
    }

    static void pack(Buffer& buffer, const Fields& record)
    {
        const std::vector<Offset> offsets = {__pack(buffer, record)};
        buffer.Finish(__packList(buffer, offsets));
    }

    static void unpack(const Buffer& buffer, Unpacked& values)
    {
        const auto* root = flatbuffers::GetRoot<flatbuffers::Table>(buffer.GetBufferPointer());
        const Tables& records = __list(*root);
        for (flatbuffers::uoffset_t i = 0; i < records.size(); ++i) {
            const Tables& entries = __list(*records.Get(i));
            if (i == 0) {
                values.reserve(2 * records.size() * entries.size());
            }
            for (flatbuffers::uoffset_t k = 0; k < entries.size(); ++k) {
                __unpack(*entries.Get(k), values);
            }
        }
    }

private:
    using Offset = flatbuffers::Offset<flatbuffers::Table>;
    using Tables = flatbuffers::Vector<Offset>;
    using Text = flatbuffers::String;

    // Places of a table's members.
    static constexpr flatbuffers::voffset_t LIST = 4;
    static constexpr flatbuffers::voffset_t KEY = 4;
    static constexpr flatbuffers::voffset_t KIND = 6;
    static constexpr flatbuffers::voffset_t INT = 8;
    static constexpr flatbuffers::voffset_t DOUBLE = 10;
    static constexpr flatbuffers::voffset_t TEXT = 12;

    static Offset __packList(Buffer& buffer, const std::vector<Offset>& offsets)
    {
        const auto list = buffer.CreateVector(offsets);
        const auto start = buffer.StartTable();
        buffer.AddOffset(LIST, list);
        return Offset(buffer.EndTable(start));
    }

    static Offset __pack(Buffer& buffer, const Fields& record)
    {
        std::vector<Offset> entries;
        entries.reserve(record.size());
        for (const auto& field : record) {
            const auto key = buffer.CreateString(field.first);
            const auto* text = std::get_if<std::string>(&field.second);
            const auto value = text != nullptr ? buffer.CreateString(*text) : 0;
            const auto start = buffer.StartTable();
            buffer.AddOffset(KEY, key);
            buffer.AddElement<std::uint8_t>(KIND, static_cast<std::uint8_t>(field.second.index()),
                                            0);
            switch (field.second.index()) {
                case VARIANT_TYPE_INT:
                    buffer.AddElement<std::int32_t>(INT, *std::get_if<int>(&field.second), 0);
                    break;
                case VARIANT_TYPE_DOUBLE:
                    buffer.AddElement<double>(DOUBLE, *std::get_if<double>(&field.second), 0);
                    break;
                case VARIANT_TYPE_BOOL:
                    buffer.AddElement<std::int32_t>(INT, *std::get_if<bool>(&field.second), 0);
                    break;
                default:
                    buffer.AddOffset(TEXT, value);
                    break;
            }
            entries.push_back(Offset(buffer.EndTable(start)));
        }
        return __packList(buffer, entries);
    }

    static const Tables& __list(const flatbuffers::Table& table)
    {
        return *table.GetPointer<const Tables*>(LIST);
    }

    static void __unpack(const flatbuffers::Table& entry, Unpacked& values)
    {
        const Text* key = entry.GetPointer<const Text*>(KEY);
        values.emplace_back(std::in_place_type<std::string>, key->data(), key->size());
        switch (entry.GetField<std::uint8_t>(KIND, 0)) {
            case VARIANT_TYPE_INT:
                values.emplace_back(entry.GetField<std::int32_t>(INT, 0));
                break;
            case VARIANT_TYPE_DOUBLE:
                values.emplace_back(entry.GetField<double>(DOUBLE, 0));
                break;
            case VARIANT_TYPE_BOOL:
                values.emplace_back(entry.GetField<std::int32_t>(INT, 0) != 0);
                break;
            default: {
                const Text* text = entry.GetPointer<const Text*>(TEXT);
                values.emplace_back(std::in_place_type<std::string>, text->data(), text->size());
                break;
            }
        }
    }
};
#endif

// ---- Packing: everything from the record in memory to bytes, in memory that is new each time -----

char* writeRecords(char* place, const FieldsList& records)
{
    for (const Fields& record : records) {
        place = writeRecord(place, record);
    }
    return place;
}

/** Whether @p data holds, byte by byte, what writeRecords() writes. */
bool holdsSameBytes(const SerializedData& data, const FieldsList& records)
{
    std::vector<char> bytes(static_cast<std::size_t>(data.getTotalDataSize()));
    return writeRecords(bytes.data(), records) == bytes.data() + bytes.size() &&
           std::memcmp(bytesOf(data), bytes.data(), bytes.size()) == 0;
}

template <typename Records>
void packByHand(benchmark::State& state, const FieldsList& records, const Records& same)
{
    const auto expected = packed(same);
    const auto size = static_cast<std::size_t>(expected->getTotalDataSize());
    expect(state, holdsSameBytes(*expected, records));

    for (auto _ : state) {
        char* bytes = static_cast<char*>(std::malloc(size));
        benchmark::DoNotOptimize(writeRecords(bytes, records));
        benchmark::ClobberMemory();
        std::free(bytes);
    }
}

template <typename Records>
void packByOxil(benchmark::State& state, const Records& records, const FieldsList& same)
{
    expect(state, holdsSameBytes(*packed(records), same));

    for (auto _ : state) {
        SerializedData data;
        pack(records, data);
        benchmark::DoNotOptimize(data.getData());
        benchmark::ClobberMemory();
    }
}

/** Whether this is the library's description of the single record, byte by byte. */
bool isDescription(const SerializationInfo& info)
{
    const auto expected = packed(oxilRecord(ENTRIES));
    return std::memcmp(&expected->getSerializationInfo(), &info, sizeof info) == 0;
}

/** With what has to be done to send it: the description is copied out, too. */
void packAndDescribeByOxil(benchmark::State& state)
{
    const KeyValues record = oxilRecord(ENTRIES);
    const auto destination = std::make_unique<SerializationInfo>();
    const auto packAndDescribe = [&] {
        SerializedData data;
        pack(record, data);
        benchmark::DoNotOptimize(data.getData());
        *destination = data.getSerializationInfo();
    };
    packAndDescribe();
    expect(state, isDescription(*destination));

    for (auto _ : state) {
        packAndDescribe();
        benchmark::ClobberMemory();
    }
}

char* writeAndDescribe(char* place, const Fields& record, SerializationInfo& info)
{
    const char* const begin = place;
    std::memset(&info, 0, sizeof info);
    info.blockCount = 1;
    for (const auto& field : record) {
        place = writeText(place, field.first);
        place = writeValue(place, field.second);
        const int count = info.typeCount[0];
        info.types[0][count] = VARIANT_TYPE_STRING;
        info.typeSizes[0][count] = SLOT;
        info.types[0][count + 1] = static_cast<std::uint8_t>(field.second.index());
        info.typeSizes[0][count + 1] = static_cast<std::int32_t>(sizeOf(field.second));
        info.typeCount[0] = count + 2;
    }
    info.dataSize[0] = static_cast<std::int32_t>(place - begin);
    return place;
}

void packAndDescribeByHand(benchmark::State& state)
{
    const Fields record = plainRecord(ENTRIES);
    const auto size = static_cast<std::size_t>(packed(oxilRecord(ENTRIES))->getTotalDataSize());
    const auto destination = std::make_unique<SerializationInfo>();
    const auto packAndDescribe = [&] {
        char* bytes = static_cast<char*>(std::malloc(size));
        benchmark::DoNotOptimize(writeAndDescribe(bytes, record, *destination));
        std::free(bytes);
    };
    packAndDescribe();
    expect(state, isDescription(*destination));

    for (auto _ : state) {
        packAndDescribe();
        benchmark::ClobberMemory();
    }
}

template <typename Peer, typename Records>
void packByPeer(benchmark::State& state, const Records& records, int length, int entries)
{
    typename Peer::Buffer checked;
    Peer::pack(checked, records);
    Unpacked values;
    Peer::unpack(checked, values);
    expect(state, isUnpackedList(values, length, entries));

    for (auto _ : state) {
        typename Peer::Buffer buffer;
        Peer::pack(buffer, records);
        benchmark::DoNotOptimize(buffer);
        benchmark::ClobberMemory();
    }
}

// ---- Unpacking. The library decodes an object once, so that every unpacking needs a new one. What
// is unpacked stays alive until the clock has stopped. ---------------------------------------------

/** The library's objects with their descriptions, before anything is decoded. */
template <typename Records>
struct OxilBatch {
    OxilBatch(const SerializationInfo& info, const char* bytes)
    {
        for (int i = 0; i < BATCH; ++i) {
            data[i] = std::make_unique<SerializedData>(info);
            data[i]->setData(bytes);
        }
    }

    std::array<std::unique_ptr<SerializedData>, BATCH> data;
    std::array<Records, BATCH> records;
};

/** The same for the rest: their own descriptions, where the floor needs them. */
struct PlainBatch {
    explicit PlainBatch(const SerializationInfo& info)
    {
        for (auto& copy : infos) {
            copy = std::make_unique<SerializationInfo>(info);
        }
    }

    std::array<std::unique_ptr<SerializationInfo>, BATCH> infos;
    std::array<Unpacked, BATCH> values;
};

template <typename Records>
void unpackByOxil(benchmark::State& state, const Records& records)
{
    const auto source = packed(records);
    const SerializationInfo& info = source->getSerializationInfo();
    const char* bytes = bytesOf(*source);

    timeWork(
        state, [&] { return std::make_unique<OxilBatch<Records>>(info, bytes); },
        [&](std::unique_ptr<OxilBatch<Records>>& batch) {
            for (int i = 0; i < BATCH; ++i) {
                const int r = unpack(*batch->data[i], batch->records[i]);
                require(r == STATUS_SUCCESS, "unpack: oxil");
            }
        });
    state.SetItemsProcessed(state.iterations() * BATCH);
}

template <typename Records>
void unpackByHand(benchmark::State& state, const Records& records, int length, int entries)
{
    const auto source = packed(records);
    const SerializationInfo& info = source->getSerializationInfo();
    const char* bytes = bytesOf(*source);
    Unpacked checked;
    readAll(info, bytes, checked);
    expect(state, isUnpackedList(checked, length, entries));

    timeWork(
        state, [&] { return std::make_unique<PlainBatch>(info); },
        [&](std::unique_ptr<PlainBatch>& batch) {
            for (int i = 0; i < BATCH; ++i) {
                readAll(*batch->infos[i], bytes, batch->values[i]);
            }
        });
    state.SetItemsProcessed(state.iterations() * BATCH);
}

template <typename Peer, typename Records>
void unpackByPeer(benchmark::State& state, const Records& records, int length, int entries)
{
    typename Peer::Buffer buffer;
    Peer::pack(buffer, records);
    Unpacked checked;
    Peer::unpack(buffer, checked);
    expect(state, isUnpackedList(checked, length, entries));

    timeWork(
        state, [&] { return std::make_unique<std::array<Unpacked, BATCH>>(); },
        [&](std::unique_ptr<std::array<Unpacked, BATCH>>& batch) {
            for (int i = 0; i < BATCH; ++i) {
                Peer::unpack(buffer, (*batch)[i]);
            }
        });
    state.SetItemsProcessed(state.iterations() * BATCH);
}

/** From a description and bytes that have just arrived to a record, and everything released. */
void receiveByOxil(benchmark::State& state)
{
    const KeyValues expected = oxilRecord(ENTRIES);
    const auto source = packed(expected);
    const auto info = std::make_unique<SerializationInfo>(source->getSerializationInfo());
    const char* bytes = bytesOf(*source);
    const auto receive = [&] {
        SerializedData data(*info);
        data.setData(bytes);
        KeyValues record;
        unpack(data, record);
        return record;
    };
    expect(state, receive() == expected);

    for (auto _ : state) {
        KeyValues record = receive();
        benchmark::DoNotOptimize(record);
    }
}

void receiveByHand(benchmark::State& state)
{
    const auto source = packed(oxilRecord(ENTRIES));
    const auto info = std::make_unique<SerializationInfo>(source->getSerializationInfo());
    const char* bytes = bytesOf(*source);

    const auto receive = [&] {
        void* copy = std::malloc(sizeof(SerializationInfo));
        std::memcpy(copy, info.get(), sizeof(SerializationInfo));
        benchmark::DoNotOptimize(copy);
        Unpacked values;
        readAll(*static_cast<const SerializationInfo*>(copy), bytes, values);
        std::free(copy);
        return values;
    };
    expect(state, isUnpackedList(receive(), 1, ENTRIES));

    for (auto _ : state) {
        Unpacked values = receive();
        benchmark::DoNotOptimize(values);
    }
}

// ---- Growth: lists of ever more records with one entry ------------------------------------------

void growPack(benchmark::State& state, int size)
{
    const std::vector<KeyValues> records = oxilList(size, 1);
    packByOxil(state, records, plainList(size, 1));
    state.SetItemsProcessed(state.iterations() * size);
}

void growUnpack(benchmark::State& state, int size)
{
    const auto source = packed(oxilList(size, 1));
    const SerializationInfo& info = source->getSerializationInfo();
    const char* bytes = bytesOf(*source);  // and packed() has unpacked them

    timeWork(
        state,
        [&] {
            auto data = std::make_unique<SerializedData>(info);
            data->setData(bytes);
            return std::pair(std::move(data), std::vector<KeyValues>());
        },
        [&](auto& received) { unpack(*received.first, received.second); });
    state.SetItemsProcessed(state.iterations() * size);
}

// --------------------------------------------------------------------------------------------------

// A receiver needs the description, too, 50 KB in every message: names say where it is left out.
const char PACK_RECORD[] = "pack a record of 10, without description";
const char PACK_LIST[] = "pack 500 records of 4, without description";
const char DESCRIBE_RECORD[] = "pack a record of 10 and copy the description";
const char UNPACK_RECORD[] = "unpack a record of 10, description already there";
const char RECEIVE_RECORD[] = "unpack a record of 10, description received";
const char UNPACK_LIST[] = "unpack 500 records of 4, description already there";
const char PACK_MANY[] = "pack records of 1, without description";
const char UNPACK_MANY[] = "unpack records of 1, description already there";

template <typename Peer>
void addPeer(const std::string& contender)
{
    using benchmark::State;

    add(PACK_RECORD, contender,
        [](State& state) { packByPeer<Peer>(state, plainRecord(ENTRIES), 1, ENTRIES); });
    add(PACK_LIST, contender, [](State& state) {
        packByPeer<Peer>(state, plainList(LIST_LENGTH, LIST_ENTRIES), LIST_LENGTH, LIST_ENTRIES);
    });
    add(UNPACK_RECORD, contender, [](State& state) {
        unpackByPeer<Peer>(state, plainRecord(ENTRIES), 1, ENTRIES);
    })->UseManualTime();
    add(UNPACK_LIST, contender, [](State& state) {
        unpackByPeer<Peer>(state, plainList(LIST_LENGTH, LIST_ENTRIES), LIST_LENGTH, LIST_ENTRIES);
    })->UseManualTime();
}

void addAll()
{
    using benchmark::State;

    add(PACK_RECORD, "floor: by hand",
        [](State& state) { packByHand(state, plainList(1, ENTRIES), oxilRecord(ENTRIES)); });
    add(PACK_RECORD, "oxil",
        [](State& state) { packByOxil(state, oxilRecord(ENTRIES), plainList(1, ENTRIES)); });
    add(DESCRIBE_RECORD, "floor: by hand", packAndDescribeByHand);
    add(DESCRIBE_RECORD, "oxil", packAndDescribeByOxil);
    add(PACK_LIST, "floor: by hand", [](State& state) {
        packByHand(state, plainList(LIST_LENGTH, LIST_ENTRIES),
                   oxilList(LIST_LENGTH, LIST_ENTRIES));
    });
    add(PACK_LIST, "oxil", [](State& state) {
        packByOxil(state, oxilList(LIST_LENGTH, LIST_ENTRIES),
                   plainList(LIST_LENGTH, LIST_ENTRIES));
    });

    add(UNPACK_RECORD, "floor: by hand", [](State& state) {
        unpackByHand(state, oxilRecord(ENTRIES), 1, ENTRIES);
    })->UseManualTime();
    add(UNPACK_RECORD, "oxil", [](State& state) {
        unpackByOxil(state, oxilRecord(ENTRIES));
    })->UseManualTime();
    add(RECEIVE_RECORD, "floor: by hand", receiveByHand);
    add(RECEIVE_RECORD, "oxil", receiveByOxil);
    add(UNPACK_LIST, "floor: by hand", [](State& state) {
        unpackByHand(state, oxilList(LIST_LENGTH, LIST_ENTRIES), LIST_LENGTH, LIST_ENTRIES);
    })->UseManualTime();
    add(UNPACK_LIST, "oxil", [](State& state) {
        unpackByOxil(state, oxilList(LIST_LENGTH, LIST_ENTRIES));
    })->UseManualTime();

#ifdef HAS_MSGPACK
    addPeer<MsgPack>("msgpack-cxx, whole messages of another form");
#endif
#ifdef HAS_FLATBUFFERS
    addPeer<FlatBuffers>("FlatBuffers, whole messages of another form");
#endif

    for (const int size : {10, 100, 1000, 10000, 100000}) {
        add(PACK_MANY, "oxil", size, growPack);
        add(UNPACK_MANY, "oxil", size, growUnpack)->UseManualTime();
    }
}

}  // namespace
}  // namespace oxil::bench

int main(int argc, char** argv)
{
    oxil::bench::addAll();
    return oxil::bench::run(argc, argv);
}
