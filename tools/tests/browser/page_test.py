from __future__ import annotations

import base64
import statistics
from collections.abc import Callable, Iterator
from typing import Any

import numpy as np
import pytest
from pages import HOSTILE, RUNS, Page
from selenium.webdriver.common.action_chains import ActionChains
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys
from selenium.webdriver.support.ui import WebDriverWait

from kestrane_tools.report import read_page
from kestrane_tools.report.model import unpack

Open = Callable[..., Any]

READY_SECONDS = 2.0
CHANGE_SECONDS = 0.4
LARGE = "#large-map canvas"

COLOURS = """
const found = {};
for (const canvas of document.querySelectorAll("canvas")) {
  if (canvas.closest("[hidden]")) continue;
  const { data } = canvas.getContext("2d").getImageData(0, 0, canvas.width, canvas.height);
  const colours = new Set(new Uint32Array(data.buffer));
  found[`${canvas.parentNode.id || canvas.parentNode.dataset.plane}`] = colours.size;
}
return found;
"""

# Share of a canvas that is neither empty nor grey.
COLOURED = """
return Array.from(document.querySelectorAll("#maps canvas"), (canvas) => {
  const { data } = canvas.getContext("2d").getImageData(0, 0, canvas.width, canvas.height);
  let coloured = 0;
  for (let i = 0; i < data.length; i += 4) {
    const part = data.slice(i, i + 3);
    if (data[i + 3] && Math.max(...part) - Math.min(...part) > 24) ++coloured;
  }
  return (4 * coloured) / data.length;
});
"""

# Time from the click to the second frame after it, when the new map is on the screen.
CHANGE = """
const [selector, done] = arguments, start = performance.now();
document.querySelector(selector).click();
requestAnimationFrame(() => requestAnimationFrame(() => done(performance.now() - start)));
"""


def packed_maps(page: Page) -> dict[str, Any]:
    return {item["id"]: item for item in read_page(page.path)["maps"]}


def hover(page: Page, selector: str, across: float, down: float) -> dict[str, str]:
    """Point at a place of an element, given in shares of its sides; what the tooltip holds."""
    element = page.driver.find_element(By.CSS_SELECTOR, selector)
    page.run("arguments[0].scrollIntoView({block: 'center', behavior: 'instant'})", element)
    width, height = element.size["width"], element.size["height"]
    ActionChains(page.driver, duration=0).move_to_element_with_offset(
        element, round((across - 0.5) * width), round((down - 0.5) * height)
    ).perform()
    return page.run(
        "const tip = document.getElementById('tip'); return tip.hidden ? {} : {...tip.dataset, text: tip.innerText}"
    )


# --- quiet, whole, within its width ---------------------------------------------------------------


@pytest.mark.parametrize("width", [390, 1300])
@pytest.mark.parametrize("name", RUNS)
def test_a_page_is_quiet_whole_and_within_its_width(opened: Open, name: str, width: int) -> None:
    page = opened(name, width=width)
    assert page.console() == []
    assert page.requests() == []
    assert page.run("return performance.getEntriesByType('resource').length") == 0
    assert page.run("return document.getElementById('trouble').hidden") is True
    assert page.run("return document.documentElement.scrollWidth") <= width
    few = {place: n for place, n in page.run(COLOURS).items() if n <= 8}
    assert few == {}
    assert all(share > 0.2 for share in page.run(COLOURED))


@pytest.mark.parametrize("name", ["hundred", "two"])
def test_nothing_is_cut_off_at_either_side(opened: Open, name: str) -> None:
    page = opened(name, width=390)
    beyond = page.run(
        """
      return Array.from(document.querySelectorAll("main *")).filter((part) => {
        const { left, right, width } = part.getBoundingClientRect();
        return width > 1 && (left < 0 || right > 391) && !part.closest(".wide");
      }).map((part) => part.outerHTML.slice(0, 80));
    """
    )
    assert beyond == []


def test_all_planes_failed_leaves_no_map_and_says_why(opened: Open) -> None:
    page = opened("all failed")
    text = page.driver.find_element(By.TAG_NAME, "main").text
    assert "no plane could be calibrated" in text
    assert page.run("return document.querySelectorAll('#maps').length") == 0
    assert page.run("return document.querySelectorAll('#planes tbody tr').length") == 4


def test_one_frame_leaves_the_repeatability_open(opened: Open) -> None:
    page = opened("one frame")
    assert "repeatability: not determined" in page.driver.find_element(By.ID, "figures").text
    page.click("[data-map=repeatability]")
    assert page.run("return document.getElementById('map-title').textContent").startswith(
        "repeatability"
    )
    assert page.console() == []


