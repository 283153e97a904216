// Keeps the settings of a heater: what values are, what they turn into, and what a record is asked.
//
// Prints:
//   DOUBLE 21.500000
//   STRING hall
//   BOOL 1
//   NONE null
//   7 is 7.0, 21.5 is 0, and the text 40 is 40
//   5 is 5, 2.9 is 3, the text 7 is 7, hall is 0
//   4 letters
//   of one kind: equal, of two kinds: different
//   a second room is refused
//   target 21.5, and 19.0 where there is none
//   room=hall target=18.000000 on=1 limit=25
//   room=hall on=1 limit=25
//   {"room": "hall", "on": true, "limit": 25}
//   the order counts

#include <cmath>
#include <cstdio>
#include <iostream>
#include <string>

#include <OxStreamOutput.h>
#include <Oxil.h>

namespace {

//! [ask]
// What came from elsewhere may be of any kind: a number of any sort is rounded, also one in a text,
// all else is 0.
int toWholeNumber(const oxil::Variant& value)
{
    return static_cast<int>(std::lround(value.convert<double>().value_or(0)));
}
//! [ask]

//! [find]
// getValue() logs a key that is not there. get() is silent, and knows what to give instead.
double getTarget(const oxil::KeyValues& heater)
{
    return heater.get("target", 19.0);
}
//! [find]

//! [entries]
void print(const oxil::KeyValues& record)
{
    const char* gap = "";
    for (const auto& [key, value] : record) {
        std::printf("%s%s=%s", gap, key.c_str(), value.toString().c_str());
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

    std::printf("5 is %d, 2.9 is %d, the text 7 is %d, hall is %d\n", toWholeNumber(5),
                toWholeNumber(2.9), toWholeNumber("7"), toWholeNumber(room));

    //! [kinds]
    // Where the kind is known, the value is looked at as it is.
    if (room.is<std::string>()) {
        std::printf("%zu letters\n", room.get<std::string>().size());
    }
    //! [kinds]

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
    oxil::KeyValues heater = {{"room", "hall"}, {"target", 21.5}, {"on", true}};
    if (heater.add("room", "kitchen") == oxil::STATUS_ALREADY_EXISTS) {
        std::printf("a second room is refused\n");
    }
    //! [record]

    std::printf("target %.1f, and %.1f where there is none\n", getTarget(heater),
                getTarget(oxil::KeyValues()));

    //! [change]
    heater.set("target", 18.0);  // stays in its place
    heater.set("limit", 25);     // goes to the end
    print(heater);

    heater.remove("target");
    print(heater);
    //! [change]

    //! [show]
    std::cout << heater << std::endl;
    //! [show]

    const oxil::KeyValues other = {{"on", true}, {"room", "hall"}, {"limit", 25}};
    std::printf("the order %s\n", heater == other ? "does not count" : "counts");
}

}  // namespace

int main()
{
    showValues();
    showRecords();
}
