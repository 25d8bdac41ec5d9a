"""examples/pygame_game in a real window under Xvfb against tavrel serve, with a token the service
refuses, driven by X input (xdotool) and checked on screenshots (ImageMagick's import) by pixels.
The screenshots stay in $TAVREL_PYGAME_TEST_OUT to be looked at."""
import json
import os
import subprocess
import time

import pytest

from conftest import REFUSED_TOKEN, SOURCE

os.environ.setdefault("SDL_VIDEODRIVER", "dummy")
import pygame  # noqa: E402  reads the screenshots

GROUND = (30, 90, 50)


def wait_until(done, seconds=60.0):
    end = time.monotonic() + seconds
    while not (value := done()):
        if time.monotonic() > end:
            return value
        time.sleep(0.1)
    return value


def tree(path):
    try:
        with open(path, encoding="utf-8") as f:
            return json.load(f)
    except (OSError, ValueError):
        return None


def find(view, match, x=0.0, y=0.0):
    """The centre of the first view under `view` that `match` takes, in window points."""
    x, y = x + view["frame"][0], y + view["frame"][1]
    if match(view):
        return round(x + view["frame"][2] / 2), round(y + view["frame"][3] / 2)
    return next(filter(None, (find(v, match, x, y) for v in view["subviews"])), None)


def xdotool(*arguments):
    return subprocess.run(["xdotool", *map(str, arguments)], check=True, capture_output=True, text=True).stdout


@pytest.fixture
def display(tmp_path):
    read, write = os.pipe()
    xvfb = subprocess.Popen(["Xvfb", "-displayfd", str(write), "-screen", "0", "1024x768x24", "-nolisten", "tcp"],
                            pass_fds=(write,), stderr=open(tmp_path / "xvfb.log", "wb"))
    os.close(write)
    with os.fdopen(read) as numbers:
        yield ":" + numbers.readline().strip()
    xvfb.terminate()
    xvfb.wait(10)


def test_a_refused_player_logs_in_and_plays_under_the_overlay(serve, display, tmp_path):
    shots = os.environ.get("TAVREL_PYGAME_TEST_OUT", str(tmp_path))
    os.makedirs(shots, exist_ok=True)
    base = serve.banner["base-url"]
    launch_url = subprocess.run(
        [os.environ["TAVREL_TOOL"], "launch-url", "compose", "--scheme", "pygamegame", "--token", REFUSED_TOKEN,
         "--game-event-url", base + "/game-events.evt", "--input-event-url", base + "/input-events.evt",
         "--recording-started-at", str(int(time.time() * 1000))], check=True, capture_output=True, text=True).stdout
    tree_file = str(tmp_path / "tree.json")
    # SDL_FRAMEBUFFER_ACCELERATION: the window surface goes up as an image, not through (software) OpenGL.
    env = dict(os.environ, DISPLAY=display, SDL_VIDEODRIVER="x11", SDL_FRAMEBUFFER_ACCELERATION="0",
               TAVREL_CA_FILE=serve.banner["ca-file"], TAVREL_SERVICE_URL=base, TAVREL_TREE_FILE=tree_file,
               TAVREL_DOCUMENTS=str(tmp_path / "documents"), PYTHONPATH=os.path.join(SOURCE, "bindings", "python"))
    with open(tmp_path / "game.log", "w+") as log:
        game = subprocess.Popen(["/usr/bin/python3", os.path.join(SOURCE, "examples", "pygame_game", "main.py"),
                                 REFUSED_TOKEN, launch_url.strip()], env=env, stdout=log, stderr=subprocess.STDOUT)
        try:
            played(game, display, tree_file, shots, serve)
        finally:
            game.terminate()
            game.wait(10)
            log.seek(0)
            print(log.read())


def played(game, display, tree_file, shots, serve):
    os.environ["DISPLAY"] = display

    def page():
        view = ((tree(tree_file) or {}).get("rootViewController") or {}).get("presentedViewController") or {}
        return view.get("view") if view.get("class") == "LoginViewController" else None

    # The refusal brings the page, slid in.
    assert wait_until(lambda: page() and page()["frame"][1] == 0), "no login page"
    # Alone on its X server; xdotool does not read the title SDL sets, but reads the class.
    window = xdotool("search", "--sync", "--onlyvisible", "--classname", "^main.py$").split()[0]
    geometry = xdotool("getwindowgeometry", window)
    x0, y0 = (int(v) for v in geometry.split("Position: ")[1].split()[0].split(","))

    def shot(name):
        path = os.path.join(shots, name)
        subprocess.run(["import", "-window", "root", path], check=True)
        picture = pygame.image.load(path)
        return picture.subsurface((x0, y0, 800, 600))

    def count(picture, colour):
        return sum(1 for x in range(0, 800, 2) for y in range(0, 600, 2) if colour(picture.get_at((x, y))))

    view = page()
    username = find(view, lambda v: v.get("placeholder") == "Tavrel username")
    password = find(view, lambda v: v.get("placeholder") == "Password")
    login = find(view, lambda v: v.get("currentTitle") == "Login")
    picture = shot("page.png")
    assert picture.get_at(login)[:3] == (255, 102, 0)  # the Login button's orange
    assert count(picture, lambda p: p[:3] == GROUND) == 0  # the page hides the whole scene

    # Real typing into the fields, and the login through the service, take the page away.
    xdotool("windowfocus", "--sync", window)
    for field, text in ((username, "ann"), (password, "secret-pw")):
        xdotool("mousemove", "--window", window, *field, "click", "1")
        xdotool("type", "--delay", "40", text)
    shot("typed.png")
    xdotool("mousemove", "--window", window, *login, "click", "1")
    assert wait_until(lambda: tree(tree_file) and page() is None), "the page stayed"
    assert serve.wait_for("POST /m/launch/project/auth/ios 200", 10)

    # A finger held on the ground: its mark under it, the watermark over the scene.
    xdotool("mousemove", "--window", window, 280, 510, "mousedown", "1", "mousemove", "--window", window, 300, 520)
    time.sleep(1.0)
    picture = shot("played.png")
    xdotool("mouseup", "1")
    mark = picture.get_at((300, 520))
    assert mark[0] > 150 and mark[2] > 150, mark  # white at 2/3 over the ground
    assert count(picture, lambda p: min(p[:3]) >= 240) > 10  # the watermark's white text
    assert count(picture, lambda p: p[:3] == GROUND) > 20000  # the scene under it

    # Both files reach the service: the game's events (its own "jump" came through), the finger's records.
    def uploaded(name):
        path = serve.uploads / name
        return path.read_bytes() if path.exists() else b""

    def arrived():
        events, touches = uploaded("game-events.evt"), uploaded("input-events.evt")
        return b"start" in events and b"jump" in events and touches[:4] == b"INP\x02" and len(touches) > 4
    assert wait_until(arrived, 70), (uploaded("game-events.evt"), uploaded("input-events.evt")[:40])
    assert game.poll() is None
