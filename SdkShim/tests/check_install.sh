#!/usr/bin/env bash
# check_install.sh BUILD_DIRECTORY CONSUMER_DIRECTORY: installs the library elsewhere, and another project finds it
# there by CMake and by pkg-config, links it and runs.
set -euo pipefail
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cmake --install "$1" --component vq_identity --prefix "$work/prefix" >/dev/null
cmake -S "$2" -B "$work/build" -DCMAKE_PREFIX_PATH="$work/prefix" >/dev/null
cmake --build "$work/build" >/dev/null
"$work/build/by_cmake"
LD_LIBRARY_PATH="$(echo "$work"/prefix/lib*)" "$work/build/by_pkg_config"
