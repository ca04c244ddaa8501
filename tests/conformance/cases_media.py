"""Media configuration test cases: profiles, video source and encoder configurations, URIs, capabilities."""
import xml.etree.ElementTree as ET

from cases_device import capabilities_agree
from registry import answers, case, cases, refuses, uncoded
from soap import INVALID, NS, check, el, q

PREFIXES = ("MEDIA-",)
KINDS = ("VideoSource", "VideoEncoder", "AudioSource", "AudioEncoder")  # of configuration


def needs(kind):
    return ("media", "audio") if kind.startswith("Audio") else ("media",)


def profiles(cam):
    return cam.ok("trt:GetProfiles").all("trt:Profiles")


def profile_token(token):
    return el("trt:ProfileToken", token)


def token_of(element, path):
    found = element.find(path, NS)
    return found.get("token") if found is not None else None


def configurations(cam, kind):
    return cam.ok("trt:Get%sConfigurations" % kind).all("trt:Configurations")


def configuration(cam, kind, token):
    return cam.ok("trt:Get%sConfiguration" % kind, el("trt:ConfigurationToken", token))


def options(cam, kind, token):
    return cam.ok("trt:Get%sConfigurationOptions" % kind, el("trt:ConfigurationToken", token))


def set_configuration(cam, kind, element):
    """Set<kind>Configuration with a copy of the element as its trt:Configuration."""
    copy = ET.fromstring(ET.tostring(element))
    copy.tag = q("trt:Configuration")
    cam.ok("trt:Set%sConfiguration" % kind, ET.tostring(copy, encoding="unicode") + el("trt:ForcePersistence", "true"))


def profiles_case(*parts):
    """Each listed profile answers GetProfile by its token, with the same configurations of the parts."""
    def run(cam, f):
        listed = profiles(cam)
        check(listed, "no profiles")
        for profile in listed:
            one = cam.ok("trt:GetProfile", profile_token(profile.get("token"))).one("trt:Profile")
            check(one.get("token") == profile.get("token"), "GetProfile token %s" % one.get("token"))
            for part in parts:
                check(token_of(one, part) == token_of(profile, part), "%s of %s differs" % (part, profile.get("token")))
    return run


case("MEDIA-1-1-1", "media")(profiles_case())
case("MEDIA-1-1-3", "media")(profiles_case("tt:VideoSourceConfiguration", "tt:VideoEncoderConfiguration",
                                           "tt:PTZConfiguration"))


@case("MEDIA-1-1-5", "media")
def dynamic_profile(cam, f):
    cam.ok("trt:CreateProfile", el("trt:Name", "TestProfile") + el("trt:Token", "TestProfile9"))
    try:
        check(any(p.get("token") == "TestProfile9" for p in profiles(cam)), "new profile not listed")
    finally:
        cam.ok("trt:DeleteProfile", profile_token("TestProfile9"))
    check(not any(p.get("token") == "TestProfile9" for p in profiles(cam)), "deleted profile listed")


def configurations_case(kind):
    """Each listed configuration answers by its token, and the profiles use listed ones only."""
    def run(cam, f):
        listed = configurations(cam, kind)
        check(listed, "no %sConfigurations" % kind)
        for one in listed:
            token = one.get("token")
            check(configuration(cam, kind, token).one("trt:Configuration").get("token") == token, "%s %s" % (kind, token))
        for profile in profiles(cam):
            used = token_of(profile, "tt:%sConfiguration" % kind)
            check(used is None or any(c.get("token") == used for c in listed), "profile uses unlisted %s" % used)
    return run


def sources_case(kind, available=None):
    """Each kind (Video, Audio) source configuration names a source the camera lists, or, with available,
    one its options offer."""
    def run(cam, f):
        listed = [] if available else [s.get("token") for s in cam.ok("trt:Get%sSources" % kind).all("trt:%sSources" % kind)]
        for one in configurations(cam, kind + "Source"):
            sources = [s.text.strip() for s in options(cam, kind + "Source", one.get("token")).all(
                "trt:Options/tt:" + available)] if available else listed
            token = one.findtext("tt:SourceToken", "", NS).strip()
            check(token in sources, "source token %s not among %s" % (token, sources))
    return run


