#!/usr/bin/env bash
# Looks for what the library must not do: print, or end the process. Where an interface says that it does,
# the line stands in the list below; the check fails on any other, and on one of these that is gone.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

# File, colon, what is called; a line a call.
allowed=$(sort <<'LIST'
checker/hashfile_checker.cpp:std::abort
config/standard_error.h:std::cerr
config/xml_reader.cpp:pelorikutil::standardError
config/xml_reader.cpp:pelorikutil::standardError
config/xml_writer.cpp:pelorikutil::standardError
LIST
)

streams='std::(cerr|cout|clog|wcerr|wcout|wclog)|pelorikutil::standardError'
printing='(std::)?\b(v?printf|v?fprintf|dprintf|puts|fputs|putchar|putc|fputc|fwrite|perror|psignal|syslog)(?= *\()'
ending='(std::)?\b(abort|_?exit|_Exit|quick_exit|terminate|kill|raise)(?= *\()'
stdio='\b(stderr|stdout)\b'

found=$(
    for folder in digest checker text config system; do
        [ -d "$folder" ] || continue
        find "$folder" -name '*.cpp' -o -name '*.h'
    done | while read -r file; do
        # Without comments.
        sed 's://.*::' "$file" | grep -oP "$streams|$printing|$ending|$stdio" | sed "s#^#$file:#" || true
    done | sort
)

if [ "$found" != "$allowed" ]; then
    echo "The library prints or ends the process where it should not (>), or no longer where it should (<):"
    diff <(echo "$allowed") <(echo "$found") | grep '^[<>]'
    exit 1
fi
