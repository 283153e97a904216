#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "OxCallback.h"
#include "OxExport.h"
#include "OxPlainFile.h"

struct _xmlSAXHandler;

namespace oxil {

class XmlDocument;

/** Overload tag: asks for character data and attributes exactly as the document means them. Its
 *  value is never looked at. */
enum ExactText : std::int32_t { EXACT_TEXT = 0 };

/**
 * Receives the events of Xml::read().
 *
 * An operation may throw; Xml::read() tells what happens then. The order of the operations is part
 * of the binary interface.
 */
class OXIL_API IXmlEventListener {
public:
    virtual ~IXmlEventListener();

    /** The beginning of an element; the name has its prefix.
     *  @param attributes  in document order: name, value, name, value, ... */
    virtual void onStartElement(const std::string& name,
                                const std::vector<std::string>& attributes) = 0;

    /** The end of an element; the name has its prefix. */
    virtual void onEndElement(const std::string& name) = 0;

    /** @param text  see Xml::read() for how far it goes */
    virtual void onCharacters(const std::string& text) = 0;
};

/**
 * Reads an XML file: as a stream of events, with read(), or as a tree, with load().
 *
 * Events go to a listener and to up to three functions; where both are there, the listener comes
 * first. They may be replaced at any time: listener and function are looked at for every event
 * anew, the function after the listener has had its turn. A function that is replaced while it runs
 * may still use what it captured. What nobody listens to is skipped without building anything.
 *
 * @par What the events say
 * They are those of libxml2's first-generation event interface, handed on as they come. Names keep
 * their prefix. In attribute values an `&` that the document writes as a reference arrives as
 * `&#38;` (so that a document that is read and written again and again would grow), unless
 * EXACT_TEXT is asked for. Entities that a document declares itself are not known here: a reference
 * to one makes read() fail or, if the document names an external subset too, vanishes without a
 * trace; load() accepts both. One run of text may arrive in several events.
 *
 * @par Untrusted input
 * A path from outside goes to the members that take a PlainFile: to load(), it is a URL, and a pipe
 * makes both read() and load() wait for a writer, for ever if there is none.
 *
 * libxml2's own limits hold: 257 levels of nesting pass, and so do 10,000,000 bytes for one
 * attribute value, one CDATA section or, in load(), one text (less near the end of the document,
 * where what follows counts too). They do not bound the time: it grows with the square of the
 * number of attributes of one element, to seconds for 50,000 of them. Nor do they bound the memory:
 * the tree of a file of small elements takes dozens of times its size. The events access no other
 * file and no network. Nor does load() for what a document refers to, unless the application has
 * told libxml2 so (`xmlSubstituteEntitiesDefault`, `xmlLoadExtDtdDefaultValue`). What libxml2 has
 * to say goes to the standard error output unless the application sets another handler
 * (`xmlSetGenericErrorFunc`, libxml2's manual). read() keeps most of it from being said, but not
 * what is about encodings, want of memory, and declarations that repeat themselves or redeclare
 * `&lt;` and the like.
 *
 * @par Threads
 * One thread at a time for each object; everything runs on the caller's thread. Different objects
 * may read and load on different threads at once. Each successful read() has `xmlCleanupMemory`
 * called: by the last thread to leave, if others are inside read() or load(), or inside load() or
 * apply() of an XmlStyleSheet. Other uses of libxml2 are not known here; one is hurt only if the
 * application has set libxml2's debugging allocator (`xmlMemMalloc`).
 *
 * @par Example
 * @snippet layouts/main.cpp read
 */
class OXIL_API Xml {
public:
    /** Gets the name and the attributes: name, value, name, value, ... */
    using StartElementCallback =
        std::function<void(const std::string&, const std::vector<std::string>&)>;

    /** Gets the name. */
    using EndElementCallback = std::function<void(const std::string&)>;

    /** Gets the text. */
    using CharactersCallback = std::function<void(const std::string&)>;

    /** Makes a reader without file. */
    Xml();

    /** Makes a reader for a file, which is not touched before read() or load(). */
    Xml(const std::string& xmlFilePath);

    /** Copies the path and the functions, also one that is running; the listener is shared. */
    Xml(const Xml& other);

    /** The same. A function of this reader that is running may still use what it captured. */
    Xml& operator=(const Xml& other);

    /** Must not be called from inside an event of this reader. */
    ~Xml();

    /**
     * Reads a file and delivers its events, in document order, before it returns.
     *
     * Character data is delivered as the text from its beginning to the next NUL in the parser's
     * buffer, which may be the rest of the document: each such event costs time in proportion to
     * what is left of the document. Ask for EXACT_TEXT to get the text alone.
     *
     * What was delivered before an error stays delivered, and text behind it may still be. A file
     * that becomes shorter while it is read is parsed with what was there and line ends for the
     * rest.
     *
     * @param xmlFilePath  remembered for read() and load(), unless it is empty
     * @return STATUS_SUCCESS, or after logging
     *         - "xmlFilePath is empty string.": STATUS_INVALID_STATE
     *         - "File open failed : (%s)(%s)" with path and reason: STATUS_INVALID_PARAMETER
     *         - "(%s)" with a reason, if the file can't be positioned: STATUS_INVALID_STATE
     *         - "Please check the file size.", if there is nothing to read: STATUS_INVALID_STATE
     *         - "Memory allocation failed.", also for `INT_MAX` bytes and more, which folders of
     *           many file systems say they have: STATUS_OUT_OF_MEMORY
     *         - "Xml parsing failed", for malformed XML, and if the parser had no memory:
     *           STATUS_INVALID_PARAMETER
     * @throws  what the listener or a function threw: the parser is stopped, nothing more is
     *          delivered or logged, and everything is released first; or `std::bad_alloc`
     */
    int read(const std::string& xmlFilePath);

