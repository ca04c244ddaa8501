# Free loopback ports for the end-to-end shell tests, so that they run beside
# each other and beside a simulated camera on its default ports.
# free_port tcp|udp: a port the kernel just handed out for that protocol.
free_port() {
    python3 -c 'import socket, sys
s = socket.socket(socket.AF_INET, socket.SOCK_DGRAM if sys.argv[1] == "udp" else socket.SOCK_STREAM)
s.bind(("127.0.0.1", 0))
print(s.getsockname()[1])' "$1"
}
# Sets port, rtsp_port and discovery_port for one simulated camera.
camera_ports() {
    port=$(free_port tcp)
    rtsp_port=$(free_port tcp)
    while [ "$rtsp_port" = "$port" ]; do rtsp_port=$(free_port tcp); done
    discovery_port=$(free_port udp)
}
