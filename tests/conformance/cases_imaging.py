"""Imaging test cases: settings and options, focus moves, status and stop, capabilities."""
import xml.etree.ElementTree as ET

import cases_events
import features
from cases_device import capabilities_agree
from registry import answers, case, cases, refuses
from soap import INVALID, NS, check, el

PREFIXES = ("IMAGING-",)


def source(cam, f, *parts):
    """The imaging request's video source token (a profile's source), then the given parts."""
    return el("timg:VideoSourceToken", features.video_source(f)) + "".join(parts)


def with_source(*parts):
    return lambda cam, f: source(cam, f, *parts)


def focus(kind, value, amount, speed=None):
    """A Move's focus part: kind Absolute, Relative or Continuous, value its Position, Distance or Speed."""
    return el("timg:Focus", el("tt:" + kind, el("tt:" + value, amount), el("tt:Speed", speed) if speed else ""))


BAD_SOURCE = el("timg:VideoSourceToken", "NoSuchSource")
cases([
    ("IMAGING-1-1-1", "imaging", answers("timg:GetImagingSettings", with_source(), "timg:ImagingSettings")),
    ("IMAGING-1-1-3", "imaging", answers("timg:GetOptions", with_source(), "timg:ImagingOptions")),
    ("IMAGING-2-1-1", ("imaging", "focus"), answers("timg:GetMoveOptions", with_source(), "timg:MoveOptions")),
    ("IMAGING-2-1-11", ("imaging", "focus"), answers("timg:GetStatus", with_source(), "timg:Status")),
    ("IMAGING-2-1-13", ("imaging", "focus"), answers("timg:Stop", with_source())),
    ("IMAGING-3-1-1", "imaging", answers("timg:GetServiceCapabilities", "", "timg:Capabilities")),
    ("IMAGING-3-1-2", "imaging", capabilities_agree("timg")),
    ("IMAGING-2-1-8", ("imaging", "continuous focus"), refuses("timg:Move", with_source(focus("Continuous", "Speed", 1000)))),
    ("IMAGING-1-1-10", "imaging", refuses("timg:GetImagingSettings", BAD_SOURCE, *INVALID, "NoSource")),
    ("IMAGING-1-1-11", "imaging", refuses("timg:GetOptions", BAD_SOURCE, *INVALID, "NoSource")),
    ("IMAGING-1-1-12", "imaging", refuses("timg:SetImagingSettings", BAD_SOURCE + el(
        "timg:ImagingSettings", el("tt:Brightness", 50)), *INVALID, "NoSource")),
    ("IMAGING-2-1-15", ("imaging", "focus"), refuses("timg:GetMoveOptions", BAD_SOURCE, *INVALID, "NoSource")),
    ("IMAGING-2-1-16", ("imaging", "focus"), refuses("timg:Move", BAD_SOURCE + focus("Continuous", "Speed", 0.5), *INVALID,
                                                     "NoSource")),
    ("IMAGING-2-1-17", ("imaging", "focus"), refuses("timg:GetStatus", BAD_SOURCE, *INVALID, "NoSource")),
    ("IMAGING-2-1-18", ("imaging", "focus"), refuses("timg:Stop", BAD_SOURCE, *INVALID, "NoSource")),
])


@case("IMAGING-1-1-8", "imaging")
def set_invalid(cam, f):
    top = cam.ok("timg:GetOptions", source(cam, f)).value("timg:ImagingOptions/tt:Brightness/tt:Max", "100")
    cam.refused("timg:SetImagingSettings", source(cam, f, el("timg:ImagingSettings", el("tt:Brightness", float(top) + 1000))),
                *INVALID, "SettingsInvalid")


@case("IMAGING-2-1-7", "imaging", "continuous focus")
def continuous_focus(cam, f):
    cam.ok("timg:Move", source(cam, f, focus("Continuous", "Speed", 0.5)))
    cam.ok("timg:Stop", source(cam, f))


@case("IMAGING-1-1-14", "imaging")
def set_settings(cam, f):
    options = cam.ok("timg:GetOptions", source(cam, f))
    low = float(options.value("timg:ImagingOptions/tt:Brightness/tt:Min", "0"))
    high = float(options.value("timg:ImagingOptions/tt:Brightness/tt:Max", "100"))
    want = low + (high - low) / 2
    cam.ok("timg:SetImagingSettings", source(cam, f, el("timg:ImagingSettings", el("tt:Brightness", "%g" % want)),
                                             el("timg:ForcePersistence", "true")))
    got = cam.ok("timg:GetImagingSettings", source(cam, f)).value("timg:ImagingSettings/tt:Brightness")
    check(abs(float(got) - want) < 1, "brightness %s, set %g" % (got, want))


@case("IMAGING-1-1-16", "imaging")
def settings_within_options(cam, f):
    settings = cam.ok("timg:GetImagingSettings", source(cam, f))
    options = cam.ok("timg:GetOptions", source(cam, f))
    for name in ("Brightness", "ColorSaturation", "Contrast", "Sharpness"):
        value = settings.value("timg:ImagingSettings/tt:%s" % name)
        if value is not None:
            low = options.value("timg:ImagingOptions/tt:%s/tt:Min" % name)
            high = options.value("timg:ImagingOptions/tt:%s/tt:Max" % name)
            check(low is not None and float(low) <= float(value) <= float(high),
                  "%s %s outside %s..%s" % (name, value, low, high))


@case("IMAGING-2-1-10", "imaging", "focus")
def unsupported_move(cam, f):
    if not f["absolute focus"]:
        cam.refused("timg:Move", source(cam, f, focus("Absolute", "Position", 0.5)))
    if not f["relative focus"]:
        cam.refused("timg:Move", source(cam, f, focus("Relative", "Distance", 0.1)))


