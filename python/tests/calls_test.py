"""What the calls refuse, and what they raise: each status, each file error, each precondition."""

from __future__ import annotations

import errno
import os
import resource
import subprocess
import sys
from pathlib import Path

import numpy as np
import pytest
from hypothesis import HealthCheck, given, settings
from hypothesis import strategies as st

import kestrane
from kestrane import (
    POINT,
    Coefficients,
    Condition,
    DamagedFile,
    FactorySettings,
    FieldSettings,
    FileOpenError,
    KestraneError,
    PlaneTable,
    RefinementSettings,
    WorkingVolume,
    _core,
    jobs,
)


@pytest.fixture(scope="module")
def table(clouds) -> PlaneTable:
    return jobs.factory_calibrate(clouds).table


@pytest.fixture(scope="module")
def source() -> Coefficients:
    return Coefficients(np.full((3, 16, 51, 3), [0.1, -1.0, 120.0]), [[0, 2]])


# --- statuses -------------------------------------------------------------------------------------


def test_a_plane_that_fails_raises_with_strict_and_says_why(clouds):
    few = clouds[1][:150]
    with pytest.raises(kestrane.CalibrationFailed, match="plane 1: 150 of 150 points") as caught:
        jobs.factory_calibrate([clouds[0], few], strict=True)
    assert caught.value.status == -1 and caught.value.call == "factory_calibrate"
    metres = clouds[1].copy()
    for name in "xyz":
        metres[name] /= 1000
    with pytest.raises(kestrane.CalibrationFailed, match="0 of 6000 points .* metres"):
        jobs.factory_calibrate([metres], strict=True)
    with pytest.raises(kestrane.InvalidParameter, match="plane 0: no points") as caught:
        jobs.factory_calibrate([np.empty((0, 3))], strict=True)
    assert isinstance(caught.value, ValueError) and caught.value.status == -7


STARVED = """
import resource, numpy as np, kestrane
cloud = np.zeros(2_000_000, kestrane.POINT)
cloud["x"], cloud["z"] = 100, np.linspace(100, 1000, len(cloud))
size = int(open("/proc/self/statm").read().split()[0]) * resource.getpagesize()
resource.setrlimit(resource.RLIMIT_AS, (size + (20 << 20),) * 2)
try:
    kestrane.jobs.factory_calibrate([cloud], threads=1)
except kestrane.OutOfMemory as error:
    print("caught", isinstance(error, MemoryError), error.status)
"""


@pytest.mark.skipif(not _core.release_build, reason="sanitizers need the address space")
def test_memory_that_cannot_be_had_is_out_of_memory():
    said = subprocess.run(
        [sys.executable, "-c", STARVED], check=True, stdout=subprocess.PIPE, text=True
    ).stdout
    assert said == "caught True -2\n"


def test_lists_that_do_not_fit_the_range(table, frames, source):
    with pytest.raises(kestrane.CountMismatch) as caught:
        jobs.field_calibrate(table, frames, first=0, last=1)
    assert caught.value.status == -14 and isinstance(caught.value, ValueError)
    with pytest.raises(kestrane.CountMismatch):
        jobs.field_calibrate_coefficients(table, frames, source, first=0, last=1)


def test_a_range_that_the_coefficients_do_not_have(table, frames, source):
    with pytest.raises(kestrane.RangeUnknown) as caught:
        jobs.field_calibrate_coefficients(table, frames[:2], source, first=0, last=1)
    assert caught.value.status == -15 and isinstance(caught.value, LookupError)
    with pytest.raises(kestrane.EmptyRange) as caught:
        jobs.field_calibrate_coefficients(table, frames[:1], source, first=0, last=0)
    assert caught.value.status == -18 and isinstance(caught.value, ValueError)
    full = Coefficients(source.models, [[0, 2]] * 20)
    with pytest.raises(kestrane.InvalidParameter):
        jobs.field_calibrate_coefficients(table, frames, full, first=0, last=2)


def test_points_that_cannot_be_prepared_and_a_solve_that_gives_nothing(table, frames, source):
    with pytest.raises(kestrane.FitFailed) as caught:
        empty = [frames[0], frames[1], frames[2][:0]]
        jobs.field_calibrate_coefficients(table, empty, source, first=0, last=2)
    assert caught.value.status == -16 and isinstance(caught.value, ArithmeticError)
    # Frame 3 is spared by the filter although it begins with points that are not numbers.
    flat = PlaneTable(np.full((1, 15, 50, 3), [-1 / 128, 0, 0]), np.array([[-1 / 128, 0, 0]]))
    spared = [(129.0, 2.0 * i - 12, 230.0 + 10.0 * (i * 5 % 12), 3) for i in range(12)]
    none = np.nan
    list_ = [(none, 0, 300, 0), (129, 0, 300, 2), (none, 0, 300, 3), (none, 0, 300, 3), *spared]
    with kestrane.quiet(), pytest.raises(kestrane.SolveFailed) as caught:
        jobs.field_calibrate(flat, [list_])
    assert caught.value.status == -17 and caught.value.call == "field_calibrate"


