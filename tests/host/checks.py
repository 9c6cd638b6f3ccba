"""The tally of the Python tests: check() notes each result, finish() prints
'N passed, N failed' and exits non-zero on a failure."""
import os
import sys

_tally = {"passed": 0, "failed": 0}


def check(name, condition, detail=""):
    if condition:
        _tally["passed"] += 1
    else:
        _tally["failed"] += 1
        print(f"FAILED: {name} {detail}")


def finish(hard=False):
    """hard: leave at once, without the interpreter's teardown (which a library such as QGIS
    may not survive once its application has ended)."""
    print(f"{_tally['passed']} passed, {_tally['failed']} failed")
    code = 1 if _tally["failed"] else 0
    if hard:
        sys.stdout.flush()
        sys.stderr.flush()
        os._exit(code)
    sys.exit(code)
