#!/bin/sh
# try.sh PROGRAM FILTER: tries the cases of a benchmark that the filter lets through. A failure when the program
# fails, a case stops with an error, takes no time or compares with nothing, or no case is there.
set -eu
KESTRUNE_BENCH_ONLY_TRIED=1 "$1" --benchmark_filter="$2" --benchmark_min_time=0.0001 --benchmark_format=csv |
  awk -F, '
    /^"/ {
      print
      ++cases
      for (i = 10; i <= NF; ++i) wrong = wrong || $i ~ /nan|inf/  # of the counters
      if ($3 + 0 <= 0 || $9 != "" || wrong) exit failed = 1
    }
    END { exit failed || cases == 0 }'
