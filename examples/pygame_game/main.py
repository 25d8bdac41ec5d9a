#!/usr/bin/python3
"""A small pygame game that runs its session under tavrel_sdk: a night scene of its own (no white
in it, so whatever is white on the screen is the library's) and the library's views over it.

    PYTHONPATH=bindings/python TAVREL_SDK_LIB=build/libtavrel_sdk.so.1 \\
        /usr/bin/python3 examples/pygame_game/main.py TOKEN LAUNCH_URL

It integrates the library as the README's "Python games" section says. Environment, for tests
and local integration only (a mock service, `tavrel serve`): TAVREL_CA_FILE, TAVREL_SERVICE_URL,
TAVREL_TREE_FILE (the view tree, written each second).
"""
import math
import os
import sys
import time

import pygame

import tavrel
import tavrel.pygame

WIDTH, HEIGHT = 800, 600


def draw_scene(surface: pygame.Surface, seconds: float) -> None:
    """Sky in bands, a moon, a hill line and a hopping block, scaled from 800 x 600."""
    width, height = surface.get_size()
    sx, sy = width / WIDTH, height / HEIGHT
    for band in range(12):
        colour = (10 + band * 3, 20 + band * 5, 60 + band * 6)
        surface.fill(colour, (0, round(band * 40 * sy), width, math.ceil(40 * sy)))
    pygame.draw.circle(surface, (200, 170, 60), (round(620 * sx), round(110 * sy)), round(40 * min(sx, sy)))
    surface.fill((30, 90, 50), (0, round(480 * sy), width, height))
    x = (seconds * 120) % 860 - 60
    y = 420 - abs(math.sin(seconds * 3)) * 120
    surface.fill((70, 190, 210), (round(x * sx), round(y * sy), round(60 * sx), round(60 * sy)))


def main() -> int:
    token = sys.argv[1] if len(sys.argv) > 1 else ""       # from the companion app
    launch_url = sys.argv[2] if len(sys.argv) > 2 else ""  # the URL the game was opened with
    pygame.display.init()
    pygame.display.set_mode((WIDTH, HEIGHT), pygame.RESIZABLE)
    pygame.display.set_caption("pygame_game")
    pygame.key.start_text_input()  # TEXTINPUT for the login page's fields

    # --- The README's "Python games" snippet, with the test-only settings ----------------------
    overlay = tavrel.pygame.Overlay()  # installs its host: before any view is made
    tavrel.set_info_dictionary_json('{"CFBundleURLTypes": [{"CFBundleURLSchemes": ["pygamegame"]}]}')
    # Tests and local integration only: a mock service on 127.0.0.1 (tavrel serve).
    if os.environ.get("TAVREL_CA_FILE"):
        tavrel.set_trusted_certificates_file(os.environ["TAVREL_CA_FILE"])
    if os.environ.get("TAVREL_SERVICE_URL"):
        tavrel.set_service_base_url_for_testing(os.environ["TAVREL_SERVICE_URL"])
    validated = []
    with tavrel.Screen() as screen:                # the game's screen, kept while it runs
        tavrel.initialise_overlay(screen, token)   # 48 characters or more
        tavrel.show_watermark()
        tavrel.show_touches()
        tavrel.validate(validated.append)          # called with True only, on this thread
        tavrel.process_url_request(launch_url)     # each time the game is opened through a URL
        # ------------------------------------------------------------------------------------
        tree_file = os.environ.get("TAVREL_TREE_FILE")
        last_tree_write = -1.0
        clock_start = time.monotonic()
        announced = False
        while True:
            for event in pygame.event.get():
                if event.type == pygame.QUIT:
                    return 0
                if overlay.handle_event(event):
                    continue  # the library took it: not the game's
                if event.type == pygame.MOUSEBUTTONDOWN and announced:
                    tavrel.emit_game_event(f"{event.pos[0]},{event.pos[1]}", "jump")
            if validated and not announced:
                announced = True
                tavrel.emit_game_event("level-1", "start")
                print("pygame_game: the session may go on", flush=True)
            seconds = time.monotonic() - clock_start
            draw_scene(pygame.display.get_surface(), seconds)
            overlay.draw()
            pygame.display.flip()
            if tree_file and seconds - last_tree_write >= 1.0:
                last_tree_write = seconds
                with open(tree_file + ".tmp", "w", encoding="utf-8") as f:
                    f.write(tavrel.dump_view_tree())
                os.replace(tree_file + ".tmp", tree_file)
            # The library's timers, pages and completions run on the thread that runs its loop.
            tavrel.run_main_loop_for(1 / 60)


if __name__ == "__main__":
    sys.exit(main())
