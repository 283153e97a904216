#pragma once

namespace oxil::test {

/**
 * Watches what libxml2 and libxslt ask for memory on this thread while it lives: counts the blocks,
 * and can make a request fail.
 */
class EngineMemory {
public:
    /**
     * @param failing  the n-th request from now on fails, once: a new block, a larger one, or a copy
     *                 of a text; 0 for none
     */
    explicit EngineMemory(int failing = 0);
    ~EngineMemory();

    EngineMemory(const EngineMemory&) = delete;
    EngineMemory& operator=(const EngineMemory&) = delete;

    /** Whether there were as many requests as to let one fail. */
    bool hasFailed() const;

    /** How many blocks there are more than there were at first. */
    int getBlockCount() const;

private:
    int __blocksBefore;
};

}  // namespace oxil::test
