#include "OxScreen.h"

#include <pthread.h>

#include <new>

#include "OxLog.h"
#include "OxPlatform.h"

namespace oxil {
namespace {

pthread_once_t once = PTHREAD_ONCE_INIT;

}  // namespace

std::atomic<Screen*> Screen::__instance{nullptr};

Screen* Screen::getInstance()
{
    Screen* screen = __instance.load(std::memory_order_acquire);
    if (screen == nullptr) {
        pthread_once(&once, __initInstance);
        screen = __instance.load(std::memory_order_acquire);
    }
    return screen;
}

void Screen::__initInstance()
{
    Screen* screen = new (std::nothrow) Screen();
    if (screen == nullptr) {
        OX_ERROR("Memory allocation failed");
        return;
    }
    __instance.store(screen, std::memory_order_release);
}

Screen::Screen()
{
    // What can't be told stays 0.
    system_info_get_platform_int(OXIL_FEATURE_NAMESPACE "/feature/screen.width", &__width);
    system_info_get_platform_int(OXIL_FEATURE_NAMESPACE "/feature/screen.height", &__height);
    __size.setSize(__width, __height);
}

Screen::~Screen() = default;

Dimension Screen::getSize() const
{
    return __size;
}

int Screen::getWidth() const
{
    return __width;
}

int Screen::getHeight() const
{
    return __height;
}

}  // namespace oxil
