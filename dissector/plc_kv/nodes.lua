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
  for _, entry in ipairs(node.faults) do item:add_proto_expert_info(entry.expert, entry.text) end
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

local function text_list(list)
  local shown = table.concat(list, ", ", 1, math.min(#list, 4))
  return #list > 4 and string.format("%s and %d more", shown, #list - 4) or shown
end

local function handle_key(area, address)
  return string.format("%02x%08x", area, address)
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

local function target(parent, stream, node, area, address)
  local name = name_of(stream, area, address)
  if not name and address < 65536 then name = name_by_end(stream, address) end
  if name then
    add(parent, field.target, node.at, node.count, name).generated = true
  elseif stream.resolved then
    blame(node, fault.handle, string.format("No reply has given the handle %02X %08X", area, address))
  end
  return name or string.format("%02X:%08X", area, address)
end

-- Adds one value with its readings; a value of more than one unit comes low unit first.
local function add_value(parent, bytes, at, count, name)
  local node = add(parent, field.value, at, count)
  local range, reading = bytes(at, count), nil
  if count == 2 then
    add(node, field.word, at, 2)
    reading = tostring(range:uint())
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
  local text = range:raw():match("^([%g ]+)%z*$")
  if text then
    add(node, field.text, at, count, text)
    reading = reading or '"' .. text .. '"'
  end
  node.suffix = name and string.format(" (%s = %s)", name, reading or "...") or nil
  return reading or tostring(range:bytes())
end

-- Length, complement and sequence number; the node of the sequence number, if it came.
local function add_head(nodes, bytes, announced)
  local length = take(nodes, field.length, bytes, 0, 4)
  local complement = take(nodes, field.complement, bytes, 4, 4)
  if complement and bytes(0, 4):uint() + bytes(4, 4):uint() ~= 0xFFFFFFFF then
    blame(complement, fault.complement)
  elseif length and announced > bytes:len() then
    blame(length, fault.cut, string.format("%d bytes announced, %d came", announced, bytes:len()))
  end
  return take(nodes, field.sequence, bytes, 8, 2)
end

kit.nodes = {
  add = add, blame = blame, draw = draw, take = take, expect = expect, text_list = text_list, handle_key = handle_key,
  target = target, name_by_end = name_by_end, add_value = add_value, add_head = add_head,
}
