#!/bin/sh
# usage: role_test.sh CURL-LINES PACKAGE...
# Tests the role and the table on several environments of one machine. The file CURL-LINES has curl's
# settings for a server with platform 5 and linker 0.9, signed by the only key of the machine. The
# test changes the machine: package_test.sh runs it in a copy of one.
set -eux
curl_lines=$1
shift
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
cp -r "$(dirname "$0")" "$scratch/ansible"
cd "$scratch/ansible"
export ANSIBLE_LOCALHOST_WARNING=false ANSIBLE_NOCOLOR=1 ANSIBLE_PYTHON_INTERPRETER=/usr/bin/python3

runenv-versions compose -o versions.bin 5 linker=0.9
cp /etc/runenv/keys/*.pub producer.pub
jq -n --rawfile curl "$curl_lines" '{ansible_connection: "local", ansible_become: false,
  ansible_pipelining: true, runenv_curl: $curl | split("\n") | map(select(. != ""))}' >all.json
jq -n '$ARGS.positional' -c --args "$@" | sed "s/.*/first runenv_instance=first runenv_packages='&' runenv_keys='[\"producer.pub\"]'/" >hosts
cat >>hosts <<END
second runenv_instance=second runenv_timer=cron runenv_settings='["OPTIONS=--skip-platform"]'
none runenv_instance=none
broken ansible_python_interpreter=/no/python
END
play() { ansible-playbook -i hosts -e @all.json "$@" | tee played; }

# --check changes nothing. The first run sets everything up, and the second one changes nothing.
play site.yml --check --limit first,second
grep -c 'failed=0' played | grep -x 2
[ ! -e /etc/runenv/first ]
for wrong in "runenv_instance='a b'" runenv_timer=never; do
  ! play site.yml --limit first -e "$wrong" | grep failed=0 || exit 1
done
sed -i.away /^runenv:/d /etc/group
! play site.yml --limit second | grep failed=0 || exit 1
grep 'look up group runenv' played
mv /etc/group.away /etc/group
play site.yml --forks 1 --limit first,second
grep -c 'failed=0' played | grep -x 2
play site.yml --limit first,second
grep -c 'changed=0 .*failed=0' played | grep -x 2
systemctl is-active runenv-update@first.timer
systemctl is-enabled runenv-update@first.timer
grep -c '^[1-5]*[0-9] \* \* \* \*  runenv  .*/runenv-update second$' /etc/cron.d/runenv-update | grep -x 1
[ "$(ls /etc/runenv/keys)" = producer.pub ]
for instance in first second; do
  runuser -u runenv -- /usr/libexec/runenv-update $instance
done

# The table has the state of each machine.
cd /var/lib/runenv
[ ! -e second/runenv/platform ] # its settings have --skip-platform
mkdir -p first/runenv/platform/5/release-0 second/runenv/platform/5
echo release-0 | tee first/runenv/platform/5/latest >second/runenv/platform/5/latest
cd "$scratch/ansible"
play status.yml -e csv="$PWD/csv" -e json="$PWD/json"
grep '^"broken","","unknown","The module .*",""' csv
grep -v '^"broken"' csv >others
diff others - <<END
"HOST","ITEM","STATE","RELEASE","SERVED"
"first","platform/5","behind","release-0","release-1"
"first","system-types/linker/0.9","installed","build-3","build-3"
"second","platform/5","broken","latest names 'release-0', which is not there","release-1"
"second","system-types/linker/0.9","installed","build-3","build-3"
"none","","unknown","runenv-status: /etc/runenv/none/versions.bin: No such file or directory",""
END
play status.yml --check
grep '"first  *platform/5  *behind  *release-0  *release-1"' played
[ "$(jq -c 'map_values(.status)' json)" = '{"broken":null,"first":1,"none":null,"second":2}' ]
