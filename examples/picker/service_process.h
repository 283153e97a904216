// The settings service as a process of its own.
#pragma once

#include <sys/types.h>

#include <string>

namespace picker {

class ServiceProcess {
public:
    // Starts the program with the registry and its end of a connection.
    ServiceProcess(const std::string& program, const std::string& registry);

    // Ends the process, which may hang, and has nothing to lose.
    ~ServiceProcess();

    ServiceProcess(const ServiceProcess&) = delete;
    ServiceProcess& operator=(const ServiceProcess&) = delete;

    bool isStarted() const { return process_ > 0; }

    // The other end, which belongs to the caller.
    int getSocket() const { return socket_; }

private:
    pid_t process_ = -1;
    int socket_ = -1;
};

// The service's program, which lies beside this one.
std::string getServiceProgram(const std::string& program);

}  // namespace picker
