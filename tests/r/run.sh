#!/usr/bin/env bash
# Installs the R package into a library of its own, against the libraries of the build, and runs its
# tests. Exit status 77: R is not here.
#   run.sh SOURCE_DIR BUILD_DIR VERSION
set -euo pipefail
if ! Rscript -e 'library(Matrix)' >/dev/null 2>&1; then
  echo "skipped: R with its package Matrix is not here (Debian: r-base-core, r-cran-matrix)"
  exit 77
fi
grep -qx "Version: $3" "$1/r/DESCRIPTION" || { echo "r/DESCRIPTION is not version $3"; exit 1; }
work=$2/tests/r
rm -rf "$work"
mkdir -p "$work/library"
cp -r "$1/r" "$work/zeph"
export ZEPH_CFLAGS="-I$1 -Wall -Werror"
export ZEPH_LIBS="-L$2/zeph -lzeph -Wl,-rpath,$2/zeph -Wl,-rpath,$2/types"
R CMD INSTALL --no-test-load --library="$work/library" "$work/zeph" >"$work/log" 2>&1 ||
  { cat "$work/log"; exit 1; }
R_LIBS=$work/library Rscript --vanilla "$work/zeph/tests/against_dense.R"
Rscript -e "warned <- tools::checkRd('$1/r/man/zeph.Rd'); print(warned); quit(status = length(warned))"
