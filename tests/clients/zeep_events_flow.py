"""Debian's zeep, strict, with Home Assistant's event requests to the simulated camera in the ONVIF
mode: two pull points at once each get their own messages, a motion event reads "on" and then "off"
by Home Assistant's rule, and a webhook consumer on loopback receives a Notify. Run by
tests/client_flow_test.sh, which sets ONVIF_PORT and the rest."""
import datetime
import http.server
import os
import re
import sys
import threading

import zeep
from lxml import etree
from zeep.wsse.username import UsernameToken

from zeep_flow import DEVICE, SCHEMA, Camera, check, event, fault_of, refused, rows, step

PULL = dict(Timeout=datetime.timedelta(seconds=5), MessageLimit=100)


def onvif_mode():
    """The mode is read by every request: switching the root's settings is enough."""
    conf = os.path.join(os.environ["CAMERA_ROOT"], "tmp/onvif/onvif.conf")
    with open(conf) as f:
        text = f.read()
    with open(conf, "w") as f:
        f.write(re.sub(r"(?m)^Conformance\.Mode=.*$", "Conformance.Mode=onvif", text))


def motion(messages):
    """Home Assistant's rule: tns1:VideoSource/MotionAlarm is on only when State is the text true."""
    states = []
    for m in messages or []:
        if m.Topic._value_1 != "tns1:VideoSource/MotionAlarm":
            continue
        items = m.Message._value_1.xpath("*[local-name()='Data']/*[local-name()='SimpleItem'][@Name='State']")
        states += [item.get("Value") == "true" for item in items]
    return states


def two_pull_points(cam):
    events = cam.service("events")
    addresses = [events.CreatePullPointSubscription(InitialTerminationTime="PT120S").SubscriptionReference.Address._value_1
                 for _ in range(2)]
    pulls = [cam.service("pullpoint", a) for a in addresses]
    for pull in pulls:
        check(motion(pull.PullMessages(**PULL).NotificationMessage) == [False], "initial motion state")
    event("motion", "on")
    for pull in pulls:
        check(motion(pull.PullMessages(**PULL).NotificationMessage) == [True], "motion on, at each pull point")
    event("motion", "off")
    check(motion(pulls[1].PullMessages(**PULL).NotificationMessage) == [False], "motion off at the second")
    # The first still holds its own message: the second's pull did not take it.
    check(motion(pulls[0].PullMessages(**PULL).NotificationMessage) == [False], "motion off at the first")
    managers = [cam.service("subscription", a) for a in addresses]
    managers[1].Renew(TerminationTime="PT60S")
    managers[1].Unsubscribe()
    fault = fault_of(lambda: managers[1].Unsubscribe())
    detail = etree.tostring(fault.detail).decode() if fault.detail is not None else ""
    check("ResourceUnknownFault" in detail, "second unsubscribe: %s %s" % (fault.message, detail))
    managers[0].Unsubscribe()


class Consumer(http.server.BaseHTTPRequestHandler):
    received = []

    def do_POST(self):
        body = self.rfile.read(int(self.headers["Content-Length"]))
        Consumer.received.append(body.decode("utf-8", "replace"))
        self.send_response(202)
        self.send_header("Content-Length", "0")
        self.end_headers()

    def log_message(self, *args):
        pass


def webhook(cam):
    server = http.server.HTTPServer(("127.0.0.1", 0), Consumer)
    thread = threading.Thread(target=server.serve_forever, daemon=True)
    thread.start()
    try:
        client = zeep.Client(os.path.join(SCHEMA, "onvif/ver10/events/wsdl/event.wsdl"), transport=cam.transport,
                             settings=zeep.Settings(strict=True))
        client.wsse = UsernameToken(*cam.account, use_digest=True)
        producer = client.create_service("{http://www.onvif.org/ver10/events/wsdl}NotificationProducerBinding", DEVICE)
        consumer = "http://127.0.0.1:%d/onvif_events" % server.server_port
        answer = producer.Subscribe(ConsumerReference={"Address": {"_value_1": consumer}}, InitialTerminationTime="PT60S")
        event("motion", "on")
        for _ in range(100):
            if Consumer.received:
                break
            threading.Event().wait(0.1)
        check(Consumer.received, "no Notify within ten seconds")
        notify = Consumer.received[0]
        check("<wsnt:Notify>" in notify and "tns1:VideoSource/MotionAlarm" in notify and 'Value="true"' in notify,
              "Notify %s" % notify[:300])
        cam.service("subscription", answer.SubscriptionReference.Address._value_1).Unsubscribe()
    finally:
        server.shutdown()


def main():
    onvif_mode()
    cam = Camera()
    cam.account = ("onvifuser", "onvif1234")
    step("two pull points, each with its own messages", lambda: two_pull_points(cam))
    step("a webhook consumer receives a Notify", lambda: webhook(cam))
    failed = sum(1 for r in rows if r[1] == "fail")
    print("\nzeep_events_flow: client operations\n| Operation | Result | Note |\n|---|---|---|")
    for name, result, note in rows:
        print("| %s | %s | %s |" % (name, result, note.replace("|", "/").replace("\n", " ")))
    print("zeep_events_flow: %d passed, %d failed" % (len(rows) - failed, failed))
    return 1 if failed or refused else 0


if __name__ == "__main__":
    sys.exit(main())
