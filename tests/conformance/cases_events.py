"""Event Handling test cases: event properties, real-time pull points, base notification with a
consumer on loopback, and the event service's capabilities. The subscription operations go to the
subscription's own address (and name it in the wsa:To header), as the procedures do."""
import datetime
import http.server
import os
import re
import subprocess
import threading
import time
from contextlib import contextmanager
from xml.etree import ElementTree
from xml.sax.saxutils import escape

import features
from registry import case, cases, not_applicable
from soap import NS, check, el, envelope, q, username_token

WSA = "http://www.w3.org/2005/08/addressing"
CONCRETE = "http://www.onvif.org/ver10/tev/topicExpression/ConcreteSet"
ITEM_FILTER = "http://www.onvif.org/ver10/tev/messageContentFilter/ItemFilter"
MOTION = "tns1:VideoSource/MotionAlarm"
INPUT = "tns1:Device/Trigger/DigitalInput"
RELAY = "tns1:Device/Trigger/Relay"
VIDEO_SOURCE = "tns1:VideoSource//."
TNS1 = 'xmlns:tns1="http://www.onvif.org/ver10/topics"'
PREFIXES = ("EVENT-",)
BAD_CONTENT = 'boolean((//tt:SimpleItem[@Name="xyz" and @Value="xyz"])'
BAD_CONTENT_FAULTS = ("InvalidFilterFault", "InvalidMessageContentExpressionFault")
BAD_TOPIC_FAULTS = ("InvalidFilterFault", "TopicNotSupported", "InvalidTopicExpressionFault")
# Sources of the simulated events: tools/sim/event's arguments before "on" or "off".
MOTION_ALARM, FIRST_INPUT = ("motion",), ("input", "1")


def responded(op, answer):
    check(answer.status == 200 and answer.body is not None and answer.body.tag == q(op + "Response"),
          "%s: status %d, %s" % (op, answer.status, answer.text[-600:]))
    return answer


def at(cam, address, op, body="", refused=False):
    """op posted to a subscription's address, with that address as wsa:To: it must answer its response
    element or, refused, a fault with an error status."""
    to = '<wsa:To xmlns:wsa="%s">%s</wsa:To>' % (WSA, escape(address))
    header = el("s:Header", username_token(cam.user, cam.password) if cam.user else "", to)
    answer = cam.post(envelope(el(op, body), header, TNS1), address)
    if not refused:
        return responded(op, answer)
    check(answer.fault and answer.status >= 400, "%s answered: %s" % (op, answer.text[-300:]))
    return answer


def times(answer, prefix):
    """The answer's current and termination times, in UTC."""
    found = [answer.value(prefix + name) for name in (":CurrentTime", ":TerminationTime")]
    check(all(t and t.endswith("Z") for t in found), "times %s" % found)
    return [datetime.datetime.strptime(t, "%Y-%m-%dT%H:%M:%SZ") for t in found]


def filter_xml(topic=None, content=None, tag="tev:Filter"):
    topic_xml = '<wsnt:TopicExpression Dialect="%s" %s>%s</wsnt:TopicExpression>' % (CONCRETE, TNS1, escape(topic or ""))
    content_xml = '<wsnt:MessageContent Dialect="%s">%s</wsnt:MessageContent>' % (ITEM_FILTER, escape(content or ""))
    return el(tag, topic_xml if topic else "", content_xml if content else "") if topic or content else ""


def request(consumer=None, topic=None, content=None, initial="PT60S"):
    """A pull point's creation (no consumer) or a Subscribe sending to the consumer: its operation and body."""
    ns = "wsnt" if consumer else "tev"
    body = ('<wsnt:ConsumerReference><wsa:Address xmlns:wsa="%s">%s</wsa:Address></wsnt:ConsumerReference>' % (
        WSA, escape(consumer.address)) if consumer else "") + filter_xml(topic, content, ns + ":Filter")
    return ("wsnt:Subscribe" if consumer else "tev:CreatePullPointSubscription",
            body + (el(ns + ":InitialTerminationTime", initial) if initial else ""))


