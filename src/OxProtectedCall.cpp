#include "OxProtectedCall.h"

#include <new>

namespace oxil::internal {

void ProtectedCall::keep() noexcept
{
    if (innermost != nullptr) {
        innermost->__exception = std::current_exception();
        innermost->__raised = false;
    }
}

void ProtectedCall::raising(const char* message) noexcept
{
    if (innermost != nullptr) {
        try {
            innermost->__message = message;
            innermost->__raised = true;
        } catch (const std::bad_alloc&) {
            // Without its message the exception can't be told apart; the Lua error remains.
        }
    }
}

std::exception_ptr ProtectedCall::getException(lua_State* state) const
{
    if (!__raised || lua_type(state, -1) != LUA_TSTRING || __message != lua_tostring(state, -1)) {
        return nullptr;
    }
    return __exception;
}

}  // namespace oxil::internal
