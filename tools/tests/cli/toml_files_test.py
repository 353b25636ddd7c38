"""limits.toml, device.toml and the numbers of a compensation."""

import pytest

from kestrane_tools.cli.stop import Status, Stop
from kestrane_tools.cli.toml_files import read_device, read_limits, read_parameters

WHOLE = """
[limits]
rms = 0.15
p99 = 0.45
coverage = 0.80
seam = 0.15
repeatability = 0.05
outliers = 0.05
field_motion = 1
[volume]
depth = [250, 800]
half_angle_deg = 30
[device]
serial = "K-17"
model = "R"
operator = "somebody"
place = "line 1"
target = "board 7, certificate 2026-114"
temperature = [20.4, 20.6]
customer = "c"
certificate = "d"
next_due = 2027-11-21
"""


def stored(tmp_path, text):
    path = tmp_path / "settings.toml"
    path.write_text(text)
    return str(path)


def test_all_keys_are_taken(tmp_path):
    path = stored(tmp_path, WHOLE)
    limits = read_limits(path)
    assert limits.limits == {
        "rms": 0.15,
        "p99": 0.45,
        "coverage": 0.8,
        "seam": 0.15,
        "repeatability": 0.05,
        "outliers": 0.05,
        "field_motion": 1.0,
    }
    assert limits.depth == (250.0, 800.0)
    assert limits.half_angle_deg == 30.0
    device = read_device(path)
    assert device["serial"] == "K-17"
    assert device["temperature"] == [20.4, 20.6]
    assert device["next_due"] == "2027-11-21"


def test_limits_are_those_that_the_judgement_knows():
    import dataclasses

    import kestrane
    from kestrane_tools.cli import toml_files

    assert list(toml_files._LIMITS) == [f.name for f in dataclasses.fields(kestrane.Limits)]


def test_conditions_are_those_that_the_compensation_knows():
    import dataclasses

    import kestrane
    from kestrane_tools.cli import toml_files

    assert set(toml_files._CONDITION) == {f.name for f in dataclasses.fields(kestrane.Condition)}


@pytest.mark.parametrize(
    ("text", "message"),
    [
        ("[limits]\nrsm = 0.1", r"\[limits\] unknown key 'rsm'; did you mean 'rms'\?"),
        ("[limits]\nrepeatabilty = 0.1", "did you mean 'repeatability'"),
        ("[limit]\nrms = 0.1", r"unknown table \[limit\]; did you mean 'limits'"),
        ("rms = 0.1", r"'rms' belongs below \[limits\]"),
        ("limits = 3", r"'limits' is a table"),
        ("[limits]\nrms = -0.1", "rms: a number of at least 0"),
        ("[limits]\nrms = nan", "rms: a number expected"),
        ("[limits]\nrms = true", "rms: a number expected"),
        ("[limits]\nrms = '0.1'", "rms: a number expected"),
        ("[limits]\ncoverage = 80", "coverage: a share of 0 to 1"),
        ("[volume]\ndepth = [800, 250]", "depth: the nearest depth first"),
        ("[volume]\ndepth = 250", "depth: two numbers"),
        ("[volume]\nhalf_angle_deg = 0", "half_angle_deg: degrees above 0"),
        ("[device]\nserial = 'x'", r"no \[limits\] nor \[volume\]"),
        ("[limits]\nrms = \n", "line 2"),
        ("[limits]\nrms = 0.1\nrms = 0.2", "Cannot overwrite"),
        ("a = " + "[" * 5000, "nested too deeply|Expected|recursion|Invalid"),
    ],
)
def test_what_is_not_known_is_refused_with_its_place(tmp_path, text, message):
    path = stored(tmp_path, text)
    with pytest.raises(Stop, match=message) as caught:
        read_limits(path)
    assert caught.value.status == Status.FILE
    assert path in str(caught.value)


@pytest.mark.parametrize(
    ("text", "message"),
    [
        ("[device]\nserail = 'x'", "did you mean 'serial'"),
        ("[device]\nserial = 7", "serial: a text expected"),
        ("[device]\ntemperature = [1, 2, 3]", "temperature: one number expected, or two"),
        ("[device]\nnext_due = 7", "next_due: a date expected"),
        ("[limits]\nrms = 0.1", r"no \[device\]"),
    ],
)
def test_a_device_that_is_not_one_is_refused(tmp_path, text, message):
    with pytest.raises(Stop, match=message):
        read_device(stored(tmp_path, text))


def test_numbers_of_a_compensation_stand_at_the_top_or_in_a_table(tmp_path):
    for head in ("", "[compensation]\n"):
        found = read_parameters(stored(tmp_path, head + "drift = 1\nextrinsic_t = [1, 2, 3]"))
        assert found.condition == {"drift": 1.0}
        assert found.extrinsic_t == (1.0, 2.0, 3.0)
    with pytest.raises(Stop, match="did you mean 'temperature_ref'"):
        read_parameters(stored(tmp_path, "temperatur_ref = 3"))
    with pytest.raises(Stop, match="extrinsic_t: three numbers"):
        read_parameters(stored(tmp_path, "extrinsic_t = [1, 2]"))


def test_a_file_that_is_not_there_is_told(tmp_path):
    with pytest.raises(Stop, match="gone.toml: No such file"):
        read_limits(str(tmp_path / "gone.toml"))
    (tmp_path / "latin.toml").write_bytes(b"[limits]\n# \xe4\n")
    with pytest.raises(Stop, match="latin.toml"):
        read_limits(str(tmp_path / "latin.toml"))