def use_count_case(kind):
    """No configuration's UseCount is below the number of profiles that hold it."""
    def run(cam, f):
        held = {}
        for profile in profiles(cam):
            token = token_of(profile, "tt:%sConfiguration" % kind)
            if token:
                held[token] = held.get(token, 0) + 1
        for one in configurations(cam, kind):
            count, token = int(one.findtext("tt:UseCount", "0", NS)), one.get("token")
            check(count >= held.get(token, 0), "%s UseCount %d, held by %d profiles" % (token, count, held.get(token, 0)))
    return run


def profile_options_case(kind):
    """The options for each profile's configuration, asked by profile and by configuration, answer."""
    def run(cam, f):
        for profile in profiles(cam):
            token = token_of(profile, "tt:%sConfiguration" % kind)
            if token:
                cam.ok("trt:Get%sConfigurationOptions" % kind, el("trt:ConfigurationToken", token)
                       + profile_token(profile.get("token"))).one("trt:Options")
    return run


for _kind, _reads, _use_count, _profile_options in (
        ("VideoEncoder", ("MEDIA-2-1-2", "MEDIA-2-3-1", "MEDIA-2-3-2"), "MEDIA-2-3-5", "MEDIA-2-3-4"),
        ("VideoSource", ("MEDIA-2-1-8", "MEDIA-2-2-1", "MEDIA-2-2-2"), "MEDIA-2-2-6", "MEDIA-2-2-4"),
        ("AudioSource", ("MEDIA-3-1-22", "MEDIA-3-2-1", "MEDIA-3-2-2"), "MEDIA-3-2-6", "MEDIA-3-2-4"),
        ("AudioEncoder", ("MEDIA-3-1-23", "MEDIA-3-3-1", "MEDIA-3-3-2"), "MEDIA-3-3-5", "MEDIA-3-3-4")):
    for _id in _reads:
        case(_id, *needs(_kind))(configurations_case(_kind))
    case(_use_count, *needs(_kind))(use_count_case(_kind))
    case(_profile_options, *needs(_kind))(profile_options_case(_kind))


def stream_setup(protocol, profile):
    return el("trt:StreamSetup", el("tt:Stream", "RTP-Unicast"), el("tt:Transport", el("tt:Protocol", protocol))) \
        + profile_token(profile)


def unknown_audio_source_configuration(cam, f):
    source = cam.ok("trt:GetAudioSources").all("trt:AudioSources")[0].get("token")
    return ('<trt:Configuration token="NoSuchToken">%s</trt:Configuration>' % (
        el("tt:Name", "x") + el("tt:UseCount", 1) + el("tt:SourceToken", source)) + el("trt:ForcePersistence", "true"))


cases([
    ("MEDIA-2-2-3", "media", sources_case("Video", "VideoSourceTokensAvailable")),
    ("MEDIA-3-1-7", ("media", "audio"), sources_case("Audio", "InputTokensAvailable")),
    ("MEDIA-3-2-3", ("media", "audio"), sources_case("Audio", "InputTokensAvailable")),
    ("MEDIA-2-2-5", "media", sources_case("Video")),
    ("MEDIA-3-2-5", ("media", "audio"), sources_case("Audio")),
    ("MEDIA-7-1-4", "media", refuses("trt:GetStreamUri", stream_setup("RTSP", "NoSuchProfile"), *INVALID, "NoProfile")),
    ("MEDIA-7-1-2", "media", refuses("trt:GetStreamUri", lambda cam, f: stream_setup(
        "NoSuchProtocol", profiles(cam)[0].get("token")), "Sender")),
    ("MEDIA-8-1-1", "media", answers("trt:GetServiceCapabilities", "", "trt:Capabilities/trt:ProfileCapabilities",
                                     "trt:Capabilities/trt:StreamingCapabilities")),
    ("MEDIA-8-1-2", "media", capabilities_agree("trt")),
    ("MEDIA-3-1-17", ("media", "audio"), refuses("trt:GetAudioSourceConfiguration",
                                                 el("trt:ConfigurationToken", "NoSuchToken"), *INVALID, "NoConfig")),
    ("MEDIA-3-1-18", ("media", "audio"), refuses("trt:GetAudioSourceConfigurationOptions", profile_token("NoSuchToken"),
                                                 *INVALID, "NoProfile")),
    ("MEDIA-3-1-19", ("media", "audio"), refuses("trt:GetAudioSourceConfigurationOptions",
                                                 el("trt:ConfigurationToken", "NoSuchToken"), *INVALID, "NoConfig")),
    ("MEDIA-3-1-20", ("media", "audio"), refuses("trt:SetAudioSourceConfiguration", unknown_audio_source_configuration,
                                                 *INVALID, "NoConfig")),
])


