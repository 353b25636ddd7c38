"""The command `kestrane batch`: what it writes, what it says, what it refuses."""

import csv
import html.parser
import json
import os
import re
import subprocess
from urllib.parse import unquote

import pytest
from devices import COMMAND, GOOD, running, wait_for

from kestrane_tools.batch import overview
from kestrane_tools.batch.job import Outcome
from kestrane_tools.report.render import POLICY


class Page(html.parser.HTMLParser):
    """Names of the rows, links and elements of an index."""

    def __init__(self, text: str) -> None:
        super().__init__()
        self.rows: list[list[str]] = []
        self.links: list[str] = []
        self.elements: list[tuple[str, dict[str, str | None]]] = []
        self.feed(text)

    def handle_starttag(self, tag, attrs):
        self.elements.append((tag, dict(attrs)))
        if tag == "tr":
            self.rows.append([])
        elif tag in ("td", "th"):
            self.rows[-1].append("")
        elif tag == "a":
            self.links.append(dict(attrs)["href"])

    def handle_data(self, data):
        if self.rows and self.rows[-1]:
            self.rows[-1][-1] += data.strip("\n")


def rows_of(path):
    with open(path, encoding="utf-8", newline="") as file:
        return list(csv.DictReader(file))


@pytest.fixture(scope="module")
def mixed(devices, kestrane, tmp_path_factory):
    """A batch of good devices, one beyond its limits, a damaged and a missing file."""
    folder = tmp_path_factory.mktemp("mixed")
    (folder / "limits.toml").write_text("[limits]\nrms = 1e-6\n")
    plan = devices.plan(folder / "plan.toml", ["K-1", "K-2", "damaged"])
    with open(plan, "a") as file:
        clouds = devices.base / "clouds/K-3.npz"
        file.write(f'[[device]]\nname = "far off #1?"\nclouds = ["{clouds}"]\nlimits = "limits.toml"\n')
        file.write('[[device]]\nname = "gone"\nclouds = ["gone.npz"]\n')
    return kestrane("batch", plan, "-o", folder / "out", "--json", folder / "all.json"), folder


def test_each_device_gets_what_the_command_for_one_writes(mixed, devices):
    done, folder = mixed
    assert done.returncode == 1
    assert done.stderr == ""
    devices.assert_equal_to_serial(folder / "out", ["K-1", "K-2"])
    assert sorted(os.listdir(folder / "out/K-1")) == [
        "job.json", "log.txt", "report.html", "result.json", "run.npz", "table.txt",
    ]  # fmt: skip
    ours = json.loads((folder / "out/K-1/result.json").read_text())
    serial = json.loads((devices.base / "serial/K-1/result.json").read_text())
    assert {**ours, "created": ""} == {**serial, "created": ""}


def test_the_summary_has_every_device_worst_first_with_its_cause(mixed):
    _, folder = mixed
    rows = rows_of(folder / "out/summary.csv")
    assert list(rows[0]) == ["name", "status", "verdict", "worst_finding", "seconds", "cause"]
    assert [(row["name"], row["status"]) for row in rows[:3]] == [
        ("damaged", "failed"), ("gone", "failed"), ("far off #1?", "limits"),
    ]  # fmt: skip
    assert {row["name"]: row["status"] for row in rows[3:]} == {"K-1": "ok", "K-2": "ok"}
    assert rows[1]["cause"] == "gone.npz: No such file or directory"
    assert rows[2]["worst_finding"].startswith("residuals: ")
    result = json.loads((folder / "out/far off #1?/result.json").read_text())
    assert rows[2]["verdict"] == result["verdict"]
    assert all(0.0 < float(row["seconds"]) < 60.0 for row in rows)


