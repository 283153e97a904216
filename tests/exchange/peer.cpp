// One end of an exchange between processes: "peer send" packs every payload in every way and writes
// it to the standard output, first as description and data and then as messages of the wire form;
// "peer receive" reads that from the standard input, unpacks it in every way, and says whether it is
// what was meant.
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "GoldenEncoder.h"
#include "OxSerializedData.h"
#include "OxStatus.h"
#include "OxWireDecoder.h"
#include "OxWireEncoder.h"
#include "Payload.h"
#include "process.h"

using namespace oxil;
using namespace oxil::test;

namespace {

bool writeAll(const void* bytes, std::size_t size)
{
    return std::fwrite(bytes, 1, size, stdout) == size;
}

bool readAll(void* bytes, std::size_t size)
{
    return std::fread(bytes, 1, size, stdin) == size;
}

/** A message: the description as it lies in memory, then the data that it describes. */
bool send(const SerializedData& packed)
{
    const SerializationInfo& info = packed.getSerializationInfo();
    return writeAll(&info, sizeof info) &&
           writeAll(packed.getData(), static_cast<std::size_t>(packed.getTotalDataSize()));
}

/** How the receiver learns how many bytes follow a description: by the description itself. */
std::size_t sizeOf(const SerializationInfo& info)
{
    return static_cast<std::size_t>(SerializedData(info).getTotalDataSize());
}

bool sendMessage(const SerializedData& packed)
{
    std::string message;
    return WireEncoder::encode(packed, message) == STATUS_SUCCESS &&
           writeAll(message.data(), message.size());
}

bool sendAll(bool (*send)(const SerializedData& packed))
{
    for (const GoldenPayload& golden : goldenPayloads()) {
        for (const Pack& pack : packsOf(golden.layout)) {
            Payload payload = payloadOf(golden);
            SerializedData packed;
            if (pack(payload, packed) != STATUS_SUCCESS || !send(packed)) {
                std::fprintf(stderr, "%s: not sent\n", golden.name.c_str());
                return false;
            }
        }
    }
    return std::fflush(stdout) == 0;
}

/** Unpacks what has arrived in one way. */
bool check(const GoldenPayload& golden, const SerializedData& received, const Unpack& unpack)
{
    Payload payload;
    if (unpack(received, payload) != STATUS_SUCCESS) {
        std::fprintf(stderr, "%s: not unpacked\n", golden.name.c_str());
        return false;
    }
    const std::string where = difference(golden, payload);
    if (!where.empty()) {
        std::fprintf(stderr, "%s: not what was sent: %s\n", golden.name.c_str(), where.c_str());
    }
    return where.empty();
}

/** Unpacks one description and its data in every way. */
bool receive(const GoldenPayload& golden)
{
    SerializationInfo info;
    if (!readAll(&info, sizeof info)) {
        std::fprintf(stderr, "%s: no description\n", golden.name.c_str());
        return false;
    }
    std::vector<std::uint8_t> data(sizeOf(info) + 1);  // never null
    if (!readAll(data.data(), data.size() - 1) ||
        SerializedData::validate(info, data.size() - 1) != STATUS_SUCCESS) {
        std::fprintf(stderr, "%s: no data\n", golden.name.c_str());
        return false;
    }

    for (const Unpack& unpack : unpacksOf(golden.layout)) {
        SerializedData received(info);
        if (received.setData(static_cast<const void*>(data.data())) != STATUS_SUCCESS ||
            !check(golden, received, unpack)) {
            return false;
        }
    }
    return true;
}

/** The next message of a stream, cut anywhere. */
bool receiveMessage(WireDecoder& decoder, SerializedData& received)
{
    while (!decoder.hasMessage()) {
        char bytes[1000];
        const std::size_t size = std::fread(bytes, 1, sizeof bytes, stdin);
        if (size == 0 || decoder.append(bytes, size) != STATUS_SUCCESS) {
            return false;
        }
    }
    return decoder.decode(received) == STATUS_SUCCESS;
}

/** Unpacks one message in every way. */
bool receive(WireDecoder& decoder, const GoldenPayload& golden)
{
    SerializedData received;
    if (!receiveMessage(decoder, received)) {
        std::fprintf(stderr, "%s: no message\n", golden.name.c_str());
        return false;
    }
    for (const Unpack& unpack : unpacksOf(golden.layout)) {
        if (!check(golden, received, unpack)) {
            return false;
        }
    }
    return true;
}

/** Calls receive(payload) for each message that there should be. */
template <typename Receive>
bool receiveEach(const std::vector<GoldenPayload>& payloads, int& messages, const Receive& receive)
{
    for (const GoldenPayload& golden : payloads) {
        for (std::size_t i = 0; i < packsOf(golden.layout).size(); ++i) {
            if (!receive(golden)) {
                return false;
            }
            ++messages;
        }
    }
    return true;
}

bool receiveAll()
{
    const std::vector<GoldenPayload> payloads = goldenPayloads();
    int messages = 0;
    WireDecoder decoder;
    if (!receiveEach(payloads, messages, [](const auto& golden) { return receive(golden); }) ||
        !receiveEach(payloads, messages,
                     [&](const auto& golden) { return receive(decoder, golden); })) {
        return false;
    }
    std::printf("%s: %d messages with %zu payloads\n", thisProcess().c_str(), messages,
                payloads.size());
    return !decoder.hasMessage() && std::fgetc(stdin) == EOF;
}

}  // namespace

int main(int argc, char** argv)
{
    const std::string role = argc == 2 ? argv[1] : "";
    if (role == "send") {
        return sendAll(send) && sendAll(sendMessage) ? 0 : 1;
    }
    if (role == "receive") {
        return receiveAll() ? 0 : 1;
    }
    std::fprintf(stderr, "Usage: peer send|receive\n");
    return 2;
}
