#!/usr/bin/env python3
"""The ways in for a new user, each from an empty folder: what the README prints, and in which order, the ported example,
the pages on a machine without Doxygen, an installed tree through CMake's find_package, pkg-config and as an application
bundle, and the Debian packages.

usage: ways_in.py WAY SOURCE_TREE BUILD_TREE
       WAY: one of WAYS below. Exits with 77 and the reason where it cannot be tried.
"""
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile

HELLO = pathlib.Path("/tmp/hello.txt")  # what the sample writes


def run(*command, **options):
    result = subprocess.run([str(word) for word in command], capture_output=True, text=True, **options)
    if result.returncode != 0:
        sys.exit(f"{' '.join(map(str, command))}\n{result.stdout}{result.stderr}exit status {result.returncode}")
    return result.stdout


def skip(reason):
    print(reason)
    sys.exit(77)


def readme_blocks(source):
    """The C sample, and the indented commands that build it."""
    text = (source / "README.md").read_text(encoding="utf-8")
    sample, rest = re.search(r"```c\n(.*?)```(.*)", text, re.DOTALL).groups()
    commands = re.match(r"\s*((?:    .*\n)+)", rest).group(1)
    return sample, commands


def check_hello(program, **options):
    """The program writes its file, and nothing else is needed to run it."""
    HELLO.unlink(missing_ok=True)
    run(program, **options)
    if HELLO.read_text(encoding="ascii") != "hello\n":
        sys.exit(f"{program} wrote {HELLO.read_bytes()}")
    HELLO.unlink()


def readme(source, build, folder):
    sample, commands = readme_blocks(source)
    (folder / "hello.c").write_text(sample, encoding="utf-8")
    (folder / "build").mkdir()
    (folder / "build/release").symlink_to(build)
    run("bash", "-ec", commands, cwd=folder)
    check_hello(folder / "hello")


def products(build, target):
    """What building a target makes, by names relative to the build tree."""
    return set(re.findall(r" -o (\S+)", run("ninja", "-C", build, "-t", "commands", target)))


def order(source, build, _):
    """What the README runs or takes from the build tree was built by a command that stands before it."""
    text = re.sub(r"```.*?```", "", (source / "README.md").read_text(encoding="utf-8"), flags=re.DOTALL)
    everything = products(build, "all")
    built = set()
    tried = 0
    for command in re.findall(r"^    (\S.*)$|`([^`\n]+)`", text, re.MULTILINE):
        command = "".join(command)
        for name in re.findall(r"build/release/(?!docs/)([\w./]+)", command):
            beneath = {product for product in everything if f"{product}/".startswith(f"{name}/")}
            if not beneath & built:
                sys.exit(f"README.md: nothing that stands before it builds {name}: {command}")
            tried += 1
        if re.match(r"cmake --install |cpack ", command):
            if built != everything:
                sys.exit(f"README.md: what this takes has not been built before: {command}")
            tried += 1
        if command.startswith("./demo"):
            command = (source / "demo").read_text(encoding="utf-8")
        if "--target docs" not in command:
            for target in re.findall(r"cmake --build --preset release(?: --target (\w+))?", command):
                built |= products(build, target or "all")
    if tried < 5:
        sys.exit(f"README.md: only {tried} of its commands were understood")


def without_doxygen(source, _, folder):
    """The target for the pages names the packages that it lacks."""
    build = folder / "out"
    run("cmake", "-S", source, "-B", build, "-G", "Ninja", "-DCMAKE_DISABLE_FIND_PACKAGE_Doxygen=ON",
        "-DTAVPORT_TESTS=OFF")
    result = subprocess.run(["cmake", "--build", build, "--target", "docs"], capture_output=True, text=True, check=False)
    if result.returncode == 0 or not all(name in result.stdout for name in ("doxygen", "graphviz")):
        sys.exit(f"does not tell what is missing:\n{result.stdout}{result.stderr}exit status {result.returncode}")


