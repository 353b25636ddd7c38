#!/usr/bin/env python3
"""Line coverage of both libraries after a run of the tests.

    coverage.py <build folder> <least percentage>

Lines of src/ and of quality/ count, over all sources and template instances that hold them. Fails
where either is below the least percentage, and where a line of src/ that never ran is not quoted in
the section "Coverage" of docs/testing.md, which gives the reason, for single lines or for all of a
source.
"""
import json
import pathlib
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
FOLDERS = ("src", "quality")
OBJECTS = ("CMakeFiles/kestrane_objects.dir", "quality/CMakeFiles/kestrane_quality_objects.dir")


def counts_of(build):
    """Executions of each line, {source: {line number: count}}."""
    counts = {}
    for data in sorted(data for objects in OBJECTS for data in (build / objects).rglob("*.gcda")):
        text = subprocess.run(
            ["gcov", "--json-format", "--stdout", str(data)],
            check=True, capture_output=True, text=True, cwd=build).stdout
        report = json.loads(text)
        for source in report["files"]:
            path = (build / source["file"]).resolve()
            if not any(path.is_relative_to(ROOT / folder) for folder in FOLDERS):
                continue
            lines = counts.setdefault(str(path.relative_to(ROOT)), {})
            for line in source["lines"]:
                number = line["line_number"]
                lines[number] = lines.get(number, 0) + max(line["count"], 0)
    return counts


def explained_lines():
    """The section of the documentation that quotes lines which never run."""
    text = (ROOT / "docs/testing.md").read_text(encoding="utf-8")
    _, _, section = text.partition("\n## Coverage\n")
    return section.partition("\n## ")[0]


def lines_of(source):
    return (ROOT / source).read_text(encoding="utf-8").splitlines()


def percentage_of(folder, counts):
    """The share of the folder's lines that ran, in per cent."""
    lines = [count for source in counts if source.startswith(folder + "/")
             for count in counts[source].values()]
    if not lines:
        sys.exit(f"coverage: no line of {folder}/ was counted; "
                 "run the tests of a build that counts first")
    ran = sum(count > 0 for count in lines)
    percentage = 100.0 * ran / len(lines)
    print(f"{ran} of {len(lines)} lines of {folder}/ ran: {percentage:.2f} %")
    return percentage


def main():
    build = pathlib.Path(sys.argv[1]).resolve()
    least = float(sys.argv[2])
    counts = counts_of(build)
    explained = explained_lines()
    unexplained = []
    for source in sorted(counts):
        text = lines_of(source)
        for number in sorted(n for n, count in counts[source].items() if count == 0):
            code = text[number - 1].strip()
            print(f"never ran  {source}:{number}: {code}")
            quoted = (f"| `{source}` | all |" in explained
                      or source in explained and f"`{code}`" in explained)
            if source.startswith("src/") and not quoted:
                unexplained.append(f"{source}:{number}")
    low = [folder for folder in FOLDERS if percentage_of(folder, counts) < least]
    if low:
        sys.exit(f"coverage: below {least} %: " + ", ".join(low))
    if unexplained:
        sys.exit("coverage: not explained in docs/testing.md: " + ", ".join(unexplained))


main()
