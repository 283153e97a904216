-- The script whose calls bench/footprint.cpp measures.

local loop -- made when it is needed

function nothing()
end

function add(left, right)
    return left + right
end

function same(text)
    return text
end

function askNative(count)
    loop = loop or WaitingLoop.create()
    local answers = 0
    for _ = 1, count do
        if not WaitingLoop.isRunning(loop) then
            answers = answers + 1
        end
    end
    return answers
end
