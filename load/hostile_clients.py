"""Plays hostile clients against a running dme-device-server and measures how an authenticated
client is served meanwhile (loopback only; attackers use other loopback source addresses).

    python3 load/hostile_clients.py PORT

Phases: none (the baseline), 500 connections sending one header byte a second (from
127.0.0.2), and right after a burst of 1,000 connections given a partial request line and
closed at once (from 127.0.0.3). In each phase the client reads /api/system/hostname as admin,
one request after another on fresh connections, and the script prints the count, the errors
and the latency p50 / p99 / maximum.
"""
import base64
import socket
import statistics
import sys
import threading
import time

PORT = int(sys.argv[1])
AUTH = base64.b64encode(b"admin:admin").decode()
REQUEST = (f"GET /api/system/hostname HTTP/1.1\r\nHost: device\r\nAuthorization: Basic {AUTH}\r\n"
           "Connection: close\r\n\r\n").encode()


def served_once():
    start = time.monotonic()
    with socket.create_connection(("127.0.0.1", PORT), timeout=10) as client:
        client.sendall(REQUEST)
        answer = b""
        while True:
            chunk = client.recv(4096)
            if not chunk:
                break
            answer += chunk
    return time.monotonic() - start, answer.startswith(b"HTTP/1.1 200")


def measure(name, seconds):
    latencies, errors = [], 0
    deadline = time.monotonic() + seconds
    while time.monotonic() < deadline:
        try:
            latency, ok = served_once()
            latencies.append(latency)
            errors += 0 if ok else 1
        except OSError:
            errors += 1
    latencies.sort()
    p99 = latencies[int(len(latencies) * 0.99) - 1] if latencies else float("nan")
    print(f"{name}: {len(latencies)} requests, {errors} errors, p50 "
          f"{statistics.median(latencies) * 1000:.2f} ms, p99 {p99 * 1000:.2f} ms, max "
          f"{max(latencies) * 1000:.2f} ms", flush=True)


def attacker(source):
    attack = socket.socket()
    attack.setblocking(False)
    attack.bind((source, 0))
    try:
        attack.connect(("127.0.0.1", PORT))
    except BlockingIOError:
        pass
    return attack


def slow_clients(stop):
    sockets = [attacker("127.0.0.2") for _ in range(500)]
    line = b"GET /api/system HTTP/1.1\r\nX-Slow: " + b"a" * 1000
    position = 0
    while not stop.is_set():
        for index, slow in enumerate(sockets):
            try:
                slow.send(line[position:position + 1])
            except OSError:
                slow.close()
                sockets[index] = attacker("127.0.0.2")
        position = (position + 1) % len(line)
        stop.wait(1)
    for slow in sockets:
        slow.close()


def dead_burst():
    for _ in range(1000):
        dead = attacker("127.0.0.3")
        try:
            dead.send(b"GET /api/na")
        except OSError:
            pass
        dead.close()


measure("baseline", 10)
stop = threading.Event()
thread = threading.Thread(target=slow_clients, args=(stop,))
thread.start()
time.sleep(2)
measure("500 slow connections", 20)
dead_burst()
measure("after 1,000 dead connections (slow ones still going)", 20)
stop.set()
thread.join()
