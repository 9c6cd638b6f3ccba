#!/usr/bin/env python3
"""`tmimport --batch` as a user with hundreds of files runs it: each document keeps its own
tables, zip archives (nested, hostile) are read in place, --jobs gives the same output as one
job, and a large batch with broken files among good ones loses no good file.

usage: batch_e2e_test.py TMIMPORT SHARED_DATA
"""
import filecmp
import os
import re
import shutil
import subprocess
import sys
import tempfile
import zipfile

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from checks import check, finish  # noqa: E402

tmimport, data = sys.argv[1], sys.argv[2]
kpt10 = os.path.join(data, "xml", "KPT10")
kpt11 = os.path.join(data, "xml", "KPT11")
if not (os.path.isdir(kpt10) and os.path.isdir(kpt11)):
    check("the shared extracts are there: " + data, os.environ.get("CI") != "true")
    print("skipped: no shared extracts in", data)
    finish()

tmp = tempfile.mkdtemp(prefix="tm-batch-")
env = dict(os.environ, TMPDIR=os.path.join(tmp, "tmp"), XDG_DOCUMENTS_DIR=os.path.join(tmp, "docs"))
os.makedirs(env["TMPDIR"])
os.makedirs(env["XDG_DOCUMENTS_DIR"])
result_list = os.path.join(env["XDG_DOCUMENTS_DIR"], "tmMiniImportRes.ini")
plan_a = os.path.join(kpt10, "niakr1s__KPT_CadastralBlock_21_02_010106.xml")
plan_b = os.path.join(kpt11, sorted(f for f in os.listdir(kpt11) if f.endswith(".xml"))[0])


def run(*args):
    r = subprocess.run([tmimport, *args], capture_output=True, text=True, env=env)
    lines = [x for x in r.stderr.splitlines() if "classifier dictionaries" not in x]
    return r.returncode, lines, r.stdout


def rows(mif):
    """Rows of a MIF/MID table or a TAB table as GDAL reads it; -1 when GDAL cannot open it."""
    s = subprocess.run(["ogrinfo", "-ro", "-so", "-al", mif], capture_output=True, text=True).stdout
    m = re.search(r"Feature Count: (\d+)", s)
    return int(m.group(1)) if m else -1


def tree(folder):
    return sorted(os.path.relpath(os.path.join(d, f), folder) for d, _, fs in os.walk(folder) for f in fs)


def put(path, source=None, text=None):
    os.makedirs(os.path.dirname(path), exist_ok=True)
    if source:
        shutil.copy(source, path)
    else:
        with open(path, "w", encoding="utf-8") as f:
            f.write(text)
    return path


# Two files of the same name in two folders: both keep their tables.
inp, out = os.path.join(tmp, "two"), os.path.join(tmp, "two-out")
put(os.path.join(inp, "north", "report.xml"), plan_a)
put(os.path.join(inp, "south", "report.xml"), plan_b)
code, err, _ = run("--batch", inp, "-o", out, "-q")
check("two plans: done", code == 0, err)
north = os.path.join(out, "north", "report.xml", "Участки.mif")
south = os.path.join(out, "south", "report.xml", "Участки.mif")
check("each file in a folder of its own", os.path.exists(north) and os.path.exists(south), tree(out)[:5])
check("each keeps its own rows", rows(north) > 0 and rows(south) > 0 and rows(north) != rows(south),
      (rows(north), rows(south)))
listed = open(result_list, encoding="utf-8").read().split()
check("the result list names every table of both", len(listed) == 26 and
      os.path.join(out, "north", "report.xml", "Участки") in listed, listed[:3])

# TAB tables in OUT, named after the block; the same block twice takes a suffix and says so.
same = os.path.join(tmp, "same")
put(os.path.join(same, "1.xml"), plan_a)
put(os.path.join(same, "2.xml"), plan_a)
tab_out = os.path.join(tmp, "same-out")
code, err, _ = run("--batch", same, "-o", tab_out, "--format", "tab", "-q")
check("same block: done", code == 0, err)
check("same block: one line says where the second went",
      len(err) == 1 and "2.xml: block 21_02_010106 " in err[0] and "*_21_02_010106_2.tab" in err[0], err)
names = os.listdir(tab_out)
check("same block: both sets of tables", "Участки_21_02_010106.tab" in names and "Участки_21_02_010106_2.tab" in names,
      sorted(names)[:6])
check("same block: no folders left", not any(os.path.isdir(os.path.join(tab_out, n)) for n in names), names)
check("same block: the second set opens with the same rows",
      rows(os.path.join(tab_out, "Участки_21_02_010106.tab")) == rows(os.path.join(tab_out, "Участки_21_02_010106_2.tab")) > 0)
