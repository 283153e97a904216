-- One of several scripts of a process, all of which number their timers and loops together.

local ticks = 0

function tick()
    ticks = ticks + 1
end

function getTicks()
    return ticks
end

--! [handles]
-- All that lives as long as the script is made once, when it is loaded ...
local clock = Timer.start(1, "tick", true)
local loop = WaitingLoop.create()

-- ... and destroyed in the opposite order, by the script that was loaded last first. Whatever has gone
-- wrong before, a handle past the end is an error that pcall keeps here.
function stop()
    return pcall(WaitingLoop.destroy, loop) and pcall(Timer.stop, clock)
end
--! [handles]

-- A mistake: nobody has this handle.
function refresh()
    WaitingLoop.go(1000)
end
