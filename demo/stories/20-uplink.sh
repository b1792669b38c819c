# A NIC goes down and comes back; another one does so too often.
say "Two port groups share a switch; one of them has a single uplink left."
set_host net/portgroups/Production vSwitch0
set_host net/portgroups/Backup vSwitch0
say "Their uplink hynic0 goes down. The kernel says so once for the link and once for each port group."
submit ryn.net.pg.uplink.transition.down hynic0 Production 0 1
submit ryn.net.pg.uplink.transition.down hynic0 Backup 1 2
kernel_reports "Two seconds later one event tells who has lost everything, one who has lost redundancy." 2 \
  ryn.net.hynic.linkstate.down hynic0
submit ryn.net.pg.uplink.transition.up hynic0 Production 1 1
kernel_reports "It comes back for both: nothing on the host lacks anything any more." 2 \
  ryn.net.pg.uplink.transition.up hynic0 Backup 2 2
say "The link of hynic1 goes down three times within a minute, and two are allowed."
set_host sysinfo/config/intOpts/Net/LinkFlappingThreshold 2
submit ryn.net.hynic.linkstate.down hynic1
submit ryn.net.hynic.linkstate.down hynic1
kernel_reports "It is taken down, and reported as down." 2 ryn.net.hynic.linkstate.down hynic1
show_actions