listed = open(result_list, encoding="utf-8").read().split()
check("same block: the list names the TAB tables", os.path.join(tab_out, "Участки_21_02_010106_2") in listed, listed[:3])

# Archives: nested, with signatures, hostile ones beside; read in place, never written outside OUT.
arch = os.path.join(tmp, "arch")
os.makedirs(arch)
with zipfile.ZipFile(os.path.join(tmp, "inner.zip"), "w", zipfile.ZIP_DEFLATED) as z:
    z.write(plan_b, "inner.xml")
    z.writestr("inner.xml.sig", b"\x30\x82signature")
with zipfile.ZipFile(os.path.join(arch, "plans.zip"), "w", zipfile.ZIP_DEFLATED) as z:
    z.write(plan_a, "outer.xml")
    z.write(os.path.join(tmp, "inner.zip"), "nested/inner.zip")
with zipfile.ZipFile(os.path.join(arch, "renamed.dat"), "w", zipfile.ZIP_DEFLATED) as z:
    z.write(plan_a, "by-content.xml")
with zipfile.ZipFile(os.path.join(arch, "evil.zip"), "w") as z:
    z.write(plan_a, "../../escape.xml")
    z.write(plan_a, "/absolute/abs.xml")
with zipfile.ZipFile(os.path.join(arch, "nothing.zip"), "w") as z:
    z.writestr("readme.txt", "no XML here")
with zipfile.ZipFile(os.path.join(arch, "bomb.zip"), "w", zipfile.ZIP_DEFLATED, compresslevel=9) as z:
    z.writestr("bomb.xml", b"<a>" + b" " * (80 << 20) + b"</a>")
with open(os.path.join(arch, "broken.zip"), "wb") as f:
    f.write(open(os.path.join(arch, "plans.zip"), "rb").read()[:3000])
put(os.path.join(arch, "broken.xml"), text="<KPT><unclosed>")
arch_out = os.path.join(tmp, "arch-out")
code, err, _ = run("--batch", arch, "-o", arch_out, "-q")
check("archives: some failed", code == 1, code)
made = tree(arch_out)
for name in ("plans.zip/outer.xml/Участки.mif", "plans.zip/nested/inner.zip/inner.xml/Участки.mif",
             "renamed.dat/by-content.xml/Участки.mif", "evil.zip/escape.xml/Участки.mif",
             "evil.zip/absolute/abs.xml/Участки.mif"):
    check("archives: " + name, name in made, [m for m in made if m.endswith("Участки.mif")])
check("archives: nothing outside OUT", not os.path.exists(os.path.join(tmp, "escape.xml")) and
      not os.path.exists("/absolute"))
check("archives: a nested entry keeps its rows", rows(os.path.join(arch_out, "plans.zip/nested/inner.zip/inner.xml/Участки.mif")) ==
      rows(south))
for name, reason in (("bomb.zip/bomb.xml", "refused as a zip bomb"), ("nothing.zip", "the archive holds no XML"),
                     ("broken.zip", "damaged zip archive"), ("broken.xml", "not XML")):
    hits = [e for e in err if (os.path.join(arch, name) + ": ") in e]
    check("archives: one line for " + name, len(hits) == 1 and reason in hits[0], err)
check("archives: one line each, nothing more", len(err) == 4, err)
check("archives: a failed document leaves nothing", not any(m.startswith("broken") for m in made), made[:3])

# An archive given alone is a batch of its entries.
code, err, _ = run(os.path.join(arch, "plans.zip"), "-o", os.path.join(tmp, "alone"), "-q")
check("an archive alone", code == 0 and os.path.exists(os.path.join(tmp, "alone", "plans.zip", "outer.xml", "Участки.mif")), err)

# --jobs 4 writes what --jobs 1 writes.
one, four = os.path.join(tmp, "j1"), os.path.join(tmp, "j4")
c1, e1, _ = run("--batch", arch, "-o", one, "-q", "--jobs", "1")
c4, e4, _ = run("--batch", arch, "-o", four, "-q", "--jobs", "4")
check("jobs: same status and lines", c1 == c4 and e1 == e4, (e1, e4))
cmp = filecmp.dircmp(one, four)


def same_tree(d):
    return not d.left_only and not d.right_only and not d.diff_files and not d.funny_files and \
        all(same_tree(s) for s in d.subdirs.values())


check("jobs: the same files", tree(one) == tree(four) and same_tree(cmp))
mismatch = [p for p in tree(one) if open(os.path.join(one, p), "rb").read() != open(os.path.join(four, p), "rb").read()]
check("jobs: byte for byte", not mismatch, mismatch[:3])

