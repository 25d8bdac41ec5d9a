-- A dropped input event through the module against the same C call through the FFI, in one run
-- (goal: at most 1.2x).   TAVREL_SDK_LIB=... TAVREL_TOOL=... luajit bench/lua/emit_bench.lua
local ffi = require("ffi")
package.path = (arg[0]:match("^(.*)/[^/]*$") or ".") .. "/../../bindings/lua/?.lua;" .. package.path
local tavrel = require("tavrel")
ffi.cdef("typedef struct { long sec; long nsec; } bench_timespec; int clock_gettime(int, bench_timespec *);")
local now_ts = ffi.new("bench_timespec")
local function now()
  ffi.C.clock_gettime(1, now_ts) -- CLOCK_MONOTONIC
  return tonumber(now_ts.sec) + tonumber(now_ts.nsec) * 1e-9
end

-- Recording on, to a port where nothing listens; a full run of records makes the rest drop.
local documents = os.tmpname()
os.remove(documents)
tavrel.set_documents_directory(documents)
tavrel.set_log_to_stderr(false)
local tool = assert(os.getenv("TAVREL_TOOL"), "TAVREL_TOOL: the tavrel tool")
local compose = io.popen(tool .. " launch-url compose --scheme bench --token " .. string.rep("B", 48) ..
                         " --game-event-url https://127.0.0.1:1/g.evt --input-event-url https://127.0.0.1:1/i.evt" ..
                         " --recording-started-at " .. math.floor(os.time() * 1000))
tavrel.process_url_request(compose:read("*l"))
compose:close()
local touch = ffi.new("int32_t[7]", 6, 0, 6, 3, 16887, 15549, 0)
for _ = 1, 6 do tavrel.emit_input_event(touch, 7) end

local C = tavrel.C
local calls = 200000
local function module_block()
  for _ = 1, calls do tavrel.emit_input_event(touch, 7) end
end
local function c_block()
  for _ = 1, calls do C.tavrel_emit_input_event(touch, 7) end
end
-- Alternating blocks, the best of each: the machine's noise falls on both sides.
local best = {module = math.huge, c = math.huge}
for _ = 1, 15 do
  for name, block in pairs({module = module_block, c = c_block}) do
    local start = now()
    block()
    best[name] = math.min(best[name], (now() - start) / calls * 1e9)
  end
end
print(("emit_input_event dropped: module %.1f ns, C %.1f ns, module/C %.3f (goal <= 1.2)"):format(
  best.module, best.c, best.module / best.c))
os.execute("rm -rf '" .. documents .. "'")
