#include "OxXmlNode.h"

#include <libxml/tree.h>

#include <algorithm>

#include "OxLog.h"
#include "OxStatus.h"
#include "OxXmlText.h"

namespace oxil {

using internal::toXml;

XmlNode::XmlNode() : __native(nullptr) {}

XmlNode::XmlNode(_xmlNode* node) : __native(node) {}

XmlNode::XmlNode(const std::string& element)
    : __native(xmlNewNode(nullptr, toXml(element))), __element(element)
{
    if (__native == nullptr) {
        OX_ERROR("XmlNode creation failed.");
    }
}

XmlNode::XmlNode(const XmlNode& other) = default;

XmlNode& XmlNode::operator=(const XmlNode& other) = default;

XmlNode::~XmlNode()
{
    xmlUnlinkNode(__native);
    for (XmlNode* child : __children) {
        delete child;
    }
    __children.clear();
    xmlFreeNode(__native);
}

int XmlNode::setElement(const std::string& element)
{
    __native = xmlNewNode(nullptr, toXml(element));
    if (__native == nullptr) {
        OX_ERROR("Memory allocation failed.");
        return STATUS_OUT_OF_MEMORY;
    }
    return STATUS_SUCCESS;
}

int XmlNode::setAttribute(const std::string& name, const std::string& value)
{
    if (__native == nullptr) {
        OX_ERROR("Invalid state.");
        return STATUS_INVALID_STATE;
    }
    xmlSetProp(__native, toXml(name), toXml(value));
    return STATUS_SUCCESS;
}

int XmlNode::setAttribute(const std::vector<std::string>& attributes)
{
    if (__native == nullptr) {
        OX_ERROR("Invalid state.");
        return STATUS_INVALID_STATE;
    }
    if (attributes.size() % 2 != 0) {
        OX_ERROR("Invalid state.");
        return STATUS_INVALID_STATE;
    }
    __attributes = attributes;
    for (std::size_t i = 0; i < __attributes.size(); i += 2) {
        xmlNewProp(__native, toXml(__attributes[i]), toXml(__attributes[i + 1]));
    }
    return STATUS_SUCCESS;
}

std::string XmlNode::getAttribute(const std::string& name) const
{
    if (__native == nullptr) {
        OX_ERROR("Invalid state.");
        return "";
    }
    // The copy is given up, deliberately, and a missing attribute is std::string's to refuse.
    return internal::toText(xmlGetProp(__native, toXml(name)));
}

int XmlNode::setContent(const std::string& content)
{
    if (__native == nullptr) {
        OX_ERROR("Invalid state.");
        return STATUS_INVALID_STATE;
    }
    __content = content;
    xmlNodeAddContent(__native, toXml(__content));
    return STATUS_SUCCESS;
}

int XmlNode::addChild(XmlNode* child)
{
    if (child == nullptr) {
        OX_ERROR("Invalid parameter.");
        return STATUS_INVALID_PARAMETER;
    }
    if (xmlAddChild(__native, child->__native) == nullptr) {
        OX_ERROR("Invalid state.");
        return STATUS_INVALID_STATE;
    }
    __children.push_back(child);
    return STATUS_SUCCESS;
}

int XmlNode::removeChild(XmlNode* child)
{
    if (child == nullptr) {
        OX_ERROR("Invalid parameter.");
        return STATUS_INVALID_PARAMETER;
    }
    xmlUnlinkNode(child->__native);
    __children.erase(std::remove(__children.begin(), __children.end(), child), __children.end());
    return STATUS_SUCCESS;
}

XmlNode* XmlNode::getFirstChild() const
{
    return __children.front();
}

XmlNode* XmlNode::getLastChild() const
{
    return __children.back();
}

const std::vector<XmlNode*>& XmlNode::getChildren() const
{
    return __children;
}

_xmlNode* XmlNode::__getNativeNode() const
{
    return __native;
}

}  // namespace oxil
