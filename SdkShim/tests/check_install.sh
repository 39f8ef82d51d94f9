#!/usr/bin/env bash
# check_install.sh BUILD_DIRECTORY CONSUMER_DIRECTORY: installs the library elsewhere, and another project, in
# C and in C++, finds it there by CMake and by pkg-config, links it and runs.
set -euo pipefail
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
for component in library development; do
    cmake --install "$1" --component "$component" --prefix "$work/prefix" >/dev/null
done
readelf -d "$work"/prefix/lib*/libvq_identity.so | grep -q 'SONAME.*\[libvq_identity\.so\.1\]'
cmake -S "$2" -B "$work/build" -DCMAKE_PREFIX_PATH="$work/prefix" >/dev/null
cmake --build "$work/build" >/dev/null
for language in c cpp; do
    "$work/build/by_cmake_$language"
    LD_LIBRARY_PATH="$(echo "$work"/prefix/lib*)" "$work/build/by_pkg_config_$language"
done
