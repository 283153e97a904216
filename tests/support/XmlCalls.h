#pragma once

#include <libxml/parser.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <optional>

#include "FreeObserver.h"

namespace oxil::test {

/**
 * Watches what this thread's code asks of libxml2 while it lives. At most one lives at a time on a
 * thread.
 */
class XmlCalls {
public:
    using Hook = std::function<void(xmlParserCtxtPtr context)>;

    /** @param beforeParsing  called with each parser context that is about to be run */
    explicit XmlCalls(const Hook& beforeParsing = nullptr);
    ~XmlCalls();

    XmlCalls(const XmlCalls&) = delete;
    XmlCalls& operator=(const XmlCalls&) = delete;

    /** How many parsers were run. */
    int parsesBegun() const { return __parsesBegun; }

    /** How many of them came back in the ordinary way, and not by an exception. */
    int parsesReturned() const { return __parsesReturned; }

    /** Whether the last parser context was freed. */
    bool isContextFreed() const { return __context && __context->count() > 0; }

    /** The document that the last xmlParseFile() returned. */
    xmlDocPtr document() const { return __document; }

    int memoryCleanups() const { return __memoryCleanups; }
    int parserCleanups() const { return __parserCleanups; }

private:
    friend struct XmlCallRecorder;

    Hook __beforeParsing;
    int __parsesBegun = 0;
    int __parsesReturned = 0;
    int __memoryCleanups = 0;
    int __parserCleanups = 0;
    xmlDocPtr __document = nullptr;
    std::optional<FreeObserver> __context;
};

/**
 * Watches the calls of xmlCleanupMemory() of all threads while it lives. At most one lives at a
 * time.
 */
class MemoryCleanups {
public:
    MemoryCleanups();
    ~MemoryCleanups();

    MemoryCleanups(const MemoryCleanups&) = delete;
    MemoryCleanups& operator=(const MemoryCleanups&) = delete;

    /** From now on each call is as slow as this, or until another one comes. */
    void slowDown(std::chrono::milliseconds time);

    int count() const;

    /** How many calls there were at the same time. */
    int most() const;

    void enter();
    void leave();

private:
    mutable std::mutex __mutex;
    std::condition_variable __entered;
    std::chrono::milliseconds __time{0};
    int __count = 0;
    int __inside = 0;
    int __most = 0;
};

/** How often xmlInitParser() was called since the process began. */
int parserInitialisations();

/** The same for xmlInitializeCatalog(), by others than libxml2 itself. */
int catalogInitialisations();

/** Lets libxslt's next initialisation take this time. */
void slowDownXsltInitialisation(std::chrono::milliseconds time);

}  // namespace oxil::test
