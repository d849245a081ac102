"""The guest's kernel and initrd, created once and kept in the build folder.

The kernel is Debian's own package, fetched with apt and only unpacked, not installed; so is the print service, because
tests must not install one on the machine. All other programs in the guest are the host's: its root is mounted over 9p,
and the unpacked packages are overlaid.
"""
import os
import pathlib
import platform
import shutil
import subprocess

HERE = pathlib.Path(__file__).resolve().parent

# Enough to mount the host's files; all other modules are loaded later from the 9p mount.
INITRD_MODULES = ["virtio_pci", "9pnet_virtio", "9p", "overlay"]

# The unpacked parts of the kernel package: the whole one is six times as large.
MODULE_FOLDERS = ["drivers/usb", "drivers/virtio", "fs/9p", "fs/netfs", "fs/fscache", "fs/overlayfs", "fs/configfs",
                  "net/9p", "lib", "crypto"]

TOOLS = {"qemu-system-x86_64": "qemu-system-x86", "busybox": "busybox-static", "cpio": "cpio", "depmod": "kmod",
         "modprobe": "kmod", "dpkg-deb": "dpkg", "apt-get": "apt"}


# The print service, and the package of which only the USB back end is used: the rest of it needs a hundred more.
PRINT_SERVICE = ["cups-daemon", "cups-client"]
BACK_ENDS = "cups"
PRINT_SERVICE_FILE, BACK_END_FILE = "/usr/sbin/cupsd", "/usr/lib/cups/backend-available/usb"


class Unavailable(Exception):
    """No guest is possible on this machine; the text has the reason and what to install."""


def tool(name):
    path = os.environ.get("PATH", "") + ":/usr/sbin:/sbin"
    found = shutil.which(name, path=path)
    if not found:
        raise Unavailable(f"{name} is not installed (package {TOOLS[name]})")
    return found


def run(*command, **options):
    return subprocess.run(command, check=True, stdout=subprocess.PIPE, stderr=subprocess.PIPE, **options).stdout


def kernel_package_name():
    listing = run("apt-cache", "depends", "linux-image-amd64", text=True)
    names = [line.split()[-1] for line in listing.splitlines() if "Depends: linux-image-" in line]
    if not names:
        raise Unavailable("apt knows no linux-image-amd64 (apt-get update?)")
    return names[0]


def apt_get(*arguments, cwd):
    # As root, apt would drop to a user without write access to this folder, and warn about it.
    run("apt-get", "-o", "APT::Sandbox::User=root", *arguments, cwd=cwd)


def fetch_kernel_package(folder):
    """The package file in folder, from an earlier run or from the package mirror."""
    present = sorted(folder.glob("linux-image-*.deb"))
    if present:
        return present[-1]
    print("guest: fetching the kernel package", flush=True)
    try:
        name = kernel_package_name()
        apt_get("download", name, cwd=folder)
    except (subprocess.CalledProcessError, OSError) as error:
        detail = getattr(error, "stderr", b"") or b""
        text = detail if isinstance(detail, str) else detail.decode(errors="replace")
        raise Unavailable(f"the kernel package cannot be fetched: {error} {text.strip()}") from error
    return sorted(folder.glob("linux-image-*.deb"))[-1]


def fetch_print_service(folder):
    """The unpacked packages in folder that this machine lacks; none if apt cannot fetch them."""
    archives, tree = folder / "archives", folder / "tree"
    done = folder / "unpacked"
    if done.exists():
        return tree
    shutil.rmtree(folder, ignore_errors=True)
    (archives / "partial").mkdir(parents=True)
    tree.mkdir()
    print("guest: fetching the print service", flush=True)
    try:
        if not os.path.exists(PRINT_SERVICE_FILE):
            apt_get("-o", "Debug::NoLocking=1", "-o", f"Dir::Cache::archives={archives}", "--download-only",
                    "--no-install-recommends", "-y", "install", *PRINT_SERVICE, cwd=archives)
        if not os.path.exists(BACK_END_FILE):
            apt_get("download", BACK_ENDS, cwd=archives)
    except (subprocess.CalledProcessError, OSError) as error:
        detail = getattr(error, "stderr", b"") or b""
        print(f"guest: no print service: {error} {detail.decode(errors='replace').strip()}", flush=True)
        return tree
    for package in sorted(archives.glob("*.deb")):
        run(tool("dpkg-deb"), "-x", package, tree)
    # A folder of this name would hide the link to the host's libraries. It contains only service units.
    shutil.rmtree(tree / "lib", ignore_errors=True)
    done.touch()
    return tree


