// One end of a conversation between processes: "channel-peer ask COMMAND..." starts the command,
// "channel-peer answer" on the same or another machine, and talks to it. Each asks the other for
// every payload, packed in every way, and compares the answer byte by byte with what it packs.
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "GoldenEncoder.h"
#include "OxChannel.h"
#include "OxSerializer.h"
#include "OxStatus.h"
#include "OxWaitingLoop.h"
#include "Payload.h"
#include "process.h"

using namespace oxil;
using namespace oxil::test;

namespace {

constexpr int TIMEOUT = 60000;  // milliseconds: an emulator may be slow

using Messages = std::vector<std::unique_ptr<SerializedData>>;

Messages packAll()
{
    Messages messages;
    for (const GoldenPayload& golden : goldenPayloads()) {
        for (const Pack& pack : packsOf(golden.layout)) {
            test::Payload payload = payloadOf(golden);
            messages.push_back(std::make_unique<SerializedData>());
            if (pack(payload, *messages.back()) != STATUS_SUCCESS) {
                return {};
            }
        }
    }
    return messages;
}

bool areSame(const SerializedData& left, const SerializedData& right)
{
    const SerializationInfo& info = left.getSerializationInfo();
    return std::memcmp(&info, &right.getSerializationInfo(), sizeof info) == 0 &&
           std::memcmp(left.getData(), right.getData(),
                       static_cast<std::size_t>(left.getTotalDataSize())) == 0;
}

class End {
public:
    explicit End(bool closes) : __closes(closes) {}

    /** Talks until everything is said. */
    bool talk(int input, int output)
    {
        const auto onMessage = [this](const SerializedData& message) { __onMessage(message); };
        const auto onClosed = [this](int status) {
            // The other one may close, but not this early.
            __isGood = __isGood && status == STATUS_SUCCESS && !__closes;
            __loop.quit();
        };
        if (__messages.empty() ||
            __channel.open(input, output, onMessage, onClosed) != STATUS_SUCCESS) {
            return false;
        }
        __askNext();
        if (__isGood) {
            __loop.run();
        }
        return __isGood && __asked == __messages.size() && __answered == __messages.size();
    }

    std::size_t getCount() const { return __messages.size(); }

    const std::string& getOtherProcess() const { return __otherProcess; }

private:
    void __askNext()
    {
        if (__asked == __messages.size()) {
            if (__channel.send({"done", {thisProcess()}}) != STATUS_SUCCESS) {
                __fail();
            }
            __closeIfDone();
            return;
        }
        const SerializedData& message = *__messages[__asked];
        const auto onAnswer = [this, &message](int status, const SerializedData& answer) {
            if (status != STATUS_SUCCESS || !areSame(message, answer)) {
                std::fprintf(stderr, "request %zu: %d, or not what was meant\n", __asked, status);
                __fail();
                return;
            }
            ++__asked;
            __askNext();
        };
        if (__channel.request(message, TIMEOUT, onAnswer) != STATUS_SUCCESS) {
            __fail();
        }
    }

    void __onMessage(const SerializedData& message)
    {
        if (const unsigned int id = message.getContextId(); id != 0) {
            // Not what has come: what this process makes of it.
            const bool isSame =
                __answered < __messages.size() && areSame(message, *__messages[__answered]);
            if (!isSame || __channel.answer(id, *__messages[__answered]) != STATUS_SUCCESS) {
                std::fprintf(stderr, "message %zu is not what was meant\n", __answered);
                __fail();
            }
            ++__answered;
            return;
        }
        std::string method;
        std::vector<Variant> params;
        if (Serializer::deserialize(message, method, params) != STATUS_SUCCESS ||
            method != "done" || params.size() != 1) {
            __fail();
            return;
        }
        __otherProcess = params[0].toString();
        __closeIfDone();
    }

    /** The one that closes waits until both have asked everything. */
    void __closeIfDone()
    {
        if (__closes && !__otherProcess.empty() && __asked == __messages.size()) {
            __end();
        }
    }

    void __fail()
    {
        __isGood = false;
        __end();
    }

    void __end()
    {
        __channel.close();
        __loop.quit();
    }

    const bool __closes;
    const Messages __messages = packAll();
    std::size_t __asked = 0;
    std::size_t __answered = 0;
    std::string __otherProcess;
    bool __isGood = true;
    WaitingLoop __loop;
    Channel __channel;
};

bool ask(char** command)
{
    int sockets[2] = {-1, -1};
    if (socketpair(AF_UNIX, SOCK_STREAM, 0, sockets) != 0) {
        return false;
    }
    const pid_t child = fork();
    if (child == 0) {
        close(sockets[0]);
        dup2(sockets[1], STDIN_FILENO);
        dup2(sockets[1], STDOUT_FILENO);
        execvp(command[0], command);
        _exit(127);
    }
    close(sockets[1]);
    End end(true);
    const bool isGood = end.talk(sockets[0], sockets[0]);
    int status = 0;
    if (waitpid(child, &status, 0) != child || status != 0) {
        std::fprintf(stderr, "the other process: %d\n", status);
        return false;
    }
    std::printf("%s and %s: %zu requests each way\n", thisProcess().c_str(),
                end.getOtherProcess().c_str(), end.getCount());
    return isGood;
}

}  // namespace

int main(int argc, char** argv)
{
    const std::string role = argc >= 2 ? argv[1] : "";
    if (role == "ask" && argc >= 3) {
        return ask(argv + 2) ? 0 : 1;
    }
    if (role == "answer" && argc == 2) {
        return End(false).talk(STDIN_FILENO, STDOUT_FILENO) ? 0 : 1;
    }
    std::fprintf(stderr, "Usage: channel-peer ask COMMAND...|answer\n");
    return 2;
}
