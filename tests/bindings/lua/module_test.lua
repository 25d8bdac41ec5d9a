-- TAVREL_SDK_LIB=... TAVREL_TOOL=... luajit module_test.lua
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

-- c_api.py's JSON read as a Lua table: its strings hold brackets only in variables' types, not compared.
local c_api = io.popen("python3 '" .. here .. "/../c_api.py'")
local json = c_api:read("*a")
local api = assert(loadstring("return " .. json:gsub("%[", "{"):gsub("%]", "}"):gsub('("[^"]*")%s*:', "[%1]=")))()
c_api:close()
local function spelled(...)
  local out = {...}
  for i, t in ipairs(out) do out[i] = tostring(ffi.typeof(t)) end
  return table.concat(out, ", ")
end
local header, module, declared = {}, {}, tavrel.declarations
for _, kind in ipairs({"functions", "callbacks"}) do
  for name, h in pairs(api[kind]) do header[name] = spelled(h.result, unpack(h.params)) end
  for _, d in ipairs(declared[kind]) do module[d[1]] = spelled(unpack(d, 2)) end
end
for name, constants in pairs(api.enums) do
  for constant, value in pairs(constants) do header[name .. "." .. constant] = value end
end
for _, d in ipairs(declared.enums) do
  for _, c in ipairs(d[2]) do module[d[1] .. "." .. c[1]] = c[2] end
end
local function fields(into, name, list)
  for i, f in ipairs(list) do into[name .. "." .. i] = f[1] .. ": " .. spelled(f[2]) end
end
for name, list in pairs(api.structs) do fields(header, name, list) end
for _, d in ipairs(declared.structs) do fields(module, d[1], d[2]) end
for name, want in pairs(header) do
  check(module[name] == want, ("%s: tavrel.h has %s, the module %s"):format(name, want, tostring(module[name])))
end
for name in pairs(module) do check(header[name] ~= nil, name .. " is not in tavrel.h") end

-- A refusal raises with the function, its status and the line the log callback gets too.
tavrel.set_log_to_stderr(false)
local logged = {}
tavrel.set_log_callback(function(line) logged[#logged + 1] = line end)
check(pcall(tavrel.emit_input_event, {6, 0, 6, 3, 100, 200, 0}), "a right input event was refused")
local path = "/no/such/" .. string.rep("d", 202) .. "/x.png" -- a line of 256 bytes, the first buffer's size
for _, case in ipairs({
  {function() tavrel.host_new(40, 30, 1):write_png(path) end, "could not write " .. path:gsub("%.", "%%.") .. "$"},
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
tavrel.set_auth_token(string.rep("t", 24) .. "Ünïcødé-ñandú-東京-€ß" .. string.rep("z", 5))
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
local valid, tool = string.rep("V", 48), assert(os.getenv("TAVREL_TOOL"))
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
  local calls = 0
  tavrel.validate(function(yes)
    calls = calls + (yes and 1 or 100)
    error("raised in the completion")
  end)
  local raised, after = nil, 0
  for _ = 1, 1000 do -- until 20 turns after the call, to see no second one
    local loop_ok, loop_err = pcall(tavrel.run_main_loop_for, 0.01)
    raised = raised or (not loop_ok and loop_err)
    after = after + (calls > 0 and 1 or 0)
    if after > 20 then break end
  end
  check(calls == 1, ("completion called %d times"):format(calls))
  check(tostring(raised):find("raised in the completion"), "the completion's error came back as " .. tostring(raised))
  check(not host:fingers_down(2, 100, 100), "a finger on the game was taken")
end)
os.execute("kill " .. pid)
serve:close()
check(ok, tostring(err))

if failures > 0 then os.exit(1) end
print("ok")
