"""The Debian package: what it holds, and that it serves where it is installed."""
import gzip
import hashlib
import json
import os
import pathlib
import re
import shutil
import subprocess
import time
import urllib.error
import urllib.request

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
BUILD = pathlib.Path(os.environ.get("FENNOX_BUILD", ROOT / "build" / "dev"))

FILES = {
    "etc/fennox/fennox.toml": "-rw-r--r--",
    "etc/pam.d/fennox": "-rw-r--r--",
    "lib/systemd/system/fennox.service": "-rw-r--r--",
    "usr/lib/fennox/fennoxd": "-rwxr-xr-x",
    "usr/lib/fennox/fennox": "-rwxr-xr-x",
    "usr/lib/fennox/TAVO.Fennox.CopyMove.so": "-rw-r--r--",
    **{f"usr/lib/fennox/lib/libfennox_{name}.so": "-rw-r--r--"
       for name in ("core", "webapi", "tasks", "vfs", "support", "fileop", "cloud")},
    "usr/bin/fennox": "lrwxrwxrwx",
    "usr/sbin/fennoxd": "lrwxrwxrwx",
    "usr/share/bash-completion/completions/fennox": "-rw-r--r--",
    "usr/share/doc/fennox/copyright": "-rw-r--r--",
    "usr/share/doc/fennox/changelog.gz": "-rw-r--r--",
    "usr/share/doc/fennox/security.md": "-rw-r--r--",
    "usr/share/man/man1/fennox.1.gz": "-rw-r--r--",
    "usr/share/man/man5/fennox.toml.5.gz": "-rw-r--r--",
    "usr/share/man/man8/fennoxd.8.gz": "-rw-r--r--",
}
OPTIONAL = re.compile(r"usr/share/doc/fennox/[\w-]+\.md")


def output(*arguments, **options):
    done = subprocess.run(arguments, capture_output=True, text=True, timeout=600, **options)
    assert done.returncode == 0, (arguments, done.stdout, done.stderr)
    return done.stdout


@pytest.fixture(scope="module")
def package(tmp_path_factory):
    folder = tmp_path_factory.mktemp("package")
    path = output(ROOT / "scripts" / "package", "--build", BUILD, "--output", folder)
    return pathlib.Path(path.strip().splitlines()[-1])


@pytest.fixture(scope="module")
def tree(package, tmp_path_factory):
    folder = tmp_path_factory.mktemp("tree")
    output("dpkg-deb", "--raw-extract", package, folder)
    return folder


def test_it_holds_the_right_files_with_the_right_modes(package):
    found = {}
    for line in output("dpkg-deb", "--contents", package).splitlines():
        mode, owner, _, _, _, name = line.split(None, 5)
        assert owner == "root/root", line
        name = name.split(" -> ")[0].removeprefix("./")
        if mode[0] == "d":
            assert mode == "drwxr-xr-x", line
        else:
            found[name] = mode
    extra = {name for name in found.keys() - FILES.keys() if not OPTIONAL.fullmatch(name)}
    assert not extra and not FILES.keys() - found.keys()
    assert {name: found[name] for name in FILES} == FILES


def test_its_control_files_are_sound(package, tree):
    fields = dict(line.split(": ", 1) for line in output("dpkg-deb", "--field", package).splitlines()
                  if re.match(r"[\w-]+: ", line))
    assert fields["Package"] == "fennox" and re.fullmatch(r"\d+\.\d+\.\d+", fields["Version"])
    depends = {word.split()[0] for word in fields["Depends"].split(", ")}
    assert {"libc6", "libpam0g", "libjsoncpp25", "libsqlite3-0", "libssl3", "libpam-runtime"} <= depends
    assert not any(name.startswith("fennox") or name.endswith("-dev") for name in depends)
    # What an administrator may change is asked about in an upgrade, and only that.
    conffiles = (tree / "DEBIAN" / "conffiles").read_text().split()
    assert sorted(conffiles) == sorted("/" + name for name in FILES if name.startswith("etc/"))
    for script in ("postinst", "prerm", "postrm"):
        assert (tree / "DEBIAN" / script).stat().st_mode & 0o777 == 0o755
        output("sh", "-n", tree / "DEBIAN" / script)
    for line in (tree / "DEBIAN" / "md5sums").read_text().splitlines():
        digest, name = line.split("  ")
        assert hashlib.md5((tree / name).read_bytes()).hexdigest() == digest, name


def help_texts(program, command=()):
    """(command, its help) of the program and of every command that its help tells of."""
    told = output(program, *command, "--help")
    yield command, told
    for name in re.findall(r"^  ([a-z]+) ", told.partition("Subcommands:")[2], re.MULTILINE):
        yield from help_texts(program, (*command, name))