# --- maps -----------------------------------------------------------------------------------------


@pytest.mark.parametrize("name", ["hundred", "two", "one"])
def test_each_button_changes_the_large_map(opened: Open, name: str) -> None:
    page = opened(name)
    seen = {}
    for button in page.driver.find_elements(By.CSS_SELECTOR, "#map-buttons button"):
        chosen = button.get_attribute("data-map")
        page.click(f"[data-map={chosen}]")
        assert button.get_attribute("aria-pressed") == "true"
        picture = page.picture(LARGE)
        assert picture not in seen.values(), chosen
        seen[chosen] = picture
    assert list(seen) == list(packed_maps(page))


def test_the_whole_fan_is_another_picture(opened: Open) -> None:
    page = opened("two")
    before = page.picture(LARGE)
    page.click("[data-whole='1']")
    assert page.picture(LARGE) != before


@pytest.mark.parametrize("chosen", ["rms", "bias", "points", "drift"])
@pytest.mark.parametrize("place", [(0.5, 0.2), (0.35, 0.6), (0.62, 0.45)])
def test_the_tooltip_tells_the_value_of_the_json(
    opened: Open, chosen: str, place: tuple[float, float]
) -> None:
    page = opened("two", fragment=f"#map={chosen}&plane=1")
    told = hover(page, LARGE, *place)
    expected = unpack(packed_maps(page)[chosen]["blocks"])
    value = expected[1, int(told["line"]), int(told["cell"])]
    assert told["plane"] == "1" and told["map"] == chosen
    if np.isnan(value):
        assert told["value"] == "NaN"
    else:
        assert float(told["value"]) == value
        assert f"{value:.4f}".replace("-", "−") in told["text"] or f"{value:.0f}" in told["text"]


def test_the_tooltip_tells_the_block_under_the_pointer(opened: Open) -> None:
    page = opened("two", fragment="#whole=1&plane=0")
    # The whole fan with a hundredth of its width around: depth 150 to 1500, 15 blocks across.
    half = 1500 * np.tan(np.radians(30))
    margin = 0.02 * half
    for line, cell in ((0, 49), (7, 0), (14, 20), (3, 10)):
        z = 150 + 27 * (cell + 0.5)
        y = z * np.tan(np.radians(30)) * (2 * (line + 0.5) / 15 - 1)
        across = (y + half + margin) / (2 * (half + margin))
        down = (z - 150 + margin) / (1350 + 2 * margin)
        told = hover(page, LARGE, across, down)
        assert (told["line"], told["cell"]) == (str(line), str(cell))


def test_the_map_of_all_planes_tells_what_they_pool_to(opened: Open) -> None:
    page = opened("hundred", fragment="#map=rms")
    told = hover(page, LARGE, 0.5, 0.5)
    pooled = unpack(packed_maps(page)["rms"]["all"])
    assert float(told["value"]) == pooled[int(told["line"]), int(told["cell"])]
    assert "99 of 100" in told["text"]


def test_planes_stand_worst_first_or_by_number(opened: Open) -> None:
    page = opened("hundred")
    order = "return Array.from(document.querySelectorAll('#small-maps button'), (b) => Number(b.dataset.plane))"
    worst = page.run(order)
    rms = packed_maps(page)["rms"]["planes"]
    expected = sorted(range(100), key=lambda p: (rms[p] is not None, -(rms[p] or 0.0), p))
    assert worst == expected and worst[:2] == [17, 5]
    page.click("[data-sort=number]")
    assert page.run(order) == list(range(100))


def test_a_plane_is_chosen_and_left_again(opened: Open) -> None:
    page = opened("hundred")
    before = page.picture(LARGE)
    page.click("#small-maps [data-plane='5']")
    assert page.picture(LARGE) != before
    page.click("#map-buttons [data-map=bias]")
    assert "plane 5" in page.driver.find_element(By.ID, "map-title").text  # another map of the same
    page.click("#map-buttons [data-map=rms]")
    assert "plane 5" in page.driver.find_element(By.ID, "map-title").text
    page.click("#all-planes")
    assert page.picture(LARGE) == before


def test_a_finding_leads_to_its_map(opened: Open) -> None:
    page = opened("hundred")
    page.click(".findings a[data-map=seam]")
    chosen = page.run(
        "return document.querySelector('#map-buttons [aria-pressed=true]').dataset.map"
    )
    assert chosen == "seam"
    assert "map=seam" in page.driver.current_url
    top = "return document.getElementById('maps').getBoundingClientRect().top"
    WebDriverWait(page.driver, 5, 0.05).until(lambda _: -20 < page.run(top) < 400)


