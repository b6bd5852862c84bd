#!/usr/bin/env bash
# The generated man page documents the tool: its name line, every global
# option, and a section for every command the help lists with each of that
# command's options (the help is read here independently of the command tree
# the page was generated from).
#
#   check_manpage.sh SITELIST PAGE.gz
set -euo pipefail
tool=$1
page=$2
here=$(cd "$(dirname "$0")" && pwd)
# shellcheck source=HelpText.sh
source "$here/HelpText.sh"
fail() { echo "$*"; exit 1; }

gzip -t "$page" || fail "$page is not a gzip file"
roff=$(gzip -cd "$page")
# Options and commands as roff writes them: every hyphen a minus sign.
escaped() { printf '%s' "$1" | sed 's/-/\\-/g'; }

grep -q '^\.TH SITELIST "1" ".*" "sitelist 4\.0\.0" "User Commands"$' <<<"$roff" || fail "no .TH line for sitelist 4.0.0"
grep -qxF "sitelist \\- look at and change the agent's repository site list" <<<"$roff" || fail "no NAME line"
grep -qx '\.SH COMMANDS' <<<"$roff" || fail "no COMMANDS section"

options_section=$(sed -n '/^\.SH OPTIONS$/,/^\.SH /p' <<<"$roff")
mapfile -t globals < <(help_options)
for option in "${globals[@]}"; do
  grep -qF -- "$(escaped "$option")" <<<"$options_section" || fail "global option $option is not in OPTIONS"
done

mapfile -t commands < <(help_commands)
[ ${#commands[@]} -ge 10 ] || fail "the help lists only ${#commands[@]} commands"
checked=0
for command in "${commands[@]}"; do
  heading=".SS \"sitelist $(escaped "$command")\""
  grep -qxF "$heading" <<<"$roff" || fail "no section $heading"
  # The command's section: from its heading to the next one.
  section=$(awk -v h="$heading" '$0 == h { on = 1; next } on && /^\.S[SH] / { exit } on' <<<"$roff")
  grep -qF "Usage: sitelist $(escaped "$command")" <<<"$section" || fail "no usage line in the section of $command"
  while read -r option; do
    grep -qF -- "$(escaped "$option")" <<<"$section" || fail "$command: option $option is not in its section"
    checked=$((checked + 1))
  done < <(help_options "$command")
done
echo "${#commands[@]} command sections, ${#globals[@]} global options and $checked command options documented"
