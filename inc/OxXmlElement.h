#pragma once

#include <cstddef>
#include <iterator>
#include <string>
#include <string_view>

#include "OxExport.h"

struct _xmlNode;

namespace oxil {

/**
 * An element of a tree, to be looked at: of a document that was loaded, say, from
 * XmlDocument::getRootElement() on.
 *
 * It owns nothing and is as cheap to copy as a pointer. There may be no element in it, which is
 * false: that is what is found where there is nothing, and it has neither name nor text, attributes
 * or children itself. So a path through a document is said at once, and nothing is ever logged:
 * `root.first("panel").first("title").getAttribute("color", "black")`.
 *
 * @par Names
 * They are those of the document with their prefix, `b:c`, as in the events of Xml::read(). Who asks
 * for a name with a prefix gets that one; who asks for a name without, the first of that name
 * whatever its prefix is, as from XmlNode::getAttribute(). Namespaces are not looked at.
 *
 * @par Lifetime
 * An element can be used as long as its node is in the tree, and the tree is there: not after its
 * document or its XmlNode is destroyed. So `XmlDocument::loadText(text)->getRootElement()` gives a
 * root that is gone at the end of the line, also in the head of a range-for. Names and texts are
 * copies.
 *
 * @par Threads
 * As for the document: one thread at a time.
 *
 * @par Example
 * @snippet panel/service.cpp registry
 */
class OXIL_API XmlElement {
public:
    class Iterator;

    /** No element. */
    XmlElement() noexcept = default;

    /** A native node, which has to be an element or null. It stays whose it is. */
    explicit XmlElement(_xmlNode* node) noexcept : __native(node) {}

    /** Whether there is an element. */
    explicit operator bool() const noexcept { return __native != nullptr; }

    /** The name with its prefix. */
    std::string getName() const;

    /**
     * All text in the element, its children's too, as it stands there with blanks and line ends;
     * without comments and processing instructions.
     *
     * A tree of Xml::load() has references to entities that the document declares, and each counts
     * with its text: a hostile document of a megabyte can have a text of gigabytes. Trees of
     * XmlDocument::loadText() and loadFile() don't.
     *
     * @throws std::bad_alloc  also if libxml2 has no memory
     */
    std::string getText() const;

    /** Whether there is an attribute of this name, if only by a default in the document's own
     *  document type. */
    bool hasAttribute(std::string_view name) const;

    /**
     * The value of an attribute, as XmlNode::getAttribute() has it, with entities as in getText().
     *
     * @param fallback  what is returned if there is no such attribute; one that is there may be
     *                  empty
     * @throws std::bad_alloc  also if libxml2 has no memory
     */
    std::string getAttribute(std::string_view name, std::string_view fallback = {}) const;

    /** The first child element, or the first one of this name if one is given. Those in entities
     *  that the document declares are no children. */
    XmlElement first(std::string_view name = {}) const;

    /** The next element with the same parent, or the next one of this name. */
    XmlElement next(std::string_view name = {}) const;

    /** The element that this one is a child of; none for a root. */
    XmlElement getParent() const;

    /** The child elements, for a range-for. Their order is the document's. */
    Iterator begin() const;

    /** Behind the last child element. */
    Iterator end() const;

    /** The native node, null if there is none; it stays whose it is. */
    _xmlNode* __getNativeNode() const noexcept { return __native; }

private:
    _xmlNode* __native = nullptr;
};

/** Whether both are the same element, or none. */
inline bool operator==(XmlElement one, XmlElement other) noexcept
{
    return one.__getNativeNode() == other.__getNativeNode();
}

inline bool operator!=(XmlElement one, XmlElement other) noexcept
{
    return !(one == other);
}

/** Goes over the child elements of an element, as often as one likes. */
class XmlElement::Iterator {
    /// @cond  what is there is what every input iterator has
public:
    using iterator_category = std::input_iterator_tag;  // what it gives lives in itself
    using value_type = XmlElement;
    using difference_type = std::ptrdiff_t;
    using pointer = const XmlElement*;
    using reference = const XmlElement&;

    Iterator() noexcept = default;
    explicit Iterator(XmlElement element) noexcept : __element(element) {}

    const XmlElement& operator*() const noexcept { return __element; }
    const XmlElement* operator->() const noexcept { return &__element; }

    Iterator& operator++()
    {
        __element = __element.next();
        return *this;
    }

    Iterator operator++(int)
    {
        const Iterator before = *this;
        ++*this;
        return before;
    }

    friend bool operator==(const Iterator& one, const Iterator& other) noexcept
    {
        return one.__element == other.__element;
    }

    friend bool operator!=(const Iterator& one, const Iterator& other) noexcept
    {
        return !(one == other);
    }

private:
    XmlElement __element;
    /// @endcond
};

inline XmlElement::Iterator XmlElement::begin() const
{
    return Iterator(first());
}

inline XmlElement::Iterator XmlElement::end() const
{
    return {};
}

}  // namespace oxil
