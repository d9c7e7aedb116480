#!/bin/sh
# package_test.sh runs this on the machine that it boots. $SCRATCH contains the files for it.
set -eux
cd "$SCRATCH"
trap 'journalctl -o short-precise --no-pager | tail -n 40' EXIT
fails() { ! systemctl start runenv-update@main || exit 1; systemctl is-failed runenv-update@main && systemctl reset-failed; }
told() { journalctl --sync && journalctl -o cat -u runenv-update@main | tail -n "$1"; }
environment=/var/lib/runenv/main/runenv

# Installs the package and switches the timer on.
apt-get install -y --no-install-recommends ./packages/runenv_*.deb
cat curl-lines >>/etc/runenv/.curlrc && cp ca.pem /etc/runenv
install -D -m 644 versions.bin /etc/runenv/main/versions.bin
systemctl enable --now runenv-update@main.timer
systemctl is-active runenv-update@main.timer
[ ! "$(systemd-analyze verify --man=no runenv-update@main.timer runenv-update@main.service 2>&1)" ]
systemd-analyze security runenv-update@main | tail -n 1
systemd-analyze security --threshold=30 runenv-update@main >/dev/null

# The service installs files that all users can read. Its next run only asks for the two pointers.
systemctl start runenv-update@main
told 9 | grep -x -e '- 2/runenv/system-types/linker/0.9 .updating.'
[ "$(setpriv --reuid 65534 --clear-groups cat $environment/platform/5/latest)" = release-1 ]
: >server/access.log
systemctl start runenv-update@main
until [ "$(wc -l <server/access.log)" -ge 2 ]; do sleep 0.1; done
[ "$(wc -l <server/access.log)" -eq 2 ]

# Every failure makes the unit fail, and the journal names the item.
mv server/www server/gone
fails && told 6 | grep -F 'curl: wanted https://localhost/2/runenv/platform/5/latest,'
mv server/gone server/www
mv $environment/platform/5/release-1 moved
fails && told 6 | grep 'platform/5 *broken'
mv moved $environment/platform/5/release-1
ln -s nowhere /etc/runenv/keys
: >$environment/platform/5/latest
fails && told 6 | grep '/usr/libexec/runenv/tar cannot be run'
[ ! -s $environment/platform/5/latest ]
rm /etc/runenv/keys && mkdir -m 755 /etc/runenv/keys
minisign -G -W -p /etc/runenv/keys/x.pub -s key >/dev/null
dpkg -i packages/runenv-verify_*.deb
fails && told 6 | grep 'is not signed'
runenv-publish server/www platform 5 release-1 --sign key
runenv-publish server/www system-type linker 0.9 build-3 --sign key
systemctl start runenv-update@main
[ -s $environment/platform/5/latest ]

# The cron job works as this user, also with another umask. Wrong names and settings are rejected.
sed -n 's/^0 \* \* \* \*  runenv  //; s/\\%/%/g; s/^sleep/: /p' /usr/share/runenv/runenv-update.cron >cron
: >$environment/platform/5/latest
(umask 077 && cd / && runuser -u runenv -- env -i sh -eu <"$SCRATCH/cron") | grep -x -e '- 2/runenv/platform/5 .updating.'
[ "$(stat -c %a $environment/platform/5/release-1)" = 755 ]
update() { ! runuser -u runenv -- /usr/libexec/runenv-update "$@" 2>&1 || exit 1; }
/usr/libexec/runenv-update main 2>&1 | grep 'not as root'
for words in '' '.' 'a b' 'keys' '../main' 'x/y'; do
  # shellcheck disable=SC2086 # none, one or two
  update $words | grep '^runenv-update: '
done
echo 'VERIFY=maybe' >/etc/runenv/main/settings
update main | grep "VERIFY must be yes or no, not 'maybe'"
ln -sf nowhere /etc/runenv/main/settings
update main | grep 'cannot open /etc/runenv/main/settings'
rm /etc/runenv/main/settings
flock /var/lib/runenv/main/.lock runuser -u runenv -- /usr/libexec/runenv-update main | grep 'another run is active'
chmod 600 /etc/runenv/.curlrc
update main | grep '/etc/runenv/.curlrc cannot be read'
chmod 644 /etc/runenv/.curlrc
ln -s nowhere /etc/runenv/main/.curlrc
update main | grep '/etc/runenv/main/.curlrc cannot be read'
rm /etc/runenv/main/.curlrc

# An older curl that does not know the write-out variables of the shipped file also works.
sed -i.new 's/onerror/unknown1/; s/{stderr/{unknown2/; s/{url}/{unknown3}/' /etc/runenv/.curlrc
: >$environment/platform/5/latest
systemctl start runenv-update@main
[ -s $environment/platform/5/latest ]
mv /etc/runenv/.curlrc.new /etc/runenv/.curlrc

# The role for Ansible.
if command -v ansible-playbook; then
  ansible/role_test.sh "$SCRATCH/curl-lines" "$SCRATCH"/packages/runenv_*.deb
fi

# Removing the package stops the timer and keeps the environment. With the package installed again,
# the timer runs. Purging removes the environment.
! systemctl start runenv-update@none || exit 1
dpkg -r runenv-verify runenv
[ ! "$(systemctl list-units --failed --no-legend 'runenv-update@*')" ]
journalctl --sync && journalctl -o cat -u runenv-update@main.timer | grep '^Stopped'
! systemctl is-active runenv-update@main.timer || exit 1
[ -d $environment ]
apt-get -o Dpkg::Options::=--force-confold install -y --no-install-recommends ./packages/runenv_*.deb
systemctl is-active runenv-update@main.timer
dpkg -P runenv
[ ! -e /var/lib/runenv ] && [ ! -e /etc/runenv/.curlrc ] && [ -e /etc/runenv/main/versions.bin ]
