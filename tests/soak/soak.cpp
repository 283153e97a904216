// Does what a device does for months, in minutes, and looks what is left of it:
//
// oxil-soak [--percent N] [NAME...]
//
// Each row is done in tenths. The first one warms up; what the process holds behind it is compared
// with what it holds behind the last one. It may have grown by what the library says that it gives
// up, and by a little that doesn't depend on the number of rounds. The exit status is 1 if anything
// has grown by more, and 3 if something went wrong on the way.

#include <dirent.h>
#include <malloc.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include <OxPlatform.h>
#include <Oxil.h>

// What is done here goes well. A line of the log means that something else was measured.
[[gnu::format(printf, 4, 5)]] int __dlog_print(int /*logId*/, int /*priority*/, const char* /*tag*/,
                                               const char* format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    std::vfprintf(stderr, format, arguments);
    va_end(arguments);
    std::fputc('\n', stderr);
    std::_Exit(3);
}

namespace {

using namespace std::chrono_literals;
using oxil::STATUS_SUCCESS;

void require(bool condition, const char* text)
{
    if (!condition) {
        std::fprintf(stderr, "\noxil-soak: %s\n", text);
        std::_Exit(3);
    }
}

// ---- What the process holds ---------------------------------------------------------------------

struct Holdings {
    long long heap;      // bytes that were asked for and not given back
    long long resident;  // bytes of memory that the process really has
    long long descriptors;
};

long long countDescriptors()
{
    const std::unique_ptr<DIR, int (*)(DIR*)> folder(opendir("/proc/self/fd"), closedir);
    require(folder != nullptr, "there is no /proc");
    long long count = 0;
    while (readdir(folder.get()) != nullptr) {
        ++count;
    }
    return count;
}

Holdings look()
{
    malloc_trim(0);
    const struct mallinfo2 heap = mallinfo2();
    long long pages = 0;
    long long residentPages = 0;
    std::ifstream statm("/proc/self/statm");
    statm >> pages >> residentPages;
    require(!statm.fail(), "there is no /proc");
    return {static_cast<long long>(heap.uordblks + heap.hblkhd),
            residentPages * sysconf(_SC_PAGESIZE), countDescriptors()};
}

// malloc() keeps some blocks that were given back for the next who asks, and counts them as taken:
// up to 7 of each small size.
constexpr long long HEAP_SLACK = 128 * 1024;

// Blocks that stay keep the pages around them, and libraries load what they need when they do. An
// emulator may keep a megabyte of each thread that has ended.
constexpr long long RESIDENT_SLACK = (OXIL_EMULATED ? 16 : 4) * 1024 * 1024;

// ---- Files --------------------------------------------------------------------------------------

/** A file that is there as long as this object is. */
class File {
public:
    explicit File(const std::string& content)
    {
        const char* folder = std::getenv("TMPDIR");
        __path = std::string(folder != nullptr ? folder : "/tmp") + "/oxil-soak-XXXXXX";
        const int descriptor = mkstemp(__path.data());
        require(descriptor != -1, "no temporary file");
        close(descriptor);
        std::ofstream file(__path);
        file << content;
        require(bool(file.flush()), "temporary file not written");
    }

    ~File() { unlink(__path.c_str()); }

    File(const File&) = delete;
    File& operator=(const File&) = delete;

    const std::string& path() const { return __path; }

private:
    std::string __path;
};

// ---- The rows -----------------------------------------------------------------------------------

/** Does something so many times; whatever it needs for that lives as long as it does. */
using Work = std::function<void(int rounds)>;

/** Runs the main loop until something is no longer less than it is to become. */
class Until {
public:
    /** To be called for each step. */
    void count()
    {
        if (++__done == __wanted) {
            __loop.quit();
        }
    }

