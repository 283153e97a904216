-- A script with errors in all places that the panel calls or has called.

function onBuilt()
    Panel.setTheme(120, false)
    Panel.open("display")
end

function onConnection(there)
    if there then
        Panel.setLanguage("en")
    end
end

function onOpen(page)
    if page == "sound" then
        error("nobody can hear this")
    elseif page == "network" then
        Panel.set("nonsense", 1)
    elseif page == "about" then
        Timer.start(1, "later", false)
    end
end

function later()
    return nothing.at.all
end

function onLeave()
    return true
end

function onClose()
end
