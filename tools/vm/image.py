# Makes the machine of tools/vm-test: Debian's kernel, and an initramfs of this build's programs, busybox and the few
# tools that the scenarios use.
import os
import pathlib
import re
import shutil
import subprocess

KEPT = "linux-image-amd64"
TOOLS = ["ip", "dmsetup", "modprobe", "mkfs.vfat", "mkfs.ext4", "setpriv"]
PROGRAMS = ["rynd", "rynlinuxd", "rynctl"]
# Those that udev would load.
HOOK = "usr/libexec/rynd/smartd"
MODULES = [
    "virtio_pci", "virtio_console", "virtio_scsi", "virtio_blk", "nvme", "sd_mod", "e1000", "dm_multipath", "dm_round_robin",
    "dm_service_time", "bonding", "veth", "bridge", "vfat", "nls_cp437", "nls_iso8859-1", "nls_ascii", "ext4", "loop",
    "hwpoison_inject", "raid1", "virtio_net", "pktgen", "ahci",
]


def run(*words, **options):
    return subprocess.run(words, check=True, stdout=subprocess.PIPE, text=True, **options).stdout


def fetch(package, root, wanted):
    """Unpack Debian's `package` into `root`, which is not installed, if `wanted` is not there. Whether it was not."""
    if (root / wanted).exists():
        return False
    shutil.rmtree(root, ignore_errors=True)
    root.mkdir(parents=True)
    print(f"fetching {package}", flush=True)
    run("apt-get", "download", "-q", package, cwd=root, stderr=subprocess.DEVNULL)
    deb = next(root.glob(f"{package}_*.deb"))
    run("dpkg-deb", "-x", deb, root)
    deb.unlink()
    return True


def fetch_kernel(work):
    """Unpack Debian's kernel below `work`, if it is not there; its version."""
    depends = run("apt-cache", "depends", KEPT)
    package = re.search(r"linux-image-[0-9]\S+", depends).group()
    version = package.removeprefix("linux-image-")
    if fetch(package, work / "kernel", f"boot/vmlinuz-{version}"):
        run("depmod", "-b", work / "kernel", version)
    return version


def copy_mdadm(work, root):
    fetch("mdadm", work / "mdadm", "sbin/mdadm")
    copy_program(str(work / "mdadm/sbin/mdadm"), root)


def copy_smartd(work, build, root):
    """smartd, and what the package has it start."""
    fetch("smartmontools", work / "smartmontools", "usr/sbin/smartd")
    copy_program(str(work / "smartmontools/usr/sbin/smartd"), root)
    runner = "usr/share/smartmontools/smartd_warning.sh"
    (root / runner).parent.mkdir(parents=True)
    shutil.copy(work / "smartmontools" / runner, root / runner)
    (root / HOOK).parent.mkdir(parents=True)
    shutil.copy(build / "packaging/smartd", root / HOOK)
    (root / HOOK).chmod(0o755)
    installed = re.search(r"exec (\S+)", (root / HOOK).read_text()).group(1).lstrip("/")
    (root / installed).parent.mkdir(parents=True, exist_ok=True)
    (root / installed).symlink_to("/bin/rynlinuxd")


def libraries_of(program):
    """The shared libraries that `program` is loaded with."""
    return re.findall(r"(/\S+) \(0x", run("ldd", program))


def copy_module(kernel, version, name, root):
    for line in run("modprobe", "-d", kernel, "-S", version, "--show-depends", name).splitlines():
        if not line.startswith("insmod "):
            continue
        path = pathlib.Path(line.split()[1]).relative_to(kernel)
        (root / path.parent).mkdir(parents=True, exist_ok=True)
        shutil.copy(kernel / path, root / path)


def copy_program(path, root):
    name = pathlib.Path(path).name
    shutil.copy(path, root / "bin" / name)
    for library in libraries_of(path):
        place = root / library.lstrip("/")
        place.parent.mkdir(parents=True, exist_ok=True)
        shutil.copy(library, place)


def make(work, build):
    """The kernel and the initramfs with the programs of the folder `build`."""
    work.mkdir(parents=True, exist_ok=True)
    version = fetch_kernel(work)
    kernel, root = work / "kernel", work / "root"
    shutil.rmtree(root, ignore_errors=True)
    for folder in ["bin", "dev", "etc", "proc", "sys"]:
        (root / folder).mkdir(parents=True)
    for name in MODULES:
        copy_module(kernel, version, name, root)
    for name in ["modules.order", "modules.builtin", "modules.builtin.modinfo"]:
        shutil.copy(kernel / "lib/modules" / version / name, root / "lib/modules" / version / name)
    run("depmod", "-b", root, version)
    (root / "modules").write_text("\n".join(MODULES) + "\n")
    shutil.copy("/bin/busybox", root / "bin/busybox")
    for applet in run("/bin/busybox", "--list").split():
        if applet not in TOOLS + ["busybox"]:
            (root / "bin" / applet).symlink_to("busybox")
    os.symlink("bin", root / "sbin")
    for name in TOOLS:
        copy_program(shutil.which(name, path="/usr/sbin:/sbin:/usr/bin:/bin"), root)
    for name in PROGRAMS:
        copy_program(build / "bin" / name, root)
    copy_smartd(work, build, root)
    copy_mdadm(work, root)
    shutil.copy(pathlib.Path(__file__).with_name("init"), root / "init")
    (root / "init").chmod(0o755)
    image = work / "initramfs"
    with open(image, "wb") as out:
        subprocess.run("find . | cpio -o -H newc --quiet | gzip -1", shell=True, check=True, cwd=root, stdout=out)
    return kernel / "boot" / f"vmlinuz-{version}", image
