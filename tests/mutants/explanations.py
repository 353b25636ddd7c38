"""Survivors that have a reason; see report.py of each tool for what an entry is."""


def read_explained(path):
    """The entries of a file of explanations."""
    if not path.exists():
        return set()
    lines = [line.strip() for line in path.read_text(encoding="utf-8").splitlines()]
    return {line for line in lines if line and not line.startswith("#")}
