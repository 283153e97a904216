#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "GoldenEncoder.h"

namespace oxil::test {

/**
 * @file
 * The wire form written a second time, and what is expected to be read from it, as witnesses
 * against the library and against tools/wire-to-json. Nothing here includes or calls the library.
 */

/** The message of a description and its data area; both have to be right. */
std::vector<std::uint8_t> encodeWire(const GoldenBytes& bytes);

/**
 * The line that tools/wire-to-json prints of that message, but for the way numbers are written; of
 * known kinds that have their default sizes.
 */
std::string toJson(const GoldenBytes& bytes);

}  // namespace oxil::test
