"""PTZ test cases: nodes, configurations and their options, moves, presets, home, spaces, capabilities."""
import time

from registry import case, uncoded
from soap import NS, check, flag
import cases_device

PREFIXES = ("PTZ-",)

GENERIC = "http://www.onvif.org/ver10/tptz/"


def ptz_profile(cam):
    for profile in cam.ok("trt:GetProfiles").all("trt:Profiles"):
        if profile.find("tt:PTZConfiguration", NS) is not None:
            return profile.get("token")
    raise AssertionError("no profile with a PTZ configuration")


def nodes(cam):
    return cam.ok("tptz:GetNodes").all("tptz:PTZNode")


def configurations(cam):
    return cam.ok("tptz:GetConfigurations").all("tptz:PTZConfiguration")


@case("PTZ-1-1-1", "ptz")
def get_nodes(cam, f):
    check(nodes(cam), "no nodes")


def by_token_case(listing, op, field, element):
    """Each item of the listing, asked for by its token, is answered with that token."""
    def run(cam, f):
        for item in listing(cam):
            one = cam.ok(op, "<tptz:%s>%s</tptz:%s>" % (field, item.get("token"), field)).one(element)
            check(one.get("token") == item.get("token"), "%s token %s" % (op, one.get("token")))
    return run


case("PTZ-1-1-2", "ptz")(by_token_case(nodes, "tptz:GetNode", "NodeToken", "tptz:PTZNode"))


@case("PTZ-1-1-4", "ptz")
def get_node_fault(cam, f):
    cam.refused("tptz:GetNode", "<tptz:NodeToken>NoSuchNode</tptz:NodeToken>", "Sender", "InvalidArgVal", "NoEntity")


@case("PTZ-2-1-1", "ptz")
def get_configurations(cam, f):
    check(configurations(cam), "no configurations")


case("PTZ-2-1-2", "ptz")(by_token_case(configurations, "tptz:GetConfiguration", "PTZConfigurationToken",
                                       "tptz:PTZConfiguration"))


@case("PTZ-2-1-3", "ptz")
def configuration_options(cam, f):
    for c in configurations(cam):
        options = cam.ok("tptz:GetConfigurationOptions",
                         "<tptz:ConfigurationToken>%s</tptz:ConfigurationToken>" % c.get("token"))
        options.one("tptz:PTZConfigurationOptions/tt:PTZTimeout/tt:Min")


@case("PTZ-2-1-5", "ptz")
def configurations_consistent(cam, f):
    for c in configurations(cam):
        one = cam.ok("tptz:GetConfiguration", "<tptz:PTZConfigurationToken>%s</tptz:PTZConfigurationToken>"
                     % c.get("token")).one("tptz:PTZConfiguration")
        check(one.findtext("tt:NodeToken", "", NS) == c.findtext("tt:NodeToken", "", NS), "node token differs")
        check(one.findtext("tt:DefaultPTZTimeout", "", NS) == c.findtext("tt:DefaultPTZTimeout", "", NS), "timeout differs")


@case("PTZ-2-1-6", "ptz")
def configurations_and_nodes(cam, f):
    tokens = [n.get("token") for n in nodes(cam)]
    for c in configurations(cam):
        check(c.findtext("tt:NodeToken", "", NS).strip() in tokens, "configuration on an unknown node")


@case("PTZ-2-1-7", "ptz")
def configurations_and_options(cam, f):
    for c in configurations(cam):
        options = cam.ok("tptz:GetConfigurationOptions",
                         "<tptz:ConfigurationToken>%s</tptz:ConfigurationToken>" % c.get("token"))
        for space in c.findall("tt:*", NS):
            uri = space.get("space")
            if uri:
                check(any(s.text.strip() == uri for s in options.all(".//tt:URI")), "space %s not in options" % uri)


@case("PTZ-2-1-9", "ptz")
def set_configuration(cam, f):
    import xml.etree.ElementTree as ET
    c = configurations(cam)[0]
    body = ET.tostring(c, encoding="unicode").replace("tptz:PTZConfiguration", "tptz:PTZConfiguration")
    cam.ok("tptz:SetConfiguration", body + "<tptz:ForcePersistence>true</tptz:ForcePersistence>")


