"""Power cuts on the emulated board at the worst moments: an incomplete kernel, and three times in a row no settings
in flash."""

import emulated_board as board
import pytest

pytestmark = [pytest.mark.board, pytest.mark.timeout(2400)]


@pytest.mark.parametrize("cuts", [("1]:1.5",), ("3]:1.5", "3]:0.5", "2]:0.5")], ids=["kernel", "resumed"])
def test_power_cut(tmp_path, cuts):
    board.make(tmp_path)
    job = "cp -r /mine/. /etc/ && safe-upgrade /tmp/flash3\n"
    for cut in cuts:
        _, output = board.run(tmp_path, "--cut", f"write [/dev/mtd/{cut}", jobs=[job])
        assert "board: power cut" in output
        job = board.LOOK
    status, output = board.run(tmp_path, jobs=[board.LOOK, board.NEXT])
    assert not board.fault(status, output)
    assert "outcome=installed" in output and "kernel 'new' from flash" in output
