#!/usr/bin/env bash
# Prepares the Wine prefix that every test of one build tree runs in:
#   setup-prefix.sh PREFIX BIN_DIR DRIVES_DIR TOOL_DOUBLE_EXE
# - boots the prefix once (later runs reuse it),
# - installs the tool double as the OS tools the library runs,
# - maps the extra drive letters S: T: W: X: to folders of the build tree,
# - creates QRB.log beside the test executables so the library logs to it.
set -euo pipefail
prefix=$1 bin=$2 drives=$3 double=$4
export WINEPREFIX=$prefix WINEDEBUG=-all DISPLAY=
export WINEDLLOVERRIDES="mscoree,mshtml="

if [ ! -f "$prefix/.wrenkits-booted" ]; then
  rm -rf "$prefix"
  mkdir -p "$prefix"
  wineboot -i >/dev/null 2>&1
  wineserver -w
  touch "$prefix/.wrenkits-booted"
fi

sys32=$prefix/drive_c/windows/system32
for tool in bcdedit bcdboot diskpart netsh regsvr32 shutdown; do
  cp -f "$double" "$sys32/$tool.exe"
done

for letter in s t w x; do
  rm -rf "$drives/$letter"
  mkdir -p "$drives/$letter"
  ln -sfn "$drives/$letter" "$prefix/dosdevices/$letter:"
done

# Wine serves \\server\share from dosdevices/unc; without that folder every UNC path
# fails with 66, and without its server folder with 3, instead of the 2 of a share
# that is not there.
mkdir -p "$prefix/dosdevices/unc/nas"

mkdir -p "$bin"
: >"$bin/QRB.log"

# One persistent server for the whole run: starting it per test costs a second each.
wineserver -p </dev/null >/dev/null 2>&1 || true  # already running is fine
# Start the prefix's background processes (services, devices, explorer) now, with no
# inherited output: started by a test, they would hold its output pipe open and CTest
# would wait for them forever.
wine cmd.exe /c exit </dev/null >/dev/null 2>&1 || true
echo "prefix ready: $prefix"
