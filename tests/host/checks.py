"""The tally of the Python tests: check() notes each result, finish() prints
'N passed, N failed' and exits non-zero on a failure."""
import sys

_tally = {"passed": 0, "failed": 0}


def check(name, condition, detail=""):
    if condition:
        _tally["passed"] += 1
    else:
        _tally["failed"] += 1
        print(f"FAILED: {name} {detail}")


def finish():
    print(f"{_tally['passed']} passed, {_tally['failed']} failed")
    sys.exit(1 if _tally["failed"] else 0)
