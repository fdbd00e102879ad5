#!/bin/sh
# Writes a program's man page (gzip -9n) from its own help, with help2man:
#   make_page.sh OUT.1.gz VERSION INCLUDE.h2m [EMULATOR...] PROGRAM
# PROGRAM runs through EMULATOR when one is given (a cross build). When its --help lists
# commands ("commands:" then "  NAME  summary" lines), the page gets a section with every
# command's usage lines (PROGRAM help NAME). HELP2MAN and GZIP_PROGRAM name the tools.
set -eu
out=$1 version=$2 include=$3
shift 3
last=
for arg in "$@"; do last=$arg; done
name=$(basename "$last")

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
# help2man runs the program by the name it documents; this stand-in runs the real one. help2man
# reads a synopsis after "Usage:", and "  or:" before each further form; the list of commands
# becomes the section of commands and their verbs below.
printf '#!/bin/sh\n"$@" | sed -e "s/^usage:/Usage:/" -e "s/^       %s /  or:  %s /" -e "/^commands:$/,\\$d"\n' \
  "$name" "$name" >"$work/run"
{
  printf '#!/bin/sh\nexec sh %s' "$work/run"
  for arg in "$@"; do printf " '%s'" "$arg"; done
  printf ' "$@"\n'
} >"$work/$name"
chmod +x "$work/$name"

cp "$include" "$work/include.h2m"
commands=$("$@" --help | sed -n '/^commands:$/,/^$/p' | sed -n 's/^  \([a-z][a-z0-9-]*\) .*/\1/p')
if [ -n "$commands" ]; then
  {
    printf '\n[COMMANDS AND VERBS]\n'
    for command in $commands; do
      "$@" help "$command" >"$work/usage"
      printf '.TP\n.B %s\n%s\n.nf\n' "$command" "$(sed -n '1s/^[^:]*: //p' "$work/usage")"
      sed -e 1d -e 's/^  //' -e 's/\\/\\\\/g' -e 's/^[.'\'']/\\\&&/' "$work/usage"
      printf '.fi\n'
    done
  } >>"$work/include.h2m"
fi

"$HELP2MAN" --no-info --version-string="$version" \
  --include="$work/include.h2m" --output="$work/page.1" "$work/$name"
"$GZIP_PROGRAM" -9n <"$work/page.1" >"$out.tmp"
mv "$out.tmp" "$out"
