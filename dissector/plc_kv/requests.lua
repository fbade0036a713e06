-- What a request says: from its bytes to the lines of the tree, with a complaint at every line that does not add up.

-- Wireshark also runs every file of its plugin folders by itself: without a kit there is nothing to do here.
local kit = ...
if not kit then return end
local functions, field, fault, nodes = kit.functions, kit.field, kit.fault, kit.nodes
local add, blame, take, expect, text_list = nodes.add, nodes.blame, nodes.take, nodes.expect, nodes.text_list
local target, name_by_end = nodes.target, nodes.name_by_end

-- One block's head: where its names start, or nothing when no block starts here.
local function block_head(bytes, at, lenient)
  if at + 4 > bytes:len() then return nil end
  local scope = bytes(at, 2):uint()
  local is_local = scope == 0x0101
  if not is_local and scope ~= 0 then
    is_local = lenient and at + 10 <= bytes:len() and bytes(at + 4, 4):uint() == 0
    if not is_local then return nil end
  end
  local count_at = is_local and at + 8 or at + 2
  if count_at + 2 > bytes:len() then return nil end
  return { at = at, is_local = is_local, scope = scope, count_at = count_at, names_at = count_at + 2,
           count = bytes(count_at, 2):uint() }
end

local function name_end(bytes, at)
  if at + 2 > bytes:len() then return nil end
  local stop = at + 2 + 2 * bytes(at, 2):uint()
  return stop <= bytes:len() and stop or nil
end

