#pragma once

#include <cstddef>
#include <lua.hpp>

namespace oxil::test {

/** The memory of a Lua state, which comes to its end when a test wants it. Has to outlive it. */
class LuaMemory {
public:
    /** Becomes the allocator of this state. */
    void attach(lua_State* state);

    /** Refuses every request for more from the n-th on, counted from 1. */
    void refuseFrom(int nth) { __remaining = nth; }

    /** Refuses nothing any more. */
    void refuseNothing() { __remaining = 0; }

    /** Whether a request was refused since attach() or the last call of this. */
    bool refused();

private:
    static void* allocate(void* self, void* block, std::size_t oldSize, std::size_t size);

    lua_Alloc __original = nullptr;
    void* __data = nullptr;
    int __remaining = 0;  // 0: refuses nothing; 1: refuses everything
    bool __refused = false;
};

}  // namespace oxil::test
