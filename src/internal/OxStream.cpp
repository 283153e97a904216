#include "internal/OxStream.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <ctime>
#include <utility>

namespace oxil::internal {
namespace {

/** Keeps the SIGPIPE that a pipe without reader raises from everyone. */
class NoPipeSignal {
public:
    NoPipeSignal() noexcept
    {
        sigemptyset(&__pipe);
        sigaddset(&__pipe, SIGPIPE);
        sigset_t pending;
        sigpending(&pending);
        __wasPending = sigismember(&pending, SIGPIPE) == 1;
        pthread_sigmask(SIG_BLOCK, &__pipe, &__before);
    }

    ~NoPipeSignal() { pthread_sigmask(SIG_SETMASK, &__before, nullptr); }

    NoPipeSignal(const NoPipeSignal&) = delete;
    NoPipeSignal& operator=(const NoPipeSignal&) = delete;

    /** Takes back the signal that has just been raised, unless there was one before. */
    void take() const noexcept
    {
        const timespec now = {0, 0};
        while (!__wasPending && sigtimedwait(&__pipe, nullptr, &now) < 0 && errno == EINTR) {
        }
    }

private:
    sigset_t __pipe;
    sigset_t __before;
    bool __wasPending;
};

}  // namespace

Stream::~Stream()
{
    close();
}

bool Stream::isOpen(int descriptor) noexcept
{
    return fcntl(descriptor, F_GETFD) >= 0;
}

void Stream::take(int descriptor) noexcept
{
    __descriptor = descriptor;
    fcntl(descriptor, F_SETFD, fcntl(descriptor, F_GETFD) | FD_CLOEXEC);
    fcntl(descriptor, F_SETFL, fcntl(descriptor, F_GETFL) | O_NONBLOCK);
    struct stat status;
    __isSocket = fstat(descriptor, &status) == 0 && S_ISSOCK(status.st_mode);
}

void Stream::close() noexcept
{
    if (__descriptor >= 0) {
        ::close(std::exchange(__descriptor, -1));
    }
}

/** Calls the system until no signal has come in between. */
template <typename Call>
int Stream::__transfer(const Call& call) noexcept
{
    while (true) {
        const ssize_t count = call();
        if (count >= 0) {
            return static_cast<int>(count);
        }
        if (errno == EAGAIN || errno == EWOULDBLOCK) {
            return NOTHING_NOW;
        }
        if (errno != EINTR) {
            __error = errno;
            return FAILED;
        }
    }
}

int Stream::read(char* bytes, std::size_t size) noexcept
{
    bool hasEnded = false;
    const int count = __transfer([&] {
        const ssize_t got = ::read(__descriptor, bytes, std::min<std::size_t>(size, INT_MAX));
        hasEnded = got == 0;
        return got;
    });
    return hasEnded ? ENDED : count;
}

int Stream::write(const char* bytes, std::size_t size) noexcept
{
    const std::size_t most = std::min<std::size_t>(size, INT_MAX);
    if (__isSocket) {
        return __transfer([&] { return ::send(__descriptor, bytes, most, MSG_NOSIGNAL); });
    }
    const NoPipeSignal noSignal;
    const int count = __transfer([&] { return ::write(__descriptor, bytes, most); });
    if (count == FAILED && __error == EPIPE) {
        noSignal.take();
    }
    return count;
}

}  // namespace oxil::internal