def test_pages_and_completion_can_be_read(tree):
    for page in (tree / "usr/share/man").glob("man*/*.gz"):
        assert gzip.open(page).read().startswith(b".TH ")
    completion = tree / "usr/share/bash-completion/completions/fennox"
    output("bash", "-n", completion)
    words = output("bash", "-c", f". {completion}; COMP_WORDS=(fennox st); COMP_CWORD=1; _fennox; "
                                 'echo "${COMPREPLY[@]}"')
    assert words.split() == ["status", "stop"]
    # Every command and option of the programs is in their pages, and can be completed.
    for program, page in (("fennoxd", "man8/fennoxd.8.gz"), ("fennox", "man1/fennox.1.gz")):
        text = gzip.open(tree / "usr/share/man" / page).read().decode().replace("\\-", "-")
        for command, told in help_texts(tree / "usr/lib/fennox" / program):
            if command:
                assert re.search(rf"^\.BR? .*\b{' '.join(command)}\b", text, re.MULTILINE), command
            for option in set(re.findall(r"--[a-z][a-z-]+", told)) - {"--help"}:
                assert option in text, (command, option)
                assert program == "fennoxd" or option in completion.read_text(), (command, option)


def test_its_programs_find_each_other_wherever_they_lie(tree):
    for file in (tree / "usr/lib/fennox").rglob("*"):
        if not file.is_file():
            continue
        dynamic = output("readelf", "--dynamic", file)
        for path in re.findall(r"R(?:UN)?PATH.*\[(.*)\]", dynamic):
            assert path in ("$ORIGIN", "$ORIGIN/lib"), (file, path)
    daemon = tree / "usr/sbin/fennoxd"
    assert re.fullmatch(r"fennoxd \d+\.\d+\.\d+\n", output(daemon, "--version"))
    assert "good" in output(daemon, "--check-config", "--config", tree / "etc/fennox/fennox.toml")
    assert re.fullmatch(r"fennox \d+\.\d+\.\d+\n", output(tree / "usr/bin/fennox", "--version"))


@pytest.mark.skipif(not shutil.which("systemd-analyze"), reason="needs systemd-analyze")
def test_its_unit_is_sound_and_gives_up_what_it_does_not_need(tree, tmp_path):
    text = (tree / "lib/systemd/system/fennox.service").read_text()
    command = re.search(r"^ExecStart=(\S+)", text, re.MULTILINE)[1]
    assert (tree / command.lstrip("/")).exists()
    unit = tmp_path / "fennox.service"
    unit.write_text(text.replace(command, str(tree) + command))
    verified = subprocess.run(["systemd-analyze", "verify", "--man=no", unit], capture_output=True,
                              text=True, timeout=120)
    # What it says about other units of this machine is not about this one.
    told = [line for line in verified.stderr.splitlines() if "fennox" in line]
    assert not told and verified.returncode == 0, verified.stderr
    broken = tmp_path / "fennox-broken.service"
    broken.write_text(text.replace(command, "/no/such/program").replace("KillMode=", "KilMode="))
    assert "KilMode" in subprocess.run(["systemd-analyze", "verify", "--man=no", broken],
                                       capture_output=True, text=True, timeout=120).stderr
    rated = output("systemd-analyze", "security", "--offline=true", "--threshold=60", unit)
    for kept in ("CAP_SYS_MODULE", "CAP_SYS_PTRACE", "CAP_NET_ADMIN", "CAP_SYS_BOOT"):
        assert re.search(rf"^✓ CapabilityBoundingSet=~.*{kept.removeprefix('CAP_')}", rated, re.MULTILINE), kept
    for kept in ("ProtectKernelModules", "ProtectKernelTunables", "RestrictNamespaces", "LockPersonality"):
        assert re.search(rf"^✓ {kept}=", rated, re.MULTILINE), kept


def test_the_extracted_server_serves(tree, tmp_path):
    server = subprocess.Popen([tree / "usr/sbin/fennoxd", "--state", tmp_path / "state", "--listen",
                               "127.0.0.1:0"], stdout=subprocess.PIPE, text=True)
    try:
        address = re.search(r"http://[\d.:]+/", server.stdout.readline())[0]
        assert json.load(urllib.request.urlopen(address + "health"))["success"] is True
        assert b"<html" in urllib.request.urlopen(address).read()
    finally:
        server.terminate()
        server.wait(30)
        server.stdout.close()


# ---- a clean root ------------------------------------------------------------------------------

