"""Gmsh on our .mesh and .bdf files: it reads them and writes what it understood as its own format."""

import os
import subprocess
import sys

from expected import Mesh, folder

GMSH = {"bar2": 1, "tria3": 2, "quad4": 3, "tetra4": 4, "hexa8": 5, "penta6": 6, "pyra5": 7}
IN_MEDIT = dict(GMSH, penta6=5, pyra5=5)  # degenerate hexahedra

for end, types in ((".mesh", IN_MEDIT), (".bdf", GMSH)):
    for name, code in types.items():
        mesh = Mesh(folder(), name)
        out = os.path.join(folder(), name + end + ".msh")
        told = subprocess.run([sys.argv[2], os.path.join(folder(), name + end), "-0", "-save_all", "-format", "msh22", "-o", out],
                              capture_output=True, text=True, timeout=60)
        assert "Error" not in told.stdout + told.stderr, f"{name}{end}: {told.stdout}{told.stderr}"
        with open(out) as file:
            lines = file.read().split("\n")
        nodes = int(lines[lines.index("$Nodes") + 1])
        first = lines.index("$Elements")
        count = int(lines[first + 1])
        kinds = {int(line.split()[1]) for line in lines[first + 2:first + 2 + count]}
        assert (nodes, count, kinds) == (len(mesh.points), len(mesh.elements), {code}), f"{name}{end}: {nodes}, {count}, {kinds}"
