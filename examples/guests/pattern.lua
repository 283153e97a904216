-- Overflows the C stack of Lua 5.1.

string.find(string.rep("a", 300000), string.rep("a?", 200000))
