#!/usr/bin/env bash
# systemd_login.sh CONFIG_HOME MARKER: logs in to a systemd user manager of its own, with CONFIG_HOME as the user's config
# folder, as far as the program's autostart entry, and waits for what that starts to write MARKER. The manager has a
# /run, process ids and control groups to itself, and goes with all it started. Ends with 77 where it cannot be had.
set -u

manager=/lib/systemd/systemd
remaining=100 # tenths of a second

if [ $# = 3 ]; then # inside
    mount -t tmpfs tmpfs /run || exit 77
    mkdir -p /run/systemd/system /run/user/0 "$1/home"
    export HOME="$1/home" XDG_RUNTIME_DIR=/run/user/0 XDG_CONFIG_HOME="$1" XDG_CONFIG_DIRS=/nonexistent
    unset DBUS_SESSION_BUS_ADDRESS
    "$manager" --user --unit="app-com.vorn.skylet@autostart.service" >"$1/manager.log" 2>&1 &
    manager=$!
    while [ $remaining -gt 0 ] && [ ! -e "$2" ]; do
        kill -0 $manager 2>/dev/null || break
        sleep 0.1
        remaining=$((remaining - 1))
    done
    # Whatever else comes of it comes now.
    sleep 0.1
    exit 0
fi

if [ ! -x "$manager" ] || [ "$(id -u)" != 0 ]; then
    echo "no systemd, or no root"
    exit 77
fi
group=skylet-login-$$
tidy() {
    for folder in /sys/fs/cgroup/"$group" /sys/fs/cgroup/*/"$group"; do
        [ ! -d "$folder" ] || find "$folder" -depth -type d -exec rmdir {} \;
    done
}
trap tidy EXIT
joined=no
for hierarchy in /sys/fs/cgroup /sys/fs/cgroup/systemd /sys/fs/cgroup/unified; do
    [ -e "$hierarchy/cgroup.procs" ] && mkdir "$hierarchy/$group" 2>/dev/null && joined=yes
done
if [ $joined = no ]; then
    echo "no control groups to write to"
    exit 77
fi
bash -c 'for procs in /sys/fs/cgroup/"$0"/cgroup.procs /sys/fs/cgroup/*/"$0"/cgroup.procs; do
           [ ! -e "$procs" ] || echo $$ >"$procs" || exit 77
       done
       exec unshare --mount --propagation private --pid --fork --kill-child --mount-proc bash "$@"' \
    "$group" "$0" "$1" "$2" inside
status=$?
[ $status = 0 ] || echo "no namespaces or control groups for a manager of its own"
[ $status = 0 ] || exit 77