def test_the_page_says_the_same_links_to_files_that_are_there_and_needs_nothing_else(mixed):
    _, folder = mixed
    text = (folder / "out/index.html").read_text("utf-8")
    page = Page(text)
    names = [row["name"] for row in rows_of(folder / "out/summary.csv")]
    assert [row[0] for row in page.rows[1:]] == names
    assert "far%20off%20%231%3F/report.html" in page.links
    for link in page.links:
        assert (folder / "out" / unquote(link)).is_file(), link
    assert {"K-1/report.html", "damaged/log.txt", "summary.csv"} <= set(page.links)
    assert "damaged/report.html" not in page.links
    assert not {"script", "img", "link", "iframe"} & {tag for tag, _ in page.elements}
    policy = [a["content"] for tag, a in page.elements if "Content-Security-Policy" in a.values()]
    assert policy == [POLICY]
    assert "//" not in text.split("<body>")[1]
    assert re.search(r"<dt>ended</dt><dd>\d{4}-\d\d-\d\d \d\d:\d\d UTC</dd>", text)
    counts = re.findall(r'<dt>(\w+)</dt><dd( class="bad")?>(\d+)</dd>', text)
    assert counts == [("failed", ' class="bad"', "2"), ("limits", ' class="bad"', "1"), ("ok", "", "2")]


def test_the_terminal_and_the_json_say_the_same(mixed):
    done, folder = mixed
    lines = done.stdout.splitlines()
    assert lines[0].startswith("5 devices   ")
    assert lines[-2] == "2 failed, 1 limits, 2 ok"
    assert "gone" in done.stdout and "No such file" in done.stdout
    told = json.loads((folder / "all.json").read_text())
    assert told["counts"] == {"failed": 2, "limits": 1, "ok": 2}
    assert [d["name"] for d in told["devices"]] == [r["name"] for r in rows_of(folder / "out/summary.csv")]


def test_without_the_engine_one_line_says_so_and_the_same_comes_out(
    devices, kestrane, tmp_path, without_engine
):
    done = kestrane("batch", "--glob", f"{devices.base}/clouds/K-[12].npz", "-o", tmp_path / "out",
                    "--workers", 2, env=without_engine)  # fmt: skip
    assert done.returncode == 0, done.stderr
    assert done.stderr == (
        "kestrane: python3-distributed is not installed: threads watch the devices' processes\n"
    )
    for name, serial in (("1", "K-1"), ("2", "K-2")):
        table = (tmp_path / "out" / f"K-{name}" / "table.txt").read_bytes()
        assert table == (devices.base / "serial" / serial / "table.txt").read_bytes()
    again = kestrane("batch", "--glob", f"{devices.base}/clouds/K-[12].npz", "-o", tmp_path / "out",
                     "--resume", env=without_engine)  # fmt: skip
    assert again.returncode == 0
    assert [row["seconds"] for row in rows_of(tmp_path / "out/summary.csv")] == ["", ""]


def test_two_batches_into_one_folder_refuse_each_other(devices, kestrane, tmp_path, without_engine):
    plan = devices.plan(tmp_path / "plan.toml", GOOD)
    environment = {**os.environ, **without_engine}
    first = subprocess.Popen(
        [*COMMAND, "--quiet", "batch", plan, "-o", tmp_path / "out"], env=environment,
        stderr=subprocess.DEVNULL,
    )  # fmt: skip
    wait_for(lambda: running(tmp_path / "out"))
    second = kestrane("batch", plan, "-o", tmp_path / "out", env=without_engine)
    assert second.returncode == 3
    assert "another batch is at work here" in second.stderr and str(first.pid) in second.stderr
    assert first.wait(60) == 0
    devices.assert_equal_to_serial(tmp_path / "out", GOOD)


@pytest.mark.parametrize(
    ("arguments", "message"),
    [
        (["-o", "out"], "a plan or --glob is needed"),
        (["plan.toml"], "Missing option"),
        (["plan.toml", "-o", "out", "--workers", "2", "--scheduler", "tcp://a:1"], "--workers and --scheduler"),
        (["plan.toml", "-o", "out", "--workers", "0"], "0"),
        (["plan.toml", "-o", "out", "--timeout", "0"], "above 0"),
        (["plan.toml", "-o", "out", "--memory", "0"], "0"),
    ],
)  # fmt: skip
def test_a_command_line_that_is_not_understood_ends_with_2(kestrane, tmp_path, arguments, message):
    done = kestrane("batch", *arguments, cwd=tmp_path)
    assert done.returncode == 2
    assert message in done.stderr
    assert list(tmp_path.iterdir()) == []


