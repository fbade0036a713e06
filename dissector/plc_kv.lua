-- Dissects the variable access of KV-8000 controllers over TCP for Wireshark and tshark (Lua 5.2 and later).
-- Written from docs/wire_protocol.md alone; docs/dissector.md lists the display filters. The folder plc_kv/ belongs to
-- this file and stands beside it.
--
-- Every frame is analysed once, in the order of the capture, and drawn from the result as often as Wireshark asks:
-- what a frame shows never depends on which frame was looked at before it.

local proto = Proto("plckv", "KV Variable Access")

local kHeadBytes = 10 -- length, complement and sequence number: the length counts what follows them
local kMarkBytes = 8 -- length and complement alone

local here = debug.getinfo(1, "S").source:match("^@(.*[/\\])") or ""
local kit = {}
for _, name in ipairs({ "fields", "nodes", "requests", "replies" }) do
  assert(loadfile(here .. "plc_kv/" .. name .. ".lua"))(kit)
end
local field, fault = kit.field, kit.fault
proto.fields = field
proto.experts = fault
proto.prefs.port = Pref.uint("TCP port", 0, "The controller's TCP port; 0: none (heuristic and Decode As still work)")
proto.prefs.judge_heads = Pref.bool("Judge the heads of replies", true, "Show no values from replies with a status "
                                    .. "other than 0, or with the class and command of another request")
kit.prefs = proto.prefs

local tcp_stream = Field.new("tcp.stream")
local streams, entries = {}, {} -- by end points, and by frame

function proto.init()
  streams, entries = {}, {}
end

local function new_stream(since, number)
  return { since = since, number = number, names = {}, resolved = false, partial = {}, pending = {},
           latest = { names = {}, handles = {} } }
end

-- Cutting a segment into frames ---------------------------------------------------------------------------------------

-- The bytes that a frame at `at` announces, when a length and its complement stand there.
local function announced_at(raw, at)
  local a, b, c, d, e, f, g, h = raw:byte(at + 1, at + kMarkBytes)
  if not h or a ~= 0 or b ~= 0 or e ~= 255 or f ~= 255 or c + g ~= 255 or d + h ~= 255 then return nil end
  return c * 256 + d + kHeadBytes
end

local function next_head(raw, from)
  for at = from, #raw - kMarkBytes do
    if announced_at(raw, at) then return at end
  end
end

local function may_start_head(raw, at)
  return #raw - at < kMarkBytes and raw:byte(at + 1) == 0 and (raw:byte(at + 2) or 0) == 0
end

-- Where the frame at `at` ends and how many bytes it announces; no end while bytes are missing. A frame that is cut
-- short ends where the next head stands, and one with bytes behind its end takes them along.
local function cut_frame(raw, at)
  local announced = announced_at(raw, at)
  if not announced then
    if may_start_head(raw, at) then return nil, kHeadBytes end
    local stop = next_head(raw, at + 1) or #raw
    return stop, stop - at
  end
  local inner = next_head(raw, at + kHeadBytes)
  if inner and inner < at + announced then return inner, announced end
  if at + announced > #raw then return nil, announced end
  local stop = at + announced
  if stop < #raw and not announced_at(raw, stop) and not may_start_head(raw, stop) then stop = inner or #raw end
  return stop, announced
end

-- Directions ----------------------------------------------------------------------------------------------------------

local function has_faults(lines)
  for _, line in ipairs(lines) do
    if #line.faults > 0 or has_faults(line) then return true end
  end
  return false
end

-- A frame that is a request to the last byte.
local function is_perfect_request(tvb)
  local announced = tvb:len() > kHeadBytes + 1 and announced_at(tvb:raw(), 0)
  if not announced or announced > tvb:len() then return false end
  local info = kit.analyse_request(tvb(0, announced):tvb(), announced, new_stream(), true)
  return kit.function_names[info.func] ~= nil and not has_faults(info.lines)
end

local function source_of(pinfo)
  return tostring(pinfo.src) .. " " .. pinfo.src_port
end

local function target_of(pinfo)
  return tostring(pinfo.dst) .. " " .. pinfo.dst_port
end