def test_no_call_can_bring_a_null_pointer_or_an_engine_that_is_not_ready(table, frames):
    # Records are laid over arrays, engines come from the pool after their `init`: what is no array
    # is refused before.
    for nothing in (None, 0, "table"):
        with pytest.raises(ValueError):
            jobs.field_calibrate(nothing, frames)
        with pytest.raises(ValueError):
            jobs.compensate(nothing, Condition(20, 20), [1, 0, 0])
    broken = table.copy()
    broken.cells = None  # type: ignore[assignment]
    with pytest.raises(ValueError):
        jobs.field_calibrate(broken, frames)
    broken.cells = np.zeros((3, 15, 49, 3))
    with pytest.raises(ValueError):
        broken.lookup(0, 300)


# --- files ----------------------------------------------------------------------------------------


def test_a_file_that_the_system_refuses_has_its_errno_and_name(tmp_path, table, source):
    missing = tmp_path / "missing" / "file"
    for call in (
        lambda: PlaneTable.read(missing),
        lambda: Coefficients.read(missing),
        lambda: table.save(missing),
        lambda: source.save(missing),
    ):
        with pytest.raises(FileOpenError) as caught:
            call()
        assert caught.value.errno == errno.ENOENT and caught.value.filename == str(missing)
        assert isinstance(caught.value, OSError) and caught.value.status == -8
    with pytest.raises(FileOpenError) as caught:
        PlaneTable.read(tmp_path)
    assert caught.value.errno == errno.EISDIR
    with pytest.raises(ValueError, match="null"):
        PlaneTable.read("a\0b")


def test_a_path_in_no_encoding_comes_back_as_it_went(tmp_path, table):
    odd = os.fsencode(tmp_path) + b"/-x \xff y.txt"
    table.save(odd)
    assert PlaneTable.read(odd).planes == 3
    os.truncate(odd, 100)
    with pytest.raises(DamagedFile) as caught:
        PlaneTable.read(os.fsdecode(odd))
    assert caught.value.path == os.fsdecode(odd)


def test_a_full_disk_leaves_the_old_file(tmp_path, table):
    path = tmp_path / "table.txt"
    table.save(path)
    before = path.read_bytes()
    soft, hard = resource.getrlimit(resource.RLIMIT_FSIZE)
    try:
        resource.setrlimit(resource.RLIMIT_FSIZE, (4096, hard))
        with pytest.raises(FileOpenError) as caught:
            table.save(path)
    finally:
        resource.setrlimit(resource.RLIMIT_FSIZE, (soft, hard))
    assert caught.value.errno == errno.EFBIG
    assert path.read_bytes() == before and os.listdir(tmp_path) == ["table.txt"]


@pytest.mark.parametrize("kind", [PlaneTable, Coefficients])
def test_a_file_cut_at_any_byte_is_damaged(tmp_path, clouds, kind):
    whole = tmp_path / "whole"
    if kind is PlaneTable:
        jobs.factory_calibrate(clouds[:1]).table.save(whole)
    else:
        Coefficients(np.full((1, 16, 51, 3), [0.1, -1, 120]), [[0, 0]]).save(whole)
    size = whole.stat().st_size
    cut = tmp_path / "cut"
    cut.write_bytes(whole.read_bytes())
    kind.read(cut)
    step = 1 if _core.release_build else 41
    for length in range(size - 1, -1, -step):
        os.truncate(cut, length)
        with pytest.raises(DamagedFile):
            kind.read(cut)


def test_numbers_that_no_file_can_hold_are_refused(tmp_path, table, source):
    broken = table.copy()
    broken.cells[1, 2, 3, 0] = np.inf
    with pytest.raises(ValueError):
        broken.save(tmp_path / "t")
    with pytest.raises(ValueError):
        PlaneTable(np.zeros((0, 15, 50, 3)), np.zeros((0, 3))).save(tmp_path / "t")
    partly = source.copy()
    partly.models[0, 0, 0, 0] = np.nan
    with pytest.raises(ValueError):
        partly.save(tmp_path / "c")
    assert os.listdir(tmp_path) == []


