// Bytes that say they are messages of the wire form. What the decoder accepts is what a second reader
// makes of them, which knows the form from its page alone; it can be written again, and read by all.
// Records without the detour are those of the detour, and a stream in pieces is one in one piece.

#include <OxSerializedData.h>
#include <OxSerializer.h>
#include <OxStatus.h>
#include <OxWireDecoder.h>
#include <OxWireEncoder.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "Fuzz.h"
#include "GoldenWireEncoder.h"
#include "Input.h"
#include "Messages.h"
#include "Values.h"

namespace {

using namespace oxil;
using fuzz::Input;
using fuzz::isSame;
using fuzz::toText;

// ---- A second reader

constexpr int TEXT_SLOT = 256;
constexpr int SIZES[] = {0, 4, 4, 4, 4, 8, 8, 4, 8, 1, TEXT_SLOT};

/** Reads the parts of a message; whatever can't be is remembered. */
class Reader {
public:
    explicit Reader(std::string_view bytes) : __left(bytes) {}

    bool isGood() const { return __isGood; }
    std::size_t left() const { return __left.size(); }

    void require(bool condition) { __isGood = __isGood && condition; }

    std::string_view bytes(std::size_t count)
    {
        require(count <= __left.size());
        const std::string_view taken = __isGood ? __left.substr(0, count) : std::string_view();
        __left.remove_prefix(taken.size());
        return taken;
    }

    unsigned int byte()
    {
        const std::string_view taken = bytes(1);
        return taken.empty() ? 0 : static_cast<unsigned char>(taken[0]);
    }

    std::uint32_t varint()
    {
        std::uint64_t number = 0;
        std::uint64_t weight = 1;
        unsigned int last = 128;
        for (int i = 0; i < 5 && last >= 128; ++i) {
            last = byte();
            number += last % 128 * weight;
            weight *= 128;
        }
        require(last < 128 && number <= UINT32_MAX);
        return __isGood ? static_cast<std::uint32_t>(number) : 0;
    }

