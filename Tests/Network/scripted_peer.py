"""A host that is no good peer: what it does with a TCP connection is named on the command line.

    scripted_peer.py silent PORT           accepts, and says nothing
    scripted_peer.py garbage PORT          answers with bytes that are no HTTP
    scripted_peer.py endless PORT          begins an answer whose header never ends
    scripted_peer.py huge PORT             answers with a body of 100 MB
    scripted_peer.py record PORT SECONDS   answers "/service", by a clock so many seconds ahead; refuses WebSockets

    scripted_peer.py mute PORT             likewise by the right clock; opens WebSockets, and says nothing on them

Says {"event": "listening"} once it does, and {"event": "request", "path": ...} for each request that it answers,
{"event": "frame", "opcode": ..., "data": ...} for each that arrives on a WebSocket.
"""

import base64
import email.utils
import hashlib
import json
import socket
import sys
import threading
import time

RECORD = json.dumps({"hostName": "SCRIPTED.LOCAL.", "port": 16654, "name": "F0F0-MQ==/\x1b[31mRED SUITE"})


def say(**members):
    print(json.dumps(members), flush=True)


def request_of(connection):
    text = b""
    while b"\r\n\r\n" not in text:
        piece = connection.recv(4096)
        if not piece:
            return None
        text += piece
    return text.decode()


def answer(connection, status, body, ahead):
    date = email.utils.formatdate(time.time() + ahead, usegmt=True)
    connection.sendall(f"HTTP/1.1 {status}\r\nDate: {date}\r\nContent-Length: {len(body)}\r\n\r\n{body}".encode())


def exactly(connection, count):
    data = b""
    while len(data) < count:
        piece = connection.recv(count - len(data))
        if not piece:
            raise OSError("closed")
        data += piece
    return data


def hear_socket(connection, request):
    """Answers the handshake, tells of each frame (they are short), and answers nothing but a close."""
    key = next(line.split(": ")[1] for line in request.split("\r\n") if line.lower().startswith("sec-websocket-key"))
    digest = hashlib.sha1((key + "258EAFA5-E914-47DA-95CA-C5AB0DC85B11").encode()).digest()
    connection.sendall(b"HTTP/1.1 101 Switching Protocols\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n"
                       b"Sec-WebSocket-Accept: " + base64.b64encode(digest) + b"\r\n\r\n")
    opcode = None
    while opcode != 8:
        first, second = exactly(connection, 2)
        opcode, length = first & 15, second & 127
        if length == 126:
            length = int.from_bytes(exactly(connection, 2), "big")
        mask = exactly(connection, 4)
        data = bytes(byte ^ mask[i % 4] for i, byte in enumerate(exactly(connection, length)))
        say(event="frame", opcode=opcode, data=data.decode("latin-1"))
    connection.sendall(bytes([0x88, len(data)]) + data)


def serve(connection, mode, ahead):
    if mode == "silent":
        connection.recv(1)
        time.sleep(3600)
    request = request_of(connection)
    if request is None:
        return
    path = request.split(" ")[1]
    if mode == "mute" and path.startswith("/frxsocket"):
        hear_socket(connection, request)
    elif mode == "garbage":
        connection.sendall(b"\xff\x00\x1b[2J\x07 no HTTP at all\r\n\r\n")
    elif mode == "endless":
        connection.sendall(b"HTTP/1.1 200 OK\r\n")
        while True:
            connection.sendall(b"X-More: more\r\n")
            time.sleep(0.05)
    elif mode == "huge":
        connection.sendall(b"HTTP/1.1 200 OK\r\nContent-Length: 100000000\r\n\r\n")
        for _ in range(100):
            connection.sendall(b"x" * 1000000)
    else:
        good = path == "/service"
        answer(connection, "200 OK" if good else "404 Not Found", RECORD if good else "", ahead)
    say(event="request", path=path)


def serve_quietly(connection, mode, ahead):
    try:
        serve(connection, mode, ahead)
    except OSError:  # the client has had enough
        pass
    connection.close()


def main(mode, port, ahead="0"):
    listener = socket.create_server(("", int(port)))
    say(event="listening")
    while True:
        connection = listener.accept()[0]
        threading.Thread(target=serve_quietly, args=(connection, mode, float(ahead)), daemon=True).start()


main(*sys.argv[1:])