def installed(source, build, folder):
    """An installed tree, and the sample beside it."""
    prefix = folder / "prefix"
    run("cmake", "--install", build, "--prefix", prefix)
    consumer = folder / "consumer"
    shutil.copytree(source / "tests/package/consumer", consumer)
    (consumer / "hello.c").write_text(readme_blocks(source)[0], encoding="utf-8")
    return prefix, consumer


def built_consumer(source, build, folder):
    prefix, consumer = installed(source, build, folder)
    run("cmake", "-S", consumer, "-B", consumer / "out", f"-DCMAKE_PREFIX_PATH={prefix}")
    run("cmake", "--build", consumer / "out")
    return prefix, consumer


def find_package(source, build, folder):
    prefix, consumer = built_consumer(source, build, folder)
    check_hello(consumer / "out/hello")
    lists = consumer / "CMakeLists.txt"
    lists.write_text(lists.read_text(encoding="utf-8").replace("TavPort 1 ", "TavPort 2 "), encoding="utf-8")
    if subprocess.run(["cmake", "-S", consumer, "-B", consumer / "other", f"-DCMAKE_PREFIX_PATH={prefix}"],
                      capture_output=True, check=False).returncode == 0:
        sys.exit("version 1 is taken for version 2")


def pkg_config(source, build, folder):
    prefix, consumer = installed(source, build, folder)
    moved = folder / "moved"  # the file tells where it lies now, not where it was installed
    prefix.rename(moved)
    library = next(moved.glob("lib/**/libTavPort.so")).parent
    flags = run("pkg-config", "--cflags", "--libs", "TavPort",
                env={**os.environ, "PKG_CONFIG_PATH": str(library / "pkgconfig")}).split()
    run("cc", "-std=c11", consumer / "hello.c", "-o", folder / "hello", *flags)
    check_hello(folder / "hello", env={**os.environ, "LD_LIBRARY_PATH": str(library)})


def port(source, build, folder):
    """The compile lines of the ported example, each beside a program that works; the second takes the installed tree."""
    page = (source / "examples/port/README.md").read_text(encoding="utf-8")
    blocks = re.findall(r"(?:^    .*\n)+", page, re.MULTILINE)
    if len(blocks) != 2:
        sys.exit(f"examples/port/README.md: {len(blocks)} blocks of commands")
    prefix, _ = installed(source, build, folder)
    library = next(prefix.glob("lib/**/libTavPort.so")).parent
    where = {**os.environ, "PKG_CONFIG_PATH": str(library / "pkgconfig"), "LD_LIBRARY_PATH": str(library)}
    (folder / "examples").symlink_to(source / "examples")
    (folder / "build").mkdir()
    (folder / "build/release").symlink_to(build)
    for commands, environment in zip(blocks, (os.environ, where)):
        run("bash", "-ec", commands, cwd=folder, env=environment)
        if "files, 0 of them could not be read" not in run("./indexer", "consumer", "index", cwd=folder, env=environment):
            sys.exit(f"does not index:\n{commands}")
        (folder / "indexer").unlink()
        wide = subprocess.run(["bash", "-ec", commands.replace("-fshort-wchar", "")], cwd=folder, env=environment,
                              capture_output=True, text=True, check=False)
        errors = re.findall(r".*error: .*", wide.stderr)
        if not errors or "compile with -fshort-wchar" not in errors[0] or "char_traits" in wide.stderr:
            sys.exit(f"does not tell which flag is missing:\n{wide.stderr}")


def bundle(source, build, folder):
    prefix, consumer = built_consumer(source, build, folder)
    shutil.rmtree(prefix)  # the bundle carries what it needs
    carried = folder / "Elsewhere.app"
    (consumer / "out/carrier.app").rename(carried)
    check_hello(carried / "Contents/MacOS/carrier")


