#include "EngineMemory.h"

#include <libxml/xmlmemory.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>

namespace oxil::test {
namespace {

thread_local int remaining = 0;  // 0: nothing is to fail
thread_local bool failed = false;
thread_local int blocks = 0;

bool isRefused()
{
    if (remaining > 0 && --remaining == 0) {
        failed = true;
        return true;
    }
    return false;
}

void* counted(void* memory)
{
    blocks += memory != nullptr;
    return memory;
}

void release(void* memory)
{
    blocks -= memory != nullptr;
    std::free(memory);
}

void* allocate(std::size_t size)
{
    return isRefused() ? nullptr : counted(std::malloc(size));
}

void* reallocate(void* memory, std::size_t size)
{
    if (isRefused()) {
        return nullptr;
    }
    return memory != nullptr ? std::realloc(memory, size) : counted(std::malloc(size));
}

char* duplicate(const char* text)
{
    return isRefused() ? nullptr : static_cast<char*>(counted(strdup(text)));
}

}  // namespace

EngineMemory::EngineMemory(int failing) : __blocksBefore(blocks)
{
    // They stay: what they hand out is no different from what libxml2 had before.
    static const int r = xmlMemSetup(release, allocate, reallocate, duplicate);
    if (r != 0) {
        std::abort();
    }
    failed = false;
    remaining = failing;
}

EngineMemory::~EngineMemory()
{
    remaining = 0;
}

bool EngineMemory::hasFailed() const
{
    return failed;
}

int EngineMemory::getBlockCount() const
{
    return blocks - __blocksBefore;
}

}  // namespace oxil::test
