# The language and the warnings that all of our code is built with.
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS ON)
set(CMAKE_C_STANDARD 99)
set(CMAKE_C_EXTENSIONS ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

# -O2, not CMake's -O3: the library is small on purpose.
set(CMAKE_C_FLAGS_RELEASE "-O2 -DNDEBUG")
set(CMAKE_CXX_FLAGS_RELEASE "-O2 -DNDEBUG")

add_compile_options(
    -Wall -Wextra -Wshadow -Wformat=2 -Wundef -Wvla -Wmissing-declarations
    $<$<COMPILE_LANGUAGE:C>:-Wstrict-prototypes>)

if(ROUTERKIT_SANITIZE)
    add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=all
                        -fno-omit-frame-pointer)
    add_link_options(-fsanitize=address,undefined)
endif()

if(ROUTERKIT_FUZZ) # clang lacks some of the warnings
    add_compile_options(-fsanitize=fuzzer-no-link -Wno-unknown-warning-option)
endif()

# Warnings that the library's own code is held to besides.
set(ROUTERKIT_LIBRARY_WARNINGS -Wconversion -Wsign-conversion -Wcast-align=strict -Wcast-qual
    -Wnull-dereference -Wold-style-cast)
