#!/usr/bin/env bash
# usage: compile_headers.sh ROOT HEADER...
# Compiles each public header alone, in every language level that a user may have, with both compilers.
set -euo pipefail
cd "$1"
shift

# compile COMPILER LEVEL HEADER
compile() {
    # Twice, for the include guard.
    printf '#include "%s"\n#include "%s"\n' "$3" "$3" |
        "$1" "-std=c++$2" -fsyntax-only -Wall -Wextra -Wpedantic -Wshadow -Werror -I . -x c++ - || {
        echo "$3 does not compile with $1 as C++$2." >&2
        return 1
    }
}
export -f compile

for header in "$@"; do
    printf '%s\n' {g++,clang++}' '{11,14,17,20}" $header"
done | xargs -P "$(nproc)" -L 1 bash -c 'compile "$@"' -
