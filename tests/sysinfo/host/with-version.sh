#!/bin/sh
# Runs a Windows program under Wine as another Windows version would report itself:
#   with-version.sh VERSION EXE ARGS...   (VERSION as Wine names it: winxp, win2003, ...)
# The setting is per program name and is removed again whatever the program's result.
version=$1 exe=$2
shift 2
key="HKCU\\Software\\Wine\\AppDefaults\\$(basename "$exe")"
wine reg add "$key" /v Version /t REG_SZ /d "$version" /f >/dev/null 2>&1
wine "$exe" "$@"
rc=$?
wine reg delete "$key" /f >/dev/null 2>&1
exit $rc
