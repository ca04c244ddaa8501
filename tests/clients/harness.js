// The node client flows' harness: keeps every connection on 127/8 (load it before any client
// library), runs bounded steps with one table row each, and keeps answers and requests.
'use strict';
const net = require('net');
const dgram = require('dgram');
const { execFile } = require('child_process');
const crypto = require('crypto');
const fs = require('fs');
const path = require('path');

const port = Number(process.env.ONVIF_PORT);
const rtspPort = Number(process.env.ONVIF_RTSP_PORT);
// In the ONVIF mode (client_flow_test.sh FLOW onvif) the steps marked so expect the standard's behaviour.
const onvifMode = process.env.ONVIF_MODE === 'onvif';
const refused = [];
const rows = [];

function isLoopback(host) {
    return typeof host === 'string' && /^127\.\d{1,3}\.\d{1,3}\.\d{1,3}$/.test(host);
}

// A library may resolve a name or take the camera's word for an address; only
// a literal loopback address gets through, so a name that resolves elsewhere
// cannot slip past.
const connect = net.Socket.prototype.connect;
net.Socket.prototype.connect = function (...args) {
    const options = Array.isArray(args[0]) ? args[0][0] : args[0];
    let host = '127.0.0.1';  // a local socket path
    if (options && typeof options === 'object') {
        host = options.path ? '127.0.0.1' : (options.host || options.hostname || 'localhost');
    } else if (typeof options === 'number' || /^\d+$/.test(String(options))) {
        host = typeof args[1] === 'string' ? args[1] : 'localhost';
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

function assert(condition, message) {
    if (!condition) throw new Error(message);
}

// address(kind, text, scheme, port): fails unless an address the camera hands out names
// 127.0.0.1 and the port in use, with the scheme given.
function address(kind, text, scheme, port) {
    let url = {};
    try { url = new URL(String(text)); } catch (e) { /* no URL: refused below */ }
    assert(url.protocol === `${scheme}:` && url.hostname === '127.0.0.1' && url.port === String(port),
        `${kind} address '${text}' is not ${scheme}://127.0.0.1:${port}`);
}

// step(name, fn, note): runs fn (which may return a promise) within 90 s and records it. With a
// note the step is a known divergence; fn asserts the camera's behaviour and what the client makes
// of it, so passing means "as documented".
async function step(name, fn, note) {
    const before = refused.length;
    let timer;
    try {
        await Promise.race([Promise.resolve().then(fn), new Promise((_, reject) => {
            timer = setTimeout(() => reject(new Error(`${name}: no answer within 90 s`)), 90000);
        })]);
        assert(refused.length === before, `connections refused: ${refused.slice(before).join(', ')}`);
        rows.push({ name, result: note ? 'divergence' : 'pass', detail: note || '' });
        console.log(`${note ? 'DIVERGENCE' : 'PASS'} ${name}${note ? ` (${note})` : ''}`);
    } catch (e) {
        rows.push({ name, result: 'fail', detail: e && e.message ? e.message : String(e) });
        console.log(`FAIL ${name}: ${e && e.stack ? e.stack : e}`);
    } finally {
        clearTimeout(timer);
    }
}

// standard(name, fn, legacyFn, note): fn in the ONVIF mode, else the documented divergence.
function standard(name, fn, legacyFn, note) {
    return onvifMode ? step(name, fn) : step(name, legacyFn, note);
}

// call(fn): a node-style callback API as a promise of [result, xml]. A callback the library
// runs twice (an exception thrown inside it is handed back to it) settles it once.
function call(fn) {
    return new Promise((resolve, reject) => fn((err, result, xml) => (err ? reject(Object.assign(err, { xml })) : resolve([result, xml]))));
}

// refusal(fn): the error an awaited call ends with; an answer fails the step.
function refusal(fn) {
    return Promise.resolve().then(fn).then(() => { throw new Error('answered where a refusal was expected'); }, (e) => e);
}

// event(args): plays the camera's event process in the flow's camera root.
function event(...args) {
    return new Promise((resolve, reject) => {
        execFile(path.join(process.env.ONVIF_TOP, 'tools/sim/event'), args,
            { env: { ...process.env, ONVIF_ROOT: process.env.CAMERA_ROOT }, timeout: 20000 },
            (err, stdout, stderr) => (err ? reject(new Error(`event ${args.join(' ')}: ${stderr || err.message}`)) : resolve()));
    });
}

// keep(flow, xml): leaves one SOAP answer for the suite's schema check (ONVIF_ANSWER_DIR),
// the ONVIF mode's to be checked without the legacy mode's exceptions.
let kept = 0;
function keep(flow, xml) {
    const dir = process.env.ONVIF_ANSWER_DIR;
    if (!dir || typeof xml !== 'string' || !/<SOAP-ENV:Envelope/.test(xml)) return;
    const mode = onvifMode ? 'onvif-mode.' : '';
    fs.writeFileSync(path.join(dir, `${mode}ClientFlow.${flow}.${process.pid}.${++kept}.xml`), xml);
}

// seed(body): a request the client sent, a seed of the request fuzz target when
// tools/run-tests.sh collects them in ONVIF_FUZZ_SEEDS.
function seed(body) {
    const dir = process.env.ONVIF_FUZZ_SEEDS;
    if (!dir || typeof body !== 'string') return;
    fs.writeFileSync(path.join(dir, `client-${crypto.createHash('sha1').update(body).digest('hex')}`), body);
}

// run(flow, main): main's steps, then the table; an error outside a step fails the flow.
function run(flow, main) {
    const abort = (what) => (e) => {
        console.log(`FAIL ${what}: ${e && e.stack ? e.stack : e}`);
        process.exit(1);
    };
    process.on('unhandledRejection', abort('unhandled'));
    main().then(() => {
        const failed = rows.filter((r) => r.result === 'fail').length;
        console.log(`\n${flow}: client operations\n| Operation | Result | Note |\n|---|---|---|`);
        for (const r of rows) console.log(`| ${r.name} | ${r.result} | ${r.detail.replace(/\|/g, '/').replace(/\n/g, ' ')} |`);
        if (refused.length) console.log(`connections refused outside the loopback range: ${refused.join(', ')}`);
        console.log(`${flow}: ${rows.length - failed} passed, ${failed} failed`);
        process.exit(failed || refused.length ? 1 : 0);
    }, abort('flow'));
}

module.exports = { port, rtspPort, onvifMode, assert, address, step, standard, call, refusal, event, keep, seed, run };
