#pragma once

#include <chrono>
#include <functional>

namespace oxil::test {

/**
 * Dispatches the default main context until the condition holds; false if it did not in time.
 *
 * In every test, also one that does not use this, a warning or critical message of GLib ends the
 * process.
 */
bool iterateUntil(const std::function<bool()>& condition, std::chrono::milliseconds limit);

/** Dispatches whatever comes up in this time. */
void iterateFor(std::chrono::milliseconds time);

/** Whether a source of the default main context was added with this data. */
bool hasSource(const void* data);

}  // namespace oxil::test
