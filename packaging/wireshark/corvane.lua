-- Dissector for the metadata protocol of corvaned: UDP, port 5501 unless the preference says otherwise.
-- Install: copy it (the package has it in /usr/share/corvane/wireshark) into Wireshark's personal or global Lua
-- plug-in folder, or name it: tshark -X lua_script:corvane.lua
-- Every message says its byte order in its first four bytes; this file reads both.

local corvane = Proto("corvane", "Corvane metadata protocol")

local FUNCTIONS = { [1] = "GetVolume", [2] = "GetInitialMap", [3] = "GetExtendedMap", [4] = "SetSize", [5] = "Close" }

local RESULTS = {
    [0] = "FS_E_SUCCESS (Successful normal completion)",
    [1] = "FS_E_PARTIAL (Success, but partial information)",
    [2] = "FS_E_WRONG_FS (Not owned by this FSMDC)",
    [3] = "FS_E_BAD_PATH (Illegal or bad path or share name)",
    [4] = "FS_E_BAD_COOKIE (Bad volume cookie)",
    [5] = "FS_E_OUT_OF_MEMORY (Could not allocate memory for full reply)",
    [6] = "FS_E_INVALID_MSG_LENGTH (invalid message length)",
    [7] = "FS_E_INVALID_ENDIAN (invalid message endian)",
    [8] = "FS_UNKNOWN_FUNCTION (unknown message function)",
    [100] = "FS_E_UNKNOWN_SHARE (unknown share)",
    [101] = "FS_E_UNKNOWN_FILE (unknown file)",
    [102] = "FS_E_UNKNOWN_STREAM (unknown stream)",
    [103] = "FS_E_NO_DIRECT (Valid file, but no direct access from client)",
    [104] = "FS_E_PRIVILEGE (privilege error)",
    [201] = "FS_E_BAD_FILE (Bad file or volume cookie)",
    [202] = "FS_E_SUBMAP (Success, but submap returned)",
    [203] = "FS_E_IVPARAM (Start value not aligned)",
    [300] = "FS_E_NOT_LOCKED (File wasn't locked to begin with)",
    [400] = "FS_E_SHORT_ALLOC (Success, but not fully alloctd)",
    [404] = "FS_E_TRANSMOUNTPT (Unable to translate mount point)",
    [405] = "FS_E_NO_LIBRARY (Unable to find library from cookie)",
    [406] = "FS_E_INVALID_PATHNAME (Invalid pathname)",
    [407] = "FS_E_INVALID_KEY (Invalid key)",
    [408] = "FS_E_MISC_ERROR (Misc error)",
    [409] = "FS_E_UNABLE_TO_SET_LEASE (Unable to set lease)",
}

local FUNCTION_NAMES = {}
for code, name in pairs(FUNCTIONS) do
    FUNCTION_NAMES[code] = name
    FUNCTION_NAMES[-code] = name .. " reply"
end
local INTENTIONS = { [1] = "read" }
local EXTENT_TYPES = { [0] = "compact", [1] = "verbose", [2] = "simple", [3] = "verbose" }
local VALIDITY = { [0] = "data", [1] = "hole", [2] = "unwritten" }
local ORDERS = { [0] = "unknown", [1] = "little-endian", [2] = "big-endian" }

local HEADER_BYTES = 48
local MAX_PLAIN_LENGTH = 512000 -- a GetExtendedMap length beyond this is taken in the other byte order
local SUCCESSES = { [0] = true, [1] = true, [202] = true, [400] = true }

