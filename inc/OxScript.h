#pragma once

#include <initializer_list>
#include <string>
#include <tuple>
#include <type_traits>

#include "OxExport.h"
#include "OxWatchedObject.h"

namespace oxil {

/**
 * A script file that can be loaded, and whose global functions can be called by name.
 *
 * This base fixes the order of a call and keeps its bookkeeping; a script language fills in the
 * hooks. LuaScript does it for Lua. One call is:
 *
 * 1. onMethodCalling(): find the function;
 * 2. onMethodParameterAdded() for each parameter, in order, after which getParameterCount() is one
 *    more;
 * 3. onMethodCalled(): call it with getParameterCount() parameters, asking for getReturnCount()
 *    results;
 * 4. if results are asked for: onReturnValueEvaluateBegin(), one onGetReturnValue() for each
 *    result, first to last, onReturnValueEvaluateEnd().
 *
 * Hooks return 0 or a negative code; the default ones do nothing and return 0. The order of the
 * virtual functions is part of the binary interface.
 *
 * @par Threads
 * No locks; one script belongs to one thread at a time.
 */
class OXIL_API Script : protected internal::WatchedObject {
public:
    /** Makes a script without file. */
    Script();

    /** Makes a script for a file, which is not touched before load(). */
    explicit Script(const std::string& filePath);

    Script(const Script&) = delete;
    Script& operator=(const Script&) = delete;

    virtual ~Script();

    /** Loads the file. */
    virtual int onLoading() = 0;

    /** Finds the function and prepares the call. */
    virtual int onMethodCalling(const std::string& methodName);

    /** Calls the function. */
    virtual int onMethodCalled(const std::string& methodName);

    /** Takes a parameter of the call. */
    virtual int onMethodParameterAdded(const std::string& value);

    /** Takes a parameter of the call. */
    virtual int onMethodParameterAdded(bool value);

    /** Takes a parameter of the call. */
    virtual int onMethodParameterAdded(int value);

    /** Takes a parameter of the call. */
    virtual int onMethodParameterAdded(float value);

    /** Gives the next result of the call. */
    virtual int onGetReturnValue(bool& value) const;

    /** Gives the next result of the call. */
    virtual int onGetReturnValue(int& value) const;

    /** Gives the next result of the call. */
    virtual int onGetReturnValue(float& value) const;

    /** Gives the next result of the call. */
    virtual int onGetReturnValue(std::string& value) const;

    /** Begins the reading of results. */
    virtual void onReturnValueEvaluateBegin();

    /** Ends the reading of results. */
    virtual void onReturnValueEvaluateEnd();

    /** Loads the file; returns what onLoading() returns. */
    int load();

    /**
     * Calls a function without parameters; its results are not read. What becomes of them is the
     * script language's affair: LuaScript leaves them on its stack.
     *
     * Name and counts are set before the hooks are called, and stay also when one fails.
     *
     * @param methodName   name of the function
     * @param returnCount  number of results the function is asked for, 0 or more
     * @return STATUS_SUCCESS; STATUS_INVALID_PARAMETER after logging "Invalid parameter." for an
     *         empty name or a negative count, with nothing changed; STATUS_INVALID_STATE after
     *         logging "Invalid state." when onMethodCalling() or onMethodCalled() did not return 0,
     *         or one of them led to the end of this script
     */
    int callMethod(const std::string& methodName, int returnCount);

    /** Does not compile: what is no number of results was meant as a parameter, and those stand
     *  behind the results, as in `callMethod(name, std::tie(), true)`. */
    template <typename Count,
              std::enable_if_t<std::is_same_v<Count, bool> || std::is_floating_point_v<Count> ||
                                   std::is_pointer_v<Count>,
                               int> = 0>
    int callMethod(const std::string&, Count)
    {
        static_assert(std::is_void_v<Count>,  // never
                      "the number of results is an int; parameters stand behind the results: "
                      "callMethod(name, std::tie(), parameter)");
        return 0;
    }

    /**
     * Calls a function without parameters or results.
     *
     * @return as above, after logging "(%d)" with the code in addition, or STATUS_INVALID_PARAMETER
     *         after logging "Invalid parameter." for an empty name
     */
    int callMethod(const std::string& methodName);

