"""A throw-away vsftpd, with TLS and a certificate of its own when asked."""
from throwaway import ThrowAwayServer, arguments, make_certificate, serve

PASSWORD = "s3cret word"


class FtpServer(ThrowAwayServer):
    """Works as the user who runs it. The login is "ftp" with a password of its own;
    paths are those of the machine."""

    program, greeting = "/usr/sbin/vsftpd", b"220 "

    def __init__(self, root, tls=False, max_clients=0, options=""):
        super().__init__(root)
        self.tls, self.max_clients, self.options = tls, max_clients, options
        self.protocol = "ftps" if tls else "ftp"

    def prepare(self):
        password = self.own / "password"
        password.write_text(PASSWORD + "\n")
        password.chmod(0o600)
        if self.tls:
            make_certificate(self.own)

    def command(self):
        config = {
            "listen": "YES", "listen_address": "127.0.0.1", "listen_port": self.port,
            "pasv_address": "127.0.0.1", "background": "NO", "seccomp_sandbox": "NO",
            "run_as_launching_user": "YES", "local_enable": "NO", "anonymous_enable": "YES",
            "write_enable": "YES", "anon_upload_enable": "YES", "anon_mkdir_write_enable": "YES",
            "anon_other_write_enable": "YES", "anon_world_readable_only": "NO",
            "anon_umask": "022", "xferlog_enable": "NO", "max_clients": self.max_clients,
            "anon_root": self.root, "secure_email_list_enable": "YES",
            "email_password_file": self.own / "password",
        }
        if self.tls:
            config.update({
                "ssl_enable": "YES", "allow_anon_ssl": "YES", "force_anon_data_ssl": "YES",
                "force_anon_logins_ssl": "YES", "require_ssl_reuse": "YES", "ssl_ciphers": "HIGH",
                "rsa_cert_file": self.own / "server.pem",
                "rsa_private_key_file": self.own / "server.key",
            })
        file = self.own / "vsftpd.conf"
        file.write_text("".join(f"{k}={v}\n" for k, v in config.items()) + self.options)
        return [self.program, str(file)]

    def settings(self):
        found = {"user": "ftp", "password_file": self.own / "password"}
        if self.tls:
            found["ca_file"] = self.own / "server.pem"
        return found


if __name__ == "__main__":
    parser = arguments(__doc__)
    parser.add_argument("--tls", action="store_true", help="FTPS: require TLS")
    parser.add_argument("--max-clients", type=int, default=0, help="most connections, 0: any number")
    given = parser.parse_args()
    serve(FtpServer(given.root, given.tls, given.max_clients))
