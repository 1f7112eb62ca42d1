#!/usr/bin/env bash
# Every command and option of the help stands in the manual page and in each completion, which are
# driven as a shell would where that shell is here.
#   documents.sh PROGRAM FOLDER
set -euo pipefail
zeph=$1
cd "$2"
failed=0

expect() {  # what, wanted words, words found
  diff <(printf '%s\n' $2 | sort -u) <(printf '%s\n' $3 | sort -u) >/dev/null && return
  printf 'FAILED: %s\n  wanted: %s\n  found:  %s\n' "$1" "$(echo $2)" "$(echo $3)"
  failed=1
}

source ./zeph.bash
bash_offers() {
  COMP_WORDS=("$@") COMP_CWORD=$(($# - 1)) COMPREPLY=()
  _zeph
  printf '%s\n' "${COMPREPLY[@]}"
}
has() { command -v "$1" >/dev/null; }
fish_offers() { fish -c "source ./zeph.fish; complete -C '$1'" | cut -f1; }
zsh_names() { sed -n "/^ *$1) _arguments/,/;;/p" _zeph | grep -oE -- '\)-[a-z-]+' | tr -d ')'; }
manual_names() {
  sed -n "/^\.SS .*zeph $1/,/^\.S[SH] /p" <(sed 's/\\-/-/g' zeph.1) | grep '^\\fB' | grep -oE -- 'fB-[a-z-]+' | cut -c3-
}

commands=$("$zeph" --help | sed -n '/^Subcommands:/,/^$/s/^  \([a-z-]*\) .*/\1/p')
[ "$(wc -w <<<"$commands")" -ge 10 ] || { echo "FAILED: no commands in the help"; exit 1; }
expect "commands in bash" "$commands -h --help --version" "$(bash_offers zeph '')"
expect "commands in zsh" "$commands" "$(sed -n "s/^ *'\([a-z-]*\):.*/\1/p" _zeph)"
if has fish; then expect "commands in fish" "$commands" "$(fish_offers 'zeph ')"; fi
for command in $commands; do
  options=$("$zeph" "$command" --help | sed -n '/^Options:/,/^$/p' |
    sed -nE 's/^  ((-[a-z],)?--[a-z-]+).*/\1/p' | tr , '\n')
  expect "zeph $command in bash" "$options" "$(bash_offers zeph "$command" -)"
  expect "zeph $command in zsh" "$options" "$(zsh_names "$command")"
  expect "zeph $command in the manual" "$options" "-h --help $(manual_names "$command")"
  if has fish; then
    expect "zeph $command in fish" "$(grep -e -- <<<"$options")" "$(fish_offers "zeph $command --")"
  fi
done

touch "$PWD/a file.mtx"
trap 'rm "$PWD/a file.mtx"' EXIT
expect "a file" "$(echo 'a file.mtx')" "$(bash_offers zeph solve 'a f')"
expect "a file for an option" "$(echo 'a file.mtx')" "$(bash_offers zeph adjust --sigma = 'a f')"
expect "words" "cholmod" "$(bash_offers zeph solve A.mtx --engine c)"
expect "words or a file" "amd auto a file.mtx" "$(bash_offers zeph plan --ordering a)"
expect "a number" "" "$(bash_offers zeph plan --threads '')"
if has fish; then expect "words in fish" "zeph cholmod domains mumps" "$(fish_offers 'zeph solve --engine ')"; fi
for shell in bash fish zsh; do
  file=zeph.$shell
  [ $shell = zsh ] && file=_zeph
  if has $shell; then $shell -n $file || failed=1; else echo "$shell is not here"; fi
done
if has man; then
  expect "warnings of man" "" "$(LC_ALL=C.UTF-8 man --warnings -l zeph.1 2>&1 >/dev/null)"
fi
exit $failed
