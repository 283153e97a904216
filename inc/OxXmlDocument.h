#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

#include "OxExport.h"
#include "OxPlainFile.h"
#include "OxXmlElement.h"

struct _xmlDoc;

namespace oxil {

class XmlNode;
class XmlStyleSheet;

/**
 * An XML document: the owner of a libxml2 tree, made by loadText() and loadFile(), by Xml::load()
 * or XmlStyleSheet::apply(), or here from nodes.
 *
 * @par Ownership
 * A document owns its native tree, the node that getRootNode() made for it, and a root that was
 * moved into it. A root given as a plain pointer stays the caller's, who has to destroy it before
 * the document, or never: its native node is a part of the tree that the document frees.
 *
 * @par Threads
 * One thread at a time; different documents may be on different threads.
 *
 * @par Example
 * @snippet layouts/main.cpp write
 */
class OXIL_API XmlDocument {
public:
    /** Makes an empty document of version 1.0. Without memory it has no native document,
     *  silently. */
    XmlDocument();

    /** Takes over a native document. */
    explicit XmlDocument(_xmlDoc* document);

    /**
     * Parses a document that is in memory.
     *
     * It may be one from outside: no file and no network is accessed, whatever libxml2 was told for
     * the whole process (`xmlSubstituteEntitiesDefault`, `xmlLoadExtDtdDefaultValue`). Entities that
     * it declares are not known, as for Xml::read(): a reference to one makes it malformed or, if it
     * names an external subset too, vanishes. So no text is longer than it is here. The limits of
     * libxml2 hold, see Xml.
     *
     * @param text  in the encoding that it says, UTF-8 by default; need not end with a NUL
     * @param limit  how many bytes the text may have
     * @return null after logging "Text is too long (%zu)." with its bytes, also for more than
     *         `INT_MAX`, "Xml parsing failed" for malformed XML, which an empty text is too, or
     *         "Memory allocation failed."
     */
    [[nodiscard]] static std::unique_ptr<XmlDocument> loadText(
        std::string_view text, std::size_t limit = PLAIN_FILE.limit);

    /**
     * The same for a regular file of no more than `file.limit` bytes. The path is the name of a file
     * and nothing else.
     *
     * @return null after logging "Invalid state. (%s)(%s)" with path and reason ("Success" for what
     *         is not well-formed; EISDIR for a folder, EINVAL for a pipe or device, EFBIG for what
     *         is too large, ENOMEM)
     */
    [[nodiscard]] static std::unique_ptr<XmlDocument> loadFile(const std::string& path,
                                                               PlainFile file = PLAIN_FILE);

    XmlDocument(const XmlDocument&) = delete;
    XmlDocument& operator=(const XmlDocument&) = delete;

    /** Destroys a root that was moved into it, or the node that getRootNode() made, and frees the
     *  tree. */
    ~XmlDocument();

    /** Sets the file that write() writes. It is not touched before. */
    void setOutputFilePath(const std::string& outputFilePath);

    /**
     * Makes a node the root element, in place of the one there was. It stays the caller's.
     *
     * A root that the document had before is no longer in the tree, and freed by nobody unless a
     * node owns it. A node without native node is accepted: getRootNode() returns it, and the tree
     * keeps the root that it has. The node must not be the child of another one: say removeChild()
     * first. Once it is destroyed, getRootNode() must not be called before another root is set.
     *
     * libxml2 2.9 tells each node under it whose it is by recursion. A tree of many thousand levels
     * grows from the root down, with its document told first.
     *
     * @return STATUS_SUCCESS; STATUS_INVALID_PARAMETER after logging "Invalid parameter." for null;
     *         STATUS_INVALID_STATE after logging "Invalid state." without native document
     */
    int setRootNode(XmlNode* node);

    /**
     * The same, with a node that becomes the document's. One that is refused is destroyed.
     *
     * The root that the document had of its own, moved into it or made by getRootNode(), is
     * destroyed with everything under it.
     */
    int setRootNode(std::unique_ptr<XmlNode> node);

    /**
     * The node given to setRootNode(), or else a node for the root element of the tree, which is
     * made once and stays the document's.
     *
     * The children of a node made here have no wrappers: getRootElement() leads to them. Without
     * root element it is a node without native node.
     *
     * @return null after logging "Invalid state." without native document or without memory
     */
    XmlNode* getRootNode() const;

    /** The root element of the tree, to be looked at as long as this document has it; none, which is
     *  not logged, if there is no root. */
    XmlElement getRootElement() const;

    /** The stylesheet whose output settings write() uses, null before `__setXmlStyleSheet()`, which
     *  is the application's to call: the stylesheet stays the caller's and has to outlive the
     *  document. */
    XmlStyleSheet* getXmlStyleSheet() const;

    /** Sets the stylesheet whose output settings write() uses. It stays the caller's and has to
     *  outlive the document. Null is refused after logging "Invalid paramter.". */
    void __setXmlStyleSheet(XmlStyleSheet* styleSheet);

    /**
     * Writes the document to its output file, which is created or replaced.
     *
     * Without stylesheet it is written as indented UTF-8, and the path is libxml2's to read: percent
     * escapes are resolved ("%20" is a blank), `http:` sends a request, `-` is the standard output.
     * With one it is written under the stylesheet's output settings, to a plain path; what libxslt
     * answers is ignored, so that success does not tell that it had something to save.
     *
     * A pipe makes it wait for a reader. With a stylesheet it doesn't: what fits into the pipe then
     * counts as written, and is lost if nobody has opened it to read before this returns; for what
     * doesn't fit, it waits for ever.
     *
     * Text that XML can't hold (XmlNode::isText()) and names that are none are written as they are,
     * and nobody can read the file then. So are the names of namespaces: one with `<` in it is written
     * without an escape (libxml2 2.9).
     *
     * @return STATUS_SUCCESS; STATUS_INVALID_STATE after logging "Invalid state." without output
     *         file, if the stylesheet was never loaded (the file is empty then), or if not all could
     *         be written, on a full disk, say (the file is incomplete then), and after logging
     *         "fopen is failed" if the file can't be opened for a stylesheet
     */
    int write();

    /**
     * Writes the same bytes to the file of exactly this name, which has to be a regular one if it is
     * there, and reports whatever goes wrong. This is the one for paths from outside.
     *
     * @return STATUS_SUCCESS; STATUS_INVALID_STATE after logging
     *         - "Invalid state." without output file, without native document, or if the stylesheet
     *           was never loaded: no file is touched then
     *         - "File open failed : (%s)(%s)" with path and reason, which is EISDIR for a folder, and
     *           EINVAL or ENXIO for whatever else is no regular file
     *         - "Invalid state." if not all could be written: the file is incomplete then
     */
    int write(PlainFile);

    /**
     * Writes the same bytes to a text, in place of what it was. The output file is not looked at.
     *
     * @return STATUS_SUCCESS; STATUS_INVALID_STATE after logging "Invalid state." without native
     *         document, if the stylesheet was never loaded, or if libxml2 had no memory: the text is
     *         what it was then
     * @throws std::bad_alloc  if there is no memory for the text, which is what it was
     */
    int write(std::string& text) const;

    /** The native document, null if there is none; it stays the document's. */
    _xmlDoc* __getNativeDocument() const;

private:
    std::unique_ptr<_xmlDoc, void (*)(_xmlDoc*)> __document;
    mutable std::unique_ptr<XmlNode> __ownRoot;
    XmlNode* __rootNode = nullptr;
    std::string __outputFilePath;
    XmlStyleSheet* __styleSheet = nullptr;
};

}  // namespace oxil
