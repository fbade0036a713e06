-- The display fields, the expert items and the names of numbers of the dissector plc_kv.lua.

-- Wireshark also runs every file of its plugin folders by itself: without a kit there is nothing to do here.
local kit = ...
if not kit then return end

-- Class and command of a request as one number.
local functions = {
  directory_start = 0x0C2C, directory = 0x0C25, resolve = 0x0C28, value = 0x1E09, write = 0x1E01, masked = 0x1E03,
  set = 0x3200, reset = 0x3300,
}

local class_names = { [0x0C] = "names", [0x1E] = "values", [0x32] = "set bit", [0x33] = "reset bit" }
local function_names = {
  [functions.directory_start] = "Directory start", [functions.directory] = "Directory",
  [functions.resolve] = "Resolve", [functions.value] = "Read", [functions.write] = "Write",
  [functions.masked] = "Masked write", [functions.set] = "Set", [functions.reset] = "Reset",
}
local scope_names = { [0x0000] = "global", [0x0101] = "local" }
local area_names = { [6] = "DM", [7] = "CM", [8] = "TM", [17] = "MR", [18] = "LR", [23] = "EM", [25] = "FM",
                     [30] = "no device", [44] = "ZF" }
local mask_names = { [0] = "AND (clear)", [1] = "OR (set)" }

local field = {
  length = ProtoField.uint32("plckv.length", "Length", base.DEC),
  complement = ProtoField.uint32("plckv.complement", "Complement of the length", base.HEX),
  sequence = ProtoField.uint16("plckv.seq", "Sequence number", base.DEC),
  class = ProtoField.uint8("plckv.class", "Class", base.HEX, class_names),
  command = ProtoField.uint8("plckv.command", "Command", base.HEX),
  func = ProtoField.uint16("plckv.function", "Function", base.HEX, function_names),
  is_request = ProtoField.bool("plckv.request", "Request"),
  is_reply = ProtoField.bool("plckv.reply", "Reply"),
  status = ProtoField.uint16("plckv.status", "Status", base.HEX),
  reply_head = ProtoField.bytes("plckv.reply_head", "Rest of the reply's head"),
  reply_in = ProtoField.framenum("plckv.reply_in", "Reply in", base.NONE, frametype.RESPONSE),
  request_in = ProtoField.framenum("plckv.request_in", "Request in", base.NONE, frametype.REQUEST),
  reply_time = ProtoField.relative_time("plckv.reply_time", "Time since the request"),
  blocks = ProtoField.uint8("plckv.blocks", "Blocks", base.DEC),
  block = ProtoField.none("plckv.block", "Block"),
  scope = ProtoField.uint16("plckv.scope", "Scope", base.HEX, scope_names),
  scope_number = ProtoField.uint8("plckv.scope_number", "Scope number", base.DEC),
  names = ProtoField.uint16("plckv.names", "Names announced", base.DEC),
  units = ProtoField.uint16("plckv.name.units", "Units of the name", base.DEC),
  name = ProtoField.string("plckv.name", "Name"),
  directory_count = ProtoField.uint8("plckv.directory.count", "Directory records", base.DEC),
  record = ProtoField.none("plckv.directory.record", "Directory record"),
  name_size = ProtoField.uint8("plckv.directory.name_size", "Size of the name plus 2", base.DEC),
  number = ProtoField.uint8("plckv.directory.number", "Number", base.DEC),
  scope_name = ProtoField.string("plckv.directory.name", "Scope name"),
  handle = ProtoField.bytes("plckv.handle", "Handle"),
  handle_record = ProtoField.none("plckv.handle_record", "Handle record"),
  area = ProtoField.uint8("plckv.area", "Area", base.DEC, area_names),
  address = ProtoField.uint32("plckv.address", "Address", base.HEX),
  address_end = ProtoField.uint16("plckv.address_end", "Last two address bytes", base.HEX),
  bit = ProtoField.uint16("plckv.bit", "Bit position in the word", base.DEC),
  groups = ProtoField.uint8("plckv.groups", "Groups behind the record", base.DEC),
  reference = ProtoField.none("plckv.reference", "Reference"),
  references = ProtoField.uint16("plckv.references", "References", base.DEC),
  size = ProtoField.uint8("plckv.size", "Size in units", base.DEC),
  value_units = ProtoField.uint8("plckv.value_units", "Units to write", base.DEC),
  value = ProtoField.bytes("plckv.value", "Value"),
  word = ProtoField.uint16("plckv.value.word", "As a word", base.DEC_HEX),
  dword = ProtoField.uint32("plckv.value.dword", "As a double word", base.DEC_HEX),
  qword = ProtoField.uint64("plckv.value.qword", "As a quad word", base.DEC_HEX),
  bit_value = ProtoField.uint8("plckv.value.bit", "Bit asked for", base.DEC),
  text = ProtoField.string("plckv.value.text", "As text"),
  device = ProtoField.uint8("plckv.device", "Area or device code", base.DEC, area_names),
  mask_kind = ProtoField.uint8("plckv.mask_kind", "Kind of mask", base.DEC, mask_names),
  mask = ProtoField.uint16("plckv.mask", "Mask", base.HEX),
  target = ProtoField.string("plckv.target", "Variable"),
  unread = ProtoField.bytes("plckv.unread", "Not interpreted"),
}

