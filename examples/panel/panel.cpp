// A panel for the settings of a device.
//
// Usage: panel [--OPTION VALUE]... FOLDER STATE
//   FOLDER           where panel.xml, panel.lua, panel.css and report.xsl are
//   STATE            a folder that keeps the settings, and gets the report
//   --size WxH       of the window, 800x480 unless told otherwise; not larger than the screen
//   --script FILE    another script than panel.lua
//   --clock HH:MM    what the clock shows; time stands still, and nothing moves by itself
//   --observed yes   says what is to be seen, see walk/observer.h

#include <gtk/gtk.h>

#include <algorithm>
#include <chrono>
#include <clocale>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <Oxil.h>

#include "layout.h"
#include "theme.h"
#include "walk/observer.h"

namespace panel {
namespace {

using namespace std::chrono_literals;

//! [screen]
// A device has one screen, and the panel all of it. A desktop's is larger, or not known here.
oxil::Dimension getSize(const std::string& wanted)
{
    oxil::Dimension size(0, 0);
    if (std::sscanf(wanted.c_str(), "%dx%d", &size.width, &size.height) != 2 || size.width <= 0 ||
        size.height <= 0) {
        size = {800, 480};
    }
    const oxil::Dimension screen = oxil::Screen::getInstance()->getSize();
    if (screen.width > 0 && screen.height > 0) {
        size = {std::min(size.width, screen.width), std::min(size.height, screen.height)};
    }
    return size;
}
//! [screen]

// A device has one look. What a desktop's user prefers would make it another one.
void pinLook(bool still)
{
    g_object_set(gtk_settings_get_default(), "gtk-theme-name", "Adwaita", "gtk-icon-theme-name",
                 "Adwaita", "gtk-font-name", "DejaVu Sans 10", "gtk-xft-antialias", 1,
                 "gtk-xft-hinting", 1, "gtk-xft-hintstyle", "hintslight", "gtk-xft-rgba", "none",
                 "gtk-xft-dpi", 96 * 1024, "gtk-cursor-blink", FALSE, "gtk-enable-animations",
                 still ? FALSE : TRUE, "gtk-entry-select-on-focus", FALSE, nullptr);
}

// The application. What it does is said in Lua: this lets the script use window and service, and
// tells it what happens there.
class Panel : private oxil::LuaApi {
public:
    // Options are those of the command line.
    explicit Panel(const oxil::KeyValues& options)
        : options_(options),
          folder_(options.get("folder", "") + "/"),
          css_(gtk_css_provider_new()),
          layout_(folder_ + "panel.xml",
                  [this](const auto& id, const auto& value) { onChanged(id, value); }),
          script_(std::filesystem::path(folder_) / options.get("--script", ""))
    {
        const oxil::Dimension size = getSize(options.get("--size", ""));
        GtkWidget* const window = layout_.getWindow();
        gtk_window_set_default_size(GTK_WINDOW(window), size.width, size.height);
        g_signal_connect(window, "delete-event", G_CALLBACK(onDelete), this);
        g_signal_connect(window, "key-press-event", G_CALLBACK(onKey), this);
        gtk_style_context_add_provider_for_screen(gtk_widget_get_screen(window),
                                                  GTK_STYLE_PROVIDER(css_),
                                                  GTK_STYLE_PROVIDER_PRIORITY_APPLICATION);
    }

    ~Panel() override
    {
        script_.removeLuaApi(this);
        g_object_unref(css_);
    }

    // Until the window is closed. std::invalid_argument says what is wrong with the layout.
    void run()
    {
        setTheme(0, false);
        // What a timer of the script calls fails in silence, unless somebody asks to be told.
        script_.setErrorHandler([this](const auto&... what) { onError(what...); });
        script_.addLuaApi(this);
        bool loaded = false;
        std::string reason = "the log tells why";
        try {
            loaded = script_.load() == oxil::STATUS_SUCCESS;
        } catch (const std::exception& exception) {  // of a function that the script has called
            reason = exception.what();
        }
        if (loaded) {
            connect();
        } else {
            layout_.read("en");
            onError("load", reason, "");
        }
        loop_.run();
    }

    const Layout& getLayout() const { return layout_; }

