#include "client.h"

#include <glib-unix.h>
#include <unistd.h>

namespace picker {

SettingsClient::SettingsClient(int socket) : __socket(socket)
{
    __watch = g_unix_fd_add(
        socket, static_cast<GIOCondition>(G_IO_IN | G_IO_HUP | G_IO_ERR),
        [](int, GIOCondition, void* self) -> gboolean {
            return static_cast<SettingsClient*>(self)->onReadable();
        },
        this);
}

SettingsClient::~SettingsClient()
{
    if (__watch != 0) {
        g_source_remove(__watch);
    }
    close(__socket);
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
    __answer = oxil::KeyValues();
    __announced = oxil::KeyValues();
    __records.clear();
    return __trouble.empty() && send(__socket, data);
}

//! [answer]
// The main loop says that there is something to read: a whole message, or the end.
bool SettingsClient::onReadable()
{
    Message message;
    switch (receive(__socket, message)) {
        case Received::MESSAGE:
            __receivedBytes += static_cast<long long>(sizeof message.info + message.bytes.size());
            readAnswer(message);
            break;
        case Received::NOTHING_MORE:
            giveUp("the settings service is gone");
            break;
        case Received::REFUSED:
            giveUp("a message of the settings service was refused");
            break;
    }
    return __trouble.empty();
}

void SettingsClient::readAnswer(const Message& message)
{
    if (__announced.getCount() > 0) {
        if (!readRecords(message)) {
            giveUp("the settings service sent no records");
            return;
        }
    } else {
        oxil::SerializedData data(message.info);
        data.setData(message.bytes.data());
        if (oxil::Serializer::deserialize(data, __announced) != oxil::STATUS_SUCCESS) {
            giveUp("the settings service sent no answer");
            return;
        }
        const bool failed = __announced.getKey(0) == "error";
        if (!failed && __announced.getValue("count").toInt() > 0) {
            return;  // the records are still to come
        }
    }
    std::swap(__answer, __announced);
    if (__onAnswer) {
        __onAnswer();
    }
}

bool SettingsClient::readRecords(const Message& message)
{
    oxil::SerializedData data(message.info);
    data.setData(message.bytes.data());
    const int r = __announced.getValue("repeatable").toBool()
                      ? oxil::Serializer::deserialize(data, __records, oxil::REPEATABLE)
                      : oxil::Serializer::deserialize(data, __records);
    return r == oxil::STATUS_SUCCESS;
}
//! [answer]

void SettingsClient::giveUp(const std::string& trouble)
{
    __trouble = trouble;
    __watch = 0;  // the main loop removes it when onReadable() returns false
}

}  // namespace picker
