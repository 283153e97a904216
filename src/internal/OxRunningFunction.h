#pragma once

#include <utility>

#include "OxCallback.h"

namespace oxil::internal {

/** A function that was taken from its place to run: it is known by where it came from. */
class RunningFunction {
public:
    explicit RunningFunction(const void* place) noexcept;
    ~RunningFunction() { __innermost = __outer; }

    RunningFunction(const RunningFunction&) = delete;
    RunningFunction& operator=(const RunningFunction&) = delete;

    /** The innermost of this thread that came from a place, null if there is none. */
    static RunningFunction* find(const void* place) noexcept;

    /** The place is gone, or another function's. */
    void giveUpPlace() noexcept { __place = nullptr; }

    bool hasPlace() const noexcept { return __place != nullptr; }

private:
    const void* __place;
    RunningFunction*& __innermost;  // of this thread, which takes long to ask for
    RunningFunction* __outer;
};

template <typename Result, typename... Parameters>
class Callback<Result(Parameters...)>::Running : public RunningFunction {
public:
    explicit Running(Callback& callback) noexcept : RunningFunction(&callback), __callback(callback)
    {
        function.swap(callback.__function);
    }

    ~Running()
    {
        if (hasPlace()) {
            function.swap(__callback.__function);
        }
    }

    Function function;

private:
    Callback& __callback;
};

template <typename Result, typename... Parameters>
Callback<Result(Parameters...)>::Callback(const Callback& other) : __function(other.__get())
{
}

template <typename Result, typename... Parameters>
Callback<Result(Parameters...)>::~Callback()
{
    if (Running* running = __getRunning()) {
        running->giveUpPlace();
    }
}

template <typename Result, typename... Parameters>
auto Callback<Result(Parameters...)>::operator=(const Callback& other) -> Callback&
{
    return *this = other.__get();
}

template <typename Result, typename... Parameters>
auto Callback<Result(Parameters...)>::operator=(const Function& function) -> Callback&
{
    Function replacement(function);
    if (Running* running = __getRunning()) {
        running->giveUpPlace();
    }
    replacement.swap(__function);
    return *this;
}

template <typename Result, typename... Parameters>
Callback<Result(Parameters...)>::operator bool() const noexcept
{
    return __function != nullptr || __getRunning() != nullptr;
}

template <typename Result, typename... Parameters>
Result Callback<Result(Parameters...)>::operator()(Parameters... parameters)
{
    if (Running* running = __getRunning()) {
        return running->function(parameters...);
    }
    Running running(*this);
    return running.function(parameters...);
}

template <typename Result, typename... Parameters>
auto Callback<Result(Parameters...)>::__getRunning() const noexcept -> Running*
{
    return __function == nullptr ? static_cast<Running*>(RunningFunction::find(this)) : nullptr;
}

template <typename Result, typename... Parameters>
auto Callback<Result(Parameters...)>::__get() const noexcept -> const Function&
{
    const Running* running = __getRunning();
    return running != nullptr ? running->function : __function;
}

}  // namespace oxil::internal
