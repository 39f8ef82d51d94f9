#!/usr/bin/env bash
# check_exports.sh LIBRARY HEADER...: the library defines exactly the functions that the headers declare.
set -euo pipefail
library=$1
shift
declared=$(sed -nE 's/^VQ_API .*\b(VQ[A-Za-z]+)\(.*/\1/p' "$@" | sort)
exported=$(nm -D --defined-only "$library" | awk '{ print $3 }' | sort)
[ "$(wc -l <<<"$declared")" -eq 14 ] || { echo "expected 14 declared functions, found:"; echo "$declared"; exit 1; }
diff <(echo "$declared") <(echo "$exported")
