-- What a reply says, read by the request that it answers: nothing in a reply names its own kind for certain.

-- Wireshark also runs every file of its plugin folders by itself: without a kit there is nothing to do here.
local kit = ...
if not kit then return end
local functions, field, fault, nodes = kit.functions, kit.field, kit.fault, kit.nodes
local add, blame, take, text_list = nodes.add, nodes.blame, nodes.take, nodes.text_list

local kHeadBytes = 14
local kRecordsAt = 17 -- resolve reply: the first record
local kRecordBytes = 24 -- a record without its groups

-- The driver's lower limits; a write is limited for single words alone.
local required_bytes = { [functions.value] = 14, [functions.write] = 13 }

local function rest(lines, bytes, at)
  if at < bytes:len() then return add(lines, field.unread, at, bytes:len() - at) end
end

local function directory_record(lines, bytes, at, info)
  if at + 5 > bytes:len() then return nil end
  local size = bytes(at + 2, 1):uint()
  local name_bytes = math.max(size - 2, 0)
  if at + 5 + name_bytes > bytes:len() then return nil end
  local stop = math.min(at + (size > 2 and size + 4 or 6), bytes:len())
  local node = add(lines, field.record, at, stop - at)
  local text = name_bytes > 1 and nodes.name_text(bytes(at + 5, name_bytes - name_bytes % 2)) or ""
  add(node, field.name_size, at + 2, 1)
  add(node, field.number, at + 4, 1)
  add(node, field.scope_name, at + 5, name_bytes, text)
  node.suffix = string.format(" %d = %s", bytes(at + 4, 1):uint(), text)
  info.scopes[#info.scopes + 1] = text
  return at + (size > 2 and size + 4 or 6)
end

local function directory_reply(lines, bytes, info)
  local count = take(lines, field.directory_count, bytes, 14, 1)
  if not count then return end
  info.scopes = {}
  local announced, at = bytes(14, 1):uint(), 15
  for i = 1, announced do
    at = directory_record(lines, bytes, at, info)
    if not at then
      blame(count, fault.record, string.format("Record %d of %d is not complete", i, announced))
      break
    end
  end
  if at then
    local left = rest(lines, bytes, at)
    if left then blame(left, fault.count, "Bytes behind the last record") end
  end
  info.column = announced > 0 and text_list(info.scopes) or "empty"
end

local function handle_record(lines, bytes, at, name)
  local groups = at + kRecordBytes <= bytes:len() and bytes(at + kRecordBytes - 1, 1):uint()
  if not groups then return nil end
  local stop = at + kRecordBytes + 4 * groups
  local node = add(lines, field.handle_record, at, math.min(stop, bytes:len()) - at)
  if name then
    add(node, field.target, at, 0, name).generated = true
    node.suffix = " " .. name
  end
  add(node, field.handle, at + 4, 5)
  add(node, field.area, at + 4, 1)
  add(node, field.address, at + 5, 4)
  add(node, field.bit, at + 12, 2)
  local count = add(node, field.groups, at + kRecordBytes - 1, 1)
  if stop > bytes:len() then blame(count, fault.record, "The groups are not complete") end
  return stop, { area = bytes(at + 4, 1):uint(), address = bytes(at + 5, 4):uint() }
end

local function resolve_reply(lines, bytes, info, request, stream)
  if bytes:len() > kHeadBytes then
    add(lines, field.unread, kHeadBytes, math.min(kRecordsAt, bytes:len()) - kHeadBytes)
  end
  local names, at, handles = request.names or {}, kRecordsAt, {}
  while at < bytes:len() do
    local name = names[#handles + 1]
    local stop, handle = handle_record(lines, bytes, at, name)
    if not stop then
      blame(rest(lines, bytes, at), fault.record)
      break
    end
    handles[#handles + 1] = handle
    -- A handle that nobody asked a name for is known all the same.
    local called = name or string.format("%02X:%08X", handle.area, handle.address)
    stream.names[nodes.handle_key(handle.area, handle.address)] = called
    stream.names[nodes.handle_key(handle.area, handle.address - handle.address % 16) .. "word"] = called
    at = stop
  end
  if #handles ~= #names then
    blame(lines[1], fault.count, string.format("%d names asked for, %d handles given", #names, #handles))
  end
  stream.resolved = true
  stream.latest = { names = names, handles = handles }
  info.column = nodes.number_of(#handles, "handle")
end

local function value_reply(lines, bytes, info, request)
  local at, readings, incomplete = kHeadBytes, {}, false
  for i, size in ipairs(request.sizes or {}) do
    local count = 2 * size
    if count > 0 then
      if at + count > bytes:len() then
        blame(lines[1], fault.values, string.format("The value of %s is not complete", request.names[i]))
        incomplete = true
        break
      end
      local reading = nodes.add_value(lines, bytes, at, count, request.names[i], request.bits[i])
      readings[#readings + 1] = request.names[i] .. " = " .. reading
    end
    at = at + count
  end
  local left = rest(lines, bytes, at)
  if left and not incomplete then blame(left, fault.values, "Bytes that no value was asked for") end
  info.column = #readings > 0 and text_list(readings) or "no values"
end

local reply_bodies = {
  [functions.directory] = directory_reply, [functions.resolve] = resolve_reply, [functions.value] = value_reply,
}

-- `request` is what analyse_request made of the request answered, or nothing when there is none.
function kit.analyse_reply(bytes, announced, stream, request)
  local lines, info = {}, { title = "Reply" }
  info.lines = lines
  local kind = add(lines, field.is_reply, 0, 0, true)
  kind.generated = true
  local sequence = nodes.add_head(lines, bytes, announced)
  -- A controller may repeat class and command; nothing depends on it.
  local repeated = request and bytes:len() >= 12 and bytes(10, 2):uint() == request.func
  if repeated then add(lines, field.func, 10, 2) end
  local at = repeated and 12 or 10
  if bytes:len() > at then add(lines, field.reply_head, at, math.min(kHeadBytes, bytes:len()) - at) end
  if not request then
    blame(kind, fault.unsolicited)
    rest(lines, bytes, kHeadBytes)
    return info
  end
  info.func = request.func
  info.title = request.title .. " reply"
  if sequence and bytes(8, 2):uint() ~= request.sequence then
    blame(sequence, fault.reply_sequence, string.format("%d answers %d", bytes(8, 2):uint(), request.sequence or 0))
  end
  local required = required_bytes[request.func]
  if required and bytes:len() < required then
    blame(kind, fault.short, string.format("%d bytes, %d required", bytes:len(), required))
  end
  local body = reply_bodies[request.func]
  if body then body(lines, bytes, info, request, stream) else rest(lines, bytes, kHeadBytes) end
  return info
end
