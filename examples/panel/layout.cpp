#include "layout.h"

namespace panel {
namespace {

oxil::KeyValues toRecord(const std::vector<std::string>& attributes)
{
    oxil::KeyValues record;
    for (std::size_t i = 0; i + 1 < attributes.size(); i += 2) {
        record.add(attributes[i], attributes[i + 1]);
    }
    return record;
}

}  // namespace

//! [read]
// Each element begins something, and none has text: what it says stands in its attributes.
Layout readLayout(const std::string& path, const std::string& language)
{
    Layout layout;
    layout.rightToLeft = language == "ar";
    std::vector<Page>& pages = layout.pages;
    oxil::Xml xml(path);
    xml.setOnStartElement([&](const std::string& name, const std::vector<std::string>& attributes) {
        const oxil::KeyValues item = toRecord(attributes);
        const std::string id = item.get("id", "");
        const std::string title = item.get(language, item.get("en", ""));
        if (name == "page") {
            pages.push_back({id, item.get("icon", ""), title, {}});
        } else if (name == "text-of") {
            layout.words[id] = title;
        } else if (pages.empty()) {
            return;  // the root
        } else if (name == "option") {
            pages.back().rows.back().options.push_back(
                {{"value", item.get("value", "")}, {"title", title}});
        } else if (name == "hint") {
            pages.back().rows.back().hint = title;
        } else {
            pages.back().rows.push_back({name, id, title, "", item, {}});
        }
    });
    if (xml.read(oxil::EXACT_TEXT) != oxil::STATUS_SUCCESS) {
        pages.clear();
    }
    return layout;
}
//! [read]

}  // namespace panel
