#include "PlatformCalls.h"

#include <gtest/gtest.h>

#include <atomic>

#include "OxPlatform.h"

namespace oxil::test {
namespace {

std::atomic<PlatformCalls*> current = nullptr;

}  // namespace

PlatformCalls::PlatformCalls()
{
    current = this;
}

PlatformCalls::~PlatformCalls()
{
    current = nullptr;
}

void PlatformCalls::answer(const std::string& key, int value, int status)
{
    const std::lock_guard<std::mutex> lock(__mutex);
    __answers[key] = {status, value};
}

void PlatformCalls::refuse(const std::string& key, int status)
{
    const std::lock_guard<std::mutex> lock(__mutex);
    __answers[key] = {status, std::nullopt};
}

std::vector<std::string> PlatformCalls::keys() const
{
    const std::lock_guard<std::mutex> lock(__mutex);
    return __keys;
}

int PlatformCalls::ask(const std::string& key, int* value)
{
    {
        const std::lock_guard<std::mutex> lock(__mutex);
        __keys.push_back(key);
    }
    if (__onAsked) {
        __onAsked();
    }

    const std::lock_guard<std::mutex> lock(__mutex);
    const auto found = __answers.find(key);
    if (found == __answers.end()) {
        return REFUSED;
    }
    if (found->second.value) {
        *value = *found->second.value;
    }
    return found->second.status;
}

}  // namespace oxil::test

// Stands before the platform's own, because a definition in the executable wins.
int system_info_get_platform_int(const char* key, int* value)
{
    using oxil::test::PlatformCalls;

    PlatformCalls* const calls = oxil::test::current;
    if (calls == nullptr) {
        ADD_FAILURE() << "unexpected question to the platform: " << key;
        return PlatformCalls::REFUSED;
    }
    return calls->ask(key, value);
}
