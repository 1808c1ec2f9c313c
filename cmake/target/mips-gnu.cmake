# MIPS with glibc, for what needs a C++ run time: the tests. The variable ROUTERKIT_CPU is the prefix of
# the compiler: mipsel (the router's processor) or mips (the same, big-endian).
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_TRY_COMPILE_PLATFORM_VARIABLES ROUTERKIT_CPU)
set(CMAKE_SYSTEM_PROCESSOR ${ROUTERKIT_CPU})
set(CMAKE_C_COMPILER ${ROUTERKIT_CPU}-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER ${ROUTERKIT_CPU}-linux-gnu-g++)
set(CMAKE_C_FLAGS_INIT -march=mips32r2)
set(CMAKE_CXX_FLAGS_INIT -march=mips32r2)
set(CMAKE_FIND_ROOT_PATH /usr/${ROUTERKIT_CPU}-linux-gnu)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-${ROUTERKIT_CPU} -E LAB_EMULATED=1
    -L /usr/${ROUTERKIT_CPU}-linux-gnu)

# As with musl: the same code as on the router.
set(ROUTERKIT_HAS_EXECINFO OFF)
set(ROUTERKIT_VFORK_COPIES ON)
set(ROUTERKIT_MIPS16 ON)
set(ROUTERKIT_LTO ON)