# --- state, keyboard, motion ----------------------------------------------------------------------


def test_the_fragment_holds_what_is_shown(opened: Open) -> None:
    page = opened("hundred")
    page.click("[data-map=bias]")
    page.click("[data-sort=number]")
    page.click("#small-maps [data-plane='3']")
    page.click("#planes th[data-column=max] button")
    fragment = page.run("return location.hash")
    first = page.picture(LARGE)
    row = page.run("return document.querySelector('#planes tbody').innerText")
    page.load(fragment)
    assert page.picture(LARGE) == first
    assert page.run("return document.querySelector('#planes tbody').innerText") == row
    assert fragment == "#map=bias&sort=number&plane=3&order=max-desc"


@pytest.mark.parametrize(
    "fragment",
    [
        "#map=none&plane=100&sort=x",
        "#plane=-1",
        "#map=%",
        "#verdict",
        "#order=x-up",
        "#__proto__=1&constructor=2",
    ],
)
def test_a_fragment_that_means_nothing_is_left_alone(opened: Open, fragment: str) -> None:
    page = opened("hundred", fragment=fragment)
    assert "all planes together" in page.driver.find_element(By.ID, "map-title").text
    assert page.console() == []


def test_the_map_is_walked_by_keys(opened: Open) -> None:
    page = opened("two", fragment="#plane=0")
    canvas = page.driver.find_element(By.CSS_SELECTOR, LARGE)
    canvas.send_keys(Keys.ARROW_DOWN)
    at = page.run("return {...document.getElementById('tip').dataset}")
    canvas.send_keys(Keys.ARROW_DOWN, Keys.ARROW_RIGHT)
    after = page.run("return {...document.getElementById('tip').dataset}")
    assert int(after["cell"]) == int(at["cell"]) + 1
    assert int(after["line"]) == int(at["line"]) + 1
    canvas.send_keys(Keys.ESCAPE)
    assert page.run("return document.getElementById('tip').hidden") is True


def test_every_button_is_reached_by_the_keyboard(opened: Open) -> None:
    page = opened("two")
    hidden = page.run(
        """
      return Array.from(document.querySelectorAll("button")).filter((b) => b.tabIndex < 0 || b.disabled && !b.closest("#stages")).length
    """
    )
    assert hidden == 0
    small = page.driver.find_element(By.CSS_SELECTOR, "#small-maps [data-plane='1']")
    small.send_keys(Keys.ENTER)
    assert "plane 1" in page.driver.find_element(By.ID, "map-title").text


def test_the_fan_turns_by_keys(opened: Open) -> None:
    page = opened("two")
    canvas = page.driver.find_element(By.CSS_SELECTOR, "#fan-frame canvas")
    before = page.picture("#fan-frame canvas")
    canvas.send_keys(Keys.ARROW_LEFT)
    assert page.picture("#fan-frame canvas") != before


def test_nothing_moves_for_who_wants_none_of_it(opened: Open) -> None:
    page = opened("two")
    behaviour = "return getComputedStyle(document.documentElement).scrollBehavior"
    assert page.run(behaviour) == "smooth"
    page.driver.execute_cdp_cmd(
        "Emulation.setEmulatedMedia",
        {"features": [{"name": "prefers-reduced-motion", "value": "reduce"}]},
    )
    try:
        assert page.run(behaviour) == "auto"
    finally:
        page.driver.execute_cdp_cmd("Emulation.setEmulatedMedia", {"features": []})


# --- table ----------------------------------------------------------------------------------------


def test_a_heading_sorts_down_and_up_and_keeps_failures_last(opened: Open) -> None:
    page = opened("hundred")
    values = """
      const at = Array.from(document.querySelectorAll("#planes th")).findIndex((h) => h.dataset.column === "rms");
      return Array.from(document.querySelectorAll("#planes tbody tr"), (row) => row.cells[at].dataset.value ?? null);
    """
    page.click("#planes th[data-column=rms] button")
    down = page.run(values)
    numbers = [float(value) for value in down[:-1]]
    assert numbers == sorted(numbers, reverse=True) and down[-1] is None
    page.click("#planes th[data-column=rms] button")
    up = page.run(values)
    assert [float(value) for value in up[:-1]] == sorted(numbers) and up[-1] is None
    assert (
        page.run("return document.querySelector('th[data-column=rms]').getAttribute('aria-sort')")
        == "ascending"
    )


