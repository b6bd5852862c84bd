#!/usr/bin/env bash
# The generated bash completion offers every command and option that the
# tool's help lists (the help is read here independently of the command tree
# the completion was generated from), and the right kind of value after an
# option that takes one or for a command's file argument.
#
#   check_completion.sh SITELIST COMPLETION_SCRIPT
set -euo pipefail
tool=$1
completion=$2
here=$(cd "$(dirname "$0")" && pwd)
# shellcheck source=HelpText.sh
source "$here/HelpText.sh"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir "$work/sub"
touch "$work/list.xml"
cd "$work"

failures=0
queries=()
expected=()
# expect LINE OFFERS...: completing at the end of LINE offers exactly OFFERS.
expect() {
  queries+=("$1")
  shift
  expected+=("$(printf '%s\n' "$@" | sed '/^$/d' | sort -u | tr '\n' ' ')")
}

# Runs bash completion on every query line in one shell; prints the sorted
# offers of each on a line of their own.
complete_all() {
  printf '%s\n' "${queries[@]}" | bash --norc --noprofile -c '
    source /usr/share/bash-completion/bash_completion
    source "$1"
    while IFS= read -r line; do
      read -r -a COMP_WORDS <<<"$line"
      [[ $line == *" " ]] && COMP_WORDS+=("")
      COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
      COMP_LINE=$line
      COMP_POINT=${#line}
      COMPREPLY=()
      _sitelist sitelist "${COMP_WORDS[COMP_CWORD]}" "${COMP_WORDS[COMP_CWORD - 1]}"
      printf "%s\n" "${COMPREPLY[@]}" | sed "/^\$/d" | sort -u | tr "\n" " "
      echo
    done' _ "$completion"
}

mapfile -t commands < <(help_commands)
mapfile -t globals < <(help_options)
[ ${#commands[@]} -ge 10 ] || { echo "the help lists only ${#commands[@]} commands"; exit 1; }
[ ${#globals[@]} -ge 5 ] || { echo "the help lists only ${#globals[@]} global options"; exit 1; }

expect "sitelist " "${commands[@]}"
expect "sitelist -" "${globals[@]}"
expect "sitelist --data-dir " sub
expect "sitelist --site-list " list.xml sub
expect "sitelist --data-dir sub " "${commands[@]}"
expect "sitelist --verbose --data-dir sub s" $(printf '%s\n' "${commands[@]}" | grep '^s')
for command in "${commands[@]}"; do
  mapfile -t own < <(help_options "$command")
  expect "sitelist $command -" "${own[@]}" "${globals[@]}"
  expect "sitelist --data-dir sub $command --" $(printf '%s\n' "${own[@]}" "${globals[@]}" | grep '^--')
  while read -r option type; do
    case $type in
      *FILE) expect "sitelist $command $option " list.xml sub ;;
      *DIR) expect "sitelist $command $option " sub ;;
      *) expect "sitelist $command $option " ;;
    esac
  done < <(help_valued_options "$command")
  positional=$(help_positional "$command")
  case $positional in
    *FILE) expect "sitelist $command " list.xml sub ;;
    "") expect "sitelist $command " ;;
  esac
done
expect "sitelist show --json " list.xml sub

mapfile -t answers < <(complete_all)
[ ${#answers[@]} -eq ${#queries[@]} ] || { echo "${#answers[@]} answers to ${#queries[@]} queries"; exit 1; }
for i in "${!queries[@]}"; do
  if [ "${answers[i]}" != "${expected[i]}" ]; then
    echo "completing '${queries[i]}':"
    echo "  offered:  ${answers[i]}"
    echo "  expected: ${expected[i]}"
    failures=$((failures + 1))
  fi
done
[ $failures -eq 0 ] || exit 1
echo "${#queries[@]} completions checked over ${#commands[@]} commands"
