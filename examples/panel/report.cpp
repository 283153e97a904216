#include "report.h"

#include <memory>

namespace panel {

//! [write]
bool writeReport(const Layout& layout, const std::function<std::string(const Row&)>& getText,
                 const std::string& styleSheetPath, const std::string& path)
{
    auto report = std::make_unique<oxil::XmlNode>("report");
    for (const Page& page : layout.pages) {
        auto group = std::make_unique<oxil::XmlNode>("page");
        group->setAttribute("title", page.title);
        for (const Row& row : page.rows) {
            const std::string text = getText(row);
            auto setting = std::make_unique<oxil::XmlNode>("setting");
            setting->setAttribute({"title", row.title, "value", text});
            if (row.kind != "button" && oxil::XmlNode::isText(text)) {
                group->addChild(std::move(setting));
            }
        }
        report->addChild(std::move(group));
    }
    oxil::XmlDocument document;
    document.setRootNode(std::move(report));

    oxil::XmlStyleSheet styleSheet(styleSheetPath);
    if (styleSheet.load(oxil::PLAIN_FILE) != oxil::STATUS_SUCCESS) {
        return false;
    }
    const auto html = styleSheet.transform(document);
    if (html == nullptr) {
        return false;
    }
    html->__setXmlStyleSheet(&styleSheet);
    html->setOutputFilePath(path);
    return html->write(oxil::PLAIN_FILE) == oxil::STATUS_SUCCESS;
}
//! [write]

}  // namespace panel
