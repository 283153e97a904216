#pragma once

#include <atomic>

#include "OxDimension.h"
#include "OxExport.h"

namespace oxil {

/**
 * The size of the device's screen in pixels.
 *
 * It is read once in the life of the process, from the platform's system information; a later
 * change, rotation included, does not show. What the platform can't tell is 0, silently.
 *
 * The keys are "/feature/screen.width" and "/feature/screen.height" behind the platform's
 * namespace, which is a setting of the build (OXIL_FEATURE_NAMESPACE).
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

    /** Makes the instance; meant for getInstance(), which calls it once. Calling it again replaces
     *  the instance, and the former one is lost. */
    static void __initInstance();

    /** Width and height in pixels, 0 where the platform gave none. */
    Dimension getSize() const;

    /** Pixels, 0 if the platform gave none. */
    int getWidth() const;

    /** Pixels, 0 if the platform gave none. */
    int getHeight() const;

private:
    static std::atomic<Screen*> __instance;  // read by any thread

    int __width = 0;
    int __height = 0;
    Dimension __size;
};

}  // namespace oxil
