#pragma once

namespace oxil::test {

/**
 * Makes the n-th request of libxml2 for memory from now on fail, once, on this thread, while it
 * lives: a new block, a larger one, or a copy of a text.
 */
class EngineMemoryFailure {
public:
    explicit EngineMemoryFailure(int nth);
    ~EngineMemoryFailure();

    EngineMemoryFailure(const EngineMemoryFailure&) = delete;
    EngineMemoryFailure& operator=(const EngineMemoryFailure&) = delete;

    /** Whether the request was made, and failed. */
    bool happened() const;
};

}  // namespace oxil::test
