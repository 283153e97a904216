#include "service_process.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace picker {

ServiceProcess::ServiceProcess(const std::string& program, const std::string& registry)
{
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) {
        return;
    }
    fcntl(ends[1], F_SETFD, 0);  // inherited
    std::string arguments[] = {program, registry, std::to_string(ends[1])};
    char* argv[] = {arguments[0].data(), arguments[1].data(), arguments[2].data(), nullptr};
    if (posix_spawn(&process_, program.c_str(), nullptr, nullptr, argv, environ) != 0) {
        process_ = -1;
    }
    close(ends[1]);
    socket_ = ends[0];
}

ServiceProcess::~ServiceProcess()
{
    if (isStarted()) {
        kill(process_, SIGKILL);
        waitpid(process_, nullptr, 0);
    }
}

std::string getServiceProgram(const std::string& program)
{
    return program.substr(0, program.rfind('/') + 1) + "picker-service";
}

}  // namespace picker
