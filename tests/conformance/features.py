"""Device feature discovery: what the camera says it has, asked the way the test procedures ask
(capabilities, services, profiles, PTZ nodes, imaging options, IO counts)."""
from soap import NS, el, flag, q

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


def listing(cam, op, element, body=""):
    """What a listing answers, none where it faults."""
    answer = cam.call(op, body)
    return [] if answer.fault else answer.all(element)


def discover(cam):
    """The features, by name, from the camera's own answers."""
    f = {}
    caps = f["capabilities"] = cam.call("tds:GetCapabilities", el("tds:Category", "All"))
    for name, element in (("media", "Media"), ("ptz", "PTZ"), ("imaging", "Imaging"), ("events", "Events")):
        f[name] = bool(caps.all(".//tt:%s/tt:XAddr" % element))
    for name, path in (("ipv6", "Network/tt:IPVersion6"), ("ip filter", "Network/tt:IPFilter"),
                       ("dynamic dns", "Network/tt:DynDNS"), ("system log", "System/tt:SystemLogging"),
                       ("system backup", "System/tt:SystemBackup"), ("firmware upload", "System/tt:FirmwareUpgrade")):
        f[name] = flag(caps.value(".//tt:" + path))
    for name, element in (("relays", "RelayOutputs"), ("digital inputs", "InputConnectors")):
        count = caps.value(".//tt:IO/tt:" + element, "0")
        f[name] = count.isdigit() and int(count) > 0
    services = cam.call("tds:GetServices", el("tds:IncludeCapability", "false"))
    f["services"] = {s.findtext("tds:Namespace", "", NS).strip(): s.findtext("tds:XAddr", "", NS).strip()
                     for s in services.all("tds:Service")}
    f["get services"] = not services.fault and bool(f["services"])
    f["deviceio"] = NS["tmd"] in f["services"] or bool(caps.all(".//tt:Extension/tt:DeviceIO/tt:XAddr"))
    f["device aux"] = f["system uris"] = f["remote user"] = False
    device = cam.call("tds:GetServiceCapabilities") if f["get services"] else None
    if device is not None and not device.fault:
        system, misc = device.one(".//tds:System"), device.all(".//tds:Misc")
        f["system uris"] = flag(system.get("HttpSystemLogging"))
        f["remote user"] = flag(device.one(".//tds:Security").get("RemoteUserHandling"))
        f["system backup"] = f["system backup"] or flag(system.get("HttpSystemBackup"))
        f["firmware upload"] = f["firmware upload"] or flag(system.get("HttpFirmwareUpgrade"))
        f["device aux"] = bool(misc and (misc[0].get("AuxiliaryCommands") or "").strip())
    media = lambda op, element: listing(cam, op, element) if f["media"] else []  # noqa: E731
    f["profiles"] = media("trt:GetProfiles", "trt:Profiles")
    f["audio"] = bool(media("trt:GetAudioSources", "trt:AudioSources"))
    f["audio output"] = bool(media("trt:GetAudioOutputs", "trt:AudioOutputs"))
    offered = {e.text.strip().lower() for e in cam.call("trt:GetAudioEncoderConfigurationOptions").all(
        ".//tt:Options/tt:Encoding") if e.text} if f["audio"] else set()
    f.update((name, name in offered) for name in ("g711", "g726", "aac"))
    # An encoding is the camera's when the options of any encoder configuration offer it.
    encodings = set()
    for configuration in cam.call("trt:GetVideoEncoderConfigurations").all("trt:Configurations") if f["profiles"] else []:
        options = cam.call("trt:GetVideoEncoderConfigurationOptions", el("trt:ConfigurationToken", configuration.get("token")))
        encodings |= {name for name in ("JPEG", "MPEG4", "H264") if options.all("trt:Options/tt:" + name)}
    f.update((name.lower(), name in encodings) for name in ("JPEG", "MPEG4", "H264"))
    f["metadata"] = bool(media("trt:GetMetadataConfigurations", "trt:Configurations"))
    f["nodes"] = cam.call("tptz:GetNodes").all("tptz:PTZNode") if f["ptz"] else []
    homes = [flag(n.get("FixedHomePosition")) for n in f["nodes"] if flag(n.findtext("tt:HomeSupported", "", NS))]
    f["home fixed"], f["home configurable"] = any(homes), not all(homes)
    f["aux"] = any(n.findall("tt:AuxiliaryCommands", NS) for n in f["nodes"])
    move = cam.call("timg:GetMoveOptions", el("timg:VideoSourceToken", video_source(f))) if f["imaging"] else None
    for kind in ("Absolute", "Relative", "Continuous"):
        f[kind.lower() + " focus"] = bool(move is not None and move.all("timg:MoveOptions/tt:" + kind))
    f["focus"] = f["absolute focus"] or f["relative focus"] or f["continuous focus"]
    # Each event topic the camera announces is a feature of its own, named by its topic, and so is each
    # branch above it ("tns1:VideoSource/ImageTooBlurry" for its three services).
    f["topics"] = topic_set(cam) if f["events"] else {}
    for topic in f["topics"]:
        parts = topic.split("/")
        f.update(("/".join(parts[:n]), True) for n in range(1, len(parts) + 1))
    f["serial"] = bool(f["deviceio"] and listing(cam, "tmd:GetSerialPorts", "tmd:SerialPort"))
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
