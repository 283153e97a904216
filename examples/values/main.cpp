// Keeps the settings of a heater: what values are, what they turn into, and what a record is asked.
//
// Prints:
//   DOUBLE 21.500000
//   STRING hall
//   BOOL 1
//   NONE null
//   7 is 7.0, 21.5 is 0, and the text 40 is 40
//   5 is 5, 2.9 is 3, hall is 0
//   of one kind: equal, of two kinds: different
//   a second room is refused
//   target 21.5, and 19.0 where there is none
//   room=hall target=18.000000 on=1 limit=25
//   room=hall on=1 limit=25
//   the order counts

#include <cmath>
#include <cstdio>
#include <string>

#include <Oxil.h>

namespace {

//! [ask]
// What came from elsewhere may be of any kind: a number of any sort is rounded, all else is 0.
int toWholeNumber(const oxil::Variant& value)
{
    return value.isConvertible(oxil::VARIANT_TYPE_DOUBLE)
               ? static_cast<int>(std::lround(value.toDouble()))
               : 0;
}
//! [ask]

//! [find]
// getValue() logs a key that is not there. getIndex() is the silent question.
double getTarget(const oxil::KeyValues& heater)
{
    const int place = heater.getIndex("target");
    return place < heater.getCount() ? heater.getValue(place).toDouble() : 19.0;
}
//! [find]

//! [put]
// add() refuses a key that is there, update() one that is not.
int put(oxil::KeyValues& record, const std::string& key, const oxil::Variant& value)
{
    return record.getIndex(key) < record.getCount() ? record.update(key, value)
                                                    : record.add(key, value);
}
//! [put]

//! [entries]
void print(const oxil::KeyValues& record)
{
    const char* gap = "";
    for (const oxil::KeyValue& entry : record.getKeyValues()) {
        std::printf("%s%s=%s", gap, entry.getKey().c_str(), entry.getValue().toString().c_str());
        gap = " ";
    }
    std::printf("\n");
}
//! [entries]

void showValues()
{
    //! [values]
    const oxil::Variant target = 21.5;
    const oxil::Variant room = "hall";
    const oxil::Variant on = true;
    const oxil::Variant nothing;
    for (const oxil::Variant& value : {target, room, on, nothing}) {
        std::printf("%s %s\n", value.getTypeName().c_str(), value.toString().c_str());
    }
    //! [values]

    //! [conversions]
    const oxil::Variant level = 7;
    std::printf("%d is %.1f, ", level.toInt(), level.toDouble());  // nothing gets lost
    std::printf("21.5 is %d, ", target.toInt());                   // refused, logged, and 0
    std::printf("and the text 40 is %d\n", oxil::NumberParser::toInt("40"));
    //! [conversions]

    std::printf("5 is %d, 2.9 is %d, hall is %d\n", toWholeNumber(5), toWholeNumber(2.9),
                toWholeNumber(room));

    //! [equal]
    const bool same = level == oxil::Variant(7);
    const bool different = level != oxil::Variant(7u) && level != oxil::Variant(7.0);
    //! [equal]
    std::printf("of one kind: %s, of two kinds: %s\n", same ? "equal" : "different",
                different ? "different" : "equal");
}

void showRecords()
{
    //! [record]
    oxil::KeyValues heater;
    heater.add("room", "hall");
    heater.add("target", 21.5);
    heater.add("on", true);
    if (heater.add("room", "kitchen") == oxil::STATUS_ALREADY_EXISTS) {
        std::printf("a second room is refused\n");
    }
    //! [record]

    std::printf("target %.1f, and %.1f where there is none\n", getTarget(heater),
                getTarget(oxil::KeyValues()));

    //! [change]
    put(heater, "target", 18.0);  // stays in its place
    put(heater, "limit", 25);     // goes to the end
    print(heater);

    heater.remove("target");
    print(heater);
    //! [change]

    oxil::KeyValues other;
    other.add("on", true);
    other.add("room", "hall");
    other.add("limit", 25);
    std::printf("the order %s\n", heater == other ? "does not count" : "counts");
}

}  // namespace

int main()
{
    showValues();
    showRecords();
}
