#include "OxBaseLuaApi.h"

#include <cstdint>
#include <memory>
#include <new>
#include <string>
#include <utility>

#include "OxLog.h"
#include "OxLuaGuard.h"
#include "OxLuaScript.h"
#include "OxObjectManager.h"
#include "OxStatus.h"
#include "OxTimer.h"
#include "OxWaitingLoop.h"
#include "internal/OxLua.h"
#include "internal/OxSaturate.h"
#include "internal/OxScriptIdentity.h"

namespace oxil {
namespace {

// The functions below come in two layers. What talks to Lua may raise errors, which leave by
// longjmp, so it holds plain values only; what is C++ runs inside a LuaGuard.

/** A timer that calls a global Lua function. */
class MyTimer : public Timer {
public:
    MyTimer(lua_State* state, const char* function)
        : __luaState(state),
          __functionName(function),
          __identity(internal::getScriptIdentity(state))
    {
    }

    void startTimer(int interval, bool repeat)
    {
        if (repeat) {
            start(
                interval, [this] { onTimerExpired(); }, REPEATABLE);
        } else {
            start(interval, [this] { onTimerExpired(); });
        }
    }

private:
    // Without underscores, as its log line names it.
    void onTimerExpired()
    {
        if (__functionName.empty()) {
            return;
        }
        try {
            LuaScript* script = internal::getLuaScript(__luaState, __identity);
            if (script == nullptr) {
                OX_ERROR("Invalid state (0x%x).",
                         static_cast<unsigned int>(reinterpret_cast<std::uintptr_t>(__luaState)));
                return;
            }
            script->callMethod(__functionName, 0);
        } catch (...) {
            // Ends here, like the Lua error that it came with: nobody waits for this call.
        }
    }

