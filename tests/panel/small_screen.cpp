// A device with a small screen: this definition wins over that of the platform.

#include <OxPlatform.h>

#include <cstring>

int system_info_get_platform_int(const char* key, int* value)
{
    *value = std::strstr(key, "width") != nullptr ? 480 : 320;
    return 0;
}
