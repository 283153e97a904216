#include "controls.h"

#include <memory>
#include <utility>

namespace panel {
namespace {

using oxil::NumberParser;
using oxil::Variant;

Control makeSwitch(const Row&, const OnChanged& onChanged)
{
    GtkWidget* widget = gtk_switch_new();
    const auto isOn = [widget] { return gtk_switch_get_active(GTK_SWITCH(widget)) != FALSE; };
    on(widget, "notify::active", [=] { onChanged(isOn()); });
    const auto set = [widget](const Variant& value) {
        gtk_switch_set_active(GTK_SWITCH(widget), value.toBool());
    };
    return {widget, set, [isOn] { return isOn() ? "✓" : "–"; }, nullptr};
}

//! [slider]
// A scale with its number beside it. That of hues has a class of its own in the style sheet.
Control makeSlider(const Row& row, const OnChanged& onChanged)
{
    const int least = NumberParser::toInt(row.attributes.get("min", "0"));
    const int most = NumberParser::toInt(row.attributes.get("max", "100"));
    const std::string unit = row.attributes.get("unit", "");

    GtkWidget* scale = gtk_scale_new_with_range(GTK_ORIENTATION_HORIZONTAL, least, most, 5);
    gtk_scale_set_draw_value(GTK_SCALE(scale), FALSE);
    gtk_widget_set_hexpand(scale, TRUE);
    style(scale, row.kind.c_str());

    GtkWidget* number = gtk_label_new("");
    gtk_label_set_width_chars(GTK_LABEL(number), 5);
    gtk_label_set_xalign(GTK_LABEL(number), 1);
    style(number, "number");

    GtkWidget* box = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 8);
    gtk_container_add(GTK_CONTAINER(box), scale);
    gtk_container_add(GTK_CONTAINER(box), number);

    const auto get = [scale] {
        return static_cast<int>(gtk_range_get_value(GTK_RANGE(scale)) + 0.5);
    };
    const auto show = [=] {
        gtk_label_set_text(GTK_LABEL(number), (std::to_string(get()) + unit).c_str());
    };
    on(scale, "value-changed", [=] {
        show();
        onChanged(get());
    });
    show();
    const auto set = [scale](const Variant& value) {
        gtk_range_set_value(GTK_RANGE(scale), value.toInt());
    };
    return {box, set, [get, unit] { return std::to_string(get()) + unit; }, nullptr};
}
//! [slider]

// A button that shows what is chosen, and a list that comes up beneath it.
class Choice {
public:
    Choice()
        : button_(gtk_menu_button_new()),
          label_(gtk_label_new("")),
          popover_(gtk_popover_new(button_)),
          list_(gtk_list_box_new())
    {
        gtk_label_set_ellipsize(GTK_LABEL(label_), PANGO_ELLIPSIZE_END);
        gtk_label_set_max_width_chars(GTK_LABEL(label_), 16);
        GtkWidget* box = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 8);
        gtk_container_add(GTK_CONTAINER(box), label_);
        gtk_container_add(GTK_CONTAINER(box),
                          gtk_image_new_from_icon_name("pan-down-symbolic", GTK_ICON_SIZE_MENU));
        gtk_container_add(GTK_CONTAINER(button_), box);
        style(button_, "choice");

        GtkWidget* scroll = makeScrolled(list_);
        GtkScrolledWindow* scrolled = GTK_SCROLLED_WINDOW(scroll);
        gtk_scrolled_window_set_propagate_natural_width(scrolled, TRUE);
        gtk_scrolled_window_set_propagate_natural_height(scrolled, TRUE);
        gtk_scrolled_window_set_max_content_height(scrolled, 192);
        gtk_container_add(GTK_CONTAINER(popover_), scroll);
        gtk_widget_show_all(scroll);
        gtk_menu_button_set_popover(GTK_MENU_BUTTON(button_), popover_);
        on(popover_, "map", [this] { focusChosen(); });
    }

    GtkWidget* getWidget() const { return button_; }
    std::string getText() const { return gtk_label_get_text(GTK_LABEL(label_)); }

    void setOnChanged(const OnChanged& onChanged)
    {
        on(list_, "row-activated", [this, onChanged] {
            const int place =
                gtk_list_box_row_get_index(gtk_list_box_get_selected_row(GTK_LIST_BOX(list_)));
            gtk_popover_popdown(GTK_POPOVER(popover_));
            const std::string value = options_.at(static_cast<std::size_t>(place)).get("value", "");
            set(value);
            onChanged(value);
        });
    }

    void setOptions(const Choices& options)
    {
        options_ = options;
        removeChildren(list_);
        for (const oxil::KeyValues& option : options_) {
            GtkWidget* label = gtk_label_new(option.get("title", "").c_str());
            gtk_label_set_xalign(GTK_LABEL(label), 0);
            gtk_label_set_ellipsize(GTK_LABEL(label), PANGO_ELLIPSIZE_END);
            gtk_label_set_max_width_chars(GTK_LABEL(label), 32);
            gtk_list_box_insert(GTK_LIST_BOX(list_), label, -1);
        }
        gtk_widget_show_all(list_);
        set(value_);
    }

