// Records: built entry by entry, copied, looked into, changed.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <type_traits>
#include <unordered_map>
#include <utility>
#include <vector>

#ifdef HAS_QT5CORE
#include <QHash>
#include <QString>
#include <QVariant>
#endif
#ifdef HAS_ABSL_HASH
#include <absl/container/flat_hash_map.h>
#endif

#include "Bench.h"
#include "Fields.h"
#include "OxKeyValues.h"

namespace oxil::bench {

#ifdef HAS_QT5CORE
template <>
QVariant textValue<QVariant>(const std::string& text)
{
    return QVariant(QString::fromStdString(text));
}
#endif

namespace {

// ---- The contenders. None is told in advance how many entries will come. -------------------------

struct OxilRecord {
    using Key = std::string;
    using Held = Variant;
    static constexpr bool KEEPS_ORDER = true;

    void add(const Key& key, const Held& value) { entries.add(key, value); }
    Held get(const Key& key) const { return entries.getValue(key); }
    void update(const Key& key, const Held& value) { entries.update(key, value); }
    void remove(const Key& key) { entries.remove(key); }
    int count() const { return entries.getCount(); }
    Key keyAt(int position) const { return entries.getKey(position); }

    KeyValues entries;
};

/** Entries in their order, and nothing that finds one. */
struct Entries {
    using Key = std::string;
    using Held = Value;
    static constexpr bool KEEPS_ORDER = true;

    void add(const Key& key, const Held& value)
    {
        if (entries.capacity() == 0) {
            entries.reserve(8);
        }
        entries.emplace_back(key, value);
    }
    int count() const { return static_cast<int>(entries.size()); }
    const Key& keyAt(int position) const { return entries[position].first; }

    std::vector<std::pair<Key, Held>> entries;
};

/** Entries in their order, and a plain table of hashes and positions, at the most half full. */
struct PlainRecord : Entries {
    void add(const Key& key, const Held& value)
    {
        if (2 * (used + 1) > table.size()) {
            grow();
        }
        const std::uint32_t hash = hashOf(key);
        Slot& slot = table[find(key, hash)];
        if (slot.position == FREE) {
            slot = {hash, count()};
            ++used;
            Entries::add(key, value);
        }
    }
    Held get(const Key& key) const { return entries[findPosition(key)].second; }
    void update(const Key& key, const Held& value) { entries[findPosition(key)].second = value; }
    void remove(const Key& key)
    {
        Slot& removed = table[find(key, hashOf(key))];
        const int gap = std::exchange(removed.position, REMOVED);
        entries.erase(entries.begin() + gap);
        for (Slot& slot : table) {
            slot.position -= slot.position > gap ? 1 : 0;
        }
    }

private:
    static constexpr int FREE = -1;
    static constexpr int REMOVED = -2;

    struct Slot {
        std::uint32_t hash = 0;
        std::int32_t position = FREE;
    };

    static std::uint32_t hashOf(const Key& key)
    {
        std::uint32_t hash = 0;
        for (const char letter : key) {
            hash = 31 * hash + static_cast<unsigned char>(letter);
        }
        hash *= 0x9e3779b1;
        return hash ^ hash >> 16;
    }

    /** The first slot from the hash's own on that is free or of which isWanted() says true. */
    template <typename IsWanted>
    std::size_t probe(std::uint32_t hash, const IsWanted& isWanted) const
    {
        std::size_t i = hash & (table.size() - 1);
        while (table[i].position != FREE && !isWanted(table[i])) {
            i = (i + 1) & (table.size() - 1);
        }
        return i;
    }

    std::size_t find(const Key& key, std::uint32_t hash) const
    {
        return probe(hash, [&](const Slot& slot) {
            return slot.hash == hash && slot.position != REMOVED && keyAt(slot.position) == key;
        });
    }

    [[gnu::always_inline]] int findPosition(const Key& key) const
    {
        if (entries.size() > 16) {
            return table[find(key, hashOf(key))].position;
        }
        int position = 0;  // a walk over a few is quicker
        while (keyAt(position) != key) {
            ++position;
        }
        return position;
    }

    void grow()
    {
        std::vector<Slot> old(table.empty() ? 16 : 2 * table.size());
        old.swap(table);
        for (const Slot& slot : old) {
            if (slot.position >= 0) {
                table[probe(slot.hash, [](const Slot&) { return false; })] = slot;
            }
        }
        used = entries.size();
    }

