#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "OxKeyValues.h"
#include "OxVariant.h"

namespace oxil::test {

using Values = std::vector<Variant>;
using Names = std::vector<std::string>;
using Records = std::vector<KeyValues>;
using Pointers = std::vector<KeyValues*>;

/** A record of these entries, in this order. */
KeyValues recordOf(const std::vector<KeyValue>& entries);

/** A record of one small entry each: `{key: number}`. */
KeyValues small(const std::string& key, int number);

/** A record of this many entries of kind BOOL. */
KeyValues wide(int count);

inline Pointers pointersTo(Records& records)
{
    Pointers pointers;
    for (KeyValues& each : records) {
        pointers.push_back(&each);
    }
    return pointers;
}

/** Says which records differ, not all of their bytes. */
testing::AssertionResult sameRecords(const Records& actual, const Records& expected);

}  // namespace oxil::test
