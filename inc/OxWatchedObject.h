#pragma once

namespace oxil::internal {

/** A base of classes whose objects may be destroyed by code that they call, and which find out: see
 *  Watch. It has no fields and changes nothing of their layout. */
class WatchedObject {
protected:
    WatchedObject() = default;
    WatchedObject(const WatchedObject&) = default;
    WatchedObject& operator=(const WatchedObject&) = default;

    /** Ends all watches of the object. */
    ~WatchedObject();
};

}  // namespace oxil::internal
