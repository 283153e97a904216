// Records that become bytes and records again: one of ten entries, and a list of 500 with four each.
// Everybody begins and ends with the library's records, which keep their order and their keys apart.

#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <glib-unix.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#ifdef HAS_MSGPACK
#include <msgpack.hpp>
#endif
#ifdef HAS_FLATBUFFERS
#include <flatbuffers/flatbuffers.h>
#endif

#include "Bench.h"
#include "Fields.h"
#include "OxChannel.h"
#include "OxKeyValues.h"
#include "OxSerializedData.h"
#include "OxSerializer.h"
#include "OxStatus.h"
#include "OxWaitingLoop.h"
#include "OxWireDecoder.h"
#include "OxWireEncoder.h"

namespace oxil::bench {
namespace {

constexpr int ENTRIES = 10;       // of the single record
constexpr int LIST_LENGTH = 500;  // records of the list
constexpr int LIST_ENTRIES = 4;   // of each of them
constexpr int TRIPS = 50;         // that are timed together

using Records = std::vector<KeyValues>;

KeyValues makeRecord(int entries)
{
    KeyValues record;
    for (int i = 0; i < entries; ++i) {
        record.add(key(i), value<Variant>(i));
    }
    return record;
}

Records makeList(int length, int entries)
{
    return Records(static_cast<std::size_t>(length), makeRecord(entries));
}

// ---- Who takes part: encode() appends to a text, decode() fills what is empty -------------------

/** Straight from records to the wire form and back. */
struct Oxil {
    static void encode(const KeyValues& record, std::string& bytes)
    {
        WireEncoder::encode(record, bytes);
    }

    static void encode(const Records& records, std::string& bytes)
    {
        WireEncoder::encode(records, bytes, REPEATABLE);
    }

    static void decode(const std::string& bytes, KeyValues& record)
    {
        WireDecoder::decode(bytes.data(), bytes.size(), record);
    }

    static void decode(const std::string& bytes, Records& records)
    {
        WireDecoder::decode(bytes.data(), bytes.size(), records, REPEATABLE);
    }
};

int pack(const KeyValues& record, SerializedData& data)
{
    return Serializer::serialize(record, data);
}

int pack(const Records& records, SerializedData& data)
{
    return Serializer::serialize(records, data, REPEATABLE);
}

int unpack(const SerializedData& data, KeyValues& record)
{
    return Serializer::deserialize(data, record);
}

int unpack(const SerializedData& data, Records& records)
{
    return Serializer::deserialize(data, records, REPEATABLE);
}

/** The same with description and data area on both sides. */
struct OxilData {
    template <typename Subject>
    static void encode(const Subject& subject, std::string& bytes)
    {
        SerializedData data;
        pack(subject, data);
        WireEncoder::encode(data, bytes);
    }

    template <typename Subject>
    static void decode(const std::string& bytes, Subject& subject)
    {
        SerializedData data;
        WireDecoder::decode(bytes.data(), bytes.size(), data);
        unpack(data, subject);
    }
};

/** Description and data area as they are. */
struct Raw {
    template <typename Subject>
    static void encode(const Subject& subject, std::string& bytes)
    {
        SerializedData data;
        pack(subject, data);
        bytes.append(reinterpret_cast<const char*>(&data.getSerializationInfo()),
                     sizeof(SerializationInfo));
        bytes.append(static_cast<const char*>(data.getData()),
                     static_cast<std::size_t>(data.getTotalDataSize()));
    }

    template <typename Subject>
    static void decode(const std::string& bytes, Subject& subject)
    {
        const auto* info = reinterpret_cast<const SerializationInfo*>(bytes.data());
        const char* area = bytes.data() + sizeof *info;
        if (SerializedData::validate(*info, bytes.size() - sizeof *info) == STATUS_SUCCESS) {
            SerializedData data(*info);
            data.setData(area);
            unpack(data, subject);
        }
    }
};

/** What anyone would write for these records alone: no limits, nothing checked, one byte a length. */
struct ByHand {
    static void encode(const KeyValues& record, std::string& bytes)
    {
        bytes.push_back(static_cast<char>(record.getCount()));
        for (const auto& [key, value] : record) {
            __append(key, bytes);
            bytes.push_back(static_cast<char>(value.getType()));
            if (value.getType() == VARIANT_TYPE_STRING) {
                __append(value.get<std::string>(), bytes);
            } else {
                char number[8];
                bytes.append(number, static_cast<std::size_t>(value.toRaw(number)));
            }
        }
    }

