--[[
A small LÖVE game that runs its session under tavrel_sdk through the Lua binding.

  love examples/love_game TOKEN LAUNCH_URL

The library is found through TAVREL_SDK_LIB, beside the game, or by its soname (see the
README's "Lua and LÖVE games"). Environment, for tests and local integration only (a mock
service, `tavrel serve`): TAVREL_CA_FILE, TAVREL_SERVICE_URL, and TAVREL_TREE_FILE (the view
tree, written each second).
]]
-- Run from the source tree, the binding lies in bindings/lua; a shipped game carries it.
package.path = love.filesystem.getSource() .. "/../../bindings/lua/?.lua;" .. package.path
local tavrel = require("tavrel")
local tavrel_love = require("tavrel.love")

local overlay, screen
local validated, playing = false, false
local scene_time = 0
local tree_file, last_tree_write = os.getenv("TAVREL_TREE_FILE"), -1

-- Night sky in bands, a moon, hills and a hopping block, in 800 x 600 units scaled to the
-- window: no white anywhere, so whatever is white on the screen is the library's.
local function draw_scene()
  local g = love.graphics
  local w, h = g.getDimensions()
  g.push()
  g.scale(w / 800, h / 600)
  for band = 0, 11 do
    g.setColor((10 + band * 3) / 255, (20 + band * 5) / 255, (60 + band * 6) / 255)
    g.rectangle("fill", 0, band * 40, 800, 40)
  end
  g.setColor(200 / 255, 170 / 255, 60 / 255)
  g.circle("fill", 620, 110, 40)
  g.setColor(30 / 255, 90 / 255, 50 / 255)
  g.rectangle("fill", 0, 480, 800, 120)
  g.setColor(70 / 255, 190 / 255, 210 / 255)
  g.rectangle("fill", (scene_time * 120) % 860 - 60, 420 - math.abs(math.sin(scene_time * 3)) * 120, 60, 60)
  g.pop()
  g.setColor(1, 1, 1)
end

function love.load(args)
  local token, launch_url = args[1] or "", args[2] or ""   -- from the companion app
  -- --- The README's snippet, with the test-only settings ---------------------------------
  overlay = tavrel_love.new()                  -- the host, before any view is made
  tavrel.set_info_dictionary_json('{"CFBundleURLTypes": [{"CFBundleURLSchemes": ["lovegame"]}]}')
  -- Tests and local integration only: a mock service on 127.0.0.1 (tavrel serve).
  if os.getenv("TAVREL_CA_FILE") then tavrel.set_trusted_certificates_file(os.getenv("TAVREL_CA_FILE")) end
  if os.getenv("TAVREL_SERVICE_URL") then tavrel.set_service_base_url_for_testing(os.getenv("TAVREL_SERVICE_URL")) end
  screen = tavrel.screen_new()                 -- the game's screen, kept while it runs
  tavrel.initialise_overlay(screen, token)     -- 48 characters or more
  tavrel.show_watermark()
  tavrel.show_touches()
  tavrel.validate(function() validated = true end)  -- from love.update, with true only
  tavrel.process_url_request(launch_url)       -- each time the game is opened through a URL
  overlay:hook()                               -- the library's frame and input before the game's
  -- -----------------------------------------------------------------------------------------
end

function love.update(dt)
  scene_time = scene_time + dt
  if validated and not playing then
    playing = true
    tavrel.emit_game_event("level-1", "start")
    print("love_game: the session may go on")
    io.stdout:flush()
  end
  local now = love.timer.getTime()
  if tree_file and now - last_tree_write >= 1 then
    last_tree_write = now
    local file = io.open(tree_file .. ".tmp", "w")
    if file then
      file:write(tavrel.dump_view_tree())
      file:close()
      os.rename(tree_file .. ".tmp", tree_file)
    end
  end
end

function love.draw()
  draw_scene()
end

-- The game's own input: a click on the scene is a jump (the overlay passes on only what it
-- did not take).
function love.mousepressed(x, y, button)
  if button == 1 and playing then tavrel.emit_game_event(("%d,%d"):format(x, y), "jump") end
end