    // The service's process, 0 if there is no connection: for those who want to hurt it.
    GPid getService() const { return channel_.isOpen() ? process_ : 0; }

private:
    //! [bind]
    // What the script can do.
    int onLoading() override
    {
        bind("Panel.build", &layout_, &Layout::read);
        bind("Panel.set", &layout_, &Layout::set);
        bind("Panel.setOptions", &layout_, &Layout::setOptions);
        bind("Panel.search", &layout_, &Layout::search);
        bind("Panel.setTheme", this, &Panel::setTheme);
        bind("Panel.say", this, &Panel::say);
        bind("Panel.writeReport", this, &Panel::writeReport);
        bind("Panel.getClock", [this] { return options_.get("--clock", ""); });
        bind("Settings.request", this, &Panel::request);
        return oxil::STATUS_SUCCESS;
    }
    //! [bind]

    //! [call]
    // An error of the script is nobody's end: the panel shows it and goes on.
    template <typename... Params>
    void call(const std::string& function, const Params&... params)
    {
        try {
            const auto answer = script_.call(function, params...);
            if (!answer) {
                onError(function, answer.getMessage(), answer.getTraceback());
            }
        } catch (const std::exception& exception) {  // of a function that the script has called
            onError(function, exception.what(), "");
        }
    }

    void onError(const std::string& function, const std::string& message,
                 const std::string& traceback)
    {
        std::fprintf(stderr, "%s: %s\n%s\n", function.c_str(), message.c_str(), traceback.c_str());
        say(layout_.getTitle("script") + ": " + function + ": " + message, true);
    }

    // What happens in the window. A message can be closed whatever the script is like.
    void onChanged(const std::string& id, const oxil::Variant& value)
    {
        if (id == "close") {
            say("", false);
        } else if (value.getType() == oxil::VARIANT_TYPE_NONE) {
            call("onPressed", id);
        } else if (id == "stack") {
            call("onOpen", value);
        } else {
            call("onChanged", id, value);
        }
    }
    //! [call]

    void setTheme(int hue, bool dark)
    {
        std::ifstream file(folder_ + "panel.css");
        const std::string css =
            makeColors(hue, dark) + std::string(std::istreambuf_iterator<char>(file), {});
        gtk_css_provider_load_from_data(css_, css.data(), static_cast<gssize>(css.size()), nullptr);
    }

    // A message stays until it is closed, or another one comes; an empty one is none.
    void say(const std::string& text, bool bad)
    {
        layout_.set("message-text", text);
        layout_.set("message", bad ? "warning" : "notice", "name");
        layout_.set("message", !text.empty(), "visible");
        layout_.set("window", true, "visible");
    }

    static gboolean onKey(GtkWidget*, GdkEventKey* event, void* data) noexcept
    {
        Panel& panel = *static_cast<Panel*>(data);
        const bool control = (event->state & GDK_CONTROL_MASK) != 0;
        if (control && event->keyval == GDK_KEY_q) {
            gtk_window_close(GTK_WINDOW(panel.layout_.getWindow()));
        } else if (control && event->keyval == GDK_KEY_f) {
            panel.layout_.set("search", true, "is-focus");
        } else if (event->keyval == GDK_KEY_Escape) {
            panel.call("onPressed", "escape");
        } else if (event->keyval == GDK_KEY_Tab &&
                   gtk_container_get_focus_child(
                       GTK_CONTAINER(panel.layout_.getControl("list").widget)) != nullptr) {
            // Among pages one goes with the arrows; the tabulator leads out of the list.
            GtkWidget* const page = panel.layout_.getControl("stack").widget;
            return gtk_widget_child_focus(page, GTK_DIR_TAB_FORWARD);
        }
        return FALSE;
    }

    //! [close]
    // The script may wait in a loop of its own, for an answer say: that one ends first.
    static gboolean onDelete(GtkWidget*, GdkEvent*, void* data) noexcept
    {
        Panel& panel = *static_cast<Panel*>(data);
        if (!std::exchange(panel.closing_, true)) {
            panel.call("onClose");
            panel.loop_.quit();
        }
        return TRUE;  // the window goes with the panel
    }
    //! [close]

