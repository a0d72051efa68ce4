"""assimp on our .stl and .obj files."""

import os
import re
import subprocess
import sys

from expected import Mesh, folder


def look_at(file, mesh, triangles_per_element=1):
    told = subprocess.run([sys.argv[2], "info", os.path.join(folder(), file)], capture_output=True, text=True, timeout=60).stdout
    counts = tuple(int(re.search(what + r":\s+(\d+)", told)[1]) for what in ("Vertices", "Faces"))
    assert counts == (len(mesh.points), triangles_per_element * len(mesh.elements)), f"{file}: {counts}"


for name in ("tria3.stl", "tria3_text.stl"):
    look_at(name, Mesh(folder(), "tria3"))

# assimp passes over records that do not stand at the beginning of a line; our records have a blank before them.
# It counts quadrangles as two triangles.
for name, triangles in (("tria3", 1), ("quad4", 2)):
    with open(os.path.join(folder(), name + ".obj")) as ours, open(os.path.join(folder(), name + "_left.obj"), "w") as left:
        left.writelines(line.lstrip() for line in ours)
    look_at(name + "_left.obj", Mesh(folder(), name), triangles)