    lua_State* __luaState;
    std::string __functionName;
    internal::ScriptIdentity __identity;
};

int checkInt(lua_State* state, int argument)
{
    luaL_checkinteger(state, argument);  // for its errors: how it converts depends on the processor
    return internal::saturate(lua_tonumber(state, argument));
}

/** The registry; std::bad_alloc if there was no memory for it. */
template <typename T>
ObjectManager<T>& getObjects()
{
    ObjectManager<T>* objects = ObjectManager<T>::getInstance();
    if (objects == nullptr) {
        throw std::bad_alloc();
    }
    return *objects;
}

/** What scripts get instead of a handle if there was no memory for an object. */
constexpr int NO_HANDLE = -1;

/** Adds a new object and returns its handle, or NO_HANDLE if there is no object. */
template <typename T>
int add(std::unique_ptr<T> object)
{
    if (object == nullptr) {
        return NO_HANDLE;
    }
    const int handle = getObjects<T>().addObject(object.get());
    object.release();
    return handle;
}

template <typename T>
int destroy(lua_State* state)
{
    const int handle = checkInt(state, 1);
    LuaGuard guard(state);
    const bool done = guard.run([&] {
        ObjectManager<T>& objects = getObjects<T>();
        T* object = objects.getObject(handle);
        if (object != nullptr) {
            objects.removeObject(object);
            delete object;
        }
    });
    return done ? 0 : guard.raise();
}

/** Does something with the loop of a handle, if there is one. */
template <typename Action>
int withLoop(lua_State* state, int handle, const Action& action)
{
    LuaGuard guard(state);
    const bool done = guard.run([&] {
        WaitingLoop* loop = getObjects<WaitingLoop>().getObject(handle);
        if (loop != nullptr) {
            action(*loop);
        }
    });
    return done ? 0 : guard.raise();
}

// ---- Log

int print(lua_State* state)
{
    const int count = lua_gettop(state);
    luaL_Buffer message;
    luaL_buffinit(state, &message);
    for (int i = 1; i <= count; ++i) {
        const char* text = lua_tostring(state, i);
        if (i > 1) {
            luaL_addlstring(&message, " ", 1);
        }
        luaL_addstring(&message, text != nullptr ? text : "(null)");
    }
    luaL_pushresult(&message);
    OX_LOG(internal::LOG_PRIORITY_INFO, "%s", lua_tostring(state, -1));
    return 0;
}

constexpr luaL_Reg LOG_FUNCTIONS[] = {{"print", print}, {nullptr, nullptr}};

// ---- Timer

int startTimer(lua_State* state)
{
    const int interval = checkInt(state, 1);
    const char* name = luaL_checkstring(state, 2);
    const bool repeat = lua_toboolean(state, 3) != 0;
    int handle = NO_HANDLE;

    LuaGuard guard(state);
    const bool done = guard.run([&] {
        std::unique_ptr<MyTimer> timer(new (std::nothrow) MyTimer(state, name));
        if (timer != nullptr) {
            timer->startTimer(interval, repeat);
        }
        handle = add(std::move(timer));
    });
    if (!done) {
        return guard.raise();
    }
    lua_pushinteger(state, handle);
    return 1;
}

constexpr luaL_Reg TIMER_FUNCTIONS[] = {
    {"start", startTimer}, {"stop", destroy<MyTimer>}, {nullptr, nullptr}};

// ---- WaitingLoop

int createLoop(lua_State* state)
{
    int handle = NO_HANDLE;
    LuaGuard guard(state);
    const bool done = guard.run(
        [&] { handle = add(std::unique_ptr<WaitingLoop>(new (std::nothrow) WaitingLoop())); });
    if (!done) {
        return guard.raise();
    }
    lua_pushinteger(state, handle);
    return 1;
}

int wait(lua_State* state)
{
    const int handle = checkInt(state, 1);
    return withLoop(state, handle, [](WaitingLoop& loop) { loop.wait(); });
}

int waitTime(lua_State* state)
{
    const int handle = checkInt(state, 1);
    const int interval = checkInt(state, 2);
    return withLoop(state, handle, [=](WaitingLoop& loop) { loop.wait(interval); });
}

int run(lua_State* state)
{
    const int handle = checkInt(state, 1);
    return withLoop(state, handle, [](WaitingLoop& loop) { loop.run(); });
}

int runTime(lua_State* state)
{
    const int handle = checkInt(state, 1);
    const int interval = checkInt(state, 2);
    return withLoop(state, handle, [=](WaitingLoop& loop) { loop.run(interval); });
}

int quit(lua_State* state)
{
    const int handle = checkInt(state, 1);
    return withLoop(state, handle, [](WaitingLoop& loop) { loop.quit(); });
}

int go(lua_State* state)
{
    const int handle = checkInt(state, 1);
    return withLoop(state, handle, [](WaitingLoop& loop) { loop.go(); });
}

int isRunning(lua_State* state)
{
    const int handle = checkInt(state, 1);
    bool running = false;
    withLoop(state, handle, [&](const WaitingLoop& loop) { running = loop.isRunning(); });
    lua_pushboolean(state, running);
    return 1;
}

int isWaiting(lua_State* state)
{
    const int handle = checkInt(state, 1);
    bool waiting = false;
    withLoop(state, handle, [&](const WaitingLoop& loop) { waiting = loop.isWaiting(); });
    lua_pushboolean(state, waiting);
    return 1;
}

constexpr luaL_Reg WAITING_LOOP_FUNCTIONS[] = {{"create", createLoop},
                                               {"destroy", destroy<WaitingLoop>},
                                               {"wait", wait},
                                               {"waitTime", waitTime},
                                               {"run", run},
                                               {"runTime", runTime},
                                               {"quit", quit},
                                               {"go", go},
                                               {"isRunning", isRunning},
                                               {"isWaiting", isWaiting},
                                               {nullptr, nullptr}};

}  // namespace

BaseLuaApi::BaseLuaApi() = default;

BaseLuaApi::~BaseLuaApi() = default;

int BaseLuaApi::onLoading()
{
    registerApiTable("Log", LOG_FUNCTIONS);
    registerApiTable("Timer", TIMER_FUNCTIONS);
    registerApiTable("WaitingLoop", WAITING_LOOP_FUNCTIONS);
    return STATUS_SUCCESS;
}

}  // namespace oxil