clean_root = pytest.mark.skipif(
    os.environ.get("FENNOX_CLEAN_ROOT") != "1" or os.geteuid() != 0 or not shutil.which("debootstrap"),
    reason="makes a Debian root: needs FENNOX_CLEAN_ROOT=1, root, debootstrap and a mirror")


def mirror():
    """The mirror that this machine's apt uses."""
    for line in output("apt-get", "indextargets", "--format", "$(SITE) $(CODENAME) $(CREATED_BY)"
                       ).splitlines():
        site, codename, kind = line.split()
        if kind == "Packages" and codename == "bookworm":
            return site
    pytest.skip("apt knows no mirror of this release")


@pytest.fixture(scope="module")
def older(tree, tmp_path_factory):
    """The package as an earlier version: another number, another default configuration."""
    folder = tmp_path_factory.mktemp("older")
    shutil.copytree(tree, folder / "tree", symlinks=True)
    control = folder / "tree/DEBIAN/control"
    control.write_text(re.sub(r"^Version: .*$", "Version: 0.0.9", control.read_text(), flags=re.MULTILINE))
    for file in control.parent.iterdir():
        file.chmod(0o755 if file.name in ("postinst", "prerm", "postrm") else 0o644)
    (folder / "tree/etc/fennox/fennox.toml").open("a").write("# as it was\n")
    output("dpkg-deb", "--root-owner-group", "--build", "-Zxz", "-z1", folder / "tree", folder / "older.deb")
    return folder / "older.deb"


@pytest.fixture(scope="module")
def root(package, older, tmp_path_factory):
    folder = tmp_path_factory.mktemp("clean") / "root"
    depends = output("dpkg-deb", "--field", package, "Depends")
    names = ",".join(["systemd-sysv", "dbus", *(word.split()[0] for word in depends.strip().split(", "))])
    subprocess.run(["debootstrap", "--variant=minbase", f"--include={names}", "bookworm", folder,
                    mirror()], check=True, stdout=subprocess.DEVNULL, timeout=1500)
    shutil.copy(package, folder / "fennox.deb")
    shutil.copy(older, folder / "older.deb")
    yield folder
    subprocess.run(["rm", "-rf", "--one-file-system", folder], check=True)


@pytest.fixture
def clean(root):
    """The root as chroot wants it; a container brings these folders itself."""
    mounted = []
    for name in ("proc", "dev"):
        subprocess.run(["mount", "--rbind", f"/{name}", root / name], check=True)
        subprocess.run(["mount", "--make-rslave", root / name], check=True)
        mounted.append(root / name)
    yield root
    for place in mounted:
        subprocess.run(["umount", "--recursive", "--lazy", place], check=True)


class Installed:
    """The server of a clean root, as its unit would run it."""

    def __init__(self, root):
        self.process = subprocess.Popen(["chroot", root, "/usr/sbin/fennoxd", "--config",
                                         "/etc/fennox/fennox.toml"], stdout=subprocess.PIPE, text=True)
        self.address = re.search(r"http://[\d.:]+/", self.process.stdout.readline())[0]

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.process.terminate()
        self.process.wait(30)
        self.process.stdout.close()

    def call(self, path, body=None, token=None):
        headers = {"Content-Type": "application/json"}
        if token:
            headers["Authorization"] = "Bearer " + token
        data = None if body is None else json.dumps(body).encode()
        request = urllib.request.Request(self.address + path, data, headers)
        return json.load(urllib.request.urlopen(request, timeout=90))["data"]

    def login(self, password):
        return self.call("host/login", {"user": "alice", "password": password, "bearer": True})["token"]


def copy_home_file(server, token, name):
    task = server.call("webapi/TAVO.Fennox.CopyMove?version=3&method=start",
                       {"path": ["/home/original"], "dest_folder_path": "/home/" + name}, token)["taskid"]
    end = time.monotonic() + 60
    while time.monotonic() < end:
        status = server.call("webapi/TAVO.Fennox.CopyMove?version=3&method=status", {"taskid": task}, token)
        if status["finished"]:
            assert "errors" not in status, status
            return
        time.sleep(0.1)
    raise AssertionError("the copy did not end")


