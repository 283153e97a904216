#include "internal/OxXmlEngine.h"

#include <libxml/catalog.h>
#include <libxml/parser.h>
#include <libxml/xmlmemory.h>

#include <cstdarg>
#include <cstdio>
#include <memory>
#include <mutex>
#include <new>

namespace oxil::internal {
namespace {

std::mutex useMutex;
int threads = 0;       // in the engine
bool cleanUp = false;  // once nobody is there any more

thread_local int depth = 0;

// Later versions deprecate these two; the first does nothing there.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

void cleanUpEngineMemory()
{
    cleanUp = false;
    xmlCleanupMemory();
}

}  // namespace

const xmlError* lastEngineError()
{
    return &xmlLastError;
}

#pragma GCC diagnostic pop

bool hasEngineRunOut()
{
    return lastEngineError()->code == XML_ERR_NO_MEMORY;
}

void initEngine()
{
    static const bool initialised = [] {
        xmlInitParser();
#ifdef LIBXML_CATALOG_ENABLED
        xmlInitializeCatalog();  // which the parser leaves to the first who looks something up
#endif
        return true;
    }();
    static_cast<void>(initialised);
}

EngineUse::EngineUse()
{
    initEngine();
    if (depth++ == 0) {
        const std::lock_guard<std::mutex> lock(useMutex);
        ++threads;
    }
}

EngineUse::~EngineUse()
{
    if (--depth > 0) {
        return;
    }
    const std::lock_guard<std::mutex> lock(useMutex);
    if (--threads == 0 && cleanUp) {
        cleanUpEngineMemory();
    }
}

void EngineUse::cleanUpMemory()
{
    const std::lock_guard<std::mutex> lock(useMutex);
    if (threads == 1) {
        cleanUpEngineMemory();
    } else {
        cleanUp = true;
    }
}

MemoryWatch::MemoryWatch()
{
    if (hasEngineRunOut()) {
        xmlResetLastError();  // that was before
    }
    __begin();
}

MemoryWatch::~MemoryWatch()
{
    __end();
}

void MemoryWatch::__begin()
{
    __errorHandler = xmlStructuredError;
    __errorContext = xmlStructuredErrorContext;
    __messageHandler = xmlGenericError;
    __messageContext = xmlGenericErrorContext;
    if (__errorHandler != nullptr) {
        xmlSetStructuredErrorFunc(this,
                                  [](void* watch, auto* error) { __passError(watch, error); });
    } else {
        xmlSetGenericErrorFunc(this, __passMessage);
    }
}

void MemoryWatch::__end()
{
    if (__errorHandler != nullptr) {
        xmlSetStructuredErrorFunc(__errorContext, __errorHandler);
    } else {
        xmlSetGenericErrorFunc(__messageContext, __messageHandler);
    }
}

// Handlers are called with everything as the application has set it: that of libxml2 itself, for
// one, writes to the context that is set, and not to the one that it is given.

template <typename Error>
void MemoryWatch::__passError(void* watch, Error* error)
{
    auto* self = static_cast<MemoryWatch*>(watch);
    self->__hasRunOut = self->__hasRunOut || error->code == XML_ERR_NO_MEMORY;
    self->__end();
    self->__errorHandler(self->__errorContext, error);
    self->__begin();
}

void MemoryWatch::__passMessage(void* watch, const char* format, ...)
{
    auto* self = static_cast<MemoryWatch*>(watch);
    self->__hasRunOut = self->hasRunOut();

    char text[1024];
    va_list arguments;
    va_start(arguments, format);
    const int length = std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    std::unique_ptr<char[]> whole;
    if (length >= static_cast<int>(sizeof text)) {
        const std::size_t size = static_cast<std::size_t>(length) + 1;
        whole.reset(new (std::nothrow) char[size]);
        if (whole != nullptr) {
            va_start(arguments, format);
            std::vsnprintf(whole.get(), size, format, arguments);
            va_end(arguments);
        }
    }
    self->__end();
    self->__messageHandler(self->__messageContext, "%s", whole != nullptr ? whole.get() : text);
    self->__begin();
}

}  // namespace oxil::internal
