"""What the writer of the meshes left for the readers, and ways to hold a reading against it."""

import math
import os
import sys


class Mesh:
    def __init__(self, folder, name):
        with open(os.path.join(folder, name + ".txt")) as lines:
            self.kind, nodes, elements = (int(field) for field in next(lines).split())
            self.points = [[float(field) for field in next(lines).split()] for _ in range(nodes)]
            self.elements = [[int(field) for field in next(lines).split()] for _ in range(elements)]


def folder():
    return sys.argv[1]


def same_points(found, expected, tolerance, what):
    assert len(found) == len(expected), f"{what}: {len(found)} nodes, not {len(expected)}"
    for a, b in zip(found, expected):
        assert math.dist([float(x) for x in a], b) <= tolerance, f"{what}: node {a} for {b}"


def same_elements(found, expected, what):
    """The same elements in any order of them, as mixed matrices are sorted by shape."""
    found = sorted(tuple(int(node) for node in element) for element in found)
    expected = sorted(tuple(element) for element in expected)
    assert len(found) == len(expected), f"{what}: {len(found)} elements, not {len(expected)}"
    assert found == expected, f"{what}: other nodes, e.g. {next((a, b) for a, b in zip(found, expected) if a != b)}"


def take(element, *rows):
    return [element[row] for row in rows]


def signed_volume(a, b, c, d):
    u, v, w = ([q - p for p, q in zip(a, x)] for x in (b, c, d))
    return (u[0] * (v[1] * w[2] - v[2] * w[1]) - u[1] * (v[0] * w[2] - v[2] * w[0]) + u[2] * (v[0] * w[1] - v[1] * w[0])) / 6
