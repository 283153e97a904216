#pragma once

#include <string>
#include <string_view>

#include "Input.h"
#include "OxSerializedData.h"

namespace oxil::fuzz {

/** A message of the wire form around what follows its length. */
std::string makeMessage(std::string_view body);

/** Bytes of a stream of messages: messages around bodies, and what is none at all. */
std::string makeStream(Input& input);

/** Those with what a Channel puts in front of each. */
std::string makeChannelStream(Input& input);

/** Where a stream is cut into pieces: each call takes one, the last one what is left. */
std::string_view takePiece(std::string_view& stream, int step);

/** Description in use and data, as one text: two of the same payload are equal. */
std::string toText(const SerializedData& data);

}  // namespace oxil::fuzz
