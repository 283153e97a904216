#include "OxScreen.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <climits>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include "AllocationFailure.h"
#include "FreshProcess.h"
#include "OxLogMatchers.h"
#include "PlatformCalls.h"
#include "WaitUntil.h"

namespace oxil::test {
namespace {

using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::NotNull;

using namespace std::chrono_literals;

constexpr const char* WIDTH_KEY = OXIL_FEATURE_NAMESPACE "/feature/screen.width";
constexpr const char* HEIGHT_KEY = OXIL_FEATURE_NAMESPACE "/feature/screen.height";

// ---- What the interface looks like --------------------------------------------------------------

static_assert(std::is_standard_layout_v<Screen>);
static_assert(std::is_default_constructible_v<Screen> && std::is_destructible_v<Screen>);

// Each initializer names exactly one type.
constexpr Screen* (*GET_INSTANCE)() = &Screen::getInstance;
constexpr void (*INIT_INSTANCE)() = &Screen::__initInstance;
static_assert(std::is_same_v<decltype(std::declval<const Screen&>().getSize()), Dimension>);
static_assert(std::is_same_v<decltype(std::declval<const Screen&>().getWidth()), int>);
static_assert(std::is_same_v<decltype(std::declval<const Screen&>().getHeight()), int>);

// ---- Helpers ------------------------------------------------------------------------------------

void expectSize(const Screen& screen, int width, int height)
{
    EXPECT_EQ(screen.getWidth(), width);
    EXPECT_EQ(screen.getHeight(), height);
    EXPECT_EQ(screen.getSize().width, width);
    EXPECT_EQ(screen.getSize().height, height);
}

// ---- One screen read directly -------------------------------------------------------------------

TEST(ScreenTest, AsksForWidthAndThenForHeight)
{
    PlatformCalls platform;
    platform.answer(WIDTH_KEY, 1080);
    platform.answer(HEIGHT_KEY, 1920);

    const Screen screen;

    expectSize(screen, 1080, 1920);
    EXPECT_THAT(platform.keys(), ElementsAre(WIDTH_KEY, HEIGHT_KEY));
}

TEST(ScreenTest, KeysEndInTheNamesOfTheFeatures)
{
    PlatformCalls platform;

    const Screen screen;

    EXPECT_THAT(platform.keys(), ElementsAre(testing::EndsWith("/feature/screen.width"),
                                             testing::EndsWith("/feature/screen.height")));
}

TEST(ScreenTest, WhatThePlatformRefusesIsZero)
{
    struct Row {
        bool width;
        bool height;
    };
    for (const Row row : {Row{false, false}, Row{false, true}, Row{true, false}}) {
        SCOPED_TRACE(testing::Message() << row.width << row.height);
        PlatformCalls platform;
        if (row.width) {
            platform.answer(WIDTH_KEY, 480);
        }
        if (row.height) {
            platform.answer(HEIGHT_KEY, 800);
        }
        // The memory is not zero already.
        alignas(Screen) unsigned char memory[sizeof(Screen)];
        std::memset(memory, 0xA5, sizeof memory);

        const Screen* const screen = new (memory) Screen;

        expectSize(*screen, row.width ? 480 : 0, row.height ? 800 : 0);
        EXPECT_THAT(platform.keys(), ElementsAre(WIDTH_KEY, HEIGHT_KEY));
        screen->~Screen();
    }
}

TEST(ScreenTest, AnyStatusIsIgnored)
{
    for (const int status : {INT_MIN, -524270, -1, 1, INT_MAX}) {
        PlatformCalls platform;
        platform.refuse(WIDTH_KEY, status);
        platform.answer(HEIGHT_KEY, 800, status);

        expectSize(Screen(), 0, 800);
    }
}

TEST(ScreenTest, SizeIsTakenAsThePlatformGivesIt)
{
    PlatformCalls platform;
    platform.answer(WIDTH_KEY, -1);
    platform.answer(HEIGHT_KEY, INT_MAX);

    expectSize(Screen(), -1, INT_MAX);
}

TEST(ScreenTest, EveryScreenMadeDirectlyReadsAnew)
{
    PlatformCalls platform;
    platform.answer(WIDTH_KEY, 480);
    platform.answer(HEIGHT_KEY, 800);
    const Screen first;

    platform.answer(WIDTH_KEY, 800);
    platform.answer(HEIGHT_KEY, 480);
    const Screen second;

    expectSize(first, 480, 800);
    expectSize(second, 800, 480);
    EXPECT_THAT(platform.keys(), ElementsAre(WIDTH_KEY, HEIGHT_KEY, WIDTH_KEY, HEIGHT_KEY));
}

TEST(ScreenTest, SizeIsACopy)
{
    PlatformCalls platform;
    platform.answer(WIDTH_KEY, 480);
    platform.answer(HEIGHT_KEY, 800);
    const Screen screen;

    Dimension size = screen.getSize();
    size.setSize(1, 2);

    expectSize(screen, 480, 800);
}

TEST(ScreenTest, FieldsAreWidthHeightAndSize)
{
    PlatformCalls platform;
    platform.answer(WIDTH_KEY, 480);
    platform.answer(HEIGHT_KEY, 800);
    const Screen screen;

    int fields[4];
    static_assert(sizeof fields == sizeof screen);
    std::memcpy(fields, &screen, sizeof screen);

    EXPECT_THAT(fields, ElementsAre(480, 800, 480, 800));
}

// ---- The process's one instance -----------------------------------------------------------------

TEST(ScreenTest, InstanceIsMadeOnce)
{
    inFreshProcess([] {
        PlatformCalls platform;
        platform.answer(WIDTH_KEY, 1080);
        platform.answer(HEIGHT_KEY, 1920);

        Screen* const first = GET_INSTANCE();
        Screen* const second = GET_INSTANCE();

        ASSERT_THAT(first, NotNull());
        EXPECT_EQ(first, second);
        expectSize(*first, 1080, 1920);
        EXPECT_THAT(platform.keys(), ElementsAre(WIDTH_KEY, HEIGHT_KEY));
    });
}

TEST(ScreenTest, InstanceDoesNotSeeLaterChanges)
{
    inFreshProcess([] {
        PlatformCalls platform;
        platform.answer(WIDTH_KEY, 1080);
        platform.answer(HEIGHT_KEY, 1920);
        ASSERT_THAT(Screen::getInstance(), NotNull());

        platform.answer(WIDTH_KEY, 1920);
        platform.answer(HEIGHT_KEY, 1080);

        expectSize(*Screen::getInstance(), 1080, 1920);
        EXPECT_THAT(platform.keys(), ElementsAre(WIDTH_KEY, HEIGHT_KEY));
    });
}

TEST(ScreenTest, InstanceWithoutAScreenIsZeroForGood)
{
    inFreshProcess([] {
        PlatformCalls platform;
        ASSERT_THAT(Screen::getInstance(), NotNull());
        platform.answer(WIDTH_KEY, 1080);
        platform.answer(HEIGHT_KEY, 1920);

        expectSize(*Screen::getInstance(), 0, 0);
        EXPECT_THAT(platform.keys(), ElementsAre(WIDTH_KEY, HEIGHT_KEY));
    });
}

TEST(ScreenTest, ScreenMadeDirectlyIsNotTheInstance)
{
    inFreshProcess([] {
        PlatformCalls platform;
        platform.answer(WIDTH_KEY, 480);
        platform.answer(HEIGHT_KEY, 800);
        const Screen screen;
        platform.answer(WIDTH_KEY, 800);
        platform.answer(HEIGHT_KEY, 480);

        const Screen* const instance = Screen::getInstance();

        ASSERT_THAT(instance, NotNull());
        EXPECT_NE(instance, &screen);
        expectSize(*instance, 800, 480);
        expectSize(screen, 480, 800);
        EXPECT_THAT(platform.keys(), ElementsAre(WIDTH_KEY, HEIGHT_KEY, WIDTH_KEY, HEIGHT_KEY));
    });
}

TEST(ScreenTest, InstanceMadeBeforehandIsTheInstance)
{
    inFreshProcess([] {
        PlatformCalls platform;
        platform.answer(WIDTH_KEY, 480);
        platform.answer(HEIGHT_KEY, 800);

        INIT_INSTANCE();
        EXPECT_THAT(platform.keys(), ElementsAre(WIDTH_KEY, HEIGHT_KEY));

        const Screen* const instance = Screen::getInstance();
        ASSERT_THAT(instance, NotNull());
        expectSize(*instance, 480, 800);
        EXPECT_THAT(platform.keys(), ElementsAre(WIDTH_KEY, HEIGHT_KEY));
    });
}

TEST(ScreenTest, InstanceMadeAgainTakesThePlaceOfTheFirst)
{
    inFreshProcess([] {
        PlatformCalls platform;
        platform.answer(WIDTH_KEY, 480);
        const std::unique_ptr<Screen> first(Screen::getInstance());
        platform.answer(WIDTH_KEY, 800);

        Screen::__initInstance();

        EXPECT_NE(Screen::getInstance(), first.get());
        expectSize(*Screen::getInstance(), 800, 0);
        expectSize(*first, 480, 0);
    });
}

// ---- Without memory -----------------------------------------------------------------------------

/** Asks for the instance for the first time, when there is no memory for it. */
void failToGetInstance()
{
    LogCapture log;
    const Screen* instance = nullptr;
    bool happened = false;
    {
        const AllocationFailure failure(Allocation::NothrowNew);
        instance = Screen::getInstance();
        happened = failure.happened();
    }

    EXPECT_TRUE(happened);
    EXPECT_EQ(instance, nullptr);
    EXPECT_THAT(log.lines(), ElementsAre(LoggedIn("OxScreen.cpp", "__initInstance",
                                                  "Memory allocation failed")));
}

TEST(ScreenTest, FailedAllocationIsLoggedOnceAndNeverRetried)
{
    inFreshProcess([] {
        PlatformCalls platform;
        platform.answer(WIDTH_KEY, 480);
        platform.answer(HEIGHT_KEY, 800);

        failToGetInstance();

        for (int i = 0; i < 3; ++i) {
            EXPECT_EQ(Screen::getInstance(), nullptr);
        }
        std::thread([] { EXPECT_EQ(Screen::getInstance(), nullptr); }).join();
        EXPECT_THAT(platform.keys(), IsEmpty());
    });
}

TEST(ScreenTest, InstanceMadeByHandAfterAFailureIsTheInstance)
{
    inFreshProcess([] {
        PlatformCalls platform;
        platform.answer(WIDTH_KEY, 480);
        platform.answer(HEIGHT_KEY, 800);
        failToGetInstance();

        Screen::__initInstance();

        ASSERT_THAT(Screen::getInstance(), NotNull());
        expectSize(*Screen::getInstance(), 480, 800);
    });
}

TEST(ScreenTest, EveryFailureToMakeTheInstanceIsLogged)
{
    inFreshProcess([] {
        for (int i = 0; i < 2; ++i) {
            LogCapture log;
            {
                const AllocationFailure failure(Allocation::NothrowNew);
                Screen::__initInstance();
            }
            EXPECT_THAT(log.lines(), ElementsAre(LoggedIn("OxScreen.cpp", "__initInstance",
                                                          "Memory allocation failed")));
        }

        // The guard was not used up, so the first to ask still gets an instance.
        PlatformCalls platform;
        EXPECT_THAT(Screen::getInstance(), NotNull());
    });
}

// ---- Threads ------------------------------------------------------------------------------------

TEST(ScreenTest, ThreadsThatAskAtOnceGetTheSameInstance)
{
    constexpr int COUNT = 8;

    inFreshProcess([] {
        std::atomic<int> ready = 0;
        std::atomic<int> asked = 0;
        PlatformCalls platform;
        platform.answer(WIDTH_KEY, 480);
        platform.answer(HEIGHT_KEY, 800);
        // The first one is held up until all others had the time to ask as well.
        platform.onAsked([&] {
            if (asked++ == 0) {
                EXPECT_TRUE(waitUntil([&] { return ready == COUNT; }, 10s));
                EXPECT_FALSE(waitUntil([&] { return asked > 1; }, 50ms));
            }
        });

        std::vector<Screen*> instances(COUNT);
        std::vector<std::thread> threads;
        for (Screen*& instance : instances) {
            threads.emplace_back([&ready, &instance] {
                ++ready;
                instance = Screen::getInstance();
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }

        ASSERT_THAT(instances.front(), NotNull());
        EXPECT_THAT(instances, Each(instances.front()));
        expectSize(*instances.front(), 480, 800);
        EXPECT_THAT(platform.keys(), ElementsAre(WIDTH_KEY, HEIGHT_KEY));
    });
}

}  // namespace
}  // namespace oxil::test
