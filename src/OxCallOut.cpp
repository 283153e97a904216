#include "OxCallOut.h"

namespace oxil::internal {
namespace {

thread_local Watch* innermost = nullptr;

}  // namespace

Watch::Watch(Watched kind, const void* thing) noexcept
    : __kind(kind), __thing(thing), __outer(innermost)
{
    innermost = this;
}

Watch::~Watch()
{
    innermost = __outer;
}

void Watch::giveUp(Watched kind, const void* thing) noexcept
{
    while (Watch* watch = find(kind, thing)) {
        watch->__thing = nullptr;
    }
}

Watch* Watch::find(Watched kind, const void* thing) noexcept
{
    for (Watch* watch = innermost; watch != nullptr; watch = watch->__outer) {
        if (watch->__thing == thing && watch->__kind == kind) {
            return watch;
        }
    }
    return nullptr;
}

}  // namespace oxil::internal
