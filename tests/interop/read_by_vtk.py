"""VTK's own readers on our .vtk and .geo files. Orientation is by the shape functions of VTK's cells."""

import os

from vtkmodules.vtkIOEnSight import vtkEnSight6Reader
from vtkmodules.vtkIOLegacy import vtkUnstructuredGridReader

from expected import Mesh, folder, same_elements, same_points, take

# VTK's type of the cells, the rows of an element in the cell, and the number of loose points that follow as a cell of type 2.
CELLS = {"bar2": (3, 2), "tria3": (5, 3), "quad4": (9, 4), "tetra4": (10, 4), "pyra5": (14, 5), "penta6": (13, 6), "hexa8": (12, 8),
         "tria6": (5, 3), "quad8": (9, 4), "tetra10": (10, 4), "hexa20": (12, 8)}


def jacobian(cell):
    count, center = cell.GetNumberOfPoints(), [0.0] * 3
    cell.GetParametricCenter(center)
    derivatives = [0.0] * (3 * count)
    cell.InterpolateDerivs(center, derivatives)
    points = [cell.GetPoints().GetPoint(k) for k in range(count)]
    (a, b, c), (d, e, f), (g, h, i) = ([sum(derivatives[r * count + k] * points[k][x] for k in range(count)) for x in range(3)]
                                      for r in range(3))
    return a * (e * i - f * h) - b * (d * i - f * g) + c * (d * h - e * g)


def nodes_of(cell):
    return [cell.GetPointId(k) for k in range(cell.GetNumberOfPoints())]


for name, (code, corners) in CELLS.items():
    mesh = Mesh(folder(), name)
    reader = vtkUnstructuredGridReader()
    reader.SetFileName(os.path.join(folder(), name + ".vtk"))
    reader.Update()
    grid = reader.GetOutput()
    same_points([grid.GetPoint(k) for k in range(grid.GetNumberOfPoints())], mesh.points, 1e-6, name)

    found, loose = [], []
    for k in range(grid.GetNumberOfCells()):
        cell = grid.GetCell(k)
        nodes = nodes_of(cell)
        if cell.GetCellType() == 2:
            loose.append(nodes)
            continue
        assert cell.GetCellType() == code, f"{name}: cell type {cell.GetCellType()}"
        if code >= 10:
            assert jacobian(cell) > 0, f"{name}: cell {k} is inside out"
        found.append(take(nodes, 0, 1, 3, 2) if code == 10 else nodes)
    same_elements(found, [element[:corners] for element in mesh.elements], name)
    same_elements(loose, [element[corners:] for element in mesh.elements if len(element) > corners], name + ", loose points")

# VTK reads the corners of EnSight's elements alone, and through a case file. Not read here: 6-node triangles, which we list twice under one
# count; VTK's reader does not come back from such a file.
for name in ("bar2", "tria3", "quad4", "tetra4", "tetra10", "penta6", "hexa8", "hexa20"):
    mesh = Mesh(folder(), name)
    case = os.path.join(folder(), name + ".case")
    with open(case, "w") as file:
        file.write(f"FORMAT\ntype: ensight\nGEOMETRY\nmodel: {name}.geo\n")
    reader = vtkEnSight6Reader()
    reader.SetFilePath(folder())
    reader.SetCaseFileName(name + ".case")
    reader.Update()
    block = reader.GetOutput().GetBlock(0)
    same_points([block.GetPoint(k) for k in range(block.GetNumberOfPoints())], mesh.points, 1e-5, name + ".geo")
    assert block.GetNumberOfCells() == len(mesh.elements), f"{name}.geo: {block.GetNumberOfCells()} cells"
