#!/usr/bin/env python3
"""The Python module as the host's interpreter sees it.

usage: module_test.py MODULE_DIR STAND_INS_DIR
Prints 'N passed, N failed' and exits non-zero on a failure.
"""
import os
import shutil
import subprocess
import sys
import tempfile

from checks import check, finish
import time

module_dir, stand_ins = sys.argv[1], sys.argv[2]


def run_python(code, env=None, timeout=60):
    return subprocess.run([sys.executable, "-c", code], capture_output=True, text=True, env=env, timeout=timeout)


base = dict(os.environ, PYTHONPATH=module_dir)
tmp = tempfile.mkdtemp()
base["TMPDIR"] = tmp
base.pop("DISPLAY", None)
base.pop("QT_QPA_PLATFORM", None)

# The module loads and offers its two functions, each documented by its own name.
r = run_python(
    "import tmMiniImportLib as m\n"
    "print(m.__name__, m.ShowImportForm.__doc__, m.ShowImportAbout.__doc__)\n",
    base)
check("import", r.returncode == 0 and r.stdout.split() == ["tmMiniImportLib", "ShowImportForm", "ShowImportAbout"],
      r.stdout + r.stderr)

# Without a screen the console cannot open: a Python exception, no crash, and nothing half
# made: the saved choices are neither created nor rewritten, with or without axipy. (With a
# screen the console is tested from a host's Python in console_e2e_test.py.)
ini_path = os.path.join(tmp, "Импорт64.ini")
r = run_python(
    "import tmMiniImportLib as m\n"
    "try:\n    m.ShowImportForm(1, 2)\nexcept RuntimeError as e:\n    print('RuntimeError', e)\n",
    base)
check("no screen", r.returncode == 0 and "RuntimeError Нет экрана" in r.stdout, r.stdout + r.stderr)
check("no screen: no choices file", not os.path.exists(ini_path))
with open(ini_path, "w", encoding="utf-8") as f:
    f.write("[Import]\nMiText=/kept\n")
env = dict(base, PYTHONPATH=module_dir + os.pathsep + stand_ins)
r = run_python(
    "import tmMiniImportLib as m\n"
    "try:\n    m.ShowImportForm(window=1)\nexcept RuntimeError as e:\n    print('RuntimeError')\n",
    env)
check("no screen, keywords, axipy", r.returncode == 0 and "RuntimeError" in r.stdout, r.stdout + r.stderr)
check("no screen: choices file untouched", open(ini_path, encoding="utf-8").read() == "[Import]\nMiText=/kept\n")
os.remove(ini_path)

# Keyword arguments are taken and not read, like positional ones.
r = run_python(
    "import tmMiniImportLib as m\n"
    "try:\n    m.ShowImportAbout(1, parent=None)\nexcept RuntimeError as e:\n    print('RuntimeError')\n",
    base)
check("about with keywords", r.returncode == 0 and "RuntimeError" in r.stdout, r.stdout + r.stderr)

# Without a display the about box becomes a Python exception, not a crash.
r = run_python(
    "import tmMiniImportLib as m\n"
    "try:\n    m.ShowImportAbout()\nexcept RuntimeError as e:\n    print('RuntimeError', str(e).replace(chr(10), ' '))\n",
    base)
check("about without display", r.returncode == 0 and "Версия: 2.0 (сборка 22)" in r.stdout, r.stdout + r.stderr)

# Under Xvfb the box is shown and closed by a key press; the function answers 0.
xvfb, xdotool = shutil.which("Xvfb"), shutil.which("xdotool")
if xvfb and xdotool:
    # The server picks a free display and writes its number once it accepts clients, so a busy
    # machine (or another server on a fixed number) cannot make the test race it.
    ready_r, ready_w = os.pipe()
    server = subprocess.Popen([xvfb, "-displayfd", str(ready_w), "-screen", "0", "1024x768x24"],
                              stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, pass_fds=(ready_w,))
    os.close(ready_w)
    try:
        with os.fdopen(ready_r) as ready:
            display = ":" + ready.readline().strip()
        genv = dict(base, DISPLAY=display)
        proc = subprocess.Popen([sys.executable, "-c", "import tmMiniImportLib as m; print(m.ShowImportAbout())"],
                                stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, env=genv)
        found = False
        for _ in range(100):
            w = subprocess.run([xdotool, "search", "--name", "Террамир Мини"], capture_output=True, text=True,
                               env=genv)
            if w.stdout.strip():
                found = True
                wid = w.stdout.split()[0]
                time.sleep(0.3)
                subprocess.run([xdotool, "key", "--window", wid, "Return"], env=genv)
                break
            time.sleep(0.1)
        try:
            out, err = proc.communicate(timeout=20)
        except subprocess.TimeoutExpired:
            proc.kill()
            out, err = proc.communicate()
        check("about shown", found, err)
        check("about closed", proc.returncode == 0 and out.strip() == "0", out + err)
    finally:
        server.terminate()
        server.wait()
elif os.environ.get("CI") == "true":
    check("Xvfb and xdotool present", False)

shutil.rmtree(tmp, ignore_errors=True)
finish()
