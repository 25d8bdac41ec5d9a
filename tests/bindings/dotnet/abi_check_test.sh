#!/bin/sh
# abi_check_test.sh ABI_CHECK: an added function passes; a changed type or field, a removed function fail.
set -u
check=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"

version() {  # NAME SED-EXPRESSION: the header changed so, and its library built with debug info
  mkdir "$1"
  sed "$2" > "$1/tavrel.h" <<'HEADER'
typedef struct tavrel_frame { int width; double scale; } tavrel_frame;
int tavrel_a(double x) { return (int)x; }
int tavrel_b(tavrel_frame *f) { return f->width; }
HEADER
  cc -g -shared -fPIC -x c -o "$1/lib.so" "$1/tavrel.h"
}
version v1 ''
printf 'tavrel_a\ntavrel_b\n' > symbols.txt
"$check" --update v1/lib.so baseline.abi symbols.txt > /dev/null || exit 1

failures=0
expect() {  # STATUS NAME SED-EXPRESSION
  version "$2" "$3"
  "$check" "$2/lib.so" baseline.abi symbols.txt > "$2/out" 2>&1
  status=$?
  if [ "$status" -ne "$1" ]; then
    echo "FAILED: $2 gave $status, wanted $1"; cat "$2/out"; failures=$((failures + 1))
  fi
}
expect 0 added 's/^int tavrel_b/int tavrel_c(void) { return 0; }\nint tavrel_b/'
expect 1 parameter 's/tavrel_a(double x)/tavrel_a(int x)/'
expect 1 field 's/int width; double scale;/double scale; int width;/'
expect 1 removed '/tavrel_a/d'
[ "$failures" -eq 0 ] && echo PASSED
