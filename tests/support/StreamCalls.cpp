#include "StreamCalls.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>

#include "NextDefinition.h"

namespace oxil::test {
namespace {

thread_local StreamCalls* active = nullptr;

}  // namespace

struct StreamRecorder {
    /** The object that stands in front of this descriptor, if one does. */
    static StreamCalls* of(int descriptor)
    {
        return active != nullptr && active->__descriptors.count(descriptor) > 0 ? active : nullptr;
    }

    /** Whether a call goes through, perhaps with fewer bytes; otherwise errno is set. */
    static bool passes(const StreamCalls& calls, int count, int error, std::size_t& size)
    {
        size = std::min(size, calls.__most);
        if (error == 0 && calls.__disturbance != 0 && count % 2 == 1) {
            error = calls.__disturbance;
        }
        if (error != 0) {
            errno = error;
        }
        return error == 0;
    }

    static bool reads(int descriptor, std::size_t& size)
    {
        StreamCalls* calls = of(descriptor);
        if (calls == nullptr) {
            return true;
        }
        calls->__whenRead();
        return passes(*calls, ++calls->__reads, calls->__readError, size);
    }

    static bool writes(int descriptor, std::size_t& size)
    {
        StreamCalls* calls = of(descriptor);
        if (calls == nullptr) {
            return true;
        }
        return passes(*calls, ++calls->__writes, calls->__writeError, size);
    }

    static void closes(int descriptor)
    {
        if (StreamCalls* calls = of(descriptor); calls != nullptr) {
            ++calls->__closes;
        }
    }
};

StreamCalls::StreamCalls(const std::set<int>& descriptors)
    : __descriptors(descriptors), __most(SIZE_MAX)
{
    active = this;
}

StreamCalls::~StreamCalls()
{
    active = nullptr;
}

}  // namespace oxil::test

using oxil::test::real;
using oxil::test::StreamRecorder;

extern "C" __attribute__((visibility("default"))) ssize_t read(int descriptor, void* bytes,
                                                               std::size_t size)
{
    static auto* const next = real<decltype(read)>("read");
    return StreamRecorder::reads(descriptor, size) ? next(descriptor, bytes, size) : -1;
}

extern "C" __attribute__((visibility("default"))) ssize_t write(int descriptor, const void* bytes,
                                                                std::size_t size)
{
    static auto* const next = real<decltype(write)>("write");
    return StreamRecorder::writes(descriptor, size) ? next(descriptor, bytes, size) : -1;
}

extern "C" __attribute__((visibility("default"))) ssize_t send(int descriptor, const void* bytes,
                                                               std::size_t size, int flags)
{
    static auto* const next = real<decltype(send)>("send");
    return StreamRecorder::writes(descriptor, size) ? next(descriptor, bytes, size, flags) : -1;
}

extern "C" __attribute__((visibility("default"))) int close(int descriptor)
{
    static auto* const next = real<decltype(close)>("close");
    StreamRecorder::closes(descriptor);
    return next(descriptor);
}
