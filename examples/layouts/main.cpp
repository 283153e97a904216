// Reads the registry of keyboard layouts that Debian ships in xkb-data, and writes a report of it.
//
// Usage: layouts EVDEV.XML REPORT.XSL REPORT.TXT
//
// Prints, for the registry of Debian 12:
//   99 layouts with 479 variants
//   and how the report begins and ends

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <Oxil.h>

namespace {

struct Layout {
    std::string name;
    std::string description;
    int variants = 0;
};

//! [read]
// Collects <layout> elements. A layout and each of its variants have a <configItem> with a <name>
// and a <description>, and so have other things; the layout's own come before its variants.
std::vector<Layout> readLayouts(const std::string& path)
{
    std::vector<Layout> layouts;
    std::string text;
    bool own = false;  // inside a layout, and not in one of its variants

    oxil::Xml xml(path);
    xml.setOnStartElement([&](const std::string& name, const std::vector<std::string>&) {
        text.clear();
        if (name == "layout") {
            layouts.emplace_back();
            own = true;
        } else if (name == "variant" && !layouts.empty()) {
            ++layouts.back().variants;
            own = false;
        }
    });
    xml.setOnCharacters([&](const std::string& run) { text += run; });
    xml.setOnEndElement([&](const std::string& name) {
        if (own && name == "name") {
            layouts.back().name = text;
        } else if (own && name == "description") {
            layouts.back().description = text;
        } else if (name == "layout") {
            own = false;
        }
    });

    if (xml.read(oxil::EXACT_TEXT) != oxil::STATUS_SUCCESS) {
        layouts.clear();  // the log tells why
    }
    return layouts;
}
//! [read]

//! [write]
// Builds <report><layout name="..." variants="...">...</layout>...</report>, turns it into text,
// and writes that under the stylesheet's own output settings.
int writeReport(const std::vector<Layout>& layouts, const std::string& styleSheetPath,
                const std::string& path)
{
    auto report = std::make_unique<oxil::XmlNode>("report");
    for (const Layout& layout : layouts) {
        auto node = std::make_unique<oxil::XmlNode>("layout");
        node->setAttribute({"name", layout.name, "variants", std::to_string(layout.variants)});
        node->setContent(layout.description);
        report->addChild(std::move(node));
    }
    oxil::XmlDocument document;
    document.setRootNode(std::move(report));

    oxil::XmlStyleSheet styleSheet(styleSheetPath);
    int r = styleSheet.load();
    if (r != oxil::STATUS_SUCCESS) {
        return r;
    }
    const auto text = styleSheet.transform(document);
    if (text == nullptr) {
        return oxil::STATUS_INVALID_STATE;
    }
    text->__setXmlStyleSheet(&styleSheet);
    text->setOutputFilePath(path);
    return text->write();
}
//! [write]

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 4) {
        std::fprintf(stderr, "usage: layouts EVDEV.XML REPORT.XSL REPORT.TXT\n");
        return 2;
    }

    std::vector<Layout> layouts = readLayouts(argv[1]);
    if (layouts.empty()) {
        return 1;
    }
    int variants = 0;
    for (const Layout& layout : layouts) {
        variants += layout.variants;
    }
    std::printf("%zu layouts with %d variants\n", layouts.size(), variants);

    std::stable_sort(layouts.begin(), layouts.end(), [](const Layout& one, const Layout& other) {
        return one.variants > other.variants;
    });
    if (writeReport(layouts, argv[2], argv[3]) != oxil::STATUS_SUCCESS) {
        return 1;
    }

    // The first lines, and the last one.
    std::ifstream report(argv[3]);
    std::string line;
    for (int i = 0; std::getline(report, line); ++i) {
        if (i < 5 || report.peek() == std::ifstream::traits_type::eof()) {
            std::printf("%s\n", line.c_str());
        }
    }
}
