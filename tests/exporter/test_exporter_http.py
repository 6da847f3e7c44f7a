"""The HTTP side: answers, negotiation, who may ask, and bounds on what a client can take."""

import base64
import contextlib
import http.client
import os
import socket
import ssl
import subprocess
import threading
import time
from pathlib import Path

import exporting
import pytest
from exporting import exporting as exporter_on
from exporting import run, wait_for

TEXT = "text/plain; version=0.0.4; charset=utf-8"
OPEN_METRICS = "application/openmetrics-text; version=1.0.0; charset=utf-8"

# What Prometheus 2.42 asks with
PROMETHEUS = ("application/openmetrics-text;version=1.0.0,application/openmetrics-text;version=0.0.1;q=0.75,"
              "text/plain;version=0.0.4;q=0.5,*/*;q=0.1")  # fmt: skip

UNDER_ASAN = "libasan" in os.environ.get("LD_PRELOAD", "")


@pytest.fixture(scope="module")
def exporter(default_host):
    with exporter_on(default_host, "--interval", "1", "--host-name", "hv0.example") as running:
        yield running


def connect(exporter: exporting.Exporter) -> socket.socket:
    return socket.create_connection((exporter.address, exporter.port), timeout=exporting.PATIENCE)


def raw(exporter: exporting.Exporter, request: bytes) -> bytes:
    """All that comes back until the connection is closed."""
    with connect(exporter) as connection:
        connection.sendall(request)
        answer = b""
        while piece := connection.recv(65536):
            answer += piece
    return answer


@pytest.mark.parametrize("method, path, status", [
    ("GET", "/metrics", 200), ("GET", "/", 200), ("GET", "/healthy", 200), ("GET", "/metrics?x=1", 200),
    ("GET", "/metric", 404), ("GET", "/metrics/", 404), ("GET", "//", 404), ("POST", "/nothing", 404),
    ("POST", "/metrics", 405), ("PUT", "/", 405), ("DELETE", "/healthy", 405), ("OPTIONS", "/metrics", 405),
])  # fmt: skip
def test_status(exporter, method, path, status):
    response, _ = exporter.request(path, method)
    assert response.status == status
    if status == 405:
        assert response.headers["Allow"] == "GET, HEAD"


@pytest.mark.parametrize("path", ["/metrics", "/", "/healthy"])
def test_head_is_get_without_a_body(exporter, path):
    response, body = exporter.request(path, "HEAD")
    assert (response.status, body) == (200, b"")
    assert int(response.headers["Content-Length"]) > 2


def test_a_connection_serves_several_requests(exporter):
    with contextlib.closing(http.client.HTTPConnection(exporter.address, exporter.port)) as connection:
        for _ in range(3):
            connection.request("GET", "/healthy")
            assert connection.getresponse().read() == b"ok\n"
            kept = connection.sock
        assert kept is connection.sock is not None


def test_landing_page(exporter):
    response, body = exporter.request("/")
    assert response.headers["Content-Type"] == "text/html; charset=utf-8"
    page = body.decode()
    assert '<a href="/metrics">' in page and "simulated" in page
    assert page.count("<td>ok</td>") == 7


@pytest.mark.parametrize("host, status", [
    ("localhost", 200), ("LocalHost:1", 200), ("127.0.0.1", 200), ("127.0.0.1:9717", 200), ("hv0.example", 200),
    ("HV0.example:80", 200), ("127.0.0.2", 403), ("evil.example", 403), ("localhost.evil.example", 403), ("", 403),
    ("localhost:x", 403), ("localhost:80:80", 403), ("[::1]", 403), ("[localhost]", 403), ("hv0", 403),
    ("localhost, evil.example", 403), ("localhost:123456", 403),
])  # fmt: skip
def test_host_header(exporter, host, status):
    assert exporter.request("/metrics", Host=host)[0].status == status


def test_two_host_headers_are_refused(exporter):
    answer = raw(exporter, b"GET / HTTP/1.1\r\nHost: localhost\r\nHost: evil\r\nConnection: close\r\n\r\n")
    assert answer.startswith((b"HTTP/1.1 403 ", b"HTTP/1.1 400 "))


def test_ipv6_address(default_host):
    try:
        running = exporting.Exporter(default_host, address="[::1]")
    except RuntimeError as error:
        pytest.skip(f"no IPv6 here: {error}")
    try:
        assert running.request("/healthy", Host=f"[::1]:{running.port}")[0].status == 200
        assert running.request("/healthy", Host="127.0.0.1")[0].status == 403
    finally:
        running.kill()


