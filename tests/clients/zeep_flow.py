"""Debian's zeep, strict, with the WSDLs of ../shared/onvif-schema: Home Assistant's ONVIF requests to
the simulated camera and the divergences docs/interop.md names; run by tests/client_flow_test.sh."""
import datetime
import hashlib
import os
import subprocess
import sys
import traceback
from urllib.parse import urlparse

import requests
import zeep
from zeep.wsa import WsAddressingPlugin
from zeep.wsse.username import UsernameToken

PORT = int(os.environ["ONVIF_PORT"])
RTSP_PORT = int(os.environ["ONVIF_RTSP_PORT"])
TOP = os.environ["ONVIF_TOP"]
SCHEMA = os.path.normpath(os.environ.get("ONVIF_SCHEMA_DIR") or os.path.join(TOP, "..", "shared", "onvif-schema"))
DEVICE = "http://127.0.0.1:%d/onvif/device_service" % PORT
TER = "http://www.onvif.org/ver10/error"
# In the ONVIF mode (client_flow_test.sh FLOW onvif) the steps marked so expect the standard's behaviour.
ONVIF_MODE = os.environ.get("ONVIF_MODE") == "onvif"
EVENTS = "onvif/ver10/events/wsdl/event.wsdl", "{http://www.onvif.org/ver10/events/wsdl}"
WSDLS = {
    "device": ("onvif/ver10/device/wsdl/devicemgmt.wsdl", "{http://www.onvif.org/ver10/device/wsdl}DeviceBinding"),
    "media": ("onvif/ver10/media/wsdl/media.wsdl", "{http://www.onvif.org/ver10/media/wsdl}MediaBinding"),
    "ptz": ("onvif/ver20/ptz/wsdl/ptz.wsdl", "{http://www.onvif.org/ver20/ptz/wsdl}PTZBinding"),
    "imaging": ("onvif/ver20/imaging/wsdl/imaging.wsdl", "{http://www.onvif.org/ver20/imaging/wsdl}ImagingBinding"),
    "deviceio": ("onvif/ver10/deviceio.wsdl", "{http://www.onvif.org/ver10/deviceIO/wsdl}DeviceIOBinding"),
    "events": (EVENTS[0], EVENTS[1] + "EventBinding"),
    "pullpoint": (EVENTS[0], EVENTS[1] + "PullPointSubscriptionBinding"),
    "subscription": (EVENTS[0], EVENTS[1] + "SubscriptionManagerBinding"),
}
# The remote schemas the ONVIF files import, served from the local copies:
# nothing is fetched, and a location with no copy stops the flow.
REMOTE_COPIES = {
    "b-2.xsd": "b-2.xsd", "t-1.xsd": "t-1.xsd", "bf-2.xsd": "bf-2.xsd", "r-2.xsd": "r-2.xsd",
    "ws-addr.xsd": "ws-addr.xsd", "xmlmime": "xmlmime.xsd", "include": "xop-include.xsd",
    "xml.xsd": "xml.xsd", "soap-envelope": "soap12-types.xsd", "bw-2.wsdl": "bw-2.wsdl", "rw-2.wsdl": "rw-2.wsdl",
}
REMOTE_HOSTS = ("docs.oasis-open.org", "www.w3.org")
refused = []
rows = []
kept = [0]


class LoopbackAdapter(requests.adapters.HTTPAdapter):
    """Sends nothing outside 127/8, redirects included: every request of the session comes here."""

    def send(self, request, *args, **kwargs):
        parts = (urlparse(request.url).hostname or "").split(".")
        if not (len(parts) == 4 and parts[0] == "127" and all(p.isdigit() for p in parts)):
            refused.append("request " + request.url)
            raise requests.ConnectionError("refused outside the loopback range: %s" % request.url)
        return super().send(request, *args, **kwargs)


