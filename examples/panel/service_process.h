// The settings service as a process of its own.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace panel {

class ServiceProcess {
public:
    // Starts a program with its arguments and, behind them, its end of a connection.
    explicit ServiceProcess(std::vector<std::string> command);

    // Ends the process, which keeps nothing that it hasn't written.
    ~ServiceProcess();

    ServiceProcess(const ServiceProcess&) = delete;
    ServiceProcess& operator=(const ServiceProcess&) = delete;

    pid_t getId() const { return process_; }

    // The other end, which belongs to the caller. If nothing was started, nobody is at the first.
    int getSocket() const { return socket_; }

private:
    pid_t process_ = -1;
    int socket_ = -1;
};

}  // namespace panel
