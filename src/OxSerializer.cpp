#include "OxSerializer.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <utility>

#include "OxLog.h"
#include "OxStatus.h"
#include "internal/OxDataArea.h"
#include "internal/OxNewDataArea.h"

namespace oxil {
namespace {

// Bytes of a character in UTF-8.
constexpr std::size_t LONGEST_CHARACTER = 4;

/** Looks for the first part of a payload that would not arrive as it is. Its steps are said once each
 *  in the program, and not where they are called: nobody waits for the little that this takes. */
class Inspection {
public:
    /** The part's name; none if everything would arrive. */
    const std::optional<std::string>& find() const { return __found; }

    [[gnu::noinline]] Inspection& entry(const KeyValue& entry)
    {
        const std::string& key = entry.__getKey();
        // An empty key is refused by the reader.
        if (!__found &&
            (key.empty() || !internal::survives(key) || !internal::survives(entry.__getValue()))) {
            __found = key;
        }
        return *this;
    }

    [[gnu::noinline]] Inspection& entries(const KeyValues& record)
    {
        for (const KeyValue& each : record.getKeyValues()) {
            entry(each);
        }
        return *this;
    }

    [[gnu::noinline]] Inspection& text(const std::string& text, const char* name)
    {
        if (!__found && !internal::survives(text)) {
            __found = name;
        }
        return *this;
    }

    /** Names or parameters. */
    template <typename Item>
    [[gnu::noinline]] Inspection& items(const std::vector<Item>& items, const char* name)
    {
        for (std::size_t i = 0; i < items.size() && !__found; ++i) {
            if (!internal::survives(items[i])) {
                __findAt(name, i);
            }
        }
        return *this;
    }

private:
    [[gnu::noinline]] void __findAt(const char* name, std::size_t position)
    {
        char part[32];
        std::snprintf(part, sizeof part, "%s[%zu]", name, position);
        __found = part;
    }

    std::optional<std::string> __found;
};

// A payload is told once, to two in turn: to a Describer, and then to a Writer. Both are told of the
// same parts in the same order, each with the block that it stands in.

/** Adds the types of a payload, up to the first that is refused. */
class Describer {
public:
    explicit Describer(SerializedData& target) : __target(target) {}

    /** STATUS_SUCCESS, or why a type was refused. */
    int status() const { return __status; }

    void text(int block, const std::string&) { __add(block, VARIANT_TYPE_STRING); }

    void texts(int block, const std::vector<std::string>& texts)
    {
        for (std::size_t i = 0; i < texts.size(); ++i) {
            __add(block, VARIANT_TYPE_STRING);
        }
    }

    void values(int block, const std::vector<Variant>& values)
    {
        for (const Variant& value : values) {
            __add(block, value.getType());
        }
    }

    void count(int block, int) { __add(block, VARIANT_TYPE_INT); }

    template <typename Entries>
    void entries(int block, const Entries& entries)
    {
        if (__status == STATUS_SUCCESS) {
            __status = entries.setSerializedDataInfo(block, __target);
        }
    }

private:
    void __add(int block, VariantType type)
    {
        if (__status == STATUS_SUCCESS) {
            __status = __target.addType(block, type);
        }
    }

    SerializedData& __target;
    int __status = STATUS_SUCCESS;
};

/**
 * Writes payloads one behind the other, and stops at the end of the buffer.
 *
 * What is written fits what was described, unless the target was described elsewhere before, or
 * an iterator yields other records than it did.
 */
class Writer {
public:
    Writer(char* buffer, std::size_t size) : __buffer(buffer), __size(size) {}

    /** Whether everything has found room so far. */
    bool isComplete() const { return __complete; }

    /** Bytes up to the end of what has been written. */
    std::size_t written() const { return __written; }

    void text(int, const std::string& text)
    {
        if (__fits(internal::TEXT_SLOT_SIZE)) {
            internal::copyTextSlot(__place(), text);
            __advance(static_cast<int>(internal::TEXT_SLOT_SIZE));
        }
    }

    void texts(int block, const std::vector<std::string>& texts)
    {
        for (const std::string& each : texts) {
            text(block, each);
        }
    }

