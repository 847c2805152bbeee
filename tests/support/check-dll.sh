#!/usr/bin/env bash
# Checks the built DLL's interface: exactly the exports the .def lists, undecorated,
# and no import of a mingw runtime DLL (the library ships alone).
#   check-dll.sh OBJDUMP Wrenkits.dll Wrenkits.def
set -euo pipefail
objdump=$1 dll=$2 def=$3
dump=$("$objdump" -p "$dll")

exported=$(printf '%s\n' "$dump" | sed -n '/\[Ordinal\/Name Pointer\] Table/,/^$/p' |
           sed -n 's/^[[:space:]]*\[[[:space:]]*[0-9]*\] //p' | sort)
listed=$(sed -n 's/^[[:space:]]\+\([A-Za-z_][A-Za-z0-9_]*\).*/\1/p' "$def" | sort)
if [ "$exported" != "$listed" ]; then
  echo "exports differ from $def:"
  diff <(printf '%s\n' "$listed") <(printf '%s\n' "$exported") || true
  exit 1
fi

imports=$(printf '%s\n' "$dump" | sed -n 's/^[[:space:]]*DLL Name: //p')
if printf '%s\n' "$imports" | grep -qiE 'libstdc|libgcc|libwinpthread|mingw'; then
  echo "imports a mingw runtime DLL:" $imports
  exit 1
fi
echo "$(printf '%s\n' "$exported" | wc -l) exports; imports:" $imports
