--[[
tavrel: the tavrel_sdk library from Lua, through LuaJIT's FFI.

  local tavrel = require("tavrel")
  tavrel.set_info_dictionary_json('{"CFBundleURLTypes": [{"CFBundleURLSchemes": ["mygame"]}]}')
  local screen = tavrel.screen_new()            -- kept while the game runs
  tavrel.initialise_overlay(screen, token)
  tavrel.show_watermark(); tavrel.show_touches()
  tavrel.validate(function() session_may_go_on = true end)
  tavrel.process_url_request(launch_url)
  -- every frame of the game's loop:
  tavrel.run_main_loop_for(0)                   -- completions are called in here

One rule for refusals: a call the library refuses raises a Lua error naming the C function and
its status, followed by the line the library logged ("tavrel_show_touches: not ready
(TAVREL_ERROR_NOT_READY): tavrel_show_touches: ..."). Functions answer with their results
(strings, booleans, objects) instead.

Completions and log lines are called only on the thread running Lua, from inside
run_main_loop_for (or, for a line logged by a call on this thread, inside that call): the
module sets the library's callback delivery to the game's loop when it loads.

The library is looked for, in order: $TAVREL_SDK_LIB (a path; it must load), a LÖVE game's own
folder (a fused game's folder, an unpacked game's folder, the folder beside a .love file; there
and in its lib/), then the soname through the system's loader.
]]
local ffi = require("ffi")

local tavrel = {}

-- The declarations, as data: the cdef below is made from them, and the drift test compares them
-- with tavrel.h as the compiler reads it.
local enums = {
  {"tavrel_status", {
    {"TAVREL_OK", 0}, {"TAVREL_ERROR_NULL_ARGUMENT", -1}, {"TAVREL_ERROR_INVALID_UTF8", -2},
    {"TAVREL_ERROR_OUT_OF_RANGE", -3}, {"TAVREL_ERROR_INVALID_ARGUMENT", -4},
    {"TAVREL_ERROR_WRONG_THREAD", -5}, {"TAVREL_ERROR_NOT_READY", -6}, {"TAVREL_ERROR_TOO_LATE", -7},
    {"TAVREL_ERROR_FAILED", -8}, {"TAVREL_STATUS_MAX_ENUM", 0x7fffffff}}},
  {"tavrel_callback_delivery", {
    {"TAVREL_DELIVER_WHERE_THEY_ARISE", 0}, {"TAVREL_DELIVER_ON_MAIN_LOOP", 1},
    {"TAVREL_CALLBACK_DELIVERY_MAX_ENUM", 0x7fffffff}}},
  {"tavrel_pixel_format", {
    {"TAVREL_PIXELS_BGRA_PREMULTIPLIED", 0}, {"TAVREL_PIXELS_RGBA_PREMULTIPLIED", 1},
    {"TAVREL_PIXELS_RGBA_STRAIGHT", 2}, {"TAVREL_PIXEL_FORMAT_MAX_ENUM", 0x7fffffff}}},
}
local opaque = {"tavrel_screen", "tavrel_host"}
local structs = {
  {"tavrel_rect", {{"x", "int"}, {"y", "int"}, {"width", "int"}, {"height", "int"}}},
  {"tavrel_frame", {{"pixels", "const uint32_t *"}, {"width", "int"}, {"height", "int"}, {"stride", "int"},
                    {"scale", "double"}, {"damage", "const tavrel_rect *"}, {"damage_count", "size_t"}}},
  {"tavrel_finger", {{"id", "int"}, {"x", "double"}, {"y", "double"}}},
}
-- name, result, parameters...
local callbacks = {
  {"tavrel_log_callback", "void", "const char *", "void *"},
  {"tavrel_completion", "void", "bool", "void *"},
  {"tavrel_frame_callback", "void", "const tavrel_frame *", "void *"},
}
local S, H = "tavrel_status", "tavrel_host *"
local functions = {
  {"tavrel_status_text", "const char *", S},
  {"tavrel_free", "void", "void *"},
  {"tavrel_set_documents_directory", S, "const char *"},
  {"tavrel_set_info_dictionary_json", S, "const char *"},
  {"tavrel_set_trusted_certificates_file", S, "const char *"},
  {"tavrel_set_service_base_url_for_testing", S, "const char *"},
  {"tavrel_set_log_callback", "void", "tavrel_log_callback", "void *"},
  {"tavrel_set_log_to_stderr", "void", "bool"},
  {"tavrel_last_error", "int", "char *", "size_t"},
  {"tavrel_set_callback_delivery", S, "tavrel_callback_delivery"},
  {"tavrel_run_main_loop_for", S, "double"},
  {"tavrel_screen_new", S, "tavrel_screen **"},
  {"tavrel_screen_free", "void", "tavrel_screen *"},
  {"tavrel_set_auth_token", S, "const char *"},
  {"tavrel_get_timestamp", "int", "char *", "size_t"},
  {"tavrel_get_user_id", "int", "char *", "size_t"},
  {"tavrel_process_url_request", S, "const char *"},
  {"tavrel_set_view_controller", S, "tavrel_screen *"},
  {"tavrel_show_overlay", S, "tavrel_screen *"},
  {"tavrel_initialise_overlay", S, "tavrel_screen *", "const char *"},
  {"tavrel_show_touches", S},
  {"tavrel_show_watermark", S},
  {"tavrel_validate", S, "tavrel_completion", "void *"},
  {"tavrel_show_login_page", S, "tavrel_completion", "void *"},
  {"tavrel_dismiss_login_page", S},
  {"tavrel_is_login_page_visible", S, "bool *"},
  {"tavrel_emit_game_event", S, "const char *", "const char *"},
  {"tavrel_emit_input_event", S, "const int32_t *", "size_t"},
  {"tavrel_terminate", "void"},
  {"tavrel_terminate_with_popup", S},
  {"tavrel_frame_copy_pixels", S, "const tavrel_frame *", "tavrel_pixel_format", "bool", "void *", "int"},
  {"tavrel_host_new", S, "double", "double", "double", "tavrel_frame_callback", "void *", "tavrel_host **"},
  {"tavrel_host_current", S, "tavrel_host **"},
  {"tavrel_host_free", "void", H},
  {"tavrel_install_host", S, H},
  {"tavrel_host_screen_size", S, H, "double *", "double *", "double *"},
  {"tavrel_host_resize", S, H, "double", "double", "double"},
  {"tavrel_host_render_frame", S, H, "tavrel_frame *"},
  {"tavrel_host_render_png", S, H, "unsigned char **", "size_t *"},
  {"tavrel_host_write_png", S, H, "const char *"},
  {"tavrel_host_fingers_down", S, H, "const tavrel_finger *", "size_t", "bool *"},
  {"tavrel_host_fingers_moved", S, H, "const tavrel_finger *", "size_t", "bool *"},
  {"tavrel_host_fingers_up", S, H, "const tavrel_finger *", "size_t", "bool *"},
  {"tavrel_host_fingers_cancelled", S, H, "const tavrel_finger *", "size_t", "bool *"},
  {"tavrel_host_type_text", S, H, "const char *", "bool *"},
  {"tavrel_host_press_return", S, H, "bool *"},
  {"tavrel_host_press_backspace", S, H, "bool *"},
  {"tavrel_host_tap_element", S, H, "const char *", "bool *"},
  {"tavrel_host_is_covered", S, H, "bool *"},
  {"tavrel_dump_view_tree", S, "char **"},
}
tavrel.declarations = {enums = enums, structs = structs, callbacks = callbacks, functions = functions}

do
  local cdef = {}
  for _, enum in ipairs(enums) do
    local constants = {}
    for i, c in ipairs(enum[2]) do constants[i] = c[1] .. " = " .. c[2] end
    cdef[#cdef + 1] = ("typedef enum %s { %s } %s;"):format(enum[1], table.concat(constants, ", "), enum[1])
  end
  for _, name in ipairs(opaque) do cdef[#cdef + 1] = ("typedef struct %s %s;"):format(name, name) end
  for _, struct in ipairs(structs) do
    local fields = {}
    for i, f in ipairs(struct[2]) do fields[i] = f[2] .. " " .. f[1] .. ";" end
    cdef[#cdef + 1] = ("typedef struct %s { %s } %s;"):format(struct[1], table.concat(fields, " "), struct[1])
  end
  for _, cb in ipairs(callbacks) do
    cdef[#cdef + 1] = ("typedef %s (*%s)(%s);"):format(cb[2], cb[1], table.concat(cb, ", ", 3))
  end
  for _, fn in ipairs(functions) do
    cdef[#cdef + 1] = ("%s %s(%s);"):format(fn[2], fn[1], #fn > 2 and table.concat(fn, ", ", 3) or "void")
  end
  cdef[#cdef + 1] = "extern const double tavrel_sdkVersionNumber;"
  ffi.cdef(table.concat(cdef, "\n"))
end

-- The game's own folders, where a shipped game keeps the library beside its files.
local function game_folders()
  local folders = {}
  local fs = rawget(_G, "love") and love.filesystem
  if fs then
    if fs.isFused() then
      folders[#folders + 1] = fs.getSourceBaseDirectory()
    else
      local source = fs.getSource()
      local main = io.open(source .. "/main.lua") -- a game folder rather than a .love file
      if main then main:close(); folders[#folders + 1] = source end
      folders[#folders + 1] = fs.getSourceBaseDirectory() -- beside a .love file
    end
  end
  return folders
end

local SONAME = "libtavrel_sdk.so.1"

local function load_library()
  local explicit = os.getenv("TAVREL_SDK_LIB")
  if explicit and explicit ~= "" then return ffi.load(explicit) end
  local candidates = {}
  for _, folder in ipairs(game_folders()) do
    candidates[#candidates + 1] = folder .. "/" .. SONAME
    candidates[#candidates + 1] = folder .. "/lib/" .. SONAME
  end
  local failures = {}
  for _, path in ipairs(candidates) do
    local file = io.open(path, "rb")
    if file then
      file:close()
      local ok, lib = pcall(ffi.load, path)
      if ok then return lib end
      failures[#failures + 1] = lib
    end
  end
  for _, name in ipairs({SONAME, "tavrel_sdk"}) do
    local ok, lib = pcall(ffi.load, name)
    if ok then return lib end
    failures[#failures + 1] = lib
  end
  error("tavrel: libtavrel_sdk not found (set TAVREL_SDK_LIB, or put " .. SONAME .. " beside the game):\n  " ..
        table.concat(failures, "\n  "), 2)
end

local C = load_library()
tavrel.C = C -- the raw functions, for code that checks statuses itself
tavrel.version = C.tavrel_sdkVersionNumber

-- Status names by code, and the codes by name (tavrel.status.NOT_READY == -6).
local status_names = {}
tavrel.status = {}
for _, c in ipairs(enums[1][2]) do
  status_names[c[2]] = c[1]
  tavrel.status[c[1]:gsub("^TAVREL_ERROR_", ""):gsub("^TAVREL_", "")] = c[2]
end
tavrel.pixels = {BGRA_PREMULTIPLIED = 0, RGBA_PREMULTIPLIED = 1, RGBA_STRAIGHT = 2}

-- Strings out: one buffer grown when a text is longer (snprintf's convention).
local out_size = 256
local out_buffer = ffi.new("char[?]", out_size)
local function string_out(fn, ...)
  local n = fn(out_buffer, out_size, ...)
  if n >= out_size then
    out_size = n + 1
    out_buffer = ffi.new("char[?]", out_size)
    n = fn(out_buffer, out_size, ...)
  end
  return ffi.string(out_buffer, math.min(n, out_size - 1))
end

function tavrel.last_error() return string_out(C.tavrel_last_error) end

local function raise(name, status)
  status = tonumber(status)
  local line = tavrel.last_error()
  if line:sub(1, #name + 2) == name .. ": " then line = line:sub(#name + 3) end
  error(("%s: %s (%s)%s"):format(name, ffi.string(C.tavrel_status_text(status)),
                                 status_names[status] or tostring(status), line ~= "" and ": " .. line or ""), 3)
end
tavrel.raise = raise

-- A function whose arguments go to C as they are, and whose status is checked.
local function checked(name)
  local fn = C[name]
  return function(...)
    local status = fn(...)
    if status ~= 0 then raise(name, status) end
  end
end
for _, fn in ipairs(functions) do
  local name = fn[1]
  if fn[2] == S and (#fn == 2 or (#fn == 3 and (fn[3] == "const char *" or fn[3] == "double"))) or
     name == "tavrel_emit_game_event" then
    tavrel[name:sub(8)] = checked(name)
  end
end

function tavrel.status_text(status) return ffi.string(C.tavrel_status_text(status)) end
function tavrel.set_log_to_stderr(enabled) C.tavrel_set_log_to_stderr(enabled) end
function tavrel.get_timestamp() return string_out(C.tavrel_get_timestamp) end
function tavrel.get_user_id() return string_out(C.tavrel_get_user_id) end
function tavrel.terminate() C.tavrel_terminate() end

-- Errors raised by the game's callbacks cannot unwind through the library's frames: they are
-- kept, and raised again by run_main_loop_for once the library has returned.
local callback_errors = {}
local function call_back(fn, ...)
  local ok, err = pcall(fn, ...)
  if not ok then callback_errors[#callback_errors + 1] = err end
end

function tavrel.run_main_loop_for(seconds)
  local status = C.tavrel_run_main_loop_for(seconds)
  if status ~= 0 then raise("tavrel_run_main_loop_for", status) end
  if #callback_errors > 0 then
    local err = table.concat(callback_errors, "\n")
    callback_errors = {}
    error(err, 2)
  end
end
-- A trace must never run across a call that enters Lua again.
jit.off(tavrel.run_main_loop_for)

-- One C callback serves every completion; user_data carries the Lua function's number. The
-- library keeps a completion for the whole process (a later valid launch URL calls it again),
-- so its function stays referenced here.
local completions, completion_count = {}, 0
local on_completion = ffi.cast("tavrel_completion", function(ok, user_data)
  local fn = completions[tonumber(ffi.cast("intptr_t", user_data))]
  if fn then call_back(fn, ok) end
end)
local function with_completion(name)
  local fn = C[name]
  return function(completion)
    if completion then
      completion_count = completion_count + 1
      completions[completion_count] = completion
    end
    local status = fn(completion and on_completion or nil, ffi.cast("void *", completion and completion_count or 0))
    if status ~= 0 then raise(name, status) end
  end
end
tavrel.validate = with_completion("tavrel_validate")
tavrel.show_login_page = with_completion("tavrel_show_login_page")

local Host = {}

-- A line the library logs on this thread reaches the callback inside the call that logged it,
-- so with a callback set no trace may hold any of the module's calls.
local log_function
local on_log = ffi.cast("tavrel_log_callback", function(line)
  if log_function then call_back(log_function, ffi.string(line)) end
end)
function tavrel.set_log_callback(fn)
  log_function = fn
  if fn then
    for _, functions in ipairs({tavrel, Host}) do
      for _, f in pairs(functions) do
        if type(f) == "function" then jit.off(f) end
      end
    end
    jit.flush()
  end
  C.tavrel_set_log_callback(fn and on_log or nil, nil)
end

local flag = ffi.new("bool[1]")
function tavrel.is_login_page_visible()
  local status = C.tavrel_is_login_page_visible(flag)
  if status ~= 0 then raise("tavrel_is_login_page_visible", status) end
  return flag[0]
end

-- words: an int32_t array (count words, the first being count - 1) or a Lua table of numbers.
local words_buffer, words_size = ffi.new("int32_t[16]"), 16
function tavrel.emit_input_event(words, count)
  if type(words) == "table" then
    count = #words
    if count > words_size then
      words_size = count
      words_buffer = ffi.new("int32_t[?]", count)
    end
    for i = 1, count do words_buffer[i - 1] = words[i] end
    words = words_buffer
  end
  local status = C.tavrel_emit_input_event(words, count)
  if status ~= 0 then raise("tavrel_emit_input_event", status) end
end

local chars = ffi.new("char *[1]")
function tavrel.dump_view_tree()
  local status = C.tavrel_dump_view_tree(chars)
  if status ~= 0 then raise("tavrel_dump_view_tree", status) end
  local json = ffi.string(chars[0])
  C.tavrel_free(chars[0])
  return json
end

-- tavrel.frame_copy_pixels(frame, format, whole, pointer, stride)
tavrel.frame_copy_pixels = checked("tavrel_frame_copy_pixels")

-- ---- The screen ---------------------------------------------------------------------------

local screen_out = ffi.new("tavrel_screen *[1]")
function tavrel.screen_new()
  local status = C.tavrel_screen_new(screen_out)
  if status ~= 0 then raise("tavrel_screen_new", status) end
  return ffi.gc(screen_out[0], C.tavrel_screen_free)
end
tavrel.set_view_controller = checked("tavrel_set_view_controller")
tavrel.show_overlay = checked("tavrel_show_overlay")
tavrel.initialise_overlay = checked("tavrel_initialise_overlay")

-- ---- The host: host:method(...) on a tavrel_host ------------------------------------------

ffi.metatype("tavrel_host", {__index = Host})

local host_out = ffi.new("tavrel_host *[1]")
local function own_host(name, status)
  if status ~= 0 then raise(name, status) end
  return ffi.gc(host_out[0], C.tavrel_host_free)
end
-- A host whose frames the game takes with host:render_frame().
function tavrel.host_new(width, height, scale)
  return own_host("tavrel_host_new", C.tavrel_host_new(width, height, scale or 1, nil, nil, host_out))
end
function tavrel.host_current() return own_host("tavrel_host_current", C.tavrel_host_current(host_out)) end

Host.install = checked("tavrel_install_host")
Host.resize = checked("tavrel_host_resize")
Host.write_png = checked("tavrel_host_write_png")

local sizes = ffi.new("double[3]")
function Host:screen_size()
  local status = C.tavrel_host_screen_size(self, sizes, sizes + 1, sizes + 2)
  if status ~= 0 then raise("tavrel_host_screen_size", status) end
  return sizes[0], sizes[1], sizes[2]
end

-- Fills `frame` (a tavrel_frame the caller keeps, or a new one) and returns it; valid until the
-- next render.
function Host:render_frame(frame)
  frame = frame or ffi.new("tavrel_frame")
  local status = C.tavrel_host_render_frame(self, frame)
  if status ~= 0 then raise("tavrel_host_render_frame", status) end
  return frame
end

local bytes, byte_count = ffi.new("unsigned char *[1]"), ffi.new("size_t[1]")
function Host:render_png()
  local status = C.tavrel_host_render_png(self, bytes, byte_count)
  if status ~= 0 then raise("tavrel_host_render_png", status) end
  local png = ffi.string(bytes[0], byte_count[0])
  C.tavrel_free(bytes[0])
  return png
end

-- Each answers whether the library took the input (the game then ignores it).
local finger = ffi.new("tavrel_finger[1]")
for _, phase in ipairs({"down", "moved", "up", "cancelled"}) do
  local name = "tavrel_host_fingers_" .. phase
  local fn = C[name]
  -- host:fingers_down(id, x, y): one finger, as most engines report them.
  Host["fingers_" .. phase] = function(self, id, x, y)
    finger[0].id, finger[0].x, finger[0].y = id, x, y
    local status = fn(self, finger, 1, flag)
    if status ~= 0 then raise(name, status) end
    return flag[0]
  end
end
local function answer(name)
  local fn = C[name]
  return function(self, ...)
    local status = fn(self, ...)
    if status ~= 0 then raise(name, status) end
    return flag[0]
  end
end
local type_text, tap_element = answer("tavrel_host_type_text"), answer("tavrel_host_tap_element")
local press_return, press_backspace = answer("tavrel_host_press_return"), answer("tavrel_host_press_backspace")
local is_covered = answer("tavrel_host_is_covered")
function Host:type_text(text) return type_text(self, text, flag) end
function Host:press_return() return press_return(self, flag) end
function Host:press_backspace() return press_backspace(self, flag) end
function Host:tap_element(text) return tap_element(self, text, flag) end
function Host:is_covered() return is_covered(self, flag) end

C.tavrel_set_callback_delivery(C.TAVREL_DELIVER_ON_MAIN_LOOP)

return tavrel
