--[[
tavrel.love: the library's overlay, login page and alerts over a LÖVE 11 game.

  local tavrel = require("tavrel")
  local overlay = require("tavrel.love").new()  -- in love.load, before tavrel.screen_new()
  overlay:hook()                                -- after the game's love.* callbacks are defined

hook() puts the overlay in front of the game's callbacks: love.update runs the library's loop
(completions are called there), love.draw lays the library's frame over the game's, and the
input callbacks reach the game only when the library did not take them. A game that prefers to
call it itself calls overlay:update(dt) and overlay:draw() at the end of its own, and starts each
input callback with `if overlay:mousepressed(...) then return end` (the same for mousemoved,
mousereleased, touchpressed, touchmoved, touchreleased, textinput, keypressed); and
overlay:resize(w, h) from love.resize.

The screen is the window in LÖVE's units (points on a HiDPI screen) at its DPI scale; frames come
at the window's size in pixels. Only the rectangles drawn again go up to the GPU, into one Image,
as RGBA premultiplied: the library converts while it copies into the ImageData, a copy the upload
needs anyway, so no shader is needed and the game's own shader state is never touched. The Image
is drawn only over the bands of rows that hold something (the watermark's, a finger's mark), not
over the whole window: blending a transparent window costs fill rate for nothing, a software
renderer's CPU or a handheld's GPU.
]]
local ffi = require("ffi")
local tavrel = require("tavrel")

local M = {}
local Overlay = {}
Overlay.__index = Overlay

local RGBA = tavrel.pixels.RGBA_PREMULTIPLIED
local MOUSE = 0 -- the mouse's finger; touches get 1, 2, ...
local BAND = 32 -- rows of pixels drawn or skipped together
pcall(ffi.cdef, "int memcmp(const void *, const void *, size_t);") -- the game may have declared it

function M.new()
  local width, height = love.graphics.getDimensions()
  local host = tavrel.host_new(width, height, love.graphics.getDPIScale())
  host:install()
  return setmetatable({
    host = host,
    frame = ffi.new("tavrel_frame"),
    part = ffi.new("tavrel_frame"), -- one damaged rectangle of the frame
    scratch = {}, scratch_count = 0, -- ImageData by rectangle size, reused from frame to frame
    mouse_down = false,
    touches = {}, next_touch = 1,
    uploaded_bytes = 0, damaged_bytes = 0, -- what went up against what was drawn again
  }, Overlay)
end

-- An ImageData of w x h pixels for one rectangle; kept, since a moving watermark damages
-- rectangles of the same few sizes frame after frame.
function Overlay:_scratch(w, h)
  local key = w * 65536 + h
  local data = self.scratch[key]
  if not data then
    if self.scratch_count >= 32 then self.scratch, self.scratch_count = {}, 0 end
    data = love.image.newImageData(w, h, "rgba8")
    self.scratch[key], self.scratch_count = data, self.scratch_count + 1
  end
  return data
end

-- A new Image when the frame's size changed (first frame, a resize), filled whole.
function Overlay:_make_image(frame)
  local data = love.image.newImageData(frame.width, frame.height, "rgba8")
  tavrel.frame_copy_pixels(frame, RGBA, true, data:getFFIPointer(), frame.width * 4)
  if self.image then self.image:release() end
  self.image = love.graphics.newImage(data, {dpiscale = frame.scale})
  self.quad = love.graphics.newQuad(0, 0, 1, 1, self.image:getDimensions())
  self.width, self.height, self.scale = frame.width, frame.height, frame.scale
  self.uploaded_bytes = self.uploaded_bytes + frame.width * frame.height * 4
  self.zeros = ffi.new("uint8_t[?]", frame.width * 4)
  self.filled = {}
  self:_look(frame, 0, frame.height)
end

-- Which bands of the frame's rows [top, bottom) hold a pixel that is not transparent, a row at a
-- time in C.
function Overlay:_look(frame, top, bottom)
  local rows, row_bytes = ffi.cast("const uint8_t *", frame.pixels), frame.width * 4
  for band = math.floor(top / BAND), math.floor((bottom - 1) / BAND) do
    local filled = false
    for y = band * BAND, math.min((band + 1) * BAND, frame.height) - 1 do
      if ffi.C.memcmp(rows + y * frame.stride, self.zeros, row_bytes) ~= 0 then
        filled = true
        break
      end
    end
    self.filled[band] = filled
  end
end

