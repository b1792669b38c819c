# A machine of tools/vm-test: QEMU, its monitor, a shell inside of it and the events that come out of it.
import json
import pathlib
import re
import select
import socket
import subprocess
import threading
import time

DISKS = {"shared": "64M", "nvme": "16M", "virtio": "16M", "ata": "16M"}
SCSI_WWN = "0x5000c50015ea71ac"
ATA_WWN = "0x5000c50015ea7a7a"
CAPABILITIES = "+net_admin,+sys_admin,+syslog,+dac_override"
# As its unit starts it.
RYNLINUXD = (f"/bin/setpriv --reuid 1000 --regid 1000 --clear-groups --bounding-set -all,{CAPABILITIES}"
             f" --inh-caps {CAPABILITIES} --ambient-caps {CAPABILITIES} rynlinuxd")
# Longer than anything settles.
QUIET = 1.5


def devices(work):
    """One disk behind two SCSI paths, an NVMe, a virtio and an ATA disk, and three cards, one of which can be stalled."""
    path = "driver=raw,file.driver=file,file.locking=off,file.filename="
    words = ["-device", "virtio-scsi-pci,id=hba0", "-device", "virtio-scsi-pci,id=hba1"]
    for i in range(2):
        words += ["-blockdev", f"{path}{work}/shared,node-name=path{i}",
                  "-device", f"scsi-hd,bus=hba{i}.0,drive=path{i},id=lun{i},share-rw=on,wwn={SCSI_WWN}"]
    for kind, model in [("nvme", "nvme,serial=NV1234"), ("virtio", "virtio-blk-pci,serial=VB5678")]:
        words += ["-blockdev", f"{path}{work}/{kind},node-name={kind}", "-device", f"{model},drive={kind},id={kind}0"]
    words += ["-blockdev", "driver=null-co,node-name=nothing,size=16777216,read-zeroes=on"]
    words += ["-device", "ich9-ahci,id=ahci", "-blockdev", f"{path}{work}/ata,node-name=ata",
              "-device", f"ide-hd,bus=ahci.0,drive=ata,id=ata0,serial=AT9,wwn={ATA_WWN}"]
    words += ["-netdev", f"stream,id=n2,server=off,addr.type=unix,addr.path={work}/network.sock",
              "-device", "virtio-net-pci,netdev=n2,id=v0,mac=52:54:00:00:00:03"]
    for i in range(2):
        words += ["-netdev", f"hubport,hubid={i},id=n{i}",
                  "-device", f"e1000,netdev=n{i},id=e{i},mac=52:54:00:00:00:0{i + 1}"]
    return words


