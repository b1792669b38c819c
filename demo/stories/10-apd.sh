# A device loses all of its paths and gets them back.
kernel_reports "All paths to a device are gone." 1 ryn.storage.apd.start naa.60016045
kernel_reports "They stay gone: the kernel stops waiting for them." 1 ryn.storage.apd.timeout naa.60016045 140
kernel_reports "An observation that no correlator knows is logged and posts nothing." 0 \
  --force ryn.storage.apd.unheard-of naa.60016045
kernel_reports "The paths are back: the problem is cleared." 1 ryn.storage.apd.exit naa.60016045
