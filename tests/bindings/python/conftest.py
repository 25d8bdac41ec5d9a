"""What the Python binding's tests share: the package from the source tree (the venv test installs
its own copy) on the library CTest names in TAVREL_SDK_LIB, and the mock service (tavrel serve)."""
import os
import subprocess
import sys

import pytest

SOURCE = os.path.abspath(os.path.join(os.path.dirname(__file__), "..", "..", ".."))
sys.path.insert(0, os.path.join(SOURCE, "bindings", "python"))
sys.path.insert(0, os.path.join(SOURCE, "tests", "bindings"))

VALID_TOKEN = "A" * 48


@pytest.fixture(scope="module")
def serve():
    """tavrel serve on 127.0.0.1 that accepts VALID_TOKEN and ann:secret-pw, and its start lines by name."""
    process = subprocess.Popen([os.environ["TAVREL_TOOL"], "serve", "--token", VALID_TOKEN, "--user", "ann:secret-pw"],
                               stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
    banner = {}
    while "launch-url" not in banner:
        name, _, value = process.stdout.readline().rstrip("\n").partition(": ")
        assert name, "tavrel serve did not start"
        banner[name] = value
    yield banner
    process.terminate()
    process.wait(10)
