"""The session that the README shows is what the command line says."""

import shlex
import shutil
from pathlib import Path

PROJECT = Path(__file__).parents[3]


def session():
    """Commands of the README with the lines that follow them."""
    section = (PROJECT / "README.md").read_text().split("## The command line")[1].split("\n## ")[0]
    commands = []
    for line in section.splitlines():
        if line.startswith("    $ kestrane "):
            commands.append((shlex.split(line[6:])[1:], []))
        elif line.startswith("    ") and commands:
            commands[-1][1].append(line[4:])
    return commands


def test_the_session_of_the_readme_is_what_one_sees(kestrane, tmp_path):
    shutil.copy(PROJECT / "examples/limits.toml", tmp_path)
    commands = session()
    assert [command[0] for command, _ in commands] == ["simulate", "calibrate"]
    for command, lines in commands:
        done = kestrane(*command, cwd=tmp_path)
        assert done.returncode == 0, done.stderr
        assert done.stdout.splitlines() == lines


def test_the_limits_that_the_texts_show_are_those_of_the_example():
    import tomllib

    from kestrane_tools.cli.toml_files import read_device, read_limits

    limits = read_limits(str(PROJECT / "examples/limits.toml"))
    guide = (PROJECT / "docs/guide.md").read_text().split("## The command line")[1]
    shown = guide.split("    [limits]", 1)[1].split("    [device]", 1)[0]
    told = tomllib.loads("[limits]" + shown)
    assert told["limits"] == limits.limits
    assert tuple(told["volume"]["depth"]) == limits.depth
    assert read_device(str(PROJECT / "examples/device.toml"))["serial"]


def test_the_readme_lists_every_command():
    from kestrane_tools.cli.app import COMMANDS

    text = (PROJECT / "README.md").read_text()
    for name in COMMANDS:
        assert f"| `kestrane {name}` |" in text
