# What the tool's help lists, read the way a person reads it; sourced by the
# checks of the generated completion and man page, which must cover all of it.
# Needs $tool, the sitelist to ask.

# help_commands: the commands under "Subcommands:" of sitelist --help.
help_commands() {
  "$tool" --help | awk '/^Subcommands:/ { on = 1; next } /^$/ { on = 0 } on && /^  [a-z]/ { print $1 }'
}

# help_options [COMMAND]: every option name under "Options:" of the help of
# COMMAND (of the tool itself without one), one per line.
help_options() {
  "$tool" "$@" --help |
    awk '/^Options:/ { on = 1; next } /^$/ { on = 0 } on && /^  -/ { print $1 }' | tr ',' '\n'
}

# help_valued_options [COMMAND]: "NAME TYPE" for every long option of COMMAND
# that takes a value ("  --key-dir DIR   ..." gives "--key-dir DIR"; a
# validated type such as "N:UINT in [1 - 65535]" gives "N").
help_valued_options() {
  "$tool" "$@" --help |
    awk '/^Options:/ { on = 1; next } /^$/ { on = 0 }
         on && /^  -/ && $2 ~ /^[A-Z]+(:|$)/ { n = split($1, names, ","); sub(/:.*/, "", $2); print names[n], $2 }'
}

# help_positional COMMAND: the name of the first positional of COMMAND, if any.
help_positional() {
  "$tool" "$1" --help | awk '/^Positionals:/ { on = 1; next } /^$/ { on = 0 } on && /^  [A-Z]/ { print $1; exit }'
}
