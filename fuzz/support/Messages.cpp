#include "Messages.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace oxil::fuzz {

std::string makeMessage(std::string_view body)
{
    std::string message = "Ox\1";
    std::size_t length = body.size();
    for (; length > 127; length /= 128) {
        message += static_cast<char>(length % 128 + 128);
    }
    message += static_cast<char>(length);
    return message.append(body);
}

std::string makeStream(Input& input)
{
    std::string stream;
    while (!input.isAtEnd()) {
        const bool isRaw = input.below(8) == 7;
        const std::string bytes = input.text();
        stream += isRaw ? bytes : makeMessage(bytes);
    }
    return stream;
}

std::string makeChannelStream(Input& input)
{
    std::string stream;
    while (!input.isAtEnd()) {
        const std::uint8_t kind = input.byte();
        if (kind == 7) {
            stream += input.text();
            continue;
        }
        // The numbers of the first requests are small.
        const std::uint32_t number = kind == 3 ? input.number<std::uint32_t>() : input.byte();
        stream += static_cast<char>(kind % 4);
        for (int shift = 0; shift < 32; shift += 8) {
            stream += static_cast<char>(number >> shift & 0xFF);
        }
        stream += makeMessage(input.text());
    }
    return stream;
}

std::string_view takePiece(std::string_view& stream, int step)
{
    const std::string_view piece = stream.substr(0, static_cast<std::size_t>(std::max(step, 1)));
    stream.remove_prefix(piece.size());
    return piece;
}

std::string toText(const SerializedData& data)
{
    // The fields in front of the types; most of a description is not in use.
    const SerializationInfo& info = data.getSerializationInfo();
    std::string text(reinterpret_cast<const char*>(&info), offsetof(SerializationInfo, types));
    for (int block = 0; block < info.blockCount; ++block) {
        const auto count = static_cast<std::size_t>(info.typeCount[block]);
        text.append(reinterpret_cast<const char*>(info.types[block]), count);
        text.append(reinterpret_cast<const char*>(info.typeSizes[block]),
                    count * sizeof info.typeSizes[block][0]);
    }
    if (data.getData() != nullptr) {
        text.append(static_cast<const char*>(data.getData()),
                    static_cast<std::size_t>(data.getTotalDataSize()));
    }
    return text;
}

}  // namespace oxil::fuzz
