#pragma once

#include <chrono>
#include <cstddef>
#include <string>

namespace oxil::test {

/** A file descriptor that is closed with this object, unless it was given away. */
class Descriptor {
public:
    explicit Descriptor(int number = -1) : __number(number) {}
    ~Descriptor() { close(); }

    Descriptor(Descriptor&& other) noexcept : __number(other.release()) {}
    Descriptor& operator=(Descriptor&& other) noexcept;

    int get() const { return __number; }
    int release();
    void close();

private:
    int __number;
};

/** Two ends of a connection. */
struct Sockets {
    Descriptor near;
    Descriptor far;
};

Sockets makeSockets();

/** The same with buffers as small as the system makes them. */
Sockets makeSmallSockets();

struct Pipe {
    Descriptor input;
    Descriptor output;
};

Pipe makePipe();

/** Whether this number is an open descriptor. */
bool isOpenDescriptor(int number);

/** The number of descriptors that this process has open. */
int openDescriptorCount();

/** Writes all of it; false if the stream did not take it within a few seconds. */
bool writeAll(int descriptor, const std::string& bytes);

/** Reads so many bytes, or fewer at the end of the stream or when none come for a few seconds. */
std::string readBytes(int descriptor, std::size_t size);

/** Whatever can be read at once. */
std::string readAvailable(int descriptor);

/** Whether the stream has ended and everything was read, now or in a short time. */
bool isAtEnd(int descriptor);

}  // namespace oxil::test
