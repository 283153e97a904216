#include "internal/OxCallOut.h"

namespace oxil::internal {

Watch* Watch::__find(Watched kind, const void* thing) noexcept
{
    for (Watch* watch = this; watch != nullptr; watch = watch->__outer) {
        if (watch->__thing == thing && watch->__kind == kind) {
            return watch;
        }
    }
    return nullptr;
}

}  // namespace oxil::internal
