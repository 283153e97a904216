#include "SerializerCases.h"

#include <memory>

#include "OxStatus.h"

namespace oxil::test {
namespace {

const Types SAMPLE_RECORD_TYPES = {TEXT, INT, TEXT, TEXT};

const Types SAMPLE_PARAM_TYPES = {INT, TEXT, DOUBLE};

}  // namespace

const Values SAMPLE_PARAMS = {1, "a", 2.5};

Names passes(int count, const std::string& position, int nexts)
{
    Names result = {"getPosition"};
    for (int i = 0; i < count; ++i) {
        result.push_back("moveTo " + position);
        result.insert(result.end(), static_cast<std::size_t>(nexts), "next");
    }
    return result;
}

Lines refused(int code, const std::vector<std::string>& files)
{
    Lines lines = {code == STATUS_CAPACITY_EXCEEDED
                       ? LoggedIn(DATA_FILE, "addType", "Max exceeded (2000).")
                       : LoggedIn(DATA_FILE, "addType", "Invalid parameter (-1).")};
    for (const std::string& file : files) {
        lines.push_back(
            LoggedIn(file, "setSerializedDataInfo", "r (" + std::to_string(code) + ")."));
    }
    lines.push_back(LoggedIn(SERIALIZER_FILE, "serialize", "r (" + std::to_string(code) + ")."));
    return lines;
}

testing::Matcher<const LogLine&> failed(const std::string& message)
{
    return LoggedIn(SERIALIZER_FILE, "deserialize", message);
}

testing::Matcher<const LogLine&> recordFailed(const std::string& message)
{
    return LoggedIn(RECORD_FILE, "deserialize", message);
}

testing::Matcher<const LogLine&> entryFailed(const std::string& message)
{
    return LoggedIn(ENTRY_FILE, "deserialize", message);
}

const testing::Matcher<const LogLine&>& tooLong()
{
    static const testing::Matcher<const LogLine&> line = Logged("toRaw", "destination is nullptr");
    return line;
}

KeyValues sampleRecord()
{
    return recordOf({{"id", 7}, {"name", "ok"}});
}

Records sampleRecords()
{
    return {recordOf({{"a", 1}, {"b", 2.5}}), recordOf({{"c", true}}), sampleRecord()};
}

Records sampleRecordsOfOneShape()
{
    return {recordOf({{"a", 1}, {"b", true}}), recordOf({{"a", -1}, {"b", false}}),
            recordOf({{"a", 0}, {"b", true}})};
}

void PrintTo(const PackCase& each, std::ostream* stream)
{
    *stream << each.name;
}

std::vector<PackCase> packCases()
{
    const std::vector<Types> list = {{INT, INT, INT},
                                     {TEXT, INT, TEXT, DOUBLE, TEXT, BOOL, TEXT, INT, TEXT, TEXT}};
    const std::vector<Types> repeated = {{TEXT, INT, TEXT, BOOL}};

    return {
        {"entry",
         [](SerializedData& data) { return Serializer::serialize(KeyValue("key", 2.5), data); },
         {{TEXT, DOUBLE}},
         0,
         ENTRY_FILE},
        {"record",
         [](SerializedData& data) { return Serializer::serialize(sampleRecord(), data); },
         {SAMPLE_RECORD_TYPES},
         0,
         RECORD_FILE},
        {"key_and_value",
         [](SerializedData& data) { return Serializer::serialize("key", Variant("v"), data); },
         {{TEXT, TEXT}},
         0,
         ENTRY_FILE},
        {"record_and_entry",
         [](SerializedData& data) {
             return Serializer::serialize(sampleRecord(), KeyValue("extra", true), data);
         },
         {SAMPLE_RECORD_TYPES, {TEXT, BOOL}}},
        {"record_and_method",
         [](SerializedData& data) {
             return Serializer::serialize(sampleRecord(), "open", SAMPLE_PARAMS, data);
         },
         {SAMPLE_RECORD_TYPES, {TEXT}, SAMPLE_PARAM_TYPES}},
        {"method",
         [](SerializedData& data) { return Serializer::serialize("open", SAMPLE_PARAMS, data); },
         {{TEXT}, SAMPLE_PARAM_TYPES}},
        {"method_and_text",
         [](SerializedData& data) {
             return Serializer::serialize("open", SAMPLE_PARAMS, "extra", data);
         },
         {{TEXT}, SAMPLE_PARAM_TYPES, {TEXT}}},
        {"names_method_and_text",
         [](SerializedData& data) {
             return Serializer::serialize({"n1", "n2"}, "open", SAMPLE_PARAMS, "extra", data);
         },
         {{TEXT, TEXT}, {TEXT}, SAMPLE_PARAM_TYPES, {TEXT}}},
        {"list", [](SerializedData& data) { return Serializer::serialize(sampleRecords(), data); },
         list},
        {"list_of_pointers",
         [](SerializedData& data) {
             Records records = sampleRecords();
             return Serializer::serialize(pointersTo(records), data);
         },
         list},
        {"repeated_list",
         [](SerializedData& data) {
             return Serializer::serialize(sampleRecordsOfOneShape(), data, REPEATABLE);
         },
         repeated, 3},
        {"repeated_list_of_pointers",
         [](SerializedData& data) {
             Records records = sampleRecordsOfOneShape();
             return Serializer::serialize(pointersTo(records), data, REPEATABLE);
         },
         repeated, 3},
        {"iterator",
         [](SerializedData& data) {
             Records records = sampleRecords();
             RecordingIterator iterator(pointersTo(records));
             return Serializer::serialize(&iterator, 3, data);
         },
         list},
        {"repeated_iterator",
         [](SerializedData& data) {
             Records records = sampleRecordsOfOneShape();
             RecordingIterator iterator(pointersTo(records));
             return Serializer::serialize(&iterator, 3, data, REPEATABLE);
         },
         repeated, 3},
    };
}

Unpacked unpack(const SerializedData& data, ListForm form, bool repeated)
{
    Unpacked out;
    if (form == ListForm::Copies) {
        out.records = {small("already", 1)};
        out.result = repeated ? Serializer::deserialize(data, out.records, REPEATABLE)
                              : Serializer::deserialize(data, out.records);
    } else {
        Pointers pointers = {new KeyValues(small("already", 1))};
        out.result = repeated ? Serializer::deserialize(data, pointers, REPEATABLE)
                              : Serializer::deserialize(data, pointers);
        for (KeyValues* const pointer : pointers) {
            out.records.push_back(*std::unique_ptr<KeyValues>(pointer));
        }
    }
    EXPECT_FALSE(out.records.empty());
    EXPECT_TRUE(sameRecords({out.records.front()}, {small("already", 1)}));
    out.records.erase(out.records.begin());
    return out;
}

}  // namespace oxil::test