local f = {
    order = ProtoField.uint8("corvane.order", "Byte order", base.DEC, ORDERS),
    endian = ProtoField.uint32("corvane.endian", "Byte-order marker", base.HEX),
    revision = ProtoField.int32("corvane.revision", "Revision"),
    id = ProtoField.bytes("corvane.id", "Message identifier"),
    func = ProtoField.int32("corvane.function", "Function", base.DEC, FUNCTION_NAMES),
    length = ProtoField.uint32("corvane.length", "Length"),
    flags = ProtoField.uint32("corvane.flags", "Flags", base.HEX),
    track = ProtoField.bool("corvane.flags.track", "Track for duplicates", 32, nil, 1),
    header_result = ProtoField.int32("corvane.header_result", "Header result", base.DEC, RESULTS),
    spare1 = ProtoField.bytes("corvane.spare1", "Spare"),
    separator = ProtoField.uint16("corvane.separator", "Path separator", base.HEX),
    spare3 = ProtoField.bytes("corvane.spare3", "Spare"),
    result = ProtoField.int32("corvane.result", "Result", base.DEC, RESULTS),
    volume_cookie = ProtoField.bytes("corvane.volume_cookie", "Volume cookie"),
    file_cookie = ProtoField.bytes("corvane.file_cookie", "File cookie"),
    share = ProtoField.string("corvane.share", "Share"),
    path = ProtoField.string("corvane.path", "Path in the share"),
    filesize = ProtoField.int64("corvane.filesize", "New file size"),
    allocsize = ProtoField.int64("corvane.allocation", "New allocation"),
    lease = ProtoField.int32("corvane.lease", "Lease (ms)"),
    intention = ProtoField.int32("corvane.intention", "Intention", base.DEC, INTENTIONS),
    flag = ProtoField.uint32("corvane.flag", "Map flags", base.HEX),
    unlocked = ProtoField.bool("corvane.flag.unlocked", "Without a lock", 32, nil, 8),
    start = ProtoField.int64("corvane.start", "Start"),
    map_length = ProtoField.int64("corvane.map_length", "Bytes to map"),
    map_length_taken = ProtoField.int64("corvane.map_length.taken", "Bytes to map, as the controller takes it"),
    key = ProtoField.uint32("corvane.key", "Lease key", base.HEX),
    -- volume-info record
    volume = ProtoField.none("corvane.volume", "Volume"),
    msg_len = ProtoField.int32("corvane.msg_len", "Record length"),
    vendor_status = ProtoField.int32("corvane.vendor_status", "Vendor status"),
    fs_type = ProtoField.int32("corvane.volume.fs_type", "File-system type"),
    glom_type = ProtoField.int32("corvane.volume.glom_type", "Glom type"),
    glom_info = ProtoField.int32("corvane.volume.glom_info", "Glom parameter"),
    disks = ProtoField.uint32("corvane.volume.disks", "Disks"),
    block_size = ProtoField.int32("corvane.volume.block_size", "Block size"),
    fs_system = ProtoField.bytes("corvane.volume.descriptor", "File-system descriptor"),
    error_text = ProtoField.string("corvane.error_text", "Error text"),
    disk = ProtoField.none("corvane.disk", "Disk"),
    disk_id = ProtoField.bytes("corvane.disk.id", "Signature"),
    disk_id_offset = ProtoField.int64("corvane.disk.id_offset", "Signature at byte"),
    disk_block = ProtoField.int64("corvane.disk.block", "First block of the slice"),
    disk_blocks = ProtoField.int64("corvane.disk.blocks", "Blocks in the slice"),
    disk_id_length = ProtoField.int32("corvane.disk.id_length", "Signature length"),
    disk_info = ProtoField.int32("corvane.disk.info", "Plug-in's word"),
    -- map-info record
    map = ProtoField.none("corvane.map", "Map"),
    file_size = ProtoField.int64("corvane.map.file_size", "File size"),
    allocation = ProtoField.int64("corvane.map.allocation", "Allocated bytes"),
    extents = ProtoField.int32("corvane.map.extents", "Extents"),
    extent_type = ProtoField.int32("corvane.map.extent_type", "Extent layout", base.DEC, EXTENT_TYPES),
    file_offset = ProtoField.int64("corvane.map.file_offset", "Covers from byte"),
    file_bytes = ProtoField.int64("corvane.map.file_bytes", "Covers bytes"),
    extent = ProtoField.none("corvane.extent", "Extent"),
    logical = ProtoField.int64("corvane.extent.logical", "File byte"),
    physical = ProtoField.int64("corvane.extent.physical", "Slice byte"),
    bytes = ProtoField.int64("corvane.extent.bytes", "Bytes"),
    ordinal = ProtoField.int32("corvane.extent.ordinal", "Disk"),
    validity = ProtoField.int32("corvane.extent.validity", "Holds", base.DEC, VALIDITY),
    extent_block = ProtoField.int64("corvane.extent.block", "First block"),
    extent_blocks = ProtoField.int64("corvane.extent.blocks", "Blocks"),
    -- pairing
    reply_in = ProtoField.framenum("corvane.reply_in", "Reply in", base.NONE, frametype.RESPONSE),
    request_in = ProtoField.framenum("corvane.request_in", "Request in", base.NONE, frametype.REQUEST),
    duplicate_of = ProtoField.framenum("corvane.duplicate_of", "Duplicate of", base.NONE),
    time = ProtoField.relative_time("corvane.time", "Time since the request"),
}
local fields = {}
for _, field in pairs(f) do fields[#fields + 1] = field end
corvane.fields = fields

local e = {
    marker = ProtoExpert.new("corvane.bad_marker", "Neither byte order fits the marker",
        expert.group.MALFORMED, expert.severity.ERROR),
    short = ProtoExpert.new("corvane.bad_length", "Length field below 48",
        expert.group.MALFORMED, expert.severity.ERROR),
    mismatch = ProtoExpert.new("corvane.length_mismatch", "Length field differs from the datagram",
        expert.group.MALFORMED, expert.severity.WARN),
    short_datagram = ProtoExpert.new("corvane.short_datagram", "Datagram shorter than a header",
        expert.group.MALFORMED, expert.severity.ERROR),
    truncated = ProtoExpert.new("corvane.truncated", "A field or record runs past the datagram",
        expert.group.MALFORMED, expert.severity.ERROR),
    endless = ProtoExpert.new("corvane.endless_text", "A text without its end",
        expert.group.MALFORMED, expert.severity.ERROR),
    reversed = ProtoExpert.new("corvane.reversed_length", "Length in the other byte order",
        expert.group.PROTOCOL, expert.severity.WARN),
    unknown = ProtoExpert.new("corvane.unknown_function", "Unknown function",
        expert.group.PROTOCOL, expert.severity.WARN),
    duplicate = ProtoExpert.new("corvane.duplicate", "Duplicate",
        expert.group.SEQUENCE, expert.severity.NOTE),
    failed = ProtoExpert.new("corvane.failed", "The request failed",
        expert.group.RESPONSE_CODE, expert.severity.NOTE),
}
local experts = {}
for _, item in pairs(e) do experts[#experts + 1] = item end
corvane.experts = experts

corvane.prefs.port = Pref.uint("UDP port", 5501, "Port of the controller (mdcPort of its settings)")

-- Exchanges by client, server and identifier; filled on the first pass over a capture.
local exchanges, links = {}, {}

function corvane.init()
    exchanges, links = {}, {}
end

-- A reader of one message: adds fields at offsets in the message's own order. `hurt` is set by the first thing that
-- runs past the datagram.
local function reader(buffer, tree, little)
    local self = { buffer = buffer, tree = tree, little = little, hurt = false }
    function self.fits(offset, size) return offset >= 0 and offset + size <= buffer:len() end
    function self.int(offset) return little and buffer(offset, 4):le_int() or buffer(offset, 4):int() end
    function self.uint(offset) return little and buffer(offset, 4):le_uint() or buffer(offset, 4):uint() end
    function self.runs_past(item)
        if not self.hurt then item:add_proto_expert_info(e.truncated) end
        self.hurt = true
    end
    function self.add(to, field, offset, size)
        if not self.fits(offset, size) then
            self.runs_past(to)
            return nil
        end
        if little then return to:add_le(field, buffer(offset, size)) end
        return to:add(field, buffer(offset, size))
    end
    function self.add_all(to, list)
        for _, entry in ipairs(list) do self.add(to, entry[1], entry[2], entry[3]) end
    end
    -- Adds the FSUNI text at `offset`; returns the offset behind its zero, or nil without one.
    function self.text(to, field, offset, room)
        local last = math.min(offset + room, buffer:len())
        local at = offset
        while at + 1 < last do
            if buffer(at, 2):uint() == 0 then
                local range = buffer(offset, at - offset)
                local text = ""
                if at > offset then text = little and range:le_ustring() or range:ustring() end
                to:add(field, buffer(offset, at + 2 - offset), text)
                return at + 2, text
            end
            at = at + 2
        end
        to:add_proto_expert_info(e.endless)
        return nil
    end
    return self
end

local function volume_record(r, tree, at)
    if not r.fits(at, 104) then
        r.runs_past(tree)
        return
    end
    local record = tree:add(f.volume, r.buffer(at))
    r.add_all(record, { { f.msg_len, at, 4 }, { f.vendor_status, at + 4, 4 }, { f.fs_type, at + 8, 4 },
        { f.glom_type, at + 12, 4 }, { f.glom_info, at + 16, 4 }, { f.disks, at + 20, 4 },
        { f.block_size, at + 24, 4 }, { f.fs_system, at + 64, 40 } })
    if r.int(at + 4) ~= 0 then
        r.text(record, f.error_text, at + 104, r.buffer:len())
        return
    end
    for i = 0, r.uint(at + 20) - 1 do
        local d = at + 104 + 80 * i
        if not r.fits(d, 80) then -- the count is a claim: the datagram is the bound
            r.runs_past(record)
            return
        end
        local disk = record:add(f.disk, r.buffer(d, 80))
        disk:append_text(string.format(" %d", i))
        local id_bytes = math.max(0, math.min(16, r.int(d + 40)))
        if id_bytes > 0 then disk:add(f.disk_id, r.buffer(d, id_bytes)) end
        r.add_all(disk, { { f.disk_id_offset, d + 16, 8 }, { f.disk_block, d + 24, 8 },
            { f.disk_blocks, d + 32, 8 }, { f.disk_id_length, d + 40, 4 },
            { f.disk_info, d + 44, 4 } })
    end
end

local EXTENT_BYTES = { [0] = 16, [1] = 32, [2] = 24, [3] = 32 }

local function extent(r, tree, kind, at, index)
    local item = tree:add(f.extent, r.buffer(at, EXTENT_BYTES[kind]))
    item:append_text(string.format(" %d", index))
    if kind == 0 then
        r.add_all(item, { { f.extent_block, at, 8 }, { f.extent_blocks, at + 8, 8 } })
    elseif kind == 2 then
        r.add(item, f.ordinal, r.little and at or at + 4, 4) -- the low half of an 8-byte number
        r.add_all(item, { { f.extent_block, at + 8, 8 }, { f.extent_blocks, at + 16, 8 } })
    else
        r.add_all(item, { { f.logical, at, 8 }, { f.physical, at + 8, 8 }, { f.bytes, at + 16, 8 },
            { f.ordinal, at + 24, 4 }, { f.validity, at + 28, 4 } })
    end
end

local function map_record(r, tree, at)
    if not r.fits(at, 64) then
        r.runs_past(tree)
        return
    end
    local record = tree:add(f.map, r.buffer(at))
    r.add_all(record, { { f.file_size, at, 8 }, { f.allocation, at + 8, 8 }, { f.msg_len, at + 16, 4 },
        { f.vendor_status, at + 20, 4 }, { f.extents, at + 24, 4 }, { f.extent_type, at + 28, 4 },
        { f.file_offset, at + 32, 8 }, { f.file_bytes, at + 40, 8 } })
    if r.int(at + 20) ~= 0 then
        r.text(record, f.error_text, at + 64, r.buffer:len())
        return
    end
    local count, kind = r.int(at + 24), r.int(at + 28)
    local size = EXTENT_BYTES[kind]
    if size == nil then return end
    for i = 0, count - 1 do
        if not r.fits(at + 64 + size * i, size) then
            r.runs_past(record)
            return
        end
        extent(r, record, kind, at + 64 + size * i, i)
    end
end

-- A client may write the length of the range in the wrong order; what is taken for that, the controller turns round.
local function range_length(r, tree)
    if not r.fits(72, 8) then return end
    local range = r.buffer(72, 8)
    local length = r.little and range:le_int64() or range:int64()
    if length >= Int64(0) and length <= Int64(MAX_PLAIN_LENGTH) then return end
    tree:add(f.map_length_taken, range, r.little and range:int64() or range:le_int64()):set_generated()
    tree:add_proto_expert_info(e.reversed)
end

local function map_flags(r, tree, at)
    r.add_all(tree, { { f.flag, at, 4 }, { f.unlocked, at, 4 } })
end

-- Bodies by function code. Each returns what the info column says behind the function's name.
local bodies = {
    [1] = function(r, tree)
        r.add(tree, f.volume_cookie, 84, 32)
        local _, share = r.text(tree, f.share, 180, 2048)
        return share
    end,
    [2] = function(r, tree)
        r.add_all(tree, { { f.filesize, 48, 8 }, { f.allocsize, 56, 8 }, { f.lease, 64, 4 },
            { f.intention, 68, 4 } })
        map_flags(r, tree, 72)
        local path_at, share = r.text(tree, f.share, 112, 2048)
        if path_at == nil then return nil end
        local _, path = r.text(tree, f.path, path_at, 112 + 2048 - path_at)
        return share .. " " .. (path or "")
    end,
    [3] = function(r, tree)
        r.add_all(tree, { { f.filesize, 48, 8 }, { f.allocsize, 56, 8 }, { f.start, 64, 8 },
            { f.map_length, 72, 8 }, { f.lease, 80, 4 }, { f.key, 84, 4 } })
        range_length(r, tree)
        map_flags(r, tree, 88)
        return r.fits(84, 4) and string.format("key 0x%x", r.uint(84)) or nil
    end,
    [4] = function(r, tree)
        r.add_all(tree, { { f.filesize, 48, 8 }, { f.lease, 56, 4 }, { f.key, 60, 4 } })
        return r.fits(60, 4) and string.format("key 0x%x", r.uint(60)) or nil
    end,
    [5] = function(r, tree)
        r.add_all(tree, { { f.filesize, 48, 8 }, { f.key, 56, 4 } })
        return r.fits(56, 4) and string.format("key 0x%x", r.uint(56)) or nil
    end,
    [-1] = function(r, tree) volume_record(r, tree, 88) end,
    [-2] = function(r, tree)
        r.add_all(tree, { { f.lease, 52, 4 }, { f.key, 56, 4 }, { f.file_cookie, 96, 32 },
            { f.volume_cookie, 128, 32 } })
        map_record(r, tree, 160)
    end,
    [-3] = function(r, tree)
        r.add(tree, f.lease, 52, 4)
        map_record(r, tree, 88)
    end,
    [-4] = function(r, tree) r.add(tree, f.lease, 52, 4) end,
    [-5] = function() end,
}

-- Whether the message is a reply: by its port, since a request may carry any code; else by the code's sign.
local function is_answer(pinfo, code)
    local port = corvane.prefs.port
    if pinfo.src_port == port and pinfo.dst_port ~= port then return true end
    if pinfo.dst_port == port and pinfo.src_port ~= port then return false end
    return code < 0
end

-- The order of the fields, and whether it is not the marker's. An error reply of the LAN layer repeats the request's
-- marker, but has its other fields in the controller's order: there the length tells, which is always 48.
local function byte_order(buffer, pinfo)
    local little
    if buffer(0, 4):le_uint() == 1 then little = true elseif buffer(0, 4):uint() == 1 then little = false end
    if little == nil or buffer:len() ~= HEADER_BYTES then return little, false end
    local forward, backward = buffer(28, 4):le_uint(), buffer(28, 4):uint()
    if not little then forward, backward = backward, forward end
    if forward ~= HEADER_BYTES and backward == HEADER_BYTES and is_answer(pinfo, -1) then return not little, true end
    return little, false
end

local function remember(pinfo, buffer, is_reply)
    local client, server = pinfo.src, pinfo.dst
    local client_port, server_port = pinfo.src_port, pinfo.dst_port
    if is_reply then
        client, server, client_port, server_port = server, client, server_port, client_port
    end
    local key = table.concat({ tostring(client), client_port, tostring(server), server_port,
        buffer(8, 16):bytes():tohex() }, " ")
    local exchange = exchanges[key]
    if exchange == nil then
        exchange = {}
        exchanges[key] = exchange
    end
    local link = { exchange = exchange, is_reply = is_reply }
    local first = is_reply and "reply" or "request"
    if exchange[first] == nil then
        exchange[first] = pinfo.number
        exchange[first .. "_time"] = pinfo.rel_ts
    else
        link.duplicate_of = exchange[first]
    end
    links[pinfo.number] = link
end

local function show_links(pinfo, tree)
    local link = links[pinfo.number]
    if link == nil then return false end
    local exchange = link.exchange
    if link.is_reply and exchange.request ~= nil then
        tree:add(f.request_in, exchange.request):set_generated()
        local seconds = pinfo.rel_ts - exchange.request_time
        local whole = math.floor(seconds)
        tree:add(f.time, NSTime(whole, math.floor((seconds - whole) * 1e9))):set_generated()
    elseif not link.is_reply and exchange.reply ~= nil then
        tree:add(f.reply_in, exchange.reply):set_generated()
    end
    if link.duplicate_of ~= nil then
        tree:add(f.duplicate_of, link.duplicate_of):set_generated()
        tree:add_proto_expert_info(e.duplicate, "Duplicate of frame " .. link.duplicate_of)
    end
    return link.duplicate_of ~= nil
end

local function header(r, tree, swapped)
    local head = tree:add(corvane, r.buffer(0, HEADER_BYTES), "Header")
    head:add(f.order, r.buffer(0, 4), r.little and 1 or 2):set_generated()
    if swapped then head:append_text(" (marker as in the request, fields in the controller's order)") end
    r.add_all(head, { { f.endian, 0, 4 }, { f.revision, 4, 4 }, { f.id, 8, 16 }, { f.func, 24, 4 },
        { f.length, 28, 4 }, { f.flags, 32, 4 }, { f.track, 32, 4 }, { f.header_result, 36, 4 },
        { f.spare1, 40, 2 }, { f.separator, 42, 2 }, { f.spare3, 44, 4 } })
end

local function lengths(r, tree)
    local length = r.uint(28)
    if length < HEADER_BYTES then
        tree:add_proto_expert_info(e.short)
    elseif length ~= r.buffer:reported_len() then
        tree:add_proto_expert_info(e.mismatch, string.format("Length field %d, datagram %d bytes", length,
            r.buffer:reported_len()))
    end
end

local function reply_result(r, tree)
    -- The handlers' outcome stands in the body; a bare header carries its own.
    local at = r.buffer:len() > HEADER_BYTES and 48 or 36
    if not r.fits(at, 4) then return nil end
    local item = r.add(tree, f.result, at, 4)
    local result = r.int(at)
    if not SUCCESSES[result] then
        item:add_proto_expert_info(e.failed, RESULTS[result] or "result " .. result)
    end
    return RESULTS[result] or ("result " .. result)
end

-- What the function is called, and whether the table of functions knows it.
local function called(code, is_reply)
    local asked = is_reply and 0 - code or code
    local name = FUNCTIONS[asked] or ("function " .. asked)
    if is_reply then name = FUNCTIONS[asked] and name .. " reply" or "reply to " .. name end
    return name, FUNCTIONS[asked] ~= nil
end

local function message(r, tree, pinfo, swapped)
    local code = r.int(24)
    local is_reply = is_answer(pinfo, code)
    if not pinfo.visited then remember(pinfo, r.buffer, is_reply) end
    header(r, tree, swapped)
    lengths(r, tree)
    local name, known = called(code, is_reply)
    if not known then tree:add_proto_expert_info(e.unknown) end
    local note = is_reply and reply_result(r, tree) or nil
    if known and (not is_reply or r.buffer:len() > HEADER_BYTES) then note = bodies[code](r, tree) or note end
    local duplicate = show_links(pinfo, tree)
    tree:append_text(", " .. name)
    pinfo.cols.info = name .. (note and (": " .. note) or "") .. (duplicate and " [duplicate]" or "")
end

function corvane.dissector(buffer, pinfo, root)
    pinfo.cols.protocol = "CORVANE"
    local tree = root:add(corvane, buffer())
    if buffer:len() < HEADER_BYTES then
        tree:add_proto_expert_info(e.short_datagram)
        pinfo.cols.info = "Shorter than a header"
        return buffer:len()
    end
    local little, swapped = byte_order(buffer, pinfo)
    if little == nil then
        tree:add_proto_expert_info(e.marker)
        pinfo.cols.info = "Bad byte-order marker"
        return buffer:len()
    end
    message(reader(buffer, tree, little), tree, pinfo, swapped)
    return buffer:len()
end

local ports = DissectorTable.get("udp.port")
local registered = nil
function corvane.prefs_changed()
    if registered == corvane.prefs.port then return end
    if registered then ports:remove(registered, corvane) end
    registered = corvane.prefs.port
    ports:add(registered, corvane)
end
registered = corvane.prefs.port
ports:add(registered, corvane)
