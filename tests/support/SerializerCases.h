#pragma once

#include <gmock/gmock.h>

#include <cstddef>
#include <functional>
#include <ostream>
#include <stdexcept>
#include <string>
#include <vector>

#include "OxIBidirectionalIterator.h"
#include "OxLogMatchers.h"
#include "OxSerializer.h"
#include "Records.h"
#include "SerializedBytes.h"

namespace oxil::test {

// ---- An iterator that keeps account -------------------------------------------------------------

/** Walks a list; its positions count down from 1000 in tens, so that only getPosition() knows. */
class RecordingIterator : public IBidirectionalIterator<KeyValues*> {
public:
    explicit RecordingIterator(const Pointers& records, std::size_t start = 0)
        : __records(records), __index(start)
    {
    }

    KeyValues* current() override
    {
        calls.push_back("current");
        return nullptr;
    }

    int moveTo(int position) override
    {
        calls.push_back("moveTo " + std::to_string(position));
        if (--__movesUntilFailure == 0) {
            return __moveFailure;
        }
        __index = static_cast<std::size_t>((1000 - position) / 10);
        return 0;
    }

    KeyValues* next() override
    {
        if (calls.empty() || calls.back() != "isEnd") {
            calls.push_back("next without isEnd");
        }
        calls.push_back("next");
        if (--__nextsUntilThrow == 0) {
            throw std::runtime_error("the source is gone");
        }
        return __records.at(__index++);
    }

    int getPosition() override
    {
        calls.push_back("getPosition");
        return 1000 - 10 * static_cast<int>(__index);
    }

    KeyValues* previous() override
    {
        calls.push_back("previous");
        return nullptr;
    }

    bool isBegin() override
    {
        calls.push_back("isBegin");
        return false;
    }

    bool isEnd() override
    {
        calls.push_back("isEnd");
        return __index == __records.size();
    }

    /** The calls in their order, without isEnd. */
    Names moves() const
    {
        Names result;
        for (const std::string& call : calls) {
            if (call != "isEnd") {
                result.push_back(call);
            }
        }
        return result;
    }

    void failMove(int nth, int result)
    {
        __movesUntilFailure = nth;
        __moveFailure = result;
    }

    void throwAtNext(int nth) { __nextsUntilThrow = nth; }

    Names calls;

private:
    Pointers __records;
    std::size_t __index;
    int __movesUntilFailure = 0;
    int __moveFailure = 0;
    int __nextsUntilThrow = 0;
};

/** The calls of some passes over some records, without isEnd. */
Names passes(int count, const std::string& position, int nexts);

// ---- Log lines ----------------------------------------------------------------------------------

using Lines = std::vector<testing::Matcher<const LogLine&>>;

inline constexpr const char* DATA_FILE = "OxSerializedData.cpp";
inline constexpr const char* ENTRY_FILE = "OxKeyValue.cpp";
inline constexpr const char* RECORD_FILE = "OxKeyValues.cpp";
inline constexpr const char* SERIALIZER_FILE = "OxSerializer.cpp";

/** What is logged when a type entry is refused below serialize(): one line for each level. */
Lines refused(int code, const std::vector<std::string>& files);

/** What deserialize() logs, of the Serializer, of a record, and of an entry. */
testing::Matcher<const LogLine&> failed(const std::string& message);
testing::Matcher<const LogLine&> recordFailed(const std::string& message);
testing::Matcher<const LogLine&> entryFailed(const std::string& message);

/** What is logged for a text that its slot has no room for. */
const testing::Matcher<const LogLine&>& tooLong();

// ---- Every overload that packs ------------------------------------------------------------------

using Pack = std::function<int(SerializedData&)>;

KeyValues sampleRecord();
Records sampleRecords();
Records sampleRecordsOfOneShape();

extern const Values SAMPLE_PARAMS;

struct PackCase {
    std::string name;
    Pack pack;
    std::vector<Types> blocks;
    int repeatCount = 0;  // of block 0
    const char* file = SERIALIZER_FILE;
};

void PrintTo(const PackCase& each, std::ostream* stream);

std::vector<PackCase> packCases();

// ---- Lists that come out ------------------------------------------------------------------------

/** The two kinds of list that come out. */
enum class ListForm { Copies, OnHeap };

struct Unpacked {
    int result;
    Records records;
};

/** Unpacks behind one record that is already there; records on the heap are copied and deleted. */
Unpacked unpack(const SerializedData& data, ListForm form, bool repeated);

}  // namespace oxil::test
