#!/bin/sh
# check_library.sh <nm> <readelf> <library> <file of expected lines>
#
# Compares what a shared library is to the dynamic linker with a checked-in list, as a set: "soname <name>", "needed <name>"
# for each library of this project and (without its version) of zlog, ZeroMQ and protobuf, "symbol <name>" for each dynamic
# symbol that it defines. Lines that begin with '#' are comments. A line too many is as wrong as one that is missing; only
# a list with the line "any symbols" does not look at them.
set -eu

nm=$1 readelf=$2 library=$3 list=$4

directory=$(mktemp -d)
trap 'rm -rf "$directory"' EXIT

{
  if grep -qx 'any symbols' "$list"; then
    echo 'any symbols'
  else
    "$nm" -D --defined-only "$library" | awk '{print "symbol " $NF}'
  fi
  "$readelf" -d -W "$library" | sed -n \
    -e 's/.*(SONAME).*\[\(.*\)\]/soname \1/p' \
    -e 's/.*(NEEDED).*\[\(lib\(vorbus\|limid\|cfm_\).*\)\]/needed \1/p' \
    -e 's/.*(NEEDED).*\[\(lib\(zlog\|zmq\|protobuf\)\)\.so.*\]/needed \1/p'
} | LC_ALL=C sort -u >"$directory/built"
sed -e '/^#/d' -e '/^$/d' "$list" | LC_ALL=C sort -u >"$directory/listed"

if ! diff -u --label "$list" --label "$library" "$directory/listed" "$directory/built"; then
  echo "$library does not define what $list says" >&2
  exit 1
fi
echo "$(wc -l <"$directory/built") lines agree"
