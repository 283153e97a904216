#include "OxKeyValues.h"

#include <utility>

#include "OxLog.h"
#include "OxSerializedData.h"
#include "OxStatus.h"
#include "internal/OxDataArea.h"
#include "internal/OxKeyIndex.h"
#include "internal/OxNewDataArea.h"
#include "internal/OxTypeList.h"

namespace oxil {

using internal::ABSENT;

namespace {

// Up to here a walk over the keys is as fast as a hash look-up, and costs no memory.
constexpr std::size_t LARGEST_UNINDEXED = 16;

// Records have several entries as a rule: the list need not grow for each of the first.
constexpr std::size_t FEWEST_RESERVED = 4;

/** Appends the type entries up to the first entry for which addType() would refuse one; returns how
 *  many entries it has described. */
std::size_t describe(const std::vector<KeyValue>& entries, int block, SerializedData& data) noexcept
{
    if (!data.__isValidBlock(block)) {
        return 0;
    }
    internal::TypeList types(data.__getInfo(), block);
    std::size_t described = 0;
    for (const KeyValue& entry : entries) {
        const VariantType type = entry.__getValue().getType();
        const int size = internal::getTypeSpace(type);
        if (size < 1 || !types.hasRoom(2)) {
            break;
        }
        types.append(VARIANT_TYPE_STRING, internal::getTypeSpace(VARIANT_TYPE_STRING));
        types.append(type, size);
        ++described;
    }
    return described;
}

}  // namespace

// A function that programs spend their time in is [[gnu::flatten]]: what it calls is built into it, but
// for what is [[gnu::noinline]] because it is rare there.

KeyValues::KeyValues() noexcept = default;

KeyValues::KeyValues(std::initializer_list<Pair> entries)
{
    __entries.reserve(entries.size());
    for (const Pair& entry : entries) {
        add(entry.key, entry.value);
    }
}

KeyValues::KeyValues(const SerializedData& data)
{
    deserialize(data);
}

KeyValues::KeyValues(const KeyValues& other)
    : __entries(other.__entries),
      __index(other.__index ? std::make_unique<internal::KeyIndex>(*other.__index) : nullptr)
{
}

KeyValues::KeyValues(KeyValues&& other) noexcept = default;

KeyValues::~KeyValues() = default;

KeyValues& KeyValues::operator=(const KeyValues& other)
{
    if (this != &other) {
        *this = KeyValues(other);
    }
    return *this;
}

KeyValues& KeyValues::operator=(KeyValues&& other) noexcept
{
    if (this != &other) {
        __entries = std::move(other.__entries);
        __index = std::move(other.__index);
        other.__entries.clear();
    }
    return *this;
}

bool KeyValues::operator==(const KeyValues& other) const noexcept
{
    return __entries == other.__entries;
}

bool KeyValues::operator!=(const KeyValues& other) const noexcept
{
    return !(*this == other);
}

int KeyValues::getIndex(const std::string& key) const
{
    if (key.empty()) {
        OX_ERROR("Invalid parameter");
        return ABSENT;
    }
    const int index = __find(key);
    return index != ABSENT ? index : getCount();
}

[[gnu::noinline]] KeyValue KeyValues::getKeyValue(const std::string& key) const
{
    if (key.empty()) {
        OX_ERROR("Invalid parameter");
        return KeyValue();
    }
    const int index = __find(key);
    if (index == ABSENT) {
        OX_ERROR("Invalid key (%s)", key.c_str());
        return KeyValue();
    }
    return __at(index);
}

[[gnu::flatten]] Variant KeyValues::getValue(const std::string& key) const
{
    if (key.empty()) {
        OX_ERROR("Invalid parameter");
        return Variant();
    }
    const int index = __find(key);
    if (index == ABSENT) {
        return getKeyValue(key).getValue();  // logs it, under that name
    }
    return __at(index).getValue();
}

KeyValue KeyValues::getKeyValue(int index) const
{
    if (index >= getCount()) {
        OX_ERROR("Invalid parameter : index(%d).", index);
        return KeyValue();
    }
    return __entries.at(static_cast<std::size_t>(index));
}

std::string KeyValues::getKey(int index) const
{
    if (index >= getCount()) {
        OX_ERROR("Invalid parameter : index(%d).", index);
        return std::string();
    }
    return __entries.at(static_cast<std::size_t>(index)).__getKey();
}

Variant KeyValues::getValue(int index) const
{
    if (index >= getCount()) {
        OX_ERROR("Invalid parameter : index(%d).", index);
        return Variant();
    }
    return __entries.at(static_cast<std::size_t>(index)).__getValue();
}

std::vector<std::string> KeyValues::getKeys() const
{
    std::vector<std::string> keys;
    keys.reserve(__entries.size());
    for (const KeyValue& entry : __entries) {
        keys.push_back(entry.__getKey());
    }
    return keys;
}

std::vector<Variant> KeyValues::getValues() const
{
    std::vector<Variant> values;
    values.reserve(__entries.size());
    for (const KeyValue& entry : __entries) {
        values.push_back(entry.__getValue());
    }
    return values;
}

bool KeyValues::isIncluded(const KeyValue& entry) const
{
    const int index = entry.__getKey().empty() ? ABSENT : __find(entry.__getKey());
    if (index == ABSENT) {
        return getKeyValue(entry.__getKey()) == entry;  // logs it, under that name
    }
    return __at(index) == entry;
}

bool KeyValues::isIncluded(const std::string& key, const Variant& value) const
{
    return isIncluded(KeyValue(key, value));
}

int KeyValues::add(const KeyValue& entry)
{
    return add(KeyValue(entry));
}

int KeyValues::add(KeyValue&& entry)
{
    if (!__append(entry.__getKey(), std::move(entry))) {
        OX_ERROR("Key(%s) already exist.", entry.__getKey().c_str());
        return STATUS_ALREADY_EXISTS;
    }
    return STATUS_SUCCESS;
}

[[gnu::flatten]] int KeyValues::add(const std::string& key, const Variant& value)
{
    if (key.empty()) {
        OX_ERROR("Invalid parameter.");
        return STATUS_INVALID_PARAMETER;
    }
    if (!__append(key, key, value)) {
        OX_ERROR("Key(%s) already exist.", key.c_str());
        return STATUS_ALREADY_EXISTS;
    }
    return STATUS_SUCCESS;
}

[[gnu::noinline]] int KeyValues::update(const KeyValue& entry)
{
    const int index = getIndex(entry.__getKey());
    if (index >= 0 && index < getCount()) {
        __at(index).setValue(entry.__getValue());
        return STATUS_SUCCESS;
    }

    // An update is a removal and an insertion at the same place, and this is how the removal of an
    // entry that is not there fails.
    const int r = remove(index);
    OX_ERROR("Failed to remove (%s).", entry.__getKey().c_str());
    return r;
}

[[gnu::flatten]] int KeyValues::update(const std::string& key, const Variant& value)
{
    const int index = key.empty() ? ABSENT : __find(key);
    if (index == ABSENT) {
        return update(getKeyValue(key));  // log it, under these names
    }
    __at(index).setValue(value);
    return STATUS_SUCCESS;
}

int KeyValues::update(int index, const Variant& value)
{
    if (index >= getCount()) {
        return update(getKeyValue(index));  // log it, under these names
    }
    KeyValue& entry = __entries.at(static_cast<std::size_t>(index));
    if (entry.__getKey().empty()) {
        return update(entry);
    }
    entry.setValue(value);
    return STATUS_SUCCESS;
}

int KeyValues::set(std::string_view key, const Variant& value)
{
    if (key.empty()) {
        OX_ERROR("Invalid parameter.");
        return STATUS_INVALID_PARAMETER;
    }
    const int index = __find(key);
    if (index == ABSENT) {
        return add(KeyValue(std::string(key), Variant(value)));
    }
    __at(index).setValue(value);
    return STATUS_SUCCESS;
}

int KeyValues::remove(const std::string& key)
{
    if (key.empty()) {
        OX_ERROR("Invalid parameter.");
        return STATUS_INVALID_PARAMETER;
    }
    const int index = __find(key);
    if (index != ABSENT) {
        __erase(index);
    }
    return STATUS_SUCCESS;
}

int KeyValues::remove(const KeyValue& entry)
{
    return remove(entry.__getKey());
}

int KeyValues::remove(int index)
{
    if (index < 0 || index >= getCount()) {
        OX_ERROR("Invalid parameter : index(%d).", index);
        return STATUS_INVALID_PARAMETER;
    }
    __erase(index);
    return STATUS_SUCCESS;
}

int KeyValues::setSerializedDataInfo(int block, SerializedData& data) const
{
    // One by one only where one is refused, which tells why.
    for (std::size_t i = describe(__entries, block, data); i < __entries.size(); ++i) {
        const int r = __entries[i].setSerializedDataInfo(block, data);
        if (r != STATUS_SUCCESS) {
            OX_ERROR("r (%d).", r);
            return r;
        }
    }
    return STATUS_SUCCESS;
}

int KeyValues::setSerializedDataInfo(SerializedData& data) const
{
    return setSerializedDataInfo(0, data);
}

int KeyValues::copySerializedData(void* destination) const
{
    if (destination == nullptr) {
        OX_ERROR("data is nullptr.");
        return STATUS_FAILURE;
    }
    int offset = 0;
    for (const KeyValue& entry : __entries) {
        offset += internal::writeEntry(static_cast<char*>(destination) + offset, entry.__getKey(),
                                       entry.__getValue());
    }
    return offset;
}

int KeyValues::copySerializedData(void* destination, int size) const
{
    if (destination == nullptr) {
        OX_ERROR("data is nullptr.");
        return STATUS_FAILURE;
    }
    if (size < 1) {
        OX_ERROR("Invalid size( %d)", size);
        return STATUS_FAILURE;
    }
    int offset = 0;
    for (const KeyValue& entry : __entries) {
        const int copied = internal::writeEntry(static_cast<char*>(destination) + offset,
                                                entry.__getKey(), entry.__getValue());
        offset += copied;
        if (offset > size) {
            OX_ERROR("Invalid copySize (%d) size( %d)", copied, size);
            return STATUS_FAILURE;
        }
    }
    return offset;
}

int KeyValues::serialize(SerializedData& data) const
{
    internal::NewDataArea area(data);
    setSerializedDataInfo(data);

    const int size = data.getDataSize();
    if (size < 1) {
        OX_ERROR("Invalid data size (%d).", size);
        return STATUS_INVALID_STATE;
    }
    // A description that was refused, or added to one made elsewhere, may promise less than what is
    // written.
    if (!area.allocate(static_cast<long long>(__getSpace()))) {
        OX_ERROR("Memory allocation failed.");
        return STATUS_OUT_OF_MEMORY;
    }
    return area.handOver(static_cast<std::size_t>(copySerializedData(area.begin())));
}

int KeyValues::deserialize(const SerializedData& data, int block)
{
    const std::vector<Variant>* values = data.getValues(block);
    if (values == nullptr) {
        OX_ERROR("values is nullptr.");
        return STATUS_INVALID_PARAMETER;
    }
    return deserialize(values->begin(), values->end());
}

int KeyValues::deserialize(const SerializedData& data)
{
    return deserialize(data, 0);
}

int KeyValues::deserialize(const std::vector<Variant>::const_iterator& first,
                           const std::vector<Variant>::const_iterator& last)
{
    const auto count = last - first;
    if (count % 2 != 0) {
        OX_ERROR("Invalid key-value pair.");
        return STATUS_INVALID_PARAMETER;
    }
    __reserve(static_cast<std::size_t>(count / 2));
    for (auto value = first; value != last; value += 2) {
        if (value[0].getType() == VARIANT_TYPE_STRING) {
            add(value[0].__getText(), value[1]);
        } else {
            add(value[0].toString(), value[1]);
        }
    }
    return STATUS_SUCCESS;
}

KeyValue& KeyValues::__at(int index) noexcept
{
    return __entries[static_cast<std::size_t>(index)];
}

const KeyValue& KeyValues::__at(int index) const noexcept
{
    return __entries[static_cast<std::size_t>(index)];
}

const Variant* KeyValues::__findValue(std::string_view key) const noexcept
{
    const int index = key.empty() ? ABSENT : __find(key);
    return index != ABSENT ? &__at(index).__getValue() : nullptr;
}

/** The position of a key, the empty one included, or ABSENT. */
int KeyValues::__find(std::string_view key) const noexcept
{
    return __find(internal::WantedKey(key));
}

int KeyValues::__find(const internal::WantedKey& key) const noexcept
{
    if (__index != nullptr) {
        return __index->find(__index->hash(key),
                             [&](int position) { return key == __at(position).__getKey(); });
    }
    for (std::size_t i = 0; i < __entries.size(); ++i) {
        if (key == __entries[i].__getKey()) {
            return static_cast<int>(i);
        }
    }
    return ABSENT;
}

/** Appends KeyValue(parts...), unless its key is there, which leaves the parts untouched. When memory
 *  runs out nothing has changed. */
template <typename... Parts>
bool KeyValues::__append(std::string_view key, Parts&&... parts)
{
    const internal::WantedKey wanted(key);
    if (__find(wanted) != ABSENT) {
        return false;
    }
    if (__index == nullptr && __entries.size() >= LARGEST_UNINDEXED) {
        __makeIndex();
    }
    if (__index == nullptr) {
        if (__entries.capacity() == 0) {
            __entries.reserve(FEWEST_RESERVED);
        }
        __entries.emplace_back(std::forward<Parts>(parts)...);
        return true;
    }
    const std::uint32_t hash = __index->hash(wanted);
    __index->reserveOne();
    __entries.emplace_back(std::forward<Parts>(parts)...);
    __index->insert(hash, getCount() - 1);
    return true;
}

[[gnu::noinline]] void KeyValues::__makeIndex()
{
    auto index = std::make_unique<internal::KeyIndex>(internal::HashSeed::ofProcess());
    for (int i = 0; i < getCount(); ++i) {
        index->reserveOne();
        index->insert(index->hash(internal::WantedKey(__at(i).__getKey())), i);
    }
    __index = std::move(index);
}

void KeyValues::__erase(int index)
{
    if (__index != nullptr) {
        __index->remove(__index->hash(internal::WantedKey(__at(index).__getKey())), index);
    }
    __entries.erase(__entries.begin() + index);
}

void KeyValues::__reserve(std::size_t count)
{
    if (__entries.empty()) {
        __entries.reserve(count);
    }
}

/** Bytes that copySerializedData() may write. */
std::size_t KeyValues::__getSpace() const noexcept
{
    std::size_t space = 0;
    for (const KeyValue& entry : __entries) {
        space += internal::getEntrySpace(entry.__getValue());
    }
    return space;
}

}  // namespace oxil
