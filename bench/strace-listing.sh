#!/usr/bin/env bash
# Counts the system calls of one warm listing: kqagent lists a simulated
# host of N containers once, and then twice, in one process each; the
# difference is what one listing of unchanged files costs.
# Usage: bench/strace-listing.sh BIN_DIR [N]
set -euo pipefail
bin=$(cd "${1:?BIN_DIR}" && pwd)
count=${2:-1000}
host=$(mktemp -d /tmp/kqstrace.XXXXXX)
trap 'rm -rf "$host"' EXIT

"$bin/kqsim" init "$host" >/dev/null
for ((i = 0; i < count; i++)); do
  veid=$((1000 + i))
  mkdir -p "$host/kq/private/$veid"
  printf 'VE_ROOT="%s/kq/root/%d"\nVE_PRIVATE="%s/kq/private/%d"\nOSTEMPLATE="simos-9-x86_64"\nNAME="ct%d"\n' \
    "$host" "$veid" "$host" "$veid" "$veid" >"$host/etc/sysconfig/kq-scripts/$veid.conf"
done
"$bin/kqagent" --root "$host" sync >/dev/null

calls() {  # $1: how many listings in one process; prints "syscall count" lines
  local out; out=$(mktemp)
  printf 'list\n%.0s' $(seq "$1") | strace -f -c -o "$out" "$bin/kqagent" --root "$host" --json batch >/dev/null
  awk '$NF ~ /^[a-z_0-9]+$/ && $4 ~ /^[0-9]+$/ {print $NF, $4}' "$out"
  rm -f "$out"
}
declare -A one two
while read -r name n; do one[$name]=$n; done < <(calls 1)
while read -r name n; do two[$name]=$n; done < <(calls 2)
echo "system calls of one warm 'list' of $count containers:"
total=0
for name in "${!two[@]}"; do
  d=$(( ${two[$name]} - ${one[$name]:-0} ))
  if (( d > 0 )); then printf '  %-16s %d\n' "$name" "$d"; fi
done | sort -k2 -n -r
for name in "${!two[@]}"; do
  d=$(( ${two[$name]} - ${one[$name]:-0} ))
  if (( d > 0 )) && [[ $name != total ]]; then total=$((total + d)); fi
done
echo "  per container: $(awk -v t="$total" -v n="$count" 'BEGIN {printf "%.2f", t / n}')"
