-- Shows the vendor protocol of libkvMAP1905.so in Wireshark and tshark (4.0 and later): the vendor's and Intel's
-- messages and the BSS elements in IEEE 1905.1 vendor-specific TLVs, and the vendor's extension of Wi-Fi Simple
-- Configuration.
--
-- Wireshark's own dissector reads the IEEE 1905.1 frame and puts fragments together; this one runs after it, finds
-- the TLVs through its fields and adds its own tree. Fragments without a complete message are not shown.
--
-- Install: copy or link this file into ~/.local/lib/wireshark/plugins, or start tshark with -X lua_script:kv1905.lua.
-- Try:     tshark -r mesh.pcap -Y 'kv1905.conf.model_name contains "KV" || kv1905.station.rssi < -80'

local kv1905 = Proto("kv1905", "KV1905 Vendor Protocol")

local VENDOR_SPECIFIC_MESSAGE = 0x0004
local END_TLV, VENDOR_SPECIFIC_TLV = 0x00, 0x0B
local TLV_HEADER_SIZE = 3
local CMDU_TLVS = 6 -- offset of the first TLV from the message type
local OUI_SIZE = 3
local VENDOR_OUI, INTEL_OUI, WSC_VENDOR_ID = "\x02\x4E\xA7", "\x00\x03\x47", "\x0A\x61\xC4"
local WSC_VENDOR_EXTENSION, WSC_HEADER_SIZE = 0x1049, 4

-- ---- Expert notes: errors are what receivers refuse, warnings what they cut, skip or do not know.

