-- What the panel does. Panel and Settings are tables of the application, see panel.cpp; Timer and
-- WaitingLoop are there in every script.

local TICK = 250 -- milliseconds
local FRAME = 40
local CHECK_TIME = 4000 -- after which the service is taken to be silent
local STILL = Panel.getClock() ~= "" -- nothing moves by itself
local FORM = "network" -- the page whose settings are saved by a button

local text = Panel.build("en") -- of whatever has a name in the layout file
local language -- of the window; none before the settings are known
local page = "display" -- that is open
local values = {} -- settings as they are shown
local unsaved = {} -- those that the service has not confirmed
local draft = {} -- those of the form that were changed
local asked = false -- the service, and there is no answer yet
local closing = false

-- Pages -------------------------------------------------------------------------------------------

local function updateForm()
    local changed = next(draft) ~= nil
    Panel.set("save", changed, "sensitive")
    Panel.set("state", changed and text.unsaved or "")
end

local function open(wanted)
    page = wanted
    Panel.set("stack", page)
    Panel.set("title", text[page])
    updateForm()
end

-- Makes the window anew, in the language of the user.
local function build()
    local focus = language and "language" or "brightness"
    language = values.language
    text = Panel.build(language)
    for name, value in pairs(values) do
        Panel.set(name, value)
    end
    Settings.ask("layouts", {})
    open(page)
    Panel.set(focus, true, "is-focus")
end

--! [question]
local loop = WaitingLoop.create()
local answer = false

-- Nothing behind a dialog can be used until it is gone.
local function setDialog(name, shown, focus)
    Panel.set("content", not shown, "sensitive")
    Panel.set(name, shown, "visible")
    Panel.set(focus, true, "is-focus")
end

-- The one who asks waits here, while timers, messages and the window go on.
local function ask()
    answer = false
    setDialog("question", true, "keep")
    WaitingLoop.run(loop)
    setDialog("question", false, "search")
    return answer
end

local function reply(yes)
    answer = yes
    WaitingLoop.quit(loop)
end

-- The user wants to see a page, but the one that is open stays until it may be left.
function onOpen(wanted)
    Panel.set("stack", page)
    if wanted ~= page and (next(draft) == nil or ask()) then
        for name in pairs(draft) do
            Panel.set(name, values[name])
        end
        draft = {}
        open(wanted)
    end
end
--! [question]

-- Settings ----------------------------------------------------------------------------------------

local function change(name, value)
    values[name], unsaved[name] = value, value
    Panel.set("state", "")
    if name == "hue" or name == "dark" then
        Panel.setTheme(values.hue, values.dark)
    end
end

function onChanged(name, value)
    if name == "search" then
        local found = Panel.search(value, page)
        Panel.set("state", found == "" and text.nothing or "")
        if found ~= "" and found ~= page then
            onOpen(found)
        end
    elseif values[name] ~= nil and page == FORM then
        draft[name] = value ~= values[name] and value or nil
        updateForm()
    elseif values[name] ~= nil and values[name] ~= value then
        change(name, value)
    end
end

--! [save]
-- What has changed goes to the service in one call.
local function save()
    local params = {}
    for name, value in pairs(unsaved) do
        params[#params + 1] = name
        params[#params + 1] = value
    end
    return #params > 0 and Settings.ask("set", params)
end

-- What is done a moment later: saving, as a slider that is moved changes often; asking again what
-- had no answer; making the window anew, which is in use when a language is chosen.
function tick()
    if values.language ~= language then
        build()
    end
    Panel.set("time", STILL and Panel.getClock() or os.date("%H:%M"))
    if not asked then
        asked = language and save() or not language and Settings.ask("get", {})
    end
end
--! [save]

-- Buttons -----------------------------------------------------------------------------------------

--! [timers]
-- A handle is a position: who stops a timer moves those that were made later. So the one that comes
-- and goes is the last.
local ticking = Timer.start(TICK, "tick", true)
local animation -- while the busy page is shown
local waited

-- Shows how much of the time that an answer may take is over.
function animate()
    waited = waited + FRAME
    Panel.set("progress", STILL and 0.3 or waited / CHECK_TIME)
end

local function setBusy(shown)
    setDialog("busy", shown, shown and "cancel" or "check")
    if shown then
        waited = 0
        animation = Timer.start(STILL and CHECK_TIME or FRAME, "animate", true)
        animate()
    else
        Timer.stop(animation)
        animation = nil
    end
end
--! [timers]

local pressed = {
    cancel = function() setBusy(false) end,
    drop = function() reply(true) end,
    keep = function() reply(false) end,
    escape = function() reply(false) end,
}

function pressed.check()
    if Settings.ask("check", {}) then
        setBusy(true)
    end
end

function pressed.save()
    for name, value in pairs(draft) do
        change(name, value)
    end
    draft = {}
    updateForm()
end

function pressed.report()
    local path = Panel.writeReport()
    Panel.say(path == "" and text.failed or text.written .. " " .. path, path == "")
end

function onPressed(button)
    pressed[button]()
end

-- The service -------------------------------------------------------------------------------------

--! [connection]
function onConnection(there)
    asked = false
    if not closing and (language or not there) then
        Panel.say(there and "" or text.gone, not there)
    end
end

-- What has come of a call: records, if it was answered and nothing was wrong.
local answers = {}

function answers.get(records)
    if records[1] then
        values = records[1]
        Panel.setTheme(values.hue, values.dark)
        tick()
        Panel.say("", false) -- which shows the window
    end
end

-- All settings as they are now. What the service has refused is not asked again.
function answers.set(records, answered)
    for name, value in pairs(unsaved) do
        if answered and (not records[1] or records[1][name] == value) then
            unsaved[name] = nil
        end
    end
    Panel.set("state", records[1] and text.saved or "")
    if closing then
        WaitingLoop.quit(loop)
    end
end
--! [connection]

function answers.layouts(records)
    Panel.setOptions("layout", records)
    Panel.set("layout", values.layout)
end

function answers.check(records)
    if animation then
        setBusy(false)
        Panel.say(records[1] and text.current or "", false)
    end
end

function onAnswer(method, records)
    local answered = records[1] ~= nil
    asked = false
    answers[method](answered and not records[1].error and records or {}, answered)
    if not answered and not closing then
        Panel.say(text.silent, true)
    end
end

--! [close]
-- Nothing that was chosen is lost, and nothing that was made here is left.
function onClose()
    closing = true
    reply(false)
    if save() then
        WaitingLoop.runTime(loop, 1000)
    end
    if animation then
        Timer.stop(animation)
    end
    Timer.stop(ticking)
    WaitingLoop.destroy(loop)
end
--! [close]
