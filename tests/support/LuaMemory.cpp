#include "LuaMemory.h"

#include <utility>

namespace oxil::test {

void LuaMemory::attach(lua_State* state)
{
    __original = lua_getallocf(state, &__data);
    lua_setallocf(state, allocate, this);
}

bool LuaMemory::refused()
{
    return std::exchange(__refused, false);
}

void* LuaMemory::allocate(void* self, void* block, std::size_t oldSize, std::size_t size)
{
    LuaMemory& memory = *static_cast<LuaMemory*>(self);
    if (size > oldSize && memory.__remaining > 0) {
        if (memory.__remaining == 1) {
            memory.__refused = true;
            return nullptr;
        }
        --memory.__remaining;
    }
    return memory.__original(memory.__data, block, oldSize, size);
}

}  // namespace oxil::test
