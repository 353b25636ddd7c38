"""`kestrane calibrate`: clouds in, a folder with table, run file, page and result out."""

from __future__ import annotations

import os
from collections.abc import Sequence
from dataclasses import dataclass
from typing import TYPE_CHECKING, Any

import click

from kestrane_tools.cli import options
from kestrane_tools.cli.stop import Status, Stop

if TYPE_CHECKING:
    import kestrane
    from kestrane_tools.cli.inputs import Clouds
    from kestrane_tools.run_file import Run


@dataclass(frozen=True)
class Options:
    """What the command line asks for."""

    paths: tuple[str, ...]
    folder: str
    optimise: bool
    far: bool
    repeatability: bool
    refine: bool
    raw: bool
    partial: bool
    threads: int | None
    limits_path: str | None
    device_path: str | None
    coefficients: str | None
    condition: float | None
    compare: str | None
    json_target: str | None
    report_path: str | None
    plane: int | None
    columns: str | None
    unit: float
    quiet: bool


@click.command(
    "calibrate", epilog=options.example("kestrane calibrate clouds.npz -o rig --limits limits.toml")
)
@click.argument("paths", metavar="CLOUDS...", nargs=-1, required=True, type=options.FILE)
@click.option("-o", "--output", "folder", metavar="DIR", required=True, type=options.FILE,
              help="Folder of the results; made if it is not there.")  # fmt: skip
@click.option("--optimise/--no-optimise", default=False, show_default=True,
              help="Let the grid corners follow the points of their cells.")  # fmt: skip
@click.option("--far", is_flag=True, help="Fit depths 220 to 1000 instead of 100 to 1000.")
@options.judging_options
@click.option("--repeatability/--no-repeatability", default=True, show_default=True,
              help="Calibrate the even and the odd frames as well.")  # fmt: skip
@click.option("--refine", is_flag=True,
              help="The refined table becomes table.txt. Not with --optimise.")  # fmt: skip
@click.option("--raw", is_flag=True, help="No screening: the job gets every point as it is.")
@click.option("--coefficients", metavar="OLD", type=options.FILE,
              help="Bring these up to date in DIR/coefficients.bin; with --condition.")  # fmt: skip
@click.option("--condition", metavar="T", type=options.NUMBER,
              help="The condition, mostly a temperature, of this run.")  # fmt: skip
@click.option("--compare", metavar="TABLE", type=options.FILE,
              help="Tell how far the device is from this table.")  # fmt: skip
@click.option("--threads", type=click.IntRange(1, 1024), help="Planes at a time; all cores.")
@click.option("--partial", is_flag=True, help="Write a table even if planes have failed.")
@options.cloud_options
@options.json_option
@options.report_option
@click.pass_context
def command(ctx: click.Context, **given: Any) -> int:
    """Calibrate a device from measured clouds and judge what came out.

    DIR gets table.txt for the host, run.npz with all figures, report.html and result.json. If a plane
    fails, only result.json is written, unless --partial is given.
    """
    wanted = Options(quiet=ctx.obj["quiet"], **given)
    check(wanted)
    return _Run(wanted).status()


def check(wanted: Options) -> None:
    """Refuse options that exclude or need each other.

    Raises
    ------
    click.UsageError
        They do.
    """
    if wanted.refine and wanted.optimise:
        raise click.UsageError(
            "--refine and --optimise: the refined table has no optimised corners"
        )
    if (wanted.coefficients is None) != (wanted.condition is None):
        raise click.UsageError("--coefficients and --condition come together")


def options_of(arguments: Sequence[str]) -> Options:
    """What a command line asks for, without running it.

    Parameters
    ----------
    arguments : sequence of str
        What follows ``kestrane calibrate``.

    Raises
    ------
    click.UsageError
        It is not understood.
    """
    with command.make_context("calibrate", list(arguments)) as context:
        wanted = Options(quiet=False, **context.params)
    check(wanted)
    return wanted


def settings_of(wanted: Options, volume: kestrane.WorkingVolume | None) -> kestrane.FactorySettings:
    """The settings of the calibration that is asked for."""
    import kestrane

    return kestrane.FactorySettings(
        far=wanted.far,
        optimise=wanted.optimise,
        screen=not wanted.raw,
        repeatability=wanted.repeatability,
        volume=volume,
        refine=kestrane.Refine.ALL if wanted.refine else kestrane.Refine.ESTIMATE,
    )


def told_settings(wanted: Options, settings: kestrane.FactorySettings) -> dict[str, Any]:
    """The settings as `result.json` has them: all that a result depends on beside its files."""
    from kestrane_tools.cli.settings import factory_settings

    reading = {name: getattr(wanted, name) for name in ("unit", "plane", "columns", "partial")}
    return {**factory_settings(settings), **reading}


