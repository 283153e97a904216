#include "EngineMemoryFailure.h"

#include <libxml/xmlmemory.h>

#include <cstdlib>
#include <cstring>

namespace oxil::test {
namespace {

thread_local int remaining = 0;  // 0: nothing is to fail
thread_local bool failed = false;

bool isRefused()
{
    if (remaining > 0 && --remaining == 0) {
        failed = true;
        return true;
    }
    return false;
}

void* allocate(std::size_t size)
{
    return isRefused() ? nullptr : std::malloc(size);
}

void* reallocate(void* memory, std::size_t size)
{
    return isRefused() ? nullptr : std::realloc(memory, size);
}

char* duplicate(const char* text)
{
    return isRefused() ? nullptr : strdup(text);
}

}  // namespace

EngineMemoryFailure::EngineMemoryFailure(int nth)
{
    // They stay: what they hand out is no different from what libxml2 had before.
    static const int r = xmlMemSetup(std::free, allocate, reallocate, duplicate);
    if (r != 0) {
        std::abort();
    }
    failed = false;
    remaining = nth;
}

EngineMemoryFailure::~EngineMemoryFailure()
{
    remaining = 0;
}

bool EngineMemoryFailure::happened() const
{
    return failed;
}

}  // namespace oxil::test
