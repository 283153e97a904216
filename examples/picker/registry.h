// The registry of keyboard layouts, as records.
#pragma once

#include <string>
#include <vector>

#include <Oxil.h>

namespace picker {

// One record for each layout, and one for each of its variants right behind it, with the entries
//   layout       name of the layout, "de"
//   variant      name of the variant, empty for the layout itself
//   description  "German (dead acute)"
//   countries    codes of the countries that the layout is for, "DE AT"; empty for a variant
//   languages    codes of its languages, "deu"
// in this order. No records: the file could not be read, and the log tells why.
std::vector<oxil::KeyValues> readRegistry(const std::string& path);

}  // namespace picker
