#include "SerializedBytes.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>

#include "OxStatus.h"

namespace oxil::test {

Types times(int count, const Types& types)
{
    Types result;
    for (int i = 0; i < count; ++i) {
        result.insert(result.end(), types.begin(), types.end());
    }
    return result;
}

int sizeOf(const Types& types)
{
    int size = 0;
    for (const auto& type : types) {
        size += type.second;
    }
    return size;
}

std::vector<Types> blocksOf(const SerializedData& data)
{
    const SerializationInfo& info = data.getSerializationInfo();
    std::vector<Types> blocks;
    for (int b = 0; b < data.getBlockCount(); ++b) {
        Types types;
        for (int k = 0; k < info.typeCount[b]; ++k) {
            types.emplace_back(info.types[b][k], info.typeSizes[b][k]);
        }
        blocks.push_back(types);
    }
    return blocks;
}

Values valuesOf(const SerializedData& data, int block)
{
    const Values* values = data.getValues(block);
    EXPECT_NE(values, nullptr);
    return values != nullptr ? *values : Values();
}

const char* placeAt(const SerializedData& data, int offset)
{
    return static_cast<const char*>(data.getData()) + offset;
}

std::string textAt(const SerializedData& data, int offset)
{
    return placeAt(data, offset);
}

int intAt(const SerializedData& data, int offset)
{
    std::int32_t number = 0;
    std::memcpy(&number, placeAt(data, offset), sizeof number);
    return number;
}

int intOf(const char* characters)
{
    std::int32_t number = 0;
    std::memcpy(&number, characters, sizeof number);
    return number;
}

Sent::Sent(const std::vector<Values>& blocks)
{
    SerializedData description;
    description.setBlockCount(static_cast<int>(blocks.size()));
    for (std::size_t b = 0; b < blocks.size(); ++b) {
        for (const Variant& value : blocks[b]) {
            EXPECT_EQ(description.addType(static_cast<int>(b), value.getType()), 0);
            const std::size_t start = __bytes.size();
            const int size = value.getType() == VARIANT_TYPE_STRING ? 256 : value.getValueSize();
            __bytes.resize(start + static_cast<std::size_t>(size));
            EXPECT_EQ(value.toRaw(__bytes.data() + start, size), size);
        }
    }
    info = description.getSerializationInfo();
}

std::unique_ptr<SerializedData> Sent::receive()
{
    __bytes.shrink_to_fit();
    auto data = std::make_unique<SerializedData>(info);
    static const char nothing = 0;
    const void* const bytes = __bytes.empty() ? &nothing : __bytes.data();
    EXPECT_EQ(data->setData(bytes), STATUS_SUCCESS);
    return data;
}

}  // namespace oxil::test