@pytest.mark.parametrize("accept, kind", [
    (None, TEXT), ("", TEXT), ("*/*", TEXT), ("text/plain", TEXT), (PROMETHEUS, OPEN_METRICS),
    ("application/openmetrics-text", OPEN_METRICS), ("application/openmetrics-text; version=1.0.0", OPEN_METRICS),
    ('Application/OpenMetrics-Text; Version="1.0.0"', OPEN_METRICS), ("application/*", OPEN_METRICS),
    ("application/openmetrics-text; version=0.0.1", TEXT), ("application/openmetrics-text; version=2.0.0", TEXT),
    ("application/openmetrics-text, text/plain", TEXT),
    ("text/plain;q=0.5, application/openmetrics-text", OPEN_METRICS),
    ("text/plain, application/openmetrics-text;q=0.9", TEXT), ("text/html", TEXT), ("text/html;q=x,*/*;q=0.1", TEXT),
    ("application/openmetrics-text;q=0", TEXT), ("application/openmetrics-text;q=0.001, text/plain;q=0", OPEN_METRICS),
    ("*/*, application/openmetrics-text;q=0.5", TEXT), ("*/*;q=0.4, application/openmetrics-text;q=0.5", OPEN_METRICS),
    ("application/openmetrics-text;q=2", TEXT), ("application/openmetrics-text;q=0.5;x=\"a,b\", text/plain;q=0.4",
                                                 OPEN_METRICS),
    ("text/*;q=0.9, application/openmetrics-text;q=0.91", OPEN_METRICS),
    (",,;;==\"", TEXT), ("text/plain;q=1.001", TEXT),
])  # fmt: skip
def test_accept(exporter, accept, kind):
    headers = {} if accept is None else {"Accept": accept}
    response, body = exporter.request("/metrics", **headers)
    assert (response.status, response.headers["Content-Type"]) == (200, kind)
    assert body.endswith(b"# EOF\n") == (kind == OPEN_METRICS)
    assert "Accept" in response.headers["Vary"]


def test_accept_in_several_headers(exporter):
    answer = raw(exporter, b"GET /metrics HTTP/1.1\r\nHost: localhost\r\nAccept: text/plain;q=0.3\r\n"
                           b"Accept: application/openmetrics-text\r\nConnection: close\r\n\r\n")  # fmt: skip
    assert b"Content-Type: " + OPEN_METRICS.encode() in answer


@pytest.mark.parametrize("accepted, gzipped", [
    (None, False), ("gzip", True), ("deflate, gzip;q=0.5", True), ("x-gzip", True), ("*", True), ("gzip;q=0", False),
    ("gzip;q=0, *", False), ("identity, gzip;q=0.5", False), ("identity;q=0.5, gzip", True), ("br", False),
    ("gzip;q=bad", False), ("GZIP", True),
])  # fmt: skip
def test_accept_encoding(exporter, accepted, gzipped):
    response, body = exporter.request("/metrics", **({} if accepted is None else {"Accept_Encoding": accepted}))
    assert response.status == 200
    assert (response.headers["Content-Encoding"] == "gzip") == gzipped == body.startswith(b"\x1f\x8b")


# ---- TLS and passwords -----------------------------------------------------------------------------------------------


@pytest.fixture(scope="module")
def secrets(tmp_path_factory: pytest.TempPathFactory) -> Path:
    folder = tmp_path_factory.mktemp("secrets")
    command = ["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes"]
    command += ["-keyout", str(folder / "key.pem"), "-out", str(folder / "cert.pem"), "-days", "2"]
    command += ["-subj", "/CN=localhost", "-addext", "subjectAltName=DNS:localhost,IP:127.0.0.1"]
    subprocess.run(command, check=True, capture_output=True)
    hashes = [
        subprocess.run(["openssl", "passwd", "-5", word], check=True, text=True, capture_output=True).stdout.strip()
        for word in ("pässword", "other")
    ]
    (folder / "users").write_text(f"# who may ask\nprometheus:{hashes[0]}\n\nadmin:{hashes[1]}\n")
    return folder


def basic(name: str, password: str) -> str:
    return "Basic " + base64.b64encode(f"{name}:{password}".encode()).decode()


def test_users(default_host, secrets):
    with exporter_on(default_host, "--users", secrets / "users") as exporter:
        for path in ("/metrics", "/", "/healthy", "/nothing"):
            response, body = exporter.request(path)
            assert (response.status, b"ryn_" in body) == (401, False)
            assert response.headers["WWW-Authenticate"].startswith('Basic realm="ryn-exporter"')
            time.sleep(0.3)
        for name, password in (("prometheus", "pässword"), ("admin", "other"), ("prometheus", "pässword")):
            assert exporter.request("/metrics", Authorization=basic(name, password))[0].status == 200
        time.sleep(1.1)
        for wrong in (basic("prometheus", "other"), basic("nobody", "other"), "Basic !!!", "Bearer x"):
            assert exporter.request("/metrics", Authorization=wrong)[0].status == 401


