#pragma once

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "Bench.h"
#include "OxVariant.h"

/** The content of the records that are measured: settings of an application. */
namespace oxil::bench {

inline std::string key(int i)
{
    static const char* const names[] = {"volume", "brightness", "title", "on", "position"};
    return names[i % 5] + std::to_string(i);
}

template <typename Held>
Held textValue(const std::string& text)
{
    return Held(text);
}

/** The value of a key: numbers, booleans and short texts in turn. */
template <typename Held>
Held value(int i)
{
    switch (i % 4) {
        case 0:
            return Held(i * 7);
        case 1:
            return Held(i * 0.5);
        case 2:
            return Held(i % 8 == 2);
        default:
            return textValue<Held>("hall lamp " + std::to_string(i % 90 + 10));
    }
}

template <typename Key>
std::vector<Key> keys(int count)
{
    std::vector<Key> list;
    for (int i = 0; i < count; ++i) {
        list.push_back(Key(key(i).c_str()));
    }
    return list;
}

template <typename Held>
std::vector<Held> values(int count)
{
    std::vector<Held> list;
    for (int i = 0; i < count; ++i) {
        list.push_back(value<Held>(i));
    }
    return list;
}

/** The numbers from 0 to @p count - 1. */
inline std::vector<int> numbersBelow(int count)
{
    std::vector<int> numbers;
    for (int i = 0; i < count; ++i) {
        numbers.push_back(i);
    }
    return numbers;
}

/** The same in an order without pattern, which is the same each time. */
inline std::vector<int> shuffled(int count)
{
    std::vector<int> order = numbersBelow(count);
    std::shuffle(order.begin(), order.end(), std::mt19937(1));
    return order;
}

}  // namespace oxil::bench
