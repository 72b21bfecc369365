#!/usr/bin/env bash
# print-config: the default file, byte for byte.
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

varnexhost print-config >"$folder/printed.xml" || fail "print-config ended with $?"
cmp "$folder/printed.xml" "$configuration" || fail "what print-config prints is not the default file"
expect 2 "extra" print-config extra

finish
