// Building an XML tree, saving it, and applying a stylesheet to it.

#include "OxXmlDocument.h"

#include <libxml/tree.h>
#include <libxslt/transform.h>
#include <libxslt/xsltInternals.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#ifdef HAS_LIBXMLPP
#include <libxml++/libxml++.h>
#endif

#include "Bench.h"
#include "OxStatus.h"
#include "OxXmlNode.h"
#include "OxXmlStyleSheet.h"
#include "TemporaryFile.h"

namespace oxil::bench {
namespace {

constexpr int PER_GROUP = 100;

const char STYLE_SHEET[] = R"(<?xml version="1.0"?>
<xsl:stylesheet version="1.0" xmlns:xsl="http://www.w3.org/1999/XSL/Transform">
  <xsl:template match="/layout">
    <places><xsl:apply-templates select="group/widget"/></places>
  </xsl:template>
  <xsl:template match="widget">
    <place of="{@id}" row="{@y}"/>
  </xsl:template>
</xsl:stylesheet>
)";

/** The values of the attributes, made beforehand. */
class Values {
public:
    explicit Values(int count)
    {
        for (int i = 0; i < count; ++i) {
            ids.push_back("widget" + std::to_string(i));
            rows.push_back(std::to_string(20 * i));
        }
    }

    std::size_t size() const { return ids.size(); }

    std::vector<std::string> ids;
    std::vector<std::string> rows;
};

// Each builds a root with groups of widgets, so many nodes in all, in document order.

// ---- The engines themselves

const xmlChar* toXml(const std::string& text)
{
    return reinterpret_cast<const xmlChar*>(text.c_str());
}

const xmlChar* toXml(const char* text)
{
    return reinterpret_cast<const xmlChar*>(text);
}

using NativeDocument = std::unique_ptr<xmlDoc, void (*)(xmlDocPtr)>;

NativeDocument buildByLibxml(const Values& values)
{
    NativeDocument document(xmlNewDoc(toXml("1.0")), xmlFreeDoc);
    xmlNodePtr root = xmlNewNode(nullptr, toXml("layout"));
    xmlDocSetRootElement(document.get(), root);
    xmlNodePtr group = nullptr;
    for (std::size_t i = 1; i < values.size(); ++i) {
        const bool isGroup = i % PER_GROUP == 1;
        xmlNodePtr node = xmlNewNode(nullptr, toXml(isGroup ? "group" : "widget"));
        xmlSetProp(node, toXml("id"), toXml(values.ids[i]));
        xmlSetProp(node, toXml("y"), toXml(values.rows[i]));
        xmlAddChild(isGroup ? root : group, node);
        if (isGroup) {
            group = node;
        }
    }
    return document;
}

// ---- The library

/** A document that is destroyed after its nodes. */
class Tree {
public:
    explicit Tree(const Values& values) : __root(new XmlNode("layout"))
    {
        __document.setRootNode(__root.get());
        XmlNode* group = nullptr;
        for (std::size_t i = 1; i < values.size(); ++i) {
            const bool isGroup = i % PER_GROUP == 1;
            auto* node = new XmlNode(isGroup ? "group" : "widget");
            node->setAttribute("id", values.ids[i]);
            node->setAttribute("y", values.rows[i]);
            (isGroup ? __root.get() : group)->addChild(node);
            if (isGroup) {
                group = node;
            }
        }
    }

