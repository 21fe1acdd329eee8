#!/usr/bin/env bash
# What ./run demo shows: the task scheduler, from its table of next firings to its last one.
set -euo pipefail
build=$1
tasks=$(dirname "$0")/tasks.txt

echo "\$ taskd --for 5 $tasks"
"$build/examples/taskd" --for 5 "$tasks"
