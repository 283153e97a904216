#include "Streams.h"

#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <utility>

namespace oxil::test {
namespace {

constexpr int PATIENCE = 5000;  // milliseconds

bool waitFor(int descriptor, short events, int milliseconds = PATIENCE)
{
    pollfd entry = {descriptor, events, 0};
    int count = 0;
    do {
        count = poll(&entry, 1, milliseconds);
    } while (count < 0 && errno == EINTR);
    return count == 1;
}

ssize_t readSome(int descriptor, void* bytes, std::size_t size)
{
    ssize_t count = 0;
    do {
        count = read(descriptor, bytes, size);
    } while (count < 0 && errno == EINTR);
    return count;
}

}  // namespace

Descriptor& Descriptor::operator=(Descriptor&& other) noexcept
{
    close();
    __number = other.release();
    return *this;
}

int Descriptor::release()
{
    return std::exchange(__number, -1);
}

void Descriptor::close()
{
    if (__number >= 0) {
        EXPECT_EQ(::close(release()), 0);
    }
}

Sockets makeSockets()
{
    int ends[2] = {-1, -1};
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
    return {Descriptor(ends[0]), Descriptor(ends[1])};
}

Sockets makeSmallSockets()
{
    Sockets sockets = makeSockets();
    const int size = 1;
    for (const int end : {sockets.near.get(), sockets.far.get()}) {
        EXPECT_EQ(setsockopt(end, SOL_SOCKET, SO_SNDBUF, &size, sizeof size), 0);
        EXPECT_EQ(setsockopt(end, SOL_SOCKET, SO_RCVBUF, &size, sizeof size), 0);
    }
    return sockets;
}

Pipe makePipe()
{
    int ends[2] = {-1, -1};
    EXPECT_EQ(pipe(ends), 0);
    return {Descriptor(ends[0]), Descriptor(ends[1])};
}

bool isOpenDescriptor(int number)
{
    return fcntl(number, F_GETFD) != -1;
}

int openDescriptorCount()
{
    DIR* folder = opendir("/proc/self/fd");
    EXPECT_NE(folder, nullptr);
    int count = 0;
    while (readdir(folder) != nullptr) {
        ++count;
    }
    closedir(folder);
    return count - 3;  // "." and "..", and that of the folder itself
}

bool writeAll(int descriptor, const std::string& bytes)
{
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t count = write(descriptor, bytes.data() + done, bytes.size() - done);
        if (count > 0) {
            done += static_cast<std::size_t>(count);
        } else if (errno != EINTR && (errno != EAGAIN || !waitFor(descriptor, POLLOUT))) {
            return false;
        }
    }
    return true;
}

std::string readBytes(int descriptor, std::size_t size)
{
    std::string bytes(size, '\0');
    std::size_t done = 0;
    while (done < size && waitFor(descriptor, POLLIN)) {
        const ssize_t count = readSome(descriptor, bytes.data() + done, size - done);
        if (count <= 0) {
            break;
        }
        done += static_cast<std::size_t>(count);
    }
    bytes.resize(done);
    return bytes;
}

std::string readAvailable(int descriptor)
{
    std::string bytes;
    while (waitFor(descriptor, POLLIN, 0)) {
        std::array<char, 4096> buffer;
        const ssize_t count = readSome(descriptor, buffer.data(), buffer.size());
        if (count <= 0) {
            break;
        }
        bytes.append(buffer.data(), static_cast<std::size_t>(count));
    }
    return bytes;
}

bool isAtEnd(int descriptor)
{
    char byte = '\0';
    return waitFor(descriptor, POLLIN, 1000) && readSome(descriptor, &byte, 1) == 0;
}

}  // namespace oxil::test
