"""Runs every python code block of docs/python.md, each in a fresh interpreter,
in a temporary folder holding a copy of examples/ and example.zt2 exported from
it, so that the page's examples cannot fall out of step with the package.

    run_doc_examples.py SOURCE_DIR ZT2EXPORT
"""
import os
import re
import shutil
import subprocess
import sys
import tempfile


def main():
    source, zt2export = sys.argv[1], sys.argv[2]
    with open(os.path.join(source, "docs", "python.md"), encoding="utf-8") as page:
        blocks = re.findall(r"^```python\n(.*?)^```", page.read(), re.M | re.S)
    assert len(blocks) >= 4, "docs/python.md: the examples were not found"
    with tempfile.TemporaryDirectory() as work:
        shutil.copytree(os.path.join(source, "examples"), os.path.join(work, "examples"))
        env = dict(os.environ, XDG_CONFIG_HOME=os.path.join(work, "config"))
        subprocess.run([zt2export, "examples/example.scene.json", "-o", "example.zt2"], cwd=work, env=env,
                       check=True, stdout=subprocess.DEVNULL)
        failed = 0
        for number, code in enumerate(blocks, 1):
            run = subprocess.run([sys.executable, "-c", code], cwd=work, env=env, capture_output=True, text=True)
            if run.returncode != 0:
                failed += 1
                print(f"docs/python.md, example {number} failed:\n{code}\n{run.stdout}{run.stderr}")
        print(f"{len(blocks) - failed} of {len(blocks)} examples ran")
        return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