-- Whether a frame is the first one of a new connection between the end points of `stream`. Wireshark numbers the
-- connections only where it builds a tree, so not in the first of two passes without a filter; there the directory
-- start tells, with which the client begins every connection.
local function begins_connection(stream, number, raw, pinfo)
  if number and stream.number then return number ~= stream.number end
  return stream.client == source_of(pinfo) and announced_at(raw, 0) and raw:sub(11, 12) == "\x0C\x2C"
end

-- The connection of a frame. They are found in the order of the capture; later looks at the frame find the one that
-- had begun by then.
local function stream_of(pinfo, raw)
  local source, target = source_of(pinfo), target_of(pinfo)
  local key = source < target and source .. " " .. target or target .. " " .. source
  local known = streams[key] or {}
  streams[key] = known
  if pinfo.visited then
    for i = #known, 1, -1 do
      if known[i].since <= pinfo.number then return known[i] end
    end
  end
  local found = tcp_stream()
  local number = found and found.value
  local last = known[#known]
  if last and not begins_connection(last, number, raw, pinfo) then return last end
  known[#known + 1] = new_stream(pinfo.number, number)
  return known[#known]
end

-- The client is the side of the other port, where the controller's is set; else the one that sends a perfect request
-- first; else, in a capture that starts in the middle, the one with the higher port.
local function comes_from_client(tvb, pinfo, stream)
  if not stream.client then
    local port = proto.prefs.port
    local from_client = pinfo.dst_port == port
    if port ~= pinfo.dst_port and port ~= pinfo.src_port then
      from_client = is_perfect_request(tvb) or pinfo.src_port > pinfo.dst_port
    end
    stream.client = from_client and source_of(pinfo) or target_of(pinfo)
  end
  return stream.client == source_of(pinfo)
end

-- Pairing requests and replies ----------------------------------------------------------------------------------------

-- The frame of this side that began in an earlier segment, if these bytes go on with it. They do not where the capture
-- has a segment in part only: the rest of that frame never comes.
local function begun_before(stream, side, bytes)
  local partial = stream.partial[side]
  if not partial then return nil end
  local count = math.min(#partial.raw, bytes:len())
  return bytes:raw(0, count) == partial.raw:sub(1, count) and partial or nil
end

-- The request that a reply answers: the one with its sequence number, else the oldest without an answer, else one that
-- is not complete. Requests older than the one answered will not be answered any more.
local function match_request(stream, bytes)
  local index = 1
  for i, request in ipairs(stream.pending) do
    if bytes:len() >= kHeadBytes and bytes(8, 2):uint() == request.info.sequence then
      index = i
      break
    end
  end
  for _ = 2, index do table.remove(stream.pending, 1) end
  local cut = stream.partial.request
  return table.remove(stream.pending, 1) or (cut and not cut.reply_in and cut or nil)
end

-- Remembers the first segment of a frame that is not complete yet: a cut one is answered before it can be told.
local function note_partial(stream, side, bytes, announced, pinfo)
  local partial = begun_before(stream, side, bytes) or { frame = pinfo.number, time = pinfo.rel_ts }
  partial.count, partial.announced, partial.raw = bytes:len(), announced, bytes:raw()
  if side == "request" then
    partial.info = kit.analyse_request(bytes, announced, stream, true)
  elseif not partial.request then
    partial.request = match_request(stream, bytes)
    if partial.request then partial.request.reply_in = pinfo.number end
  end
  stream.partial[side] = partial
end

local function take_request(stream, bytes, announced, pinfo)
  local partial = begun_before(stream, "request", bytes)
  stream.partial.request = nil
  local info = kit.analyse_request(bytes, announced, stream)
  local entry = { info = info, frame = pinfo.number, time = pinfo.rel_ts, is_in_order = not pinfo.visited }
  if partial and partial.count == bytes:len() then
    entry.frame, entry.time, entry.reply_in = partial.frame, partial.time, partial.reply_in
  end
  if entry.reply_in then return entry end
  local last = stream.pending[#stream.pending]
  if last and last.frame ~= pinfo.number then
    kit.nodes.blame(info.lines[1], fault.unanswered, string.format("Frame %d was not answered", last.frame))
  end
  stream.pending[#stream.pending + 1] = entry
  return entry
end

local function take_reply(stream, bytes, announced, pinfo)
  local begun = begun_before(stream, "reply", bytes)
  local request = begun and begun.request or match_request(stream, bytes)
  stream.partial.reply = nil
  local cut = stream.partial.request
  local info = kit.analyse_reply(bytes, announced, stream, request and request.info)
  local entry = { info = info, frame = pinfo.number }
  if request then
    request.reply_in = pinfo.number
    entry.request_in, entry.seconds = request.frame, pinfo.rel_ts - request.time
  end
  if request and request == cut then
    kit.nodes.blame(info.lines[1], fault.cut_request,
                    string.format("%d of %d bytes in frame %d", cut.count, cut.announced, cut.frame))
  end
  return entry
end

local function time_of(seconds)
  local whole = math.floor(seconds)
  return NSTime.new(whole, math.floor((seconds - whole) * 1e6 + 0.5) * 1000)
end

-- A missing reply can be told in a later look alone, and only when the replies were paired in the capture's order.
local function draw_links(entry, tree, pinfo)
  if entry.info.is_request then
    if entry.reply_in then
      tree:add(field.reply_in, entry.reply_in):set_generated()
    elseif pinfo.visited and entry.is_in_order then
      tree:add_proto_expert_info(fault.no_reply)
    end
  elseif entry.request_in then
    tree:add(field.request_in, entry.request_in):set_generated()
    tree:add(field.reply_time, time_of(entry.seconds)):set_generated()
  end
end

local function show_frame(bytes, announced, pinfo, tree, key, stream, from_client)
  local entry = entries[key]
  if not entry then
    local taken = from_client and take_request or take_reply
    entry = taken(stream, bytes, announced, pinfo)
    entries[key] = entry
  end
  local info = entry.info
  local summary = info.column and info.title .. ": " .. info.column or info.title
  local item = tree:add(proto, bytes(0, bytes:len()), proto.description .. ", " .. summary)
  for _, line in ipairs(info.lines) do kit.nodes.draw(line, bytes, item) end
  draw_links(entry, item, pinfo)
  return summary
end

function proto.dissector(tvb, pinfo, tree)
  local raw = tvb:raw()
  local stream = stream_of(pinfo, raw)
  local from_client = comes_from_client(tvb, pinfo, stream)
  local side = from_client and "request" or "reply"
  pinfo.cols.protocol = "PLCKV"
  local summaries, at = {}, 0
  while at < #raw do
    local stop, announced = cut_frame(raw, at)
    local bytes = tvb(at, (stop or #raw) - at):tvb()
    if not stop then
      if not pinfo.visited then note_partial(stream, side, bytes, announced, pinfo) end
      local item = tree:add(proto, bytes(0, bytes:len()), proto.description .. ", part of a " .. side)
      item:add_proto_expert_info(fault.continues, string.format("%d of %d bytes", bytes:len(), announced))
      summaries[#summaries + 1] = "Part of a " .. side
      pinfo.desegment_offset = at
      pinfo.desegment_len = DESEGMENT_ONE_MORE_SEGMENT
      break
    end
    local key = string.format("%d/%d/%d", pinfo.number, tvb:offset() + at, #raw)
    summaries[#summaries + 1] = show_frame(bytes, announced, pinfo, tree, key, stream, from_client)
    at = stop
  end
  pinfo.cols.info = table.concat(summaries, " | ")
  return #raw
end

local function dissect_if_ours(tvb, pinfo, tree)
  if not announced_at(tvb:raw(), 0) then return false end
  pinfo.conversation = proto
  proto.dissector(tvb, pinfo, tree)
  return true
end

local tcp_ports = DissectorTable.get("tcp.port")
local bound_port = 0

function proto.prefs_changed()
  if bound_port > 0 then tcp_ports:remove(bound_port, proto) end
  bound_port = proto.prefs.port
  if bound_port > 0 then tcp_ports:add(bound_port, proto) end
end

tcp_ports:add_for_decode_as(proto)
proto:register_heuristic("tcp", dissect_if_ours)