    std::vector<Slot> table;
    std::size_t used = 0;  // with those whose entry has been removed
};

/** Any map with the standard's interface: no order, or another one than that of addition. */
template <typename Map>
struct MapRecord {
    using Key = typename Map::key_type;
    using Held = typename Map::mapped_type;
    static constexpr bool KEEPS_ORDER = false;

    void add(const Key& key, const Held& value) { entries.emplace(key, value); }
    Held get(const Key& key) const { return entries.find(key)->second; }
    void update(const Key& key, const Held& value) { entries.find(key)->second = value; }
    void remove(const Key& key) { entries.erase(key); }
    int count() const { return static_cast<int>(entries.size()); }

    Map entries;
};

using UnorderedMap = MapRecord<std::unordered_map<std::string, Value>>;
using TreeMap = MapRecord<std::map<std::string, Value>>;

/** Entries in their order, and the positions of the keys. */
template <typename Map>
struct IndexedEntries : Entries {
    void add(const Key& key, const Held& value)
    {
        if (positions.emplace(key, count()).second) {
            Entries::add(key, value);
        }
    }
    Held get(const Key& key) const { return entries[positions.find(key)->second].second; }
    void update(const Key& key, const Held& value)
    {
        entries[positions.find(key)->second].second = value;
    }
    void remove(const Key& key)
    {
        const auto found = positions.find(key);
        const int gap = found->second;
        positions.erase(found);
        entries.erase(entries.begin() + gap);
        for (auto& position : positions) {
            position.second -= position.second > gap ? 1 : 0;
        }
    }

    Map positions;
};

#ifdef HAS_ABSL_HASH
using AbslMap = MapRecord<absl::flat_hash_map<std::string, Value>>;
using AbslIndexed = IndexedEntries<absl::flat_hash_map<std::string, int>>;
#endif

#ifdef HAS_QT5CORE
struct QtHash {
    using Key = QString;
    using Held = QVariant;
    static constexpr bool KEEPS_ORDER = false;

    // A copy shares the entries until it is changed; that is the copy that is asked for here.
    QtHash() = default;
    QtHash(const QtHash& other) : entries(other.entries) { entries.detach(); }

    void add(const Key& key, const Held& value) { entries.insert(key, value); }
    Held get(const Key& key) const { return entries.value(key); }
    void update(const Key& key, const Held& value) { *entries.find(key) = value; }
    void remove(const Key& key) { entries.remove(key); }
    int count() const { return entries.size(); }

