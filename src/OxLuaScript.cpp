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
#include "OxLuaApi.h"
#include "OxStatus.h"
#include "internal/OxLua.h"
#include "internal/OxLuaCall.h"
#include "internal/OxLuaStack.h"
#include "internal/OxSaturate.h"
#include "internal/OxScriptIdentity.h"
#include "internal/OxWatch.h"

namespace oxil {

using internal::ProtectedCall;
using internal::ScriptIdentity;
using internal::Watch;

namespace {

struct Entry {
    LuaScript* script = nullptr;
    ScriptIdentity identity = 0;
};

using Registry = std::unordered_map<lua_State*, Entry>;

Registry* registry = nullptr;  // lives until the process ends
pthread_once_t registryOnce = PTHREAD_ONCE_INIT;

/** Named as the log shows it. */
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

// Made with the first handler, lives until the process ends. What has none pays nothing for it.
std::unordered_map<const LuaScript*, LuaScript::ErrorHandler>* errorHandlers = nullptr;

/** The error handler of a script, empty if it has none. */
LuaScript::ErrorHandler getErrorHandler(const LuaScript* script)
{
    if (errorHandlers != nullptr) {
        const auto handler = errorHandlers->find(script);
        if (handler != errorHandlers->end()) {
            return handler->second;
        }
    }
    return nullptr;
}

/** Takes away the function of a call that can't be made, with the parameters that it has so far. */
int abandon(lua_State* state, int parameterCount)
{
    lua_pop(state, parameterCount + 1);
    return STATUS_INVALID_STATE;
}

/** Pushes a parameter of the current call, which is abandoned if that fails. */
template <typename Push>
int addParameter(const LuaScript& script, const Push& push)
{
    lua_State* state = script.getLuaState();
    const int parameterCount = script.getParameterCount();
    if (state == nullptr) {
        return STATUS_INVALID_STATE;
    }
    ProtectedCall call(state);
    if (!internal::reserveLuaStack(call, 4) || !push(call)) {
        return abandon(state, parameterCount);
    }
    return call.isAbandoned() ? STATUS_INVALID_STATE : STATUS_SUCCESS;
}

/** The same for one that needs nothing but its place on the stack. */
template <typename Push>
int addValue(const LuaScript& script, const Push& push)
{
    lua_State* state = script.getLuaState();
    if (state != nullptr && internal::hasLuaStack(state, 4)) {
        push(state);
        return STATUS_SUCCESS;
    }
    return addParameter(script, [&](ProtectedCall& call) {
        push(call.getState());
        return true;
    });
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
      __luaState(nullptr, ProtectedCall::close),
      __baseApi(new (std::nothrow) BaseLuaApi())
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
    if (errorHandlers != nullptr) {
        errorHandlers->erase(this);
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
        const Watch watch(*this);
        api->load(this);
        if (!watch.isIntact()) {
            return STATUS_SUCCESS;
        }
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

void LuaScript::setErrorHandler(const ErrorHandler& handler)
{
    if (errorHandlers == nullptr) {
        errorHandlers = new std::unordered_map<const LuaScript*, ErrorHandler>;
    }
    if (handler != nullptr) {
        errorHandlers->insert_or_assign(this, handler);
    } else {
        errorHandlers->erase(this);
    }
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

bool LuaScript::isBusy() const
{
    return __luaState != nullptr && ProtectedCall::isActive(__luaState.get());
}

int LuaScript::onLoading()
{
    const std::string filePath = getFilePath();
    std::unique_ptr<lua_State, void (*)(lua_State*)> other(luaL_newstate(), ProtectedCall::close);
    if (other == nullptr || !internal::prepareLuaState(other.get())) {
        OX_ERROR("Invalid state.");
        return STATUS_INVALID_STATE;
    }
    // From here on code runs that may destroy or load this script. The state stays open meanwhile,
    // and the call knows whether it is still the script's.
    ProtectedCall call(other.get());
    lua_State* state = other.get();
    __luaState.swap(other);
    other.reset();
    if (!call.isAbandoned()) {
        try {
            if (Registry* scripts = getRegistry()) {
                (*scripts)[state] = makeEntry(*scripts, this);
            }
            __loadLuaApi();
        } catch (...) {
            if (!call.isAbandoned()) {
                __luaState.reset();
            }
            throw;
        }
    }
    if (call.isAbandoned()) {
        OX_ERROR("Invalid state.");
        return STATUS_INVALID_STATE;
    }

    if (internal::reserveLuaStack(call, 4) && internal::pushLuaFile(call, filePath.c_str()) &&
        call.run(0, LUA_MULTRET) == 0) {
        if (call.isAbandoned()) {
            OX_ERROR("Invalid state.");
            return STATUS_INVALID_STATE;
        }
        return STATUS_SUCCESS;
    }

    const std::exception_ptr exception = call.getException();
    OX_ERROR("filePath(%s) (%d) (%s).", filePath.c_str(), 1, internal::getLuaMessage(call));
    if (!call.isAbandoned()) {
        __luaState.reset();
    }
    if (exception != nullptr) {
        std::rethrow_exception(exception);
    }
    return STATUS_INVALID_STATE;
}

int LuaScript::onMethodCalling(const std::string& methodName)
{
    lua_State* state = __luaState.get();
    if (state == nullptr) {
        return STATUS_INVALID_STATE;
    }
    if (internal::hasLuaStack(state, 4) &&
        internal::pushKnownLuaGlobal(state, methodName.c_str())) {
        return STATUS_SUCCESS;
    }
    const std::string name = methodName;  // finalizers may change, or end, the member that it is
    ProtectedCall call(state);
    if (!internal::reserveLuaStack(call, 4)) {
        return STATUS_INVALID_STATE;
    }
    const int status = internal::pushLuaGlobal(call, name.c_str());
    if (status == LUA_ERRRUN) {
        // A script that watches its globals may raise an error for an unknown one. It is kept for
        // the call to raise.
        call.rethrowIfKept();
        internal::makeLuaRaise(call);
    } else if (status != 0) {
        lua_pop(state, 1);
        return STATUS_INVALID_STATE;
    }
    return call.isAbandoned() ? STATUS_INVALID_STATE : STATUS_SUCCESS;
}

int LuaScript::onMethodCalled(const std::string& methodName)
{
    lua_State* state = __luaState.get();
    const int parameterCount = getParameterCount();
    const int returnCount = getReturnCount();
    if (state == nullptr || lua_gettop(state) <= parameterCount) {
        return STATUS_INVALID_STATE;
    }
    ErrorHandler handler;
    std::string name;  // calls inside change, or end, the member that it is
    try {
        handler = getErrorHandler(this);
        if (handler != nullptr) {
            name = methodName;
        }
    } catch (...) {
        abandon(state, parameterCount);
        throw;
    }
    // The results, or a message, stand where the function was, so there is room for the message
    // handler as well.
    ProtectedCall call(state);
    if (!internal::reserveLuaStack(call, std::max(returnCount, 1))) {
        return abandon(state, parameterCount);
    }
    std::string traceback;
    if (handler != nullptr) {
        call.traceErrors(traceback);
    }
    if (call.run(parameterCount, returnCount) != 0) {
        // The message stays where the results would be, and nobody else is told.
        if (handler != nullptr) {
            const int top = lua_gettop(state);
            const std::string message = internal::getLuaMessage(call);
            handler(name, message, traceback);
            lua_settop(state, top);  // calls of the handler leave messages of their own
        }
        call.rethrowIfKept();
    }
    return call.isAbandoned() ? STATUS_INVALID_STATE : STATUS_SUCCESS;
}

int LuaScript::onMethodParameterAdded(const std::string& value)
{
    return addParameter(
        *this, [&](ProtectedCall& call) { return internal::pushLuaText(call, value.c_str()); });
}

int LuaScript::onMethodParameterAdded(bool value)
{
    return addValue(*this, [=](lua_State* state) { lua_pushboolean(state, value); });
}

int LuaScript::onMethodParameterAdded(int value)
{
    return addValue(*this, [=](lua_State* state) { lua_pushinteger(state, value); });
}

int LuaScript::onMethodParameterAdded(float value)
{
    return addValue(
        *this, [=](lua_State* state) { lua_pushnumber(state, static_cast<lua_Number>(value)); });
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
    value = index != 0 ? internal::saturate(lua_tonumber(__luaState.get(), index)) : 0;
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
    ProtectedCall call(state);
    if (internal::reserveLuaStack(call, 4) &&
        internal::pushLuaTextOf(call, lua_tonumber(state, index))) {
        value = lua_tostring(state, -1);
        lua_pop(state, 1);
    } else {
        value.clear();
    }
    if (call.isAbandoned()) {
        return STATUS_INVALID_STATE;
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

void LuaScript::__call(const internal::LuaCall& wanted, internal::LuaOutcome& outcome)
{
    internal::callLua(__luaState.get(), wanted, outcome);
}

int LuaScript::__loadLuaApi()
{
    if (__baseApi == nullptr) {
        OX_ERROR("Invalid state.");
        return STATUS_INVALID_STATE;
    }
    int r = __baseApi->load(this);
    // GCOVR_EXCL_START: the tables of a BaseLuaApi count as loaded whatever happens.
    if (r != STATUS_SUCCESS) {
        OX_ERROR("Invalid state. (%d)", r);
        return r;
    }
    // GCOVR_EXCL_STOP
    const Watch watch(*this);
    for (std::size_t i = 0; watch.isIntact() && i < __luaApis.size(); ++i) {  // which may add more
        LuaApi* api = __luaApis[i];
        r = api->load(this);
        if (r != STATUS_SUCCESS) {
            OX_ERROR("Invalid state. luaApi (%p)", static_cast<void*>(api));
        }
    }
    if (watch.isIntact()) {
        __apisLoaded = true;
    }
    return r;
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