def test_a_plane_without_coefficients_survives_its_file(tmp_path, source):
    source = source.copy()
    source.models[1] = np.nan
    source.save(tmp_path / "c")
    assert Coefficients.read(tmp_path / "c") == source
    assert np.isnan(source.x_at(25)[1]).all()
    assert not source.table_at(25).calibrated[1]


# --- violated preconditions -----------------------------------------------------------------------

ANYTHING = st.one_of(
    st.none(),
    st.integers(-(2**70), 2**70),
    st.floats(),
    st.text(max_size=3),
    st.booleans(),
    st.lists(st.floats(), max_size=4),
)
NUMBERS = st.one_of(st.integers(-3, 103), st.integers(), st.sampled_from([2**31 - 1, -(2**31)]))
SHAPES = st.lists(st.integers(0, 4), max_size=4).map(tuple)
DTYPES = st.sampled_from(["f8", "f4", ">f8", "i4", "i8", "u1", "?", "c16", "O", "U3", "M8[s]", POINT])
ARRAYS = st.tuples(SHAPES, DTYPES).map(lambda of: np.zeros(*of))
# The same examples in every run; KESTRANE_EXAMPLES=2000 searches farther, and elsewhere each time.
MANY = os.environ.get("KESTRANE_EXAMPLES")
BROKEN = settings(
    max_examples=int(MANY or (150 if _core.release_build else 40)),
    derandomize=MANY is None,
    database=None,
    deadline=None,
    suppress_health_check=[HealthCheck.function_scoped_fixture, HealthCheck.too_slow],
)

# What a call may end with beside a result. A violated precondition would end the process instead.
REFUSALS = (ValueError, KestraneError)


def refused_or_done(call) -> None:
    try:
        with kestrane.quiet():
            call()
    except REFUSALS:
        pass


def test_a_single_cloud_is_no_device(clouds):
    for single in (clouds[0], np.zeros((9, 3)), np.array(None), np.array(3.0), "clouds", 7):
        for call in (jobs.factory_calibrate, kestrane.calibrate_factory, kestrane.refine):
            with pytest.raises(ValueError, match="clouds"):
                call(single)
    stacked = np.stack([np.zeros((300, 3))] * 2)
    assert jobs.factory_calibrate(stacked).status.tolist() == [-1, -1]


@BROKEN
@given(st.one_of(ARRAYS, ANYTHING, st.lists(st.one_of(ARRAYS, ANYTHING), max_size=3)), ANYTHING)
def test_any_clouds(clouds, threads):
    refused_or_done(lambda: jobs.factory_calibrate(clouds, threads=1))
    refused_or_done(lambda: kestrane.calibrate_factory(clouds, threads=1))
    refused_or_done(lambda: kestrane.refine(clouds, threads=1))
    refused_or_done(lambda: kestrane.screen_cloud(clouds))
    if threads is not None and not (isinstance(threads, int) and threads > 0):
        with pytest.raises(ValueError):
            jobs.factory_calibrate([np.zeros((3, 3))], threads=threads)


@BROKEN
@given(st.dictionaries(st.one_of(NUMBERS, ANYTHING.filter(lambda v: not isinstance(v, list))), ARRAYS))
def test_any_mapping(clouds):
    for call in (jobs.factory_calibrate, kestrane.calibrate_factory):
        refused_or_done(lambda call=call: call(clouds, threads=1))


@BROKEN
@given(st.integers(0, 120))
def test_any_number_of_planes(planes):
    cells, whole = np.zeros((planes, 15, 50, 3)), np.zeros((planes, 3))
    if planes > 100:
        with pytest.raises(ValueError, match="100"):
            PlaneTable(cells, whole)
        with pytest.raises(ValueError, match="100"):
            jobs.factory_calibrate([np.zeros((1, 3))] * planes)
        with pytest.raises(ValueError, match="100"):
            kestrane.calibrate_factory([np.zeros((1, 3))] * planes)
        with pytest.raises(ValueError, match="100"):
            Coefficients(np.zeros((planes, 16, 51, 3)))
        return
    table = PlaneTable(cells, whole)
    table.cells, table.whole = np.zeros((planes + 100, 15, 50, 3)), np.zeros((planes + 100, 3))
    if planes > 0:
        with pytest.raises(ValueError, match="100"):
            kestrane.compare(table, table)


