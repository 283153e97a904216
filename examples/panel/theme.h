// The colours of the panel, all of them computed from one hue.
#pragma once

#include <string>

#include <Oxil.h>

namespace panel {

// How well one colour can be read on another, from 1 to 21; text needs 4.5 (WCAG 2.1, 1.4.3).
double getContrast(const oxil::Color& one, const oxil::Color& other);

// Definitions of colours for a style sheet of GTK: "@define-color accent #2f6fd0;" and so on.
std::string makeColors(int hue, bool dark);

}  // namespace panel
