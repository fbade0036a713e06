-- What a reply says, read by the request that it answers. What comes with a refusal, or with the class and command of
-- another request, is not what was asked for, and is never shown as a value, handle or name.

-- Wireshark also runs every file of its plugin folders by itself: without a kit there is nothing to do here.
local kit = ...
if not kit then return end
local functions, field, fault, nodes = kit.functions, kit.field, kit.fault, kit.nodes
local add, blame, take, text_list = nodes.add, nodes.blame, nodes.take, nodes.text_list

local kFunctionAt = 10
local kStatusAt = 12
local kHeadBytes = 14
local kDone = 0 -- the status of a reply that is no refusal
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

-- What stands between sequence number and body. Where class and command are of no known request, this may be no head
-- at all: then there is no status either.
local function add_reply_head(lines, bytes, wanted)
  local head, at = {}, kFunctionAt
  head.func = bytes:len() >= kStatusAt and bytes(kFunctionAt, 2):uint() or nil
  if head.func and (head.func == wanted or kit.function_names[head.func]) then
    head.func_node, at = add(lines, field.func, kFunctionAt, 2), kStatusAt
    head.status_node = take(lines, field.status, bytes, kStatusAt, 2)
    head.status = head.status_node and bytes(kStatusAt, 2):uint()
  end
  if head.status then at = kHeadBytes end
  local left = math.min(kHeadBytes, bytes:len()) - at
  if left > 0 then
    local unread = add(lines, field.reply_head, at, left)
    head.func_node = head.func_node or unread
  end
  return head
end

-- Why nothing in this reply is what was asked for, as the column says it; nothing for a good reply.
local function objection_to(head, wanted)
  if not kit.prefs.judge_heads then return nil end
  local objection
  if head.status and head.status ~= kDone then
    local text = "The controller refused the request, status %04X"
    blame(head.status_node, fault.refused, string.format(text, head.status))
    objection = string.format("refused, status %04X", head.status)
  end
  if head.func and wanted and head.func ~= wanted then
    local text = "Answers another request: class and command are %04X, not %04X"
    blame(head.func_node, fault.other_request, string.format(text, head.func, wanted))
    objection = "answers another request"
  end
  return objection
end

-- Requests that follow a resolve without good handles take none of the handles before it.
local function forget_latest(stream)
  stream.resolved = true
  stream.latest = { names = {}, handles = {} }
end

-- `request` is what analyse_request made of the request answered, or nothing when there is none.
function kit.analyse_reply(bytes, announced, stream, request)
  local lines, info = {}, { title = "Reply" }
  info.lines = lines
  local kind = add(lines, field.is_reply, 0, 0, true)
  kind.generated = true
  local sequence = nodes.add_head(lines, bytes, announced)
  local wanted = request and request.func
  local head = add_reply_head(lines, bytes, wanted)
  local objection = objection_to(head, wanted)
  info.column = objection
  if not request then
    blame(kind, fault.unsolicited)
    rest(lines, bytes, kHeadBytes)
    return info
  end
  info.func = wanted
  info.title = request.title .. " reply"
  if sequence and bytes(8, 2):uint() ~= request.sequence then
    blame(sequence, fault.reply_sequence, string.format("%d answers %d", bytes(8, 2):uint(), request.sequence or 0))
  end
  local required = required_bytes[wanted]
  if required and bytes:len() < required then
    blame(kind, fault.short, string.format("%d bytes, %d required", bytes:len(), required))
  end
  if objection and wanted == functions.resolve then forget_latest(stream) end
  local body = not objection and reply_bodies[wanted]
  if body then body(lines, bytes, info, request, stream) else rest(lines, bytes, kHeadBytes) end
  return info
end