    /** Returns when count() was called so many times more. */
    void wait(int count)
    {
        __wanted = __done + count;
        require(__loop.run(60000) == STATUS_SUCCESS && __done == __wanted, "it takes too long");
    }

private:
    oxil::WaitingLoop __loop;
    int __done = 0;
    int __wanted = 0;
};

/** The same in portions that fit into memory. */
template <typename Portion>
void inPortions(int rounds, int size, const Portion& portion)
{
    for (int done = 0; done < rounds; done += size) {
        portion(std::min(size, rounds - done));
    }
}

Work startTimers()
{
    return [](int rounds) {
        for (int i = 0; i < rounds; ++i) {
            oxil::Timer timer;
            require(timer.start(1h, [i] { require(i < 0, "an hour is over"); }) == STATUS_SUCCESS,
                    "timer not started");
        }
    };
}

Work fireOnce()
{
    return [](int rounds) {
        Until until;
        inPortions(rounds, 1000, [&until](int count) {
            std::vector<oxil::Timer> timers(static_cast<std::size_t>(count));
            for (oxil::Timer& timer : timers) {
                timer.start(0, [&until] { until.count(); });
            }
            until.wait(count);
        });
    };
}

Work fireAgain()
{
    return [](int rounds) {
        Until until;
        oxil::Timer timer;
        timer.start(
            0, [&until] { until.count(); }, oxil::REPEATABLE);
        until.wait(rounds);
    };
}

Work failInTimers()
{
    auto file = std::make_shared<File>(R"(
        function boom() error("boom") end
        local timer = Timer.start(0, "boom", true)
        function stop() Timer.stop(timer) end
    )");
    return [file](int rounds) {
        // Each error leaves its message on the stack of its script.
        inPortions(rounds, 1000, [&file](int count) {
            Until until;
            oxil::LuaScript script(file->path());
            script.setErrorHandler(
                [&until](const std::string&, const std::string& message, const std::string&) {
                    require(message.find("boom") != std::string::npos, message.c_str());
                    until.count();
                });
            require(script.load() == STATUS_SUCCESS, "script not loaded");
            until.wait(count);
            script.callMethod("stop", std::tie());
        });
    };
}

Work runScripts()
{
    auto file = std::make_shared<File>(R"(
        local rooms = {}
        for i = 1, 100 do rooms[i] = { name = "room" .. i } end
        function find(number)
            local timer = Timer.start(3600000, "find", false)
            Timer.stop(timer)
            return rooms[number].name
        end
    )");
    return [file](int rounds) {
        for (int i = 0; i < rounds; ++i) {
            oxil::LuaScript script(file->path());
            std::string name;
            require(script.load() == STATUS_SUCCESS &&
                        script.callMethod("find", std::tie(name), 7) == STATUS_SUCCESS &&
                        name == "room7",
                    "script not run");
        }
    };
}

std::string makeDocument()
{
    std::string text = "<rooms>\n";
    for (int i = 0; i < 20; ++i) {
        text += "  <room name='room" + std::to_string(i) + "'>lit &amp; warm</room>\n";
    }
    return text + "</rooms>\n";
}

Work readDocuments()
{
    auto file = std::make_shared<File>(makeDocument());
    return [file](int rounds) {
        for (int i = 0; i < rounds; ++i) {
            int rooms = 0;
            oxil::Xml xml(file->path());
            xml.setOnEndElement([&rooms](const std::string&) { ++rooms; });
            require(xml.read(oxil::EXACT_TEXT) == STATUS_SUCCESS && rooms == 21, "not read");

            const std::unique_ptr<oxil::XmlDocument> tree(xml.load());
            require(tree != nullptr, "not loaded");
            for (const oxil::XmlElement& room : tree->getRootElement()) {
                require(!room.getAttribute("name").empty(), "no name");
            }
        }
    };
}

Work transformDocuments()
{
    auto document = std::make_shared<File>(makeDocument());
    auto sheet = std::make_shared<File>(
        "<s:stylesheet version='1.0' xmlns:s='http://www.w3.org/1999/XSL/Transform'>"
        "<s:template match='/'><names><s:for-each select='rooms/room'>"
        "<name><s:value-of select='@name'/></name></s:for-each></names></s:template>"
        "</s:stylesheet>");
    auto output = std::make_shared<File>("");
    return [document, sheet, output](int rounds) {
        for (int i = 0; i < rounds; ++i) {
            oxil::XmlStyleSheet styleSheet(sheet->path());
            const auto source = oxil::XmlDocument::loadFile(document->path());
            require(source != nullptr && styleSheet.load() == STATUS_SUCCESS, "not loaded");
            const auto result = styleSheet.transform(*source);
            require(result != nullptr, "not transformed");
            result->setOutputFilePath(output->path());
            require(result->write() == STATUS_SUCCESS, "not written");
        }
    };
}

oxil::KeyValues makeRecord(int number)
{
    return {{"number", number},
            {"name", "a name that takes memory of its own"},
            {"level", 0.5},
            {"on", true}};
}

Work packRecords()
{
    return [](int rounds) {
        for (int i = 0; i < rounds; ++i) {
            const oxil::KeyValues record = makeRecord(i);
            oxil::SerializedData data;
            require(oxil::Serializer::serialize(record, data) == STATUS_SUCCESS, "not packed");
            oxil::SerializedData received(data.getSerializationInfo());
            received.setData(static_cast<const void*>(data.getData()));
            oxil::KeyValues copy;
            require(
                oxil::Serializer::deserialize(received, copy) == STATUS_SUCCESS && copy == record,
                "not unpacked");
        }
    };
}

/** Two ends of a connection. Every tenth message is a request. */
struct Connection {
    Connection()
    {
        int ends[2] = {-1, -1};
        require(socketpair(AF_UNIX, SOCK_STREAM, 0, ends) == 0, "no sockets");
        const auto onClosed = [](int) { require(false, "connection closed"); };
        near.open(
            ends[0], [](const oxil::SerializedData&) {}, onClosed);
        far.open(
            ends[1],
            [this](const oxil::SerializedData& message) {
                if (message.getContextId() != 0) {
                    require(far.answer(message.getContextId(), makeRecord(0)) == STATUS_SUCCESS,
                            "not answered");
                } else {
                    until.count();
                }
            },
            onClosed);
    }

    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    void exchange(int count)
    {
        for (int i = 0; i < count; ++i) {
            const int status =
                i % 10 != 0 ? near.send(makeRecord(i))
                            : near.request(makeRecord(i), 1min, [this](int result, const auto&) {
                                  require(result == STATUS_SUCCESS, "no answer");
                                  until.count();
                              });
            require(status == STATUS_SUCCESS, "not sent");
        }
        until.wait(count);
    }

