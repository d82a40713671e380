#!/usr/bin/python3
"""Serves one Matroska file with H.264 and AAC over RTSP, by GStreamer's RTSP server.

usage: rtsp_server.py PORT FILE [PROTOCOLS [USER PASSWORD]]

PROTOCOLS: "any" (default), "tcp" (refuses UDP) or "blocked" (offers UDP, of which nothing arrives; takes PORT + 1
too). With a user, /clip asks for digest authentication.
Paths: /clip, /bare (the description lacks the H.264 parameter sets, which come in band instead), /speech (a
second audio stream beside those of /clip, in G.711).
Prints "ready" when it accepts connections. Each session plays the file from its start.
"""
import re
import socket
import sys
import threading

import gi

gi.require_version("Gst", "1.0")
gi.require_version("GstRtsp", "1.0")
gi.require_version("GstRtspServer", "1.0")
from gi.repository import GLib, Gst, GstRtsp, GstRtspServer  # noqa: E402


def relay(source, sink, hides_ports):
    while data := source.recv(65536):
        if hides_ports:  # the server sends to ports that nobody listens on, as a firewall would have it
            data = re.sub(rb"client_port=\d+-\d+", b"client_port=64998-64999", data)
        sink.sendall(data)
    sink.shutdown(socket.SHUT_RDWR)


def stand_before(listener, port):
    while True:
        client = listener.accept()[0]
        server = socket.create_connection(("127.0.0.1", port))
        threading.Thread(target=relay, args=(client, server, True), daemon=True).start()
        threading.Thread(target=relay, args=(server, client, False), daemon=True).start()


def factory(path, bare, protocols, more=""):
    # A description without parameter sets: the payloader's caps are replaced by ones that lack them.
    video = "rtph264pay name=pay0 pt=96"
    if bare:
        video = (
            "rtph264pay pt=96 config-interval=-1 ! capssetter name=pay0 replace=true join=false "
            "caps=application/x-rtp,media=video,clock-rate=90000,encoding-name=H264,payload=96"
        )
    media = GstRtspServer.RTSPMediaFactory()
    media.set_launch(
        f"( filesrc location={path} ! matroskademux name=d "
        f"d. ! queue ! h264parse ! {video} "
        f"d. ! queue ! aacparse ! rtpmp4gpay name=pay1 pt=97 {more} )"
    )
    if protocols == "tcp":
        media.set_protocols(GstRtsp.RTSPLowerTrans.TCP)
    return media


def main():
    Gst.init(None)
    port, path = sys.argv[1], sys.argv[2]
    protocols = sys.argv[3] if len(sys.argv) > 3 else "any"
    server = GstRtspServer.RTSPServer()
    server.set_address("127.0.0.1")
    if protocols == "blocked":
        firewall = socket.create_server(("127.0.0.1", int(port)))
        port = str(int(port) + 1)
        threading.Thread(target=stand_before, args=(firewall, int(port)), daemon=True).start()
    server.set_service(port)
    mounts = server.get_mount_points()
    clip = factory(path, False, protocols)
    if len(sys.argv) > 5:
        user, password = sys.argv[4], sys.argv[5]
        auth = GstRtspServer.RTSPAuth()
        auth.set_supported_methods(GstRtsp.RTSPAuthMethod.DIGEST)
        token = GstRtspServer.RTSPToken()
        token.set_string("media.factory.role", "viewer")
        auth.add_digest(user, password, token)
        server.set_auth(auth)
        permissions = GstRtspServer.RTSPPermissions()
        permissions.add_permission_for_role("viewer", "media.factory.access", True)
        permissions.add_permission_for_role("viewer", "media.factory.construct", True)
        clip.set_permissions(permissions)
    mounts.add_factory("/clip", clip)
    mounts.add_factory("/bare", factory(path, True, protocols))
    speech = "audiotestsrc num-buffers=50 ! mulawenc ! rtppcmupay name=pay2"
    mounts.add_factory("/speech", factory(path, False, protocols, speech))
    if server.attach(None) == 0:
        sys.exit("the port is taken")
    print("ready", flush=True)
    GLib.MainLoop().run()


main()
