# Converts meshes through all formats and looks at what is told and written, then at the sentence of every failure.
#
#   cmake -D MAKE_BRACKET=program -D CONVERT=program -D FOLDER=folder -P check_convert.cmake

file(REMOVE_RECURSE "${FOLDER}")
file(MAKE_DIRECTORY "${FOLDER}")

# Converts, and holds every further argument against what was told, as a regular expression.
function(convert in out)
    execute_process(COMMAND "${CONVERT}" "${FOLDER}/${in}" "${FOLDER}/${out}" RESULT_VARIABLE code OUTPUT_VARIABLE told ERROR_VARIABLE told
                    COMMAND_ERROR_IS_FATAL ANY)
    foreach(expected IN LISTS ARGN)
        if(NOT told MATCHES "${expected}")
            message(FATAL_ERROR "${in} to ${out}: no \"${expected}\" in\n${told}")
        endif()
    endforeach()
endfunction()

# Converts in vain: one sentence that matches, a non-zero status and no output.
function(refuse in out sentence)
    execute_process(COMMAND "${CONVERT}" "${FOLDER}/${in}" "${FOLDER}/${out}" ${ARGN} RESULT_VARIABLE code OUTPUT_QUIET ERROR_VARIABLE told)
    if(code EQUAL 0 OR NOT told MATCHES "^convert: [^\n]*${sentence}[^\n]*\\.\n$")
        message(FATAL_ERROR "${in} to ${out}: status ${code}, and no \"${sentence}\" in\n${told}")
    endif()
    if(EXISTS "${FOLDER}/${out}")
        message(FATAL_ERROR "${in} to ${out}: refused, but the file is there")
    endif()
endfunction()

function(expect_in file)
    file(READ "${FOLDER}/${file}" content)
    foreach(expected IN LISTS ARGN)
        string(FIND "${content}" "${expected}" place)
        if(place EQUAL -1)
            message(FATAL_ERROR "${file} does not hold\n${expected}")
        endif()
    endforeach()
endfunction()

# A surface through every format that is read, then to those that are only written.
execute_process(COMMAND "${MAKE_BRACKET}" "${FOLDER}/part.STL" OUTPUT_VARIABLE made COMMAND_ERROR_IS_FATAL ANY)
string(REGEX MATCH "^[0-9]+" triangles "${made}")
convert(part.STL part.obj "\n  note: coordinates are written with nine significant digits\n" "part.obj: [0-9]+ nodes, ${triangles} tria3\n$")
convert(part.obj part.BDF "${triangles} tria3\n$")
convert(part.BDF part.neu "${triangles} tria3\n$")
convert(part.neu part.vtk "${triangles} tria3\n$")
convert(part.neu part.mesh "${triangles} tria3\n$")
convert(part.neu part.geo "${triangles} tria3\n$")
convert(part.neu back.stl "note: property numbers are lost\n" "${triangles} tria3\n$")
expect_in(part.mesh "Triangles\n${triangles}\n")
expect_in(part.vtk "CELL_DATA ${triangles}\n")

