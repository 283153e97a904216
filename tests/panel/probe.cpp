// Calls the settings service as the panel never does, to see what it makes of it.
//
// Usage: panel-probe SERVICE REGISTRY STORE
//
// Prints, beside what the service logs:
//   forget: unknown method forget
//   a record: this is no call
//   variants without a layout: unknown method variants
//   variants of nothing: no layouts
//   volume = loud: no such setting: volume
//   colour = 1: no such setting: colour
//   volume: half a pair: saved
//   volume = 30: saved
//   again: 30
//   nonsense: no answer

#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

#include <Oxil.h>

#include "service_process.h"

namespace {

class Probe {
public:
    explicit Probe(int socket) { channel_.open(socket, nullptr, nullptr); }

    // What the service answers: what is wrong, or the volume, or the first key.
    std::string call(const oxil::Payload& payload)
    {
        std::string result = "no answer";
        const auto onAnswer = [&](int status, const oxil::SerializedData& message) {
            std::vector<oxil::KeyValues> records;
            if (status == oxil::STATUS_SUCCESS &&
                oxil::Serializer::deserialize(message, records, oxil::REPEATABLE) ==
                    oxil::STATUS_SUCCESS) {
                const oxil::KeyValues& first = records.at(0);
                result = first.contains("volume") ? std::to_string(first.get("volume", -1))
                                                  : first.get("error", first.getKey(0));
            }
            loop_.quit();
        };
        if (channel_.request(payload, 5000, onAnswer) == oxil::STATUS_SUCCESS) {
            loop_.run();
        }
        return result;
    }

private:
    oxil::Channel channel_;
    oxil::WaitingLoop loop_;
};

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 4) {
        std::fprintf(stderr, "usage: panel-probe SERVICE REGISTRY STORE\n");
        return 2;
    }
    std::remove(argv[3]);
    const std::vector<std::string> command(argv + 1, argv + 4);
    {
        const panel::ServiceProcess service(command);
        Probe probe(service.getSocket());
        const auto tell = [&](const char* what, const oxil::Payload& payload) {
            std::printf("%s: %s\n", what, probe.call(payload).c_str());
        };
        tell("forget", {"forget", {1}});
        tell("a record", oxil::KeyValues({{"name", "nobody asked"}}));
        tell("variants without a layout", {"variants", {}});
        tell("variants of nothing", {"variants", {"nothing"}});
        tell("volume = loud", {"set", {"volume", "loud"}});
        tell("colour = 1", {"set", {"colour", 1}});
        tell("volume: half a pair", {"set", {"volume"}});
        tell("volume = 30", {"set", {"volume", 30}});
    }
    const panel::ServiceProcess service(command);
    Probe probe(service.getSocket());
    std::printf("again: %s\n", probe.call({"get", {}}).c_str());

    // What stands in the place of a kind is no kind.
    if (write(service.getSocket(), "nonsense", 8) != 8) {
        return 1;
    }
    std::printf("nonsense: %s\n", probe.call({"get", {}}).c_str());
}
