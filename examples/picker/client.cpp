#include "client.h"

#include <glib-unix.h>
#include <unistd.h>

#include <exception>

namespace picker {

SettingsClient::SettingsClient(int socket) : socket_(socket)
{
    watch_ = g_unix_fd_add(
        socket, static_cast<GIOCondition>(G_IO_IN | G_IO_HUP | G_IO_ERR),
        [](int, GIOCondition, void* self) -> gboolean {
            return static_cast<SettingsClient*>(self)->onReadable();
        },
        this);
}

SettingsClient::~SettingsClient()
{
    if (watch_ != 0) {
        g_source_remove(watch_);
    }
    close(socket_);
}

//! [call]
bool SettingsClient::call(const std::string& method, const std::vector<oxil::Variant>& params)
{
    oxil::SerializedData data;
    return oxil::Serializer::validate(method, params) == oxil::STATUS_SUCCESS &&
           oxil::Serializer::serialize(method, params, data) == oxil::STATUS_SUCCESS &&
           sendCall(data);
}

bool SettingsClient::call(const std::string& method, const std::vector<oxil::Variant>& params,
                          const oxil::KeyValues& options)
{
    oxil::SerializedData data;
    return oxil::Serializer::validate(options, method, params) == oxil::STATUS_SUCCESS &&
           oxil::Serializer::serialize(options, method, params, data) == oxil::STATUS_SUCCESS &&
           sendCall(data);
}
//! [call]

bool SettingsClient::sendCall(const oxil::SerializedData& data)
{
    answer_ = oxil::KeyValues();
    announced_ = oxil::KeyValues();
    records_.clear();
    return trouble_.empty() && send(socket_, data);
}

//! [answer]
// The main loop says that there is something to read: a whole message, or the end. It is C, and no
// exception may pass through it: what a native function threw comes out of the script.
bool SettingsClient::onReadable() noexcept
{
    try {
        readMessage();
    } catch (const std::exception& exception) {
        giveUp(exception.what());
    }
    return trouble_.empty();
}

void SettingsClient::readMessage()
{
    Message message;
    switch (receive(socket_, message)) {
        case Received::MESSAGE:
            receivedBytes_ += static_cast<long long>(sizeof message.info + message.bytes.size());
            readAnswer(message);
            break;
        case Received::NOTHING_MORE:
            giveUp("the settings service is gone");
            break;
        case Received::REFUSED:
            giveUp("a message of the settings service was refused");
            break;
    }
}

void SettingsClient::readAnswer(const Message& message)
{
    if (announced_.getCount() > 0) {
        if (!readRecords(message)) {
            giveUp("the settings service sent no records");
            return;
        }
    } else {
        oxil::SerializedData data(message.info);
        data.setData(message.bytes.data());
        if (oxil::Serializer::deserialize(data, announced_) != oxil::STATUS_SUCCESS) {
            giveUp("the settings service sent no answer");
            return;
        }
        const bool failed = announced_.getKey(0) == "error";
        if (!failed && announced_.getValue("count").toInt() > 0) {
            return;  // the records are still to come
        }
    }
    std::swap(answer_, announced_);
    if (onAnswer_) {
        onAnswer_();
    }
}

bool SettingsClient::readRecords(const Message& message)
{
    oxil::SerializedData data(message.info);
    data.setData(message.bytes.data());
    const int r = announced_.getValue("repeatable").toBool()
                      ? oxil::Serializer::deserialize(data, records_, oxil::REPEATABLE)
                      : oxil::Serializer::deserialize(data, records_);
    return r == oxil::STATUS_SUCCESS;
}
//! [answer]

void SettingsClient::giveUp(const std::string& trouble)
{
    trouble_ = trouble;
    watch_ = 0;  // the main loop removes it when onReadable() returns false
}

}  // namespace picker
