function love.conf(t)
  t.identity = "love_game"
  t.window.title = "love_game"
  t.window.width, t.window.height = 800, 600
  t.window.resizable = true
  t.window.highdpi = true
  t.window.vsync = 1
  t.modules.audio, t.modules.sound, t.modules.joystick, t.modules.physics = false, false, false, false
end
