# Storage: a path is lost and comes back, another changes too often, a ramdisk runs full.
mkdir -p "$root/hyfs/volumes"
say "The host has a device with two volumes, which two paths lead to."
set_host storage/devices/naa.60016045/redundancy 2
set_host storage/devices/naa.60016045/partitions/1 datastore1
set_host storage/devices/naa.60016045/partitions/3 scratch
set_host storage/paths/hba1:C0:T0:L0 naa.60016045
set_host storage/paths/hba2:C0:T0:L0 naa.60016045
kernel_reports "One path goes down: redundancy is lost, and the volumes of the device are named." 1 \
  ryn.scsi.scsipath.pathstate.deadver2 hba1:C0:T0:L0 on naa.60016045
set_host storage/devices/naa.60016045/redundancy 3
kernel_reports "The path is up again: the problem is cleared." 1 \
  ryn.scsi.scsipath.pathstate.on hba1:C0:T0:L0 dead
kernel_reports "A path whose loss was not reported comes back: nothing to clear." 0 \
  ryn.scsi.scsipath.pathstate.on hba2:C0:T0:L0 dead

say "That path goes on changing its state."
for change in 2 3 4 5 6 7 8 9; do
  submit ryn.scsi.scsipath.pathstate.on hba2:C0:T0:L0 standby
done
kernel_reports "Its tenth change within a minute is reported." 1 ryn.scsi.scsipath.pathstate.on hba2:C0:T0:L0 standby
kernel_reports "Its eleventh is not." 0 ryn.scsi.scsipath.pathstate.on hba2:C0:T0:L0 standby

kernel_reports "The datastores of a device that host management does not know are unknown." 1 \
  ryn.psastor.device.state.permanentloss naa.unheard-of
kernel_reports "A ramdisk is full." 1 ryn.velfs.ramdisk.full tmp /tmp/report.txt
kernel_reports "It still is: reported once in 300 seconds." 0 ryn.velfs.ramdisk.full tmp /tmp/report.txt

say "The datastore of the system swap is lost for good; the kernel has removed the swap, and it is configured anew."
set_host storage/filesystems/5f1a-22 datastore1
kernel_reports "This works:" 0 ryn.swap.systemSwap.isPDL.removed /hyfs/volumes/datastore1/sysSwap.swp
show_actions
set_host storage/swap/reconfigure "no datastore has room for it"
kernel_reports "This does not:" 1 ryn.swap.systemSwap.isPDL.removed /hyfs/volumes/datastore1/sysSwap.swp
