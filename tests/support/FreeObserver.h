#pragma once

namespace oxil::test {

/**
 * Counts how often this thread passes a block of memory to free() while the observer lives.
 *
 * The block is really freed, and its address may come back from the next allocation: keep the scope
 * to the calls under test. At most four observers live at a time.
 */
class FreeObserver {
public:
    explicit FreeObserver(const void* memory);
    ~FreeObserver();

    FreeObserver(const FreeObserver&) = delete;
    FreeObserver& operator=(const FreeObserver&) = delete;

    int count() const;

private:
    int __slot;
};

}  // namespace oxil::test
