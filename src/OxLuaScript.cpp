#include "OxLuaScript.h"

#include <pthread.h>

#include <algorithm>
#include <exception>
#include <iterator>
#include <new>
#include <unordered_map>
#include <utility>

#include "OxBaseLuaApi.h"
#include "OxLog.h"
#include "OxLua.h"
#include "OxLuaApi.h"
#include "OxLuaStack.h"
#include "OxProtectedCall.h"
#include "OxScriptIdentity.h"
#include "OxStatus.h"
#include "OxTruncate.h"

namespace oxil {
namespace {

using internal::ScriptIdentity;

struct Entry {
    LuaScript* script = nullptr;
    ScriptIdentity identity = 0;
};

using Registry = std::unordered_map<lua_State*, Entry>;

Registry* registry = nullptr;  // lives until the process ends
pthread_once_t registryOnce = PTHREAD_ONCE_INIT;

void __initInstance()
{
    constexpr std::size_t BUCKETS = 10;

    try {
        registry = new (std::nothrow) Registry(BUCKETS);
    } catch (const std::bad_alloc&) {
        // It was there, but not its buckets.
    }
    if (registry == nullptr) {
        OX_ERROR("Memory allocation failed");
    }
}

/** Null if there was no memory for it. */
Registry* getRegistry()
{
    pthread_once(&registryOnce, __initInstance);
    return registry;
}

/** The entry of a state that gets the script as its own. All states of a script have one identity:
 *  what an earlier one left behind goes on in the script. */
Entry makeEntry(const Registry& scripts, LuaScript* script)
{
    static ScriptIdentity last = 0;

    const auto known = std::find_if(scripts.begin(), scripts.end(), [=](const auto& entry) {
        return entry.second.script == script;
    });
    return known != scripts.end() ? known->second : Entry{script, ++last};
}

/** Takes away the function of a call that can't be made, with the parameters that it has so far. */
int abandon(lua_State* state, int parameterCount)
{
    lua_pop(state, parameterCount + 1);
    return STATUS_INVALID_STATE;
}

/** Throws what the error on top of the stack was raised for, if that was an exception. */
void rethrow(const internal::ProtectedCall& call, lua_State* state)
{
    const std::exception_ptr exception = call.getException(state);
    if (exception != nullptr) {
        std::rethrow_exception(exception);
    }
}

}  // namespace

namespace internal {

ScriptIdentity getScriptIdentity(lua_State* state)
{
    Registry* scripts = getRegistry();
    if (scripts == nullptr) {
        return 0;
    }
    const auto entry = scripts->find(state);
    return entry != scripts->end() ? entry->second.identity : 0;
}

LuaScript* getLuaScript(lua_State* state, ScriptIdentity identity)
{
    if (identity == 0 || getScriptIdentity(state) != identity) {
        OX_ERROR("Invalid state");
        return nullptr;
    }
    return registry->find(state)->second.script;
}

}  // namespace internal

LuaScript::LuaScript() : LuaScript("") {}

LuaScript::LuaScript(const std::string& filePath)
    : Script(filePath),
      __luaState(nullptr, lua_close),
      __baseApi(new (std::nothrow) BaseLuaApi()),
      __returnIndex(1),
      __apisLoaded(false)
{
    if (__baseApi == nullptr) {
        OX_ERROR("Memory allocation failed");
    }
}

LuaScript::~LuaScript()
{
    // Entries of earlier states go as well: a timer left over from one of them finds no script
    // instead of a destroyed one.
    if (registry != nullptr) {
        for (auto entry = registry->begin(); entry != registry->end();) {
            entry = entry->second.script == this ? registry->erase(entry) : std::next(entry);
        }
    }
    std::vector<LuaApi*>().swap(__luaApis);
    delete __baseApi;
    __luaState.reset();
}

int LuaScript::addLuaApi(LuaApi* api)
{
    if (api == nullptr) {
        OX_ERROR("Invalid parameter.");
        return STATUS_INVALID_PARAMETER;
    }
    if (__apisLoaded) {
        api->load(this);
    }
    __luaApis.push_back(api);
    return STATUS_SUCCESS;
}

int LuaScript::removeLuaApi(LuaApi* api)
{
    if (api == nullptr) {
        OX_ERROR("Invalid parameter.");
        return STATUS_INVALID_PARAMETER;
    }
    const auto place = std::find(__luaApis.begin(), __luaApis.end(), api);
    if (place == __luaApis.end()) {
        OX_ERROR("Invalid state.");
        return STATUS_NOT_FOUND;
    }
    __luaApis.erase(place);

    if (__apisLoaded) {
        const int r = api->unload();
        if (r != STATUS_SUCCESS) {
            OX_ERROR("%d", r);
            return r;
        }
    }
    return STATUS_SUCCESS;
}

lua_State* LuaScript::getLuaState() const
{
    return __luaState.get();
}

LuaScript* LuaScript::getLuaScript(lua_State* state)
{
    Registry* scripts = getRegistry();
    // An unknown state gets an entry of its own, with no script.
    LuaScript* script = scripts != nullptr ? (*scripts)[state].script : nullptr;
    if (script == nullptr) {
        OX_ERROR("Invalid state");
    }
    return script;
}

int LuaScript::onLoading()
{
    std::unique_ptr<lua_State, void (*)(lua_State*)> fresh(luaL_newstate(), lua_close);
    if (fresh == nullptr || !internal::prepareLuaState(fresh.get())) {
        OX_ERROR("Invalid state.");
        return STATUS_INVALID_STATE;
    }
    lua_State* state = fresh.get();
    luaL_openlibs(state);
    __luaState = std::move(fresh);
    if (Registry* scripts = getRegistry()) {
        (*scripts)[state] = makeEntry(*scripts, this);
    }
    __loadLuaApi();

    const std::string filePath = getFilePath();
    const internal::ProtectedCall call;
    if (luaL_loadfile(state, filePath.c_str()) == 0 && lua_pcall(state, 0, LUA_MULTRET, 0) == 0) {
        return STATUS_SUCCESS;
    }

    const char* message = lua_tostring(state, -1);
    OX_ERROR("filePath(%s) (%d) (%s).", filePath.c_str(), 1,
             message != nullptr ? message : "(null)");
    // Taken before the message that it is known by is gone.
    const std::exception_ptr exception = call.getException(state);
    __luaState.reset();
    if (exception != nullptr) {
        std::rethrow_exception(exception);
    }
    return STATUS_INVALID_STATE;
}

int LuaScript::onMethodCalling(const std::string& methodName)
{
    lua_State* state = __luaState.get();
    if (state == nullptr || !internal::reserveLuaStack(state, 4)) {
        return STATUS_INVALID_STATE;
    }
    if (lua_getmetatable(state, LUA_GLOBALSINDEX) == 0) {
        lua_getfield(state, LUA_GLOBALSINDEX, methodName.c_str());
        return STATUS_SUCCESS;
    }
    // A script that watches its globals may raise an error for an unknown one. It is kept for the
    // call to raise.
    lua_pop(state, 1);
    const internal::ProtectedCall call;
    if (!internal::pushLuaGlobal(state, methodName.c_str())) {
        rethrow(call, state);
        internal::makeLuaRaise(state);
    }
    return STATUS_SUCCESS;
}

int LuaScript::onMethodCalled(const std::string&)
{
    lua_State* state = __luaState.get();
    const int parameterCount = getParameterCount();
    const int returnCount = getReturnCount();
    if (state == nullptr || lua_gettop(state) <= parameterCount) {
        return STATUS_INVALID_STATE;
    }
    if (!internal::reserveLuaStack(state, std::max(returnCount, 1))) {
        return abandon(state, parameterCount);
    }
    const internal::ProtectedCall call;
    if (lua_pcall(state, parameterCount, returnCount, 0) != 0) {
        // The message stays where the results would be, and nothing is reported.
        rethrow(call, state);
    }
    return STATUS_SUCCESS;
}

int LuaScript::onMethodParameterAdded(const std::string& value)
{
    if (!__reserveParameter()) {
        return STATUS_INVALID_STATE;
    }
    if (!internal::pushLuaText(__luaState.get(), value.c_str())) {
        return abandon(__luaState.get(), getParameterCount());
    }
    return STATUS_SUCCESS;
}

int LuaScript::onMethodParameterAdded(bool value)
{
    if (!__reserveParameter()) {
        return STATUS_INVALID_STATE;
    }
    lua_pushboolean(__luaState.get(), value);
    return STATUS_SUCCESS;
}

int LuaScript::onMethodParameterAdded(int value)
{
    if (!__reserveParameter()) {
        return STATUS_INVALID_STATE;
    }
    lua_pushinteger(__luaState.get(), value);
    return STATUS_SUCCESS;
}

int LuaScript::onMethodParameterAdded(float value)
{
    if (!__reserveParameter()) {
        return STATUS_INVALID_STATE;
    }
    lua_pushnumber(__luaState.get(), static_cast<lua_Number>(value));
    return STATUS_SUCCESS;
}

int LuaScript::onGetReturnValue(bool& value) const
{
    const int index = __nextReturnIndex();
    value = index != 0 && lua_toboolean(__luaState.get(), index) != 0;
    return STATUS_SUCCESS;
}

int LuaScript::onGetReturnValue(int& value) const
{
    const int index = __nextReturnIndex();
    value = index != 0 ? internal::truncate(lua_tonumber(__luaState.get(), index)) : 0;
    return STATUS_SUCCESS;
}

int LuaScript::onGetReturnValue(float& value) const
{
    const int index = __nextReturnIndex();
    value = index != 0 ? static_cast<float>(lua_tonumber(__luaState.get(), index)) : 0.0f;
    return STATUS_SUCCESS;
}

int LuaScript::onGetReturnValue(std::string& value) const
{
    const int index = __nextReturnIndex();
    lua_State* state = __luaState.get();
    if (index == 0) {
        value.clear();
        return STATUS_SUCCESS;
    }
    if (lua_type(state, index) != LUA_TNUMBER) {
        const char* text = lua_tostring(state, index);
        value = text != nullptr ? text : "";
        return STATUS_SUCCESS;
    }

    // Asks Lua for memory, so that a finalizer may run, which may call this script and read results
    // of its own.
    const int nextIndex = __returnIndex;
    if (internal::reserveLuaStack(state, 3) &&
        internal::pushLuaTextOf(state, lua_tonumber(state, index))) {
        value = lua_tostring(state, -1);
        lua_pop(state, 1);
    } else {
        value.clear();
    }
    __returnIndex = nextIndex;
    return STATUS_SUCCESS;
}

void LuaScript::onReturnValueEvaluateBegin()
{
    if (getReturnCount() <= 0) {
        OX_ERROR("retCount (%d)", getReturnCount());
        return;
    }
    __returnIndex = -getReturnCount();
}

void LuaScript::onReturnValueEvaluateEnd()
{
    if (getReturnCount() <= 0) {
        OX_ERROR("retCount (%d)", getReturnCount());
        return;
    }
    if (__luaState != nullptr) {
        // A failed call left one message, however many results were asked for.
        const int count = std::min(getReturnCount(), lua_gettop(__luaState.get()));
        lua_settop(__luaState.get(), -count - 1);
    }
}

int LuaScript::__loadLuaApi()
{
    if (__baseApi == nullptr) {
        OX_ERROR("Invalid state.");
        return STATUS_INVALID_STATE;
    }
    int r = __baseApi->load(this);
    if (r != STATUS_SUCCESS) {
        OX_ERROR("Invalid state. (%d)", r);
        return r;
    }
    for (std::size_t i = 0; i < __luaApis.size(); ++i) {  // which may add more
        LuaApi* api = __luaApis[i];
        r = api->load(this);
        if (r != STATUS_SUCCESS) {
            OX_ERROR("Invalid state. luaApi (%p)", static_cast<void*>(api));
        }
    }
    __apisLoaded = true;
    return r;
}

/** Makes room for a parameter; without it, the call is abandoned. */
bool LuaScript::__reserveParameter()
{
    lua_State* state = __luaState.get();
    if (state == nullptr) {
        return false;
    }
    if (!internal::reserveLuaStack(state, 3)) {
        abandon(state, getParameterCount());
        return false;
    }
    return true;
}

/** The stack index of the next result, 0 if there is no such value on the stack. */
int LuaScript::__nextReturnIndex() const
{
    const int index = __returnIndex++;
    const bool there =
        __luaState != nullptr && (index > 0 || -index <= lua_gettop(__luaState.get()));
    return there ? index : 0;
}

}  // namespace oxil
