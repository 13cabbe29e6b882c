-- Dissects what robot controllers and their clients exchange: `vexo` over TCP, `vexo_raw` in raw
-- Ethernet frames. Names and types of values come from the catalogue pages and recipe set-ups of the
-- capture, or from a catalogue file named in the preferences.

local vexo = Proto("vexo", "Vexo Robot Controller")
local vexo_raw = Proto("vexo_raw", "Vexo Robot Controller, Raw Frame")

local ETHERTYPE = 0xC815
local MARKER, MAGIC = 0xA6, 0xB7C8
local MESSAGE_HEADER, REPLY_PAYLOAD = 3, 7
local RAW_HEADER = 12
local VERSION_RAW, VERSION_NACK = 0x10000, 0x20000

local LETTERS = {
    V = "Negotiation", R = "Output page", r = "Input page", M = "Method page",
    O = "Output recipe", I = "Input recipe", S = "Start", P = "Pause", U = "Package",
    v = "Controller version", m = "Method call",
}
local CODES = { [144] = "Output package", [145] = "Input package", [146] = "Set-point" }

-- What a type code means: name, kind and width of an element, and how many of them.
local TYPES = {
    [0] = { "char", "text", 1, 1 }, { "bool", "bool", 1, 1 }, { "u8", "unsigned", 1, 1 },
    { "u16", "unsigned", 2, 1 }, { "u32", "unsigned", 4, 1 }, { "u64", "unsigned", 8, 1 },
    { "i8", "signed", 1, 1 }, { "i16", "signed", 2, 1 }, { "i32", "signed", 4, 1 },
    { "i64", "signed", 8, 1 }, { "f32", "real", 4, 1 }, { "f64", "real", 8, 1 },
    { "f64x3", "real", 8, 3 }, { "f64x6", "real", 8, 6 }, { "f32x3", "real", 4, 3 },
    { "i32x6", "signed", 4, 6 }, { "u32x6", "unsigned", 4, 6 }, { "f32x6", "real", 4, 6 },
    { "text", "text", 255, 1 },
}
local TYPE_ARRAY = 19
local TYPE_NAMES = { [TYPE_ARRAY] = "array" }
for code, kind in pairs(TYPES) do
    TYPE_NAMES[code] = kind[1]
end

local letters_by_byte = {}
for letter, name in pairs(LETTERS) do
    letters_by_byte[letter:byte()] = name
end

local f = {
    length = ProtoField.uint16("vexo.length", "Length"),
    type = ProtoField.uint8("vexo.type", "Type", base.HEX, letters_by_byte),
    status = ProtoField.uint8("vexo.status", "Status"),
    unused = ProtoField.bytes("vexo.unused", "Unused"),
    payload = ProtoField.bytes("vexo.payload", "Payload"),
    response_in = ProtoField.framenum("vexo.response_in", "Response in", base.NONE,
        frametype.RESPONSE),
    request_in = ProtoField.framenum("vexo.request_in", "Request in", base.NONE,
        frametype.REQUEST),
    response_time = ProtoField.relative_time("vexo.response_time", "Response time"),
    version = ProtoField.uint64("vexo.version", "Version word", base.HEX),
    mode = ProtoField.uint16("vexo.version.number", "Version"),
    raw = ProtoField.bool("vexo.version.raw", "Cyclic data in raw frames"),
    nack = ProtoField.bool("vexo.version.nack", "Set-points are not acknowledged"),
    host_mac = ProtoField.ether("vexo.host_mac", "Client's address"),
    controller_mac = ProtoField.ether("vexo.controller_mac", "Controller's address"),
    first = ProtoField.uint32("vexo.first", "First row"),
    count = ProtoField.uint16("vexo.count", "Count"),
    row = ProtoField.none("vexo.row", "Row"),
    name = ProtoField.string("vexo.name", "Name"),
    id = ProtoField.uint32("vexo.id", "Id"),
    value_type = ProtoField.uint8("vexo.value_type", "Value type", base.DEC, TYPE_NAMES),
    header_word = ProtoField.uint32("vexo.header_word", "Header word", base.HEX),
    recipe = ProtoField.uint8("vexo.recipe", "Recipe"),
    method = ProtoField.uint16("vexo.method", "Method"),
    argument = ProtoField.none("vexo.argument", "Argument"),
    model = ProtoField.uint16("vexo.model", "Model"),
    firmware = ProtoField.string("vexo.firmware", "Firmware version"),
    hardware = ProtoField.string("vexo.hardware", "Hardware version"),
    bootloader = ProtoField.string("vexo.bootloader", "Bootloader version"),
    bits = ProtoField.uint64("vexo.bits", "Bits", base.HEX),
    value = ProtoField.none("vexo.value", "Value"),
    unsigned = ProtoField.uint64("vexo.value.unsigned", "Unsigned"),
    signed = ProtoField.int64("vexo.value.signed", "Signed"),
    real = ProtoField.double("vexo.value.real", "Real"),
    bool = ProtoField.bool("vexo.value.bool", "Bool"),
    text = ProtoField.string("vexo.value.text", "Text"),
    lost = ProtoField.uint32("vexo.lost", "Packages lost before"),
}
vexo.fields = f

