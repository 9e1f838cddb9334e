#!/bin/sh
# Prints how busy the processors were during one second, in percent of all of them: for the key cpuusagescript, asked
# by TEST-CPU, which waits 8 seconds at most.

# Sets `total` and `idle` to the clock ticks since the system started.
read_ticks() {
  read -r _ user nice system idle iowait irq softirq steal _ < /proc/stat
  idle=$((idle + ${iowait:-0}))
  total=$((user + nice + system + idle + ${irq:-0} + ${softirq:-0} + ${steal:-0}))
}

read_ticks
total_before=$total
idle_before=$idle
sleep 1
read_ticks

elapsed=$((total - total_before))
busy=$((elapsed - (idle - idle_before)))
if [ "$elapsed" -le 0 ] || [ "$busy" -lt 0 ]; then # the kernel may count idle time back
  echo 0.0
  exit
fi
if [ "$busy" -gt "$elapsed" ]; then busy=$elapsed; fi
tenths=$((1000 * busy / elapsed))
echo "$((tenths / 10)).$((tenths % 10))"
