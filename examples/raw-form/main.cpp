// Hands a record and a method call to a process that takes descriptions and data areas as they are.
//
// Prints:
//   reader: record with 3 entries
//   reader:   brightness = 80 (INT)
//   reader:   on = 1 (BOOL)
//   reader:   name = hall lamp (STRING)
//   reader: call setVolume(40, soft)

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

#include <Oxil.h>

namespace {

//! [pipe]
// A message is the description, which always has the same size, and then the data area.

bool sendAll(int pipe, const void* bytes, std::size_t size)
{
    const char* rest = static_cast<const char*>(bytes);
    while (size > 0) {
        const ssize_t sent = write(pipe, rest, size);
        if (sent <= 0) {
            return false;
        }
        rest += sent;
        size -= static_cast<std::size_t>(sent);
    }
    return true;
}

bool receiveAll(int pipe, void* bytes, std::size_t size)
{
    char* rest = static_cast<char*>(bytes);
    while (size > 0) {
        const ssize_t received = read(pipe, rest, size);
        if (received <= 0) {
            return false;
        }
        rest += received;
        size -= static_cast<std::size_t>(received);
    }
    return true;
}
//! [pipe]

//! [send]
bool send(int pipe, const oxil::SerializedData& message)
{
    return sendAll(pipe, &message.getSerializationInfo(), sizeof(oxil::SerializationInfo)) &&
           sendAll(pipe, message.getData(), static_cast<std::size_t>(message.getTotalDataSize()));
}

int runWriter(int pipe)
{
    const oxil::KeyValues lamp = {
        {"brightness", 80},
        {"on", true},
        {"name", oxil::Serializer::cutText("hall lamp")}};  // no more than what arrives

    // A text that is too long would spoil what follows it: better to see it here.
    std::string culprit;
    if (oxil::Serializer::validate(lamp, &culprit) != oxil::STATUS_SUCCESS) {
        std::fprintf(stderr, "%s can't be sent\n", culprit.c_str());
        return 1;
    }
    oxil::SerializedData record;
    if (oxil::Serializer::serialize(lamp, record) != oxil::STATUS_SUCCESS || !send(pipe, record)) {
        return 1;
    }

    const std::vector<oxil::Variant> params = {40, "soft"};
    oxil::SerializedData call;
    if (oxil::Serializer::serialize("setVolume", params, call) != oxil::STATUS_SUCCESS ||
        !send(pipe, call)) {
        return 1;
    }
    return 0;
}
//! [send]

//! [receive]
// What a message needs to stay readable: the values are decoded from these bytes at first use.
struct Message {
    oxil::SerializationInfo info;
    std::vector<char> bytes;
};

// Twenty entries, all of them texts, are more than a lamp will ever have.
constexpr oxil::DecodingLimits LIMITS = {40, 40 * 320};

bool receive(int pipe, Message& message)
{
    if (!receiveAll(pipe, &message.info, sizeof message.info)) {
        return false;
    }
    // The other side may be anyone: take no more than this program is ready for, and let nobody
    // read the bytes before description and length are known to agree.
    const int size = oxil::SerializedData(message.info).getTotalDataSize();
    if (size < 1 || size > 64 * 1024) {
        return false;
    }
    message.bytes.resize(static_cast<std::size_t>(size));
    return receiveAll(pipe, message.bytes.data(), message.bytes.size()) &&
           oxil::SerializedData::validate(message.info, message.bytes.size(), LIMITS) ==
               oxil::STATUS_SUCCESS;
}

int runReader(int pipe)
{
    Message message;
    if (!receive(pipe, message)) {
        return 1;
    }
    oxil::SerializedData record(message.info);
    record.setData(message.bytes.data());  // lent: the message keeps it

    oxil::KeyValues lamp;
    if (oxil::Serializer::deserialize(record, lamp) != oxil::STATUS_SUCCESS) {
        return 1;
    }
    std::printf("reader: record with %d entries\n", lamp.getCount());
    for (const auto& [key, value] : lamp) {
        std::printf("reader:   %s = %s (%s)\n", key.c_str(), value.toString().c_str(),
                    value.getTypeName().c_str());
    }

    Message next;
    if (!receive(pipe, next)) {
        return 1;
    }
    oxil::SerializedData call(next.info);
    call.setData(next.bytes.data());

    std::string method;
    std::vector<oxil::Variant> params;
    if (oxil::Serializer::deserialize(call, method, params) != oxil::STATUS_SUCCESS ||
        params.size() != 2) {
        return 1;
    }
    std::printf("reader: call %s(%d, %s)\n", method.c_str(), params[0].toInt(),
                params[1].toString().c_str());
    return 0;
}
//! [receive]

}  // namespace

int main()
{
    int ends[2];
    if (pipe(ends) != 0) {
        std::perror("pipe");
        return 1;
    }
    const pid_t reader = fork();
    if (reader < 0) {
        std::perror("fork");
        return 1;
    }
    if (reader == 0) {
        close(ends[1]);
        const int result = runReader(ends[0]);
        std::fflush(stdout);
        _exit(result);
    }

    close(ends[0]);
    const int written = runWriter(ends[1]);
    close(ends[1]);

    int status = 0;
    waitpid(reader, &status, 0);
    const bool read = WIFEXITED(status) && WEXITSTATUS(status) == 0;
    return written == 0 && read ? 0 : 1;
}
