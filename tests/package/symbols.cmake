# Compares what a shared library exports with a list, or writes the list.
#
#   cmake -DNM=nm -DLIBRARY=libgridweave.so -DLIST=symbols/gridweave.txt [-DREFRESH=ON] -P tests/package/symbols.cmake

cmake_minimum_required(VERSION 3.19)

execute_process(COMMAND ${NM} --dynamic --defined-only --demangle --format=posix ${LIBRARY} OUTPUT_VARIABLE output COMMAND_ERROR_IS_FATAL ANY)
# A line is the name, which may hold blanks and brackets, the letter of its type, its place and its size.
string(REPLACE "[" "<" output "${output}")
string(REPLACE "]" ">" output "${output}")
string(REGEX REPLACE " [A-Za-z] [0-9a-f]+( [0-9a-f]*)?\n" ";" exported "${output}")
list(REMOVE_ITEM exported "")
# A constructor has a symbol for whole objects and one for bases, with one name.
list(REMOVE_DUPLICATES exported)
list(SORT exported)

if(REFRESH)
    list(JOIN exported "\n" text)
    file(WRITE ${LIST} "${text}\n")
    return()
endif()

file(STRINGS ${LIST} expected)
set(missing ${expected})
list(REMOVE_ITEM missing ${exported})
set(surplus ${exported})
list(REMOVE_ITEM surplus ${expected})
foreach(symbol IN LISTS missing)
    message(SEND_ERROR "not exported any more: ${symbol}")
endforeach()
foreach(symbol IN LISTS surplus)
    message(SEND_ERROR "exported, and not in the list: ${symbol}")
endforeach()
