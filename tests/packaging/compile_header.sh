#!/bin/sh
# usage: compile_header.sh ROOT HEADER
# Compiles a public header alone, in every language level that a user may have, with both compilers.
set -eu
root=$1
header=$2
for compiler in g++ clang++; do
    for level in 11 14 17 20; do
        # Twice, for the include guard.
        printf '#include "%s"\n#include "%s"\n' "$header" "$header" |
            "$compiler" "-std=c++$level" -fsyntax-only -Wall -Wextra -Wpedantic -Wshadow -Werror \
                -I "$root" -x c++ - || {
            echo "$header does not compile with $compiler as C++$level." >&2
            exit 1
        }
    done
done
