"""A stand-in for Dropbox's HTTP API, written from its public description. Every account
is a real folder, and what the service checks is checked here: authorization, content
hashes, offsets of upload sessions, taken names without regard to case."""
import hashlib
import http.server
import json
import os
import pathlib
import secrets
import shutil
import signal
import socketserver
import ssl
import sys
import threading
import time
import urllib.parse

from throwaway import ThrowAwayServer, arguments, make_certificate, serve

BLOCK = 4 << 20
MOST_IN_ONE_REQUEST = 150 << 20
DISALLOWED = {".dropbox", ".dropbox.attr", ".dropbox.cache", "desktop.ini", "thumbs.db", ".ds_store"}


class DropboxServer(ThrowAwayServer):
    """`roots` are the folders of the accounts; the first is the one of settings().
    fault() breaks requests to come; `access_log` tells which there were."""

    protocol, program = "dropbox", "/usr/bin/python3"

    def __init__(self, root, *others, tls=False, quota=0):
        super().__init__(root)
        self.roots = [self.root, *(pathlib.Path(other).resolve() for other in others)]
        self.tls, self.quota = tls, quota

    def prepare(self):
        accounts = []
        for number, root in enumerate(self.roots):
            login = {"refresh_token": secrets.token_hex(16), "app_key": f"key{number}",
                     "app_secret": secrets.token_hex(8)}
            self.token_file(number).write_text(json.dumps(login))
            self.token_file(number).chmod(0o600)
            accounts.append({"root": str(root), **login})
        (self.own / "accounts.json").write_text(json.dumps(accounts))
        (self.own / "accounts.json").chmod(0o600)
        if self.tls:
            make_certificate(self.own)

    def token_file(self, account=0):
        return self.own / f"token{account}.json"

    @property
    def access_log(self):
        """A line for each request: endpoint, status ("cut" without one), and offset."""
        return self.own / "access.log"

    def fault(self, endpoint, kind, **more):
        """Makes requests to the endpoint, such as "files/upload", go wrong, the first
        `skip` not and then `times` (1) of them. Kinds: "status" with `status`, `error`
        (a JSON value) and `retry_after`; "cut" after `bytes` of the file's data, in either
        direction; "lose" the answer of what was done; "damage" a byte of the data; "lie"
        about the hash; "expire" the access token; "stall" until the other side hangs up.
        Several at once: a list of such dictionaries in `own`/faults.json, put there by a
        rename."""
        new = self.own / "faults.new"
        new.write_text(json.dumps([{"endpoint": endpoint, "kind": kind, **more}]))
        new.rename(self.own / "faults.json")

    def command(self):
        return [self.program, __file__, "--daemon", str(self.own), "--root", str(self.root), "--port",
                str(self.port), "--quota", str(self.quota), *(["--tls"] if self.tls else [])]

    def settings(self, account=0):
        found = {"token_file": self.token_file(account)}
        if self.tls:
            found["ca_file"] = self.own / "server.pem"
        return found

    def remote(self, name, mount, path="/", account=0, **more):
        return super().remote(name, mount, path, **{"token_file": self.token_file(account), **more})

    def end_sessions(self):
        """Breaks the connections that stand; the server goes on."""
        if self.process:
            os.kill(self.process.pid, signal.SIGUSR1)


class Refused(Exception):
    """Error 409 of an endpoint: tags from the outermost to the innermost."""

    def __init__(self, *tags, **more):
        super().__init__("/".join(tags))
        self.error = {".tag": tags[-1], **more}
        for tag in reversed(tags[:-1]):
            self.error = {".tag": tag, tag: self.error}


class BadRequest(Exception):
    pass


class Unauthorized(Exception):
    pass


class Cut(Exception):
    """The connection ends here."""


def content_hash(chunks):
    """Of an iterable of pieces of BLOCK bytes, the last of which may be shorter."""
    return hashlib.sha256(b"".join(hashlib.sha256(chunk).digest() for chunk in chunks)).hexdigest()


def blocks(file):
    return iter(lambda: file.read(BLOCK), b"")


