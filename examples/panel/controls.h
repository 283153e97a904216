// What the elements of the layout file become.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include <Oxil.h>
#include <gtk/gtk.h>

namespace panel {

// Calls a function whenever a widget emits a signal that expects nothing in return. The function
// lives as long as the widget, and must not throw: GTK is C.
void on(void* object, const char* signal, std::function<void()> function);

// Gives a widget a class of the style sheet, or takes it away.
void style(GtkWidget* widget, const std::string& name, bool has = true);

struct Control {
    GtkWidget* widget = nullptr;
    GtkWidget* outside = nullptr;  // the widget, with what is around it
    GtkWidget* inside = nullptr;   // where the elements within this one go
    GtkWidget* foot = nullptr;     // and where its buttons do, if they have a place of their own
    std::function<void(const oxil::Variant& value)> set;
    std::function<std::string()> getText;  // the value as the user sees it
    std::function<void(const std::vector<oxil::KeyValues>& options)> setOptions;  // of a choice
};

// Called with what the user has chosen; with no value when a button is pressed.
using OnChanged = std::function<void(const oxil::Variant& value)>;

// Makes an element of what the file says of it: attributes, and "title", a text in the language of
// the user. Throws std::out_of_range if there is no such element.
Control makeControl(const std::string& element, const oxil::KeyValues& item,
                    const OnChanged& onChanged);

}  // namespace panel