@case("PTZ-2-1-10", "ptz")
def get_configuration_fault(cam, f):
    cam.refused("tptz:GetConfiguration", "<tptz:PTZConfigurationToken>NoSuchConfiguration</tptz:PTZConfigurationToken>",
                "Sender", "InvalidArgVal", "NoConfig")


@case("PTZ-8-1-1", "ptz")
def ptz_capabilities(cam, f):
    cam.ok("tptz:GetServiceCapabilities").one("tptz:Capabilities")


@case("PTZ-8-1-2", "ptz")
def ptz_capabilities_agree(cam, f):
    cases_device.service_capabilities_agree(cam, NS["tptz"], "tptz:GetServiceCapabilities")


def status(cam, token):
    return cam.ok("tptz:GetStatus", "<tptz:ProfileToken>%s</tptz:ProfileToken>" % token)


def position(cam, token):
    answer = status(cam, token)
    pan_tilt = answer.one("tptz:PTZStatus/tt:Position/tt:PanTilt")
    return float(pan_tilt.get("x")), float(pan_tilt.get("y"))


def settle(cam, token, want, seconds=8):
    """Waits for the head to reach a position near want; the last position read."""
    deadline = time.time() + seconds
    while True:
        x, y = position(cam, token)
        if abs(x - want[0]) < 0.05 and abs(y - want[1]) < 0.05 or time.time() > deadline:
            return x, y
        time.sleep(0.3)


def pan_tilt(x, y, tag="tptz:Position"):
    return '<%s><tt:PanTilt x="%s" y="%s"/></%s>' % (tag, x, y, tag)


@case("PTZ-3-1-1", "ptz")
def absolute_move(cam, f):
    token = ptz_profile(cam)
    cam.ok("tptz:AbsoluteMove", "<tptz:ProfileToken>%s</tptz:ProfileToken>%s" % (token, pan_tilt(0.2, 0.1)))
    x, y = settle(cam, token, (0.2, 0.1))
    check(abs(x - 0.2) < 0.05 and abs(y - 0.1) < 0.05, "position %s %s" % (x, y))


@case("PTZ-3-1-2", "ptz")
def absolute_move_fault(cam, f):
    cam.refused("tptz:AbsoluteMove", "<tptz:ProfileToken>%s</tptz:ProfileToken>%s" % (ptz_profile(cam), pan_tilt(5, -5)),
                "Sender", "InvalidArgVal", "InvalidPosition")


@case("PTZ-3-1-3", "ptz")
def relative_move(cam, f):
    token = ptz_profile(cam)
    cam.ok("tptz:AbsoluteMove", "<tptz:ProfileToken>%s</tptz:ProfileToken>%s" % (token, pan_tilt(0, 0)))
    start = settle(cam, token, (0, 0))
    cam.ok("tptz:RelativeMove", "<tptz:ProfileToken>%s</tptz:ProfileToken>%s" % (token, pan_tilt(0.1, 0.1, "tptz:Translation")))
    # Accuracy is not the case's concern: the head moved in the translation's direction.
    deadline = time.time() + 8
    while True:
        x, y = position(cam, token)
        if x > start[0] and y > start[1] or time.time() > deadline:
            break
        time.sleep(0.3)
    check(x > start[0] and y > start[1], "position %s %s from %s %s" % (x, y, start[0], start[1]))


@case("PTZ-3-1-4", "ptz")
def continuous_move(cam, f):
    token = ptz_profile(cam)
    cam.ok("tptz:ContinuousMove", "<tptz:ProfileToken>%s</tptz:ProfileToken>%s<tptz:Timeout>PT1S</tptz:Timeout>"
           % (token, pan_tilt(0.5, 0, "tptz:Velocity")))
    time.sleep(1.5)


@case("PTZ-3-1-5", "ptz")
def continuous_move_stop(cam, f):
    token = ptz_profile(cam)
    cam.ok("tptz:ContinuousMove", "<tptz:ProfileToken>%s</tptz:ProfileToken>%s" % (token, pan_tilt(-0.5, 0, "tptz:Velocity")))
    time.sleep(0.5)
    cam.ok("tptz:Stop", "<tptz:ProfileToken>%s</tptz:ProfileToken><tptz:PanTilt>true</tptz:PanTilt>"
           "<tptz:Zoom>true</tptz:Zoom>" % token)
    first = position(cam, token)
    time.sleep(0.6)
    check(position(cam, token) == first, "still moving after Stop")