def hash_of(data):
    return content_hash(data[i:i + BLOCK] for i in range(0, len(data), BLOCK))


class Account:
    """The files of one account. Paths are the API's: "" is the root folder."""

    def __init__(self, root, state):
        self.root, self.state, self.hashes = pathlib.Path(root), state, {}

    def find(self, path):
        """The real path, each part as it is spelled there. Parts that are missing stay."""
        if path and not path.startswith("/") or path.endswith("/"):
            raise Refused("path", "malformed_path")
        real = self.root
        for part in path.split("/")[1:]:
            if part in ("", ".", "..") or "\0" in part or len(part.encode()) > 255:
                raise Refused("path", "malformed_path")
            if not (real / part).exists() and real.is_dir():
                same = [name for name in os.listdir(real) if name.lower() == part.lower()]
                part = same[0] if same else part
            real = real / part
        return real

    def existing(self, path, tag="path"):
        real = self.find(path)
        if not real.exists():
            raise Refused(tag, "not_found")
        return real

    def place(self, path, tag="path", over=False):
        """Where a new entry goes. `over`: it may replace a file."""
        real = self.find(path)
        if not path or real.name.lower() in DISALLOWED:
            raise Refused(tag, "disallowed_name")
        if real.exists() and not (over and real.is_file()):
            raise Refused(tag, "conflict", "folder" if real.is_dir() else "file")
        for above in real.parents:
            if above.is_file():
                raise Refused(tag, "conflict", "file_ancestor")
        real.parent.mkdir(parents=True, exist_ok=True)
        return real

    def used(self):
        return sum(file.stat().st_size for file in self.root.rglob("*") if file.is_file())

    def metadata(self, real):
        path, stat = "/" + str(real.relative_to(self.root)), real.stat()
        found = {".tag": "folder", "name": real.name, "path_lower": path.lower(), "path_display": path,
                 "id": f"id:{stat.st_ino:022d}"}
        if real.is_dir():
            return found
        version = (stat.st_ino, stat.st_mtime_ns, stat.st_size)
        if self.hashes.get(str(real), (None,))[0] != version:
            with real.open("rb") as file:
                self.hashes[str(real)] = (version, content_hash(blocks(file)))
        when = time.strftime("%Y-%m-%dT%H:%M:%SZ", time.gmtime(stat.st_mtime))
        return {**found, ".tag": "file", "rev": hashlib.md5(repr(version).encode()).hexdigest()[:20],
                "size": stat.st_size, "content_hash": self.hashes[str(real)][1],
                "is_downloadable": real.suffix != ".paper", "client_modified": when,
                "server_modified": when}

    def commit(self, source, commit, key="path"):
        """Gives the file at `source` its name, in one step. `key`: where an error has its
        reason."""
        mode = commit.get("mode", "add")
        mode = mode if isinstance(mode, str) else mode[".tag"]
        try:
            place = self.place(commit["path"], over=mode == "overwrite")
            if self.state.quota and self.used() + source.stat().st_size > self.state.quota:
                raise Refused("path", "insufficient_space")
            half = place.parent / f".{secrets.token_hex(8)}.half"
            try:
                shutil.move(source, half)
                half.rename(place)
            except OSError as problem:
                half.unlink(missing_ok=True)
                raise Refused("path", "insufficient_space") from problem
        except Refused as why:
            why.error = {".tag": "path", key: why.error["path"]}
            raise
        return {k: v for k, v in self.metadata(place).items() if k != ".tag"}


class State:
    def __init__(self, own, quota):
        self.own, self.quota = own, quota
        self.logins = json.loads((own / "accounts.json").read_text())
        self.accounts = [Account(login["root"], self) for login in self.logins]
        self.tokens, self.expired = {}, set()
        self.sessions, self.references = {}, {}
        self.faults, self.lock, self.connections = [], threading.RLock(), set()

    def fault(self, endpoint):
        with self.lock:
            new = self.own / "faults.json"
            if new.exists():
                self.faults = json.loads(new.read_text())
                new.unlink()
            for fault in self.faults:
                if fault["endpoint"] != endpoint or fault.setdefault("times", 1) == 0:
                    continue
                if fault.get("skip", 0) > 0:
                    fault["skip"] -= 1
                    continue
                fault["times"] -= 1
                return fault
        return {"kind": ""}


