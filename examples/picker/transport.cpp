#include "transport.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>

namespace picker {
namespace {

constexpr int LARGEST = 1024 * 1024;

bool sendAll(int socket, const void* bytes, std::size_t size)
{
    const char* rest = static_cast<const char*>(bytes);
    while (size > 0) {
        const ssize_t sent = ::send(socket, rest, size, MSG_NOSIGNAL);
        if (sent < 0 && errno == EINTR) {
            continue;
        }
        if (sent <= 0) {
            return false;
        }
        rest += sent;
        size -= static_cast<std::size_t>(sent);
    }
    return true;
}

// The number of bytes that came before the connection ended or fell silent.
std::size_t receiveAll(int socket, void* bytes, std::size_t size)
{
    char* start = static_cast<char*>(bytes);
    std::size_t count = 0;
    while (count < size) {
        const ssize_t received = recv(socket, start + count, size - count, 0);
        if (received < 0 && errno == EINTR) {
            continue;
        }
        if (received <= 0) {
            break;
        }
        count += static_cast<std::size_t>(received);
    }
    return count;
}

}  // namespace

bool connect(int (&ends)[2])
{
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0 ||
        fcntl(ends[1], F_SETFD, 0) != 0) {
        return false;
    }
    const timeval second = {1, 0};
    return setsockopt(ends[0], SOL_SOCKET, SO_RCVTIMEO, &second, sizeof second) == 0;
}

bool send(int socket, const oxil::SerializedData& data)
{
    const auto size = static_cast<std::size_t>(data.getTotalDataSize());
    return sendAll(socket, &data.getSerializationInfo(), sizeof(oxil::SerializationInfo)) &&
           sendAll(socket, data.getData(), size);
}

//! [receive]
Received receive(int socket, Message& message)
{
    const std::size_t count = receiveAll(socket, &message.info, sizeof message.info);
    if (count == 0) {
        return Received::NOTHING_MORE;
    }
    if (count < sizeof message.info) {
        return Received::REFUSED;
    }
    // Nobody reads the bytes before description and length are known to agree.
    const int size = oxil::SerializedData(message.info).getTotalDataSize();
    if (size < 0 || size > LARGEST) {
        return Received::REFUSED;
    }
    message.bytes.resize(static_cast<std::size_t>(size));
    if (receiveAll(socket, message.bytes.data(), message.bytes.size()) < message.bytes.size() ||
        oxil::SerializedData::validate(message.info, message.bytes.size()) !=
            oxil::STATUS_SUCCESS) {
        return Received::REFUSED;
    }
    return Received::MESSAGE;
}
//! [receive]

}  // namespace picker
