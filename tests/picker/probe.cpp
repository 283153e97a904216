// Calls the settings service as the picker never does, to see what it makes of it.
//
// Usage: picker-probe EVDEV.XML
//
// Prints, beside what the service logs and complains about:
//   forget: unknown method forget
//   list without a page: unknown method list
//   a record: this is no call
//   describe de: 19 records of one shape
//   describe nobody: 0 records of one shape
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
    explicit Probe(int socket)
    {
        channel_.open(
            socket,
            [this](const oxil::SerializedData& message) {
                oxil::Serializer::deserialize(message, records_, oxil::REPEATABLE);
            },
            nullptr);
    }

    // What the service answers.
    std::string call(const oxil::Payload& payload)
    {
        std::string result;
        records_.clear();
        const auto onAnswer = [&](int status, const oxil::SerializedData& message) {
            oxil::KeyValues answer;
            if (status != oxil::STATUS_SUCCESS) {
                result = "no answer";
            } else if (answer.deserialize(message); answer.getKey(0) == "error") {
                result = answer.getValue(0).toString();
            } else {
                result = std::to_string(records_.size()) + " records of one shape";
            }
            loop_.quit();
        };
        if (channel_.request(payload, 5000, onAnswer) != oxil::STATUS_SUCCESS) {
            return "no answer";  // nor will the function be called
        }
        loop_.run();
        return result;
    }

private:
    oxil::Channel channel_;
    oxil::WaitingLoop loop_;
    std::vector<oxil::KeyValues> records_;
};

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: picker-probe EVDEV.XML\n");
        return 2;
    }
    const picker::ServiceProcess service(picker::getServiceProgram(argv[0]), argv[1]);
    const int socket = service.getSocket();
    Probe probe(socket);

    std::printf("forget: %s\n", probe.call({"forget", {1}}).c_str());
    std::printf("list without a page: %s\n", probe.call({"list", {"DE"}}).c_str());

    oxil::KeyValues record;
    record.add("name", "nobody asked");
    std::printf("a record: %s\n", probe.call(record).c_str());

    std::printf("describe de: %s\n", probe.call({"describe", {"de"}}).c_str());
    std::printf("describe nobody: %s\n", probe.call({"describe", {"nobody"}}).c_str());

    // What stands in the place of a kind is no kind.
    if (write(socket, "nonsense", 8) != 8) {
        return 1;
    }
    std::printf("nonsense: %s\n", probe.call(record).c_str());
}
