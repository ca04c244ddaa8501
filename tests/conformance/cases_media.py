"""Media configuration test cases: profiles, video source and encoder configurations, URIs, capabilities."""
from registry import case, uncoded
from soap import NS, check
import cases_device
import xml.etree.ElementTree as ET

PREFIXES = ("MEDIA-",)


def profiles(cam):
    return cam.ok("trt:GetProfiles").all("trt:Profiles")


def token_of(element, path):
    found = element.find(path, NS)
    return found.get("token") if found is not None else None


@case("MEDIA-1-1-1", "media")
def profile_configuration(cam, f):
    listed = profiles(cam)
    check(listed, "no profiles")
    for profile in listed:
        one = cam.ok("trt:GetProfile", "<trt:ProfileToken>%s</trt:ProfileToken>" % profile.get("token")).one("trt:Profile")
        check(one.get("token") == profile.get("token"), "GetProfile token %s" % one.get("token"))


@case("MEDIA-1-1-3", "media")
def profiles_consistency(cam, f):
    for profile in profiles(cam):
        one = cam.ok("trt:GetProfile", "<trt:ProfileToken>%s</trt:ProfileToken>" % profile.get("token")).one("trt:Profile")
        for part in ("tt:VideoSourceConfiguration", "tt:VideoEncoderConfiguration", "tt:PTZConfiguration"):
            check(token_of(one, part) == token_of(profile, part), "%s of %s differs" % (part, profile.get("token")))


@case("MEDIA-1-1-5", "media")
def dynamic_profile(cam, f):
    cam.ok("trt:CreateProfile", "<trt:Name>TestProfile</trt:Name><trt:Token>TestProfile9</trt:Token>")
    try:
        check(any(p.get("token") == "TestProfile9" for p in profiles(cam)), "new profile not listed")
    finally:
        cam.ok("trt:DeleteProfile", "<trt:ProfileToken>TestProfile9</trt:ProfileToken>")
    check(not any(p.get("token") == "TestProfile9" for p in profiles(cam)), "deleted profile listed")


def configurations_case(plural, singular, element):
    def run(cam, f):
        listed = cam.ok("trt:Get%s" % plural).all("trt:Configurations")
        check(listed, "no %s" % plural)
        for configuration in listed:
            token = configuration.get("token")
            one = cam.ok("trt:Get%s" % singular, "<trt:ConfigurationToken>%s</trt:ConfigurationToken>" % token)
            check(one.one("trt:Configuration").get("token") == token, "%s %s" % (singular, token))
        for profile in profiles(cam):
            used = token_of(profile, element)
            check(used is None or any(c.get("token") == used for c in listed), "profile uses unlisted %s" % used)
    return run


for _id, _kind in (("MEDIA-2-1-2", "VideoEncoder"), ("MEDIA-2-3-1", "VideoEncoder"), ("MEDIA-2-3-2", "VideoEncoder"),
                   ("MEDIA-2-1-8", "VideoSource"), ("MEDIA-2-2-1", "VideoSource"), ("MEDIA-2-2-2", "VideoSource")):
    case(_id, "media")(configurations_case(_kind + "Configurations", _kind + "Configuration", "tt:%sConfiguration" % _kind))


@case("MEDIA-2-1-6", "media")
def guaranteed_instances(cam, f):
    for configuration in cam.ok("trt:GetVideoSourceConfigurations").all("trt:Configurations"):
        answer = cam.ok("trt:GetGuaranteedNumberOfVideoEncoderInstances",
                        "<trt:ConfigurationToken>%s</trt:ConfigurationToken>" % configuration.get("token"))
        check(int(answer.value("trt:TotalNumber", "0")) >= 1, "TotalNumber %s" % answer.value("trt:TotalNumber"))


def source_options_case(kind, available):
    """Each kind (Video, Audio) source configuration's source is among those its options offer."""
    def run(cam, f):
        for configuration in cam.ok("trt:Get%sSourceConfigurations" % kind).all("trt:Configurations"):
            options = cam.ok("trt:Get%sSourceConfigurationOptions" % kind,
                             "<trt:ConfigurationToken>%s</trt:ConfigurationToken>" % configuration.get("token"))
            sources = [s.text.strip() for s in options.all("trt:Options/tt:" + available)]
            check(configuration.findtext("tt:SourceToken", "", NS).strip() in sources, "source token not in options")
    return run