def presets(cam, token):
    return {p.get("token"): p.findtext("tt:Name", "", NS) for p in
            cam.ok("tptz:GetPresets", "<tptz:ProfileToken>%s</tptz:ProfileToken>" % token).all("tptz:Preset")}


def set_preset(cam, token, name):
    return cam.ok("tptz:SetPreset", "<tptz:ProfileToken>%s</tptz:ProfileToken><tptz:PresetName>%s</tptz:PresetName>"
                  % (token, name)).value("tptz:PresetToken")


def remove_preset_of(cam, token, preset):
    cam.ok("tptz:RemovePreset", "<tptz:ProfileToken>%s</tptz:ProfileToken><tptz:PresetToken>%s</tptz:PresetToken>"
           % (token, preset))


def move_to(cam, token, x, y):
    cam.ok("tptz:AbsoluteMove", "<tptz:ProfileToken>%s</tptz:ProfileToken>%s" % (token, pan_tilt(x, y)))
    return settle(cam, token, (x, y))


@case("PTZ-4-1-4", "ptz")
def set_and_get_preset(cam, f):
    token = ptz_profile(cam)
    preset = set_preset(cam, token, "Test4")
    try:
        check(presets(cam, token).get(preset) == "Test4", "preset %s not listed" % preset)
    finally:
        remove_preset_of(cam, token, preset)


@case("PTZ-4-1-5", "ptz")
def goto_preset(cam, f):
    token = ptz_profile(cam)
    move_to(cam, token, 0.3, 0.2)
    preset = set_preset(cam, token, "Test5")
    try:
        move_to(cam, token, -0.3, -0.2)
        cam.ok("tptz:GotoPreset", "<tptz:ProfileToken>%s</tptz:ProfileToken><tptz:PresetToken>%s</tptz:PresetToken>"
               % (token, preset))
        x, y = settle(cam, token, (0.3, 0.2))
        check(abs(x - 0.3) < 0.05 and abs(y - 0.2) < 0.05, "at %s %s after GotoPreset" % (x, y))
    finally:
        remove_preset_of(cam, token, preset)


@case("PTZ-4-1-6", "ptz")
def remove_preset(cam, f):
    token = ptz_profile(cam)
    preset = set_preset(cam, token, "Test6")
    remove_preset_of(cam, token, preset)
    check(preset not in presets(cam, token), "removed preset listed")


@case("PTZ-5-1-1", "ptz", "home configurable")
def home_configurable(cam, f, token=None):
    token = token or ptz_profile(cam)
    cam.ok("tptz:AbsoluteMove", "<tptz:ProfileToken>%s</tptz:ProfileToken>%s" % (token, pan_tilt(0.1, -0.1)))
    settle(cam, token, (0.1, -0.1))
    cam.ok("tptz:SetHomePosition", "<tptz:ProfileToken>%s</tptz:ProfileToken>" % token)
    cam.ok("tptz:AbsoluteMove", "<tptz:ProfileToken>%s</tptz:ProfileToken>%s" % (token, pan_tilt(0.4, 0.3)))
    settle(cam, token, (0.4, 0.3))
    cam.ok("tptz:GotoHomePosition", "<tptz:ProfileToken>%s</tptz:ProfileToken>" % token)
    x, y = settle(cam, token, (0.1, -0.1))
    check(abs(x - 0.1) < 0.05 and abs(y + 0.1) < 0.05, "at %s %s after GotoHomePosition" % (x, y))


@case("PTZ-5-1-3", "ptz")
def home_flag(cam, f):
    # Without the attribute the case has nothing to check.
    token = ptz_profile(cam)
    for node in f["nodes"]:
        fixed = node.get("FixedHomePosition")
        if fixed is None:
            continue
        answer = cam.call("tptz:SetHomePosition", "<tptz:ProfileToken>%s</tptz:ProfileToken>" % token)
        if flag(fixed):
            check(answer.fault, "a fixed home position was overwritten")
        else:
            check(not answer.fault, "SetHomePosition refused: %s" % answer.text[-300:])


