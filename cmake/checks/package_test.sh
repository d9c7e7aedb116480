#!/bin/sh
# Tests the packages from installation to purge: package_test.sh BUILD-DIRECTORY CONFIG
# systemd boots a temporary copy of this machine in its own namespaces, with only the services that
# the test needs. There it runs machine_test.sh. Needs root.
set -eux
built=$(cd "$1" && pwd) checks=$(cd "$(dirname "$0")" && pwd)
[ "$(id -u)" -eq 0 ] && command -v dpkg-shlibdeps file systemd-analyze nginx jq &&
  [ -x /lib/systemd/systemd ] && unshare --mount --pid --cgroup --fork true || exit 77
PATH=$built:$PATH SCRATCH=$(mktemp -d)
export SCRATCH
server=$checks/../../scripts/local-server.sh
clean_up() {
  "$server" stop "$SCRATCH/server"
  # shellcheck disable=SC2016 # for the other shell
  unshare --mount sh -c 'mount -t cgroup2 none machine && find machine/runenv-test-${SCRATCH##*/} -depth -type d -exec rmdir {} +'
  rm -rf "$SCRATCH"
}
cd "$SCRATCH"
mkdir -p server/www content machine packages
trap clean_up EXIT

cp -r "$checks/machine_test.sh" "$checks/../../contrib/ansible" .
(cd "$built" && cpack -G DEB -C "$2" -B "$SCRATCH/packages")
echo "release 1" >content/README
runenv-publish server/www platform 5 release-1 --from content
runenv-publish server/www system-type linker 0.9 build-3 --from content
runenv-versions compose -o versions.bin 5 linker=0.9
"$server" start server
{ cp server/ca.pem . && sed "s|/.*ca.pem|/etc/runenv/ca.pem|" server/curl/.curlrc; } >curl-lines

cat >prepare <<'END'
mount -t cgroup2 none machine
cgroup=machine/runenv-test-${SCRATCH##*/}
mkdir "$cgroup"
echo 0 >"$cgroup/cgroup.procs"
exec unshare --cgroup --pid --uts --ipc --fork --kill-child sh -eux boot
END
cat >boot <<'END'
mount -t tmpfs none machine
cd machine
mkdir upper work root
mount -t overlay -o xino=on,lowerdir=/,upperdir=upper,workdir=work none root
cd root
mount -t proc none proc
mount --bind -o ro proc/sys proc/sys
mount -t sysfs -o ro none sys
mount -t cgroup2 none sys/fs/cgroup
for directory in dev run tmp; do mount -t tmpfs none $directory; done
mkdir -p dev/pts dev/shm dev/mqueue dev/hugepages ".$SCRATCH"
mount -t devpts none dev/pts
ln -s pts/ptmx /proc/self/fd dev
for node in null zero full random urandom tty; do
  touch dev/$node
  mount --bind /dev/$node dev/$node
done
mount --bind "$SCRATCH" ".$SCRATCH"
rm -rf usr/lib/systemd/system/*.wants etc/systemd/system/*.wants usr/lib/systemd/system-generators \
  var/lib/man-db/auto-update var/lib/apt/lists/* usr/sbin/policy-rc.d
echo 'Audit=no' >>etc/systemd/journald.conf
cat >etc/systemd/system/day.service <<UNIT
[Unit]
Requires=systemd-journald.service
After=systemd-journald.service
[Service]
Type=oneshot
Environment=SCRATCH=$SCRATCH HOME=/root
StandardOutput=append:$SCRATCH/log
StandardError=inherit
ExecStart=$SCRATCH/machine_test.sh
ExecStopPost=/bin/sh -c 'echo \$\$SERVICE_RESULT >$SCRATCH/result'
ExecStopPost=/bin/systemctl --force --force poweroff
UNIT
pivot_root . .
umount -l .
exec env container=test /lib/systemd/systemd --unit=day.service --show-status=0 </dev/null
END
timeout -s KILL 300 unshare --mount sh -eux prepare || :
cat log
[ "$(cat result)" = success ]
