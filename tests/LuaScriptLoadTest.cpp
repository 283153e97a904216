#include <gtest/gtest.h>

#include <new>
#include <stdexcept>

#include "AllocationFailure.h"
#include "LogCapture.h"
#include "NativeApi.h"
#include "OxLuaScript.h"
#include "OxStatus.h"
#include "ScriptFile.h"

namespace oxil::test {
namespace {

TEST(LuaScriptLoadTest, WhatATableThrowsLeavesNoStateBehind)
{
    NativeApi api;
    api.whenLoading = [] { throw std::runtime_error("from onLoading()"); };
    const ScriptFile file("x = 1");
    LuaScript script(file.path());
    script.addLuaApi(&api);

    EXPECT_THROW(script.load(), std::runtime_error);

    EXPECT_EQ(script.getLuaState(), nullptr);
    api.whenLoading = [] {};
    EXPECT_EQ(script.load(), STATUS_SUCCESS);
    EXPECT_EQ(api.loads, 2);
}

TEST(LuaScriptLoadTest, WithoutMemoryThereIsNoStateHalfMade)
{
    const ScriptFile file("x = 1");
    int failures = 0;
    for (int nth = 1;; ++nth) {
        LuaScript script(file.path());
        LogCapture log;
        bool happened = false;
        bool thrown = false;
        int status = STATUS_SUCCESS;
        {
            const AllocationFailure failure(Allocation::ThrowingNew, nth);
            try {
                status = script.load();
            } catch (const std::bad_alloc&) {
                thrown = true;
            }
            happened = failure.happened();
        }
        if (!happened) {
            break;
        }
        ++failures;
        EXPECT_EQ(script.getLuaState() == nullptr, thrown || status != STATUS_SUCCESS) << nth;
    }
    EXPECT_GT(failures, 0);
}

}  // namespace
}  // namespace oxil::test
