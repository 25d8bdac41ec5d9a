"""The library's views over a pygame game: the overlay, the login page and alerts laid over the
game's surface each frame, and the player's input handed to the library first.

    import pygame, tavrel, tavrel.pygame
    pygame.display.init()
    window = pygame.display.set_mode((800, 600), pygame.RESIZABLE)
    overlay = tavrel.pygame.Overlay()          # installs its host: before tavrel.Screen()
    with tavrel.Screen() as screen:
        tavrel.initialise_overlay(screen, token)
        ...
        while running:
            for event in pygame.event.get():
                if overlay.handle_event(event):
                    continue                   # the library's: not the game's
                ...                            # the game's own input
            draw_scene(window)
            overlay.draw()                     # the library's frame over the scene
            pygame.display.flip()
            tavrel.run_main_loop_for(1 / 60)

Main thread only.
"""
from __future__ import annotations

from typing import Optional, Tuple

import pygame

import tavrel

# The mouse's left button stands for one finger; touch fingers keep SDL's ids (made to fit an int).
MOUSE_FINGER = -1
_INPUT = {pygame.MOUSEBUTTONDOWN, pygame.MOUSEBUTTONUP, pygame.MOUSEMOTION, pygame.MOUSEWHEEL, pygame.KEYDOWN,
          pygame.KEYUP, pygame.TEXTINPUT, pygame.TEXTEDITING, pygame.FINGERDOWN, pygame.FINGERMOTION,
          pygame.FINGERUP}
_RESIZE = {pygame.VIDEORESIZE, getattr(pygame, "WINDOWSIZECHANGED", pygame.VIDEORESIZE)}


class Overlay:
    """Lays the library's frame over the display surface (or `surface`) and passes input to it.

    It makes and installs a tavrel.Host of the window's size in points at the window's scale
    (the surface's pixels over the window's points): make it before tavrel.Screen().
    """

    def __init__(self, surface: Optional[pygame.Surface] = None) -> None:
        self._surface = surface
        self._size = self._geometry()
        width, height, scale = self._size
        self.host = tavrel.Host(width, height, scale).install()
        self._layer: Optional[pygame.Surface] = None
        self._format = tavrel.PixelFormat.BGRA_PREMULTIPLIED
        self._mouse_down = False

    def _target(self) -> pygame.Surface:
        return self._surface if self._surface is not None else pygame.display.get_surface()

    def _geometry(self) -> Tuple[float, float, float]:
        """The screen in points and its scale, as the window shows the surface now."""
        pixels = self._target().get_size()
        if self._surface is None:
            window = pygame.display.get_window_size()
            if window[0] > 0 and window[1] > 0:
                return float(window[0]), float(window[1]), pixels[0] / window[0]
        return float(pixels[0]), float(pixels[1]), 1.0

    def follow(self) -> None:
        """Follows the window's size and scale (draw() and a resize event call it)."""
        size = self._geometry()
        if size != self._size and size[0] >= 1 and size[1] >= 1:
            self._size = size
            self.host.resize(*size)

    def draw(self) -> None:
        """Renders what changed, copies only the damaged rectangles into the kept layer, and
        blits the layer over the surface (premultiplied alpha)."""
        self.follow()
        target = self._target()
        frame = self.host.render_frame()
        layer = self._layer
        whole = layer is None or layer.get_size() != (frame.width, frame.height)
        if whole:
            layer = self._layer = pygame.Surface((frame.width, frame.height), pygame.SRCALPHA, 32)
            # The library's own byte order when the layer's memory is B, G, R, A.
            self._format = (tavrel.PixelFormat.BGRA_PREMULTIPLIED if layer.get_masks()[0] == 0xFF0000
                            else tavrel.PixelFormat.RGBA_PREMULTIPLIED)
        if whole or frame.damage_count:
            layer.lock()
            try:
                frame.copy_pixels(layer._pixels_address, self._format, whole, layer.get_pitch())
            finally:
                layer.unlock()
        target.blit(layer, (0, 0), special_flags=pygame.BLEND_PREMULTIPLIED)

    def handle_event(self, event: pygame.event.Event) -> bool:
        """Hands the event to the library first; True when the game should ignore it (the
        library took it, or a page or alert covers the game). Resizes are followed and left to
        the game too."""
        kind = event.type
        host = self.host
        taken = False
        if kind in _RESIZE:
            self.follow()
            return False
        if kind not in _INPUT:
            return False
        if kind in (pygame.FINGERDOWN, pygame.FINGERMOTION, pygame.FINGERUP):
            width, height, _ = self._size
            finger = [(event.finger_id & 0x7FFFFFFF, event.x * width, event.y * height)]
            if kind == pygame.FINGERDOWN:
                taken = host.fingers_down(finger)
            elif kind == pygame.FINGERMOTION:
                taken = host.fingers_moved(finger)
            else:
                taken = host.fingers_up(finger)
        elif getattr(event, "touch", False):
            pass  # SDL's mouse made from a finger: the finger itself came as FINGER*
        elif kind == pygame.MOUSEBUTTONDOWN and event.button == 1:
            self._mouse_down = True
            taken = host.fingers_down([(MOUSE_FINGER, *event.pos)])  # window coordinates: points
        elif kind == pygame.MOUSEMOTION and self._mouse_down:
            taken = host.fingers_moved([(MOUSE_FINGER, *event.pos)])
        elif kind == pygame.MOUSEBUTTONUP and event.button == 1 and self._mouse_down:
            self._mouse_down = False
            taken = host.fingers_up([(MOUSE_FINGER, *event.pos)])
        elif kind == pygame.TEXTINPUT:
            taken = host.type_text(event.text)
        elif kind == pygame.KEYDOWN and event.key in (pygame.K_RETURN, pygame.K_KP_ENTER):
            taken = host.press_return()
        elif kind == pygame.KEYDOWN and event.key == pygame.K_BACKSPACE:
            taken = host.press_backspace()
        return taken or host.is_covered()
