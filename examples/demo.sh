#!/usr/bin/env bash
# The program of ./run demo shows the task scheduler, from its table of next firings to its last one, and once more as a service.
set -euo pipefail
build=$(realpath "$1")
tasks=$(realpath "$(dirname "$0")/tasks.txt")

taskd=$build/examples/taskd
place=$(mktemp -d)
sockets=/run/zu # where root's services report; an ordinary user's are in XDG_RUNTIME_DIR
[ ! -e "$sockets" ] || sockets=
cleanup() {
    if [ -d host/services/taskd ]; then "$taskd" --uninstall >/dev/null || true; fi
    if [ -d "$sockets" ]; then rmdir --ignore-fail-on-non-empty "$sockets"; fi
    rm -rf "$place"
}
trap cleanup EXIT
cd "$place"
mkdir scratch host run
# The registry and the services of the demo are its own.
export ZU_HOST=$place/host XDG_RUNTIME_DIR=$place/run
echo "what the check-sum task digests" >scratch/notes.txt
touch -d '3 days ago' scratch/old.tmp scratch/older.TMP
port=$((20000 + $$ % 20000))

show() {
    echo "\$ ${*##*/}"
    "$@" 2>&1
}

echo "\$ taskd --for 5 --single demo-$$ --log app.log --log-size 400 --log-keep 3 --port $port tasks.txt"
"$taskd" --for 5 --single "demo-$$" --log app.log --log-size 400 --log-keep 3 --port "$port" "$tasks" &
sleep 2.5
echo
show "$taskd" --single "demo-$$" "$tasks" || echo "(exit status $?)"
echo "\$ taskd --ask 127.0.0.1:$port 'run backup'"
"$taskd" --ask "127.0.0.1:$port" 'run backup'
show "$taskd" --ask "127.0.0.1:$port" status
echo
wait
echo
for log in app.log*; do
    show cat "$log"
done

echo
echo "As a service, with the task file that the registry names:"
echo "heartbeat | interval 0:00:01 | 2006-01-01 00:00 | | print tick" >service.txt
cat >host/registry.reg <<END
Windows Registry Editor Version 5.00

[HKEY_LOCAL_MACHINE\\Software\\zu\\taskd]
"TaskFile"="$place/service.txt"
END
show tail -n 2 host/registry.reg
show "$taskd" --install --log service.log
for order in --start --state --stop --uninstall; do
    show "$taskd" "$order"
done
show cat service.log
