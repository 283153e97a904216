#pragma once

#include <cstddef>
#include <cstdio>
#include <optional>
#include <string_view>
#include <vector>

#include "FreeObserver.h"

namespace oxil::test {

/**
 * Records what this thread asks of the standard file streams while it lives, and makes some of it
 * fail. At most one lives at a time on a thread.
 *
 * Each fclose() leaves another errno behind: an error has to be reported before its file is closed.
 */
class FileCalls {
public:
    FileCalls();
    ~FileCalls();

    FileCalls(const FileCalls&) = delete;
    FileCalls& operator=(const FileCalls&) = delete;

    /** Makes the n-th fseek() from now on fail with this errno. */
    void failSeek(int nth, int error);

    /** Makes ftell() answer this. */
    void setPosition(long position) { __position = position; }

    /** Makes fread() answer this, although it reads all it is asked for. */
    void setReadCount(std::size_t count) { __readCount = count; }

    /** Makes fclose() answer that it failed, although the file is closed. */
    void failClose() { __closeFails = true; }

    /** In order: "fopen r", "fseek end", "fseek start", "ftell", "fread", "fclose". */
    const std::vector<std::string_view>& calls() const { return __calls; }

    /** How many bytes the last fread() was asked for. */
    std::size_t bytesAskedFor() const { return __bytesAskedFor; }

    /** Whether each file was closed, and the memory that fread() filled last was freed. */
    bool isEverythingReleased() const;

private:
    friend struct FileCallRecorder;

    // Nothing here allocates once it is made: recording must not change how the code under test
    // gets its memory.
    std::vector<std::string_view> __calls;
    int __openFiles = 0;
    bool __closeFails = false;
    int __seeksUntilFailure = 0;
    int __seekError = 0;
    std::optional<long> __position;
    std::optional<std::size_t> __readCount;
    std::size_t __bytesAskedFor = 0;
    std::optional<FreeObserver> __buffer;
};

}  // namespace oxil::test
