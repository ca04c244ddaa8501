"""The flow's case table: each case is registered under its test case ID with the features it needs;
a case whose features the camera lacks is listed as not applying, with the feature named."""
CASES = {}
NOT_APPLICABLE = {}


def case(case_id, *needs):
    """@case("MEDIA-6-1-1", "media"): the function runs the case against a Camera and its features."""
    def register(fn):
        CASES[case_id] = (needs, fn)
        return fn
    return register


def not_applicable(reason, *case_ids):
    """Cases that apply to no camera of this kind, with the missing feature as the reason."""
    for case_id in case_ids:
        NOT_APPLICABLE[case_id] = reason


def uncoded(what):
    """A case that applies only to a feature this camera lacks today: should the camera gain it, the
    case fails until it is coded."""
    def run(cam, f):
        raise AssertionError("the camera now reports %s: code this case" % what)
    return run


NOT_CODED = {}


def not_coded(reason, *case_ids):
    """Cases that apply but the flow does not run, with why."""
    for case_id in case_ids:
        NOT_CODED[case_id] = reason
