#!/usr/bin/env bash
# Checks the manual page ovra(1) against the program: every command that
# "ovra --help" lists and every option that a command's --help gives must
# appear in it, its version must be the library's, and it must render
# without warnings.
#
# Usage: tool_man.sh OVRA_PROGRAM MAN_PAGE VERSION [EMULATOR...]
set -uo pipefail
tool=$1
page=$2
version=$3
shift 3
emulator=("$@")
ovra() { "${emulator[@]}" "$tool" "$@"; }
failures=0
checks=0
pass() { checks=$((checks + 1)); }
fail() { checks=$((checks + 1)); failures=$((failures + 1)); echo "FAIL: $*" >&2; }

# The page as text with the man escapes for "-" and "\" undone.
text=$(sed -e 's/\\-/-/g' -e 's/\\e/\\/g' -e 's/\\f[BIRP]//g' "$page")

commands=$(ovra --help | awk '/^Commands/ { on = 1; next } on && /^  [a-z0-9]/ { print $1 }')
[ -n "$commands" ] || fail "no commands found in ovra --help"
for cmd in $commands; do
  # Named in the heading of an entry (the line after .TP).
  if awk '/^\.TP/ { getline; print }' <<<"$text" |
     grep -Eq "(^|[^a-z0-9-])$cmd([^a-z0-9-]|$)"; then pass; else fail "command $cmd missing from the page"; fi
  # Every long option of the command's usage.
  for option in $(ovra "$cmd" --help | grep -Eo -- '--[a-z][a-z0-9-]*' | sort -u); do
    [ "$option" = --help ] && continue
    if grep -q -- "$option" <<<"$text"; then pass; else fail "$cmd option $option missing from the page"; fi
  done
done
for option in --help --version; do
  if grep -q -- "$option" <<<"$text"; then pass; else fail "$option missing from the page"; fi
done
if grep -q "^\\.TH OVRA 1 .*\"Ovra $version\"" "$page"; then pass; else fail "the page's version is not $version"; fi
if command -v man >/dev/null 2>&1 && command -v groff >/dev/null 2>&1; then
  warnings=$(LC_ALL=C.UTF-8 MANWIDTH=80 man --warnings -l "$page" 2>&1 >/dev/null)
  if [ -z "$warnings" ]; then pass; else fail "the page renders with warnings: $warnings"; fi
else
  echo "man or groff missing: the rendering check is skipped"
fi
echo "$checks checks, $failures failed"
[ $failures -eq 0 ]