@BROKEN
@given(NUMBERS, NUMBERS, st.integers(0, 4))
def test_any_range_of_the_field(table, frames, source, first, last, lists):
    some = (frames * 2)[:lists]
    refused_or_done(lambda: jobs.field_calibrate(table, some, first=first, last=last))
    refused_or_done(lambda: jobs.field_calibrate(table, some, first=first))
    refused_or_done(
        lambda: jobs.field_calibrate_coefficients(table, some, source, first=first, last=last)
    )
    refused_or_done(lambda: kestrane.calibrate_field(table, some, FieldSettings(first=first)))
    refused_or_done(lambda: kestrane.screen_frames(some, table, FieldSettings(first=first)))
    if not 0 <= first <= 2:
        with pytest.raises(ValueError):
            jobs.field_calibrate(table, frames[:1], first=first)


@BROKEN
@given(NUMBERS, NUMBERS)
def test_any_range_of_the_compensation(table, first, last):
    call = lambda: jobs.compensate(table, Condition(30, 20), [1, 0, 0], first=first, last=last)  # noqa: E731
    if 0 <= first <= last <= 3:
        call()
    else:
        with pytest.raises(ValueError):
            call()


@BROKEN
@given(NUMBERS, ARRAYS, ARRAYS)
def test_any_place_of_a_table(table, plane, y, z):
    refused_or_done(lambda: table.lookup(y, z))
    refused_or_done(lambda: table.x_at(plane, y, z))
    refused_or_done(lambda: table.distances(plane, y))
    refused_or_done(lambda: jobs.distances(table, plane, y))
    if not 0 <= plane <= 2:
        with pytest.raises(ValueError):
            table.x_at(plane, 0, 300)
        with pytest.raises(ValueError):
            jobs.distances(table, plane, np.zeros((1, 3)))


@BROKEN
@given(ARRAYS, ARRAYS, ARRAYS, st.floats())
def test_any_arrays_of_tables_and_coefficients(table, a, b, c, number):
    refused_or_done(lambda: PlaneTable(a, b))
    refused_or_done(lambda: Coefficients(a, b, c))
    refused_or_done(lambda: jobs.compensate(table, Condition(number, 20), a))
    refused_or_done(lambda: jobs.distances(table, 0, np.zeros((1, 3)), a, b))
    changed = table.copy()
    changed.cells, changed.whole = a, b
    refused_or_done(lambda: kestrane.compare(changed, table))
    refused_or_done(lambda: changed.lookup(0, 0))


@BROKEN
@given(
    st.floats(),
    st.integers(-5, 60),
    st.floats(),
    st.floats(),
    st.floats(),
    st.floats(),
)
def test_any_setting(clouds, gross, folds, cut, near, far, angle):
    cloud = clouds[0][::20]
    refused_or_done(lambda: kestrane.screen_cloud(cloud, kestrane.CloudSettings(gross=gross)))
    volume = WorkingVolume(near, far, angle)
    some = FactorySettings(gross=gross, volume=volume, repeatability=False)
    refused_or_done(lambda: kestrane.calibrate_factory([cloud], some))
    some = RefinementSettings(folds, cut, cut, abs(cut), near, far)
    refused_or_done(lambda: kestrane.refine([cloud], some))
    if not gross > 0:
        with pytest.raises(ValueError):
            kestrane.screen_cloud(cloud, kestrane.CloudSettings(gross=gross))
    if not 3 <= folds <= 40:
        with pytest.raises(ValueError):
            kestrane.refine([cloud], RefinementSettings(folds=folds))


@BROKEN
@given(st.dictionaries(st.sampled_from(["rms", "p99", "coverage", "seam", "nonsense"]), st.floats()))
def test_any_limits(clouds, limits):
    result = kestrane.screen_cloud(clouds[0])  # nothing to judge
    with pytest.raises(ValueError):
        kestrane.judge(result, limits)  # type: ignore[arg-type]
    good = "nonsense" not in limits and all(limit >= 0 for limit in limits.values())
    if good:
        kestrane.conclude([], limits)
    else:
        with pytest.raises(ValueError):
            kestrane.conclude([], limits)


@BROKEN
@given(st.lists(st.tuples(NUMBERS, NUMBERS), max_size=25))
def test_any_ranges_of_coefficients(ranges):
    models = np.ones((1, 16, 51, 3))
    numbers = [number for pair in ranges for number in pair]
    good = len(ranges) <= 20 and all(0 <= number < 100 for number in numbers)
    if good:
        assert Coefficients(models, ranges).ranges.shape == (len(ranges), 2)
    else:
        with pytest.raises(ValueError):
            Coefficients(models, ranges)


