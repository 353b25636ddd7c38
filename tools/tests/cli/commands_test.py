"""The other commands: field, compensate, inspect, diff, convert, report, simulate."""

import json

import numpy as np
import pytest

import kestrane as package
from kestrane import _simulation
from kestrane_tools import run_file
from kestrane_tools.report.render import read_page


def json_of(kestrane, *arguments, cwd, status=0):
    done = kestrane(*arguments, "--json", "-", cwd=cwd)
    assert done.returncode == status, done.stderr
    return json.loads(done.stdout)


@pytest.fixture(scope="module")
def table(device):
    return package.PlaneTable.read(device / "rig/table.txt")


# --- field ----------------------------------------------------------------------------------------


def test_field_finds_the_knock_of_the_simulated_device(kestrane, device, table):
    told = json_of(kestrane, "field", "rig/table.txt", "field.npz", "-o", "moved", cwd=device)
    result = package.calibrate_field(table, package.clouds.read(device / "field.npz"))
    for name in ("rms", "max", "sigma"):
        assert told["displacement"][name] == getattr(result.displacement, name)
    assert told["motion"]["t"] == result.t.tolist()
    assert told["smallest_motion"]["R"] == result.smallest_motion.R.tolist()
    assert [d["name"] for d in told["directions"]] == result.directions.names
    assert told["used"]["points"]["in"] == 18000
    assert told["indicators"]["mean"] == result.mean
    assert sorted(p.name for p in (device / "moved").iterdir()) == ["report.html", "result.json", "run.npz"]
    run = run_file.read(device / "moved/run.npz")
    assert run.field.displacement_rms == result.displacement.rms
    # The truth: how far the sheets of the same device are from where they were.
    y, z = np.meshgrid(np.linspace(-100, 100, 9), np.linspace(245, 325, 9))
    moved = []
    for plane in range(3):
        places = (3, 1, 0.4, plane, y.ravel(), z.ravel())
        motion = [0.001, 0.0005, -0.0003, 0.2, 0.0, 0.1]
        x0, x1 = _simulation.sheet_x(*places), _simulation.sheet_x(*places, motion)
        normals = np.array([table.cells[plane, 7, 4] / np.linalg.norm(table.cells[plane, 7, 4])] * x0.size)
        moved.append(np.abs((x1 - x0) * normals[:, 0]))
    assert abs(np.sqrt(np.mean(np.square(moved))) - told["displacement"]["rms"]) < 0.05


def test_field_takes_the_planes_that_are_asked_for(kestrane, device):
    told = json_of(
        kestrane, "field", "rig/run.npz", "field.npz", "-o", "two", "--planes", "1-2", cwd=device
    )
    assert told["settings"]["planes"] == [1, 2]
    assert told["used"]["planes"] == 2
    done = kestrane("field", "rig/table.txt", "field.npz", "-o", "x", "--planes", "2-3", cwd=device)
    assert done.returncode == 3
    assert "no points of plane 3" in done.stderr


def test_field_that_is_refused_leaves_a_result_alone(kestrane, device, tmp_path):
    clouds = package.clouds.read(device / "field.npz")
    package.clouds.write(tmp_path / "gap.npz", {0: clouds[0], 2: clouds[2]})
    done = kestrane("field", device / "rig/table.txt", "gap.npz", "-o", "d", cwd=tmp_path)
    assert done.returncode == 4
    assert "refused" in done.stderr and "plane 1" in done.stderr
    assert [p.name for p in (tmp_path / "d").iterdir()] == ["result.json"]
    assert json.loads((tmp_path / "d/result.json").read_text())["refused"]


def test_field_of_more_planes_than_the_table_has_is_refused(kestrane, device, tmp_path):
    done = kestrane("simulate", "-o", "wide.npz", "--planes", 4, "--points", 4000, cwd=tmp_path)
    done = kestrane("field", device / "rig/table.txt", "wide.npz", "-o", "d", cwd=tmp_path)
    assert done.returncode == 3
    assert "plane 3" in done.stderr and "3 planes" in done.stderr


