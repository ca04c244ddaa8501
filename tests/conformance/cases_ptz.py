"""PTZ test cases: nodes, configurations and their options, moves, presets, home, spaces, capabilities."""
import time
import xml.etree.ElementTree as ET
from contextlib import contextmanager

from cases_device import capabilities_agree
from registry import answers, case, cases, refuses, uncoded
from soap import INVALID, NS, check, el, flag

PREFIXES = ("PTZ-",)

GENERIC = "http://www.onvif.org/ver10/tptz/"


def ptz_profile(cam):
    for profile in cam.ok("trt:GetProfiles").all("trt:Profiles"):
        if profile.find("tt:PTZConfiguration", NS) is not None:
            return profile.get("token")
    raise AssertionError("no profile with a PTZ configuration")


def ptz(cam, op, token, *parts):
    """A PTZ call on a profile: its token, then the given parts."""
    return cam.ok("tptz:" + op, el("tptz:ProfileToken", token) + "".join(parts))


def nodes(cam):
    return cam.ok("tptz:GetNodes").all("tptz:PTZNode")


def configurations(cam):
    return cam.ok("tptz:GetConfigurations").all("tptz:PTZConfiguration")


def configuration_options(cam, c):
    return cam.ok("tptz:GetConfigurationOptions", el("tptz:ConfigurationToken", c.get("token")))


def by_token_case(listing, op, field, element, *same):
    """Each item of the listing, asked for by its token, is answered with that token and the same texts at the
    paths of same."""
    def run(cam, f):
        for item in listing(cam):
            one = cam.ok(op, el("tptz:" + field, item.get("token"))).one(element)
            check(one.get("token") == item.get("token"), "%s token %s" % (op, one.get("token")))
            for path in same:
                check(one.findtext(path, "", NS) == item.findtext(path, "", NS), "%s differs" % path)
    return run


def pan_tilt(x, y, tag="tptz:Position"):
    return '<%s><tt:PanTilt x="%s" y="%s"/></%s>' % (tag, x, y, tag)


cases([
    ("PTZ-1-1-2", "ptz", by_token_case(nodes, "tptz:GetNode", "NodeToken", "tptz:PTZNode")),
    ("PTZ-2-1-2", "ptz", by_token_case(configurations, "tptz:GetConfiguration", "PTZConfigurationToken",
                                       "tptz:PTZConfiguration")),
    ("PTZ-2-1-5", "ptz", by_token_case(configurations, "tptz:GetConfiguration", "PTZConfigurationToken",
                                       "tptz:PTZConfiguration", "tt:NodeToken", "tt:DefaultPTZTimeout")),
    ("PTZ-1-1-4", "ptz", refuses("tptz:GetNode", el("tptz:NodeToken", "NoSuchNode"), *INVALID, "NoEntity")),
    ("PTZ-2-1-10", "ptz", refuses("tptz:GetConfiguration", el("tptz:PTZConfigurationToken", "NoSuchConfiguration"),
                                  *INVALID, "NoConfig")),
    ("PTZ-3-1-2", "ptz", refuses("tptz:AbsoluteMove", lambda cam, f: el("tptz:ProfileToken", ptz_profile(cam))
                                 + pan_tilt(5, -5), *INVALID, "InvalidPosition")),
    ("PTZ-1-1-1", "ptz", answers("tptz:GetNodes", "", "tptz:PTZNode")),
    ("PTZ-2-1-1", "ptz", answers("tptz:GetConfigurations", "", "tptz:PTZConfiguration")),
    ("PTZ-8-1-1", "ptz", answers("tptz:GetServiceCapabilities", "", "tptz:Capabilities")),
    ("PTZ-8-1-2", "ptz", capabilities_agree("tptz")),
])


@case("PTZ-2-1-3", "ptz")
def options_timeout(cam, f):
    for c in configurations(cam):
        configuration_options(cam, c).one("tptz:PTZConfigurationOptions/tt:PTZTimeout/tt:Min")


