"""Device IO test cases: relay outputs, digital inputs, video sources, audio and serial ports."""
import cases_events
from cases_device import RELAY_STATES, count_case, relay_case, relay_settings, relay_tokens
from registry import answers, case, cases, refuses, uncoded
from soap import INVALID, check, el

PREFIXES = ("DEVICEIO-",)


def io_capability(name):
    return lambda cam, f: cam.ok("tmd:GetServiceCapabilities").one("tmd:Capabilities").get(name)


def inputs(cam):
    return cam.ok("tmd:GetDigitalInputs").all("tmd:DigitalInputs")


cases([
    ("DEVICEIO-1-1-1", ("deviceio", "relays"), answers("tds:GetRelayOutputs", "", "tds:RelayOutputs")),
    ("DEVICEIO-1-1-2", ("deviceio", "relays"), count_case(io_capability("RelayOutputs"), relay_tokens)),
    ("DEVICEIO-3-1-1", ("deviceio", "digital inputs"), answers("tmd:GetDigitalInputs", "", "tmd:DigitalInputs")),
    ("DEVICEIO-3-1-2", ("deviceio", "digital inputs"), count_case(io_capability("DigitalInputs"), inputs)),
    ("DEVICEIO-7-1-1", "deviceio", answers("tmd:GetVideoSources", "", "tmd:Token")),
])


@case("DEVICEIO-1-1-3", "deviceio", "relays")
def relay_options(cam, f):
    for token in relay_tokens(cam):
        options = cam.ok("tmd:GetRelayOutputOptions", el("tmd:RelayOutputToken", token))
        check(options.one("tmd:RelayOutputOptions").get("token") == token, "options token")


case("DEVICEIO-1-1-4", "deviceio", "relays")(relay_case("tmd", "Bistable", "open", toggle=False))
case("DEVICEIO-1-1-5", "deviceio", "relays")(refuses("tmd:SetRelayOutputSettings", relay_settings(
    "tmd", "NoSuchRelay", "Bistable", "PT0S", "open"), *INVALID, "RelayToken"))
for _n, (_mode, _idle) in enumerate(RELAY_STATES):
    case("DEVICEIO-1-2-%d" % (_n + 1), "deviceio", "relays")(relay_case("tmd", _mode, _idle))


@case("DEVICEIO-3-1-3", "deviceio", "digital inputs")
def input_options(cam, f):
    cam.ok("tmd:GetDigitalInputConfigurationOptions", el("tmd:Token", inputs(cam)[0].get("token")))


@case("DEVICEIO-3-1-4", "deviceio", "digital inputs")
def input_configuration(cam, f):
    first = inputs(cam)[0]
    idle = ' IdleState="%s"' % first.get("IdleState") if first.get("IdleState") else ""
    cam.ok("tmd:SetDigitalInputConfigurations", '<tmd:DigitalInputs token="%s"%s/>' % (first.get("token"), idle))


def source_tokens(cam, op, element):
    return sorted(v.get("token") or (v.text or "").strip() for v in cam.ok(op).all(element))


@case("DEVICEIO-5-1-1", "deviceio", "media")
def video_sources_agree(cam, f):
    io = source_tokens(cam, "tmd:GetVideoSources", "tmd:Token")
    media = source_tokens(cam, "trt:GetVideoSources", "trt:VideoSources")
    check(io == media, "device IO %s, media %s" % (io, media))


@case("DEVICEIO-4-1-1", "deviceio", "audio")
def audio_sources_agree(cam, f):
    io = source_tokens(cam, "tmd:GetAudioSources", "tmd:Token")
    media = source_tokens(cam, "trt:GetAudioSources", "trt:AudioSources")
    check(io and io == media, "device IO %s, media %s" % (io, media))


case("DEVICEIO-8-1-1", "deviceio", "audio output")(uncoded("audio output"))
for _n in range(1, 9):
    case("DEVICEIO-6-1-%d" % _n, "deviceio", "serial")(uncoded("serial ports"))
case("DEVICEIO-2-1-1", "deviceio", "events", "digital inputs", cases_events.event_topic(cases_events.INPUT))(
    lambda cam, f: cases_events.property_event(cam, f, cases_events.INPUT, ("InputToken", "ReferenceToken"),
                                               ("LogicalState", "boolean")))
case("DEVICEIO-2-1-2", "deviceio", "events", "relays", cases_events.event_topic(cases_events.RELAY))(
    lambda cam, f: cases_events.property_event(cam, f, cases_events.RELAY, ("RelayToken", "ReferenceToken"),
                                               ("LogicalState", "RelayLogicalState")))
