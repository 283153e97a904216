#include "service_process.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace panel {

ServiceProcess::ServiceProcess(std::vector<std::string> command)
{
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) {
        return;
    }
    fcntl(ends[1], F_SETFD, 0);  // inherited
    command.push_back(std::to_string(ends[1]));
    std::vector<char*> arguments;
    for (std::string& word : command) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    if (posix_spawn(&process_, arguments[0], nullptr, nullptr, arguments.data(), environ) != 0) {
        process_ = -1;
    }
    close(ends[1]);
    socket_ = ends[0];
}

ServiceProcess::~ServiceProcess()
{
    if (process_ > 0) {
        kill(process_, SIGKILL);
        waitpid(process_, nullptr, 0);
    }
}

}  // namespace panel
