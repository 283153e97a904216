// The picker: a script asks the settings service for keyboard layouts, and a page shows them.
//
// Usage: picker [--country CODE] [--cards N] [--variants N] [--service PROGRAM]
//               EVDEV.XML FOLDER PAGE.HTML
// FOLDER holds picker.lua and page.xsl; the service's program lies beside this one.
//
// Prints, for the registry of Debian 12:
//   578 records in 3 pages, 99 layouts, 30 ms
//   and where the page is
// The time differs, of course.

#include <chrono>
#include <cstdio>
#include <string>

#include <Oxil.h>

#include "client.h"
#include "page.h"
#include "page_api.h"
#include "service_process.h"
#include "settings_api.h"

namespace picker {
namespace {

void printError(const std::string& function, const std::string& message,
                const std::string& traceback)
{
    std::fprintf(stderr, "%s: %s\n%s\n", function.c_str(), message.c_str(), traceback.c_str());
}

struct Options {
    std::string country;
    int cards = 12;
    int variants = 6;
    std::string service;
    std::string registry;
    std::string folder;
    std::string page;
};

//! [options]
// Everything that is no option is a path; numbers are read leniently.
bool readOptions(int argc, char** argv, Options& options)
{
    std::string* paths[] = {&options.registry, &options.folder, &options.page};
    int path = 0;
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        const bool isOption = argument.rfind("--", 0) == 0;
        if (isOption && i + 1 == argc) {
            return false;
        }
        if (argument == "--country") {
            options.country = argv[++i];
        } else if (argument == "--cards") {
            options.cards = oxil::NumberParser::toInt(argv[++i]);
        } else if (argument == "--variants") {
            options.variants = oxil::NumberParser::toInt(argv[++i]);
        } else if (argument == "--service") {
            options.service = argv[++i];
        } else if (!isOption && path < 3) {
            *paths[path++] = argument;
        } else {
            return false;
        }
    }
    return path == 3;
}
//! [options]

int run(const std::string& program, const Options& options)
{
    using Clock = std::chrono::steady_clock;
    const Clock::time_point start = Clock::now();

    const ServiceProcess service(
        options.service.empty() ? getServiceProgram(program) : options.service, options.registry);
    if (!service.isStarted()) {
        std::fprintf(stderr, "picker: the settings service can't be started\n");
        return 1;
    }

    //! [script]
    SettingsClient client(service.getSocket());
    Page page;
    SettingsApi settings(client);
    PageApi pages(page);

    oxil::LuaScript script(options.folder + "/picker.lua");
    script.setErrorHandler(printError);
    script.addLuaApi(&settings);
    script.addLuaApi(&pages);
    if (script.load() != oxil::STATUS_SUCCESS) {
        return 1;
    }
    std::string complaint;
    int records = 0;
    int layouts = 0;
    int pageCount = 0;
    script.callMethod("pick", std::tie(complaint, records, layouts, pageCount), options.country,
                      options.cards, options.variants);
    if (!complaint.empty()) {
        std::fprintf(stderr, "picker: %s\n", complaint.c_str());
        return 1;
    }
    //! [script]

    if (page.write(options.folder + "/page.xsl", options.page) != oxil::STATUS_SUCCESS) {
        std::fprintf(stderr, "picker: the page can't be written\n");
        return 1;
    }
    const auto time =
        std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
    std::printf("%d records in %d pages, %d layouts, %lld ms\n", records, pageCount, layouts,
                static_cast<long long>(time));
    std::printf("The page is in %s\n", options.page.c_str());
    return 0;
}

}  // namespace
}  // namespace picker

int main(int argc, char** argv)
{
    picker::Options options;
    if (!picker::readOptions(argc, argv, options)) {
        std::fprintf(stderr,
                     "usage: picker [--country CODE] [--cards N] [--variants N] "
                     "[--service PROGRAM] EVDEV.XML FOLDER PAGE.HTML\n");
        return 2;
    }
    return picker::run(argv[0], options);
}
