// Building an XML tree, saving it, and applying a stylesheet to it.

#include "OxXmlDocument.h"

#include <libxml/tree.h>
#include <libxslt/transform.h>
#include <libxslt/xsltInternals.h>

#include <memory>
#include <string>
#include <vector>

#ifdef HAS_LIBXMLPP
#include <libxml++/libxml++.h>
#endif

#include "Contender.h"
#include "OxStatus.h"
#include "OxXmlNode.h"
#include "OxXmlStyleSheet.h"
#include "TemporaryFile.h"

namespace oxil::bench {
namespace {

constexpr int NODES = 10000;
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

using SharedValues = std::shared_ptr<const Values>;

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

/** A tree with a file of its own. */
class SavedTree {
public:
    explicit SavedTree(const Values& values) : __tree(values), __file("")
    {
        __tree.getDocument().setOutputFilePath(__file.path());
    }

    int write() { return __tree.getDocument().write(); }

private:
    Tree __tree;
    TemporaryFile __file;
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

/** Destroying the tree is part of it: it is as much the contender's as building it. */
void addBuilding()
{
    const std::string operation = "XML tree: build";
    const auto values = std::make_shared<const Values>(NODES);
    const std::string expected = textOf(buildByLibxml(*values).get());
    const auto isRight = [=](xmlDocPtr document) { return textOf(document) == expected; };

    require(isRight(Tree(*values).getDocument().__getNativeDocument()), "the tree of oxil");
    competeAt(
        NODES, operation, "floor", [=] { return buildByLibxml(*values)->children != nullptr; },
        true);
    competeAt(
        NODES, operation, "oxil",
        [=] { return Tree(*values).getDocument().__getNativeDocument()->children != nullptr; },
        true);
#ifdef HAS_LIBXMLPP
    require(isRight(buildByLibxmlpp(*values)->cobj()), "the tree of libxml++");
    competeAt(
        NODES, operation, "libxml++",
        [=] { return buildByLibxmlpp(*values)->cobj()->children != nullptr; }, true);
#endif
}

void addSaving()
{
    const std::string operation = "XML tree: save";
    const Values values(NODES);
    const std::shared_ptr<xmlDoc> native(buildByLibxml(values));
    const std::string expected = textOf(native.get());
    const auto file = std::make_shared<TemporaryFile>("");

    const auto floor = [=] {
        return xmlSaveFormatFileEnc(file->path().c_str(), native.get(), "UTF-8", 1) >= 0;
    };
    competeAt(NODES, operation, "floor", floor, true);
    require(file->content() == expected, "the file of the floor");

    const auto tree = std::make_shared<Tree>(values);
    tree->getDocument().setOutputFilePath(file->path());
    competeAt(
        NODES, operation, "oxil", [=] { return tree->getDocument().write(); }, STATUS_SUCCESS);
    require(file->content() == expected, "the file of oxil");

#ifdef HAS_LIBXMLPP
    const PeerDocument peer = buildByLibxmlpp(values);
    competeAt(
        NODES, operation, "libxml++",
        [=] {
            peer->write_to_file_formatted(file->path(), "UTF-8");
            return true;
        },
        true);
    require(file->content() == expected, "the file of libxml++");
#endif
}

void addTransforming()
{
    const std::string operation = "XML tree: apply stylesheet";
    const Values values(NODES);
    const TemporaryFile file(STYLE_SHEET);

    const std::shared_ptr<xsltStylesheet> native(xsltParseStylesheetFile(toXml(file.path())),
                                                 xsltFreeStylesheet);
    const std::shared_ptr<xmlDoc> source(buildByLibxml(values));
    const auto transform = [=] {
        const char* parameters[] = {nullptr};
        return NativeDocument(xsltApplyStylesheet(native.get(), source.get(), parameters),
                              xmlFreeDoc);
    };
    const std::string expected = textOf(transform().get());
    competeAt(
        NODES, operation, "floor", [=] { return transform() != nullptr; }, true);

    const auto styleSheet = std::make_shared<XmlStyleSheet>(file.path());
    require(styleSheet->load() == STATUS_SUCCESS, "the stylesheet");
    const auto tree = std::make_shared<Tree>(values);
    const auto apply = [=] {
        return std::unique_ptr<XmlDocument>(styleSheet->apply(&tree->getDocument()));
    };
    require(textOf(apply()->__getNativeDocument()) == expected, "the transformation by oxil");
    competeAt(
        NODES, operation, "oxil", [=] { return apply() != nullptr; }, true);
}

void addGrowth(int count)
{
    const auto values = std::make_shared<const Values>(count);
    competeAt(
        count, "growth: build tree", "oxil",
        [=] { return Tree(*values).getDocument().__getNativeDocument()->children != nullptr; },
        true);

    const auto saved = std::make_shared<SavedTree>(*values);
    competeAt(
        count, "growth: save", "oxil", [=] { return saved->write(); }, STATUS_SUCCESS);
}

}  // namespace
}  // namespace oxil::bench

int main(int argc, char** argv)
{
    oxil::bench::addBuilding();
    oxil::bench::addSaving();
    oxil::bench::addTransforming();
    for (int count = 10; count <= 100000; count *= 10) {
        oxil::bench::addGrowth(count);
    }
    return oxil::bench::run(argc, argv);
}
