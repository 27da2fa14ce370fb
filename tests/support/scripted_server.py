"""A master server's web service that answers what a script says: for replies that no good server gives.

The script is a JSON list of rules, tried in order; the first that fits a request answers it:

    {"method": "PUT", "path": "<regular expression>", "times": 2, "answer": {...}}

Method, path and times may be left out. An answer holds one of
    "status" with "body" (text), "headers" (replacing the usual ones): a plain reply,
    "raw": bytes in base64, sent as they are, after which the connection is closed,
    "behaviour": "close", "reset" or "silence" before any reply;
beside any of them "delay" holds the reply back for so many seconds.
A rule with "connection" instead of "answer" acts before TLS: {"raw": ...} or {"behaviour": ...}.
What no rule names is answered as a good server would: a token, the body of a PUT, an empty list of hosts.
"""

import argparse
import base64
import http.server
import json
import pathlib
import re
import socket
import ssl
import struct
import threading
import time

SILENCE_SECONDS = 600


class Script:
    """The rules, with what is left of those that hold for a number of times."""

    def __init__(self, rules):
        self._rules = [dict(rule) for rule in rules]
        self._lock = threading.Lock()

    def answer(self, method, path):
        with self._lock:
            for rule in self._rules:
                if "answer" in rule and self._fits(rule, method, path):
                    rule["times"] = rule.get("times", -1) - 1
                    return rule["answer"]
        return None

    def connection(self):
        with self._lock:
            for rule in self._rules:
                if "connection" in rule and rule.get("times", -1) != 0:
                    rule["times"] = rule.get("times", -1) - 1
                    return rule["connection"]
        return None

    @staticmethod
    def _fits(rule, method, path):
        return (
            rule.get("times", -1) != 0
            and rule.get("method", method) == method
            and re.search(rule.get("path", ""), path) is not None
        )


def usual_answer(method, path, body):
    """What a good server without any hosts says."""
    if path.endswith("/security/tokens"):
        token = {"token": f"token-{time.monotonic_ns()}", "expiresIn": 3600}
        return {"status": 201, "body": json.dumps(token)}
    if method == "PUT":
        return {"status": 200, "body": body}
    if method == "DELETE":
        return {"status": 204, "body": ""}
    return {"status": 200, "body": '{"hosts":[]}'}


def host_names(certificate):
    return [value for kind, value in certificate.get("subjectAltName", ()) if kind == "DNS"]


def misbehave(connection, behaviour):
    """Ends or holds a connection without a reply."""
    if behaviour == "reset":
        connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
    elif behaviour == "silence":
        time.sleep(SILENCE_SECONDS)
    connection.close()


class Handler(http.server.BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"

    def handle_one_request(self):
        try:
            super().handle_one_request()
        except (ssl.SSLError, ConnectionError):
            self.close_connection = True

    def take(self):
        body = self.rfile.read(int(self.headers.get("Content-Length", 0))).decode()
        self.server.keep(
            {
                "method": self.command,
                "path": self.path.lstrip("/"),
                "headers": {name.lower(): value for name, value in self.headers.items()},
                "body": body,
                "client": host_names(self.connection.getpeercert() or {}),
            }
        )
        path = self.path.lstrip("/")
        self.reply(self.server.script.answer(self.command, path) or usual_answer(self.command, path, body))

    do_GET = do_PUT = do_POST = do_DELETE = take

    def reply(self, answer):
        time.sleep(answer.get("delay", 0))
        if "behaviour" in answer:
            self.close_connection = True
            misbehave(self.connection, answer["behaviour"])
        elif "raw" in answer:
            self.close_connection = True
            self.wfile.write(base64.b64decode(answer["raw"]))
        else:
            self.reply_plainly(answer)

    def reply_plainly(self, answer):
        body = answer.get("body", "").encode("utf-8", "surrogateescape")
        headers = {"Content-Type": "application/json"}
        if answer["status"] != 204:
            headers["Content-Length"] = str(len(body))
        self.send_response(answer["status"])
        for name, value in (headers | answer.get("headers", {})).items():
            self.send_header(name, value)
        self.end_headers()
        if answer["status"] != 204:
            self.wfile.write(body)

    def log_message(self, *_arguments):
        """The requests file tells all that a test asks about."""


class Server(http.server.ThreadingHTTPServer):
    daemon_threads = True

    def __init__(self, address, context, script, requests):
        super().__init__((address, 1556), Handler)
        self.context = context
        self.script = script
        self._requests = requests
        self._lock = threading.Lock()

    def keep(self, request):
        with self._lock, open(self._requests, "a", encoding="utf-8") as file:
            file.write(json.dumps(request) + "\n")

    def finish_request(self, request, client_address):
        rule = self.script.connection()
        if rule is None:
            try:
                secured = self.context.wrap_socket(request, server_side=True)
            except (ssl.SSLError, OSError):
                return
            super().finish_request(secured, client_address)
            secured.close()
        elif "raw" in rule:
            request.sendall(base64.b64decode(rule["raw"]))
        else:
            misbehave(request, rule["behaviour"])

    def handle_error(self, request, client_address):
        """A client that hangs up is nothing to report."""


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--listen", required=True)
    parser.add_argument("--certificate", required=True, type=pathlib.Path, help="with its key, PEM")
    parser.add_argument("--authority", required=True, type=pathlib.Path)
    parser.add_argument("--script", required=True, type=pathlib.Path)
    parser.add_argument("--requests", required=True, type=pathlib.Path)
    arguments = parser.parse_args()
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    context.load_cert_chain(arguments.certificate)
    context.load_verify_locations(arguments.authority)
    context.verify_mode = ssl.CERT_OPTIONAL
    script = Script(json.loads(arguments.script.read_text(encoding="utf-8")))
    Server(arguments.listen, context, script, arguments.requests).serve_forever()


if __name__ == "__main__":
    main()
