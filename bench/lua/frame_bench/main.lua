--[[
The overlay's cost in a LÖVE game at 1280 x 720 with the watermark moving, against the same game
without it, in one run: CPU per frame (the whole process: the game, the library, and llvmpipe,
which draws on the CPU here), paced at 60 frames a second; and the bytes uploaded against the
damaged area x 4.   TAVREL_SDK_LIB=... xvfb-run -a -s "-screen 0 1280x720x24" love bench/lua/frame_bench
Goals: at most 0.3 ms per frame above the game's own; at most 1.1x the damaged bytes.
]]
package.path = love.filesystem.getSource() .. "/../../../bindings/lua/?.lua;" .. package.path
local ffi = require("ffi")
local tavrel = require("tavrel")
ffi.cdef("typedef struct { long sec; long nsec; } bench_timespec; int clock_gettime(int, bench_timespec *);")
local ts = ffi.new("bench_timespec")
local function clock(id) ffi.C.clock_gettime(id, ts); return tonumber(ts.sec) + tonumber(ts.nsec) * 1e-9 end
local MONOTONIC, PROCESS_CPU, THREAD_CPU = 1, 2, 3

-- The game: a scene of a few hundred shapes, as a small 2D game draws each frame.
local t = 0
local function draw_scene()
  local g = love.graphics
  for band = 0, 17 do
    g.setColor((10 + band * 3) / 255, (20 + band * 5) / 255, (60 + band * 6) / 255)
    g.rectangle("fill", 0, band * 40, 1280, 40)
  end
  for i = 0, 199 do
    g.setColor(0.3, 0.6, 0.4)
    g.rectangle("fill", (i * 37 + t * 60) % 1280, 500 + (i * 13) % 200, 12, 12)
  end
  g.setColor(1, 1, 1)
end

function love.run()
  love.load()
  local overlay = require("tavrel.love").new()
  local screen = tavrel.screen_new()
  tavrel.initialise_overlay(screen, string.rep("B", 24) .. "BENCH-PLAYER-ID-00000000")
  tavrel.show_watermark()
  -- The library's own rendering, timed apart: any host pays it; the rest is the binding's.
  local host, render = overlay.host, {[false] = 0, [true] = 0}
  local measuring = false
  overlay.host = setmetatable({render_frame = function(_, frame)
    local r0 = clock(THREAD_CPU)
    host:render_frame(frame)
    if measuring then render[true] = render[true] + clock(THREAD_CPU) - r0 end
    return frame
  end}, {__index = function(_, name) return function(_, ...) return host[name](host, ...) end end})
  local rounds, frames = 3, 120
  local cpu = {[false] = 0, [true] = 0}
  local main = {[false] = 0, [true] = 0}
  local up0, dmg0
  return function()
    for round = 0, rounds do
      for _, with in ipairs({false, true}) do
        if round == 1 and with then up0, dmg0 = overlay.uploaded_bytes, overlay.damaged_bytes end
        measuring = round > 0
        local next_frame = clock(MONOTONIC)
        local p0, m0 = clock(PROCESS_CPU), clock(THREAD_CPU)
        for _ = 1, frames do
          love.event.pump()
          for name in love.event.poll() do if name == "quit" then return 0 end end
          t = t + 1 / 60
          if with then overlay:update() end
          love.graphics.origin()
          love.graphics.clear(0, 0, 0)
          draw_scene()
          if with then overlay:draw() end
          love.graphics.present()
          next_frame = next_frame + 1 / 60
          local wait = next_frame - clock(MONOTONIC)
          if wait > 0 then love.timer.sleep(wait) end
        end
        if round > 0 then -- the first round warms up
          cpu[with] = cpu[with] + clock(PROCESS_CPU) - p0
          main[with] = main[with] + clock(THREAD_CPU) - m0
        end
      end
    end
    local n = rounds * frames
    local function ms(x) return x / n * 1000 end
    print(("frame at 1280x720, watermark moving: game %.3f ms CPU, game+overlay %.3f ms, above the game's own %.3f ms (goal <= 0.3)"):format(
      ms(cpu[false]), ms(cpu[true]), ms(cpu[true] - cpu[false])))
    print(("  main thread only: game %.3f ms, game+overlay %.3f ms, above %.3f ms"):format(
      ms(main[false]), ms(main[true]), ms(main[true] - main[false])))
    print(("  of which the library rendering its frame %.3f ms; the binding (upload, draw call, loop, input) %.3f ms"):format(
      ms(render[true]), ms(main[true] - main[false] - render[true])))
    local uploaded, damaged = overlay.uploaded_bytes - up0, overlay.damaged_bytes - dmg0
    print(("bytes uploaded %d against damaged area x 4 %d: %.3fx (goal <= 1.1)"):format(uploaded, damaged, uploaded / damaged))
    return 0
  end
end

function love.load() end
