#pragma once

#include "OxSerializedData.h"

namespace oxil::internal {

/** The most that a value of a usual size takes in a data area, and when it is decoded. */
inline constexpr long long MOST_BYTES_OF_VALUE = 320;

/**
 * The rules of SerializedData::validate(); named after it, because what is logged names the
 * function.
 *
 * @param available     bytes of data, at most INT_MAX
 * @param unknownKinds  whether entries of unknown kinds are accepted; they are not read
 * @param needed        gets the bytes that reading the data may touch
 */
int validate(const SerializationInfo& info, long long available, const DecodingLimits& limits,
             bool unknownKinds, long long& needed);

}  // namespace oxil::internal
