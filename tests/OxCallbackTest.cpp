// What the functions have in common that timers, waiting loops and readers are given.

#include <OxStatus.h>
#include <OxXml.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "ScriptFile.h"
#include "internal/OxRunningFunction.h"

namespace oxil::test {
namespace {

using testing::ElementsAre;

using Callback = internal::Callback<int(int)>;

TEST(CallbackTest, HasTheSizeOfAFunction)
{
    EXPECT_EQ(sizeof(Callback), sizeof(std::function<int(int)>));
    EXPECT_EQ(alignof(Callback), alignof(std::function<int(int)>));
}

TEST(CallbackTest, CallsWhatItWasGiven)
{
    Callback callback;
    EXPECT_FALSE(callback);

    callback = [](int number) { return number + 1; };
    EXPECT_TRUE(callback);
    EXPECT_EQ(callback(41), 42);

    callback = nullptr;
    EXPECT_FALSE(callback);
}

/** An object that has nothing to say when it is destroyed. */
struct Owner {
    Callback callback;
};

TEST(CallbackTest, AFunctionMayDestroyItsOwnerAndStillUseWhatItCaptured)
{
    auto owner = std::make_unique<Owner>();
    owner->callback = [&owner, kept = std::make_shared<int>(40)](int number) {
        owner.reset();
        return *kept + number;
    };

    EXPECT_EQ(owner->callback(2), 42);
    EXPECT_EQ(owner, nullptr);
}

TEST(CallbackTest, AFunctionMayReplaceItselfAndStillUseWhatItCaptured)
{
    Callback callback;
    callback = [&callback, kept = std::make_shared<int>(40)](int number) {
        callback = [](int other) { return -other; };
        return *kept + number;
    };

    EXPECT_EQ(callback(2), 42);
    EXPECT_EQ(callback(2), -2);
}

TEST(CallbackTest, AFunctionIsThereWhileItRuns)
{
    Callback callback;
    callback = [&callback](int) { return callback ? 1 : 0; };
    EXPECT_EQ(callback(0), 1);
}

TEST(CallbackTest, ACallInsideACallIsOfTheSameFunction)
{
    Callback callback;
    callback = [&callback, calls = 0](int depth) mutable {
        ++calls;
        return depth > 0 ? callback(depth - 1) : calls;
    };

    EXPECT_EQ(callback(2), 3);
    EXPECT_EQ(callback(0), 4);
}

TEST(CallbackTest, TheInnerOfTwoCallsMayReplaceTheFunctionOfBoth)
{
    Callback callback;
    const auto kept = std::make_shared<int>(40);
    callback = [&callback, kept](int depth) {
        if (depth > 0) {
            return callback(depth - 1);
        }
        callback = [](int) { return 7; };
        return *kept + static_cast<int>(kept.use_count());
    };

    EXPECT_EQ(callback(1), 42);
    EXPECT_EQ(callback(1), 7);
    EXPECT_EQ(kept.use_count(), 1);
}

TEST(CallbackTest, AFunctionThatThrowsGoesBackToItsPlace)
{
    Callback callback;
    callback = [calls = 0](int) mutable -> int {
        if (++calls == 1) {
            throw calls;
        }
        return calls;
    };

    EXPECT_THROW(callback(0), int);
    EXPECT_EQ(callback(0), 2);
}

TEST(CallbackTest, ARunningFunctionCanBeCopied)
{
    Callback callback;
    std::optional<Callback> constructed;
    Callback assigned;
    callback = [&](int number) {
        if (!constructed) {
            constructed.emplace(callback);
            assigned = callback;
        }
        return number + 1;
    };

    EXPECT_EQ(callback(1), 2);
    EXPECT_EQ((*constructed)(2), 3);
    EXPECT_EQ(assigned(3), 4);
}

TEST(CallbackTest, ARunningFunctionCanBeAssignedToItself)
{
    Callback callback;
    const Callback& same = callback;
    callback = [&, kept = std::make_shared<int>(40)](int number) {
        callback = same;
        return *kept + number;
    };

    EXPECT_EQ(callback(2), 42);
    EXPECT_EQ(callback(3), 43);
}

// ---- Readers, which are copied with their functions

class XmlCopyTest : public testing::Test {
protected:
    std::function<void(const std::string&)> noteFor(const std::string& who)
    {
        return [this, who](const std::string& name) { notes.push_back(who + " " + name); };
    }

    ScriptFile file{"<a><b/></a>"};
    std::vector<std::string> notes;
};

TEST_F(XmlCopyTest, AReaderCanBeCopiedInsideItsEvent)
{
    Xml xml(file.path());
    std::optional<Xml> copy;
    xml.setOnEndElement([&](const std::string& name) {
        notes.push_back(name);
        if (!copy) {
            copy.emplace(xml);
        }
    });

    EXPECT_EQ(xml.read(), STATUS_SUCCESS);
    EXPECT_EQ(copy->read(), STATUS_SUCCESS);
    EXPECT_THAT(notes, ElementsAre("b", "a", "b", "a"));
}

TEST_F(XmlCopyTest, AReaderCanBecomeAnotherInsideItsEvent)
{
    Xml other;
    other.setOnEndElement(noteFor("other"));
    Xml xml(file.path());
    xml.setOnEndElement([&, kept = std::make_shared<std::string>("this")](const std::string& name) {
        xml = other;
        notes.push_back(*kept + " " + name);
    });

    EXPECT_EQ(xml.read(), STATUS_SUCCESS);
    EXPECT_THAT(notes, ElementsAre("this b", "other a"));
}

}  // namespace
}  // namespace oxil::test
