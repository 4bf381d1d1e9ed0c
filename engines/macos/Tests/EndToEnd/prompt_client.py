#!/usr/bin/python3
"""prompt_client.py SOCKET PROGRAM ARGUMENT...: asks the prompt server to run the program as administrator."""

import array
import json
import socket
import sys

with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as connection:
    connection.connect(sys.argv[1])
    connection.sendmsg(
        [json.dumps(sys.argv[2:]).encode()],
        [(socket.SOL_SOCKET, socket.SCM_RIGHTS, array.array("i", [0, 1, 2]))],
    )
    status = connection.recv(1)
sys.exit(status[0] if status else 1)
