#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "OxExport.h"
#include "OxLuaApi.h"

namespace oxil {

/**
 * Limits for a script that is not trusted: it may compute and call the tables of the application,
 * for so long and with so much memory.
 * @snippet guests/main.cpp limits
 *
 * Add it before load(), and behind the tables that it takes something from: it applies to what is
 * there when it is loaded. It may be added to several scripts, and destroyed before them: what it
 * has set stays as long as the state does. removeLuaApi() lifts nothing.
 *
 * @par What is taken away
 * - what reaches the process and its files: `io`, `print`, `require`, `module`, `package`, `dofile`,
 *   `loadfile`, of `os` all but `clock`, `date`, `difftime` and `time`, and `Timer` and
 *   `WaitingLoop`, whose objects all scripts share;
 * - what gets round the limits: `debug`, `load` and `loadstring`, which take compiled Lua, `newproxy`
 *   and `collectgarbage` (no limit reaches a finalizer), `xpcall` (nor the function that handles an
 *   error), `coroutine` (each counts its own instructions), and LuaJIT's `jit`;
 * - library functions that can go on for ever within one instruction: `string.find`, `match`,
 *   `gmatch`, `gfind` and `gsub`, whose patterns also overflow the C stack of Lua 5.1,
 *   `string.rep`, which repeats an empty text two thousand million times, `table.foreach` and
 *   `table.foreachi`.
 *
 * `table.insert`, `remove` and `sort` refuse a table that is longer than the memory has room for,
 * which a few values far apart make it, and such a position.
 *
 * @par What is not stopped
 * One instruction can be a call that goes through all the memory the script may have, as
 * `table.sort` does, so that time is bounded by both limits together. `Log.print` writes as often as
 * the instructions allow. Native functions of the application do what they do: they count as one
 * instruction, and their memory is not the script's.
 *
 * @par Threads
 * The thread of the script.
 */
class OXIL_API LuaLimits : public LuaApi {
public:
    /**
     * @param instructions  how many instructions of Lua's virtual machine load() and each
     *                      call of a function, also by a timer, may take, counted in thousands. 64 bytes
     *                      of memory asked for count as one. Beyond them every instruction raises
     *                      "instruction limit reached", so that no script handles the error for
     *                      long. The next call has all of them again.
     *                      Calls that an application makes by itself on the Lua state count
     *                      together.
     * @param bytes         how much memory the state may have, with the libraries (30 to 40 KB) and
     *                      what is not collected yet; allow twice of what the script needs. Beyond
     *                      it Lua raises "not enough memory".
     */
    LuaLimits(std::uint64_t instructions, std::size_t bytes);

    ~LuaLimits() override;

    /**
     * Leaves something with the scripts that are loaded from now on.
     *
     * @param name  as in the list above: "os.getenv", "coroutine"
     * @return STATUS_SUCCESS; STATUS_NOT_FOUND after logging "Not found (%s)." with the name when
     *         it is not in the list
     */
    int keep(const std::string& name);

    /**
     * Takes something else away from the scripts that are loaded from now on.
     *
     * @param name  a global, or a field of a global table: "Log", "os.date"
     */
    void takeAway(const std::string& name);

    /**
     * Applies the limits to the state of the script.
     *
     * If that fails, the script can't run: each instruction raises "script refused".
     *
     * @return STATUS_SUCCESS; STATUS_INVALID_STATE after logging "Invalid state." when there is no
     *         state or no memory, or "Compiled script (%s)." with the path when the file is compiled
     *         Lua, which can do anything
     */
    int onLoading() override;

private:
    std::uint64_t __instructions;
    std::size_t __bytes;
    std::vector<std::string> __takenAway;
};

}  // namespace oxil
