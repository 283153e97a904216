#pragma once

namespace oxil::test {

/** The ways in which code asks for memory. */
enum class Allocation {
    Malloc,      ///< a call of malloc()
    NothrowNew,  ///< a non-throwing `new`
    ThrowingNew  ///< a plain `new`, which throws std::bad_alloc
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

/** To be told by free(). */
void countRelease(void* memory);

/** The number of allocations, of any kind, on this thread so far. */
long allocationCount();

}  // namespace oxil::test
