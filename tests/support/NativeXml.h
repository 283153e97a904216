#pragma once

#include <OxXmlDocument.h>
#include <libxml/parser.h>
#include <libxml/tree.h>

#include <string>

namespace oxil::test {

/** A text as libxml2 takes it, and one of its texts. */
inline const xmlChar* xmlText(const char* text)
{
    return reinterpret_cast<const xmlChar*>(text);
}

inline std::string fromNative(const xmlChar* text)
{
    return text != nullptr ? reinterpret_cast<const char*>(text) : "(null)";
}

inline xmlDoc* parsed(const std::string& text, int options = 0)
{
    return xmlReadMemory(text.data(), static_cast<int>(text.size()), "test.xml", nullptr, options);
}

/** A node and what is under it as XML. */
inline std::string xmlOf(const xmlNode* node)
{
    if (node == nullptr) {
        return "(none)";
    }
    xmlBuffer* buffer = xmlBufferCreate();
    xmlNodeDump(buffer, node->doc, const_cast<xmlNode*>(node), 0, 0);
    std::string text = fromNative(xmlBufferContent(buffer));
    xmlBufferFree(buffer);
    return text;
}

/** The root element of a document as XML. */
inline std::string rootXml(const XmlDocument& document)
{
    return xmlOf(xmlDocGetRootElement(document.__getNativeDocument()));
}

}  // namespace oxil::test
