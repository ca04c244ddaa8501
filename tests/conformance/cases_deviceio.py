"""Device IO test cases: relay outputs, digital inputs, video sources, audio and serial ports."""
import cases_events
from cases_device import RELAY_STATES, relay_case, relay_settings, relay_tokens
from registry import case, refuses, uncoded
from soap import INVALID, check, el

PREFIXES = ("DEVICEIO-",)


def io_capability(cam, name):
    return cam.ok("tmd:GetServiceCapabilities").one("tmd:Capabilities").get(name)


@case("DEVICEIO-1-1-1", "deviceio", "relays")
def get_relays(cam, f):
    check(relay_tokens(cam), "no relay outputs")


@case("DEVICEIO-1-1-2", "deviceio", "relays")
def relay_quantity(cam, f):
    count = io_capability(cam, "RelayOutputs")
    check(count is not None and int(count) == len(relay_tokens(cam)), "capabilities say %s" % count)


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


def inputs(cam):
    return cam.ok("tmd:GetDigitalInputs").all("tmd:DigitalInputs")


@case("DEVICEIO-3-1-1", "deviceio", "digital inputs")
def get_inputs(cam, f):
    check(inputs(cam), "no digital inputs")


@case("DEVICEIO-3-1-2", "deviceio", "digital inputs")
def input_quantity(cam, f):
    count = io_capability(cam, "DigitalInputs")
    check(count is not None and int(count) == len(inputs(cam)), "capabilities say %s" % count)


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


@case("DEVICEIO-7-1-1", "deviceio")
def get_video_sources(cam, f):
    check(source_tokens(cam, "tmd:GetVideoSources", "tmd:Token"), "no video sources")


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
