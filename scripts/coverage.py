#!/usr/bin/env python3
"""Line coverage of the library after a run of the tests.

    coverage.py <build folder> <least percentage>

Lines of src/ count, over all sources and template instances that hold them. Fails below the least
percentage, and where a line that never ran is not quoted in the section "Coverage" of
docs/testing.md, which gives the reason.
"""
import json
import pathlib
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent


def counts_of(build):
    """Executions of each line, {source: {line number: count}}."""
    counts = {}
    objects = build / "CMakeFiles/kestrane_objects.dir"
    for data in sorted(objects.rglob("*.gcda")):
        text = subprocess.run(
            ["gcov", "--json-format", "--stdout", str(data)],
            check=True, capture_output=True, text=True, cwd=build).stdout
        report = json.loads(text)
        for source in report["files"]:
            path = (build / source["file"]).resolve()
            if not path.is_relative_to(ROOT / "src"):
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


def main():
    build = pathlib.Path(sys.argv[1]).resolve()
    least = float(sys.argv[2])
    counts = counts_of(build)
    explained = explained_lines()
    total = ran = 0
    unexplained = []
    for source in sorted(counts):
        lines = counts[source]
        text = (ROOT / source).read_text(encoding="utf-8").splitlines()
        missed = sorted(number for number, count in lines.items() if count == 0)
        total += len(lines)
        ran += len(lines) - len(missed)
        for number in missed:
            code = text[number - 1].strip()
            print(f"never ran  {source}:{number}: {code}")
            if source not in explained or f"`{code}`" not in explained:
                unexplained.append(f"{source}:{number}")
    if total == 0:
        sys.exit("coverage: no line of src/ was counted; run the tests of a build that counts first")
    percentage = 100.0 * ran / total
    print(f"{ran} of {total} lines of src/ ran: {percentage:.2f} %")
    if percentage < least:
        sys.exit(f"coverage: below {least} %")
    if unexplained:
        sys.exit("coverage: not explained in docs/testing.md: " + ", ".join(unexplained))


main()
