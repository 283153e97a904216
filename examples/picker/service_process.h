// The settings service as a process of its own.
#pragma once

#include <sys/types.h>

#include <string>

namespace picker {

class ServiceProcess {
public:
    // Starts the program with the registry and its end of the connection, which it takes over.
    ServiceProcess(const std::string& program, const std::string& registry, int socket);

    // Ends the process, which may hang, and has nothing to lose.
    ~ServiceProcess();

    ServiceProcess(const ServiceProcess&) = delete;
    ServiceProcess& operator=(const ServiceProcess&) = delete;

    bool isStarted() const { return started_; }

private:
    pid_t process_ = -1;
    bool started_;
};

// The service's program, which lies beside this one.
std::string getServiceProgram(const std::string& program);

}  // namespace picker
