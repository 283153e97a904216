#include "CallLater.h"

#include <cstddef>
#include <cstdio>
#include <cstdlib>

namespace oxil::test {
namespace {

constexpr std::chrono::milliseconds STEP(2);

}  // namespace

CallLater::CallLater(std::chrono::milliseconds delay, const std::function<void()>& function)
    : __function(function), __source(g_timeout_source_new(static_cast<guint>(delay.count())))
{
    g_source_set_callback(
        __source,
        [](gpointer data) -> gboolean {
            static_cast<CallLater*>(data)->__function();
            return G_SOURCE_REMOVE;
        },
        this, nullptr);
    g_source_attach(__source, nullptr);
}

CallLater::~CallLater()
{
    g_source_destroy(__source);
    g_source_unref(__source);
}

CallInTurn::CallInTurn(std::initializer_list<std::function<void()>> functions)
    : __functions(functions)
{
    __callNext();
}

void CallInTurn::__callNext()
{
    const std::size_t index = __calls.size();
    if (index < __functions.size()) {
        __calls.emplace_back(STEP, [this, index] {
            __callNext();
            __functions[index]();
        });
    }
}

Watchdog::Watchdog(std::chrono::milliseconds limit)
    : __call(limit, [] {
          std::fputs("a main loop does not end\n", stderr);
          std::abort();
      })
{
}

}  // namespace oxil::test
