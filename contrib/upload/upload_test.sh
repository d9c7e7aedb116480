#!/bin/sh
# Uploads to directories with the real rsync and rclone. Wherever an upload is interrupted, each
# uploaded pointer leads to a complete archive. The programs must be on PATH.
set -eu
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
upload=$(dirname "$(realpath "$0")")/runenv-upload
cd "$scratch"
export RCLONE_CONFIG="$scratch/none" TMPDIR="$scratch"
mkdir -m 755 tree content far
touch "$RCLONE_CONFIG"

publish() {
  echo "$*" >content/file
  head -c 3000000 /dev/urandom >content/data
  runenv-publish --quiet tree "$@" --from content
}

# Checks that every uploaded pointer leads to the same archive as in the tree.
check_pointers() {
  find "$1" -name latest | while read -r pointer; do
    archive=${pointer%latest}$(cat "$pointer")/linux-x64.tar.gz
    cmp "$archive" "tree/${archive#"$1"/}"
  done
}

publish platform 5 r1
for program in rsync rclone; do
  far=far/$program
  mkdir -p "$far/2/runenv/other" "$far/elsewhere"
  touch "$far/2/runenv/other/old.tar.gz" "$far/elsewhere/kept"
  for round in 1 2 3 5 7 9; do
    publish system-type linker "$round" "$program-$round"
    publish platform 5 "$program-$round"
    setsid "$upload" tree "$program" "$far" >torn.log 2>&1 &
    [ "$program" = rsync ] && delay=0.0$((round % 10)) || delay=0.$((round % 10)) # rclone starts later
    sleep "$delay"
    kill -KILL -$! 2>/dev/null || true
    wait $! || true
    check_pointers "$far"
  done
  echo page >tree/index.html
  # Files of other programs and leftovers of an interrupted prune are not uploaded.
  mkdir -p tree/other "tree/2/.runenv-served#removing"
  touch tree/other/latest tree/other.tar.gz "tree/2/.runenv-served#removing/x.tar.gz"
  rm -r "tree/2/runenv/platform/5/$program-3"
  ln -sfn tree host:tree
  (umask 77 && "$upload" --delete host:tree "$program" "$far")
  [ -z "$(find "$far" ! -perm -o=r)" ]
  rm -r tree/other* "tree/2/.runenv-served#removing"
  rm "$far/elsewhere/kept"
  rmdir "$far/elsewhere"
  # Remove rsync's temporary files and empty directories, which object stores do not have.
  find "$far" -name '.*' -delete -o -type d -empty -delete
  diff -r tree "$far"

  # If a pointer moves during the upload, the uploaded pointer stays unchanged and nothing is
  # deleted.
  mkdir -p bin
  cat >"bin/$program" <<END
#!/bin/sh
[ -e moved ] || runenv-publish --quiet tree platform 5 r1 --latest-only
touch moved
PATH=\${PATH#*:} exec $program "\$@"
END
  chmod +x "bin/$program"
  rm -r "tree/2/runenv/platform/5/$program-5"
  if PATH=$PWD/bin:$PATH "$upload" --delete tree "$program" "$far" 2>error; then exit 1; fi
  grep -q 'pointers were moved during the upload' error
  check_pointers "$far"
  grep -q "$program-9" "$far/2/runenv/platform/5/latest"
  [ -e "$far/2/runenv/platform/5/$program-5" ]
  rm moved
  publish platform 5 "$program-11"
done

for words in "" "tree rsync" "tree ftp far" "content rsync far" "none rsync far"; do
  # shellcheck disable=SC2086 # a list of words
  if "$upload" $words >/dev/null 2>&1; then exit 1; fi
done
"$upload" --help | grep -q '^usage: runenv-upload '
