-- The lines of the tree as data: built once for each frame, drawn as often as Wireshark asks.

-- Wireshark also runs every file of its plugin folders by itself: without a kit there is nothing to do here.
local kit = ...
if not kit then return end
local field, fault = kit.field, kit.fault

-- One line of the tree: a field over `count` bytes from `at`, with an explicit value where it cannot be read in place.
local function add(parent, proto_field, at, count, value)
  local node = { field = proto_field, at = at, count = count, value = value, faults = {} }
  parent[#parent + 1] = node
  return node
end

local function blame(node, proto_expert, text)
  node.faults[#node.faults + 1] = { expert = proto_expert, text = text }
end

local function draw(node, bytes, tree)
  local range = node.count > 0 and bytes(node.at, node.count) or bytes(0, 0)
  local item
  if node.value ~= nil then
    item = tree:add(node.field, range, node.value)
  else
    item = tree:add(node.field, range)
  end
  if node.suffix then item:append_text(node.suffix) end
  if node.generated then item:set_generated() end
  for _, entry in ipairs(node.faults) do
    if entry.text then
      item:add_proto_expert_info(entry.expert, entry.text)
    else
      item:add_proto_expert_info(entry.expert)
    end
  end
  for _, child in ipairs(node) do draw(child, bytes, item) end
end

-- Adds a field only as far as its bytes are there; true when all of them are.
local function take(parent, proto_field, bytes, at, count)
  if at + count > bytes:len() then return nil end
  return add(parent, proto_field, at, count)
end

local function expect(parent, bytes, at, count, wanted)
  for i = at, math.min(at + count, bytes:len()) - 1 do
    if bytes(i, 1):uint() ~= wanted then
      local node = add(parent, field.unread, i, 1)
      blame(node, fault.reserved, string.format("Byte %d is %02X, not %02X", i, bytes(i, 1):uint(), wanted))
    end
  end
end

-- "1 name", "2 names".
local function number_of(count, what)
  return string.format("%d %s%s", count, what, count == 1 and "" or "s")
end

local function text_list(list)
  local shown = table.concat(list, ", ", 1, math.min(#list, 4))
  return #list > 4 and string.format("%s and %d more", shown, #list - 4) or shown
end

local function handle_key(area, address)
  return string.format("%02x%08x", area, address)
end

-- The first and last code points of what a terminal would obey or hide: controls, separators of lines, signs of
-- direction, what has no width or is blank and is not the space, what is no character or one of private use.
local hidden = {
  { 0x00, 0x1F }, { 0x7F, 0x9F }, { 0xAD, 0xAD }, { 0x34F, 0x34F }, { 0x61C, 0x61C }, { 0x115F, 0x1160 },
  { 0x17B4, 0x17B5 }, { 0x180B, 0x180F }, { 0x200B, 0x200F }, { 0x2028, 0x202E }, { 0x2060, 0x206F },
  { 0x2800, 0x2800 }, { 0x3000, 0x3000 }, { 0x3164, 0x3164 }, { 0xD800, 0xF8FF }, { 0xFDD0, 0xFDEF },
  { 0xFE00, 0xFE0F }, { 0xFEFF, 0xFEFF }, { 0xFFA0, 0xFFA0 }, { 0xFFF0, 0xFFFB }, { 0x1BCA0, 0x1BCA3 },
  { 0x1D173, 0x1D17A }, { 0xE0000, 0xE0FFF }, { 0xF0000, 0x10FFFF },
}

local function is_hidden(code)
  for _, range in ipairs(hidden) do
    if code >= range[1] and code <= range[2] then return true end
  end
  return code % 0x10000 >= 0xFFFE
end

-- The code points of UTF-16, high byte first; half a pair stands for itself.
local function code_points(raw)
  local codes, at = {}, 1
  while at + 1 <= #raw do
    local high, low = raw:byte(at, at + 1)
    local code = high * 256 + low
    at = at + 2
    local a, b = raw:byte(at, at + 1)
    local next_unit = b and a * 256 + b or 0
    if code >= 0xD800 and code < 0xDC00 and next_unit >= 0xDC00 and next_unit < 0xE000 then
      code = 0x10000 + (code - 0xD800) * 0x400 + next_unit - 0xDC00
      at = at + 2
    end
    codes[#codes + 1] = code
  end
  return codes
end

local function utf8_of(code)
  if code < 0x80 then return string.char(code) end
  local tail = ""
  local limit = 0x40
  while code >= limit do
    tail = string.char(0x80 + code % 0x40) .. tail
    code, limit = math.floor(code / 0x40), limit / 2
  end
  return string.char(256 - 2 * limit + code) .. tail
end

-- A name as it is shown, found by filters and put into columns: what a terminal would obey or hide is written out.
local function name_text(range)
  local parts = {}
  for _, code in ipairs(code_points(range:raw())) do
    if not is_hidden(code) then
      parts[#parts + 1] = utf8_of(code)
    elseif code == 10 then
      parts[#parts + 1] = "\\n"
    elseif code == 13 then
      parts[#parts + 1] = "\\r"
    elseif code == 9 then
      parts[#parts + 1] = "\\t"
    else
      parts[#parts + 1] = string.format(code < 0x80 and "\\x%02x" or "\\u{%x}", code)
    end
  end
  return table.concat(parts)
end

-- The name behind a handle: as it was given; else of a bit whose word it is (low four bits cleared).
local function name_of(stream, area, address)
  return stream.names[handle_key(area, address)] or stream.names[handle_key(area, address - address % 16) .. "word"]
end

-- The name of the latest handles that has these last two address bytes: bit requests carry no more of it.
local function name_by_end(stream, ending)
  for i, given in ipairs(stream.latest.handles) do
    if given.address % 65536 == ending then return stream.latest.names[i] end
  end
end

-- The name of the latest handle number `index` if this is the handle, or its word; with the bit that the word is
-- read for, where the address tells it. Bits of one word differ in nothing else than their place.
local function name_in_order(stream, index, area, address)
  local given = stream.latest.handles[index]
  if not given or given.area ~= area then return nil end
  if given.address == address then return stream.latest.names[index] end
  if given.address - given.address % 16 == address then return stream.latest.names[index], given.address % 16 end
end

-- Names the variable that a handle belongs to; complains at `node` when the connection has given no such handle.
local function target(parent, stream, node, area, address, index)
  local name, bit
  if index then name, bit = name_in_order(stream, index, area, address) end
  name = name or name_of(stream, area, address)
  if not name and address < 65536 then name = name_by_end(stream, address) end
  if name then
    add(parent, field.target, node.at, node.count, name).generated = true
  elseif stream.resolved then
    blame(node, fault.handle, string.format("No reply has given the handle %02X %08X", area, address))
  end
  return name or string.format("%02X:%08X", area, address), bit
end

-- Adds one value with its readings, `bit` being the one of a word that it was read for. A value of more than one unit
-- comes low unit first.
local function add_value(parent, bytes, at, count, name, bit)
  local node = add(parent, field.value, at, count)
  local range, reading = bytes(at, count), nil
  if count == 2 then
    add(node, field.word, at, 2)
    reading = tostring(range:uint())
    if bit then
      local state = math.floor(range:uint() / 2 ^ bit) % 2
      add(node, field.bit_value, at, 2, state).generated = true
      reading = string.format("%d (bit %d of %04X)", state, bit, range:uint())
    end
  elseif count == 4 then
    local number = bytes(at + 2, 2):uint() * 65536 + bytes(at, 2):uint()
    add(node, field.dword, at, 4, number)
    reading = string.format("%.0f", number)
  elseif count == 8 then
    local low = bytes(at + 2, 2):uint() * 65536 + bytes(at, 2):uint()
    local high = bytes(at + 6, 2):uint() * 65536 + bytes(at + 4, 2):uint()
    add(node, field.qword, at, 8, UInt64.new(low, high))
    reading = tostring(UInt64.new(low, high))
  end
  local text = range:raw():match("^([%g ]+)\0*$")
  if text then
    add(node, field.text, at, count, text)
    -- A text of two or four units looks like a number: both readings stand side by side.
    if #text > 2 then reading = (reading and reading .. " or " or "") .. '"' .. text .. '"' end
  end
  node.suffix = name and string.format(" (%s = %s)", name, reading or "...") or nil
  return reading or tostring(range:bytes())
end

-- Length, complement and sequence number; the node of the sequence number, if it came.
local function add_head(lines, bytes, announced)
  local length = take(lines, field.length, bytes, 0, 4)
  local complement = take(lines, field.complement, bytes, 4, 4)
  if complement and bytes(0, 4):uint() + bytes(4, 4):uint() ~= 0xFFFFFFFF then
    blame(complement, fault.complement)
  elseif length and announced > bytes:len() then
    blame(length, fault.cut, string.format("%d bytes announced, %d came", announced, bytes:len()))
  elseif length and announced < bytes:len() then
    blame(length, fault.surplus, string.format("%d bytes announced, %d came", announced, bytes:len()))
  end
  return take(lines, field.sequence, bytes, 8, 2)
end

kit.nodes = {
  add = add, blame = blame, draw = draw, take = take, expect = expect, text_list = text_list, number_of = number_of,
  handle_key = handle_key, target = target, name_by_end = name_by_end, add_value = add_value, add_head = add_head,
  name_text = name_text,
}
