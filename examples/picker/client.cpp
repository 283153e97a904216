#include "client.h"

namespace picker {
namespace {

constexpr int PATIENCE = 1000;  // milliseconds

}  // namespace

//! [connect]
SettingsClient::SettingsClient(int socket)
{
    // Whoever waits for an answer is told of the end as well.
    channel_.open(
        socket, [this](const oxil::SerializedData& message) { readRecords(message); }, nullptr);
}
//! [connect]

//! [call]
bool SettingsClient::call(const std::string& method, const std::vector<oxil::Variant>& params)
{
    oxil::SerializedData data;
    return oxil::Serializer::validate(method, params) == oxil::STATUS_SUCCESS &&
           oxil::Serializer::serialize(method, params, data) == oxil::STATUS_SUCCESS &&
           request(data);
}

bool SettingsClient::call(const std::string& method, const std::vector<oxil::Variant>& params,
                          const oxil::KeyValues& options)
{
    oxil::SerializedData data;
    return oxil::Serializer::validate(options, method, params) == oxil::STATUS_SUCCESS &&
           oxil::Serializer::serialize(options, method, params, data) == oxil::STATUS_SUCCESS &&
           request(data);
}

bool SettingsClient::request(const oxil::SerializedData& data)
{
    answer_ = oxil::KeyValues();
    records_.clear();
    const auto onAnswer = [this](int status, const oxil::SerializedData& message) {
        readAnswer(status, message);
    };
    return channel_.request(data, PATIENCE, onAnswer) == oxil::STATUS_SUCCESS;
}
//! [call]

//! [answer]
// Records come in messages of their own, before the answer. A list of one shape has one block.
void SettingsClient::readRecords(const oxil::SerializedData& message)
{
    const int r = message.getBlockCount() == 1
                      ? oxil::Serializer::deserialize(message, records_, oxil::REPEATABLE)
                      : oxil::Serializer::deserialize(message, records_);
    if (r != oxil::STATUS_SUCCESS) {
        trouble_ = "the settings service sent no records";
    }
}

void SettingsClient::readAnswer(int status, const oxil::SerializedData& message)
{
    switch (status) {
        case oxil::STATUS_SUCCESS:
            if (oxil::Serializer::deserialize(message, answer_) != oxil::STATUS_SUCCESS) {
                trouble_ = "the settings service sent no answer";
            }
            break;
        case oxil::STATUS_TIMED_OUT:
            trouble_ = "the settings service does not answer";
            break;
        case oxil::STATUS_FAILURE:
            trouble_ = "the settings service is gone";
            break;
        default:
            trouble_ = "a message of the settings service was refused";
    }
    if (onAnswer_) {
        onAnswer_();
    }
}
//! [answer]

}  // namespace picker
