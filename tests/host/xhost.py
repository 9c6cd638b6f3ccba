"""What the end-to-end tests of the module share: an X server of their own, and a host process
(host_driver.py) run against it with the module and the stand-ins on its path."""
import json
import os
import shutil
import subprocess

from checks import check, finish

PYTHON = "/usr/bin/python3"  # the interpreter that has Debian's PyQt5
HERE = os.path.dirname(os.path.abspath(__file__))

TABLES = ["Участки", "ЧастиУчастка", "Объекты", "Точки", "ТочкиОМС", "Квартал", "Границы", "Зоны", "Спецзоны",
          "Смежники", "СтарыеКадНомера", "НовыеКадНомера", "Паспорт"]


def require_screen():
    """Ends the test when PyQt5 or Xvfb is missing: a failure under CI, a skip elsewhere."""
    have_pyqt = subprocess.run([PYTHON, "-c", "import PyQt5.QtWidgets"], capture_output=True).returncode == 0
    if have_pyqt and shutil.which("Xvfb"):
        return
    if os.environ.get("CI") == "true":
        check("PyQt5 and Xvfb present", False)
    else:
        print("skipped: no PyQt5 or Xvfb")
    finish()


class Display:
    """An Xvfb server for the life of the block; .name is its DISPLAY."""

    def __enter__(self):
        ready_r, ready_w = os.pipe()
        self.server = subprocess.Popen([shutil.which("Xvfb"), "-displayfd", str(ready_w), "-screen", "0", "1280x1024x24"],
                                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, pass_fds=(ready_w,))
        os.close(ready_w)
        with os.fdopen(ready_r) as ready:
            self.name = ":" + ready.readline().strip()
        return self

    def __exit__(self, *exc):
        self.server.terminate()
        self.server.wait()


def run_host(display, module_dir, stand_ins, tmp, env_extra, with_stand_ins=True, timeout=300):
    """Runs the host once; answers (what it saw, the finished process). TMPDIR is tmp/tmp and
    the Documents folder tmp/docs."""
    path = module_dir + (os.pathsep + stand_ins if with_stand_ins else "")
    env = dict(os.environ, DISPLAY=display, TMPDIR=os.path.join(tmp, "tmp"), XDG_DOCUMENTS_DIR=os.path.join(tmp, "docs"),
               PYTHONPATH=path, **env_extra)
    env.pop("QT_QPA_PLATFORM", None)
    r = subprocess.run([PYTHON, os.path.join(HERE, "host_driver.py")], capture_output=True, text=True, env=env,
                       timeout=timeout)
    lines = [line for line in r.stdout.splitlines() if line.startswith("{")]
    return (json.loads(lines[-1]) if lines else {}), r


def ogrinfo(path):
    """ogrinfo's summary of a table, or None when GDAL cannot open it."""
    r = subprocess.run(["ogrinfo", "-ro", "-so", "-al", path], capture_output=True, text=True)
    return r.stdout if r.returncode == 0 else None