    /**
     * Calls a function with parameters and results.
     *
     * Results come first, as `std::tie(sum)`, or `std::tie()` for none, and then the parameters.
     * @snippet countdown/main.cpp script
     *
     * Calls nest: when the function leads to other calls of this script, from a timer in a waiting
     * loop say, or the reading of a result does, this one still reads its own results.
     *
     * @param methodName  name of the function; has to live until the call returns
     * @param results     where the results go, first to last: `bool`, `int`, `float`, `std::string`
     * @param params      `bool`, `int`, `float`, `std::string`, also `double`, which is passed as
     *                    `float`, and C text, which is passed as text (`std::logic_error` if null)
     * @return STATUS_SUCCESS; STATUS_INVALID_PARAMETER after logging "Invalid parameter." for an
     *         empty name; STATUS_INVALID_STATE after logging "Invalid state." when a hook did not
     *         return 0, or led to the end of this script. No result is read of a call that failed
     *         before; a result that can't be read ends the reading.
     */
    template <typename... Results, typename... Params>
    int callMethod(const std::string& methodName, std::tuple<Results&...> results,
                   const Params&... params)
    {
        static_assert((IS_RESULT<Results> && ...),
                      "results of a script function are bool, int, float or std::string");
        static_assert((IS_PARAMETER<Params> && ...),
                      "parameters of a script function are bool, int, float, double, std::string "
                      "or const char*");
        return std::apply(
            [&](Results&... result) {
                return callMethod(
                    methodName,
                    std::initializer_list<Parameter>{Parameter(__toParameter(params))...},
                    std::initializer_list<Result>{Result(result)...});
            },
            results);
    }

    /** Path of the file. */
    std::string getFilePath() const;

    /** Name of the function called last, or being called. */
    std::string getMethodName() const;

    /** Number of results asked for by that call. */
    int getReturnCount() const;

    /** Number of parameters added to that call so far. */
    int getParameterCount() const;

private:
    template <typename T>
    static constexpr bool IS_RESULT = std::is_same_v<T, bool> || std::is_same_v<T, int> ||
                                      std::is_same_v<T, float> || std::is_same_v<T, std::string>;

    template <typename T>
    static constexpr bool IS_PARAMETER =
        IS_RESULT<T> || std::is_same_v<T, double> || std::is_same_v<std::decay_t<T>, const char*> ||
        std::is_same_v<std::decay_t<T>, char*>;

    /** A parameter on its way to the hook for its type. */
    class Parameter {
    public:
        explicit Parameter(bool value) : __kind(Kind::BOOL), __bool(value) {}
        explicit Parameter(int value) : __kind(Kind::INT), __int(value) {}
        explicit Parameter(float value) : __kind(Kind::FLOAT), __float(value) {}
        explicit Parameter(const std::string& value) : __kind(Kind::TEXT), __text(&value) {}

        int addTo(Script& script) const;

    private:
        enum class Kind { BOOL, INT, FLOAT, TEXT };

        Kind __kind;
        union {
            bool __bool;
            int __int;
            float __float;
            const std::string* __text;
        };
    };

    /** A place for a result, filled by the hook for its type. */
    class Result {
    public:
        explicit Result(bool& value) : __kind(Kind::BOOL), __bool(&value) {}
        explicit Result(int& value) : __kind(Kind::INT), __int(&value) {}
        explicit Result(float& value) : __kind(Kind::FLOAT), __float(&value) {}
        explicit Result(std::string& value) : __kind(Kind::TEXT), __text(&value) {}

        int getFrom(const Script& script) const;

    private:
        enum class Kind { BOOL, INT, FLOAT, TEXT };

        Kind __kind;
        union {
            bool* __bool;
            int* __int;
            float* __float;
            std::string* __text;
        };
    };

    static bool __toParameter(bool value) { return value; }
    static int __toParameter(int value) { return value; }
    static float __toParameter(float value) { return value; }
    static float __toParameter(double value) { return static_cast<float>(value); }
    static const std::string& __toParameter(const std::string& value) { return value; }
    static std::string __toParameter(const char* value) { return value; }

    int callMethod(const std::string& methodName, std::initializer_list<Parameter> parameters,
                   std::initializer_list<Result> results);
    OXIL_LOCAL void __setCall(const std::string& methodName, int returnCount, int parameterCount);

    std::string __filePath;
    std::string __methodName;
    int __returnCount = 0;
    int __parameterCount = 0;
};

}  // namespace oxil
