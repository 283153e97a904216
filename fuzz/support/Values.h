#pragma once

#include <string>
#include <vector>

#include "Input.h"
#include "OxKeyValue.h"
#include "OxKeyValues.h"
#include "OxVariant.h"

namespace oxil::fuzz {

using Values = std::vector<Variant>;

/** Whether kind and value are the same, bit for bit: a NaN is the same as itself. */
bool isSame(const Variant& one, const Variant& other);

/** The same for keys, too, lists of values, and records. */
bool isSame(const KeyValue& one, const KeyValue& other);
bool isSame(const Values& some, const Values& others);
bool isSame(const KeyValues& one, const KeyValues& other);
bool isSame(const std::vector<KeyValues>& some, const std::vector<KeyValues>& others);

/** A value of any kind. */
Variant makeValue(Input& input);

/** A record of any shape, its keys being whatever they are. */
KeyValues makeRecord(Input& input);

}  // namespace oxil::fuzz
