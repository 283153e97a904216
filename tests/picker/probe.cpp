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
#include "transport.h"

namespace {

// What the service answers to a message that has been sent.
std::string receiveAnswer(int socket)
{
    picker::Message message;
    if (receive(socket, message) != picker::Received::MESSAGE) {
        return "no answer";
    }
    oxil::SerializedData data(message.info);
    data.setData(message.bytes.data());
    oxil::KeyValues answer;
    oxil::Serializer::deserialize(data, answer);
    if (answer.getKey(0) == "error") {
        return answer.getValue("error").toString();
    }

    std::vector<oxil::KeyValues> records;
    picker::Message list;
    if (answer.getValue("count").toInt() > 0 &&
        receive(socket, list) == picker::Received::MESSAGE) {
        oxil::SerializedData bytes(list.info);
        bytes.setData(list.bytes.data());
        oxil::Serializer::deserialize(bytes, records, oxil::REPEATABLE);
    }
    return std::to_string(records.size()) + " records of one shape";
}

std::string call(int socket, const std::string& method, const std::vector<oxil::Variant>& params)
{
    oxil::SerializedData data;
    oxil::Serializer::serialize(method, params, data);
    return picker::send(socket, data) ? receiveAnswer(socket) : "not sent";
}

}  // namespace

int main(int argc, char** argv)
{
    int ends[2];
    if (argc != 2 || !picker::connect(ends)) {
        std::fprintf(stderr, "usage: picker-probe EVDEV.XML\n");
        return 2;
    }
    const picker::ServiceProcess service(picker::getServiceProgram(argv[0]), argv[1], ends[1]);
    const int socket = ends[0];

    std::printf("forget: %s\n", call(socket, "forget", {1}).c_str());
    std::printf("list without a page: %s\n", call(socket, "list", {"DE"}).c_str());

    oxil::KeyValues record;
    record.add("name", "nobody asked");
    oxil::SerializedData data;
    oxil::Serializer::serialize(record, data);
    picker::send(socket, data);
    std::printf("a record: %s\n", receiveAnswer(socket).c_str());

    std::printf("describe de: %s\n", call(socket, "describe", {"de"}).c_str());
    std::printf("describe nobody: %s\n", call(socket, "describe", {"nobody"}).c_str());

    oxil::SerializationInfo nonsense = data.getSerializationInfo();
    nonsense.types[0][0] = 99;
    if (write(socket, &nonsense, sizeof nonsense) < 0 ||
        write(socket, data.getData(), static_cast<std::size_t>(data.getTotalDataSize())) < 0) {
        return 1;
    }
    std::printf("nonsense: %s\n", receiveAnswer(socket).c_str());
    close(socket);
}