local function expert_of(name, text, group, severity)
  return ProtoExpert.new("plckv.expert." .. name, text, group, severity)
end
local groups, severities = expert.group, expert.severity
local fault = {
  complement = expert_of("complement", "Length and complement do not match", groups.CHECKSUM, severities.ERROR),
  cut = expert_of("cut", "Frame is shorter than its length", groups.MALFORMED, severities.WARN),
  surplus = expert_of("surplus", "Bytes behind the end of a frame", groups.MALFORMED, severities.WARN),
  continues = expert_of("continues", "Frame goes on in a later segment, or was cut", groups.REASSEMBLE,
                        severities.NOTE),
  func = expert_of("function", "Unknown class and command", groups.UNDECODED, severities.WARN),
  reserved = expert_of("reserved", "Byte that always has one value has another", groups.PROTOCOL, severities.WARN),
  count = expert_of("count", "Announced and present numbers differ", groups.PROTOCOL, severities.WARN),
  block = expert_of("block", "Block does not parse", groups.MALFORMED, severities.WARN),
  mixed = expert_of("mixed", "Request of both scopes: a count may stand over the scope number", groups.PROTOCOL,
                    severities.NOTE),
  units = expert_of("units", "Units and value bytes differ", groups.PROTOCOL, severities.WARN),
  no_command = expert_of("no_command", "Bit request without a command", groups.PROTOCOL, severities.WARN),
  request_sequence = expert_of("request_sequence", "Sequence number does not follow the last request's",
                               groups.SEQUENCE, severities.NOTE),
  reply_sequence = expert_of("reply_sequence", "Sequence number is not the request's", groups.SEQUENCE,
                             severities.WARN),
  unanswered = expert_of("unanswered", "An earlier request was not answered", groups.SEQUENCE, severities.WARN),
  no_reply = expert_of("no_reply", "No reply in this capture", groups.SEQUENCE, severities.WARN),
  unsolicited = expert_of("unsolicited", "Reply without a request", groups.SEQUENCE, severities.WARN),
  cut_request = expert_of("cut_request", "Answers a request that is shorter than its length", groups.SEQUENCE,
                          severities.WARN),
  handle = expert_of("unknown_handle", "Handle that no reply of this connection has given", groups.PROTOCOL,
                     severities.WARN),
  record = expert_of("record", "Reply ends inside a record", groups.MALFORMED, severities.WARN),
  values = expert_of("values", "Values do not fill the sizes asked for", groups.PROTOCOL, severities.WARN),
  refused = expert_of("refused", "The controller refused the request", groups.RESPONSE_CODE, severities.WARN),
  other_request = expert_of("other_request", "Answers another request", groups.SEQUENCE, severities.WARN),
  short = expert_of("short_reply", "Reply is shorter than the driver requires", groups.PROTOCOL, severities.WARN),
}

kit.functions, kit.function_names, kit.scope_names = functions, function_names, scope_names
kit.field, kit.fault = field, fault
