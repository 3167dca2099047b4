"""A fleet server on this machine's loopback address, and its REST interface as a maker uses it.

Two servers speak hawkBit's device interface: Eclipse hawkBit itself, and gooseBit, a small one.
Both classes have the same methods. A group is a list of boards. A roll-out takes one group after
the other and stops when a board fails.
"""

import base64
import http.client
import json
import os
import secrets
import socket
import ssl
import subprocess
import sys
import time
import uuid
from pathlib import Path

HERE = Path(__file__).parent
BOARDS_NAME = "10.0.2.100"  # this machine's address, as the emulated boards see it


# Also after SIGKILL: a server that goes on would keep its port and its data.
ENDS_WITH_US = ["setpriv", "--pdeathsig", "TERM"]


class Refused(Exception):
    """The server's answer to a request is an error."""


def free_port() -> int:
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def make_certificate(folder: Path) -> Path:
    """Makes the server's certificate and key. The certificate is valid from 1970 on: a board whose
    clock lost the time starts there."""
    config = folder / "certificate.conf"
    config.write_text(f"""[ca]
default_ca = own
[own]
database = index
new_certs_dir = .
rand_serial = yes
default_md = sha256
policy = names
x509_extensions = use
[names]
commonName = supplied
[use]
basicConstraints = critical, CA:TRUE
subjectAltName = IP:{BOARDS_NAME}, IP:127.0.0.1
""")
    (folder / "index").touch()
    for command in (
        "req -new -newkey rsa:2048 -nodes -keyout server.key -subj /CN=fleet -out request",
        "ca -batch -notext -config certificate.conf -selfsign -keyfile server.key -in request"
        " -startdate 19700101000000Z -enddate 20991231235959Z -out server.crt",
    ):
        subprocess.run(["openssl", *command.split()], cwd=folder, check=True, capture_output=True)
    return folder / "server.crt"


class FleetServer:
    """What both servers share: the process, its folder, and requests to it."""

    name = ""
    boards_path = ""  # the list of the boards in the REST interface
    offers_by_hardware = False  # offers an update only to boards of its hardware
    tenant = "DEFAULT"

    def __init__(self, folder: Path, port: int):
        self.folder, self.port = folder, port
        self.password = secrets.token_urlsafe(16)
        self.certificate = make_certificate(folder)
        self.client = folder / "curl"  # curl's options for a person who asks the server
        self.trust = ssl.create_default_context(cafile=str(self.certificate))
        self.tokens: dict[str, str] = {}
        self.groups: dict[str, list[str]] = {}
        self.process = self.connection = None

    def command(self) -> tuple[list[str], dict[str, str]]:
        """The server's command line and environment."""
        raise NotImplementedError

    def authorization(self) -> str:
        raise NotImplementedError

    def start(self, patience: int = 300):
        """Starts the server and returns when it answers."""
        arguments, environment = self.command()
        with open(self.folder / "log", "ab") as log:
            self.process = subprocess.Popen(
                [*ENDS_WITH_US, *arguments],
                env={**os.environ, **environment},
                cwd=self.folder,
                stdout=log,
                stderr=log,
            )
        limit = time.monotonic() + patience
        while True:
            try:
                self.connect(5).close()
                break
            except OSError:
                if self.process.poll() is not None or time.monotonic() > limit:
                    self.stop()
                    sys.exit(f"{self.name} did not start; its log is {self.folder}/log")
                time.sleep(0.5)
        self.client.touch(0o600)
        self.client.write_text(
            f'cacert = "{self.certificate}"\nheader = "Authorization: {self.authorization()}"\n'
        )

    def stop(self):
        if self.process and self.process.poll() is None:
            self.process.terminate()
            try:
                self.process.wait(10)
            except subprocess.TimeoutExpired:
                self.process.kill()
                self.process.wait()

    def connect(self, timeout: float = 120) -> http.client.HTTPSConnection:
        connection = http.client.HTTPSConnection(
            "127.0.0.1", self.port, timeout=timeout, context=self.trust
        )
        connection.connect()
        return connection

    def request(
        self,
        method: str,
        path: str,
        body=None,
        kind: str = "application/json",
        authorization: str = "",
    ):
        """Sends one request and returns the decoded answer."""
        if body is not None and not isinstance(body, bytes):
            body = json.dumps(body).encode()
        headers = {
            "Authorization": authorization or self.authorization(),
            "Accept": "application/json",
        }
        if body:
            headers["Content-Type"] = kind
        answer, text = self.exchange(method, path, body, headers)
        if answer.status >= 300:
            shown = text[:300].decode(errors="replace")
            raise Refused(f"{method} {path}: {answer.status} {shown}")
        return json.loads(text) if text else None

    def exchange(self, method: str, path: str, body, headers: dict[str, str]):
        """Uses the connection of the request before, if the server has not closed it."""
        for connection in (self.connection, None):
            self.connection = None
            try:
                connection = connection or self.connect()
                connection.request(method, path, body, headers)
                answer = connection.getresponse()
                text = answer.read()
                self.connection = connection
                return answer, text
            except OSError:
                if connection is None:
                    raise
                connection.close()
        raise ConnectionError(f"{self.name} closed the connection")

    def upload(self, method: str, path: str, file: Path):
        """Sends a file as a form."""
        mark = uuid.uuid4().hex
        head = f'--{mark}\r\nContent-Disposition: form-data; name="file"; filename="{file.name}"'
        body = (head + "\r\n\r\n").encode() + file.read_bytes() + f"\r\n--{mark}--\r\n".encode()
        return self.request(method, path, body, f"multipart/form-data; boundary={mark}")

    def group_of(self, board: str) -> str:
        return next((group for group, boards in self.groups.items() if board in boards), "")