local r = {
    marker = ProtoField.uint8("vexo_raw.marker", "Marker", base.HEX),
    code = ProtoField.uint8("vexo_raw.code", "Code", base.DEC, CODES),
    checksum = ProtoField.uint16("vexo_raw.checksum", "Checksum", base.HEX),
    magic = ProtoField.uint16("vexo_raw.magic", "Magic", base.HEX),
    sequence = ProtoField.uint16("vexo_raw.sequence", "Sequence"),
    length = ProtoField.uint16("vexo_raw.length", "Payload length"),
    reserved = ProtoField.uint16("vexo_raw.reserved", "Reserved", base.HEX),
    lost = ProtoField.uint16("vexo_raw.lost", "Frames lost before"),
}
vexo_raw.fields = r

local e = {
    refused = ProtoExpert.new("vexo.refused", "The controller refused", expert.group.RESPONSE_CODE,
        expert.severity.WARN),
    bad_length = ProtoExpert.new("vexo.bad_length", "Length does not fit", expert.group.MALFORMED,
        expert.severity.ERROR),
    bad_type = ProtoExpert.new("vexo.bad_type", "Unknown type", expert.group.MALFORMED,
        expert.severity.ERROR),
    lost = ProtoExpert.new("vexo.packages_lost", "Packages are missing", expert.group.SEQUENCE,
        expert.severity.WARN),
    unanswered = ProtoExpert.new("vexo.unasked", "No request to this reply was seen",
        expert.group.SEQUENCE, expert.severity.NOTE),
}
vexo.experts = e

local re = {
    bad_checksum = ProtoExpert.new("vexo_raw.bad_checksum", "Wrong checksum",
        expert.group.CHECKSUM, expert.severity.ERROR),
    bad_header = ProtoExpert.new("vexo_raw.bad_header", "Not a header of ours",
        expert.group.MALFORMED, expert.severity.ERROR),
    bad_length = ProtoExpert.new("vexo_raw.bad_length", "Length does not fit",
        expert.group.MALFORMED, expert.severity.ERROR),
    lost = ProtoExpert.new("vexo_raw.frames_lost", "Frames are missing", expert.group.SEQUENCE,
        expert.severity.WARN),
}
vexo_raw.experts = re

vexo.prefs.io_port = Pref.uint("IO control port", 2295, "Requests, replies, input packages")
vexo.prefs.control_port = Pref.uint("Control port", 2297, "Set-points and their replies")
vexo.prefs.receive_port = Pref.uint("Receive port", 2299, "Output packages")
vexo.prefs.catalogue = Pref.string("Catalogue file", "",
    "JSON file with names and types, as `vexo list --catalogue` prints it, for captures without "
    .. "catalogue pages")
vexo.prefs.counter = Pref.string("Counting variable", "package_counter",
    "A variable that counts packages by one: what it leaves out is reported as lost")

local tcp_stream = Field.new("tcp.stream")

-- ---- What was learned. Packets are dissected in order once, and then again in any order: what is
-- ---- learned is kept with the number of its frame, and looked up as of a frame.

local History = {}
History.__index = History

local function new_history()
    return setmetatable({ count = 0, frames = {}, values = {} }, History)
end