    void values(int, const std::vector<Variant>& values)
    {
        for (const Variant& value : values) {
            if (__fits(static_cast<std::size_t>(internal::getValueSpace(value)))) {
                __advance(internal::writeValue(__place(), value));
            }
        }
    }

    void count(int, int count)
    {
        const std::int32_t number = count;
        if (__fits(sizeof number)) {
            std::memcpy(__place(), &number, sizeof number);
            __advance(sizeof number);
        }
    }

    template <typename Entries>
    void entries(int, const Entries& entries)
    {
        if (__fits(entries.__getSpace())) {
            __advance(entries.copySerializedData(__place()));
        }
    }

private:
    char* __place() const { return __buffer + __offset; }

    bool __fits(std::size_t size)
    {
        __complete = __complete && size <= __size - __offset;
        return __complete;
    }

    // A text that is too long steps back by one; many of them must not step out of the buffer.
    void __advance(int size)
    {
        if (size >= 0) {
            __offset += static_cast<std::size_t>(size);
            __written = std::max(__written, __offset);
        } else if (__offset > 0) {
            --__offset;
        }
    }

    char* __buffer;
    std::size_t __size;
    std::size_t __offset = 0;
    std::size_t __written = 0;
    bool __complete = true;
};

// ---- Lists of records. Each kind is walked with forEach(records, visit): visit takes a record and
// returns a status, and the walk ends at the first one that is not STATUS_SUCCESS.

template <typename Visit>
int forEach(const std::vector<KeyValues>& records, const Visit& visit)
{
    for (const KeyValues& record : records) {
        const int r = visit(record);
        if (r != STATUS_SUCCESS) {
            return r;
        }
    }
    return STATUS_SUCCESS;
}

template <typename Visit>
int forEach(const std::vector<KeyValues*>& records, const Visit& visit)
{
    for (const KeyValues* record : records) {
        const int r = record != nullptr ? visit(*record) : STATUS_SUCCESS;
        if (r != STATUS_SUCCESS) {
            return r;
        }
    }
    return STATUS_SUCCESS;
}

/** Throws std::out_of_range if there is no record. */
template <typename Record>
void requireFirst(const std::vector<Record>& records)
{
    static_cast<void>(records.at(0));
}

/** At most so many records from the place where the iterator was at first. */
struct Sequence {
    Sequence(IBidirectionalIterator<KeyValues*>* records, int most)
        : iterator(records), start(records->getPosition()), count(most)
    {
    }

    IBidirectionalIterator<KeyValues*>* iterator;
    int start;
    int count;
};

/** Fails with STATUS_INVALID_STATE, as no visit does, if it can't go back to the start. */
template <typename Visit>
int forEach(const Sequence& records, const Visit& visit)
{
    if (records.iterator->moveTo(records.start) != 0) {
        return STATUS_INVALID_STATE;
    }
    for (int taken = 0; !records.iterator->isEnd() && taken < records.count; ++taken) {
        const KeyValues* record = records.iterator->next();
        const int r = record != nullptr ? visit(*record) : STATUS_SUCCESS;
        if (r != STATUS_SUCCESS) {
            return r;
        }
    }
    return STATUS_SUCCESS;
}

/** An iterator without records gives an empty payload. */
void requireFirst(const Sequence&) {}

bool append(std::vector<KeyValues>& records, KeyValues&& record)
{
    records.push_back(std::move(record));
    return true;
}

/** False if there is no memory for the record. */
bool append(std::vector<KeyValues*>& records, KeyValues&& record)
{
    std::unique_ptr<KeyValues> copy(new (std::nothrow) KeyValues(std::move(record)));
    if (copy == nullptr) {
        return false;
    }
    records.push_back(copy.get());
    copy.release();
    return true;
}

/** Reads the parts of a payload, up to the first that can't be read. */
class Reader {
public:
    explicit Reader(const SerializedData& source) : __source(source) {}

    /** Whether every block could be decoded, and was what it should be. */
    bool isComplete() const { return __complete; }

    /** STATUS_SUCCESS, or why there are no entries where there should be. */
    int status() const { return __status; }