def test_field_writes_the_motion_into_coefficients(kestrane, device, table, tmp_path):
    x = np.full((3, 16, 51), 5.0)
    old = package.Coefficients(np.stack([0 * x, 1 + 0 * x, -x], axis=-1), [[0, 2]])
    old.save(tmp_path / "old.bin")
    done = kestrane(
        "field", device / "rig/table.txt", device / "field.npz", "-o", "d", "--coefficients", "old.bin",
        "--out", "new.json", cwd=tmp_path,
    )  # fmt: skip
    assert done.returncode == 0, done.stderr
    frames = package.screen_frames(package.clouds.read(device / "field.npz"), table)
    expected = package.jobs.field_calibrate_coefficients(table, frames.lists, old, first=0, last=2)
    assert kestrane("convert", "new.json", "new.bin", cwd=tmp_path).returncode == 0
    assert package.Coefficients.read(tmp_path / "new.bin") == expected
    assert not np.array_equal(expected.factory_to_user[:3], old.factory_to_user[:3])
    other = package.Coefficients(old.models, [[0, 1]])
    other.save(tmp_path / "other.bin")
    done = kestrane(
        "field", device / "rig/table.txt", device / "field.npz", "-o", "e", "--coefficients",
        "other.bin", "--out", "never.bin", cwd=tmp_path,
    )  # fmt: skip
    assert done.returncode == 4
    assert not (tmp_path / "never.bin").exists()


# --- compensate -----------------------------------------------------------------------------------

PARAMETERS = """
temperature_ref = 20
scale_per_degree = 1.2e-5
temperature_spread = 1e-5
extrinsic_t = [300, 0, 50]
"""


def test_compensate_does_what_the_job_does(kestrane, device, table, tmp_path):
    (tmp_path / "rig.toml").write_text(PARAMETERS)
    told = json_of(
        kestrane, "compensate", device / "rig/table.txt", "-o", "warm.npz", "--params", "rig.toml",
        "--temperature", 31.5, "--planes", "0-1", "--curve", "15:35:10", "--report", "page.html",
        cwd=tmp_path,
    )  # fmt: skip
    condition = package.Condition(
        temperature=31.5, temperature_ref=20.0, scale_per_degree=1.2e-5, temperature_spread=1e-5
    )
    expected = package.jobs.compensate(table, condition, [300, 0, 50], first=0, last=2)
    assert kestrane("convert", "warm.npz", "warm.txt", cwd=tmp_path).returncode == 0
    expected.save(tmp_path / "expected.txt")
    assert (tmp_path / "warm.txt").read_bytes() == (tmp_path / "expected.txt").read_bytes()
    assert told["difference"]["max"] == package.compare(table, expected).max
    curve = told["curve"]
    assert curve["temperature"] == [15.0, 25.0, 35.0]
    assert len(curve["shift"]) == 3 and curve["shift"][0][2] == 0.0
    assert curve["shift"][0][0] != 0.0
    assert read_page(tmp_path / "page.html")["schema"] == "kestrane-report/1"


def test_compensate_without_growth_or_fan_keeps_the_table(kestrane, device, table, tmp_path):
    done = kestrane(
        "compensate", device / "rig/table.txt", "-o", "same.txt", "--temperature", 30, "--reference",
        20, cwd=tmp_path,
    )  # fmt: skip
    assert done.returncode == 0, done.stderr
    same = package.PlaneTable.read(tmp_path / "same.txt")
    np.testing.assert_allclose(same.cells, table.cells, rtol=1e-5)


def test_compensate_with_growth_or_fan_needs_their_line(kestrane, device, tmp_path):
    for text in (
        "scale_per_degree = 1e-5\n",
        "scale_per_degree = 1e-5\nextrinsic_t = [0, 0, 0]\n",
        "temperature_spread = 1e-6\n",
        "drift_spread = 1e-6\n",
    ):
        (tmp_path / "rig.toml").write_text(text)
        done = kestrane(
            "compensate", device / "rig/table.txt", "-o", "warm.txt", "--params", "rig.toml",
            "--temperature", 30, "--reference", 20, cwd=tmp_path,
        )  # fmt: skip
        assert done.returncode == 3
        assert "extrinsic_t" in done.stderr
        assert not (tmp_path / "warm.txt").exists()


# --- inspect --------------------------------------------------------------------------------------


