# Compares what a shared library exports with a list, or writes the list; or tells what of a list an object file does not use.
#
#   cmake -DNM=nm -DLIBRARY=libgridweave.so -DLIST=symbols/gridweave.txt [-DREFRESH=ON] -P tests/package/symbols.cmake
#   cmake -DNM=nm -DOBJECT=host.o -DLIST=symbols/gridweave.txt -P tests/package/symbols.cmake

cmake_minimum_required(VERSION 3.19)

if(OBJECT)
    set(options --undefined-only ${OBJECT})
else()
    set(options --dynamic --defined-only ${LIBRARY})
endif()
execute_process(COMMAND ${NM} --demangle --format=posix ${options} OUTPUT_VARIABLE output COMMAND_ERROR_IS_FATAL ANY)
# A line is the name, which may hold blanks and brackets, the letter of its type and, where it is defined, its place and its size.
string(REPLACE "[" "<" output "${output}")
string(REPLACE "]" ">" output "${output}")
string(REGEX REPLACE " [A-Za-z] *([0-9a-f]+ *[0-9a-f]*)?\n" ";" symbols "${output}")
list(REMOVE_ITEM symbols "")
# A constructor has a symbol for whole objects and one for bases, with one name.
list(REMOVE_DUPLICATES symbols)
list(SORT symbols)

if(REFRESH)
    list(JOIN symbols "\n" text)
    file(WRITE ${LIST} "${text}\n")
    return()
endif()

file(STRINGS ${LIST} expected)
set(missing ${expected})
list(REMOVE_ITEM missing ${symbols})
foreach(symbol IN LISTS missing)
    message(SEND_ERROR "no longer exported, or not used: ${symbol}")
endforeach()
if(NOT OBJECT)
    set(surplus ${symbols})
    list(REMOVE_ITEM surplus ${expected})
    foreach(symbol IN LISTS surplus)
        message(SEND_ERROR "exported, and not in the list: ${symbol}")
    endforeach()
endif()
