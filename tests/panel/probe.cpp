// Calls the settings service as the panel never does, to see what it makes of it.
//
// Usage: panel-probe SERVICE REGISTRY STORE
//
// Prints, beside what the service logs:
//   forget: unknown method forget
//   a record: this is no call
//   layouts: value
//   brightness = loud: no such setting: brightness
//   colour = 1: no such setting: colour
//   brightness: half a pair: 70
//   brightness = 30: 30
//   again: 30
//   an older file: 70, of Bath, colour: brightness
//   no registry: no layouts
//   no store: not written: no/such/folder/settings
//   nonsense: no answer

#include <glib.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include <Oxil.h>

namespace {

class Probe {
public:
    // Starts the service, which ends with the probe.
    Probe(std::string service, std::string registry, std::string store)
    {
        char* command[] = {service.data(), registry.data(), store.data(), nullptr};
        const auto flags =
            static_cast<GSpawnFlags>(G_SPAWN_DO_NOT_REAP_CHILD | G_SPAWN_LEAVE_DESCRIPTORS_OPEN);
        int output = -1;
        if (g_spawn_async_with_pipes(nullptr, command, nullptr, flags, nullptr, nullptr, nullptr,
                                     &input_, &output, nullptr, nullptr)) {
            channel_.open(output, input_, nullptr, nullptr);
        }
    }

    // What the service answers: what is wrong, or the value of a key, or else the first key.
    std::string call(const oxil::Payload& payload, const std::string& key = "brightness")
    {
        std::string result = "no answer";
        const auto onAnswer = [&](int status, const oxil::SerializedData& message) {
            std::vector<oxil::KeyValues> records;
            if (status == oxil::STATUS_SUCCESS &&
                oxil::Serializer::deserialize(message, records, oxil::REPEATABLE) ==
                    oxil::STATUS_SUCCESS) {
                const oxil::KeyValues& first = records.at(0);
                result = first.contains(key) ? first.getValue(key).toString()
                                             : first.get("error", first.getKey(0));
            }
            loop_.quit();
        };
        if (channel_.request(payload, 5000, onAnswer) == oxil::STATUS_SUCCESS) {
            loop_.run();
        }
        return result;
    }

    // Sends what no channel does.
    bool write(const std::string& bytes) const
    {
        return ::write(input_, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size());
    }

private:
    int input_ = -1;
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
    {
        Probe probe(argv[1], argv[2], argv[3]);
        const auto tell = [&](const char* what, const oxil::Payload& payload) {
            std::printf("%s: %s\n", what, probe.call(payload).c_str());
        };
        tell("forget", {"forget", {1}});
        tell("a record", oxil::KeyValues({{"name", "nobody asked"}}));
        tell("layouts", {"layouts", {}});
        tell("brightness = loud", {"set", {"brightness", "loud"}});
        tell("colour = 1", {"set", {"colour", 1}});
        tell("brightness: half a pair", {"set", {"brightness"}});
        tell("brightness = 30", {"set", {"brightness", 30}});
    }
    Probe probe(argv[1], "", argv[3]);
    std::printf("again: %s\n", probe.call({"get", {}}).c_str());
    std::string older;
    oxil::WireEncoder::encode({{"colour", 1}, {"brightness", "loud"}, {"name", "Bath"}}, older);
    std::ofstream(argv[3], std::ios::binary) << older;
    Probe updated(argv[1], "", argv[3]);
    std::printf("an older file: %s, of %s, colour: %s\n", updated.call({"get", {}}).c_str(),
                updated.call({"get", {}}, "name").c_str(),
                updated.call({"get", {}}, "colour").c_str());
    std::printf("no registry: %s\n", probe.call({"layouts", {}}).c_str());

    Probe lost(argv[1], "", "no/such/folder/settings");
    std::printf("no store: %s\n", lost.call({"set", {"brightness", 30}}).c_str());

    // What stands in the place of a kind is no kind.
    if (!probe.write("nonsense")) {
        return 1;
    }
    std::printf("nonsense: %s\n", probe.call({"get", {}}).c_str());
}
