#!/usr/bin/env bash
# watch --report-every: the report among the lines of the watch.
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

expect 2 "report-every requires --report" watch --report-every 3 --seconds 1
expect 2 "report-span requires --report-every" watch --report --report-span 5 --seconds 1
expect 2 "report-min requires --report-every" watch --report --report-min 5 --seconds 1
expect 2 "report-every" watch --report --report-every 0 --seconds 1
expect 2 "report-span" watch --report --report-every 3 --report-span 1441 --seconds 1

expect 0 "^Physical memory  *[1-9][0-9]* %" watch --report --report-every 4 --report-span 1 --report-min 1 --seconds 10
reports=$(grep -c "^Utilization report of 20" "$folder/output") || true
[ "$reports" -eq 2 ] || fail "a watch of 10 seconds printed $reports reports, one every 4 was wanted"

# The first minute has one sample.
expect 0 "^Physical memory  *0 %" watch --report --report-every 4 --report-span 5 --report-min 5 --seconds 6

expect 0 "The monitors have ended" watch --report --seconds 1
grep -q "Utilization report" "$folder/output" && fail "a report was printed that nobody asked for"

finish
