"""The demo's client of a fleet server, with a small server in the place of gooseBit: the server stops
in the middle, or the demo is killed."""

import os
import select
import signal
import stat
import subprocess

import pytest
from fleet_server import GooseBit, Refused, free_port

# As the real one, it forgets who has logged in when it stops.
SERVER = """#!/usr/bin/python3 -B
import http.server, json, secrets, ssl, sys
token = secrets.token_hex()
class Handler(http.server.BaseHTTPRequestHandler):
    def do_GET(self):
        known = self.path == "/login" or self.headers["Authorization"] == "Bearer " + token
        body = json.dumps({"access_token": token, "rollouts": []} if known else {}).encode()
        self.send_response(200 if known else 401)
        self.send_header("Content-Length", str(len(body)))
        self.end_headers()
        self.wfile.write(body)
    def do_POST(self):
        self.rfile.read(int(self.headers["Content-Length"]))
        self.do_GET()
web = http.server.ThreadingHTTPServer(("127.0.0.1", int(sys.argv[-1])), Handler)
context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
context.load_cert_chain("server.crt", "server.key")
web.socket = context.wrap_socket(web.socket, server_side=True)
web.serve_forever()
"""


@pytest.fixture(name="server")
def make_server(tmp_path):
    program = tmp_path / "server.py"
    program.write_text(SERVER)
    program.chmod(0o755)
    server = GooseBit(tmp_path, free_port(), str(program))
    yield server
    server.stop()


def test_server_that_stopped_goes_on(server):
    server.start()
    assert server.state() == ("finished", {})
    server.process.kill()
    server.process.wait()
    with pytest.raises(OSError):
        server.state()
    server.start()
    assert server.state() == ("finished", {})


def test_a_person_can_ask(server):
    server.start()
    assert stat.S_IMODE(server.client.stat().st_mode) == 0o600
    url = f"https://127.0.0.1:{server.port}{server.boards_path}"
    answer = subprocess.run(
        ["curl", "-sSf", "-K", server.client, url], stdout=subprocess.PIPE, text=True, check=True
    )
    assert "rollouts" in answer.stdout
    with pytest.raises(Refused):
        server.request("GET", server.boards_path, authorization="Bearer x")


def test_server_ends_with_a_demo_that_is_killed(server):
    told, tells = os.pipe()
    demo = os.fork()
    if demo == 0:
        try:
            server.start()
            os.write(tells, str(server.process.pid).encode())
            signal.pause()
        finally:
            os._exit(1)
    os.close(tells)
    process = os.pidfd_open(int(os.read(told, 20)))
    os.kill(demo, signal.SIGKILL)
    os.waitpid(demo, 0)
    ended = select.select([process], [], [], 60)[0]
    assert ended, "the server goes on"
