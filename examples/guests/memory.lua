-- Takes all the memory there is.

local list = {}
while true do
    list[#list + 1] = {}
end
