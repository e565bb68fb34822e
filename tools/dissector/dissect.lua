-- Recordings of the bridge service (link type USER0; tools/recording/format.h) by their fields. `records`, `events` and
-- `filters` stand above. Numbers may be in either byte order; only arithmetic that every Lua has is used.

local bridge = Proto("bridge", "Bridge service")

local makers = {uint = ProtoField.uint32, int = ProtoField.int32, ether = ProtoField.ether,
                string = ProtoField.string, bytes = ProtoField.bytes}
local fields = {}
for name, kind in pairs(filters) do
  fields[name] = makers[kind](name, name:match("[^.]+$"))
end

local tables = {[0] = "ports", [1] = "vlans", [2] = "exclusions", [3] = "groups"}
local changes = {[0] = "connected", [1] = "closed by the client", [2] = "closed by the server"}
local head = {
  way = ProtoField.uint8("bridge.direction", "Direction", base.DEC, {[0] = "to the server", [1] = "to the client"}),
  order = ProtoField.uint8("bridge.order", "Byte order", base.DEC, {[0] = "little", [1] = "big"}),
  kind = ProtoField.uint8("bridge.kind", "Kind", base.DEC,
                           {[0] = "batch", [1] = "table change", [2] = "kernel", [3] = "connection"}),
  client = ProtoField.uint32("bridge.client", "Client"),
  table = ProtoField.uint8("bridge.table", "Table", base.DEC, tables),
  start = ProtoField.uint8("bridge.start_value", "Start value"),
  offset = ProtoField.uint32("bridge.offset", "Offset", base.HEX),
  change = ProtoField.uint8("bridge.change", "Change", base.DEC, changes),
  msg_len = ProtoField.uint32("bridge.msg_len", "Bytes of messages"),
  msg_cnt = ProtoField.uint32("bridge.msg_cnt", "Messages"),
  type = ProtoField.uint32("bridge.type", "Type"),
  event = ProtoField.string("bridge.event", "Event"),
  len = ProtoField.uint32("bridge.len", "Length"),
  data = ProtoField.bytes("bridge.data", "Data"),
}
local all = {}
for _, field in pairs(head) do all[#all + 1] = field end
for _, field in pairs(fields) do all[#all + 1] = field end
bridge.fields = all

local function note(name, text, severity)
  return ProtoExpert.new("bridge." .. name, text, expert.group.MALFORMED, severity)
end
local notes = {
  head = note("bad_head", "not a recording of this kind", expert.severity.ERROR),
  cut = note("cut", "ends inside a message or a record", expert.severity.ERROR),
  large = note("too_large", "announces more than a batch may hold", expert.severity.ERROR),
  count = note("bad_count", "holds another number of messages than it announces", expert.severity.ERROR),
  rest = note("rest", "bytes behind the last message or record", expert.severity.WARN),
  way = note("wrong_way", "does not travel this way", expert.severity.WARN),
  unknown = note("unknown", "no event is known by this number", expert.severity.NOTE),
}
local listed = {}
for _, each in pairs(notes) do listed[#listed + 1] = each end
bridge.experts = listed

local MOST = 10248 -- bytes of messages in a batch
local HEAD, BATCH, MESSAGE = 16, 8, 8

local function number(range, big, signed)
  if signed then
    return big and range:int() or range:le_int()
  end
  return big and range:uint() or range:le_uint()
end

-- The numbers of the bits that are set: bit n & 31 of word n >> 5.
local function members(range, big)
  local ids = {}
  for word = 0, range:len() / 4 - 1 do
    local left = number(range(word * 4, 4), big)
    local bit = 0
    while left > 0 do
      if left % 2 == 1 then
        ids[#ids + 1] = word * 32 + bit
      end
      left = (left - left % 2) / 2
      bit = bit + 1
    end
  end
  return ids
end

-- "1,2,5-10": three and more in a row are a range.
local function list_text(ids)
  local parts, at = {}, 1
  while at <= #ids do
    local last = at
    while ids[last + 1] == ids[last] + 1 do
      last = last + 1
    end
    if last >= at + 2 then
      parts[#parts + 1] = string.format("%d-%d", ids[at], ids[last])
    else
      last = at
      parts[#parts + 1] = string.format("%d", ids[at])
    end
    at = last + 1
  end
  return #parts == 0 and "none" or table.concat(parts, ",")
end

local function flags_text(value, names)
  local parts, left = {}, value
  local bit = 1
  while left > 0 do
    if left % 2 == 1 then
      parts[#parts + 1] = names and names[bit] or string.format("0x%x", bit)
    end
    left = (left - left % 2) / 2
    bit = bit * 2
  end
  return table.concat(parts, "|")
end

local function add_number(tree, field, range, big, index)
  local value = number(range, big, field.type == "int")
  local item = tree:add(fields[field.filter], range, value)
  item:set_text(string.format("%s%s: %d", field.name, index and "[" .. index .. "]" or "", value))
  if field.type == "flags" then
    item:append_text(value == 0 and "" or " (" .. flags_text(value, field.names) .. ")")
  elseif field.names and field.names[value] then
    item:append_text(" (" .. field.names[value] .. ")")
  end
end

local function add_array(tree, field, range, big)
  local item = tree:add(range, field.name)
  local shown = 0
  for index = 0, field.width / field.element - 1 do
    local one = range(index * field.element, field.element)
    if number(one, big) ~= 0 then
      add_number(item, field, one, big, string.format("%d", index))
      shown = shown + 1
    end
  end
  item:append_text(string.format(": %d that are not 0", shown))
end

local function add_set(tree, field, range, big)
  local ids = members(range, big)
  local item = tree:add(range, field.name .. ": " .. list_text(ids))
  for _, id in ipairs(ids) do
    item:add(fields[field.filter], range(math.floor(id / 32) * 4, 4), id)
  end
end

local function is_zero(range)
  return not range:bytes():tohex():find("[^0]")
end

local add_record

local function add_records(tree, field, range, big)
  local record = records[field.record]
  for at = 0, range:len() - 1, record.size do
    local one = range(at, math.min(record.size, range:len() - at))
    if one:len() < record.size or not is_zero(one) then
      local item = tree:add(one, string.format("%s[%d]", field.name, at / record.size))
      add_record(item, record, one, big)
    end
  end
end

local function add_field(tree, field, range, big)
  if field.type == "records" then
    add_records(tree, field, range, big)
  elseif field.type == "set" then
    add_set(tree, field, range, big)
  elseif field.type == "ether" then
    tree:add(fields[field.filter], range):set_text(field.name .. ": " .. tostring(range:ether()))
  elseif field.type == "string" then
    tree:add(fields[field.filter], range, range:stringz()):set_text(field.name .. ": " .. range:stringz())
  elseif field.type == "bytes" then
    if not is_zero(range) then
      tree:add(fields[field.filter], range):set_text(field.name .. ": " .. range:bytes():tohex())
    end
  elseif field.width > field.element then
    add_array(tree, field, range, big)
  else
    add_number(tree, field, range, big)
  end
end

-- Every field that is there whole; the records of a field as far as the bytes go.
add_record = function(tree, record, range, big)
  for _, field in ipairs(record.fields) do
    local there = math.min(field.width, range:len() - field.at)
    if there == field.width or (field.type == "records" and there > 0) then
      add_field(tree, field, range(field.at, there), big)
    end
  end
  if range:len() < record.least then
    tree:add_proto_expert_info(notes.cut)
  elseif range:len() > record.size then
    tree:add(head.data, range(record.size)):set_text("rest: " .. range(record.size):bytes():tohex())
    tree:add_proto_expert_info(notes.rest)
  end
end

local function add_run(tree, record, range, big)
  for at = 0, range:len() - 1, record.size do
    local one = range(at, math.min(record.size, range:len() - at))
    add_record(tree:add(one, string.format("[%d]", at / record.size)), record, one, big)
  end
end

local function name_of(kind)
  return events[kind] and events[kind].name or string.format("%d", kind)
end

-- `range` is null for a message without a payload.
local function add_payload(tree, kind, way, range, big)
  local event = events[kind]
  if not event then
    tree:add_proto_expert_info(notes.unknown)
  end
  local payload = event and event[way]
  if event and not payload then
    tree:add_proto_expert_info(notes.way)
  end
  if payload and payload.record and payload.shape == "record" then
    if range then
      add_record(tree, records[payload.record], range, big)
    elseif records[payload.record].least > 0 then
      tree:add_proto_expert_info(notes.cut)
    end
  elseif range and payload and payload.shape == "run" then
    add_run(tree, records[payload.record], range, big)
  elseif range then
    tree:add(head.data, range)
    if payload and payload.shape == "none" then
      tree:add_proto_expert_info(notes.rest)
    end
  end
end

-- One message; the offset behind it, null when it does not end.
local function add_message(tree, messages, at, way, big, names)
  local kind = number(messages(at, 4), big)
  local announced = number(messages(at + 4, 4), big)
  local there = math.min(announced, messages:len() - at - MESSAGE)
  local item = tree:add(messages(at, MESSAGE + there), name_of(kind))
  item:add(head.type, messages(at, 4), kind)
  item:add(head.event, messages(at, 4), name_of(kind))
  item:add(head.len, messages(at + 4, 4), announced)
  names[#names + 1] = name_of(kind)
  if there < announced then
    item:add_proto_expert_info(notes.cut)
    if there > 0 then
      item:add(head.data, messages(at + MESSAGE, there))
    end
    return nil
  end
  add_payload(item, kind, way, there > 0 and messages(at + MESSAGE, there) or nil, big)
  return at + MESSAGE + there
end

local function add_messages(tree, messages, count, way, big, names)
  local at, taken = 0, 0
  while at and taken < count and messages:len() - at >= MESSAGE do
    at = add_message(tree, messages, at, way, big, names)
    taken = taken + 1
  end
  if taken ~= count then
    tree:add_proto_expert_info(notes.count)
  end
  if at and at < messages:len() then
    tree:add(head.data, messages(at))
    tree:add_proto_expert_info(taken == count and notes.rest or notes.cut)
  end
end

local function dissect_batch(tree, range, way, big)
  if range:len() < BATCH then
    tree:add_proto_expert_info(notes.cut)
    return "cut batch"
  end
  local length, count = number(range(0, 4), big), number(range(4, 4), big)
  tree:add(head.msg_len, range(0, 4), length)
  tree:add(head.msg_cnt, range(4, 4), count)
  if length > MOST then
    tree:add_proto_expert_info(notes.large)
  end
  if length ~= range:len() - BATCH then
    tree:add_proto_expert_info(length < range:len() - BATCH and notes.rest or notes.cut)
  end
  local there = math.min(length, range:len() - BATCH)
  local names = {}
  if there > 0 then
    add_messages(tree, range(BATCH, there), count, way, big, names)
  elseif count > 0 then
    tree:add_proto_expert_info(notes.count)
  end
  return #names == 0 and "empty batch" or table.concat(names, ", ")
end

-- The kernel's answers do not say what was asked: each client has one question out at a time.
local asked, answered = {}, {}
function bridge.init()
  asked, answered = {}, {}
end

-- Kinds of netlink messages that are not the family's own.
local foreign = {[2] = "error", [3] = "done", [16] = "family look-up"}

local function dissect_kernel(tree, range, way, big, client, packet)
  local to_kernel = way == "to_server"
  local other = range:len() >= 6 and foreign[number(range(4, 2), big)]
  if other then
    tree:add(head.data, range)
    return (to_kernel and "kernel asked: " or "kernel answers: ") .. other
  end
  local frame = to_kernel and records.ef_bridge_request or records.ef_bridge_answer
  if range:len() < frame.size then
    tree:add_proto_expert_info(notes.cut)
    return "cut kernel message"
  end
  add_record(tree:add(range(0, frame.size), "netlink"), frame, range(0, frame.size), big)
  if to_kernel then
    asked[client] = number(range(24, 4), big)
    answered[packet] = asked[client]
  end
  answered[packet] = answered[packet] or asked[client] or 0
  local kind = answered[packet]
  local data = range:len() > frame.size and range(frame.size) or nil
  local item = tree:add(data or range, name_of(kind))
  item:add(head.type, range(0, 0), kind)
  item:add(head.event, range(0, 0), name_of(kind))
  if data and to_kernel then -- padded to a multiple of four
    local length = math.min(number(range(28, 4), big), data:len())
    data = length > 0 and data(0, length) or nil
  end
  add_payload(item, kind, to_kernel and "to_kernel" or "from_kernel", data, big)
  return (to_kernel and "kernel asked: " or "kernel answers: ") .. name_of(kind)
end

-- A start value may be without bytes: all of that table is zero.
local function dissect_table(tree, buffer, bytes)
  local which, start, offset = buffer(8, 1):uint(), buffer(9, 1):uint() % 2, buffer(12, 4):uint()
  tree:add(head.table, buffer(8, 1))
  tree:add(head.start, buffer(9, 1), start)
  tree:add(head.offset, buffer(12, 4))
  if bytes then
    tree:add(head.data, bytes)
  end
  return string.format("%s of %s: %d bytes at 0x%x", start == 1 and "start value" or "change",
                       tables[which] or string.format("table %d", which), bytes and bytes:len() or 0, offset)
end

local function dissect_change(tree, bytes)
  tree:add(head.change, bytes(0, 1))
  return changes[bytes(0, 1):uint()] or "unknown change"
end

function bridge.dissector(buffer, pinfo, root)
  pinfo.cols.protocol = "BRIDGE"
  local tree = root:add(bridge, buffer())
  if buffer:len() < HEAD or buffer(0, 1):uint() ~= 1 then
    tree:add_proto_expert_info(notes.head)
    return
  end
  local way = buffer(1, 1):uint() == 1 and "to_client" or "to_server"
  local big = buffer(2, 1):uint() == 1
  local kind = buffer(3, 1):uint()
  local client = buffer(4, 4):uint()
  tree:add(head.way, buffer(1, 1))
  tree:add(head.order, buffer(2, 1))
  tree:add(head.kind, buffer(3, 1))
  tree:add(head.client, buffer(4, 4))
  pinfo.cols.src = way == "to_client" and "server" or string.format("client %d", client)
  pinfo.cols.dst = way == "to_client" and string.format("client %d", client) or "server"
  if kind == 1 then
    pinfo.cols.src, pinfo.cols.dst = "tables", ""
  end
  local bytes = buffer:len() > HEAD and buffer(HEAD) or nil
  if kind == 1 then
    pinfo.cols.info = dissect_table(tree, buffer, bytes)
  elseif not bytes then
    tree:add_proto_expert_info(notes.cut)
  elseif kind == 0 then
    pinfo.cols.info = dissect_batch(tree, bytes, way, big)
  elseif kind == 2 then
    pinfo.cols.info = dissect_kernel(tree, bytes, way, big, client, pinfo.number)
  elseif kind == 3 then
    pinfo.cols.info = dissect_change(tree, bytes)
  else
    tree:add(head.data, bytes)
  end
end

DissectorTable.get("wtap_encap"):add((wtap or wtap_encaps).USER0, bridge)
