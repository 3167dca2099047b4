"""What the tests in Python share. Start them with tests/run."""

import os
from pathlib import Path

import pytest

TOP = Path(__file__).parent.parent


def pytest_addoption(parser):
    parser.addoption("--build", default="build/host", help="the folder with the programs to test")


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
