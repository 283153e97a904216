// Numbers and texts in a Variant: made, copied, compared, turned into text.

#include <charconv>
#include <cstdio>
#include <string>
#include <variant>
#include <vector>

#ifdef HAS_QT5CORE
#include <QString>
#include <QVariant>
#endif
#ifdef HAS_NLOHMANN_JSON
#include <nlohmann/json.hpp>
#endif

#include "Bench.h"
#include "OxVariant.h"

namespace oxil::bench {
namespace {

constexpr int COUNT = 256;  // values in one iteration

// ---- The contenders have little to say for themselves: how a text gets in, a number gets out -----

template <typename Held>
Held makeText(const std::string& text)
{
    return Held(text);
}

int toInt(const Variant& value)
{
    return value.toInt();
}

int toInt(const Value& value)
{
    return std::get<int>(value);
}

#ifdef HAS_QT5CORE
template <>
QVariant makeText<QVariant>(const std::string& text)
{
    return QVariant(QString::fromStdString(text));
}

int toInt(const QVariant& value)
{
    return value.toInt();
}
#endif

#ifdef HAS_NLOHMANN_JSON
int toInt(const nlohmann::json& value)
{
    return value.get<int>();
}
#endif

// ---- Numbers -------------------------------------------------------------------------------------

std::vector<int> someInts()
{
    std::vector<int> numbers;
    for (int i = 0; i < COUNT; ++i) {
        // One to seven digits, both signs.
        const int magnitude = i % 7 == 0 ? 7 : i % 7 == 1 ? 73 : i * 4567 % 9999999;
        numbers.push_back(i % 3 == 0 ? -magnitude : magnitude);
    }
    return numbers;
}

std::vector<double> someDoubles()
{
    std::vector<double> numbers;
    for (int i = 0; i < COUNT; ++i) {
        // Settings, prices, coordinates, times.
        const double numbersOfAKind[] = {i * 0.25, i * 1.1 - 99.99, i / 7.0, i * 12345.678};
        numbers.push_back(numbersOfAKind[i % 4]);
    }
    return numbers;
}

/** Numbers of several kinds in turn; every fourth is larger by @p difference. */
template <typename Held>
std::vector<Held> someNumbers(int difference)
{
    std::vector<Held> values;
    for (int i = 0; i < COUNT; ++i) {
        const int number = i + (i % 4 == 3 ? difference : 0);
        switch (i % 5) {
            case 0:
                values.push_back(Held(number));
                break;
            case 1:
                values.push_back(Held(number + 0.5));
                break;
            case 2:
                values.push_back(Held(static_cast<unsigned int>(number)));
                break;
            case 3:
                values.push_back(Held(1000000000000LL + number));
                break;
            default:
                values.push_back(Held(difference == 0 || i % 4 != 3));
                break;
        }
    }
    return values;
}

template <typename Held>
void construct(benchmark::State& state)
{
    const std::vector<int> ints = someInts();
    const std::vector<double> doubles = someDoubles();
    require(toInt(Held(ints[5])) == ints[5], "numbers: construct");

    for (auto _ : state) {
        for (int i = 0; i < COUNT; ++i) {
            Held number(ints[i]);
            benchmark::DoNotOptimize(number);
            Held real(doubles[i]);
            benchmark::DoNotOptimize(real);
        }
    }
    state.SetItemsProcessed(state.iterations() * 2 * COUNT);
}

/** Copies every value of a list. */
template <typename Held>
void copyEach(benchmark::State& state, const std::vector<Held>& values)
{
    require(std::vector<Held>(values) == values, "copy");

    for (auto _ : state) {
        for (const Held& value : values) {
            Held copy(value);
            benchmark::DoNotOptimize(copy);
        }
    }
    state.SetItemsProcessed(state.iterations() * static_cast<int>(values.size()));
}

template <typename Held>
void compare(benchmark::State& state)
{
    const std::vector<Held> left = someNumbers<Held>(0);
    const std::vector<Held> right = someNumbers<Held>(1);
    int equal = 0;
    for (int i = 0; i < COUNT; ++i) {
        equal += left[i] == right[i] ? 1 : 0;
    }
    require(equal == COUNT - COUNT / 4, "numbers: compare");

    for (auto _ : state) {
        for (int i = 0; i < COUNT; ++i) {
            bool same = left[i] == right[i];
            benchmark::DoNotOptimize(same);
        }
    }
    state.SetItemsProcessed(state.iterations() * COUNT);
}

template <typename Held>
void addNumbers(const std::string& contender)
{
    add("numbers: construct", contender, construct<Held>);
    add("numbers: copy", contender,
        [](benchmark::State& state) { copyEach(state, someNumbers<Held>(0)); });
    add("numbers: compare", contender, compare<Held>);
}

// ---- Texts ---------------------------------------------------------------------------------------

template <typename Held>
void addTexts(const std::string& contender)
{
    for (const int length : {12, 60}) {
        add("text: copy", contender, length, [](benchmark::State& state, int size) {
            std::vector<Held> values;
            for (int i = 0; i < COUNT; ++i) {
                std::string text = "Text " + std::to_string(i) + " ";
                text.resize(static_cast<std::size_t>(size), '.');
                values.push_back(makeText<Held>(text));
            }
            copyEach(state, values);
        });
    }
}

// ---- To text -------------------------------------------------------------------------------------

template <typename Number>
std::string format(Number number);

template <>
std::string format(int number)
{
    return std::to_string(number);
}

template <>
std::string format(double number)
{
    char digits[64];
    std::snprintf(digits, sizeof digits, "%f", number);
    return digits;
}

/** @param toText  what is measured; the peers have their own ideas of a double's decimals */
template <typename Held, typename Number, typename ToText>
void convertEach(benchmark::State& state, const std::vector<Number>& numbers, bool sixDecimals,
                 const ToText& toText)
{
    const std::vector<Held> values(numbers.begin(), numbers.end());
    for (int i = 0; i < COUNT; ++i) {
        const auto text = toText(values[i]);
        require(text.length() > 0, "to text: nothing");
        if constexpr (std::is_same_v<decltype(toText(values[i])), std::string>) {
            require(sixDecimals ? text == format(numbers[i]) : std::stod(text) == numbers[i],
                    "to text");
        }
    }

    for (auto _ : state) {
        for (const Held& value : values) {
            auto text = toText(value);
            benchmark::DoNotOptimize(text);
        }
    }
    state.SetItemsProcessed(state.iterations() * COUNT);
}

/** Measures toText() of a contender for both kinds of number. */
template <typename HeldInt, typename HeldDouble, typename ToText>
void addToText(const std::string& contender, bool sixDecimals, const ToText& toText)
{
    add("to text: int", contender,
        [=](benchmark::State& state) { convertEach<HeldInt>(state, someInts(), true, toText); });
    add("to text: double", contender, [=](benchmark::State& state) {
        convertEach<HeldDouble>(state, someDoubles(), sixDecimals, toText);
    });
}

std::string toChars(int number)
{
    char digits[16];
    return std::string(digits, std::to_chars(digits, digits + sizeof digits, number).ptr);
}

std::string toChars(double number)
{
    char digits[512];
    const auto end =
        std::to_chars(digits, digits + sizeof digits, number, std::chars_format::fixed, 6);
    return std::string(digits, end.ptr);
}

void addAll()
{
    addNumbers<Value>("floor");
    addNumbers<Variant>("oxil");
    addTexts<std::string>("floor");
    addTexts<Variant>("oxil");
    addTexts<Value>("std::variant");
    addToText<int, double>("floor", true, [](auto number) { return toChars(number); });
    addToText<Variant, Variant>("oxil", true,
                                [](const Variant& value) { return value.toString(); });
    addToText<int, double>("std::to_string", true,
                           [](auto number) { return std::to_string(number); });
#ifdef HAS_QT5CORE
    addNumbers<QVariant>("QVariant");
    addTexts<QVariant>("QVariant");
    addToText<QVariant, QVariant>("QVariant", false,
                                  [](const QVariant& value) { return value.toString(); });
#endif
#ifdef HAS_NLOHMANN_JSON
    addNumbers<nlohmann::json>("nlohmann json");
    addTexts<nlohmann::json>("nlohmann json");
    addToText<nlohmann::json, nlohmann::json>(
        "nlohmann json", false, [](const nlohmann::json& value) { return value.dump(); });
#endif
}

}  // namespace
}  // namespace oxil::bench

int main(int argc, char** argv)
{
    oxil::bench::addAll();
    return oxil::bench::run(argc, argv);
}
