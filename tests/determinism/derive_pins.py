#!/usr/bin/env python3
"""Derives the numbers of pinned_values_test.cpp and the motion of held_runs_test.cpp without running
the library.

Python's float is the double of the library, with one rounding per operation and never a fused
multiply-add, so that the formulas below give the library's bits where they keep its order of
operations. Sine, cosine and tangent are worked out to 60 digits and rounded once. The smallest axis
of the long cloud is worked out to 60 digits, too: it says how far the pinned bits may be from truth.

The decompositions follow the published steps of their algorithms (Jacobi rotations on a square
matrix; one Givens rotation for a real 2 x 2 Schur form, then back-substitution).
"""
from decimal import Decimal, getcontext
from fractions import Fraction
from math import sqrt

getcontext().prec = 60
GUARD = 2.220446049250313e-16
EPSILON = 2.0 ** -52


def show(name, values):
    print(name)
    for value in values:
        print("   ", value.hex(), "  //", repr(value))


# --- Functions, rounded once ----------------------------------------------------------------------

def series(x, term, power):
    total, sign_free = Decimal(0), term
    while abs(sign_free) > Decimal(10) ** -58:
        total += sign_free
        power += 2
        sign_free = -sign_free * x * x / (power * (power - 1))
    return total


def sine(x):
    return series(Decimal(x), Decimal(x), 1)


def cosine(x):
    return series(Decimal(x), Decimal(1), 0)


def tangent(x):
    return sine(x) / cosine(x)


# --- A compensated cell ---------------------------------------------------------------------------

def along(t, p):
    d = t[0] * p[0] + t[1] * p[1] + t[2] * p[2]
    return -((d + 1.0) / d)


def corrected(t, scale, p):
    q = along(t, p)
    c = [q * t[i] + t[i] for i in range(3)]
    e = -((c[1] * scale * p[1] + c[0] * scale * p[0]) + c[2] * scale * p[2])
    factor = 1.0 / e
    return [x * factor for x in p]


def compensated(cell):
    t = [118.25, -3.5, 41.75]
    whole = [-0.0083, 0.00011, 0.0009]
    temperature, temperature_ref, drift, drift_ref = 31.7, 22.4, 0.83, 0.61
    gain, temperature_spread, drift_spread, per_degree = 1.3, 2.5e-5, 7e-4, 1.9e-5
    steps = 2.0 - 3.0  # plane 2 of the fan 0 to 5, whose centre is 3
    scale = per_degree * (temperature - temperature_ref) + 1.0
    p = corrected(t, scale, whole)
    q = along(t, p)
    pivot = [q * t[i] + t[i] for i in range(3)]
    angle = (steps * drift_spread) * gain * (drift - drift_ref) + (temperature - temperature_ref) * (
        steps * temperature_spread)
    s, c = float(sine(angle)), float(cosine(angle))
    rows = [[c, 0.0, -s], [0.0, 1.0, 0.0], [s, 0.0, c]]

    def turned(v):
        return [r[0] * v[0] + r[1] * v[1] + r[2] * v[2] for r in rows]

    a = corrected(t, scale, cell)
    x = [-((a[2] * 100.0 + 1.0) / a[0]), 0.0, 100.0]
    n = turned(a)
    moved = turned([x[i] - pivot[i] for i in range(3)])
    y = [moved[i] + pivot[i] for i in range(3)]
    d = -((y[1] * n[1] + y[0] * n[0]) + y[2] * n[2])
    factor = 1.0 / d
    return [v * factor for v in n]


# --- Decomposition of three points ----------------------------------------------------------------

def rotate_rows(m, p, q, c, s):
    for j in range(len(m[0])):
        x, y = m[p][j], m[q][j]
        m[p][j], m[q][j] = c * x + s * y, -s * x + c * y


def rotate_columns(m, p, q, c, s):  # by the transpose
    for row in m:
        x, y = row[p], row[q]
        row[p], row[q] = c * x + -s * y, s * x + c * y


def jacobi(x, y, z):
    """The rotation that makes the symmetric matrix (x y; y z) diagonal."""
    tau = (x - z) / (2.0 * abs(y))
    w = sqrt(tau * tau + 1.0)
    t = 1.0 / (tau + w) if tau > 0.0 else 1.0 / (tau - w)
    n = 1.0 / sqrt(t * t + 1.0)
    return n, -(1.0 if t > 0.0 else -1.0) * (y / abs(y)) * abs(t) * n


def two_sided(m, p, q):
    small = [[m[p][p], m[p][q]], [m[q][p], m[q][q]]]
    t, d = small[0][0] + small[1][1], small[1][0] - small[0][1]
    u = t / d
    length = sqrt(1.0 + u * u)
    c1, s1 = u / length, 1.0 / length
    rotate_rows(small, 0, 1, c1, s1)
    c, s = jacobi(small[0][0], small[0][1], small[1][1])
    # the first rotation times the transpose of the second one
    return (c1 * c - s1 * -s, c1 * -s + s1 * c), (c, s)


