// Keeps a node client flow on 127/8: every TCP connection and UDP datagram is checked before it
// leaves, plus the check of each address the camera hands out. Load it before any client library.
'use strict';
const net = require('net');
const dgram = require('dgram');

const refused = [];

function isLoopback(host) {
    return typeof host === 'string' && /^127\.\d{1,3}\.\d{1,3}\.\d{1,3}$/.test(host);
}

// A library may resolve a name or take the camera's word for an address; only
// a literal loopback address gets through, so a name that resolves elsewhere
// cannot slip past.
const connect = net.Socket.prototype.connect;
net.Socket.prototype.connect = function (...args) {
    let options = args[0];
    if (Array.isArray(options)) options = options[0];
    let host;
    if (options && typeof options === 'object') {
        host = options.path ? '127.0.0.1' : (options.host || options.hostname || 'localhost');
    } else if (typeof options === 'number' || /^\d+$/.test(String(options))) {
        host = typeof args[1] === 'string' ? args[1] : 'localhost';
    } else {
        host = '127.0.0.1';  // a local socket path
    }
    if (!isLoopback(host)) {
        refused.push(`tcp ${host}`);
        process.nextTick(() => this.destroy(new Error(`refused to connect outside the loopback range: ${host}`)));
        return this;
    }
    return connect.apply(this, args);
};

const send = dgram.Socket.prototype.send;
dgram.Socket.prototype.send = function (...args) {
    const address = args.find((a, i) => i > 0 && typeof a === 'string');
    if (!isLoopback(address)) {
        refused.push(`udp ${address}`);
        throw new Error(`refused to send outside the loopback range: ${address}`);
    }
    return send.apply(this, args);
};

// checkAddress(kind, text, scheme, port): the reason an address handed out by
// the camera is unusable here, or null when it names 127.0.0.1 (and the port
// in use, when one is given).
function checkAddress(kind, text, scheme, port) {
    let url;
    try {
        url = new URL(String(text));
    } catch (e) {
        return `${kind} address '${text}' is no URL`;
    }
    if (scheme && url.protocol !== `${scheme}:`) return `${kind} address '${text}' is not ${scheme}`;
    if (url.hostname !== '127.0.0.1') return `${kind} address '${text}' leaves the camera`;
    if (port !== undefined && url.port !== String(port)) return `${kind} address '${text}' names no port ${port}`;
    return null;
}

module.exports = { refused, isLoopback, checkAddress };