    static void encode(const Records& records, std::string& bytes)
    {
        const auto count = static_cast<std::uint32_t>(records.size());
        bytes.append(reinterpret_cast<const char*>(&count), sizeof count);
        for (const KeyValues& record : records) {
            encode(record, bytes);
        }
    }

    static void decode(const std::string& bytes, KeyValues& record)
    {
        const char* place = bytes.data();
        __take(place, record);
    }

    static void decode(const std::string& bytes, Records& records)
    {
        std::uint32_t count = 0;
        const char* place = bytes.data();
        std::memcpy(&count, place, sizeof count);
        place += sizeof count;
        records.resize(count);
        for (KeyValues& record : records) {
            __take(place, record);
        }
    }

private:
    static void __append(const std::string& text, std::string& bytes)
    {
        bytes.push_back(static_cast<char>(text.size()));
        bytes += text;
    }

    static std::string __takeText(const char*& place)
    {
        const auto size = static_cast<unsigned char>(*place);
        std::string text(place + 1, size);
        place += 1 + size;
        return text;
    }

    template <typename Number>
    static Number __takeNumber(const char*& place)
    {
        Number number;
        std::memcpy(&number, place, sizeof number);
        place += sizeof number;
        return number;
    }

    static void __take(const char*& place, KeyValues& record)
    {
        const int count = static_cast<unsigned char>(*place++);
        for (int i = 0; i < count; ++i) {
            std::string key = __takeText(place);
            switch (*place++) {
                case VARIANT_TYPE_INT:
                    record.add({std::move(key), Variant(__takeNumber<std::int32_t>(place))});
                    break;
                case VARIANT_TYPE_DOUBLE:
                    record.add({std::move(key), Variant(__takeNumber<double>(place))});
                    break;
                case VARIANT_TYPE_BOOL:
                    record.add({std::move(key), Variant(*place++ != 0)});
                    break;
                default:
                    record.add({std::move(key), Variant(__takeText(place))});
            }
        }
    }
};

#ifdef HAS_MSGPACK
struct MessagePack {
    template <typename Subject>
    static void encode(const Subject& subject, std::string& bytes)
    {
        Sink sink{bytes};
        msgpack::packer<Sink> packer(sink);
        __pack(subject, packer);
    }

    static void decode(const std::string& bytes, KeyValues& record)
    {
        const msgpack::object_handle handle = msgpack::unpack(bytes.data(), bytes.size());
        __unpack(handle.get(), record);
    }

    static void decode(const std::string& bytes, Records& records)
    {
        const msgpack::object_handle handle = msgpack::unpack(bytes.data(), bytes.size());
        const msgpack::object_array& list = handle.get().via.array;
        records.resize(list.size);
        for (std::uint32_t i = 0; i < list.size; ++i) {
            __unpack(list.ptr[i], records[i]);
        }
    }

private:
    struct Sink {
        std::string& bytes;
        void write(const char* data, std::size_t size) { bytes.append(data, size); }
    };

    static void __pack(const Records& records, msgpack::packer<Sink>& packer)
    {
        packer.pack_array(static_cast<std::uint32_t>(records.size()));
        for (const KeyValues& record : records) {
            __pack(record, packer);
        }
    }

    static void __pack(const KeyValues& record, msgpack::packer<Sink>& packer)
    {
        packer.pack_map(static_cast<std::uint32_t>(record.getCount()));
        for (const auto& [key, value] : record) {
            packer.pack(key);
            switch (value.getType()) {
                case VARIANT_TYPE_INT:
                    packer.pack(value.get<int>());
                    break;
                case VARIANT_TYPE_DOUBLE:
                    packer.pack(value.get<double>());
                    break;
                case VARIANT_TYPE_BOOL:
                    packer.pack(value.get<bool>());
                    break;
                default:
                    packer.pack(value.get<std::string>());
            }
        }
    }

