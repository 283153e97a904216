// A report of all settings.
#pragma once

#include <functional>
#include <string>

#include "layout.h"

namespace panel {

// Writes what the panel's rows show as a page of HTML. False: the log tells why it can't be written.
bool writeReport(const Layout& layout, const std::function<std::string(const Row&)>& getText,
                 const std::string& styleSheetPath, const std::string& path);

}  // namespace panel