def test_inspect_knows_every_kind_of_file(kestrane, device, tmp_path):
    package.Coefficients(np.ones((2, 16, 51, 3)), [[0, 1]]).save(tmp_path / "c.bin")
    (tmp_path / "cloud.txt").write_text("frame x y z\n0 1 2 3\n")
    for path, kind in (
        (device / "rig/table.txt", "table"),
        (device / "rig/run.npz", "run"),
        (device / "rig/report.html", "report"),
        (device / "rig/result.json", "result"),
        (device / "factory.npz", "cloud"),
        (tmp_path / "c.bin", "coefficients"),
        (tmp_path / "cloud.txt", "cloud"),
    ):
        told = json_of(kestrane, "inspect", path, cwd=tmp_path)
        assert told["kind"] == kind
        assert len(told["sha256"]) == 64
        assert f"{kind}, whole" in kestrane("inspect", path).stdout


def test_inspect_tells_counts_and_ranges(kestrane, device, table):
    told = json_of(kestrane, "inspect", "rig/table.txt", cwd=device)
    assert (told["planes"], told["calibrated"], told["blocks"]) == (3, 3, 2250)
    assert told["first"] == table.cells[0, 0, 0].tolist()
    told = json_of(kestrane, "inspect", "factory.npz", cwd=device)
    clouds = package.clouds.read(device / "factory.npz")
    assert told["points"] == 18000 and told["frames"] == [0, 19]
    assert told["planes"][2]["x"] == [clouds[2]["x"].min(), clouds[2]["x"].max()]