def thin_direction_of_three(centred):
    scale = max(abs(x) for row in centred for x in row)
    work = [[x / scale for x in row] for row in centred]
    v = [[1.0, 0.0, 0.0], [0.0, 1.0, 0.0], [0.0, 0.0, 1.0]]
    largest = max(abs(work[i][i]) for i in range(3))
    rotated = True
    while rotated:
        rotated = False
        for p in (1, 2):
            for q in range(p):
                negligible = max(2.2250738585072014e-308, 2.0 * EPSILON * largest)
                if not (abs(work[p][q]) > negligible or abs(work[q][p]) > negligible):
                    continue
                rotated = True
                left, right = two_sided(work, p, q)
                rotate_rows(work, p, q, *left)
                rotate_columns(work, p, q, *right)
                rotate_columns(v, p, q, *right)
                largest = max(largest, abs(work[p][p]), abs(work[q][q]))
    values = [abs(work[i][i]) for i in range(3)]
    order = sorted(range(3), key=lambda i: -values[i])
    return [v[i][order[2]] for i in range(3)]


def centroid_of(points):
    sums = [0.0, 0.0, 0.0]
    for point in points:
        sums = [sums[i] + point[i] for i in range(3)]
    return [s / float(len(points)) for s in sums]


def dot(n, p):
    return n[0] * p[0] + n[1] * p[1] + n[2] * p[2]


def plane_of_three(points):
    m = centroid_of(points)
    n = thin_direction_of_three([[p[i] - m[i] for i in range(3)] for p in points])
    plane = n + [-dot(n, m)]
    outward = sum(1 for p in points if dot(n, p) > 0.0)
    if outward < len(points) - outward:
        plane = [-x for x in plane]
    return plane, m


# --- Signed distances -----------------------------------------------------------------------------

def signed_distance(plane, point):
    s = plane[3] + GUARD
    p, q, t, k = plane[0] / s, plane[1] / s, plane[2] / s, 1.0
    if 0.0 > p:
        p, q, t, k = -p, -q, -t, -1.0
    w = 1.0 / sqrt(t * t + (p * p + q * q))
    return (t * point[2] + (p * point[0] + q * point[1]) + k) * w


# --- The refit of one corner's line ----------------------------------------------------------------

def givens(p, q):
    if abs(p) > abs(q):
        t = q / p
        u = sqrt(1.0 + t * t)
        u = -u if p < 0.0 else u
        c = 1.0 / u
        return c, -t * c
    t = p / q
    u = sqrt(1.0 + t * t)
    u = -u if q < 0.0 else u
    s = -1.0 / u
    return -t * s, s


def eigen_2x2(m):
    """Eigenvalues and, by columns, eigenvectors as the general real solver normalises them."""
    scale = max(abs(x) for row in m for x in row)
    t = [[x / scale for x in row] for row in m]
    p = 0.5 * (t[0][0] - t[1][1])
    q = p * p + t[1][0] * t[0][1]
    z = sqrt(abs(q))
    c, s = givens(p + z if p >= 0.0 else p - z, t[1][0])
    rotate_rows(t, 0, 1, c, -s)
    rotate_columns(t, 0, 1, c, s)
    u = [[1.0, 0.0], [0.0, 1.0]]
    rotate_columns(u, 0, 1, c, s)
    t = [[t[0][0] * scale, t[0][1] * scale], [0.0, t[1][1] * scale]]
    second = -t[0][1] / (t[0][0] - t[1][1])
    columns = [[u[0][0], u[1][0]], [u[0][0] * second + u[0][1], u[1][0] * second + u[1][1]]]
    vectors = []
    for v in columns:
        length = sqrt(v[0] * v[0] + v[1] * v[1])
        # as a complex number over a complex number without an imaginary part
        vectors.append([(x * length) / (length * length) for x in v])
    return [t[0][0], t[1][1]], vectors


def refit(cell, x, condition):
    s = cell[1] + GUARD
    m, n = cell[0] / s, cell[2] / s
    samples = [[2.0 * i + 22.0, -(m * (2.0 * i + 22.0)) - n] for i in range(10)]
    predicted = -(m * condition) - n
    if x > predicted + 0.01:
        x = predicted + 0.01
    elif predicted - 0.01 > x:
        x = predicted - 0.01
    samples.append([condition, x])
    sums = [0.0, 0.0]
    for row in samples:
        sums = [sums[0] + row[0], sums[1] + row[1]]
    mean = [sums[0] / 11.0, sums[1] / 11.0]
    scatter = [[0.0, 0.0], [0.0, 0.0]]
    for row in samples:
        c = [row[0] - mean[0], row[1] - mean[1]]
        scatter = [[scatter[i][j] + c[i] * c[j] for j in range(2)] for i in range(2)]
    values, vectors = eigen_2x2(scatter)
    a, b = vectors[1 if values[1] < values[0] else 0]
    return [a, b, -(a * mean[0] + b * mean[1])]


