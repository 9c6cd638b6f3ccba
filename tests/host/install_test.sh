#!/usr/bin/env bash
# An installation as a user makes it: into a prefix with blanks and Cyrillic, twice over, then
# an import from the installed program without --xsd, with the dictionary folder read-only,
# and with it present but empty; and the module found by Python beside its data.
# usage: install_test.sh CMAKE BUILD_DIR SOURCE_DIR PYTHON
set -u
cmake=$1 build=$2 src=$3 python=$4
passed=0 failed=0
check() {  # name, then a command that must succeed
  local name=$1; shift
  if "$@" >/dev/null 2>&1; then passed=$((passed + 1)); else failed=$((failed + 1)); echo "FAILED: $name"; fi
}
work=$(mktemp -d)
trap 'chmod -R u+w "$work"; rm -rf "$work"' EXIT
prefix="$work/Программы и данные"
export XDG_DOCUMENTS_DIR="$work"

check "install" "$cmake" --install "$build" --prefix "$prefix"
check "install over an older one" "$cmake" --install "$build" --prefix "$prefix"
app="$prefix/lib/tmMiniImport"
check "program" test -x "$app/tmimport"
check "program link" test -L "$prefix/bin/tmimport"
check "dictionaries" test -f "$app/XSDSchemes/KPT_v09/SchemaCommon/dStates_v01.xsd"
check "dictionaries of extracts" test -f "$app/XSDSchemes/KVZU_v06/SchemaCommon/dCategories_v01.xsd"

# Words, not codes: "Земли населённых пунктов" for the category of the sample's parcels.
words() { iconv -f cp1251 -t utf-8 "$1/Участки.mid" | grep -q "Земли населённых пунктов"; }
"$prefix/bin/tmimport" "$src/samples/kpt10_sample.xml" -o "$work/out" -q 2>"$work/err"
check "import from the installation" test $? -eq 0
check "words from the installed dictionaries" words "$work/out"
check "only the dictionaries no package publishes are missing" grep -q "^tmimport: 4 of 15 " "$work/err"

chmod -R a-w "$app/XSDSchemes"
"$prefix/bin/tmimport" "$src/samples/kpt10_sample.xml" -o "$work/out2" -q 2>/dev/null
check "read-only dictionaries" test $? -eq 0
check "words from read-only dictionaries" words "$work/out2"
chmod -R u+w "$app/XSDSchemes"

mv "$app/XSDSchemes" "$app/XSDSchemes.full" && mkdir "$app/XSDSchemes"
"$prefix/bin/tmimport" "$src/samples/kpt10_sample.xml" -o "$work/out3" -q 2>"$work/err3"
check "empty dictionary folder still imports" test $? -eq 0
check "empty dictionary folder is one line" test "$(wc -l <"$work/err3")" -eq 1
check "empty dictionary folder says where" grep -q "15 of 15 classifier dictionaries not found in $app/XSDSchemes" "$work/err3"
rmdir "$app/XSDSchemes" && mv "$app/XSDSchemes.full" "$app/XSDSchemes"

if [ -f "$app/tmMiniImportLib.abi3.so" ]; then
  out=$(LD_PRELOAD="${TM_PYTHON_PRELOAD:-}" PYTHONPATH="$prefix/lib/python3/dist-packages" "$python" -c "
import os, tmMiniImportLib as m
print(os.path.isdir(os.path.join(os.path.dirname(os.path.realpath(m.__file__)), 'XSDSchemes')))" 2>&1)
  check "module found by Python beside its data ($out)" test "$out" = "True"
fi

echo "$passed passed, $failed failed"
[ "$failed" -eq 0 ]