    /** Reads the file remembered. Without one it logs "xmlFilePath is empty string." and returns
     *  STATUS_INVALID_STATE. */
    int read();

    /** As read(const std::string&), with the text of each run of character data and no more, and
     *  with attribute values as the document means them. The cost is in proportion to the
     *  document. */
    int read(const std::string& xmlFilePath, ExactText);

    /** As read(const std::string&, ExactText), for the file remembered. */
    int read(ExactText);

    /**
     * As read(const std::string&, ExactText), for a regular file of no more than `file.limit`
     * bytes. This is the one for paths from outside: a pipe doesn't make it wait.
     *
     * @return as there, and nothing is positioned: a folder, a pipe or device, or a file that is
     *         too large is "File open failed : (%s)(%s)" as well, with the reason EISDIR, EINVAL or
     *         EFBIG: STATUS_INVALID_PARAMETER
     */
    int read(const std::string& xmlFilePath, PlainFile file);

    /**
     * As read(const std::string&, PlainFile), for a document that is in memory. The path remembered
     * stays as it is.
     *
     * @param text  need not end with a NUL, and has to stay until this returns
     * @param limit  how many bytes the text may have
     * @return STATUS_SUCCESS; STATUS_INVALID_PARAMETER after logging "Text is too long (%zu)." with
     *         its bytes, also for more than `INT_MAX`, or "Xml parsing failed", for malformed XML,
     *         which an empty text is too, and if the parser had no memory
     * @throws  as read(const std::string&)
     */
    int readText(std::string_view text, std::size_t limit = PLAIN_FILE.limit);

    /**
     * Parses a file into a tree.
     *
     * XmlDocument::loadFile() and loadText() do it without a reader, for whatever may be untrusted.
     *
     * It fails if no file was remembered before, whatever the argument is: the remembered path is
     * what is checked, and only then replaced, by an empty one too.
     *
     * @param xmlFilePath  a path; libxml2 also takes URLs and reads compressed files
     * @return a new document, which is the caller's; null after logging "xmlFilePath is empty
     *         string.", "Invalid state. (%s)(%s)" with path and system error, if the file can't be
     *         read, is malformed or needs more memory than there is, or "Memory allocation failed."
     *         (the tree is lost then)
     */
    [[nodiscard]] XmlDocument* load(const std::string& xmlFilePath);

    /** Parses the file remembered; fails as load(const std::string&) does if there is none. */
    [[nodiscard]] XmlDocument* load();

    /**
     * As load(const std::string&), for a regular file of no more than `file.limit` bytes: no URL,
     * no compressed file, no catalog, and nothing that the document refers to, whatever libxml2 was
     * told for the whole process (`xmlSubstituteEntitiesDefault`, `xmlLoadExtDtdDefaultValue`).
     *
     * The argument is what is checked for being empty, not the path remembered.
     *
     * @return a new document, which is the caller's; null after logging "xmlFilePath is empty
     *         string.", "Invalid state. (%s)(%s)" with path and reason ("Success" for what is
     *         not well-formed; EISDIR, EINVAL, EFBIG as for read()), or "Memory allocation failed."
     */
    [[nodiscard]] XmlDocument* load(const std::string& xmlFilePath, PlainFile file);

    /** Sets the listener, which stays the caller's and has to live until it is replaced or the
     *  reader is no longer used; null removes it. */
    void setXmlEventListener(IXmlEventListener* listener);

    /** Sets the function for start tags, called with name and attributes (name, value, ...); an
     *  empty one removes it. */
    void setOnStartElement(const StartElementCallback& callback);

    /** Sets the function for end tags, called with the name; an empty one removes it. */
    void setOnEndElement(const EndElementCallback& callback);

    /** Sets the function for character data; an empty one removes it. */
    void setOnCharacters(const CharactersCallback& callback);

    /** Delivers a start tag; for the parser. @param attributes  ended by null, or null itself */
    void __onStartElement(const char* name, const char** attributes);

    /** Delivers an end tag; for the parser. */
    void __onEndElement(const char* name);

    /** Delivers text up to its first NUL, whatever its length is said to be; for the parser. */
    void __onCharacters(const char* text, int length);

    /** Delivers text of exactly this length; for the parser. */
    void __onExactCharacters(const char* text, int length);

private:
    // Without underscores, as its log lines name it.
    OXIL_LOCAL int read(const std::string& xmlFilePath, const _xmlSAXHandler& handlers);

    IXmlEventListener* __listener = nullptr;
    std::string __xmlFilePath;
    internal::Callback<void(const std::string&, const std::vector<std::string>&)>
        __startElementCallback;
    internal::Callback<void(const std::string&)> __endElementCallback;
    internal::Callback<void(const std::string&)> __charactersCallback;
};

}  // namespace oxil
