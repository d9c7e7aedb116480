#!/bin/sh
# Tests that scripts/packages.sh turns off a service that it has installed, and no other. The
# commands of the system are fakes.
set -eu
scripts=$(cd "$(dirname "$0")/../../scripts" && pwd) scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
for command in apt-get service systemctl update-rc.d sudo; do
  # shellcheck disable=SC2016 # for the fake
  printf '#!/bin/sh\necho "%s $*" >>"%s/log"\ncase $0 in *sudo) exec "$@" ;; esac\n' $command "$scratch" >"$scratch/$command"
done
printf '#!/bin/sh\ncat "%s/state"\n' "$scratch" >"$scratch/dpkg-query"
chmod +x "$scratch"/*

# turned_off STATE PACKAGE: prints how often installing PACKAGE turned the service off. STATE is the
# state of nginx before that.
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