class _Run:
    """One calibration, from the files to the files."""

    def __init__(self, wanted: Options) -> None:
        from kestrane_tools.cli.console import Summary
        from kestrane_tools.cli.files import make_folder
        from kestrane_tools.cli.inputs import described, read_clouds, read_coefficients, read_table
        from kestrane_tools.cli.toml_files import Limits, read_device, read_limits

        self.wanted = wanted
        self.shown = Summary(not wanted.quiet and wanted.json_target != "-")
        self.limits: Limits = read_limits(wanted.limits_path) if wanted.limits_path else Limits()
        self.device = read_device(wanted.device_path) if wanted.device_path else {}
        self.other = read_table(wanted.compare) if wanted.compare else None
        self.old = read_coefficients(wanted.coefficients) if wanted.coefficients else None
        self.clouds: Clouds = read_clouds(wanted.paths, wanted.plane, wanted.columns, wanted.unit)
        count = sum(cloud.size for cloud in self.clouds.values())
        self.inputs = described(wanted.paths, count)
        self.difference: kestrane.Difference | None = None
        make_folder(wanted.folder)

    def status(self) -> int:
        self._tell_input()
        result = self._calibrate()
        failed = self._failed(result)
        judgement = self._judge(result)
        if result.refused or (failed and not self.wanted.partial):
            return self._give_up(result, judgement, failed)
        return self._write(result, judgement, failed)

    # --- the calls --------------------------------------------------------------------------------

    def _calibrate(self) -> kestrane.FactoryQuality:
        import kestrane
        from kestrane_tools.cli.console import progress

        wanted = self.wanted
        settings = settings_of(wanted, self._volume())
        with progress("calibrating", max(self.clouds) + 1) as advance:
            return kestrane.calibrate_factory(
                self.clouds, settings, threads=wanted.threads, on_plane=lambda *_: advance()
            )

    def _volume(self) -> kestrane.WorkingVolume | None:
        from kestrane_tools.cli.settings import volume_of

        return volume_of(self.limits, far=self.wanted.far)

    def _failed(self, result: kestrane.FactoryQuality) -> dict[int, str]:
        # Measured planes without a row in the table that is to be written, and why.
        failed = {p: why for p, why in enumerate(result.reasons) if why and p in self.clouds}
        if result.refined is not None:
            for plane, why in enumerate(result.refined.refused):
                if why and plane in self.clouds:
                    failed.setdefault(plane, f"not refined: {why}")
        return failed

    def _judge(self, result: kestrane.FactoryQuality) -> kestrane.Judgement:
        import kestrane
        from kestrane_tools.cli.inputs import reading

        judgement = kestrane.judge(result, self.limits.limits)
        if self.other is None or result.refused:
            return judgement
        with reading(str(self.wanted.compare)):
            self.difference = kestrane.compare(self.other, self._table(result), result.volume)
        more = kestrane.judge(self.difference, self.limits.limits)
        return kestrane.conclude(judgement.findings + more.findings, self.limits.limits)

    def _table(self, result: kestrane.FactoryQuality) -> kestrane.PlaneTable:
        return result.table if result.refined is None else result.refined.table

    # --- the files --------------------------------------------------------------------------------

    def _write(
        self,
        result: kestrane.FactoryQuality,
        judgement: kestrane.Judgement,
        failed: dict[int, str],
    ) -> int:
        from kestrane_tools.cli.files import saving
        from kestrane_tools.cli.inputs import sha256_of
        from kestrane_tools.report.render import write_page

        folder = self.wanted.folder
        table_path = os.path.join(folder, "table.txt")
        with saving(table_path):
            saved = self._table(result).save(table_path)
        outputs = [{"name": "table.txt", "sha256": sha256_of(table_path)}]
        if self.old is not None:
            outputs.append(self._update_coefficients(result))
        run = self._run_of(result, judgement, outputs)
        run_path = os.path.join(folder, "run.npz")
        pages = [os.path.join(folder, "report.html"), *filter(None, [self.wanted.report_path])]
        with saving(run_path):
            run.save(run_path)
        for page in pages:
            with saving(page):
                write_page(run, page)
        others = [os.path.join(folder, str(item["name"])) for item in outputs[1:]]
        outcome = self._outcome(result, judgement, outputs)
        self._deliver(outcome)
        self._tell(result, judgement, failed)
        self.shown.line(
            f"{table_path} (rounded to 6 digits: x within {saved.largest_move:.2g})  "
            f"{'  '.join([*others, run_path, *pages])}"
        )
        return Status.FOUND if judgement.worst == "bad" else Status.DONE

    def _give_up(
        self,
        result: kestrane.FactoryQuality,
        judgement: kestrane.Judgement,
        failed: dict[int, str],
    ) -> int:
        from kestrane_tools.cli.words import listed

        self._deliver(self._outcome(result, judgement, []))
        self._tell(result, judgement, failed)
        if result.refused:
            message = f"refused: {result.refused}"
        else:
            pieces = [f"plane {plane}: {why}" for plane, why in failed.items()]
            message = f"no table: {listed(pieces, 4)}; --partial writes the others"
        old = [n for n in ("table.txt", "run.npz", "report.html") if self._is_there(n)]
        if old:
            message += f"; {', '.join(old)} in {self.wanted.folder} are of an earlier run"
        raise Stop(Status.FAILED, message)

    def _is_there(self, name: str) -> bool:
        return os.path.exists(os.path.join(self.wanted.folder, name))

    def _update_coefficients(self, result: kestrane.FactoryQuality) -> dict[str, Any]:
        from kestrane import jobs
        from kestrane_tools.cli.files import saving
        from kestrane_tools.cli.inputs import sha256_of

        assert self.wanted.condition is not None  # comes with the coefficients
        try:
            updated = jobs.update_coefficients(result, self.wanted.condition, self.old)
        except ValueError as error:
            raise Stop(Status.FAILED, f"{self.wanted.coefficients}: {error}") from None
        path = os.path.join(self.wanted.folder, "coefficients.bin")
        with saving(path):
            updated.save(path)
        return {"name": "coefficients.bin", "sha256": sha256_of(path)}

    def _run_of(
        self,
        result: kestrane.FactoryQuality,
        judgement: kestrane.Judgement,
        outputs: list[dict[str, Any]],
    ) -> Run:
        from kestrane_tools.cli.json_results import plain
        from kestrane_tools.cli.words import readable
        from kestrane_tools.results import difference_part, factory_part, findings_of, table_part
        from kestrane_tools.run_file import Run

        outcome = self._outcome(result, judgement, outputs)
        meta = {
            "kind": "factory",
            "unit": "mm",
            "created": outcome["created"],
            "device": self.device,
            "limits": self.limits.limits,
            "volume": _volume_meta(result),
            **{key: outcome[key] for key in ("software", "settings", "inputs", "outputs")},
            "findings": findings_of(judgement),
            "verdict": judgement.verdict,
        }
        return Run(
            meta=plain(meta),
            table=table_part(result.table),
            factory=factory_part(result),
            difference=None
            if self.difference is None
            else difference_part(self.difference, readable(str(self.wanted.compare))),
        )

    def _deliver(self, outcome: dict[str, Any]) -> None:
        from kestrane_tools.cli.json_results import emit, write_json

        write_json(os.path.join(self.wanted.folder, "result.json"), outcome)
        emit(self.wanted.json_target, outcome)

    # --- what is told -----------------------------------------------------------------------------

    def _outcome(
        self,
        result: kestrane.FactoryQuality,
        judgement: kestrane.Judgement,
        outputs: list[dict[str, Any]],
    ) -> dict[str, Any]:
        from kestrane_tools.cli.json_results import created, software

        return {
            "kind": "factory",
            "created": created(),
            "refused": result.refused,
            "planes": [_plane(result, plane) for plane in range(len(result.reasons))],
            "device": result.device,
            "findings": judgement.findings,
            "verdict": judgement.verdict,
            "limits": self.limits.limits,
            "volume": _volume_meta(result),
            "difference": _difference(self.difference),
            "refinement": result.refinement,
            "settings": told_settings(self.wanted, result.settings),
            "software": software(),
            "device_file": self.device,
            "inputs": self.inputs,
            "outputs": outputs,
        }

    def _tell_input(self) -> None:
        import numpy as np

        from kestrane_tools.cli.words import counted, listed, runs

        count = sum(cloud.size for cloud in self.clouds.values())
        frames = np.unique(np.concatenate([np.unique(c["id"]) for c in self.clouds.values()])).size
        name = listed(self.wanted.paths, 3)
        many = "planes" if len(self.clouds) > 1 else "plane"
        self.shown.line(
            f"{name}   {counted(count, 'point')}, {many} {runs(list(self.clouds))}, "
            f"{counted(frames, 'frame')}"
        )

    def _tell(
        self,
        result: kestrane.FactoryQuality,
        judgement: kestrane.Judgement,
        failed: dict[int, str],
    ) -> None:
        from kestrane_tools.cli.factory_words import plane_rows, refinement_words

        head, rows, rest = plane_rows(result, failed)
        self.shown.table(head, rows)
        if rest:
            self.shown.line(f"  {rest}")
        for line in refinement_words(result):
            self.shown.line(line)
        self.shown.judgement(judgement, self.limits.limits)


def _volume_meta(result: kestrane.FactoryQuality) -> dict[str, Any]:
    near, far, angle = result.volume.bounds
    return {"depth": [near, far], "half_angle_deg": angle}


def _difference(difference: kestrane.Difference | None) -> dict[str, Any] | None:
    if difference is None:
        return None
    names = ("refused", "rms", "max", "plane", "rest", "rest_max", "explained")
    return {name: getattr(difference, name) for name in names}


_OF_A_PLANE = ("rms", "bias", "q95", "q99", "max", "coverage", "repeatability", "seam")


def _plane(result: kestrane.FactoryQuality, plane: int) -> dict[str, Any]:
    figures = {name: getattr(result.planes, name)[plane] for name in _OF_A_PLANE}
    return {
        "plane": plane,
        "status": result.status[plane],
        "reason": result.reasons[plane],
        "points": result.screening.points[plane],
        "screened": result.screening.screened[plane],
        **figures,
        "outliers": result.planes.outlier_share[plane],
    }
