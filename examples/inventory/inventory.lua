Shelf.put("bolt", 12)
Shelf.put("nut", 40)

function stock()
    local texts = {}
    for i, article in ipairs(Shelf.list()) do
        texts[i] = article.name .. " " .. article.count
    end
    return table.concat(texts, ", ")
end

function total(one, other)
    return Shelf.count(one) + Shelf.count(other)
end

function describe(article)
    return Shelf.label(article)
end

function explain(article)
    local found, message = pcall(Shelf.count, article)
    return found and "here it is" or (message:gsub("^.-:%d+: ", ""))
end
