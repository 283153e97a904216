// What the panel does is said in Lua: this lets the script use window and service, and tells it what
// happens there.
#pragma once

#include <string>
#include <vector>

#include <Oxil.h>

#include "layout.h"
#include "settings.h"
#include "window.h"

namespace panel {

class Behaviour : public WindowListener, private oxil::LuaApi {
public:
    // Layout, script and style sheets are in the folder; the report goes to the path.
    Behaviour(const std::string& folder, const std::string& script, const std::string& report,
              Settings& settings, oxil::WaitingLoop& loop)
        : folder_(folder), report_(report), settings_(settings), loop_(loop), script_(script)
    {
    }

    ~Behaviour() override { script_.removeLuaApi(this); }

    // Loads the script and starts the service. False if there is no layout.
    bool start(Window& window);

    bool onLeave(const std::string& page) override;
    void onOpen(const std::string& page) override;
    void onChanged(const std::string& setting, const oxil::Variant& value) override;
    void onPressed(const std::string& button) override;
    void onAnswered(bool yes) override;
    void onClose() override;

private:
    int onLoading() override;

    template <typename... Params>
    oxil::Variant call(const std::string& function, const Params&... params);
    void showError(const std::string& function, const std::string& message,
                   const std::string& traceback);
    void setTheme(int hue, bool dark);
    void setLanguage(const std::string& language);
    std::string writeReport();

    const std::string folder_;
    const std::string report_;
    Settings& settings_;
    oxil::WaitingLoop& loop_;
    Window* window_ = nullptr;
    oxil::Timer later_;
    bool closing_ = false;
    oxil::LuaScript script_;
};

}  // namespace panel