@clean_root
def test_install_serve_upgrade_remove_and_purge_in_a_clean_root(clean):
    def run(*arguments, **options):
        return output("chroot", clean, *arguments, **options)

    run("dpkg", "--install", "/older.deb")
    assert run("dpkg-query", "-W", "-f", "${Version}", "fennox") == "0.0.9"
    assert "nologin" in run("getent", "passwd", "fennox")
    state = clean / "var/lib/fennox"
    assert state.stat().st_mode & 0o777 == 0o711
    run("useradd", "--create-home", "alice")
    run("chpasswd", input="alice:open sesame\n")
    home = clean / "home/alice"
    (home / "original").write_text("mine")
    config = clean / "etc/fennox/fennox.toml"
    config.write_text(config.read_text().replace("127.0.0.1:5050", "127.0.0.1:0") + "# changed here\n")
    for name in ("one", "two"):
        (home / name).mkdir()
        run("chown", "-R", "alice:alice", "/home/alice")
    with Installed(clean) as server:
        with pytest.raises(urllib.error.HTTPError, match="401"):
            server.login("open barley")
        token = server.login("open sesame")
        copy_home_file(server, token, "one")
    uid = int(run("id", "-u", "alice"))
    assert (home / "one/original").stat().st_uid == uid
    # An upgrade keeps the configuration, the sessions and the records; what the new version
    # would have as its configuration lies beside.
    run("dpkg", "--force-confdef", "--force-confold", "--install", "/fennox.deb")
    assert run("dpkg-query", "-W", "-f", "${Version}", "fennox") != "0.0.9"
    assert config.read_text().endswith("# as it was\n# changed here\n")
    assert "# as it was" not in (config.parent / "fennox.toml.dpkg-dist").read_text()
    assert 'auth = "pam"' in (config.parent / "fennox.toml.dpkg-dist").read_text()
    with Installed(clean) as server:
        copy_home_file(server, token, "two")
        assert len(server.call("host/log", None, token)) == 2
    run("dpkg", "--remove", "fennox")
    assert config.exists() and (state / "users/alice").exists() and not (clean / "usr/lib/fennox").exists()
    run("dpkg", "--purge", "fennox")
    assert not state.exists() and not config.parent.exists()
    assert sorted(p.name for p in home.rglob("*") if p.is_file() and p.name == "original") == ["original"] * 3


# The last service of a root that is booted for it; what it says is the test's result.
CHECK_UNIT = "[Unit]\nAfter=multi-user.target\n[Service]\nType=oneshot\nExecStart=/check\n"
CHECK = r"""#!/bin/sh
exec >/check.log 2>&1
trap 'systemctl --no-block poweroff' EXIT
set -ex
server() { systemctl show --property MainPID --value fennox; }
answers() { until fennox list >/dev/null; do sleep 0.2; done; }
dpkg --install /fennox.deb
systemctl is-enabled fennox
systemctl is-active fennox
useradd --create-home bob
echo 'bob:open sesame' | chpasswd
install -d -o bob /home/bob/to
head -c 40M /dev/urandom | install -o bob /dev/stdin /home/bob/big
until echo 'open sesame' | fennox login --user bob; do sleep 0.2; done
[ "$(awk '/^Uid/ {print $2}' "/proc/$(server)/status")" = "$(id -u fennox)" ]
printf '[bandwidth]\ndefault = "4MB"\n' >>/etc/fennox/fennox.toml
systemctl restart fennox
answers
task=$(fennox copy --detach /home/big /home/to)
# A restarted and a killed server leave a running task alone, and the killed one comes back.
systemctl restart fennox
answers
kill -KILL "$(server)"
answers
[ "$(systemctl show --property NRestarts --value fennox)" = 1 ]
fennox status --watch "$task"
cmp /home/bob/big /home/bob/to/big
[ "$(stat -c %U /home/bob/to/big)" = bob ]
dpkg --install /fennox.deb
answers
[ "$(systemctl list-units --failed --plain --quiet | wc -l)" = 0 ]
dpkg --purge fennox
if systemctl is-active fennox; then exit 1; fi
test -f /home/bob/to/big
echo all good
"""


@clean_root
@pytest.mark.skipif(not shutil.which("systemd-nspawn"), reason="needs systemd-nspawn")
def test_its_unit_serves_and_survives_under_a_real_service_manager(root):
    (root / "check").write_text(CHECK)
    (root / "check").chmod(0o755)
    unit = root / "etc/systemd/system/check.service"
    unit.write_text(CHECK_UNIT)
    wanted = root / "etc/systemd/system/default.target.wants"
    wanted.mkdir(exist_ok=True)
    (wanted / "check.service").symlink_to("/etc/systemd/system/check.service")
    # A machine without systemd has nobody to register the container with.
    alone = [] if os.path.isdir("/run/systemd/system") else ["--register=no", "--keep-unit"]
    booted = subprocess.run(["systemd-nspawn", "--quiet", "--private-network", *alone, "--directory", root,
                             "--boot"], stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=300)
    log = root / "check.log"
    assert log.exists(), booted.stdout + booted.stderr
    assert "\nall good\n" in log.read_text(), log.read_text()
