#include "internal/OxWatch.h"

namespace oxil::internal {
namespace {

thread_local Watch* innermost = nullptr;

}  // namespace

Watch::Watch(const WatchedObject& object) noexcept
    : __object(&object), __innermost(innermost), __outer(__innermost)
{
    __innermost = this;
}

WatchedObject::~WatchedObject()
{
    for (Watch* watch = innermost; watch != nullptr; watch = watch->__outer) {
        if (watch->__object == this) {
            watch->__object = nullptr;
        }
    }
}

}  // namespace oxil::internal
