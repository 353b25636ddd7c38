"""The command line as a process among others: outputs, statuses, terminals, odd names, full disks."""

import json
import os
import pty
import resource
import shutil
import signal
import subprocess
import sys
import time
from pathlib import Path

import pytest
from command_line import COMMAND

SUBCOMMANDS = [
    "calibrate", "field", "compensate", "inspect", "diff", "convert", "report", "batch", "simulate",
]  # fmt: skip


def outputs(*arguments, cwd, env=None):
    """Standard output and error of a process whose standard output is a terminal."""
    try:
        terminal, other = pty.openpty()
    except OSError:
        pytest.skip("this system has no terminals to give")
    process = subprocess.Popen(
        [*COMMAND, *map(str, arguments)],
        cwd=cwd,
        stdin=other,
        stdout=other,
        stderr=other,
        env={**os.environ, "TERM": "xterm-256color", **(env or {})},
    )
    os.close(other)
    said = b""
    while True:
        try:
            piece = os.read(terminal, 65536)
        except OSError:  # the other end is closed
            break
        if not piece:
            break
        said += piece
    os.close(terminal)
    return process.wait(), said


def test_json_on_standard_output_is_pure(kestrane, device):
    done = kestrane("calibrate", "factory.npz", "-o", "j", "--json", "-", cwd=device)
    assert done.returncode == 0
    assert json.loads(done.stdout) == json.loads((device / "j/result.json").read_text())
    assert done.stderr == ""
    done = kestrane("inspect", "factory.npz", "--json", "/dev/stdout", cwd=device)
    assert json.loads(done.stdout)["kind"] == "cloud"
    # The solver of the field calibration reports to descriptor 1 by itself.
    done = kestrane("field", "rig/table.txt", "field.npz", "-o", "jf", "--json", "-", cwd=device)
    assert json.loads(done.stdout)["displacement"]["rms"] > 0.1
    assert done.stderr == ""


def test_nothing_of_the_library_gets_between_the_lines(kestrane, device):
    done = kestrane("field", "rig/table.txt", "field.npz", "-o", "lines", cwd=device)
    assert done.returncode == 0
    assert "Ceres" not in done.stdout and "report" not in done.stdout.lower().replace("report.html", "")
    quiet = kestrane("--quiet", "field", "rig/table.txt", "field.npz", "-o", "lines", cwd=device)
    assert quiet.stdout == ""


@pytest.mark.parametrize("command", SUBCOMMANDS)
def test_every_command_has_help_with_an_example(kestrane, command):
    done = kestrane(command, "--help")
    assert done.returncode == 0
    assert f"Example:\n  kestrane {command}" in done.stdout.replace("    kestrane", "  kestrane")


def test_help_comes_at_once(kestrane):
    took = []
    for _ in range(5):
        before = resource.getrusage(resource.RUSAGE_CHILDREN)
        assert "calibrate" in kestrane("--help").stdout
        after = resource.getrusage(resource.RUSAGE_CHILDREN)
        took.append(after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime)
    # The processor's time: the clock's is that of the neighbours as well.
    assert min(took) < 0.4


def test_the_version_is_the_library_s(kestrane):
    import kestrane as package

    assert kestrane("--version").stdout == f"kestrane {package.__version__}\n"


