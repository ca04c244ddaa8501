"""Device feature discovery: what the camera says it has, asked the way the test procedures ask
(capabilities, services, profiles, PTZ nodes, imaging options, IO counts)."""
from soap import NS, q, flag

# Why a case needing a feature does not apply, by feature.
MISSING = {
    "audio": "the camera has no audio source or audio encoder",
    "audio output": "the camera has no audio output",
    "serial": "the camera has no serial port",
    "ipv6": "the camera has no IPv6",
    "mpeg4": "the camera does not encode MPEG4",
    "jpeg": "the camera does not encode JPEG",
    "dynamic dns": "the camera has no dynamic DNS",
    "ip filter": "the camera has no IP address filter",
    "system log": "the camera serves no system log",
    "system uris": "the camera serves no system log or backup URIs",
    "remote user": "the camera has no remote user handling",
    "absolute focus": "the camera's focus has no absolute move",
    "relative focus": "the camera's focus has no relative move",
    "continuous focus": "the camera's focus has no continuous move",
    "focus": "the camera has no focus move",
    "home configurable": "the camera's home position is fixed",
    "home fixed": "the camera's home position is configurable",
    "aux": "the camera names no auxiliary command",
    "metadata": "the camera has no metadata configuration",
    "g711": "the camera does not encode G.711",
    "g726": "the camera does not encode G.726",
    "aac": "the camera does not encode AAC",
    "relays": "the camera has no relay output",
    "system backup": "the camera has no system backup and restore",
    "firmware upload": "the camera takes no firmware upload",
    "device aux": "the camera names no auxiliary command of the device",
    "digital inputs": "the camera has no digital input",
}


