#include "OxScript.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <functional>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include "OxLogMatchers.h"
#include "OxStatus.h"

namespace oxil::test {
namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

static_assert(std::is_abstract_v<Script> && std::has_virtual_destructor_v<Script>);
static_assert(!std::is_copy_constructible_v<Script> && !std::is_copy_assignable_v<Script>);
static_assert(std::is_same_v<decltype(std::declval<const Script&>().getFilePath()), std::string>);
static_assert(std::is_same_v<decltype(std::declval<const Script&>().getMethodName()), std::string>);
static_assert(std::is_same_v<decltype(std::declval<const Script&>().getReturnCount()), int>);
static_assert(std::is_same_v<decltype(std::declval<const Script&>().getParameterCount()), int>);

const LoggedBy logged("OxScript.cpp");

template <typename T>
std::string text(const T& value)
{
    std::ostringstream stream;
    stream << std::boolalpha << value;
    return stream.str();
}

/** Notes every hook with its argument and, in brackets, the bookkeeping that the hook sees. */
class NotingScript : public Script {
public:
    using Script::Script;

    int onLoading() override { return note("loading"); }
    int onMethodCalling(const std::string& name) override { return note("calling " + name); }
    int onMethodCalled(const std::string& name) override { return note("called " + name); }
    int onMethodParameterAdded(const std::string& value) override { return note("text " + value); }
    int onMethodParameterAdded(bool value) override { return note("bool " + text(value)); }
    int onMethodParameterAdded(int value) override { return note("int " + text(value)); }
    int onMethodParameterAdded(float value) override { return note("float " + text(value)); }
    int onGetReturnValue(bool& value) const override { return give(value, true, "get bool"); }
    int onGetReturnValue(int& value) const override { return give(value, 7, "get int"); }
    int onGetReturnValue(float& value) const override { return give(value, 1.5F, "get float"); }
    int onGetReturnValue(std::string& value) const override
    {
        return give(value, std::string("seven"), "get text");
    }
    void onReturnValueEvaluateBegin() override { note("begin"); }
    void onReturnValueEvaluateEnd() override { note("end"); }

    std::string bookkeeping() const
    {
        return getMethodName() + " " + text(getParameterCount()) + "->" + text(getReturnCount());
    }

    mutable std::vector<std::string> hooks;   ///< without bookkeeping
    mutable std::vector<std::string> states;  ///< hooks with bookkeeping
    std::function<int(const std::string& hook)> answer = [](const std::string&) { return 0; };

private:
    int note(const std::string& hook) const
    {
        hooks.push_back(hook);
        states.push_back(hook + " [" + bookkeeping() + "]");
        return answer(hook);
    }

    template <typename T>
    int give(T& place, const T& value, const std::string& hook) const
    {
        const int code = note(hook);
        if (code == 0) {
            place = value;
        }
        return code;
    }
};

/** Has the hooks that every script has. */
class PlainScript : public Script {
public:
    using Script::Script;

