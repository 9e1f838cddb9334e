#!/bin/sh
# Counts the running processes of a name: for the key proccntscript, asked by TEST-Process.
#
#   proccnt.sh NAME
#
# The agent hands the name over unquoted, so a name with blanks comes as several arguments; they are joined again.
# Prints one number.  The script itself does not count.

if [ $# -eq 0 ]; then
  echo "usage: proccnt.sh NAME" >&2
  exit 2
fi
wanted=$*

short=$(printf '%.15s' "$wanted") # the kernel keeps no more of a name

# Tells a longer name from its like by the file name of the program, or of the script that it interprets.
runs_wanted() {
  { tr '\0' '\n' < "$1/cmdline" | head -n 2 | sed 's|.*/||' | grep -Fqx -e "$wanted"; } 2>/dev/null
}

count=0
for dir in /proc/[0-9]*; do
  [ "$dir" != "/proc/$$" ] || continue
  { read -r name < "$dir/comm"; } 2>/dev/null || continue # it has ended meanwhile
  [ "$name" = "$short" ] || continue
  [ "$wanted" = "$short" ] || runs_wanted "$dir" || continue
  count=$((count + 1))
done
echo "$count"
