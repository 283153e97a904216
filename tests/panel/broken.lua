-- A script with errors in all places that the panel calls or has called.

local text = Panel.build("en")
Panel.setTheme(120, false)
Panel.set("window", true, "visible")

function onConnection()
end

function onOpen(page)
    if page == "keyboard" then
        error("nobody can hear this")
    elseif page == "network" then
        Panel.set("nonsense", 1)
    elseif page == "system" then
        Timer.start(1, "later", false)
    end
end

function onChanged(name)
    Panel.set(name, "nonsense", "visible")
end

function later()
    return nothing.at.all
end

function onClose()
end
