"""The rules that program and scripts both have: the settings of an upgrade, the lookup of a value, the layouts of
a package."""

import random
import re
import struct
import subprocess

import pytest


@pytest.fixture(scope="module")
def program(top, tmp_path_factory):
    """Asks the program's own sources."""
    binary = tmp_path_factory.mktemp("answers") / "answers"
    sources = [top / "tests/integration/answers.cpp", top / "flash/uimage.cpp", top / "flash/jffs2.cpp",
               top / "flash/crc32.cpp", *(top / "util").glob("*.cpp")]
    subprocess.run(["c++", "-std=c++20", "-I", top, "-o", binary, *sources], check=True)
    return lambda *words: subprocess.run([binary, *words], check=True, stdout=subprocess.PIPE).stdout.decode("latin-1")


@pytest.fixture(params=[["dash"], ["busybox", "sh"]], ids=["dash", "busybox"])
def script(request, top):
    """Runs shell code after the settings' functions."""
    def ask(code, *words):
        text = f". {top}/integration/upgrade-settings.sh; . {top}/integration/upgrade-package.sh; {code}"
        return subprocess.run([*request.param, "-c", text, "sh", *words], check=True,
                              stdout=subprocess.PIPE).stdout.decode("latin-1")
    return ask


def test_carried_settings(program, script):
    answer = program("settings")
    files = re.findall(r"cp -dpR /etc/(\S+) /tmp/", answer)
    values = [place.removeprefix("/etc/") for place in answer.split() if ":" in place]
    assert script('printf "%s\\n" $carried_files').split() == files
    # The two last ones are the places of the web port, and this machine has one of them.
    assert script('printf "%s\\n" $carried_values').split() == values[:-1]


PIECES = ["port", "port_max", "other", "=", " = ", "=\t", "=\"", "\"", " ", "  ", "\t", "80", "-7", "+5", "x", "#", "[",
          "\r", "\n", "\n", "\n", "99999999999", "=a=b", "k" * 70, "v" * 300, "long" * 600]


@pytest.mark.parametrize("seed", range(4))
def test_values(program, script, tmp_path, seed):
    chosen = random.Random(seed)
    files = []
    for number in range(100):
        files.append(tmp_path / str(number))
        files[-1].write_text("".join(chosen.choices(PIECES, k=chosen.randint(1, 25))), newline="")
    found = script('for file in "$@"; do conf_value "$file" port; conf_number "$file" port; done', *files)
    for file, mine, its in zip(files, *(zip(*[iter(text.split("\n"))] * 2) for text in (found, program("port", *files)))):
        assert mine == its, file.read_bytes()


def test_rewritten_values(program, script, tmp_path):
    """upgrade writes a value, and the lookup then finds it, unless another line hides it."""
    texts = {"port=1\n": 80, "port = 1\n": 80, "other=5": 5, "other=5\n": 80, "port_max=9\nport=1\n": 9, "port\t=1\n": 1}
    for number, (text, value) in enumerate(texts.items()):
        file = tmp_path / str(number)
        file.write_text(text)
        file.write_text(script('as_rewritten "$1" port 80', file))
        assert int(program("port", file).split("\n")[1]) == value, text


def test_layouts(program, script, tmp_path):
    rows = [[int(word) for word in line.split()] for line in program("layouts").splitlines()]
    package = tmp_path / "package"
    for version in range(8):
        known = [row for row in rows if row[0] == version]
        header, sizes = known[0][1:] if known else (20, 8)
        data = bytearray(header + 60)
        struct.pack_into("<4sI", data, 0, b"3510", version)
        struct.pack_into("<3I", data, sizes, 10, 20, 30)
        package.write_bytes(data)
        answer = script('if read_layout "$1"; then echo "$layout"; else echo unknown; fi', package)
        assert answer.strip() == (f"{header} 10 20 30" if known else "unknown")