@pytest.mark.parametrize(
    ("arguments", "message"),
    [
        (["calibrat"], "did you mean 'calibrate'"),
        (["calibrate"], "Missing argument"),
        (["calibrate", "x.csv"], "Missing option"),
        (["calibrate", "x.csv", "-o", "d", "--optimize"], "--optimise"),
        (["calibrate", "x.csv", "-o", "d", "--refine", "--optimise"], "--refine and --optimise"),
        (["calibrate", "x.csv", "-o", "d", "--condition", "30"], "come together"),
        (["calibrate", "x.csv", "-o", "d", "--condition", "nan", "--coefficients", "c"], "number"),
        (["field", "t", "x.csv", "-o", "d", "--planes", "5-2"], "the first one first"),
        (["field", "t", "x.csv", "-o", "d", "--coefficients", "c"], "come together"),
        (["diff", "a", "b", "--volume", "800:250"], "nearest depth first"),
        (["diff", "a", "b", "--tolerance", "-1"], "at least 0"),
        (["simulate", "-o", "a.npz", "--motion", "1,2,3"], "RX,RY,RZ"),
        (["simulate", "-o", "a.stl"], "suffix"),
        (["simulate", "-o", "a.npz", "--planes", "101"], "101"),
        (["compensate", "t", "-o", "u"], "temperature"),
    ],
)
def test_a_command_line_that_is_not_understood_ends_with_2(kestrane, tmp_path, arguments, message):
    done = kestrane(*arguments, cwd=tmp_path)
    assert done.returncode == 2
    assert message in done.stderr
    assert done.stdout == ""
    assert list(tmp_path.iterdir()) == []


def test_inputs_that_cannot_be_read_end_with_3(kestrane, device, tmp_path):
    cut = tmp_path / "cut.txt"
    cut.write_bytes((device / "rig/table.txt").read_bytes()[:-100])
    bad = tmp_path / "bad.csv"
    bad.write_text("x,y,z\n1,2\n")
    toml = tmp_path / "limits.toml"
    toml.write_text("[limits]\nrsm = 0.1\n")
    factory = device / "factory.npz"
    for arguments, message in (
        (["calibrate", "gone.csv", "-o", "d"], "gone.csv: No such file"),
        (["calibrate", bad, "-o", "d"], "bad.csv: line 2: 2 fields where 3 belong"),
        (["calibrate", factory, "-o", "d", "--limits", toml], "did you mean 'rms'"),
        (["calibrate", factory, "-o", "d", "--compare", cut], "cut.txt"),
        (["field", cut, factory, "-o", "d"], "cut.txt"),
        (["field", device / "rig", factory, "-o", "d"], "rig: a table is needed, this is a folder"),
        (["inspect", cut], "cut.txt"),
        (["inspect", bad], "bad.csv: line 2"),
        (["report", cut, "-o", "page.html"], "cut.txt"),
        (["convert", cut, "table.json"], "cut.txt"),
    ):
        done = kestrane(*arguments, cwd=tmp_path)
        assert done.returncode == 3, (arguments, done.stderr)
        assert message in done.stderr
        assert "Traceback" not in done.stderr
    assert not (tmp_path / "d").exists()


def test_a_file_whose_name_looks_like_an_option_is_a_file(kestrane, device, tmp_path):
    name = "-x y.npz"
    shutil.copy(device / "factory.npz", tmp_path / name)
    done = kestrane("calibrate", "-o", "-o", "--", name, cwd=tmp_path)
    assert done.returncode == 0, done.stderr
    assert name in done.stdout
    assert (tmp_path / "-o/table.txt").exists()
    assert kestrane("inspect", "--", name, cwd=tmp_path).returncode == 0


def test_names_that_steer_a_terminal_are_told_harmlessly(kestrane, device, tmp_path):
    name = os.fsdecode("b\x1b[31mad\n ü \udcff.npz".encode("utf-8", "surrogateescape"))
    shutil.copy(device / "factory.npz", tmp_path / name)
    done = kestrane("inspect", name, "--json", "facts.json", cwd=tmp_path)
    assert done.returncode == 0, done.stderr
    assert "\x1b" not in done.stdout
    assert json.loads((tmp_path / "facts.json").read_text())["kind"] == "cloud"
    done = kestrane("calibrate", name, "-o", "d", "--device", "d.toml", cwd=tmp_path)
    assert done.returncode == 3
    (tmp_path / "d.toml").write_text('[device]\nserial = "\\u001b\\u0000</script>\\u2028"\n')
    done = kestrane("calibrate", name, "-o", "d", "--device", "d.toml", cwd=tmp_path)
    assert done.returncode == 0, done.stderr
    assert "\x1b" not in done.stdout
    assert "\\xff.npz" in json.loads((tmp_path / "d/result.json").read_text())["inputs"][0]["name"]
    assert kestrane("inspect", "d/report.html", cwd=tmp_path).returncode == 0
    done = kestrane("inspect", name + "x", cwd=tmp_path)
    assert done.returncode == 3
    assert "\x1b" not in done.stderr


