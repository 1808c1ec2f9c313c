#!/bin/sh
# Installs a build tree into a scratch prefix, then builds and runs a C host program against it, once
# through pkg-config and once through the CMake package.
#   installed.sh BUILD_DIR HOST_SOURCE_DIR
# The environment tells how the build tree was made: CC, the C compiler with its options; TOOLCHAIN,
# a CMake toolchain file or nothing; EMULATOR, what runs its programs, or nothing.
set -eu
build=$1 host=$2
prefix=$build/installed
rm -rf "$prefix" "$build/installed-host"
cmake --install "$build" --prefix "$prefix" >/dev/null

# The lists of options are words: they are meant to split.
# shellcheck disable=SC2086,SC2046
config=$(find "$prefix" -name pkgconfig)
libraries=$(dirname "$config")
$CC -std=c99 -pedantic-errors -Wall -Wextra -Werror -o "$prefix/host" "$host/main.c" \
    $(PKG_CONFIG_PATH=$config pkg-config --cflags --libs routerkit)
LD_LIBRARY_PATH=$libraries $EMULATOR "$prefix/host"

cmake -S "$host" -B "$build/installed-host" -D CMAKE_PREFIX_PATH="$prefix" \
    ${TOOLCHAIN:+-D CMAKE_TOOLCHAIN_FILE=$TOOLCHAIN} >/dev/null
cmake --build "$build/installed-host" >/dev/null
$EMULATOR "$build/installed-host/host"
