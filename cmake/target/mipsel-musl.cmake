# The router: 32-bit little-endian MIPS with musl. The compiler is Debian's cross compiler, which is
# made for glibc; the C library comes from the sysroot that tools/sysroot.sh unpacks.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR mipsel)
set(CMAKE_C_COMPILER mipsel-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER mipsel-linux-gnu-g++)
set(ROUTERKIT_NO_CXX_RUNTIME ON) # the library needs none
set(ROUTERKIT_VFORK_COPIES ON)
set(ROUTERKIT_MIPS16 ON)
set(ROUTERKIT_LTO ON)
set(ROUTERKIT_STACK_PROTECTOR ON)
set(CMAKE_TRY_COMPILE_TARGET_TYPE STATIC_LIBRARY)
set(CMAKE_TRY_COMPILE_PLATFORM_VARIABLES ROUTERKIT_SYSROOT)
if(NOT ROUTERKIT_SYSROOT)
    set(ROUTERKIT_SYSROOT ${CMAKE_CURRENT_LIST_DIR}/../../build/sysroot)
endif()
get_filename_component(ROUTERKIT_SYSROOT ${ROUTERKIT_SYSROOT} ABSOLUTE)
set(CMAKE_SYSROOT ${ROUTERKIT_SYSROOT})
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-mipsel -L ${ROUTERKIT_SYSROOT})

execute_process(COMMAND mipsel-linux-gnu-gcc -print-file-name=include
    OUTPUT_VARIABLE compiler_headers OUTPUT_STRIP_TRAILING_WHITESPACE)
execute_process(COMMAND mipsel-linux-gnu-gcc -dumpversion
    OUTPUT_VARIABLE compiler_version OUTPUT_STRIP_TRAILING_WHITESPACE)
set(cxx_headers /usr/mipsel-linux-gnu/include/c++/${compiler_version})
set(target_flags "-march=mips32r2 --sysroot=${CMAKE_SYSROOT}\
 -specs=${CMAKE_CURRENT_LIST_DIR}/musl.specs -nostdinc")
set(c_headers "-isystem ${CMAKE_SYSROOT}/usr/include/mipsel-linux-musl -isystem ${compiler_headers}\
 -idirafter ${CMAKE_SYSROOT}/usr/include -idirafter ${CMAKE_SYSROOT}/usr/include/mipsel-linux-gnu")
set(CMAKE_C_FLAGS_INIT "${target_flags} ${c_headers}")
# The headers of libstdc++ ask for the version of glibc; the library uses none of its run time.
set(CMAKE_CXX_FLAGS_INIT "${target_flags} '-D__GLIBC_PREREQ(a,b)=0' -nostdinc++\
 -isystem ${cxx_headers} -isystem ${cxx_headers}/mipsel-linux-gnu ${c_headers}")
