#!/usr/bin/env bash
# Builds one preset and runs every test of it by CTest, whose summary comes last.
#
#   ./test.sh [--preset PRESET] [ctest arguments...]
#
# PRESET is release (default), clang, debug, asan or tsan; the environment variable PRESET says the same. Everything
# else goes to ctest: ./test.sh -R Logger runs the tests whose name matches. JOBS=N bounds the processes of the build
# and of the tests (default: one per processor). Missing Debian packages are installed when root runs this; anyone
# else is told what to install.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")"

usage() { sed -n '2,9s/^# \{0,1\}//p' "${BASH_SOURCE[0]}"; }

preset=${PRESET:-release}
case ${1:-} in
    --preset) preset=${2:?"--preset needs a name"} && shift 2 ;;
    --preset=*) preset=${1#*=} && shift ;;
    -h | --help) usage && exit 0 ;;
esac

scripts/install-packages test

# The thread sanitizer of this compiler generation cannot map its shadow under more than 28 bits of address
# randomisation, so such a kernel is asked to leave it off for these processes.
run=()
if [ "$preset" = tsan ] && [ "$(cat /proc/sys/vm/mmap_rnd_bits 2> /dev/null || echo 0)" -gt 28 ]; then
    if setarch -R true 2> /dev/null; then run=(setarch -R); fi
fi

"${run[@]}" scripts/build "$preset"
exec "${run[@]}" ctest --preset "$preset" --parallel "${JOBS:-$(nproc)}" "$@"
