// The npm onvif client (0.8.3) used as a VMS uses it: connect(), events by pull and by its own
// listener, a move, and the divergences docs/interop.md names.
'use strict';
const {
    port, onvifMode, assert, address, step, standard, call, refusal, event, keep, seed, run,
} = require('./harness');
const { Cam } = require('onvif');

const account = { username: 'onvifuser', password: 'onvif1234' };

function camera(credentials) {
    const cam = new Cam({ hostname: '127.0.0.1', port, ...credentials, autoconnect: false, timeout: 90000 });
    cam.on('rawRequest', seed);
    cam.on('rawResponse', (xml) => keep('onvif_flow', xml));
    return cam;
}

// The motion state of a message by Home Assistant's rule: the ONVIF mode's State item.
const motionOf = (m) => /VideoSource\/MotionAlarm$/.test(m.topic._) &&
    [].concat(m.message.message.data.simpleItem).find((i) => i.$.Name === 'State');

run('onvif_flow', async () => {
    const cam = camera(account);
    await step('connect()', async () => {
        await call((cb) => cam.connect(cb));
        assert(cam.profiles && cam.profiles.length > 0 && cam.activeSource, 'connect() kept no profile or source');
        const sources = cam.videoSources.map((s) => s.$.token);
        for (const p of cam.profiles) assert(sources.includes(p.videoSourceConfiguration.sourceToken), `profile ${p.$.token}'s source`);
        for (const [name, uri] of Object.entries(cam.uri)) address(name, uri.href, 'http', port);
    });

    // connect() takes the service addresses from GetServices, or falls back to GetCapabilities, whose
    // answer has no device IO address: the library then posts device IO requests to the bare path "deviceIO".
    await standard('connect(): GetServices, device IO address', async () => {
        for (const name of ['media', 'ptz', 'imaging', 'events', 'deviceIO']) assert(cam.uri[name], `no ${name} address from GetServices`);
        await call((cb) => cam.systemReboot(cb));
    }, async () => {
        assert(cam.uri.media && !cam.uri.deviceIO, `addresses ${Object.keys(cam.uri)}`);
        const failure = await refusal(() => call((cb) => cam.systemReboot(cb)));
        assert(/Wrong ONVIF SOAP response/.test(failure.message), `systemReboot(): ${failure}`);
    }, 'GetServices answers the generic fault; the client falls back to GetCapabilities, which has no DeviceIO extension, '
        + 'and posts device IO requests to the path "deviceIO": systemReboot() fails with "Wrong ONVIF SOAP response"');

    // Events. Without the zone letter the client cannot compute the subscription's end:
    // createPullPointSubscription() fails although the subscription exists.
    const subscription = () => {
        const sub = cam.events.subscription;
        assert(sub && sub.subscriptionReference && sub.subscriptionReference.address, 'no subscription kept');
        address('subscription', sub.subscriptionReference.address.href, 'http', port);
        return sub;
    };
    await standard('createPullPointSubscription', async () => {
        await call((cb) => cam.createPullPointSubscription(cb));
        const sub = subscription();
        assert(sub.currentTime instanceof Date && sub.terminationTime instanceof Date, `times ${sub.currentTime} ${sub.terminationTime}`);
    }, async () => {
        const failure = await refusal(() => call((cb) => cam.createPullPointSubscription(cb)));
        assert(/getTime is not a function/.test(failure.message), `the client took the times: ${failure}`);
        assert(typeof subscription().currentTime === 'string', 'the current time became a Date');
    }, 'CurrentTime/TerminationTime have no zone letter; the client reports "response.currentTime.getTime is not a function" but keeps the subscription address');

    await step('pullMessages: a motion event', async () => {
        const pull = async () => [].concat((await call((cb) => cam.pullMessages({ messageLimit: 10 }, cb)))[0].notificationMessage || []);
        const initial = await pull();
        assert(initial.length > 0 && initial.every((m) => m.message.message.$.PropertyOperation === 'Initialized'), 'no initial states');
        await event('motion', 'on');
        const [data] = await call((cb) => cam.pullMessages({ messageLimit: 10 }, cb));
        const motion = [].concat(data.notificationMessage || []).find((m) => /MotionAlarm/.test(m.topic._));
        assert(motion && motion.message.message.$.PropertyOperation === 'Changed', `messages ${JSON.stringify(data)}`);
        if (onvifMode) {
            assert(String(motionOf(motion).$.Value) === 'true', `motion ${JSON.stringify(motion)}`);
            assert(data.currentTime instanceof Date, `the pull time ${data.currentTime}`);
        } else {
            assert(typeof data.currentTime === 'string', 'the pull time became a Date');
        }
    });

    // A program that just listens for events: the library's own pull loop. Motion is on, so the
    // state when the subscription began comes first, then the change.
    const listen = async () => {
        const listener = camera(account);
        // The library signs with the camera's clock only once it has read it.
        await call((cb) => listener.getSystemDateAndTime(cb));
        await call((cb) => listener.getCapabilities(cb));
        const states = [];
        try {
            await new Promise((resolve, reject) => {
                listener.on('eventsError', reject);
                listener.on('event', (m) => {
                    if (!motionOf(m)) return;
                    states.push(`${m.message.message.$.PropertyOperation} ${motionOf(m).$.Value}`);
                    if (states.length === 1) event('motion', 'off').catch(reject);
                    if (states.length === 2) resolve();
                });
            });
        } finally {
            listener.removeAllListeners('event');
            // The subscription the library made, even one it lost track of.
            if (listener.events.subscription) await call((cb) => listener.unsubscribe(cb)).catch(() => {});
        }
        return states;
    };
    await standard('cam.on("event")', async () => {
        const states = await listen();
        assert(states.join() === 'Initialized true,Changed false', `states ${states}`);
    }, async () => {
        const failure = await refusal(listen);
        assert(/getTime is not a function/.test(failure.message), `event listener got ${failure}`);
    }, 'the library\'s pull loop emits "eventsError" (getTime is not a function) and delivers no event');

    // A client without credentials.
    const anonymous = camera({});
    anonymous.uri = cam.uri;
    anonymous.activeSource = cam.activeSource;
    await standard('without credentials: continuousMove and stop', async () => {
        const failure = await refusal(() => call((cb) => anonymous.continuousMove({ x: 0.1, y: 0, zoom: 0, timeout: 1000 }, cb)));
        assert(/401|NotAuthorized/.test(`${failure} ${failure.xml || ''}`), `continuousMove: ${failure}`);
    }, async () => {
        await call((cb) => anonymous.continuousMove({ x: 0.1, y: 0, zoom: 0, timeout: 1000 }, cb));
        await call((cb) => anonymous.stop({ panTilt: true, zoom: true }, cb));
    }, 'movement needs no credentials on this camera; an anonymous client moves the head');
});
