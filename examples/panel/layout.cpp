#include "layout.h"

#include <cmath>
#include <set>
#include <stdexcept>
#include <utility>

namespace panel {
namespace {

using oxil::KeyValues;
using oxil::Variant;

//! [kinds]
// What an element of the layout file becomes, and which property of it is its value.
struct Kind {
    GType (*getType)();
    std::string value;
    KeyValues properties;
};

// Up and down, with a bar as soon as it has to be; one that overlays would move by itself.
const KeyValues SCROLLED = {{"hscrollbar-policy", "never"}, {"overlay-scrolling", "no"}};

// Characters have up to four bytes: so many fit in a slot of a message.
const KeyValues SHORT = {{"max-length", "60"}, {"width-chars", "1"}, {"valign", "center"}};

const KeyValues WIDE = {{"hexpand", "yes"}, {"value-pos", "right"}, {"step-increment", "5"}};

const std::map<std::string, Kind> KINDS = {
    {"panel", {gtk_overlay_get_type, "", {}}},
    {"line", {gtk_box_get_type, "", {}}},
    {"column", {gtk_box_get_type, "", {{"orientation", "vertical"}}}},
    {"list", {gtk_stack_sidebar_get_type, "", {}}},
    {"stack", {gtk_stack_get_type, "visible-child-name", {{"hexpand", "yes"}, {"vexpand", "yes"}}}},
    {"page", {gtk_scrolled_window_get_type, "", SCROLLED}},
    {"label", {gtk_label_get_type, "label", {{"xalign", "0"}, {"wrap", "yes"}}}},
    {"info", {gtk_label_get_type, "label", {{"ellipsize", "end"}}}},
    {"progress", {gtk_progress_bar_get_type, "fraction", {}}},
    {"button", {gtk_button_get_type, "", {{"valign", "center"}}}},
    {"switch", {gtk_switch_get_type, "active", {{"valign", "center"}}}},
    {"slider", {gtk_scale_get_type, "value", WIDE}},
    {"choice", {gtk_combo_box_text_get_type, "active-id", {{"valign", "center"}}}},
    {"text", {gtk_entry_get_type, "text", SHORT}},
    {"search", {gtk_search_entry_get_type, "text", SHORT}}};
//! [kinds]

// Attributes that are no properties: the words of an element, and what is looked at here.
const std::set<std::string> OWN = {"en", "de", "ar", "title", "id", "class", "icon", "hidden"};

// An element's attributes, and "title": its text in the language, or else in English.
KeyValues toItem(const std::vector<std::string>& attributes, const std::string& language)
{
    KeyValues item;
    for (std::size_t i = 0; i + 1 < attributes.size(); i += 2) {
        item.add(attributes[i], attributes[i + 1]);
    }
    item.set("title", item.get(language, item.get("en", "")));
    return item;
}

void addOption(GtkWidget* choice, const KeyValues& option)
{
    gtk_combo_box_text_append(GTK_COMBO_BOX_TEXT(choice), option.get("value", "").c_str(),
                              option.get("title", "").c_str());
}

//! [property]
// Sets a property to what a text says, as GTK's own layout files do; false if that can't be done.
bool setProperty(const Control& control, const std::string& name, const std::string& text)
{
    static GtkBuilder* const builder = gtk_builder_new();
    for (GObject* object : {G_OBJECT(control.widget), control.object}) {
        GParamSpec* const property =
            g_object_class_find_property(G_OBJECT_GET_CLASS(object), name.c_str());
        g_auto(GValue) value = G_VALUE_INIT;
        if (property != nullptr &&
            gtk_builder_value_from_string(builder, property, text.c_str(), &value, nullptr)) {
            g_object_set_property(object, name.c_str(), &value);
            return true;
        }
    }
    return false;
}

Variant getValue(const Control& control)
{
    g_auto(GValue) value = G_VALUE_INIT;
    g_object_get_property(control.object, control.property.c_str(), &value);
    if (G_VALUE_HOLDS_BOOLEAN(&value)) {
        return g_value_get_boolean(&value) != FALSE;
    }
    if (G_VALUE_HOLDS_DOUBLE(&value)) {
        return static_cast<int>(std::lround(g_value_get_double(&value)));
    }
    const char* const text = g_value_get_string(&value);
    return text != nullptr ? text : "";
}
//! [property]

}  // namespace

Layout::~Layout()
{
    quiet_ = true;
    gtk_widget_destroy(window_);
}

//! [read]
KeyValues Layout::read(const std::string& language)
{
    const auto destroy = [](GtkWidget* widget, void*) { gtk_widget_destroy(widget); };
    quiet_ = true;
    gtk_container_foreach(GTK_CONTAINER(window_), destroy, nullptr);
    gtk_widget_set_default_direction(language == "ar" ? GTK_TEXT_DIR_RTL : GTK_TEXT_DIR_LTR);
    controls_ = {{"window", {window_, G_OBJECT(window_), ""}}};
    pages_.clear();
    rows_ = nullptr;
    texts_ = {};

    oxil::Xml xml(path_);
    std::vector<GtkWidget*> open = {window_};  // what the next element is in
    xml.setOnStartElement([&](const std::string& name, const std::vector<std::string>& attributes) {
        open.push_back(begin(name, toItem(attributes, language), open.back()));
    });
    xml.setOnEndElement([&](const std::string&) { open.pop_back(); });
    if (xml.read(oxil::EXACT_TEXT) != oxil::STATUS_SUCCESS) {
        throw std::invalid_argument("the log tells why");
    }
    for (const char* const id : {"search", "message", "message-text"}) {
        getControl(id);  // has to be there, for the panel
    }
    gtk_stack_sidebar_set_stack(GTK_STACK_SIDEBAR(getControl("list").widget),
                                GTK_STACK(getControl("stack").widget));
    quiet_ = false;
    return texts_;
}

// Each element begins something, and none has text: what it says stands in its attributes. Returns
// where the elements in it go.
GtkWidget* Layout::begin(const std::string& element, const KeyValues& item, GtkWidget* parent)
{
    const std::string id = item.get("id", "");
    const std::string title = item.get("title", "");
    if (!id.empty()) {
        texts_.set(id, title);
    }
    if (element == "word") {
        return parent;
    }
    if (element == "option") {
        addOption(parent, item);
        return parent;
    }
    const Control control = makeControl(element, item);
    if (element == "page") {
        pages_.push_back({id, {}});
        gtk_stack_add_titled(GTK_STACK(getControl("stack").widget), control.widget, id.c_str(),
                             (item.get("icon", "") + "\t" + title).c_str());
        rows_ = begin("column", {{"class", "rows"}}, control.widget);
        return rows_;
    }
    if (parent == rows_ && !control.property.empty()) {
        pages_.back().rows.push_back(id);
        parent = addRow(title, control.widget);
    }
    if (GTK_IS_OVERLAY(parent) && gtk_bin_get_child(GTK_BIN(parent)) != nullptr) {
        gtk_overlay_add_overlay(GTK_OVERLAY(parent), control.widget);
    } else {
        gtk_container_add(GTK_CONTAINER(parent), control.widget);
    }
    return control.widget;
}

// A setting has its title beside it.
GtkWidget* Layout::addRow(const std::string& title, GtkWidget* control)
{
    const char* const expand = gtk_widget_get_hexpand(control) ? "no" : "yes";
    GtkWidget* const row = begin("line", {{"class", "row"}, {"spacing", "16"}}, rows_);
    GtkWidget* const label = begin("label", {{"title", title}, {"hexpand", expand}}, row);
    gtk_label_set_mnemonic_widget(GTK_LABEL(label), control);
    g_object_bind_property(control, "sensitive", label, "sensitive", G_BINDING_DEFAULT);
    return row;
}
//! [read]

//! [control]
// A widget with the properties of its kind, and with those that the file says.
Control Layout::makeControl(const std::string& element, const KeyValues& item)
{
    const auto kind = KINDS.find(element);
    if (kind == KINDS.end()) {
        throw std::invalid_argument("no element is called " + element);
    }
    GtkWidget* const widget = GTK_WIDGET(g_object_new(kind->second.getType(), nullptr));
    Control control = {widget, G_OBJECT(widget), kind->second.value};
    if (GTK_IS_RANGE(widget)) {
        control.object = G_OBJECT(gtk_range_get_adjustment(GTK_RANGE(widget)));
    }
    for (const KeyValues& properties : {kind->second.properties, item}) {
        for (const auto& [name, value] : properties) {
            if (OWN.count(name) == 0 && !setProperty(control, name, value.toString())) {
                g_object_unref(g_object_ref_sink(widget));  // it is nobody's yet
                throw std::invalid_argument(element + " has no " + name + "=" + value.toString());
            }
        }
    }
    if (GTK_IS_COMBO_BOX(widget)) {  // which would be as wide as the longest title
        g_autoptr(GList) cells = gtk_cell_layout_get_cells(GTK_CELL_LAYOUT(widget));
        g_object_set(cells->data, "ellipsize", PANGO_ELLIPSIZE_END, "width-chars", 9,
                     "max-width-chars", 24, nullptr);
    }
    const std::string title = item.get("title", "");
    if (!title.empty() && !setProperty(control, "label", title)) {
        setProperty(control, "placeholder-text", title);
    }
    gtk_style_context_add_class(gtk_widget_get_style_context(widget),
                                item.get("class", element).c_str());
    gtk_widget_set_visible(widget, !item.contains("hidden"));

    const std::string id = item.get("id", "");
    if (!id.empty()) {
        gtk_widget_set_name(widget, id.c_str());
        controls_[id] = control;
    }
    if (!control.property.empty()) {
        on(control.object, "notify::" + control.property, [this, id, control] {
            if (!quiet_) {
                onChanged_(id, getValue(control));
            }
        });
    } else if (GTK_IS_BUTTON(widget)) {
        on(widget, "clicked", [this, id] { onChanged_(id, {}); });
    }
    if (GTK_IS_SEARCH_ENTRY(widget)) {  // by the key for it
        on(widget, "stop-search", [widget] { gtk_entry_set_text(GTK_ENTRY(widget), ""); });
    }
    return control;
}
//! [control]

const Control& Layout::getControl(const std::string& id) const
{
    const auto control = controls_.find(id);
    if (control == controls_.end()) {
        throw std::invalid_argument("nothing is called " + id);
    }
    return control->second;
}

void Layout::set(const std::string& id, const Variant& value,
                 const std::optional<std::string>& property)
{
    const Control& control = getControl(id);
    quiet_ = true;
    const bool done = setProperty(control, property.value_or(control.property), value.toString());
    quiet_ = false;
    if (!done) {
        throw std::invalid_argument(id + " can't be " + value.toString());
    }
}

void Layout::setOptions(const std::string& id, const std::vector<KeyValues>& options)
{
    GtkWidget* const choice = getControl(id).widget;
    quiet_ = true;
    gtk_combo_box_text_remove_all(GTK_COMBO_BOX_TEXT(choice));
    for (const KeyValues& option : options) {
        addOption(choice, option);
    }
    quiet_ = false;
}

std::string Layout::search(const std::string& text, const std::string& open)
{
    const auto matches = [&](const std::string& id) {
        return g_str_match_string(text.c_str(), getTitle(id).c_str(), TRUE) != FALSE;
    };
    std::string best;
    for (const Page& page : pages_) {
        bool found = false;
        for (const std::string& row : page.rows) {
            const bool shown = matches(row) || matches(page.id);
            gtk_widget_set_visible(gtk_widget_get_parent(getControl(row).widget), shown);
            found = found || shown;
        }
        set(page.id, found || page.id == open, "visible");
        if (found && (best.empty() || page.id == open)) {
            best = page.id;
        }
    }
    return best;
}

std::string Layout::getText(const std::string& id) const
{
    const Control& control = getControl(id);
    if (GTK_IS_COMBO_BOX(control.widget)) {
        g_autofree char* title =
            gtk_combo_box_text_get_active_text(GTK_COMBO_BOX_TEXT(control.widget));
        return title != nullptr ? title : "";
    }
    const Variant value = getValue(control);
    if (value.is<bool>()) {
        return value.get<bool>() ? "✓" : "–";
    }
    return value.toString();
}

//! [on]
void on(void* object, const std::string& signal, std::function<void()> function)
{
    using Function = std::function<void()>;
    const auto call = [](void* data) noexcept { (*static_cast<Function*>(data))(); };
    const auto destroy = [](void* data, GClosure*) { delete static_cast<Function*>(data); };
    g_signal_connect_data(object, signal.c_str(), G_CALLBACK(+call),
                          new Function(std::move(function)), destroy, G_CONNECT_SWAPPED);
}
//! [on]

}  // namespace panel
