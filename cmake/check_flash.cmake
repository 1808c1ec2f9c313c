# Proves on a library built for the router that it fits: how much it holds of what, and that the
# buffers on its stack are guarded. A limit that was lowered stays low.
#   cmake -D LIBRARY=... -D OBJDUMP=... -D READELF=... -P check_flash.cmake
cmake_minimum_required(VERSION 3.25)

set(most_read_only 65536) # bytes of text and read-only data
set(most_writable 6144)   # bytes of writable data and bss
set(most_relocations 150) # that the loader adds the library's address to
set(fewest_guards 80)     # functions with characters on the stack

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
            "\\] (\\.[^ ]+) +(PROGBITS|NOBITS|INIT_ARRAY|FINI_ARRAY) +[0-9a-f]+ [0-9a-f]+ ([0-9a-f]+) [0-9a-f]+ +([WAXMSp]+) ")
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

# Where the compiler does not take a buffer for one, there is no guard and no word of it.
tool_output(addresses ${READELF} --wide --arch-specific ${LIBRARY})
if(NOT addresses MATCHES "(-[0-9]+)\\(gp\\)[^\n]* __stack_chk_fail")
    message(FATAL_ERROR "no buffer on the stack is guarded")
endif()
tool_output(code ${OBJDUMP} --disassemble ${LIBRARY})
string(REGEX MATCHALL "\tlw\t[^\n]*,${CMAKE_MATCH_1}\\(" guards "${code}")
list(LENGTH guards guards)
message(STATUS "functions that guard their stack: ${guards} (at least ${fewest_guards})")
if(guards LESS fewest_guards)
    message(SEND_ERROR "buffers on the stack have lost their guards")
endif()
