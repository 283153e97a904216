#include "internal/OxRunningFunction.h"

namespace oxil::internal {
namespace {

thread_local RunningFunction* innermost = nullptr;

}  // namespace

RunningFunction::RunningFunction(const void* place) noexcept
    : __place(place), __innermost(innermost), __outer(__innermost)
{
    __innermost = this;
}

RunningFunction* RunningFunction::find(const void* place) noexcept
{
    RunningFunction* running = innermost;
    while (running != nullptr && running->__place != place) {
        running = running->__outer;
    }
    return running;
}

}  // namespace oxil::internal
