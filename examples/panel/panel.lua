-- What the panel does. Panel and Settings are tables of the application; Timer and WaitingLoop are
-- there in every script.

local SAVE_DELAY = 400 -- milliseconds, so that a slider that is being moved is saved once
local RETRY_DELAY = 1000
local CHECK_TIME = 4000 -- after which the service is taken to be silent
local STILL = Panel.getClock() ~= "" -- nothing moves by itself
local FORM = {name = true, server = true} -- settings that are saved by a button

local values = {} -- settings as they are shown
local unsaved = {} -- those that the service has to get
local sent = {} -- those that it has not confirmed
local draft = {} -- those of the form that were changed
local connected, closing, busy = false, false, false

local function warn(word)
    Panel.setMessage(Panel.getWord(word), true)
end

--! [timers]
-- A handle is a position: whoever stops a timer moves those behind it. So all are listed here.
local timers = {}

local function stop(name)
    for place, other in ipairs(timers) do
        if other == name then
            table.remove(timers, place)
            Timer.stop(place - 1)
            return
        end
    end
end

local function start(name, interval, again)
    stop(name)
    timers[#timers + 1] = name
    Timer.start(interval, name, again)
end
--! [timers]

function showTime()
    Panel.set("time", STILL and Panel.getClock() or os.date("%H:%M"))
end

-- Settings and what they look like ----------------------------------------------------------------

local function updateForm()
    local changed = next(draft) ~= nil
    Panel.enable("save", changed)
    Panel.enable("discard", changed)
    if Panel.getPage() == "network" then
        Panel.set("state", changed and Panel.getWord("unsaved") or "")
    end
end

-- What depends on a setting besides its own row.
local effects = {}

function effects.hue()
    Panel.setTheme(values.hue, values.dark)
end
effects.dark = effects.hue

function effects.language()
    Panel.setLanguage(values.language)
end

function effects.mute()
    Panel.enable("volume", not values.mute)
    Panel.enable("clicks", not values.mute)
end

function effects.layout()
    values.variant, unsaved.variant = "", ""
    Settings.ask("variants", {values.layout})
end

--! [save]
-- What has changed goes to the service in one call, a moment after the last change.
function save()
    stop("save")
    local params = {}
    for name, value in pairs(unsaved) do
        params[#params + 1] = name
        params[#params + 1] = value
    end
    if connected and #params > 0 and Settings.ask("set", params) then
        sent, unsaved = unsaved, {}
    end
end

function onChanged(name, value)
    if FORM[name] then
        draft[name] = value ~= values[name] and value or nil
        updateForm()
    elseif values[name] ~= nil and values[name] ~= value then
        values[name], unsaved[name] = value, value
        Panel.set("state", "")
        start("save", SAVE_DELAY, false)
        if effects[name] then
            effects[name]()
        end
    end
end
--! [save]

-- The window was made anew, in the language that was chosen.
function onBuilt()
    for name, value in pairs(values) do
        Panel.set(name, draft[name] or value)
    end
    showTime()
    effects.mute()
    updateForm()
    Panel.open(Panel.getPage() ~= "" and Panel.getPage() or "display")
end

function onOpen(page)
    Panel.set("state", "")
    if page == "keyboard" then
        Settings.ask("layouts", {})
        Settings.ask("variants", {values.layout})
    elseif page == "network" then
        updateForm()
    elseif page == "about" then
        Panel.set("screen", string.format("%d × %d", Panel.getSize()))
        Panel.set("service", Panel.getWord(connected and "running" or "stopped"))
    end
end

--! [question]
local loop = WaitingLoop.create()
local answer = false

-- Nothing behind the question can be used until it is answered.
local function setQuestion(shown)
    Panel.enable("content", not shown)
    Panel.show("question", shown)
    Panel.focus(shown and "keep" or "pages")
end

-- The one who asks waits here, while timers, messages and the window go on.
local function ask()
    answer = false
    setQuestion(true)
    WaitingLoop.run(loop)
    setQuestion(false)
    return answer
end

local function reply(yes)
    answer = yes
    WaitingLoop.quit(loop)
end

local function discard()
    draft = {}
    for name in pairs(FORM) do
        Panel.set(name, values[name])
    end
    updateForm()
end

function onLeave(page)
    if page == "network" and next(draft) ~= nil then
        if not ask() then
            return false
        end
        discard()
    end
    return true
end
--! [question]

-- Buttons -----------------------------------------------------------------------------------------

-- The busy page moves for as long as the answer may take.
local waited = 0

local function setBusy(shown)
    busy = shown
    stop("animate")
    Panel.turn(shown and "busy" or Panel.getPage())
    Panel.enable("pages", not shown)
    Panel.enable("search", not shown)
    Panel.focus(shown and "cancel" or "pages")
end

function animate()
    waited = waited + 40
    local rest = 1 - waited / CHECK_TIME
    Panel.set("progress", math.floor(100 - 100 * rest * rest))
end

local buttons = {discard = discard}

function buttons.check()
    if not Settings.ask("check", {}) then
        return warn("silent")
    end
    setBusy(true)
    Panel.set("progress", STILL and 40 or 0)
    waited = 0
    if not STILL then
        start("animate", 40, true)
    end
end

function buttons.cancel()
    setBusy(false)
end

function buttons.keep()
    reply(false)
end

function buttons.drop()
    reply(true)
end

function buttons.save()
    for name, value in pairs(draft) do
        values[name], unsaved[name] = value, value
    end
    draft = {}
    updateForm()
    save()
end

function buttons.report()
    local path = Panel.writeReport()
    if path == "" then
        return warn("failed")
    end
    Panel.setMessage(Panel.getWord("written") .. " " .. path, false)
end

function onPressed(button)
    buttons[button]()
end

-- The service -------------------------------------------------------------------------------------

--! [connection]
-- Asks for all settings, and again if there is no answer.
function fetch()
    stop("fetch")
    if connected then
        Settings.ask("get", {})
    end
end

function onConnection(there)
    connected = there
    if there then
        fetch()
    elseif not closing then
        warn("gone")
    end
end

-- What a method of the service has answered, and whether that is what was asked for.
local answers = {}

-- What was changed while the service was away counts.
function answers.get(records, good)
    local first = next(values) == nil
    if not good then
        warn("silent")
        start("fetch", RETRY_DELAY, false)
        return Panel.getPage() == "" and Panel.open("display")
    end
    for name, value in pairs(records[1]) do
        if unsaved[name] == nil then
            values[name] = value
        end
    end
    Panel.setMessage("", false)
    if first then
        effects.hue()
        effects.language()
    else
        save()
    end
end
--! [connection]

function answers.set(_, good)
    if closing then
        WaitingLoop.quit(loop)
    elseif good then
        Panel.set("state", Panel.getWord("saved"))
    else
        warn("silent")
        for name, value in pairs(sent) do
            if unsaved[name] == nil then
                unsaved[name] = value
            end
        end
        start("save", RETRY_DELAY, false)
    end
end

function answers.layouts(records, good)
    if good then
        Panel.setOptions("layout", records)
        Panel.set("layout", values.layout)
    end
end

function answers.variants(records, good)
    records = good and records or {}
    table.insert(records, 1, {value = "", title = Panel.getWord("standard")})
    Panel.setOptions("variant", records)
    Panel.set("variant", values.variant)
    Panel.enable("variant", #records > 1)
end

function answers.check(_, good)
    if busy then
        setBusy(false)
        Panel.setMessage(Panel.getWord(good and "current" or "silent"), not good)
    end
end

function onAnswer(method, records)
    answers[method](records, records[1] ~= nil and records[1].error == nil)
end

showTime()
if not STILL then
    start("showTime", 1000, true)
end

--! [close]
-- Nothing that was chosen is lost, and nothing that was made here is left.
function onClose()
    closing = true
    reply(false)
    if connected and next(unsaved) ~= nil then
        save()
        WaitingLoop.runTime(loop, 1000)
    end
    for place = #timers, 1, -1 do
        Timer.stop(place - 1)
    end
    WaitingLoop.destroy(loop)
end
--! [close]
