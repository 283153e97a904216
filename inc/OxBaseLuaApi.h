#pragma once

#include "OxExport.h"
#include "OxLuaApi.h"

namespace oxil {

/**
 * The tables that every LuaScript has: `Log`, `Timer` and `WaitingLoop`.
 *
 * - `Log.print(...)` logs its texts and numbers with a blank between two of them, at information
 *   priority; anything else is logged as "(null)", and a text ends at its first NUL;
 * - `Timer.start(interval, name, repeat)` calls the global function `name` after `interval`
 *   milliseconds, once or, if `repeat` is true, again and again; it returns a handle, or -1 if
 *   there was no memory;
 * - `Timer.stop(timer)` stops and destroys a timer;
 * - `WaitingLoop.create()` makes a loop; it returns a handle, or -1 if there was no memory;
 * - `WaitingLoop.destroy(loop)` destroys a loop;
 * - `WaitingLoop.wait(loop)`, `WaitingLoop.waitTime(loop, interval)`, `WaitingLoop.run(loop)`,
 *   `WaitingLoop.runTime(loop, interval)`, `WaitingLoop.quit(loop)`, `WaitingLoop.go(loop)`,
 *   `WaitingLoop.isRunning(loop)` and `WaitingLoop.isWaiting(loop)` call the members of
 *   oxil::WaitingLoop; the last two return a truth value.
 *
 * A handle is a position, in one list for all scripts of the process: when an object is destroyed,
 * the handles of all objects of its kind that were made after it, by whichever script, go down by
 * one. Scripts that don't destroy what they made in the opposite order, the one that was loaded last
 * first, make each other fail. A negative handle is logged as "Invalid parameter." and does nothing
 * (`isRunning` and `isWaiting` return false). A handle past the end is a Lua error that comes out of
 * LuaScript::load() and callMethod() as `std::out_of_range`, unless the script handles it with
 * `pcall`. A Timer whose callback calls a script has to catch that:
 * @snippet handles/main.cpp timer
 *
 * Objects live until a script destroys them, longer than the script if it does not; a timer that
 * has fired once is not destroyed by that. A timer that outlives its script logs "Invalid state"
 * and "Invalid state (0x%x)." with the address of its state each time it expires, also when the
 * state of another script has got that address since; so does one that was started in a coroutine.
 * A timer's function that fails is called again at the next expiry, and leaves its error message on
 * the script's Lua stack.
 */
class OXIL_API BaseLuaApi : public LuaApi {
public:
    BaseLuaApi();
    ~BaseLuaApi() override;

    /** Registers `Log`, `Timer` and `WaitingLoop`, in this order; each leaves its table on the
     *  Lua stack. Returns 0. */
    int onLoading() override;
};

}  // namespace oxil