class Handler(http.server.BaseHTTPRequestHandler):
    protocol_version, disable_nagle_algorithm, timeout = "HTTP/1.1", True, 120

    def log_message(self, *_):
        pass

    def setup(self):
        super().setup()
        self.server.state.connections.add(self.connection)

    def finish(self):
        self.server.state.connections.discard(self.connection)
        super().finish()

    def log(self, status):
        with (self.server.state.own / "access.log").open("a") as file:
            file.write(f"{self.endpoint} {status} {self.note}\n")

    def answer(self, status, body=b"", **headers):
        if isinstance(body, dict):
            body = json.dumps(body).encode()
            headers["Content-Type"] = "application/json"
        self.log(status)
        self.send_response(status)
        for name, value in headers.items():
            self.send_header(name.replace("_", "-"), str(value))
        self.send_header("Content-Length", str(len(body)))
        self.end_headers()
        self.wfile.write(body)

    def do_POST(self):
        self.state, self.note, self.read = self.server.state, "", 0
        self.length = int(self.headers.get("Content-Length") or 0)
        self.endpoint = self.path.removeprefix("/2/").strip("/")
        self.fault = self.state.fault(self.endpoint)
        try:
            self.dispatch()
        except Cut:
            self.log("cut")
            self.close_connection = True
        except OSError:
            self.close_connection = True  # the client has gone
        finally:
            if not self.close_connection:
                self.rfile.read(self.length - self.read)

    def dispatch(self):
        try:
            if self.fail_first():
                return None
            if self.endpoint == "oauth2/token":
                return self.token()
            account = self.authorize()
            name = "do_" + self.endpoint.removeprefix("files/").replace("/", "_")
            act = getattr(self, name, None)
            if act is None or not self.endpoint.startswith("files/"):
                raise BadRequest(f"Unknown API function: {self.endpoint}")
            result = act(account, self.argument())
            if self.fault["kind"] == "lose":
                raise Cut
            if result is not None:
                self.answer(200, result)
        except Refused as why:
            self.answer(409, {"error_summary": f"{why}/...", "error": why.error})
        except BadRequest as why:
            self.answer(400, str(why).encode(), Content_Type="text/plain")
        except Unauthorized as why:
            self.answer(401, {"error_summary": f"{why}/...", "error": {".tag": str(why)}})

    def fail_first(self):
        kind = self.fault["kind"]
        if kind == "status":
            body = {"error_summary": "made for a test", "error": self.fault.get("error", {})}
            more = {"Retry_After": self.fault["retry_after"]} if "retry_after" in self.fault else {}
            self.data()  # as a front end does that reads all before it answers
            self.answer(self.fault["status"], body, **more)
            return True
        if kind == "stall":
            while self.connection.recv(65536):
                pass
            raise Cut
        if kind == "expire":
            with self.state.lock:
                self.state.expired |= set(self.state.tokens)
        return False

    def token(self):
        form = dict(urllib.parse.parse_qsl(self.data().decode()))
        for number, login in enumerate(self.state.logins):
            if form == {"grant_type": "refresh_token", "refresh_token": login["refresh_token"],
                        "client_id": login["app_key"], "client_secret": login["app_secret"]}:
                token = secrets.token_hex(16)
                self.state.tokens[token] = number
                return self.answer(200, {"access_token": token, "token_type": "bearer",
                                         "expires_in": 14400})
        return self.answer(400, {"error": "invalid_grant",
                                 "error_description": "refresh token is invalid or revoked"})

    def authorize(self):
        kind, _, token = self.headers.get("Authorization", "").partition(" ")
        if kind != "Bearer" or token not in self.state.tokens:
            raise Unauthorized("invalid_access_token")
        if token in self.state.expired:
            raise Unauthorized("expired_access_token")
        return self.state.accounts[self.state.tokens[token]]

    def argument(self):
        kind = (self.headers.get("Content-Type") or "").partition(";")[0]
        text = self.headers.get("Dropbox-API-Arg")
        if text is None:
            if kind != "application/json":
                raise BadRequest(f'Bad HTTP "Content-Type" header: "{kind}"')
            text = self.data().decode()
        elif not text.isascii():
            raise BadRequest('HTTP header "Dropbox-API-Arg": not ASCII')
        elif self.endpoint != "files/download" and kind != "application/octet-stream":
            raise BadRequest(f'Bad HTTP "Content-Type" header: "{kind}"')
        try:
            return json.loads(text)
        except ValueError as problem:
            raise BadRequest(f"could not decode input as JSON: {problem}") from problem

    def data(self):
        """The request's body, with what its fault does to it."""
        if self.length > MOST_IN_ONE_REQUEST:
            raise Refused("payload_too_large")
        want = self.length
        if self.fault["kind"] == "cut":
            self.rfile.read(min(want, self.fault["bytes"]))
            raise Cut
        data = self.rfile.read(want)
        self.read = want
        if len(data) != want:
            raise Cut
        if self.fault["kind"] == "damage" and data:
            data = bytes([data[0] ^ 1]) + data[1:]
        return data

    def body(self, argument):
        data = self.data()
        if argument.get("content_hash") not in (None, hash_of(data)):
            raise Refused("content_hash_mismatch")
        return data

    def file_with(self, data):
        file = self.state.own / f"part-{secrets.token_hex(8)}"
        file.write_bytes(data)
        return file

    def told(self, metadata):
        if self.fault["kind"] == "lie":
            metadata["content_hash"] = "0" * 64
        return metadata

    # The endpoints.

    def do_get_metadata(self, account, argument):
        if not argument["path"]:
            raise BadRequest("The root folder is unsupported.")
        return account.metadata(account.existing(argument["path"]))

    def do_list_folder(self, account, argument):
        real = account.existing(argument["path"])
        if not real.is_dir():
            raise Refused("path", "not_folder")
        return {"entries": [account.metadata(entry) for entry in sorted(real.iterdir())],
                "cursor": "end", "has_more": False}

    def do_create_folder_v2(self, account, argument):
        real = account.place(argument["path"])
        real.mkdir()
        return {"metadata": account.metadata(real)}

    def do_delete_v2(self, account, argument):
        real = account.existing(argument["path"], "path_lookup")
        found = account.metadata(real)
        if argument.get("parent_rev", found.get("rev")) != found.get("rev"):
            raise Refused("path_write", "conflict", "file")
        shutil.rmtree(real) if real.is_dir() else real.unlink()
        return {"metadata": found}

    def relocate(self, account, argument, act):
        source = account.existing(argument["from_path"], "from_lookup")
        to = account.find(argument["to_path"])
        if source in to.parents:
            raise Refused("duplicated_or_nested_paths")
        to = account.place(argument["to_path"], "to")
        act(source, to)
        return {"metadata": account.metadata(to)}

    def do_move_v2(self, account, argument):
        return self.relocate(account, argument, os.rename)

    def do_copy_v2(self, account, argument):
        return self.relocate(account, argument, copy_entry)

    def do_copy_reference_get(self, account, argument):
        real = account.existing(argument["path"])
        reference = secrets.token_hex(16)
        self.state.references[reference] = real
        return {"copy_reference": reference, "expires": "2099-01-01T00:00:00Z",
                "metadata": account.metadata(real)}

    def do_copy_reference_save(self, account, argument):
        source = self.state.references.get(argument["copy_reference"])
        if source is None or not source.exists():
            raise Refused("not_found" if source else "invalid_copy_reference")
        to = account.place(argument["path"])
        copy_entry(source, to)
        return {"metadata": account.metadata(to)}

    def do_upload(self, account, argument):
        data = self.body(argument)
        return self.told(account.commit(self.file_with(data), argument, key="reason"))

    def do_upload_session_start(self, account, argument):
        session = secrets.token_hex(16)
        self.state.sessions[session] = self.file_with(self.body(argument))
        return {"session_id": session}

    def session(self, cursor, *tags):
        """The file of a session whose length the client knows rightly."""
        self.note = cursor["offset"]
        file = self.state.sessions.get(cursor["session_id"])
        if file is None:
            raise Refused(*tags, "not_found")
        if file.stat().st_size != cursor["offset"]:
            raise Refused(*tags, "incorrect_offset", correct_offset=file.stat().st_size)
        return file

    def append(self, file, data):
        with file.open("ab") as out:
            out.write(data)

    def do_upload_session_append_v2(self, account, argument):
        data = self.body(argument)
        self.append(self.session(argument["cursor"]), data)
        return b"null"

    def do_upload_session_finish(self, account, argument):
        data = self.body(argument)
        file = self.session(argument["cursor"], "lookup_failed")
        self.append(file, data)
        try:
            found = account.commit(file, argument["commit"])
        finally:
            if not file.exists():
                del self.state.sessions[argument["cursor"]["session_id"]]
        return self.told(found)

    def do_download(self, account, argument):
        real = account.existing(argument["path"])
        if real.is_dir():
            raise Refused("path", "not_file")
        found = account.metadata(real)
        if not found["is_downloadable"]:
            raise Refused("unsupported_file")
        wanted = self.headers.get("Range", "")
        begin = int(wanted.removeprefix("bytes=").removesuffix("-") or 0)
        self.note = begin
        if begin and begin >= found["size"]:
            return self.answer(416)
        self.log(206 if wanted else 200)
        self.send_response(206 if wanted else 200)
        if wanted:
            self.send_header("Content-Range", f"bytes {begin}-{found['size'] - 1}/{found['size']}")
        self.send_header("Content-Length", str(found["size"] - begin))
        self.send_header("Dropbox-API-Result", json.dumps(self.told(found)))
        self.end_headers()
        left = self.fault.get("bytes", 1 << 60) if self.fault["kind"] == "cut" else 1 << 60
        with real.open("rb") as file:
            file.seek(begin)
            while chunk := file.read(min(65536, left)):
                if self.fault["kind"] == "damage":
                    chunk, self.fault = bytes([chunk[0] ^ 1]) + chunk[1:], {"kind": ""}
                self.wfile.write(chunk)
                left -= len(chunk)
        if left == 0:
            raise Cut
        return None


