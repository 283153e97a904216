#include "OxProtectedCall.h"

#include <new>

namespace oxil::internal {
namespace {

ProtectedCall* innermost = nullptr;

}  // namespace

ProtectedCall::ProtectedCall() noexcept : __outer(innermost)
{
    innermost = this;
}

ProtectedCall::~ProtectedCall()
{
    innermost = __outer;
}

void ProtectedCall::keep() noexcept
{
    if (innermost != nullptr) {
        innermost->__exception = std::current_exception();
        innermost->__message.clear();
    }
}

void ProtectedCall::raising(const char* message) noexcept
{
    if (innermost != nullptr) {
        try {
            innermost->__message = message;
        } catch (const std::bad_alloc&) {
            // Without its message the exception can't be told apart; the Lua error remains.
            innermost->__exception = nullptr;
        }
    }
}

std::exception_ptr ProtectedCall::getException(lua_State* state) const
{
    if (__exception == nullptr || lua_type(state, -1) != LUA_TSTRING ||
        __message != lua_tostring(state, -1)) {
        return nullptr;
    }
    return __exception;
}

}  // namespace oxil::internal