# Runs as root in a copy of the system that is thrown away: $1 the packages, $2 the sample.
DEBIAN_STEPS = """
set -e
before=$(find /usr /etc /opt -xdev | sort)
dpkg -i "$1"/*.deb >/dev/null
cc -std=c11 "$2" -o /tmp/sample $(pkg-config --cflags --libs TavPort)
/tmp/sample
grep -qx hello /tmp/hello.txt
mkdir /tmp/consumer && cp "$2" "$3/CMakeLists.txt" /tmp/consumer
cmake -S /tmp/consumer -B /tmp/consumer/out >/dev/null
cmake --build /tmp/consumer/out >/dev/null
/tmp/consumer/out/hello
/tmp/consumer/out/carrier.app/Contents/MacOS/carrier
tav cat /tmp/hello.txt | grep -qx hello
dpkg --purge tavport-tools libtavport-dev libtavport1 >/dev/null
after=$(find /usr /etc /opt -xdev | sort)
[ "$before" = "$after" ] || { echo "left behind or lost:"; diff <(echo "$before") <(echo "$after"); exit 1; }
"""


def debian(source, build, folder):
    for tool in ("dpkg", "dpkg-shlibdeps", "unshare"):
        if not shutil.which(tool):
            skip(f"{tool} is not installed")
    packages = folder / "packages"
    make = ["cpack", "-G", "DEB", "-B", packages, "--config", build / "CPackConfig.cmake"]
    hidden = ";".join(os.environ["PATH"].split(":"))
    blind = subprocess.run([*make, "-D", f"CMAKE_IGNORE_PATH={hidden}"], cwd=folder, capture_output=True, text=True,
                           check=False)
    if blind.returncode == 0 or "dpkg-dev" not in blind.stderr:
        sys.exit(f"packages are made without knowing their dependencies\n{blind.stdout}{blind.stderr}")
    run(*make, cwd=folder)
    names = sorted(path.name.split("_")[0] for path in packages.glob("*.deb"))
    if names != ["libtavport-dev", "libtavport1", "tavport-tools"]:
        sys.exit(f"packages made: {names}")
    needs = run("dpkg-deb", "--field", next(packages.glob("libtavport1_*.deb")), "Depends")
    for library in ("libc6", "libicu", "libmount1", "libudev1"):
        if library not in needs:
            sys.exit(f"{library} is not among the dependencies: {needs}")
    if shutil.which("lintian"):
        run("lintian", "--allow-root", "--fail-on", "error", *packages.glob("*.deb"))
    if os.geteuid() != 0:
        skip("the packages are right; installing them takes root")

    (folder / "hello.c").write_text(readme_blocks(source)[0], encoding="utf-8")
    for name in ("upper", "work", "root"):
        (folder / name).mkdir()
    mounts = f"""
    set -e
    mount -t tmpfs tmpfs "{folder}/upper"
    mkdir "{folder}/upper/changes" "{folder}/upper/work"
    mount -t overlay overlay -o "lowerdir=/,upperdir={folder}/upper/changes,workdir={folder}/upper/work" "{folder}/root" || exit 77
    mount --bind /proc "{folder}/root/proc"
    mount --bind /dev "{folder}/root/dev"
    mount -t tmpfs tmpfs "{folder}/root/tmp"
    cp -r "{packages}" "{folder}/hello.c" "{source}/tests/package/consumer/CMakeLists.txt" "{folder}/root/tmp"
    mkdir "{folder}/root/tmp/lists" && mv "{folder}/root/tmp/CMakeLists.txt" "{folder}/root/tmp/lists"
    chroot "{folder}/root" bash -c "$1" steps /tmp/packages /tmp/hello.c /tmp/lists
    """
    result = subprocess.run(["unshare", "--mount", "bash", "-c", mounts, "mounts", DEBIAN_STEPS],
                            capture_output=True, text=True, check=False)
    if result.returncode == 77:
        skip("the packages are right; this machine allows no overlay to install them in")
    if result.returncode != 0:
        sys.exit(f"{result.stdout}{result.stderr}exit status {result.returncode}")


WAYS = {"readme": readme, "order": order, "port": port, "without-doxygen": without_doxygen,
        "find-package": find_package, "pkg-config": pkg_config, "bundle": bundle, "debian": debian}


def main():
    way, source, build = sys.argv[1], pathlib.Path(sys.argv[2]).resolve(), pathlib.Path(sys.argv[3]).resolve()
    with tempfile.TemporaryDirectory(prefix="tavport-test-") as folder:
        WAYS[way](source, build, pathlib.Path(folder))


main()
