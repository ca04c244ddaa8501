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
from xml.etree import ElementTree
from xml.sax.saxutils import escape

import features
from registry import case, not_applicable
from soap import NS, check, q

WSA = "http://www.w3.org/2005/08/addressing"
CONCRETE = "http://www.onvif.org/ver10/tev/topicExpression/ConcreteSet"
ITEM_FILTER = "http://www.onvif.org/ver10/tev/messageContentFilter/ItemFilter"
MOTION = "tns1:VideoSource/MotionAlarm"
INPUT = "tns1:Device/Trigger/DigitalInput"
RELAY = "tns1:Device/Trigger/Relay"
TNS1 = 'xmlns:tns1="http://www.onvif.org/ver10/topics"'
PREFIXES = ("EVENT-",)


def at(cam, address, op, body=""):
    """op posted to a subscription's address, with that address as wsa:To."""
    prefix, local = op.split(":")
    declared = " ".join('xmlns:%s="%s"' % (p, u) for p, u in NS.items() if p != "s")
    to = '<wsa:To xmlns:wsa="%s">%s</wsa:To>' % (WSA, escape(address))
    header = cam.security()
    header = header.replace("</s:Header>", to + "</s:Header>") if header else "<s:Header>%s</s:Header>" % to
    envelope = ('<?xml version="1.0" encoding="UTF-8"?><s:Envelope xmlns:s="%s" %s %s>%s<s:Body><%s:%s>%s</%s:%s>'
                '</s:Body></s:Envelope>' % (NS["s"], declared, TNS1, header, prefix, local, body, prefix, local))
    return cam.post(envelope, address)


def at_ok(cam, address, op, body=""):
    answer = at(cam, address, op, body)
    if answer.status != 200 or answer.body is None or answer.body.tag != q(op + "Response"):
        raise AssertionError("%s: status %d, %s" % (op, answer.status, answer.text[-600:]))
    return answer


def times(answer, prefix):
    parse = lambda text: datetime.datetime.strptime(text, "%Y-%m-%dT%H:%M:%SZ")
    current, termination = answer.value(prefix + ":CurrentTime"), answer.value(prefix + ":TerminationTime")
    check(current and current.endswith("Z") and termination and termination.endswith("Z"),
          "times %s %s" % (current, termination))
    return parse(current), parse(termination)


def filter_xml(topic=None, content=None):
    parts = []
    if topic:
        parts.append('<wsnt:TopicExpression Dialect="%s" %s>%s</wsnt:TopicExpression>' % (CONCRETE, TNS1, escape(topic)))
    if content:
        parts.append('<wsnt:MessageContent Dialect="%s">%s</wsnt:MessageContent>' % (ITEM_FILTER, escape(content)))
    return "<tev:Filter>%s</tev:Filter>" % "".join(parts) if parts else ""


def create(cam, topic=None, content=None, initial="PT60S"):
    body = filter_xml(topic, content)
    if initial:
        body += "<tev:InitialTerminationTime>%s</tev:InitialTerminationTime>" % initial
    answer = cam.ok("tev:CreatePullPointSubscription", body)
    current, termination = times(answer, "wsnt")
    check(termination > current, "termination %s not after %s" % (termination, current))
    address = None
    for element in answer.body.iter():
        if element.tag == "{%s}Address" % WSA:
            address = (element.text or "").strip()
    check(address, "no subscription address")
    return address


def pull(cam, address, timeout="PT5S", limit=10):
    answer = at_ok(cam, address, "tev:PullMessages",
                   "<tev:Timeout>%s</tev:Timeout><tev:MessageLimit>%d</tev:MessageLimit>" % (timeout, limit))
    times(answer, "tev")
    return answer.all("wsnt:NotificationMessage")


def topic_of(message):
    return (message.findtext("wsnt:Topic", "", NS) or "").strip()


def operation_of(message):
    inner = message.find("wsnt:Message/tt:Message", NS)
    return inner.get("PropertyOperation") if inner is not None else None


def unsubscribe(cam, address):
    at_ok(cam, address, "wsnt:Unsubscribe")