    Until until;
    oxil::Channel near;
    oxil::Channel far;
};

Work exchangeMessages()
{
    auto connection = std::make_shared<Connection>();
    return [connection](int rounds) {
        inPortions(rounds, 1000, [&](int count) { connection->exchange(count); });
    };
}

Work connectAndClose()
{
    return [](int rounds) {
        for (int i = 0; i < rounds; ++i) {
            Connection().exchange(2);
        }
    };
}

Work handOver()
{
    return [](int rounds) {
        Until until;
        oxil::CallQueue queue;
        inPortions(rounds, 10000, [&](int count) {
            std::thread thread([&until, count, sender = queue.getSender()] {
                for (int i = 0; i < count; ++i) {
                    sender.post([&until] { until.count(); });
                }
            });
            until.wait(count);
            thread.join();
        });
    };
}

// To see whether it is noticed.

Work leakBytes()
{
    return [](int rounds) {
        static void* volatile lost = nullptr;
        for (int i = 0; i < rounds; ++i) {
            lost = std::malloc(16);
        }
        static_cast<void>(lost);
    };
}

Work leakDescriptors()
{
    return [](int rounds) {
        for (int i = 0; i < rounds; ++i) {
            require(dup(STDERR_FILENO) != -1, "no descriptor");
        }
    };
}

// ---- The table ----------------------------------------------------------------------------------

struct Row {
    const char* name;
    const char* description;
    int rounds;
    Work (*prepare)();
    long long stated = 0;    ///< bytes that each round gives up, as its header says
    bool isExpected = true;  ///< to be flat
};

/** What malloc() takes for the cell that a timer gives up when it fires once: four words, or six
 *  where it fills a gap of so many. */
constexpr long long TIMER_CELL = 5 * sizeof(void*);

constexpr Row ROWS[] = {
    {"timers", "timers armed, and destroyed", 1000000, startTimers},
    {"once", "timers that fire once", 1000000, fireOnce, TIMER_CELL},
    {"again", "expiries of a timer that repeats", 1000000, fireAgain},
    {"failing", "failing functions of Lua timers", 1000000, failInTimers},
    {"scripts", "scripts made, run, and destroyed", 20000, runScripts},
    {"documents", "documents read as events and as trees", 100000, readDocuments},
    {"stylesheets", "documents transformed, and written", 20000, transformDocuments},
    {"records", "records packed and unpacked", 1000000, packRecords},
    {"messages", "messages over a channel", 1000000, exchangeMessages},
    {"connections", "channels opened, used, and closed", 20000, connectAndClose},
    {"calls", "functions from another thread", 1000000, handOver},
    {"leaked-bytes", "blocks of memory given up", 1000000, leakBytes, 0, false},
    {"leaked-descriptors", "descriptors given up", 500, leakDescriptors, 0, false},
};

constexpr int PARTS = 10;

/** Prints its line; false if something has grown. */
bool soak(const Row& row, int percent)
{
    const int part = std::max(row.rounds / 100 * percent / PARTS, 1);
    std::fprintf(stderr, "%s:", row.name);
    const auto start = std::chrono::steady_clock::now();
    const Work work = row.prepare();
    Holdings before{};
    Holdings after{};
    for (int i = 1; i <= PARTS; ++i) {
        work(part);
        after = look();
        if (i == 1) {
            before = after;
        }
        std::fprintf(stderr, " %d %%", 100 * i / PARTS);
    }
    std::fputc('\n', stderr);
    const std::chrono::duration<double> time = std::chrono::steady_clock::now() - start;

    const long long stated = row.stated * part * (PARTS - 1);
    const Holdings growth{after.heap - before.heap, after.resident - before.resident,
                          after.descriptors - before.descriptors};
    const bool isFlat = growth.heap <= stated + HEAP_SLACK &&
                        growth.resident <= stated + RESIDENT_SLACK && growth.descriptors == 0;
    std::printf("%-18s %-38s %8d %7.1f %10lld %10lld %10lld %4lld  %s\n", row.name, row.description,
                part * PARTS, time.count(), stated, growth.heap, growth.resident,
                growth.descriptors, isFlat ? "flat" : "GROWS");
    return isFlat;
}

bool isChosen(const Row& row, const std::vector<std::string>& names)
{
    return names.empty() ? row.isExpected
                         : std::find(names.begin(), names.end(), row.name) != names.end();
}

}  // namespace

int main(int argc, char** argv)
{
    int percent = 100;
    std::vector<std::string> names;
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--percent") == 0 && i + 1 < argc) {
            percent = std::atoi(argv[++i]);
        } else {
            names.push_back(argv[i]);
        }
    }
    require(percent >= 1 && percent <= 100, "--percent takes a number from 1 to 100");
    for (const std::string& name : names) {
        require(std::any_of(std::begin(ROWS), std::end(ROWS),
                            [&name](const Row& row) { return row.name == name; }),
                ("there is no " + name).c_str());
    }

    std::printf("%-18s %-38s %8s %7s %10s %10s %10s %4s\n", "",
                "growth behind the first tenth:", "rounds", "seconds", "stated", "heap", "resident",
                "fds");
    bool isFlat = true;
    for (const Row& row : ROWS) {
        if (isChosen(row, names)) {
            isFlat = soak(row, percent) && isFlat;
        }
    }
    return isFlat ? 0 : 1;
}
