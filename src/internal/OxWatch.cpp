#include "internal/OxWatch.h"

namespace oxil::internal {

thread_local Watch::All Watch::__ofThread = {};

Watch::Watch(const WatchedObject& object) noexcept
    : __object(&object), __all(__ofThread), __outer(__all.innermost)
{
    __all.innermost = this;
    ++__all.begun;
}

void Watch::endAll(const WatchedObject* object) noexcept
{
    for (Watch* watch = __ofThread.innermost; watch != nullptr; watch = watch->__outer) {
        if (watch->__object == object) {
            watch->__object = nullptr;
        }
    }
}

WatchedObject::~WatchedObject()
{
    Watch::endAll(this);
}

}  // namespace oxil::internal
