#pragma once

#include <libxml/globals.h>
#include <libxml/xmlerror.h>

namespace oxil::internal {

/** Where libxml2 keeps the last error of this thread, for who looks often: xmlGetLastError() takes
 *  longer to find it. */
const xmlError* lastEngineError();

/** Whether the last error of libxml2 on this thread is that it had no memory. */
bool hasEngineRunOut();

/**
 * Initialises libxml2 before this thread's first use of it: it does so itself, but not in all of
 * its functions, and not in a way that other threads could rely on.
 */
void initEngine();

/**
 * A thread's stay in libxml2, to read something. Stays nest.
 *
 * xmlCleanupMemory() takes something away that all threads share. So it is called by a thread that
 * is there alone, or else by the last one to leave.
 */
class EngineUse {
public:
    EngineUse();
    ~EngineUse();

    EngineUse(const EngineUse&) = delete;
    EngineUse& operator=(const EngineUse&) = delete;

    /** Has xmlCleanupMemory() called, now or as soon as no other thread is hurt by it. */
    void cleanUpMemory();
};

/**
 * Notices that libxml2 runs out of memory on this thread: it goes on then, and may call something
 * incomplete a success.
 *
 * The last error alone doesn't tell, since what is missing tends to cause others. So each is looked
 * at on its way to the handler of the application. Nothing of the application may run meanwhile
 * that would set another.
 */
class MemoryWatch {
public:
    MemoryWatch();
    ~MemoryWatch();

    MemoryWatch(const MemoryWatch&) = delete;
    MemoryWatch& operator=(const MemoryWatch&) = delete;

    bool hasRunOut() const { return __hasRunOut || hasEngineRunOut(); }

private:
    void __begin();
    void __end();
    template <typename Error>
    static void __passError(void* watch, Error* error);
    [[gnu::format(printf, 2, 3)]] static void __passMessage(void* watch, const char* format, ...);

    bool __hasRunOut = false;
    xmlStructuredErrorFunc __errorHandler = nullptr;
    void* __errorContext = nullptr;
    xmlGenericErrorFunc __messageHandler = nullptr;
    void* __messageContext = nullptr;
};

}  // namespace oxil::internal
