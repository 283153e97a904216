#include "OxXmlDocument.h"

#include <libxml/tree.h>
#include <libxslt/xsltutils.h>

#include <cerrno>
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
#include "internal/OxXmlText.h"

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

/** Takes over what was parsed, null too. @param error  set to ENOMEM without memory */
std::unique_ptr<XmlDocument> adopt(xmlDocPtr native, int& error)
{
    if (native == nullptr) {
        return nullptr;
    }
    std::unique_ptr<XmlDocument> document(new (std::nothrow) XmlDocument(native));
    if (document == nullptr) {
        xmlFreeDoc(native);
        error = ENOMEM;
    }
    return document;
}

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

std::unique_ptr<XmlDocument> XmlDocument::loadText(std::string_view text, std::size_t limit)
{
    if (text.size() > internal::mostBytes(limit)) {
        OX_ERROR("Text is too long (%zu).", text.size());
        return nullptr;
    }
    int error = 0;
    std::unique_ptr<XmlDocument> document =
        adopt(internal::parseText(text, nullptr, internal::Entities::Unknown, error), error);
    if (error == ENOMEM) {
        OX_ERROR("Memory allocation failed.");
    } else if (document == nullptr) {
        OX_ERROR("Xml parsing failed");
    }
    return document;
}

std::unique_ptr<XmlDocument> XmlDocument::loadFile(const std::string& path, PlainFile file)
{
    int error = 0;
    std::unique_ptr<XmlDocument> document =
        adopt(internal::parsePlainFile(path, file, internal::Entities::Unknown, error), error);
    if (document == nullptr) {
        OX_ERROR("Invalid state. (%s)(%s)", path.c_str(), std::strerror(error));
    }
    return document;
}

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

XmlElement XmlDocument::getRootElement() const
{
    return XmlElement(xmlDocGetRootElement(__document.get()));
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

int XmlDocument::write(std::string& text) const
{
    xsltStylesheetPtr styleSheet =
        __styleSheet != nullptr ? __styleSheet->__getNativeStyleSheet() : nullptr;
    if (__document == nullptr || (__styleSheet != nullptr && styleSheet == nullptr)) {
        OX_ERROR("Invalid state.");
        return STATUS_INVALID_STATE;
    }
    internal::MemoryWatch watch;
    xmlChar* bytes = nullptr;
    int size = 0;
    int r = 0;
    if (styleSheet != nullptr) {
        r = xsltSaveResultToString(&bytes, &size, __document.get(), styleSheet);
    } else {
        xmlDocDumpFormatMemoryEnc(__document.get(), &bytes, &size, "UTF-8", 1);
        r = bytes != nullptr ? 0 : -1;
    }
    const auto free = [](xmlChar* memory) { xmlFree(memory); };
    const std::unique_ptr<xmlChar, decltype(free)> owner(bytes, free);
    if (r < 0 || watch.hasRunOut()) {
        OX_ERROR("Invalid state.");
        return STATUS_INVALID_STATE;
    }
    // No bytes at all are what a stylesheet may make of a document.
    text.assign(size > 0 ? internal::toText(bytes) : "", static_cast<std::size_t>(size));
    return STATUS_SUCCESS;
}

_xmlDoc* XmlDocument::__getNativeDocument() const
{
    return __document.get();
}

}  // namespace oxil
