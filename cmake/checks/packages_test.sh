#!/bin/sh
# What scripts/packages.sh does with the service of a package: it turns off one that it has brought,
# and leaves one alone that was there. The system's commands are stand-ins.
set -eu
scripts=$(cd "$(dirname "$0")/../../scripts" && pwd) scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
for command in apt-get service systemctl update-rc.d sudo; do
  # shellcheck disable=SC2016 # for the stand-in
  printf '#!/bin/sh\necho "%s $*" >>"%s/log"\ncase $0 in *sudo) exec "$@" ;; esac\n' $command "$scratch" >"$scratch/$command"
done
printf '#!/bin/sh\ncat "%s/state"\n' "$scratch" >"$scratch/dpkg-query"
chmod +x "$scratch"/*

# turned_off STATE PACKAGE: how often the service was turned off, with the package's state before.
turned_off() {
  echo "$1" >"$scratch/state"
  : >"$scratch/log"
  PATH="$scratch:$PATH" sh -euc '. "$0/packages.sh"; require "/nowhere=$1"' "$scripts" "$2" >"$scratch/said"
  grep -cE '^(systemctl.*disable --now|service) nginx' "$scratch/log" || :
}
[ "$(turned_off '' nginx-light)" = 1 ]
grep 'Stopping and disabling: nginx' "$scratch/said" >/dev/null
[ "$(turned_off 'install ok installed' nginx-light)" = 0 ]
[ "$(turned_off '' socat)" = 0 ]
