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
#include <memory>
#include <string>
#include <vector>

#include <Oxil.h>

namespace panel {
namespace {

using namespace std::chrono_literals;
using Records = std::vector<oxil::KeyValues>;

class Service {
public:
    Service(const std::string& registry, const std::string& store, int socket)
        : registry_(oxil::XmlDocument::loadFile(registry)), store_(store)
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
        const unsigned int request = call.getContextId();
        std::string method;
        std::vector<oxil::Variant> params;
        if (oxil::Serializer::deserialize(call, method, params) != oxil::STATUS_SUCCESS) {
            answer(request, {{{"error", "this is no call"}}});
        } else if (method == "get") {
            answer(request, {values_});
        } else if (method == "set") {
            answer(request, set(params));
        } else if (method == "layouts") {
            answer(request, list(""));
        } else if (method == "variants" && params.size() == 1) {
            answer(request, list(params[0].toString()));
        } else if (method == "check") {
            // A device would ask somebody else here; others get their answers before this one.
            timers_.emplace_back().start(1500ms, [this, request] {
                answer(request, {{{"version", values_.get("version", "")}}});
            });
        } else {
            answer(request, {{{"error", "unknown method " + method}}});
        }
    }

    void answer(unsigned int request, const Records& records)
    {
        channel_.answer(request, {records, oxil::REPEATABLE});
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

    //! [registry]
    // All layouts, or the variants of one. Each describes itself in a <configItem>; without a
    // registry there is none.
    Records list(const std::string& wanted) const
    {
        Records found;
        const auto add = [&](oxil::XmlElement item) {
            found.push_back({{"value", item.first("name").getText()},
                             {"title", item.first("description").getText()}});
        };
        const auto root = registry_ != nullptr ? registry_->getRootElement() : oxil::XmlElement();
        for (const oxil::XmlElement layout : root.first("layoutList")) {
            const oxil::XmlElement item = layout.first("configItem");
            if (wanted.empty()) {
                add(item);
            } else if (item.first("name").getText() == wanted) {
                for (const oxil::XmlElement variant : layout.first("variantList")) {
                    add(variant.first("configItem"));
                }
            }
        }
        return found.empty() ? Records{{{"error", "no layouts"}}} : found;
    }
    //! [registry]

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
    const std::unique_ptr<oxil::XmlDocument> registry_;
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
