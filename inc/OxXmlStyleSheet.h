#pragma once

#include <memory>
#include <string>

#include "OxExport.h"
#include "OxPlainFile.h"

struct _xsltStylesheet;

namespace oxil {

class XmlDocument;

/**
 * An XSLT 1.0 stylesheet, compiled by libxslt from a file.
 *
 * It turns documents into others, and carries the output settings (method, encoding, indentation)
 * for XmlDocument::write().
 *
 * A stylesheet has to outlive every document that it is attached to.
 *
 * @par Untrusted input
 * A stylesheet is a program: load() and apply() can be led to read any file and the network, and
 * apply() to write files. Load only those that you trust, or with PLAIN_FILE, which reads one file
 * only and doesn't wait for the writer of a pipe, as load() does otherwise, and forbid what apply()
 * may do through libxslt's own settings, which hold for the whole process and which the library does
 * not touch: `xsltSetDefaultSecurityPrefs` (libxslt's manual). Neither limits time or memory. The
 * engines' messages go to the standard error output unless the application sets another handler.
 * @snippet untrusted/main.cpp distrust
 *
 * @par Memory
 * libxslt does not survive every lack of memory: the process may end in load() or apply().
 *
 * @par Threads
 * One thread at a time. Different stylesheets may be loaded and applied on different threads at once,
 * and a result may go to another thread than its stylesheet.
 *
 * @par Example
 * @snippet layouts/main.cpp write
 */
class OXIL_API XmlStyleSheet {
public:
    /** Makes a stylesheet for a file, which is not touched before load(). */
    explicit XmlStyleSheet(const std::string& path);

    XmlStyleSheet(const XmlStyleSheet&) = delete;
    XmlStyleSheet& operator=(const XmlStyleSheet&) = delete;

    ~XmlStyleSheet();

    /**
     * Compiles the file; meant to be called once. Whatever an earlier call had compiled is lost,
     * and not freed.
     *
     * @return STATUS_SUCCESS; STATUS_INVALID_STATE after logging "Invalid state." for an empty
     *         path, or "Invalid state. (%s)(%s)" with path and system error, if the file can't be
     *         read, is no stylesheet, or needs more memory than there is
     */
    int load();

    /**
     * Compiles the file of exactly this name, if it is a regular one of no more than `file.limit`
     * bytes, and reads nothing else for it: neither other stylesheets nor entities nor a document
     * type in other files. What apply() does is not restricted by it.
     *
     * May be called again: what an earlier call had compiled is freed first.
     *
     * @return STATUS_SUCCESS; STATUS_INVALID_STATE after logging "Invalid state." for an empty
     *         path, or "Invalid state. (%s)(%s)" with path and reason: "Success" for what is no
     *         stylesheet, ENOTSUP for one that includes or imports others, EFBIG for a file that is
     *         too large, EISDIR or EINVAL for what is no regular file, ENOMEM
     */
    int load(PlainFile file);

    /**
     * Transforms a document into a new one.
     *
     * The stylesheet is not attached to it: say XmlDocument::__setXmlStyleSheet() for its output
     * settings to be used. The source stays as it is, unless the stylesheet says `xsl:strip-space`:
     * libxslt takes that white space out of the source itself.
     *
     * @return a document, which is the caller's; null after logging "Invalid parameter." for null,
     *         "Invalid state." if the stylesheet was not loaded, libxslt refused (`xsl:message
     *         terminate="yes"` and endless recursion too) or libxml2 had no memory, or "Out of
     *         memory." (the result is lost then)
     */
    [[nodiscard]] XmlDocument* apply(XmlDocument* document);

    /** The same, with a result whose owner is plain to see, and with the same log lines. */
    [[nodiscard]] std::unique_ptr<XmlDocument> transform(XmlDocument& document);

    /** The native stylesheet, null before load(); it stays this object's. */
    _xsltStylesheet* __getNativeStyleSheet() const;

private:
    std::string __path;
    _xsltStylesheet* __native = nullptr;
};

}  // namespace oxil
