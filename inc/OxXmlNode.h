#pragma once

#include <memory>
#include <string>
#include <vector>

#include "OxExport.h"

struct _xmlNode;

namespace oxil {

/**
 * An element of an XML tree that is being built: the owner of a libxml2 node.
 *
 * @par Ownership
 * A node owns its native node and the nodes that were given to addChild(), until removeChild()
 * hands them back; its destructor frees all of them. Every node belongs to exactly one owner. Make
 * nodes with `std::make_unique` and move them into their parent or document, and all of this
 * follows. Where plain pointers are given away:
 * - a node that was given to addChild() must have been made with `new`, and must not be deleted by
 *   anybody else, nor be added to a second parent or twice to one: each of its owners would free
 *   it;
 * - a root that was given to XmlDocument::setRootNode() must be destroyed before the document, with
 *   everything under it, or never: the document frees the tree as well.
 *
 * And in any case:
 * - a node that removeChild() handed back must be destroyed before the document in whose tree it
 *   was: its native node goes on pointing there;
 * - nodes of a document that was loaded, or is the result of a stylesheet, stay with it: their names
 *   may live in a dictionary of that document's;
 * - a node made from a native node frees it, wherever that is linked: anything else that frees it,
 *   its document above all, must have gone before or never come;
 * - copies share everything with their source, deliberately: only one of them may be destroyed.
 *
 * libxml2 does not take a node that is added out of the place where it is linked: the tree there
 * goes on pointing to it, and both are damaged. Say removeChild() first. Nor does it refuse to add
 * a node under one of its own descendants, which makes a ring that nothing leaves.
 *
 * libxml2 merges text: a text node that is added beside another one is freed by addChild() itself,
 * and the node that wraps it is left with a dangling native node (`xmlAddChild`, libxml2's manual).
 * Wrap elements, and give text to setContent().
 *
 * @par Threads
 * One thread at a time for all nodes of a tree; different trees may be on different threads.
 */
class OXIL_API XmlNode {
public:
    /** Makes a node without native node; setElement() gives it one. */
    XmlNode();

    /** Takes over a native node. Children that it has already get no wrappers. */
    explicit XmlNode(_xmlNode* node);

    /** Makes an element. Logs "XmlNode creation failed." if there is no memory; the node has no
     *  native node then. */
    explicit XmlNode(const std::string& element);

    /** Shares native node and children with the source: only one of the two may be destroyed. */
    XmlNode(const XmlNode& other);

    /** Shares native node and children with the source: only one of the two may be destroyed. What
     *  this node had is neither unlinked nor freed. */
    XmlNode& operator=(const XmlNode& other);

    /** Unlinks the native node, deletes the children, and frees the native node with whatever
     *  native nodes are still under it. However deep the tree is, the stack it takes is the same. */
    ~XmlNode();

    /**
     * Gives this node a new native element. One that it had is neither unlinked nor freed.
     *
     * The children stay in this node's list, under the old native element.
     *
     * @return STATUS_SUCCESS; STATUS_OUT_OF_MEMORY after logging "Memory allocation failed.": there
     *         is no native node then
     */
    int setElement(const std::string& element);

    /**
     * Sets an attribute, in place of one of that name.
     *
     * @return STATUS_SUCCESS, whatever libxml2 made of it; STATUS_INVALID_STATE after logging
     *         "Invalid state." without native node
     */
    int setAttribute(const std::string& name, const std::string& value);

    /**
     * Adds attributes. One that has the name of another is added all the same, which makes the
     * document malformed.
     *
     * @param attributes  name, value, name, value, ...
     * @return STATUS_SUCCESS; STATUS_INVALID_STATE after logging "Invalid state." without native
     *         node or for an odd number of texts: nothing is added then
     */
    int setAttribute(const std::vector<std::string>& attributes);

    /**
     * The value of an attribute.
     *
     * @return an empty text after logging "Invalid state." without native node
     * @throws std::logic_error  if there is no such attribute
     * @note Each call leaves one copy of the value behind that nobody frees, deliberately.
     */
    std::string getAttribute(const std::string& name) const;

    /**
     * Appends text to the content. Text is never replaced: a second call adds to the first.
     *
     * The text is plain: `&` and `<` need no escape, they get one when the document is written.
     *
     * @return STATUS_SUCCESS; STATUS_INVALID_STATE after logging "Invalid state." without native
     *         node; STATUS_OUT_OF_MEMORY after logging "Memory allocation failed.": the content is
     *         what it was
     */
    int setContent(const std::string& content);

    /**
     * Whether XML can hold a text, as content or as the value of an attribute.
     *
     * It can hold UTF-8 without control characters other than tab and the two of line ends, and
     * without U+FFFE and U+FFFF. Other text is accepted by setContent() and setAttribute() and
     * written, but then nobody can read the file, or the text is another one. So ask about text
     * from outside.
     */
    static bool isText(const std::string& text);

    /**
     * Adds a node as the last child, and takes it over.
     *
     * @return STATUS_SUCCESS; STATUS_INVALID_PARAMETER after logging "Invalid parameter." for null;
     *         STATUS_INVALID_STATE after logging "Invalid state." if libxml2 refused, because
     *         one of the two has no native node or both are the same: the child stays the caller's
     */
    int addChild(XmlNode* child);

    /** The same for a node whose owner says so. One that is refused is destroyed. */
    int addChild(std::unique_ptr<XmlNode> child);

    /**
     * Unlinks a node from its tree and hands it back to the caller. Every occurrence in this node's
     * list goes.
     *
     * A child of another node is unlinked as well, but stays in the list of that one, which will
     * delete it: ask its own parent.
     *
     * @return STATUS_SUCCESS, also if it was no child of this node; STATUS_INVALID_PARAMETER after
     *         logging "Invalid parameter." for null
     */
    int removeChild(XmlNode* child);

    /**
     * Unlinks a child and hands it back, with an owner that is plain to see: as removeChild() of a
     * node that was made with `new`.
     *
     * @return null after logging "Invalid parameter." for what is no child of this node: nothing is
     *         unlinked then
     */
    [[nodiscard]] std::unique_ptr<XmlNode> takeChild(XmlNode* child);

    /** The first node added. There must be one. */
    XmlNode* getFirstChild() const;

    /** The last node added. There must be one. */
    XmlNode* getLastChild() const;

    /** The nodes added, in order; they stay this node's. */
    const std::vector<XmlNode*>& getChildren() const;

    /** The native node, null if there is none; it stays this node's. */
    _xmlNode* __getNativeNode() const;

private:
    _xmlNode* __native = nullptr;
    std::string __element;
    std::string __content;
    std::vector<std::string> __attributes;
    std::vector<XmlNode*> __children;
};

}  // namespace oxil