def discover(cam):
    """The features, by name, from the camera's own answers; None where it cannot tell."""
    f = {}
    caps = cam.call("tds:GetCapabilities", "<tds:Category>All</tds:Category>")
    f["capabilities"] = caps
    f["media"] = bool(caps.all(".//tt:Media/tt:XAddr"))
    f["ptz"] = bool(caps.all(".//tt:PTZ/tt:XAddr"))
    f["imaging"] = bool(caps.all(".//tt:Imaging/tt:XAddr"))
    f["events"] = bool(caps.all(".//tt:Events/tt:XAddr"))
    f["ipv6"] = flag(caps.value(".//tt:Network/tt:IPVersion6"))
    f["ip filter"] = flag(caps.value(".//tt:Network/tt:IPFilter"))
    f["dynamic dns"] = flag(caps.value(".//tt:Network/tt:DynDNS"))
    f["system log"] = flag(caps.value(".//tt:System/tt:SystemLogging"))
    relays = caps.value(".//tt:IO/tt:RelayOutputs", "0")
    f["relays"] = relays.isdigit() and int(relays) > 0
    inputs = caps.value(".//tt:IO/tt:InputConnectors", "0")
    f["digital inputs"] = inputs.isdigit() and int(inputs) > 0
    services = cam.call("tds:GetServices", "<tds:IncludeCapability>false</tds:IncludeCapability>")
    f["services"] = {s.findtext("tds:Namespace", "", NS).strip(): s.findtext("tds:XAddr", "", NS).strip()
                     for s in services.all("tds:Service")}
    f["get services"] = not services.fault and bool(f["services"])
    f["deviceio"] = NS["tmd"] in f["services"] or bool(caps.all(".//tt:Extension/tt:DeviceIO/tt:XAddr"))
    f["system backup"] = flag(caps.value(".//tt:System/tt:SystemBackup"))
    f["firmware upload"] = flag(caps.value(".//tt:System/tt:FirmwareUpgrade"))
    f["device aux"] = False
    if f["get services"]:
        device_caps = cam.call("tds:GetServiceCapabilities")
        f["system uris"] = flag(device_caps.one(".//tds:System").get("HttpSystemLogging")) if not device_caps.fault else False
        f["remote user"] = not device_caps.fault and flag(device_caps.one(".//tds:Security").get("RemoteUserHandling"))
        if not device_caps.fault:
            f["system backup"] = f["system backup"] or flag(device_caps.one(".//tds:System").get("HttpSystemBackup"))
            f["firmware upload"] = f["firmware upload"] or flag(device_caps.one(".//tds:System").get("HttpFirmwareUpgrade"))
            f["device aux"] = bool((device_caps.one(".//tds:Misc").get("AuxiliaryCommands") or "").strip()) \
                if device_caps.all(".//tds:Misc") else False
    else:
        f["system uris"] = f["remote user"] = False
    profiles = cam.call("trt:GetProfiles") if f["media"] else None
    f["profiles"] = profiles.all("trt:Profiles") if profiles is not None else []
    audio = cam.call("trt:GetAudioSources") if f["media"] else None
    f["audio"] = audio is not None and not audio.fault and bool(audio.all("trt:AudioSources"))
    outputs = cam.call("trt:GetAudioOutputs") if f["media"] else None
    f["audio output"] = outputs is not None and not outputs.fault and bool(outputs.all("trt:AudioOutputs"))
    for name in ("g711", "g726", "aac"):
        f[name] = False
    if f["audio"]:
        options = cam.call("trt:GetAudioEncoderConfigurationOptions")
        offered = {e.text.strip().lower() for e in options.all(".//tt:Options/tt:Encoding") if e.text}
        for name in ("g711", "g726", "aac"):
            f[name] = name in offered
    encodings = set()
    if f["profiles"]:
        # An encoding is the camera's when the options of any encoder configuration offer it.
        for configuration in cam.call("trt:GetVideoEncoderConfigurations").all("trt:Configurations"):
            options = cam.call("trt:GetVideoEncoderConfigurationOptions",
                               "<trt:ConfigurationToken>%s</trt:ConfigurationToken>" % configuration.get("token"))
            for name, element in (("jpeg", "tt:JPEG"), ("mpeg4", "tt:MPEG4"), ("h264", "tt:H264")):
                if options.all("trt:Options/" + element):
                    encodings.add(name)
    for name in ("jpeg", "mpeg4", "h264"):
        f[name] = name in encodings
    f["metadata"] = False
    if f["media"]:
        metadata = cam.call("trt:GetMetadataConfigurations")
        f["metadata"] = not metadata.fault and bool(metadata.all("trt:Configurations"))
    f["home configurable"] = f["home fixed"] = f["aux"] = False
    if f["ptz"]:
        nodes = cam.call("tptz:GetNodes")
        f["nodes"] = nodes.all("tptz:PTZNode")
        for node in f["nodes"]:
            if flag(node.findtext("tt:HomeSupported", "", NS)):
                fixed = flag(node.get("FixedHomePosition"))
                f["home fixed"] = f["home fixed"] or fixed
                f["home configurable"] = f["home configurable"] or not fixed
            if node.findall("tt:AuxiliaryCommands", NS):
                f["aux"] = True
    f["focus"] = f["absolute focus"] = f["relative focus"] = f["continuous focus"] = False
    if f["imaging"]:
        token = video_source(f)
        move = cam.call("timg:GetMoveOptions", "<timg:VideoSourceToken>%s</timg:VideoSourceToken>" % token)
        if not move.fault:
            for name, element in (("absolute focus", "timg:MoveOptions/tt:Absolute"),
                                  ("relative focus", "timg:MoveOptions/tt:Relative"),
                                  ("continuous focus", "timg:MoveOptions/tt:Continuous")):
                f[name] = bool(move.all(element))
            f["focus"] = f["absolute focus"] or f["relative focus"] or f["continuous focus"]
    # Each event topic the camera announces is a feature of its own, named by its topic, and so is each
    # branch above it ("tns1:VideoSource/ImageTooBlurry" for its three services).
    f["topics"] = topic_set(cam) if f["events"] else {}
    for topic in f["topics"]:
        parts = topic.split("/")
        f.update(("/".join(parts[:n]), True) for n in range(1, len(parts) + 1))
    f["serial"] = False
    if f["deviceio"]:
        ports = cam.call("tmd:GetSerialPorts")
        f["serial"] = not ports.fault and bool(ports.all("tmd:SerialPort"))
    return f


def topic_set(cam):
    """The announced topics, "tns1:A/B" -> their MessageDescription; a topic is an element of the topic set
    carrying a MessageDescription."""
    answer = cam.call("tev:GetEventProperties")
    found = {}
    sets = answer.all("{http://docs.oasis-open.org/wsn/t-1}TopicSet") if not answer.fault else []

    def walk(element, path):
        description = element.find("tt:MessageDescription", NS)
        if description is not None:
            found["/".join(path)] = description
        for child in element:
            if child.tag != q("tt:MessageDescription"):
                walk(child, path + [child.tag.split("}")[-1]])

    for top in (sets[0] if sets else []):
        name = top.tag.split("}")[-1]
        walk(top, [("tns1:" if top.tag.startswith("{http://www.onvif.org/ver10/topics}") else "") + name])
    return found


def video_source(f):
    for profile in f["profiles"]:
        token = profile.findtext("tt:VideoSourceConfiguration/tt:SourceToken", "", NS).strip()
        if token:
            return token
    return "VideoSource1"
