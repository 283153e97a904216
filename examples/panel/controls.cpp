#include "controls.h"

#include <map>
#include <memory>
#include <utility>

namespace panel {
namespace {

using oxil::KeyValues;
using oxil::Variant;

int getNumber(const KeyValues& item, const char* name, const char* fallback)
{
    return oxil::NumberParser::toInt(item.get(name, fallback));
}

// A widget with some of its properties: names, each with its value behind it.
template <typename... Properties>
GtkWidget* make(GType type, Properties... properties)
{
    return GTK_WIDGET(g_object_new(type, properties..., nullptr));
}

GtkWidget* add(GtkWidget* container, std::initializer_list<GtkWidget*> children)
{
    for (GtkWidget* child : children) {
        gtk_container_add(GTK_CONTAINER(container), child);
    }
    return container;
}

GtkWidget* makeColumn()
{
    return make(GTK_TYPE_BOX, "orientation", GTK_ORIENTATION_VERTICAL);
}

// Distances within a line are no margins: those would stay on their side when the direction changes.
GtkWidget* makeLine(int distance)
{
    return make(GTK_TYPE_BOX, "spacing", distance);
}

// A label that goes on in a new line where it has to.
GtkWidget* makeText(const std::string& text)
{
    return make(GTK_TYPE_LABEL, "label", text.c_str(), "xalign", 0.0, "wrap", TRUE, "wrap-mode",
                PANGO_WRAP_WORD_CHAR);
}

// A label that is cut where it is too long.
GtkWidget* makeCut(const std::string& text, int most)
{
    return make(GTK_TYPE_LABEL, "label", text.c_str(), "xalign", 0.0, "ellipsize",
                PANGO_ELLIPSIZE_END, "max-width-chars", most);
}

GtkWidget* makeImage(const std::string& name, int size)
{
    return make(GTK_TYPE_IMAGE, "icon-name", name.c_str(), "pixel-size", size);
}

// What scrolls up and down, with a bar as soon as it has to; one that overlays would move by itself.
GtkWidget* makeScrolled(GtkWidget* child)
{
    return add(make(GTK_TYPE_SCROLLED_WINDOW, "hscrollbar-policy", GTK_POLICY_NEVER,
                    "overlay-scrolling", FALSE),
               {child});
}

Control makePlain(GtkWidget* widget)
{
    Control control;
    control.widget = control.outside = control.inside = widget;
    return control;
}

// A setting's title, and its control beside it. Hints go below the title.
Control makeRow(const KeyValues& item, Control control)
{
    GtkWidget* title = makeText(item.get("title", ""));
    gtk_label_set_mnemonic_widget(GTK_LABEL(title), control.widget);  // what a screen reader says
    control.inside = add(makeColumn(), {title});
    control.outside = add(makeLine(16), {control.inside, control.widget});
    const bool wide = gtk_widget_compute_expand(control.widget, GTK_ORIENTATION_HORIZONTAL);
    g_object_set(control.inside, "valign", GTK_ALIGN_CENTER, "hexpand", !wide, nullptr);
    g_object_set(control.widget, "valign", GTK_ALIGN_CENTER, nullptr);
    style(control.outside, "row");
    return control;
}

Control makeSwitch(const KeyValues& item, const OnChanged& onChanged)
{
    Control control = makePlain(gtk_switch_new());
    GtkSwitch* const widget = GTK_SWITCH(control.widget);
    const auto isOn = [widget] { return gtk_switch_get_active(widget) != FALSE; };
    on(widget, "notify::active", [=] { onChanged(isOn()); });
    control.set = [widget](const Variant& value) { gtk_switch_set_active(widget, value.toBool()); };
    control.getText = [isOn] { return isOn() ? "✓" : "–"; };
    return makeRow(item, control);
}

// A scale with its number beside it.
Control makeSlider(const KeyValues& item, const OnChanged& onChanged)
{
    GtkAdjustment* const range =
        gtk_adjustment_new(0, getNumber(item, "min", "0"), getNumber(item, "max", "100"), 5, 10, 0);
    GtkWidget* scale = make(GTK_TYPE_SCALE, "adjustment", range, "draw-value", FALSE, "digits", 0,
                            "hexpand", TRUE);
    GtkWidget* number = make(GTK_TYPE_LABEL, "width-chars", 5, "xalign", 1.0);
    style(number, "number");

    const auto get = [range] { return static_cast<int>(gtk_adjustment_get_value(range) + 0.5); };
    Control control = makePlain(add(makeLine(8), {scale, number}));
    control.set = [range](const Variant& value) { gtk_adjustment_set_value(range, value.toInt()); };
    control.getText = [get, unit = item.get("unit", "")] { return std::to_string(get()) + unit; };
    const auto show = [number, getText = control.getText] {
        gtk_label_set_text(GTK_LABEL(number), getText().c_str());
    };
    on(range, "value-changed", [=] {
        show();
        onChanged(get());
    });
    show();
    return makeRow(item, control);
}

// A button that shows what is chosen, and a list that comes up beneath it.
Control makeChoice(const KeyValues& item, const OnChanged& onChanged)
{
    GtkLabel* const label = GTK_LABEL(makeCut("", 16));
    GtkListBox* const list = GTK_LIST_BOX(gtk_list_box_new());
    GtkWidget* scrolled = makeScrolled(GTK_WIDGET(list));
    g_object_set(scrolled, "propagate-natural-width", TRUE, "propagate-natural-height", TRUE,
                 "max-content-height", 192, nullptr);
    GtkWidget* popover = add(gtk_popover_new(nullptr), {scrolled});
    gtk_widget_show_all(scrolled);
    GtkWidget* button = make(GTK_TYPE_MENU_BUTTON, "popover", popover);
    GtkWidget* arrow = makeImage("pan-down-symbolic", 16);
    add(button, {add(makeLine(8), {GTK_WIDGET(label), arrow})});

    // A value that is none of the options is shown as it is.
    const auto options = std::make_shared<std::vector<KeyValues>>();
    const auto set = [=](const Variant& value) {
        std::string title = value.toString();
        for (std::size_t i = 0; i < options->size(); ++i) {
            const KeyValues& option = (*options)[i];
            if (option.get("value", "") == value.toString()) {
                title = option.get("title", "");
                const int place = static_cast<int>(i);
                gtk_list_box_select_row(list, gtk_list_box_get_row_at_index(list, place));
            }
        }
        gtk_label_set_text(label, title.c_str());
    };
    on(popover, "map", [list] {
        GtkListBoxRow* chosen = gtk_list_box_get_selected_row(list);
        if (chosen != nullptr) {
            gtk_widget_grab_focus(GTK_WIDGET(chosen));
        }
    });
    on(list, "row-activated", [=] {
        const int place = gtk_list_box_row_get_index(gtk_list_box_get_selected_row(list));
        const Variant value = options->at(static_cast<std::size_t>(place)).getValue("value");
        gtk_popover_popdown(GTK_POPOVER(popover));
        set(value);
        onChanged(value);
    });
    Control control = makePlain(button);
    control.set = set;
    control.getText = [label] { return std::string(gtk_label_get_text(label)); };
    control.setOptions = [=](const std::vector<KeyValues>& records) {
        *options = records;
        const auto destroy = [](GtkWidget* child, void*) { gtk_widget_destroy(child); };
        gtk_container_foreach(GTK_CONTAINER(list), destroy, nullptr);
        for (const KeyValues& option : records) {
            add(GTK_WIDGET(list), {makeCut(option.get("title", ""), 32)});
        }
        gtk_widget_show_all(GTK_WIDGET(list));
    };
    return makeRow(item, control);
}

Control makeEntry(const KeyValues& item, const OnChanged& onChanged)
{
    // The style sheet says how wide it is. Characters have up to four bytes: they fit in a slot.
    Control control = makePlain(make(GTK_TYPE_ENTRY, "width-chars", 1, "max-length", 60));
    GtkEntry* const entry = GTK_ENTRY(control.widget);
    control.set = [entry](const Variant& v) { gtk_entry_set_text(entry, v.toString().c_str()); };
    control.getText = [entry] { return std::string(gtk_entry_get_text(entry)); };
    on(entry, "changed", [onChanged, get = control.getText] { onChanged(get()); });
    return makeRow(item, control);
}

Control makeLabel(GtkWidget* widget)
{
    Control control = makePlain(widget);
    GtkLabel* const label = GTK_LABEL(widget);
    control.set = [label](const Variant& v) { gtk_label_set_text(label, v.toString().c_str()); };
    control.getText = [label] { return std::string(gtk_label_get_text(label)); };
    return control;
}

Control makePage(const KeyValues& item)
{
    const std::string title = item.get("title", "");
    GtkWidget* card = makeColumn();
    GtkWidget* buttons = make(GTK_TYPE_BOX, "spacing", 8, "halign", GTK_ALIGN_END);
    GtkWidget* page = add(makeColumn(), {card, buttons});
    style(card, "card");
    style(buttons, "buttons");
    style(page, "inside");
    Control control =
        makePlain(add(makeLine(12), {makeImage(item.get("icon", ""), 20), makeCut(title, -1)}));
    gtk_widget_set_tooltip_text(control.widget, title.c_str());
    control.outside = makeScrolled(page);
    control.inside = card;
    control.foot = buttons;
    return control;
}

Control makeButton(const KeyValues& item, const OnChanged& onChanged)
{
    GtkWidget* content = item.contains("icon") ? makeImage(item.get("icon", ""), 16)
                                               : gtk_label_new(item.get("title", "").c_str());
    GtkWidget* button = add(make(GTK_TYPE_BUTTON, "valign", GTK_ALIGN_CENTER), {content});
    on(button, "clicked", [onChanged] { onChanged({}); });
    return makePlain(button);
}

Control makeSearch(const KeyValues& item, const OnChanged& onChanged)
{
    GtkWidget* widget = make(GTK_TYPE_SEARCH_ENTRY, "width-chars", 14, "valign", GTK_ALIGN_CENTER,
                             "placeholder-text", item.get("title", "").c_str());
    GtkEntry* const entry = GTK_ENTRY(widget);
    on(entry, "search-changed", [=] { onChanged(gtk_entry_get_text(entry)); });
    on(entry, "stop-search", [entry] { gtk_entry_set_text(entry, ""); });
    return makePlain(widget);
}

Control makeProgress()
{
    Control control = makePlain(gtk_progress_bar_new());
    GtkProgressBar* const bar = GTK_PROGRESS_BAR(control.widget);
    control.set = [bar](const Variant& percent) {
        gtk_progress_bar_set_fraction(bar, percent.toInt() / 100.0);
    };
    return control;
}

Control makeList()
{
    Control control = makePlain(make(GTK_TYPE_LIST_BOX, "selection-mode", GTK_SELECTION_BROWSE));
    control.outside = makeScrolled(control.widget);
    return control;
}

//! [makers]
using Maker = std::function<Control(const KeyValues&, const OnChanged&)>;

const std::map<std::string, Maker> MAKERS = {
    {"switch", makeSwitch},
    {"slider", makeSlider},
    {"choice", makeChoice},
    {"text", makeEntry},
    {"info", [](auto& item, auto&) { return makeRow(item, makeLabel(makeCut("", -1))); }},
    {"hint", [](auto& item, auto&) { return makeLabel(makeText(item.get("title", ""))); }},
    {"label", [](auto& item, auto&) { return makeLabel(makeText(item.get("title", ""))); }},
    {"icon", [](auto& item, auto&) { return makePlain(makeImage(item.get("icon", ""), 16)); }},
    {"button", makeButton},
    {"search", makeSearch},
    {"progress", [](auto&, auto&) { return makeProgress(); }},
    {"page", [](auto& item, auto&) { return makePage(item); }},
    {"list", [](auto&, auto&) { return makeList(); }},
    {"stack", [](auto&, auto&) { return makePlain(make(GTK_TYPE_STACK, "vexpand", TRUE)); }},
    {"column", [](auto&, auto&) { return makePlain(makeColumn()); }},
    {"line", [](auto& item, auto&) { return makePlain(makeLine(getNumber(item, "space", "0"))); }},
    {"overlay", [](auto&, auto&) { return makePlain(gtk_overlay_new()); }}};
//! [makers]

}  // namespace

//! [make]
Control makeControl(const std::string& element, const KeyValues& item, const OnChanged& onChanged)
{
    const Control control = MAKERS.at(element)(item, onChanged);
    gtk_widget_set_name(control.widget, item.get("id", "").c_str());
    style(control.widget, item.get("class", element));
    if (item.contains("expand")) {
        gtk_widget_set_hexpand(control.outside, TRUE);
    }
    if (item.contains("end")) {
        gtk_widget_set_halign(control.outside, GTK_ALIGN_END);
    }
    if (item.contains("centred")) {
        g_object_set(control.outside, "halign", GTK_ALIGN_CENTER, "valign", GTK_ALIGN_CENTER,
                     "vexpand", TRUE, nullptr);
    }
    if (item.contains("width")) {
        g_object_set(control.widget, "max-width-chars", getNumber(item, "width", ""), nullptr);
    }
    if (item.contains("lines")) {
        g_object_set(control.widget, "lines", getNumber(item, "lines", ""), "ellipsize",
                     PANGO_ELLIPSIZE_END, nullptr);
    }
    return control;
}
//! [make]

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

void style(GtkWidget* widget, const std::string& name, bool has)
{
    const auto change = has ? gtk_style_context_add_class : gtk_style_context_remove_class;
    change(gtk_widget_get_style_context(widget), name.c_str());
}

}  // namespace panel
