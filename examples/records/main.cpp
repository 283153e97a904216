// Two processes: one has a lamp, the other asks for it, changes it, and is told of the change.
//
// Prints:
//   lamp: setBrightness(40)
//   panel: brightness is 40
//   panel: name = hall lamp (STRING)
//   panel: brightness = 40 (INT)
//   panel: on = 1 (BOOL)

#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <string>
#include <vector>

#include <Oxil.h>

using namespace std::chrono_literals;

namespace {

//! [lamp]
// Answers calls until the other end is closed.
int runLamp(int socket)
{
    oxil::KeyValues lamp = {{"name", "hall lamp"}, {"brightness", 80}, {"on", true}};

    oxil::WaitingLoop loop;
    oxil::Channel channel;
    const auto onCall = [&](const oxil::SerializedData& call) {
        std::string method;
        std::vector<oxil::Variant> params;
        if (oxil::Serializer::deserialize(call, method, params) != oxil::STATUS_SUCCESS) {
            channel.close();  // the log tells what it was
            loop.quit();
        } else if (method == "setBrightness" && params.size() == 1) {
            std::printf("lamp: setBrightness(%d)\n", params[0].toInt());
            lamp.set("brightness", params[0]);
            channel.send({"onBrightness", params});  // whoever listens
        } else if (method == "get") {
            channel.answer(call.getContextId(), lamp);
        }
    };
    int result = 1;
    channel.open(socket, onCall, [&](int status) {
        result = status == oxil::STATUS_SUCCESS ? 0 : 1;
        loop.quit();
    });
    loop.run();
    return result;
}
//! [lamp]

//! [panel]
int runPanel(int socket)
{
    oxil::WaitingLoop loop;
    oxil::Channel channel;
    const auto onEvent = [](const oxil::SerializedData& event) {
        std::string name;
        std::vector<oxil::Variant> params;
        if (oxil::Serializer::deserialize(event, name, params) == oxil::STATUS_SUCCESS &&
            name == "onBrightness" && params.size() == 1) {
            std::printf("panel: brightness is %d\n", params[0].toInt());
        }
    };
    channel.open(socket, onEvent, [&](int) { loop.quit(); });

    channel.send({"setBrightness", {40}});

    // The answer comes within a second, or the function learns that it didn't.
    int result = 1;
    channel.request({"get", {}}, 1s, [&](int status, const oxil::SerializedData& answer) {
        oxil::KeyValues lamp;
        if (status == oxil::STATUS_SUCCESS &&
            oxil::Serializer::deserialize(answer, lamp) == oxil::STATUS_SUCCESS) {
            for (const auto& [key, value] : lamp) {
                std::printf("panel: %s = %s (%s)\n", key.c_str(), value.toString().c_str(),
                            value.getTypeName().c_str());
            }
            result = 0;
        }
        loop.quit();
    });
    loop.run();
    return result;
}
//! [panel]

}  // namespace

int main()
{
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0) {
        std::perror("socketpair");
        return 1;
    }
    const pid_t lamp = fork();
    if (lamp < 0) {
        std::perror("fork");
        return 1;
    }
    if (lamp == 0) {
        close(ends[0]);
        const int result = runLamp(ends[1]);
        std::fflush(stdout);
        _exit(result);
    }

    close(ends[1]);
    const int result = runPanel(ends[0]);

    int status = 0;
    waitpid(lamp, &status, 0);
    return result == 0 && WIFEXITED(status) && WEXITSTATUS(status) == 0 ? 0 : 1;
}
