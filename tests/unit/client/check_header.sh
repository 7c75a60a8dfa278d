#!/bin/sh
# check_header.sh <compiler> <c|c++> <standard> <include directory> [<include directory>...] -- <header>...
#
# Compiles each header alone, twice in one unit, with every warning an error. The headers may not need more than the
# language's own library and what lies in the include directories. Exits with 77 when there is no such compiler.
set -eu

compiler=$1 language=$2 standard=$3
shift 3
if ! command -v "$compiler" >/dev/null; then
  echo "skipped: $compiler is not installed"
  exit 77
fi
flags=
while [ "$1" != -- ]; do
  flags="$flags -I$1"
  shift
done
shift

for header; do
  echo "$compiler -std=$standard $header"
  # ISO C wants at least one declaration.
  unit=$(printf '#include "%s"\n#include "%s"\nextern int declaration;\n' "$header" "$header")
  # shellcheck disable=SC2086  # several flags
  printf '%s\n' "$unit" | "$compiler" -x "$language" -std="$standard" $flags -fsyntax-only \
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror -
  # shellcheck disable=SC2086
  needed=$(printf '%s\n' "$unit" | "$compiler" -x "$language" -std="$standard" $flags -M -)
  case $needed in
    *google/protobuf* | *zmq.h* | *zlog.h* | *client_server.pb.h*)
      echo "$header needs a header of another library: $needed" >&2
      exit 1
      ;;
  esac
done
