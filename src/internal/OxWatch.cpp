#include "internal/OxWatch.h"

namespace oxil::internal {

thread_local Watch::All Watch::all = {};

Watch::Watch(const WatchedObject& object) noexcept
    : __object(&object), __all(all), __outer(__all.innermost)
{
    __all.innermost = this;
    ++__all.begun;
}

WatchedObject::~WatchedObject()
{
    for (Watch* watch = Watch::all.innermost; watch != nullptr; watch = watch->__outer) {
        if (watch->__object == this) {
            watch->__object = nullptr;
        }
    }
}

}  // namespace oxil::internal
