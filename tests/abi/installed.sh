#!/bin/sh
# Installs a build tree into a scratch prefix, then builds and runs a C host program against it, once
# through pkg-config and once through the CMake package.
#   installed.sh BUILD_DIR HOST_SOURCE_DIR C_COMPILER
set -eu
build=$1 host=$2 compiler=$3
prefix=$build/installed
rm -rf "$prefix" "$build/installed-host"
cmake --install "$build" --prefix "$prefix" >/dev/null

config=$(find "$prefix" -name pkgconfig)
flags=$(PKG_CONFIG_PATH=$config pkg-config --cflags --libs routerkit)
# The flags are words: they are meant to split.
# shellcheck disable=SC2086
"$compiler" -std=c99 -pedantic-errors -Wall -Wextra -Werror -o "$prefix/host" "$host/main.c" $flags
LD_LIBRARY_PATH=$(dirname "$config") "$prefix/host"

cmake -S "$host" -B "$build/installed-host" -D CMAKE_PREFIX_PATH="$prefix" \
    -D CMAKE_C_COMPILER="$compiler" >/dev/null
cmake --build "$build/installed-host" >/dev/null
"$build/installed-host/host"
