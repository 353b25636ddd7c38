"""PLAN.toml and patterns: what is taken, what is refused and how the refusal says it."""

import pytest

from kestrane_tools.batch.plan import read_plan
from kestrane_tools.cli.stop import Status, Stop

WHOLE = """
[calibrate]
optimise = true
far = true
repeatability = false
refine = false
raw = true
partial = true
threads = 2
unit = 1000
plane = 7
columns = "x,y,z"
limits = "limits.toml"
[[device]]
name = "K 17 ü"
clouds = ["K-17/clouds.npz", "/far/away.ply"]
device = "K-17/device.toml"
limits = "K-17/limits.toml"
[[device]]
name = "K-18"
clouds = "K-18"
"""


def stored(tmp_path, text):
    path = tmp_path / "plan.toml"
    path.write_text(text)
    return str(path)


def refused(tmp_path, text, patterns=()):
    with pytest.raises(Stop) as caught:
        read_plan(stored(tmp_path, text), patterns, str(tmp_path / "out"))
    assert caught.value.status == Status.FILE
    return str(caught.value)


def device(**keys):
    lines = {"name": '"K"', "clouds": '["a.npz"]', **keys}
    return "[[device]]\n" + "\n".join(f"{key} = {value}" for key, value in lines.items()) + "\n"


def test_all_keys_are_taken(tmp_path):
    plan = read_plan(stored(tmp_path, WHOLE), [], str(tmp_path / "out"))
    assert plan.base == str(tmp_path)
    assert plan.options == [
        "--optimise", "--far", "--no-repeatability", "--raw", "--partial", "--threads=2",
        "--unit=1000.0", "--plane=7", "--columns=x,y,z",
    ]  # fmt: skip
    first, second = plan.jobs
    assert (first.name, first.folder) == ("K 17 ü", str(tmp_path / "out/K 17 ü"))
    assert first.clouds == ("K-17/clouds.npz", "/far/away.ply")
    assert (first.device, first.limits) == ("K-17/device.toml", "K-17/limits.toml")
    assert (second.clouds, second.device, second.limits) == (("K-18",), None, "limits.toml")


@pytest.mark.parametrize(
    ("text", "message"),
    [
        (device(cloud='"a"'), "[[device]] 1: unknown key 'cloud'; did you mean 'clouds'?"),
        (device() + device(limit='"a"'), "[[device]] 2: unknown key 'limit'; did you mean 'limits'?"),
        ("[[devices]]\n", "unknown table or key 'devices'; did you mean 'device'?"),
        ("[calibrat]\n", "unknown table or key 'calibrat'; did you mean 'calibrate'?"),
        ("optimize = true\n", "unknown table or key 'optimize'; did you mean 'optimise'?"),
        ("[calibrate]\noptimize = true\n", "[calibrate] unknown key 'optimize'; did you mean 'optimise'?"),
        ("[calibrate]\nrefine = true\noptimise = true\n", "[calibrate] --refine and --optimise"),
        ("[calibrate]\noptimise = 1\n", "optimise: true or false expected"),
        ("[calibrate]\nthreads = 0\n", "threads: a whole number of 1 to 1024"),
        ("[calibrate]\nthreads = true\n", "threads: a whole number"),
        ("[calibrate]\nunit = 0\n", "unit: a number above 0"),
        ("[calibrate]\nunit = inf\n", "unit: a number above 0"),
        ("[calibrate]\nplane = 100\n", "plane: a whole number of 0 to 99"),
        ("calibrate = 3\n", "write [calibrate]"),
        ("[device]\nname = 'a'\n", "write [[device]]"),
        ("device = [1]\n", "write [[device]]"),
        ("", "no [[device]]"),
        ("[[device]]\nclouds = 'a'\n", "[[device]] 1: no 'name'"),
        ("[[device]]\nname = 'a'\n", "[[device]] 1: no 'clouds'"),
        (device(clouds="[]"), "clouds: paths expected"),
        (device(clouds="[3]"), "clouds: a text expected"),
        (device(clouds="['']"), "clouds: the path of a file expected"),
        (device(limits='"a\\u0000b"'), "limits: the path of a file expected"),
        (device() + device(), "[[device]] 2: a second device with the name 'K', after a.npz"),
        (device(name="3"), "name: a text expected"),
        ("[[device]\n", "plan.toml"),
        ("a = " + 2000 * "[", "plan.toml"),
    ],
)
def test_a_slip_is_told_with_its_place(tmp_path, text, message):
    assert message in refused(tmp_path, text)


