-- Asks the settings service for keyboard layouts, chooses among them, and fills the page.
--
-- Settings and Page are tables of the application; Log, Timer and WaitingLoop are there in every
-- script.

local PATIENCE = 2000 -- milliseconds

local loop = WaitingLoop.create()
local waited = 0

-- Called by the application when an answer has come.
function onAnswer()
    WaitingLoop.quit(loop)
end

-- Called by the timer below for as long as an answer is waited for.
function showProgress()
    waited = waited + 1
    Log.print("waiting for the settings service,", waited * 0.5, "s")
end

--! [await]
-- Blocks until the answer is there. Events go on meanwhile: the timer, and the answer itself.
local function await()
    waited = 0
    local progress = Timer.start(500, "showProgress", true)
    WaitingLoop.runTime(loop, PATIENCE)
    Timer.stop(progress)

    local complaint = Settings.getError()
    if complaint then
        error(complaint, 0)
    end
    if not Settings.isAnswered() then
        error("the settings service does not answer", 0)
    end
end
--! [await]

local function readRecords(keys)
    local records = {}
    for i = 1, Settings.getCount() do
        local record = {}
        for _, key in ipairs(keys) do
            record[key] = Settings.get(i, key)
        end
        records[i] = record
    end
    return records
end

-- All pages of the list, one after the other.
local function listLayouts(country)
    local all = {}
    local page, pages = 0, 1
    while page < pages do
        Settings.list(country, page)
        await()
        pages = Settings.getPages()
        page = page + 1
        Log.print("page", page, "of", pages .. ":", Settings.getCount(), "records")
        for _, record in ipairs(readRecords({"layout", "variant", "description", "languages"})) do
            all[#all + 1] = record
        end
    end
    return all, pages
end

-- Layouts with the number of their variants; those with most come first.
local function countVariants(records)
    local layouts, places = {}, {}
    for _, record in ipairs(records) do
        if record.variant == "" then
            record.variants = 0
            layouts[#layouts + 1] = record
            places[record.layout] = record
        elseif places[record.layout] then
            places[record.layout].variants = places[record.layout].variants + 1
        end
    end
    table.sort(layouts, function(one, other)
        if one.variants ~= other.variants then
            return one.variants > other.variants
        end
        return one.description < other.description
    end)
    return layouts
end

local function run(country, cards, variants)
    local records, pages = listLayouts(country)
    local layouts = countVariants(records)
    for place, layout in ipairs(layouts) do
        Page.addLayout(layout.layout, layout.description, layout.languages, layout.variants)
        if place <= cards then
            Settings.describe(layout.layout, variants)
            await()
            for i = 1, Settings.getCount() do
                Page.addVariant(Settings.get(i, "description"))
            end
        end
    end
    return #records, #layouts, pages
end

--! [pick]
-- What the application calls. An error does not get through to it, so it gets the text of one.
function pick(country, cards, variants)
    local done, records, layouts, pages = pcall(run, country, cards, variants)
    if not done then
        return tostring(records), 0, 0, 0
    end
    return "", records, layouts, pages
end
--! [pick]
