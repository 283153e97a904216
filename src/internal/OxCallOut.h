#pragma once

#include <functional>

namespace oxil::internal {

/** What is watched: an object and its first member, a function say, have the same address. */
enum class Watched { OBJECT, FUNCTION };

/**
 * Tells a member function whether something outlived a call to foreign code.
 *
 * Code that is called back may destroy the object that calls it, or replace the very function that
 * runs. Whoever does so says giveUp(); the watch, which lives on the stack of the caller, is no
 * longer intact then. Watches belong to the thread that made them.
 */
class Watch {
public:
    Watch(Watched kind, const void* thing) noexcept
        : __kind(kind), __thing(thing), __outer(innermost)
    {
        innermost = this;
    }

    ~Watch() { innermost = __outer; }

    Watch(const Watch&) = delete;
    Watch& operator=(const Watch&) = delete;

    bool isIntact() const noexcept { return __thing != nullptr; }

    /** Ends all watches of this thing. */
    static void giveUp(Watched kind, const void* thing) noexcept
    {
        while (Watch* watch = find(kind, thing)) {
            watch->__thing = nullptr;
        }
    }

    /** The innermost watch of this thing, null if there is none. */
    static Watch* find(Watched kind, const void* thing) noexcept
    {
        return innermost != nullptr ? innermost->__find(kind, thing) : nullptr;
    }

private:
    /** From here outwards. */
    Watch* __find(Watched kind, const void* thing) noexcept;

    // Read for every event and every timer, where the usual way to a variable of the thread, which
    // is a call, would show.
    [[gnu::tls_model("initial-exec")]] static inline thread_local Watch* innermost = nullptr;

    Watched __kind;
    const void* __thing;
    Watch* __outer;
};

/** A function that runs from the stack, and goes back to its place unless that was given up. */
template <typename Signature>
class Running : public Watch {
public:
    explicit Running(std::function<Signature>& place)
        : Watch(Watched::FUNCTION, &place), __place(place)
    {
        function.swap(place);
    }

    ~Running()
    {
        if (isIntact()) {
            function.swap(__place);
        }
    }

    std::function<Signature> function;

private:
    std::function<Signature>& __place;
};

/** Whether there is a function in this place, or one that runs and will come back to it. */
template <typename Signature>
bool isSet(const std::function<Signature>& place) noexcept
{
    return place != nullptr || Watch::find(Watched::FUNCTION, &place) != nullptr;
}

/** Tells a function that may be running that its place is no longer there for it. */
template <typename Signature>
void giveUp(std::function<Signature>& place) noexcept
{
    Watch::giveUp(Watched::FUNCTION, &place);
}

/** Replaces a function, which may be running. */
template <typename Signature>
void replace(std::function<Signature>& place, const std::function<Signature>& by)
{
    std::function<Signature> replacement(by);
    giveUp(place);
    replacement.swap(place);
}

/**
 * Calls a function that may replace or destroy the place where it is kept.
 *
 * It keeps what it captured until it returns, and its own state from one call to the next. A call
 * that leads to another one from the same place calls the same function.
 */
template <typename Result, typename... Parameters, typename... Arguments>
Result callFrom(std::function<Result(Parameters...)>& place, const Arguments&... arguments)
{
    using Function = Running<Result(Parameters...)>;

    if (Watch* outer = Watch::find(Watched::FUNCTION, &place)) {
        return static_cast<Function*>(outer)->function(arguments...);
    }
    Function running(place);
    return running.function(arguments...);
}

}  // namespace oxil::internal
