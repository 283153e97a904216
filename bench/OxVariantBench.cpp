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

double toDouble(const Variant& value)
{
    return value.toDouble();
}

int toInt(const Value& value)
{
    return std::get<int>(value);
}

double toDouble(const Value& value)
{
    return std::get<double>(value);
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

double toDouble(const QVariant& value)
{
    return value.toDouble();
}
#endif

#ifdef HAS_NLOHMANN_JSON
int toInt(const nlohmann::json& value)
{
    return value.get<int>();
}

double toDouble(const nlohmann::json& value)
{
    return value.get<double>();
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
    for (int i = 0; i < COUNT; ++i) {
        expect(state, toInt(Held(ints[i])) == ints[i] && toDouble(Held(doubles[i])) == doubles[i]);
    }

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
    expect(state, std::vector<Held>(values) == values);

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
    for (int i = 0; i < COUNT; ++i) {
        expect(state, (left[i] == right[i]) == (i % 4 != 3));
    }

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

std::string format(int number)
{
    return std::to_string(number);
}

std::string format(double number)
{
    char digits[64];
    std::snprintf(digits, sizeof digits, "%f", number);
    return digits;
}

/** What @p text holds, in digits of one byte. */
const std::string& toBytes(const std::string& text)
{
    return text;
}

#ifdef HAS_QT5CORE
std::string toBytes(const QString& text)
{
    return text.toStdString();
}
#endif

/** @param sixDecimals  false if a double gets as many as it needs to be read back */
template <typename Held, typename Number, typename ToText>
void convertEach(benchmark::State& state, const std::vector<Number>& numbers, bool sixDecimals,
                 const ToText& toText)
{
    const std::vector<Held> values(numbers.begin(), numbers.end());
    for (int i = 0; i < COUNT; ++i) {
        const auto text = toBytes(toText(values[i]));
        expect(state, sixDecimals ? text == format(numbers[i]) : std::stod(text) == numbers[i]);
    }

    for (auto _ : state) {
        for (const Held& value : values) {
            auto text = toText(value);
            benchmark::DoNotOptimize(text);
        }
    }
    state.SetItemsProcessed(state.iterations() * COUNT);
}

template <typename Held, typename ToText>
void addIntToText(const std::string& contender, const ToText& toText)
{
    add("to text: int", contender,
        [=](benchmark::State& state) { convertEach<Held>(state, someInts(), true, toText); });
}

template <typename Held, typename ToText>
void addDoubleToText(const std::string& contender, bool sixDecimals, const ToText& toText)
{
    add("to text: double", contender, [=](benchmark::State& state) {
        convertEach<Held>(state, someDoubles(), sixDecimals, toText);
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
    addNumbers<Value>("floor: std::variant");
    addNumbers<Variant>("oxil");
    addTexts<std::string>("floor: std::string");
    addTexts<Variant>("oxil");
    addTexts<Value>("std::variant");

    const auto toString = [](auto number) { return std::to_string(number); };
    const auto writeChars = [](auto number) { return toChars(number); };
    const auto ofVariant = [](const Variant& value) { return value.toString(); };
    addIntToText<int>("floor: std::to_string", toString);
    addIntToText<Variant>("oxil", ofVariant);
    addIntToText<int>("std::to_chars", writeChars);
    addDoubleToText<double>("floor: std::to_chars", true, writeChars);
    addDoubleToText<Variant>("oxil", true, ofVariant);
    addDoubleToText<double>("std::to_string", true, toString);
#ifdef HAS_QT5CORE
    const auto ofQVariant = [](const QVariant& value) { return value.toString(); };
    addNumbers<QVariant>("QVariant");
    addTexts<QVariant>("QVariant, copies share the text");
    addIntToText<QVariant>("QVariant, UTF-16", ofQVariant);
    addDoubleToText<QVariant>("QVariant, UTF-16 and other decimals", false, ofQVariant);
#endif
#ifdef HAS_NLOHMANN_JSON
    const auto ofJson = [](const nlohmann::json& value) { return value.dump(); };
    addNumbers<nlohmann::json>("nlohmann json");
    addTexts<nlohmann::json>("nlohmann json");
    addIntToText<nlohmann::json>("nlohmann json", ofJson);
    addDoubleToText<nlohmann::json>("nlohmann json, other decimals", false, ofJson);
#endif
}

}  // namespace
}  // namespace oxil::bench

int main(int argc, char** argv)
{
    oxil::bench::addAll();
    return oxil::bench::run(argc, argv);
}
