#pragma once

/**
 * @file
 * The default main context in a time of its own, which passes when somebody waits for it. So nothing
 * takes long, and the same input does the same again.
 *
 * Whoever waits for ever ends the process.
 */
namespace oxil::fuzz {

/** To be said once, before the main loop is used. */
void startVirtualTime();

/** Ends all nested main loops, whoever runs them. */
void quitMainLoops();

}  // namespace oxil::fuzz
