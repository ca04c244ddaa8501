// The npm onvif client (0.8.3) against the simulated camera, from connect() to a pull-point
// subscription; run by tests/client_flow_test.sh, which sets ONVIF_PORT and the rest.
'use strict';
const { checkAddress } = require('./loopback');
const { step, assert, call, event, keep, seed, finish } = require('./harness');
const { Cam } = require('onvif');
const fs = require('fs');
const http = require('http');
const path = require('path');

const port = Number(process.env.ONVIF_PORT);
const rtspPort = Number(process.env.ONVIF_RTSP_PORT);
const account = { username: 'onvifuser', password: 'onvif1234' };
// In the ONVIF mode (client_flow_test.sh FLOW onvif) the steps marked so expect the standard's behaviour.
const onvifMode = process.env.ONVIF_MODE === 'onvif';
// standard(name, fn, legacyFn, note): fn in the ONVIF mode, else the documented divergence.
function standard(name, fn, legacyFn, note) {
    return onvifMode ? step(name, fn) : step(name, legacyFn, note);
}
// The camera's control program stand-ins record each call here.
const callLog = path.join(process.env.CAMERA_ROOT, 'camera_calls.log');

function camera(credentials) {
    const cam = new Cam({ hostname: '127.0.0.1', port, ...credentials, autoconnect: false, timeout: 30000 });
    if (credentials.username !== account.username || credentials.password !== account.password) {
        cam.on('rawResponse', (xml) => keep('onvif_flow', xml));
    }
    return cam;
}

// The exchanges of a client, in order, for the checks on the wire; only
// sequential requests pair up reliably.
function recordExchanges(cam) {
    const exchanges = [];
    cam.on('rawRequest', (body) => {
        seed(body);
        const m = /<s:Body[^>]*>\s*<([A-Za-z0-9]+:)?([A-Za-z]+)/.exec(body);
        exchanges.push({ action: m ? m[2] : '' });
    });
    cam.on('rawResponse', (xml, status) => {
        keep('onvif_flow', xml);
        const open = exchanges.find((e) => e.xml === undefined);
        if (open) Object.assign(open, { xml, status });
    });
    return exchanges;
}

function isGenericFault(answer) {
    return answer.status === 500 && /<SOAP-ENV:Fault/.test(answer.xml) && /ter:Action</.test(answer.xml);
}

function near(a, b) {
    return Math.abs(Number(a) - Number(b)) < 0.02;
}

// The head travels at its own pace: poll GetStatus until it is where it was
// sent, within a bound, instead of timing it.
async function arrives(cam, target) {
    let status;
    for (let i = 0; i < 150; i++) {
        [status] = await call((cb) => cam.getStatus({}, cb));
        if (near(status.position.x, target.x) && near(status.position.y, target.y) && near(status.position.zoom, target.zoom)
            && status.moveStatus.panTilt === 'IDLE') return status;
        await new Promise((r) => setTimeout(r, 200));
    }
    throw new Error(`head at ${JSON.stringify(status.position)}, sent to ${JSON.stringify(target)}`);
}

// In the ONVIF mode the snapshot asks for the camera's accounts (basic or digest).
function fetch(address) {
    const headers = onvifMode
        ? { Authorization: `Basic ${Buffer.from(`${account.username}:${account.password}`).toString('base64')}` } : {};
    return new Promise((resolve, reject) => {
        http.get(address, { headers }, (res) => {
            const parts = [];
            res.on('data', (d) => parts.push(d));
            res.on('end', () => resolve({ status: res.statusCode, type: res.headers['content-type'], body: Buffer.concat(parts) }));
        }).on('error', reject);
    });
}

