-- What the panel does. Panel and Settings are tables of the application; Timer and WaitingLoop are
-- there in every script.

local SAVE_DELAY = 400 -- milliseconds, so that a slider that is being moved is saved once
local RETRY_DELAY = 1000
local CHECK_TIME = 4000 -- after which the service is taken to be silent
local FORM = {name = true, server = true} -- settings that are saved by a button

local values = {} -- settings as they are shown
local unsaved = {} -- those that the service has to get
local sent = {} -- those that it has not confirmed
local draft = {} -- those of the form that were changed
local connected = false
local closing = false

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

-- Settings and what they look like ----------------------------------------------------------------

local function updateForm()
    local changed = next(draft) ~= nil
    Panel.enable("save", changed)
    Panel.enable("discard", changed)
    if Panel.getPage() == "network" then
        Panel.setState(changed and Panel.getWord("unsaved") or "")
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

local function change(name, value)
    values[name] = value
    unsaved[name] = value
    start("save", SAVE_DELAY, false)
end

function onChanged(name, value)
    if FORM[name] then
        draft[name] = value ~= values[name] and value or nil
        updateForm()
    elseif values[name] ~= nil and values[name] ~= value then
        Panel.setState("")
        change(name, value)
        if name == "layout" then
            change("variant", "")
        end
        if effects[name] then
            effects[name]()
        end
    end
end
--! [save]

-- The pages were made: all of them, in the language that was chosen.
function onBuilt()
    for name, value in pairs(values) do
        Panel.setValue(name, draft[name] or value)
    end
    effects.mute()
    updateForm()
    local page = Panel.getPage()
    Panel.showPage(page ~= "" and page or "display")
end

-- Pages -------------------------------------------------------------------------------------------

function onOpen(page)
    Panel.setState("")
    if page == "keyboard" then
        Settings.ask("layouts", {})
        Settings.ask("variants", {values.layout})
    elseif page == "network" then
        updateForm()
    elseif page == "about" then
        Panel.setValue("screen", string.format("%d × %d", Panel.getSize()))
        Panel.setValue("service", Panel.getWord(connected and "running" or "stopped"))
    end
end

--! [question]
local loop = WaitingLoop.create()
local answer = false

-- The one who asks waits here, while timers, messages and the window go on.
local function ask()
    answer = false
    Panel.setQuestion(true)
    WaitingLoop.run(loop)
    Panel.setQuestion(false)
    return answer
end

function onAnswered(yes)
    answer = yes
    WaitingLoop.quit(loop)
end

local function discard()
    draft = {}
    for name in pairs(FORM) do
        Panel.setValue(name, values[name])
    end
    updateForm()
end

function onLeave(page)
    if page ~= "network" or next(draft) == nil then
        return true
    end
    local yes = ask()
    if yes then
        discard()
    end
    return yes
end
--! [question]

--! [busy]
-- The busy page moves for as long as the answer may take.
local waited = 0
local busy = false

local function setBusy(shown)
    busy = shown
    stop("animate")
    Panel.setBusy(shown)
end

function animate()
    waited = waited + 40
    local rest = 1 - waited / CHECK_TIME
    Panel.setProgress(math.floor(100 - 100 * rest * rest))
end

local function check()
    setBusy(Settings.ask("check", {}))
    if not busy then
        Panel.setMessage(Panel.getWord("silent"), true)
    elseif Panel.isStill() then
        Panel.setProgress(40)
    else
        waited = 0
        start("animate", 40, true)
    end
end
--! [busy]

local buttons = {check = check, discard = discard}

function buttons.save()
    for name, value in pairs(draft) do
        values[name] = value
        unsaved[name] = value
    end
    draft = {}
    updateForm()
    save()
end

function buttons.cancel()
    setBusy(false)
end

function buttons.report()
    local path = Panel.writeReport()
    if path == "" then
        Panel.setMessage(Panel.getWord("failed"), true)
    else
        Panel.setMessage(Panel.getWord("written") .. " " .. path, false)
    end
end

function onPressed(button)
    buttons[button]()
end

-- The service -------------------------------------------------------------------------------------

-- Asks for all settings, and again if there is no answer.
function fetch()
    stop("fetch")
    if connected then
        Settings.ask("get", {})
    end
end

--! [connection]
function onConnection(there)
    connected = there
    if there then
        fetch()
    elseif not closing then
        Panel.setMessage(Panel.getWord("gone"), true)
    end
end

-- What a method of the service has answered. No records: it has not.
local answers = {}

local function isGood(records)
    return records[1] ~= nil and records[1].error == nil
end

-- What was changed while the service was away counts.
function answers.get(records)
    local first = next(values) == nil
    if not isGood(records) then
        Panel.setMessage(Panel.getWord("silent"), true)
        start("fetch", RETRY_DELAY, false)
        return first and Panel.getPage() == "" and Panel.showPage("display")
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

function answers.set(records)
    if closing then
        WaitingLoop.quit(loop)
    elseif isGood(records) then
        Panel.setState(Panel.getWord("saved"))
    else
        Panel.setMessage(Panel.getWord("silent"), true)
        for name, value in pairs(sent) do
            if unsaved[name] == nil then
                unsaved[name] = value
            end
        end
        start("save", RETRY_DELAY, false)
    end
end

function answers.layouts(records)
    if isGood(records) then
        Panel.setOptions("layout", records)
        Panel.setValue("layout", values.layout)
    end
end

function answers.variants(records)
    records = isGood(records) and records or {}
    table.insert(records, 1, {value = "", title = Panel.getWord("standard")})
    Panel.setOptions("variant", records)
    Panel.setValue("variant", values.variant)
    Panel.enable("variant", #records > 1)
end

function answers.check(records)
    if busy then
        setBusy(false)
        Panel.setMessage(Panel.getWord(records[1] and "current" or "silent"), not records[1])
    end
end

function onAnswer(method, records)
    answers[method](records)
end

--! [close]
-- Nothing that was chosen is lost, and nothing that was made here is left.
function onClose()
    closing = true
    onAnswered(false)
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
