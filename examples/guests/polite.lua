-- Computes, and says what it found.

function answer()
    local sum = 0
    for i = 1, 6 do
        sum = sum + 2 * i
    end
    return sum
end
