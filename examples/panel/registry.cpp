#include "registry.h"

namespace panel {
namespace {

// Layouts and variants describe themselves in a <configItem>.
oxil::KeyValues makeRecord(const std::string& layout, const std::string& variant,
                           oxil::XmlElement item)
{
    return {{"layout", layout}, {"value", variant}, {"title", item.first("description").getText()}};
}

}  // namespace

//! [read]
std::vector<oxil::KeyValues> readRegistry(const std::string& path)
{
    std::vector<oxil::KeyValues> records;
    const auto document = oxil::XmlDocument::loadFile(path);
    if (document == nullptr) {
        return records;
    }
    for (const oxil::XmlElement layout : document->getRootElement().first("layoutList")) {
        const oxil::XmlElement item = layout.first("configItem");
        const std::string name = item.first("name").getText();
        records.push_back(makeRecord(name, "", item));
        for (const oxil::XmlElement variant : layout.first("variantList")) {
            const oxil::XmlElement own = variant.first("configItem");
            records.push_back(makeRecord(name, own.first("name").getText(), own));
        }
    }
    return records;
}
//! [read]

}  // namespace panel
