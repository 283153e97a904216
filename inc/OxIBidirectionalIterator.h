#pragma once

namespace oxil {

/**
 * A place in a sequence that can be left and returned to.
 *
 * Applications implement it to feed lists of records to Serializer, which calls moveTo(), next(),
 * getPosition() and isEnd() only. The other operations have bodies that do nothing.
 *
 * The order of the virtual functions is part of the binary interface.
 *
 * @tparam T  what the sequence holds, default-constructible; `KeyValues*` in this library
 */
template <typename T>
class IBidirectionalIterator {
public:
    virtual ~IBidirectionalIterator() = default;

    /** The element at the current place, without moving. */
    virtual T current() { return T(); }

    /**
     * Goes to a place that getPosition() named.
     *
     * @return 0, or anything else for a failure
     */
    virtual int moveTo(int position) = 0;

    /** Returns the element at the current place and goes on to the next. Serializer skips a null
     *  one. */
    virtual T next() = 0;

    /** The current place. */
    virtual int getPosition() = 0;

    /** Goes back by one and returns the element there. */
    virtual T previous() { return T(); }

    /** Whether the current place is the first. */
    virtual bool isBegin() { return false; }

    /** Whether no element is left. */
    virtual bool isEnd() = 0;
};

}  // namespace oxil
