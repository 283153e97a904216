#include "settings.h"

#include <chrono>

namespace panel {

using namespace std::chrono_literals;

void Settings::start(const OnConnection& onConnection, const OnAnswer& onAnswer)
{
    onConnection_ = onConnection;
    onAnswer_ = onAnswer;
    pause_.start(0, [this] { connect(); });
}

//! [connect]
// A service that ends is started again after a second, for as long as there is a panel.
void Settings::connect()
{
    process_ = std::make_unique<ServiceProcess>(command_);
    channel_.open(process_->getSocket(), nullptr, [this](int) {
        pause_.start(1s, [this] { connect(); });
        onConnection_(false);
    });
    onConnection_(true);
}
//! [connect]

//! [ask]
// Every request gets its answer, or learns that there is none: nobody waits for ever.
bool Settings::ask(const std::string& method, const std::vector<oxil::Variant>& params)
{
    const auto onAnswer = [this, method](int status, const oxil::SerializedData& message) {
        Records records;
        if (status == oxil::STATUS_SUCCESS) {
            oxil::Serializer::deserialize(message, records, oxil::REPEATABLE);
        }
        onAnswer_(method, records);
    };
    return channel_.request({method, params}, 4s, onAnswer) == oxil::STATUS_SUCCESS;
}
//! [ask]

}  // namespace panel
