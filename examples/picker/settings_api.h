// The table "Settings", through which the script talks to the settings service.
#pragma once

#include <Oxil.h>

#include "client.h"

namespace picker {

//! [table]
//   Settings.list(country, page)      asks for layouts
//   Settings.describe(layout, limit)  asks for a layout's variants
//   Settings.isAnswered()             whether the answer has come
//   Settings.getError()               what the service, or the connection, complains about, or nil
//   Settings.getPages()               number of pages that the list has
//   Settings.getCount()               number of records in the answer
//   Settings.get(i, key)              a text of the i-th record, from 1
//! [table]
// When an answer has come, the script's global function onAnswer() is called.
class SettingsApi : public oxil::LuaApi {
public:
    explicit SettingsApi(SettingsClient& client) : client_(client) {}

    int onLoading() override;
    int onUnloading() override;

private:
    SettingsClient& client_;
};

}  // namespace picker
