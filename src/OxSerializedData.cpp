#include "OxSerializedData.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <new>
#include <type_traits>

#include "OxLog.h"
#include "OxStatus.h"
#include "internal/OxDataArea.h"
#include "internal/OxDescription.h"
#include "internal/OxTypeList.h"

namespace oxil {
namespace {

// A repeat count is not checked before decoding, so it must not decide alone how much memory is
// asked for in advance.
constexpr long long MOST_RESERVED_VALUES = 65536;

// What a value takes when it is decoded, and what a text takes besides: memory for 255 characters,
// whatever the size of its slot. These are a 64-bit host's numbers, and the rule on all of them.
constexpr long long BYTES_OF_VALUE = 48;
constexpr long long BYTES_OF_TEXT = 272;
static_assert(sizeof(Variant) <= BYTES_OF_VALUE);
static_assert(BYTES_OF_VALUE + BYTES_OF_TEXT <= internal::MOST_BYTES_OF_VALUE);

// What is decoded by default: enough for every description without repetitions, and then in
// proportion to what arrived.
constexpr long long BYTES_OF_ANY_MESSAGE = 4 * 1024 * 1024;
constexpr long long BYTES_FOR_EACH_RECEIVED = 16;
static_assert(MAX_BLOCK_COUNT * MAX_TYPE_COUNT * (BYTES_OF_VALUE + BYTES_OF_TEXT) <=
              BYTES_OF_ANY_MESSAGE);

constexpr int TEXT_SIZE = static_cast<int>(internal::TEXT_SLOT_SIZE);
static_assert(TEXT_SIZE == MAX_TEXT_LENGTH + 1);

// Sums and products of an unchecked description wrap around instead of overflowing.
int add(int left, int right)
{
    return static_cast<int>(static_cast<unsigned int>(left) + static_cast<unsigned int>(right));
}

int multiply(int left, int right)
{
    return static_cast<int>(static_cast<unsigned int>(left) * static_cast<unsigned int>(right));
}

/** What a SerializedData has as its description. */
struct Description {
    SerializationInfo info;  // first: a pointer to it is one to all of this
    bool isComplete;         // whether the type entries that are not in use are zero, too
};
static_assert(std::is_standard_layout_v<Description>);

Description* descriptionOf(SerializationInfo* info) noexcept
{
    return reinterpret_cast<Description*>(info);
}

/** Takes away all types. */
void clear(Description& description) noexcept
{
    // To clear the type entries takes ten times as long as to pack a record: that waits until
    // someone looks at all of them.
    std::memset(&description.info, 0, offsetof(SerializationInfo, types));
    description.isComplete = false;
}

/** Makes a description without types; null if there is no memory. */
SerializationInfo* makeInfo() noexcept
{
    auto* description = new (std::nothrow) Description;
    if (description == nullptr) {
        return nullptr;
    }
    clear(*description);
    return &description->info;
}

SerializationInfo* makeInfo(const SerializationInfo& info) noexcept
{
    auto* description = new (std::nothrow) Description{info, true};
    return description != nullptr ? &description->info : nullptr;
}

/** Zeroes the type entries that are not in use. */
void complete(Description& description) noexcept
{
    SerializationInfo& info = description.info;
    for (int block = 0; block < MAX_BLOCK_COUNT; ++block) {
        const auto used = static_cast<std::size_t>(info.typeCount[block]);
        const std::size_t unused = MAX_TYPE_COUNT - used;
        std::memset(info.types[block] + used, 0, unused * sizeof info.types[block][0]);
        std::memset(info.typeSizes[block] + used, 0, unused * sizeof info.typeSizes[block][0]);
    }
    description.isComplete = true;
}

/** Bytes of data, as far as an int can count them. */
long long toAvailable(std::size_t size)
{
    return static_cast<long long>(std::min(size, static_cast<std::size_t>(INT_MAX)));
}

/** Appends the value of a known kind that stands at a place; false for an unknown kind. */
bool decode(int type, const void* place, std::size_t size, std::vector<Variant>& values)
{
    if (type == VARIANT_TYPE_STRING) {
        const auto* text = static_cast<const char*>(place);
        values.emplace_back(Variant::__Slice(), text, strnlen(text, internal::TEXT_SLOT_SIZE - 1));
        return true;
    }
    // In one place for all kinds: what makes room is built in where the list grows.
    Variant& value = values.emplace_back();
    if (!internal::readNumber(type, place, size, [&](auto number) { value = Variant(number); })) {
        values.pop_back();
        return false;
    }
    return true;
}

}  // namespace

SerializedData::SerializedData() : SerializedData(1) {}

SerializedData::SerializedData(int blockCount) : __info(makeInfo())
{
    if (__info == nullptr) {
        OX_ERROR("Memory allocation failed.");
        return;
    }
    if (blockCount > MAX_BLOCK_COUNT - 1) {
        OX_ERROR("Invalid block count (%d).", blockCount);
        return;
    }
    __info->blockCount = blockCount;
}

SerializedData::SerializedData(const SerializationInfo& info) : __info(makeInfo(info))
{
    if (__info == nullptr) {
        OX_ERROR("Memory allocation failed.");
    }
}

SerializedData::~SerializedData()
{
    for (std::vector<Variant>& values : __values) {
        std::vector<Variant>().swap(values);
    }
    __dropData();
    delete descriptionOf(__info);
}

DecodingLimits SerializedData::getDefaultLimits(std::size_t size)
{
    return {INT_MAX, BYTES_OF_ANY_MESSAGE + BYTES_FOR_EACH_RECEIVED * toAvailable(size)};
}

int SerializedData::validate(const SerializationInfo& info, std::size_t size)
{
    return validate(info, size, getDefaultLimits(size));
}

int SerializedData::validate(const SerializationInfo& info, std::size_t size,
                             const DecodingLimits& limits)
{
    long long needed = 0;
    return internal::validate(info, toAvailable(size), limits, false, needed);
}

int internal::validate(const SerializationInfo& info, long long available,
                       const DecodingLimits& limits, bool unknownKinds, long long& needed)
{
    if (info.blockCount < 0 || info.blockCount > MAX_BLOCK_COUNT) {
        OX_ERROR("Invalid block count (%d).", info.blockCount);
        return STATUS_INVALID_PARAMETER;
    }

    // Everything has to fit an int, because that is what the getters count in. Nothing overflows
    // here: a block's bytes are known to fit an int before they are multiplied by the repetitions.
    long long start = 0;
    needed = 0;
    long long values = 0;
    long long bytes = 0;  // of the values, decoded
    for (int block = 0; block < info.blockCount; ++block) {
        const int typeCount = info.typeCount[block];
        if (typeCount < 0 || typeCount > MAX_TYPE_COUNT) {
            OX_ERROR("Invalid type count (%d).", typeCount);
            return STATUS_INVALID_PARAMETER;
        }

        long long textCount = 0;
        long long end = 0;    // of the entries so far, in one repetition
        long long reach = 0;  // where reading them may end: a text is read whatever its size
        for (int i = 0; i < typeCount; ++i) {
            const auto type = static_cast<VariantType>(info.types[block][i]);
            const int typeSize = info.typeSizes[block][i];
            int widest = type == VARIANT_TYPE_STRING ? INT_MAX : Variant::__getNumberSize(type);
            if (widest < 0 && unknownKinds) {
                widest = INT_MAX;  // it takes room, and is not read
            }
            if (widest < 0) {
                OX_ERROR("Invalid type (%d).", type);
                return STATUS_INVALID_PARAMETER;
            }
            if (typeSize < 1 || typeSize > widest) {
                OX_ERROR("Invalid type size (%d).", typeSize);
                return STATUS_INVALID_PARAMETER;
            }
            if (type == VARIANT_TYPE_STRING) {
                ++textCount;
                reach = std::max(reach, end + TEXT_SIZE - 1);
            }
            end += typeSize;
        }
        reach = std::max(reach, end);

        if (info.dataSize[block] != end) {
            OX_ERROR("Invalid data size (%d).", info.dataSize[block]);
            return STATUS_INVALID_PARAMETER;
        }
        const long long repeatCount = std::max(info.repeatCount[block], 1);
        needed = std::max(needed, start + end * (repeatCount - 1) + reach);
        if (needed > available) {
            OX_ERROR("Data is too short (%d).", block);
            return STATUS_INVALID_PARAMETER;
        }
        start += end * repeatCount;

        // Every value has at least one byte of those that are there, so these don't overflow.
        values += typeCount * repeatCount;
        if (values > limits.values) {
            OX_ERROR("Too many values (%lld).", values);
            return STATUS_CAPACITY_EXCEEDED;
        }
        bytes += (typeCount * BYTES_OF_VALUE + textCount * BYTES_OF_TEXT) * repeatCount;
        if (bytes > limits.bytes) {
            OX_ERROR("Too large when decoded (%lld).", bytes);
            return STATUS_CAPACITY_EXCEEDED;
        }
    }
    return STATUS_SUCCESS;
}

void SerializedData::setBlockCount(int count)
{
    if (count < 1) {
        OX_ERROR("Invalid parameter (%d).", count);
        return;
    }
    if (count > MAX_BLOCK_COUNT) {
        OX_ERROR("Invalid block count (%d).", count);
        return;
    }
    __info->blockCount = count;
}

int SerializedData::getBlockCount() const
{
    return __info->blockCount;
}

int SerializedData::addType(int block, VariantType type, int size)
{
    if (size < 1) {
        OX_ERROR("Invalid parameter (%d).", size);
        return STATUS_INVALID_PARAMETER;
    }
    if (!__isValidBlock(block)) {
        OX_ERROR("Invalid parameter (%d).", block);
        return STATUS_INVALID_PARAMETER;
    }
    if (internal::TypeList types(*__info, block); types.hasRoom(1)) {
        types.append(type, size);
        return STATUS_SUCCESS;
    }
    OX_ERROR("Max exceeded (%d).", __info->typeCount[block]);
    return STATUS_CAPACITY_EXCEEDED;
}

int SerializedData::addType(int block, VariantType type)
{
    if (!__isValidBlock(block)) {
        OX_ERROR("Invalid parameter (%d).", block);
        return STATUS_INVALID_PARAMETER;
    }
    return addType(block, type, __getTypeSize(type));
}

int SerializedData::addType(VariantType type, int size)
{
    if (size < 1) {
        OX_ERROR("Invalid parameter (%d).", size);
        return STATUS_INVALID_PARAMETER;
    }
    return addType(0, type, size);
}

int SerializedData::addType(VariantType type)
{
    return addType(0, type, __getTypeSize(type));
}

void SerializedData::setRepeatCount(int block, int count)
{
    if (!__isValidBlock(block)) {
        OX_ERROR("Invalid parameter (%d).", block);
        return;
    }
    __info->repeatCount[block] = count;
}

int SerializedData::getRepeatCount(int block) const
{
    if (!__isValidBlock(block)) {
        OX_ERROR("Invalid parameter (%d).", block);
        return STATUS_FAILURE;
    }
    return __info->repeatCount[block];
}

int SerializedData::getTypeCount(int block) const
{
    if (!__isValidBlock(block)) {
        OX_ERROR("Invalid parameter (%d).", block);
        return STATUS_FAILURE;
    }
    return __info->typeCount[block];
}

int SerializedData::getTypeCount() const
{
    return getTypeCount(0);
}

int SerializedData::getDataSize(int block) const
{
    if (!__isValidBlock(block)) {
        OX_ERROR("Invalid parameter (%d).", block);
        return STATUS_FAILURE;
    }
    return multiply(__info->dataSize[block], std::max(__info->repeatCount[block], 1));
}

int SerializedData::getDataSize() const
{
    return getDataSize(0);
}

int SerializedData::getTotalDataSize() const
{
    return __getOffset(std::min(__info->blockCount, MAX_BLOCK_COUNT));
}

int SerializedData::setData(const void* data)
{
    if (data == nullptr) {
        OX_ERROR("Invalid parameter.");
        return STATUS_INVALID_PARAMETER;
    }
    __replaceData(const_cast<void*>(data), false);
    return STATUS_SUCCESS;
}

int SerializedData::setData(void* data, TransferOwnership)
{
    if (data == nullptr) {
        OX_ERROR("Invalid parameter.");
        return STATUS_INVALID_PARAMETER;
    }
    __replaceData(data, true);
    return STATUS_SUCCESS;
}

void* SerializedData::getData() const
{
    return __data;
}

void* SerializedData::getData(int block) const
{
    if (!__isValidBlock(block)) {
        OX_ERROR("Invalid parameter (%d).", block);
        return nullptr;
    }
    const int offset = __getOffset(block);
    // As numbers: there may be no data area to point into.
    void* start = reinterpret_cast<void*>(reinterpret_cast<std::uintptr_t>(__data) +
                                          static_cast<std::uintptr_t>(offset));
    if (start == nullptr) {
        OX_ERROR("Invalid ptr offset (%d).", offset);
    }
    return start;
}

int SerializedData::setSerializationInfo(const SerializationInfo& info)
{
    *__info = info;
    descriptionOf(__info)->isComplete = true;
    return STATUS_SUCCESS;
}

const SerializationInfo& SerializedData::getSerializationInfo() const
{
    if (Description& description = *descriptionOf(__info); !description.isComplete) {
        complete(description);
    }
    return *__info;
}

int SerializedData::__getTypeSize(VariantType type) const
{
    return internal::getTypeSpace(type);
}

void SerializedData::setRemained(bool remained)
{
    __remained = remained;
}

bool SerializedData::isRemained() const
{
    return __remained;
}

void SerializedData::setContextId(unsigned int contextId)
{
    __contextId = contextId;
}

unsigned int SerializedData::getContextId() const
{
    return __contextId;
}

[[gnu::flatten]] const std::vector<Variant>* SerializedData::getValues(int block) const
{
    if (!__isValidBlock(block)) {
        OX_ERROR("Invalid parameter (%d).", block);
        return nullptr;
    }
    std::vector<Variant>& values = __values[block];
    if (!values.empty()) {
        return &values;
    }
    if (__data == nullptr) {
        OX_ERROR("__data is nullptr.");
        return nullptr;
    }
    const void* start = getData(block);
    if (start == nullptr) {
        OX_ERROR("basePtr is nullptr.");
        return nullptr;
    }
    const int typeCount = getTypeCount(block);
    if (typeCount > MAX_TYPE_COUNT) {
        OX_ERROR("Max exceeded (%d).", typeCount);
        return nullptr;
    }

    const std::uint8_t* types = __info->types[block];
    const std::int32_t* sizes = __info->typeSizes[block];
    const long long total =
        static_cast<long long>(typeCount) * std::max(__info->repeatCount[block], 1);
    try {
        if (total > 0) {
            values.reserve(static_cast<std::size_t>(std::min(total, MOST_RESERVED_VALUES)));
        }

        // A number, because only a number can come out as null by going on.
        std::uintptr_t place = reinterpret_cast<std::uintptr_t>(start);
        for (long long left = total; left > 0;) {
            if (values.capacity() - values.size() < static_cast<std::size_t>(typeCount)) {
                // Twice as many, as the list would do itself, but no more than there will be.
                values.reserve(static_cast<std::size_t>(
                    std::min(total, 2 * static_cast<long long>(values.size()))));
            }
            for (int k = 0; k < typeCount; ++k) {
                const int size = sizes[k];
                if (size < 1) {
                    OX_ERROR("Invalid copySize (%d).", size);
                    return nullptr;
                }
                if (decode(types[k], reinterpret_cast<const void*>(place),
                           static_cast<std::size_t>(size), values)) {
                    place += static_cast<std::uintptr_t>(size);
                } else {
                    OX_ERROR("Invalid type (%d).", types[k]);
                }
                --left;
                // GCOVR_EXCL_START: so high up a 32-bit process alone may have its data.
                if (place == 0 && left > 0) {
                    OX_ERROR("ptr is nullptr.");
                    return nullptr;
                }
                // GCOVR_EXCL_STOP
            }
        }
    } catch (...) {
        // The next call would take what is there for the whole.
        values.clear();
        throw;
    }
    return &values;
}

const std::vector<Variant>* SerializedData::getValues() const
{
    return getValues(0);
}

SerializationInfo& SerializedData::__restart() noexcept
{
    for (std::vector<Variant>& values : __values) {
        std::vector<Variant>().swap(values);
    }
    __dropData();
    clear(*descriptionOf(__info));
    return *__info;
}

bool SerializedData::__isValidBlock(int block) const noexcept
{
    return block >= 0 && block < __info->blockCount && block < MAX_BLOCK_COUNT;
}

/** Where a block starts in the data area: behind all the blocks before it. */
int SerializedData::__getOffset(int block) const
{
    int offset = 0;
    for (int i = 0; i < block; ++i) {
        offset = add(offset, getDataSize(i));
    }
    return offset;
}

void SerializedData::__replaceData(void* data, bool owned)
{
    void* previous = __data;
    __data = data;
    __ownsData = owned;
    if (previous != nullptr) {
        __release(previous);
    }
}

void SerializedData::__dropData() noexcept
{
    if (__ownsData) {
        __release(__data);
    }
    __data = nullptr;
    __ownsData = false;
}

}  // namespace oxil