@pytest.mark.parametrize(
    "name", ["", ".", "..", ".hidden", "a/b", "../a", "a\\nb", "a\\u001bb", "index.html",
             "summary.csv", "ü" * 101],
)  # fmt: skip
def test_a_name_that_makes_no_folder_of_its_own_is_refused(tmp_path, name):
    assert "name: " in refused(tmp_path, device(name=f'"{name}"'))


def test_a_plan_that_is_not_there_is_told(tmp_path):
    with pytest.raises(Stop, match="No such file"):
        read_plan(str(tmp_path / "gone.toml"), [], str(tmp_path / "out"))


def cloud(tmp_path, *paths):
    for path in paths:
        (tmp_path / path).parent.mkdir(parents=True, exist_ok=True)
        (tmp_path / path).write_text("")


@pytest.mark.parametrize(
    ("pattern", "names"),
    [
        ("line1/*/clouds.npz", {"A": "line1/A/clouds.npz", "B": "line1/B/clouds.npz"}),
        ("line*/*/clouds.npz", {"line1-A": "line1/A/clouds.npz", "line1-B": "line1/B/clouds.npz",
                                "line2-A": "line2/A/clouds.npz"}),
        ("line2/?", {"A": "line2/A"}),
        ("./line2/*/clouds.npz", {"A": "./line2/A/clouds.npz"}),
        ("line[2]/A/*.npz", {"line2-A-clouds": "line2/A/clouds.npz"}),
        ("**/clouds.npz", {"line1-A": "line1/A/clouds.npz", "line1-B": "line1/B/clouds.npz",
                           "line2-A": "line2/A/clouds.npz"}),
    ],
)  # fmt: skip
def test_a_device_of_a_pattern_is_named_by_what_the_wildcards_stand_for(
    tmp_path, monkeypatch, pattern, names
):
    cloud(tmp_path, "line1/A/clouds.npz", "line1/B/clouds.npz", "line2/A/clouds.npz")
    cloud(tmp_path, "out/A/clouds.npz")  # of an earlier batch
    monkeypatch.chdir(tmp_path)
    plan = read_plan(None, [pattern], "out")
    assert {job.name: job.clouds for job in plan.jobs} == {n: (p,) for n, p in names.items()}
    assert all(job.folder == str(tmp_path / "out" / job.name) for job in plan.jobs)


def test_patterns_look_into_the_plan_s_folder_and_take_its_options(tmp_path):
    cloud(tmp_path, "a/K-1.npz")
    path = stored(tmp_path, "[calibrate]\nfar = true\nlimits = 'l.toml'\n" + device())
    plan = read_plan(path, ["a/*.npz"], str(tmp_path / "out"))
    assert [(job.name, job.clouds, job.limits) for job in plan.jobs] == [
        ("K", ("a.npz",), "l.toml"),
        ("K-1", ("a/K-1.npz",), "l.toml"),
    ]


@pytest.mark.parametrize(
    ("pattern", "message"),
    [
        ("gone/*", "gone/*: no such file"),
        ("a/K.npz", "no wildcard"),
        ("a/*.*", "a second device with the name 'K', after a/K.csv"),
        ("*/K.npz", "a second device with the name 'a'"),
    ],
)
def test_a_pattern_that_names_no_devices_is_refused(tmp_path, pattern, message):
    cloud(tmp_path, "a/K.npz", "a/K.csv", "b/K.npz")
    text = device(name='"a"', clouds='["other"]') if pattern.startswith("*") else ""
    assert message in refused(tmp_path, text, [pattern])
