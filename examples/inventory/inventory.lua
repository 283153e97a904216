Shelf.put("bolt", 12)
Shelf.put("nut", 40)

function stock()
    return "bolt " .. Shelf.count("bolt") .. ", nut " .. Shelf.count("nut")
end

function total(one, other)
    return Shelf.count(one) + Shelf.count(other)
end

function explain(article)
    local found, message = pcall(Shelf.count, article)
    return found and "here it is" or (message:gsub("^.-:%d+: ", ""))
end