@case("PTZ-2-1-6", "ptz")
def configurations_and_nodes(cam, f):
    tokens = [n.get("token") for n in nodes(cam)]
    for c in configurations(cam):
        check(c.findtext("tt:NodeToken", "", NS).strip() in tokens, "configuration on an unknown node")


@case("PTZ-2-1-7", "ptz")
def configurations_and_options(cam, f):
    for c in configurations(cam):
        spaces = [s.text.strip() for s in configuration_options(cam, c).all(".//tt:URI")]
        for uri in filter(None, (space.get("space") for space in c.findall("tt:*", NS))):
            check(uri in spaces, "space %s not in options" % uri)


case("PTZ-2-1-9", "ptz")(answers("tptz:SetConfiguration", lambda cam, f: ET.tostring(
    configurations(cam)[0], encoding="unicode") + el("tptz:ForcePersistence", "true")))


def position(cam, token):
    pan_tilt = ptz(cam, "GetStatus", token).one("tptz:PTZStatus/tt:Position/tt:PanTilt")
    return float(pan_tilt.get("x")), float(pan_tilt.get("y"))


def settle(cam, token, arrived):
    """Waits (8 s at most) for the head's position to satisfy arrived; the last position read."""
    deadline = time.time() + 8
    while True:
        at = position(cam, token)
        if arrived(at) or time.time() > deadline:
            return at
        time.sleep(0.3)


def near(x, y):
    return lambda at: abs(at[0] - x) < 0.05 and abs(at[1] - y) < 0.05


def move_to(cam, token, x, y):
    ptz(cam, "AbsoluteMove", token, pan_tilt(x, y))
    return settle(cam, token, near(x, y))


def arrives(cam, token, x, y, after):
    at = settle(cam, token, near(x, y))
    check(near(x, y)(at), "at %s %s after %s" % (at[0], at[1], after))


@case("PTZ-3-1-1", "ptz")
def absolute_move(cam, f):
    token = ptz_profile(cam)
    ptz(cam, "AbsoluteMove", token, pan_tilt(0.2, 0.1))
    arrives(cam, token, 0.2, 0.1, "AbsoluteMove")


@case("PTZ-3-1-3", "ptz")
def relative_move(cam, f):
    token = ptz_profile(cam)
    start = move_to(cam, token, 0, 0)
    ptz(cam, "RelativeMove", token, pan_tilt(0.1, 0.1, "tptz:Translation"))
    # Accuracy is not the case's concern: the head moved in the translation's direction.
    x, y = settle(cam, token, lambda at: at[0] > start[0] and at[1] > start[1])
    check(x > start[0] and y > start[1], "position %s %s from %s %s" % (x, y, start[0], start[1]))


@case("PTZ-3-1-4", "ptz")
def continuous_move(cam, f):
    ptz(cam, "ContinuousMove", ptz_profile(cam), pan_tilt(0.5, 0, "tptz:Velocity"), el("tptz:Timeout", "PT1S"))
    time.sleep(1.5)


@case("PTZ-3-1-5", "ptz")
def continuous_move_stop(cam, f):
    token = ptz_profile(cam)
    ptz(cam, "ContinuousMove", token, pan_tilt(-0.5, 0, "tptz:Velocity"))
    time.sleep(0.5)
    ptz(cam, "Stop", token, el("tptz:PanTilt", "true"), el("tptz:Zoom", "true"))
    first = position(cam, token)
    time.sleep(0.6)
    check(position(cam, token) == first, "still moving after Stop")


def presets(cam, token):
    return {p.get("token"): p.findtext("tt:Name", "", NS) for p in ptz(cam, "GetPresets", token).all("tptz:Preset")}


@contextmanager
def preset(cam, token, name):
    """A preset at the head's position, removed when done."""
    made = ptz(cam, "SetPreset", token, el("tptz:PresetName", name)).value("tptz:PresetToken")
    try:
        yield made
    finally:
        ptz(cam, "RemovePreset", token, el("tptz:PresetToken", made))


@case("PTZ-4-1-4", "ptz")
def set_and_get_preset(cam, f):
    token = ptz_profile(cam)
    with preset(cam, token, "Test4") as made:
        check(presets(cam, token).get(made) == "Test4", "preset %s not listed" % made)


