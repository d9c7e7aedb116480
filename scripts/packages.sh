# shellcheck shell=sh
# Sourced by the other scripts: installs what is missing.

# require WHAT=PACKAGE...: installs PACKAGE if WHAT is missing. WHAT is a command, or a file if it
# contains a slash. Needs neither root nor network if nothing is missing.
require() {
  missing=
  for need in "$@"; do
    what=${need%%=*}
    case $what in
      */*) [ -e "$what" ] || missing="$missing ${need#*=}" ;;
      *) command -v "$what" >/dev/null || missing="$missing ${need#*=}" ;;
    esac
  done
  [ -n "$missing" ] || return 0
  command -v apt-get >/dev/null || {
    echo "Please install:$missing" >&2
    exit 1
  }
  as_root=
  [ "$(id -u)" -eq 0 ] || as_root=sudo
  echo "Installing:$missing"
  $as_root apt-get update -qq
  had_nginx=$(dpkg-query -W -f '${Status}' nginx-common 2>/dev/null || true)
  # In run level 1, packages do not start their services.
  # shellcheck disable=SC2086 # a list of packages
  $as_root env DEBIAN_FRONTEND=noninteractive RUNLEVEL=1 \
    apt-get install -y -qq --no-install-recommends $missing >/dev/null
  # A newly installed nginx would serve port 80 from now on. The tests start their own.
  case "$had_nginx $missing " in
    *' installed '*) ;;
    *' nginx-light '*)
      echo "Stopping and disabling: nginx, which would serve port 80 (to have it: systemctl enable --now nginx)"
      if [ -d /run/systemd/system ]; then
        $as_root systemctl --quiet disable --now nginx
      else
        $as_root service nginx stop >/dev/null 2>&1 || true
        ! command -v update-rc.d >/dev/null || $as_root update-rc.d nginx disable
      fi
      ;;
  esac
}

# Servers are in directories that are not on the search path of an ordinary user.
PATH=$PATH:/usr/sbin:/sbin