def test_a_scheduler_needs_the_engine(kestrane, tmp_path, without_engine):
    done = kestrane("batch", "p", "-o", "out", "--scheduler", "tcp://a:1", cwd=tmp_path, env=without_engine)
    assert done.returncode == 2
    assert "--scheduler needs the package python3-distributed" in done.stderr


def test_a_plan_that_cannot_be_used_ends_with_3_before_anything_is_made(kestrane, tmp_path):
    (tmp_path / "plan.toml").write_text("[[devise]]\n")
    done = kestrane("batch", "plan.toml", "-o", "out", cwd=tmp_path)
    assert done.returncode == 3
    assert done.stderr == "kestrane: plan.toml: unknown table or key 'devise'; did you mean 'device'?\n"
    assert not (tmp_path / "out").exists()


def test_limits_of_time_and_memory_reach_the_children(devices, kestrane, tmp_path, without_engine):
    plan = devices.plan(tmp_path / "plan.toml", ["K-1"])
    for option, status in (("--timeout=0.05", "timeout"), ("--memory=40", "out of memory")):
        done = kestrane("batch", plan, "-o", tmp_path / "out", option, env=without_engine)
        assert done.returncode == 1
        assert [row["status"] for row in rows_of(tmp_path / "out/summary.csv")] == [status]


# --- order and odd texts --------------------------------------------------------------------------------


def test_the_worst_devices_come_first():
    order = [
        Outcome("a", "killed by SIGSEGV"),
        Outcome("b", "out of memory"),
        Outcome("c", "timeout"),
        Outcome("d", "lost"),
        Outcome("e", "failed"),
        Outcome("f", "stopped"),
        Outcome("g", "limits", level="bad", rms=0.2),
        Outcome("h", "limits", level="bad", rms=0.1),
        Outcome("i", "ok", level="warn", rms=0.1),
        Outcome("j", "ok", level="note", rms=0.3),
        Outcome("k", "ok", rms=0.2),
        Outcome("l", "ok", rms=0.2),
        Outcome("m", "ok", rms=0.1),
    ]
    assert overview.ranked(order[::-1]) == order
    assert list(overview.counted(order)) == [
        "killed by SIGSEGV", "out of memory", "timeout", "lost", "failed", "stopped", "limits", "ok",
    ]  # fmt: skip


def test_text_of_users_stays_text(tmp_path):
    name = '<script>alert("1")</script>\udcff, "ü"'
    overview.write_index(str(tmp_path / "index.html"), [Outcome(name, "failed", name, files=("log.txt",))], {})
    text = (tmp_path / "index.html").read_text("utf-8")
    page = Page(text)
    assert "script" not in {tag for tag, _ in page.elements}
    assert page.rows[1][0] == name.replace("\udcff", "\\udcff")
    assert unquote(page.links[-1], "utf-8", "surrogateescape") == f"{name}/log.txt"
    overview.write_summary(str(tmp_path / "summary.csv"), [Outcome(name, "failed", name)])
    assert rows_of(tmp_path / "summary.csv")[0]["name"] == name.replace("\udcff", "\\udcff")


def test_only_a_long_name_is_broken_into_lines(tmp_path):
    outcomes = [Outcome("K-" + 22 * "1", "ok"), Outcome("K-" + 23 * "2", "ok")]
    overview.write_index(str(tmp_path / "index.html"), outcomes, {})
    text = (tmp_path / "index.html").read_text("utf-8")
    assert '<th scope="row">K-1' in text and '<th scope="row" class="long">K-2' in text


def test_a_page_of_very_many_devices_has_the_worst_and_says_so(tmp_path, monkeypatch):
    monkeypatch.setattr(overview, "_MOST_ROWS", 3)
    outcomes = [Outcome(f"K-{k}", "ok") for k in range(4)] + [Outcome("bad", "timeout")]
    overview.write_index(str(tmp_path / "index.html"), outcomes, {})
    text = (tmp_path / "index.html").read_text("utf-8")
    assert [row[0] for row in Page(text).rows[1:]] == ["bad", "K-0", "K-1"]
    assert "The worst 3 of 5; summary.csv has all." in text