def focus_range(cam, f, kind, value):
    """(min, max) of a focus move's value in the move options, and the options."""
    options = cam.ok("timg:GetMoveOptions", source(cam, f))
    low = options.value("timg:MoveOptions/tt:%s/tt:%s/tt:Min" % (kind, value))
    high = options.value("timg:MoveOptions/tt:%s/tt:%s/tt:Max" % (kind, value))
    check(low is not None and high is not None, "no %s %s range" % (kind, value))
    return float(low), float(high), options


def focus_move(kind, value):
    def run(cam, f):
        low, high, options = focus_range(cam, f, kind, value)
        cam.ok("timg:Move", source(cam, f, focus(kind, value, "%g" % ((low + high) / 2))))
        if options.all("timg:MoveOptions/tt:%s/tt:Speed" % kind):
            speed = options.value("timg:MoveOptions/tt:%s/tt:Speed/tt:Max" % kind)
            cam.ok("timg:Move", source(cam, f, focus(kind, value, "%g" % low, speed)))
        cam.ok("timg:Stop", source(cam, f))
    return run


def focus_move_invalid(kind, value):
    def run(cam, f):
        low, high, _ = focus_range(cam, f, kind, value)
        cam.refused("timg:Move", source(cam, f, focus(kind, value, "%g" % (high + (high - low) + 1))),
                    *INVALID, "SettingsInvalid")
    return run


case("IMAGING-2-1-3", "imaging", "absolute focus")(focus_move("Absolute", "Position"))
case("IMAGING-2-1-4", "imaging", "absolute focus")(focus_move_invalid("Absolute", "Position"))
case("IMAGING-2-1-5", "imaging", "relative focus")(focus_move("Relative", "Distance"))
case("IMAGING-2-1-6", "imaging", "relative focus")(focus_move_invalid("Relative", "Distance"))


# --- Imaging events: a state of the video source, with its source token ---

def imaging_event_case(branch, services):
    """Each announced topic of the branch (one per service reporting it), checked as an imaging property."""
    def run(cam, f):
        topics = [branch + service for service in services if branch + service in f["topics"]]
        check(topics, "none of %s announced" % [branch + service for service in services])
        for topic in topics:
            cases_events.property_event(cam, f, topic, ("Source", "ReferenceToken"), ("State", "boolean"))
    return run


SERVICES = ("/ImagingService", "/AnalyticsService", "/RecordingService")
for _id, _branch, _services in (("IMAGING-4-1-1", "tns1:VideoSource/ImageTooBlurry", SERVICES),
                                ("IMAGING-4-1-2", "tns1:VideoSource/ImageTooDark", SERVICES),
                                ("IMAGING-4-1-3", "tns1:VideoSource/ImageTooBright", SERVICES),
                                ("IMAGING-4-1-4", "tns1:VideoSource/GlobalSceneChange", SERVICES),
                                ("IMAGING-4-1-5", "tns1:VideoSource/MotionAlarm", ("",))):
    case(_id, "events", cases_events.event_topic(_branch))(imaging_event_case(_branch, _services))


# The settings extension's parameters, each checked only where the options offer it (at least two
# choices, a range, or a level): the option's path under the ImagingOptions, and what the options must hold.
EXTENSION_OPTIONS = (
    ("IR cut filter boundary type", "tt:Extension/tt:IrCutFilterAutoAdjustmentOptions/tt:BoundaryType", 2),
    ("IR cut filter boundary offset", "tt:Extension/tt:IrCutFilterAutoAdjustmentOptions/tt:BoundaryOffset", "true"),
    ("IR cut filter response time", "tt:Extension/tt:IrCutFilterAutoAdjustmentOptions/tt:ResponseTimeRange", 1),
    ("tone compensation mode", "tt:Extension/tt:Extension/tt:ToneCompensationOptions/tt:Mode", 2),
    ("tone compensation level", "tt:Extension/tt:Extension/tt:ToneCompensationOptions/tt:Level", "true"),
    ("defogging mode", "tt:Extension/tt:Extension/tt:DefoggingOptions/tt:Mode", 2),
    ("defogging level", "tt:Extension/tt:Extension/tt:DefoggingOptions/tt:Level", "true"),
    ("noise reduction level", "tt:Extension/tt:Extension/tt:NoiseReductionOptions/tt:Level", "true"),
    ("focus AF modes", "tt:Focus/tt:Extension[@AFModes]", 1),
)


def offered(options, path, need):
    found = options.findall(path, NS)
    if need == "true":
        return any((e.text or "").strip().lower() in ("true", "1") for e in found)
    return len(found) >= need


@case("IMAGING-1-1-15", "imaging")
def extension_settings(cam, f):
    # The camera's options offer no extension parameter today: the case puts the initial settings back,
    # and fails, naming the parameter, once the camera offers one whose steps are not coded.
    options = cam.ok("timg:GetOptions", source(cam, f)).one("timg:ImagingOptions")
    initial = cam.ok("timg:GetImagingSettings", source(cam, f)).one("timg:ImagingSettings")
    for what, path, need in EXTENSION_OPTIONS:
        check(not offered(options, path, need), "the camera now offers the %s: code its step" % what)
    restore = "".join(ET.tostring(child, encoding="unicode") for child in initial)
    cam.ok("timg:SetImagingSettings", source(cam, f, el("timg:ImagingSettings", restore)))
    check(ET.tostring(cam.ok("timg:GetImagingSettings", source(cam, f)).one("timg:ImagingSettings")) == ET.tostring(initial),
          "the settings differ after their initial values were set back")