    std::int32_t zigzag()
    {
        const std::uint32_t number = varint();
        const auto half = static_cast<std::int32_t>(number / 2);
        return number % 2 == 0 ? half : -half - 1;
    }

private:
    std::string_view __left;
    bool __isGood = true;
};

void readHead(Reader& reader, SerializationInfo& info, int block)
{
    const std::uint32_t shape = reader.varint();
    info.repeatCount[block] = reader.zigzag();
    const std::uint32_t count = shape / 2;
    const std::uint32_t step = shape % 2 + 1;
    reader.require(count <= MAX_TYPE_COUNT && count % step == 0);
    if (!reader.isGood()) {
        return;
    }
    const std::uint32_t told = count / step;
    const std::string_view kinds = reader.bytes((told + 1) / 2);
    if (!reader.isGood()) {
        return;
    }
    reader.require(told % 2 == 0 || static_cast<unsigned char>(kinds.back()) < 16);

    long long sum = 0;
    int entry = 0;
    const auto add = [&](unsigned int kind, std::uint32_t size) {
        info.types[block][entry] = static_cast<std::uint8_t>(kind);
        info.typeSizes[block][entry++] = static_cast<std::int32_t>(size);
        sum += size;
    };
    for (std::uint32_t i = 0; i < told && reader.isGood(); ++i) {
        const auto both = static_cast<unsigned char>(kinds[i / 2]);
        const unsigned int kind = i % 2 == 0 ? both % 16 : both / 16;
        if (step == 2) {
            add(VARIANT_TYPE_STRING, TEXT_SLOT);
        }
        if (kind == 15) {
            const unsigned int toldKind = reader.byte();
            const std::uint32_t size = reader.varint();
            reader.require(size >= 1 && size <= INT_MAX);
            add(toldKind, size);
        } else {
            reader.require(kind >= VARIANT_TYPE_INT && kind <= VARIANT_TYPE_STRING);
            add(kind, reader.isGood() ? static_cast<std::uint32_t>(SIZES[kind]) : 0);
        }
    }
    reader.require(sum <= INT_MAX);
    if (reader.isGood()) {
        info.typeCount[block] = entry;
        info.dataSize[block] = static_cast<std::int32_t>(sum);
    }
}

/**
 * Reads a message with values of known kinds that is there as a whole, within the limits.
 *
 * @return whether it is one
 */
bool read(std::string_view message, const WireLimits& limits, SerializationInfo& info,
          std::string& data)
{
    Reader reader(message);
    reader.require(reader.bytes(3) == "Ox\1" && message.size() <= limits.bytes);
    const std::uint32_t length = reader.varint();
    reader.require(length == reader.left());
    const unsigned int blockCount = reader.byte();
    reader.require(blockCount <= static_cast<unsigned int>(limits.blocks));
    for (unsigned int block = 0; block < blockCount && reader.isGood(); ++block) {
        readHead(reader, info, static_cast<int>(block));
    }
    if (!reader.isGood()) {
        return false;
    }
    info.blockCount = static_cast<int>(blockCount);

    const auto most = static_cast<std::size_t>(limits.memory);
    std::size_t reach = 0;
    for (int block = 0; block < info.blockCount; ++block) {
        const int count = info.typeCount[block];
        const int turns = count > 0 ? std::max(info.repeatCount[block], 1) : 0;
        for (int turn = 0; turn < turns; ++turn) {
            for (int i = 0; i < count; ++i) {
                const auto size = static_cast<std::size_t>(info.typeSizes[block][i]);
                const bool isText = info.types[block][i] == VARIANT_TYPE_STRING;
                const std::size_t mark = isText ? reader.varint() : size;
                reader.require(mark <= size + (isText ? 1 : 0) && data.size() + size <= most);
                const std::string_view value = reader.bytes(std::min(mark, size));
                if (!reader.isGood()) {
                    return false;
                }
                reach = std::max(reach, isText ? data.size() + TEXT_SLOT - 1 : 0);
                data.append(value).append(size - value.size(), '\0');
            }
        }
    }
    reader.require(reader.left() == 0 && reach <= most);
    return reader.isGood() && SerializedData::validate(
                                  info, INT_MAX, {limits.values, limits.memory}) == STATUS_SUCCESS;
}

// ---- One message

bool hasUnknownKinds(const SerializationInfo& info)
{
    for (int block = 0; block < info.blockCount; ++block) {
        const std::uint8_t* types = info.types[block];
        if (std::any_of(types, types + info.typeCount[block], [](std::uint8_t type) {
                return type == VARIANT_TYPE_NONE || type > VARIANT_TYPE_STRING;
            })) {
            return true;
        }
    }
    return false;
}

void requireReadable(const SerializedData& data)
{
    for (int block = 0; block < data.getBlockCount(); ++block) {
        FUZZ_REQUIRE(data.getValues(block) != nullptr);
    }
}

/** What is written again is the message as the page has it, and stands for the same. */
void writeAgain(const SerializedData& data, const WireLimits& limits)
{
    std::string message;
    FUZZ_REQUIRE(WireEncoder::encode(data, message) == STATUS_SUCCESS);

    test::GoldenBytes golden;
    const SerializationInfo& info = data.getSerializationInfo();
    golden.info.resize(sizeof info);
    std::memcpy(golden.info.data(), &info, sizeof info);
    const auto* area = static_cast<const std::uint8_t*>(data.getData());
    golden.data.assign(area, area + data.getTotalDataSize());
    const std::vector<std::uint8_t> expected = test::encodeWire(golden);
    FUZZ_REQUIRE(std::equal(
        message.begin(), message.end(), expected.begin(), expected.end(),
        [](char one, std::uint8_t other) { return static_cast<std::uint8_t>(one) == other; }));

    // It may be longer: a text that came with a zero in it leaves as the whole slot.
    WireLimits roomy = limits;
    roomy.bytes = INT_MAX;
    SerializedData again;
    FUZZ_REQUIRE(WireDecoder::decode(message.data(), message.size(), again, roomy) ==
                 STATUS_SUCCESS);
    FUZZ_REQUIRE(toText(again) == toText(data));
}

int decode(std::string_view message, const WireLimits& limits)
{
    SerializedData data(SerializationInfo{});
    fuzz::clearLog();
    const int status = WireDecoder::decode(message.data(), message.size(), data, limits);
    FUZZ_REQUIRE(fuzz::countLogged() == (status == STATUS_SUCCESS ? 0 : 1));

    const SerializationInfo& info = data.getSerializationInfo();
    SerializationInfo expectedInfo = {};
    std::string expected;
    const bool isExpected = read(message, limits, expectedInfo, expected);
    if (status != STATUS_SUCCESS) {
        FUZZ_REQUIRE(!isExpected);
        FUZZ_REQUIRE(data.getBlockCount() == 0 && data.getData() == nullptr);
        return status;
    }
    FUZZ_REQUIRE(data.getData() != nullptr);
    if (hasUnknownKinds(info)) {
        FUZZ_REQUIRE(limits.unknownKinds);
    } else {
        FUZZ_REQUIRE(isExpected);
        FUZZ_REQUIRE(std::memcmp(&info, &expectedInfo, sizeof info) == 0);
        FUZZ_REQUIRE(static_cast<std::size_t>(data.getTotalDataSize()) == expected.size());
        FUZZ_REQUIRE(std::memcmp(data.getData(), expected.data(), expected.size()) == 0);
        requireReadable(data);
    }
    writeAgain(data, limits);
    return status;
}

// ---- Records

/** The same results and log lines as those of the two functions one after the other. */
void decodeRecords(std::string_view message, const WireLimits& limits)
{
    KeyValues record;
    fuzz::clearLog();
    const int status = WireDecoder::decode(message.data(), message.size(), record, limits);
    const std::string logged = fuzz::getLog();

    SerializedData data;
    KeyValues expected;
    fuzz::clearLog();
    int expectedStatus = WireDecoder::decode(message.data(), message.size(), data, limits);
    const bool isMessage = expectedStatus == STATUS_SUCCESS;
    if (isMessage) {
        expectedStatus = expected.deserialize(data);
    }
    FUZZ_REQUIRE(status == expectedStatus && logged == fuzz::getLog() && isSame(record, expected));

    std::vector<KeyValues> records;
    fuzz::clearLog();
    const int listStatus =
        WireDecoder::decode(message.data(), message.size(), records, REPEATABLE, limits);
    const std::string listLogged = fuzz::getLog();

    SerializedData listData;
    std::vector<KeyValues> expectedRecords;
    fuzz::clearLog();
    expectedStatus = WireDecoder::decode(message.data(), message.size(), listData, limits);
    if (isMessage) {
        expectedStatus = Serializer::deserialize(listData, expectedRecords, REPEATABLE);
    }
    FUZZ_REQUIRE(listStatus == expectedStatus && listLogged == fuzz::getLog() &&
                 isSame(records, expectedRecords));
}

// ---- Streams

struct Arrival {
    int status;
    std::string content;

