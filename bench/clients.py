"""Clients that ask the same over HTTP at the same time, each a process of its own."""
import multiprocessing
import re
import socket
import time

LENGTH = re.compile(rb"\r\ncontent-length: *(\d+)", re.IGNORECASE)


class Connection:
    """Costs as little as it can: what is measured is the server."""

    def __init__(self, port):
        self.port, self.socket = port, None

    def close(self):
        if self.socket is not None:
            self.socket.close()
            self.socket = None

    def ask(self, request):
        """(seconds, body). A connection that the server has ended is made anew, in that time."""
        begin = time.perf_counter()
        if self.socket is None:
            self.socket = socket.create_connection(("127.0.0.1", self.port), 120)
            self.socket.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        self.socket.sendall(request)
        head, body = self._read()
        seconds = time.perf_counter() - begin
        if not head.startswith(b"HTTP/1.1 200"):
            raise RuntimeError(f"the server answered {head[:100]!r} {body[:300]!r}")
        if b"connection: close" in head.lower():
            self.close()
        return seconds, body

    def _read(self):
        text = b""
        while b"\r\n\r\n" not in text:
            text += self._receive()
        head, _, body = text.partition(b"\r\n\r\n")
        length = int(LENGTH.search(head)[1])
        while len(body) < length:
            body += self._receive()
        return head, body

    def _receive(self):
        piece = self.socket.recv(65536)
        if not piece:
            raise RuntimeError("the server ended the connection in mid-answer")
        return piece


def post(port, path, body, authorization):
    """The bytes of a request."""
    head = (f"POST {path} HTTP/1.1\r\nHost: 127.0.0.1:{port}\r\nAuthorization: {authorization}\r\n"
            f"Content-Type: application/json\r\nContent-Length: {len(body)}\r\n\r\n")
    return head.encode() + body.encode()


def get(port, path, authorization):
    return (f"GET {path} HTTP/1.1\r\nHost: 127.0.0.1:{port}\r\n"
            f"Authorization: {authorization}\r\n\r\n").encode()


def _one(port, request, count, marker, barrier, results):
    try:
        connection = Connection(port)
        connection.ask(request)
        barrier.wait(60)
        times = []
        for _ in range(count):
            seconds, body = connection.ask(request)
            if marker not in body.replace(b" ", b"").replace(b"\t", b""):
                raise RuntimeError(f"not the answer that was expected: {body[:300]!r}")
            times.append(seconds)
        results.put(times)
    except Exception as reason:  # the parent raises it
        barrier.abort()
        results.put(str(reason) or type(reason).__name__)


def together(clients, port, request, count, marker):
    """Seconds of every request; each client asks `count` times, one request after the other.
    `marker`, without spaces, is in each answer."""
    context = multiprocessing.get_context("fork")
    barrier, results = context.Barrier(clients), context.Queue()
    processes = [context.Process(target=_one,
                                 args=(port, request, count, marker, barrier, results))
                 for _ in range(clients)]
    for process in processes:
        process.start()
    answers = [results.get(timeout=600) for _ in processes]
    for process in processes:
        process.join()
    for answer in answers:
        if isinstance(answer, str):
            raise RuntimeError(answer)
    return [seconds for times in answers for seconds in times]