@case("MEDIA-2-3-3", "media")
def encoder_options(cam, f):
    for one in configurations(cam, "VideoEncoder"):
        encoding = one.findtext("tt:Encoding", "", NS).strip()
        check(options(cam, "VideoEncoder", one.get("token")).all("trt:Options/tt:" + encoding),
              "encoding %s has no options" % encoding)


@case("MEDIA-4-1-2", "media", "ptz")
def ptz_configurations_in_profiles(cam, f):
    listed = [c.get("token") for c in cam.ok("tptz:GetConfigurations").all("tptz:PTZConfiguration")]
    for profile in profiles(cam):
        used = token_of(profile, "tt:PTZConfiguration")
        check(used is None or used in listed, "profile PTZ configuration %s unlisted" % used)


@case("MEDIA-6-1-1", "media")
def snapshot_uri(cam, f):
    for profile in profiles(cam):
        uri = cam.ok("trt:GetSnapshotUri", profile_token(profile.get("token"))).value("trt:MediaUri/tt:Uri", "")
        check(uri.startswith("http"), "snapshot uri %s" % uri)


@case("MEDIA-7-1-5", "media")
def multicast_invalid(cam, f):
    # Where the camera has no multicast, ActionNotSupported is the case's other answer.
    answer = cam.call("trt:StartMulticastStreaming", profile_token("NoSuchProfile"))
    check(answer.subcodes() in ([*INVALID, "NoProfile"], ["Receiver", "ActionNotSupported"]),
          "fault codes %s" % answer.subcodes())


def offered_audio(cam, token, encoding):
    return [o for o in options(cam, "AudioEncoder", token).all("trt:Options/tt:Options")
            if o.findtext("tt:Encoding", "", NS).strip() == encoding]


def audio_encoder_options(cam, f):
    for one in configurations(cam, "AudioEncoder"):
        encoding = one.findtext("tt:Encoding", "", NS).strip()
        offered = offered_audio(cam, one.get("token"), encoding)
        check(offered, "encoding %s not offered" % encoding)
        rates = [int(r.text) for o in offered for r in o.findall("tt:SampleRateList/tt:Items", NS)]
        check(not rates or int(one.findtext("tt:SampleRate", "0", NS)) in rates, "sample rate not offered")


case("MEDIA-3-3-3", "media", "audio")(audio_encoder_options)
case("MEDIA-3-3-11", "media", "audio")(audio_encoder_options)


def set_audio_encoder(encoding):
    """Sets the first audio encoder configuration to an encoding (its own where None) with the first bit
    rate and sample rate its options offer, reads it back, and puts the original back."""
    def run(cam, f):
        original = configurations(cam, "AudioEncoder")[0]
        token = original.get("token")
        want = encoding or original.findtext("tt:Encoding", "", NS).strip()
        offered = offered_audio(cam, token, want)
        check(offered, "%s not offered" % want)
        values = (("Encoding", want), ("Bitrate", offered[0].findtext("tt:BitrateList/tt:Items", "", NS).strip()),
                  ("SampleRate", offered[0].findtext("tt:SampleRateList/tt:Items", "", NS).strip()))
        changed = ET.fromstring(ET.tostring(original))
        for name, value in values:
            changed.find("tt:" + name, NS).text = value
        set_configuration(cam, "AudioEncoder", changed)
        after = configuration(cam, "AudioEncoder", token)
        for name, value in values:
            check(after.value("trt:Configuration/tt:" + name) == value,
                  "%s %s after setting %s" % (name, after.value("trt:Configuration/tt:" + name), value))
        set_configuration(cam, "AudioEncoder", original)
    return run