    static void __unpack(const msgpack::object& map, KeyValues& record)
    {
        for (std::uint32_t i = 0; i < map.via.map.size; ++i) {
            const msgpack::object& name = map.via.map.ptr[i].key;
            const msgpack::object& value = map.via.map.ptr[i].val;
            std::string key(name.via.str.ptr, name.via.str.size);
            switch (value.type) {
                case msgpack::type::POSITIVE_INTEGER:
                case msgpack::type::NEGATIVE_INTEGER:
                    record.add({std::move(key), Variant(static_cast<int>(value.via.i64))});
                    break;
                case msgpack::type::FLOAT64:
                    record.add({std::move(key), Variant(value.via.f64)});
                    break;
                case msgpack::type::BOOLEAN:
                    record.add({std::move(key), Variant(value.via.boolean)});
                    break;
                default:
                    record.add({std::move(key),
                                Variant(std::string(value.via.str.ptr, value.via.str.size))});
            }
        }
    }
};
#endif

/** A dictionary of variants, as D-Bus has it. */
struct GVariants {
    static void encode(const KeyValues& record, std::string& bytes)
    {
        __append(__make(record), bytes);
    }

    static void encode(const Records& records, std::string& bytes)
    {
        GVariantBuilder builder;
        g_variant_builder_init(&builder, G_VARIANT_TYPE("aa{sv}"));
        for (const KeyValues& record : records) {
            g_variant_builder_add_value(&builder, __make(record));
        }
        __append(g_variant_builder_end(&builder), bytes);
    }

    static void decode(const std::string& bytes, KeyValues& record)
    {
        GVariant* map = __load("a{sv}", bytes);
        __read(map, record);
        g_variant_unref(map);
    }

    static void decode(const std::string& bytes, Records& records)
    {
        GVariant* list = __load("aa{sv}", bytes);
        const gsize count = g_variant_n_children(list);
        records.resize(count);
        for (gsize i = 0; i < count; ++i) {
            GVariant* map = g_variant_get_child_value(list, i);
            __read(map, records[i]);
            g_variant_unref(map);
        }
        g_variant_unref(list);
    }

private:
    static GVariant* __make(const KeyValues& record)
    {
        GVariantBuilder builder;
        g_variant_builder_init(&builder, G_VARIANT_TYPE("a{sv}"));
        for (const auto& [key, value] : record) {
            GVariant* held = nullptr;
            switch (value.getType()) {
                case VARIANT_TYPE_INT:
                    held = g_variant_new_int32(value.get<int>());
                    break;
                case VARIANT_TYPE_DOUBLE:
                    held = g_variant_new_double(value.get<double>());
                    break;
                case VARIANT_TYPE_BOOL:
                    held = g_variant_new_boolean(value.get<bool>());
                    break;
                default:
                    held = g_variant_new_string(value.get<std::string>().c_str());
            }
            g_variant_builder_add(&builder, "{sv}", key.c_str(), held);
        }
        return g_variant_builder_end(&builder);
    }

    static void __append(GVariant* value, std::string& bytes)
    {
        g_variant_ref_sink(value);
        bytes.append(static_cast<const char*>(g_variant_get_data(value)),
                     g_variant_get_size(value));
        g_variant_unref(value);
    }

    static GVariant* __load(const char* type, const std::string& bytes)
    {
        return g_variant_ref_sink(g_variant_new_from_data(G_VARIANT_TYPE(type), bytes.data(),
                                                          bytes.size(), FALSE, nullptr, nullptr));
    }

    static void __read(GVariant* map, KeyValues& record)
    {
        GVariantIter iterator;
        g_variant_iter_init(&iterator, map);
        const char* name = nullptr;
        GVariant* value = nullptr;
        while (g_variant_iter_loop(&iterator, "{&sv}", &name, &value)) {
            std::string key(name);
            if (g_variant_is_of_type(value, G_VARIANT_TYPE_INT32)) {
                record.add({std::move(key), Variant(static_cast<int>(g_variant_get_int32(value)))});
            } else if (g_variant_is_of_type(value, G_VARIANT_TYPE_DOUBLE)) {
                record.add({std::move(key), Variant(g_variant_get_double(value))});
            } else if (g_variant_is_of_type(value, G_VARIANT_TYPE_BOOLEAN)) {
                record.add({std::move(key), Variant(g_variant_get_boolean(value) != FALSE)});
            } else {
                record.add({std::move(key), Variant(g_variant_get_string(value, nullptr))});
            }
        }
    }
};

#ifdef HAS_FLATBUFFERS
/** Tables such as its schema compiler makes them: a list of records, which are lists of entries. */
struct FlatBuffers {
    static void encode(const KeyValues& record, std::string& bytes)
    {
        Buffer buffer;
        buffer.Finish(__packList(buffer, {__pack(buffer, record)}));
        __append(buffer, bytes);
    }