case("MEDIA-2-2-3", "media")(source_options_case("Video", "VideoSourceTokensAvailable"))


@case("MEDIA-2-2-5", "media")
def sources_consistency(cam, f):
    sources = [s.get("token") for s in cam.ok("trt:GetVideoSources").all("trt:VideoSources")]
    for configuration in cam.ok("trt:GetVideoSourceConfigurations").all("trt:Configurations"):
        check(configuration.findtext("tt:SourceToken", "", NS).strip() in sources, "unknown source token")


@case("MEDIA-2-3-3", "media")
def encoder_options(cam, f):
    for configuration in cam.ok("trt:GetVideoEncoderConfigurations").all("trt:Configurations"):
        options = cam.ok("trt:GetVideoEncoderConfigurationOptions",
                         "<trt:ConfigurationToken>%s</trt:ConfigurationToken>" % configuration.get("token"))
        encoding = configuration.findtext("tt:Encoding", "", NS).strip()
        check(options.all("trt:Options/tt:" + ("H264" if encoding == "H264" else encoding)),
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
        uri = cam.ok("trt:GetSnapshotUri", "<trt:ProfileToken>%s</trt:ProfileToken>" % profile.get("token"))
        check(uri.value("trt:MediaUri/tt:Uri", "").startswith("http"), "snapshot uri %s" % uri.value("trt:MediaUri/tt:Uri"))


@case("MEDIA-7-1-4", "media")
def stream_uri_fault(cam, f):
    cam.refused("trt:GetStreamUri", "<trt:StreamSetup><tt:Stream>RTP-Unicast</tt:Stream><tt:Transport>"
                "<tt:Protocol>RTSP</tt:Protocol></tt:Transport></trt:StreamSetup>"
                "<trt:ProfileToken>NoSuchProfile</trt:ProfileToken>", "Sender", "InvalidArgVal", "NoProfile")


@case("MEDIA-7-1-2", "media")
def stream_uri_invalid_setup(cam, f):
    token = profiles(cam)[0].get("token")
    cam.refused("trt:GetStreamUri", "<trt:StreamSetup><tt:Stream>RTP-Unicast</tt:Stream><tt:Transport>"
                "<tt:Protocol>NoSuchProtocol</tt:Protocol></tt:Transport></trt:StreamSetup>"
                "<trt:ProfileToken>%s</trt:ProfileToken>" % token, "Sender")


@case("MEDIA-7-1-5", "media")
def multicast_invalid(cam, f):
    # Where the camera has no multicast, ActionNotSupported is the case's other answer.
    answer = cam.call("trt:StartMulticastStreaming", "<trt:ProfileToken>NoSuchProfile</trt:ProfileToken>")
    check(answer.subcodes() in (["Sender", "InvalidArgVal", "NoProfile"], ["Receiver", "ActionNotSupported"]),
          "fault codes %s" % answer.subcodes())


@case("MEDIA-8-1-1", "media")
def media_capabilities(cam, f):
    answer = cam.ok("trt:GetServiceCapabilities")
    answer.one("trt:Capabilities/trt:ProfileCapabilities")
    answer.one("trt:Capabilities/trt:StreamingCapabilities")


@case("MEDIA-8-1-2", "media")
def media_capabilities_agree(cam, f):
    cases_device.service_capabilities_agree(cam, NS["trt"], "trt:GetServiceCapabilities")


# Audio: the same reads and consistency checks as video, where the camera reports an audio source.
for _id, _kind in (("MEDIA-3-1-22", "AudioSource"), ("MEDIA-3-2-1", "AudioSource"), ("MEDIA-3-2-2", "AudioSource"),
                   ("MEDIA-3-1-23", "AudioEncoder"), ("MEDIA-3-3-1", "AudioEncoder"), ("MEDIA-3-3-2", "AudioEncoder")):
    case(_id, "media", "audio")(configurations_case(_kind + "Configurations", _kind + "Configuration",
                                                    "tt:%sConfiguration" % _kind))


case("MEDIA-3-1-7", "media", "audio")(source_options_case("Audio", "InputTokensAvailable"))
case("MEDIA-3-2-3", "media", "audio")(source_options_case("Audio", "InputTokensAvailable"))


@case("MEDIA-3-2-5", "media", "audio")
def audio_sources_consistency(cam, f):
    sources = [s.get("token") for s in cam.ok("trt:GetAudioSources").all("trt:AudioSources")]
    for configuration in cam.ok("trt:GetAudioSourceConfigurations").all("trt:Configurations"):
        check(configuration.findtext("tt:SourceToken", "", NS).strip() in sources, "unknown audio source token")


def audio_encoder_options(cam, f):
    for configuration in cam.ok("trt:GetAudioEncoderConfigurations").all("trt:Configurations"):
        options = cam.ok("trt:GetAudioEncoderConfigurationOptions",
                         "<trt:ConfigurationToken>%s</trt:ConfigurationToken>" % configuration.get("token"))
        encoding = configuration.findtext("tt:Encoding", "", NS).strip()
        offered = [o for o in options.all("trt:Options/tt:Options") if o.findtext("tt:Encoding", "", NS).strip() == encoding]
        check(offered, "encoding %s not offered" % encoding)
        rates = [int(r.text) for o in offered for r in o.findall("tt:SampleRateList/tt:Items", NS)]
        check(not rates or int(configuration.findtext("tt:SampleRate", "0", NS)) in rates, "sample rate not offered")


case("MEDIA-3-3-3", "media", "audio")(audio_encoder_options)
case("MEDIA-3-3-11", "media", "audio")(audio_encoder_options)


def invalid_token_case(op, field, subcode):
    def run(cam, f):
        cam.refused(op, "<trt:%s>NoSuchToken</trt:%s>" % (field, field), "Sender", "InvalidArgVal", subcode)
    return run


case("MEDIA-3-1-17", "media", "audio")(invalid_token_case("trt:GetAudioSourceConfiguration", "ConfigurationToken", "NoConfig"))
case("MEDIA-3-1-18", "media", "audio")(invalid_token_case("trt:GetAudioSourceConfigurationOptions", "ProfileToken", "NoProfile"))
case("MEDIA-3-1-19", "media", "audio")(invalid_token_case("trt:GetAudioSourceConfigurationOptions", "ConfigurationToken",
                                                          "NoConfig"))


@case("MEDIA-3-1-20", "media", "audio")
def set_audio_source_invalid(cam, f):
    source = cam.ok("trt:GetAudioSources").all("trt:AudioSources")[0].get("token")
    cam.refused("trt:SetAudioSourceConfiguration", '<trt:Configuration token="NoSuchToken"><tt:Name>x</tt:Name>'
                "<tt:UseCount>1</tt:UseCount><tt:SourceToken>%s</tt:SourceToken></trt:Configuration>"
                "<trt:ForcePersistence>true</trt:ForcePersistence>" % source, "Sender", "InvalidArgVal", "NoConfig")


def set_audio_encoder(encoding):
    """Sets the first audio encoder configuration to an encoding (its own where None) with the first bit
    rate and sample rate its options offer, reads it back, and puts the original back."""
    def run(cam, f):
        original = cam.ok("trt:GetAudioEncoderConfigurations").all("trt:Configurations")[0]
        token = original.get("token")
        want = encoding or original.findtext("tt:Encoding", "", NS).strip()
        options = cam.ok("trt:GetAudioEncoderConfigurationOptions",
                         "<trt:ConfigurationToken>%s</trt:ConfigurationToken>" % token)
        offered = [o for o in options.all("trt:Options/tt:Options") if o.findtext("tt:Encoding", "", NS).strip() == want]
        check(offered, "%s not offered" % want)
        bitrate = offered[0].findtext("tt:BitrateList/tt:Items", "", NS).strip()
        rate = offered[0].findtext("tt:SampleRateList/tt:Items", "", NS).strip()
        changed = ET.fromstring(ET.tostring(original))
        changed.tag = "{%s}Configuration" % NS["trt"]
        for name, value in (("Encoding", want), ("Bitrate", bitrate), ("SampleRate", rate)):
            changed.find("tt:" + name, NS).text = value
        keep = "<trt:ForcePersistence>true</trt:ForcePersistence>"
        cam.ok("trt:SetAudioEncoderConfiguration", ET.tostring(changed, encoding="unicode") + keep)
        after = cam.ok("trt:GetAudioEncoderConfiguration", "<trt:ConfigurationToken>%s</trt:ConfigurationToken>" % token)
        for name, value in (("Encoding", want), ("Bitrate", bitrate), ("SampleRate", rate)):
            check(after.value("trt:Configuration/tt:" + name) == value,
                  "%s %s after setting %s" % (name, after.value("trt:Configuration/tt:" + name), value))
        original.tag = "{%s}Configuration" % NS["trt"]
        cam.ok("trt:SetAudioEncoderConfiguration", ET.tostring(original, encoding="unicode") + keep)
    return run


case("MEDIA-3-1-21", "media", "audio")(set_audio_encoder(None))
case("MEDIA-3-1-14", "media", "audio", "g711")(set_audio_encoder("G711"))
case("MEDIA-3-1-15", "media", "audio", "g726")(set_audio_encoder("G726"))
case("MEDIA-3-1-16", "media", "audio", "aac")(set_audio_encoder("AAC"))
for _n in (4, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17):
    case("MEDIA-3-4-%d" % _n, "media", "audio output")(uncoded("an audio output"))
case("MEDIA-2-1-9", "media", "jpeg")(lambda cam, f: set_encodings(cam, encoders(cam), ("JPEG",)))
case("MEDIA-2-1-10", "media", "mpeg4")(lambda cam, f: set_encodings(cam, encoders(cam), ("MPEG4",)))
case("MEDIA-2-1-11", "media", "h264")(lambda cam, f: set_encodings(cam, encoders(cam), ("H264",)))
@case("MEDIA-5-1-3", "media", "metadata")
def metadata_configuration(cam, f):
    for configuration in cam.ok("trt:GetMetadataConfigurations").all("trt:Configurations"):
        token = configuration.get("token")
        one = cam.ok("trt:GetMetadataConfiguration", "<trt:ConfigurationToken>%s</trt:ConfigurationToken>" % token)
        check(one.one("trt:Configuration").get("token") == token, "metadata configuration %s" % token)
        cam.ok("trt:GetMetadataConfigurationOptions", "<trt:ConfigurationToken>%s</trt:ConfigurationToken>" % token)
        cam.ok("trt:SetMetadataConfiguration", ET.tostring(one.one("trt:Configuration"), encoding="unicode")
               + "<trt:ForcePersistence>true</trt:ForcePersistence>")


KINDS = {  # kind: (configurations operation, profile element, options operation, needs)
    "video source": ("VideoSourceConfigurations", "tt:VideoSourceConfiguration", "VideoSourceConfigurationOptions", ()),
    "video encoder": ("VideoEncoderConfigurations", "tt:VideoEncoderConfiguration", "VideoEncoderConfigurationOptions", ()),
    "audio source": ("AudioSourceConfigurations", "tt:AudioSourceConfiguration", "AudioSourceConfigurationOptions",
                     ("audio",)),
    "audio encoder": ("AudioEncoderConfigurations", "tt:AudioEncoderConfiguration", "AudioEncoderConfigurationOptions",
                      ("audio",)),
}


def use_count_case(kind):
    """Each configuration's UseCount is the number of profiles that hold it."""
    plural, element, _, _ = KINDS[kind]

    def run(cam, f):
        held = {}
        for profile in profiles(cam):
            token = token_of(profile, element)
            if token:
                held[token] = held.get(token, 0) + 1
        for configuration in cam.ok("trt:Get" + plural).all("trt:Configurations"):
            count = int(configuration.findtext("tt:UseCount", "0", NS))
            check(count >= held.get(configuration.get("token"), 0),
                  "%s UseCount %d, held by %d profiles" % (configuration.get("token"), count, held.get(configuration.get("token"), 0)))
    return run


def profile_options_case(kind):
    """The options for each profile's configuration, asked by profile and by configuration, both answer."""
    _, element, options, _ = KINDS[kind]

    def run(cam, f):
        for profile in profiles(cam):
            token = token_of(profile, element)
            if token:
                cam.ok("trt:Get" + options, "<trt:ConfigurationToken>%s</trt:ConfigurationToken><trt:ProfileToken>%s"
                       "</trt:ProfileToken>" % (token, profile.get("token"))).one("trt:Options")
    return run


for _id, _kind in (("MEDIA-2-2-6", "video source"), ("MEDIA-2-3-5", "video encoder"), ("MEDIA-3-2-6", "audio source"),
                   ("MEDIA-3-3-5", "audio encoder")):
    case(_id, "media", *KINDS[_kind][3])(use_count_case(_kind))
for _id, _kind in (("MEDIA-2-2-4", "video source"), ("MEDIA-2-3-4", "video encoder"), ("MEDIA-3-2-4", "audio source"),
                   ("MEDIA-3-3-4", "audio encoder")):
    case(_id, "media", *KINDS[_kind][3])(profile_options_case(_kind))


def with_encoding(configuration, name, offered):
    """A copy of a video encoder configuration set to an encoding with the first resolution and the
    shortest GOV length its options offer, as a trt:Configuration."""
    changed = ET.fromstring(ET.tostring(configuration))
    changed.tag = "{%s}Configuration" % NS["trt"]
    changed.find("tt:Encoding", NS).text = name
    resolution = offered.find("tt:ResolutionsAvailable", NS)
    if resolution is not None:
        for axis in ("Width", "Height"):
            changed.find("tt:Resolution/tt:" + axis, NS).text = resolution.findtext("tt:" + axis, "", NS)
    for section in ("tt:MPEG4", "tt:H264"):
        for old in changed.findall(section, NS):
            changed.remove(old)
    if name in ("MPEG4", "H264"):
        section = ET.Element("{%s}%s" % (NS["tt"], name))
        ET.SubElement(section, "{%s}GovLength" % NS["tt"]).text = offered.findtext("tt:GovLengthRange/tt:Min", "1", NS)
        profile = "Mpeg4ProfilesSupported" if name == "MPEG4" else "H264ProfilesSupported"
        ET.SubElement(section, "{%s}%s" % (NS["tt"], "Mpeg4Profile" if name == "MPEG4" else "H264Profile")).text = \
            offered.findtext("tt:" + profile, "SP" if name == "MPEG4" else "Main", NS)
        place = list(changed).index(changed.find("tt:RateControl", NS)) + 1
        changed.insert(place, section)
    return changed


def set_encodings(cam, configurations, wanted=("H264", "JPEG", "MPEG4")):
    """Each wanted encoding the options offer is set on each configuration and reads back; the original goes back."""
    done = 0
    for configuration in configurations:
        token = configuration.get("token")
        options = cam.ok("trt:GetVideoEncoderConfigurationOptions",
                         "<trt:ConfigurationToken>%s</trt:ConfigurationToken>" % token)
        for name in wanted:
            offered = options.all("trt:Options/tt:" + name)
            if not offered:
                continue
            cam.ok("trt:SetVideoEncoderConfiguration", ET.tostring(with_encoding(configuration, name, offered[0]),
                                                                   encoding="unicode")
                   + "<trt:ForcePersistence>true</trt:ForcePersistence>")
            after = cam.ok("trt:GetVideoEncoderConfiguration", "<trt:ConfigurationToken>%s</trt:ConfigurationToken>" % token)
            check(after.value("trt:Configuration/tt:Encoding") == name, "%s not set on %s" % (name, token))
            done += 1
        original = ET.fromstring(ET.tostring(configuration))
        original.tag = "{%s}Configuration" % NS["trt"]
        cam.ok("trt:SetVideoEncoderConfiguration", ET.tostring(original, encoding="unicode")
               + "<trt:ForcePersistence>true</trt:ForcePersistence>")
    check(done, "no configuration offers %s" % "/".join(wanted))


def encoders(cam):
    return cam.ok("trt:GetVideoEncoderConfigurations").all("trt:Configurations")


@case("MEDIA-2-3-12", "media")
def all_encodings_first(cam, f):
    set_encodings(cam, encoders(cam)[:1])


@case("MEDIA-2-3-18", "media")
def all_encodings_every(cam, f):
    set_encodings(cam, encoders(cam))


@case("MEDIA-2-1-7", "media")
def guaranteed_and_options(cam, f):
    for configuration in cam.ok("trt:GetVideoSourceConfigurations").all("trt:Configurations"):
        answer = cam.ok("trt:GetGuaranteedNumberOfVideoEncoderInstances",
                        "<trt:ConfigurationToken>%s</trt:ConfigurationToken>" % configuration.get("token"))
        total = int(answer.value("trt:TotalNumber", "0"))
        offered = set()
        for encoder in encoders(cam):
            options = cam.ok("trt:GetVideoEncoderConfigurationOptions",
                             "<trt:ConfigurationToken>%s</trt:ConfigurationToken>" % encoder.get("token"))
            offered |= {name for name in ("H264", "JPEG", "MPEG4") if options.all("trt:Options/tt:" + name)}
        for name in ("H264", "JPEG", "MPEG4"):
            count = answer.value("trt:" + name)
            if count is not None and int(count) > 0:
                check(name in offered, "%s guaranteed but not offered" % name)
                check(int(count) <= total, "%s count %s over the total %d" % (name, count, total))


# Use counts as profiles take and drop configurations, on a profile of the flow's own.
OPERATION = {"video source": "VideoSourceConfiguration", "video encoder": "VideoEncoderConfiguration",
             "audio source": "AudioSourceConfiguration", "audio encoder": "AudioEncoderConfiguration"}
SOURCE_FIRST = {"video encoder": "video source", "audio encoder": "audio source"}
SCRATCH = "UseCountProfile"


def use_counts(cam, kind):
    return {c.get("token"): int(c.findtext("tt:UseCount", "0", NS))
            for c in cam.ok("trt:Get" + KINDS[kind][0]).all("trt:Configurations")}


def add(cam, kind, token):
    cam.ok("trt:Add" + OPERATION[kind], "<trt:ProfileToken>%s</trt:ProfileToken><trt:ConfigurationToken>%s"
           "</trt:ConfigurationToken>" % (SCRATCH, token))


def use_count_change_case(kind, change):
    def run(cam, f):
        cam.ok("trt:CreateProfile", "<trt:Name>%s</trt:Name><trt:Token>%s</trt:Token>" % (SCRATCH, SCRATCH))
        deleted = False
        try:
            if kind in SOURCE_FIRST:
                add(cam, SOURCE_FIRST[kind], sorted(use_counts(cam, SOURCE_FIRST[kind]))[0])
            before = use_counts(cam, kind)
            first = sorted(before)[0]
            if change == "twice":
                add(cam, kind, first)
                add(cam, kind, first)
                check(use_counts(cam, kind)[first] == before[first] + 1, "UseCount after adding twice")
            elif change == "different":
                if len(before) < 2:
                    return  # nothing to replace it with: the case has no step left
                second = sorted(before)[1]
                add(cam, kind, first)
                add(cam, kind, second)
                now = use_counts(cam, kind)
                check(now[first] == before[first] and now[second] == before[second] + 1,
                      "UseCounts %s after replacing, were %s" % (now, before))
            elif change == "remove":
                add(cam, kind, first)
                cam.ok("trt:Remove" + OPERATION[kind], "<trt:ProfileToken>%s</trt:ProfileToken>" % SCRATCH)
                check(use_counts(cam, kind)[first] == before[first], "UseCount after removing")
            elif change == "delete":
                add(cam, kind, first)
                cam.ok("trt:DeleteProfile", "<trt:ProfileToken>%s</trt:ProfileToken>" % SCRATCH)
                deleted = True
                check(use_counts(cam, kind)[first] == before[first], "UseCount after deleting the profile")
            else:
                configuration = cam.ok("trt:Get" + OPERATION[kind], "<trt:ConfigurationToken>%s</trt:ConfigurationToken>"
                                       % first).one("trt:Configuration")
                cam.ok("trt:Set" + OPERATION[kind], ET.tostring(configuration, encoding="unicode")
                       + "<trt:ForcePersistence>true</trt:ForcePersistence>")
                check(use_counts(cam, kind)[first] == before[first], "UseCount after setting")
        finally:
            if not deleted:
                cam.call("trt:DeleteProfile", "<trt:ProfileToken>%s</trt:ProfileToken>" % SCRATCH)
    return run


for _prefix, _kind in (("MEDIA-2-2-", "video source"), ("MEDIA-2-3-", "video encoder"), ("MEDIA-3-2-", "audio source"),
                       ("MEDIA-3-3-", "audio encoder")):
    _first = 13 if _prefix == "MEDIA-2-3-" else 12
    for _offset, _change in enumerate(("twice", "different", "remove", "delete", "set")):
        case("%s%d" % (_prefix, _first + _offset), "media", *KINDS[_kind][3])(use_count_change_case(_kind, _change))
