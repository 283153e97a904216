// The registry of keyboard layouts, as records.
#pragma once

#include <string>
#include <vector>

#include <Oxil.h>

namespace panel {

// One record for each layout, and one for each of its variants right behind it, with the entries
//   layout       name of the layout, "de"
//   value        name of the variant, empty for the layout itself
//   title        "German (dead acute)"
// in this order. No records: the file could not be read, and the log tells why.
std::vector<oxil::KeyValues> readRegistry(const std::string& path);

}  // namespace panel