# --- Grid and residual -----------------------------------------------------------------------------

def grid(k):
    slope = float(tangent(0.5235987755982988))
    z = k * 27.0 + 150.0
    return [z, -(slope * z), (slope * z + slope * z) / 15.0]


def moved_distance(cell, R, T, point):
    axis_point = [-1.0 / cell[0], 0.0, 0.0]

    def turned(v):
        return [R[3 * i] * v[0] + R[3 * i + 1] * v[1] + R[3 * i + 2] * v[2] for i in range(3)]

    n = turned(cell)
    p = [turned(axis_point)[i] + T[i] for i in range(3)]
    d = -(n[0] * p[0] + n[1] * p[1] + n[2] * p[2])
    a, b, c = (x / d for x in n)
    return abs(a * point[0] + b * point[1] + c * point[2] + 1.0) / sqrt(a * a + b * b + c * c)


# --- The motion of the held runs, to 60 digits ------------------------------------------------------

def quaternion(rotation):
    """x, y, z, w of the rotation by the length of `rotation` about its direction."""
    exact = [Decimal(str(x)) for x in rotation]
    angle = sum(x * x for x in exact).sqrt()
    return [float(x / angle * sine(angle / 2)) for x in exact] + [float(cosine(angle / 2))]


# --- The long cloud, to 60 digits ------------------------------------------------------------------

def solve(m, b):
    m = [row[:] + [b[i]] for i, row in enumerate(m)]
    for i in range(3):
        pivot = max(range(i, 3), key=lambda r: abs(m[r][i]))
        m[i], m[pivot] = m[pivot], m[i]
        for r in range(3):
            if r != i:
                f = m[r][i] / m[i][i]
                m[r] = [x - f * y for x, y in zip(m[r], m[i])]
    return [m[i][3] / m[i][i] for i in range(3)]


def decimal(fraction):
    return Decimal(fraction.numerator) / Decimal(fraction.denominator)


def exact_plane(points):
    exact = [[Fraction(x) for x in p] for p in points]
    n = len(points)
    m = [sum(p[i] for p in exact) / n for i in range(3)]
    scatter = [[decimal(sum((p[i] - m[i]) * (p[j] - m[j]) for p in exact)) for j in range(3)]
               for i in range(3)]
    v = [Decimal(1), Decimal(0), Decimal(0)]
    for _ in range(200):  # inverse iteration: the gap between the spreads is large
        v = solve(scatter, v)
        length = sum(x * x for x in v).sqrt()
        v = [x / length for x in v]
    d = -sum(v[i] * decimal(m[i]) for i in range(3))
    if d > 0:
        v, d = [-x for x in v], -d
    r = [abs(sum((decimal(p[i] - m[i])) * v[i] for i in range(3))) for p in exact]
    mean = sum(r) / n
    deviation = (sum((x - mean) ** 2 for x in r) / n).sqrt()
    return [float(x) for x in v + [d, max(r), mean, deviation]]


CELLS = [[-0.0081, 0.00013, 0.00087], [-0.0079, -0.00021, 0.0011], [-0.00845, 0.00037, -0.00052]]
THREE = [[131.25, -20.5, 300.0], [128.5, 35.75, 412.5], [126.125, 10.25, 505.75]]
TWELVE = [[131.25, -20.5, 300.0], [128.5, 35.75, 412.5], [126.125, 10.25, 505.75],
          [129.375, -41.5, 377.25], [127.0, 52.25, 466.5], [130.625, 3.5, 322.75],
          [125.25, -60.75, 541.0], [128.875, 21.0, 398.25], [126.75, -8.25, 482.5],
          [130.125, 44.5, 344.0], [127.625, -33.0, 441.75], [129.0, 15.5, 390.5]]

if __name__ == "__main__":
    for cell in CELLS:
        show("compensated cell", compensated(cell))
    plane, m = plane_of_three(THREE)
    show("plane of three points", plane)
    show("signed distances", [signed_distance([0.9617, 0.0214, 0.2731, -210.75], p)
                              for p in THREE])
    show("refit line, reading within reach", refit([-0.0137, 1.71, -211.3], 123.77, 27.5))
    show("refit line, reading held back", refit([-0.0137, 1.71, -211.3], 125.0, 43.25))
    for k in (0, 17, 49):
        show("grid %d" % k, grid(k))
    turn = [0.9998, -0.0121, 0.0157, 0.0119, 0.9999, 0.0083, -0.0158, -0.0081, 0.9998]
    show("distance to a moved cell",
         [moved_distance([-0.0081, 0.00013, 0.00087], turn, [0.31, -0.17, 0.23],
                         [171.0, 12.5, 433.0])])
    show("quaternion of the held runs' motion", quaternion([0.0012, -0.0021, 0.0016]))
    show("plane and statistics of twelve points, exact and rounded once", exact_plane(TWELVE))
