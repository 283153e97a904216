// The settings service: answers method calls about keyboard layouts until its caller hangs up.
//
// Usage: picker-service EVDEV.XML SOCKET
//
// Calls:
//   list(country, page)          records of all layouts and variants, or, with a country, of its
//                                layouts, cut into pages
//   describe(layout) with a record of options: the layout's variants, at most "limit" of them
//
// Records come in a message of their own, and then the answer: a record that tells about them
// ("count", "pages"), or what went wrong ("error").

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include <Oxil.h>

#include "registry.h"

namespace picker {
namespace {

class Service {
public:
    Service(std::vector<oxil::KeyValues> records, int socket) : records_(std::move(records))
    {
        channel_.open(
            socket, [this](const oxil::SerializedData& call) { answer(call); },
            [this](int status) {
                status_ = status;
                loop_.quit();
            });
    }

    // Until its caller hangs up. False if a message was refused.
    bool run()
    {
        loop_.run();
        if (status_ != oxil::STATUS_SUCCESS) {
            std::fprintf(stderr, "picker-service: the connection has failed\n");
        }
        return status_ == oxil::STATUS_SUCCESS;
    }

private:
    //! [dispatch]
    // A call is a name with parameters, and may come with a record of options.
    void answer(const oxil::SerializedData& call)
    {
        oxil::KeyValues options;
        std::string method;
        std::vector<oxil::Variant> params;
        const int r = call.getBlockCount() == 3
                          ? oxil::Serializer::deserialize(call, options, method, params)
                          : oxil::Serializer::deserialize(call, method, params);

        oxil::KeyValues result;
        if (r != oxil::STATUS_SUCCESS) {
            result.add("error", "this is no call");
        } else if (method == "list" && params.size() == 2) {
            result = list(params[0].toString(), params[1].toInt());
        } else if (method == "describe" && params.size() == 1) {
            result = describe(params[0].toString(), options);
        } else {
            result.add("error", "unknown method " + method);
        }
        channel_.answer(call.getContextId(), result);
    }
    //! [dispatch]

    //! [list]
    // Records of different shapes would do here: the list describes each of them.
    oxil::KeyValues list(const std::string& country, int page)
    {
        oxil::KeyValues result;
        std::vector<oxil::KeyValues> found;
        for (const oxil::KeyValues& record : records_) {
            if (country.empty() || isFor(record, country)) {
                found.push_back(record);
            }
        }
        if (found.empty()) {
            result.add("error", "no layout for " + country);
            return result;
        }

        const int pageSize = oxil::Serializer::getSerializableCount(found.front());
        const int count = static_cast<int>(found.size());
        const int pages = (count + pageSize - 1) / pageSize;
        const int first = std::clamp(page, 0, pages - 1) * pageSize;
        const int last = std::min(first + pageSize, count);

        const std::vector<oxil::KeyValues> records(found.begin() + first, found.begin() + last);
        if (channel_.send(records) != oxil::STATUS_SUCCESS) {
            result.add("error", "the list can't be sent");
            return result;
        }
        result.add("count", last - first);
        result.add("pages", pages);
        return result;
    }
    //! [list]

    //! [describe]
    // All records have one shape, so one description serves for any number of them.
    oxil::KeyValues describe(const std::string& layout, const oxil::KeyValues& options)
    {
        const std::size_t limit = options.getIndex("limit") < options.getCount()
                                      ? static_cast<std::size_t>(options.getValue("limit").toInt())
                                      : records_.size();
        std::vector<oxil::KeyValues> variants;
        for (const oxil::KeyValues& record : records_) {
            if (record.getValue("layout").toString() == layout &&
                !record.getValue("variant").toString().empty() && variants.size() < limit) {
                variants.push_back(record);
            }
        }

        oxil::KeyValues result;
        if (!variants.empty() &&
            channel_.send({variants, oxil::REPEATABLE}) != oxil::STATUS_SUCCESS) {
            result.add("error", "the variants can't be sent");
            return result;
        }
        result.add("count", static_cast<int>(variants.size()));
        result.add("pages", 1);
        return result;
    }
    //! [describe]

    static bool isFor(const oxil::KeyValues& record, const std::string& country)
    {
        const std::string countries = record.getValue("countries").toString();
        if (countries.empty()) {
            return false;
        }
        const std::vector<std::string> codes = oxil::StringUtil::getTokens(countries, " ");
        return std::find(codes.begin(), codes.end(), country) != codes.end();
    }

    std::vector<oxil::KeyValues> records_;
    oxil::Channel channel_;
    oxil::WaitingLoop loop_;
    int status_ = oxil::STATUS_SUCCESS;
};

}  // namespace
}  // namespace picker

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::fprintf(stderr, "usage: picker-service EVDEV.XML SOCKET\n");
        return 2;
    }
    std::vector<oxil::KeyValues> records = picker::readRegistry(argv[1]);
    if (records.empty()) {
        return 1;
    }
    picker::Service service(std::move(records), oxil::NumberParser::toInt(argv[2]));
    return service.run() ? 0 : 1;
}