def test_inspect_finds_damage_at_any_place(kestrane, device, tmp_path):
    for name in ("rig/table.txt", "rig/run.npz", "rig/report.html", "factory.npz"):
        data = (device / name).read_bytes()
        for size in (len(data) - 9, len(data) // 2):
            cut = tmp_path / name.replace("/", "-")
            cut.write_bytes(data[:size])
            done = kestrane("inspect", cut)
            assert done.returncode == 3, (name, size, done.stdout)
            assert str(cut) in done.stderr and "Traceback" not in done.stderr
    (tmp_path / "noise.dat").write_bytes(bytes(range(256)) * 9)
    assert kestrane("inspect", tmp_path / "noise.dat").returncode == 3


# --- diff -----------------------------------------------------------------------------------------


def shifted(table, path, by):
    """The table with all sheets `by` farther along x."""
    cells = table.cells.copy()
    # x of a sheet is -(b y + c z + 1) / a: a plane through x + by.
    scale = 1.0 / (1.0 - cells[..., 0] * by)
    cells *= scale[..., np.newaxis]
    other = package.PlaneTable(cells, table.whole, table.grid)
    other.save(path)
    return other


def test_diff_tells_a_rigid_motion_and_its_remedy(kestrane, device, table, tmp_path):
    shifted(table, tmp_path / "moved.txt", 0.4)
    done = kestrane("diff", device / "rig/table.txt", "moved.txt", "--volume", "250:800", cwd=tmp_path)
    assert done.returncode == 1, done.stderr
    lines = done.stdout.splitlines()
    assert lines[0].startswith("3 planes, volume 250:800   RMS 0.")
    assert "rigid motion explains 100 %" in lines[1]
    other = package.PlaneTable.read(tmp_path / "moved.txt")
    expected = package.compare(table, other, package.WorkingVolume(250, 800))
    told = json_of(
        kestrane, "diff", device / "rig/table.txt", "moved.txt", "--volume", "250:800", cwd=tmp_path,
        status=1,
    )  # fmt: skip
    assert (told["rms"], told["max"], told["rest"]) == (expected.rms, expected.max, expected.rest)


def test_diff_holds_the_difference_against_its_tolerance(kestrane, device, table, tmp_path):
    shifted(table, tmp_path / "moved.txt", 0.4)
    first = device / "rig/table.txt"
    for tolerance, status in ((0.0, 1), (0.1, 1), (0.5, 0)):
        done = kestrane("diff", first, tmp_path / "moved.txt", "--tolerance", tolerance)
        assert done.returncode == status, done.stdout
    assert kestrane("diff", first, first).returncode == 0
    # A table with all digits and its text have no difference to the last printed one.
    assert kestrane("diff", first, device / "rig/run.npz").returncode == 0
    assert kestrane("diff", first, tmp_path / "moved.txt", "--planes", "1-1").returncode == 1


def test_diff_sees_the_last_digit_and_an_empty_block(kestrane, device, table, tmp_path):
    last = package.PlaneTable(table.cells.copy(), table.whole, table.grid)
    last.cells[2, 14, 49, 2] *= 1.00001
    last.save(tmp_path / "last.txt")
    assert kestrane("diff", device / "rig/table.txt", tmp_path / "last.txt").returncode == 1
    empty = package.PlaneTable(table.cells.copy(), table.whole, table.grid)
    empty.cells[1, 7, 7] = 0.0
    empty.save(tmp_path / "empty.txt")
    done = kestrane("diff", device / "rig/table.txt", tmp_path / "empty.txt", "--tolerance", 10)
    assert done.returncode == 1
    assert "in one table alone: 1 block with a plane" in done.stdout


def test_diff_of_different_devices_is_a_difference(kestrane, device, table, tmp_path):
    package.PlaneTable(table.cells[:2].copy(), table.whole[:2].copy(), table.grid).save(tmp_path / "two.txt")
    told = json_of(kestrane, "diff", device / "rig/table.txt", "two.txt", cwd=tmp_path, status=1)
    assert "3 and 2 planes" in told["refused"]


def test_diff_says_what_to_do(kestrane, device, table, tmp_path):
    shifted(table, tmp_path / "moved.txt", 0.4)
    done = kestrane("diff", device / "rig/table.txt", tmp_path / "moved.txt")
    assert "calibrate in the field first" in done.stdout
    bent = package.PlaneTable(table.cells.copy(), table.whole, table.grid)
    bent.cells[:, ::2] = shifted(table, tmp_path / "x.txt", 0.4).cells[:, ::2]
    bent.save(tmp_path / "bent.txt")
    done = kestrane("diff", device / "rig/table.txt", tmp_path / "bent.txt", "--tolerance", 0.05)
    assert "the shape has changed" in done.stdout


def test_diff_of_coefficients(kestrane, device, tmp_path):
    models = np.stack([np.full((2, 16, 51), v) for v in (0.0, 1.0, -5.0)], axis=-1)
    package.Coefficients(models, [[0, 1]]).save(tmp_path / "a.bin")
    models = models.copy()
    models[1, 3, 4, 2] = -5.25
    package.Coefficients(models, [[0, 1]]).save(tmp_path / "b.bin")
    told = json_of(kestrane, "diff", "a.bin", "b.bin", cwd=tmp_path, status=1)
    assert told["largest"] == [0.25, 0.25, 0.25]
    assert kestrane("diff", "a.bin", "b.bin", "--tolerance", 0.3, cwd=tmp_path).returncode == 0
    assert kestrane("diff", "a.bin", "b.bin", "--planes", "0-0", cwd=tmp_path).returncode == 0
    assert kestrane("diff", "a.bin", "a.bin", cwd=tmp_path).returncode == 0
    done = kestrane("diff", "a.bin", device / "rig/table.txt", cwd=tmp_path)
    assert done.returncode == 3


def test_diff_draws_a_page_of_the_difference(kestrane, device, table, tmp_path):
    shifted(table, tmp_path / "moved.txt", 0.4)
    done = kestrane(
        "diff", device / "rig/table.txt", "moved.txt", "--volume", "250:800", "--report", "d.html",
        cwd=tmp_path,
    )  # fmt: skip
    assert done.returncode == 1, done.stderr
    page = read_page(tmp_path / "d.html")
    assert page["meta"]["kind"] == "difference"
    assert page["meta"]["inputs"][1]["name"] == "moved.txt"
    assert (page["volume"]["near"], page["volume"]["far"], page["volume"]["half_angle"]) == (250, 800, 30)
    other = package.PlaneTable.read(tmp_path / "moved.txt")
    expected = package.compare(table, other, package.WorkingVolume(250, 800))
    drift = next(item for item in page["maps"] if item["id"] == "drift")
    assert drift["planes"] == pytest.approx(expected.planes.rms.tolist(), rel=1e-6)
    assert [finding["text"] for finding in page["meta"]["findings"]] == [
        finding.text for finding in package.judge(expected, {"rms": 0.0}).findings
    ]
    assert "Comparison of two tables" in (tmp_path / "d.html").read_text("utf-8")


def test_diff_refuses_planes_that_are_not_there(kestrane, device, table, tmp_path):
    first = device / "rig/table.txt"
    done = kestrane("diff", first, first, "--planes", "1-3")
    assert done.returncode == 3 and f"{first}: has 3 planes, no plane 3" in done.stderr
    for count, name in ((1, "a.bin"), (2, "b.bin")):
        models = np.full((count, 16, 51, 3), -5.0)
        package.Coefficients(models, [[0, count - 1]]).save(tmp_path / name)
    done = kestrane("diff", "a.bin", "b.bin", cwd=tmp_path)
    assert done.returncode == 3 and "b.bin: 2 planes, a.bin has 1" in done.stderr
    done = kestrane("diff", "a.bin", "a.bin", "--planes", "0-1", cwd=tmp_path)
    assert done.returncode == 3 and "a.bin: has 1 planes, no plane 1" in done.stderr
    done = kestrane("diff", "a.bin", "a.bin", "--report", "d.html", cwd=tmp_path)
    assert done.returncode == 2 and "there is a page for tables and runs alone" in done.stderr


def test_diff_tells_other_ranges_of_coefficients(kestrane, tmp_path):
    models = np.full((2, 16, 51, 3), -5.0)
    package.Coefficients(models, [[0, 1]]).save(tmp_path / "a.bin")
    package.Coefficients(models, [[0, 0], [1, 1]]).save(tmp_path / "b.bin")
    done = kestrane("diff", "a.bin", "b.bin", "--tolerance", 1, cwd=tmp_path)
    assert done.returncode == 1 and "  ranges differ\n" in done.stdout


@pytest.mark.parametrize(
    ("option", "value", "words"),
    [
        ("--planes", "2-1", "'2-1': planes are 0 to 99, the first one first"),
        ("--planes", "0-100", "'0-100': planes are 0 to 99, the first one first"),
        ("--planes", "a", "'a' is not a range of planes like 0-9"),
        ("--volume", "1", "'1' is not Z0:Z1"),
        ("--volume", "1:nan", "'1:nan' is not Z0:Z1"),
        ("--volume", "a:b", "'a:b' is not Z0:Z1"),
        ("--volume", "800:250", "the nearest depth first, then the farthest"),
        ("--tolerance", "a", "'a' is not a number"),
        ("--tolerance", "inf", "'inf' is not a number"),
        ("--tolerance", "-1", "'-1' is not at least 0"),
    ],
)
def test_a_value_that_an_option_cannot_take_is_told(kestrane, device, option, value, words):
    table = device / "rig/table.txt"
    done = kestrane("diff", table, table, f"{option}={value}")
    assert done.returncode == 2 and words in " ".join(done.stderr.split())


# --- convert --------------------------------------------------------------------------------------


def test_convert_refuses_what_a_format_cannot_hold(kestrane, device, tmp_path):
    cloud, table = device / "factory.npz", device / "rig/table.txt"
    for source, target, more, status, words in (
        (table, "a.txt", ("--form", "binary"), 2, "--form is for clouds"),
        (table, "a.ply", (), 2, "'a.ply': a table is written as .txt, .npz or .json"),
        (cloud, "a.stl", (), 2, "'a.stl': its suffix is not one of"),
        (cloud, "a.npy", ("--form", "ascii"), 2, "form"),
        (device / "rig/report.html", "a.json", (), 3, "a report file has no other format"),
    ):
        done = kestrane("convert", source, target, *more, cwd=tmp_path)
        assert done.returncode == status and words in " ".join(done.stderr.split()), done.stderr
        assert not (tmp_path / target).exists()


def test_convert_keeps_tables_to_the_bit(kestrane, device, tmp_path):
    for source, target in (
        (device / "rig/run.npz", "exact.json"),
        ("exact.json", "exact.npz"),
        ("exact.npz", "table.txt"),
        ("exact.npz", "again.json"),
    ):
        assert kestrane("convert", source, target, cwd=tmp_path).returncode == 0
    assert (tmp_path / "table.txt").read_bytes() == (device / "rig/table.txt").read_bytes()
    assert (tmp_path / "again.json").read_bytes() == (tmp_path / "exact.json").read_bytes()


def test_convert_keeps_coefficients_to_the_bit(kestrane, tmp_path):
    rng = np.random.default_rng(3)
    models = rng.normal(size=(3, 16, 51, 3))
    models[1] = np.nan  # a plane without coefficients
    package.Coefficients(models, [[0, 2], [1, 2]]).save(tmp_path / "a.bin")
    for source, target in (("a.bin", "b.json"), ("b.json", "c.npz"), ("c.npz", "d.bin")):
        done = kestrane("convert", source, target, cwd=tmp_path)
        assert done.returncode == 0, done.stderr
    assert (tmp_path / "d.bin").read_bytes() == (tmp_path / "a.bin").read_bytes()


def test_convert_keeps_clouds(kestrane, device, tmp_path):
    steps = [device / "factory.npz", "a.ply", "b.csv", "c.pcd", "d.npy", "e.npz"]
    for source, target in zip(steps, steps[1:], strict=False):
        form = ("--form", "compressed") if target == "c.pcd" else ()
        done = kestrane("convert", source, target, *form, cwd=tmp_path)
        assert done.returncode == 0, done.stderr
    assert (tmp_path / "e.npz").read_bytes() == (device / "factory.npz").read_bytes()


@pytest.mark.parametrize(
    "change",
    [
        lambda t: t.replace('"cells"', '"cell"'),
        lambda t: t.replace("kestrane-table/1", "kestrane-table/9"),
        lambda t: t[:-200],
        lambda t: t.replace("[[[[", "[[[[null, ", 1),
        lambda t: t.replace('"z_start": 150.0', '"z_start": "150"'),
        lambda t: t.replace('"z_start": 150.0', '"z_start": null'),
        lambda t: t.replace('"z_start": 150.0', '"z_start": NaN'),
    ],
)
def test_a_damaged_json_is_refused(kestrane, device, tmp_path, change):
    assert kestrane("convert", device / "rig/table.txt", tmp_path / "t.json").returncode == 0
    text = (tmp_path / "t.json").read_text()
    changed = change(text)
    assert changed != text
    (tmp_path / "bad.json").write_text(changed)
    done = kestrane("convert", tmp_path / "bad.json", tmp_path / "new.txt")
    assert done.returncode == 3, done.stdout
    assert "bad.json" in done.stderr and "Traceback" not in done.stderr
    assert not (tmp_path / "new.txt").exists()


# --- report, simulate -----------------------------------------------------------------------------


def test_report_draws_the_page_again_and_judges_by_other_limits(kestrane, device, tmp_path):
    done = kestrane("report", device / "rig/run.npz", "-o", "page.html", cwd=tmp_path)
    assert done.returncode == 0, done.stderr
    assert (tmp_path / "page.html").read_bytes() == (device / "rig/report.html").read_bytes()
    (tmp_path / "limits.toml").write_text("[limits]\nrms = 0.001\n")
    done = kestrane(
        "report", device / "rig/run.npz", "-o", "strict.html", "--limits", "limits.toml", cwd=tmp_path
    )
    assert done.returncode == 0, done.stderr
    assert "ot fit for use" in (tmp_path / "strict.html").read_text()


def test_report_joins_a_table_or_another_run(kestrane, device, tmp_path):
    assert kestrane("field", "rig/table.txt", "field.npz", "-o", "joined", cwd=device).returncode == 0
    for other in (device / "joined/run.npz", device / "rig/table.txt"):
        done = kestrane("report", device / "rig/run.npz", "-o", "p.html", "--compare", other, cwd=tmp_path)
        assert done.returncode == 0, done.stderr
        assert read_page(tmp_path / "p.html")


def test_simulate_makes_the_same_clouds_from_the_same_seed(kestrane, device, tmp_path):
    for name, options in (("a", ()), ("b", ()), ("c", ("--seed", 2))):
        done = kestrane("simulate", "-o", f"{name}.npz", "--planes", 3, "--points", 6000, *options, cwd=tmp_path)
        assert done.returncode == 0, done.stderr
    same = (tmp_path / "a.npz").read_bytes()
    assert same == (tmp_path / "b.npz").read_bytes() == (device / "factory.npz").read_bytes()
    assert same != (tmp_path / "c.npz").read_bytes()
    clouds = package.clouds.read(tmp_path / "a.npz")
    assert {p: c.size for p, c in clouds.items()} == {0: 6000, 1: 6000, 2: 6000}


def test_simulate_moves_the_device_by_milliradians(kestrane, tmp_path):
    assert kestrane("simulate", "-o", "a.npz", "--motion", "1,2,3,0,0,5", cwd=tmp_path).returncode == 0
    expected = _simulation.measure(field=True, motion=[0.001, 0.002, 0.003, 0, 0, 5])
    assert (package.clouds.read(tmp_path / "a.npz")[7] == expected[7]).all()
