---@meta
-- What every script has that runs in a LuaScript, for editors: Lua language servers read the
-- annotations, and nothing here is ever run. Add this folder to the workspace library of your
-- language server.

---Writes to the platform's log.
---@class Log
Log = {}

---Logs its arguments with one blank between two of them, at information priority.
---@param ... string|number
function Log.print(...) end

---Calls global functions after a delay.
---
---A handle is a position, in one list for all scripts of the process: when a timer is stopped, the
---handles of all timers started after it, by whichever script, go down by one, and name other timers
---from then on. Start what lives long when the script is loaded, stop it in the opposite order, the
---script that was loaded last first, and ask for `pcall(Timer.stop, handle)`: a handle past the end is
---an error.
---@class Timer
Timer = {}

---Calls a global function after a delay, once or again and again. A timer that has fired once is
---still there until it is stopped. A function that fails is called again at the next expiry.
---
---Not from a coroutine: the timer would not find its script.
---@param interval integer milliseconds; 0 means the next iteration of the main loop
---@param functionName string name of a global function without parameters; "" calls nothing
---@param repeatedly? any any other value than nil and false: again and again instead of once
---@return integer handle -1 if there was no memory
function Timer.start(interval, functionName, repeatedly) end

---Stops and destroys a timer, which may be the one that is just calling.
---@param handle integer a negative one is logged and does nothing, one past the end is an error
function Timer.stop(handle) end

---Blocks the script in place while timers go on.
---
---A loop has two modes, which may be active at the same time: running, which sleeps between events,
---and waiting, which keeps a processor busy and is meant for short waits. When the time-out of
---either comes, both end.
---
---A handle is a position, in one list for all scripts of the process: when a loop is destroyed, the
---handles of all loops created after it, by whichever script, go down by one, and name other loops
---from then on. Create what lives long when the script is loaded, and destroy it in the opposite order,
---the script that was loaded last first. A negative handle is logged and does nothing, one past the end
---is an error, which `pcall` keeps in the script.
---@class WaitingLoop
WaitingLoop = {}

---Makes a loop, which is there until it is destroyed.
---@return integer handle -1 if there was no memory
function WaitingLoop.create() end

---Destroys a loop. If it is waiting, the wait ends; if it is running, nothing would ever end that:
---say `WaitingLoop.quit` first.
---@param handle integer
function WaitingLoop.destroy(handle) end

---Waits until `WaitingLoop.go`.
---@param handle integer
function WaitingLoop.wait(handle) end

---Waits until `WaitingLoop.go` or until the time is over.
---@param handle integer
---@param interval integer milliseconds; -1 means no time-out
function WaitingLoop.waitTime(handle, interval) end

---Runs until `WaitingLoop.quit`.
---@param handle integer
function WaitingLoop.run(handle) end

---Runs until `WaitingLoop.quit` or until the time is over.
---@param handle integer
---@param interval integer milliseconds; -1 means no time-out
function WaitingLoop.runTime(handle, interval) end

---Ends running. While the loop waits too, this takes away the time-out of the wait.
---@param handle integer
function WaitingLoop.quit(handle) end

---Ends waiting. While the loop runs too, this takes away the time-out of the run: only
---WaitingLoop.quit ends it then.
---@param handle integer
function WaitingLoop.go(handle) end

---Whether a loop is running: from `WaitingLoop.run` or `runTime` until it ends.
---@param handle integer
---@return boolean running false for a negative handle
function WaitingLoop.isRunning(handle) end

---Whether a loop is waiting: from `WaitingLoop.wait` or `waitTime` until it ends.
---@param handle integer
---@return boolean waiting false for a negative handle
function WaitingLoop.isWaiting(handle) end
