"""Pages of synthetic runs, and an open page with what tests ask of it."""

from __future__ import annotations

import dataclasses
import json
from collections.abc import Callable
from pathlib import Path
from typing import Any

import numpy as np
import synthetic_runs as runs
from selenium import webdriver
from selenium.webdriver.support.ui import WebDriverWait

from kestrane_tools.run_file import Run

HOSTILE = "</script><script>window.taken = 1</script><img src=x onerror='window.taken = 2'>"

RUNS: dict[str, Callable[[], Run]] = {
    "hundred": lambda: runs.full_run(100, failed=(17,), bad=(5,), frames=40),
    "two": lambda: runs.full_run(2),
    "one": lambda: runs.device_run(1),
    "one frame": lambda: runs.device_run(3, frames=1),
    "all failed": lambda: runs.device_run(4, failed=(0, 1, 2, 3)),
    "field": lambda: Run(meta=runs.meta(kind="field"), table=runs.table(8), field=runs.field(8)),
    "difference": lambda: Run(
        meta=runs.meta(kind="difference"), table=runs.table(8), difference=runs.difference(8)
    ),
    "hostile": lambda: dataclasses.replace(
        runs.device_run(3),
        meta=runs.meta(device={"serial": HOSTILE}, unit=HOSTILE),
        factory=dataclasses.replace(
            runs.factory(3, failed=(1,)), reason=np.array(["", HOSTILE, ""])
        ),
    ),
}


class Page:
    """An open page and what tests ask of it."""

    def __init__(self, driver: webdriver.Chrome, path: Path) -> None:
        self.driver = driver
        self.path = path

    def resize(self, width: int, height: int = 1200) -> None:
        self.driver.execute_cdp_cmd(
            "Emulation.setDeviceMetricsOverride",
            {"width": width, "height": height, "deviceScaleFactor": 1, "mobile": False},
        )

    def load(self, fragment: str = "", wait: bool = True) -> None:
        self.driver.get("about:blank")
        self.driver.get_log("browser")
        self.driver.get_log("performance")
        self.driver.get(f"{self.path.as_uri()}{fragment}")
        if wait:
            WebDriverWait(self.driver, 20, 0.02).until(
                lambda _: self.run("return document.documentElement.dataset.ready")
            )

    def run(self, script: str, *arguments: Any) -> Any:
        return self.driver.execute_script(script, *arguments)

    def click(self, selector: str) -> None:
        self.run("document.querySelector(arguments[0]).click()", selector)

    def picture(self, selector: str) -> str:
        """All pixels of a canvas."""
        return self.run("return document.querySelector(arguments[0]).toDataURL()", selector)

    def console(self) -> list[str]:
        return [entry["message"] for entry in self.driver.get_log("browser")]

    def requests(self) -> list[str]:
        """Every address that the page asked for, its own and pictures in the page apart."""
        asked = []
        for entry in self.driver.get_log("performance"):
            message = json.loads(entry["message"])["message"]
            if message["method"] == "Network.requestWillBeSent":
                asked.append(message["params"]["request"]["url"])
        own = (self.path.as_uri(), "data:", "about:")
        return [address for address in asked if not address.startswith(own)]