class HawkBit(FleetServer):
    """Eclipse hawkBit from its executable jar, with its embedded database. The groups of a roll-out
    are the server's own: it starts them one after the other."""

    name = "hawkBit"
    boards_path = "/rest/v1/targets"

    def __init__(self, folder: Path, port: int, jar: str, poll: str = "00:00:10"):
        super().__init__(folder, port)
        self.jar, self.poll, self.rollout = jar, poll, None

    def command(self):
        settings = {
            "server.address": "127.0.0.1",
            "server.port": self.port,
            "server.ssl.certificate": "server.crt",
            "server.ssl.certificate-private-key": "server.key",
            "hawkbit.dmf.rabbitmq.enabled": "false",
            "hawkbit.artifact.fs.path": self.folder / "artifacts",
            "spring.datasource.url": f"jdbc:h2:file:{self.folder}/database;MODE=LEGACY",
            "hawkbit.controller.minPollingTime": "00:00:05",
            "hawkbit.controller.pollingTime": self.poll,
            "hawkbit.server.ddi.security.authentication.targettoken.enabled": "true",
        }
        # The environment, because other programs can read a command line.
        secret = {"HAWKBIT_SECURITY_USER_ADMIN_PASSWORD": "{noop}" + self.password}
        options = [f"--{key}={value}" for key, value in settings.items()]
        return ["java", "-Xmx1g", "-jar", str(Path(self.jar).absolute()), *options], secret

    def authorization(self):
        return "Basic " + base64.b64encode(f"admin:{self.password}".encode()).decode()

    def add_boards(self, boards: list[str]):
        while boards:
            some, boards = boards[:500], boards[500:]
            for board in some:
                self.tokens[board] = secrets.token_hex(16)
            self.request(
                "POST",
                "/rest/v1/targets",
                [
                    {"controllerId": board, "name": board, "securityToken": self.tokens[board]}
                    for board in some
                ],
            )

    def roll_out(self, swu: Path, version: str, groups: dict[str, list[str]]):
        self.groups = groups
        module = self.request(
            "POST",
            "/rest/v1/softwaremodules",
            [{"name": "firmware", "version": version, "type": "os"}],
        )[0]["id"]
        self.upload("POST", f"/rest/v1/softwaremodules/{module}/artifacts", swu)
        distribution = self.request(
            "POST",
            "/rest/v1/distributionsets",
            [{"name": "firmware", "version": version, "type": "os", "modules": [{"id": module}]}],
        )[0]["id"]
        everyone = [board for boards in groups.values() for board in boards]
        self.rollout = self.request(
            "POST",
            "/rest/v1/rollouts",
            {
                "name": f"firmware {version}",
                "distributionSetId": distribution,
                "targetFilterQuery": self.query(everyone),
                "type": "forced",
                "successCondition": {"condition": "THRESHOLD", "expression": "100"},
                "successAction": {"action": "NEXTGROUP", "expression": ""},
                "errorCondition": {"condition": "THRESHOLD", "expression": "1"},
                "errorAction": {"action": "PAUSE", "expression": ""},
                "groups": [
                    {"name": name, "targetPercentage": 100, "targetFilterQuery": self.query(boards)}
                    for name, boards in groups.items()
                ],
            },
        )["id"]
        while self.request("GET", f"/rest/v1/rollouts/{self.rollout}")["status"] != "ready":
            time.sleep(1)
        self.request("POST", f"/rest/v1/rollouts/{self.rollout}/start")

    @staticmethod
    def query(boards: list[str]) -> str:
        return f"controllerid=in=({','.join(boards)})" if len(boards) < 100 else "controllerid==*"

    def state(self) -> tuple[str, dict[str, str]]:
        """The roll-out's state, 'running', 'finished' or 'stopped', and that of each group."""
        status = self.request("GET", f"/rest/v1/rollouts/{self.rollout}")["status"]
        groups = self.request("GET", f"/rest/v1/rollouts/{self.rollout}/deploygroups")["content"]
        status = {"finished": "finished", "paused": "stopped"}.get(status, "running")
        return status, {group["name"]: group["status"] for group in groups}

    def boards(self) -> list[dict[str, str]]:
        rows = []
        for target in self.request("GET", f"{self.boards_path}?limit=500&sort=controllerId:asc")[
            "content"
        ]:
            board = target["controllerId"]
            actions = self.request("GET", f"/rest/v1/targets/{board}/actions?sort=id:desc")[
                "content"
            ]
            messages = []
            for action in actions[:1]:
                path = (
                    f"/rest/v1/targets/{board}/actions/{action['id']}/status?sort=id:asc&limit=100"
                )
                messages = [
                    text
                    for entry in self.request("GET", path)["content"]
                    for text in entry["messages"]
                ]
            version = (self.request("GET", f"/rest/v1/targets/{board}/attributes") or {}).get(
                "sw_version", ""
            )
            rows.append(
                {
                    "board": board,
                    "group": self.group_of(board),
                    "state": target["updateStatus"],
                    "version": version,
                    "messages": messages,
                }
            )
        return rows


