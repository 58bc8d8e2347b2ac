"""A throw-away Apache with WebDAV, with TLS and a certificate of its own when asked."""
import base64
import hashlib
import os

from throwaway import ThrowAwayServer, arguments, make_certificate, serve

USER, PASSWORD, REALM = "web user", "s3cret wörd", "files"
MODULES = ("mpm_prefork", "authn_core", "authn_file", "authz_core", "authz_user", "auth_basic",
           "auth_digest", "alias", "dav", "dav_fs", "reqtimeout", "ssl")
# No web server may be root, but this one works on the folders of whoever runs it.
AS_ROOT = ("/usr/bin/setpriv", "--reuid=65534", "--regid=65534", "--clear-groups",
           "--inh-caps=+dac_override,+fowner", "--ambient-caps=+dac_override,+fowner", "--")


class WebdavServer(ThrowAwayServer):
    """Paths in its URLs are those of the machine. `options` are lines of Apache's own
    configuration; `access_log` tells what was asked of it."""

    program, preforks = "/usr/sbin/apache2", True

    def __init__(self, root, tls=False, digest=False, options=""):
        super().__init__(root)
        self.tls, self.digest, self.options = tls, digest, options
        self.protocol = "webdavs" if tls else "webdav"

    def prepare(self):
        password = self.own / "password"
        password.write_text(PASSWORD + "\n")
        password.chmod(0o600)
        if self.digest:
            text = hashlib.md5(f"{USER}:{REALM}:{PASSWORD}".encode()).hexdigest()
            text = f"{USER}:{REALM}:{text}"
        else:
            text = base64.b64encode(hashlib.sha1(PASSWORD.encode()).digest()).decode()
            text = f"{USER}:{{SHA}}{text}"
        (self.own / "users").write_text(text + "\n")
        if self.tls:
            make_certificate(self.own)

    @property
    def access_log(self):
        """A line for each request: its number on its connection, method, path, status and
        Overwrite header."""
        return self.own / "access.log"

    def command(self):
        kind = "Digest" if self.digest else "Basic"
        tls = (f"SSLEngine on\nSSLCertificateFile {self.own}/server.pem\n"
               f"SSLCertificateKeyFile {self.own}/server.key\n" if self.tls else "")
        load = "".join(f"LoadModule {name}_module /usr/lib/apache2/modules/mod_{name}.so\n"
                       for name in MODULES if self.tls or name != "ssl")
        file = self.own / "apache.conf"
        file.write_text(f"""{load}
Listen 127.0.0.1:{self.port}
ServerName 127.0.0.1:{self.port}
ServerRoot {self.own}
DefaultRuntimeDir {self.own}
PidFile {self.own}/pid
ErrorLog {self.own}/error.log
CustomLog {self.access_log} "%k %m %U %>s %{{Overwrite}}i"
StartServers 2
MinSpareServers 1
MaxSpareServers 4
KeepAliveTimeout 60
MaxKeepAliveRequests 0
LimitRequestBody 0
{tls}
DavLockDB {self.own}/locks
DocumentRoot {self.own}
Alias "{self.root}" "{self.root}"
<Directory />
  AllowOverride None
  Require all denied
</Directory>
<Directory "{self.root}">
  Dav On
  AuthType {kind}
  AuthName "{REALM}"
  Auth{kind}Provider file
  AuthUserFile {self.own}/users
  Require valid-user
</Directory>
{self.options}
""")
        return [*(AS_ROOT if os.geteuid() == 0 else ()), self.program, "-D", "FOREGROUND", "-f",
                str(file)]

    def settings(self):
        found = {"user": USER, "password_file": self.own / "password"}
        if self.tls:
            found["ca_file"] = self.own / "server.pem"
        return found


if __name__ == "__main__":
    parser = arguments(__doc__)
    parser.add_argument("--tls", action="store_true", help="https only")
    parser.add_argument("--digest", action="store_true", help="Digest authentication, not Basic")
    parser.add_argument("--option", action="append", default=[], help="a line of configuration")
    given = parser.parse_args()
    serve(WebdavServer(given.root, given.tls, given.digest, "\n".join(given.option)))
