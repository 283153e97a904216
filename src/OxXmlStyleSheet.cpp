#include "OxXmlStyleSheet.h"

#include <libxslt/transform.h>
#include <libxslt/xsltInternals.h>

#include <cerrno>
#include <cstring>
#include <new>

#include "OxLog.h"
#include "OxStatus.h"
#include "OxXmlDocument.h"
#include "OxXmlText.h"

namespace oxil {

XmlStyleSheet::XmlStyleSheet(const std::string& path) : __path(path), __native(nullptr) {}

XmlStyleSheet::~XmlStyleSheet()
{
    if (__native != nullptr) {
        xsltFreeStylesheet(__native);
    }
}

int XmlStyleSheet::load()
{
    if (__path.empty()) {
        OX_ERROR("Invalid state.");
        return STATUS_INVALID_STATE;
    }
    errno = 0;  // so that no earlier failure is blamed for a malformed stylesheet
    __native = xsltParseStylesheetFile(internal::toXml(__path));
    if (__native == nullptr) {
        OX_ERROR("Invalid state. (%s)(%s)", __path.c_str(), std::strerror(errno));
        return STATUS_INVALID_STATE;
    }
    return STATUS_SUCCESS;
}

XmlDocument* XmlStyleSheet::apply(XmlDocument* document)
{
    if (document == nullptr) {
        OX_ERROR("Invalid parameter.");
        return nullptr;
    }
    const char* parameters[] = {nullptr};
    xmlDocPtr native = xsltApplyStylesheet(__native, document->__getNativeDocument(), parameters);
    if (native == nullptr) {
        OX_ERROR("Invalid state.");
        return nullptr;
    }
    XmlDocument* result = new (std::nothrow) XmlDocument(native);
    if (result == nullptr) {
        OX_ERROR("Out of memory.");
    }
    return result;
}

_xsltStylesheet* XmlStyleSheet::__getNativeStyleSheet() const
{
    return __native;
}

}  // namespace oxil
