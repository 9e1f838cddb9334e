#!/bin/sh
# Lists the running processes by name, one a line: for the key proclistscript, asked by GetProcessesList.
#
# The names are the kernel's, cut after 15 characters.  The output ends without a line end, for the agent would
# answer the last line twice.

separator=
for dir in /proc/[0-9]*; do
  [ "$dir" != "/proc/$$" ] || continue
  { read -r name < "$dir/comm"; } 2>/dev/null || continue # it has ended meanwhile
  printf '%s%s' "$separator" "$name"
  separator='
'
done
