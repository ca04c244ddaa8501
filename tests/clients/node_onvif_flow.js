// The npm node-onvif client (0.1.7) against the simulated camera: init(), PTZ moves, stop and
// presets; run by tests/client_flow_test.sh, which sets ONVIF_PORT and ONVIF_RTSP_PORT.
'use strict';
const { checkAddress } = require('./loopback');
const { step, assert, keep, seed, finish } = require('./harness');
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

const port = Number(process.env.ONVIF_PORT);
const rtspPort = Number(process.env.ONVIF_RTSP_PORT);

function near(a, b) {
    return Math.abs(Number(a) - Number(b)) < 0.02;
}

function position(result) {
    const p = result.data.GetStatusResponse.PTZStatus.Position;
    return { x: Number(p.PanTilt.$.x), y: Number(p.PanTilt.$.y), z: Number(p.Zoom.$.x) };
}

async function main() {
    // The web server account of the README; the library signs every request
    // with a password digest.
    const device = new onvif.OnvifDevice({
        xaddr: `http://127.0.0.1:${port}/onvif/device_service`,
        user: 'admin',
        pass: 'admin',
    });

    // init() asks each answer within 3 s and takes only status 200; a profile
    // whose stream or snapshot question fails keeps an empty address.
    await step('init()', async () => {
        const info = await device.init();
        assert(info && info.Manufacturer, `device information ${JSON.stringify(info)}`);
        for (const [name, service] of Object.entries(device.services)) {
            if (!service) continue;
            const problem = checkAddress(`${name} service`, service.xaddr, 'http', port);
            assert(!problem, problem);
        }
        assert(device.services.ptz, 'no PTZ service');
    });

    const profiles = device.getProfileList();
    await step('init(): profiles', () => {
        assert(profiles.length > 0, 'no profiles');
        for (const p of profiles) assert(p.video.encoder && p.video.source, `profile ${p.token} without video`);
    });

    for (const protocol of ['udp', 'http', 'rtsp']) {
        await step(`init(): ${protocol.toUpperCase()} stream address of every profile`, () => {
            assert(profiles.length > 0, 'no profiles');
            for (const p of profiles) {
                const problem = checkAddress(`${protocol} stream of ${p.token}`, p.stream[protocol] || '(none)', 'rtsp', rtspPort);
                assert(!problem, problem);
            }
        });
    }

    await step('init(): snapshot of every profile', async () => {
        assert(profiles.length > 0, 'no profiles');
        for (const p of profiles) {
            const problem = checkAddress(`snapshot of ${p.token}`, p.snapshot || '(none)', 'http', port);
            assert(!problem, problem);
            device.changeProfile(p.token);
            const shot = await device.fetchSnapshot();
            assert(/^image\/jpeg/.test(shot.headers['content-type']) && shot.body[0] === 0xff && shot.body[1] === 0xd8,
                `snapshot of ${p.token}: ${shot.headers['content-type']}`);
        }
        device.changeProfile(0);
    });

    // Movement goes to the first profile, the one init() selects.
    const ptz = device.services.ptz;
    const token = profiles.length ? profiles[0].token : 'Profile1';
    const status = async () => position(await ptz.getStatus({ ProfileToken: token }));
    const arrives = async (target) => {
        let at;
        for (let i = 0; i < 150; i++) {
            at = await status();
            if (near(at.x, target.x) && near(at.y, target.y) && near(at.z, target.z)) return at;
            await new Promise((r) => setTimeout(r, 200));
        }
        throw new Error(`head at ${JSON.stringify(at)}, sent to ${JSON.stringify(target)}`);
    };

    await step('ptzMove', async () => {
        assert(ptz && device.getCurrentProfile(), 'no PTZ profile');
        const before = await status();
        await device.ptzMove({ speed: { x: 0.5, y: 0, z: 0 }, timeout: 30 });
        let at = before;
        for (let i = 0; i < 100 && near(at.x, before.x); i++) {
            await new Promise((r) => setTimeout(r, 100));
            at = await status();
        }
        assert(!near(at.x, before.x), 'the head did not pan');
    });

    await step('ptzStop', async () => {
        assert(ptz && device.getCurrentProfile(), 'no PTZ profile');
        await device.ptzStop();
        let first = await status();
        let second = await status();
        for (let i = 0; i < 50 && !(near(first.x, second.x) && near(first.y, second.y)); i++) {
            await new Promise((r) => setTimeout(r, 200));
            first = second;
            second = await status();
        }
        const result = await ptz.getStatus({ ProfileToken: token });
        assert(result.data.GetStatusResponse.PTZStatus.MoveStatus.PanTilt === 'IDLE', 'still moving after stop');
    });

    await step('PTZ absoluteMove', async () => {
        assert(ptz, 'no PTZ service');
        await ptz.absoluteMove({ ProfileToken: token, Position: { x: -0.3, y: 0.4, z: 0.2 } });
        await arrives({ x: -0.3, y: 0.4, z: 0.2 });
    });

    await step('PTZ relativeMove', async () => {
        assert(ptz, 'no PTZ service');
        const before = await status();
        await ptz.relativeMove({ ProfileToken: token, Translation: { x: 0.05, y: -0.05, z: 0 } });
        // A translation of 1 spans the whole pan or tilt range: twice the step
        // in the -1 to 1 position space.
        await arrives({ x: before.x + 0.1, y: before.y - 0.1, z: before.z });
    });

    let presetToken, presetPlace;
    await step('PTZ setPreset', async () => {
        assert(ptz, 'no PTZ service');
        presetPlace = await status();
        const result = await ptz.setPreset({ ProfileToken: token, PresetName: 'ViewerSpot' });
        presetToken = result.data.SetPresetResponse.PresetToken;
        assert(presetToken, 'no preset token');
    });

    await step('PTZ getPresets', async () => {
        assert(presetToken, 'no preset');
        const result = await ptz.getPresets({ ProfileToken: token });
        const presets = [].concat(result.data.GetPresetsResponse.Preset || []);
        assert(presets.some((p) => p.$.token === presetToken && p.Name === 'ViewerSpot'), `presets ${JSON.stringify(presets.map((p) => p.Name))}`);
    });

    await step('PTZ gotoPreset', async () => {
        assert(presetToken, 'no preset');
        await ptz.absoluteMove({ ProfileToken: token, Position: { x: 0.6, y: -0.6, z: 0 } });
        await arrives({ x: 0.6, y: -0.6, z: 0 });
        await ptz.gotoPreset({ ProfileToken: token, PresetToken: presetToken });
        await arrives(presetPlace);
    });

    await step('PTZ removePreset', async () => {
        assert(presetToken, 'no preset');
        await ptz.removePreset({ ProfileToken: token, PresetToken: presetToken });
        const result = await ptz.getPresets({ ProfileToken: token });
        const presets = [].concat(result.data.GetPresetsResponse.Preset || []);
        assert(!presets.some((p) => p.Name === 'ViewerSpot'), 'preset still listed');
    });

    // A wrong password: init() asks only actions the camera leaves open.
    const wrong = new onvif.OnvifDevice({ xaddr: `http://127.0.0.1:${port}/onvif/device_service`, user: 'admin', pass: 'wrong' });
    if (process.env.ONVIF_MODE === 'onvif') {
        // Every operation above PRE_AUTH asks for valid credentials.
        await step('wrong password: init() refused', async () => {
            let failure;
            try {
                await wrong.init();
            } catch (e) {
                failure = e;
            }
            assert(failure && /authenticated or authorized|401/.test(failure.message), `init() with a wrong password: ${failure}`);
        });
        finish('node_onvif_flow');
        return;
    }
    await step('wrong password: init()', async () => {
        await wrong.init();
        assert(wrong.getProfileList().length > 0, 'no profiles');
    }, 'every request of init() is open on this camera: it succeeds with a wrong password');

    await step('wrong password: PTZ getPresets refused', async () => {
        assert(wrong.services.ptz, 'no PTZ service');
        let failure;
        try {
            await wrong.services.ptz.getPresets({ ProfileToken: token });
        } catch (e) {
            failure = e;
        }
        // The library keeps only the status line and the fault's reason text.
        assert(failure && /^400 .*could not be authenticated or authorized/.test(failure.message), `getPresets with a wrong password: ${failure}`);
    });

    finish('node_onvif_flow');
}

main().catch((e) => {
    console.log(`FAIL flow: ${e.stack}`);
    process.exit(1);
});
process.on('unhandledRejection', (e) => {
    console.log(`FAIL unhandled: ${e && e.stack ? e.stack : e}`);
    process.exit(1);
});