    static void encode(const Records& records, std::string& bytes)
    {
        Buffer buffer;
        std::vector<Offset> offsets;
        offsets.reserve(records.size());
        for (const KeyValues& record : records) {
            offsets.push_back(__pack(buffer, record));
        }
        buffer.Finish(__packList(buffer, offsets));
        __append(buffer, bytes);
    }

    static void decode(const std::string& bytes, KeyValues& record)
    {
        __unpack(*__records(bytes).Get(0), record);
    }

    static void decode(const std::string& bytes, Records& records)
    {
        const Tables& tables = __records(bytes);
        records.resize(tables.size());
        for (flatbuffers::uoffset_t i = 0; i < tables.size(); ++i) {
            __unpack(*tables.Get(i), records[i]);
        }
    }

private:
    using Buffer = flatbuffers::FlatBufferBuilder;
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

    static void __append(const Buffer& buffer, std::string& bytes)
    {
        bytes.append(reinterpret_cast<const char*>(buffer.GetBufferPointer()), buffer.GetSize());
    }

    static Offset __packList(Buffer& buffer, const std::vector<Offset>& offsets)
    {
        const auto list = buffer.CreateVector(offsets);
        const auto start = buffer.StartTable();
        buffer.AddOffset(LIST, list);
        return Offset(buffer.EndTable(start));
    }

    static Offset __pack(Buffer& buffer, const KeyValues& record)
    {
        std::vector<Offset> entries;
        entries.reserve(static_cast<std::size_t>(record.getCount()));
        for (const auto& [name, value] : record) {
            const auto key = buffer.CreateString(name);
            const bool isText = value.getType() == VARIANT_TYPE_STRING;
            const auto text = isText ? buffer.CreateString(value.get<std::string>()) : 0;
            const auto start = buffer.StartTable();
            buffer.AddOffset(KEY, key);
            buffer.AddElement<std::uint8_t>(KIND, static_cast<std::uint8_t>(value.getType()), 0);
            switch (value.getType()) {
                case VARIANT_TYPE_INT:
                    buffer.AddElement<std::int32_t>(INT, value.get<int>(), 0);
                    break;
                case VARIANT_TYPE_DOUBLE:
                    buffer.AddElement<double>(DOUBLE, value.get<double>(), 0);
                    break;
                case VARIANT_TYPE_BOOL:
                    buffer.AddElement<std::int32_t>(INT, value.get<bool>(), 0);
                    break;
                default:
                    buffer.AddOffset(TEXT, text);
            }
            entries.push_back(Offset(buffer.EndTable(start)));
        }
        return __packList(buffer, entries);
    }

    static const Tables& __list(const flatbuffers::Table& table)
    {
        return *table.GetPointer<const Tables*>(LIST);
    }

    static const Tables& __records(const std::string& bytes)
    {
        return __list(*flatbuffers::GetRoot<flatbuffers::Table>(bytes.data()));
    }

    static void __unpack(const flatbuffers::Table& table, KeyValues& record)
    {
        for (const flatbuffers::Table* entry : __list(table)) {
            std::string key = entry->GetPointer<const Text*>(KEY)->str();
            switch (entry->GetField<std::uint8_t>(KIND, 0)) {
                case VARIANT_TYPE_INT:
                    record.add({std::move(key), Variant(entry->GetField<std::int32_t>(INT, 0))});
                    break;
                case VARIANT_TYPE_DOUBLE:
                    record.add({std::move(key), Variant(entry->GetField<double>(DOUBLE, 0))});
                    break;
                case VARIANT_TYPE_BOOL:
                    record.add(
                        {std::move(key), Variant(entry->GetField<std::int32_t>(INT, 0) != 0)});
                    break;
                default:
                    record.add(
                        {std::move(key), Variant(entry->GetPointer<const Text*>(TEXT)->str())});
            }
        }
    }
};
#endif

// ---- There and back in one process ---------------------------------------------------------------

/** @param tellBytes  whether the page gets a row of what the messages take */
template <typename Form, typename Subject>
void convert(benchmark::State& state, const Subject& subject, bool tellBytes)
{
    std::string bytes;
    const auto thereAndBack = [&] {
        Subject result;
        bytes.clear();
        Form::encode(subject, bytes);
        Form::decode(bytes, result);
        return result;
    };
    expect(state, thereAndBack() == subject);

    for (auto _ : state) {
        Subject result = thereAndBack();
        benchmark::DoNotOptimize(result);
    }
    if (tellBytes) {
        state.counters["bytes"] = static_cast<double>(bytes.size());
    }
}

// ---- Between two processes: a record goes there, is read, written and sent back ------------------

/** A process that answers until its end of the socket pair is closed. */
template <typename Serve>
class Partner {
public:
    Partner()
    {
        int ends[2];
        require(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) == 0, "socketpair");
        __process = fork();
        require(__process >= 0, "fork");
        if (__process == 0) {
            close(ends[0]);
            Serve::run(ends[1]);
            _exit(0);
        }
        close(ends[1]);
        socket = ends[0];
    }

