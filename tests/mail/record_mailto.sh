#!/bin/sh
# The mailto handler the composer tests register: writes the address it is
# started with to $KESTREL_MAILTO_RECORD, one argument per line.
for argument in "$@"; do
  printf '%s\n' "$argument"
done > "$KESTREL_MAILTO_RECORD"
