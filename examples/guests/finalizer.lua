-- Goes on for ever where no limit reaches it: when the state is closed.

getmetatable(newproxy(true)).__gc = function() while true do end end
