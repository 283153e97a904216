#pragma once

#include <libxml/xmlstring.h>

#include <string>

namespace oxil::internal {

// libxml2 spells text with unsigned characters.

inline const xmlChar* toXml(const std::string& text)
{
    return reinterpret_cast<const xmlChar*>(text.c_str());
}

inline const char* toText(const xmlChar* text)
{
    return reinterpret_cast<const char*>(text);
}

}  // namespace oxil::internal
