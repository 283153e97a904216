#pragma once

#include <functional>

namespace oxil::internal {

template <typename Signature>
class Callback;

/**
 * A function that an object of the library keeps to call, with the size of a `std::function`.
 *
 * The function may replace itself, or destroy the object, while it runs: it keeps what it captured
 * until it returns. Its own state lasts from one call to the next, and a call that leads to another
 * one from the same object calls the same function.
 */
template <typename Result, typename... Parameters>
class Callback<Result(Parameters...)> {
public:
    using Function = std::function<Result(Parameters...)>;

    Callback() = default;
    Callback(const Callback& other);
    ~Callback();

    Callback& operator=(const Callback& other);
    Callback& operator=(const Function& function);

    /** Whether there is a function, which may be running. */
    explicit operator bool() const noexcept;

    Result operator()(Parameters... parameters);

private:
    class Running;

    Running* __getRunning() const noexcept;
    const Function& __get() const noexcept;

    Function __function;  // empty while it runs
};

}  // namespace oxil::internal