class Machine:
    def __init__(self, work, kernel, image):
        self.work = pathlib.Path(work)
        self.events = ""  # as rynctl shows them
        for name, size in DISKS.items():
            subprocess.run(["truncate", "-s", "0", self.work / name], check=True)
            subprocess.run(["truncate", "-s", size, self.work / name], check=True)
        sockets = {name: self.work / f"{name}.sock" for name in ["events", "shell", "monitor"]}
        words = ["qemu-system-x86_64", "-machine", "pc,accel=tcg", "-cpu", "max", "-smp", "1", "-m", "768",
                 "-nodefaults", "-no-reboot", "-display", "none", "-kernel", kernel, "-initrd", image,
                 "-append", "console=ttyS0 quiet panic=-1 mce=print_all", "-serial", f"file:{self.work}/console"]
        # No serial lines: next to the console, while the kernel logged machine checks to it, they lost commands.
        words += ["-device", "virtio-serial-pci"]
        for i, name in enumerate(["events", "shell"]):
            words += ["-chardev", f"socket,id={name},path={sockets[name]},server=on,wait=on", "-device",
                      f"virtserialport,chardev={name},nr={i + 1}"]
        words += ["-qmp", f"unix:{sockets['monitor']},server=on,wait=off"] + devices(self.work)
        network = self.work / "network.sock"
        for path in [*sockets.values(), network]:
            path.unlink(missing_ok=True)
        self.listener = socket.socket(socket.AF_UNIX)
        self.listener.bind(str(network))
        self.listener.listen()
        with open(self.work / "qemu.log", "w", encoding="utf-8") as log:
            self.process = subprocess.Popen([str(word) for word in words], stdout=log, stderr=log)
        self.channels = {name: self.connect(sockets[name]) for name in ["events", "shell", "monitor"]}
        # The network that is behind its third card: as long as nobody reads, that card cannot send.
        self.network = self.listener.accept()[0]
        self.monitor_file = self.channels["monitor"].makefile("rw")
        self.monitor_file.readline()
        self.qmp("qmp_capabilities")
        self.answer("the boot", 120)

    def connect(self, path):
        for _ in range(100):
            channel = socket.socket(socket.AF_UNIX)
            try:
                channel.connect(str(path))
                return channel
            except OSError:
                channel.close()
                time.sleep(0.1)
        raise RuntimeError(f"qemu does not serve {path}")

    def qmp(self, command, patience=0, **arguments):
        """What QEMU answers; an error, which is tried again for `patience` seconds, raises."""
        end = time.monotonic() + patience
        self.monitor_file.write(json.dumps({"execute": command, "arguments": arguments}) + "\n")
        self.monitor_file.flush()
        while True:
            answer = json.loads(self.monitor_file.readline())
            if "error" in answer and time.monotonic() < end:
                time.sleep(0.02)
                return self.qmp(command, end - time.monotonic(), **arguments)
            if "error" in answer:
                raise RuntimeError(f"{command}: {answer['error']['desc']}")
            if "return" in answer:
                return answer["return"]

    def monitor(self, line):
        """A command of QEMU's monitor for people; what it says."""
        return self.qmp("human-monitor-command", **{"command-line": line})

    def take_events(self, seconds):
        channel = self.channels["events"]
        if select.select([channel], [], [], seconds)[0]:
            self.events += channel.recv(65536).decode(errors="replace")

    def shell(self, command, seconds=60):
        """Run one line inside; what it prints. Raises when it fails."""
        self.channels["shell"].sendall(command.encode() + b"\n")
        return self.answer(command, seconds)

    def answer(self, command, seconds):
        channel = self.channels["shell"]
        text, end = "", time.monotonic() + seconds
        while True:
            if not select.select([channel], [], [], max(0, end - time.monotonic()))[0]:
                raise RuntimeError(f"{command}: no answer within {seconds} s: {text}")
            text += channel.recv(65536).decode(errors="replace")
            done = re.search(r"@@ (\d+)\r?\n$", text)
            if done:
                break
        text = text[: done.start()]
        if done.group(1) != "0":
            raise RuntimeError(f"{command}: status {done.group(1)}: {text}")
        return text

    def lines(self):
        return [line for line in self.events.splitlines() if re.search(r"  (PROBLEM|CLEAR|AUDIT) ", line)]

    def expect(self, *parts, ordered=True, seconds=15):
        """Wait for as many new events as there are `parts`, each of which one must hold; and then for no other."""
        end = time.monotonic() + seconds
        while len(self.lines()) < len(parts) and time.monotonic() < end:
            self.take_events(0.2)
        quiet = time.monotonic() + QUIET
        while time.monotonic() < quiet:
            self.take_events(0.2)
        lines = self.lines()
        self.events = ""
        left = list(lines)
        for part in parts:
            found = [line for line in (left[:1] if ordered else left) if part in line]
            if not found:
                break
            left.remove(found[0])
        else:
            if not left:
                return
        raise AssertionError("expected\n  " + "\n  ".join(parts) + "\nbut came\n  " + "\n  ".join(lines))

    def let_network_go(self):
        """Take what the third card sends, from now on."""
        def drain():
            while self.network.recv(65536):
                pass
        threading.Thread(target=drain, daemon=True).start()

    def forget(self):
        """Drop what has come so far."""
        self.take_events(2)
        self.events = ""

    def watch(self):
        """Start rynlinuxd, when its cards have found their links."""
        self.shell("for i in 0 1 2; do /bin/ip link set eth$i up; done; sleep 3")
        self.shell(f"{RYNLINUXD} --poll 1 >/root/rynlinuxd.log 2>&1 & "
                   "until grep -q watches. /root/rynlinuxd.log; do sleep 0.2; done; sleep 2")
        self.forget()

    def end(self):
        self.process.kill()
        self.process.wait()
        for channel in self.channels.values():
            channel.close()
