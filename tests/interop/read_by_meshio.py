"""meshio on our .mesh, .bdf, .obj and .stl files."""

import os

import meshio

from expected import Mesh, folder, same_elements, same_points, signed_volume, take

# What MEDIT files hold of each kind: the corners, pyramids and prisms as degenerate hexahedra.
MEDIT = {"bar2": range(2), "tria3": range(3), "tria6": range(3), "quad4": range(4), "quad8": range(4), "tetra4": range(4),
         "tetra10": range(4), "pyra5": (0, 1, 2, 3, 4, 4, 4, 4), "penta6": (0, 1, 2, 2, 3, 4, 5, 5), "hexa8": range(8), "hexa20": range(8)}
# The order in which NASTRAN has our nodes.
NASTRAN = {"bar2": range(2), "tria3": range(3), "quad4": range(4), "tetra4": (0, 2, 1, 3), "pyra5": range(5), "penta6": range(6),
           "hexa8": range(8)}


def read(file):
    mesh = meshio.read(os.path.join(folder(), file))
    return mesh.points, [element for block in mesh.cells for element in block.data]


for end, table in ((".mesh", MEDIT), (".bdf", NASTRAN)):
    for name, rows in table.items():
        mesh = Mesh(folder(), name)
        points, elements = read(name + end)
        same_points(points, mesh.points, 1e-6, name + end)
        same_elements(elements, [take(element, *rows) for element in mesh.elements], name + end)
        if end == ".bdf" and name == "tetra4":
            assert all(signed_volume(*(points[k] for k in element)) > 0 for element in elements), "tetra4.bdf: inside out"

for file in ("tria3.obj", "quad4.obj"):
    mesh = Mesh(folder(), file[:5])
    points, elements = read(file)
    same_points(points, mesh.points, 1e-8, file)
    same_elements(elements, mesh.elements, file)

for file in ("tria3.stl", "tria3_text.stl"):  # meshio welds, in an order of its own
    mesh = Mesh(folder(), "tria3")
    points, elements = read(file)
    same_points(sorted(map(tuple, points)), sorted(mesh.points), 1e-6, file)
    assert len(elements) == len(mesh.elements), file
