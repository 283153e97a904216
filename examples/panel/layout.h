// What the layout file says: pages, their rows, and words.
#pragma once

#include <map>
#include <string>
#include <vector>

#include <Oxil.h>

namespace panel {

struct Row {
    std::string kind;  // "switch", "slider", "hue", "choice", "text", "info" or "button"
    std::string id;    // the setting's name
    std::string title;
    std::string hint;
    oxil::KeyValues attributes;            // "min", "max", "unit", "strong": texts
    std::vector<oxil::KeyValues> options;  // "value", "title"
};

struct Page {
    std::string id;
    std::string icon;
    std::string title;
    std::vector<Row> rows;
};

struct Layout {
    bool rightToLeft = false;
    std::vector<Page> pages;
    std::map<std::string, std::string> words;
};

// Reads the words of one language ("en", "de", "ar"). Without pages, the file could not be read, and
// the log tells why.
Layout readLayout(const std::string& path, const std::string& language);

}  // namespace panel
