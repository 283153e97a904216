// The picker's end of the connection to the settings service.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include <Oxil.h>

#include "transport.h"

namespace picker {

class SettingsClient {
public:
    // Takes over the socket.
    explicit SettingsClient(int socket);
    ~SettingsClient();

    SettingsClient(const SettingsClient&) = delete;
    SettingsClient& operator=(const SettingsClient&) = delete;

    // Called from the main loop when an answer is complete, or can't come any more.
    void setOnAnswer(const std::function<void()>& onAnswer) { __onAnswer = onAnswer; }

    // Sends a call; its answer takes the place of the last one.
    bool call(const std::string& method, const std::vector<oxil::Variant>& params);
    bool call(const std::string& method, const std::vector<oxil::Variant>& params,
              const oxil::KeyValues& options);

    // What the last answer says; empty if there is none yet.
    const oxil::KeyValues& getAnswer() const { return __answer; }
    const std::vector<oxil::KeyValues>& getRecords() const { return __records; }

    // Why there will be no more answers; empty as long as there may be.
    const std::string& getTrouble() const { return __trouble; }

    long long getReceivedBytes() const { return __receivedBytes; }

private:
    bool sendCall(const oxil::SerializedData& data);
    bool onReadable();
    void readAnswer(const Message& message);
    bool readRecords(const Message& message);
    void giveUp(const std::string& trouble);

    int __socket;
    unsigned int __watch;
    std::function<void()> __onAnswer;
    oxil::KeyValues __answer;
    oxil::KeyValues __announced;
    std::vector<oxil::KeyValues> __records;
    std::string __trouble;
    long long __receivedBytes = 0;
};

}  // namespace picker