def unpack(package, root):
    """./boot/vmlinuz-* and the named module folders, then the module index."""
    shutil.rmtree(root, ignore_errors=True)
    root.mkdir(parents=True)
    wanted = ["--wildcards", "./boot/vmlinuz-*", "./lib/modules/*/modules.*"]
    wanted += [f"./lib/modules/*/kernel/{folder}/*" for folder in MODULE_FOLDERS]
    tar = subprocess.Popen([tool("dpkg-deb"), "--fsys-tarfile", package], stdout=subprocess.PIPE)
    run("tar", "-x", "-C", root, "--no-same-owner", *wanted, stdin=tar.stdout)
    tar.stdout.close()
    if tar.wait() != 0:
        raise Unavailable(f"{package.name} cannot be unpacked")
    release = next((root / "lib/modules").iterdir()).name
    run(tool("depmod"), "-b", root, release)
    return release


def module_files(root, release):
    """The files of INITRD_MODULES and of their dependencies, in loading order."""
    files = []
    for module in INITRD_MODULES:
        listing = run(tool("modprobe"), "-d", root, "-S", release, "--show-depends", module, text=True)
        for line in listing.splitlines():
            if line.startswith("insmod") and line.split()[1] not in files:
                files.append(line.split()[1])
    return files


def build_initrd(root, release, initrd):
    busybox = tool("busybox")
    tree = root.parent / "initrd"
    shutil.rmtree(tree, ignore_errors=True)
    for folder in ["bin", "modules", "proc", "sys", "dev", "host", "packages", "overlay", "exchange", "root"]:
        (tree / folder).mkdir(parents=True)
    shutil.copy(busybox, tree / "bin/busybox")
    shutil.copy(HERE / "init", tree / "init")
    os.chmod(tree / "init", 0o755)
    order = []
    for file in module_files(root, release):
        shutil.copy(file, tree / "modules")
        order.append(os.path.basename(file))
    (tree / "modules/order").write_text("\n".join(order) + "\n")
    names = "\n".join(str(path.relative_to(tree)) for path in sorted(tree.rglob("*")))
    archive = run(tool("cpio"), "-o", "-H", "newc", "--quiet", cwd=tree, input=names.encode())
    initrd.write_bytes(archive)


def prepare(folder):
    """(kernel, initrd, modules folder, packages folder) below folder, created if missing or older than the scripts.
    Raises Unavailable."""
    if platform.machine() != "x86_64":
        raise Unavailable("programs of the host run in the guest, and only an x86-64 guest is set up")
    for name in TOOLS:
        tool(name)
    if subprocess.run([tool("busybox"), "--list"], stdout=subprocess.DEVNULL).returncode != 0:
        raise Unavailable("busybox does not run")
    folder.mkdir(parents=True, exist_ok=True)
    root, initrd = folder / "root", folder / "initrd.img"
    package = fetch_kernel_package(folder)
    done = folder / "prepared"
    newest = max(path.stat().st_mtime for path in (package, HERE / "init", HERE / "image.py"))
    if not done.exists() or done.stat().st_mtime < newest or done.read_text() != package.name:
        print(f"guest: unpacking {package.name}", flush=True)
        build_initrd(root, unpack(package, root), initrd)
        done.write_text(package.name)
    kernel = next((root / "boot").glob("vmlinuz-*"))
    return kernel, initrd, root / "lib/modules", fetch_print_service(folder / "print-service")
