# A core, a memory page, a virtual machine and the clock of the host.
say "A core may go offline after three corrected errors of its own caches within a day."
set_host sysinfo/hardware/cpu/vendor GenuineIntel
set_host sysinfo/hardware/cpu/cpuInfo "4 8"
set_host sysinfo/sched/offline/enabled 1
set_host sysinfo/config/intOpts/Cpu/CPUOfflineThreshold 3
for _ in 1 2 3; do
  kernel_reports "A machine check: PCPU 5 has corrected an error of a first-level TLB." 0 \
    ryn.cpu.mce.log4 u64:0 u64:0x10 u64:0 u64:0 u64:5 u64:0 u64:0 u64:1
done
kernel_reports "Three corrected errors at once in the page at 0x1234000: it is to be retired gently." 0 \
  ryn.cpu.mce.log4 u64:0 u64:0x0400000000000000 u64:0 u64:0 u64:2 u64:0x1234567 u64:0 u64:3
show_actions

set_host vms/4711 "web 1"
say "A virtual machine keeps using a page that machine checks are injected for: 49 of these in a second."
printf '%s\n' '{"id":"ryn.pageretire.mce.injected","args":[{"u64":119},{"i32":4711}]}' >"$root/injection"
sed 's/^/    /' "$root/injection"
for _ in $(seq 49); do cat "$root/injection"; done >"$root/injections"
submit --file "$root/injections"
sleep 2.1
shown_log=$(wc -l <"$root/log")  # 49 times the same
kernel_reports "The fiftieth, two seconds later: it is killed." 1 ryn.pageretire.mce.injected u64:119 i32:4711
show_actions

kernel_reports "The clock is synchronised." 1 ryn.clock.correction.adjtime.sync
kernel_reports "Again: not worth an event within the hour." 0 ryn.clock.correction.adjtime.sync
kernel_reports "It loses its time servers." 1 ryn.clock.correction.adjtime.unsync
kernel_reports "It has them back, which is told at once." 1 ryn.clock.correction.adjtime.sync
kernel_reports "A disk is about to fail." 1 ryn.hcm.event.disk.predictive.failure naa.5000c500
