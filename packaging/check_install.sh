#!/usr/bin/env bash
# What an install gives a program outside this project, checked the way a user meets it:
#
#   bash packaging/check_install.sh BUILD      (BUILD: a built native tree, e.g. build/default)
#
# 1. cmake --install with DESTDIR staging into a prefix with a space, then again over that
#    install made to look older; no installed file names the source or build tree, every run
#    path is relative to the file ($ORIGIN).
# 2. packaging/consumer/ built against the staged install alone, once with find_package and once
#    with pkg-config; each run against the staged tarvik-modemd (an NV item written and read
#    back, the SAR DSI set and read back), and the staged tarvik-qmi sees what they left there.
# 3. The staged man pages list every command; bash completion offers commands and verbs; the
#    systemd unit starts the installed daemon.
# 4. cpack's Debian packages: lintian (where installed), fields and contents (together exactly
#    what cmake --install puts in place), and a root unpacked from them in which the pkg-config
#    route builds and runs again against the packaged daemon.
set -euo pipefail

fail() {
  echo "check_install: $*" >&2
  exit 1
}
step() { echo "== check_install: $*"; }

if [ $# -ne 1 ] || [ ! -f "$1/CMakeCache.txt" ]; then
  fail "usage: check_install.sh BUILD (a configured, built tree)"
fi
for need in pkg-config:pkgconf dpkg-shlibdeps:dpkg-dev file:file cc:gcc objcopy:binutils \
  ninja:ninja-build; do
  command -v "${need%%:*}" >/dev/null ||
    fail "${need%%:*} is missing: install the Debian package ${need#*:}" \
      "(apt-get install ${need#*:})"
done
build=$(cd "$1" && pwd)
cache() { sed -n "s/^$1:[A-Z]*=//p" "$build/CMakeCache.txt"; }
source_dir=$(cache tarvik_qmi_SOURCE_DIR)
libdir=$(cache CMAKE_INSTALL_LIBDIR)
version=$(sed -n 's/^Version: //p' "$build/packaging/pkgconfig/tarvik_qmi.pc")
if [ -z "$source_dir" ] || [ -z "$libdir" ] || [ -z "$version" ]; then
  fail "$build is not a tree of this project"
fi
if [ -n "$(cache TARVIK_SANITIZE)" ] || [ -n "$(cache CMAKE_TOOLCHAIN_FILE)" ]; then
  fail "$build is a sanitizer or cross build: the check runs programs built against it here" \
    "(build/default is the tree to check)"
fi
major=${version%%.*}

work=$(mktemp -d /tmp/tarvik-check-install.XXXXXX)
daemons=()
cleanup() {
  for pid in "${daemons[@]}"; do kill "$pid" 2>/dev/null && wait "$pid" 2>/dev/null; done
  [ -n "${KEEP:-}" ] || rm -rf "$work"
}
trap cleanup EXIT
export TARVIK_PROPERTY_DIR=$work/properties
# The library logs to standard output as well; these checks read the programs' own lines.
quiet() { grep -v '^RIL\[' || true; }

# ---- 1. install, and install again over an older one --------------------------------------
step "install with DESTDIR into a prefix with a space"
prefix="/opt/tarvik qmi"
export DESTDIR="$work/dest dir"
root="$DESTDIR$prefix"
lib="$root/$libdir"
cmake --install "$build" --prefix "$prefix" >"$work/install1.log"
unset DESTDIR

step "install over an older install"
# The older install: its library behind the SONAME link is another version, its pkg-config
# file says so, and a program is newer than the build's.
mv "$lib/libtarvik_qmi.so.$version" "$lib/libtarvik_qmi.so.$major.0.0"
ln -sfn "libtarvik_qmi.so.$major.0.0" "$lib/libtarvik_qmi.so.$major"
sed -i "s/^Version: .*/Version: $major.0.0/" "$lib/pkgconfig/tarvik_qmi.pc"
touch -d '2001-01-01' "$lib/libtarvik_qmi.so.$major.0.0" "$lib/pkgconfig/tarvik_qmi.pc"
touch -d tomorrow "$root/bin/tarvik-qmi"
DESTDIR="$work/dest dir" cmake --install "$build" --prefix "$prefix" >"$work/install2.log"
[ "$(readlink "$lib/libtarvik_qmi.so.$major")" = "libtarvik_qmi.so.$version" ] ||
  fail "libtarvik_qmi.so.$major still points to $(readlink "$lib/libtarvik_qmi.so.$major")"
grep -qx "Version: $version" "$lib/pkgconfig/tarvik_qmi.pc" ||
  fail "tarvik_qmi.pc kept the older version"
[ "$("$root/bin/tarvik-qmi" --version | quiet)" = "tarvik-qmi $version" ] ||
  fail "the installed tarvik-qmi is not the build's: $("$root/bin/tarvik-qmi" --version)"
rm "$lib/libtarvik_qmi.so.$major.0.0"  # the older version's file, no longer linked to

step "no installed file names $source_dir; run paths are \$ORIGIN-relative"
# Debug information names the sources it was built from (cmake --install --strip drops it):
# ELF files are searched without it.
while IFS= read -r -d '' file; do
  text=$file
  if [ "$(head -c4 "$file" | od -An -c | tr -d ' ')" = '177ELF' ]; then
    text=$work/stripped
    objcopy --strip-debug --remove-section=.comment "$file" "$text"
    readelf -d "$file" | sed -n 's/.*(\(RUNPATH\|RPATH\)).*\[\(.*\)\]/\2/p' | tr ':' '\n' |
      grep -v "^\\\$ORIGIN" && fail "$file has a run path not relative to itself"
  fi
  grep -qF "$source_dir" "$text" && fail "$file names $source_dir"
done < <(find "$root" -type f -print0)
unit=$root/lib/systemd/system/tarvik-modemd.service
grep -qx "ExecStart=\"$prefix/bin/tarvik-modemd\" .*" "$unit" ||
  fail "the systemd unit does not start $prefix/bin/tarvik-modemd"

# ---- 2. a program built on the staged install, by both routes -----------------------------
step "consumer with find_package(tarvik_qmi CONFIG)"
cmake -S "$source_dir/packaging/consumer" -B "$work/consumer cmake" -G Ninja \
  -DCMAKE_PREFIX_PATH="$root" -DCMAKE_FIND_USE_PACKAGE_REGISTRY=OFF >"$work/consumer-cmake.log"
cmake --build "$work/consumer cmake" >>"$work/consumer-cmake.log"
found=$(sed -n 's/^tarvik_qmi_DIR:PATH=//p' "$work/consumer cmake/CMakeCache.txt")
[ "$found" = "$lib/cmake/tarvik_qmi" ] || fail "find_package found tarvik_qmi in $found"

# pkg-config escapes the space for a shell to read: eval reads it as make would.
build_with_pkg_config() {  # PKG_CONFIG_DIR OUTPUT
  local pc_libdir flags
  flags=$(PKG_CONFIG_LIBDIR=$1 pkg-config --cflags --libs tarvik_qmi)
  pc_libdir=$(PKG_CONFIG_LIBDIR=$1 pkg-config --variable=libdir tarvik_qmi)
  eval "cc -Wall -Wextra -Werror -o \"\$2\" \"\$source_dir/packaging/consumer/consumer.c\" $flags \
        -Wl,-rpath,$pc_libdir"
}
step "consumer with pkg-config"
build_with_pkg_config "$lib/pkgconfig" "$work/consumer-pkg-config"

for program in "$work/consumer cmake/tarvik-consumer" "$work/consumer-pkg-config"; do
  readelf -d "$program" | grep -F "$source_dir" && fail "$program has a run path into $source_dir"
  ldd "$program" >"$work/ldd"
  grep -q 'not found' "$work/ldd" && fail "$program misses libraries: $(cat "$work/ldd")"
  grep 'libtarvik' "$work/ldd" | grep -vF "=> $lib/" &&
    fail "$program loads a library from elsewhere"
done

start_daemon() {  # BIN_DIR SOCKET STATE_DIR: returns once it serves
  "$1/tarvik-modemd" --socket "$2" --state "$3" >"$2.log" 2>&1 &
  daemons+=($!)
  for _ in $(seq 100); do
    grep -q '^tarvik-modemd: serving' "$2.log" && return 0
    sleep 0.05
  done
  fail "$1/tarvik-modemd did not come up: $(cat "$2.log")"
}
run_consumer() {  # PROGRAM SOCKET ITEM HEX DSI
  local out
  out=$("$@" | quiet) || fail "$1 $2 $3 $4 $5 failed:"$'\n'"$out"
  grep -qx 'both came back as sent' <<<"$out" || fail "$1 said:"$'\n'"$out"
}
expect_tool() {  # BIN_DIR SOCKET EXPECTED-JSON-PART ARGS...
  local bin=$1 socket=$2 expected=$3 out
  shift 3
  out=$("$bin/tarvik-qmi" --modem "unix:$socket" --json "$@" | quiet)
  grep -qF "$expected" <<<"$out" || fail "tarvik-qmi $* answered $out, not $expected"
}

step "both consumers against the staged tarvik-modemd"
socket=$work/staged.sock
start_daemon "$root/bin" "$socket" "$work/staged-state"
run_consumer "$work/consumer cmake/tarvik-consumer" "$socket" 550 c0ffee01 3
run_consumer "$work/consumer-pkg-config" "$socket" 551 deadbeef 7
expect_tool "$root/bin" "$socket" '"data":"c0ffee01"' nv read 0 550
expect_tool "$root/bin" "$socket" '"data":"deadbeef"' nv read 0 551
expect_tool "$root/bin" "$socket" '"dsi":7' sar get

# ---- 3. man pages, bash completion -----------------------------------------------------------
step "man pages and bash completion"
commands=$("$root/bin/tarvik-qmi" help |
  sed -n '/^commands:$/,/^$/s/^  \([a-z][a-z0-9-]*\) .*/\1/p')
[ -n "$commands" ] || fail "tarvik-qmi help lists no commands"
man=$root/share/man/man1
zcat "$man/tarvik-qmi.1.gz" >"$work/tarvik-qmi.1"
for command in $commands; do
  grep -qx "\.B $command" "$work/tarvik-qmi.1" || fail "the man page of tarvik-qmi lacks $command"
done
zcat "$man/tarvik-modemd.1.gz" | grep -q -- '--state' ||
  fail "the man page of tarvik-modemd lacks --state"

completion_of() {  # LINE: what bash would offer after it
  PATH="$root/bin:$PATH" bash -c 'source "$1"; COMP_LINE=$2; COMP_POINT=${#2}
    _tarvik_qmi; echo "${COMPREPLY[*]}"' _ "$root/share/bash-completion/completions/tarvik-qmi" "$1"
}
[ "$(completion_of 'tarvik-qmi ')" = "help $(paste -sd' ' <<<"$commands")" ] ||
  fail "completion of commands: $(completion_of 'tarvik-qmi ')"
[ "$(completion_of 'tarvik-qmi --json nv ')" = "read write delete" ] ||
  fail "completion of nv verbs: $(completion_of 'tarvik-qmi --json nv ')"

# ---- 4. Debian packages ----------------------------------------------------------------------
step "Debian packages"
(cd "$build" && cpack -B "$work/packages" >"$work/cpack.log" 2>&1) ||
  fail "cpack: $(cat "$work/cpack.log")"
runtime=$(echo "$work"/packages/libtarvik-qmi"$major"_"$version"_*.deb)
dev=$(echo "$work"/packages/libtarvik-qmi-dev_"$version"_*.deb)
programs=$(echo "$work"/packages/tarvik-qmi_"$version"_*.deb)
for deb in "$runtime" "$dev" "$programs"; do [ -f "$deb" ] || fail "cpack made no $deb"; done
if command -v lintian >/dev/null; then
  lintian --fail-on error,warning "$runtime" "$dev" "$programs" >"$work/lintian" 2>&1 ||
    fail "lintian:"$'\n'"$(cat "$work/lintian")"
else
  echo "lintian is not installed: the packages are not linted"
fi

field() { dpkg-deb -f "$1" "$2"; }
grep -q "libc6" <<<"$(field "$runtime" Depends)" || fail "libtarvik-qmi$major depends on no libc6"
for deb in "$dev" "$programs"; do
  grep -qF "libtarvik-qmi$major (= $version)" <<<"$(field "$deb" Depends)" ||
    fail "$(field "$deb" Package) does not depend on libtarvik-qmi$major (= $version)"
done
contents() { dpkg-deb -c "$1" | awk '{print $6}' | grep -v '/$' | sed -n 's|^\./usr/||p' |
  grep -v '^share/doc/\|^share/lintian/' | sort; }
contents "$runtime" | grep -v "^$libdir/libtarvik_[a-z_]*\.so\.$major\(\.[0-9.]*\)\{0,1\}$" &&
  fail "libtarvik-qmi$major holds more than the libraries"
contents "$dev" | grep -q "^include/tarvik_qmi/tarvik_extend_nvefs.h$" ||
  fail "no headers in the -dev package"
cat <(contents "$runtime") <(contents "$dev") <(contents "$programs") | sort >"$work/packaged"
(cd "$root" && find . -type f -o -type l) | sed 's|^\./||' | sort >"$work/installed"
diff "$work/installed" "$work/packaged" >"$work/diff" ||
  fail "the packages do not hold what cmake --install puts in place:"$'\n'"$(cat "$work/diff")"

step "the packages unpacked into a throwaway root"
for deb in "$runtime" "$dev" "$programs"; do dpkg-deb -x "$deb" "$work/root"; done
build_with_pkg_config "$work/root/usr/$libdir/pkgconfig" "$work/consumer-packaged"
socket=$work/packaged.sock
start_daemon "$work/root/usr/bin" "$socket" "$work/packaged-state"
run_consumer "$work/consumer-packaged" "$socket" 552 0102 11
expect_tool "$work/root/usr/bin" "$socket" '"data":"0102"' nv read 0 552
step "passed"