case("PTZ-5-1-2", "ptz", "home fixed")(uncoded("a fixed home position"))
case("PTZ-6-1-1", "ptz", "aux")(uncoded("auxiliary commands"))


def space_case(kind, uri):
    """The node lists the generic space, and a move in it is accepted."""
    def run(cam, f):
        check(any(s.text.strip() == GENERIC + uri for n in f["nodes"] for s in n.findall(".//tt:URI", NS)),
              "space %s not listed" % uri)
        token = ptz_profile(cam)
        zoom = "Zoom" in uri
        vector = '<tt:Zoom x="0.1"/>' if zoom else '<tt:PanTilt x="0.1" y="0.1"/>'
        space = vector.replace("/>", ' space="%s"/>' % (GENERIC + uri))
        if kind == "absolute":
            cam.ok("tptz:AbsoluteMove", "<tptz:ProfileToken>%s</tptz:ProfileToken><tptz:Position>%s</tptz:Position>"
                   % (token, space))
        elif kind == "relative":
            cam.ok("tptz:RelativeMove", "<tptz:ProfileToken>%s</tptz:ProfileToken><tptz:Translation>%s</tptz:Translation>"
                   % (token, space))
        elif kind == "continuous":
            cam.ok("tptz:ContinuousMove", "<tptz:ProfileToken>%s</tptz:ProfileToken><tptz:Velocity>%s</tptz:Velocity>"
                   "<tptz:Timeout>PT1S</tptz:Timeout>" % (token, space))
        else:
            speed = space.replace('x="0.1" y="0.1"', 'x="1" y="1"').replace('x="0.1"', 'x="1"')
            cam.ok("tptz:AbsoluteMove", "<tptz:ProfileToken>%s</tptz:ProfileToken><tptz:Position>%s</tptz:Position>"
                   "<tptz:Speed>%s</tptz:Speed>" % (token, vector, speed))
        cam.ok("tptz:Stop", "<tptz:ProfileToken>%s</tptz:ProfileToken>" % token)
    return run


for _id, _kind, _uri in (("PTZ-7-1-3", "absolute", "PanTiltSpaces/PositionGenericSpace"),
                         ("PTZ-7-1-4", "absolute", "ZoomSpaces/PositionGenericSpace"),
                         ("PTZ-7-2-3", "relative", "PanTiltSpaces/TranslationGenericSpace"),
                         ("PTZ-7-2-4", "relative", "ZoomSpaces/TranslationGenericSpace"),
                         ("PTZ-7-3-3", "continuous", "PanTiltSpaces/VelocityGenericSpace"),
                         ("PTZ-7-3-4", "continuous", "ZoomSpaces/VelocityGenericSpace"),
                         ("PTZ-7-4-3", "speed", "PanTiltSpaces/GenericSpeedSpace"),
                         ("PTZ-7-4-4", "speed", "ZoomSpaces/ZoomGenericSpeedSpace")):
    case(_id, "ptz")(space_case(_kind, _uri))


@case("PTZ-5-1-4", "ptz", "media", "home configurable")
def home_custom_profile(cam, f):
    """The home position through a profile the flow makes: a video source and the PTZ configuration."""
    source = cam.ok("trt:GetVideoSourceConfigurations").all("trt:Configurations")[0].get("token")
    ptz = configurations(cam)[0].get("token")
    cam.ok("trt:CreateProfile", "<trt:Name>HomeProfile</trt:Name><trt:Token>HomeProfile</trt:Token>")
    try:
        cam.ok("trt:AddVideoSourceConfiguration", "<trt:ProfileToken>HomeProfile</trt:ProfileToken>"
               "<trt:ConfigurationToken>%s</trt:ConfigurationToken>" % source)
        cam.ok("trt:AddPTZConfiguration", "<trt:ProfileToken>HomeProfile</trt:ProfileToken>"
               "<trt:ConfigurationToken>%s</trt:ConfigurationToken>" % ptz)
        home_configurable(cam, f, "HomeProfile")
    finally:
        cam.call("trt:DeleteProfile", "<trt:ProfileToken>HomeProfile</trt:ProfileToken>")