@pytest.mark.parametrize("locale", ["de_DE", "de_DE.ISO-8859-1", "tr_TR.UTF-8", "C", "xx_XX"])
def test_a_locale_changes_no_number(kestrane, device, tmp_path, locale):
    env = {"LANG": locale, "LC_ALL": locale, "LC_NUMERIC": locale}
    done = kestrane("calibrate", device / "factory.npz", "-o", "d", "--json", "-", cwd=tmp_path, env=env)
    assert done.returncode == 0, done.stderr
    assert (tmp_path / "d/table.txt").read_bytes() == (device / "rig/table.txt").read_bytes()
    assert json.loads(done.stdout)["device"]["rms"] > 0.0


def test_colour_is_for_terminals_and_no_color_turns_it_off(device, tmp_path):
    arguments = ("calibrate", device / "factory.npz", "-o", tmp_path / "d")
    status, said = outputs(*arguments, cwd=tmp_path, env={"NO_COLOR": ""})
    assert status == 0
    assert b"\x1b[" in said
    colours = (b"\x1b[3", b"\x1b[1;3", b"\x1b[1m")
    status, said = outputs(*arguments, cwd=tmp_path, env={"NO_COLOR": "1"})
    assert status == 0
    assert not any(colour in said for colour in colours)
    status, said = outputs(*arguments, cwd=tmp_path, env={"TERM": "dumb", "NO_COLOR": ""})
    assert b"\x1b" not in said


def test_no_progress_and_no_colour_without_a_terminal(kestrane, device):
    done = kestrane("calibrate", "factory.npz", "-o", "plain", cwd=device, env={"FORCE_COLOR": "1"})
    assert done.stderr == ""
    assert "\x1b" not in done.stdout


def test_a_reader_that_leaves_early_is_no_error_message(device):
    process = subprocess.Popen(
        [*COMMAND, "inspect", "factory.npz", "--json", "-"],
        cwd=device,
        stdout=subprocess.PIPE,
        stderr=subprocess.PIPE,
    )
    process.stdout.close()
    assert process.stderr.read() == b""
    assert process.wait() == 128 + signal.SIGPIPE


def test_a_full_standard_output_is_told(device):
    for arguments in (["inspect", "factory.npz", "--json", "-"], ["inspect", "factory.npz"], ["--help"]):
        with open("/dev/full", "w") as full:
            done = subprocess.run(
                [*COMMAND, *arguments], cwd=device, stdout=full, stderr=subprocess.PIPE, check=False
            )
        assert done.returncode == 3, arguments
        assert done.stderr == b"kestrane: standard output: No space left on device\n"


def test_a_closed_standard_output_stops_nothing(device, tmp_path):
    done = subprocess.run(
        ["sh", "-c", 'exec "$@" >&-', "sh", *COMMAND, "calibrate", device / "factory.npz", "-o", "d"],
        cwd=tmp_path,
        stderr=subprocess.PIPE,
        check=False,
    )
    assert done.returncode == 0, done.stderr
    assert (tmp_path / "d/table.txt").exists()


def test_closed_standard_descriptors_receive_no_file(device, tmp_path):
    for closed in ("<&-", "2>&-", "<&- >&- 2>&-"):
        done = subprocess.run(
            ["sh", "-c", f'exec "$@" {closed}', "sh", *COMMAND, "field", device / "rig/table.txt",
             device / "field.npz", "-o", "d", "--json", "-"],
            cwd=tmp_path,
            capture_output=True,
            check=False,
        )  # fmt: skip
        assert done.returncode == 0, (closed, done.stderr)
        assert ">&-" in closed.split() or json.loads(done.stdout)["displacement"]
        assert json.loads((tmp_path / "d/result.json").read_text())["displacement"]