    //! [connect]
    // A service that ends is started again after a second, for as long as there is a panel; without
    // one it ends by itself, as nobody is at the other end of its pipes.
    void connect()
    {
        std::string words[] = {
            std::filesystem::read_symlink("/proc/self/exe").string() + "-service",
            "/usr/share/X11/xkb/rules/evdev.xml",  // of Debian's package xkb-data
            options_.get("state", "") + "/settings"};
        char* command[] = {words[0].data(), words[1].data(), words[2].data(), nullptr};
        int input = -1;
        int output = -1;
        g_autoptr(GError) error = nullptr;
        if (!g_spawn_async_with_pipes(nullptr, command, nullptr, G_SPAWN_DEFAULT, nullptr, nullptr,
                                      &process_, &input, &output, nullptr, &error) &&
            !std::exchange(complained_, true)) {
            std::fprintf(stderr, "%s\n", error->message);
        }

        const auto onClosed = [this](int) {
            pause_.start(1s, [this] { connect(); });
            call("onConnection", false);
        };
        if (input != -1 &&
            channel_.open(output, input, nullptr, onClosed) == oxil::STATUS_SUCCESS) {
            call("onConnection", true);
        } else {
            onClosed(oxil::STATUS_FAILURE);
        }
    }
    //! [connect]

    //! [request]
    // Every request gets its answer, or learns that there is none: nobody waits for ever.
    bool request(const std::string& method, const std::vector<oxil::Variant>& params)
    {
        const auto onAnswer = [this, method](int status, const oxil::SerializedData& answer) {
            std::vector<oxil::KeyValues> records;
            if (status == oxil::STATUS_SUCCESS) {
                oxil::Serializer::deserialize(answer, records, oxil::REPEATABLE);
            }
            call("onAnswer", method, records);
        };
        return channel_.isOpen() &&
               channel_.request({method, params}, 4s, onAnswer) == oxil::STATUS_SUCCESS;
    }
    //! [request]

    //! [report]
    // What is shown, as a page of HTML; returns its path, or nothing if it can't be written.
    std::string writeReport() const
    {
        auto report = std::make_unique<oxil::XmlNode>("report");
        for (const Page& page : layout_.getPages()) {
            for (const std::string& row : page.rows) {
                const std::string text = layout_.getText(row);
                if (oxil::XmlNode::isText(text)) {
                    auto setting = std::make_unique<oxil::XmlNode>("setting");
                    setting->setAttribute({"title", layout_.getTitle(row), "value", text});
                    report->addChild(std::move(setting));
                }
            }
        }
        oxil::XmlDocument document;
        document.setRootNode(std::move(report));

        oxil::XmlStyleSheet styleSheet(folder_ + "report.xsl");
        styleSheet.load(oxil::PLAIN_FILE);
        const auto html = styleSheet.transform(document);
        if (html == nullptr) {
            return "";
        }
        const std::string path = options_.get("state", "") + "/report.html";
        html->__setXmlStyleSheet(&styleSheet);
        html->setOutputFilePath(path);
        return html->write(oxil::PLAIN_FILE) == oxil::STATUS_SUCCESS ? path : "";
    }
    //! [report]

    const oxil::KeyValues options_;
    const std::string folder_;
    GtkCssProvider* const css_;
    Layout layout_;
    oxil::LuaScript script_;
    oxil::WaitingLoop loop_;
    bool closing_ = false;
    GPid process_ = 0;
    bool complained_ = false;  // that it can't be started
    oxil::Channel channel_;
    oxil::Timer pause_;
};

}  // namespace
}  // namespace panel

//! [main]
int main(int argc, char** argv)
{
    const bool hasDisplay = gtk_init_check(&argc, &argv);
    oxil::KeyValues options = {
        {"--size", ""}, {"--script", "panel.lua"}, {"--clock", ""}, {"--observed", ""}};
    int i = 1;
    for (; i + 1 < argc && options.contains(argv[i]); i += 2) {
        options.set(argv[i], argv[i + 1]);
    }
    if (argc != i + 2 || !hasDisplay) {
        std::fprintf(stderr, argc != i + 2 ? "usage: panel [--OPTION VALUE]... FOLDER STATE\n"
                                           : "there is no display\n");
        return 2;
    }
    options.set("folder", argv[i]);
    options.set("state", argv[i + 1]);
    std::setlocale(LC_NUMERIC, "C");  // a number has a point, in whatever country
    panel::pinLook(!options.get("--clock", "").empty());

    panel::Panel panel(options);
    const panel::Observer observer(
        panel.getLayout(), [&] { return panel.getService(); },
        !options.get("--observed", "").empty());
    try {
        panel.run();
    } catch (const std::invalid_argument& reason) {
        std::fprintf(stderr, "%s/panel.xml: %s\n", argv[i], reason.what());
        return 1;
    }
}
//! [main]
