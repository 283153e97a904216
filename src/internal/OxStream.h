#pragma once

#include <cstddef>

namespace oxil::internal {

/** Owns the descriptor of a stream, which is read and written without blocking. */
class Stream {
public:
    Stream() noexcept = default;

    /** Closes the descriptor. */
    ~Stream();

    Stream(const Stream&) = delete;
    Stream& operator=(const Stream&) = delete;

    /** Whether this number stands for anything. */
    static bool isOpen(int descriptor) noexcept;

    /** Takes over a descriptor that is open. */
    void take(int descriptor) noexcept;

    void close() noexcept;

    bool isOpen() const noexcept { return __descriptor >= 0; }
    int get() const noexcept { return __descriptor; }

    /** What read() and write() give besides a number of bytes. */
    enum { NOTHING_NOW = 0, FAILED = -1, ENDED = -2 };

    /** Bytes read, NOTHING_NOW, FAILED, or ENDED. */
    int read(char* bytes, std::size_t size) noexcept;

    /** Bytes written, NOTHING_NOW, or FAILED. Raises no signal. */
    int write(const char* bytes, std::size_t size) noexcept;

    /** The system's number of the last failure. */
    int error() const noexcept { return __error; }

private:
    template <typename Call>
    int __transfer(const Call& call) noexcept;

    int __descriptor = -1;
    bool __isSocket = false;
    int __error = 0;
};

}  // namespace oxil::internal