    QVariantHash entries;
};
#endif

// ---- The operations ------------------------------------------------------------------------------

template <typename Record>
typename Record::Key keyOf(int i)
{
    return typename Record::Key(key(i).c_str());
}

template <typename Record>
Record makeRecord(int size)
{
    Record record;
    for (int i = 0; i < size; ++i) {
        record.add(keyOf<Record>(i), value<typename Record::Held>(i));
    }
    return record;
}

/** Whether a record has the entries with these numbers, in this order if it keeps one. */
template <typename Record>
bool holds(const Record& record, const std::vector<int>& numbers)
{
    if (record.count() != static_cast<int>(numbers.size())) {
        return false;
    }
    for (int i = 0; i < record.count(); ++i) {
        if constexpr (Record::KEEPS_ORDER) {
            if (record.keyAt(i) != key(numbers[i])) {
                return false;
            }
        }
        if constexpr (!std::is_same_v<Record, Entries>) {
            if (!(record.get(keyOf<Record>(numbers[i])) ==
                  value<typename Record::Held>(numbers[i]))) {
                return false;
            }
        }
    }
    return true;
}

template <typename Record>
void build(benchmark::State& state, int size)
{
    const auto allKeys = keys<typename Record::Key>(size);
    const auto allValues = values<typename Record::Held>(size);
    expect(state, holds(makeRecord<Record>(size), numbersBelow(size)));

    for (auto _ : state) {
        Record record;
        for (int i = 0; i < size; ++i) {
            record.add(allKeys[i], allValues[i]);
        }
        benchmark::DoNotOptimize(record);
    }
    state.SetItemsProcessed(state.iterations() * size);
}

template <typename Record>
void copy(benchmark::State& state, int size)
{
    const Record source = makeRecord<Record>(size);
    expect(state, holds(Record(source), numbersBelow(size)));

    for (auto _ : state) {
        Record record(source);
        benchmark::DoNotOptimize(record);
    }
    state.SetItemsProcessed(state.iterations() * size);
}

template <typename Record>
void lookUp(benchmark::State& state, int size)
{
    const Record record = makeRecord<Record>(size);
    auto wanted = keys<typename Record::Key>(size);
    const std::vector<int> order = shuffled(size);
    for (int i = 0; i < size; ++i) {
        wanted[i] = keyOf<Record>(order[i]);
        expect(state, record.get(wanted[i]) == value<typename Record::Held>(order[i]));
    }

    for (auto _ : state) {
        for (const auto& name : wanted) {
            auto found = record.get(name);
            benchmark::DoNotOptimize(found);
        }
    }
    state.SetItemsProcessed(state.iterations() * size);
}

template <typename Record>
void update(benchmark::State& state, int size)
{
    Record record = makeRecord<Record>(size);
    auto wanted = keys<typename Record::Key>(size);
    const std::vector<int> order = shuffled(size);
    for (int i = 0; i < size; ++i) {
        wanted[i] = keyOf<Record>(order[i]);
    }
    const auto newValues = values<typename Record::Held>(size);
    for (int i = 0; i < size; ++i) {
        record.update(wanted[i], newValues[i]);
        expect(state, record.get(wanted[i]) == newValues[i]);
    }

    for (auto _ : state) {
        for (int i = 0; i < size; ++i) {
            record.update(wanted[i], newValues[i]);
        }
        benchmark::DoNotOptimize(record);
    }
    state.SetItemsProcessed(state.iterations() * size);
}

/** Removes a tenth of the entries, anywhere, from so many records that 100 removals are timed. */
template <typename Record>
void remove(benchmark::State& state, int size)
{
    const Record source = makeRecord<Record>(size);
    const int removals = size / 10;
    const int records = 100 / removals;
    const std::vector<int> order = shuffled(size);
    std::vector<typename Record::Key> unwanted;
    for (int i = 0; i < size; ++i) {
        unwanted.push_back(keyOf<Record>(order[i]));
    }
    Record checked(source);
    std::vector<int> rest = numbersBelow(size);
    for (int i = 0; i < removals; ++i) {
        checked.remove(unwanted[i]);
        rest.erase(std::find(rest.begin(), rest.end(), order[i]));
    }
    expect(state, holds(checked, rest));

    timeWork(
        state, [&] { return std::vector<Record>(records, source); },
        [&](std::vector<Record>& copies) {
            for (int i = 0; i < records; ++i) {
                for (int j = 0; j < removals; ++j) {
                    copies[i].remove(unwanted[(i * removals + j) % size]);
                }
            }
        });
    state.SetItemsProcessed(state.iterations() * records * removals);
}

// ---- Who takes part where ------------------------------------------------------------------------

constexpr int SIZES[] = {10, 100, 1000};
constexpr int GROWN_SIZES[] = {10000, 100000};

template <typename Record>
void addSequence(const std::string& contender, int size)
{
    add("record: build, per entry", contender, size, build<Record>);
    add("record: copy, per entry", contender, size, copy<Record>);
}

template <typename Record>
void addLookUp(const std::string& contender, int size)
{
    add("record: look up", contender, size, lookUp<Record>);
}

template <typename Record>
void addContender(const std::string& contender)
{
    for (const int size : SIZES) {
        addSequence<Record>(contender, size);
        addLookUp<Record>(contender, size);
        add("record: update in place", contender, size, update<Record>);
        // What is not timed takes longer than what is: a fixed number keeps that short.
        add("record: remove by key", contender, size, remove<Record>)
            ->UseManualTime()
            ->Iterations(150);
    }
}

void addAll()
{
    addContender<PlainRecord>("floor");
    addContender<OxilRecord>("oxil");
    for (const int size : GROWN_SIZES) {
        addSequence<OxilRecord>("oxil", size);
        addLookUp<OxilRecord>("oxil", size);
    }

    for (const int size : SIZES) {
        addSequence<Entries>("std::vector, finds nothing", size);
    }
    addContender<IndexedEntries<std::unordered_map<std::string, int>>>("vector + unordered_map");
    addContender<UnorderedMap>("std::unordered_map, no order");
    addContender<TreeMap>("std::map, sorted");
#ifdef HAS_ABSL_HASH
    addContender<AbslIndexed>("vector + absl");
    addContender<AbslMap>("absl::flat_hash_map, no order");
#endif
#ifdef HAS_QT5CORE
    addContender<QtHash>("QVariantHash, no order");
#endif
}

}  // namespace
}  // namespace oxil::bench

int main(int argc, char** argv)
{
    oxil::bench::addAll();
    return oxil::bench::run(argc, argv);
}
