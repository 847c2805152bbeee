#!/usr/bin/env bash
# implib.sh LLVM_DLLTOOL Wrenkits.lib Wrenkits.def
# The MSVC import library must let a program link every export of the .def file, by its
# undecorated name, against Wrenkits.dll, for x64: an export missing here is a link error
# only an MSVC customer would see.
set -euo pipefail
dlltool=$1 lib=$2 def=$3
bin=$(dirname "$(readlink -f "$dlltool")")
nm=$bin/llvm-nm readobj=$bin/llvm-readobj
status=0

want=$(sed -n 's/^[[:space:]]*\(ZN_[A-Za-z0-9_]*\).*/\1/p' "$def" | sort)
# Every export has its function symbol and its __imp_ pointer.
symbols=$("$nm" "$lib")
for kind in function pointer; do
  if [ $kind = function ]; then
    got=$(echo "$symbols" | awk '$2 == "T" && $3 ~ /^ZN_/ {print $3}' | sort)
  else
    got=$(echo "$symbols" | awk '$3 ~ /^__imp_ZN_/ {sub(/^__imp_/, "", $3); print $3}' | sort)
  fi
  if [ "$got" != "$want" ]; then
    echo "$kind symbols of Wrenkits.lib differ from the .def file (< .def, > .lib):"
    diff <(echo "$want") <(echo "$got") || true
    status=1
  fi
done

# Each import member names Wrenkits.dll; the library's own objects are for x86-64.
report=$("$readobj" "$lib")
members=$(echo "$report" | awk '/^File:/ {file=$2} /^Format: COFF-import-file/ {print file}')
count=$(echo "$members" | grep -c . || true)
exports=$(echo "$want" | wc -l)
dlls=$(echo "$members" | sort -u)
arches=$(echo "$report" | sed -n 's/^Arch: *//p' | sort -u)
echo "$exports exports in the .def file; $count import members from $dlls; objects for $arches"
[ "$count" = "$exports" ] || { echo "$count import members for $exports exports"; status=1; }
[ "$dlls" = "Wrenkits.dll" ] || { echo "members name '$dlls', not Wrenkits.dll"; status=1; }
[ "$arches" = "x86_64" ] || { echo "objects are for '$arches', not x86_64"; status=1; }
exit $status
