#!/usr/bin/env bash
# Runs every command of the ovra program on hostile input as a user might give
# it: empty, one byte, binary with zero bytes everywhere, sizes just below and
# above the program's buffers, a directory, a file that cannot be read, a full
# disk as output, bad and repeated options, very long arguments, and text
# large enough to pass the int limits of the library's conversions. Each case
# states the exit status, whether output is produced, and that no input was
# silently dropped (the output's size or content is checked).
#
# Usage: tool_hostile.sh OVRA_PROGRAM [EMULATOR...]
set -uo pipefail
tool=$(cd "$(dirname "$1")" && pwd)/$(basename "$1")
shift
emulator=("$@")
work=$(mktemp -d)
trap 'chmod -R u+rwx "$work" 2>/dev/null; rm -rf "$work"' EXIT
failures=0
checks=0
ovra() { "${emulator[@]}" "$tool" "$@"; }
section() { echo "[${SECONDS}s] $*"; }
pass() { checks=$((checks + 1)); }
fail() { checks=$((checks + 1)); failures=$((failures + 1)); echo "FAIL: $*" >&2; }
sanitized=${OVRA_TOOL_SANITIZED:-0}

# expect STATUS OUTPUT COMMAND... (standard input from $in, /dev/null when unset)
#   STATUS  the exit status wanted
#   OUTPUT  none: nothing on standard output; some: something; size:N: N bytes;
#           same:FILE: exactly the bytes of FILE
# A failure must say why on standard error ("ovra ..." lines), a success must
# say nothing there.
in=/dev/null
expect() {
  local want=$1 output=$2
  shift 2
  ovra "$@" < "$in" > "$work/out" 2> "$work/err"
  local status=$? why=""
  [ $status -eq "$want" ] || why="status $status, not $want"
  local size
  size=$(stat -c %s "$work/out")
  case $output in
    none) [ "$size" = 0 ] || why="$why; $size bytes of output";;
    some) [ "$size" -gt 0 ] || why="$why; no output";;
    size:*) [ "$size" = "${output#size:}" ] || why="$why; $size bytes of output, not ${output#size:}";;
    same:*) cmp -s "$work/out" "${output#same:}" || why="$why; output differs from ${output#same:}";;
  esac
  if [ "$want" -ne 0 ]; then
    grep -q '^ovra' "$work/err" || why="$why; no message on standard error"
  elif [ -s "$work/err" ]; then
    why="$why; message on success: $(head -c 200 "$work/err")"
  fi
  # A sanitizer report would also be on standard error.
  if grep -q 'Sanitizer' "$work/err"; then why="$why; sanitizer report"; fi
  if [ -z "$why" ]; then pass; else fail "ovra $(printf '%q ' "$@" | head -c 200)< $in: ${why#; }"; fi
}