def subscription(op, answer, least=1):
    """The subscription address op's answer gives, its termination at least least seconds away."""
    current, termination = times(responded(op, answer), "wsnt")
    check(termination >= current + datetime.timedelta(seconds=least), "termination %s, now %s" % (termination, current))
    address = next((e.text.strip() for e in answer.body.iter("{%s}Address" % WSA) if (e.text or "").strip()), None)
    check(address, "no subscription address")
    return address


def subscribe(cam, consumer=None, least=1, **request_args):
    op, body = request(consumer, **request_args)
    return subscription(op, cam.call(op, body), least)


def unsubscribe(cam, address):
    at(cam, address, "wsnt:Unsubscribe")


@contextmanager
def subscribed(cam, consumer=None, **request_args):
    address = subscribe(cam, consumer, **request_args)
    try:
        yield address
    finally:
        unsubscribe(cam, address)


def pull(cam, address, timeout="PT5S", limit=10):
    answer = at(cam, address, "tev:PullMessages", el("tev:Timeout", timeout) + el("tev:MessageLimit", limit))
    times(answer, "tev")
    return answer.all("wsnt:NotificationMessage")


def pulled(cam, address, done, rounds, timeout):
    """The messages of pulls of one message each, until done(messages) or the rounds are up."""
    got = []
    for _ in range(rounds):
        got += pull(cam, address, timeout=timeout, limit=1)
        if done(got):
            break
    return got


def topic_of(message):
    return (message.findtext("wsnt:Topic", "", NS) or "").strip()


def topics(messages):
    return [topic_of(m) for m in messages]


def operation_of(message):
    inner = message.find("wsnt:Message/tt:Message", NS)
    return inner.get("PropertyOperation") if inner is not None else None


def initialized(messages, topic=None):
    return [m for m in messages if operation_of(m) == "Initialized" and topic in (None, topic_of(m))]


def items_of(message, part):
    return message.findall("wsnt:Message/tt:Message/tt:%s/tt:SimpleItem" % part, NS)


