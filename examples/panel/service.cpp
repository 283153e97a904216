// The settings service: keeps the settings of the device, until its caller hangs up.
//
// Usage: panel-service REGISTRY STORE SOCKET
//
// Calls, each of which is answered by records of one shape:
//   get()                       one record of all settings
//   set(name, value, ...)       changes settings, and keeps them in the file STORE
//   layouts()                   keyboard layouts: "value", "title"
//   variants(layout)            the variants of a layout: "value", "title"
//   check()                     takes its time, and tells the newest "version" of the software
// What went wrong is a record with the entry "error".

#include <cstdio>
#include <fstream>
#include <iterator>
#include <list>
#include <string>
#include <vector>

#include <Oxil.h>

#include "registry.h"

namespace panel {
namespace {

using namespace std::chrono_literals;
using Records = std::vector<oxil::KeyValues>;

class Service {
public:
    Service(const std::string& registry, const std::string& store, int socket)
        : layouts_(readRegistry(registry)), store_(store)
    {
        load();
        channel_.open(
            socket, [this](const oxil::SerializedData& call) { answer(call); },
            [this](int status) {
                status_ = status;
                loop_.quit();
            });
    }

    // False if the caller sent something that is refused.
    bool run()
    {
        loop_.run();
        return status_ == oxil::STATUS_SUCCESS;
    }

private:
    //! [dispatch]
    void answer(const oxil::SerializedData& call)
    {
        std::string method;
        std::vector<oxil::Variant> params;
        Records result = {{{"error", "this is no call"}}};
        if (oxil::Serializer::deserialize(call, method, params) != oxil::STATUS_SUCCESS) {
            // as it is
        } else if (method == "get") {
            result = {values_};
        } else if (method == "set") {
            result = set(params);
        } else if (method == "layouts") {
            result = list("");
        } else if (method == "variants" && params.size() == 1) {
            result = list(params[0].toString());
        } else if (method == "check") {
            return check(call.getContextId());
        } else {
            result = {{{"error", "unknown method " + method}}};
        }
        channel_.answer(call.getContextId(), {result, oxil::REPEATABLE});
    }
    //! [dispatch]

    //! [set]
    // Who asks is not believed: a setting stays what it is, and keeps its kind.
    Records set(const std::vector<oxil::Variant>& params)
    {
        for (std::size_t i = 0; i + 1 < params.size(); i += 2) {
            const std::string name = params[i].toString();
            if (!values_.contains(name) ||
                values_.getValue(name).getType() != params[i + 1].getType()) {
                return {{{"error", "no such setting: " + name}}};
            }
            values_.set(name, params[i + 1]);
        }
        return {{{save() ? "saved" : "error", store_}}};
    }
    //! [set]

    // All layouts, or the variants of one.
    Records list(const std::string& layout) const
    {
        Records found;
        for (const oxil::KeyValues& record : layouts_) {
            const std::string variant = record.get("value", "");
            if (layout.empty() && variant.empty()) {
                found.push_back(
                    {{"value", record.get("layout", "")}, {"title", record.get("title", "")}});
            } else if (!variant.empty() && record.get("layout", "") == layout) {
                found.push_back({{"value", variant}, {"title", record.get("title", "")}});
            }
        }
        if (found.empty()) {
            found = {{{"error", "no layouts"}}};
        }
        return found;
    }

    // A device would ask somebody else here; the answer comes later, and others before it.
    void check(unsigned int request)
    {
        timers_.emplace_back().start(1500ms, [this, request] {
            const Records newest = {{{"version", values_.get("version", "")}}};
            channel_.answer(request, {newest, oxil::REPEATABLE});
        });
    }

    //! [store]
    // A file is replaced as a whole, so that half of one is never read.
    bool save() const
    {
        std::string message;
        if (oxil::WireEncoder::encode(values_, message) != oxil::STATUS_SUCCESS) {
            return false;
        }
        std::ofstream file(store_ + ".new", std::ios::binary);
        file << message;
        file.close();
        return file.good() && std::rename((store_ + ".new").c_str(), store_.c_str()) == 0;
    }

    void load()
    {
        std::ifstream file(store_, std::ios::binary);
        const std::string message{std::istreambuf_iterator<char>(file), {}};
        oxil::KeyValues kept;
        if (message.empty() || oxil::WireDecoder::decode(message.data(), message.size(), kept) !=
                                   oxil::STATUS_SUCCESS) {
            return;  // it is the first time, or the log tells why
        }
        for (const auto& [name, value] : kept) {
            values_.set(name, value);
        }
    }
    //! [store]

    // Settings, and what they are when the device is new.
    oxil::KeyValues values_ = {{"brightness", 70},  {"adaptive", true},
                               {"sleep", "120"},    {"night", false},
                               {"dark", false},     {"hue", 215},
                               {"language", "en"},  {"volume", 45},
                               {"mute", false},     {"clicks", true},
                               {"layout", "us"},    {"variant", ""},
                               {"name", "Kitchen"}, {"server", "time.example"},
                               {"automatic", true}, {"version", "1.4.2"}};
    const Records layouts_;
    const std::string store_;
    oxil::Channel channel_;
    std::list<oxil::Timer> timers_;
    oxil::WaitingLoop loop_;
    int status_ = oxil::STATUS_SUCCESS;
};

}  // namespace
}  // namespace panel

int main(int argc, char** argv)
{
    if (argc != 4) {
        std::fprintf(stderr, "usage: panel-service REGISTRY STORE SOCKET\n");
        return 2;
    }
    panel::Service service(argv[1], argv[2], oxil::NumberParser::toInt(argv[3]));
    return service.run() ? 0 : 1;
}