    template <typename Entries>
    void entries(int block, Entries& entries)
    {
        if (__isGood()) {
            __status = entries.deserialize(__source, block);
        }
    }

    void text(int block, std::string& text)
    {
        const std::vector<Variant>* values = __decode(block);
        if (values != nullptr && values->size() == 1) {
            text = values->front().toString();
        } else {
            __complete = false;
        }
    }

    void texts(int block, std::vector<std::string>& texts)
    {
        if (const std::vector<Variant>* values = __decode(block)) {
            texts.reserve(texts.size() + values->size());
            for (const Variant& value : *values) {
                texts.push_back(value.toString());
            }
        }
    }

    void values(int block, std::vector<Variant>& output)
    {
        if (const std::vector<Variant>* values = __decode(block)) {
            output = *values;
        }
    }

private:
    bool __isGood() const { return __complete && __status == STATUS_SUCCESS; }

    const std::vector<Variant>* __decode(int block)
    {
        const std::vector<Variant>* values = __isGood() ? __source.getValues(block) : nullptr;
        __complete = __complete && values != nullptr;
        return values;
    }

    const SerializedData& __source;
    int __status = STATUS_SUCCESS;
    bool __complete = true;
};

// ---- The steps that several members share. They are named after these members, because what they
// log names the function.

namespace steps {

int validate(const Inspection& inspection, std::string* where)
{
    if (!inspection.find()) {
        return STATUS_SUCCESS;
    }
    OX_ERROR("Not serializable (%s).", inspection.find()->c_str());
    if (where != nullptr) {
        *where = *inspection.find();
    }
    return STATUS_INVALID_PARAMETER;
}

template <typename Records>
int validateList(const Records& records, std::string* where)
{
    Inspection inspection;
    forEach(records, [&](const KeyValues& record) {
        inspection.entries(record);
        return STATUS_SUCCESS;
    });
    return validate(inspection, where);
}

/**
 * Describes, allocates, writes and hands over.
 *
 * @param describe  int(long long& space): adds the type entries; where more bytes are written than
 *                  these tell, it says how many
 * @param write     int(Writer&): writes the data
 */
template <typename Describe, typename Write>
int serialize(SerializedData& data, int blockCount, const Describe& describe, const Write& write)
{
    internal::NewDataArea area(data);
    data.setBlockCount(blockCount);

    long long space = 0;
    int r = describe(space);
    if (r == STATUS_INVALID_STATE) {
        OX_ERROR("Invalid state.");
        return r;
    }
    if (r != STATUS_SUCCESS) {
        OX_ERROR("r (%d).", r);
        return r;
    }

    if (!area.allocate(space)) {
        OX_ERROR("Memory allocation failed.");
        return STATUS_OUT_OF_MEMORY;
    }

    Writer writer(area.begin(), area.size());
    r = write(writer);
    if (r != STATUS_SUCCESS || !writer.isComplete()) {
        OX_ERROR("Invalid state.");
        return STATUS_INVALID_STATE;
    }
    return area.handOver(writer.written());
}

/** @param tell  void(auto& payload): tells the parts of the payload */
template <typename Tell>
int serialize(SerializedData& data, int blockCount, const Tell& tell)
{
    return serialize(
        data, blockCount,
        [&](long long&) {
            Describer describer(data);
            tell(describer);
            return describer.status();
        },
        [&](Writer& writer) {
            tell(writer);
            return STATUS_SUCCESS;
        });
}

// Lists are walked as often as it takes, and their parts are described in the order of the records,
// which shows in what is there after a failure.

template <typename Records>
int serializeList(const Records& records, SerializedData& data)
{
    return serialize(
        data, 2,
        [&](long long&) {
            return forEach(records, [&](const KeyValues& record) {
                Describer describer(data);
                describer.count(0, record.getCount());
                describer.entries(1, record);
                return describer.status();
            });
        },
        [&](Writer& writer) {
            const int r = forEach(records, [&](const KeyValues& record) {
                writer.count(0, record.getCount());
                return STATUS_SUCCESS;
            });
            return r != STATUS_SUCCESS ? r : forEach(records, [&](const KeyValues& record) {
                writer.entries(1, record);
                return STATUS_SUCCESS;
            });
        });
}

template <typename Records>
int serializeRepeated(const Records& records, SerializedData& data)
{
    return serialize(
        data, 1,
        [&](long long& space) {
            requireFirst(records);
            int count = 0;
            const int r = forEach(records, [&](const KeyValues& record) {
                // Records of another shape than the first may take more.
                space += static_cast<long long>(record.__getSpace());
                return ++count == 1 ? record.setSerializedDataInfo(0, data) : STATUS_SUCCESS;
            });
            if (r == STATUS_SUCCESS) {
                data.setRepeatCount(0, count);
            }
            return r;
        },
        [&](Writer& writer) {
            return forEach(records, [&](const KeyValues& record) {
                writer.entries(0, record);
                return STATUS_SUCCESS;
            });
        });
}

/** @param read  void(Reader&): reads the parts of the payload */
template <typename Read>
int deserialize(const SerializedData& data, int blockCount, const Read& read)
{
    if (data.getBlockCount() != blockCount) {
        OX_ERROR("Invalid block count (%d).", data.getBlockCount());
        return STATUS_INVALID_PARAMETER;
    }
    Reader reader(data);
    read(reader);
    if (reader.status() != STATUS_SUCCESS) {
        OX_ERROR("Invalid state.");
        return reader.status();
    }
    if (!reader.isComplete()) {
        OX_ERROR("values is nullptr.");
        return STATUS_INVALID_PARAMETER;
    }
    return STATUS_SUCCESS;
}

template <typename Records>
int deserialize(const SerializedData& data, Records& records)
{
    if (data.getBlockCount() != 2) {
        OX_ERROR("Invalid block count (%d).", data.getBlockCount());
        return STATUS_INVALID_PARAMETER;
    }
    const std::vector<Variant>* counts = data.getValues(0);
    const std::vector<Variant>* values = counts != nullptr ? data.getValues(1) : nullptr;
    if (values == nullptr) {
        OX_ERROR("values is nullptr.");
        return STATUS_INVALID_PARAMETER;
    }

    if (records.empty()) {
        records.reserve(counts->size());
    }
    auto position = values->begin();
    for (const Variant& value : *counts) {
        const int count = value.toInt();
        if (count <= 0) {
            continue;
        }
        if (count > (values->end() - position) / 2) {
            OX_ERROR("Invalid state.");
            return STATUS_INVALID_PARAMETER;
        }
        const auto end = position + 2 * count;
        KeyValues record;
        record.deserialize(position, end);
        if (!append(records, std::move(record))) {
            OX_ERROR("Memory allocation failed.");
            return STATUS_OUT_OF_MEMORY;
        }
        position = end;
    }
    return STATUS_SUCCESS;
}

template <typename Records>
int deserialize(const SerializedData& data, Records& records, Repeatable)
{
    if (data.getBlockCount() != 1) {
        OX_ERROR("Invalid block count (%d).", data.getBlockCount());
        return STATUS_INVALID_PARAMETER;
    }
    const std::vector<Variant>* values = data.getValues(0);
    if (values == nullptr) {
        OX_ERROR("values is nullptr.");
        return STATUS_INVALID_PARAMETER;
    }
    if (values->empty()) {
        return STATUS_SUCCESS;
    }

    const std::ptrdiff_t typeCount = data.getTypeCount();
    if (typeCount < 1) {
        // The values were decoded by an earlier description.
        return STATUS_SUCCESS;
    }
    if (records.empty()) {
        records.reserve(values->size() / static_cast<std::size_t>(typeCount));
    }
    for (auto position = values->begin(); position != values->end();) {
        // The last run is short where entries of unknown kinds were skipped.
        const auto end = position + std::min(typeCount, values->end() - position);
        KeyValues record;
        const int r = record.deserialize(position, end);
        if (r != STATUS_SUCCESS) {
            OX_ERROR("Invalid state.");
            return r;
        }
        if (!append(records, std::move(record))) {
            OX_ERROR("Memory allocation failed.");
            return STATUS_OUT_OF_MEMORY;
        }
        position = end;
    }
    return STATUS_SUCCESS;
}

}  // namespace steps
}  // namespace

int Serializer::validate(const KeyValue& entry, std::string* where)
{
    return steps::validate(Inspection().entry(entry), where);
}

int Serializer::validate(const KeyValues& record, std::string* where)
{
    return steps::validate(Inspection().entries(record), where);
}

int Serializer::validate(const KeyValues& record, const KeyValue& extra, std::string* where)
{
    return steps::validate(Inspection().entries(record).entry(extra), where);
}

int Serializer::validate(const KeyValues& record, const std::string& method,
                         const std::vector<Variant>& params, std::string* where)
{
    return steps::validate(
        Inspection().entries(record).text(method, "method").items(params, "params"), where);
}

int Serializer::validate(const std::string& method, const std::vector<Variant>& params,
                         std::string* where)
{
    return steps::validate(Inspection().text(method, "method").items(params, "params"), where);
}

int Serializer::validate(const std::string& method, const std::vector<Variant>& params,
                         const std::string& extra, std::string* where)
{
    return steps::validate(
        Inspection().text(method, "method").items(params, "params").text(extra, "extra"), where);
}

int Serializer::validate(const std::vector<std::string>& names, const std::string& method,
                         const std::vector<Variant>& params, const std::string& extra,
                         std::string* where)
{
    return steps::validate(Inspection()
                               .items(names, "names")
                               .text(method, "method")
                               .items(params, "params")
                               .text(extra, "extra"),
                           where);
}

int Serializer::validate(const std::vector<KeyValues>& records, std::string* where)
{
    return steps::validateList(records, where);
}

int Serializer::validate(const std::vector<KeyValues*>& records, std::string* where)
{
    return steps::validateList(records, where);
}

std::string Serializer::cutText(const std::string& text)
{
    const auto isContinued = [&](std::size_t end) {
        return (static_cast<unsigned char>(text.c_str()[end]) & 0xC0) == 0x80;
    };
    const std::size_t length = strnlen(text.c_str(), MAX_TEXT_LENGTH);
    std::size_t end = length;
    while (end > 0 && length - end < LONGEST_CHARACTER && isContinued(end)) {
        --end;
    }
    // What goes on for longer than any character is no UTF-8.
    return text.substr(0, length - end < LONGEST_CHARACTER ? end : length);
}

int Serializer::serialize(const KeyValue& entry, SerializedData& data)
{
    return entry.serialize(data);
}

int Serializer::serialize(const KeyValues& record, SerializedData& data)
{
    return record.serialize(data);
}

int Serializer::serialize(const std::string& key, const Variant& value, SerializedData& data)
{
    return KeyValue(key, value).serialize(data);
}

int Serializer::serialize(const KeyValues& record, const KeyValue& extra, SerializedData& data)
{
    return steps::serialize(data, 2, [&](auto& payload) {
        payload.entries(0, record);
        payload.entries(1, extra);
    });
}

int Serializer::serialize(const KeyValues& record, const std::string& method,
                          const std::vector<Variant>& params, SerializedData& data)
{
    return steps::serialize(data, 3, [&](auto& payload) {
        payload.entries(0, record);
        payload.text(1, method);
        payload.values(2, params);
    });
}

int Serializer::serialize(const std::string& method, const std::vector<Variant>& params,
                          SerializedData& data)
{
    return steps::serialize(data, 2, [&](auto& payload) {
        payload.text(0, method);
        payload.values(1, params);
    });
}

int Serializer::serialize(const std::string& method, const std::vector<Variant>& params,
                          const std::string& extra, SerializedData& data)
{
    return steps::serialize(data, 3, [&](auto& payload) {
        payload.text(0, method);
        payload.values(1, params);
        payload.text(2, extra);
    });
}

int Serializer::serialize(const std::vector<std::string>& names, const std::string& method,
                          const std::vector<Variant>& params, const std::string& extra,
                          SerializedData& data)
{
    return steps::serialize(data, 4, [&](auto& payload) {
        payload.texts(0, names);
        payload.text(1, method);
        payload.values(2, params);
        payload.text(3, extra);
    });
}

int Serializer::serialize(const std::vector<KeyValues>& records, SerializedData& data)
{
    return steps::serializeList(records, data);
}

int Serializer::serialize(const std::vector<KeyValues*>& records, SerializedData& data)
{
    return steps::serializeList(records, data);
}

int Serializer::serialize(const std::vector<KeyValues>& records, SerializedData& data, Repeatable)
{
    return steps::serializeRepeated(records, data);
}

int Serializer::serialize(const std::vector<KeyValues*>& records, SerializedData& data, Repeatable)
{
    return steps::serializeRepeated(records, data);
}

int Serializer::serialize(IBidirectionalIterator<KeyValues*>* iterator, int count,
                          SerializedData& data)
{
    if (iterator == nullptr) {
        OX_ERROR("Invalid parameter.");
        return STATUS_INVALID_PARAMETER;
    }
    return steps::serializeList(Sequence(iterator, count), data);
}

int Serializer::serialize(IBidirectionalIterator<KeyValues*>* iterator, int count,
                          SerializedData& data, Repeatable)
{
    if (iterator == nullptr) {
        OX_ERROR("Invalid parameter.");
        return STATUS_INVALID_PARAMETER;
    }
    return steps::serializeRepeated(Sequence(iterator, count), data);
}

int Serializer::deserialize(const SerializedData& data, KeyValue& entry)
{
    return entry.deserialize(data);
}

int Serializer::deserialize(const SerializedData& data, KeyValues& record)
{
    return record.deserialize(data);
}

int Serializer::deserialize(const SerializedData& data, std::string& key, Variant& value)
{
    const KeyValue entry(data);
    key = entry.getKey();
    value = entry.getValue();
    return STATUS_SUCCESS;
}

int Serializer::deserialize(const SerializedData& data, KeyValues& record, KeyValue& extra)
{
    return steps::deserialize(data, 2, [&](Reader& payload) {
        payload.entries(0, record);
        payload.entries(1, extra);
    });
}

int Serializer::deserialize(const SerializedData& data, KeyValues& record, std::string& method,
                            std::vector<Variant>& params)
{
    return steps::deserialize(data, 3, [&](Reader& payload) {
        payload.entries(0, record);
        payload.text(1, method);
        payload.values(2, params);
    });
}

int Serializer::deserialize(const SerializedData& data, std::string& method,
                            std::vector<Variant>& params)
{
    return steps::deserialize(data, 2, [&](Reader& payload) {
        payload.text(0, method);
        payload.values(1, params);
    });
}

int Serializer::deserialize(const SerializedData& data, std::string& method,
                            std::vector<Variant>& params, std::string& extra)
{
    return steps::deserialize(data, 3, [&](Reader& payload) {
        payload.text(0, method);
        payload.values(1, params);
        payload.text(2, extra);
    });
}

int Serializer::deserialize(const SerializedData& data, std::vector<std::string>& names,
                            std::string& method, std::vector<Variant>& params, std::string& extra)
{
    return steps::deserialize(data, 4, [&](Reader& payload) {
        payload.texts(0, names);
        payload.text(1, method);
        payload.values(2, params);
        payload.text(3, extra);
    });
}

int Serializer::deserialize(const SerializedData& data, std::vector<KeyValues>& records)
{
    return steps::deserialize(data, records);
}

int Serializer::deserialize(const SerializedData& data, std::vector<KeyValues*>& records)
{
    return steps::deserialize(data, records);
}

int Serializer::deserialize(const SerializedData& data, std::vector<KeyValues>& records,
                            Repeatable repeatable)
{
    return steps::deserialize(data, records, repeatable);
}

int Serializer::deserialize(const SerializedData& data, std::vector<KeyValues*>& records,
                            Repeatable repeatable)
{
    return steps::deserialize(data, records, repeatable);
}

int Serializer::getSerializableCount(const KeyValues& record)
{
    return MAX_TYPE_COUNT / (2 * record.getCount());
}

}  // namespace oxil
