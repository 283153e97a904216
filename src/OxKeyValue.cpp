#include "OxKeyValue.h"

#include <cstring>

#include "OxLog.h"
#include "OxSerializedData.h"
#include "OxStatus.h"
#include "internal/OxDataArea.h"
#include "internal/OxNewDataArea.h"

namespace oxil {

KeyValue::KeyValue(const SerializedData& data)
{
    deserialize(data);
}

void KeyValue::set(const std::string& key, const Variant& value)
{
    if (key.empty()) {
        OX_ERROR("Invalid parameter");
        return;
    }
    *this = KeyValue(key, value);
}

void KeyValue::setKey(const std::string& key)
{
    if (key.empty()) {
        OX_ERROR("Invalid parameter");
        return;
    }
    __key = key;
}

int KeyValue::setSerializedDataInfo(int block, SerializedData& data) const
{
    int r = data.addType(block, VARIANT_TYPE_STRING);
    if (r != STATUS_SUCCESS) {
        OX_ERROR("r (%d).", r);
        return r;
    }
    r = data.addType(block, __value.getType());
    if (r != STATUS_SUCCESS) {
        OX_ERROR("r (%d).", r);
        return r;
    }
    return STATUS_SUCCESS;
}

int KeyValue::setSerializedDataInfo(SerializedData& data) const
{
    return setSerializedDataInfo(0, data);
}

int KeyValue::copySerializedData(void* destination) const
{
    if (destination == nullptr) {
        OX_ERROR("data is nullptr.");
        return STATUS_FAILURE;
    }
    return internal::writeEntry(destination, __key, __value);
}

int KeyValue::copySerializedData(void* destination, int size) const
{
    if (destination == nullptr) {
        OX_ERROR("data is nullptr.");
        return STATUS_FAILURE;
    }
    if (size < 1) {
        OX_ERROR("Invalid size( %d)", size);
        return STATUS_FAILURE;
    }
    const int needed =
        internal::getValueSpace(__value) + static_cast<int>(internal::TEXT_SLOT_SIZE);
    if (size < needed) {
        OX_ERROR("Invalid checkSize (%d) size( %d)", needed, size);
        return STATUS_FAILURE;
    }
    if (static_cast<std::size_t>(size) < internal::TEXT_SLOT_SIZE) {
        // A value that can't be written counts -1, and so makes do with less than the key's slot.
        char entry[2 * internal::TEXT_SLOT_SIZE];
        const int copied = copySerializedData(entry);
        std::memcpy(destination, entry, static_cast<std::size_t>(size));
        return copied;
    }
    return copySerializedData(destination);
}

int KeyValue::serialize(SerializedData& data) const
{
    internal::NewDataArea area(data);
    setSerializedDataInfo(data);

    const int size = data.getDataSize();
    if (size < 1) {
        OX_ERROR("Invalid data size (%d).", size);
        return STATUS_INVALID_STATE;
    }
    // A description that was refused may be smaller than what is written all the same.
    if (!area.allocate(static_cast<long long>(__getSpace()))) {
        OX_ERROR("Memory allocation failed.");
        return STATUS_OUT_OF_MEMORY;
    }
    return area.handOver(static_cast<std::size_t>(copySerializedData(area.begin())));
}

int KeyValue::deserialize(const SerializedData& data, int block)
{
    const std::vector<Variant>* values = data.getValues(block);
    if (values == nullptr) {
        OX_ERROR("values is nullptr.");
        return STATUS_INVALID_STATE;
    }
    if (values->empty() || values->size() % 2 != 0) {
        OX_ERROR("Invalid key-value pair.");
        return STATUS_INVALID_STATE;
    }
    set((*values)[0].toString(), (*values)[1]);
    return STATUS_SUCCESS;
}

int KeyValue::deserialize(const SerializedData& data)
{
    return deserialize(data, 0);
}

/** Bytes that copySerializedData() may write. */
std::size_t KeyValue::__getSpace() const noexcept
{
    return internal::getEntrySpace(__value);
}

}  // namespace oxil
