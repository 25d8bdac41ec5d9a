function love.conf(t)
  t.identity = "tavrel_frame_bench"
  t.window.title = "tavrel_frame_bench"
  t.window.width, t.window.height = 1280, 720
  t.window.vsync = 0
  t.modules.audio, t.modules.sound, t.modules.joystick, t.modules.physics = false, false, false, false
end
