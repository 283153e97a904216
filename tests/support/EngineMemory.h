#pragma once

#include <libxml/xmlmemory.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>

namespace oxil::test {

/**
 * Counts the memory blocks of libxml2 and libxslt while it lives, and can make an allocation fail.
 *
 * The engines' functions are those of the process: one such object lives at a time, and other
 * threads leave the engines alone.
 */
class EngineMemory {
public:
    /** @param failing  the n-th allocation or reallocation from now on fails, once; 0 for none */
    explicit EngineMemory(int failing = 0)
    {
        xmlMemGet(&__free, &__malloc, &__realloc, &__strdup);
        remaining = failing;
        failed = false;
        blocks = 0;
        xmlMemSetup(release, allocate, reallocate, duplicate);
    }

    ~EngineMemory() { xmlMemSetup(__free, __malloc, __realloc, __strdup); }

    EngineMemory(const EngineMemory&) = delete;
    EngineMemory& operator=(const EngineMemory&) = delete;

    /** Whether there were as many allocations as to let one fail. */
    bool hasFailed() const { return failed; }

    /** How many blocks there are more than there were at first. */
    int getBlockCount() const { return blocks; }

private:
    static bool fails()
    {
        if (remaining > 0 && --remaining == 0) {
            failed = true;
            return true;
        }
        return false;
    }

    static void* counted(void* memory)
    {
        blocks += memory != nullptr;
        return memory;
    }

    static void release(void* memory)
    {
        blocks -= memory != nullptr;
        std::free(memory);
    }

    static void* allocate(std::size_t size)
    {
        return fails() ? nullptr : counted(std::malloc(size));
    }

    static void* reallocate(void* memory, std::size_t size)
    {
        if (fails()) {
            return nullptr;
        }
        return memory != nullptr ? std::realloc(memory, size) : counted(std::malloc(size));
    }

    static char* duplicate(const char* text)
    {
        return fails() ? nullptr : static_cast<char*>(counted(strdup(text)));
    }

    static inline int remaining = 0;
    static inline bool failed = false;
    static inline int blocks = 0;

    xmlFreeFunc __free = nullptr;
    xmlMallocFunc __malloc = nullptr;
    xmlReallocFunc __realloc = nullptr;
    xmlStrdupFunc __strdup = nullptr;
};

}  // namespace oxil::test
