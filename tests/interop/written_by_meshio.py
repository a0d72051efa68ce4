"""Files that meshio writes, through the converter."""

import os
import subprocess
import sys

import meshio

from expected import Mesh, folder, same_points

CELLS = {"tria3": "triangle", "quad4": "quad", "tetra4": "tetra", "hexa8": "hexahedron"}



def give_property(file):
    """meshio leaves the property field of elements blank. A blank field ends our list of a card's numbers, so that the element is passed
    over: the file must name a property, as the format asks."""
    with open(file) as lines:
        filled = [line[:16] + "1       " + line[24:] if line[0] == "C" and not line[16:24].strip() else line for line in lines]
    with open(file, "w") as out:
        out.writelines(filled)


for name, end in (("tria3", ".obj"), ("tria3", ".stl"), ("tria3", ".bdf"), ("quad4", ".bdf"), ("tetra4", ".bdf"), ("hexa8", ".bdf")):
    mesh = Mesh(folder(), name)
    elements = [[e[0], e[2], e[1], e[3]] if name == "tetra4" else e for e in mesh.elements]  # meshio's tetrahedra are right-handed
    source, target = (os.path.join(folder(), f"meshio_{name}{end}{more}") for more in (end, ".mesh"))
    meshio.write(source, meshio.Mesh(mesh.points, [(CELLS[name], elements)]))
    if end == ".bdf":
        give_property(source)
    subprocess.run([sys.argv[2], source, target], check=True, capture_output=True, timeout=60)
    back = meshio.read(target)
    assert [block.type for block in back.cells] == [CELLS[name]], f"{source}: {back.cells}"
    assert len(back.cells[0].data) == len(elements), source
    if end == ".stl":
        same_points(sorted(map(tuple, back.points)), sorted(mesh.points), 1e-6, source)
        continue
    same_points(back.points, mesh.points, 1e-6, source)
    assert back.cells[0].data.tolist() == mesh.elements, source