@case("PTZ-4-1-5", "ptz")
def goto_preset(cam, f):
    token = ptz_profile(cam)
    move_to(cam, token, 0.3, 0.2)
    with preset(cam, token, "Test5") as made:
        move_to(cam, token, -0.3, -0.2)
        ptz(cam, "GotoPreset", token, el("tptz:PresetToken", made))
        arrives(cam, token, 0.3, 0.2, "GotoPreset")


@case("PTZ-4-1-6", "ptz")
def remove_preset(cam, f):
    token = ptz_profile(cam)
    with preset(cam, token, "Test6") as made:
        pass
    check(made not in presets(cam, token), "removed preset listed")


@case("PTZ-5-1-1", "ptz", "home configurable")
def home_configurable(cam, f, token=None):
    token = token or ptz_profile(cam)
    move_to(cam, token, 0.1, -0.1)
    ptz(cam, "SetHomePosition", token)
    move_to(cam, token, 0.4, 0.3)
    ptz(cam, "GotoHomePosition", token)
    arrives(cam, token, 0.1, -0.1, "GotoHomePosition")


@case("PTZ-5-1-3", "ptz")
def home_flag(cam, f):
    # Without the attribute the case has nothing to check.
    token = ptz_profile(cam)
    for fixed in filter(lambda v: v is not None, (node.get("FixedHomePosition") for node in f["nodes"])):
        answer = cam.call("tptz:SetHomePosition", el("tptz:ProfileToken", token))
        check(answer.fault == flag(fixed), "a fixed home position was overwritten" if flag(fixed)
              else "SetHomePosition refused: %s" % answer.text[-300:])


@case("PTZ-5-1-4", "ptz", "media", "home configurable")
def home_custom_profile(cam, f):
    """The home position through a profile the flow makes: a video source and the PTZ configuration."""
    source = cam.ok("trt:GetVideoSourceConfigurations").all("trt:Configurations")[0].get("token")
    held = configurations(cam)[0].get("token")
    cam.ok("trt:CreateProfile", el("trt:Name", "HomeProfile") + el("trt:Token", "HomeProfile"))
    try:
        for kind, token in (("VideoSource", source), ("PTZ", held)):
            cam.ok("trt:Add%sConfiguration" % kind, el("trt:ProfileToken", "HomeProfile")
                   + el("trt:ConfigurationToken", token))
        home_configurable(cam, f, "HomeProfile")
    finally:
        cam.call("trt:DeleteProfile", el("trt:ProfileToken", "HomeProfile"))


case("PTZ-5-1-2", "ptz", "home fixed")(uncoded("a fixed home position"))
case("PTZ-6-1-1", "ptz", "aux")(uncoded("auxiliary commands"))


def space_case(kind, uri):
    """The node lists the generic space, and a move in it is accepted."""
    def run(cam, f):
        check(any(s.text.strip() == GENERIC + uri for n in f["nodes"] for s in n.findall(".//tt:URI", NS)),
              "space %s not listed" % uri)
        token = ptz_profile(cam)
        axis = "Zoom" if "Zoom" in uri else "PanTilt"

        def vector(value, space=' space="%s"' % (GENERIC + uri)):
            return '<tt:%s x="%s"%s%s/>' % (axis, value, "" if axis == "Zoom" else ' y="%s"' % value, space)
        if kind == "absolute":
            ptz(cam, "AbsoluteMove", token, el("tptz:Position", vector("0.1")))
        elif kind == "relative":
            ptz(cam, "RelativeMove", token, el("tptz:Translation", vector("0.1")))
        elif kind == "continuous":
            ptz(cam, "ContinuousMove", token, el("tptz:Velocity", vector("0.1")), el("tptz:Timeout", "PT1S"))
        else:
            ptz(cam, "AbsoluteMove", token, el("tptz:Position", vector("0.1", "")), el("tptz:Speed", vector("1")))
        ptz(cam, "Stop", token)
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
