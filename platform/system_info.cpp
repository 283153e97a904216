#include "system_info.h"

#include <exception>
#include <optional>
#include <string_view>

#include "OxPlatform.h"
#include "OxStatus.h"
#include "display.h"

namespace oxil::platform {
namespace {

constexpr std::string_view WIDTH_KEY = OXIL_FEATURE_NAMESPACE "/feature/screen.width";
constexpr std::string_view HEIGHT_KEY = OXIL_FEATURE_NAMESPACE "/feature/screen.height";

}  // namespace

int getPlatformInt(const std::filesystem::path& sysfs, const char* key, int* value)
{
    if (key == nullptr || value == nullptr || (key != WIDTH_KEY && key != HEIGHT_KEY)) {
        return STATUS_INVALID_PARAMETER;
    }

    const std::optional<DisplaySize> display = findDisplay(sysfs);
    if (!display) {
        return STATUS_NOT_FOUND;
    }

    *value = key == WIDTH_KEY ? display->width : display->height;
    return STATUS_SUCCESS;
}

}  // namespace oxil::platform

int system_info_get_platform_int(const char* key, int* value)
{
    try {
        return oxil::platform::getPlatformInt("/sys", key, value);
    } catch (const std::exception&) {  // of the standard library, without memory
        return oxil::STATUS_OUT_OF_MEMORY;
    }
}
