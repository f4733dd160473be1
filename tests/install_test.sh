#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# What a client finds after an installation: the public operations and no others, and a client built
# outside this tree that gets every buffer back.
# Arguments: cmake, the build folder, the compiler, the sanitizers (may be empty).
set -euo pipefail
cmake=$1 build=$2 compiler=$3 sanitize=$4
example=$(cd "$(dirname "$0")/../examples/minimal" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

fail() { printf 'install_test: %s\n' "$*" >&2; exit 1; }

"$cmake" --install "$build" --prefix "$work/root" >/dev/null
library=$(find "$work/root" -name 'libqoz_vppsession.so.0')
[ -n "$library" ] || fail "no libqoz_vppsession.so.0 was installed"
libraries=$(dirname "$library")

# ---- The player finds its libraries and, beside itself, the service's process
player=$work/root/bin/qozplay
service=$([ -x "$work/root/bin/qoz-vppd" ] && echo process || echo inline)
"$player" --scene-size 64x48 --frames 4 --service "$service" -o "$work/out.mkv" >/dev/null ||
  fail "the installed player does not play"
[ -s "$work/out.mkv" ] || fail "the installed player wrote nothing"

# ---- A client that finds the package with CMake
# The library has no run-time type information that -fsanitize=vptr could look at.
flags=(-Wall -Wextra -Werror ${sanitize:+-fsanitize=$sanitize -fno-sanitize=vptr})
export PKG_CONFIG_PATH=$libraries/pkgconfig
read -ra found <<<"$(pkg-config --cflags --libs qoz_desk)"

# ---- The binary interface: exported names, and the layout that clients compile in
kept=$(cd "$(dirname "$0")" && pwd)/abi
"$compiler" -std=c++20 "${flags[@]}" -Wno-invalid-offsetof "$kept/layout.cpp" "${found[@]}" \
  -Wl,-rpath,"$libraries" -o "$work/layout"
{
  nm -D --defined-only -C "$library" | cut -d' ' -f3- | grep -v '^QOZ_0$' | sed 's/@@.*//' | LC_ALL=C sort
  "$work/layout"
} >"$work/interface"
diff "$kept/x86_64-linux-gnu.txt" "$work/interface" >&2 ||
  fail "the binary interface (>) is not the kept one (<); if that is meant, keep it and raise the version"

# ---- A client that finds the package with CMake
"$cmake" -G Ninja -S "$example" -B "$work/example" -DCMAKE_PREFIX_PATH="$work/root" \
  -DCMAKE_CXX_COMPILER="$compiler" -DCMAKE_CXX_FLAGS="${flags[*]}" >/dev/null
"$cmake" --build "$work/example" >/dev/null
"$work/example/minimal" >"$work/printed" || fail "a buffer did not come back: $(cat "$work/printed")"
frames=$(grep -c ': frame,' "$work/printed" || true)
[ "$frames" -eq 19 ] || fail "10 frames at twice their rate are 19, not $frames"

# ---- One that finds it with pkg-config
"$compiler" -std=c++20 "${flags[@]}" "$example/main.cpp" "${found[@]}" -Wl,-rpath,"$libraries" \
  -o "$work/minimal"
"$work/minimal" >/dev/null || fail "the client built with pkg-config did not get every buffer back"
