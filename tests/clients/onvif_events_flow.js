// The npm onvif client's events against the simulated camera in the ONVIF mode: a pull point made
// by createPullPointSubscription() and the library's own pull loop behind cam.on('event') each
// deliver a motion event, read with Home Assistant's rule (on only when the value is "true").
// Run by tests/client_flow_test.sh, which sets ONVIF_PORT and the rest.
'use strict';
require('./loopback');
const { step, assert, call, event, keep, finish } = require('./harness');
const { Cam } = require('onvif');
const fs = require('fs');
const path = require('path');

const port = Number(process.env.ONVIF_PORT);
const account = { username: 'onvifuser', password: 'onvif1234' };

// The mode is read by every request: switching the root's settings is enough.
function onvifMode() {
    const conf = path.join(process.env.CAMERA_ROOT, 'tmp/onvif/onvif.conf');
    fs.writeFileSync(conf, fs.readFileSync(conf, 'utf8').replace(/^Conformance\.Mode=.*$/m, 'Conformance.Mode=onvif'));
}

function camera() {
    const cam = new Cam({ hostname: '127.0.0.1', port, ...account, autoconnect: false, timeout: 90000 });
    cam.on('rawResponse', (xml) => keep('onvif_events_flow', xml));
    return cam;
}

const motionOf = (m) => /VideoSource\/MotionAlarm$/.test(m.topic._) &&
    [].concat(m.message.message.data.simpleItem).find((i) => i.$.Name === 'State');

async function main() {
    onvifMode();
    const cam = camera();
    // The library signs with the camera's clock only once it has read it; the
    // camera refuses a token created outside its window.
    await step('getSystemDateAndTime', () => call((cb) => cam.getSystemDateAndTime(cb)));
    await step('getCapabilities', () => call((cb) => cam.getCapabilities(cb)));

    await step('createPullPointSubscription: times with their zone', async () => {
        const [sub] = await call((cb) => cam.createPullPointSubscription(cb));
        assert(sub.subscriptionReference.address, 'no subscription address');
        assert(cam.events.subscription, 'the subscription was not kept');
    });

    await step('pullMessages: initial motion state, then motion on', async () => {
        const [first] = await call((cb) => cam.pullMessages({ messageLimit: 10, timeout: 5000 }, cb));
        const initial = [].concat(first.notificationMessage || []).find(motionOf);
        assert(initial && initial.message.message.$.PropertyOperation === 'Initialized', `initial ${JSON.stringify(first)}`);
        await event('motion', 'on');
        const [data] = await call((cb) => cam.pullMessages({ messageLimit: 10, timeout: 5000 }, cb));
        const motion = [].concat(data.notificationMessage || []).find(motionOf);
        assert(motion && String(motionOf(motion).$.Value) === 'true', `messages ${JSON.stringify(data)}`);
    });

    await step('unsubscribe', () => call((cb) => cam.unsubscribe(cb)));

    // A program that just listens: the library's own pull loop.
    await step('cam.on("event"): motion on, then off', async () => {
        const listener = camera();
        await call((cb) => listener.getSystemDateAndTime(cb));
        await call((cb) => listener.getCapabilities(cb));
        const states = [];
        const seen = new Promise((resolve, reject) => {
            listener.on('eventsError', reject);
            listener.on('event', (m) => {
                if (!motionOf(m)) return;
                states.push(`${m.message.message.$.PropertyOperation} ${motionOf(m).$.Value}`);
                if (states.length === 1) event('motion', 'off').catch(reject);
                if (states.length === 2) resolve();
            });
        });
        try {
            await seen;
        } finally {
            listener.removeAllListeners('event');
        }
        // The first is the state when the subscription began (motion was on), then the change.
        assert(states[0] === 'Initialized true' && states[1] === 'Changed false', `states ${states}`);
        if (listener.events.subscription) await call((cb) => listener.unsubscribe(cb)).catch(() => {});
    });
    finish('onvif_events_flow');
}

main();
