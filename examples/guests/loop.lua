-- Goes on for ever, and handles every error that could end it.

while true do
    pcall(function() while true do end end)
end