def test_settings_come_as_they_are_or_by_name(clouds, table):
    by_name = {"gross": 2.0, "refine": 1, "volume": {"depth_far": 800}}
    settings_ = FactorySettings(
        gross=2.0, refine=kestrane.Refine.ESTIMATE, volume=WorkingVolume(depth_far=800)
    )
    assert kestrane.calibrate_factory(clouds, by_name).settings == settings_
    assert kestrane.calibrate_factory(clouds, settings_).settings == settings_
    assert kestrane.compare(table, table, {"depth_near": 400}).blocks < 3 * 750
    for wrong in ({"gros": 2.0}, 3, "gross", {"refine": 7}, {"volume": {"near": 3}}):
        with pytest.raises(ValueError):
            kestrane.calibrate_factory(clouds, wrong)


def test_a_mask_is_not_overlooked(clouds):
    masked = np.ma.masked_array(np.zeros((300, 3)), mask=True)
    for call in (kestrane.screen_cloud, lambda cloud: jobs.factory_calibrate([cloud])):
        with pytest.raises(ValueError, match="masked"):
            call(masked)
    with pytest.raises(ValueError, match="masked"):
        PlaneTable(np.ma.zeros((1, 15, 50, 3)), np.zeros((1, 3)))


def test_results_print_what_they_are(clouds, frames, table):
    few = clouds[1][:100]
    assert repr(jobs.factory_calibrate(clouds)) == "<FactoryResult of 3 planes, all calibrated>"
    told = repr(kestrane.calibrate_factory([clouds[0], few]))
    assert told.startswith("<FactoryQuality of 2 planes, failed: 1, RMS 0.1")
    assert "refused: no plane" in repr(kestrane.calibrate_factory([few]))
    with kestrane.quiet():
        assert repr(jobs.field_calibrate(table, frames)).startswith("<FieldResult: t [")
        assert "moved by 0." in repr(kestrane.calibrate_field(table, frames))
        assert "refused" in repr(kestrane.calibrate_field(table, [frames[0], few[:0], frames[2]]))
    assert repr(table) == "<PlaneTable of 3 planes, 3 calibrated>"


@BROKEN
@given(
    st.dictionaries(
        st.sampled_from(["gross", "far", "refine", "volume", "first", "folds", "cut", "frames"]),
        ANYTHING,
        max_size=2,
    )
)
def test_settings_of_any_kind(clouds, frames, table, some):
    cloud = clouds[0][::20]
    refused_or_done(lambda: kestrane.calibrate_factory([cloud], some, threads=1))
    refused_or_done(lambda: kestrane.calibrate_field(table, frames[:1], some))
    refused_or_done(lambda: kestrane.refine([cloud], some, threads=1))
    refused_or_done(lambda: kestrane.screen_cloud(cloud, some))
    refused_or_done(lambda: kestrane.compare(table, table, some))
    refused_or_done(lambda: kestrane.judge(kestrane.compare(table, table), some))


def test_jobs_take_any_number_as_the_library_does(table, clouds, source):
    still = jobs.compensate(table, Condition(30, 20), [0, 0, 0])
    assert np.isnan(still.cells).any()
    assert jobs.compensate(table, Condition(np.nan, 20), [1, 0, 0]).planes == 3
    jobs.update_coefficients(jobs.factory_calibrate(clouds), float("nan"), source)


def test_more_points_than_32_bits_count_are_refused():
    endless = np.lib.stride_tricks.as_strided(np.zeros(1, POINT), (2**31,), (0,))
    # Not in one piece, so it would have to be copied: the core itself refuses by number.
    with pytest.raises(ValueError):
        _core.screen_cloud(endless, 3.0, False)


def test_the_core_converts_nothing():
    for wrong in (
        np.zeros(4, POINT)[::2],
        np.zeros((2, 2), POINT),
        np.zeros(4, POINT.newbyteorder()),
        np.zeros(4),
        [(0.0, 0.0, 0.0, 0)],
    ):
        with pytest.raises(ValueError, match="points"):
            _core.screen_cloud(wrong, 3.0, False)
    unaligned = np.zeros(65, np.uint8)[1:].view(POINT)
    with pytest.raises(ValueError, match="piece"):
        _core.screen_cloud(unaligned, 3.0, False)


def test_the_finder_of_the_package_says_its_version():
    root = Path(__file__).parents[2]
    if (root / "CMakeLists.txt").exists():
        assert f"project(kestrane VERSION {kestrane.__version__} " in (
            root / "CMakeLists.txt"
        ).read_text()
