"""A headless Chromium that reaches no network."""

from __future__ import annotations

import sys
from collections.abc import Callable, Iterator
from pathlib import Path

import pytest
from selenium import webdriver
from selenium.webdriver.chrome.service import Service

sys.path[:0] = [str(Path(__file__).parent), str(Path(__file__).parents[1])]

from pages import RUNS, Page  # noqa: E402

from kestrane_tools.report import write_page  # noqa: E402


@pytest.fixture(scope="session")
def pages(tmp_path_factory: pytest.TempPathFactory) -> Callable[[str], Path]:
    """Path of the page of a run by its name, drawn once."""
    folder = tmp_path_factory.mktemp("pages")

    def page(name: str) -> Path:
        path = folder / f"{name.replace(' ', '-')}.html"
        if not path.exists():
            write_page(RUNS[name](), path)
        return path

    return page


@pytest.fixture(scope="session")
def chromium() -> Iterator[webdriver.Chrome]:
    options = webdriver.ChromeOptions()
    for argument in (
        "--headless=new",
        "--no-sandbox",  # tests may run as root
        "--disable-gpu",
        "--disable-dev-shm-usage",
        "--hide-scrollbars",
        "--force-device-scale-factor=1",
        "--host-resolver-rules=MAP * ~NOTFOUND",
    ):
        options.add_argument(argument)
    options.set_capability("goog:loggingPrefs", {"browser": "ALL", "performance": "ALL"})
    driver = webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=options)
    yield driver
    driver.quit()


@pytest.fixture
def opened(chromium: webdriver.Chrome, pages: Callable[[str], Path]) -> Callable[..., Page]:
    def open_page(name: str, *, width: int = 1300, fragment: str = "", wait: bool = True) -> Page:
        page = Page(chromium, pages(name))
        page.resize(width)
        page.load(fragment, wait)
        return page

    return open_page