def refused_at(cam, address, op, body=""):
    answer = at(cam, address, op, body)
    check(answer.fault and answer.status >= 400, "%s answered: %s" % (op, answer.text[-300:]))
    return answer


def event(*args):
    top = os.environ.get("ONVIF_TOP", os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", ".."))
    subprocess.run([os.path.join(top, "tools/sim/event"), *args], check=True, timeout=20,
                   env=dict(os.environ, ONVIF_ROOT=os.environ["CAMERA_ROOT"]))


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


def described_items(description, part):
    return {i.get("Name"): (i.get("Type") or "").split(":")[-1]
            for i in description.findall("tt:%s/tt:SimpleItemDescription" % part, NS)}


def property_event(cam, f, topic, source=None, data=None, utc=False):
    """topic as the camera announces it (a property, its Source and Data items of the given types) and its
    initial state on a pull point filtered to it: source and data are (name, type) pairs."""
    description = f["topics"].get(topic)
    check(description is not None, "the topic set lacks %s" % topic)
    check(description.get("IsProperty") in ("true", "1"), "%s is not a property" % topic)
    for part, item in (("Source", source), ("Data", data)):
        if item:
            items = described_items(description, part)
            check(items.get(item[0]) == item[1], "%s %s items %s, want %s" % (topic, part, items, item))
    address = create(cam, topic=topic)
    try:
        initial = None
        for _ in range(10):
            got = pull(cam, address, timeout="PT60S", limit=1)
            check(all(topic_of(m) == topic for m in got), "topics %s, want %s" % ([topic_of(m) for m in got], topic))
            initial = next((m for m in got if operation_of(m) == "Initialized"), None)
            if initial is not None:
                break
        check(initial is not None, "no initial state of %s" % topic)
        check(topic_of(initial) == topic, "topic %s, want %s" % (topic_of(initial), topic))
        for part, item in (("Source", source), ("Data", data)):
            if item:
                values = [i.get("Value") for i in initial.findall("wsnt:Message/tt:Message/tt:%s/tt:SimpleItem" % part, NS)
                          if i.get("Name") == item[0]]
                check(values and VALUE_TYPES[item[1]](values[0] or ""), "%s %s %s: %s" % (topic, part, item, values))
                if utc:
                    check(values[0].endswith("Z"), "%s not in UTC: %s" % (item[0], values[0]))
        return initial
    finally:
        unsubscribe(cam, address)


# --- Event properties ---

@case("EVENT-1-1-2", "events")
def event_properties(cam, f):
    answer = cam.ok("tev:GetEventProperties")
    check(answer.all(".//tt:MessageDescription"), "no message descriptions")
    dialects = [e.text.strip() for e in answer.all("wsnt:TopicExpressionDialect")]
    check(CONCRETE in dialects, "dialects %s" % dialects)
    check(ITEM_FILTER in [e.text.strip() for e in answer.all("tev:MessageContentFilterDialect")], "content dialect")


# --- Real-time pull points ---

@case("EVENT-3-1-9", "events")
@case("EVENT-3-1-36", "events")
def create_pull_point(cam, f):
    unsubscribe(cam, create(cam))


@case("EVENT-3-1-12", "events")
def renew_pull_point(cam, f):
    address = create(cam, initial="PT10S")
    answer = at_ok(cam, address, "wsnt:Renew", "<wsnt:TerminationTime>PT20S</wsnt:TerminationTime>")
    current, termination = times(answer, "wsnt")
    check(termination > current, "renewed termination %s" % termination)
    unsubscribe(cam, address)


@case("EVENT-3-1-15", "events")
def pull_messages(cam, f):
    address = create(cam)
    pull(cam, address, limit=2)
    unsubscribe(cam, address)


@case("EVENT-3-1-16", "events")
def pull_messages_filter(cam, f):
    address = create(cam, topic=MOTION)
    pull(cam, address)
    event("motion", "on")
    event("input", "1", "on")
    got = pull(cam, address)
    check(got and all(topic_of(m) == MOTION for m in got), "topics %s" % [topic_of(m) for m in got])
    event("motion", "off")
    event("input", "1", "off")
    unsubscribe(cam, address)


@case("EVENT-3-1-17", "events")
def invalid_content_pull_point(cam, f):
    answer = cam.call("tev:CreatePullPointSubscription",
                      filter_xml(content='boolean((//tt:SimpleItem[@Name="xyz" and @Value="xyz"])'))
    check(answer.fault, "answered: %s" % answer.text[-300:])
    fault_named(answer, "InvalidFilterFault", "InvalidMessageContentExpressionFault")


@case("EVENT-3-1-19", "events")
def unsubscribe_twice(cam, f):
    address = create(cam, initial="PT10S")
    unsubscribe(cam, address)
    refused_at(cam, address, "wsnt:Unsubscribe")


@case("EVENT-3-1-20", "events")
def pull_point_times_out(cam, f):
    # The procedure's own wait, at its shortest: PT10S instead of PT20S.
    address = create(cam, initial="PT10S")
    time.sleep(11)
    fault_named(refused_at(cam, address, "wsnt:Unsubscribe"), "ResourceUnknownFault")


@case("EVENT-3-1-22", "events")
def invalid_topic_pull_point(cam, f):
    answer = cam.call("tev:CreatePullPointSubscription", filter_xml(topic="xyz"))
    check(answer.fault, "answered: %s" % answer.text[-300:])
    fault_named(answer, "InvalidFilterFault", "TopicNotSupported", "InvalidTopicExpressionFault")


@case("EVENT-3-1-24", "events")
def pulls_keep_alive(cam, f):
    address = create(cam, initial="PT10S")
    for _ in range(3):
        pull(cam, address, timeout="PT5S")
    unsubscribe(cam, address)


@case("EVENT-3-1-25", "events")
def synchronization_point(cam, f):
    address = create(cam)
    first = pull(cam, address)
    check(any(operation_of(m) == "Initialized" for m in first), "no initial states")
    at_ok(cam, address, "tev:SetSynchronizationPoint")
    again = pull(cam, address)
    check(sorted(topic_of(m) for m in again if operation_of(m) == "Initialized") ==
          sorted(topic_of(m) for m in first if operation_of(m) == "Initialized"), "initial states not sent again")
    unsubscribe(cam, address)


@case("EVENT-3-1-32", "events")
def pull_timeout(cam, f):
    address = create(cam)
    pull(cam, address, timeout="PT60S", limit=1)
    unsubscribe(cam, address)


@case("EVENT-3-1-33", "events")
def or_in_pull_filter(cam, f):
    content = 'boolean(//tt:SimpleItem[@Name="InputToken" and @Value="IO_Input1"]) or boolean(//tt:SimpleItem[@Name="Source"])'
    address = create(cam, content=content)
    got = pull(cam, address)
    topics = {topic_of(m) for m in got}
    check(topics >= {MOTION, INPUT} and RELAY not in topics, "topics %s" % topics)
    unsubscribe(cam, address)


@case("EVENT-3-1-34", "events")
def subtree_pull_filter(cam, f):
    address = create(cam, topic="tns1:VideoSource//.")
    got = pull(cam, address)
    check(got and all(topic_of(m).startswith("tns1:VideoSource/") for m in got), "topics %s" % [topic_of(m) for m in got])
    unsubscribe(cam, address)


@case("EVENT-3-1-35", "events")
def subtree_or_topic_pull_filter(cam, f):
    # topic1 the motion alarm, root1 its root, topic2 the digital input: the
    # property events hand both over as their initial states.
    address = create(cam, topic="tns1:VideoSource//.|" + INPUT)
    seen = set()
    try:
        for _ in range(20):
            for m in pull(cam, address, timeout="PT1S", limit=1):
                topic = topic_of(m)
                check(topic.startswith("tns1:VideoSource/") or topic == INPUT, "topic %s outside the filter" % topic)
                seen.add(topic)
            if MOTION in seen and INPUT in seen:
                break
        check(MOTION in seen and INPUT in seen, "topics %s" % sorted(seen))
    finally:
        unsubscribe(cam, address)


@case("EVENT-3-1-37", "events")
def most_pull_points(cam, f):
    caps = cam.ok("tev:GetServiceCapabilities").one("tev:Capabilities")
    most = caps.get("MaxPullPoints")
    check(most is not None, "no MaxPullPoints")
    addresses = []
    try:
        for _ in range(int(most)):
            addresses.append(create(cam, initial=None))
            check(len(set(addresses)) == len(addresses), "the same address twice: %s" % addresses)
            while pull(cam, addresses[-1], timeout="PT1S", limit=1):
                pass
    finally:
        for address in addresses:
            unsubscribe(cam, address)


@case("EVENT-3-1-38", "events")
def content_pull_filter(cam, f):
    address = create(cam, topic=MOTION)
    first = [m for m in pull(cam, address, limit=1) if operation_of(m) == "Initialized"]
    check(first and topic_of(first[0]) == MOTION, "no initial motion state")
    unsubscribe(cam, address)
    item = first[0].find("wsnt:Message/tt:Message/tt:Source/tt:SimpleItem", NS)
    content = 'boolean(//tt:SimpleItem[@Name="%s" and @Value="%s"])' % (item.get("Name"), item.get("Value"))
    address = create(cam, content=content)
    got = pull(cam, address)
    check(got and all(any(i.get("Name") == item.get("Name") and i.get("Value") == item.get("Value")
                          for i in m.iter("{%s}SimpleItem" % NS["tt"])) for m in got), "messages outside the filter")
    unsubscribe(cam, address)


# --- Base notification, with a consumer on loopback ---

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

    def wait(self, count=1, seconds=5):
        for _ in range(seconds * 10):
            if len(self.received) >= count:
                break
            time.sleep(0.1)
        return self.received

    def close(self):
        self.server.shutdown()


def subscribe(cam, consumer, topic=None, content=None, initial="PT60S"):
    body = '<wsnt:ConsumerReference><wsa:Address xmlns:wsa="%s">%s</wsa:Address></wsnt:ConsumerReference>' % (
        WSA, consumer.address)
    body += filter_xml(topic, content).replace("tev:Filter", "wsnt:Filter")
    if initial:
        body += "<wsnt:InitialTerminationTime>%s</wsnt:InitialTerminationTime>" % initial
    answer = cam.ok("wsnt:Subscribe", body)
    times(answer, "wsnt")
    for element in answer.body.iter():
        if element.tag == "{%s}Address" % WSA:
            return (element.text or "").strip()
    raise AssertionError("no subscription address")


def with_consumer(fn):
    def run(cam, f):
        consumer = Consumer()
        try:
            fn(cam, consumer)
        finally:
            consumer.close()
    return run


@case("EVENT-2-1-9", "events")
@case("EVENT-2-1-28", "events")
@with_consumer
def base_subscribe(cam, consumer):
    unsubscribe(cam, subscribe(cam, consumer))


@case("EVENT-2-1-12", "events")
@with_consumer
def base_renew(cam, consumer):
    address = subscribe(cam, consumer, initial="PT10S")
    current, termination = times(at_ok(cam, address, "wsnt:Renew", "<wsnt:TerminationTime>PT20S</wsnt:TerminationTime>"), "wsnt")
    check(termination > current, "renewed termination %s" % termination)
    unsubscribe(cam, address)


@case("EVENT-2-1-17", "events")
@with_consumer
def base_notify(cam, consumer):
    address = subscribe(cam, consumer)
    event("motion", "on")
    got = consumer.wait()
    event("motion", "off")
    unsubscribe(cam, address)
    check(got and "<wsnt:Notify>" in got[0] and MOTION in got[0], "no Notify: %s" % got[:1])


def filtered_notifications(cam, consumer, **subscription_filter):
    """The Notify requests a filtered subscription receives for a motion and an input event."""
    address = subscribe(cam, consumer, **subscription_filter)
    event("motion", "on")
    event("input", "1", "on")
    got = consumer.wait()
    time.sleep(1)
    event("motion", "off")
    event("input", "1", "off")
    unsubscribe(cam, address)
    check(got, "no Notify")
    return got


@case("EVENT-2-1-18", "events")
@with_consumer
def base_notify_filter(cam, consumer):
    got = filtered_notifications(cam, consumer, topic=INPUT)
    check(all(INPUT in n and MOTION not in n for n in got), "notifications %s" % [n[-300:] for n in got])


@case("EVENT-2-1-19", "events")
@with_consumer
def base_invalid_content(cam, consumer):
    body = ('<wsnt:ConsumerReference><wsa:Address xmlns:wsa="%s">%s</wsa:Address></wsnt:ConsumerReference>' % (
        WSA, consumer.address)) + filter_xml(content='boolean((//tt:SimpleItem[@Name="xyz" and @Value="xyz"])').replace(
        "tev:Filter", "wsnt:Filter")
    answer = cam.call("wsnt:Subscribe", body)
    check(answer.fault, "answered: %s" % answer.text[-300:])
    fault_named(answer, "InvalidFilterFault", "InvalidMessageContentExpressionFault")


@case("EVENT-2-1-21", "events")
@with_consumer
def base_unsubscribe_twice(cam, consumer):
    address = subscribe(cam, consumer, initial="PT10S")
    unsubscribe(cam, address)
    refused_at(cam, address, "wsnt:Unsubscribe")


@case("EVENT-2-1-22", "events")
@with_consumer
def base_resource_unknown(cam, consumer):
    address = subscribe(cam, consumer, initial="PT10S")
    unsubscribe(cam, address)
    fault_named(refused_at(cam, address, "wsnt:Renew", "<wsnt:TerminationTime>PT10S</wsnt:TerminationTime>"),
                "ResourceUnknownFault", "UnableToDestroySubscription")


@case("EVENT-2-1-23", "events")
@with_consumer
def base_invalid_topic(cam, consumer):
    body = ('<wsnt:ConsumerReference><wsa:Address xmlns:wsa="%s">%s</wsa:Address></wsnt:ConsumerReference>' % (
        WSA, consumer.address)) + filter_xml(topic="xyz").replace("tev:Filter", "wsnt:Filter")
    answer = cam.call("wsnt:Subscribe", body)
    check(answer.fault, "answered: %s" % answer.text[-300:])
    fault_named(answer, "InvalidFilterFault", "TopicNotSupported", "InvalidTopicExpressionFault")


def notified(consumer, done, seconds=5):
    """Every NotificationMessage the consumer has received, once done(messages) or the time is up."""
    deadline = time.time() + seconds
    while True:
        messages = [m for body in list(consumer.received)
                    for m in ElementTree.fromstring(body).iter("{%s}NotificationMessage" % NS["wsnt"])]
        if done(messages) or time.time() >= deadline:
            return messages
        time.sleep(0.1)


def initialized(messages, topic):
    return [m for m in messages if operation_of(m) == "Initialized" and topic_of(m) == topic]


def source_of(message):
    return [(i.get("Name"), i.get("Value")) for i in message.iterfind("wsnt:Message/tt:Message/tt:Source/tt:SimpleItem", NS)]


@case("EVENT-2-1-24", "events")
@with_consumer
def base_synchronization_point(cam, consumer):
    cam.ok("tev:GetEventProperties")
    address = subscribe(cam, consumer, topic=MOTION)
    try:
        first = initialized(notified(consumer, lambda got: initialized(got, MOTION)), MOTION)
        check(first, "no initial state: %s" % [topic_of(m) for m in notified(consumer, bool, 0)])
        count = len(consumer.received)
        at_ok(cam, address, "tev:SetSynchronizationPoint")
        again = lambda got: [m for m in initialized(got, MOTION) if source_of(m) == source_of(first[0])]
        got = notified(consumer, lambda got: len(again(got)) > 1)
        check(len(consumer.received) > count and len(again(got)) > 1, "no initial state after the synchronization point")
    finally:
        unsubscribe(cam, address)


def notify_filter_case(topic_filter, wanted, takes):
    """A Subscribe with a topic filter: every Notify stays inside it, and the wanted topics arrive (the
    camera's property events report them as their initial states, and the events are triggered)."""
    @with_consumer
    def run(cam, consumer):
        cam.ok("tev:GetEventProperties")
        address = subscribe(cam, consumer, topic=topic_filter)
        try:
            event("motion", "on")
            event("input", "1", "on")
            topics = {topic_of(m) for m in notified(consumer, lambda got: wanted <= {topic_of(m) for m in got})}
        finally:
            unsubscribe(cam, address)
            event("motion", "off")
            event("input", "1", "off")
        check(all(takes(t) for t in topics), "topics outside the filter: %s" % sorted(topics))
        check(wanted <= topics, "topics %s" % sorted(topics))
    return run


case("EVENT-2-1-25", "events")(notify_filter_case(MOTION + "|" + INPUT, {MOTION, INPUT}, lambda t: t in (MOTION, INPUT)))
case("EVENT-2-1-26", "events")(notify_filter_case("tns1:VideoSource//.", {MOTION},
                                                  lambda t: t.startswith("tns1:VideoSource/")))
case("EVENT-2-1-27", "events")(notify_filter_case("tns1:VideoSource//.|" + INPUT, {MOTION, INPUT},
                                                  lambda t: t.startswith("tns1:VideoSource/") or t == INPUT))


@case("EVENT-2-1-29", "events")
@with_consumer
def base_content_filter(cam, consumer):
    got = filtered_notifications(cam, consumer,
                                 content='boolean(//tt:SimpleItem[@Name="InputToken" and @Value="IO_Input1"])')
    check(all('Value="IO_Input1"' in n for n in got), "notifications %s" % [n[-300:] for n in got])


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


def subscription_of(answer):
    """The subscription address of a SubscribeResponse whose termination is at least 10 s away."""
    check(answer.status == 200 and answer.body is not None and answer.body.tag == q("wsnt:SubscribeResponse"),
          "status %d %s" % (answer.status, answer.text[-300:]))
    current, termination = times(answer, "wsnt")
    check(termination >= current + datetime.timedelta(seconds=10), "termination %s, now %s" % (termination, current))
    for element in answer.body.iter():
        if element.tag == "{%s}Address" % WSA and (element.text or "").strip():
            return element.text.strip()
    raise AssertionError("no subscription address")


def subscribe_form_case(form):
    @with_consumer
    def run(cam, consumer):
        addresses = [subscription_of(cam.call("wsnt:Subscribe", "<wsnt:ConsumerReference><wsa:Address xmlns:wsa=\"%s\">"
                                              "%s</wsa:Address></wsnt:ConsumerReference><wsnt:InitialTerminationTime>"
                                              "PT10S</wsnt:InitialTerminationTime>" % (WSA, consumer.address)))]
        try:
            body = form % {"wsnt": NS["wsnt"], "wsa": WSA, "to": escape(consumer.address)}
            envelope = ('<?xml version="1.0" encoding="UTF-8"?><x:Envelope xmlns:x="%s">%s<x:Body>%s</x:Body></x:Envelope>'
                        % (NS["s"], cam.security().replace("s:Header", "x:Header"), body))
            addresses.append(subscription_of(cam.post(envelope)))
        finally:
            for address in addresses:
                unsubscribe(cam, address)
    return run


for _id, _form in SUBSCRIBE_FORMS.items():
    case(_id, "events")(subscribe_form_case(_form))
not_applicable("the camera keeps no event history to seek in", "EVENT-6-1-3", "EVENT-6-1-4", "EVENT-6-1-5")
not_applicable("the camera has no event broker (MQTT)", *["EVENT-7-1-%d" % i for i in range(1, 5)],
               *["EVENT-7-2-%d" % i for i in range(1, 8)])


@case("EVENT-5-1-1", "events")
def event_capabilities(cam, f):
    caps = cam.ok("tev:GetServiceCapabilities").one("tev:Capabilities")
    check(caps.get("MaxPullPoints") is not None, "no MaxPullPoints")


@case("EVENT-5-1-2", "events")
def capabilities_agree(cam, f):
    caps = cam.ok("tev:GetServiceCapabilities").one("tev:Capabilities")
    services = cam.ok("tds:GetServices", "<tds:IncludeCapability>true</tds:IncludeCapability>")
    for service in services.all("tds:Service"):
        if service.findtext("tds:Namespace", "", NS).strip() == NS["tev"]:
            listed = service.find(".//tev:Capabilities", NS)
            check(listed is not None and listed.attrib == caps.attrib, "GetServices %s, GetServiceCapabilities %s" % (
                listed.attrib if listed is not None else None, caps.attrib))
            return
    raise AssertionError("GetServices lists no event service")
