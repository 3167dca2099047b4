"""What the tests in Python share. Start them with tests/run."""

import os
import shutil
import sys
from pathlib import Path

import pytest

TOP = Path(__file__).parent.parent
sys.path.insert(0, str(TOP / "board"))  # the boards that the tests use
PRESET = "cmake --preset {0} && cmake --build --preset {0}"
PARTS_OF_BOARD = {
    "build/host/fwpack": PRESET.format("host"),
    "build/arm/qve": PRESET.format("arm"),
    "build/arm-test/board/devices/board_devices": PRESET.format("arm-test"),
    ".cache/board/fingerprint": "board/build-image.sh",
    ".cache/engine/fingerprint": "board/build-engine.sh",
}


def pytest_addoption(parser):
    parser.addoption("--build", default="build/host", help="the folder with the programs to test")
    parser.addoption("--update", action="store_true",
                     help="write what the board prints into the files *.board")


def pytest_sessionstart():
    if os.environ.get("is_isolated") != "yes":
        pytest.exit("These tests need namespaces of their own. Start them with tests/run.", 2)


@pytest.fixture(scope="session")
def top():
    """The checkout."""
    return TOP


@pytest.fixture(scope="session")
def build(request):
    """The folder with the programs to test."""
    return TOP / request.config.getoption("--build")


@pytest.fixture
def tmp_path(tmp_path):
    """A scratch folder. It is removed at once, because images of flash and cards are large."""
    yield tmp_path
    shutil.rmtree(tmp_path)


@pytest.fixture(autouse=True)
def parts_of_board(request):
    """Fails a test on the emulated board while something that it needs is not built."""
    if request.node.get_closest_marker("board"):
        missing = [f"{part} is missing; run {command}"
                   for part, command in PARTS_OF_BOARD.items() if not (TOP / part).exists()]
        if missing:
            pytest.fail("\n".join(missing), pytrace=False)
