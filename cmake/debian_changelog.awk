# Converts CHANGELOG.md to Debian's format. The variables are `version`, the version of the build;
# `maintainer`; and `now`, the date of the build. An unreleased entry gets this version and date and
# the distribution UNRELEASED.
function print_item(    i, line) {
  if (item == "") return
  count = split(item, words, " ")
  line = "  *"
  for (i = 1; i <= count; ++i) {
    if (length(line " " words[i]) > 79) {
      print line
      line = "   "
    }
    line = line " " words[i]
  }
  print line
  item = ""
}

function finish(    command) {
  print_item()
  if (day == "") return
  command = "LC_ALL=C date -u -R -d " day
  command | getline date
  close(command)
  printf "\n -- %s  %s\n", maintainer, date
}

/^## \[/ {
  finish()
  released = $2 != "[Unreleased]"
  day = released ? $4 : now
  if (day !~ /^[0-9]+-[0-9]+-[0-9]+$/) exit failed = 1
  printf "%srunenv (%s) %s; urgency=medium\n\n", parts++ ? "\n" : "",
         released ? substr($2, 2, length($2) - 2) : version, released ? "unstable" : "UNRELEASED"
  next
}
day == "" { next }
/^$/ { print_item(); next }
/^### / { print_item(); printf "\n  [ %s ]\n", $2; next }
/^- / { print_item() }
{ sub(/^- /, ""); item = item " " $0 }
END {
  if (!failed) finish()
  exit failed || parts == 0
}
