// The panel's end of the connection to the settings service, which is started again when it ends.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <Oxil.h>

#include "service_process.h"

namespace panel {

class Settings {
public:
    using Records = std::vector<oxil::KeyValues>;

    // Told that the service can be asked, or can't any more.
    using OnConnection = std::function<void(bool connected)>;

    // Gets the records of an answer, or none if there won't be one.
    using OnAnswer = std::function<void(const std::string& method, const Records& records)>;

    // The service's program and its arguments.
    explicit Settings(const std::vector<std::string>& command) : command_(command) {}

    // Starts the service. Both functions are called from the main loop.
    void start(const OnConnection& onConnection, const OnAnswer& onAnswer);

    // Calls a method of the service. False: there will be no answer.
    bool ask(const std::string& method, const std::vector<oxil::Variant>& params);

    bool isConnected() const { return channel_.isOpen(); }

    // The service's process, for those who want to hurt it.
    int getProcessId() const { return process_ != nullptr ? process_->getId() : 0; }

private:
    void connect();

    const std::vector<std::string> command_;
    OnConnection onConnection_;
    OnAnswer onAnswer_;
    std::unique_ptr<ServiceProcess> process_;
    oxil::Channel channel_;
    oxil::Timer pause_;
};

}  // namespace panel
