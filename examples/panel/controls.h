// The controls that rows have.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include <Oxil.h>
#include <gtk/gtk.h>

#include "layout.h"

namespace panel {

// Calls a function whenever a widget emits a signal that expects nothing in return. The function
// lives as long as the widget, and must not throw: GTK is C.
void on(void* object, const char* signal, std::function<void()> function);

// Gives a widget a class of the style sheet, or takes it away.
void style(GtkWidget* widget, const char* name, bool has = true);

// A label that begins where its language does, and goes on in a new line where it has to.
GtkWidget* makeLabel(const std::string& text, const char* styleClass);

// What scrolls up and down, with a bar as soon as it has to.
GtkWidget* makeScrolled(GtkWidget* child);

void removeChildren(GtkWidget* container);

// A button with a text.
GtkWidget* makeButton(const std::string& title, bool strong,
                      const std::function<void()>& onPressed);

// Called with what the user has chosen; with no value when a button is pressed.
using OnChanged = std::function<void(const oxil::Variant& value)>;

using Choices = std::vector<oxil::KeyValues>;

struct Control {
    GtkWidget* widget;
    std::function<void(const oxil::Variant& value)> set;
    std::function<std::string()> getText;                    // the value as the user sees it
    std::function<void(const Choices& options)> setOptions;  // of a choice
};

Control makeControl(const Row& row, const OnChanged& onChanged);

}  // namespace panel
