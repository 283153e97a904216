#include "XmlCalls.h"

#include <libxml/catalog.h>
#include <libxslt/extra.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <thread>

#include "NextDefinition.h"

namespace oxil::test {
namespace {

thread_local XmlCalls* current = nullptr;
std::atomic<MemoryCleanups*> cleanups{nullptr};
std::atomic<int> initialisations{0};
std::atomic<int> catalogs{0};
// Not every processor has atomic numbers of 8 bytes, as std::chrono::milliseconds has.
std::atomic<std::chrono::duration<int, std::milli>> xsltTime{{}};

}  // namespace

/** What the definitions below tell the recorder. */
struct XmlCallRecorder {
    static void parsing(xmlParserCtxtPtr context)
    {
        if (current == nullptr) {
            return;
        }
        ++current->__parsesBegun;
        current->__context.emplace(context);
        if (current->__beforeParsing) {
            current->__beforeParsing(context);
        }
    }

    static void parsed()
    {
        if (current != nullptr) {
            ++current->__parsesReturned;
        }
    }

    static void loaded(xmlDocPtr document)
    {
        if (current != nullptr) {
            current->__document = document;
        }
    }

    static void cleaningMemory()
    {
        if (current != nullptr) {
            ++current->__memoryCleanups;
        }
    }

    static void cleaningParser()
    {
        if (current != nullptr) {
            ++current->__parserCleanups;
        }
    }
};

XmlCalls::XmlCalls(const Hook& beforeParsing) : __beforeParsing(beforeParsing)
{
    if (current != nullptr) {
        std::abort();
    }
    current = this;
}

XmlCalls::~XmlCalls()
{
    current = nullptr;
}

MemoryCleanups::MemoryCleanups()
{
    if (cleanups.exchange(this) != nullptr) {
        std::abort();
    }
}

MemoryCleanups::~MemoryCleanups()
{
    cleanups = nullptr;
}

void MemoryCleanups::slowDown(std::chrono::milliseconds time)
{
    const std::lock_guard<std::mutex> lock(__mutex);
    __time = time;
}

int MemoryCleanups::count() const
{
    const std::lock_guard<std::mutex> lock(__mutex);
    return __count;
}

int MemoryCleanups::most() const
{
    const std::lock_guard<std::mutex> lock(__mutex);
    return __most;
}

void MemoryCleanups::enter()
{
    std::unique_lock<std::mutex> lock(__mutex);
    ++__count;
    __most = std::max(__most, ++__inside);
    __entered.notify_all();
    __entered.wait_for(lock, __time, [this] { return __inside > 1; });
}

void MemoryCleanups::leave()
{
    const std::lock_guard<std::mutex> lock(__mutex);
    --__inside;
}

int parserInitialisations()
{
    return initialisations;
}

int catalogInitialisations()
{
    return catalogs;
}

void slowDownXsltInitialisation(std::chrono::milliseconds time)
{
    xsltTime = time;
}

}  // namespace oxil::test

using oxil::test::catalogs;
using oxil::test::cleanups;
using oxil::test::initialisations;
using oxil::test::MemoryCleanups;
using oxil::test::real;
using oxil::test::XmlCallRecorder;
using oxil::test::xsltTime;

// Stand before those of libxml2, because a definition in the executable wins.
#pragma GCC visibility push(default)
extern "C" {

int xmlParseDocument(xmlParserCtxtPtr context)
{
    static auto* const parse = real<decltype(xmlParseDocument)>("xmlParseDocument");
    XmlCallRecorder::parsing(context);
    const int result = parse(context);
    XmlCallRecorder::parsed();
    return result;
}

xmlDocPtr xmlParseFile(const char* path)
{
    static auto* const parse = real<decltype(xmlParseFile)>("xmlParseFile");
    xmlDocPtr document = parse(path);
    XmlCallRecorder::loaded(document);
    return document;
}

void xmlCleanupMemory(void)
{
    static auto* const cleanUp = real<void()>("xmlCleanupMemory");
    XmlCallRecorder::cleaningMemory();
    MemoryCleanups* watching = cleanups;
    if (watching == nullptr) {
        cleanUp();
        return;
    }
    watching->enter();
    cleanUp();
    watching->leave();
}

void xmlInitParser(void)
{
    static auto* const init = real<decltype(xmlInitParser)>("xmlInitParser");
    ++initialisations;
    init();
}

void xmlInitializeCatalog(void)
{
    static auto* const init = real<decltype(xmlInitializeCatalog)>("xmlInitializeCatalog");
    ++catalogs;
    init();
}

void xsltRegisterAllExtras(void)
{
    static auto* const add = real<decltype(xsltRegisterAllExtras)>("xsltRegisterAllExtras");
    std::this_thread::sleep_for(xsltTime.load());
    add();
}

void xmlCleanupParser(void)
{
    static auto* const cleanUp = real<decltype(xmlCleanupParser)>("xmlCleanupParser");
    XmlCallRecorder::cleaningParser();
    cleanUp();
}

}  // extern "C"
#pragma GCC visibility pop
