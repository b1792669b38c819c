# Programs crash; an administrator announces a reboot, and the reason outlives the daemon.
kernel_reports "A program crashes." 1 ryn.uw.core.dumped backupd 1 /var/core/backupd.000
kernel_reports "It crashes again; this core is encrypted." 1 ryn.uw.core.dumped.encrypted backupd 1 \
  /var/core/backupd.001 key-7
kernel_reports "An agent on the host speaks for itself, through the user context." 1 \
  --user ryn.user.external.warning acme-raid kb/1234 "the cache battery wears out"
kernel_reports "A reboot is announced with its reason." 1 \
  --user ryn.user.ambcli.host.reboot.reason "Reboot reason: disk upgrade" root
say "The daemon goes down with the host, and comes back with it. Why did the host go down?"
restart_daemon
show_host configstore/amb/hykernel/reboot_reason.json
kernel_reports "A shell's stop script brings no reason of its own, and does not overwrite one." 1 \
  --user ryn.user.host.stop.reboot
show_host configstore/amb/hykernel/reboot_reason.json
