#include "OxXmlElement.h"

#include <libxml/tree.h>

#include <cstring>
#include <memory>
#include <new>

#include "internal/OxXmlEngine.h"
#include "internal/OxXmlText.h"

namespace oxil {
namespace {

using internal::toText;
using internal::toXml;

std::string_view getPrefix(const xmlNs* space)
{
    return space != nullptr && space->prefix != nullptr ? toText(space->prefix)
                                                        : std::string_view();
}

/** Whether a node is called so, with its prefix or without. */
bool isNamed(std::string_view name, const xmlChar* ownName, const xmlNs* space)
{
    const std::string_view own = toText(ownName);
    if (name == own) {
        return true;
    }
    const std::string_view prefix = getPrefix(space);
    return !prefix.empty() && name.size() == prefix.size() + 1 + own.size() &&
           std::memcmp(name.data(), prefix.data(), prefix.size()) == 0 &&
           name[prefix.size()] == ':' &&
           std::memcmp(name.data() + prefix.size() + 1, own.data(), own.size()) == 0;
}

/** The first of a node and those behind it that is an element, and called so if it matters. */
xmlNodePtr findElement(xmlNodePtr node, std::string_view name)
{
    while (node != nullptr && (node->type != XML_ELEMENT_NODE ||
                               !(name.empty() || isNamed(name, node->name, node->ns)))) {
        node = node->next;
    }
    return node;
}

/** What is declared for all elements of the name counts too, as XmlNode::getAttribute() has it. */
const xmlAttr* findAttribute(const xmlNode* element, std::string_view name)
{
    if (element == nullptr) {
        return nullptr;
    }
    for (const xmlAttr* attribute = element->properties; attribute != nullptr;
         attribute = attribute->next) {
        if (isNamed(name, attribute->name, attribute->ns)) {
            return attribute;
        }
    }
    const bool hasDeclarations = element->doc != nullptr && element->doc->intSubset != nullptr;
    return hasDeclarations ? xmlHasProp(element, toXml(std::string(name))) : nullptr;
}

/** The text of an element or of an attribute. */
std::string getContent(const xmlNode* node)
{
    const xmlNode* child = node->children;
    if (child == nullptr) {
        return "";
    }
    if (child->next == nullptr &&
        (child->type == XML_TEXT_NODE || child->type == XML_CDATA_SECTION_NODE)) {
        return toText(child->content);  // most are so
    }
    internal::MemoryWatch watch;
    const auto free = [](xmlChar* text) { xmlFree(text); };
    const std::unique_ptr<xmlChar, decltype(free)> content(xmlNodeGetContent(node), free);
    // Later versions only return null, and report nothing.
    if (content == nullptr || watch.hasRunOut()) {
        throw std::bad_alloc();
    }
    return toText(content.get());
}

}  // namespace

std::string XmlElement::getName() const
{
    std::string name;
    if (__native != nullptr) {
        name = getPrefix(__native->ns);
        if (!name.empty()) {
            name += ':';
        }
        name += toText(__native->name);
    }
    return name;
}

std::string XmlElement::getText() const
{
    return __native != nullptr ? getContent(__native) : "";
}

bool XmlElement::hasAttribute(std::string_view name) const
{
    return findAttribute(__native, name) != nullptr;
}

std::string XmlElement::getAttribute(std::string_view name, std::string_view fallback) const
{
    const xmlAttr* attribute = findAttribute(__native, name);
    if (attribute == nullptr) {
        return std::string(fallback);
    }
    if (attribute->type == XML_ATTRIBUTE_DECL) {
        // libxml2 hands out a declaration as an attribute, whose first fields are the same.
        return toText(reinterpret_cast<const xmlAttribute*>(attribute)->defaultValue);
    }
    return getContent(reinterpret_cast<const xmlNode*>(attribute));
}

XmlElement XmlElement::first(std::string_view name) const
{
    return XmlElement(__native != nullptr ? findElement(__native->children, name) : nullptr);
}

XmlElement XmlElement::next(std::string_view name) const
{
    return XmlElement(__native != nullptr ? findElement(__native->next, name) : nullptr);
}

XmlElement XmlElement::getParent() const
{
    const bool hasParent = __native != nullptr && __native->parent != nullptr &&
                           __native->parent->type == XML_ELEMENT_NODE;
    return XmlElement(hasParent ? __native->parent : nullptr);
}

}  // namespace oxil