class LoopbackTransport(zeep.transports.Transport):
    """Loads schemas only from the local copies; keeps every request as a seed of the request fuzz
    target (ONVIF_FUZZ_SEEDS) and every answer for the suite's schema check (ONVIF_ANSWER_DIR)."""

    def __init__(self, **kwargs):
        super().__init__(**kwargs)
        for scheme in ("http://", "https://"):
            self.session.mount(scheme, LoopbackAdapter())

    def load(self, url):
        parsed = urlparse(url)
        if parsed.scheme not in ("http", "https"):
            return super().load(url)
        name = parsed.path.rstrip("/").rsplit("/", 1)[-1]
        if parsed.hostname in REMOTE_HOSTS and name in REMOTE_COPIES:
            return super().load(os.path.join(SCHEMA, "ws", REMOTE_COPIES[name]))
        refused.append("schema " + url)
        raise RuntimeError("refused to fetch %s" % url)

    def post(self, address, message, headers):
        seeds, answers = os.environ.get("ONVIF_FUZZ_SEEDS"), os.environ.get("ONVIF_ANSWER_DIR")
        data = message if isinstance(message, bytes) else message.encode()
        if seeds:
            with open(os.path.join(seeds, "client-" + hashlib.sha1(data).hexdigest()), "wb") as f:
                f.write(data)
        response = super().post(address, message, headers)
        if answers and b"<SOAP-ENV:Envelope" in response.content:
            kept[0] += 1
            # The ONVIF mode's answers are checked without the legacy mode's exceptions.
            name = "%sClientFlow.zeep_flow.%d.%d.xml" % ("onvif-mode." if ONVIF_MODE else "", os.getpid(), kept[0])
            with open(os.path.join(answers, name), "wb") as f:
                f.write(response.content)
        return response


class Camera:
    """One zeep client per service description, parsed once; the account is chosen per call, as
    a program that signs in again would."""

    def __init__(self):
        self.transport = LoopbackTransport(timeout=30, operation_timeout=75)
        self.clients = {name: zeep.Client(os.path.join(SCHEMA, wsdl), transport=self.transport, settings=zeep.Settings(strict=True),
                                          plugins=[WsAddressingPlugin()] if name in ("pullpoint", "subscription") else [])
                        for name, (wsdl, _) in WSDLS.items()}
        self.account = ("onvifuser", "onvif1234")

    def service(self, name, at=DEVICE, binding=None):
        address(name, at)
        self.clients[name].wsse = UsernameToken(*self.account, use_digest=True)
        return self.clients[name].create_service(binding or WSDLS[name][1], at)


def check(condition, message):
    if not condition:
        raise AssertionError(message)


def address(kind, text, scheme="http", port=PORT):
    """Fails unless an address the camera hands out names 127.0.0.1 and the port in use."""
    parsed = urlparse(str(text))
    check(parsed.scheme == scheme and parsed.hostname == "127.0.0.1" and parsed.port == port,
          "%s address %r is not %s://127.0.0.1:%d" % (kind, text, scheme, port))
    return text


def step(name, fn, note=None):
    """Runs one step; a note makes it a known divergence whose assertions are the camera's
    behaviour and zeep's reaction."""
    before = len(refused)
    try:
        fn()
        check(len(refused) == before, "refused: %s" % ", ".join(refused[before:]))
        rows.append((name, "divergence" if note else "pass", note or ""))
        print("%s %s%s" % ("DIVERGENCE" if note else "PASS", name, " (%s)" % note if note else ""), flush=True)
    except Exception as e:  # every failure is a row of the table
        rows.append((name, "fail", "%s: %s" % (type(e).__name__, e)))
        print("FAIL %s" % name, flush=True)
        traceback.print_exc(file=sys.stdout)


def standard(name, fn, legacy_fn, note):
    """fn in the ONVIF mode, else the documented divergence legacy_fn."""
    return step(name, fn) if ONVIF_MODE else step(name, legacy_fn, note)


def fault_of(call, subcode=None):
    """The zeep Fault a call raises, with the subcode given among its subcodes."""
    try:
        result = call()
    except zeep.exceptions.Fault as fault:
        found = [(q.namespace, q.localname) for q in (fault.subcodes or [])]
        check(subcode is None or (TER, subcode) in found, "fault subcodes %s" % found)
        return fault
    raise AssertionError("answered: %s" % str(result)[:200])


def event(*args):
    subprocess.run([os.path.join(TOP, "tools/sim/event"), *args], check=True, timeout=20,
                   env=dict(os.environ, ONVIF_ROOT=os.environ["CAMERA_ROOT"]))


def motion_states(messages):
    """Motion by Home Assistant's rule: on only when the State item is the text true."""
    return [item.get("Value") == "true" for m in messages or [] if m.Topic._value_1 == "tns1:VideoSource/MotionAlarm"
            for item in m.Message._value_1.xpath("*[local-name()='Data']/*[local-name()='SimpleItem'][@Name='State']")]