# Mixed kinds with property numbers: two solids, shells on them, a quadratic triangle and a bar.
file(WRITE "${FOLDER}/mixed.nas"
"BEGIN BULK
GRID,1,,0.,0.,0.
GRID,2,,1.,0.,0.
GRID,3,,1.,1.,0.
GRID,4,,0.,1.,0.
GRID,5,,0.,0.,1.
GRID,6,,1.,0.,1.
GRID,7,,1.,1.,1.
GRID,8,,0.,1.,1.
GRID,9,,.5,.5,2.
CHEXA,1,7,1,2,3,4,5,6,+A
+A,7,8
CPYRAM,2,9,5,6,7,8,9
CQUAD4,3,3,1,2,3,4
CTRIA3,4,5,5,6,9
CTRIA6,5,5,1,2,3,5,6,7
CROD,6,2,1,9
ENDDATA
")
convert(mixed.nas mixed.mesh "1 tria6 are reduced to their corners: MEDIT takes 3 of their 6 nodes" "1 pyra5 are written as degenerate hexahedra")
expect_in(mixed.mesh "Edges\n1\n1 9 2 \n" "Triangles\n2\n5 6 9 5 \n1 2 3 5 \n" "Quadrilaterals\n1\n1 2 3 4 3 \n" "1 2 3 4 5 6 7 8 7 \n"
          "5 6 7 8 9 9 9 9 9 \n")
convert(mixed.nas mixed.vtk "1 tria6 show their corners; their other nodes become loose points")
expect_in(mixed.vtk "CELL_DATA 7\nSCALARS property unsigned_int 1\nLOOKUP_TABLE default\n2\n5\n3\n5\n5\n9\n7\n")
convert(mixed.nas mixed.neu "1 pyra5 are left out: FEMAP does not hold them" "1 tria6 are reduced")
convert(mixed.neu again.bdf "9 nodes, 1 bar2, 2 tria3, 1 quad4, 1 hexa8\n$")
expect_in(again.bdf "CBAR,1,2,1,9\n" "CTRIA3,2,5,5,6,9\n" "CTRIA3,3,5,1,2,3\n" "CQUAD4,4,3,1,2,3,4\n" "CHEXA,5,7,1,2,3,4,5,6,+C\n+C,7,8\n")
convert(mixed.nas mixed.stl "1 hexa8 are left out" "1 quad4 are cut into two triangles each" "property numbers are lost" "4 tria3\n$")
convert(mixed.nas mixed.geo "1 pyra5 are left out")
expect_in(mixed.geo "part        2\n*************\nbar2\n" "part        5\n*************\ntria3\n       2\n" "part        7\n*************\nhexa8\n")

execute_process(COMMAND "${CONVERT}" "${FOLDER}/mixed.nas" "${FOLDER}/one.obj" --kind quad4 OUTPUT_VARIABLE told COMMAND_ERROR_IS_FATAL ANY)
if(NOT told MATCHES "9 nodes, 1 quad4\n$")
    message(FATAL_ERROR "--kind quad4 gave\n${told}")
endif()

# One property number for surfaces and for solids: references cannot be the numbers, and this is told.
file(READ "${FOLDER}/mixed.nas" text)
string(REPLACE "CHEXA,1,7," "CHEXA,1,3," text "${text}")
file(WRITE "${FOLDER}/shared.dat" "${text}")
convert(shared.dat shared.mesh "note: reference 1 is property 3, surfaces\n" "note: reference 2 is property 3, solids\n")

# Failures.
file(WRITE "${FOLDER}/bad.obj" "v 1 2\n")
file(WRITE "${FOLDER}/bad.stl" "solid\nfacet normal 0 0 1\n")
file(WRITE "${FOLDER}/bad.bdf" "GRID,0,,0.,0.,0.\n")
file(WRITE "${FOLDER}/bad.neu" "   -1\n403\n1,2,3\n   -1\n")
file(WRITE "${FOLDER}/empty.bdf" "")
file(WRITE "${FOLDER}/stray.bdf" "GRID,1,,0.,0.,0.\nCTRIA3,1,1,1,2,3\n")
file(WRITE "${FOLDER}/solid.bdf" "GRID,4,,0.,0.,1.\nCTETRA,1,1,1,2,3,4\n")
refuse(part.xyz no.vtk "the extension of [^\n]* is not known")
refuse(part.STL no.xyz "the extension of [^\n]* is not known")
refuse(missing.stl no.vtk "cannot be opened")
refuse(part.mesh no.vtk "MEDIT is written only")
refuse(bad.obj no.vtk "has a malformed record")
refuse(bad.stl no.vtk "is no STL file, or ends before its last triangle")
refuse(bad.bdf no.vtk "has a node that cannot be read")
refuse(bad.neu no.vtk "has a record with too few fields")
refuse(empty.bdf no.vtk "holds no elements")
refuse(stray.bdf no.vtk "name nodes that are not in it")
refuse(solid.bdf no.stl "there is nothing to write")
refuse(solid.bdf no.vtk "holds no elements of the kind asked for" --kind tria3)
refuse(solid.bdf no.vtk "there is no kind tria5" --kind tria5)
refuse(part.STL no_folder/no.vtk "cannot be written")
