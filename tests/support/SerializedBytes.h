#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "OxSerializedData.h"
#include "Records.h"

namespace oxil::test {

/** The type entries of one block: kind and size. */
using Types = std::vector<std::pair<int, int>>;

inline constexpr std::pair<int, int> TEXT(VARIANT_TYPE_STRING, 256);
inline constexpr std::pair<int, int> INT(VARIANT_TYPE_INT, 4);
inline constexpr std::pair<int, int> BOOL(VARIANT_TYPE_BOOL, 1);
inline constexpr std::pair<int, int> DOUBLE(VARIANT_TYPE_DOUBLE, 8);

Types times(int count, const Types& types);
int sizeOf(const Types& types);

/** What the description says of each block. */
std::vector<Types> blocksOf(const SerializedData& data);

/** What a block decodes to. */
Values valuesOf(const SerializedData& data, int block);

/** What stands so many bytes behind the beginning of the data. */
const char* placeAt(const SerializedData& data, int offset);
std::string textAt(const SerializedData& data, int offset);
int intAt(const SerializedData& data, int offset);

/** What an INT reads where these four characters stand. */
int intOf(const char* characters);

/** A description and bytes put together value by value, as a device could send them. */
class Sent {
public:
    explicit Sent(const std::vector<Values>& blocks);

    /** The receiver's object; it borrows the bytes, which end where the heap block ends. */
    std::unique_ptr<SerializedData> receive();

    SerializationInfo info;

private:
    std::vector<char> __bytes;
};

}  // namespace oxil::test
