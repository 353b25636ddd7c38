"""The page that shows a calibration: one HTML file from one run."""

from kestrane_tools.report.render import read_page, write_page

__all__ = ["read_page", "write_page"]