function History:add(frame, value)
    self.count = self.count + 1
    self.frames[self.count], self.values[self.count] = frame, value
end

-- The value that was added last, up to this frame.
function History:as_of(frame)
    for i = self.count, 1, -1 do
        if self.frames[i] <= frame then
            return self.values[i]
        end
    end
    return nil
end

local state

local function new_state()
    return {
        controllers = {}, -- by address
        stations = {},    -- histories of controllers, by hardware address
        pending = {},     -- requests without a reply yet, by connection
        exchanges = {},   -- requests and replies, by their place in the capture
        sequences = {},   -- last sequence number, by hardware address
        gaps = {},        -- what is missing before a frame or package, by its place
        file = nil,       -- catalogue of the preferences
    }
end

local function new_controller()
    local made = { counter = {}, recipes = { O = {}, I = {} }, catalogue = {} }
    for _, list in ipairs({ "R", "r", "M" }) do
        made.catalogue[list] = new_history()
    end
    return made
end

local function controller_at(address)
    local known = state.controllers[address]
    if not known then
        known = new_controller()
        state.controllers[address] = known
    end
    return known
end

local function controller_of_station(mac, frame)
    local history = state.stations[mac]
    return history and history:as_of(frame)
end

-- The row with this id in one of the lists, of the capture or else of the file.
local function find_row(controller, lists, id, frame)
    for _, list in ipairs(lists) do
        local page = controller.catalogue[list]:as_of(frame) or (state.file and state.file[list])
        if page and page[id] then
            return page[id]
        end
    end
    return nil
end

-- ---- The catalogue file: enough of JSON to read it.

local json = {}

function json.skip(text, at)
    return text:find("[^ \t\r\n]", at) or #text + 1
end

function json.string(text, at)
    local close = at
    repeat
        close = text:find('"', close + 1, true)
        local slashes = close and #text:sub(at, close - 1):match("\\*$")
    until not close or slashes % 2 == 0
    if not close then
        error("a text has no end")
    end
    local raw = text:sub(at + 1, close - 1)
    return raw:gsub("\\(.)", { ["\\"] = "\\", ['"'] = '"', ["/"] = "/" }), close + 1
end

function json.members(text, at, close, take)
    at = json.skip(text, at + 1)
    while text:sub(at, at) ~= close do
        at = take(at)
        at = json.skip(text, at)
        if text:sub(at, at) == "," then
            at = json.skip(text, at + 1)
        elseif text:sub(at, at) ~= close then
            error("there is no " .. close .. " at " .. at)
        end
    end
    return at + 1
end

