# SPDX-License-Identifier: MIT
# Fails unless the library's visible symbols are exactly the functions and objects that its public headers declare.
# Variables: COMPILER, READELF, SOURCE (root of the sources), LIBRARY, WORK (scratch folder), HEADERS.

# Functions: from the compiler, so that those which macros declare count, too. Objects: from the headers' lines.
file(WRITE ${WORK}/declared.c "#include \"kelisp.h\"\n")
execute_process(COMMAND ${COMPILER} -std=c11 -I${SOURCE} -fsyntax-only -aux-info ${WORK}/declared.txt ${WORK}/declared.c
                COMMAND_ERROR_IS_FATAL ANY)
file(STRINGS ${WORK}/declared.txt lines REGEX "^/\\* ${SOURCE}/")
foreach(line IN LISTS lines)
    if(line MATCHES "[ *]([A-Za-z0-9_]+) \\(")
        list(APPEND declared ${CMAKE_MATCH_1})
    endif()
endforeach()
foreach(header IN LISTS HEADERS)
    file(STRINGS ${SOURCE}/${header} lines REGEX "^extern [^\"(]*;")
    foreach(line IN LISTS lines)
        if(line MATCHES "([A-Za-z0-9_]+)(\\[[^]]*\\])?;")
            list(APPEND declared ${CMAKE_MATCH_1})
        endif()
    endforeach()
endforeach()
list(REMOVE_DUPLICATES declared)

execute_process(COMMAND ${READELF} -sW ${LIBRARY} OUTPUT_VARIABLE symbols COMMAND_ERROR_IS_FATAL ANY)
string(REGEX MATCHALL "(GLOBAL|WEAK|UNIQUE) +DEFAULT +[0-9]+ [^\n@]+" symbols "${symbols}")
list(TRANSFORM symbols REPLACE ".* " "")
list(REMOVE_DUPLICATES symbols)
list(FILTER symbols EXCLUDE REGEX "^__odr_asan") # the address sanitizer's own

set(undeclared ${symbols})
list(REMOVE_ITEM undeclared ${declared})
set(missing ${declared})
list(REMOVE_ITEM missing ${symbols})
list(LENGTH declared count)
if(undeclared OR missing OR count LESS 250)
    message(FATAL_ERROR "${count} declared; public but not declared: ${undeclared}; declared but missing: ${missing}")
endif()
message("${count} public symbols")
