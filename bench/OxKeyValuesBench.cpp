// Records: built entry by entry, copied, looked into, changed.

#include <map>
#include <string>
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

    void add(const Key& key, const Held& value) { entries.add(key, value); }
    Held get(const Key& key) const { return entries.getValue(key); }
    void update(const Key& key, const Held& value) { entries.update(key, value); }
    void remove(const Key& key) { entries.remove(key); }
    int count() const { return entries.getCount(); }

    KeyValues entries;
};

/** Entries in their order, and nothing that finds one. */
struct Entries {
    using Key = std::string;
    using Held = Value;

    void add(const Key& key, const Held& value) { entries.emplace_back(key, value); }
    int count() const { return static_cast<int>(entries.size()); }

    std::vector<std::pair<Key, Held>> entries;
};

/** Any map with the standard's interface: no order, or another one than that of addition. */
template <typename Map>
struct MapRecord {
    using Key = typename Map::key_type;
    using Held = typename Map::mapped_type;

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
struct IndexedEntries {
    using Key = std::string;
    using Held = Value;

    void add(const Key& key, const Held& value)
    {
        if (positions.emplace(key, count()).second) {
            entries.emplace_back(key, value);
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
    int count() const { return static_cast<int>(entries.size()); }

    std::vector<std::pair<Key, Held>> entries;
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
Record makeRecord(int size)
{
    Record record;
    for (int i = 0; i < size; ++i) {
        record.add(typename Record::Key(key(i).c_str()), value<typename Record::Held>(i));
    }
    require(record.count() == size, "record: count");
    return record;
}

template <typename Record>
void build(benchmark::State& state, int size)
{
    const auto allKeys = keys<typename Record::Key>(size);
    const auto allValues = values<typename Record::Held>(size);
    makeRecord<Record>(size);

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
    require(Record(source).entries == source.entries, "record: copy");

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
        wanted[i] = typename Record::Key(key(order[i]).c_str());
        require(record.get(wanted[i]) == value<typename Record::Held>(order[i]), "record: look up");
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
        wanted[i] = typename Record::Key(key(order[i]).c_str());
    }
    const auto newValues = values<typename Record::Held>(size);
    for (int i = 0; i < size; ++i) {
        record.update(wanted[i], newValues[i]);
        require(record.get(wanted[i]) == newValues[i], "record: update");
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
        unwanted.push_back(typename Record::Key(key(order[i]).c_str()));
    }
    Record checked(source);
    checked.remove(unwanted[0]);
    require(checked.count() == size - 1, "record: remove by key");

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
constexpr int GROWING_SIZES[] = {10, 100, 1000, 10000, 100000};

template <typename Record>
void addSequence(const std::string& contender)
{
    for (const int size : SIZES) {
        add("record: build, per entry", contender, size, build<Record>);
        add("record: copy, per entry", contender, size, copy<Record>);
    }
}

template <typename Record>
void addLookUp(const std::string& contender)
{
    for (const int size : SIZES) {
        add("record: look up", contender, size, lookUp<Record>);
        add("record: update in place", contender, size, update<Record>);
        // What is not timed takes longer than what is: a fixed number keeps that short.
        add("record: remove by key", contender, size, remove<Record>)
            ->UseManualTime()
            ->Iterations(150);
    }
}

template <typename Record>
void addPeer(const std::string& contender)
{
    addSequence<Record>(contender);
    addLookUp<Record>(contender);
}

void addAll()
{
    addSequence<Entries>("floor");
    addLookUp<UnorderedMap>("floor");
    addPeer<OxilRecord>("oxil");

    addSequence<UnorderedMap>("std::unordered_map");
    addPeer<TreeMap>("std::map");
    addPeer<IndexedEntries<std::unordered_map<std::string, int>>>("vector + unordered_map");
#ifdef HAS_ABSL_HASH
    addPeer<AbslMap>("absl::flat_hash_map");
    addPeer<AbslIndexed>("vector + absl");
#endif
#ifdef HAS_QT5CORE
    addPeer<QtHash>("QVariantHash");
#endif

    for (const int size : GROWING_SIZES) {
        add("growth: build a record", "oxil", size, build<OxilRecord>);
        add("growth: copy a record", "oxil", size, copy<OxilRecord>);
        add("growth: look up", "oxil", size, lookUp<OxilRecord>);
    }
}

}  // namespace
}  // namespace oxil::bench

int main(int argc, char** argv)
{
    oxil::bench::addAll();
    return oxil::bench::run(argc, argv);
}
