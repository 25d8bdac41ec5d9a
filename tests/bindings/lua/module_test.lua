-- The Lua module under luajit alone: its declarations against tavrel.h as the compiler reads it,
-- refusals raised as errors, UTF-8 both ways, and a completion called once, from the game's loop.
--   TAVREL_SDK_LIB=... TAVREL_TOOL=... luajit module_test.lua
local ffi = require("ffi")
local here = arg[0]:match("^(.*)/[^/]*$")
package.path = here .. "/../../../bindings/lua/?.lua;" .. package.path
local tavrel = require("tavrel")

local failures = 0
local function check(ok, what)
  if not ok then
    failures = failures + 1
    io.stderr:write("FAILED: ", what, "\n")
  end
end

-- Drift: every declaration both ways, types compared as LuaJIT reads them.
-- c_api.py's JSON as a Lua table (brackets in its strings only in variables' types, not compared).
local c_api = io.popen("python3 '" .. here .. "/../c_api.py'")
local json = c_api:read("*a")
c_api:close()
local api = assert(loadstring("return " .. json:gsub("%[", "{"):gsub("%]", "}"):gsub('("[^"]*")%s*:', "[%1]=")))()
local function spelled(types) -- C types as LuaJIT spells them, joined
  local out = {}
  for i, t in ipairs(types) do out[i] = tostring(ffi.typeof(t)) end
  return table.concat(out, ", ")
end
local declared = tavrel.declarations
local function compare(kind, header, bound, signature)
  local seen = {}
  for _, d in ipairs(bound) do
    seen[d[1]] = true
    check(header[d[1]] ~= nil, kind .. " " .. d[1] .. " is not in tavrel.h")
    if header[d[1]] then
      local want, got = signature(header[d[1]], d)
      check(want == got, ("%s %s: tavrel.h has %s, the module %s"):format(kind, d[1], want, got))
    end
  end
  for name in pairs(header) do check(seen[name], kind .. " " .. name .. " is not bound") end
end
local function call_signature(h, d)
  return spelled({h.result}) .. "(" .. spelled(h.params) .. ")", spelled({d[2]}) .. "(" .. spelled({unpack(d, 3)}) .. ")"
end
compare("function", api.functions, declared.functions, call_signature)
compare("callback", api.callbacks, declared.callbacks, call_signature)
compare("enum", api.enums, declared.enums, function(h, d)
  local want, got = {}, {}
  for name, value in pairs(h) do want[#want + 1] = name .. "=" .. value end
  for _, c in ipairs(d[2]) do got[#got + 1] = c[1] .. "=" .. c[2] end
  table.sort(want); table.sort(got)
  return table.concat(want, " "), table.concat(got, " ")
end)
compare("struct", api.structs, declared.structs, function(h, d)
  local want, got = {}, {}
  for i, f in ipairs(h) do want[i] = f[1] .. ": " .. spelled({f[2]}) end
  for i, f in ipairs(d[2]) do got[i] = f[1] .. ": " .. spelled({f[2]}) end
  return table.concat(want, "; "), table.concat(got, "; ")
end)

-- Refusals: each raises naming the function, its status and the logged line, which the log
-- callback gets as well.
tavrel.set_log_to_stderr(false)
local logged = {}
tavrel.set_log_callback(function(line) logged[#logged + 1] = line end)
check(pcall(tavrel.emit_input_event, {6, 0, 6, 3, 100, 200, 0}), "a right input event was refused")
for _, case in ipairs({
  {function() tavrel.set_auth_token("\xc3(") end, "tavrel_set_auth_token: invalid UTF%-8 %(TAVREL_ERROR_INVALID_UTF8%)"},
  {function() tavrel.run_main_loop_for(-1) end, "^[^:]*module_test.lua:%d+: tavrel_run_main_loop_for: out of range"},
  {function() tavrel.emit_input_event({5, 0}) end, "tavrel_emit_input_event: invalid argument .*count %- 1"},
  {function() tavrel.host_new(0, 10, 1) end, "tavrel_host_new: out of range"},
}) do
  local ok, err = pcall(case[1])
  check(not ok and tostring(err):find(case[2]), "wanted an error like " .. case[2] .. ", got " .. tostring(err))
end

check(table.concat(logged, "\n"):find("tavrel_host_new: "), "the log callback missed the refusals")
tavrel.set_log_callback(nil)

-- UTF-8 in and out: a user id of characters beyond ASCII, and text typed into the login page.
local token = string.rep("t", 24) .. "Ünïcødé-ñandú-東京-€ß" .. string.rep("z", 5)
tavrel.set_auth_token(token)
check(tavrel.get_user_id() == "Ünïcødé-ñandú-東京-€ßzzzzz", "user id " .. tavrel.get_user_id())
local host = tavrel.host_new(390, 844, 1)
host:install()
local screen = tavrel.screen_new()
tavrel.initialise_overlay(screen, nil)
tavrel.show_login_page(nil)
-- At rest once its view's frame starts at the top of the screen.
local deadline = os.time() + 10
repeat
  tavrel.run_main_loop_for(0.02)
  local arrived = tavrel.dump_view_tree():find('"LoginViewController"[^%]]-"frame": %[%s*0%.0,%s*0%.0,')
until arrived or os.time() > deadline
check(host:fingers_down(1, 5, 5) and host:fingers_up(1, 5, 5), "the page did not take a finger")
check(host:tap_element("Tavrel username") and host:type_text("ann ñandú 東京"), "the field did not take the text")
check(tavrel.dump_view_tree():find('"text": "ann ñandú 東京"', 1, true), "typed text not in the view tree")

-- A valid token's completion, queued by the library's thread, reaches Lua once, inside the loop.
local tool = assert(os.getenv("TAVREL_TOOL"), "TAVREL_TOOL")
local valid = string.rep("V", 48)
local serve = io.popen("sh -c 'echo $$; exec \"$0\" serve --token " .. valid .. " 2>&1' " .. tool)
local pid, base, ca = serve:read("*l")
local ok, err = pcall(function()
  repeat
    local line = assert(serve:read("*l"), "tavrel serve ended")
    base = base or line:match("^base%-url: (%S+)")
    ca = ca or line:match("^ca%-file: (%S+)")
  until base and ca
  tavrel.set_trusted_certificates_file(ca)
  tavrel.set_service_base_url_for_testing(base)
  tavrel.set_auth_token(valid)
  local calls, in_loop, outside = 0, false, false
  tavrel.validate(function(yes)
    calls = calls + (yes and 1 or 100)
    outside = outside or not in_loop
    error("raised in the completion")
  end)
  local raised, after = nil, 0
  for _ = 1, 1000 do -- until 20 turns after the call, to see no second one
    in_loop = true
    local loop_ok, loop_err = pcall(tavrel.run_main_loop_for, 0.01)
    in_loop = false
    raised = raised or (not loop_ok and loop_err)
    after = after + (calls > 0 and 1 or 0)
    if after > 20 then break end
  end
  check(calls == 1 and not outside, ("completion called %d times, outside the loop: %s"):format(calls, outside))
  check(tostring(raised):find("raised in the completion"), "the completion's error came back as " .. tostring(raised))
  check(not host:fingers_down(2, 100, 100), "a finger on the game was taken")
end)
os.execute("kill " .. pid)
serve:close()
check(ok, tostring(err))

if failures > 0 then os.exit(1) end
print("ok")
