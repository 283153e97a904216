#pragma once

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
    ~Watch() { __innermost = __outer; }

    Watch(const Watch&) = delete;
    Watch& operator=(const Watch&) = delete;

    bool isIntact() const noexcept { return __object != nullptr; }

private:
    friend WatchedObject;

    const WatchedObject* __object;
    Watch*& __innermost;  // of this thread, which takes long to ask for
    Watch* __outer;
};

}  // namespace oxil::internal
