#!/usr/bin/env python3
"""Runs clang-tidy over the sources of a unity build, each room joined into one text.

    tidy.py <build folder> <jobs> <folder>...    the sources below these folders

Each check walks all that a source includes, which for most sources is the matrix library: joined, the
sources of a room pay for it once. The build's own joined sources include the others, and clang-tidy
takes what is included for headers, in which some checks find nothing. So the texts are pasted here,
and findings carried back to file and line.
"""
import concurrent.futures
import json
import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
JOINED = re.compile(r'#include "(.*\.cpp)"\n')
INCLUDE = re.compile(r'\s*#include ([<"].*[>"])')
# Flags of g++ that clang does not know.
FOREIGN = (" -fno-tree-pre",)


class Text:
    """What clang-tidy reads for one entry of the compile commands."""

    def __init__(self, entry):
        self.entry = entry
        self.file = pathlib.Path(entry["file"])
        self.sources = [self.file]
        if "Unity" in self.file.parts:
            text = self.file.read_text(encoding="utf-8")
            self.sources = [pathlib.Path(name) for name in JOINED.findall(text)]
        self.places = []  # source and number of each line

    def is_below(self, folders):
        return all(any(source.is_relative_to(ROOT / folder) for folder in folders)
                   for source in self.sources)

    def write(self, folder):
        """Joins the sources and returns the text's entry; what an earlier one includes is blank."""
        lines, seen = [], set()
        for source in self.sources:
            mine = set()
            for number, line in enumerate(source.read_text(encoding="utf-8").splitlines(), 1):
                include = INCLUDE.match(line)
                if include:
                    mine.add(include[1])
                lines.append("" if include and include[1] in seen else line)
                self.places.append(f"{source.relative_to(ROOT)}:{number}")
            seen |= mine
        joined = folder / ("_".join(self.file.parts[-3:]) + ".cpp")
        joined.write_text("\n".join(lines) + "\n", encoding="utf-8")
        command = self.entry["command"].replace(str(self.file), str(joined))
        for flag in FOREIGN:
            command = command.replace(flag, "")
        self.file = joined
        return {**self.entry, "file": str(joined), "command": command}

    def findings(self, folder):
        """Exit status of clang-tidy, and its words with the places of the sources."""
        done = subprocess.run(["clang-tidy", "-p", str(folder), "--quiet", str(self.file)],
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, check=False)
        place = re.compile(re.escape(str(self.file)) + r":(\d+)")
        words = done.stdout if done.returncode == 0 else done.stdout + done.stderr
        return done.returncode, place.sub(lambda match: self.places[int(match[1]) - 1], words)


def main():
    build, jobs, folders = pathlib.Path(sys.argv[1]), int(sys.argv[2]), sys.argv[3:]
    entries = json.loads((build / "compile_commands.json").read_text(encoding="utf-8"))
    texts = [text for text in map(Text, entries) if text.is_below(folders)]
    if not texts:
        sys.exit(f"tidy: no source below {' or '.join(folders)} is built in {build}")
    folder = build / "joined"
    folder.mkdir(exist_ok=True)
    commands = [text.write(folder) for text in texts]
    (folder / "compile_commands.json").write_text(json.dumps(commands), encoding="utf-8")
    texts.sort(key=lambda text: -len(text.places))
    failed = False
    with concurrent.futures.ThreadPoolExecutor(jobs) as pool:
        for status, words in pool.map(lambda text: text.findings(folder), texts):
            failed |= status != 0
            print(words, end="", flush=True)
    print(f"{sum(len(text.sources) for text in texts)} sources in {len(texts)} texts")
    sys.exit(failed)


main()
