// The application. What it does is said in Lua: this lets the script use window and service, and
// tells it what happens there.
#pragma once

#include <string>

#include <Oxil.h>

#include "settings.h"
#include "window.h"

namespace panel {

struct Options {
    std::string folder;  // where panel.xml, panel.lua, panel.css and report.xsl are
    std::string script;  // another one than panel.lua
    std::string state;   // a folder that keeps the settings, and gets the report
    std::string clock;   // what the clock shows: time stands still, and nothing moves by itself
    oxil::Dimension size{800, 480};
};

class Panel : private oxil::LuaApi {
public:
    // The command starts the service.
    Panel(const Options& options, const std::vector<std::string>& command);
    ~Panel() override { script_.removeLuaApi(this); }

    // Until the window is closed. False if there is no layout.
    bool run();

    const Window& getWindow() const { return window_; }
    const Settings& getSettings() const { return settings_; }

private:
    int onLoading() override;

    template <typename... Params>
    oxil::Variant call(const std::string& function, const Params&... params);
    void showError(const std::string& function, const std::string& message,
                   const std::string& traceback);
    void setTheme(int hue, bool dark);
    void setLanguage(const std::string& language);
    std::string writeReport();
    void close();

    const Options options_;
    oxil::WaitingLoop loop_;
    oxil::Timer later_;
    bool closing_ = false;
    oxil::LuaScript script_;
    Settings settings_;
    Window window_;
};

}  // namespace panel
