"""The flow's case table: each case is registered under its test case ID with the features it needs;
a case whose features the camera lacks is listed as not applying, with the feature named."""
CASES = {}
NOT_APPLICABLE = {}
NOT_CODED = {}


def case(case_id, *needs):
    """@case("MEDIA-6-1-1", "media"): the function runs the case against a Camera and its features."""
    def register(fn):
        CASES[case_id] = (needs, fn)
        return fn
    return register


def cases(rows):
    """Rows of (ID, needs, run), needs as one feature name or a tuple of them."""
    for case_id, needs, run in rows:
        case(case_id, *((needs,) if isinstance(needs, str) else needs))(run)


def not_applicable(reason, *case_ids):
    """Cases that apply to no camera of this kind, with the missing feature as the reason."""
    NOT_APPLICABLE.update((case_id, reason) for case_id in case_ids)


def not_coded(reason, *case_ids):
    """Cases that apply but the flow does not run, with why."""
    NOT_CODED.update((case_id, reason) for case_id in case_ids)


def uncoded(what):
    """A case that applies only to a feature this camera lacks today: should the camera gain it, the
    case fails until it is coded."""
    def run(cam, f):
        raise AssertionError("the camera now reports %s: code this case" % what)
    return run


def body_of(body, cam, f):
    return body(cam, f) if callable(body) else body


def answers(op, body="", *elements):
    """A case that is one call answering with the given elements; body may be a function of (cam, f)."""
    def run(cam, f):
        answer = cam.ok(op, body_of(body, cam, f))
        for element in elements:
            answer.one(element)
    return run


def refuses(op, body, *codes):
    """A case that is one call refused with the given head of the fault's code chain."""
    def run(cam, f):
        cam.refused(op, body_of(body, cam, f), *codes)
    return run
