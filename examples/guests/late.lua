-- Looks harmless until it is called.

function answer()
    while true do end
end