def test_wrong_passwords_do_not_keep_others_out(default_host, secrets):
    with exporter_on(default_host, "--users", secrets / "users") as exporter:
        right = basic("prometheus", "pässword")
        assert exporter.request("/metrics", Authorization=right)[0].status == 200
        statuses = [exporter.request("/metrics", Authorization=basic("admin", str(n)))[0].status for n in range(20)]
        assert set(statuses) == {401, 429}
        assert exporter.request("/metrics", Authorization=right)[0].status == 200


@pytest.mark.parametrize("line", ["prometheus", "prometheus:", ":$5$x$y", "prometheus:secret", "a:$9$x"])
def test_users_file_is_checked(default_host, tmp_path, line):
    (tmp_path / "users").write_text(line + "\n")
    done = run(default_host, "--users", tmp_path / "users")
    assert done.returncode == 2
    assert f"{tmp_path}/users:1: expected NAME:HASH" in done.stderr
    (tmp_path / "users").write_text("# nobody\n")
    assert run(default_host, "--users", tmp_path / "users").returncode == 2


def test_tls_with_users_listens_anywhere(default_host, secrets):
    files = ("--tls-cert", secrets / "cert.pem", "--tls-key", secrets / "key.pem", "--users", secrets / "users")
    context = ssl.create_default_context(cafile=str(secrets / "cert.pem"))
    with exporter_on(default_host, *files, address="0.0.0.0") as exporter:
        for accepted in ("identity", "gzip"):
            connection = http.client.HTTPSConnection("127.0.0.1", exporter.port, context=context, timeout=30)
            with contextlib.closing(connection):
                connection.request("GET", "/metrics", headers={"Authorization": basic("admin", "other"),
                                                               "Accept-Encoding": accepted})  # fmt: skip
                response = connection.getresponse()
                assert response.status == 200
                assert len(response.read()) > 5000
        exporter.address = "127.0.0.1"
        with contextlib.suppress(OSError, http.client.HTTPException):
            assert b"ryn_up" not in exporter.request("/metrics")[1]  # no plain text


def test_tls_wants_a_certificate_that_fits(default_host, secrets):
    done = run(default_host, "--tls-cert", secrets / "key.pem", "--tls-key", secrets / "cert.pem")
    assert done.returncode == 2
    assert "cert.pem" in done.stderr


# ---- Bounds ----------------------------------------------------------------------------------------------------------


def headers_of(size: int) -> bytes:
    """A request whose head has that many bytes."""
    head, end = b"GET /healthy HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\nX: ", b"\r\n\r\n"
    return head + b"x" * (size - len(head) - len(end)) + end


def test_headers_of_more_than_8_kib_are_refused(exporter):
    assert raw(exporter, headers_of(8192)).startswith(b"HTTP/1.1 200 ")
    assert raw(exporter, headers_of(8193)).startswith(b"HTTP/1.1 431 ")
    assert raw(exporter, headers_of(12000)).startswith(b"HTTP/1.1 431 ")
    many = b"GET / HTTP/1.1\r\nHost: localhost\r\n" + b"a:b\r\n" * 1500 + b"\r\n"
    assert raw(exporter, many).startswith(b"HTTP/1.1 431 ")
    assert raw(exporter, b"GET /" + b"x" * 20000 + b" HTTP/1.1\r\nHost: localhost\r\n\r\n")[9:12] in (b"414", b"431")


@pytest.mark.parametrize("request_", [
    b"GET /metrics\r\n\r\n", b"\r\n\r\n\r\n", b"GET  HTTP/1.1\r\n\r\n", b"\x16\x03\x01\x02\x00\x01", b"\0" * 100,
    b"GET / HTTP/9.9\r\n\r\n", b"GET / HTTP/1.1\r\n\r\n", b"GET / HTTP/1.1\r\nHost localhost\r\n\r\n",
    b"GET / HTTP/1.1\r\nHost: localhost\r\nContent-Length: -1\r\n\r\n",
    b"GET / HTTP/1.1\r\nHost: localhost\r\nTransfer-Encoding: chunked\r\n\r\nzzz\r\n",
    b"POST /metrics HTTP/1.1\r\nHost: localhost\r\nContent-Length: 99999999999999999999\r\n\r\n",
], ids=repr)  # fmt: skip
def test_nonsense_does_no_harm(exporter, request_):
    with connect(exporter) as connection:
        connection.sendall(request_)
        connection.shutdown(socket.SHUT_WR)
        answer = connection.recv(65536)
    assert not answer.startswith(b"HTTP/1.1 200") or b"ryn_" not in answer
    assert exporter.request("/healthy")[0].status == 200