# --- inputs ----------------------------------------------------------------------
section "inputs"
mkdir -p "$work/dir"
: > "$work/empty"
printf 'x' > "$work/one"
# Binary with zero bytes everywhere: every byte value, runs of zeros, and the
# program's own pseudo-random bytes, ending in two plain bytes (so that no
# UTF-8 sequence is left unfinished).
binary() {  # binary NAME SIZE
  head -c "$2" /dev/zero | ovra encrypt --cipher rc4 --key "$(printf '%08x' "$2")" |
    tr '\001-\077' '\000' | head -c $(($2 - 2)) > "$work/$1"
  printf 'ok' >> "$work/$1"
}
binary bin "$((200 * 1024 + 3))"
for size in 3 49151 49152 49153 65535 65536 65537 131072; do binary "bin$size" "$size"; done
# What an unreadable file looks like to the program: it opens, but reading fails.
unreadable=""
if [ ${#emulator[@]} -eq 0 ] && [ -r /proc/self/mem ]; then unreadable=/proc/self/mem; fi
if [ "$(id -u)" != 0 ]; then
  printf 'secret' > "$work/locked"; chmod 000 "$work/locked"
fi
long=$(head -c 100000 /dev/zero | tr '\0' 'a')

# --- every command: help, version, a full disk ----------------------------------
section "help, version and a full disk"
in=/dev/null
expect 0 some --version
expect 0 some --help
for cmd in md4 md5 sha1 hmac checksum base64 encrypt decrypt find sysinfo inet html2text \
           text2html utf8; do
  expect 0 some "$cmd" --help
  # Shortened, and repeated.
  expect 0 some "$cmd" --he --help
  ovra "$cmd" --help > /dev/full 2> "$work/err"
  if [ $? = 1 ] && grep -q "write error" "$work/err"; then pass; else fail "$cmd --help > /dev/full"; fi
done
ovra --version > /dev/full 2> "$work/err"
if [ $? = 1 ] && grep -q "write error" "$work/err"; then pass; else fail "--version > /dev/full"; fi
ovra --help > /dev/full 2> "$work/err"
if [ $? = 1 ] && grep -q "write error" "$work/err"; then pass; else fail "--help > /dev/full"; fi
# Every command that writes, to a full disk: status 1 and a message.
full() {  # full COMMAND...: run with standard input $in and output /dev/full
  ovra "$@" < "$in" > /dev/full 2> "$work/err"
  local status=$?
  if [ $status = 1 ] && grep -q "write error" "$work/err"; then pass
  else fail "ovra $* > /dev/full < $in: status $status, $(head -c 200 "$work/err")"; fi
}
in=$work/bin
for args in "md4" "md5" "sha1" "md5 --tag" "checksum" "hmac --digest md5 --key 00" "base64" \
            "base64 -w0" "encrypt --cipher rc4 --key 00" "decrypt --cipher rc4 --key 00" \
            "encrypt --cipher des-cbc --key 0011223344556677 --iv 0011223344556677" \
            "utf8 --from latin1" "utf8 --to utf16le" "utf8 --from utf16be" "utf8 --to latin1" \
            "text2html" "html2text"; do
  full $args
done
ovra base64 "$work/bin" > "$work/bin.b64"
in=$work/bin.b64 full base64 -d
md5sum "$work/bin" > "$work/bin.md5"
in=$work/bin.md5 full md5 -c
in=/dev/null full sysinfo
in=/dev/null full inet 10.1
in=/dev/null full find "$work/*"

# --- empty, one byte, binary, and sizes around the buffers ----------------------
section "empty, one byte, binary and buffer sizes"
# Digests and checksums: exactly what the reference tools give.
for f in empty one bin bin3 bin49152 bin65535 bin65536 bin65537; do
  in=$work/$f
  md5sum < "$in" > "$work/want"; expect 0 "same:$work/want" md5
  sha1sum < "$in" > "$work/want"; expect 0 "same:$work/want" sha1 -
  md5sum --tag "$in" > "$work/want"; expect 0 "same:$work/want" md5 --tag "$in"
  expect 0 size:36 md4               # 32 digits, two spaces, "-", a line feed
  expect 0 size:8 checksum
  expect 0 size:36 hmac --digest md5 --key 00
  # Base64 both ways, as base64 does it; decoding gives every byte back.
  base64 < "$in" > "$work/want"; expect 0 "same:$work/want" base64
  base64 -w0 < "$in" > "$work/want0"; expect 0 "same:$work/want0" base64 -w0
  in=$work/want expect 0 "same:$work/$f" base64 -d
  in=$work/want0 expect 0 "same:$work/$f" base64 --decode
  # Ciphers: whole blocks with padding, and the round trip.
  size=$(stat -c %s "$work/$f")
  expect 0 "size:$(( (size / 8 + 1) * 8 ))" encrypt --cipher des-ecb --key 0011223344556677
  ovra encrypt --cipher rc2-cbc --key 00112233 --iv 0011223344556677 < "$in" > "$work/enc"
  in=$work/enc expect 0 "same:$work/$f" decrypt --cipher rc2-cbc --key 00112233 --iv 0011223344556677
  expect 0 "size:$size" encrypt --cipher rc4 --key 00
  # Text: Latin-1 to UTF-8 and back loses nothing, zero bytes included; so
  # do UTF-16 to UTF-8 and back (an even count of bytes), and an HTML page
  # and back.
  ovra utf8 --from latin1 < "$in" > "$work/utf8"
  want=$(od -An -v -tu1 "$work/$f" | awk '{ for (i = 1; i <= NF; i++) n += ($i < 128) ? 1 : 2 } END { print n + 0 }')
  expect 0 "size:$want" utf8 --from latin1
  in=$work/utf8 expect 0 "same:$work/$f" utf8 --to latin1
  if [ $((size % 2)) = 0 ]; then
    ovra utf8 --from utf16le < "$in" > "$work/u8"
    in=$work/u8 expect 0 "same:$work/$f" utf8 --to utf16le
  else
    # The odd byte is reported, the rest converted.
    if [ "$size" = 1 ]; then expect 1 none utf8 --from utf16be; else expect 1 some utf8 --from utf16be; fi
  fi
  in=$work/utf8 ovra text2html < "$work/utf8" > "$work/page"
  in=$work/page expect 0 "same:$work/utf8" html2text
  # Binary taken as UTF-8 is decoded without validation: status 0, output.
  if [ "$f" != empty ]; then expect 0 some html2text; expect 0 some text2html; fi
done
in=$work/empty expect 0 size:26 text2html    # the page's frame alone
in=$work/empty expect 0 none html2text
in=$work/empty expect 0 none utf8 --to utf16le
# A zero byte is text like any other.
printf 'a\0b\r\0\nc' > "$work/z"; in=$work/z
printf '<HTML><BODY>a\0b\r\0\nc</BODY></HTML>' > "$work/want"; expect 0 "same:$work/want" text2html
printf 'a\0<b\0r>&am\0p;b\0' > "$work/z"; in=$work/z
printf 'a\0b\0' > "$work/want"; expect 0 "same:$work/want" html2text
# Sequences, CR LF pairs, tags and entities cut by the 64 KiB chunks.
head -c 65535 /dev/zero | tr '\0' 'a' > "$work/edge"; printf '\r\nb' >> "$work/edge"; in=$work/edge
expect 0 size:$((12 + 65535 + 4 + 1 + 14)) text2html
head -c 65534 /dev/zero | tr '\0' 'a' > "$work/edge"; printf '<br>&amp;b' >> "$work/edge"; in=$work/edge
expect 0 size:$((65534 + 2 + 1 + 1)) html2text
for pad in 0 1 2; do
  { head -c "$pad" /dev/zero | tr '\0' 'a'; for i in $(seq 30000); do printf '\xe2\x82\xac'; done; } > "$work/euro"
  iconv -f UTF-8 -t UTF-16LE "$work/euro" > "$work/want"; in=$work/euro
  expect 0 "same:$work/want" utf8 --to utf16le
done
# An unfinished UTF-8 sequence at the end is reported, the rest converted.
printf 'ab\xe2\x82' > "$work/cut"; in=$work/cut
expect 1 size:4 utf8 --to utf16le
expect 1 size:28 text2html
# Base64 that is not: a zero byte is invalid, and ignored with -i; nothing
# after the bad group is taken, and the status says so.
printf 'aGVs\0bG8=QUF' > "$work/nul64"; in=$work/nul64
expect 1 size:3 base64 -d
base64 -di < "$work/nul64" > "$work/want" 2>/dev/null; in=$work/nul64 expect 1 "same:$work/want" base64 -di
printf 'QUFB\r\n' > "$work/cr64"; in=$work/cr64
expect 1 size:3 base64 -d
expect 0 size:3 base64 -di
base64 -d < "$work/bin" > "$work/want" 2>/dev/null; in=$work/bin expect 1 "same:$work/want" base64 -d
in=$work/bin expect 1 none md5 -c      # no properly formatted lines
in=$work/empty expect 1 none md5 -c
# 204803 bytes are not whole blocks: the blocks before the end pass, then the error.
in=$work/bin expect 1 some decrypt --cipher des-ecb --key 0011223344556677
in=$work/one expect 1 none decrypt --cipher des-cbc --key 0011223344556677 --iv 0011223344556677

# --- files that are not: a directory, missing, unreadable ----------------------
section "directories, missing and unreadable files"
in=/dev/null
for bad in "$work/dir" "$work/missing" "${unreadable:-}" "$( [ -e "$work/locked" ] && echo "$work/locked")"; do
  [ -n "$bad" ] || continue
  expect 1 none md5 "$bad"
  expect 1 none sha1 "$bad"
  expect 1 none md4 "$bad"
  expect 1 none checksum "$bad"
  expect 1 none md5 -c "$bad"
  expect 1 none hmac --digest sha1 --key 00 "$bad"
  expect 1 none base64 "$bad"
  expect 1 none base64 -d "$bad"
  expect 1 none encrypt --cipher rc4 --key 00 "$bad"
  expect 1 none decrypt --cipher des-ecb --key 0011223344556677 "$bad"
  expect 1 none encrypt -rc4 -K 00 -in "$bad"
  expect 1 none utf8 --to latin1 "$bad"
  expect 1 none utf8 --from utf16le "$bad"
  expect 1 none html2text "$bad"
  expect 1 none text2html "$bad"
done
# Among good files, a bad one is reported and the others still listed.
md5sum "$work/one" "$work/empty" > "$work/want"
expect 1 "same:$work/want" md5 "$work/one" "$work/dir" "$work/empty"
# A listing naming a directory and a missing file: both fail, status 1.
{ md5sum "$work/one"; md5sum "$work/one" | sed "s|$work/one|$work/dir|"; md5sum "$work/one" | sed "s|$work/one|$work/missing|"; } > "$work/list"
printf '%s: OK\n%s: FAILED open or read\n%s: FAILED open or read\n' "$work/one" "$work/dir" "$work/missing" > "$work/want"
expect 1 "same:$work/want" md5 -c "$work/list"
# Output to a file that cannot be made.
expect 1 none encrypt -rc4 -K 00 -in "$work/one" -out "$work/dir"
expect 1 none encrypt -rc4 -K 00 -in "$work/one" -out "$work/missing/x"

# --- bad, repeated and very long arguments -------------------------------------
section "bad, repeated and very long arguments"
in=$work/one
expect 2 none frobnicate
expect 2 none ""
expect 2 none md5 --frob
expect 2 none md5 --tag -c
expect 2 none md5 --quiet
expect 2 none md5 -c -b
expect 2 none md5 --tag -t
expect 2 none base64 -w
expect 2 none base64 -w x
expect 2 none base64 --wrap=-1
expect 2 none base64 -w 9999999999999999999
expect 2 none base64 - -
expect 2 none encrypt --cipher rc4
expect 2 none encrypt --cipher rc4 --key 00 -K 00
expect 2 none encrypt --cipher des-cbc --key 0011223344556677 --iv 0011223344556677 -iv 00
expect 2 none encrypt -rc4 -K 0g
expect 2 none encrypt -rc4 -K 00 -in "$work/one" "$work/one"
expect 2 none hmac --digest md5 --key "${long}a"     # an odd number of digits
expect 2 none encrypt --cipher rc4 --key "$long"          # 50000 bytes: too long
expect 2 none utf8 --to
expect 2 none utf8 --to latin1 --from latin1
expect 2 none sysinfo now
expect 2 none inet
expect 2 none find
# Repeated options: the last one counts, as with the usual tools.
base64 -w 20 < "$work/bin49152" > "$work/want"; in=$work/bin49152
expect 0 "same:$work/want" base64 -w 3 -w 20
expect 0 "same:$work/want" base64 --wrap=0 --wrap 20
ovra encrypt --cipher rc4 --key 22 < "$work/bin49152" > "$work/want"
expect 0 "same:$work/want" encrypt --cipher des-ecb --key 00 --cipher rc4 --key 11 --key 22
md5sum < "$work/bin49152" > "$work/want"
expect 0 "same:$work/want" md5 -b -t
expect 0 "same:$work/want" md5 -tt
# A width no line reaches: one line, ended by a line feed.
{ base64 -w0 < "$work/bin49152"; echo; } > "$work/want"
expect 0 "same:$work/want" base64 -w 999999999999999999
# Very long arguments: names, texts and patterns of 100,000 characters.
in=/dev/null
expect 1 none md5 "$long"
expect 1 none base64 "$long"
expect 1 none text2html "$long"
expect 1 none inet "$long"
expect 1 none find "$long"
expect 1 none find "$work/$long*"
expect 1 some inet 10.1 "$long" 10.2       # the good ones are still printed

# --- beyond the int limits of the library, and memory -------------------------
section "large text"
# 125 MB of double quotes become 750 million characters of "&quot;": more than
# an int counts in bytes of UTF-8 output. Every byte must arrive.
count=$((125 * 1000 * 1000))
head -c $count /dev/zero | tr '\0' '"' > "$work/quotes"
in=$work/quotes expect 0 "size:$((12 + 6 * count + 14))" text2html
rm -f "$work/quotes"
# 300 MiB, above the 256 MiB the conversions once read whole, in bounded
# memory (native, uninstrumented runs only: emulators and sanitizers add
# their own memory).
if [ ${#emulator[@]} -eq 0 ] && [ -x /usr/bin/time ] && [ "$sanitized" = 0 ]; then
  big=$((300 * 1024 * 1024))
  for cmd in "utf8 --to utf16le" "utf8 --from latin1" "text2html" "html2text"; do
    result=$(head -c $big /dev/zero | tr '\0' 'a' |
             /usr/bin/time -f "%M" "$tool" $cmd 2> "$work/time" | wc -c)
    peak=$(tail -n 1 "$work/time")
    echo "ovra $cmd over 300 MiB: peak resident size $peak KiB, $result bytes out"
    case $cmd in
      "utf8 --to utf16le") want=$((2 * big));;
      text2html) want=$((big + 26));;
      *) want=$big;;
    esac
    if [ "$result" = "$want" ] && [ "$peak" -lt 65536 ]; then pass
    else fail "$cmd over 300 MiB: $result bytes out (want $want), peak $peak KiB"; fi
  done
else
  echo "emulated, instrumented or no /usr/bin/time: the memory checks are skipped"
fi

echo "$checks checks, $failures failed"
[ $failures -eq 0 ]
