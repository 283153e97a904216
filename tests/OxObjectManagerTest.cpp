#include "OxObjectManager.h"

#include <gmock/gmock.h>

#include <atomic>
#include <limits>
#include <new>
#include <stdexcept>
#include <thread>
#include <type_traits>
#include <vector>

#include "AllocationFailure.h"
#include "OxLogMatchers.h"

namespace oxil::test {
namespace {

using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* FILE_NAME = "OxObjectManager.h";

// Counts the living, so that a registry that deletes would be noticed.
struct Thing {
    Thing() { ++alive; }
    Thing(const Thing&) = delete;
    Thing& operator=(const Thing&) = delete;
    ~Thing() { --alive; }

    inline static int alive = 0;
};

// One registry for each test, because a registry lasts as long as the process.
template <int N>
struct ThingOf : Thing {
};

template <int N>
ObjectManager<ThingOf<N>>& registry()
{
    return *ObjectManager<ThingOf<N>>::getInstance();
}

static_assert(!std::is_copy_constructible_v<ObjectManager<Thing>>);
static_assert(!std::is_copy_assignable_v<ObjectManager<Thing>>);
static_assert(!std::is_default_constructible_v<ObjectManager<Thing>>);

TEST(ObjectManagerTest, ThereIsOneInstanceForEachType)
{
    using First = ObjectManager<ThingOf<1>>;
    using Second = ObjectManager<ThingOf<2>>;

    ASSERT_NE(First::getInstance(), nullptr);
    ASSERT_NE(Second::getInstance(), nullptr);
    EXPECT_EQ(First::getInstance(), First::getInstance());
    EXPECT_NE(static_cast<const void*>(First::getInstance()),
              static_cast<const void*>(Second::getInstance()));

    ThingOf<1> thing;
    EXPECT_EQ(First::getInstance()->addObject(&thing), 0);
    EXPECT_THROW(Second::getInstance()->getObject(0), std::out_of_range);
    First::getInstance()->removeObject(&thing);
}

TEST(ObjectManagerTest, ThreadsThatMeetAtTheFirstUseGetTheSameInstance)
{
    using Registry = ObjectManager<ThingOf<3>>;
    constexpr int THREADS = 8;

    std::vector<Registry*> instances(THREADS);
    std::atomic<int> ready{0};
    std::vector<std::thread> threads;
    for (Registry*& instance : instances) {
        threads.emplace_back([&instance, &ready] {
            ++ready;
            while (ready < THREADS) {
                std::this_thread::yield();
            }
            instance = Registry::getInstance();
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }

    ASSERT_NE(instances.front(), nullptr);
    EXPECT_THAT(instances, Each(instances.front()));
}

TEST(ObjectManagerTest, HandleIsThePositionInTheOrderOfAddition)
{
    auto& things = registry<4>();
    ThingOf<4> a;
    ThingOf<4> b;
    ThingOf<4> c;

    EXPECT_EQ(things.addObject(&a), 0);
    EXPECT_EQ(things.addObject(&b), 1);
    EXPECT_EQ(things.addObject(&c), 2);

    EXPECT_EQ(things.getObject(0), &a);
    EXPECT_EQ(things.getObject(1), &b);
    EXPECT_EQ(things.getObject(2), &c);
}

TEST(ObjectManagerTest, RemovalMovesEveryLaterObjectOnePlaceDown)
{
    auto& things = registry<5>();
    ThingOf<5> a;
    ThingOf<5> b;
    ThingOf<5> c;
    ThingOf<5> d;
    for (ThingOf<5>* thing : {&a, &b, &c, &d}) {
        things.addObject(thing);
    }

    things.removeObject(&b);
    EXPECT_EQ(things.getObject(0), &a);
    EXPECT_EQ(things.getObject(1), &c);
    EXPECT_EQ(things.getObject(2), &d);
    EXPECT_THROW(things.getObject(3), std::out_of_range);

    things.removeObject(&d);
    EXPECT_EQ(things.addObject(&b), 2);
    EXPECT_EQ(things.getObject(2), &b);

    things.removeObject(&a);
    EXPECT_EQ(things.getObject(0), &c);
    EXPECT_EQ(things.getObject(1), &b);
    EXPECT_THROW(things.getObject(2), std::out_of_range);
}

TEST(ObjectManagerTest, NegativeHandleIsLoggedAndNamesNothing)
{
    auto& things = registry<6>();
    ThingOf<6> thing;
    things.addObject(&thing);

    for (const int handle : {-1, -2, std::numeric_limits<int>::min()}) {
        LogCapture log;
        EXPECT_EQ(things.getObject(handle), nullptr) << handle;
        EXPECT_THAT(log.lines(),
                    ElementsAre(LoggedIn(FILE_NAME, "getObject", "Invalid parameter.")))
            << handle;
    }
}

TEST(ObjectManagerTest, HandleAtOrPastTheEndThrowsAndLogsNothing)
{
    auto& things = registry<7>();
    EXPECT_THROW(things.getObject(0), std::out_of_range);

    ThingOf<7> thing;
    things.addObject(&thing);
    for (const int handle : {1, 2, std::numeric_limits<int>::max()}) {
        EXPECT_THROW(things.getObject(handle), std::out_of_range) << handle;
    }

    things.removeObject(&thing);
    EXPECT_THROW(things.getObject(0), std::out_of_range);
}

TEST(ObjectManagerTest, RemovingAnAbsentObjectIsLoggedAndChangesNothing)
{
    auto& things = registry<8>();
    ThingOf<8> present;
    ThingOf<8> absent;

    LogCapture log;
    things.removeObject(&absent);
    EXPECT_THAT(log.lines(), ElementsAre(LoggedIn(FILE_NAME, "removeObject", "Object not found.")));

    things.addObject(&present);
    log.clear();
    things.removeObject(&absent);
    things.removeObject(nullptr);
    EXPECT_THAT(log.lines(), ElementsAre(LoggedIn(FILE_NAME, "removeObject", "Object not found."),
                                         LoggedIn(FILE_NAME, "removeObject", "Object not found.")));
    EXPECT_EQ(things.getObject(0), &present);

    log.clear();
    things.removeObject(&present);
    EXPECT_THAT(log.lines(), IsEmpty());
    things.removeObject(&present);
    EXPECT_THAT(log.lines(), ElementsAre(LoggedIn(FILE_NAME, "removeObject", "Object not found.")));
}

TEST(ObjectManagerTest, RemovesTheFirstOfEqualEntriesOnly)
{
    auto& things = registry<9>();
    ThingOf<9> twice;
    ThingOf<9> once;
    for (ThingOf<9>* thing : {&once, &twice, &once, &twice}) {
        things.addObject(thing);
    }

    things.removeObject(&twice);
    EXPECT_EQ(things.getObject(0), &once);
    EXPECT_EQ(things.getObject(1), &once);
    EXPECT_EQ(things.getObject(2), &twice);
    EXPECT_THROW(things.getObject(3), std::out_of_range);
}

TEST(ObjectManagerTest, NullIsAnEntryLikeAnyOther)
{
    auto& things = registry<10>();
    ThingOf<10> thing;
    EXPECT_EQ(things.addObject(nullptr), 0);
    EXPECT_EQ(things.addObject(&thing), 1);

    EXPECT_EQ(things.getObject(0), nullptr);  // and quietly so

    things.removeObject(nullptr);
    EXPECT_EQ(things.getObject(0), &thing);
}

TEST(ObjectManagerTest, DoesNotOwnItsObjects)
{
    auto& things = registry<11>();
    const int before = Thing::alive;
    auto* thing = new ThingOf<11>;
    things.addObject(thing);
    things.removeObject(thing);

    EXPECT_EQ(Thing::alive, before + 1);
    delete thing;
}

TEST(ObjectManagerTest, WithoutMemoryThereIsNoInstanceOnceAndForAll)
{
    using Registry = ObjectManager<ThingOf<12>>;
    LogCapture log;
    {
        AllocationFailure failure(Allocation::NothrowNew);
        EXPECT_EQ(Registry::getInstance(), nullptr);
        EXPECT_TRUE(failure.happened());
    }
    EXPECT_THAT(log.lines(),
                ElementsAre(LoggedIn(FILE_NAME, "__initInstance", "Memory allocation failed")));

    log.clear();
    EXPECT_EQ(Registry::getInstance(), nullptr);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(ObjectManagerTest, AnObjectThatThereIsNoMemoryForIsNotThereAfterwards)
{
    auto& things = registry<13>();
    std::vector<ThingOf<13>> objects(40);
    int failures = 0;
    for (std::size_t i = 0; i < objects.size(); ++i) {
        bool threw = false;
        {
            AllocationFailure failure(Allocation::ThrowingNew);
            try {
                EXPECT_EQ(things.addObject(&objects[i]), static_cast<int>(i));
            } catch (const std::bad_alloc&) {
                threw = true;
            }
            EXPECT_EQ(failure.happened(), threw);
        }
        if (threw) {
            ++failures;
            EXPECT_THROW(things.getObject(static_cast<int>(i)), std::out_of_range);
            EXPECT_EQ(things.addObject(&objects[i]), static_cast<int>(i));
        }
    }

    EXPECT_GT(failures, 0);
    for (std::size_t i = 0; i < objects.size(); ++i) {
        EXPECT_EQ(things.getObject(static_cast<int>(i)), &objects[i]);
    }
}

}  // namespace
}  // namespace oxil::test