case("MEDIA-3-1-21", "media", "audio")(set_audio_encoder(None))
case("MEDIA-3-1-14", "media", "audio", "g711")(set_audio_encoder("G711"))
case("MEDIA-3-1-15", "media", "audio", "g726")(set_audio_encoder("G726"))
case("MEDIA-3-1-16", "media", "audio", "aac")(set_audio_encoder("AAC"))
for _n in (4, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17):
    case("MEDIA-3-4-%d" % _n, "media", "audio output")(uncoded("an audio output"))


@case("MEDIA-5-1-3", "media", "metadata")
def metadata_configuration(cam, f):
    for listed in configurations(cam, "Metadata"):
        token = listed.get("token")
        one = configuration(cam, "Metadata", token).one("trt:Configuration")
        check(one.get("token") == token, "metadata configuration %s" % token)
        options(cam, "Metadata", token)
        set_configuration(cam, "Metadata", one)


def with_encoding(configuration, name, offered):
    """A copy of a video encoder configuration set to an encoding with the first resolution and the
    shortest GOV length its options offer."""
    changed = ET.fromstring(ET.tostring(configuration))
    changed.find("tt:Encoding", NS).text = name
    resolution = offered.find("tt:ResolutionsAvailable", NS)
    if resolution is not None:
        for axis in ("Width", "Height"):
            changed.find("tt:Resolution/tt:" + axis, NS).text = resolution.findtext("tt:" + axis, "", NS)
    for section in ("tt:MPEG4", "tt:H264"):
        for old in changed.findall(section, NS):
            changed.remove(old)
    if name in ("MPEG4", "H264"):
        section = ET.Element(q("tt:" + name))
        ET.SubElement(section, q("tt:GovLength")).text = offered.findtext("tt:GovLengthRange/tt:Min", "1", NS)
        profile = "Mpeg4Profile" if name == "MPEG4" else "H264Profile"
        ET.SubElement(section, q("tt:" + profile)).text = offered.findtext(
            "tt:%ssSupported" % profile, "SP" if name == "MPEG4" else "Main", NS)
        changed.insert(list(changed).index(changed.find("tt:RateControl", NS)) + 1, section)
    return changed


def set_encodings(cam, encoders, wanted=("H264", "JPEG", "MPEG4")):
    """Each wanted encoding the options offer is set on each configuration and reads back; the original goes back."""
    done = 0
    for encoder in encoders:
        token = encoder.get("token")
        offers = options(cam, "VideoEncoder", token)
        for name in wanted:
            offered = offers.all("trt:Options/tt:" + name)
            if not offered:
                continue
            set_configuration(cam, "VideoEncoder", with_encoding(encoder, name, offered[0]))
            check(configuration(cam, "VideoEncoder", token).value("trt:Configuration/tt:Encoding") == name,
                  "%s not set on %s" % (name, token))
            done += 1
        set_configuration(cam, "VideoEncoder", encoder)
    check(done, "no configuration offers %s" % "/".join(wanted))


def encodings_case(count=None, wanted=("H264", "JPEG", "MPEG4")):
    return lambda cam, f: set_encodings(cam, configurations(cam, "VideoEncoder")[:count], wanted)


cases([("MEDIA-2-1-9", ("media", "jpeg"), encodings_case(wanted=("JPEG",))),
       ("MEDIA-2-1-10", ("media", "mpeg4"), encodings_case(wanted=("MPEG4",))),
       ("MEDIA-2-1-11", ("media", "h264"), encodings_case(wanted=("H264",))),
       ("MEDIA-2-3-12", "media", encodings_case(1)),
       ("MEDIA-2-3-18", "media", encodings_case())])


