"""Calibration and compensation of a laser-line 3D scanner, over NumPy."""
