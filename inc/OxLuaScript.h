#pragma once

#include <functional>
#include <memory>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "OxExport.h"
#include "OxLuaAnswer.h"
#include "OxLuaBinding.h"
#include "OxScript.h"

struct lua_State;

namespace oxil {

class BaseLuaApi;
class LuaApi;

/**
 * A Lua 5.1 script in a Lua state of its own.
 *
 * load() makes the state, opens the standard libraries, registers the tables of BaseLuaApi and of
 * the added LuaApi objects, and runs the file. callMethod() then calls its global functions.
 *
 * @par Errors in Lua functions
 * callMethod() does not report them: it returns STATUS_SUCCESS, logs nothing, and leaves the error
 * message on the Lua stack in place of the results. A typed call reads that message, or what it
 * converts to, as its last result. Without results nothing ever removes it. Results asked for with
 * callMethod(name, count) stay on the stack as well: take them from getLuaState(), or use the typed
 * call. An application that wants to know uses call(), which gives an answer, and for what timers call
 * sets an error handler:
 * @snippet countdown/main.cpp errors
 *
 * Before load(), and after a failed one, every call returns STATUS_INVALID_STATE after logging
 * "Invalid state."; so does one for which the Lua stack can't grow.
 *
 * @par Texts
 * Parameters and results end at their first NUL. A result that is neither text nor number reads as
 * an empty text.
 *
 * @par Memory
 * Without memory a call is refused as without a state, and so is load(). Nothing that this class
 * does with the state raises an error outside a protected call. If an application's own code does,
 * in LuaApi::onLoading() for one, Lua ends the process; "Lua panic (%s)." with its message is
 * logged before, unless the application has said `lua_atpanic` itself.
 *
 * @par Exceptions
 * What a native function threw inside its LuaGuard comes out of load() and callMethod(), unless the
 * script handled the error. After load() has thrown, this or what an LuaApi::onLoading() threw, there
 * is no state. A failed typed call leaves the message on the Lua stack then too.
 *
 * @par Files
 * The path is what Lua's own `loadfile` takes: a pipe makes load() wait for a writer, for ever if
 * there is none.
 *
 * @par Threads
 * Scripts are made, loaded, called and destroyed on the main-loop thread.
 *
 * @par Nesting
 * A call of a script from within 199 others of it fails with Lua's "C stack overflow", with LuaJIT
 * as well; each of them, and what the script does in between, takes of the C stack.
 *
 * @par Lifetime
 * A script may be destroyed or loaded again at any time, also while it isBusy(): from one of its
 * own functions, say, or from a timer while it blocks. Its functions go on to their end then, in the
 * state that they began in, which is closed after the outermost of them. To native functions such a
 * state belongs to no script after destruction, and to this one after loading again. The calls that
 * led there return STATUS_INVALID_STATE after logging "Invalid state." and read no results; so does
 * load() if its file, a table or a finalizer did it. Calls that an application makes in the state
 * itself, with `lua_pcall` or `lua_resume`, are not known to the script: it must outlive them.
 */
class OXIL_API LuaScript : public Script {
public:
    /** Makes a script with an empty path, which can't be loaded. */
    LuaScript();

    /** Makes a script for a file. Logs "Memory allocation failed" if there is no memory for the
     *  built-in tables; every load() then logs "Invalid state." and goes without any tables. */
    explicit LuaScript(const std::string& filePath);

    /** Closes the state, if it is busy when that is over. The added LuaApi objects are neither
     *  unloaded nor deleted; timers and loops that the script made live on. */
    ~LuaScript() override;

    /**
     * Adds native functions; they are registered by load(), or at once if it came before.
     *
     * @param api  stays the caller's, and has to live as long as it is added; may be added twice
     * @return STATUS_SUCCESS, also if registering at once failed; STATUS_INVALID_PARAMETER after
     *         logging "Invalid parameter." for null
     */
    int addLuaApi(LuaApi* api);

    /**
     * Takes native functions out and unloads them. Their global table stays in the state.
     *
     * @return STATUS_SUCCESS; STATUS_INVALID_PARAMETER after logging "Invalid parameter." for null;
     *         STATUS_NOT_FOUND after logging "Invalid state." if it was not added; what
     *         LuaApi::unload() returned after logging "%d" with it, taken out all the same
     */
    int removeLuaApi(LuaApi* api);

    /**
     * Takes a function that is told of an error in a Lua function.
     *
     * @param methodName  the function that was called, by callMethod() or a timer
     * @param message     Lua's message, "(null)" if the error value is no text
     * @param traceback   which functions led to it, a line each below "stack traceback:"; empty
     *                    without memory
     */
    using ErrorHandler = std::function<void(
        const std::string& methodName, const std::string& message, const std::string& traceback)>;

    /**
     * Has a function called for each error that ends a Lua function, which nobody else reports.
     *
     * Nothing else changes: the call returns what it returns without, and the message is on the Lua
     * stack. The errors of load() are logged and not told. There is no handler unless one is set.
     *
     * @param handler  copied, and kept until it is replaced or the script is destroyed; an empty one
     *                 ends it. It may do what it likes with the script, and what it throws comes out
     *                 of callMethod(), in a timer's call of nowhere.
     */
    void setErrorHandler(const ErrorHandler& handler);

