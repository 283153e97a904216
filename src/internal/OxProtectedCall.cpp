#include "internal/OxProtectedCall.h"

#include <cstring>
#include <new>
#include <string_view>

#include "internal/OxLuaStack.h"

namespace oxil::internal {
namespace {

/** What Lua 5.1 allows of C calls within each other. */
constexpr int MAX_LEVELS = 200;

/** The text on top of a stack, empty if it is something else. */
std::string_view getText(lua_State* state)
{
    std::size_t length = 0;
    const char* text = lua_type(state, -1) == LUA_TSTRING ? lua_tolstring(state, -1, &length) : "";
    return {text, length};
}

/** Pushes a function that runs, or ran when the coroutine died: 0 is the innermost. */
bool pushFunction(lua_State* state, int level)
{
    lua_Debug function;
    return lua_getstack(state, level, &function) != 0 && lua_getinfo(state, "f", &function) != 0;
}

/** The coroutine that the function on top wraps, if an error has ended it. */
lua_State* getDeadCoroutine(lua_State* state)
{
    if (lua_iscfunction(state, -1) == 0 || lua_getupvalue(state, -1, 1) == nullptr) {
        return nullptr;
    }
    lua_State* coroutine = lua_tothread(state, -1);
    lua_pop(state, 1);
    return coroutine != nullptr && lua_status(coroutine) > LUA_YIELD ? coroutine : nullptr;
}

}  // namespace

ProtectedCall::ProtectedCall(lua_State* state) noexcept
    : __state(state), __outer(__innermost), __level(1)
{
    for (const ProtectedCall* call = __innermost; call != nullptr; call = call->__outer) {
        if (call->__state == state) {
            __level = call->__level + 1;
            break;
        }
    }
    __innermost = this;
}

ProtectedCall::~ProtectedCall()
{
    if (__closing) {
        lua_close(__state);
    }
    __innermost = __outer;
}

int ProtectedCall::run(int parameterCount, int returnCount) noexcept
{
    const int place = lua_gettop(__state) - parameterCount;  // of the function
    __checkLevel(place);
    __carried = false;
    pushLuaErrorHandler(__state);
    lua_insert(__state, place);
    const int status = lua_pcall(__state, parameterCount, returnCount, place);
    lua_remove(__state, place);
    return status;
}

int ProtectedCall::runOwn(int parameterCount, int returnCount) noexcept
{
    __checkLevel(lua_gettop(__state) - parameterCount);
    return lua_pcall(__state, parameterCount, returnCount, 0);
}

void ProtectedCall::rethrowIfKept() const
{
    const std::exception_ptr exception = getException();
    if (exception != nullptr) {
        std::rethrow_exception(exception);
    }
}

std::exception_ptr ProtectedCall::getException() const
{
    return __carried || (__raised && getText(__state) == __message) ? __exception : nullptr;
}

bool ProtectedCall::isActive(lua_State* state) noexcept
{
    const ProtectedCall* call = __innermost;
    while (call != nullptr && call->__state != state) {
        call = call->__outer;
    }
    return call != nullptr;
}

void ProtectedCall::close(lua_State* state) noexcept
{
    ProtectedCall* outermost = nullptr;
    for (ProtectedCall* call = __innermost; call != nullptr; call = call->__outer) {
        if (call->__state == state) {
            call->__abandoned = true;
            outermost = call;
        }
    }
    if (outermost != nullptr) {
        outermost->__closing = true;
    } else {
        const ProtectedCall call(state);  // of the finalizers
        lua_close(state);
    }
}

void ProtectedCall::keep() noexcept
{
    if (__innermost != nullptr) {
        __innermost->__exception = std::current_exception();
        __innermost->__raised = false;
        __innermost->__carried = false;
    }
}

void ProtectedCall::raising(lua_State* state)
{
    if (__innermost == nullptr) {
        return;
    }
    std::strncpy(__innermost->__message, lua_tostring(state, -1), sizeof __message - 1);
    __innermost->__message[sizeof __message - 1] = '\0';
    __innermost->__raised = true;
    __innermost->__raisedIn = state;
    __innermost->__raisedBy = nullptr;
    if (pushFunction(state, 0)) {
        __innermost->__raisedBy = lua_topointer(state, -1);
        lua_pop(state, 1);
    }
}

int ProtectedCall::onError(lua_State* state)
{
    if (__innermost != nullptr) {
        __innermost->__carried = __innermost->__raised && __innermost->__isCarriedTo(state);
        if (__innermost->__traceback != nullptr) {
            __innermost->__trace(state);
        }
    }
    return 1;  // the error, as it is
}

/** Replaces the function at a place by one that fails, if there are too many calls already. */
void ProtectedCall::__checkLevel(int place) noexcept
{
    if (__level >= MAX_LEVELS) {
        pushLuaOverflow(__state);
        lua_replace(__state, place);
    }
}

/**
 * Whether the error in this state is the one that was raised in a coroutine.
 *
 * The functions of `coroutine.wrap` pass on what ended their coroutine, with a position in front.
 * So the error is followed back: from each of them to its coroutine, which keeps what was running
 * in it when it died.
 */
bool ProtectedCall::__isCarriedTo(lua_State* state) const
{
    const std::string_view text = getText(state);
    const std::string_view message = __message;
    if (state == __raisedIn || text.size() < message.size() ||
        text.substr(text.size() - message.size()) != message) {
        return false;
    }

    lua_State* where = state;
    int level = 1;  // of the function that the error came out of; 0 is the message handler
    while (pushFunction(where, level)) {
        // A coroutine that died has one place left, where the error was that was taken from it.
        if (where != state) {
            lua_xmove(where, state, 1);
        }
        lua_State* coroutine = getDeadCoroutine(state);
        const void* function = lua_topointer(state, -1);
        lua_pop(state, 1);
        if (coroutine == nullptr) {
            return where == __raisedIn && function == __raisedBy;
        }
        where = coroutine;
        level = 0;
    }
    return false;
}

void ProtectedCall::__trace(lua_State* state) const noexcept
{
    pushLuaTraceback(state);
    if (lua_pcall(state, 0, 1, 0) == 0) {
        // A line with a heading, one with the message handler, and those that are asked for.
        std::string_view text = getText(state);
        const std::size_t heading = text.find('\n');
        const std::size_t rest = text.find('\n', heading + 1);
        try {
            __traceback->assign(text.substr(0, heading));
            if (rest != std::string_view::npos) {
                __traceback->append(text.substr(rest));
            }
        } catch (const std::bad_alloc&) {
            __traceback->clear();
        }
    }
    lua_pop(state, 1);
}

}  // namespace oxil::internal
