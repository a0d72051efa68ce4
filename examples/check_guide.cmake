# Holds the guide against the tour: every block of C++ in it must stand in the example, word for word.
#
#   cmake -D GUIDE=guide.md -D EXAMPLE=tour.cpp -P check_guide.cmake

file(READ "${GUIDE}" guide)
file(READ "${EXAMPLE}" example)

set(blocks 0)
string(FIND "${guide}" "```cpp\n" start)
while(NOT start EQUAL -1)
    math(EXPR start "${start} + 7")
    string(SUBSTRING "${guide}" ${start} -1 guide)
    string(FIND "${guide}" "```" end)
    string(SUBSTRING "${guide}" 0 ${end} block)

    # In the example the block stands in a function.
    string(REGEX REPLACE "\n+$" "" block "${block}")
    string(REPLACE "\n" "\n    " block "    ${block}")
    string(REPLACE "\n    \n" "\n\n" block "${block}")
    string(FIND "${example}" "${block}\n" place)
    if(place EQUAL -1)
        message(FATAL_ERROR "This block of the guide is not in ${EXAMPLE}:\n${block}")
    endif()

    math(EXPR blocks "${blocks} + 1")
    math(EXPR end "${end} + 3")
    string(SUBSTRING "${guide}" ${end} -1 guide)
    string(FIND "${guide}" "```cpp\n" start)
endwhile()

if(blocks EQUAL 0)
    message(FATAL_ERROR "No block of C++ was found in ${GUIDE}.")
endif()
