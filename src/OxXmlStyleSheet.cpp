#include "OxXmlStyleSheet.h"

#include <libxslt/extensions.h>
#include <libxslt/transform.h>
#include <libxslt/xslt.h>
#include <libxslt/xsltInternals.h>
#include <libxslt/xsltutils.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <new>
#include <utility>

#include "OxLog.h"
#include "OxStatus.h"
#include "OxXmlDocument.h"
#include "internal/OxXmlEngine.h"
#include "internal/OxXmlFile.h"
#include "internal/OxXmlText.h"

namespace oxil {

namespace {

/** Initialises libxslt before its first use: it does so itself, but a thread that comes a moment
 *  later doesn't wait, and finds half of what there is. */
void initEngine()
{
    static const bool initialised = (xsltInitGlobals(), xsltInit(), true);
    static_cast<void>(initialised);
}

/** Whether a stylesheet includes or imports others. */
bool needsOthers(xmlDocPtr document)
{
    const xmlNode* root = xmlDocGetRootElement(document);
    for (const xmlNode* node = root != nullptr ? root->children : nullptr; node != nullptr;
         node = node->next) {
        if (IS_XSLT_ELEM(node) && (IS_XSLT_NAME(node, "include") || IS_XSLT_NAME(node, "import"))) {
            return true;
        }
    }
    return false;
}

/** Frees what was compiled without enough memory: nobody knows what it lacks. */
void dropIfIncomplete(xsltStylesheetPtr& native, const internal::MemoryWatch& watch, int& error)
{
    if (watch.hasRunOut()) {
        error = ENOMEM;
        xsltFreeStylesheet(std::exchange(native, nullptr));
    }
}

}  // namespace

XmlStyleSheet::XmlStyleSheet(const std::string& path) : __path(path) {}

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
    const internal::EngineUse use;
    initEngine();
    internal::MemoryWatch watch;
    errno = 0;  // so that no earlier failure is blamed for a malformed stylesheet
    __native = xsltParseStylesheetFile(internal::toXml(__path));
    int error = errno;
    dropIfIncomplete(__native, watch, error);
    if (__native == nullptr) {
        OX_ERROR("Invalid state. (%s)(%s)", __path.c_str(), std::strerror(error));
        return STATUS_INVALID_STATE;
    }
    return STATUS_SUCCESS;
}

int XmlStyleSheet::load(PlainFile file)
{
    xsltFreeStylesheet(std::exchange(__native, nullptr));
    if (__path.empty()) {
        OX_ERROR("Invalid state.");
        return STATUS_INVALID_STATE;
    }
    const internal::EngineUse use;
    initEngine();
    internal::MemoryWatch watch;
    int error = 0;
    std::unique_ptr<xmlDoc, void (*)(xmlDocPtr)> document(
        internal::parsePlainFile(__path, file, internal::Entities::Replaced, error), xmlFreeDoc);
    if (document != nullptr && needsOthers(document.get())) {
        error = ENOTSUP;
    } else if (document != nullptr) {
        __native = xsltParseStylesheetDoc(document.get());
        if (__native != nullptr) {
            static_cast<void>(document.release());  // it is the stylesheet's now
        }
        dropIfIncomplete(__native, watch, error);
    }
    if (__native == nullptr) {
        OX_ERROR("Invalid state. (%s)(%s)", __path.c_str(), std::strerror(error));
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
    const internal::EngineUse use;
    internal::MemoryWatch watch;
    const char* parameters[] = {nullptr};
    xmlDocPtr native = xsltApplyStylesheet(__native, document->__getNativeDocument(), parameters);
    if (watch.hasRunOut()) {
        xmlFreeDoc(native);  // nobody knows what it lacks
        native = nullptr;
    }
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

std::unique_ptr<XmlDocument> XmlStyleSheet::transform(XmlDocument& document)
{
    return std::unique_ptr<XmlDocument>(apply(&document));
}

_xsltStylesheet* XmlStyleSheet::__getNativeStyleSheet() const
{
    return __native;
}

}  // namespace oxil