def test_a_full_disk_is_told_with_the_file(kestrane, device, tmp_path):
    for name in ("table.txt", "run.npz", "report.html", "result.json"):
        folder = tmp_path / name
        folder.mkdir()
        (folder / name).symlink_to("/dev/full")
        done = kestrane("calibrate", device / "factory.npz", "-o", folder)
        assert done.returncode == 3, (name, done.stderr)
        assert f"{name}: " in done.stderr and "Traceback" not in done.stderr
    for target in ("--json", "--report"):
        done = kestrane("calibrate", device / "factory.npz", "-o", tmp_path / "d", target, "/dev/full")
        assert done.returncode == 3
        assert "/dev/full: No space left on device" in done.stderr
    done = kestrane("convert", device / "rig/table.txt", "/dev/full")
    assert done.returncode == 3


def test_a_folder_that_cannot_be_made_is_told_before_the_work(kestrane, device, tmp_path):
    (tmp_path / "file").write_text("")
    for folder in (tmp_path / "file", tmp_path / "file/below", "/proc/kestrane"):
        done = kestrane("calibrate", device / "factory.npz", "-o", folder)
        assert done.returncode == 3
        assert str(folder) in done.stderr and "Traceback" not in done.stderr


def test_a_read_only_folder_is_told(device):
    # Root may write everywhere, so the process runs as somebody else; its folder has to be reachable.
    with_somebody = {}
    if os.geteuid() == 0:
        with_somebody = {"user": 65534, "group": 65534, "extra_groups": []}
    folder = Path("/tmp") / f"kestrane-read-only-{os.getpid()}"
    folder.mkdir(mode=0o755)
    try:
        shutil.copy(device / "factory.npz", folder)
        os.chmod(folder / "factory.npz", 0o644)
        os.chmod(folder, 0o555)
        probe = [sys.executable, "-c", "import kestrane_tools.cli.app"]
        if subprocess.run(probe, stderr=subprocess.DEVNULL, check=False, **with_somebody).returncode:
            pytest.skip("the packages are not readable for others here")
        for arguments in (
            ["calibrate", "factory.npz", "-o", "."],
            ["calibrate", "factory.npz", "-o", "new"],
            ["convert", "factory.npz", "a.csv"],
            ["simulate", "-o", "b.npz", "--planes", "1"],
        ):
            done = subprocess.run(
                [*COMMAND, *arguments],
                cwd=folder,
                capture_output=True,
                encoding="utf-8",
                check=False,
                **with_somebody,
            )
            assert done.returncode == 3, (arguments, done.stderr)
            assert "Traceback" not in done.stderr and done.stderr.startswith("kestrane: ")
    finally:
        os.chmod(folder, 0o755)
        shutil.rmtree(folder)


def test_an_interrupt_ends_with_130_and_leaves_no_table(kestrane, tmp_path):
    # Enough planes that the calibration takes seconds.
    made = kestrane("simulate", "-o", "many.npz", "--planes", 60, "--points", 5000, cwd=tmp_path)
    assert made.returncode == 0, made.stderr
    process = subprocess.Popen(
        [*COMMAND, "calibrate", "many.npz", "-o", "d", "--optimise"],
        cwd=tmp_path,
        stdout=subprocess.PIPE,
        stderr=subprocess.PIPE,
    )
    while not (tmp_path / "d").exists():  # made once the clouds are read
        assert process.poll() is None
        time.sleep(0.005)
    process.send_signal(signal.SIGINT)
    _, said = process.communicate(timeout=60)
    assert process.returncode == 130
    assert said == b"kestrane: interrupted\n"
    assert not (tmp_path / "d/table.txt").exists()
