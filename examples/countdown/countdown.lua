-- Counts down in the log: a timer calls tick(), and countDown() waits for the last one.

local loop = WaitingLoop.create()
local left = 0
local ticks = 0

-- Timers call global functions.
function tick()
    Log.print(left)
    ticks = ticks + 1
    left = left - 1
    if left == 0 then
        WaitingLoop.quit(loop)
    end
end

function countDown(from, last)
    left = from
    ticks = 0

    local timer = Timer.start(10, "tick", true)
    WaitingLoop.runTime(loop, 5000) -- gives up after five seconds
    Timer.stop(timer)

    Log.print(last)
    return ticks, last
end
