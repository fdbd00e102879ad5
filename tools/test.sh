#!/usr/bin/env bash
# The project's test command (README, "Two commands"; .ci/run runs exactly this):
#
#   bash tools/test.sh [WORKFLOW...]
#
# installs the Debian packages the build and the tests need when any is missing (as root;
# anyone else is shown the one apt-get line to run), checks the sources' format, runs the
# workflow presets (all of them, or the ones named), and after the default workflow checks what
# an install of that build gives a program outside the project and its Debian packages
# (packaging/check_install.sh).
set -euo pipefail
cd "$(dirname "$0")/.."

# The workflow presets of CMakePresets.json, in the order they run.
workflows=(default asan tsan arm64 armhf)
# What they need on a fresh Debian 12 machine.
packages=(cmake ninja-build g++ clang clang-format lld libclang-rt-14-dev
          libgtest-dev libgmock-dev libbenchmark-dev nlohmann-json3-dev libqmi-utils
          help2man pkgconf dpkg-dev file lintian
          g++-aarch64-linux-gnu g++-arm-linux-gnueabihf qemu-user googletest)

selected=("$@")
[ ${#selected[@]} -gt 0 ] || selected=("${workflows[@]}")
for workflow in "${selected[@]}"; do
  if [[ " ${workflows[*]} " != *" $workflow "* ]]; then
    echo "tools/test.sh: no workflow '$workflow' (there are: ${workflows[*]})" >&2
    exit 2
  fi
done

missing=()
for package in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed" ||
    missing+=("$package")
done
if [ ${#missing[@]} -gt 0 ]; then
  if [ "$(id -u)" -ne 0 ]; then
    echo "tools/test.sh: these Debian packages are missing; install them as root, then run this" \
      "again:" >&2
    echo "  apt-get install --no-install-recommends ${missing[*]}" >&2
    exit 1
  fi
  echo "tools/test.sh: installing ${missing[*]}"
  export DEBIAN_FRONTEND=noninteractive
  apt-get update
  apt-get install -y --no-install-recommends "${missing[@]}"
fi

# Every source file as clang-format (the repository's .clang-format) writes it.
if git rev-parse --is-inside-work-tree >/dev/null 2>&1; then
  mapfile -t sources < <(git ls-files '*.c' '*.cpp' '*.h')
else
  mapfile -t sources < <(find . -path ./build -prune -o -type f \
    \( -name '*.c' -o -name '*.cpp' -o -name '*.h' \) -print)
fi
clang-format --dry-run -Werror "${sources[@]}"
echo "== tools/test.sh: format: ${#sources[@]} files as clang-format writes them"

for workflow in "${selected[@]}"; do
  echo "== tools/test.sh: workflow $workflow"
  cmake --workflow --preset "$workflow"
  if [ "$workflow" = default ]; then
    bash packaging/check_install.sh build/default
  fi
done
echo "== tools/test.sh: ${selected[*]}: passed"