def home_assistant(cam):
    """The integration's requests from adding the camera to using it."""
    state = {}
    at = lambda name: state.get(name, DEVICE)

    def adding():
        check(cam.service("device").GetSystemDateAndTime().UTCDateTime.Date.Year > 2000, "no camera clock")
        caps = cam.service("device").GetCapabilities(Category="All")
        for name in ("Device", "Media", "Events", "Imaging", "PTZ"):
            check(getattr(caps, name) is not None, "no %s section" % name)
            state[name] = address(name, getattr(caps, name).XAddr)
        state["pull point flag"] = caps.Events.WSPullPointSupport
        check(cam.service("device", at("Device")).GetDeviceInformation().SerialNumber, "no serial number")
        found = cam.service("device", at("Device")).GetNetworkInterfaces()
        check(any(i.Enabled and i.Info is not None and i.Info.HwAddress for i in found or []), "no enabled interface with a MAC address")
    step("adding the camera: GetSystemDateAndTime, GetCapabilities, GetDeviceInformation, GetNetworkInterfaces", adding)

    def profiles():
        media = cam.service("media", at("Media"))
        state["profiles"] = media.GetProfiles()
        check(any(p.VideoEncoderConfiguration and p.VideoEncoderConfiguration.Encoding == "H264" for p in state["profiles"]), "no H264")
        for p in state["profiles"]:
            address("stream of %s" % p.token, media.GetStreamUri(
                StreamSetup={"Stream": "RTP-Unicast", "Transport": {"Protocol": "RTSP"}}, ProfileToken=p.token).Uri, "rtsp", RTSP_PORT)
            address("snapshot of %s" % p.token, media.GetSnapshotUri(ProfileToken=p.token).Uri)
    step("GetProfiles, GetStreamUri, GetSnapshotUri (every profile)", profiles)

    def pull_loop():
        events = cam.service("events", at("Events"))
        check(events.GetEventProperties().FixedTopicSet, "no topic set")
        subscription = address("subscription", events.CreatePullPointSubscription(
            InitialTerminationTime="PT600S").SubscriptionReference.Address._value_1)
        operations, motion = [], []
        for change in (None, "on", "off"):
            # The event goes in before the pull, so no pull waits out its timeout.
            if change:
                event("motion", change)
            answer = cam.service("pullpoint", subscription).PullMessages(Timeout=datetime.timedelta(seconds=60), MessageLimit=100)
            state["pull time"] = answer.CurrentTime
            operations += [m.Message._value_1.get("PropertyOperation") for m in answer.NotificationMessage]
            motion += motion_states(answer.NotificationMessage)
        check(operations.count("Initialized") >= 1 and operations.count("Changed") >= 2, "operations pulled: %s" % operations)
        # The legacy mode writes the camera's own topics and values, not the standard's.
        check(not ONVIF_MODE or motion[-2:] == [True, False], "motion states %s" % motion)
        manager = cam.service("subscription", subscription)
        state["renew time"] = manager.Renew(TerminationTime="PT600S").TerminationTime
        manager.Unsubscribe()
    step("PullMessages in a loop", pull_loop)

    flag = lambda: state.get("pull point flag")
    standard("capabilities' WSPullPointSupport", lambda: check(flag() is True, "WSPullPointSupport %r" % flag()),
             lambda: check(flag() is False and "pull time" in state, "WSPullPointSupport %r" % flag()),
             "the events capabilities say False while pull points are served")
    zones = lambda: [state[name].tzinfo is not None for name in ("pull time", "renew time")]
    standard("event times", lambda: check(zones() == [True, True], "times with a zone: %s" % zones()),
             lambda: check(zones() == [False, True], "times with a zone: %s" % zones()),
             "pull times carry no zone letter and come as naive datetimes, Renew's as UTC ones")

    # The integration's PTZ questions, and one of its moves: their answers are all empty alike.
    def ptz():
        service = cam.service("ptz", at("PTZ"))
        profile = next(p for p in state["profiles"] if p.PTZConfiguration is not None)
        options = service.GetConfigurationOptions(ConfigurationToken=profile.PTZConfiguration.token)
        check(options.Spaces.ContinuousPanTiltVelocitySpace, "no continuous space")
        presets = service.GetPresets(ProfileToken=profile.token)
        service.GotoPreset(ProfileToken=profile.token, PresetToken=presets[0].token,
                           Speed={"PanTilt": {"x": 0.5, "y": 0.5}, "Zoom": {"x": 0.5}})
    step("PTZ GetConfigurationOptions, GetPresets, GotoPreset", ptz)


