#include "FileCalls.h"

#include <cerrno>
#include <cstdlib>

#include "NextDefinition.h"

namespace oxil::test {
namespace {

constexpr std::size_t CALL_LIMIT = 256;

thread_local FileCalls* current = nullptr;

}  // namespace

/** What the definitions below tell the recorder. */
struct FileCallRecorder {
    static void note(std::string_view call)
    {
        if (current != nullptr && current->__calls.size() < CALL_LIMIT) {
            current->__calls.push_back(call);
        }
    }

    static void opened(std::string_view mode, const std::FILE* file)
    {
        note(mode == "r" ? "fopen r" : "fopen otherwise");
        if (current != nullptr && file != nullptr) {
            ++current->__openFiles;
        }
    }

    static bool refusesSeek(long offset, int origin)
    {
        if (current == nullptr) {
            return false;
        }
        note(offset != 0          ? "fseek elsewhere"
             : origin == SEEK_END ? "fseek end"
             : origin == SEEK_SET ? "fseek start"
                                  : "fseek here");
        if (current->__seeksUntilFailure == 0 || --current->__seeksUntilFailure > 0) {
            return false;
        }
        errno = current->__seekError;
        return true;
    }

    static long position(long position)
    {
        note("ftell");
        return current != nullptr ? current->__position.value_or(position) : position;
    }

    static std::size_t read(const void* buffer, std::size_t bytes, std::size_t count)
    {
        note("fread");
        if (current == nullptr) {
            return count;
        }
        current->__bytesAskedFor = bytes;
        current->__buffer.emplace(buffer);
        return current->__readCount.value_or(count);
    }

    static int closed(int result)
    {
        note("fclose");
        if (current == nullptr) {
            return result;
        }
        --current->__openFiles;
        errno = EBADF;
        return current->__closeFails ? EOF : result;
    }
};

FileCalls::FileCalls()
{
    if (current != nullptr) {
        std::abort();
    }
    __calls.reserve(CALL_LIMIT);
    current = this;
}

FileCalls::~FileCalls()
{
    current = nullptr;
}

void FileCalls::failSeek(int nth, int error)
{
    __seeksUntilFailure = nth;
    __seekError = error;
}

bool FileCalls::isEverythingReleased() const
{
    return __openFiles == 0 && (!__buffer || __buffer->count() > 0);
}

}  // namespace oxil::test

using oxil::test::FileCallRecorder;
using oxil::test::real;

// Stand before those of the C library, because a definition in the executable wins.
#pragma GCC visibility push(default)
extern "C" {

std::FILE* fopen(const char* path, const char* mode)
{
    static auto* const open = real<decltype(fopen)>("fopen");
    std::FILE* file = open(path, mode);
    FileCallRecorder::opened(mode, file);
    return file;
}

int fseek(std::FILE* file, long offset, int origin)
{
    static auto* const seek = real<decltype(fseek)>("fseek");
    return FileCallRecorder::refusesSeek(offset, origin) ? -1 : seek(file, offset, origin);
}

long ftell(std::FILE* file)
{
    static auto* const tell = real<decltype(ftell)>("ftell");
    return FileCallRecorder::position(tell(file));
}

std::size_t fread(void* buffer, std::size_t size, std::size_t count, std::FILE* file)
{
    static auto* const read = real<decltype(fread)>("fread");
    const std::size_t done = read(buffer, size, count, file);
    return FileCallRecorder::read(buffer, size * count, done);
}

int fclose(std::FILE* file)
{
    static auto* const close = real<decltype(fclose)>("fclose");
    return FileCallRecorder::closed(close(file));
}

}  // extern "C"
#pragma GCC visibility pop