    // A value that is none of the options is shown as it is.
    void set(const std::string& value)
    {
        value_ = value;
        std::string title = value;
        for (std::size_t i = 0; i < options_.size(); ++i) {
            if (options_[i].get("value", "") == value) {
                title = options_[i].get("title", "");
                gtk_list_box_select_row(GTK_LIST_BOX(list_), getRow(static_cast<int>(i)));
            }
        }
        gtk_label_set_text(GTK_LABEL(label_), title.c_str());
    }

private:
    GtkListBoxRow* getRow(int place) const
    {
        return gtk_list_box_get_row_at_index(GTK_LIST_BOX(list_), place);
    }

    void focusChosen()
    {
        GtkListBoxRow* chosen = gtk_list_box_get_selected_row(GTK_LIST_BOX(list_));
        if (chosen != nullptr) {
            gtk_widget_grab_focus(GTK_WIDGET(chosen));
        }
    }

    GtkWidget* button_;
    GtkWidget* label_;
    GtkWidget* popover_;
    GtkWidget* list_;
    Choices options_;
    std::string value_;
};

Control makeChoice(const Row& row, const OnChanged& onChanged)
{
    const auto choice = std::make_shared<Choice>();
    choice->setOnChanged(onChanged);
    choice->setOptions(row.options);
    return {choice->getWidget(), [choice](const Variant& value) { choice->set(value.toString()); },
            [choice] { return choice->getText(); },
            [choice](const Choices& options) { choice->setOptions(options); }};
}

Control makeText(const Row&, const OnChanged& onChanged)
{
    GtkWidget* widget = gtk_entry_new();
    gtk_entry_set_width_chars(GTK_ENTRY(widget), 1);  // the style sheet says how wide it is
    gtk_entry_set_max_length(GTK_ENTRY(widget),
                             60);  // of up to four bytes each: they fit in a slot
    const auto get = [widget] { return std::string(gtk_entry_get_text(GTK_ENTRY(widget))); };
    on(widget, "changed", [=] { onChanged(get()); });
    const auto set = [widget](const Variant& value) {
        gtk_entry_set_text(GTK_ENTRY(widget), value.toString().c_str());
    };
    return {widget, set, get, nullptr};
}

Control makeInfo(const Row&, const OnChanged&)
{
    GtkWidget* widget = gtk_label_new("");
    gtk_label_set_ellipsize(GTK_LABEL(widget), PANGO_ELLIPSIZE_END);
    style(widget, "info");
    const auto set = [widget](const Variant& value) {
        gtk_label_set_text(GTK_LABEL(widget), value.toString().c_str());
    };
    return {widget, set, [widget] { return gtk_label_get_text(GTK_LABEL(widget)); }, nullptr};
}

}  // namespace

//! [on]
void on(void* object, const char* signal, std::function<void()> function)
{
    using Function = std::function<void()>;
    const auto call = [](void* data) noexcept { (*static_cast<Function*>(data))(); };
    const auto destroy = [](void* data, GClosure*) { delete static_cast<Function*>(data); };
    g_signal_connect_data(object, signal, G_CALLBACK(+call), new Function(std::move(function)),
                          destroy, G_CONNECT_SWAPPED);
}
//! [on]

void style(GtkWidget* widget, const char* name, bool has)
{
    GtkStyleContext* context = gtk_widget_get_style_context(widget);
    if (has) {
        gtk_style_context_add_class(context, name);
    } else {
        gtk_style_context_remove_class(context, name);
    }
}

GtkWidget* makeLabel(const std::string& text, const char* styleClass)
{
    GtkWidget* label = gtk_label_new(text.c_str());
    gtk_label_set_xalign(GTK_LABEL(label), 0);
    gtk_label_set_line_wrap(GTK_LABEL(label), TRUE);
    gtk_label_set_line_wrap_mode(GTK_LABEL(label), PANGO_WRAP_WORD_CHAR);
    style(label, styleClass);
    return label;
}

GtkWidget* makeScrolled(GtkWidget* child)
{
    GtkWidget* widget = gtk_scrolled_window_new(nullptr, nullptr);
    GtkScrolledWindow* scrolled = GTK_SCROLLED_WINDOW(widget);
    gtk_scrolled_window_set_policy(scrolled, GTK_POLICY_NEVER, GTK_POLICY_AUTOMATIC);
    gtk_scrolled_window_set_overlay_scrolling(scrolled, FALSE);  // which would move by itself
    gtk_container_add(GTK_CONTAINER(widget), child);
    return widget;
}

void removeChildren(GtkWidget* container)
{
    const auto destroy = [](GtkWidget* child, void*) { gtk_widget_destroy(child); };
    gtk_container_foreach(GTK_CONTAINER(container), destroy, nullptr);
}

GtkWidget* makeButton(const std::string& title, bool strong, const std::function<void()>& onPressed)
{
    GtkWidget* button = gtk_button_new_with_label(title.c_str());
    style(button, "strong", strong);
    on(button, "clicked", onPressed);
    return button;
}

//! [make]
Control makeControl(const Row& row, const OnChanged& onChanged)
{
    using Maker = Control (*)(const Row&, const OnChanged&);
    static const std::map<std::string, Maker> makers = {
        {"switch", makeSwitch}, {"slider", makeSlider}, {"hue", makeSlider},
        {"choice", makeChoice}, {"text", makeText},     {"info", makeInfo}};
    if (row.kind == "button") {
        const bool strong = row.attributes.contains("strong");
        return {makeButton(row.title, strong, [onChanged] { onChanged({}); }), nullptr, nullptr,
                nullptr};
    }
    return makers.at(row.kind)(row, onChanged);
}
//! [make]

}  // namespace panel