    int onLoading() override { return 0; }
};

TEST(ScriptTest, StartsWithNothing)
{
    const NotingScript script;

    EXPECT_EQ(script.getFilePath(), "");
    EXPECT_EQ(script.bookkeeping(), " 0->0");
    EXPECT_THAT(script.hooks, IsEmpty());
}

TEST(ScriptTest, KeepsThePathAndLeavesTheFileAlone)
{
    std::string path("no/such\0file", 12);
    const NotingScript script(path);
    path.clear();

    EXPECT_EQ(script.getFilePath(), std::string("no/such\0file", 12));
    EXPECT_EQ(script.bookkeeping(), " 0->0");
    EXPECT_THAT(script.hooks, IsEmpty());
}

TEST(ScriptTest, IsDestroyedThroughItsBase)
{
    class Leaving : public PlainScript {
    public:
        explicit Leaving(bool& gone) : __gone(gone) {}
        ~Leaving() override { __gone = true; }

    private:
        bool& __gone;
    };
    bool gone = false;

    std::unique_ptr<Script>(std::make_unique<Leaving>(gone)).reset();

    EXPECT_TRUE(gone);
}

TEST(ScriptTest, HooksDoNothingByDefault)
{
    PlainScript script("file");
    Script& hooks = script;
    bool flag = true;
    int number = 4;
    float ratio = 0.5F;
    std::string word = "word";

    EXPECT_EQ(hooks.onMethodCalling("f"), 0);
    EXPECT_EQ(hooks.onMethodCalled("f"), 0);
    EXPECT_EQ(hooks.onMethodParameterAdded(word), 0);
    EXPECT_EQ(hooks.onMethodParameterAdded(true), 0);
    EXPECT_EQ(hooks.onMethodParameterAdded(1), 0);
    EXPECT_EQ(hooks.onMethodParameterAdded(1.0F), 0);
    EXPECT_EQ(hooks.onGetReturnValue(flag), 0);
    EXPECT_EQ(hooks.onGetReturnValue(number), 0);
    EXPECT_EQ(hooks.onGetReturnValue(ratio), 0);
    EXPECT_EQ(hooks.onGetReturnValue(word), 0);
    hooks.onReturnValueEvaluateBegin();
    hooks.onReturnValueEvaluateEnd();

    EXPECT_EQ(std::tie(flag, number, ratio, word), std::make_tuple(true, 4, 0.5F, "word"));
    EXPECT_EQ(script.getMethodName(), "");
    EXPECT_EQ(script.getReturnCount(), 0);
    EXPECT_EQ(script.getParameterCount(), 0);
    EXPECT_EQ(script.callMethod("f", std::tie(number), true, 1, 1.0F, "word"), STATUS_SUCCESS);
}

TEST(ScriptTest, LoadingIsTheHookAndNothingElse)
{
    for (const int code : {0, -1, 7, STATUS_INVALID_STATE}) {
        NotingScript script("file");
        script.answer = [code](const std::string&) { return code; };

        EXPECT_EQ(script.load(), code);
        EXPECT_THAT(script.states, ElementsAre("loading [ 0->0]"));
        EXPECT_EQ(script.bookkeeping(), " 0->0");
    }
}

TEST(ScriptTest, CallSetsItsBookkeepingBeforeTheHooks)
{
    NotingScript script("file");

    EXPECT_EQ(script.callMethod("greet", 3), STATUS_SUCCESS);
    EXPECT_THAT(script.states,
                ElementsAre("calling greet [greet 0->3]", "called greet [greet 0->3]"));
    EXPECT_EQ(script.bookkeeping(), "greet 0->3");
    EXPECT_EQ(script.getFilePath(), "file");

    EXPECT_EQ(script.callMethod("sum", std::tie(), 1, 2), STATUS_SUCCESS);
    EXPECT_EQ(script.bookkeeping(), "sum 2->0");

    script.states.clear();
    EXPECT_EQ(script.callMethod("part"), STATUS_SUCCESS);
    EXPECT_THAT(script.states, ElementsAre("calling part [part 0->0]", "called part [part 0->0]"));
    EXPECT_EQ(script.bookkeeping(), "part 0->0");
}

TEST(ScriptTest, CallMayAskForAnyNumberOfResultsThatItDoesNotRead)
{
    NotingScript script;

    EXPECT_EQ(script.callMethod("f", INT_MAX), STATUS_SUCCESS);
    EXPECT_EQ(script.getReturnCount(), INT_MAX);
    EXPECT_THAT(script.hooks, ElementsAre("calling f", "called f"));
}

TEST(ScriptTest, RefusedCallChangesNothingAndCallsNoHook)
{
    const std::vector<std::function<int(Script&)>> calls = {
        [](Script& script) { return script.callMethod("", 0); },
        [](Script& script) { return script.callMethod("", 4); },
        [](Script& script) { return script.callMethod("", -1); },
        [](Script& script) { return script.callMethod("f", -1); },
        [](Script& script) { return script.callMethod("f", INT_MIN); },
        [](Script& script) { return script.callMethod(""); },
        [](Script& script) { return script.callMethod("", std::tie()); },
        [](Script& script) { return script.callMethod("", std::tie(), 1, "text"); },
    };
    for (std::size_t i = 0; i < calls.size(); ++i) {
        SCOPED_TRACE(i);
        NotingScript script;
        int before = 0;
        ASSERT_EQ(script.callMethod("earlier", std::tie(before), true, 2), STATUS_SUCCESS);
        script.hooks.clear();
        LogCapture log;

        EXPECT_EQ(calls[i](script), STATUS_INVALID_PARAMETER);
        EXPECT_THAT(log.lines(), ElementsAre(logged("callMethod", "Invalid parameter.")));
        EXPECT_THAT(script.hooks, IsEmpty());
        EXPECT_EQ(script.bookkeeping(), "earlier 2->1");
    }
}

TEST(ScriptTest, RefusedTypedCallLeavesItsResultsAlone)
{
    NotingScript script;
    int number = 1;
    std::string word = "one";
    LogCapture log;

    EXPECT_EQ(script.callMethod("", std::tie(number, word)), STATUS_INVALID_PARAMETER);
    EXPECT_THAT(log.lines(), ElementsAre(logged("callMethod", "Invalid parameter.")));
    EXPECT_EQ(number, 1);
    EXPECT_EQ(word, "one");
}

TEST(ScriptTest, FailedHookIsAnInvalidStateWhateverItAnswered)
{
    for (const int code : {-1, 1, STATUS_INVALID_PARAMETER, STATUS_NOT_FOUND}) {
        for (const std::string failing : {"calling f", "called f"}) {
            SCOPED_TRACE(failing + " " + text(code));
            NotingScript script;
            script.answer = [&](const std::string& hook) { return hook == failing ? code : 0; };
            std::vector<std::string> hooks = {"calling f"};
            if (failing == "called f") {
                hooks.push_back(failing);
            }
            LogCapture log;

            EXPECT_EQ(script.callMethod("f", 2), STATUS_INVALID_STATE);
            EXPECT_THAT(log.lines(), ElementsAre(logged("callMethod", "Invalid state.")));
            EXPECT_EQ(script.hooks, hooks);
            EXPECT_EQ(script.bookkeeping(), "f 0->2");

            log.clear();
            script.hooks.clear();
            EXPECT_EQ(script.callMethod("f"), STATUS_INVALID_STATE);
            EXPECT_THAT(log.lines(), ElementsAre(logged("callMethod", "Invalid state."),
                                                 logged("callMethod", "(-524271)")));
            EXPECT_EQ(script.hooks, hooks);
            EXPECT_EQ(script.bookkeeping(), "f 0->0");
        }
    }
}

TEST(ScriptTest, CallFromAHookOverwritesTheOuterUntypedCall)
{
    NotingScript script;
    script.answer = [&](const std::string& hook) {
        return hook == "calling outer" ? script.callMethod("inner", 5) : 0;
    };

    EXPECT_EQ(script.callMethod("outer", 2), STATUS_SUCCESS);
    EXPECT_THAT(script.states,
                ElementsAre("calling outer [outer 0->2]", "calling inner [inner 0->5]",
                            "called inner [inner 0->5]", "called inner [inner 0->5]"));
    EXPECT_EQ(script.bookkeeping(), "inner 0->5");
}

TEST(ScriptTest, CallAfterTheOuterUntypedCallWasMadeOverwritesIt)
{
    NotingScript script;
    script.answer = [&](const std::string& hook) {
        return hook == "called outer" ? script.callMethod("inner", std::tie(), 1) : 0;
    };

    EXPECT_EQ(script.callMethod("outer", 2), STATUS_SUCCESS);
    EXPECT_EQ(script.bookkeeping(), "inner 1->0");
}

TEST(ScriptTest, TypedCallRunsTheHooksInOrder)
{
    NotingScript script;
    bool flag = false;
    int number = 0;
    float ratio = 0;
    std::string word;

    EXPECT_EQ(script.callMethod("f", std::tie(word, flag, number, ratio), std::string("a"), true, 2,
                                0.5F),
              STATUS_SUCCESS);

    EXPECT_THAT(script.states,
                ElementsAre("calling f [f 0->4]", "text a [f 0->4]", "bool true [f 1->4]",
                            "int 2 [f 2->4]", "float 0.5 [f 3->4]", "called f [f 4->4]",
                            "begin [f 4->4]", "get text [f 4->4]", "get bool [f 4->4]",
                            "get int [f 4->4]", "get float [f 4->4]", "end [f 4->4]"));
    EXPECT_EQ(std::tie(word, flag, number, ratio), std::make_tuple("seven", true, 7, 1.5F));
    EXPECT_EQ(script.bookkeeping(), "f 4->4");
}

TEST(ScriptTest, TypedCallWithoutResultsReadsNone)
{
    NotingScript script;

    EXPECT_EQ(script.callMethod("greet", std::tie(), "name"), STATUS_SUCCESS);
    EXPECT_THAT(script.hooks, ElementsAre("calling greet", "text name", "called greet"));
}

TEST(ScriptTest, TypedCallWithoutParametersAddsNone)
{
    NotingScript script;
    int number = 0;

    EXPECT_EQ(script.callMethod("count", std::tie(number)), STATUS_SUCCESS);
    EXPECT_THAT(script.states,
                ElementsAre("calling count [count 0->1]", "called count [count 0->1]",
                            "begin [count 0->1]", "get int [count 0->1]", "end [count 0->1]"));

    script.hooks.clear();
    EXPECT_EQ(script.callMethod("count", std::tie()), STATUS_SUCCESS);
    EXPECT_THAT(script.hooks, ElementsAre("calling count", "called count"));
}

TEST(ScriptTest, ParametersGoToTheHookOfTheirType)
{
    NotingScript script;
    const bool flag = false;
    const double real = 0.1;
    const std::string word = "string";
    const char* constantText = "constant text";
    char array[] = "array";
    char* variableText = array;

    EXPECT_EQ(script.callMethod("f", std::tie(), flag, INT_MIN, INT_MAX, -0.25F, real, 2.0, word,
                                constantText, array, variableText, "literal", ""),
              STATUS_SUCCESS);

    const float narrowed = static_cast<float>(real);
    EXPECT_THAT(script.hooks,
                ElementsAre("calling f", "bool false", "int " + text(INT_MIN),
                            "int " + text(INT_MAX), "float -0.25", "float " + text(narrowed),
                            "float 2", "text string", "text constant text", "text array",
                            "text array", "text literal", "text ", "called f"));
    EXPECT_EQ(script.getParameterCount(), 12);
}

TEST(ScriptTest, DoubleIsNarrowedToFloat)
{
    class Taking : public PlainScript {
    public:
        using PlainScript::onMethodParameterAdded;
        int onMethodParameterAdded(float value) override
        {
            taken = value;
            return 0;
        }
        float taken = 0;
    };
    Taking script;

    EXPECT_EQ(script.callMethod("f", std::tie(), 0.1), STATUS_SUCCESS);
    EXPECT_EQ(script.taken, 0.1F);
}

TEST(ScriptTest, TextReachesItsHookWhole)
{
    NotingScript script;
    const std::string word("a\0b", 3);

    EXPECT_EQ(script.callMethod("f", std::tie(), word), STATUS_SUCCESS);
    EXPECT_EQ(script.hooks.at(1), "text " + word);
}

TEST(ScriptTest, NullTextIsRefusedBeforeAnyHook)
{
    NotingScript script;
    const char* nothing = nullptr;

    EXPECT_THROW(script.callMethod("f", std::tie(), nothing), std::logic_error);
    EXPECT_THAT(script.hooks, IsEmpty());
}

/** Lets each hook of a call in turn fail that returns a code. */
void expectEveryFailureEndsTheCall(const std::function<int(Script&)>& call)
{
    NotingScript successful;
    ASSERT_EQ(call(successful), STATUS_SUCCESS);
    const std::vector<std::string> all = successful.hooks;
    ASSERT_EQ(all.size(), 8U);
    ASSERT_EQ(all[4], "begin");
    ASSERT_EQ(all[7], "end");

    for (const int code : {-1, 1}) {
        for (const std::size_t failing : {0U, 1U, 2U, 3U, 5U, 6U}) {
            SCOPED_TRACE(all[failing]);
            NotingScript script;
            script.answer = [&](const std::string& hook) {
                return hook == all[failing] ? code : 0;
            };
            std::vector<std::string> hooks(all.begin(),
                                           all.begin() + static_cast<std::ptrdiff_t>(failing) + 1);
            if (failing > 4) {
                hooks.emplace_back("end");
            }
            LogCapture log;

            EXPECT_EQ(call(script), STATUS_INVALID_STATE);
            EXPECT_THAT(log.lines(), ElementsAre(logged("callMethod", "Invalid state.")));
            EXPECT_EQ(script.hooks, hooks);
        }
    }
}

TEST(ScriptTest, FailureOfAnyHookEndsATypedCall)
{
    expectEveryFailureEndsTheCall([](Script& script) {
        std::string word = "untouched";
        int number = -1;
        const int result = script.callMethod("f", std::tie(word, number), true, 2.5F);
        EXPECT_EQ(number, result == STATUS_SUCCESS ? 7 : -1);
        return result;
    });
    expectEveryFailureEndsTheCall([](Script& script) {
        bool flag = false;
        float ratio = -1;
        const int result = script.callMethod("f", std::tie(flag, ratio), "text", 4);
        EXPECT_EQ(ratio, result == STATUS_SUCCESS ? 1.5F : -1.0F);
        return result;
    });
}

TEST(ScriptTest, ResultsReadBeforeAFailureAreKept)
{
    NotingScript script;
    script.answer = [](const std::string& hook) { return hook == "get int" ? -1 : 0; };
    std::string word;
    int number = -1;
    bool flag = false;
    LogCapture log;

    EXPECT_EQ(script.callMethod("f", std::tie(word, number, flag)), STATUS_INVALID_STATE);
    EXPECT_EQ(word, "seven");
    EXPECT_EQ(number, -1);
    EXPECT_FALSE(flag);
    EXPECT_EQ(script.hooks.back(), "end");
}

TEST(ScriptTest, InvalidStateIsLoggedAfterTheResultsWereEnded)
{
    LogCapture log;
    std::size_t linesAtEnd = 99;
    NotingScript script;
    script.answer = [&](const std::string& hook) {
        if (hook == "end") {
            linesAtEnd = log.lines().size();
        }
        return hook == "get int" ? -1 : 0;
    };
    int number = 0;

    EXPECT_EQ(script.callMethod("f", std::tie(number)), STATUS_INVALID_STATE);
    EXPECT_EQ(linesAtEnd, 0U);
    EXPECT_THAT(log.lines(), ElementsAre(logged("callMethod", "Invalid state.")));
}

TEST(ScriptTest, TypedCallReadsItsOwnResultsAfterCallsFromWithin)
{
    const std::vector<std::function<int(Script&)>> innerCalls = {
        [](Script& script) { return script.callMethod("inner"); },
        [](Script& script) { return script.callMethod("inner", 9); },
        [](Script& script) {
            bool flag = false;
            return script.callMethod("inner", std::tie(flag), 1, 2, 3);
        },
    };
    for (std::size_t i = 0; i < innerCalls.size(); ++i) {
        SCOPED_TRACE(i);
        NotingScript script;
        script.answer = [&](const std::string& hook) {
            return hook == "called outer" ? innerCalls[i](script) : 0;
        };
        std::string word;
        int number = 0;

        EXPECT_EQ(script.callMethod("outer", std::tie(word, number), "a"), STATUS_SUCCESS);

        const std::vector<std::string> last(script.states.end() - 4, script.states.end());
        EXPECT_THAT(last, ElementsAre("begin [outer 1->2]", "get text [outer 1->2]",
                                      "get int [outer 1->2]", "end [outer 1->2]"));
        EXPECT_EQ(word, "seven");
        EXPECT_EQ(number, 7);
        EXPECT_EQ(script.bookkeeping(), "outer 1->2");
    }
}

TEST(ScriptTest, TypedCallReadsItsOwnResultsAfterCallsFromWithinTheReading)
{
    for (const std::string place : {"begin", "get text", "get int"}) {
        SCOPED_TRACE(place);
        NotingScript script;
        int innerCalls = 0;
        script.answer = [&](const std::string& hook) {
            // Not again from the hooks of the inner call.
            if (hook == place && innerCalls == 0) {
                ++innerCalls;
                int number = 0;
                EXPECT_EQ(script.callMethod("inner", std::tie(number), 1, 2, 3), STATUS_SUCCESS);
            }
            return 0;
        };
        std::string word;
        int number = 0;

        EXPECT_EQ(script.callMethod("outer", std::tie(word, number), "a"), STATUS_SUCCESS);

        EXPECT_EQ(innerCalls, 1);
        std::vector<std::string> outer;
        for (const std::string& state : script.states) {
            if (state.find("[inner") == std::string::npos) {
                outer.push_back(state);
            }
        }
        EXPECT_THAT(outer, ElementsAre("calling outer [outer 0->2]", "text a [outer 0->2]",
                                       "called outer [outer 1->2]", "begin [outer 1->2]",
                                       "get text [outer 1->2]", "get int [outer 1->2]",
                                       "end [outer 1->2]"));
        EXPECT_EQ(word, "seven");
        EXPECT_EQ(number, 7);
    }
}

TEST(ScriptTest, FailedCallFromWithinDoesNotFailTheOuterOne)
{
    NotingScript script;
    script.answer = [&](const std::string& hook) {
        if (hook == "called outer") {
            LogCapture log;
            EXPECT_EQ(script.callMethod("broken"), STATUS_INVALID_STATE);
            EXPECT_EQ(script.callMethod("", 3), STATUS_INVALID_PARAMETER);
        }
        return hook == "calling broken" ? -1 : 0;
    };
    int number = 0;

    EXPECT_EQ(script.callMethod("outer", std::tie(number), true), STATUS_SUCCESS);
    EXPECT_EQ(number, 7);
    EXPECT_EQ(script.bookkeeping(), "outer 1->1");
}

TEST(ScriptTest, CallsNestSeveralTimes)
{
    NotingScript script;
    std::vector<int> numbers(3, 0);
    script.answer = [&](const std::string& hook) {
        if (hook == "called a") {
            return script.callMethod("b", std::tie(numbers[1]), 1);
        }
        return hook == "called b" ? script.callMethod("c", std::tie(numbers[2]), 1, 2) : 0;
    };

    EXPECT_EQ(script.callMethod("a", std::tie(numbers[0])), STATUS_SUCCESS);
    EXPECT_THAT(numbers, ElementsAre(7, 7, 7));
    EXPECT_THAT(
        script.states,
        ElementsAreArray({"calling a [a 0->1]", "called a [a 0->1]", "calling b [b 0->1]",
                          "int 1 [b 0->1]", "called b [b 1->1]", "calling c [c 0->1]",
                          "int 1 [c 0->1]", "int 2 [c 1->1]", "called c [c 2->1]", "begin [c 2->1]",
                          "get int [c 2->1]", "end [c 2->1]", "begin [b 1->1]", "get int [b 1->1]",
                          "end [b 1->1]", "begin [a 0->1]", "get int [a 0->1]", "end [a 0->1]"}));
    EXPECT_EQ(script.bookkeeping(), "a 0->1");
}

}  // namespace
}  // namespace oxil::test
