#include "behaviour.h"

#include <cstdio>
#include <exception>
#include <fstream>
#include <iterator>

#include "report.h"
#include "theme.h"

namespace panel {

using oxil::KeyValues;

//! [start]
bool Behaviour::start(Window& window)
{
    window_ = &window;
    window.build(readLayout(folder_ + "/panel.xml", "en"));
    if (window.getLayout().pages.empty()) {
        return false;
    }

    setTheme(0, false);

    // What a timer of the script calls fails in silence, unless somebody asks to be told.
    script_.setErrorHandler(
        [this](const std::string& function, const std::string& message,
               const std::string& traceback) { showError(function, message, traceback); });
    script_.addLuaApi(this);
    if (script_.load() != oxil::STATUS_SUCCESS) {
        window.showPage(window.getLayout().pages.front().id);
        showError("load", "the log tells why", "");
        return true;
    }
    settings_.start([this](bool connected) { call("onConnection", connected); },
                    [this](const std::string& method, const std::vector<KeyValues>& records) {
                        call("onAnswer", method, records);
                    });
    return true;
}
//! [start]

//! [bind]
// What the script can do.
int Behaviour::onLoading()
{
    bind("Panel.showPage", window_, &Window::showPage);
    bind("Panel.getPage", window_, &Window::getPage);
    bind("Panel.getWord", window_, &Window::getWord);
    bind("Panel.setValue", window_, &Window::setValue);
    bind("Panel.setOptions", window_, &Window::setOptions);
    bind("Panel.enable", window_, &Window::enable);
    bind("Panel.setState", window_, &Window::setState);
    bind("Panel.setMessage", window_, &Window::setMessage);
    bind("Panel.setQuestion", window_, &Window::setQuestion);
    bind("Panel.setBusy", window_, &Window::setBusy);
    bind("Panel.setProgress", window_, &Window::setProgress);
    bind("Panel.isStill", window_, &Window::isStill);
    bind("Panel.getSize", [this] {
        const oxil::Dimension size = window_->getSize();
        return std::make_tuple(size.width, size.height);
    });
    bind("Panel.setTheme", this, &Behaviour::setTheme);
    bind("Panel.setLanguage", [this](const std::string& language) {
        // Not in the middle of what a row has to say: rows are made anew.
        later_.start(0, [this, language] { setLanguage(language); });
    });
    bind("Panel.writeReport", this, &Behaviour::writeReport);
    bind("Settings.ask", &settings_, &Settings::ask);
    return oxil::STATUS_SUCCESS;
}
//! [bind]

//! [call]
// An error of the script is nobody's end: the panel shows it and goes on. The result is of no kind
// then, as it is if there is none.
template <typename... Params>
oxil::Variant Behaviour::call(const std::string& function, const Params&... params)
{
    try {
        const auto answer = script_.call<oxil::Variant>(function, params...);
        if (answer) {
            return *answer;
        }
        showError(function, answer.getMessage(), answer.getTraceback());
    } catch (const std::exception& exception) {  // of a function that the script has called
        showError(function, exception.what(), "");
    }
    return {};
}

void Behaviour::showError(const std::string& function, const std::string& message,
                          const std::string& traceback)
{
    std::fprintf(stderr, "%s: %s\n%s\n", function.c_str(), message.c_str(), traceback.c_str());
    window_->setMessage(window_->getWord("script") + ": " + function + ": " + message, true);
}
//! [call]

bool Behaviour::onLeave(const std::string& page)
{
    const oxil::Variant may = call("onLeave", page);
    return !may.is<bool>() || may.get<bool>();
}

void Behaviour::onOpen(const std::string& page)
{
    call("onOpen", page);
}

void Behaviour::onChanged(const std::string& setting, const oxil::Variant& value)
{
    call("onChanged", setting, value);
}

void Behaviour::onPressed(const std::string& button)
{
    call("onPressed", button);
}

void Behaviour::onAnswered(bool yes)
{
    call("onAnswered", yes);
}

//! [close]
// The script may wait in a loop of its own, for the answer to a question say: that one ends first.
void Behaviour::onClose()
{
    if (!closing_) {
        closing_ = true;
        call("onClose");
        loop_.quit();
    }
}
//! [close]

void Behaviour::setTheme(int hue, bool dark)
{
    std::ifstream file(folder_ + "/panel.css");
    window_->setStyle(makeColors(hue, dark) +
                      std::string(std::istreambuf_iterator<char>(file), {}));
}

void Behaviour::setLanguage(const std::string& language)
{
    window_->build(readLayout(folder_ + "/panel.xml", language));
    call("onBuilt");
}

std::string Behaviour::writeReport()
{
    const auto getText = [this](const Row& row) { return window_->getText(row.id); };
    const bool written =
        panel::writeReport(window_->getLayout(), getText, folder_ + "/report.xsl", report_);
    return written ? report_ : "";
}

}  // namespace panel
