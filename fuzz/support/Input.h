#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <type_traits>

namespace oxil::fuzz {

/** Takes apart what a fuzzer has made up, from the front. What is no longer there is zero. */
class Input {
public:
    Input(const std::uint8_t* bytes, std::size_t size)
        : __rest(reinterpret_cast<const char*>(bytes), size)
    {
    }

    explicit Input(std::string_view bytes) : __rest(bytes) {}

    bool isAtEnd() const { return __rest.empty(); }

    std::size_t left() const { return __rest.size(); }

    /** A number of so many bytes, the low one first. */
    template <typename Number>
    Number number()
    {
        static_assert(std::is_trivially_copyable_v<Number>);
        char bytes[sizeof(Number)] = {};
        const std::string_view taken = bytesOf(sizeof bytes);
        if (!taken.empty()) {
            std::memcpy(bytes, taken.data(), taken.size());
        }
        Number number;
        std::memcpy(&number, bytes, sizeof number);
        return number;
    }

    std::uint8_t byte() { return number<std::uint8_t>(); }

    /** From 0 to @p end - 1, which is one byte. */
    int below(int end) { return byte() % end; }

    bool flag() { return below(2) != 0; }

    /** So many bytes, or as many as there are. */
    std::string_view bytesOf(std::size_t size)
    {
        const std::string_view taken = __rest.substr(0, size);
        __rest.remove_prefix(taken.size());
        return taken;
    }

    /** A text whose length stands in front of it, in a byte or, where that is 255, in two more. */
    std::string text()
    {
        const std::uint8_t length = byte();
        return std::string(bytesOf(length < 255 ? length : number<std::uint16_t>()));
    }

    /** All up to a mark, which goes too, or to the end. */
    std::string_view until(std::string_view mark)
    {
        const std::string_view taken = bytesOf(__rest.find(mark));
        bytesOf(mark.size());
        return taken;
    }

    std::string_view rest() { return bytesOf(__rest.size()); }

private:
    std::string_view __rest;
};

}  // namespace oxil::fuzz
