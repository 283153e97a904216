#include "OxXmlDocument.h"

#include <libxml/tree.h>
#include <libxslt/xsltutils.h>

#include <cstdio>
#include <cstring>
#include <new>
#include <utility>

#include "OxLog.h"
#include "OxStatus.h"
#include "OxXmlNode.h"
#include "OxXmlStyleSheet.h"
#include "internal/OxXmlEngine.h"
#include "internal/OxXmlFile.h"

namespace oxil {
namespace {

xmlDocPtr newDocument()
{
    static const xmlChar VERSION[] = "1.0";

    internal::initEngine();
    return xmlNewDoc(VERSION);
}

struct CloseFile {
    void operator()(std::FILE* file) const { std::fclose(file); }
};

using File = std::unique_ptr<std::FILE, CloseFile>;

/** False if something of what was written may not be in the file. */
bool close(File file)
{
    const bool complete = std::fflush(file.get()) == 0 && std::ferror(file.get()) == 0;
    return std::fclose(file.release()) == 0 && complete;
}

/** What xmlSaveFormatFileEnc() does, for a file that is open. */
int save(std::FILE* file, xmlDocPtr document)
{
    static const char ENCODING[] = "UTF-8";

    xmlOutputBufferPtr buffer =
        xmlOutputBufferCreateFile(file, xmlFindCharEncodingHandler(ENCODING));
    return xmlSaveFormatFileTo(buffer, document, ENCODING, 1);  // and frees the buffer
}

}  // namespace

XmlDocument::XmlDocument() : XmlDocument(newDocument()) {}

XmlDocument::XmlDocument(_xmlDoc* document) : __document(document, xmlFreeDoc) {}

// The members go in reverse order: a node for the root unlinks it before the tree is freed.
XmlDocument::~XmlDocument() = default;

void XmlDocument::setOutputFilePath(const std::string& outputFilePath)
{
    __outputFilePath = outputFilePath;
}

int XmlDocument::setRootNode(XmlNode* node)
{
    if (node == nullptr) {
        OX_ERROR("Invalid parameter.");
        return STATUS_INVALID_PARAMETER;
    }
    if (__document == nullptr) {
        OX_ERROR("Invalid state.");
        return STATUS_INVALID_STATE;
    }
    xmlDocSetRootElement(__document.get(), node->__getNativeNode());
    __rootNode = node;
    return STATUS_SUCCESS;
}

int XmlDocument::setRootNode(std::unique_ptr<XmlNode> node)
{
    const int r = setRootNode(node.get());
    if (r == STATUS_SUCCESS) {
        __ownRoot = std::move(node);
    }
    return r;
}

XmlNode* XmlDocument::getRootNode() const
{
    if (__document == nullptr) {
        OX_ERROR("Invalid state.");
        return nullptr;
    }
    if (__rootNode != nullptr) {
        return __rootNode;
    }
    if (__ownRoot == nullptr) {
        __ownRoot.reset(new (std::nothrow) XmlNode(xmlDocGetRootElement(__document.get())));
        if (__ownRoot == nullptr) {
            OX_ERROR("Invalid state.");
        }
    }
    return __ownRoot.get();
}

XmlStyleSheet* XmlDocument::getXmlStyleSheet() const
{
    return __styleSheet;
}

void XmlDocument::__setXmlStyleSheet(XmlStyleSheet* styleSheet)
{
    if (styleSheet == nullptr) {
        OX_ERROR("Invalid paramter.");
        return;
    }
    __styleSheet = styleSheet;
}

int XmlDocument::write()
{
    if (__outputFilePath.empty()) {
        OX_ERROR("Invalid state.");
        return STATUS_INVALID_STATE;
    }
    if (__styleSheet != nullptr) {
        File file(std::fopen(__outputFilePath.c_str(), "w+"));
        if (file == nullptr) {
            OX_ERROR("fopen is failed");
            return STATUS_INVALID_STATE;
        }
        xsltStylesheetPtr native = __styleSheet->__getNativeStyleSheet();
        if (native == nullptr) {
            OX_ERROR("Invalid state.");
            return STATUS_INVALID_STATE;
        }
        // What libxslt answers is ignored, but not what became of the bytes that it wrote.
        xsltSaveResultToFile(file.get(), __document.get(), native);
        if (!close(std::move(file))) {
            OX_ERROR("Invalid state.");
            return STATUS_INVALID_STATE;
        }
        return STATUS_SUCCESS;
    }
    if (xmlSaveFormatFileEnc(__outputFilePath.c_str(), __document.get(), "UTF-8", 1) < 0) {
        OX_ERROR("Invalid state.");
        return STATUS_INVALID_STATE;
    }
    return STATUS_SUCCESS;
}

int XmlDocument::write(PlainFile)
{
    xsltStylesheetPtr styleSheet =
        __styleSheet != nullptr ? __styleSheet->__getNativeStyleSheet() : nullptr;
    if (__outputFilePath.empty() || __document == nullptr ||
        (__styleSheet != nullptr && styleSheet == nullptr)) {
        OX_ERROR("Invalid state.");
        return STATUS_INVALID_STATE;
    }
    int error = 0;
    File file(internal::createPlainFile(__outputFilePath, error));
    if (file == nullptr) {
        OX_ERROR("File open failed : (%s)(%s)", __outputFilePath.c_str(), std::strerror(error));
        return STATUS_INVALID_STATE;
    }
    const int size = styleSheet != nullptr
                         ? xsltSaveResultToFile(file.get(), __document.get(), styleSheet)
                         : save(file.get(), __document.get());
    if (!close(std::move(file)) || size < 0) {
        OX_ERROR("Invalid state.");
        return STATUS_INVALID_STATE;
    }
    return STATUS_SUCCESS;
}

_xmlDoc* XmlDocument::__getNativeDocument() const
{
    return __document.get();
}

}  // namespace oxil