def two_pull_points(cam):
    """Legacy: the camera reads no subscription index from the address posted to, so every
    event request reaches the first pull point."""
    first, second = [address("subscription", cam.service("events").CreatePullPointSubscription(
        InitialTerminationTime="PT120S").SubscriptionReference.Address._value_1) for _ in range(2)]
    check(first.endswith("?Idx=0") and second.endswith("?Idx=1"), "addresses %s, %s" % (first, second))
    pulled = lambda: len(cam.service("pullpoint", second).PullMessages(
        Timeout=datetime.timedelta(seconds=1), MessageLimit=100).NotificationMessage)
    pulled()  # the initial states
    event("motion", "on")
    check([pulled(), pulled()] == [1, 0], "the second address's pulls took the first's one message once")
    check(os.path.getsize(os.path.join(os.environ["CAMERA_ROOT"], "tmp/onvif/eventfile2")) > 0, "the second's own queue was read")
    cam.service("subscription", second).Unsubscribe()
    fault_of(lambda: cam.service("subscription", second).Unsubscribe(), "InvalidArgVal")


def main():
    cam = Camera()
    home_assistant(cam)

    def services():
        listed = {s.Namespace: s.XAddr for s in cam.service("device").GetServices(IncludeCapability=False)}
        for name in ("device", "media", "events", "ptz", "imaging", "deviceio"):
            namespace = WSDLS[name][1][1:].split("}")[0]
            check(namespace in listed, "%s missing from GetServices: %s" % (namespace, sorted(listed)))
            address(name, listed[namespace])
    standard("GetServices", services, lambda: fault_of(lambda: cam.service("device").GetServices(IncludeCapability=False), "Action"),
             "the generic fault (500, ter:Action, 'Action failed'); zeep raises Fault, the program falls back to GetCapabilities")
    if not ONVIF_MODE:  # the ONVIF mode's subscriptions apart are the end-to-end tests'
        step("two pull points at once", lambda: two_pull_points(cam),
             "pulls, renewals and unsubscriptions at any subscription address reach the first pull point (Idx=0); "
             "the second one's messages are never delivered, and unsubscribing it ends the first")

    # The imaging report, which strict parsing refuses in the legacy mode.
    def imaging():
        try:
            settings = cam.service("imaging").GetImagingSettings(VideoSourceToken="VideoSource1")
        except zeep.exceptions.XMLParseError as e:
            return check(not ONVIF_MODE and "ExposurePriority" in str(e), "parse error %s" % e)
        check(ONVIF_MODE and settings.Exposure.Mode is not None, "answered %s" % str(settings)[:200])
    step("imaging GetImagingSettings", imaging, None if ONVIF_MODE else
         "the exposure section names tt:ExposurePriority where the schema has tt:Priority and gives tt:Window its edges "
         "as child elements; strict zeep raises XMLParseError, lenient zeep leaves every exposure value from there on None")

    # A wrong password: refused where the camera asks for credentials (in the ONVIF mode every
    # operation above PRE_AUTH); in the legacy mode the actions it leaves open answer anyway.
    cam.account = ("onvifuser", "wrong")
    step("wrong password: GetUsers refused", lambda: fault_of(lambda: cam.service("device").GetUsers(), "NotAuthorized"))
    move = lambda: cam.service("ptz").ContinuousMove(ProfileToken="Profile1", Velocity={"PanTilt": {"x": 0.1, "y": 0.0}})
    standard("wrong password: PTZ ContinuousMove", lambda: fault_of(move, "NotAuthorized"), move,
             "the camera takes moves without credentials, so a wrong password changes nothing")

    failed = sum(1 for r in rows if r[1] == "fail")
    print("\nzeep_flow: client operations\n| Operation | Result | Note |\n|---|---|---|")
    for name, result, note in rows:
        print("| %s | %s | %s |" % (name, result, note.replace("|", "/").replace("\n", " ")[:300]))
    if refused:
        print("refused outside the loopback range or the local schemas: %s" % ", ".join(refused))
    print("zeep_flow: %d passed, %d failed" % (len(rows) - failed, failed))
    return 1 if failed or refused else 0


if __name__ == "__main__":
    sys.exit(main())
