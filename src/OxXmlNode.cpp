#include "OxXmlNode.h"

#include <libxml/tree.h>
#include <libxml/xmlerror.h>

#include <algorithm>
#include <utility>

#include "OxLog.h"
#include "OxStatus.h"
#include "internal/OxXmlEngine.h"
#include "internal/OxXmlText.h"

namespace oxil {

using internal::toXml;

namespace {

xmlNodePtr newNode(const std::string& element)
{
    internal::initEngine();
    return xmlNewNode(nullptr, toXml(element));
}

/** False without memory. */
bool addContent(xmlNode* node, const xmlChar* content)
{
#if LIBXML_VERSION >= 21300
    return xmlNodeAddContent(node, content) == 0;
#else
    // It returned nothing yet, and told of a lack of memory by the last error alone.
    xmlResetLastError();
    xmlNodeAddContent(node, content);
    const xmlError* error = xmlGetLastError();
    return error == nullptr || error->code != XML_ERR_NO_MEMORY;
#endif
}

/** How many bytes the character has that a text begins with; 0 if XML has no such character. */
std::size_t measureCharacter(const char* text, std::size_t size)
{
    static constexpr char32_t SMALLEST[] = {0, 0, 0x80, 0x800, 0x10000};  // of so many bytes

    const auto first = static_cast<unsigned char>(text[0]);
    if (first < 0x80) {
        return first >= ' ' || first == '\t' || first == '\n' || first == '\r' ? 1 : 0;
    }
    const std::size_t length = first < 0xC0   ? 0
                               : first < 0xE0 ? 2
                               : first < 0xF0 ? 3
                               : first < 0xF8 ? 4
                                              : 0;
    if (length == 0 || length > size) {
        return 0;
    }
    char32_t code = first & (0xFFU >> (length + 1));
    for (std::size_t i = 1; i < length; ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        if ((byte & 0xC0U) != 0x80) {
            return 0;
        }
        code = code << 6 | (byte & 0x3FU);
    }
    const bool isCharacter = code >= SMALLEST[length] && code <= 0x10FFFF &&
                             !(code >= 0xD800 && code <= 0xDFFF) && code != 0xFFFE &&
                             code != 0xFFFF;
    return isCharacter ? length : 0;
}

}  // namespace

XmlNode::XmlNode() = default;

XmlNode::XmlNode(_xmlNode* node) : __native(node) {}

XmlNode::XmlNode(const std::string& element) : __element(element)
{
    __native = newNode(__element);  // behind all that may throw
    if (__native == nullptr) {
        OX_ERROR("XmlNode creation failed.");
    }
}

XmlNode::XmlNode(const XmlNode& other) = default;

XmlNode& XmlNode::operator=(const XmlNode& other) = default;

XmlNode::~XmlNode()
{
    const auto enter = [](XmlNode& node) {
        xmlUnlinkNode(node.__native);
        std::reverse(node.__children.begin(), node.__children.end());  // the first one goes first
    };

    // A tree may be deeper than the stack allows. So this goes down and up in a loop, and the way
    // up is kept where it takes no memory: in the parent's list, in place of the child.
    XmlNode* node = this;
    XmlNode* parent = nullptr;
    enter(*node);
    while (node != nullptr) {
        if (!node->__children.empty()) {
            XmlNode* child = std::exchange(node->__children.back(), parent);
            parent = std::exchange(node, child);
            enter(*node);
            continue;
        }
        xmlFreeNode(std::exchange(node->__native, nullptr));
        if (node != this) {
            delete node;  // with nothing left to be taken down
        }
        node = parent;
        if (node != nullptr) {
            parent = node->__children.back();
            node->__children.pop_back();
        }
    }
}

int XmlNode::setElement(const std::string& element)
{
    __native = newNode(element);
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
    if (!addContent(__native, toXml(__content))) {
        OX_ERROR("Memory allocation failed.");
        return STATUS_OUT_OF_MEMORY;
    }
    return STATUS_SUCCESS;
}

bool XmlNode::isText(const std::string& text)
{
    for (std::size_t i = 0; i < text.size();) {
        const std::size_t length = measureCharacter(text.data() + i, text.size() - i);
        if (length == 0) {
            return false;
        }
        i += length;
    }
    return true;
}

int XmlNode::addChild(XmlNode* child)
{
    if (child == nullptr) {
        OX_ERROR("Invalid parameter.");
        return STATUS_INVALID_PARAMETER;
    }
    __children.push_back(child);  // first, because it may throw
    if (xmlAddChild(__native, child->__native) == nullptr) {
        __children.pop_back();
        OX_ERROR("Invalid state.");
        return STATUS_INVALID_STATE;
    }
    return STATUS_SUCCESS;
}

int XmlNode::addChild(std::unique_ptr<XmlNode> child)
{
    const int r = addChild(child.get());
    if (r == STATUS_SUCCESS) {
        static_cast<void>(child.release());
    }
    return r;
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

std::unique_ptr<XmlNode> XmlNode::takeChild(XmlNode* child)
{
    if (std::find(__children.begin(), __children.end(), child) == __children.end()) {
        OX_ERROR("Invalid parameter.");
        return nullptr;
    }
    removeChild(child);
    return std::unique_ptr<XmlNode>(child);
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
