#pragma once

#include <dlfcn.h>

#include <cstdlib>

namespace oxil::test {

/**
 * A library's own function behind a definition of the same name in the tests, which wins because it
 * is in the executable.
 */
template <typename Function>
Function* real(const char* name)
{
    void* address = dlsym(RTLD_NEXT, name);
    if (address == nullptr) {
        std::abort();
    }
    return reinterpret_cast<Function*>(address);
}

}  // namespace oxil::test
