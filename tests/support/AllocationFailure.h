#pragma once

#include <map>
#include <string>

namespace oxil::test {

/** The ways in which code asks for memory. */
enum class Allocation {
    Malloc,       ///< a call of malloc()
    Calloc,       ///< a call of calloc()
    Realloc,      ///< a call of realloc() that has to find more room
    NothrowNew,   ///< a non-throwing `new`
    ThrowingNew,  ///< a plain `new`, which throws std::bad_alloc
    Any           ///< each of these, but for what GLib asks for: it ends the process without memory
};

/**
 * Makes the n-th allocation of one kind from now on fail, once, on this thread, while it lives.
 *
 * A `new` of either form does not count as a call of malloc(). Keep the scope to the call under
 * test: assertions allocate too.
 */
class AllocationFailure {
public:
    explicit AllocationFailure(Allocation kind, int nth = 1);
    ~AllocationFailure();

    AllocationFailure(const AllocationFailure&) = delete;
    AllocationFailure& operator=(const AllocationFailure&) = delete;

    /** Whether the allocation was asked for, and failed. */
    bool happened() const;
};

/**
 * Fills what is allocated on this thread with bytes other than zero while it lives, as memory has
 * them that was in use before.
 */
class DirtyMemory {
public:
    DirtyMemory();
    ~DirtyMemory();

    DirtyMemory(const DirtyMemory&) = delete;
    DirtyMemory& operator=(const DirtyMemory&) = delete;
};

/** Measures what this thread has from malloc(), `new` included, beyond what it had at the start. */
class AllocationMeter {
public:
    AllocationMeter();
    ~AllocationMeter();

    AllocationMeter(const AllocationMeter&) = delete;
    AllocationMeter& operator=(const AllocationMeter&) = delete;

    /** Bytes, with what malloc() needs for itself. */
    long long held() const;

    /** The most that it was so far. */
    long long peak() const;
};

/**
 * Remembers the blocks that this thread gets while it lives, until somebody releases them. Those of
 * GLib and those that are made while an AllocationPause lives don't count.
 */
class BlockCount {
public:
    BlockCount();
    ~BlockCount();

    BlockCount(const BlockCount&) = delete;
    BlockCount& operator=(const BlockCount&) = delete;

    int get() const { return static_cast<int>(__blocks.size()); }

    /** Who has asked for them: one line for each, with library and function as far as known. */
    std::string describe() const;

    void add(const void* block, const void* caller) { __blocks.emplace(block, caller); }
    void remove(const void* block) { __blocks.erase(block); }
    const void* getCaller(const void* block) const;

private:
    std::map<const void*, const void*> __blocks;  // and who has asked for them
};

/** Lets what a test itself allocates meanwhile, on this thread, neither fail nor count as a block. */
class AllocationPause {
public:
    AllocationPause();
    ~AllocationPause();

    AllocationPause(const AllocationPause&) = delete;
    AllocationPause& operator=(const AllocationPause&) = delete;
};

/** To be told by free(). */
void countRelease(void* memory);

/** The number of allocations, of any kind, on this thread so far. */
long allocationCount();

}  // namespace oxil::test