-- Cuts the bytes from `at` into exactly `left` blocks. The strict way believes each count. The lenient way believes
-- none, because a batch of both scopes writes one count over other bytes; `dead` keeps the search linear.
local function cut_blocks(bytes, at, left, lenient, dead)
  if left == 0 then return at == bytes:len() and {} or nil end
  local key = at * 256 + left
  local head = not dead[key] and block_head(bytes, at, lenient)
  dead[key] = true
  if not head then return nil end
  local starts, stop = {}, head.names_at
  while stop do
    if lenient or #starts == head.count then
      local rest = cut_blocks(bytes, stop, left - 1, lenient, dead)
      if rest then
        head.starts, head.stop = starts, stop
        table.insert(rest, 1, head)
        return rest
      end
      if not lenient then return nil end
    end
    local following = name_end(bytes, stop)
    if following then starts[#starts + 1] = stop end
    stop = following
  end
end

local function add_block(parent, bytes, block, info)
  local node = add(parent, field.block, block.at, block.stop - block.at)
  local scope = add(node, field.scope, block.at, 2)
  if not kit.scope_names[block.scope] then
    blame(scope, fault.block, string.format("Neither global nor local: a count of %d names stands here", block.scope))
  end
  if block.is_local then
    info.scope_number = add(node, field.scope_number, block.at + 3, 1)
    expect(node, bytes, block.at + 4, 4, 0)
  end
  local count = add(node, field.names, block.count_at, 2)
  if block.count ~= #block.starts then
    blame(count, fault.count, string.format("Announces %d names and carries %d", block.count, #block.starts))
  end
  for _, at in ipairs(block.starts) do
    local units = bytes(at, 2):uint()
    local text = units > 0 and nodes.name_text(bytes(at + 2, 2 * units)) or ""
    add(node, field.units, at, 2)
    add(node, field.name, at + 2, 2 * units, text)
    info.names[#info.names + 1] = text
  end
  node.suffix = string.format(" (%s, %s)", block.is_local and "local" or "global",
                              nodes.number_of(#block.starts, "name"))
end

local function resolve_request(lines, bytes, info)
  info.names = {}
  expect(lines, bytes, 12, 1, 0)
  local count = take(lines, field.blocks, bytes, 13, 1)
  if not count then return end
  local wanted = bytes(13, 1):uint()
  local blocks = cut_blocks(bytes, 14, wanted, false, {}) or cut_blocks(bytes, 14, wanted, true, {})
  if not blocks then
    blame(count, fault.block, string.format("The bytes do not make %d blocks of names", wanted))
    if bytes:len() > 14 then add(lines, field.unread, 14, bytes:len() - 14) end
    return
  end
  local kinds = {}
  for _, block in ipairs(blocks) do
    add_block(lines, bytes, block, info)
    kinds[block.is_local] = true
  end
  if kinds[true] and kinds[false] and blocks[1].is_local and not blocks[#blocks].is_local then
    blame(info.scope_number, fault.mixed)
  end
  info.column = #info.names > 0 and text_list(info.names) or "no names"
end

local function value_request(lines, bytes, info, stream)
  info.sizes, info.names, info.bits = {}, {}, {}
  expect(lines, bytes, 12, 1, 0)
  local count = take(lines, field.references, bytes, 13, 2)
  expect(lines, bytes, 15, 3, 0)
  local at = 18
  while at + 8 <= bytes:len() do
    local node = add(lines, field.reference, at, 8)
    expect(node, bytes, at, 1, 0)
    add(node, field.area, at + 1, 1)
    expect(node, bytes, at + 2, 1, 0)
    add(node, field.size, at + 3, 1)
    local address = add(node, field.address, at + 4, 4)
    info.sizes[#info.sizes + 1] = bytes(at + 3, 1):uint()
    local index = #info.sizes
    local name, bit = target(node, stream, address, bytes(at + 1, 1):uint(), bytes(at + 4, 4):uint(), index)
    info.names[index], info.bits[index] = name, bit
    node.suffix = " " .. name
    at = at + 8
  end
  if count and bytes(13, 2):uint() ~= #info.sizes then
    blame(count, fault.count, string.format("Announces %d references and carries %d", bytes(13, 2):uint(), #info.sizes))
  end
  info.column = #info.names > 0 and text_list(info.names) or "no references"
end

local function handle_parts(lines, bytes, area_at, address_at, stream)
  local area = take(lines, field.area, bytes, area_at, 1)
  local address = take(lines, field.address, bytes, address_at, 4)
  if not (area and address) then return "" end
  return target(lines, stream, address, bytes(area_at, 1):uint(), bytes(address_at, 4):uint())
end

local function write_request(lines, bytes, info, stream)
  expect(lines, bytes, 12, 1, 0)
  expect(lines, bytes, 14, 3, 0)
  local units = take(lines, field.value_units, bytes, 17, 1)
  local name = handle_parts(lines, bytes, 13, 18, stream)
  info.column = name
  if not units then return end
  local present = math.max(bytes:len() - 22, 0)
  if present ~= 2 * bytes(17, 1):uint() then
    blame(units, fault.units, string.format("%d units announced, %d bytes of values", bytes(17, 1):uint(), present))
  end
  -- A run is one value for each name that was resolved before, when the bytes divide evenly.
  local names = stream.latest.names
  local each = present / math.max(#names, 1)
  local is_run = names[1] == name and (each == 2 or each == 4 or each == 8)
  local readings = {}
  for at = 22, bytes:len() - 1, math.max(is_run and each or present, 1) do
    local index = #readings + 1
    readings[index] = nodes.add_value(lines, bytes, at, is_run and each or present, is_run and names[index] or name)
  end
  info.column = string.format("%s = %s", name, #readings > 0 and text_list(readings) or "nothing")
end

local function masked_request(lines, bytes, info, stream)
  expect(lines, bytes, 12, 1, 0)
  expect(lines, bytes, 13, 1, 1)
  info.column = handle_parts(lines, bytes, 14, 15, stream)
  take(lines, field.mask_kind, bytes, 19, 1)
  if take(lines, field.mask, bytes, 20, 2) then
    info.column = string.format("%s %s %04X", info.column, bytes(19, 1):uint() == 1 and "OR" or "AND",
                                bytes(20, 2):uint())
  end
end

-- Set and reset; `at` is where the device stands, two or three bytes behind the head's end.
local function bit_request(lines, bytes, info, stream, at)
  take(lines, field.device, bytes, at, 1)
  local ending = take(lines, field.address_end, bytes, at + 1, 2)
  if not ending then return end
  local last_two = bytes(at + 1, 2):uint()
  local name = name_by_end(stream, last_two)
  if name then
    add(lines, field.target, at + 1, 2, name).generated = true
  elseif stream.resolved then
    blame(ending, fault.handle, string.format("The latest handles have none that ends in %04X", last_two))
  end
  info.column = name or string.format("..%04X", last_two)
end

local function set_request(lines, bytes, info, stream)
  expect(lines, bytes, 12, 1, 1)
  bit_request(lines, bytes, info, stream, 13)
end

-- The shortest frame of each function.
local least_bytes = {
  [functions.directory_start] = 16, [functions.directory] = 16, [functions.resolve] = 18, [functions.value] = 18,
  [functions.write] = 22, [functions.masked] = 22, [functions.set] = 16, [functions.reset] = 16,
}

local function directory_request(lines, bytes)
  expect(lines, bytes, 12, bytes:len() - 12, 0)
end

local request_bodies = {
  [functions.directory_start] = directory_request, [functions.directory] = directory_request,
  [functions.resolve] = resolve_request, [functions.value] = value_request, [functions.write] = write_request,
  [functions.masked] = masked_request, [functions.set] = set_request, [functions.reset] = set_request,
}

local function follow_sequence(stream, info, node, number)
  if info.func == functions.directory_start or info.func == functions.directory then return end
  local wanted = stream.sequence and (stream.sequence + 1) % 65536
  if wanted and number ~= wanted then
    blame(node, fault.request_sequence, string.format("%d, not %d", number, wanted))
  end
  stream.sequence = number
end

-- `bytes` may be more or fewer than the `announced` ones. A rehearsal leaves the stream as it is.
local function analyse_request(bytes, announced, stream, rehearsal)
  local lines, info = {}, { is_request = true, title = "Request" }
  info.lines = lines
  add(lines, field.is_request, 0, 0, true).generated = true
  local sequence = nodes.add_head(lines, bytes, announced)
  if bytes:len() < 12 then return info end
  info.sequence = bytes(8, 2):uint()
  info.func = bytes(10, 2):uint()
  local body = request_bodies[info.func]
  if body then
    add(lines, field.class, 10, 1)
    add(lines, field.command, 11, 1)
    add(lines, field.func, 10, 2)
    info.title = kit.function_names[info.func]
    body(lines, bytes, info, stream)
    if bytes:len() < least_bytes[info.func] then
      blame(sequence, fault.cut, string.format("%d bytes, %d are the least", bytes:len(), least_bytes[info.func]))
    end
  elseif announced == 16 and (info.func == 0x0001 or bytes(10, 1):uint() == 1) then
    info.title = "Bit request without a command"
    blame(sequence, fault.no_command)
    bit_request(lines, bytes, info, stream, info.func == 0x0001 and 12 or 11)
  else
    blame(add(lines, field.func, 10, 2), fault.func)
    if bytes:len() > 12 then add(lines, field.unread, 12, bytes:len() - 12) end
  end
  if not rehearsal then follow_sequence(stream, info, sequence, info.sequence) end
  return info
end

kit.analyse_request = analyse_request