async function main() {
    const cam = camera(account);
    const exchanges = recordExchanges(cam);

    await step('connect()', async () => {
        await call((cb) => cam.connect(cb));
        assert(Array.isArray(cam.profiles) && cam.profiles.length > 0, 'connect() kept no profile');
        assert(Array.isArray(cam.videoSources) && cam.videoSources.length > 0, 'connect() kept no video source');
        const sources = cam.videoSources.map((s) => s.$.token);
        for (const p of cam.profiles) {
            assert(sources.includes(p.videoSourceConfiguration.sourceToken),
                `profile ${p.$.token} names source ${p.videoSourceConfiguration.sourceToken}, GetVideoSources has ${sources}`);
        }
        assert(cam.activeSource && cam.activeSource.profileToken, 'no active source');
        for (const [name, uri] of Object.entries(cam.uri)) {
            const problem = checkAddress(name, uri.href, 'http', port);
            assert(!problem, problem);
        }
    });

    await standard('connect(): GetServices', () => {
        const services = exchanges.find((e) => e.action === 'GetServices');
        assert(services && services.status === 200 && /GetServicesResponse/.test(services.xml), 'GetServices not answered');
        for (const name of ['media', 'ptz', 'imaging', 'events', 'deviceIO']) {
            assert(cam.uri[name], `no ${name} address from GetServices`);
            const problem = checkAddress(name, cam.uri[name].href, 'http', port);
            assert(!problem, problem);
        }
    }, () => {
        const services = exchanges.find((e) => e.action === 'GetServices');
        assert(services && isGenericFault(services), 'GetServices was not answered with the generic fault');
        assert(cam.uri && cam.uri.media, 'the client did not fall back to GetCapabilities');
    }, 'GetServices answers the generic fault (500); the client falls back to GetCapabilities');

    await step('getDeviceInformation', async () => {
        const [info] = await call((cb) => cam.getDeviceInformation(cb));
        for (const key of ['manufacturer', 'model', 'firmwareVersion', 'serialNumber']) assert(info[key] !== undefined && info[key] !== '', `no ${key}`);
        assert(info.hardwareId === '001', `hardware id ${info.hardwareId}`);
    });

    await step('getCapabilities', async () => {
        const [caps] = await call((cb) => cam.getCapabilities(cb));
        for (const name of ['device', 'media', 'events', 'imaging', 'PTZ']) {
            assert(caps[name] && caps[name].XAddr, `no ${name} address`);
            const problem = checkAddress(name, caps[name].XAddr, 'http', port);
            assert(!problem, problem);
        }
        assert(caps.device.IO.relayOutputs === 1, `relay outputs ${caps.device.IO.relayOutputs}`);
    });

    // The library learns the device IO address from GetServices or from the
    // capabilities' extension; the camera gives neither, and the library then
    // posts the device IO requests, systemReboot() among them, to the bare
    // path "deviceIO", which the web server refuses.
    await standard('device IO address: systemReboot()', async () => {
        assert(cam.uri.deviceIO, 'no device IO address');
        await call((cb) => cam.systemReboot(cb));
    }, async () => {
        assert(!cam.uri.deviceIO, `the camera hands out a device IO address now (${cam.uri.deviceIO && cam.uri.deviceIO.href})`);
        let failure;
        try {
            await call((cb) => cam.systemReboot(cb));
        } catch (e) {
            failure = e;
        }
        assert(failure && /Wrong ONVIF SOAP response/.test(failure.message), `systemReboot(): ${failure}`);
    }, 'no device IO address (GetServices answers the generic fault, GetCapabilities has no DeviceIO extension); '
        + 'the library posts device IO requests to the path "deviceIO": systemReboot() fails with "Wrong ONVIF SOAP response"');

    await step('getProfiles', async () => {
        const [profiles] = await call((cb) => cam.getProfiles(cb));
        assert(profiles.length >= 1, 'no profiles');
        for (const p of profiles) assert(p.$.token && p.videoEncoderConfiguration, `profile ${JSON.stringify(p.$)} without encoder`);
    });

    // Later steps still run when connect() kept no profile, on the first one
    // GetProfiles gives; connect() has failed the flow already.
    if (!cam.activeSource && cam.profiles && cam.profiles.length) {
        const first = cam.profiles[0];
        cam.activeSource = { profileToken: first.$.token, sourceToken: first.videoSourceConfiguration.sourceToken };
    }
    const profiles = cam.profiles || [];
    await step('getStreamUri (every profile)', async () => {
        assert(profiles.length > 0, 'no profiles to ask');
        for (const p of profiles) {
            const [media] = await call((cb) => cam.getStreamUri({ protocol: 'RTSP', profileToken: p.$.token }, cb));
            const problem = checkAddress(`stream of ${p.$.token}`, media.uri, 'rtsp', rtspPort);
            assert(!problem, problem);
        }
    });

    await step('getSnapshotUri (every profile) and the snapshot', async () => {
        assert(profiles.length > 0, 'no profiles to ask');
        for (const p of profiles) {
            const [media] = await call((cb) => cam.getSnapshotUri({ profileToken: p.$.token }, cb));
            const problem = checkAddress(`snapshot of ${p.$.token}`, media.uri, 'http', port);
            assert(!problem, problem);
            const got = await fetch(media.uri);
            assert(got.status === 200 && /^image\/jpeg/.test(got.type) && got.body[0] === 0xff && got.body[1] === 0xd8,
                `snapshot ${media.uri}: ${got.status} ${got.type}`);
        }
    });

    const ptz = cam.activeSource;
    await step('PTZ continuousMove', async () => {
        assert(ptz, 'no active source');
        await call((cb) => cam.continuousMove({ x: 0.5, y: 0.2, zoom: 0, timeout: 10000 }, cb));
        const [status] = await call((cb) => cam.getStatus({}, cb));
        assert(status.moveStatus && status.moveStatus.panTilt, 'no move status');
    });

    await step('PTZ stop', async () => {
        assert(ptz, 'no active source');
        await call((cb) => cam.stop({ panTilt: true, zoom: true }, cb));
        let status;
        for (let i = 0; i < 100; i++) {
            [status] = await call((cb) => cam.getStatus({}, cb));
            if (status.moveStatus.panTilt === 'IDLE') break;
            await new Promise((r) => setTimeout(r, 200));
        }
        assert(status.moveStatus.panTilt === 'IDLE', `still ${status.moveStatus.panTilt} after stop`);
    });

    await step('PTZ absoluteMove and getStatus', async () => {
        assert(ptz, 'no active source');
        await call((cb) => cam.absoluteMove({ x: 0.25, y: -0.25, zoom: 0.5 }, cb));
        await arrives(cam, { x: 0.25, y: -0.25, zoom: 0.5 });
    });

    await step('PTZ relativeMove and getStatus', async () => {
        assert(ptz, 'no active source');
        const [before] = await call((cb) => cam.getStatus({}, cb));
        await call((cb) => cam.relativeMove({ x: 0.1, y: 0.1, zoom: 0 }, cb));
        // A translation of 1 spans the whole pan (360 degrees) or tilt range,
        // which the position space maps onto -1 to 1: twice the step there.
        await arrives(cam, { x: before.position.x + 0.2, y: before.position.y + 0.2, zoom: before.position.zoom });
    });

    await standard('PTZ getStatus: time', async () => {
        assert(ptz, 'no active source');
        const [status, xml] = await call((cb) => cam.getStatus({}, cb));
        assert(/<tt:UtcTime>\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d(\.\d+)?Z<\/tt:UtcTime>/.test(xml), 'UtcTime without its zone letter');
        assert(status.utcTime instanceof Date && !isNaN(status.utcTime), `utcTime ${status.utcTime}`);
    }, async () => {
        assert(ptz, 'no active source');
        const [status, xml] = await call((cb) => cam.getStatus({}, cb));
        assert(/<tt:UtcTime>\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d<\/tt:UtcTime>/.test(xml), 'UtcTime carries a zone letter now');
        assert(typeof status.utcTime === 'string', `utcTime became ${typeof status.utcTime}`);
    }, 'UtcTime has no zone letter; the client hands it on as a string, not a Date');

    let presetToken, presetPlace;
    await step('PTZ setPreset', async () => {
        assert(ptz, 'no active source');
        [{ position: presetPlace }] = await call((cb) => cam.getStatus({}, cb));
        const [data] = await call((cb) => cam.setPreset({ presetName: 'FlowSpot' }, cb));
        presetToken = data[0].setPresetResponse[0].presetToken[0];
        assert(presetToken, 'no preset token');
        const [presets] = await call((cb) => cam.getPresets({}, cb));
        // The library turns a numeric token attribute into a number.
        assert(presets.FlowSpot && String(presets.FlowSpot.$.token) === presetToken, `presets: ${Object.keys(presets)}`);
    });

    await step('PTZ gotoPreset', async () => {
        assert(presetToken, 'no preset');
        await call((cb) => cam.absoluteMove({ x: -0.5, y: 0.5, zoom: 0 }, cb));
        await arrives(cam, { x: -0.5, y: 0.5, zoom: 0 });
        await call((cb) => cam.gotoPreset({ preset: presetToken }, cb));
        await arrives(cam, presetPlace);
    });

    await step('PTZ removePreset', async () => {
        assert(presetToken, 'no preset');
        await call((cb) => cam.removePreset({ presetToken }, cb));
        const [presets] = await call((cb) => cam.getPresets({}, cb));
        assert(!presets.FlowSpot, 'preset still listed');
    });

    await step('imaging getImagingSettings', async () => {
        assert(cam.activeSource, 'no active source');
        const [settings] = await call((cb) => cam.getImagingSettings({ token: cam.activeSource.sourceToken }, cb));
        assert(typeof settings.brightness === 'number', `brightness ${settings.brightness}`);
    });

    await step('imaging setImagingSettings', async () => {
        assert(cam.activeSource, 'no active source');
        await call((cb) => cam.setImagingSettings({ token: cam.activeSource.sourceToken, brightness: 60, contrast: 40 }, cb));
        const [settings] = await call((cb) => cam.getImagingSettings({ token: cam.activeSource.sourceToken }, cb));
        assert(settings.brightness === 60 && settings.contrast === 40, `brightness ${settings.brightness}, contrast ${settings.contrast}`);
    });

    // The library has no relay calls: a program sends them itself through the
    // client's request, to the device address since there is no device IO one
    // (every service of the camera answers at the one address).
    const deviceIO = (body) => call((cb) => cam._request({
        service: 'device',
        body: cam._envelopeHeader() + body + cam._envelopeFooter(),
    }, cb));
    await step('relay outputs at the device address (GetRelayOutputs, SetRelayOutputState)', async () => {
        const [data] = await deviceIO('<GetRelayOutputs xmlns="http://www.onvif.org/ver10/deviceIO/wsdl"/>');
        const relays = data[0].getRelayOutputsResponse[0].relayOutputs;
        assert(relays && relays.length === 1, 'no relay output');
        const token = relays[0].$.token;
        const calls = () => (fs.existsSync(callLog) ? fs.readFileSync(callLog, 'utf8').split('\n').filter((l) => /output\.cgi/.test(l)).length : 0);
        const before = calls();
        for (const state of ['active', 'inactive']) {
            await deviceIO('<SetRelayOutputState xmlns="http://www.onvif.org/ver10/deviceIO/wsdl">'
                + `<RelayOutputToken>${token}</RelayOutputToken><LogicalState>${state}</LogicalState></SetRelayOutputState>`);
        }
        assert(calls() === before + 2, `the relay program ran ${calls() - before} times for two switches`);
    });

    await step('users: getUsers, createUsers, deleteUsers', async () => {
        const [users] = await call((cb) => cam.getUsers(cb));
        const names = users.map((u) => u.username);
        assert(names.includes('admin') && names.includes('onvifuser'), `users ${names}`);
        const [created] = await call((cb) => cam.createUsers([{ username: 'flowuser', password: 'flow1234', userLevel: 'Operator' }], cb));
        assert(created.some((u) => u.username === 'flowuser'), 'created user not listed');
        const [left] = await call((cb) => cam.deleteUsers(['flowuser'], cb));
        assert(!left.some((u) => u.username === 'flowuser'), 'deleted user still listed');
    });

    await step('date and time: getSystemDateAndTime, setSystemDateAndTime', async () => {
        const [time] = await call((cb) => cam.getSystemDateAndTime(cb));
        assert(time instanceof Date && !isNaN(time), `time ${time}`);
        const [after] = await call((cb) => cam.setSystemDateAndTime({ dateTimeType: 'Manual', dateTime: new Date(), daylightSavings: false, timezone: 'GMT0' }, cb));
        assert(after instanceof Date && !isNaN(after), `time after setting ${after}`);
    });

    // Events. The camera's times carry no zone letter, so the client cannot
    // compute the subscription's end: CreatePullPointSubscription hands back
    // an error although the subscription exists; pulls work when a program
    // calls them itself.
    await standard('createPullPointSubscription', async () => {
        await call((cb) => cam.createPullPointSubscription(cb));
        const sub = cam.events.subscription;
        assert(sub && sub.subscriptionReference && sub.subscriptionReference.address, 'no subscription kept');
        assert(sub.currentTime instanceof Date && sub.terminationTime instanceof Date, `times ${sub.currentTime} ${sub.terminationTime}`);
    }, async () => {
        let failure;
        try {
            await call((cb) => cam.createPullPointSubscription(cb));
        } catch (e) {
            failure = e;
        }
        assert(failure && /getTime is not a function/.test(failure.message), `the client took the times: ${failure}`);
        const sub = cam.events.subscription;
        assert(sub && sub.subscriptionReference && sub.subscriptionReference.address, 'no subscription kept');
        assert(typeof sub.currentTime === 'string' && !/Z$/.test(sub.currentTime), `current time ${sub.currentTime}`);
    }, 'CurrentTime/TerminationTime have no zone letter; the client reports "response.currentTime.getTime is not a function" but keeps the subscription address');

    await step('pull-point subscription address', () => {
        const sub = cam.events.subscription;
        assert(sub, 'no subscription');
        const problem = checkAddress('subscription', sub.subscriptionReference.address.href, 'http', port);
        assert(!problem, problem);
    });

    let pulls = false;
    await step('pullMessages: initial states', async () => {
        const [data] = await call((cb) => cam.pullMessages({ messageLimit: 10 }, cb));
        const messages = [].concat(data.notificationMessage || []);
        assert(messages.length > 0, 'no initial states');
        assert(messages.every((m) => m.message.message.$.PropertyOperation === 'Initialized'), 'not initial states');
        pulls = true;
    });

    await step('pullMessages: a motion event', async () => {
        assert(pulls, 'pulls do not work');
        await event('motion', 'on');
        const [data] = await call((cb) => cam.pullMessages({ messageLimit: 10 }, cb));
        const messages = [].concat(data.notificationMessage || []);
        const motion = messages.find((m) => /MotionAlarm/.test(m.topic._));
        assert(motion && motion.message.message.$.PropertyOperation === 'Changed', `messages ${JSON.stringify(messages)}`);
        if (onvifMode) assert(data.currentTime instanceof Date, `the pull time ${data.currentTime}`);
        else assert(typeof data.currentTime === 'string', 'the pull time became a Date');
    });

    await step('renew', async () => {
        assert(cam.events.subscription, 'no subscription');
        const [data] = await call((cb) => cam.renew({}, cb));
        assert(data.terminationTime instanceof Date && data.currentTime instanceof Date, `renew times ${JSON.stringify(data)}`);
    });

    await step('unsubscribe', async () => {
        assert(cam.events.subscription, 'no subscription');
        await call((cb) => cam.unsubscribe(cb));
    });

    // What a program that just listens for events sees: the library's own
    // pull loop stops at the first subscription with an error event.
    await standard('cam.on("event")', async () => {
        const listener = camera(account);
        // The library signs with the camera's clock only once it has read it
        // (connect() does): without, its Created lies outside the window.
        await call((cb) => listener.getSystemDateAndTime(cb));
        await call((cb) => listener.getCapabilities(cb));
        const got = await new Promise((resolve) => {
            listener.on('eventsError', (e) => resolve(e));
            listener.on('event', (m) => resolve(m));
        });
        listener.removeAllListeners('event');
        listener.removeAllListeners('eventsError');
        assert(got && got.topic && got.message, `event listener got ${got}`);
        if (listener.events.subscription) await call((cb) => listener.unsubscribe(cb)).catch(() => {});
    }, async () => {
        const listener = camera(account);
        await call((cb) => listener.getCapabilities(cb));
        const got = await new Promise((resolve) => {
            listener.on('eventsError', (e) => resolve(e));
            listener.on('event', () => resolve(null));
        });
        listener.removeAllListeners('event');
        assert(got && /getTime is not a function/.test(got.message), `event listener got ${got}`);
        // The subscription the library made and lost track of.
        if (listener.events.subscription) await call((cb) => listener.unsubscribe(cb)).catch(() => {});
    }, 'the library\'s pull loop emits "eventsError" (getTime is not a function) and delivers no event');

    // Credentials: actions the camera leaves open answer without any.
    const anonymous = camera({});
    anonymous.uri = cam.uri;
    anonymous.activeSource = cam.activeSource;
    await standard('without credentials: continuousMove refused', async () => {
        let failure;
        try {
            await call((cb) => anonymous.continuousMove({ x: 0.1, y: 0, zoom: 0, timeout: 1000 }, cb));
        } catch (e) {
            failure = e;
        }
        assert(failure && /401|NotAuthorized/.test(`${failure} ${failure.xml || ''}`), `continuousMove: ${failure}`);
    }, async () => {
        assert(cam.activeSource, 'no active source');
        await call((cb) => anonymous.continuousMove({ x: 0.1, y: 0, zoom: 0, timeout: 1000 }, cb));
        await call((cb) => anonymous.stop({ panTilt: true, zoom: true }, cb));
    }, 'movement needs no credentials on this camera; an anonymous client moves the head');

    await step('without credentials: getUsers refused', async () => {
        let failure;
        try {
            await call((cb) => anonymous.getUsers(cb));
        } catch (e) {
            failure = e;
        }
        // In the ONVIF mode the camera challenges (401) a request without credentials.
        assert(failure && /ter:NotAuthorized|401/.test(`${failure} ${failure.xml || ''}`), `getUsers without credentials: ${failure}`);
    });

    const wrong = camera({ username: 'onvifuser', password: 'wrong' });
    await standard('wrong password: connect()', async () => {
        let failure;
        try {
            await call((cb) => wrong.connect(cb));
        } catch (e) {
            failure = e;
        }
        assert(failure || !(wrong.profiles && wrong.profiles.length), 'connect() succeeded with a wrong password');
    }, async () => {
        await call((cb) => wrong.connect(cb));
        assert(wrong.profiles && wrong.profiles.length > 0 && wrong.activeSource, 'connect() kept no profile');
    }, 'every request of connect() is open on this camera: it succeeds with a wrong password');

    await step('wrong password: getUsers refused', async () => {
        wrong.uri = wrong.uri || cam.uri;
        let failure;
        try {
            await call((cb) => wrong.getUsers(cb));
        } catch (e) {
            failure = e;
        }
        assert(failure && /ter:NotAuthorized/.test(failure.xml || ''), `getUsers with a wrong password: ${failure}`);
    });

    finish('onvif_flow');
}

main().catch((e) => {
    console.log(`FAIL flow: ${e.stack}`);
    process.exit(1);
});
process.on('unhandledRejection', (e) => {
    console.log(`FAIL unhandled: ${e && e.stack ? e.stack : e}`);
    process.exit(1);
});