function json.value(text, at)
    at = json.skip(text, at)
    local first = text:sub(at, at)
    if first == '"' then
        return json.string(text, at)
    elseif first == "{" then
        local object = {}
        local next_at = json.members(text, at, "}", function(member)
            local key, colon = json.string(text, member)
            colon = json.skip(text, colon)
            local value, behind = json.value(text, colon + 1)
            object[key] = value
            return behind
        end)
        return object, next_at
    elseif first == "[" then
        local array = {}
        local next_at = json.members(text, at, "]", function(member)
            local value, behind = json.value(text, member)
            array[#array + 1] = value
            return behind
        end)
        return array, next_at
    end
    local word = text:match("^[%w%.%+%-]+", at)
    if not word then
        error("there is no value at " .. at)
    end
    return tonumber(word) or word, at + #word
end

local function read_catalogue(path)
    local file = io.open(path, "r")
    if not file then
        return nil, "it cannot be read"
    end
    local text = file:read("*a")
    file:close()
    local ok, document = pcall(json.value, text, 1)
    if not ok or type(document) ~= "table" then
        return nil, tostring(document)
    end
    local lists = {}
    for list, key in pairs({ R = "outputs", r = "inputs", M = "methods" }) do
        lists[list] = {}
        for _, entry in ipairs(document[key] or {}) do
            if type(entry) == "table" and entry.id then
                lists[list][entry.id] = { name = tostring(entry.name), type = entry.type }
            end
        end
    end
    return lists
end

-- ---- Reading: every access is within the bytes that there are.

local Reader = {}
Reader.__index = Reader

local function new_reader(tvb, at, stop)
    return setmetatable({ tvb = tvb, at = at, stop = math.min(stop, tvb:len()), short = false },
        Reader)
end

function Reader:left()
    return math.max(self.stop - self.at, 0)
end

-- The next bytes; nil when they are not there, and from then on.
function Reader:range(count)
    if self.short or count > self:left() then
        self.short = true
        return nil
    end
    local range = self.tvb(self.at, count)
    self.at = self.at + count
    return range
end

-- Adds a little-endian number to the tree. Returns it and its item; 0 when it is not there.
function Reader:number(tree, field, width)
    local range = self:range(width)
    if not range then
        return 0, tree
    end
    local item = tree:add_le(field, range)
    return width <= 4 and range:le_uint() or range:le_uint64(), item
end

-- Adds a text behind its length byte.
function Reader:string(tree, field)
    local length = self:range(1)
    local range = length and length:uint() > 0 and self:range(length:uint()) or nil
    if range then
        tree:add(field, range)
        return range:string()
    elseif length and not self.short then
        tree:add(field, length, "")
    end
    return ""
end

function Reader:rest(tree, field)
    if not self.short and self:left() > 0 then
        tree:add(field, self:range(self:left()))
    end
end

-- ---- Values

local function value_text(kind, range)
    local name, width = kind[2], kind[3]
    if name == "real" then
        return string.format("%.9g", range:le_float())
    elseif name == "text" then
        return (range:string():gsub("%z.*", ""))
    elseif name == "bool" then
        return range:uint() ~= 0 and "true" or "false"
    elseif name == "signed" then
        return tostring(width == 8 and range:le_int64() or range:le_int())
    end
    return tostring(width == 8 and range:le_uint64() or range:le_uint())
end

-- Adds the elements of a value. Returns their texts.
local function add_elements(reader, tree, kind)
    local texts = {}
    for i = 1, kind[4] do
        local range = reader:range(kind[3])
        if not range then
            break
        end
        texts[i] = value_text(kind, range)
        if kind[2] == "text" then
            tree:add(f.text, range, texts[i])
        elseif kind[2] == "real" then
            tree:add(f.real, range, range:le_float())
        else
            tree:add_le(f[kind[2]], range)
        end
    end
    return table.concat(texts, ", ")
end

-- A value below an item of its own, which says all of it.
local function add_value(reader, tree, field, label, kind)
    local begin = reader.at
    local width = math.min(kind[3] * kind[4], reader:left())
    local item = tree:add(field, reader.tvb(begin, width))
    item:add(f.name, reader.tvb(begin, width), label):set_generated()
    local text = add_elements(reader, item, kind)
    item:set_text(label .. " (" .. kind[1] .. "): " .. text)
    return text
end

local function add_array(reader, tree, label)
    local begin = reader.at - 1
    local item = tree:add(f.argument, reader.tvb(begin, 1))
    reader:range(1) -- always 1
    local count = reader:number(item, f.count, 1)
    local code = reader:number(item, f.value_type, 1)
    local element = TYPES[code]
    if not element or reader.short then
        reader.short = true
        return
    end
    local texts = add_elements(reader, item, { element[1], element[2], element[3],
        count * element[4] })
    item:set_len(reader.at - begin)
    item:set_text(label .. " (" .. element[1] .. "[" .. count .. "]): " .. texts)
end

-- What the catalogue says of an id.
local function add_name(item, row)
    if row then
        item:append_text(" (" .. row.name .. ")")
        item:add(f.name, row.name):set_generated()
    end
end

-- ---- Messages. Each takes its payload from the reader, and returns what the summary says.

local requests, replies = {}, {}

local function mac_of(range)
    return tostring(range:ether())
end

local function has_flag(word, flag)
    return math.floor(word / flag) % 2 == 1
end

function requests.V(reader, tree, message)
    local range = reader:range(8)
    if not range then
        return ""
    end
    local item = tree:add_le(f.version, range)
    local word = range(0, 4):le_uint()
    item:add_le(f.mode, range(0, 2))
    item:add(f.raw, range(2, 1), has_flag(word, VERSION_RAW))
    item:add(f.nack, range(2, 1), has_flag(word, VERSION_NACK))
    message.raw = has_flag(word, VERSION_RAW)
    if message.raw then
        local mac = reader:range(6)
        if mac then
            tree:add(f.host_mac, mac)
        end
    end
    return "version " .. word % 0x10000 .. (message.raw and ", raw frames" or "")
end

function replies.V(reader, tree, message)
    if not (message.request and message.request.raw) then
        return ""
    end
    local mac = reader:range(6)
    if mac then
        tree:add(f.controller_mac, mac)
        if message.first_time then
            local station = mac_of(mac)
            state.stations[station] = state.stations[station] or new_history()
            state.stations[station]:add(message.frame, message.controller)
        end
    end
    return ""
end

local function page_request(reader, tree, message)
    message.first = reader:number(tree, f.first, 4)
    return "from row " .. message.first
end
requests.R, requests.r, requests.M = page_request, page_request, page_request

-- The rows of a page go to those that were read before, unless it is the first.
local function learn_rows(message, rows)
    local history = message.controller.catalogue[message.letter]
    local before = history:as_of(message.frame)
    local page = {}
    if before and not (message.request and message.request.first == 0) then
        for id, row in pairs(before) do
            page[id] = row
        end
    end
    for id, row in pairs(rows) do
        page[id] = row
    end
    history:add(message.frame, page)
end

local function page_reply(reader, tree, message)
    local count = reader:number(tree, f.count, 1)
    local rows = {}
    for _ = 1, count do
        if reader:left() == 0 or reader.short then
            reader.short = true
            break
        end
        local begin = reader.at
        local item = tree:add(f.row, reader.tvb(begin, 1))
        local name = reader:string(item, f.name)
        local id = reader:number(item, f.id, message.letter == "M" and 2 or 4)
        local code = message.letter ~= "M" and reader:number(item, f.value_type, 1) or nil
        item:set_len(reader.at - begin)
        item:set_text(name .. " = " .. id .. (code and ", " .. (TYPE_NAMES[code] or code) or ""))
        if not reader.short then
            rows[id] = { name = name, type = code }
        end
    end
    if message.first_time then
        learn_rows(message, rows)
    end
    return count .. " rows"
end
replies.R, replies.r, replies.M = page_reply, page_reply, page_reply

local function recipe_request(reader, tree, message)
    if message.letter == "O" then
        reader:number(tree, f.header_word, 4)
    end
    local count = reader:number(tree, f.count, 2)
    message.ids = {}
    for i = 1, count do
        local id, item = reader:number(tree, f.id, 4)
        if reader.short then
            break
        end
        local lists = message.letter == "O" and { "R", "r" } or { "r" }
        add_name(item, find_row(message.controller, lists, id, message.frame))
        message.ids[i] = id
    end
    return count .. " variables"
end
requests.O, requests.I = recipe_request, recipe_request

function replies.O(reader, tree, message)
    local recipe = reader:number(tree, f.recipe, 1)
    if message.first_time and message.request and not reader.short then
        local recipes = message.controller.recipes[message.letter]
        recipes[recipe] = recipes[recipe] or new_history()
        recipes[recipe]:add(message.frame, { ids = message.request.ids })
    end
    return "recipe " .. recipe
end
replies.I = replies.O

-- The names and types of a recipe's values; nil when one of them is not known.
local function layout_of(message, recipe)
    local letter = message.to_controller and "I" or "O"
    local history = message.controller.recipes[letter][recipe]
    local known = history and history:as_of(message.frame)
    if known and not known.fields then
        local fields = {}
        local lists = letter == "O" and { "R", "r" } or { "r" }
        for i, id in ipairs(known.ids or {}) do
            local row = find_row(message.controller, lists, id, message.frame)
            local kind = row and TYPES[row.type]
            if not kind then
                return nil
            end
            fields[i] = { name = row.name, kind = kind }
        end
        known.fields = fields
    end
    return known and known.fields
end

-- What the counting variable leaves out before this package.
local function gap_before(message, recipe, count)
    if message.first_time then
        local last = message.controller.counter[recipe]
        message.controller.counter[recipe] = count
        if last and count > last + 1 and count - last < 1000000 then
            state.gaps[message.place] = count - last - 1
        end
    end
    return state.gaps[message.place]
end

local function package(reader, tree, message)
    local recipe = message.recipe
    local fields = layout_of(message, recipe)
    if not fields then
        reader:rest(tree, f.payload)
        return "recipe " .. recipe
    end
    for _, field in ipairs(fields) do
        if reader:left() == 0 then
            reader.short = true
            break
        end
        local text = add_value(reader, tree, f.value, field.name, field.kind)
        if not message.to_controller and field.name == vexo.prefs.counter and tonumber(text) then
            local gap = gap_before(message, recipe, tonumber(text))
            if gap then
                tree:add(f.lost, gap):set_generated()
                tree:add_proto_expert_info(e.lost, gap .. " packages are missing")
            end
        end
    end
    if not reader.short and reader:left() > 0 then
        reader.short = true
    end
    return "recipe " .. recipe .. ", " .. #fields .. " values"
end

function requests.m(reader, tree, message)
    local id, item = reader:number(tree, f.method, 2)
    local row = find_row(message.controller, { "M" }, id, message.frame)
    message.method = row and row.name
    add_name(item, row)
    local count = reader:number(tree, f.count, 1)
    local number = 0
    while count > 0 and reader:left() > 0 and not reader.short do
        number = number + 1
        count = count - 1
        local code = reader:range(1):uint()
        if code == TYPE_ARRAY then
            count = count - 1 -- an array counts as two
            add_array(reader, tree, "Argument " .. number)
        elseif TYPES[code] and reader:left() > 0 then
            add_value(reader, tree, f.argument, "Argument " .. number, TYPES[code])
        else
            reader.short = true
        end
    end
    reader.short = reader.short or count > 0
    reader:rest(tree, f.unused)
    return row and row.name or "method " .. id
end

function replies.m(reader, tree, message)
    if reader:left() == 8 then
        reader:number(tree, f.bits, 8)
    else
        reader:rest(tree, f.payload)
    end
    return message.request and message.request.method or ""
end

function replies.v(reader, tree)
    local model = reader:number(tree, f.model, 2)
    local firmware = reader:string(tree, f.firmware)
    reader:string(tree, f.hardware)
    reader:string(tree, f.bootloader)
    return "model " .. model .. ", firmware " .. firmware
end

-- ---- Requests and their replies

local function pair_up(message)
    local pending = state.pending[message.connection] or {}
    state.pending[message.connection] = pending
    if message.to_controller then
        if #pending >= 64 then
            table.remove(pending, 1)
        end
        pending[#pending + 1] = message
        state.exchanges[message.place] = { request = message }
        return
    end
    for i, request in ipairs(pending) do
        if request.letter == message.letter then
            for _ = 1, i do
                table.remove(pending, 1)
            end
            local exchange = state.exchanges[request.place]
            exchange.response = { frame = message.frame, time = message.time }
            state.exchanges[message.place] = exchange
            return
        end
    end
end

local function relative_time(seconds)
    local nanoseconds = math.floor(seconds * 1e9 + 0.5)
    return NSTime.new(math.floor(nanoseconds / 1e9), nanoseconds % 1e9)
end

local function add_exchange(tree, message)
    local exchange = state.exchanges[message.place]
    if not exchange then
        if not message.to_controller then
            tree:add_proto_expert_info(e.unanswered)
        end
        return
    end
    local request, response = exchange.request, exchange.response
    if message.to_controller and response then
        tree:add(f.response_in, response.frame):set_generated()
    elseif not message.to_controller then
        tree:add(f.request_in, request.frame):set_generated()
        tree:add(f.response_time, relative_time(response.time - request.time)):set_generated()
    end
end

-- ---- One message

local function summary(pinfo, message, text)
    local words = LETTERS[message.letter] or "?"
    if message.letter ~= "U" and not message.to_controller then
        words = words .. " reply"
    end
    if text ~= "" then
        words = words .. ": " .. text
    end
    pinfo.cols.info:append((message.later and "; " or "") .. words)
end

local function refuse(tree, item, message, status)
    item:add_proto_expert_info(e.refused, "The controller refused, status " .. status)
    tree:append_text(", refused: " .. status)
    return message.request and message.request.method or "refused, status " .. status
end

local function reply_body(reader, tree, message)
    local status, item = reader:number(tree, f.status, 1)
    local unused = reader:range(REPLY_PAYLOAD - MESSAGE_HEADER - 1)
    if unused then
        tree:add(f.unused, unused)
    end
    if status ~= 0 then
        return refuse(tree, item, message, status)
    end
    if unused and replies[message.letter] then
        return replies[message.letter](reader, tree, message)
    end
    return ""
end

local function body(reader, tree, message)
    if message.letter == "U" then
        message.recipe = reader:number(tree, f.recipe, 1)
        return package(reader, tree, message)
    elseif not message.to_controller then
        return reply_body(reader, tree, message)
    elseif requests[message.letter] then
        return requests[message.letter](reader, tree, message)
    end
    return ""
end

local function dissect_message(tvb, pinfo, root, message)
    local tree = root:add(vexo, tvb(), "Vexo")
    local reader = new_reader(tvb, 0, tvb:len())
    local length, length_item = reader:number(tree, f.length, 2)
    local letter, letter_item = reader:number(tree, f.type, 1)
    if length < MESSAGE_HEADER or length > tvb:len() then
        length_item:add_proto_expert_info(e.bad_length)
    end
    reader.stop = math.min(reader.stop, math.max(length, MESSAGE_HEADER))
    message.letter = string.char(letter)
    message.frame, message.time = pinfo.number, pinfo.rel_ts
    message.first_time = not pinfo.visited
    message.place = pinfo.number .. ":" .. tvb:offset()
    if not LETTERS[message.letter] then
        letter_item:add_proto_expert_info(e.bad_type)
        message.letter = ""
        summary(pinfo, message, "")
        return
    end
    if message.letter ~= "U" then
        if message.first_time then
            pair_up(message)
        end
        add_exchange(tree, message)
        local exchange = state.exchanges[message.place]
        message.request = not message.to_controller and exchange and exchange.request or nil
    end
    local text = body(reader, tree, message)
    if reader.short or (message.letter ~= "U" and reader:left() > 0) then
        tree:add_proto_expert_info(e.bad_length)
    end
    tree:append_text(", " .. LETTERS[message.letter] .. (text ~= "" and ": " .. text or ""))
    summary(pinfo, message, text)
end

-- ---- TCP

local function is_ours(port)
    local prefs = vexo.prefs
    return port == prefs.io_port or port == prefs.control_port or port == prefs.receive_port
end

-- The length word counts itself; one below the header's takes the rest of the segment.
local function message_length(tvb, _, offset)
    local length = tvb(offset, 2):le_uint()
    return length >= MESSAGE_HEADER and length or tvb:len() - offset
end

function vexo.dissector(tvb, pinfo, tree)
    if tvb:len() == 0 then
        return 0
    end
    local to_controller = is_ours(pinfo.dst_port) and not is_ours(pinfo.src_port)
    local address = tostring(to_controller and pinfo.dst or pinfo.src)
    local stream = tcp_stream()
    pinfo.cols.protocol = "VEXO"
    pinfo.cols.info = ""
    local later = false
    dissect_tcp_pdus(tvb, tree, MESSAGE_HEADER, message_length, function(message, info, root)
        dissect_message(message, info, root, {
            to_controller = to_controller,
            controller = controller_at(address),
            connection = stream and stream.value or 0,
            later = later,
        })
        later = true
        return message:len()
    end)
    return tvb:len()
end

-- ---- Raw frames

-- The Internet checksum over little-endian words, as both sides take it.
local function checksum_of(bytes)
    local sum = 0
    for i = 1, #bytes - 1, 2 do
        local low, high = bytes:byte(i, i + 1)
        sum = sum + low + high * 256
    end
    if #bytes % 2 == 1 then
        sum = sum + bytes:byte(#bytes)
    end
    while sum > 0xFFFF do
        sum = sum % 0x10000 + math.floor(sum / 0x10000)
    end
    return 0xFFFF - sum
end

local function check_sum(tvb, item, claimed, length)
    local covered = RAW_HEADER + length
    if covered > tvb:len() then
        return
    end
    local bytes = tvb:raw(0, 2) .. "\0\0" .. tvb:raw(4, covered - 4)
    local expected = checksum_of(bytes)
    if expected == claimed then
        item:append_text(" (right)")
    else
        item:add_proto_expert_info(re.bad_checksum,
            string.format("Wrong checksum: it should be 0x%04x", expected))
    end
end

-- Frames that are missing before this one, by the numbers that its sender gives them.
local function frames_before(pinfo, station, sequence)
    local place = pinfo.number .. ":raw"
    if not pinfo.visited then
        local last = state.sequences[station]
        local ahead = last and (sequence - last) % 0x10000
        if not ahead or (ahead > 0 and ahead < 0x8000) or ahead < 0xFFC0 then
            state.sequences[station] = sequence
        end
        if ahead and ahead > 1 and ahead < 0x8000 then
            state.gaps[place] = ahead - 1
        end
    end
    return state.gaps[place]
end

-- An acknowledgement comes from the controller, a set-point goes to it. Where neither station is
-- known, a reply is told by its length.
local function goes_to_controller(code, payload, source, destination, frame)
    if code ~= 146 then
        return code == 145
    elseif controller_of_station(source, frame) then
        return false
    elseif controller_of_station(destination, frame) then
        return true
    end
    return payload:len() >= 2 and payload(0, 2):le_uint() ~= REPLY_PAYLOAD
end

local function dissect_payload(payload, pinfo, root, code)
    local source, destination = tostring(pinfo.dl_src), tostring(pinfo.dl_dst)
    local to_controller = goes_to_controller(code, payload, source, destination, pinfo.number)
    local station = to_controller and destination or source
    local client = to_controller and source or destination
    dissect_message(payload, pinfo, root, {
        to_controller = to_controller,
        controller = controller_of_station(station, pinfo.number) or controller_at(station),
        connection = station .. " " .. client,
    })
end

function vexo_raw.dissector(tvb, pinfo, root)
    local tree = root:add(vexo_raw, tvb(0, math.min(RAW_HEADER, tvb:len())))
    local reader = new_reader(tvb, 0, tvb:len())
    pinfo.cols.protocol = "VEXO RAW"
    pinfo.cols.info = ""
    local marker, marker_item = reader:number(tree, r.marker, 1)
    local code = reader:number(tree, r.code, 1)
    local claimed, checksum_item = reader:number(tree, r.checksum, 2)
    local magic = reader:number(tree, r.magic, 2)
    local sequence = reader:number(tree, r.sequence, 2)
    local length, length_item = reader:number(tree, r.length, 2)
    reader:number(tree, r.reserved, 2)
    if reader.short or marker ~= MARKER or magic ~= MAGIC then
        marker_item:add_proto_expert_info(re.bad_header)
        return tvb:len()
    end
    tree:append_text(", " .. (CODES[code] or "code " .. code) .. ", sequence " .. sequence)
    check_sum(tvb, checksum_item, claimed, length)
    local gap = frames_before(pinfo, tostring(pinfo.dl_src), sequence)
    if gap then
        tree:add(r.lost, gap):set_generated()
        tree:add_proto_expert_info(re.lost, gap .. " frames are missing")
    end
    if length > reader:left() then
        length_item:add_proto_expert_info(re.bad_length)
    end
    local there = math.min(length, reader:left())
    if there >= MESSAGE_HEADER then
        dissect_payload(tvb(RAW_HEADER, there):tvb(), pinfo, root, code)
    end
    return tvb:len()
end

-- ---- Registration

local registered = {}

local function register_ports()
    local ports = DissectorTable.get("tcp.port")
    for _, port in ipairs(registered) do
        ports:remove(port, vexo)
    end
    registered = { vexo.prefs.io_port, vexo.prefs.control_port, vexo.prefs.receive_port }
    for _, port in ipairs(registered) do
        ports:add(port, vexo)
    end
end

-- A capture begins.
function vexo.init()
    state = new_state()
    if vexo.prefs.catalogue ~= "" then
        local lists, problem = read_catalogue(vexo.prefs.catalogue)
        state.file = lists
        if not lists then
            report_failure("vexo: the catalogue " .. vexo.prefs.catalogue .. ": " .. problem)
        end
    end
end

vexo.prefs_changed = register_ports

state = new_state()
register_ports()
DissectorTable.get("ethertype"):add(ETHERTYPE, vexo_raw)
