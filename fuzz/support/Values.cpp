#include "Values.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace oxil::fuzz {
namespace {

template <typename List>
bool areSame(const List& some, const List& others)
{
    return std::equal(some.begin(), some.end(), others.begin(), others.end(),
                      [](const auto& one, const auto& other) { return isSame(one, other); });
}

}  // namespace

bool isSame(const Variant& one, const Variant& other)
{
    if (one.getType() != other.getType() || one.getType() == VARIANT_TYPE_STRING) {
        return one == other;
    }
    if (one.empty()) {
        return true;
    }
    char bytes[sizeof(long long)] = {};
    char otherBytes[sizeof(long long)] = {};
    return one.toRaw(bytes) == other.toRaw(otherBytes) &&
           std::memcmp(bytes, otherBytes, sizeof bytes) == 0;
}

bool isSame(const KeyValue& one, const KeyValue& other)
{
    return one.getKey() == other.getKey() && isSame(one.getValue(), other.getValue());
}

bool isSame(const Values& some, const Values& others)
{
    return areSame(some, others);
}

bool isSame(const KeyValues& one, const KeyValues& other)
{
    return areSame(one.getKeyValues(), other.getKeyValues());
}

bool isSame(const std::vector<KeyValues>& some, const std::vector<KeyValues>& others)
{
    return areSame(some, others);
}

Variant makeValue(Input& input)
{
    switch (input.below(VARIANT_TYPE_STRING + 1)) {
        case VARIANT_TYPE_INT:
            return Variant(input.number<int>());
        case VARIANT_TYPE_UINT:
            return Variant(input.number<unsigned int>());
        case VARIANT_TYPE_LONG:
            return Variant(static_cast<long>(input.number<std::int32_t>()));
        case VARIANT_TYPE_ULONG:
            return Variant(static_cast<unsigned long>(input.number<std::uint32_t>()));
        case VARIANT_TYPE_LONGLONG:
            return Variant(input.number<long long>());
        case VARIANT_TYPE_ULONGLONG:
            return Variant(input.number<unsigned long long>());
        case VARIANT_TYPE_FLOAT:
            return Variant(input.number<float>());
        case VARIANT_TYPE_DOUBLE:
            return Variant(input.number<double>());
        case VARIANT_TYPE_BOOL:
            return Variant(input.flag());
        case VARIANT_TYPE_STRING:
            return Variant(input.text());
        default:
            return Variant();
    }
}

KeyValues makeRecord(Input& input)
{
    KeyValues record;
    const int count = input.byte();
    if (count == 255) {  // as many as a block can have, or one more
        const int many = 1000 + input.below(2);
        for (int i = 0; i < many; ++i) {
            record.add(KeyValue(std::to_string(i), i));
        }
    }
    for (int i = 0; i < count && !input.isAtEnd(); ++i) {
        const std::string key = input.text();
        static_cast<void>(record.add(KeyValue(key, makeValue(input))));
    }
    return record;
}

}  // namespace oxil::fuzz
