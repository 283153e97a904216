#pragma once

#include <gtest/gtest.h>
#include <pthread.h>

#include <cstddef>
#include <functional>

namespace oxil::test {

/** Runs a function on a thread of its own with one megabyte of stack, where a recursion of some ten
 *  thousand levels ends the process. */
inline void runOnSmallStack(const std::function<void()>& function)
{
    pthread_attr_t attributes;
    ASSERT_EQ(pthread_attr_init(&attributes), 0);
    ASSERT_EQ(pthread_attr_setstacksize(&attributes, std::size_t(1) << 20), 0);
    pthread_t thread{};
    const int r = pthread_create(
        &thread, &attributes,
        [](void* data) -> void* {
            (*static_cast<const std::function<void()>*>(data))();
            return nullptr;
        },
        const_cast<std::function<void()>*>(&function));
    pthread_attr_destroy(&attributes);
    ASSERT_EQ(r, 0);
    pthread_join(thread, nullptr);
}

}  // namespace oxil::test
