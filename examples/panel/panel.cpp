#include "panel.h"

#include <cstdio>
#include <exception>
#include <fstream>
#include <iterator>
#include <memory>

#include "theme.h"

namespace panel {

Panel::Panel(const Options& options, const std::vector<std::string>& command)
    : options_(options),
      script_(options.script.empty() ? options.folder + "/panel.lua" : options.script),
      settings_(command),
      window_(options.size,
              [this](const std::string& event, const std::string& id, const oxil::Variant& value) {
                  return event == "onClose" ? (close(), oxil::Variant()) : call(event, id, value);
              })
{
}

bool Panel::run()
{
    if (!window_.build(options_.folder + "/panel.xml", "en")) {
        return false;
    }
    setTheme(0, false);

    // What a timer of the script calls fails in silence, unless somebody asks to be told.
    script_.setErrorHandler(
        [this](const std::string& function, const std::string& message,
               const std::string& traceback) { showError(function, message, traceback); });
    script_.addLuaApi(this);
    if (script_.load() == oxil::STATUS_SUCCESS) {
        settings_.start([this](bool connected) { call("onConnection", connected); },
                        [this](const std::string& method, const Settings::Records& records) {
                            call("onAnswer", method, records);
                        });
    } else {
        window_.open(window_.getPages().front().id);
        showError("load", "the log tells why", "");
    }
    loop_.run();
    return true;
}

//! [bind]
// What the script can do.
int Panel::onLoading()
{
    bind("Panel.open", &window_, &Window::open);
    bind("Panel.getPage", &window_, &Window::getPage);
    bind("Panel.getWord", &window_, &Window::getWord);
    bind("Panel.set", &window_, &Window::set);
    bind("Panel.setOptions", &window_, &Window::setOptions);
    bind("Panel.enable", &window_, &Window::enable);
    bind("Panel.show", &window_, &Window::show);
    bind("Panel.focus", &window_, &Window::focus);
    bind("Panel.turn", &window_, &Window::turn);
    bind("Panel.setMessage", &window_, &Window::setMessage);
    bind("Panel.getSize", [this] {
        const oxil::Dimension size = window_.getSize();
        return std::make_tuple(size.width, size.height);
    });
    bind("Panel.getClock", [this] { return options_.clock; });
    bind("Panel.setTheme", this, &Panel::setTheme);
    bind("Panel.setLanguage", this, &Panel::setLanguage);
    bind("Panel.writeReport", this, &Panel::writeReport);
    bind("Settings.ask", &settings_, &Settings::ask);
    return oxil::STATUS_SUCCESS;
}
//! [bind]

//! [call]
// An error of the script is nobody's end: the panel shows it and goes on. The result is of no kind
// then, as it is if there is none.
template <typename... Params>
oxil::Variant Panel::call(const std::string& function, const Params&... params)
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

void Panel::showError(const std::string& function, const std::string& message,
                      const std::string& traceback)
{
    std::fprintf(stderr, "%s: %s\n%s\n", function.c_str(), message.c_str(), traceback.c_str());
    window_.setMessage(window_.getWord("script") + ": " + function + ": " + message, true);
}
//! [call]

//! [close]
// The script may wait in a loop of its own, for the answer to a question say: that one ends first.
void Panel::close()
{
    if (!closing_) {
        closing_ = true;
        call("onClose");
        loop_.quit();
    }
}
//! [close]

void Panel::setTheme(int hue, bool dark)
{
    std::ifstream file(options_.folder + "/panel.css");
    window_.setStyle(makeColors(hue, dark) + std::string(std::istreambuf_iterator<char>(file), {}));
}

// Not in the middle of what a row has to say: rows are made anew.
void Panel::setLanguage(const std::string& language)
{
    later_.start(0, [this, language] {
        window_.build(options_.folder + "/panel.xml", language);
        call("onBuilt");
    });
}

//! [report]
// What the rows show, as a page of HTML; returns its path, or nothing if it can't be written.
std::string Panel::writeReport()
{
    auto report = std::make_unique<oxil::XmlNode>("report");
    for (const Page& page : window_.getPages()) {
        auto group = std::make_unique<oxil::XmlNode>("page");
        group->setAttribute("title", page.title);
        for (const Row& row : page.rows) {
            const std::string text = window_.getControl(row.id).getText();
            if (oxil::XmlNode::isText(text)) {
                auto setting = std::make_unique<oxil::XmlNode>("setting");
                setting->setAttribute({"title", row.title, "value", text});
                group->addChild(std::move(setting));
            }
        }
        report->addChild(std::move(group));
    }
    oxil::XmlDocument document;
    document.setRootNode(std::move(report));

    oxil::XmlStyleSheet styleSheet(options_.folder + "/report.xsl");
    const bool loaded = styleSheet.load(oxil::PLAIN_FILE) == oxil::STATUS_SUCCESS;
    const auto html = loaded ? styleSheet.transform(document) : nullptr;
    if (html == nullptr) {
        return "";
    }
    const std::string path = options_.state + "/report.html";
    html->__setXmlStyleSheet(&styleSheet);
    html->setOutputFilePath(path);
    return html->write(oxil::PLAIN_FILE) == oxil::STATUS_SUCCESS ? path : "";
}
//! [report]

}  // namespace panel