    /** Everything that has the socket is gone by then. */
    ~Partner() { waitpid(__process, nullptr, 0); }

    Partner(const Partner&) = delete;
    Partner& operator=(const Partner&) = delete;

    int socket;

private:
    pid_t __process;
};

struct OxilService {
    static void run(int socket)
    {
        WaitingLoop loop;
        Channel channel;
        channel.open(
            socket,
            [&](const SerializedData& message) {
                channel.answer(message.getContextId(), KeyValues(message));
            },
            [&](int) { loop.quit(); });
        loop.run();
    }
};

void roundTripByOxil(benchmark::State& state)
{
    const KeyValues record = makeRecord(ENTRIES);
    const Partner<OxilService> partner;
    Channel channel;
    WaitingLoop loop;
    channel.open(partner.socket, nullptr, nullptr);
    KeyValues answer;
    int left = 0;
    std::function<void()> ask = [&] {
        channel.request(record, 10000, [&](int, const SerializedData& message) {
            answer = KeyValues(message);
            if (--left > 0) {
                ask();
            } else {
                loop.quit();
            }
        });
    };
    const auto trips = [&](int count) {
        left = count;
        ask();
        loop.run();
    };
    trips(1);
    expect(state, answer == record);

    for (auto _ : state) {
        trips(TRIPS);
    }
    state.SetItemsProcessed(state.iterations() * TRIPS);
}

/**
 * A stream of messages with four bytes of length in front, as applications write it where they have
 * nothing else: in the main loop, too, and with small messages in mind.
 */
template <typename Form>
class PlainStream {
public:
    PlainStream(int socket, std::function<void(const KeyValues&)> onRecord,
                std::function<void()> onEnd)
        : __socket(socket), __onRecord(std::move(onRecord)), __onEnd(std::move(onEnd))
    {
        g_unix_set_fd_nonblocking(socket, TRUE, nullptr);
        __watch = g_unix_fd_add(
            socket, static_cast<GIOCondition>(G_IO_IN | G_IO_HUP),
            [](int, GIOCondition, void* self) -> gboolean {
                return static_cast<PlainStream*>(self)->__onReadable();
            },
            this);
    }

    ~PlainStream()
    {
        if (__watch != 0) {
            g_source_remove(__watch);
        }
        close(__socket);
    }

    PlainStream(const PlainStream&) = delete;
    PlainStream& operator=(const PlainStream&) = delete;

    void send(const KeyValues& record)
    {
        std::string bytes(sizeof(std::uint32_t), '\0');
        Form::encode(record, bytes);
        const auto size = static_cast<std::uint32_t>(bytes.size() - sizeof(std::uint32_t));
        std::memcpy(&bytes[0], &size, sizeof size);
        const char* rest = bytes.data();
        for (std::size_t left = bytes.size(); left > 0;) {
            const ssize_t sent = ::send(__socket, rest, left, MSG_NOSIGNAL);
            require(sent > 0, "send");
            rest += sent;
            left -= static_cast<std::size_t>(sent);
        }
    }

private:
    gboolean __onReadable()
    {
        char chunk[16 * 1024];
        const ssize_t received = recv(__socket, chunk, sizeof chunk, 0);
        if (received <= 0) {
            __watch = 0;
            __onEnd();
            return G_SOURCE_REMOVE;
        }
        __received.append(chunk, static_cast<std::size_t>(received));
        std::uint32_t size = 0;
        while (__received.size() >= sizeof size) {
            std::memcpy(&size, __received.data(), sizeof size);
            if (__received.size() < sizeof size + size) {
                break;
            }
            KeyValues record;
            Form::decode(__received.substr(sizeof size, size), record);
            __received.erase(0, sizeof size + size);
            __onRecord(record);
        }
        return G_SOURCE_CONTINUE;
    }

