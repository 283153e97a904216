// The picker's end of the connection to the settings service.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include <Oxil.h>

namespace picker {

class SettingsClient {
public:
    // Takes over the socket.
    explicit SettingsClient(int socket);

    SettingsClient(const SettingsClient&) = delete;
    SettingsClient& operator=(const SettingsClient&) = delete;

    // Called from the main loop when an answer is complete, or won't come any more.
    void setOnAnswer(const std::function<void()>& onAnswer) { onAnswer_ = onAnswer; }

    // Sends a call; its answer takes the place of the last one.
    bool call(const std::string& method, const std::vector<oxil::Variant>& params);
    bool call(const std::string& method, const std::vector<oxil::Variant>& params,
              const oxil::KeyValues& options);

    // What the last answer says; empty if there is none yet.
    const oxil::KeyValues& getAnswer() const { return answer_; }
    const std::vector<oxil::KeyValues>& getRecords() const { return records_; }

    // Why there was no answer; empty as long as one may come.
    const std::string& getTrouble() const { return trouble_; }

private:
    bool request(const oxil::SerializedData& data);
    void readRecords(const oxil::SerializedData& message);
    void readAnswer(int status, const oxil::SerializedData& message);

    oxil::Channel channel_;
    std::function<void()> onAnswer_;
    oxil::KeyValues answer_;
    std::vector<oxil::KeyValues> records_;
    std::string trouble_;
};

}  // namespace picker