function Overlay:_upload(frame)
  local part = self.part
  part.stride, part.scale, part.damage_count = frame.stride, frame.scale, 0
  for i = 0, tonumber(frame.damage_count) - 1 do
    local r = frame.damage[i]
    local data = self:_scratch(r.width, r.height)
    part.pixels = frame.pixels + r.y * (frame.stride / 4) + r.x
    part.width, part.height = r.width, r.height
    tavrel.frame_copy_pixels(part, RGBA, true, data:getFFIPointer(), r.width * 4)
    self.image:replacePixels(data, 1, 1, r.x, r.y)
    self.uploaded_bytes = self.uploaded_bytes + r.width * r.height * 4
    self:_look(frame, r.y, r.y + r.height)
  end
end

-- After the game's drawing: the library's frame over it, blended as premultiplied alpha.
function Overlay:draw()
  local frame = self.host:render_frame(self.frame)
  for i = 0, tonumber(frame.damage_count) - 1 do
    self.damaged_bytes = self.damaged_bytes + frame.damage[i].width * frame.damage[i].height * 4
  end
  if frame.width ~= self.width or frame.height ~= self.height or frame.scale ~= self.scale then
    self:_make_image(frame)
  elseif frame.damage_count > 0 then
    self:_upload(frame)
  end
  local g = love.graphics
  g.push("all")
  g.origin()
  g.setShader()
  g.setColor(1, 1, 1, 1)
  g.setBlendMode("alpha", "premultiplied")
  -- Each run of filled bands, in the image's units.
  local bands, band = math.ceil(self.height / BAND), 0
  while band < bands do
    local last = band
    while self.filled[last] and self.filled[last + 1] do last = last + 1 end
    if self.filled[band] then
      local top, bottom = band * BAND / self.scale, math.min((last + 1) * BAND, self.height) / self.scale
      self.quad:setViewport(0, top, self.width / self.scale, bottom - top)
      g.draw(self.image, self.quad, 0, top)
    end
    band = last + 1
  end
  g.pop()
end

-- The library's timers and main-queue work, and the completions due.
function Overlay:update()
  tavrel.run_main_loop_for(0)
end

function Overlay:resize(width, height)
  self.host:resize(width, height, love.graphics.getDPIScale())
end

-- Whether the game should ignore an input: the library took it, or a page or alert covers the
-- game.
function Overlay:_ignored(taken)
  return taken or self.host:is_covered()
end

function Overlay:mousepressed(x, y, button, istouch)
  -- LÖVE reports a touch as a mouse event too; the touch callbacks carry it.
  if istouch or button ~= 1 then return self.host:is_covered() end
  self.mouse_down = true
  return self:_ignored(self.host:fingers_down(MOUSE, x, y))
end

function Overlay:mousemoved(x, y, dx, dy, istouch)
  if istouch or not self.mouse_down then return self.host:is_covered() end
  return self:_ignored(self.host:fingers_moved(MOUSE, x, y))
end

function Overlay:mousereleased(x, y, button, istouch)
  if istouch or button ~= 1 or not self.mouse_down then return self.host:is_covered() end
  self.mouse_down = false
  return self:_ignored(self.host:fingers_up(MOUSE, x, y))
end

-- LÖVE names a touch by a light userdata; the library by a small number.
function Overlay:touchpressed(id, x, y)
  local finger = self.next_touch
  self.touches[id], self.next_touch = finger, finger + 1
  return self:_ignored(self.host:fingers_down(finger, x, y))
end

function Overlay:touchmoved(id, x, y)
  local finger = self.touches[id]
  if not finger then return self.host:is_covered() end
  return self:_ignored(self.host:fingers_moved(finger, x, y))
end

function Overlay:touchreleased(id, x, y)
  local finger = self.touches[id]
  if not finger then return self.host:is_covered() end
  self.touches[id] = nil
  return self:_ignored(self.host:fingers_up(finger, x, y))
end

function Overlay:textinput(text)
  return self:_ignored(self.host:type_text(text))
end

function Overlay:keypressed(key)
  if key == "return" or key == "kpenter" then return self:_ignored(self.host:press_return()) end
  if key == "backspace" then return self:_ignored(self.host:press_backspace()) end
  return self.host:is_covered()
end

local inputs = {"mousepressed", "mousemoved", "mousereleased", "touchpressed", "touchmoved", "touchreleased",
                "textinput", "keypressed"}

-- Wraps the love.* callbacks defined now: the overlay first, the game's after.
function Overlay:hook()
  for _, name in ipairs(inputs) do
    local game = love[name]
    love[name] = function(...)
      if not self[name](self, ...) and game then return game(...) end
    end
  end
  local update, draw, resize = love.update, love.draw, love.resize
  love.update = function(dt)
    self:update()
    if update then update(dt) end
  end
  love.draw = function()
    if draw then draw() end
    self:draw()
  end
  love.resize = function(w, h)
    self:resize(w, h)
    if resize then resize(w, h) end
  end
end

return M