def test_a_byte_a_second_buys_no_more_than_five_seconds(exporter):
    start = time.monotonic()
    with connect(exporter) as slow, connect(exporter) as idle:
        idle.settimeout(exporting.PATIENCE)
        with contextlib.suppress(OSError):
            for byte in headers_of(200):
                slow.sendall(bytes([byte]))
                time.sleep(0.5)
        assert 4.5 < time.monotonic() - start < 8
        assert idle.recv(1) == b""
        assert time.monotonic() - start < 8


def test_slow_clients_keep_nobody_out(default_host):
    """A thousand come and go, half of them with a request that they do not read the answer of."""
    with exporter_on(default_host, "--interval", "0.2") as exporter:
        exporter.request("/metrics")
        rest = exporter.status("VmRSS")
        stop = threading.Event()
        opened = [0]

        def crowd() -> None:
            held: list[socket.socket] = []
            while not stop.is_set():
                with contextlib.suppress(OSError):
                    client = connect(exporter)
                    client.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 2048)
                    whole = opened[0] % 2
                    client.sendall(b"GET /metrics HTTP/1.1\r\nHost: localhost\r\n" + whole * b"\r\n")
                    held.append(client)
                    opened[0] += 1
                if len(held) > 100:
                    held.pop(0).close()
                time.sleep(0.01)
            for client in held:
                client.close()

        threads = [threading.Thread(target=crowd) for _ in range(4)]
        for thread in threads:
            thread.start()
        slowest = most_descriptors = largest = 0.0
        try:
            end = time.monotonic() + exporting.PATIENCE
            while opened[0] < 1000 and time.monotonic() < end:
                start = time.monotonic()
                samples = exporter.scrape()
                slowest = max(slowest, time.monotonic() - start)
                assert float(samples[exporting.series("ryn_collector_age_seconds", collector="port")]) < 10
                most_descriptors = max(most_descriptors, exporter.descriptors())
                largest = max(largest, exporter.status("VmRSS"))
                time.sleep(0.05)
        finally:
            stop.set()
            for thread in threads:
                thread.join()
        assert opened[0] >= 1000
        assert slowest < 15
        assert 100 < most_descriptors <= 300
        if not UNDER_ASAN:
            assert largest - rest <= 24 * 1024
        wait_for(lambda: exporter.descriptors() < 30)


def test_at_most_256_connections(default_host):
    with exporter_on(default_host) as exporter:
        clients = [connect(exporter) for _ in range(400)]
        try:
            assert exporter.request("/healthy", timeout=5)[0].status == 200
            assert exporter.descriptors() <= 300
        finally:
            for client in clients:
                client.close()


def test_memory_stays_where_it_is(default_host):
    """10,000 scrapes in all formats, through rounds that come and go."""
    if UNDER_ASAN:
        pytest.skip("a sanitizer keeps freed memory")
    kinds = [{}, {"Accept": PROMETHEUS}, {"Accept-Encoding": "gzip"}, {"Accept": PROMETHEUS, "Accept-Encoding": "gzip"}]

    def scrape(exporter: exporting.Exporter, count: int) -> None:
        with contextlib.closing(http.client.HTTPConnection(exporter.address, exporter.port)) as connection:
            for n in range(count):
                connection.request("GET", "/metrics", headers=kinds[n % 4])
                response = connection.getresponse()
                assert response.status == 200
                response.read()

    with exporter_on(default_host, "--interval", "0.1") as exporter:
        scrape(exporter, 500)
        before, descriptors = exporter.status("VmRSS"), exporter.descriptors()
        assert before <= 10 * 1024
        scrape(exporter, 10_000)
        assert exporter.status("VmRSS") - before <= 512
        assert exporter.status("VmRSS") <= 10 * 1024
        wait_for(lambda: exporter.descriptors() <= descriptors)


def test_memory_on_a_large_host(tmp_path):
    if UNDER_ASAN:
        pytest.skip("a sanitizer keeps freed memory")
    host = exporting.SimulatedHost(tmp_path / "large.db", "large")
    with exporter_on(host, "--interval", "1") as exporter:
        for accepted in ("identity", "gzip"):
            _, body = exporter.request("/metrics", Accept_Encoding=accepted)
        assert exporter.text().count("\n") > 40_000
        assert exporter.status("VmRSS") <= 32 * 1024
