#pragma once

#include <filesystem>

namespace oxil::platform {

/**
 * Answers the two keys of the screen's size from the display found below @p sysfs.
 *
 * @return STATUS_SUCCESS; STATUS_INVALID_PARAMETER for a null pointer or any other key;
 *         STATUS_NOT_FOUND without a display. After a failure @p value is what it was.
 */
int getPlatformInt(const std::filesystem::path& sysfs, const char* key, int* value);

}  // namespace oxil::platform