local experts = {}
local function expert(name, text, group, severity)
    local note = { proto = ProtoExpert.new("kv1905.expert." .. name, text, group, severity) }
    note.isError = severity == PI_ERROR
    experts[#experts + 1] = note.proto
    return note
end

local SHORT = expert("short", "Ends too early", PI_MALFORMED, PI_ERROR)
local LENGTH = expert("length", "Length that does not fit", PI_MALFORMED, PI_ERROR)
local REFUSED = expert("refused", "Receivers refuse this", PI_PROTOCOL, PI_ERROR)
local IGNORED = expert("ignored", "Receivers ignore or cut this", PI_PROTOCOL, PI_WARN)
local UNKNOWN = expert("unknown", "Unknown type", PI_UNDECODED, PI_WARN)
local CAPTURE = expert("capture", "Cut by the capture", PI_UNDECODED, PI_NOTE)

-- Collects what is known about one TLV while its tree is built.
local Context = {}
Context.__index = Context

local function newContext()
    return setmetatable({ words = {}, isFaulty = false }, Context)
end

-- Adds a word to the Info column.
function Context:addWord(word)
    self.words[#self.words + 1] = word
end

function Context:note(tree, note, text)
    self.isFaulty = self.isFaulty or note.isError
    tree:add_proto_expert_info(note.proto, text)
end

function Context:summary()
    return table.concat(self.words, " ") .. (self.isFaulty and " [malformed]" or "")
end

-- ---- Reading: bytes are read through a bounded cursor over [position, stop) of a Tvb. A failure is permanent.

local Cursor = {}
Cursor.__index = Cursor

local function newCursor(source, position, stop)
    return setmetatable({ source = source, position = position, stop = stop, failed = false }, Cursor)
end

function Cursor:remaining()
    return self.stop - self.position
end

-- Returns the next count bytes as a TvbRange; nil if fewer remain.
function Cursor:take(count)
    if self.failed or count > self:remaining() then
        self.failed = true
        return nil
    end
    local range = self.source:range(self.position, count)
    self.position = self.position + count
    return range
end

function Cursor:rest()
    return self.source:range(self.position, self:remaining())
end

-- Returns a cursor over the next count bytes, or as many as there are, which this one skips.
function Cursor:part(count)
    local first = self.position
    self.position = first + math.min(count, self:remaining())
    return newCursor(self.source, first, self.position)
end

-- Returns whether the bytes end here only because the capture truncated the frame.
function Cursor:isCaptureCut()
    return self.stop == self.source:len() and self.source:reported_len() > self.stop
end

-- Notes a truncated value. Bytes that the capture left out are no error.
function Cursor:reportShort(tree, context, what)
    self.failed = true
    if self:isCaptureCut() then
        context:note(tree, CAPTURE, "Cut by the capture before the end of " .. what)
    else
        context:note(tree, SHORT, ("Ends too early: %d bytes left at %s"):format(self:remaining(), what))
    end
end

-- Notes a length that exceeds the bytes.
function Cursor:checkLength(tree, context, claimed, what)
    if claimed > self:remaining() and not self:isCaptureCut() then
        context:note(tree, LENGTH, ("%s %d, but %d bytes are there"):format(what, claimed, self:remaining()))
    end
end

function Cursor:reportSurplus(tree, context, note, where)
    if not self.failed and self:remaining() > 0 then
        context:note(tree, note, ("%d bytes after the end of the %s"):format(self:remaining(), where))
    end
end

-- ---- Elements of a layout. Called with (cursor, tree, context), an element adds itself to the tree and returns its
-- value and how it is shown; nothing when the bytes do not suffice.

local fields = {}
local function newField(kind, name, ...)
    local field = ProtoField[kind]("kv1905." .. name, ...)
    fields[#fields + 1] = field
    return field
end

local Scalar = {}

function Scalar:__call(cursor, tree, context)
    local range = cursor:take(self.size)
    if range == nil then
        return cursor:reportShort(tree, context, self.label)
    end
    local item = tree:add(self.field, range)
    local value = self.read(range)
    if self.keep ~= nil then
        context[self.keep] = value
    end
    if self.word ~= nil then
        context:addWord(self.word(value))
    end
    local fault = self.fault and self.fault(value, context)
    if fault then
        context:note(item, REFUSED, self.label .. " " .. fault)
    end
    return value, self.isMac and value or ("%s %s"):format(self.label, value)
end

-- options: names (texts of values), base, keep (the context's field that keeps the value), word (value -> word for the
-- Info column), fault (value, context -> why receivers refuse it, or nil)
local function scalar(kind, size, read, name, label, options)
    options = options or {}
    local element = { size = size, read = read, label = label }
    element.keep, element.word, element.fault = options.keep, options.word, options.fault
    if kind == "ether" then
        element.isMac = true
        element.field = newField(kind, name, label)
    elseif kind == "bytes" then
        element.field = newField(kind, name, label, base.SPACE)
    else
        element.isSigned = kind:sub(1, 3) == "int"
        element.field = newField(kind, name, label, options.base or base.DEC, options.names)
    end
    return setmetatable(element, Scalar)
end

local function readUnsigned(range) return range:uint() end
local function readSigned(range) return range:int() end
local function readMac(range) return range:bytes():tohex(true, ":") end

local function u8(...) return scalar("uint8", 1, readUnsigned, ...) end
local function u16(...) return scalar("uint16", 2, readUnsigned, ...) end
local function u32(...) return scalar("uint32", 4, readUnsigned, ...) end
local function i8(...) return scalar("int8", 1, readSigned, ...) end
local function i16(...) return scalar("int16", 2, readSigned, ...) end
local function bytes(size, ...) return scalar("bytes", size, tostring, ...) end

local function mac(...) return scalar("ether", 6, readMac, ...) end

-- Decodes a layout as far as its bytes go. Returns how its first element is shown.
local function decodeLayout(layout, cursor, tree, context)
    local title
    for _, element in ipairs(layout) do
        local _, shown = element(cursor, tree, context)
        if cursor.failed then
            break
        end
        title = title or shown
    end
    return title or ""
end

-- Adds a subtree over what add(subtree) reads. add returns the subtree's title.
local function decodeSubtree(field, cursor, tree, add)
    local first = cursor.position
    local subtree = tree:add(field, cursor:rest())
    local title = add(subtree)
    subtree:set_len(cursor.position - first)
    subtree:set_text(title)
end

local function capital(word)
    return word:sub(1, 1):upper() .. word:sub(2)
end

-- Reads a count and its entries. options: noun, plural, limit (receivers refuse more)
local function list(count, entryField, options, layout)
    return function(cursor, tree, context)
        local number = count(cursor, tree, context)
        if number == nil then
            return
        end
        context:addWord(("%d %s"):format(number, number == 1 and options.noun or options.plural))
        if options.limit and number > options.limit then
            context:note(tree, REFUSED, ("%d %s, receivers accept %d"):format(number, options.plural, options.limit))
        end
        for i = 1, number do
            if cursor:remaining() == 0 then
                return cursor:reportShort(tree, context, ("%s %d of %d"):format(options.noun, i, number))
            end
            decodeSubtree(entryField, cursor, tree, function(entry)
                return ("%s %d: %s"):format(capital(options.noun), i, decodeLayout(layout, cursor, entry, context))
            end)
            if cursor.failed then
                return
            end
        end
    end
end

-- A text from the wire, for titles, notes and the Info column.
local function printable(text)
    return (text:gsub("[^\32-\126]", "."))
end

-- Adds count bytes as text. fault: as in scalar, of the text.
local function addText(field, label, count, cursor, tree, context, fault)
    local range = cursor:take(count)
    if range == nil then
        return cursor:reportShort(tree, context, label)
    end
    local item = tree:add_packet_field(field, range, ENC_UTF_8)
    local text = range:len() > 0 and range:raw() or ""
    local reason = fault and fault(text)
    if reason then
        context:note(item, REFUSED, label .. " " .. reason)
    end
    return text
end

local function longerThan(limit)
    return function(text)
        return #text > limit and ("of %d bytes, receivers accept %d"):format(#text, limit) or nil
    end
end

local function above(limit)
    return function(value)
        return value > limit and ("%d is above %d"):format(value, limit) or nil
    end
end

-- ---- Values

local mediaTypes = {
    [0x0000] = "IEEE 802.3u", [0x0001] = "IEEE 802.3ab",
    [0x0100] = "IEEE 802.11b, 2.4 GHz", [0x0101] = "IEEE 802.11g, 2.4 GHz", [0x0102] = "IEEE 802.11a, 5 GHz",
    [0x0103] = "IEEE 802.11n, 2.4 GHz", [0x0104] = "IEEE 802.11n, 5 GHz", [0x0105] = "IEEE 802.11ac, 5 GHz",
    [0x0106] = "IEEE 802.11ad, 60 GHz", [0x0107] = "IEEE 802.11af", [0x0108] = "IEEE 802.11ax",
    [0x0109] = "IEEE 802.11be",
}
local powerStates = { [0] = "On", [1] = "Power save", [2] = "Off", [255] = "Not known" }
local results = { [0] = "success", [7] = "not this device's AL MAC", [16] = "refused or failed, see its log" }
local interfaceResults = {
    [0] = "Applied", [1] = "No such interface", [2] = "Power state not supported", [7] = "Not this device",
    [16] = "Not allowed", [64] = "Not available by media type",
}
local firmwareStates = {
    [0] = "None", [1] = "Newer firmware known", [2] = "Downloading", [3] = "Downloaded", [4] = "Writing",
    [5] = "Written",
}

-- ---- Payload layouts

local function asTarget(address) return "to " .. address end
local function asResult(code) return ("%d (%s)"):format(code, results[code] or "unknown") end

local target = { mac("target.al_mac", "AL MAC of the requested device", { word = asTarget }) }
local result = { u8("result", "Result", { names = results, word = asResult }) }

-- Configuration attributes: type, name, kind.
local attributeRows = {
    { 0, "REBOOT_CAP", "byte" }, { 1, "INTF_PWR_CTRL_CAP", "byte" }, { 2, "FW_VERSION", "text" },
    { 4, "FW_UPGRADE_STATUS", "byte", firmwareStates }, { 5, "NEW_FW_VERSION", "text" }, { 6, "NEW_FW_DATE", "text" },
    { 7, "MODEL_NAME", "text" }, { 8, "IP_ADDR", "text" }, { 9, "AUX_STATUS", "byte" }, { 10, "MODE", "text" },
    { 11, "BUILD", "text" }, { 12, "LED_STATUS", "text" }, { 13, "CHANNEL_24G", "text" }, { 14, "CHANNEL_5G", "text" },
    { 15, "CHANNEL_EXTRA", "text" }, { 16, "PROTO_VERSION", "text" }, { 101, "APP_VERSION", "text" },
    { 102, "L2_DEV_CTRL", "text" }, { 103, "WIFI_AUTO_CFG", "text" }, { 104, "WIFI_ON_OFF", "text" },
    { 105, "FW_UPGRADE", "text" }, { 106, "LED_ON_OFF", "text" }, { 116, "UPTIME", "text" },
}
local ATTRIBUTE_VALUE_LIMIT = 128 -- bytes that a receiver keeps

local attributes, attributeNames = {}, {}
for _, row in ipairs(attributeRows) do
    local type, name, kind, names = table.unpack(row)
    local attribute = { name = name, isText = kind == "text" }
    attributeNames[type] = name
    if attribute.isText then
        attribute.field = newField("string", "conf." .. name:lower(), name)
    else
        attribute.field = newField("uint8", "conf." .. name:lower(), name, base.DEC, names)
    end
    attributes[type] = attribute
end
local attributeField = newField("none", "conf.attr", "Attribute")
local attributeType = u8("conf.attr.type", "Attribute type", { names = attributeNames })
local attributeLength = u16("conf.attr.len", "Value length")
local attributeValue = newField("bytes", "conf.attr.value", "Value", base.SPACE)

local function addAttributeValue(type, value, entry, context)
    local attribute = attributes[type]
    local size = value:remaining()
    if attribute == nil then
        entry:add(attributeValue, value:rest())
        context:note(entry, UNKNOWN, ("Unknown attribute type %d, receivers skip it"):format(type))
        return ("Attribute %d, %d bytes"):format(type, size)
    end
    if attribute.isText then
        local text = addText(attribute.field, attribute.name, size, value, entry, context)
        if size > ATTRIBUTE_VALUE_LIMIT then
            context:note(entry, IGNORED, ("Value of %d bytes, receivers cut it to %d"):format(
                size, ATTRIBUTE_VALUE_LIMIT))
        end
        return ("%s: %s"):format(attribute.name, printable(text))
    end
    if size ~= 1 then
        context:note(entry, IGNORED, ("One-byte attribute with a value of %d bytes"):format(size))
    end
    if size == 0 then
        return attribute.name
    end
    local range = value:take(1)
    entry:add(attribute.field, range)
    return ("%s: %d"):format(attribute.name, range:uint())
end

local function attribute(cursor, tree, context)
    local type = attributeType(cursor, tree, context)
    local length = type and attributeLength(cursor, tree, context)
    if length == nil then
        return
    end
    if length > cursor:remaining() then
        return cursor:reportShort(tree, context, ("a value of %d bytes"):format(length))
    end
    local title = addAttributeValue(type, cursor:part(length), tree, context)
    return title, title
end

local confResponse = {
    mac("conf.al_mac", "AL MAC of the answering device"),
    list(u8("conf.attr.count", "Attribute count"), attributeField, { noun = "attribute", plural = "attributes" },
        { attribute }),
}

-- Interface power. Every entry begins alike.
local MAX_INTERFACES = 30
local interfaceField = newField("none", "power.interface", "Interface")
local interfaceMac = mac("power.mac", "Interface MAC")
local interfaceMedia = u16("power.media_type", "Media type", { names = mediaTypes, base = base.HEX })
local interfaceCount = u8("power.count", "Interface count")
local interfaces = { noun = "interface", plural = "interfaces", limit = MAX_INTERFACES }

local powerStateResponse = {
    mac("power.al_mac", "AL MAC of the reporting device"),
    list(interfaceCount, interfaceField, interfaces,
        { interfaceMac, interfaceMedia, u8("power.state", "Power state", { names = powerStates }) }),
}
local powerControlRequest = {
    target[1],
    list(interfaceCount, interfaceField, interfaces, { interfaceMac, interfaceMedia }),
    u8("power.requested", "Requested power state",
        { names = powerStates, word = function(state) return (powerStates[state] or tostring(state)):lower() end }),
}
local powerControlResponse = {
    list(interfaceCount, interfaceField, interfaces,
        { interfaceMac, interfaceMedia, u8("power.result", "Result", { names = interfaceResults }) }),
}

-- Firmware control: a length of 0 means no topology option and no URL.
local FIRMWARE_URL_LIMIT = 1023
local firmwareLength = u16("firmware.len", "Length of topology option and URL")
local firmwareTopology = u8("firmware.topo_option", "Topology option")
local firmwareUrl = newField("string", "firmware.url", "URL")

local firmwareRequest = {
    u8("firmware.option", "Option", { word = function(option) return "option " .. option end }),
    function(cursor, tree, context)
        local length = firmwareLength(cursor, tree, context)
        if length == nil or length == 0 or firmwareTopology(cursor, tree, context) == nil then
            return
        end
        addText(firmwareUrl, "URL", length - 1, cursor, tree, context, longerThan(FIRMWARE_URL_LIMIT))
    end,
}

-- Remote commands
local COMMAND_LIMIT = 2047
local commandLength = u16("command.len", "Text length")
local commandText = newField("string", "command.text", "Command")

local commandRequest = {
    u16("command.words", "Word count"),
    function(cursor, tree, context)
        local length = commandLength(cursor, tree, context)
        local fault = longerThan(COMMAND_LIMIT)
        local text = length and addText(commandText, "Command", length, cursor, tree, context, fault)
        if text ~= nil then
            context:addWord(('"%s"'):format(printable(text)))
        end
    end,
}

local ledRequest = {
    target[1],
    u8("led.option", "LED option", { word = function(option) return option == 0 and "off" or "on" end }),
}

-- Settings sync
local PASSWORD_SIZE, COUNTRY_LIMIT = 256, 4
local passwordField = newField("bytes", "password.scrambled", "Scrambled password", base.SPACE)
local passwordRest = newField("bytes", "password.padding", "Padding", base.SPACE)
local passwordLength = u16("password.len", "Password length", { fault = above(PASSWORD_SIZE - 1) })
local syncSender = mac("sync.al_mac", "AL MAC of the sending device")
local countryLength = u8("country.len", "Country length", { fault = above(COUNTRY_LIMIT) })
local countryField = newField("string", "country", "Country in beacons")

local passwordResponse = {
    syncSender,
    function(cursor, tree, context)
        local length = passwordLength(cursor, tree, context)
        if length == nil then
            return
        end
        if cursor:remaining() < PASSWORD_SIZE then
            return cursor:reportShort(tree, context, "the password's 256 bytes")
        end
        local used = math.min(length, PASSWORD_SIZE)
        tree:add(passwordField, cursor:take(used))
        tree:add(passwordRest, cursor:take(PASSWORD_SIZE - used))
    end,
}

local function countryFault(text)
    return text:find("[^0-9A-Za-z/]") and "of more than letters, digits and /" or nil
end

local countryResponse = {
    syncSender,
    function(cursor, tree, context)
        local length = countryLength(cursor, tree, context)
        local text = length and addText(countryField, "Country", length, cursor, tree, context, countryFault)
        if text ~= nil then
            context:addWord(('"%s"'):format(printable(text)))
        end
    end,
}

-- Stations: 24 bytes each in WIFI_STATE_RESP, text records in WIFI_CLIENT_MCAST2.
local stationField = newField("none", "station", "Station")
local station = {
    mac = mac("station.mac", "MAC"),
    mediaType = u16("station.media_type", "Media type", { names = mediaTypes, base = base.HEX }),
    rate = u16("station.rate", "Rate (Mbit/s)"),
    rssi = i16("station.rssi", "RSSI (dBm)"),
    snr = i16("station.snr", "SNR (dB)"),
    signalLevel = u8("station.signal_level", "Signal level"),
    band = u8("station.band", "Band", { names = { [1] = "2.4 GHz", [6] = "5 GHz" } }),
    tx = u32("station.tx", "Tx counter"),
    rx = u32("station.rx", "Rx counter"),
    txRate = u16("station.tx_rate", "Tx rate (Mbit/s)"),
    rxRate = u16("station.rx_rate", "Rx rate (Mbit/s)"),
}

local wifiStateResponse = {
    list(u8("station.count", "Station count"), stationField, { noun = "station", plural = "stations" }, {
        station.mac, station.mediaType, station.rate, station.rssi, station.snr, station.signalLevel, station.band,
        station.tx, station.rx,
    }),
}

-- Text records: the number of a field, the field, the base it is written in.
local textFields = {
    [0] = { station.mac }, { station.mediaType, 16 }, { station.rate, 10 }, { station.rssi, 10 },
    { station.signalLevel, 10 }, { station.tx, 10 }, { station.rx, 10 }, { station.txRate, 10 }, { station.rxRate, 10 },
    { station.band, 10 }, { station.snr, 10 },
}
local REPORT_TEXT_LIMIT, REPORT_HEADER_SIZE = 1300, 8
local LENGTH_DIGITS, BRACES, RECORD_LIMIT = 3, 2, 513
local NUMBER_LIMIT, VALUE_LIMIT = 3, 127 -- characters

-- Returns the value that fits its field, which keeps the low bits.
local function fit(element, value)
    local size = 2 ^ (8 * element.size)
    value = value % size
    return element.isSigned and value >= size / 2 and value - size or value
end

local function parseMac(text)
    local octets = { text:match("^(%x%x?):(%x%x?):(%x%x?):(%x%x?):(%x%x?):(%x%x?)$") }
    for i, octet in ipairs(octets) do
        octets[i] = ("%02x"):format(tonumber(octet, 16))
    end
    return #octets == 6 and table.concat(octets, ":") or nil
end

-- Returns the number at the start of a text, after an optional sign, and whether the text holds nothing else; 0 without
-- digits.
local function parseNumber(text, numberBase)
    local sign, digits, rest = text:match(numberBase == 16 and "^([+-]?)(%x+)(.*)$" or "^([+-]?)(%d+)(.*)$")
    if digits == nil then
        return 0, false
    end
    local value = tonumber(digits, numberBase)
    return sign == "-" and -value or value, rest == ""
end

-- Adds the value of a text field. Returns the MAC when it is one.
local function addTextValue(row, text, range, tree, context)
    local element, numberBase = row[1], row[2]
    if element.isMac then
        local address = parseMac(text)
        if address == nil then
            context:note(tree, IGNORED, ('"%s" is no MAC, receivers accept zeros'):format(printable(text)))
            return nil
        end
        tree:add(element.field, range, Address.ether(address))
        return address
    end
    local value, isNumber = parseNumber(text, numberBase)
    local held = fit(element, value)
    local item = tree:add(element.field, range, held)
    if not isNumber then
        context:note(item, IGNORED, ('%s "%s" is no number of base %d'):format(
            element.label, printable(text), numberBase))
    elseif held ~= value then
        context:note(item, IGNORED, ("%s does not fit %s, receivers keep the low bits"):format(text, element.label))
    end
    return nil
end

-- Reads one NUMBER=VALUE of a record. Returns the MAC if it is one; fails the cursor where receivers refuse the report.
local function addPair(piece, position, cursor, tree, context)
    local equals = piece:find("=", 1, true)
    if equals == nil or equals - 1 > NUMBER_LIMIT or #piece - equals > VALUE_LIMIT then
        cursor.failed = true
        context:note(tree, REFUSED, ('"%s" is not NUMBER=VALUE of at most %d and %d characters'):format(
            printable(piece), NUMBER_LIMIT, VALUE_LIMIT))
        return nil
    end
    local number = parseNumber(piece:sub(1, equals - 1), 10)
    local row = textFields[number]
    if row == nil then
        context:note(tree, IGNORED, ("Unknown field number %d"):format(number))
        return nil
    end
    return addTextValue(row, piece:sub(equals + 1), cursor.source:range(position, #piece), tree, context)
end

-- Reads the text between a record's braces, which begins at position. Returns the station's MAC.
local function addPairs(inner, position, cursor, tree, context)
    local address
    for first, piece in inner:gmatch("()([^,]+)") do
        address = addPair(piece, position + first - 1, cursor, tree, context) or address
        if cursor.failed then
            break
        end
    end
    return address or "no MAC"
end

-- Reads one framed record: three digits, then as many characters in braces.
local function addRecord(index, cursor, tree, context)
    local digits = cursor:take(LENGTH_DIGITS)
    if digits == nil then
        return cursor:reportShort(tree, context, "a record's length")
    end
    local length = parseNumber(digits:raw(), 10)
    if length < BRACES or length > RECORD_LIMIT or length > cursor:remaining() then
        cursor.failed = true
        context:note(tree, LENGTH, ('Record %d claims "%s" characters, %d are there'):format(
            index, printable(digits:raw()), cursor:remaining()))
        return
    end
    cursor.position = cursor.position - LENGTH_DIGITS
    decodeSubtree(stationField, cursor, tree, function(entry)
        cursor:take(LENGTH_DIGITS)
        local first = cursor.position
        local text = cursor:take(length):raw()
        if text:sub(1, 1) ~= "{" or text:sub(-1) ~= "}" then
            context:note(entry, IGNORED, "Record without braces")
        end
        return ("Station %d: %s"):format(index, addPairs(text:sub(2, -2), first + 1, cursor, entry, context))
    end)
end

-- Receivers stop at the first NUL.
local function addRecords(text, tree, context)
    local terminator = text:rest():raw():find("\0", 1, true)
    local records = text:part(terminator and terminator - 1 or text:remaining())
    local count = 0
    while records:remaining() > 0 and not records.failed do
        count = count + 1
        addRecord(count, records, tree, context)
    end
    context:addWord(("%d %s"):format(count, count == 1 and "station" or "stations"))
    text:reportSurplus(tree, context, IGNORED, "text, where a NUL ends it")
end

local reportLength = u16("report.len", "Text length", {
    fault = function(length, context)
        if length > REPORT_TEXT_LIMIT then
            return above(REPORT_TEXT_LIMIT)(length)
        end
        local expected = context.payloadLength - REPORT_HEADER_SIZE
        return length ~= expected and ("%d differs from the payload's %d"):format(length, expected) or nil
    end,
})

local clientReport = {
    mac("report.al_mac", "AL MAC of the reporting device", {
        fault = function(address, context)
            return address ~= context.alMac and "differs from the envelope's" or nil
        end,
    }),
    function(cursor, tree, context)
        local length = reportLength(cursor, tree, context)
        if length == nil then
            return
        end
        local isWhole = length <= cursor:remaining()
        local text = cursor:part(length)
        if text:remaining() > 0 then
            addRecords(text, tree, context)
        end
        if not isWhole then
            cursor:reportShort(tree, context, ("a text of %d characters"):format(length))
        end
    end,
}

-- ---- The vendor's messages: one row per type, as in plugin/message_catalogue.cpp. Reserved types have no layout.

local messageRows = {
    { 0, "CONF_QUERY", target },
    { 1, "CONF_RESP", confResponse },
    { 2, "INTF_PWR_STATE_QUERY", target },
    { 3, "INTF_PWR_STATE_RESP", powerStateResponse },
    { 4, "REBOOT_REQ", target },
    { 5, "REBOOT_RESP", result },
    { 6, "INTF_PWR_CTRL_REQ", powerControlRequest },
    { 7, "INTF_PWR_CTRL_RESP", powerControlResponse },
    { 8, "WIFI_STATE_REQ", target },
    { 9, "WIFI_STATE_RESP", wifiStateResponse },
    { 10, "RESERVED_10" }, { 11, "RESERVED_11" }, { 12, "RESERVED_12" }, { 16, "RESERVED_16" },
    { 17, "RESERVED_17" }, { 18, "RESERVED_18" }, { 19, "RESERVED_19" },
    { 20, "FW_CTRL_REQ", firmwareRequest },
    { 21, "FW_CTRL_RESP", result },
    { 22, "RESET_DEFAULT_REQ", target },
    { 23, "RESET_DEFAULT_RESP", result },
    { 25, "COMMAND_REQ", commandRequest },
    { 26, "PARTIAL_RESET_DEFAULT_REQ", target },
    { 27, "PARTIAL_RESET_DEFAULT_RESP", result },
    { 32, "COMMAND_RESP", result },
    { 33, "LED_CTRL_REQ", ledRequest },
    { 34, "LED_CTRL_MCAST", ledRequest },
    { 35, "LED_CTRL_RESP", result },
    { 36, "WIFI_CLIENT_MCAST2", clientReport },
    { 42, "RESERVED_42" }, { 43, "RESERVED_43" }, { 44, "RESERVED_44" }, { 49, "RESERVED_49" }, { 50, "RESERVED_50" },
    { 69, "SYNC_CTRL_PWD_RESP", passwordResponse },
    { 70, "SYNC_CTRL_PWD_REQ", target },
    { 76, "SYNC_CTRL_COUNTRY_BCN_REQ", target },
    { 77, "SYNC_CTRL_COUNTRY_BCN_RESP", countryResponse },
}

-- Rows by type, and the names for the type's field.
local function byType(rows)
    local found, names = {}, {}
    for _, row in ipairs(rows) do
        found[row[1]], names[row[1]] = { name = row[2], layout = row[3] }, row[2]
    end
    return found, names
end

local messages, messageNames = byType(messageRows)
local envelope = {
    mac("al_mac", "AL MAC of the sending device", { keep = "alMac" }),
    bytes(2, "marker", "Marker"),
    u16("type", "Message type", {
        names = messageNames,
        keep = "type",
        word = function(type) return messageNames[type] or ("type %d"):format(type) end,
    }),
    u16("payload_len", "Payload length", { keep = "payloadLength" }),
}
local payloadField = newField("bytes", "payload", "Payload", base.SPACE)

local function decodePayload(type, payload, tree, context)
    local message = messages[type]
    if message ~= nil and message.layout ~= nil then
        decodeLayout(message.layout, payload, tree, context)
        payload:reportSurplus(tree, context, IGNORED, "payload's layout")
        return
    end
    if payload:remaining() > 0 then
        tree:add(payloadField, payload:rest())
    end
    if message == nil then
        context:note(tree, UNKNOWN, ("Unknown message type %d"):format(type))
    else
        context:note(tree, REFUSED, ("%s is reserved, receivers refuse it"):format(message.name))
    end
end

local function decodeMessage(cursor, tree, context)
    decodeLayout(envelope, cursor, tree, context)
    if cursor.failed then
        return
    end
    cursor:checkLength(tree, context, context.payloadLength, "Payload length")
    decodePayload(context.type, cursor:part(context.payloadLength), tree, context)
    cursor:reportSurplus(tree, context, IGNORED, "payload")
end

-- ---- Intel's messages. Intel defines the numbered fields.

local asStation = function(address) return "of " .. address end
local rssiStation = mac("intel.station", "Station MAC", { word = asStation })
local rssiMeasurement = {
    rssiStation,
    bytes(2, "intel.zero", "Zero"),
    u16("intel.rx_rate", "Rx rate (0.1 Mbit/s)"),
    u16("intel.tx_rate", "Tx rate (0.1 Mbit/s)"),
    i8("intel.rssi", "RSSI (dBm)", { word = function(rssi) return rssi .. " dBm" end }),
    i8("intel.snr", "SNR (dB)"),
    u8("intel.marker", "Marker", { base = base.HEX, names = { [0x00] = "Response", [0x64] = "Notification" } }),
    bytes(2, "intel.zero2", "Zero"),
}
local intelMessages, intelNames = byType({
    { 0x67, "RSSI_MEASUREMENT_REQ", { rssiStation } },
    { 0x68, "RSSI_MEASUREMENT_RESP", rssiMeasurement },
    { 0x6A, "RSSI_MEASUREMENT_NOTIFY", rssiMeasurement },
})
local intelEnvelope = {
    bytes(4, "intel.field3", "Field 3"),
    bytes(2, "intel.field7", "Field 7"),
    u8("intel.type", "Message type", {
        names = intelNames,
        base = base.HEX,
        keep = "type",
        word = function(type) return intelNames[type] or ("Intel type 0x%02x"):format(type) end,
    }),
    u8("intel.field10", "Field 10"),
    bytes(6, "intel.field11", "Field 11"),
    bytes(1, "intel.field17", "Zero"),
    bytes(2, "intel.field18", "Field 18"),
    bytes(2, "intel.field20", "Zero"),
}

local function decodeIntel(cursor, tree, context)
    decodeLayout(intelEnvelope, cursor, tree, context)
    if cursor.failed then
        return
    end
    local message = intelMessages[context.type]
    if message ~= nil then
        decodeLayout(message.layout, cursor, tree, context)
        return cursor:reportSurplus(tree, context, IGNORED, "payload's layout")
    end
    if cursor:remaining() > 0 then
        tree:add(payloadField, cursor:rest())
    end
    context:note(tree, UNKNOWN, ("Type 0x%02x is not among the plug-in's"):format(context.type))
end

-- ---- Elements in standard messages: MDIDs and BSS configuration

local bssField = newField("none", "bss", "BSS")
local bssBands = { [4] = "2.4 GHz", [2] = "5 GHz", [1] = "band 4" }
local bandIndexByte = u8("bss.band_index", "Band index", { base = base.HEX })
local bandField = newField("uint8", "bss.band", "Band", base.HEX, bssBands, 0xE0)
local bssNumber = newField("uint8", "bss.number", "BSS of its radio", base.DEC, nil, 0x0F)
local bssAttribute = u8("bss.attribute", "Attribute", { base = base.HEX })
local mdid = u16("bss.mdid", "Mobility domain (MDID)", { base = base.HEX })
local tci = u16("bss.tci", "VLAN tag (TCI)", { base = base.HEX })
local extendedAttribute = u8("bss.ext_attribute", "Extended attribute", { base = base.HEX })

local bandIndex = setmetatable({ size = bandIndexByte.size }, {
    __call = function(_, cursor, tree, context)
        local first = cursor.position
        local value = bandIndexByte(cursor, tree, context)
        if value == nil then
            return
        end
        local range = cursor.source:range(first, 1)
        tree:add(bandField, range)
        tree:add(bssNumber, range)
        return value, ("band index 0x%02x"):format(value)
    end,
})

local bssCount = u8("bss.count", "BSS count")
local bsses = { noun = "BSS", plural = "BSSs" }
local elements, elementNames = byType({
    { 0xC0, "MDID", { list(bssCount, bssField, bsses,
        { mac("bss.bssid", "BSSID"), mdid, u8("bss.enabled", "Enabled") }) } },
    { 0xD0, "BSS_CONFIG", { list(bssCount, bssField, bsses,
        { bandIndex, bssAttribute, mdid, tci, u8("bss.wl_mode", "Wi-Fi mode"), extendedAttribute }) } },
})
local elementType = u8("element.type", "Element type", { names = elementNames, base = base.HEX })
local elementLength = u16("element.len", "Element length")

local function decodeElement(cursor, tree, context)
    local element = elements[elementType(cursor, tree, context)]
    context:addWord(element.name)
    local length = elementLength(cursor, tree, context)
    if length == nil then
        return
    end
    cursor:checkLength(tree, context, length, "Element length")
    local body = cursor:part(length)
    decodeLayout(element.layout, body, tree, context)
    body:reportSurplus(tree, context, LENGTH, "listed BSSs")
    cursor:reportSurplus(tree, context, LENGTH, "element")
end

-- ---- The vendor's extension of Wi-Fi Simple Configuration: sub-elements of one BSS

local subElements, subElementNames = byType({
    { 1, "BandIndex", bandIndex }, { 2, "Attribute", bssAttribute }, { 3, "MDID", mdid }, { 4, "TCI", tci },
    { 7, "ExtAttribute", extendedAttribute },
})
local subElementField = newField("none", "wsc.element", "Element")
local subElementId = u8("wsc.element.id", "Element", { names = subElementNames })
local subElementLength = u8("wsc.element.len", "Length")
local subElementValue = newField("bytes", "wsc.element.value", "Value", base.SPACE)

local function addSubElement(cursor, tree, context)
    local id = subElementId(cursor, tree, context)
    local length = id and subElementLength(cursor, tree, context)
    if length == nil then
        return "element"
    end
    local title = subElementNames[id] or ("element %d"):format(id)
    if length > cursor:remaining() then
        cursor:reportShort(tree, context, ("a value of %d bytes"):format(length))
        return title
    end
    local value = cursor:part(length)
    local known = subElements[id]
    if known ~= nil and length == known.layout.size then
        return ("%s: 0x%0" .. 2 * length .. "x"):format(title, (known.layout(value, tree, context)))
    end
    tree:add(subElementValue, value:rest())
    if known == nil then
        context:note(tree, UNKNOWN, ("Unknown element %d, receivers skip it"):format(id))
    else
        cursor.failed = true
        context:note(tree, REFUSED, ("%s of %d bytes, receivers accept %d"):format(title, length, known.layout.size))
    end
    return title
end

local function decodeWscExtension(cursor, tree, context)
    context:addWord("AP configuration")
    while cursor:remaining() > 0 and not cursor.failed do
        decodeSubtree(subElementField, cursor, tree, function(entry)
            return addSubElement(cursor, entry, context)
        end)
    end
end

-- ---- Access to the bytes through Wireshark's fields

local messageTypeField = Field.new("ieee1905.message_type")
local reassembledField = Field.new("ieee1905.fragments")
local fragmentField = Field.new("ieee1905.fragment.data")
local wscTypeField = Field.new("wps.type")

-- Adds a separate tree for a value, whose bytes from prefix on are decoded. claimed: the length in its header. Returns
-- the value's words for the Info column.
local function show(value, claimed, prefix, decode, root)
    local tree = root:add(kv1905, value:rest())
    local context = newContext()
    value:checkLength(tree, context, claimed, "Length")
    value:take(prefix)
    decode(value, tree, context)
    local summary = context:summary()
    tree:append_text(": " .. summary)
    return summary
end

local function reportNoOui(value, tree, context)
    context:addWord("vendor-specific TLV")
    value:reportShort(tree, context, "the OUI")
end

-- Decodes elements, which the vendor's TLVs contain in standard messages.
local function vendorDecoder(value, cmduType)
    local isElement = cmduType ~= VENDOR_SPECIFIC_MESSAGE and value:remaining() > OUI_SIZE
        and elements[value.source:range(value.position + OUI_SIZE, 1):uint()] ~= nil
    return isElement and decodeElement or decodeMessage
end

local function showVendorTlv(value, claimed, cmduType, root)
    if value:remaining() < OUI_SIZE then
        return show(value, claimed, 0, reportNoOui, root)
    end
    local oui = value.source:range(value.position, OUI_SIZE):raw()
    if oui == VENDOR_OUI then
        return show(value, claimed, OUI_SIZE, vendorDecoder(value, cmduType), root)
    elseif oui == INTEL_OUI then
        return show(value, claimed, OUI_SIZE, decodeIntel, root)
    end
    return nil
end

-- Reads the TLVs itself, because Wireshark's dissector stops at a wrong length. Senders may end every fragment of
-- a message, so in reassembled bytes an end is not the end.
local function showTlvs(cursor, isReassembled, cmduType, root, summaries)
    while cursor:remaining() >= TLV_HEADER_SIZE do
        local header = cursor:take(TLV_HEADER_SIZE)
        local type, length = header:range(0, 1):uint(), header:range(1, 2):uint()
        if type == END_TLV and not isReassembled then
            break
        end
        local value = cursor:part(length)
        if type == VENDOR_SPECIFIC_TLV then
            summaries[#summaries + 1] = showVendorTlv(value, length, cmduType, root)
        end
    end
end

-- Returns where the TLVs of this frame's message begin; nil for a fragment without it.
local function findTlvs(cmduType)
    local reassembled = reassembledField()
    if reassembled ~= nil then
        return newCursor(reassembled.source, 0, reassembled.source:len()), true
    end
    local first = cmduType.offset + CMDU_TLVS
    if fragmentField() ~= nil or first > cmduType.source:len() then
        return nil
    end
    return newCursor(cmduType.source, first, cmduType.source:len()), false
end

local function showWscExtensions(root, summaries)
    for _, found in ipairs({ wscTypeField() }) do
        local header = newCursor(found.source, found.offset, found.source:len())
        local length = found.value == WSC_VENDOR_EXTENSION and header:take(WSC_HEADER_SIZE)
        local claimed = length and length:range(2, 2):uint() or 0
        local value = header:part(claimed)
        if value:remaining() >= #WSC_VENDOR_ID
            and value.source:range(value.position, #WSC_VENDOR_ID):raw() == WSC_VENDOR_ID then
            summaries[#summaries + 1] = show(value, claimed, #WSC_VENDOR_ID, decodeWscExtension, root)
        end
    end
end

function kv1905.dissector(_, pinfo, root)
    local summaries = {}
    local cmduType = messageTypeField()
    if cmduType ~= nil then
        local tlvs, isReassembled = findTlvs(cmduType)
        if tlvs ~= nil then
            showTlvs(tlvs, isReassembled, cmduType.value, root, summaries)
        end
    end
    showWscExtensions(root, summaries)
    if #summaries == 0 then
        return
    end
    local text = table.concat(summaries, ", ")
    if cmduType ~= nil and cmduType.value == VENDOR_SPECIFIC_MESSAGE then
        pinfo.cols.protocol = "KV1905"
        pinfo.cols.info = text
    else
        pinfo.cols.info:append(", " .. text)
    end
end

kv1905.fields = fields
kv1905.experts = experts
register_postdissector(kv1905)
