#include "Payload.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <stdexcept>

#include "OxIBidirectionalIterator.h"
#include "OxSerializer.h"
#include "OxStatus.h"
#include "Records.h"

namespace oxil::test {

namespace {

Variant variantOf(const GoldenValue& value)
{
    const auto integer = [&] { return std::get<std::int64_t>(value.content); };
    const auto natural = [&] { return std::get<std::uint64_t>(value.content); };
    const auto floating = [&] { return std::get<double>(value.content); };

    switch (value.kind) {
        case GoldenKind::Int:
            return Variant(static_cast<int>(integer()));
        case GoldenKind::UInt:
            return Variant(static_cast<unsigned int>(natural()));
        case GoldenKind::Long:
            return Variant(static_cast<long>(integer()));
        case GoldenKind::ULong:
            return Variant(static_cast<unsigned long>(natural()));
        case GoldenKind::LongLong:
            return Variant(static_cast<long long>(integer()));
        case GoldenKind::ULongLong:
            return Variant(static_cast<unsigned long long>(natural()));
        case GoldenKind::Float:
            return Variant(static_cast<float>(floating()));
        case GoldenKind::Double:
            return Variant(floating());
        case GoldenKind::Bool:
            return Variant(natural() != 0);
        case GoldenKind::Text:
            return Variant(std::get<std::string>(value.content));
    }
    return Variant();
}

KeyValue entryOf(const GoldenEntry& entry)
{
    return KeyValue(entry.key, variantOf(entry.value));
}

// Which parts of a payload a layout carries.
bool hasEntry(GoldenLayout layout)
{
    return layout == GoldenLayout::Entry || layout == GoldenLayout::RecordAndEntry;
}

bool hasMethod(GoldenLayout layout)
{
    return layout == GoldenLayout::RecordAndMethod || layout == GoldenLayout::Method ||
           layout == GoldenLayout::MethodAndText || layout == GoldenLayout::NamesMethodAndText;
}

bool hasText(GoldenLayout layout)
{
    return layout == GoldenLayout::MethodAndText || layout == GoldenLayout::NamesMethodAndText;
}

// Texts of all values, because 0.0 equals -0.0.
std::vector<std::string> textsOf(const std::vector<Variant>& values)
{
    std::vector<std::string> texts;
    for (const Variant& value : values) {
        texts.push_back(value.toString());
    }
    return texts;
}

class ListIterator : public IBidirectionalIterator<KeyValues*> {
public:
    explicit ListIterator(const std::vector<KeyValues*>& records) : __records(records) {}

