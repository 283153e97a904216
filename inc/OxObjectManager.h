#pragma once

#include <pthread.h>

#include <algorithm>
#include <cstddef>
#include <new>
#include <vector>

#include "OxExport.h"
#include "OxLog.h"

namespace oxil {

/**
 * The objects of one kind that scripts have made, which scripts know by number.
 *
 * For the library itself, not for applications. There is one instance in the process for each @p T.
 * It does not own the objects.
 *
 * A handle is a position, not an identity: removing an object moves every later one down by one.
 *
 * @par Threads
 * getInstance() may be called from any thread, everything else from the main-loop thread.
 */
template <typename T>
class OXIL_API ObjectManager {
public:
    ObjectManager(const ObjectManager&) = delete;
    ObjectManager& operator=(const ObjectManager&) = delete;

    /** The instance, made at first use and never freed. Null after logging "Memory allocation
     *  failed" at first use, if there was no memory for it, once and for all. */
    static ObjectManager<T>* getInstance()
    {
        pthread_once(&__once, __initInstance);
        return __instance;
    }

    /** Appends an object, which stays the caller's, and returns its handle. */
    int addObject(T* object)
    {
        __objects.push_back(object);
        return static_cast<int>(__objects.size()) - 1;
    }

    /**
     * The object with a handle.
     *
     * @return null after logging "Invalid parameter." for a negative handle
     * @throws std::out_of_range  if the handle is past the end
     */
    T* getObject(int handle)
    {
        if (handle <= __invalidHandle) {
            OX_ERROR("Invalid parameter.");
            return nullptr;
        }
        return __objects.at(static_cast<std::size_t>(handle));
    }

    /** Takes an object out of the list; logs "Object not found." if it is not there. */
    void removeObject(T* object)
    {
        const auto place = std::find(__objects.begin(), __objects.end(), object);
        if (place == __objects.end()) {
            OX_ERROR("Object not found.");
            return;
        }
        __objects.erase(place);
    }

private:
    ObjectManager() = default;

    static void __initInstance()
    {
        __instance = new (std::nothrow) ObjectManager<T>();
        if (__instance == nullptr) {
            OX_ERROR("Memory allocation failed");
        }
    }

    inline static pthread_once_t __once = PTHREAD_ONCE_INIT;
    inline static ObjectManager<T>* __instance = nullptr;

    std::vector<T*> __objects;
    int __invalidHandle = -1;
};

}  // namespace oxil
