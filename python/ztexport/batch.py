"""zt2export --batch on a Dask cluster.

    python3 -m ztexport.batch SRC_DIR OUT_DIR [--scheduler ADDRESS | --workers N] [options]

Every file is one Dask task that runs zt2export in a process of its own on a
worker, through the batch library's own steps (``ztexport._ztexport._batch``):
which files, the stamps that say what is up to date, the per-file records, the
manifest and the exit status are those of ``zt2export --batch``, so the two
give the same output tree. docs/batch.md describes the command and how to
start a cluster.
"""

from __future__ import annotations

import argparse
import logging
import os
import signal
import socket
import sys
import time
from typing import Any, Dict, List, Optional

from ._ztexport import _batch

BatchError = _batch.BatchError

USAGE_ERROR = 2
# A worker that died with a file on it: the scheduler gives the file to
# another worker, until this many workers died with it.
ALLOWED_FAILURES = 3
# The record's message for such a file.
KILLED_MESSAGE = "every worker that ran the export died; the scheduler gave the file up (allowed-failures)"

# For tests only: a directory whose files list inputs (one per line) at which
# the worker running them kills itself: "kill-always" every time the export
# starts, "kill-once" the first time it starts in the run, "kill-once-after"
# the first time its files are committed, before its record goes back. Lets
# a test lose a worker mid-run at a chosen file instead of racing the scheduler.
KILL_HOOK = "ZTEXPORT_BATCH_TEST_KILL_DIR"


def _kill_hook(input_name: str, after: bool) -> None:
    folder = os.environ.get(KILL_HOOK)
    if not folder:
        return

    def listed(name: str) -> bool:
        try:
            with open(os.path.join(folder, name), encoding="utf-8") as f:
                return input_name in f.read().split()
        except OSError:
            return False

    if not after and listed("kill-always"):
        os.kill(os.getpid(), signal.SIGKILL)
    once = "kill-once-after" if after else "kill-once"
    if listed(once):
        marker = os.path.join(folder, "killed-%s-%s" % (once, input_name.replace("/", "%")))
        try:
            os.close(os.open(marker, os.O_CREAT | os.O_EXCL | os.O_WRONLY))
        except FileExistsError:
            return
        os.kill(os.getpid(), signal.SIGKILL)


def export_task(request: Dict[str, Any], input_name: str, version: str, index: int) -> Dict[str, Any]:
    """Runs on a worker: exports one file and returns its record."""
    _kill_hook(input_name, after=False)
    # One work directory per worker process (it runs one task at a time),
    # named after the machine too, as workers of several share OUT_DIR; a
    # later batch removes those of processes that are gone.
    root = os.path.join(request["output_dir"], ".ztexport-work.%d.%s" % (os.getpid(), socket.gethostname()))
    record = _batch.export_one(request, input_name, version, os.path.join(root, str(index)))
    _kill_hook(input_name, after=True)
    try:
        os.rmdir(root)
    except OSError:
        pass
    return record


def _failed_record(request: Dict[str, Any], input_name: str, message: str) -> Dict[str, Any]:
    return {"input": input_name, "output": _batch.output_for(request["source_dir"], input_name), "outputs": [],
            "status": "failed", "messages": [message], "seconds": 0.0, "bytes": 0}


def _quiet_logs() -> None:
    # Dask reports every worker's start, stop and death at INFO or WARNING;
    # what matters of them ends up in the manifest.
    for name in ("distributed", "distributed.nanny", "distributed.scheduler", "distributed.worker",
                 "distributed.core", "distributed.http.proxy", "bokeh", "tornado"):
        logging.getLogger(name).setLevel(logging.ERROR)