    int moveTo(int position) override
    {
        __next = static_cast<std::size_t>(position);
        return 0;
    }
    KeyValues* next() override { return __records.at(__next++); }
    int getPosition() override { return static_cast<int>(__next); }
    bool isEnd() override { return __next == __records.size(); }

private:
    std::vector<KeyValues*> __records;
    std::size_t __next = 0;
};

void adopt(const std::vector<KeyValues*>& pointers, std::vector<KeyValues>& records)
{
    for (KeyValues* const pointer : pointers) {
        records.push_back(*std::unique_ptr<KeyValues>(pointer));
    }
}

}  // namespace

Payload payloadOf(const GoldenPayload& golden)
{
    Payload payload;
    for (const GoldenRecord& entries : golden.records) {
        payload.records.emplace_back();
        for (const GoldenEntry& entry : entries) {
            if (payload.records.back().add(entryOf(entry)) != STATUS_SUCCESS) {
                throw std::logic_error("no payload: " + golden.name);
            }
        }
    }
    payload.entry = entryOf(golden.entry);
    payload.names = golden.names;
    payload.method = golden.method;
    for (const GoldenValue& value : golden.params) {
        payload.params.push_back(variantOf(value));
    }
    payload.text = golden.text;
    return payload;
}

std::string difference(const GoldenPayload& golden, const Payload& unpacked)
{
    Payload expected = payloadOf(golden);
    const auto isEmpty = [](const KeyValues& record) { return record.getCount() == 0; };
    expected.records.erase(
        std::remove_if(expected.records.begin(), expected.records.end(), isEmpty),
        expected.records.end());

    if (unpacked.records.size() != expected.records.size()) {
        return "number of records";
    }
    for (std::size_t i = 0; i < expected.records.size(); ++i) {
        if (!(unpacked.records[i] == expected.records[i]) ||
            textsOf(unpacked.records[i].getValues()) != textsOf(expected.records[i].getValues())) {
            return "record " + std::to_string(i);
        }
    }
    if (hasEntry(golden.layout) && !(unpacked.entry == expected.entry)) {
        return "entry";
    }
    if (hasMethod(golden.layout)) {
        if (unpacked.names != expected.names) {
            return "names";
        }
        if (unpacked.method != expected.method) {
            return "method";
        }
        if (!(unpacked.params == expected.params) ||
            textsOf(unpacked.params) != textsOf(expected.params)) {
            return "parameters";
        }
    }
    if (hasText(golden.layout) && unpacked.text != expected.text) {
        return "text";
    }
    return {};
}

std::vector<Pack> packsOf(GoldenLayout layout)
{
    switch (layout) {
        case GoldenLayout::Entry:
            return {[](Payload& in, SerializedData& data) {
                        return Serializer::serialize(in.entry, data);
                    },
                    [](Payload& in, SerializedData& data) {
                        return Serializer::serialize(in.entry.getKey(), in.entry.getValue(), data);
                    }};
        case GoldenLayout::Record:
            return {[](Payload& in, SerializedData& data) {
                return Serializer::serialize(in.records.at(0), data);
            }};
        case GoldenLayout::RecordAndEntry:
            return {[](Payload& in, SerializedData& data) {
                return Serializer::serialize(in.records.at(0), in.entry, data);
            }};
        case GoldenLayout::RecordAndMethod:
            return {[](Payload& in, SerializedData& data) {
                return Serializer::serialize(in.records.at(0), in.method, in.params, data);
            }};
        case GoldenLayout::Method:
            return {[](Payload& in, SerializedData& data) {
                return Serializer::serialize(in.method, in.params, data);
            }};
        case GoldenLayout::MethodAndText:
            return {[](Payload& in, SerializedData& data) {
                return Serializer::serialize(in.method, in.params, in.text, data);
            }};
        case GoldenLayout::NamesMethodAndText:
            return {[](Payload& in, SerializedData& data) {
                return Serializer::serialize(in.names, in.method, in.params, in.text, data);
            }};
        case GoldenLayout::List:
            return {[](Payload& in, SerializedData& data) {
                        return Serializer::serialize(in.records, data);
                    },
                    [](Payload& in, SerializedData& data) {
                        return Serializer::serialize(pointersTo(in.records), data);
                    },
                    [](Payload& in, SerializedData& data) {
                        ListIterator iterator(pointersTo(in.records));
                        return Serializer::serialize(&iterator, 1000, data);
                    }};
        case GoldenLayout::RepeatedList:
            return {[](Payload& in, SerializedData& data) {
                        return Serializer::serialize(in.records, data, REPEATABLE);
                    },
                    [](Payload& in, SerializedData& data) {
                        return Serializer::serialize(pointersTo(in.records), data, REPEATABLE);
                    },
                    [](Payload& in, SerializedData& data) {
                        ListIterator iterator(pointersTo(in.records));
                        return Serializer::serialize(&iterator, 1000, data, REPEATABLE);
                    }};
    }
    return {};
}

std::vector<Unpack> unpacksOf(GoldenLayout layout)
{
    switch (layout) {
        case GoldenLayout::Entry:
            return {[](const SerializedData& data, Payload& out) {
                        return Serializer::deserialize(data, out.entry);
                    },
                    [](const SerializedData& data, Payload& out) {
                        std::string key;
                        Variant value;
                        const int result = Serializer::deserialize(data, key, value);
                        out.entry = KeyValue(key, value);
                        return result;
                    }};
        case GoldenLayout::Record:
            return {[](const SerializedData& data, Payload& out) {
                out.records.resize(1);
                return Serializer::deserialize(data, out.records[0]);
            }};
        case GoldenLayout::RecordAndEntry:
            return {[](const SerializedData& data, Payload& out) {
                out.records.resize(1);
                return Serializer::deserialize(data, out.records[0], out.entry);
            }};
        case GoldenLayout::RecordAndMethod:
            return {[](const SerializedData& data, Payload& out) {
                out.records.resize(1);
                return Serializer::deserialize(data, out.records[0], out.method, out.params);
            }};
        case GoldenLayout::Method:
            return {[](const SerializedData& data, Payload& out) {
                return Serializer::deserialize(data, out.method, out.params);
            }};
        case GoldenLayout::MethodAndText:
            return {[](const SerializedData& data, Payload& out) {
                return Serializer::deserialize(data, out.method, out.params, out.text);
            }};
        case GoldenLayout::NamesMethodAndText:
            return {[](const SerializedData& data, Payload& out) {
                return Serializer::deserialize(data, out.names, out.method, out.params, out.text);
            }};
        case GoldenLayout::List:
            return {[](const SerializedData& data, Payload& out) {
                        return Serializer::deserialize(data, out.records);
                    },
                    [](const SerializedData& data, Payload& out) {
                        std::vector<KeyValues*> pointers;
                        const int result = Serializer::deserialize(data, pointers);
                        adopt(pointers, out.records);
                        return result;
                    }};
        case GoldenLayout::RepeatedList:
            return {[](const SerializedData& data, Payload& out) {
                        return Serializer::deserialize(data, out.records, REPEATABLE);
                    },
                    [](const SerializedData& data, Payload& out) {
                        std::vector<KeyValues*> pointers;
                        const int result = Serializer::deserialize(data, pointers, REPEATABLE);
                        adopt(pointers, out.records);
                        return result;
                    }};
    }
    return {};
}

}  // namespace oxil::test
