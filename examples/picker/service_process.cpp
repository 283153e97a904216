#include "service_process.h"

#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace picker {

ServiceProcess::ServiceProcess(const std::string& program, const std::string& registry, int socket)
{
    std::string arguments[] = {program, registry, std::to_string(socket)};
    char* argv[] = {arguments[0].data(), arguments[1].data(), arguments[2].data(), nullptr};
    started_ = posix_spawn(&process_, program.c_str(), nullptr, nullptr, argv, environ) == 0;
    close(socket);
}

ServiceProcess::~ServiceProcess()
{
    if (started_) {
        kill(process_, SIGKILL);
        waitpid(process_, nullptr, 0);
    }
}

std::string getServiceProgram(const std::string& program)
{
    return program.substr(0, program.rfind('/') + 1) + "picker-service";
}

}  // namespace picker
