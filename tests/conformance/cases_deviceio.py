"""Device IO test cases: relay outputs, digital inputs, video sources, audio and serial ports."""

import cases_events
from registry import case, not_coded, uncoded
from soap import NS, check
import cases_device

PREFIXES = ("DEVICEIO-",)


def relays(cam):
    # deviceio.wsdl's GetRelayOutputs takes and gives the device service's elements.
    return cam.ok("tds:GetRelayOutputs").all("tds:RelayOutputs")


@case("DEVICEIO-1-1-1", "deviceio", "relays")
def get_relays(cam, f):
    check(relays(cam), "no relay outputs")


@case("DEVICEIO-1-1-2", "deviceio", "relays")
def relay_quantity(cam, f):
    answer = cam.ok("tmd:GetServiceCapabilities")
    count = answer.one("tmd:Capabilities").get("RelayOutputs")
    check(count is not None and int(count) == len(relays(cam)), "capabilities say %s" % count)


@case("DEVICEIO-1-1-3", "deviceio", "relays")
def relay_options(cam, f):
    for relay in relays(cam):
        options = cam.ok("tmd:GetRelayOutputOptions", "<tmd:RelayOutputToken>%s</tmd:RelayOutputToken>" % relay.get("token"))
        check(options.one("tmd:RelayOutputOptions").get("token") == relay.get("token"), "options token")


@case("DEVICEIO-1-1-4", "deviceio", "relays")
def relay_settings(cam, f):
    token = relays(cam)[0].get("token")
    cam.ok("tmd:SetRelayOutputSettings", '<tmd:RelayOutput token="%s"><tt:Properties><tt:Mode>Bistable</tt:Mode>'
           '<tt:DelayTime>PT0S</tt:DelayTime><tt:IdleState>open</tt:IdleState></tt:Properties></tmd:RelayOutput>' % token)


@case("DEVICEIO-1-1-5", "deviceio", "relays")
def relay_settings_invalid(cam, f):
    cam.refused("tmd:SetRelayOutputSettings", '<tmd:RelayOutput token="NoSuchRelay"><tt:Properties><tt:Mode>Bistable'
                '</tt:Mode><tt:DelayTime>PT0S</tt:DelayTime><tt:IdleState>open</tt:IdleState></tt:Properties>'
                '</tmd:RelayOutput>', "Sender", "InvalidArgVal", "RelayToken")


case("DEVICEIO-1-2-1", "deviceio", "relays")(cases_device.relay_state_case("Bistable", "open", "tmd"))
case("DEVICEIO-1-2-2", "deviceio", "relays")(cases_device.relay_state_case("Bistable", "closed", "tmd"))
case("DEVICEIO-1-2-3", "deviceio", "relays")(cases_device.relay_state_case("Monostable", "open", "tmd"))
case("DEVICEIO-1-2-4", "deviceio", "relays")(cases_device.relay_state_case("Monostable", "closed", "tmd"))


def inputs(cam):
    return cam.ok("tmd:GetDigitalInputs").all("tmd:DigitalInputs")


@case("DEVICEIO-3-1-1", "deviceio", "digital inputs")
def get_inputs(cam, f):
    check(inputs(cam), "no digital inputs")


@case("DEVICEIO-3-1-2", "deviceio", "digital inputs")
def input_quantity(cam, f):
    count = cam.ok("tmd:GetServiceCapabilities").one("tmd:Capabilities").get("DigitalInputs")
    check(count is not None and int(count) == len(inputs(cam)), "capabilities say %s" % count)


@case("DEVICEIO-3-1-3", "deviceio", "digital inputs")
def input_options(cam, f):
    cam.ok("tmd:GetDigitalInputConfigurationOptions", "<tmd:Token>%s</tmd:Token>" % inputs(cam)[0].get("token"))


@case("DEVICEIO-3-1-4", "deviceio", "digital inputs")
def input_configuration(cam, f):
    first = inputs(cam)[0]
    body = '<tmd:DigitalInputs token="%s"%s/>' % (first.get("token"),
                                                  ' IdleState="%s"' % first.get("IdleState") if first.get("IdleState") else "")
    cam.ok("tmd:SetDigitalInputConfigurations", body)


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



@case("DEVICEIO-2-1-1", "deviceio", "events", "digital inputs", cases_events.event_topic(cases_events.INPUT))
def digital_input_event(cam, f):
    cases_events.property_event(cam, f, cases_events.INPUT, ("InputToken", "ReferenceToken"), ("LogicalState", "boolean"))


@case("DEVICEIO-2-1-2", "deviceio", "events", "relays", cases_events.event_topic(cases_events.RELAY))
def relay_event(cam, f):
    cases_events.property_event(cam, f, cases_events.RELAY, ("RelayToken", "ReferenceToken"),
                                ("LogicalState", "RelayLogicalState"))
