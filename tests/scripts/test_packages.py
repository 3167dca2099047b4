"""The version of a tree, and the changelog that Debian's packages get from CHANGELOG.md."""

import gzip
import shutil
import subprocess

import pytest

RELEASES = "## [1.1.0] - 2026-11-26\n\n- New.\n\n## [1.0.0] - 2026-11-25\n\n- First.\n"


@pytest.fixture
def tree(tmp_path, top):
    folder = tmp_path / "tree"
    for name in "scripts/version.sh", "packaging/debian/finish.sh":
        (folder / name).parent.mkdir(parents=True)
        shutil.copy(top / name, folder / name)
    (folder / "VERSION").write_text("1.1.0\n")
    (folder / "COPYRIGHT").touch()
    (folder / "CHANGELOG.md").write_text("# Changelog\n\nAll notable changes.\n\n" + RELEASES)
    return folder


def run(*command):
    return subprocess.run(command, check=True, stdout=subprocess.PIPE, text=True).stdout.strip()


def commit(tree, time):
    git = ["git", "-C", tree, "-c", "user.name=nobody", "-c", "user.email=nobody@qve.invalid"]
    run("git", "init", "--quiet", tree)
    run(*git, "add", ".")
    run("env", f"GIT_COMMITTER_DATE=@{time} +0000", *git, "commit", "--quiet", "--allow-empty", "-m", "A commit")


def test_version(tree):
    """A release has that of VERSION, like its archive. A later commit has a number and a name."""
    script = tree / "scripts/version.sh"
    assert (run(script), run(script, "--time")) == ("1.1.0", "1795651200"), "without git"
    commit(tree, 1795660000)
    assert (run(script), run(script, "--time")) == ("1.1.0", "1795660000"), "at the release"
    commit(tree, 1795670000)
    commit(tree, 1795680000)
    name = run("git", "-C", tree, "rev-parse", "--short=7", "HEAD")
    assert (run(script), run(script, "--time")) == (f"1.1.0+git2.{name}", "1795680000"), "later"
    few = {"PATH": tree / "bin"}
    few["PATH"].mkdir()
    for tool in "dirname", "cat":
        (few["PATH"] / tool).symlink_to(f"/usr/bin/{tool}")
    ended = subprocess.run(["/bin/sh", script], env=few, capture_output=True, text=True)
    assert (ended.stdout, "git is missing" in ended.stderr) == ("1.1.0\n", True), "without git's program"


@pytest.mark.parametrize("unreleased", ["", "## [Unreleased]\n\n- Newer.\n\n"])
@pytest.mark.parametrize("version", ["1.1.0+deb12", "1.1.0+git2.1a2b3c4+deb12"])
def test_changelog(tree, tmp_path, version, unreleased):
    """The newest entry has the package's version. Only a snapshot has unreleased changes."""
    commit(tree, 1795680000)
    (tree / "CHANGELOG.md").write_text("# Changelog\n\nAll notable changes.\n\n" + unreleased + RELEASES)
    docs = tmp_path / "package/usr/share/doc/qve"
    for folder in docs, tmp_path / "package/usr/share/man":
        folder.mkdir(parents=True)
    run(tree / "packaging/debian/finish.sh", version, tmp_path)
    entries = [line for line in gzip.open(docs / "changelog.gz", "rt") if line.strip()]
    signed = " -- QVE firmware team <firmware@qve.invalid>  {}, {} Nov 2026 {} +0000\n".format
    snapshot = [f"qve ({version}) stable; urgency=medium\n", "  * Snapshot after release 1.1.0.\n",
                *["  * Newer.\n"] * bool(unreleased), signed("Thu", 26, "08:00:00")]
    is_snapshot = "+git" in version
    assert entries == [*snapshot * is_snapshot,
                       f"qve ({'1.1.0' if is_snapshot else version}) stable; urgency=medium\n",
                       "  * New.\n", signed("Thu", 26, "00:00:00"),
                       "qve (1.0.0) stable; urgency=medium\n", "  * First.\n", signed("Wed", 25, "00:00:00")]


def test_release_without_notes(tree, tmp_path):
    (tmp_path / "package/usr/share/doc/qve").mkdir(parents=True)
    ended = subprocess.run([tree / "packaging/debian/finish.sh", "1.2.0+deb12", tmp_path], stderr=subprocess.PIPE, text=True)
    assert (ended.returncode, ended.stderr) == (1, "CHANGELOG.md has no entry for version 1.2.0\n")
