#!/usr/bin/env bash
# What ./run demo shows: the task scheduler, from its table of next firings to its last one.
set -euo pipefail
build=$(realpath "$1")
tasks=$(realpath "$(dirname "$0")/tasks.txt")

taskd=$build/examples/taskd
place=$(mktemp -d)
trap 'rm -rf "$place"' EXIT
cd "$place"
mkdir scratch
echo "what the check-sum task digests" >scratch/notes.txt
touch -d '3 days ago' scratch/old.tmp scratch/older.TMP
port=$((20000 + $$ % 20000))

echo "\$ taskd --for 5 --log app.log --log-size 400 --log-keep 3 --port $port tasks.txt"
"$taskd" --for 5 --log app.log --log-size 400 --log-keep 3 --port "$port" "$tasks" &
sleep 2.5
echo
echo "\$ taskd --ask 127.0.0.1:$port 'run backup'"
"$taskd" --ask "127.0.0.1:$port" 'run backup'
echo "\$ taskd --ask 127.0.0.1:$port status"
"$taskd" --ask "127.0.0.1:$port" status
echo
wait
echo
for log in app.log*; do
    echo "\$ cat $log"
    cat "$log"
done
