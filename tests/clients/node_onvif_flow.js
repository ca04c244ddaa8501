// The npm node-onvif client (0.1.7) as a viewer uses it: init(), every profile's stream and
// snapshot addresses and the snapshot, a PTZ move and stop, and a wrong password.
'use strict';
const {
    port, rtspPort, assert, address, step, standard, refusal, keep, seed, run,
} = require('./harness');
const onvif = require('node-onvif');

// The library's one HTTP exchange, tapped so that its requests seed the fuzz
// target and its answers reach the schema check (only status 200 ones do).
const soap = require('node-onvif/lib/modules/soap.js');
const request = soap._request;
soap._request = function (...args) {
    seed(args[1]);
    return request.apply(this, args).then((xml) => {
        keep('node_onvif_flow', xml);
        return xml;
    });
};

const xaddr = `http://127.0.0.1:${port}/onvif/device_service`;

run('node_onvif_flow', async () => {
    // The web server account of the README; the library signs every request with a password digest.
    const device = new onvif.OnvifDevice({ xaddr, user: 'admin', pass: 'admin' });

    // init() asks each answer within 3 s and takes only status 200; a profile whose stream or
    // snapshot question fails keeps an empty address.
    await step('init(): services, profiles, stream and snapshot addresses', async () => {
        const info = await device.init();
        assert(info && info.Manufacturer, `device information ${JSON.stringify(info)}`);
        for (const [name, service] of Object.entries(device.services)) {
            if (service) address(`${name} service`, service.xaddr, 'http', port);
        }
        assert(device.services.ptz, 'no PTZ service');
        const profiles = device.getProfileList();
        assert(profiles.length > 0, 'no profiles');
        for (const p of profiles) {
            assert(p.video.encoder && p.video.source, `profile ${p.token} without video`);
            for (const protocol of ['udp', 'http', 'rtsp']) address(`${protocol} stream of ${p.token}`, p.stream[protocol], 'rtsp', rtspPort);
            address(`snapshot of ${p.token}`, p.snapshot, 'http', port);
        }
    });

    await step('fetchSnapshot()', async () => {
        const shot = await device.fetchSnapshot();
        assert(/^image\/jpeg/.test(shot.headers['content-type']) && shot.body[0] === 0xff && shot.body[1] === 0xd8,
            `snapshot: ${shot.headers['content-type']}`);
    });

    // Movement goes to the profile init() selects; where the head goes is the end-to-end tests' to check.
    await step('ptzMove, ptzStop', async () => {
        await device.ptzMove({ speed: { x: 0.5, y: 0, z: 0 }, timeout: 30 });
        await device.ptzStop();
    });

    // A wrong password: init() asks only actions the legacy mode leaves open.
    const wrong = new onvif.OnvifDevice({ xaddr, user: 'admin', pass: 'wrong' });
    await standard('wrong password: init()', async () => {
        const failure = await refusal(() => wrong.init());
        assert(/authenticated or authorized|401/.test(failure.message), `init() with a wrong password: ${failure}`);
    }, async () => {
        await wrong.init();
        assert(wrong.getProfileList().length > 0, 'no profiles');
    }, 'every request of init() is open on this camera: it succeeds with a wrong password');
});
