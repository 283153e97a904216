#include "page.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <stdexcept>
#include <utility>

namespace picker {
namespace {

//! [color]
std::string toHex(const oxil::Color& color)
{
    char text[8];
    std::snprintf(text, sizeof text, "#%06x", color.getRGB32() & 0xFFFFFF);
    return text;
}

// Neighbours differ: each layout is a golden angle further round the circle of hues.
oxil::Color getTint(int place)
{
    const float turns = 0.381966f * static_cast<float>(place);
    return oxil::Color(360.0f * (turns - std::floor(turns)), 55.0f, 80.0f);
}

// A colour for text on a light page: the same hue, stronger and darker.
oxil::Color getInk(oxil::Color tint)
{
    tint.setSaturation(75.0f);
    tint.setValue(45.0f);
    return tint;
}
//! [color]

std::unique_ptr<oxil::XmlNode> makeElement(const std::string& name, const std::string& content)
{
    auto node = std::make_unique<oxil::XmlNode>(name);
    node->setContent(content);
    return node;
}

// The first few codes, and how many more there are.
std::string shorten(const std::string& languages)
{
    constexpr std::size_t FEW = 3;

    if (languages.empty()) {
        return languages;
    }
    const std::vector<std::string> codes = oxil::StringUtil::getTokens(languages, " ");
    std::string text = codes[0];
    for (std::size_t i = 1; i < std::min(codes.size(), FEW); ++i) {
        text += " " + codes[i];
    }
    return codes.size() > FEW ? text + " +" + std::to_string(codes.size() - FEW) : text;
}

}  // namespace

//! [split]
// "German (dead acute)" is shown as a title and a detail.
void Page::addLayout(const std::string& name, const std::string& description,
                     const std::string& languages, const std::string& variants)
{
    Layout layout;
    layout.name = name;
    const std::vector<std::string> parts = oxil::StringUtil::getTokens(description, "()");
    layout.title = parts.empty() ? name : parts[0];
    layout.detail = parts.size() > 1 ? parts[1] : "";
    layout.languages = shorten(languages);
    layout.variants = oxil::NumberParser::toInt(variants);
    layouts_.push_back(std::move(layout));
}
//! [split]

void Page::addVariant(const std::string& description)
{
    if (layouts_.empty()) {
        throw std::logic_error("a variant without a layout");
    }
    layouts_.back().examples.push_back(description);
}

//! [write]
int Page::write(const std::string& styleSheetPath, const std::string& path) const
{
    const oxil::Dimension screen = oxil::Screen::getInstance()->getSize();

    // The page is written for this screen, with a sensible width where there is none.
    auto root = std::make_unique<oxil::XmlNode>("page");
    root->setAttribute("width", std::to_string(screen.width > 0 ? screen.width : 1280));
    int place = 0;
    for (const Layout& layout : layouts_) {
        root->addChild(makeNode(layout, place++));
    }
    oxil::XmlDocument document;
    document.setRootNode(std::move(root));

    oxil::XmlStyleSheet styleSheet(styleSheetPath);
    const int r = styleSheet.load();
    if (r != oxil::STATUS_SUCCESS) {
        return r;
    }
    const auto html = styleSheet.transform(document);
    if (html == nullptr) {
        return oxil::STATUS_INVALID_STATE;
    }
    html->__setXmlStyleSheet(&styleSheet);
    html->setOutputFilePath(path);
    return html->write();
}
//! [write]

std::unique_ptr<oxil::XmlNode> Page::makeNode(const Layout& layout, int place) const
{
    const oxil::Color tint = getTint(place);
    auto node = std::make_unique<oxil::XmlNode>("layout");
    node->setAttribute({"name", layout.name, "variants", std::to_string(layout.variants), "tint",
                        toHex(tint), "ink", toHex(getInk(tint))});
    node->addChild(makeElement("title", layout.title));
    node->addChild(makeElement("detail", layout.detail));
    node->addChild(makeElement("languages", layout.languages));
    for (const std::string& example : layout.examples) {
        node->addChild(makeElement("variant", example));
    }
    return node;
}

}  // namespace picker
