"""The wheel, built by its target and installed into a fresh virtual
environment (numpy from the system's site-packages), runs outside the build
tree: it reads the example, exports it with the exporter module it carries,
reads the export back, and runs the zt2export it carries. Skipped (77) where
the tools that package and install it are missing.

    test_wheel.py SOURCE_DIR BUILD_DIR WHEEL_DIR VERSION CMAKE
"""
import glob
import importlib.util
import os
import shutil
import subprocess
import sys
import sysconfig
import tempfile

SOURCE, BUILD, WHEELS, VERSION, CMAKE = sys.argv[1:6]
# Debian's packages that give the modules the wheel is packaged and installed with.
TOOLS = {"pip": "python3-pip", "setuptools": "python3-setuptools", "wheel": "python3-wheel",
         "ensurepip": "python3-venv"}

SCRIPT = r"""
import os, sys
import ztexport
here = os.path.dirname(ztexport.__file__)
assert here.startswith(sys.prefix), (here, sys.prefix)
assert ztexport.__version__ == sys.argv[3], ztexport.__version__
out = os.path.join(sys.argv[2], "example.zt2")
result = ztexport.export(os.path.join(sys.argv[1], "examples", "example.scene.json"), out,
                         config_dir=os.path.join(sys.argv[2], "config"))
assert result.status == 0, result.messages
scene = ztexport.read(out)
assert any(len(m.faces) for m in scene.meshes)
assert ztexport.default_exporter().startswith(here), ztexport.default_exporter()
print("exported", len(scene.meshes), "meshes")
"""


def main():
    missing = [package for module, package in TOOLS.items() if importlib.util.find_spec(module) is None]
    if missing:
        print("SKIP: the wheel needs %s (apt-get install %s)" % (", ".join(missing), " ".join(missing)))
        return 77
    subprocess.run([CMAKE, "--build", BUILD, "--target", "ztexport_wheel"], check=True)
    tag = "cp%d%d" % sys.version_info[:2]
    wheels = glob.glob(os.path.join(WHEELS, "ztexport-%s-%s-%s-*.whl" % (VERSION, tag, tag)))
    if len(wheels) != 1:
        print("FAIL: expected one wheel ztexport-%s-%s-*.whl in %s, found %r" % (VERSION, tag, WHEELS, wheels))
        return 1
    work = tempfile.mkdtemp()
    try:
        venv = os.path.join(work, "venv")
        subprocess.run([sys.executable, "-m", "venv", "--system-site-packages", venv], check=True)
        python = os.path.join(venv, "bin", "python")
        subprocess.run([python, "-m", "pip", "install", "--quiet", "--no-index", "--no-deps", wheels[0]], check=True)
        # Nothing of the build tree or the sources on the path: the venv's copy alone.
        env = {k: v for k, v in os.environ.items() if k not in ("PYTHONPATH", "PYTHONHOME")}
        run = subprocess.run([python, "-c", SCRIPT, SOURCE, work, VERSION], cwd=work, env=env,
                             capture_output=True, text=True)
        print(run.stdout + run.stderr, end="")
        if run.returncode != 0:
            print("FAIL: the installed wheel did not export the example")
            return 1
        installed = subprocess.run([python, "-c", "import ztexport; print(ztexport.default_exporter())"],
                                   cwd=work, env=env, capture_output=True, text=True, check=True).stdout.strip()
        version = subprocess.run([installed, "--version"], capture_output=True, text=True)
        if version.returncode != 0 or not version.stdout.strip():
            print("FAIL: %s --version: %r %r" % (installed, version.stdout, version.stderr))
            return 1
        print("1 passed, 0 failed")
        return 0
    finally:
        shutil.rmtree(work)


if __name__ == "__main__":
    sys.exit(main())