    int __socket;
    std::function<void(const KeyValues&)> __onRecord;
    std::function<void()> __onEnd;
    guint __watch;
    std::string __received;
};

template <typename Form>
struct PlainService {
    static void run(int socket)
    {
        GMainLoop* loop = g_main_loop_new(nullptr, FALSE);
        {
            std::unique_ptr<PlainStream<Form>> stream;
            stream = std::make_unique<PlainStream<Form>>(
                socket, [&](const KeyValues& record) { stream->send(record); },
                [&] { g_main_loop_quit(loop); });
            g_main_loop_run(loop);
        }
        g_main_loop_unref(loop);
    }
};

template <typename Form>
void roundTripByHand(benchmark::State& state)
{
    const KeyValues record = makeRecord(ENTRIES);
    const Partner<PlainService<Form>> partner;
    GMainLoop* loop = g_main_loop_new(nullptr, FALSE);
    {
        KeyValues answer;
        int left = 0;
        std::unique_ptr<PlainStream<Form>> stream;
        stream = std::make_unique<PlainStream<Form>>(
            partner.socket,
            [&](const KeyValues& received) {
                answer = received;
                if (--left > 0) {
                    stream->send(record);
                } else {
                    g_main_loop_quit(loop);
                }
            },
            [] { require(false, "the partner is gone"); });
        const auto trips = [&](int count) {
            left = count;
            stream->send(record);
            g_main_loop_run(loop);
        };
        trips(1);
        expect(state, answer == record);

        for (auto _ : state) {
            trips(TRIPS);
        }
    }
    g_main_loop_unref(loop);
    state.SetItemsProcessed(state.iterations() * TRIPS);
}

// --------------------------------------------------------------------------------------------------

const char RECORD[] = "wire: encode and decode a record of 10";
const char LIST[] = "wire: encode and decode 500 records of 4";
const char RECORD_DATA[] = "wire: through SerializedData, a record of 10";
const char LIST_DATA[] = "wire: through SerializedData, 500 records of 4";
const char MANY[] = "wire: encode and decode records of 1";
const char TRIP[] = "wire: a record of 10 to another process and back";

template <typename Form>
void addForm(const std::string& contender)
{
    using benchmark::State;

    add(RECORD, contender, [](State& state) { convert<Form>(state, makeRecord(ENTRIES), true); });
    add(LIST, contender,
        [](State& state) { convert<Form>(state, makeList(LIST_LENGTH, LIST_ENTRIES), true); });
}

template <typename Form>
void addDataForm(const std::string& contender)
{
    using benchmark::State;

    add(RECORD_DATA, contender,
        [](State& state) { convert<Form>(state, makeRecord(ENTRIES), false); });
    add(LIST_DATA, contender,
        [](State& state) { convert<Form>(state, makeList(LIST_LENGTH, LIST_ENTRIES), false); });
}

void addAll()
{
    using benchmark::State;

    addForm<ByHand>("floor: by hand");
    addForm<Oxil>("oxil");
    addForm<Raw>("description and data");
    addForm<GVariants>("GVariant");
    addDataForm<ByHand>("floor: by hand");
    addDataForm<OxilData>("oxil");
#ifdef HAS_MSGPACK
    addForm<MessagePack>("msgpack-cxx");
    addDataForm<MessagePack>("msgpack-cxx");
    add(TRIP, "msgpack-cxx", roundTripByHand<MessagePack>)->UseRealTime();
#endif
#ifdef HAS_FLATBUFFERS
    addForm<FlatBuffers>("FlatBuffers");
    add(TRIP, "FlatBuffers", roundTripByHand<FlatBuffers>)->UseRealTime();
#endif
    add(TRIP, "floor: by hand", roundTripByHand<ByHand>)->UseRealTime();
    add(TRIP, "oxil", roundTripByOxil)->UseRealTime();
    add(TRIP, "description and data", roundTripByHand<Raw>)->UseRealTime();
    add(TRIP, "GVariant", roundTripByHand<GVariants>)->UseRealTime();

    for (const int size : {10, 100, 1000, 10000}) {
        add(MANY, "oxil", size, [](State& state, int count) {
            convert<Oxil>(state, makeList(count, 1), false);
            state.SetItemsProcessed(state.iterations() * count);
        });
    }
}

}  // namespace
}  // namespace oxil::bench

int main(int argc, char** argv)
{
    oxil::bench::addAll();
    return oxil::bench::run(argc, argv);
}
