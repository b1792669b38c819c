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
MODULES = [
    "virtio_pci", "virtio_scsi", "virtio_blk", "nvme", "sd_mod", "e1000", "dm_multipath", "dm_round_robin",
    "dm_service_time", "bonding", "veth", "bridge", "vfat", "nls_cp437", "nls_iso8859-1", "nls_ascii", "ext4", "loop",
    "hwpoison_inject", "raid1",
]


def run(*words, **options):
    return subprocess.run(words, check=True, stdout=subprocess.PIPE, text=True, **options).stdout


def fetch_kernel(work):
    """Unpack Debian's kernel below `work`, if it is not there; its version."""
    depends = run("apt-cache", "depends", KEPT)
    package = re.search(r"linux-image-[0-9]\S+", depends).group()
    version = package.removeprefix("linux-image-")
    root = work / "kernel"
    if not (root / "boot" / f"vmlinuz-{version}").exists():
        shutil.rmtree(root, ignore_errors=True)
        print(f"fetching {package}", flush=True)
        run("apt-get", "download", "-q", package, cwd=work)
        deb = next(work.glob(f"{package}_*.deb"))
        run("dpkg-deb", "-x", deb, root)
        deb.unlink()
        run("depmod", "-b", root, version)
    return version


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


def make(work, programs):
    """The kernel and the initramfs with the programs in the folder `programs`."""
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
        copy_program(programs / name, root)
    shutil.copy(pathlib.Path(__file__).with_name("init"), root / "init")
    (root / "init").chmod(0o755)
    image = work / "initramfs"
    with open(image, "wb") as out:
        subprocess.run("find . | cpio -o -H newc --quiet | gzip -1", shell=True, check=True, cwd=root, stdout=out)
    return kernel / "boot" / f"vmlinuz-{version}", image
