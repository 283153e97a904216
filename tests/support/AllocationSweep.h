#pragma once

#include <gtest/gtest.h>

#include <new>
#include <vector>

#include "AllocationFailure.h"
#include "OxLogMatchers.h"
#include "OxStatus.h"

namespace oxil::test {

/** One run of a scenario, in which one allocation fails. */
class Attempt {
public:
    /** What run() returns for std::bad_alloc. No status has this value. */
    static constexpr int THREW = 1;

    /** @param nth  the allocation of this kind that fails, counted from 1; 0 for none */
    Attempt(Allocation kind, int nth) : __kind(kind), __nth(nth) {}

    /**
     * Calls the function under test, with the n-th allocation in it failing.
     *
     * Whatever fails is told: by std::bad_alloc, or by the status and a line of the log. What comes
     * to a good end has nothing to tell.
     *
     * @param function  returns a status
     * @param statuses  those that a lack of memory may have
     * @return the status, or THREW. After STATUS_SUCCESS everything has to be as if nothing failed:
     *         that is for the scenario to check.
     */
    template <typename Function>
    int run(const Function& function, const std::vector<int>& statuses = {STATUS_OUT_OF_MEMORY})
    {
        int status = STATUS_SUCCESS;
        {
            const AllocationFailure failure(__kind, __nth);
            try {
                status = function();
            } catch (const std::bad_alloc&) {
                status = THREW;
            }
            __failed = failure.happened();
        }
        __check(status, statuses);
        return status;
    }

    /** Lets what is logged not keep the function from STATUS_SUCCESS. */
    void mayGoOn() { __mayGoOn = true; }

    /** Whether there were as many allocations as to let one fail. */
    bool hasFailed() const { return __failed; }

    /** What was logged so far. */
    const std::vector<LogLine>& lines() const { return __log.lines(); }

private:
    void __check(int status, const std::vector<int>& statuses) const;

    Allocation __kind;
    int __nth;
    bool __failed = false;
    bool __mayGoOn = false;
    LogCapture __log;
};

/**
 * Lets the first, the second, the third ... `new` of a call fail, until it gets through. Each time the
 * call must throw std::bad_alloc.
 *
 * @param after  called each time, with whether one failed
 * @return how many failed
 */
template <typename Call, typename After>
int failEachNew(const Call& call, const After& after)
{
    constexpr int MORE_THAN_ENOUGH = 10000;
    for (int nth = 1; nth < MORE_THAN_ENOUGH; ++nth) {
        bool thrown = false;
        bool happened = false;
        {
            const AllocationFailure failure(Allocation::ThrowingNew, nth);
            try {
                call();
            } catch (const std::bad_alloc&) {
                thrown = true;
            }
            happened = failure.happened();
        }
        EXPECT_EQ(thrown, happened);
        after(happened);
        if (!happened) {
            return nth - 1;
        }
    }
    ADD_FAILURE() << "it never gets through";
    return MORE_THAN_ENOUGH;
}

/** Adds to what the test's report says of allocations. */
void report(int allocations);

/** Checks that a run of a scenario has left no blocks behind, but for so many. */
void expectBlocks(const BlockCount& left, int stated);

/**
 * Runs a scenario with the first, the second, the third ... allocation failing, until it gets through.
 *
 * Unless a kind is chosen, whatever the library, Lua, libxml2, libxslt and the C library ask for in
 * Attempt::run() fails once. No run may leave a block behind.
 *
 * @param scenario  void(Attempt&): makes what it needs, calls Attempt::run() once, checks what came
 *                  of it and that everything can be used again, and takes all of it down
 * @param stated    how many blocks are given up deliberately if nothing fails
 * @param kind    which allocations fail
 * @return how many allocations there were; their sum is in the test's report, as "allocations"
 */
template <typename Scenario>
int failEachAllocation(const Scenario& scenario, int stated = 0, Allocation kind = Allocation::Any)
{
    {
        Attempt attempt(kind, 0);  // makes what is made once in a process, and stays
        scenario(attempt);
    }
    for (int nth = 1; !testing::Test::HasFailure(); ++nth) {
        SCOPED_TRACE(testing::Message() << "allocation " << nth);
        const BlockCount blocks;
        bool hasFailed = false;
        {
            Attempt attempt(kind, nth);
            scenario(attempt);
            hasFailed = attempt.hasFailed();
        }
        expectBlocks(blocks, hasFailed ? 0 : stated);
        if (!hasFailed) {
            report(nth - 1);
            return nth - 1;
        }
    }
    return 0;
}

}  // namespace oxil::test
