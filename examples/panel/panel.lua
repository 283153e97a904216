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
local unsaved = {} -- those that the service is to be told
local draft = {} -- those of the form that were changed
local nextFocus -- what gets the focus a moment later

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
    nextFocus = language and "language" or "brightness"
    language = values.language
    text = Panel.build(language)
    for name, value in pairs(values) do
        if text[name] then
            Panel.set(name, value)
        end
    end
    Settings.request("layouts", {})
    open(page)
end

--! [question]
local loop = WaitingLoop.create()
local userSaidYes

-- Nothing behind a dialog can be used until it is gone.
local function setDialog(name, shown, focus)
    Panel.set("content", not shown, "sensitive")
    Panel.set(name, shown, "visible")
    Panel.set(focus, true, "is-focus")
end

-- The function waits here, while timers, messages and the window go on.
local function askUser()
    setDialog("question", true, "keep")
    WaitingLoop.run(loop)
    setDialog("question", false, "search")
    return userSaidYes
end

local function reply(yes)
    userSaidYes = yes
    WaitingLoop.quit(loop)
end

-- The user wants to see a page, but the one that is open stays until it may be left.
function onOpen(wanted)
    Panel.set("stack", page)
    if wanted == page then
        return
    elseif next(draft) == nil or askUser() then
        for name in pairs(draft) do
            Panel.set(name, values[name])
        end
        draft = {}
        open(wanted)
    else -- all of the page is shown again, whatever was searched for
        Panel.set("search", "")
        Panel.search("", page)
        updateForm()
        nextFocus = next(draft)
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
        updateForm()
        if found == "" then
            Panel.set("state", text.nothing)
        else
            onOpen(found)
        end
    elseif page == FORM then
        draft[name] = value
        if value == values[name] then
            draft[name] = nil
        end
        updateForm()
    elseif values[name] ~= value then
        change(name, value)
    end
end

--! [save]
-- What has changed goes to the service in one call; false if there is nothing, or no service.
local function save()
    local params = {}
    for name, value in pairs(unsaved) do
        params[#params + 1] = name
        params[#params + 1] = value
    end
    local asked = #params > 0 and Settings.request("set", params)
    unsaved = asked and {} or unsaved
    return asked
end

-- What is done a moment later: saving, as a slider that is moved changes often; a new focus, or a
-- new window, since GTK uses what there is while it tells of a click.
function tick()
    if values.language ~= language then
        build()
    end
    if text[nextFocus] then
        Panel.set(nextFocus, true, "is-focus")
    end
    nextFocus = nil
    Panel.set("time", STILL and Panel.getClock() or os.date("%H:%M"))
    save()
end
--! [save]

-- Buttons -----------------------------------------------------------------------------------------

--! [timers]
-- A handle is a position: who stops a timer moves those that were made later. So the one that comes
-- and goes is the last.
local ticking = Timer.start(TICK, "tick", true)
local animation -- while the busy page is shown
local waited
local checks = 0 -- that have no answer yet; all but the last were cancelled

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
    escape = function() onPressed(animation and "cancel" or "keep") end,
}

function pressed.check()
    if Settings.request("check", {}) then
        checks = checks + 1
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
    if there and not language then
        Settings.request("get", {})
    else
        Panel.say(there and "" or text.gone, not there)
    end
end

-- What has come of a request: records, or none if there was no answer. Then it is made again.
local answers = {}

function answers.get(records)
    if records[1] then
        values = records[1]
        Panel.setTheme(values.hue, values.dark)
        tick()
        Panel.set("window", true, "visible")
    else
        Settings.request("get", {})
    end
end

-- All settings as they are now, or why they were refused.
function answers.set(records)
    local refused = records[1] and records[1].error
    unsaved = records[1] and unsaved or values
    Panel.set("state", records[1] and not refused and text.saved or "")
    if refused then
        Panel.say(text.refused .. " " .. refused, true)
    end
end
--! [connection]

function answers.layouts(records)
    if text.layout and records[1] and records[1].value then
        Panel.setOptions("layout", records)
        Panel.set("layout", values.layout)
    end
end

function answers.check(records)
    checks = checks - 1
    if animation and checks == 0 then
        setBusy(false)
        Panel.say(records[1] and text.current or "", false)
    end
end

function onAnswer(method, records)
    answers[method](records)
    if not records[1] then
        Panel.say(text.silent, true)
    end
end

--! [close]
-- Nothing that was chosen is lost, and nothing that was made here is left.
function onClose()
    answers.set = function() WaitingLoop.quit(loop) end
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