# A batch of 1,000 small files, every 50th broken or truncated, archives among them.
big = os.path.join(tmp, "big")
small = open(os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "samples", "kpt10_sample.xml"), "rb").read()
bad = 0
for i in range(1000):
    path = os.path.join(big, f"d{i // 100}", f"f{i:04d}.xml")
    os.makedirs(os.path.dirname(path), exist_ok=True)
    body = small
    if i % 50 == 7:
        body, bad = small[: len(small) // 2], bad + 1
    if i % 100 == 3:
        with zipfile.ZipFile(path[:-4] + ".zip", "w", zipfile.ZIP_DEFLATED) as z:
            z.writestr(f"f{i:04d}.xml", body)
            z.writestr(f"f{i:04d}.xml.sig", b"sig")
    else:
        with open(path, "wb") as f:
            f.write(body)
big_out = os.path.join(tmp, "big-out")
code, err, out_text = run("--batch", big, "-o", big_out, "--jobs", "2")
check("1,000 files: the status says some failed", code == 1, code)
check("1,000 files: one line a broken file", len(err) == bad and all("not XML" in e for e in err), (bad, err[:3]))
folders = [d for d, _, fs in os.walk(big_out) if "Участки.mif" in fs]
check("1,000 files: every good file's tables", len(folders) == 1000 - bad, len(folders))
sample = folders[::97]
check("1,000 files: the tables open in GDAL", all(rows(os.path.join(d, "Участки.mif")) > 0 for d in sample), sample[:2])
check("1,000 files: the summary counts them", out_text.startswith("1000 files, "), out_text[:80])

# Ctrl-C in the middle of a parallel batch: every job stops, what was done stays whole.
import signal  # noqa: E402
import time  # noqa: E402
slow = os.path.join(tmp, "slow")
for i in range(600):
    put(os.path.join(slow, f"p{i:03d}.xml"), plan_a)


def start_slow_batch(out):
    """The batch of the 600 plans on two jobs, once ten of its documents have begun (a folder
    appears when its document begins; by the tenth, the first ones have been told)."""
    batch = subprocess.Popen([tmimport, "--batch", slow, "-o", out, "--jobs", "2", "-q"], stderr=subprocess.PIPE, text=True,
                             env=env)
    deadline = time.time() + 60
    while time.time() < deadline and not (os.path.isdir(out) and len(os.listdir(out)) >= 10):
        time.sleep(0.01)
    return batch


cut_out = os.path.join(tmp, "cut-out")
proc = start_slow_batch(cut_out)
time.sleep(0.2)
proc.send_signal(signal.SIGINT)
_, cut_err = proc.communicate(timeout=120)
check("cancel: exit 3", proc.returncode == 3, (proc.returncode, cut_err[-300:]))
check("cancel: told once", cut_err.count("Импорт прерван пользователем.") == 1, cut_err[-300:])
kept = [d for d, _, fs in os.walk(cut_out) if any(f.endswith(".mif") for f in fs)]
check("cancel: some documents were done, not all", 0 < len(kept) < 600, len(kept))
check("cancel: each kept document whole",
      all(sum(f.endswith(".mif") for f in os.listdir(d)) == 13 for d in kept), kept[:2])
check("cancel: no child left", subprocess.run(["pgrep", "-f", cut_out], capture_output=True).stdout == b"")

# A job killed in the middle of a parallel batch fails the one document it was importing; the
# documents it held and never began go to the others, and every other document is done.
lost_out = os.path.join(tmp, "lost-out")
proc = start_slow_batch(lost_out)
jobs = subprocess.run(["pgrep", "-P", str(proc.pid)], capture_output=True, text=True).stdout.split()
if jobs:
    os.kill(int(jobs[0]), signal.SIGKILL)
_, lost_err = proc.communicate(timeout=300)
lost_lines = [x for x in lost_err.splitlines() if "classifier dictionaries" not in x]
done_folders = [d for d, _, fs in os.walk(lost_out) if sum(f.endswith(".mif") for f in fs) == 13]
check("a killed job: it was there to kill", len(jobs) == 2, jobs)
check("a killed job: at most its one document fails, in one line",
      len(lost_lines) <= 1 and all("ended with signal 9" in x for x in lost_lines), lost_lines[:3])
check("a killed job: every other document is done", len(done_folders) == 600 - len(lost_lines), len(done_folders))
check("a killed job: its document leaves nothing", all(sum(f.endswith(".mif") for f in fs) in (0, 13)
                                                     for _, _, fs in os.walk(lost_out)))
check("a killed job: the status tells the failure", proc.returncode == (1 if lost_lines else 0), proc.returncode)

shutil.rmtree(tmp, ignore_errors=True)
finish()
