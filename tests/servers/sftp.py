"""A throw-away OpenSSH server with a host key and a user key of its own."""
import getpass
import os

from throwaway import ThrowAwayServer, arguments, run, serve


class SftpServer(ThrowAwayServer):
    """Lets in the user who runs it, by key; any password is wrong."""

    protocol, program, greeting = "sftp", "/usr/sbin/sshd", b"SSH-"

    def __init__(self, root, options=""):
        super().__init__(root)
        self.options = options  # lines of sshd_config

    def prepare(self):
        for key in ("host_key", "user_key"):
            run("/usr/bin/ssh-keygen", "-q", "-t", "ed25519", "-N", "", "-f", self.own / key)
        if os.geteuid() == 0:
            os.makedirs("/run/sshd", exist_ok=True)

    def command(self):
        kind, key = (self.own / "host_key.pub").read_text().split()[:2]
        (self.own / "known_hosts").write_text(f"[127.0.0.1]:{self.port} {kind} {key}\n")
        (self.own / "sshd_config").write_text(
            f"Port {self.port}\nListenAddress 127.0.0.1\nHostKey {self.own}/host_key\n"
            f"AuthorizedKeysFile {self.own}/user_key.pub\nPidFile none\nStrictModes no\nUsePAM no\n"
            "PermitRootLogin yes\nPasswordAuthentication yes\nSubsystem sftp internal-sftp\n"
            f"{self.options}\n")
        return [self.program, "-D", "-e", "-f", str(self.own / "sshd_config")]

    def settings(self):
        return {"user": getpass.getuser(), "key_file": self.own / "user_key",
                "known_hosts": self.own / "known_hosts"}


if __name__ == "__main__":
    parser = arguments(__doc__)
    parser.add_argument("--option", action="append", default=[], help="a line of sshd_config")
    given = parser.parse_args()
    serve(SftpServer(given.root, "\n".join(given.option)))