    /** The Lua state, null before load() and after a failed one. */
    lua_State* getLuaState() const;

    /** Whether a function of the script, or its file, is running further up the C stack: in a
     *  callback that is called while it blocks in a WaitingLoop, say. */
    bool isBusy() const;

    /**
     * Calls a global function, and says what has come of it:
     * `auto answer = script.call<int>("count", "apples", 3);`
     *
     * Beside callMethod(), which is silent: whatever keeps the function from returning what is asked
     * for is in the answer, and nowhere else. Nothing is logged, the error handler is not told,
     * nothing is left on the Lua stack, and getMethodName() and its like stay as they are. Results
     * that are too many are dropped, and others are `nil`.
     *
     * @tparam Results      what the function is to return, of the types that LuaValue lists
     * @param functionName  has to live until the call returns
     * @param params        of the types that LuaValue lists; texts go with all their bytes, a
     *                      `double` as it is
     * @throws  what a native function threw, as callMethod() does
     */
    template <typename... Results, typename... Params>
    [[nodiscard]] LuaAnswer<Results...> call(const std::string& functionName,
                                             const Params&... params)
    {
        using Parameters = std::tuple<const Params&...>;
        using Values = std::tuple<Results...>;
        static_assert((!internal::IS_LUA_TEXT<Results> && ...), "a text is kept as a std::string");
        static_assert(sizeof...(Params) <= 10 && sizeof...(Results) <= 10,
                      "a function has up to 10 parameters and results");
        static constexpr internal::LuaShape SHAPES[] = {internal::LuaShapeOf<Results>::SHAPE...,
                                                        internal::LuaShape()};
        const Parameters parameters(params...);
        Values results;
        internal::LuaOutcome outcome;
        __call({functionName, internal::LuaTuple<Parameters>::push, &parameters, sizeof...(Params),
                SHAPES, sizeof...(Results), internal::LuaTuple<Values>::read, &results},
               outcome);
        return {std::move(outcome), std::move(results)};
    }

    /**
     * The script that a Lua state belongs to.
     *
     * @return null after logging "Invalid state" if there is none. The state of a coroutine is not
     *         the script's state.
     */
    static LuaScript* getLuaScript(lua_State* state);

    /**
     * What load() does. Loading again replaces the state.
     *
     * What it leaves on the Lua stack stays there: the API tables and what the file returned. A
     * state that was replaced or closed stays known to getLuaScript() as long as the script lives.
     *
     * @return STATUS_SUCCESS; STATUS_INVALID_STATE after logging "Invalid state." when there is no
     *         memory for a state, or the script was destroyed or loaded again from inside, or
     *         "filePath(%s) (%d) (%s)." with the path, always 1, and Lua's message, when the file
     *         can't be read, is no Lua, or fails; there is no state then
     * @throws  what a native function threw, see above
     */
    int onLoading() override;

    /** Pushes the global of that name, nil if there is none. What a metatable of the globals raises
     *  is kept for onMethodCalled() to raise. STATUS_INVALID_STATE without state, stack or memory,
     *  and if the script was destroyed or loaded again from inside. */
    int onMethodCalling(const std::string& methodName) override;

    /** Calls it, protected. 0 whether it fails or not; STATUS_INVALID_STATE without state or stack,
     *  and if the script was destroyed or loaded again from inside. */
    int onMethodCalled(const std::string& methodName) override;

    /** @name Parameters
     *  Push one. STATUS_INVALID_STATE without state, stack or memory: the function and the
     *  parameters pushed so far are taken away then. */
    ///@{
    int onMethodParameterAdded(const std::string& value) override;
    int onMethodParameterAdded(bool value) override;
    int onMethodParameterAdded(int value) override;
    int onMethodParameterAdded(float value) override;
    ///@}

    /** @name Results
     *  Read the next one, first to last, converted as Lua does. Return 0; STATUS_INVALID_STATE if
     *  a finalizer destroyed the script meanwhile or loaded it again. */
    ///@{
    int onGetReturnValue(bool& value) const override;
    int onGetReturnValue(int& value) const override;
    int onGetReturnValue(float& value) const override;
    int onGetReturnValue(std::string& value) const override;
    ///@}

    /** Goes to the first result. Logs "retCount (%d)" with the count if none was asked for. */
    void onReturnValueEvaluateBegin() override;

    /** Removes the results. Logs "retCount (%d)" with the count if none was asked for. */
    void onReturnValueEvaluateEnd() override;

private:
    void __call(const internal::LuaCall& call, internal::LuaOutcome& outcome);
    int __loadLuaApi();
    OXIL_LOCAL int __nextReturnIndex() const;

    std::unique_ptr<lua_State, void (*)(lua_State*)> __luaState;
    BaseLuaApi* __baseApi;
    std::vector<LuaApi*> __luaApis;
    mutable int __returnIndex = 1;
    bool __apisLoaded = false;
};

}  // namespace oxil
