#pragma once

#include <cstdint>
#include <string>

#include "Bench.h"

namespace oxil::bench {

/**
 * Registers "operation/contender", for an action whose result is what it is for.
 *
 * What it gives is compared before anything is timed. It stands for so many items of work.
 */
template <typename Action, typename Result>
void compete(const std::string& operation, const std::string& contender, const Action& action,
             const Result& expected, int items = 1)
{
    add(operation, contender, [=](benchmark::State& state) {
        expect(state, action() == expected);
        for (auto _ : state) {
            auto result = action();
            benchmark::DoNotOptimize(result);
        }
        state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(items));
    });
}

/** The same with the number of items as the size: "operation/contender/size". */
template <typename Action, typename Result>
void competeAt(int size, const std::string& operation, const std::string& contender,
               const Action& action, const Result& expected)
{
    compete(operation, contender + '/' + std::to_string(size), action, expected, size);
}

}  // namespace oxil::bench
