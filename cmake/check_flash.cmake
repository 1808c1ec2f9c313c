# Proves on a library built for the router that it fits: how much it holds of what, and that the
# buffers on its stack are guarded. A limit that was lowered stays low.
#   cmake -D LIBRARY=... -D NM=... -D READELF=... -P check_flash.cmake
cmake_minimum_required(VERSION 3.25)

set(most_read_only 90112) # bytes of text and read-only data
set(most_writable 6144)   # bytes of writable data and bss
set(most_relocations 150) # that the loader adds the library's address to

function(tool_output result)
    execute_process(COMMAND ${ARGN} OUTPUT_VARIABLE text COMMAND_ERROR_IS_FATAL ANY)
    set(${result} "${text}" PARENT_SCOPE)
endfunction()

# The tables of names and relocations are the loader's.
tool_output(sections ${READELF} --wide --section-headers ${LIBRARY})
string(REGEX MATCHALL "[^\n]+" sections "${sections}")
set(read_only 0)
set(writable 0)
foreach(section IN LISTS sections)
    if(NOT section MATCHES
            "\\] (\\.[^ ]+) +(PROGBITS|NOBITS|INIT_ARRAY|FINI_ARRAY) +[0-9a-f]+ [0-9a-f]+ ([0-9a-f]+) [0-9a-f]+ +([A-Za-z]+) ")
        continue()
    endif()
    math(EXPR size "0x${CMAKE_MATCH_3}")
    set(flags ${CMAKE_MATCH_4})
    if(flags MATCHES "W")
        math(EXPR writable "${writable} + ${size}")
    elseif(flags MATCHES "A")
        math(EXPR read_only "${read_only} + ${size}")
    endif()
endforeach()
tool_output(relocations ${READELF} --wide --relocs ${LIBRARY})
string(REGEX MATCHALL "R_MIPS_REL32" relocations "${relocations}")
list(LENGTH relocations relocations)

function(compare what is most)
    message(STATUS "${what}: ${is} (at most ${most})")
    if(is GREATER most)
        message(SEND_ERROR "the library has grown: ${what} ${is}, at most ${most}")
    endif()
endfunction()
compare("text and read-only data" ${read_only} ${most_read_only})
compare("writable data" ${writable} ${most_writable})
compare("relocations" ${relocations} ${most_relocations})

tool_output(imports ${NM} --dynamic --undefined-only ${LIBRARY})
if(NOT imports MATCHES "__stack_chk_fail")
    message(SEND_ERROR "no buffer on the stack is guarded")
endif()
