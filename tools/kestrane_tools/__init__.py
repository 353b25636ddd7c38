"""Command line, report page and many devices, on the figures of `kestrane`."""
