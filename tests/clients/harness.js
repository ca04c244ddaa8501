// The node client flows' step runner: bounded steps, one table row each (pass, fail, divergence),
// exit 1 on a failed step or a refused connection; keeps answers and requests for the schema check and fuzzing.
'use strict';
const { refused } = require('./loopback');
const { execFile } = require('child_process');
const crypto = require('crypto');
const fs = require('fs');
const path = require('path');

const rows = [];

function within(seconds, promise, what) {
    let timer;
    return Promise.race([
        promise,
        new Promise((_, reject) => {
            timer = setTimeout(() => reject(new Error(`${what}: no answer within ${seconds} s`)), seconds * 1000);
        }),
    ]).finally(() => clearTimeout(timer));
}

// step(name, fn, note): runs fn (which may return a promise) and records it.
// With a note the step is a known divergence; fn asserts the camera's
// behaviour and what the client makes of it, so passing means "as documented".
async function step(name, fn, note) {
    const before = refused.length;
    try {
        await within(90, Promise.resolve().then(fn), name);
        if (refused.length > before) throw new Error(`connections refused: ${refused.slice(before).join(', ')}`);
        rows.push({ name, result: note ? 'divergence' : 'pass', detail: note || '' });
        console.log(`${note ? 'DIVERGENCE' : 'PASS'} ${name}${note ? ` (${note})` : ''}`);
        return true;
    } catch (e) {
        rows.push({ name, result: 'fail', detail: e && e.message ? e.message : String(e) });
        console.log(`FAIL ${name}: ${e && e.stack ? e.stack : e}`);
        return false;
    }
}

function assert(condition, message) {
    if (!condition) throw new Error(message);
}

// call(fn): a node-style callback API as a promise of [result, xml]. A
// callback the library runs twice (an exception thrown inside it is handed
// back to it) counts once.
function call(fn) {
    return new Promise((resolve, reject) => {
        let done = false;
        fn((err, result, xml) => {
            if (done) return;
            done = true;
            if (err) {
                err.xml = xml;
                reject(err);
            } else {
                resolve([result, xml]);
            }
        });
    });
}

// event(args): plays the camera's event process in the flow's camera root.
function event(...args) {
    const top = process.env.ONVIF_TOP;
    return new Promise((resolve, reject) => {
        execFile(path.join(top, 'tools/sim/event'), args,
            { env: { ...process.env, ONVIF_ROOT: process.env.CAMERA_ROOT }, timeout: 20000 },
            (err, stdout, stderr) => (err ? reject(new Error(`event ${args.join(' ')}: ${stderr || err.message}`)) : resolve()));
    });
}

// keep(flow, xml): leaves one SOAP answer for the suite's schema check, which
// validates every answer kept in ONVIF_ANSWER_DIR after the last test.
let kept = 0;
function keep(flow, xml) {
    const dir = process.env.ONVIF_ANSWER_DIR;
    if (!dir || typeof xml !== 'string' || !/<SOAP-ENV:Envelope/.test(xml)) return;
    // The ONVIF mode's answers are checked without the legacy mode's exceptions.
    const mode = process.env.ONVIF_MODE === 'onvif' ? 'onvif-mode.' : '';
    fs.writeFileSync(path.join(dir, `${mode}ClientFlow.${flow}.${process.pid}.${++kept}.xml`), xml);
}

// seed(body): a request the client sent, kept as a seed of the request fuzz
// target when tools/run-tests.sh collects them in ONVIF_FUZZ_SEEDS.
function seed(body) {
    const dir = process.env.ONVIF_FUZZ_SEEDS;
    if (!dir || typeof body !== 'string') return;
    fs.writeFileSync(path.join(dir, `client-${crypto.createHash('sha1').update(body).digest('hex')}`), body);
}

function finish(flow) {
    const failed = rows.filter((r) => r.result === 'fail').length;
    console.log(`\n${flow}: client operations`);
    console.log('| Operation | Result | Note |');
    console.log('|---|---|---|');
    for (const r of rows) console.log(`| ${r.name} | ${r.result} | ${r.detail.replace(/\|/g, '/').replace(/\n/g, ' ')} |`);
    if (refused.length) console.log(`connections refused outside the loopback range: ${refused.join(', ')}`);
    const passed = rows.length - failed;
    console.log(`${flow}: ${passed} passed, ${failed} failed`);
    process.exit(failed || refused.length ? 1 : 0);
}

module.exports = { step, assert, call, event, within, keep, seed, finish };