def run(request: Dict[str, Any], scheduler: Optional[str] = None, workers: int = 0,
        progress: bool = False, out=sys.stderr) -> int:
    """Runs the batch on a cluster and writes the manifest; returns the exit status."""
    import dask
    from distributed import Client, LocalCluster, as_completed
    from distributed.scheduler import KilledWorker

    started = time.monotonic()
    request = dict(request)
    request["source_dir"] = os.path.abspath(request["source_dir"])
    request["output_dir"] = os.path.abspath(request["output_dir"])
    if not request.get("exporter"):
        request["exporter"] = _batch.default_exporter()
    if not request["exporter"]:
        raise BatchError("zt2export was not found beside the package: name it with --exporter")
    request["exporter"] = os.path.abspath(request["exporter"])
    if os.path.exists(request["output_dir"]) and not os.path.isdir(request["output_dir"]):
        raise BatchError(request["output_dir"] + ": not a directory")
    inputs = _batch.find_inputs(request)
    version = _batch.exporter_version(request)
    _batch.prepare_output(request)
    records, pending = _batch.settle_inputs(request, inputs, version)

    _quiet_logs()
    cluster = None
    interrupted = False
    with dask.config.set({"distributed.scheduler.allowed-failures": ALLOWED_FAILURES,
                          # A worker is given the one task it runs, no more: a worker
                          # that dies then takes no innocent file's try with it.
                          "distributed.scheduler.worker-saturation": 1.0}):
        client = None
        futures: Dict[Any, int] = {}
        collected = set()
        try:
            if scheduler:
                client = Client(scheduler)
            else:
                cluster = LocalCluster(n_workers=workers or os.cpu_count() or 1, threads_per_worker=1,
                                       processes=True, silence_logs=logging.ERROR, dashboard_address=":0")
                client = Client(cluster)
            print("ztexport.batch: dashboard at %s" % client.dashboard_link, file=out, flush=True)
            for index in pending:
                future = client.submit(export_task, request, inputs[index], version, index, pure=False,
                                       key="export-%d-%s" % (index, inputs[index]))
                futures[future] = index
            if progress and futures:
                from distributed import progress as show_progress
                show_progress(list(futures))
            for future in as_completed(list(futures)):
                index = futures[future]
                try:
                    records[index] = future.result()
                except KilledWorker:
                    records[index] = _failed_record(request, inputs[index], KILLED_MESSAGE)
                except Exception as e:  # the task itself failed on the worker
                    records[index] = _failed_record(request, inputs[index], "the task failed: %s" % e)
                collected.add(index)
                if records[index]["status"] not in ("exported", "up to date"):
                    print("ztexport.batch: %s: %s" % (inputs[index], records[index]["status"]), file=out)
        except KeyboardInterrupt:
            interrupted = True
            if client is not None:
                client.cancel(list(futures))
            for index in pending:
                if index not in collected:
                    records[index]["status"] = "interrupted"
        finally:
            if client is not None:
                client.close()
            if cluster is not None:
                cluster.close()

    result = {"files": records, "interrupted": interrupted, "signal": int(signal.SIGINT) if interrupted else 0,
              "seconds": time.monotonic() - started}
    _batch.write_manifest(request, version, result)
    exported = sum(record["status"] == "exported" for record in records)
    up_to_date = sum(record["status"] == "up to date" for record in records)
    print("ztexport.batch: %d exported, %d up to date, %d not exported%s; see %s" % (
        exported, up_to_date, len(records) - exported - up_to_date, " (interrupted)" if interrupted else "",
        os.path.join(request["output_dir"], "ztexport-manifest.json")), file=out)
    return _batch.exit_status(result)


def main(argv: Optional[List[str]] = None) -> int:
    parser = argparse.ArgumentParser(
        prog="python3 -m ztexport.batch",
        description="zt2export --batch on a Dask cluster: every scene and model under SRC_DIR exported into "
                    "the same place under OUT_DIR, with the same stamps and manifest.")
    parser.add_argument("source", metavar="SRC_DIR")
    parser.add_argument("output", metavar="OUT_DIR")
    where = parser.add_mutually_exclusive_group()
    where.add_argument("--scheduler", metavar="ADDRESS", help="a running Dask scheduler, e.g. tcp://host:8786")
    where.add_argument("--workers", metavar="N", type=int, default=0,
                       help="workers of the local cluster (one process and thread each); default: the processors")
    parser.add_argument("--include", metavar="GLOB", action="append", default=[])
    parser.add_argument("--exclude", metavar="GLOB", action="append", default=[])
    parser.add_argument("--force", action="store_true", help="export every file, up to date or not")
    parser.add_argument("--timeout", metavar="S", type=float, default=600.0,
                        help="seconds one file may take before its export is stopped (600)")
    parser.add_argument("--config-dir", metavar="DIR", default="")
    parser.add_argument("--set", metavar="FIELD=VALUE", action="append", default=[], dest="sets")
    parser.add_argument("--module", metavar="PATH", default="")
    parser.add_argument("--exporter", metavar="PATH", default="",
                        help="the zt2export program; default: the one installed or built with the package")
    args = parser.parse_args(argv)
    if args.workers < 0:
        parser.error("--workers needs a number of workers of 1 or more")
    if not args.timeout > 0:
        parser.error("--timeout needs a number of seconds above 0")
    for assignment in args.sets:
        if "=" not in assignment or assignment.startswith("="):
            parser.error("--set %s: expected FIELD=VALUE" % assignment)
    try:
        import distributed  # noqa: F401
    except ImportError:
        print("ztexport.batch: Dask distributed is not installed (Debian: python3-distributed)", file=sys.stderr)
        return USAGE_ERROR
    request = {"source_dir": args.source, "output_dir": args.output, "include": args.include,
               "exclude": args.exclude, "force": args.force, "timeout": args.timeout,
               "config_dir": args.config_dir, "sets": args.sets, "module": args.module, "exporter": args.exporter}
    try:
        return run(request, scheduler=args.scheduler, workers=args.workers, progress=sys.stdout.isatty())
    except BatchError as e:
        print("ztexport.batch: %s" % e, file=sys.stderr)
        return USAGE_ERROR


if __name__ == "__main__":
    # Run as the package's module, so that workers unpickle ztexport.batch.export_task, not __main__'s.
    from ztexport.batch import main as package_main
    sys.exit(package_main())
