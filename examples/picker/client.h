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
    void setOnAnswer(const std::function<void()>& onAnswer) { onAnswer_ = onAnswer; }

    // Sends a call; its answer takes the place of the last one.
    bool call(const std::string& method, const std::vector<oxil::Variant>& params);
    bool call(const std::string& method, const std::vector<oxil::Variant>& params,
              const oxil::KeyValues& options);

    // What the last answer says; empty if there is none yet.
    const oxil::KeyValues& getAnswer() const { return answer_; }
    const std::vector<oxil::KeyValues>& getRecords() const { return records_; }

    // Why there will be no more answers; empty as long as there may be.
    const std::string& getTrouble() const { return trouble_; }

    long long getReceivedBytes() const { return receivedBytes_; }

private:
    bool sendCall(const oxil::SerializedData& data);
    bool onReadable() noexcept;
    void readMessage();
    void readAnswer(const Message& message);
    bool readRecords(const Message& message);
    void giveUp(const std::string& trouble);

    int socket_;
    unsigned int watch_;
    std::function<void()> onAnswer_;
    oxil::KeyValues answer_;
    oxil::KeyValues announced_;
    std::vector<oxil::KeyValues> records_;
    std::string trouble_;
    long long receivedBytes_ = 0;
};

}  // namespace picker
