// The settings service: answers method calls about keyboard layouts until its caller hangs up.
//
// Usage: picker-service EVDEV.XML SOCKET
//
// Calls:
//   list(country, page)          records of all layouts and variants, or, with a country, of its
//                                layouts, cut into pages
//   describe(layout) with a record of options: the layout's variants, at most "limit" of them
//
// An answer is a record about it ("method", "count", "pages", "repeatable", or "error") and, if
// the count is not 0, the list of records.

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include <Oxil.h>

#include "registry.h"
#include "transport.h"

namespace picker {
namespace {

class Service {
public:
    Service(std::vector<oxil::KeyValues> records, int socket)
        : records_(std::move(records)), socket_(socket)
    {
    }

    // Until there are no more calls. False if one was refused.
    bool run()
    {
        for (;;) {
            Message message;
            switch (receive(socket_, message)) {
                case Received::MESSAGE:
                    answer(message);
                    break;
                case Received::NOTHING_MORE:
                    return true;
                case Received::REFUSED:
                    std::fprintf(stderr, "picker-service: a message was refused\n");
                    return false;
            }
        }
    }

private:
    //! [dispatch]
    // A call is a name with parameters, and may come with a record of options.
    void answer(const Message& message)
    {
        oxil::SerializedData data(message.info);
        data.setData(message.bytes.data());

        oxil::KeyValues options;
        std::string method;
        std::vector<oxil::Variant> params;
        const int r = data.getBlockCount() == 3
                          ? oxil::Serializer::deserialize(data, options, method, params)
                          : oxil::Serializer::deserialize(data, method, params);

        if (r != oxil::STATUS_SUCCESS) {
            fail("this is no call");
        } else if (method == "list" && params.size() == 2) {
            list(params[0].toString(), params[1].toInt());
        } else if (method == "describe" && params.size() == 1) {
            describe(params[0].toString(), options);
        } else {
            fail("unknown method " + method);
        }
    }
    //! [dispatch]

    //! [list]
    // Records of different shapes would do here: the list describes each of them.
    void list(const std::string& country, int page)
    {
        std::vector<oxil::KeyValues> found;
        for (const oxil::KeyValues& record : records_) {
            if (country.empty() || isFor(record, country)) {
                found.push_back(record);
            }
        }
        if (found.empty()) {
            fail("no layout for " + country);
            return;
        }

        const int pageSize = oxil::Serializer::getSerializableCount(found.front());
        const int count = static_cast<int>(found.size());
        const int pages = (count + pageSize - 1) / pageSize;
        const int first = std::clamp(page, 0, pages - 1) * pageSize;
        const int last = std::min(first + pageSize, count);

        oxil::SerializedData data;
        const std::vector<oxil::KeyValues> records(found.begin() + first, found.begin() + last);
        if (oxil::Serializer::serialize(records, data) != oxil::STATUS_SUCCESS) {
            fail("the list can't be packed");
            return;
        }
        announce("list", last - first, pages, false);
        send(socket_, data);
    }
    //! [list]

    //! [describe]
    // All records have one shape, so one description serves for any number of them.
    void describe(const std::string& layout, const oxil::KeyValues& options)
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
        if (variants.empty()) {
            announce("describe", 0, 1, true);
            return;
        }

        oxil::SerializedData data;
        if (oxil::Serializer::serialize(variants, data, oxil::REPEATABLE) != oxil::STATUS_SUCCESS) {
            fail("the variants can't be packed");
            return;
        }
        announce("describe", static_cast<int>(variants.size()), 1, true);
        send(socket_, data);
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

    void announce(const std::string& method, int count, int pages, bool repeatable)
    {
        oxil::KeyValues answer;
        answer.add("method", method);
        answer.add("count", count);
        answer.add("pages", pages);
        answer.add("repeatable", repeatable);
        reply(answer);
    }

    void fail(const std::string& reason)
    {
        oxil::KeyValues answer;
        answer.add("error", reason);
        reply(answer);
    }

    void reply(const oxil::KeyValues& answer)
    {
        oxil::SerializedData data;
        oxil::Serializer::serialize(answer, data);
        send(socket_, data);
    }

    std::vector<oxil::KeyValues> records_;
    int socket_;
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