    bool operator==(const Arrival& other) const
    {
        return status == other.status && content == other.content;
    }
};

/** Cuts a stream into messages that are decoded one by one, up to what is none. */
std::vector<Arrival> cut(std::string_view stream, const WireLimits& limits, int& status)
{
    std::vector<Arrival> arrivals;
    for (;;) {
        std::size_t length = 0;
        status = WireDecoder::getLength(stream.data(), stream.size(), length, limits);
        if (status != STATUS_SUCCESS || length == 0 || length > stream.size()) {
            return arrivals;
        }
        SerializedData data;
        const int decoded = WireDecoder::decode(stream.data(), length, data, limits);
        arrivals.push_back({decoded, toText(data)});
        stream.remove_prefix(length);
    }
}

/** The same by an object that gets the stream in pieces. */
std::vector<Arrival> receive(std::string_view stream, const WireLimits& limits, int step,
                             bool isPatient, int& status)
{
    std::vector<Arrival> arrivals;
    WireDecoder decoder(limits);
    const auto takeMessages = [&] {
        while (decoder.hasMessage()) {
            SerializedData data;
            const int decoded = decoder.decode(data);
            arrivals.push_back({decoded, toText(data)});
        }
    };
    status = STATUS_SUCCESS;
    while (!stream.empty()) {
        const std::string_view piece = fuzz::takePiece(stream, step);
        const int before = status;
        status = decoder.append(piece.data(), piece.size());
        FUZZ_REQUIRE(before == STATUS_SUCCESS || status == before);
        if (!isPatient) {
            takeMessages();
        }
    }
    takeMessages();
    SerializedData none;
    FUZZ_REQUIRE(decoder.decode(none) == STATUS_NOT_FOUND);
    return arrivals;
}

void requireSameStream(const std::string& stream, const WireLimits& limits, int step)
{
    int status = STATUS_SUCCESS;
    fuzz::clearLog();
    const std::vector<Arrival> expected = cut(stream, limits, status);
    const int lines = fuzz::countLogged();
    for (const bool isPatient : {false, true}) {
        int received = STATUS_SUCCESS;
        fuzz::clearLog();
        FUZZ_REQUIRE(receive(stream, limits, step, isPatient, received) == expected);
        FUZZ_REQUIRE(received == status);
        FUZZ_REQUIRE(fuzz::countLogged() == lines);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size)
{
    Input input(bytes, size);
    const int choice = input.byte();
    WireLimits limits;
    limits.memory = 64 * 1024;
    limits.values = 4096;
    limits.unknownKinds = choice % 2 != 0;
    if (choice / 2 % 2 != 0) {
        limits.bytes = 64;
        limits.blocks = 2;
        limits.values = 8;
        limits.memory = 2048;
    }
    const int step = input.byte();
    const std::string stream = fuzz::makeStream(input);

    requireSameStream(stream, limits, step);
    // The first message with whatever is behind it, and by itself.
    std::size_t length = 0;
    static_cast<void>(WireDecoder::getLength(stream.data(), stream.size(), length, limits));
    decode(stream, limits);
    if (length > 0 && length < stream.size()) {
        decode(std::string_view(stream).substr(0, length), limits);
    }
    decodeRecords(std::string_view(stream).substr(0, length > 0 ? length : stream.size()), limits);
    return 0;
}
