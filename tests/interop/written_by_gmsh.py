"""Files that Gmsh writes of a box, through the converter: the counts are Gmsh's own."""

import os
import re
import subprocess
import sys

from expected import folder

gmsh, convert = sys.argv[2:4]
box = os.path.join(folder(), "box.geo_in")
with open(box, "w") as file:
    file.write('SetFactory("OpenCASCADE");\nBox(1) = {0, 0, 0, 1, 1, 1};\nMesh.MeshSizeMax = 0.4;\n')
os.replace(box, os.path.join(folder(), "gmsh_box.geo"))

for dimension, end, kind, code in ((3, ".bdf", "tetra4", 4), (2, ".bdf", "tria3", 2), (2, ".stl", "tria3", 2)):
    stem = os.path.join(folder(), f"gmsh_box_{dimension}")
    for out, form in ((stem + end, end[1:]), (stem + ".msh", "msh22")):
        subprocess.run([gmsh, os.path.join(folder(), "gmsh_box.geo"), f"-{dimension}", "-format", form, "-save_all", "-o", out], check=True,
                       capture_output=True, timeout=60)
    with open(stem + ".msh") as file:
        lines = file.read().split("\n")
    first = lines.index("$Elements")
    count = int(lines[first + 1])
    expected = sum(int(line.split()[1]) == code for line in lines[first + 2:first + 2 + count])
    told = subprocess.run([convert, stem + end, stem + end + ".vtk"], check=True, capture_output=True, text=True, timeout=60).stdout
    found = int(re.search(rf"(\d+) {kind}", told)[1])
    assert found == expected, f"{stem}{end}: {found} {kind}, not {expected}"
