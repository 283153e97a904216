#include "XmlEngine.h"

#include <libxml/parser.h>
#include <libxml/xmlerror.h>

#include <cstdarg>
#include <cstdio>

#include "Fuzz.h"

namespace oxil::fuzz {
namespace {

[[gnu::format(printf, 2, 3)]] void ignore(void*, const char* format, ...)
{
    char text[1024];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
}

xmlParserInputPtr refuse(const char*, const char*, xmlParserCtxtPtr)
{
    fail(__FILE__, __LINE__, "nothing but the document is read");
}

}  // namespace

void isolateXmlEngine()
{
    xmlSetGenericErrorFunc(nullptr, ignore);
    xmlSetExternalEntityLoader(refuse);
}

}  // namespace oxil::fuzz
