// The settings service: keeps the settings of the device. It is asked over its standard input and
// answers over its standard output, until that is closed.
//
// Usage: panel-service REGISTRY STORE
//
// Calls, each of which is answered by records:
//   get()                  one record of all settings
//   set(name, value, ...)  changes settings, keeps them in the file STORE, and answers as get()
//   layouts()              the keyboard layouts of the file REGISTRY: "value", "title"
//   check()                takes its time, and tells the newest "version" of the software
// What went wrong is a record with the entry "error".

#include <glib.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <list>
#include <string>
#include <vector>

#include <Oxil.h>

namespace panel {
namespace {

using namespace std::chrono_literals;
using Records = std::vector<oxil::KeyValues>;

class Service {
public:
    //! [load]
    Service(const std::string& registry, const std::string& store)
        : registry_(registry), store_(store)
    {
        std::ifstream file(store, std::ios::binary);
        const std::string message{std::istreambuf_iterator<char>(file), {}};
        oxil::KeyValues kept;
        if (!message.empty()) {  // as it is the first time
            oxil::WireDecoder::decode(message.data(), message.size(), kept);
        }
        for (const auto& [name, value] : kept) {
            change(name, value);  // or not: it may be of another version of the service
        }
    }
    //! [load]

    // Until the caller has closed its end, or sent something that is refused.
    void run()
    {
        channel_.open(
            0, 1, [this](const auto& call) { onCall(call); }, [this](int) { loop_.quit(); });
        loop_.run();
    }

private:
    //! [dispatch]
    void onCall(const oxil::SerializedData& call)
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
            answer(request, listLayouts());
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
    // Nobody is believed: a setting stays what it is, and keeps its kind.
    bool change(const std::string& name, const oxil::Variant& value)
    {
        return values_.contains(name) && values_.getValue(name).getType() == value.getType() &&
               values_.set(name, value) == oxil::STATUS_SUCCESS;
    }

    Records set(const std::vector<oxil::Variant>& params)
    {
        for (std::size_t i = 0; i + 1 < params.size(); i += 2) {
            const std::string name = params[i].toString();
            if (!change(name, params[i + 1])) {
                return {{{"error", "no such setting: " + name}}};
            }
        }
        // The file is replaced as a whole, so that half of one is never read.
        std::string message;
        oxil::WireEncoder::encode(values_, message);
        const auto size = static_cast<gssize>(message.size());
        if (!g_file_set_contents(store_.c_str(), message.data(), size, nullptr)) {
            return {{{"error", "not written: " + store_}}};
        }
        return {values_};
    }
    //! [set]

    //! [registry]
    // Each layout describes itself in a <configItem>.
    Records listLayouts() const
    {
        Records found;
        const auto document = oxil::XmlDocument::loadFile(registry_);
        const auto root = document != nullptr ? document->getRootElement() : oxil::XmlElement();
        for (const oxil::XmlElement layout : root.first("layoutList")) {
            const oxil::XmlElement item = layout.first("configItem");
            found.push_back({{"value", item.first("name").getText()},
                             {"title", item.first("description").getText()}});
        }
        return found.empty() ? Records{{{"error", "no layouts"}}} : found;
    }
    //! [registry]

    // Settings, and what they are when the device is new.
    oxil::KeyValues values_ = {
        {"brightness", 70},  {"adaptive", true},  {"sleep", "120"},           {"night", false},
        {"dark", false},     {"hue", 215},        {"language", "en"},         {"layout", "us"},
        {"clicks", true},    {"name", "Kitchen"}, {"server", "time.example"}, {"automatic", true},
        {"version", "1.4.2"}};
    const std::string registry_;
    const std::string store_;
    oxil::Channel channel_;
    std::list<oxil::Timer> timers_;
    oxil::WaitingLoop loop_;
};

}  // namespace
}  // namespace panel

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::fprintf(stderr, "usage: panel-service REGISTRY STORE\n");
        return 2;
    }
    panel::Service(argv[1], argv[2]).run();
}
