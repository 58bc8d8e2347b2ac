"""System accounts that log in, for the tests."""
import contextlib
import fcntl
import os
import pathlib
import pwd
import shutil
import subprocess
import tempfile

ALICE, BOB = "games", "www-data"  # two accounts that every Debian has
PASSWORDS = {ALICE: "correct horse", BOB: "batterie stäple"}


def pam_login(place, min_uid=1, more=""):
    """Configuration for logins of ALICE and BOB, with a PAM service in a folder of its own."""
    folder = place / "pam"
    folder.mkdir(exist_ok=True)
    script = folder / "check"
    cases = "".join(f'[ "$PAM_USER" = "{user}" ] && [ "$password" = "{password}" ] && exit 0\n'
                    for user, password in PASSWORDS.items())
    script.write_text('#!/bin/sh\npassword=$(cat)\n' + cases + "exit 1\n")
    script.chmod(0o700)
    (folder / "test-login").write_text(
        f"auth required pam_exec.so quiet expose_authtok {script}\naccount required pam_permit.so\n")
    return (f'[login]\nservice = "test-login"\nservice_folder = "{folder}"\nmin_uid = {min_uid}\n'
            + more)


def token_of(place, user):
    """A bearer token of a system user, and the [[token]] table that knows it."""
    file, token = place / f"{user}.token", f"{user:x<32}".replace("-", "y")
    file.write_text(token + "\n")
    file.chmod(0o600)
    return token, f'[[token]]\nuser = "{user}"\nfile = "{file}"\n'


@contextlib.contextmanager
def system_user(password):
    """A new system account with a password, removed afterwards."""
    with open(pathlib.Path(tempfile.gettempdir()) / "fennox-test-users.lock", "w") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        name = f"fennoxtest{os.getpid()}"
        subprocess.run(["useradd", "--no-create-home", "--shell", "/bin/sh", name], check=True)
        try:
            subprocess.run(["chpasswd"], input=f"{name}:{password}\n", text=True, check=True)
            yield pwd.getpwnam(name)
        finally:
            subprocess.run(["userdel", name], check=True, stderr=subprocess.DEVNULL)


def may_add_users():
    return os.geteuid() == 0 and all(shutil.which(p) for p in ("useradd", "userdel", "chpasswd"))
