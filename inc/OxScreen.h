#pragma once

#include <atomic>

#include "OxDimension.h"
#include "OxExport.h"

namespace oxil {

/**
 * The size of the device's screen in pixels.
 *
 * It is read once in the life of the process, from the platform's system information; a later
 * change, rotation included, does not show. What the platform can't tell is 0.
 */
class OXIL_API Screen {
public:
    /** Reads the size from the platform; getInstance() does so once for everybody. */
    Screen();
    ~Screen();

    Screen(const Screen&) = delete;
    Screen& operator=(const Screen&) = delete;

    /**
     * The one instance, made at first use and never destroyed. May be called from any thread.
     *
     * @return null after logging "Memory allocation failed" under the name __initInstance, if there
     *         was no memory for it at first use; later calls return null silently
     */
    static Screen* getInstance();

    /** Makes the instance; meant for getInstance(), which calls it once. */
    static void __initInstance();

    Dimension getSize() const;
    int getWidth() const;
    int getHeight() const;

private:
    static std::atomic<Screen*> __instance;

    int __width;
    int __height;
    Dimension __size;
};

}  // namespace oxil