class GooseBit(FleetServer):
    """gooseBit, installed in a folder of its own, with a database file. Its roll-outs have no
    groups that follow each other. So a group is a feed, and state() opens the next feed or stops."""

    name = "gooseBit"
    boards_path = "/api/v1/devices"
    offers_by_hardware = True

    def __init__(self, folder: Path, port: int, python: str, poll: str = "00:00:05"):
        super().__init__(folder, port)
        self.python, self.poll, self.version, self.rollouts = python, poll, "", {}
        self.bearer = ""

    def start(self, patience: int = 300):
        self.bearer = ""  # it is good for one run of the server
        super().start(patience)

    def command(self):
        return [self.python, "-B", str(HERE / "goosebit_start.py"), str(self.port)], {
            "GOOSEBIT_DB_URI": f"sqlite://{self.folder}/database",
            "GOOSEBIT_ARTIFACTS_DIR": str(self.folder / "artifacts"),
            "GOOSEBIT_DEVICE_AUTH__ENABLE": "true",
            "GOOSEBIT_DEVICE_AUTH__MODE": "strict",
            "GOOSEBIT_POLL_TIME": self.poll,
            "FLEET_PASSWORD": self.password,
        }

    def authorization(self):
        if not self.bearer:
            form = f"username=maker&password={self.password}".encode()
            answer = self.request(
                "POST", "/login", form, "application/x-www-form-urlencoded", "none"
            )
            self.bearer = "Bearer " + answer["access_token"]
        return self.bearer

    def add_boards(self, boards: list[str]):
        for board in boards:
            self.tokens[board] = secrets.token_hex(16)
            self.request(
                "PUT", "/api/v1/devices", {"devices": [board], "auth_token": self.tokens[board]}
            )

    def roll_out(self, swu: Path, version: str, groups: dict[str, list[str]]):
        self.groups, self.version, self.rollouts = groups, version, {}
        for name, boards in groups.items():
            self.request("PATCH", "/api/v1/devices", {"devices": boards, "feed": name})
        self.software = self.upload("PUT", "/api/v1/software", swu)["id"]
        self.open_next()

    def open_next(self):
        name = next(name for name in self.groups if name not in self.rollouts)
        self.rollouts[name] = self.request(
            "PUT",
            "/api/v1/rollouts",
            {"name": self.version, "feed": name, "software_id": self.software},
        )["id"]

    def state(self):
        counts = {each["id"]: each for each in self.request("GET", "/api/v1/rollouts")["rollouts"]}
        groups = dict.fromkeys(self.groups, "scheduled")
        for name, rollout in self.rollouts.items():
            good, bad = counts[rollout]["success_count"], counts[rollout]["failure_count"]
            if bad:
                self.request("PATCH", "/api/v1/rollouts", {"ids": [rollout], "paused": True})
                return "stopped", {**groups, name: "error"}
            groups[name] = "finished" if good >= len(self.groups[name]) else "running"
        if "running" in groups.values():
            return "running", groups
        if "scheduled" in groups.values():
            self.open_next()
            return "running", groups
        return "finished", groups

    def boards(self):
        rows = []
        for device in sorted(
            self.request("GET", self.boards_path)["devices"], key=lambda each: each["id"]
        ):
            log = self.request("GET", f"/api/v1/devices/{device['id']}/log")["log"] or ""
            rows.append(
                {
                    "board": device["id"],
                    "group": self.group_of(device["id"]),
                    "state": device["last_state"].lower(),
                    "version": device["sw_version"] or "",
                    "messages": log.splitlines(),
                }
            )
        return rows
