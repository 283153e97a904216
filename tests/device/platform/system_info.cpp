#include <cstdio>
#include <cstring>

extern "C" int system_info_get_platform_int(const char* key, int* value)
{
    std::printf("system_info: %s\n", key);
    if (std::strcmp(key, "example.org/feature/screen.width") == 0) {
        *value = 321;
        return 0;
    }
    if (std::strcmp(key, "example.org/feature/screen.height") == 0) {
        *value = 654;
        return 0;
    }
    return -1;
}