    XmlDocument& getDocument() { return __document; }

private:
    XmlDocument __document;
    std::unique_ptr<XmlNode> __root;
};

// ---- Peers

#ifdef HAS_LIBXMLPP
using PeerDocument = std::shared_ptr<xmlpp::Document>;

PeerDocument buildByLibxmlpp(const Values& values)
{
    auto document = std::make_shared<xmlpp::Document>();
    xmlpp::Element* root = document->create_root_node("layout");
    xmlpp::Element* group = nullptr;
    for (std::size_t i = 1; i < values.size(); ++i) {
        const bool isGroup = i % PER_GROUP == 1;
        xmlpp::Element* node = (isGroup ? root : group)->add_child(isGroup ? "group" : "widget");
        node->set_attribute("id", values.ids[i]);
        node->set_attribute("y", values.rows[i]);
        if (isGroup) {
            group = node;
        }
    }
    return document;
}
#endif

// ---- The operations

std::string textOf(xmlDocPtr document)
{
    xmlChar* buffer = nullptr;
    int size = 0;
    xmlDocDumpFormatMemoryEnc(document, &buffer, &size, "UTF-8", 1);
    std::string text(reinterpret_cast<const char*>(buffer), static_cast<std::size_t>(size));
    xmlFree(buffer);
    return text;
}

std::string agreed(const std::string& text, const std::string& same)
{
    return text == same ? text : "the floor and the library differ";
}

/** The text of the tree. */
std::string expectedText(const Values& values)
{
    return agreed(textOf(buildByLibxml(values).get()),
                  textOf(Tree(values).getDocument().__getNativeDocument()));
}

/** Measures an action, if the text that its result stands for is the expected one. */
template <typename Action, typename ToText>
void measure(benchmark::State& state, int size, const Action& action, const ToText& toText,
             const std::string& expected)
{
    expect(state, toText(action()) == expected);
    for (auto _ : state) {
        auto result = action();
        benchmark::DoNotOptimize(result);
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(size));
}

// Building. Destroying the tree is part of it: it is as much the contender's as building it.

template <typename Build, typename ToNative>
void addBuilding(const std::string& contender, int size, const Build& build,
                 const ToNative& toNative)
{
    add("XML tree: build", contender, size, [=](benchmark::State& state, int) {
        const Values values(size);
        measure(
            state, size, [&] { return build(values); },
            [&](const auto& tree) { return textOf(toNative(tree)); }, expectedText(values));
    });
}

void addBuildingByOxil(int size)
{
    addBuilding(
        "oxil", size, [](const Values& values) { return std::make_unique<Tree>(values); },
        [](const auto& tree) { return tree->getDocument().__getNativeDocument(); });
}

void addBuildingByOthers(int size)
{
    addBuilding("floor: libxml2", size, buildByLibxml,
                [](const NativeDocument& document) { return document.get(); });
#ifdef HAS_LIBXMLPP
    addBuilding("libxml++", size, buildByLibxmlpp,
                [](const PeerDocument& document) { return document->cobj(); });
#endif
}

// Saving

/** @param save  writes the document that @p build makes to a file */
template <typename Build, typename Save>
void addSaving(const std::string& contender, int size, const Build& build, const Save& save)
{
    add("XML tree: save", contender, size, [=](benchmark::State& state, int) {
        const Values values(size);
        const auto document = build(values);
        const TemporaryFile file("");
        measure(
            state, size, [&] { return save(*document, file.path()); },
            [&](int /*result*/) { return file.content(); }, expectedText(values));
    });
}

void addSavingByOxil(int size)
{
    addSaving(
        "oxil", size, [](const Values& values) { return std::make_unique<Tree>(values); },
        [](Tree& tree, const std::string& path) {
            tree.getDocument().setOutputFilePath(path);
            return tree.getDocument().write();
        });
}

void addSavingByOthers(int size)
{
    addSaving("floor: libxml2", size, buildByLibxml, [](xmlDoc& document, const std::string& path) {
        return xmlSaveFormatFileEnc(path.c_str(), &document, "UTF-8", 1);
    });
#ifdef HAS_LIBXMLPP
    addSaving("libxml++", size, buildByLibxmlpp,
              [](xmlpp::Document& document, const std::string& path) {
                  document.write_to_file_formatted(path, "UTF-8");
                  return 0;
              });
#endif
}

// Applying a stylesheet

enum class Transformer { LIBXSLT, OXIL };

void transform(benchmark::State& state, int size, Transformer transformer)
{
    const TemporaryFile file(STYLE_SHEET);
    const Values values(size);

    const std::unique_ptr<xsltStylesheet, void (*)(xsltStylesheetPtr)> native(
        xsltParseStylesheetFile(toXml(file.path())), xsltFreeStylesheet);
    const NativeDocument source = buildByLibxml(values);
    const auto byLibxslt = [&] {
        const char* parameters[] = {nullptr};
        return NativeDocument(xsltApplyStylesheet(native.get(), source.get(), parameters),
                              xmlFreeDoc);
    };
    const auto nativeText = [](const NativeDocument& result) { return textOf(result.get()); };

    XmlStyleSheet styleSheet(file.path());
    require(styleSheet.load() == STATUS_SUCCESS, "the stylesheet");
    Tree tree(values);
    const auto byOxil = [&] {
        return std::unique_ptr<XmlDocument>(styleSheet.apply(&tree.getDocument()));
    };
    const auto oxilText = [](const auto& result) { return textOf(result->__getNativeDocument()); };

    if (transformer == Transformer::OXIL) {
        measure(state, size, byOxil, oxilText, nativeText(byLibxslt()));
    } else {
        measure(state, size, byLibxslt, nativeText, oxilText(byOxil()));
    }
}

}  // namespace
}  // namespace oxil::bench

int main(int argc, char** argv)
{
    using namespace oxil::bench;

    for (const int size : {10, 100, 1000, 10000, 100000}) {
        addBuildingByOxil(size);
        addSavingByOxil(size);
    }
    // As many as the caches hold: with more, how the memory happens to be laid out decides.
    addBuildingByOthers(1000);
    addSavingByOthers(1000);
    const auto addTransformer = [](const char* contender, Transformer transformer) {
        add("XML tree: apply stylesheet", contender, 1000,
            [=](benchmark::State& state, int size) { transform(state, size, transformer); });
    };
    addTransformer("floor: libxslt", Transformer::LIBXSLT);
    addTransformer("oxil", Transformer::OXIL);
    return run(argc, argv);
}
