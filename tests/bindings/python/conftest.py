"""What the Python binding's tests share: the package from the source tree (the venv test installs
its own copy) on the library CTest names in TAVREL_SDK_LIB, and the mock service (tavrel serve)."""
import os
import subprocess
import sys
import threading
import time

import pytest

SOURCE = os.path.abspath(os.path.join(os.path.dirname(__file__), "..", "..", ".."))
sys.path.insert(0, os.path.join(SOURCE, "bindings", "python"))
sys.path.insert(0, os.path.join(SOURCE, "tests", "bindings"))

VALID_TOKEN = "A" * 48
REFUSED_TOKEN = "r" * 24 + "PLAYER-ID-OF-24-CHARS-00"


class Serve:
    """tavrel serve on 127.0.0.1 that accepts VALID_TOKEN and ann:secret-pw; its start lines by name."""

    def __init__(self, uploads, scheme="game"):
        self.uploads = uploads
        self.process = subprocess.Popen(
            [os.environ["TAVREL_TOOL"], "serve", "--token", VALID_TOKEN, "--user", "ann:secret-pw", "--scheme", scheme,
             "--uploads", str(uploads)], stdout=subprocess.PIPE, text=True)
        self.banner = {}
        while "launch-url" not in self.banner:
            line = self.process.stdout.readline()
            if not line:
                raise RuntimeError("tavrel serve did not start")
            name, _, value = line.rstrip("\n").partition(": ")
            self.banner[name] = value
        self.log = []  # the request lines, as they come
        threading.Thread(target=self._read, daemon=True).start()

    def _read(self):
        for line in self.process.stdout:
            self.log.append(line)

    def wait_for(self, text, seconds):
        """Whether a request line holding `text` came within `seconds`."""
        end = time.monotonic() + seconds
        while not any(text in line for line in self.log):
            if time.monotonic() > end:
                return False
            time.sleep(0.1)
        return True

    def stop(self):
        self.process.terminate()
        self.process.wait(10)


@pytest.fixture(scope="module")
def serve(tmp_path_factory):
    service = Serve(tmp_path_factory.mktemp("uploads"), scheme="pygamegame")
    yield service
    service.stop()