def copy_entry(source, to):
    (shutil.copytree if source.is_dir() else shutil.copyfile)(source, to)


class Listener(socketserver.ThreadingMixIn, http.server.HTTPServer):
    daemon_threads, request_queue_size = True, 64

    def handle_error(self, request, client_address):
        if not isinstance(sys.exc_info()[1], OSError):
            super().handle_error(request, client_address)


def run_daemon(own, port, tls, quota):
    listener = Listener(("127.0.0.1", port), Handler)
    listener.state = State(own, quota)
    if tls:
        context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        context.load_cert_chain(own / "server.pem", own / "server.key")
        listener.socket = context.wrap_socket(listener.socket, server_side=True,
                                              do_handshake_on_connect=False)

    def break_all(*_):
        for connection in list(listener.state.connections):
            try:
                connection.shutdown(2)
            except OSError:
                pass

    signal.signal(signal.SIGUSR1, break_all)
    listener.serve_forever()


if __name__ == "__main__":
    parser = arguments(__doc__)
    parser.add_argument("--account", action="append", default=[], help="folder of one more account")
    parser.add_argument("--tls", action="store_true", help="https only")
    parser.add_argument("--quota", type=int, default=0, help="bytes an account may hold")
    parser.add_argument("--daemon", type=pathlib.Path)
    parser.add_argument("--port", type=int, default=0)
    given = parser.parse_args()
    if given.daemon:
        run_daemon(given.daemon, given.port, given.tls, given.quota)
    else:
        serve(DropboxServer(given.root, *given.account, tls=given.tls, quota=given.quota))
