#pragma once

#include <cstdint>

#include "OxWatchedObject.h"

namespace oxil::internal {

/**
 * Tells a member function whether its object outlived a call to foreign code.
 *
 * It lives on the stack of that function, and belongs to the thread that made it. An object is one
 * that says so when it is destroyed, which is why there is no watch of any other.
 */
class Watch {
public:
    explicit Watch(const WatchedObject& object) noexcept;
    ~Watch() { __all.innermost = __outer; }

    Watch(const Watch&) = delete;
    Watch& operator=(const Watch&) = delete;

    bool isIntact() const noexcept { return __object != nullptr; }

    /** Ends all watches of an object, which is about to be gone. */
    static void endAll(const WatchedObject* object) noexcept;

    /** How many watches this thread has begun, of all objects: tells whether foreign code led to
     *  another one. */
    std::uint64_t countBegun() const noexcept { return __all.begun; }

private:
    struct All {
        Watch* innermost;
        std::uint64_t begun;
    };

    static thread_local All __ofThread;

    const WatchedObject* __object;
    All& __all;  // of this thread, which take long to ask for
    Watch* __outer;
};

}  // namespace oxil::internal
