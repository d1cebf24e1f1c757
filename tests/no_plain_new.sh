#!/usr/bin/env bash
# Lists new-expressions in the library's sources that are neither the nothrow
# form nor a placement form; fails if there is any. Comments are ignored.
set -u
found=$(grep -rnE --include='*.cpp' --include='*.h' '\bnew\b' "$1" |
  sed -E 's#//.*$##' |
  grep -E '(=|return|\(|,)\s*new\s+[A-Za-z_:]' |
  grep -vE 'new\s*\(' )
if [ -n "$found" ]; then
  echo "plain new-expressions in the library (use new (std::nothrow)):"
  echo "$found"
  exit 1
fi
echo "no plain new-expressions"