# --- tooltips of the other figures ----------------------------------------------------------------


def test_a_pose_tells_its_median(opened: Open) -> None:
    page = opened("two")
    told = hover(page, "#pose-map canvas", 0.5 + 0.5 / 20, 0.75)
    poses = read_page(page.path)["poses"]
    assert (told["plane"], told["frame"]) == ("1", "10")
    assert float(told["value"]) == unpack(poses["median"])[1, 10]


def test_a_plane_at_a_glance_tells_its_figures(opened: Open) -> None:
    page = opened("hundred")
    told = hover(page, "#glance-chart rect.hit[data-plane='17']", 0.5, 0.5)
    assert "no sector has 200 points" in told["text"]


# --- without scripts, hostile text, print ---------------------------------------------------------


@pytest.fixture
def without_scripts(chromium: Any) -> Iterator[None]:
    chromium.execute_cdp_cmd("Emulation.setScriptExecutionDisabled", {"value": True})
    yield
    chromium.execute_cdp_cmd("Emulation.setScriptExecutionDisabled", {"value": False})


def test_the_verdict_needs_no_script(without_scripts: None, opened: Open) -> None:
    page = opened("hundred", wait=False)
    tree = page.driver.execute_cdp_cmd(
        "DOMSnapshot.captureSnapshot", {"computedStyles": ["display", "visibility"]}
    )
    text = " ".join(tree["strings"][i] for i in tree["documents"][0]["layout"]["text"] if i >= 0)
    text = " ".join(text.split())
    for told in (
        "Not fit for use as it stands",
        "No table for plane 17",
        "99 / 100",
        "planes calibrated",
        "The sheets moved by",
        "shift along y: not fixed",
        "All planes",
    ):
        assert told in text, told
    assert "The maps are drawn by a script" in text
    assert "worst first" not in text  # buttons that could do nothing are not there


def test_text_of_a_device_stays_text(opened: Open) -> None:
    page = opened("hostile")
    assert page.run("return typeof window.taken") == "undefined"
    assert HOSTILE in page.driver.find_element(By.ID, "head").text
    assert HOSTILE in page.driver.title
    told = hover(page, "#glance-chart rect.hit[data-plane='1']", 0.5, 0.5)
    assert HOSTILE in told["text"]
    assert page.run("return typeof window.taken") == "undefined"
    assert page.run("return document.querySelectorAll('img').length") == 0


@pytest.mark.parametrize("name", ["hundred", "two", "all failed"])
def test_a_page_is_printed(opened: Open, name: str) -> None:
    page = opened(name)
    printed = page.driver.execute_cdp_cmd(
        "Page.printToPDF", {"preferCSSPageSize": True, "printBackground": True}
    )
    data = base64.b64decode(printed["data"])
    assert data.startswith(b"%PDF") and len(data) > 20_000
    sheets = data.count(b"/Type /Page\n") + data.count(b"/Type /Page ")
    assert 1 <= sheets <= 12
    page.driver.execute_cdp_cmd("Emulation.setEmulatedMedia", {"media": "print"})
    try:
        assert (
            page.run("return getComputedStyle(document.querySelector('.verdict')).display")
            != "none"
        )
    finally:
        page.driver.execute_cdp_cmd("Emulation.setEmulatedMedia", {"media": ""})


def test_a_resized_page_is_drawn_anew(opened: Open) -> None:
    page = opened("hundred")
    before = page.run("return document.querySelector(arguments[0]).width", LARGE)
    page.resize(390)
    page.driver.implicitly_wait(0)
    for _ in range(50):
        width = page.run("return document.querySelector(arguments[0]).width", LARGE)
        if width != before:
            break
        page.driver.execute_async_script("setTimeout(arguments[0], 50)")
    assert width < before
    assert page.run("return document.documentElement.scrollWidth") <= 390


# --- time -----------------------------------------------------------------------------------------


def test_a_hundred_planes_are_ready_and_change_in_time(opened: Open) -> None:
    ready = []
    for _ in range(3):
        page = opened("hundred")
        ready.append(float(page.run("return document.documentElement.dataset.ready")) / 1000.0)
    changes = [
        page.driver.execute_async_script(CHANGE, f"[data-map={chosen}]") / 1000.0
        for chosen in ("max", "bias", "seam", "origin", "move", "rms")
    ]
    print(
        f"ready in {statistics.median(ready):.2f} s, map changed in {statistics.median(changes):.2f} s"
    )
    assert min(ready) <= READY_SECONDS
    assert statistics.median(changes) <= CHANGE_SECONDS