def event(*args):
    top = os.environ.get("ONVIF_TOP", os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", ".."))
    subprocess.run([os.path.join(top, "tools/sim/event"), *args], check=True, timeout=20,
                   env=dict(os.environ, ONVIF_ROOT=os.environ["CAMERA_ROOT"]))


@contextmanager
def triggered(*sources):
    for source in sources:
        event(*source, "on")
    try:
        yield
    finally:
        for source in sources:
            event(*source, "off")


def fault_named(answer, *names):
    check(any(name in answer.text for name in names), "fault is none of %s: %s" % (names, answer.text[-400:]))


# --- One property event, checked from its description to its initial state ---

VALUE_TYPES = {
    "ReferenceToken": lambda v: 0 < len(v) <= 64,
    "boolean": lambda v: v in ("true", "false", "1", "0"),
    "float": lambda v: re.fullmatch(r"[-+]?(\d+\.?\d*|\.\d+)([eE][-+]?\d+)?|INF|-INF|NaN", v) is not None,
    "dateTime": lambda v: re.fullmatch(r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d(\.\d+)?(Z|[+-]\d\d:\d\d)?", v) is not None,
    "RelayLogicalState": lambda v: v in ("active", "inactive"),
}


def event_topic(topic):
    """A case's need for an announced topic (or topic branch), with why it does not apply without it."""
    features.MISSING[topic] = "the camera announces no %s event" % topic
    return topic


def property_event(cam, f, topic, source=None, data=None, utc=False):
    """topic as the camera announces it (a property, its Source and Data items of the given types) and its
    initial state on a pull point filtered to it: source and data are (name, type) pairs."""
    description = f["topics"].get(topic)
    check(description is not None, "the topic set lacks %s" % topic)
    check(description.get("IsProperty") in ("true", "1"), "%s is not a property" % topic)
    parts = [(part, item) for part, item in (("Source", source), ("Data", data)) if item]
    for part, item in parts:
        items = {i.get("Name"): (i.get("Type") or "").split(":")[-1]
                 for i in description.findall("tt:%s/tt:SimpleItemDescription" % part, NS)}
        check(items.get(item[0]) == item[1], "%s %s items %s, want %s" % (topic, part, items, item))
    with subscribed(cam, topic=topic) as address:
        got = pulled(cam, address, initialized, 10, "PT60S")
    check(all(t == topic for t in topics(got)), "topics %s, want %s" % (topics(got), topic))
    check(initialized(got), "no initial state of %s" % topic)
    initial = initialized(got)[0]
    for part, item in parts:
        values = [i.get("Value") for i in items_of(initial, part) if i.get("Name") == item[0]]
        check(values and VALUE_TYPES[item[1]](values[0] or ""), "%s %s %s: %s" % (topic, part, item, values))
        check(not utc or values[0].endswith("Z"), "%s not in UTC: %s" % (item[0], values[0]))
    return initial


# --- Base notification's consumer on loopback ---

class Consumer:
    def __init__(self):
        received = self.received = []

        class Handler(http.server.BaseHTTPRequestHandler):
            def do_POST(self):
                received.append(self.rfile.read(int(self.headers.get("Content-Length", "0"))).decode("utf-8", "replace"))
                self.send_response(202)
                self.send_header("Content-Length", "0")
                self.end_headers()

            def log_message(self, *args):
                pass

        self.server = http.server.HTTPServer(("127.0.0.1", 0), Handler)
        threading.Thread(target=self.server.serve_forever, daemon=True).start()
        self.address = "http://127.0.0.1:%d/consumer" % self.server.server_port


def until(get, done, seconds=5):
    """get()'s value once done(value) or the time is up."""
    deadline = time.time() + seconds
    while not done(get()) and time.time() < deadline:
        time.sleep(0.1)
    return get()


def notified(consumer, done, seconds=5):
    """Every NotificationMessage the consumer has received, once done(messages) or the time is up."""
    return until(lambda: [m for body in list(consumer.received)
                          for m in ElementTree.fromstring(body).iter("{%s}NotificationMessage" % NS["wsnt"])], done, seconds)


# A case is a function of the camera and a consumer: a pull point case gets none, a base notification
# case one on loopback.

def pull_point(fn):
    return lambda cam, f: fn(cam, None)


def base(fn):
    def run(cam, f):
        consumer = Consumer()
        try:
            fn(cam, consumer)
        finally:
            consumer.server.shutdown()
    return run


def create_and_delete(cam, consumer):
    unsubscribe(cam, subscribe(cam, consumer))


def renew(cam, consumer):
    with subscribed(cam, consumer, initial="PT10S") as address:
        current, termination = times(at(cam, address, "wsnt:Renew", el("wsnt:TerminationTime", "PT20S")), "wsnt")
        check(termination > current, "renewed termination %s" % termination)


def refused_filter(faults, **bad):
    def run(cam, consumer):
        answer = cam.call(*request(consumer, initial=None, **bad))
        check(answer.fault, "answered: %s" % answer.text[-300:])
        fault_named(answer, *faults)
    return run


def gone(op, body="", faults=(), wait=0):
    """A subscription unsubscribed (or, waiting, left to end) refuses op at its address."""
    def run(cam, consumer):
        address = subscribe(cam, consumer, initial="PT10S")
        if wait:
            time.sleep(wait)
        else:
            unsubscribe(cam, address)
        answer = at(cam, address, op, body, refused=True)
        if faults:
            fault_named(answer, *faults)
    return run


def pulls(count, initial="PT60S", **pull_args):
    def run(cam, consumer):
        with subscribed(cam, initial=initial) as address:
            for _ in range(count):
                pull(cam, address, **pull_args)
    return run


def filtered_pull(accepts, trigger=(), **filter_args):
    """A pull on a pull point with the filter (after a first one and the triggered events, when given)
    gets messages whose topics satisfy accepts."""
    def run(cam, consumer):
        with subscribed(cam, **filter_args) as address:
            if trigger:
                pull(cam, address)
            with triggered(*trigger):
                got = topics(pull(cam, address))
        check(got and accepts(got), "topics %s" % got)
    return run


def topic_filter_case(topic_filter, wanted, takes):
    """A subscription with a topic filter: every message stays inside it, and the wanted topics arrive (the
    camera's property events report them as their initial states; for a consumer the events are triggered)."""
    def run(cam, consumer):
        if consumer:
            cam.ok("tev:GetEventProperties")
        with subscribed(cam, consumer, topic=topic_filter) as address:
            if consumer:
                with triggered(MOTION_ALARM, FIRST_INPUT):
                    got = topics(notified(consumer, lambda got: wanted <= set(topics(got))))
            else:
                got = topics(pulled(cam, address, lambda got: wanted <= set(topics(got)), 20, "PT1S"))
        check(all(takes(t) for t in got), "topics outside the filter: %s" % sorted(got))
        check(wanted <= set(got), "topics %s" % sorted(got))
    return run


def notifications_case(accepts, **filter_args):
    """The Notify requests a subscription with the filter receives for a motion and an input event."""
    def run(cam, consumer):
        with subscribed(cam, consumer, **filter_args), triggered(MOTION_ALARM, FIRST_INPUT):
            got = until(lambda: consumer.received, bool)
            time.sleep(1)
        check(got and all(accepts(n) for n in got), "notifications %s" % [n[-300:] for n in got])
    return run


def base_notify(cam, consumer):
    with subscribed(cam, consumer), triggered(MOTION_ALARM):
        got = until(lambda: consumer.received, bool)
    check(got and "<wsnt:Notify>" in got[0] and MOTION in got[0], "no Notify: %s" % got[:1])


def event_properties(cam, f):
    answer = cam.ok("tev:GetEventProperties")
    check(answer.all(".//tt:MessageDescription"), "no message descriptions")
    for path, dialect in (("wsnt:TopicExpressionDialect", CONCRETE), ("tev:MessageContentFilterDialect", ITEM_FILTER)):
        check(dialect in [e.text.strip() for e in answer.all(path)], "%s lacks %s" % (path, dialect))


def synchronization_point(cam, consumer):
    with subscribed(cam) as address:
        first = topics(initialized(pull(cam, address)))
        check(first, "no initial states")
        at(cam, address, "tev:SetSynchronizationPoint")
        again = topics(initialized(pull(cam, address)))
    check(sorted(again) == sorted(first), "initial states not sent again")


def base_synchronization_point(cam, consumer):
    cam.ok("tev:GetEventProperties")
    with subscribed(cam, consumer, topic=MOTION) as address:
        first = initialized(notified(consumer, lambda got: initialized(got, MOTION)), MOTION)
        check(first, "no initial state: %s" % topics(notified(consumer, bool, 0)))
        count = len(consumer.received)
        at(cam, address, "tev:SetSynchronizationPoint")
        source = lambda m: [(i.get("Name"), i.get("Value")) for i in items_of(m, "Source")]
        again = lambda got: [m for m in initialized(got, MOTION) if source(m) == source(first[0])]
        got = notified(consumer, lambda got: len(again(got)) > 1)
        check(len(consumer.received) > count and len(again(got)) > 1, "no initial state after the synchronization point")


def most_pull_points(cam, consumer):
    most = max_pull_points(cam)
    addresses = []
    try:
        for _ in range(int(most)):
            addresses.append(subscribe(cam, initial=None))
            check(len(set(addresses)) == len(addresses), "the same address twice: %s" % addresses)
            while pull(cam, addresses[-1], timeout="PT1S", limit=1):
                pass
    finally:
        for address in addresses:
            unsubscribe(cam, address)


def content_pull_filter(cam, consumer):
    with subscribed(cam, topic=MOTION) as address:
        first = initialized(pull(cam, address, limit=1), MOTION)
    check(first, "no initial motion state")
    item = items_of(first[0], "Source")[0]
    content = 'boolean(//tt:SimpleItem[@Name="%s" and @Value="%s"])' % (item.get("Name"), item.get("Value"))
    with subscribed(cam, content=content) as address:
        got = pull(cam, address)
    check(got and all(any(i.get("Name") == item.get("Name") and i.get("Value") == item.get("Value")
                          for i in m.iter("{%s}SimpleItem" % NS["tt"])) for m in got), "messages outside the filter")


def max_pull_points(cam):
    most = cam.ok("tev:GetServiceCapabilities").one("tev:Capabilities").get("MaxPullPoints")
    check(most is not None, "no MaxPullPoints")
    return most


def capabilities_agree(cam, f):
    import cases_device  # which imports this module
    cases_device.capabilities_agree("tev")(cam, f)


# --- The same Subscribe written with other prefixes and namespace declarations ---

SUBSCRIBE_FORMS = {
    "EVENT-4-1-6": '<Subscribe xmlns="%(wsnt)s"><ConsumerReference xmlns="%(wsnt)s"><Address xmlns="%(wsa)s">%(to)s</Address>'
                   '</ConsumerReference><InitialTerminationTime xmlns="%(wsnt)s">PT10S</InitialTerminationTime></Subscribe>',
    "EVENT-4-1-7": '<Subscribe xmlns="%(wsnt)s"><ConsumerReference><Address xmlns="%(wsa)s">%(to)s</Address>'
                   '</ConsumerReference><InitialTerminationTime>PT10S</InitialTerminationTime></Subscribe>',
    "EVENT-4-1-8": '<n1:Subscribe xmlns:n1="%(wsnt)s" xmlns:n2="%(wsa)s"><n1:ConsumerReference><n2:Address>%(to)s</n2:Address>'
                   '</n1:ConsumerReference><n1:InitialTerminationTime>PT10S</n1:InitialTerminationTime></n1:Subscribe>',
    "EVENT-4-1-9": '<a:Subscribe xmlns:a="%(wsnt)s"><b:ConsumerReference xmlns:b="%(wsnt)s"><c:Address xmlns:c="%(wsa)s">'
                   '%(to)s</c:Address></b:ConsumerReference><d:InitialTerminationTime xmlns:d="%(wsnt)s">PT10S'
                   '</d:InitialTerminationTime></a:Subscribe>',
    # x is the envelope's prefix too, bound again inside.
    "EVENT-4-1-10": '<x:Subscribe xmlns:x="%(wsnt)s"><x:ConsumerReference><x:Address xmlns:x="%(wsa)s">%(to)s</x:Address>'
                    '</x:ConsumerReference><x:InitialTerminationTime>PT10S</x:InitialTerminationTime></x:Subscribe>',
}


def subscribe_form_case(form):
    """The form, in an envelope of prefix x, subscribes as a plain Subscribe does."""
    def run(cam, consumer):
        addresses = [subscribe(cam, consumer, least=10, initial="PT10S")]
        try:
            body = form % {"wsnt": NS["wsnt"], "wsa": WSA, "to": escape(consumer.address)}
            posted = ('<?xml version="1.0" encoding="UTF-8"?><x:Envelope xmlns:x="%s">%s<x:Body>%s</x:Body></x:Envelope>'
                      % (NS["s"], cam.security().replace("s:Header", "x:Header"), body))
            addresses.append(subscription("wsnt:Subscribe", cam.post(posted), least=10))
        finally:
            for address in addresses:
                unsubscribe(cam, address)
    return run


def under_video_source(topic):
    return topic.startswith("tns1:VideoSource/")


INPUT1 = 'boolean(//tt:SimpleItem[@Name="InputToken" and @Value="IO_Input1"])'
cases((case_id, "events", run) for case_id, run in [
    ("EVENT-1-1-2", event_properties),
    ("EVENT-3-1-9", pull_point(create_and_delete)),
    ("EVENT-3-1-36", pull_point(create_and_delete)),
    ("EVENT-3-1-12", pull_point(renew)),
    ("EVENT-3-1-15", pull_point(pulls(1, limit=2))),
    ("EVENT-3-1-16", pull_point(filtered_pull(lambda got: set(got) == {MOTION}, (MOTION_ALARM, FIRST_INPUT), topic=MOTION))),
    ("EVENT-3-1-17", pull_point(refused_filter(BAD_CONTENT_FAULTS, content=BAD_CONTENT))),
    ("EVENT-3-1-19", pull_point(gone("wsnt:Unsubscribe"))),
    # The procedure's own wait, at its shortest: PT10S instead of PT20S.
    ("EVENT-3-1-20", pull_point(gone("wsnt:Unsubscribe", faults=("ResourceUnknownFault",), wait=11))),
    ("EVENT-3-1-22", pull_point(refused_filter(BAD_TOPIC_FAULTS, topic="xyz"))),
    ("EVENT-3-1-24", pull_point(pulls(3, initial="PT10S", timeout="PT5S"))),
    ("EVENT-3-1-25", pull_point(synchronization_point)),
    ("EVENT-3-1-32", pull_point(pulls(1, timeout="PT60S", limit=1))),
    ("EVENT-3-1-33", pull_point(filtered_pull(lambda got: set(got) >= {MOTION, INPUT} and RELAY not in got,
                                              content=INPUT1 + ' or boolean(//tt:SimpleItem[@Name="Source"])'))),
    ("EVENT-3-1-34", pull_point(filtered_pull(lambda got: all(map(under_video_source, got)), topic=VIDEO_SOURCE))),
    # The motion alarm under the subtree and the digital input: the property events hand both over as
    # their initial states.
    ("EVENT-3-1-35", pull_point(topic_filter_case(VIDEO_SOURCE + "|" + INPUT, {MOTION, INPUT},
                                                  lambda t: under_video_source(t) or t == INPUT))),
    ("EVENT-3-1-37", pull_point(most_pull_points)),
    ("EVENT-3-1-38", pull_point(content_pull_filter)),
    ("EVENT-2-1-9", base(create_and_delete)),
    ("EVENT-2-1-28", base(create_and_delete)),
    ("EVENT-2-1-12", base(renew)),
    ("EVENT-2-1-17", base(base_notify)),
    ("EVENT-2-1-18", base(notifications_case(lambda n: INPUT in n and MOTION not in n, topic=INPUT))),
    ("EVENT-2-1-19", base(refused_filter(BAD_CONTENT_FAULTS, content=BAD_CONTENT))),
    ("EVENT-2-1-21", base(gone("wsnt:Unsubscribe"))),
    ("EVENT-2-1-22", base(gone("wsnt:Renew", el("wsnt:TerminationTime", "PT10S"),
                               ("ResourceUnknownFault", "UnableToDestroySubscription")))),
    ("EVENT-2-1-23", base(refused_filter(BAD_TOPIC_FAULTS, topic="xyz"))),
    ("EVENT-2-1-24", base(base_synchronization_point)),
    ("EVENT-2-1-25", base(topic_filter_case(MOTION + "|" + INPUT, {MOTION, INPUT}, lambda t: t in (MOTION, INPUT)))),
    ("EVENT-2-1-26", base(topic_filter_case(VIDEO_SOURCE, {MOTION}, under_video_source))),
    ("EVENT-2-1-27", base(topic_filter_case(VIDEO_SOURCE + "|" + INPUT, {MOTION, INPUT},
                                            lambda t: under_video_source(t) or t == INPUT))),
    ("EVENT-2-1-29", base(notifications_case(lambda n: 'Value="IO_Input1"' in n, content=INPUT1))),
    ("EVENT-5-1-1", lambda cam, f: max_pull_points(cam)),
    ("EVENT-5-1-2", capabilities_agree),
] + [(case_id, base(subscribe_form_case(form))) for case_id, form in SUBSCRIBE_FORMS.items()])
not_applicable("the camera keeps no event history to seek in", "EVENT-6-1-3", "EVENT-6-1-4", "EVENT-6-1-5")
not_applicable("the camera has no event broker (MQTT)", *["EVENT-7-1-%d" % i for i in range(1, 5)],
               *["EVENT-7-2-%d" % i for i in range(1, 8)])