@case("MEDIA-2-1-6", "media")
def guaranteed_instances(cam, f):
    for one in configurations(cam, "VideoSource"):
        answer = cam.ok("trt:GetGuaranteedNumberOfVideoEncoderInstances", el("trt:ConfigurationToken", one.get("token")))
        check(int(answer.value("trt:TotalNumber", "0")) >= 1, "TotalNumber %s" % answer.value("trt:TotalNumber"))


@case("MEDIA-2-1-7", "media")
def guaranteed_and_options(cam, f):
    offered = set()
    for encoder in configurations(cam, "VideoEncoder"):
        offers = options(cam, "VideoEncoder", encoder.get("token"))
        offered |= {name for name in ("H264", "JPEG", "MPEG4") if offers.all("trt:Options/tt:" + name)}
    for one in configurations(cam, "VideoSource"):
        answer = cam.ok("trt:GetGuaranteedNumberOfVideoEncoderInstances", el("trt:ConfigurationToken", one.get("token")))
        total = int(answer.value("trt:TotalNumber", "0"))
        for name in ("H264", "JPEG", "MPEG4"):
            count = answer.value("trt:" + name)
            if count is not None and int(count) > 0:
                check(name in offered, "%s guaranteed but not offered" % name)
                check(int(count) <= total, "%s count %s over the total %d" % (name, count, total))


# Use counts as profiles take and drop configurations, on a profile of the flow's own.
SCRATCH = "UseCountProfile"


def use_counts(cam, kind):
    return {c.get("token"): int(c.findtext("tt:UseCount", "0", NS)) for c in configurations(cam, kind)}


def add(cam, kind, token):
    cam.ok("trt:Add%sConfiguration" % kind, profile_token(SCRATCH) + el("trt:ConfigurationToken", token))


# change: (which of the sorted configurations are added, the step after, the use count changes by configuration)
CHANGES = {"twice": ((0, 0), None, {0: 1}), "different": ((0, 1), None, {0: 0, 1: 1}), "remove": ((0,), "remove", {0: 0}),
           "delete": ((0,), "delete", {0: 0}), "set": ((), "set", {0: 0})}


def use_count_change_case(kind, change):
    added, step, changes = CHANGES[change]

    def run(cam, f):
        cam.ok("trt:CreateProfile", el("trt:Name", SCRATCH) + el("trt:Token", SCRATCH))
        deleted = False
        try:
            if kind.endswith("Encoder"):  # an encoder joins a profile that has a source
                source = kind.replace("Encoder", "Source")
                add(cam, source, sorted(use_counts(cam, source))[0])
            before = use_counts(cam, kind)
            tokens = sorted(before)
            if max(changes) >= len(tokens):
                return  # nothing to replace it with: the case has no step left
            for n in added:
                add(cam, kind, tokens[n])
            if step == "remove":
                cam.ok("trt:Remove%sConfiguration" % kind, profile_token(SCRATCH))
            elif step == "delete":
                cam.ok("trt:DeleteProfile", profile_token(SCRATCH))
                deleted = True
            elif step == "set":
                set_configuration(cam, kind, configuration(cam, kind, tokens[0]).one("trt:Configuration"))
            now = use_counts(cam, kind)
            check(all(now[tokens[n]] == before[tokens[n]] + d for n, d in changes.items()),
                  "UseCounts %s after %s, were %s" % (now, change, before))
        finally:
            if not deleted:
                cam.call("trt:DeleteProfile", profile_token(SCRATCH))
    return run


for _kind, _first in zip(KINDS, ("MEDIA-2-2-12", "MEDIA-2-3-13", "MEDIA-3-2-12", "MEDIA-3-3-12")):
    _head, _, _n = _first.rpartition("-")
    for _offset, _change in enumerate(("twice", "different", "remove", "delete", "set")):
        case("%s-%d" % (_head, int(_n) + _offset), *needs(_kind))(use_count_change_case(_kind, _change))
