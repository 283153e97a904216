-- Dims the lamp step by step, and says good night.

local STEP = 20
local timer

-- Timers call global functions.
function dim()
    local brightness = math.max(Lamp.getBrightness() - STEP, 0)
    if brightness == 0 then
        Timer.stop(timer)
        Log.print("good night")
    end
    Lamp.setBrightness(brightness)
end

-- What the application calls.
function start(interval)
    timer = Timer.start(interval, "dim", true)
end
