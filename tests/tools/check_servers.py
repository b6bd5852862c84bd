#!/usr/bin/python3
"""The servers the tests of `sitelist check` talk to, all on 127.0.0.1.

    check_servers.py ROOT CERTDIR LOG

Serves ROOT over HTTP, FTP and an HTTP forward proxy, does TLS handshakes
with CERTDIR/good.pem (and, on a second port, CERTDIR/other.pem), listens on
a port without ever answering, and names a port nothing listens on. Prints
the ports as one JSON line once every server listens, appends one line per
request to LOG, and stops when its standard input closes, so that it never
outlives the test that started it.

Credentials are fixed: the FTP user "ftp-user" with "ftp-pw", HTTP paths
under /private/ need "http-user" with "http-pw", the proxy needs
"proxy-user" with "proxy-pw". Every connection the proxy makes goes to
127.0.0.1, whatever host name it is asked for: nothing leaves the machine.
"""
import base64
import http.client
import http.server
import json
import os
import select
import socket
import socketserver
import ssl
import sys
import threading

from pyftpdlib.authorizers import DummyAuthorizer
from pyftpdlib.handlers import FTPHandler
from pyftpdlib.servers import ThreadedFTPServer

LOCK = threading.Lock()
LOG_PATH = None


def log(line):
    with LOCK, open(LOG_PATH, "a", encoding="utf-8") as f:
        f.write(line + "\n")


def basic(user, password):
    return "Basic " + base64.b64encode(f"{user}:{password}".encode()).decode()


class Quiet:
    def log_message(self, *args):
        pass


class Files(Quiet, http.server.SimpleHTTPRequestHandler):
    """The repository: logs each request with its Host and Via headers."""

    def send_head(self):
        log(f"http {self.command} {self.path} host={self.headers.get('Host')} via={self.headers.get('Via', '-')}")
        if self.path.startswith("/private/") and self.headers.get("Authorization") != basic("http-user", "http-pw"):
            self.send_response(401)
            self.send_header("WWW-Authenticate", 'Basic realm="private"')
            self.send_header("Content-Length", "0")
            self.end_headers()
            return None
        return super().send_head()


class Proxy(Quiet, http.server.BaseHTTPRequestHandler):
    """A forward proxy: GET and HEAD of absolute URLs, and CONNECT tunnels."""

    def allowed(self, what):
        log(f"proxy {what} auth={'ok' if self.headers.get('Proxy-Authorization') == basic('proxy-user', 'proxy-pw') else 'no'}")
        if self.headers.get("Proxy-Authorization") == basic("proxy-user", "proxy-pw"):
            return True
        self.send_response(407)
        self.send_header("Proxy-Authenticate", 'Basic realm="proxy"')
        self.send_header("Content-Length", "0")
        self.end_headers()
        return False

    def forward(self):
        if not self.allowed(f"{self.command} {self.path}"):
            return
        url = http.client.urlsplit(self.path)
        upstream = http.client.HTTPConnection("127.0.0.1", url.port or 80, timeout=10)
        headers = {k: v for k, v in self.headers.items() if k.lower() not in ("proxy-authorization", "proxy-connection")}
        headers["Via"] = "1.1 test-proxy"
        upstream.request(self.command, url.path or "/", headers=headers)
        answer = upstream.getresponse()
        body = answer.read()
        self.send_response(answer.status, answer.reason)
        for k, v in answer.getheaders():
            if k.lower() not in ("connection", "transfer-encoding", "server", "date"):
                self.send_header(k, v)
        self.end_headers()
        if self.command != "HEAD":
            self.wfile.write(body)

    do_GET = forward
    do_HEAD = forward

    def do_CONNECT(self):
        if not self.allowed(f"CONNECT {self.path}"):
            return
        port = int(self.path.rsplit(":", 1)[1])
        upstream = socket.create_connection(("127.0.0.1", port), timeout=10)
        self.send_response(200, "Connection established")
        self.end_headers()
        self.wfile.flush()
        ends = [self.connection, upstream]
        while True:
            readable, _, _ = select.select(ends, [], [], 10)
            if not readable:
                break
            for end in readable:
                data = end.recv(65536)
                if not data:
                    upstream.close()
                    return
                (upstream if end is self.connection else self.connection).sendall(data)
        upstream.close()


class Handshake(socketserver.BaseRequestHandler):
    """Does the TLS handshake, then waits for the client to go."""

    def handle(self):
        try:
            with self.server.context.wrap_socket(self.request, server_side=True) as tls:
                log(f"tls {self.server.name} handshake")
                tls.settimeout(10)
                while tls.recv(4096):
                    pass
        except (ssl.SSLError, OSError):
            log(f"tls {self.server.name} failed")


class Server(socketserver.ThreadingMixIn, socketserver.TCPServer):
    daemon_threads = True
    allow_reuse_address = True
    request_queue_size = 128  # many sites are checked at once


def tls_server(certdir, name):
    server = Server(("127.0.0.1", 0), Handshake)
    server.context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    server.context.load_cert_chain(os.path.join(certdir, name + ".pem"), os.path.join(certdir, name + ".key"))
    server.name = name
    return server


class LoggedFtp(FTPHandler):
    def on_login(self, username):
        log(f"ftp login {username}")

    def on_login_failed(self, username, password):
        log(f"ftp login-failed {username}")

    def ftp_CWD(self, path):
        log(f"ftp CWD {self.fs.fs2ftp(path)}")
        return super().ftp_CWD(path)


def ftp_server(root):
    authorizer = DummyAuthorizer()
    authorizer.add_user("ftp-user", "ftp-pw", root, perm="elr")
    LoggedFtp.authorizer = authorizer
    LoggedFtp.auth_failed_timeout = 0  # answer a wrong password at once
    server = ThreadedFTPServer(("127.0.0.1", 0), LoggedFtp)
    return server


def closed_port():
    s = socket.socket()
    s.bind(("127.0.0.1", 0))
    port = s.getsockname()[1]
    s.close()
    return port


def main():
    global LOG_PATH
    root, certdir, LOG_PATH = sys.argv[1:4]
    os.chdir(root)
    http_server = Server(("127.0.0.1", 0), Files)
    proxy = Server(("127.0.0.1", 0), Proxy)
    good = tls_server(certdir, "good")
    other = tls_server(certdir, "other")
    ftp = ftp_server(root)
    silent = socket.socket()
    silent.bind(("127.0.0.1", 0))
    silent.listen(64)  # the kernel completes connections; nobody accepts them
    for server in (http_server, proxy, good, other):
        threading.Thread(target=server.serve_forever, daemon=True).start()
    threading.Thread(target=ftp.serve_forever, daemon=True).start()
    ports = {
        "http": http_server.server_address[1],
        "proxy": proxy.server_address[1],
        "tls": good.server_address[1],
        "tlsOther": other.server_address[1],
        "ftp": ftp.address[1],
        "silent": silent.getsockname()[1],
        "closed": closed_port(),
    }
    print(json.dumps(ports), flush=True)
    sys.stdin.read()


if __name__ == "__main__":
    main()
