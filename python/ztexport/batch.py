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
# the first time its files are committed, before its record goes back; or,
# "interrupt-after", sends SIGINT to its process group (a Ctrl-C on the
# terminal) once its files are committed. Lets a test lose a worker, or
# interrupt the run, at a chosen file instead of racing the scheduler.
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
    if after and listed("interrupt-after"):
        os.killpg(os.getpgrp(), signal.SIGINT)
    once = "kill-once-after" if after else "kill-once"
    if listed(once):
        # One worker at a time runs a file: the marker needs no stronger claim.
        marker = os.path.join(folder, "killed-%s-%s" % (once, "%".join(input_name.split("/"))))
        if os.path.exists(marker):
            return
        _batch.write_small_file(marker, "")
        os.kill(os.getpid(), signal.SIGKILL)


def export_task(request: Dict[str, Any], input_name: str, output: str, version: str, index: int) -> Dict[str, Any]:
    """Runs on a worker: exports one file and returns its record."""
    _kill_hook(input_name, after=False)
    # A work directory of this export's own, which proves itself ours: a
    # later batch removes it when the worker died, and nothing else.
    work = _batch.WorkDirectory(request["output_dir"])
    try:
        record = _batch.export_one(request, input_name, output, version, os.path.join(work.path, str(index)))
        _kill_hook(input_name, after=True)
    finally:
        work.remove()
    return record


def _failed_record(output: str, input_name: str, message: str) -> Dict[str, Any]:
    return {"input": input_name, "output": output, "outputs": [], "status": "failed", "messages": [message],
            "seconds": 0.0, "bytes": 0, "shared": []}


def _quiet_logs() -> None:
    # Dask reports every worker's start, stop and death at INFO or WARNING;
    # what matters of them ends up in the manifest.
    for name in ("distributed", "distributed.nanny", "distributed.scheduler", "distributed.worker",
                 "distributed.core", "distributed.http.proxy", "bokeh", "tornado"):
        logging.getLogger(name).setLevel(logging.ERROR)


def _interrupted_record(request: Dict[str, Any], record: Dict[str, Any], version: str) -> Dict[str, Any]:
    """The record of a file whose task did not come back: exported when a
    worker stamped it in this run (its stamp was stale or missing before)."""
    reason, stamped = _batch.stale_reason(request, record["input"], record["output"], version)
    if reason:
        return dict(record, status="interrupted")
    return dict(stamped, status="exported", messages=record["messages"] or [], seconds=0.0)


def run(request: Dict[str, Any], scheduler: Optional[str] = None, workers: int = 0,
        progress: bool = False, out=sys.stderr) -> int:
    """Runs the batch on a cluster and writes the manifest; returns the exit status."""
    import dask
    from distributed import Client, LocalCluster, as_completed
    from distributed.scheduler import KilledWorker

    started = time.monotonic()
    request = dict(request)
    # A NUL would end the name where the system reads it: another file.
    from . import _path
    for key in ("source_dir", "output_dir", "config_dir", "module", "exporter"):
        if request.get(key):
            request[key] = os.fsdecode(_path(request[key], key))
    for key in ("texture_paths",):
        if request.get(key):
            request[key] = [os.fsdecode(_path(p, key)) for p in request[key]]
    request["source_dir"] = os.path.abspath(request["source_dir"])
    request["output_dir"] = os.path.abspath(request["output_dir"])
    if not request.get("exporter"):
        request["exporter"] = _batch.default_exporter()
    if not request["exporter"]:
        raise BatchError("zt2export was not found beside the package: name it with --exporter")
    request["exporter"] = os.path.abspath(request["exporter"])
    if os.path.exists(request["output_dir"]) and not os.path.isdir(request["output_dir"]):
        raise BatchError(request["output_dir"] + ": not a directory")
    inputs, skipped = _batch.scan_inputs(request)
    version = _batch.exporter_version(request)
    _batch.prepare_output(request)
    # One batch at a time per output directory, zt2export --batch's or ours.
    lock = _batch.lock_output(request)
    try:
        return _run_locked(request, inputs, skipped, version, scheduler, workers, progress, out, started,
                           dask, Client, LocalCluster, as_completed, KilledWorker)
    finally:
        lock.release()


def _run_locked(request, inputs, skipped, version, scheduler, workers, progress, out, started,
                dask, Client, LocalCluster, as_completed, KilledWorker) -> int:
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
            # A Ctrl-C on the terminal reaches every process of its group. The
            # cluster's threads and worker processes start with SIGINT blocked
            # (they inherit it), so that they end when the batch closes them
            # rather than each with a traceback; one that comes while the
            # cluster starts is taken here once it is up. The helper process
            # multiprocessing starts first would unblock it in the starting
            # thread: it is started before.
            from multiprocessing import resource_tracker
            resource_tracker.ensure_running()
            previous_mask = signal.pthread_sigmask(signal.SIG_BLOCK, {signal.SIGINT})
            try:
                if scheduler:
                    client = Client(scheduler)
                else:
                    cluster = LocalCluster(n_workers=workers or os.cpu_count() or 1, threads_per_worker=1,
                                           processes=True, silence_logs=logging.ERROR, dashboard_address=":0")
                    client = Client(cluster)
            finally:
                signal.pthread_sigmask(signal.SIG_SETMASK, previous_mask)
            print("ztexport.batch: dashboard at %s" % client.dashboard_link, file=out, flush=True)
            for index in pending:
                future = client.submit(export_task, request, inputs[index], records[index]["output"], version, index,
                                       pure=False, key="export-%d-%s" % (index, inputs[index]))
                futures[future] = index
            if progress and futures:
                from distributed import progress as show_progress
                show_progress(list(futures))
            for future in as_completed(list(futures)):
                index = futures[future]
                try:
                    records[index] = future.result()
                except KilledWorker:
                    records[index] = _failed_record(records[index]["output"], inputs[index], KILLED_MESSAGE)
                except Exception as e:  # the task itself failed on the worker
                    records[index] = _failed_record(records[index]["output"], inputs[index], "the task failed: %s" % e)
                collected.add(index)
                if records[index]["status"] not in ("exported", "up to date"):
                    print("ztexport.batch: %s: %s" % (inputs[index], records[index]["status"]), file=out)
        except KeyboardInterrupt:
            interrupted = True
        finally:
            # A second Ctrl-C does not cut the cleaning up short.
            old_handler = signal.signal(signal.SIGINT, signal.SIG_IGN)
            try:
                if interrupted and client is not None:
                    client.cancel([f for f in futures if futures[f] not in collected])
                if client is not None:
                    client.close()
                if cluster is not None:
                    # Its workers end with it: a task that was running commits or leaves nothing.
                    cluster.close()
            finally:
                signal.signal(signal.SIGINT, old_handler)
        if interrupted:
            for index in pending:
                if index not in collected:
                    records[index] = _interrupted_record(request, records[index], version)

    result = {"files": records, "skipped": skipped, "interrupted": interrupted,
              "signal": int(signal.SIGINT) if interrupted else 0, "seconds": time.monotonic() - started}
    # Texture copies that two files need with different images fail both.
    records, failed = _batch.fail_shared_output_clashes(request, result)
    result["files"] = records
    for index in failed:
        print("ztexport.batch: %s: failed" % inputs[index], file=out)
        for message in records[index]["messages"]:
            if message.startswith("ERROR: "):
                print("ztexport.batch: %s" % message, file=out)
    _batch.write_manifest(request, version, result)
    exported = sum(record["status"] == "exported" for record in records)
    up_to_date = sum(record["status"] == "up to date" for record in records)
    print("ztexport.batch: %d exported, %d up to date, %d not exported%s%s; see %s" % (
        exported, up_to_date, len(records) - exported - up_to_date,
        "".join(", %s skipped (%s)" % (s["folder"], s["reason"]) for s in skipped),
        " (interrupted)" if interrupted else "",
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
    parser.add_argument("--texture-path", metavar="DIR", action="append", default=[], dest="texture_paths")
    parser.add_argument("--missing-textures", choices=("error", "drop"), default="")
    parser.add_argument("--copy-textures-outside", action="store_true")
    parser.add_argument("--memory-limit", metavar="MIB", default="")
    parser.add_argument("--texture-names", choices=("keep", "unique"), default="")
    parser.add_argument("--module", metavar="PATH", default="")
    parser.add_argument("--wait", action="store_true",
                        help="when another batch is exporting into OUT_DIR, wait for it to end (else: exit 2)")
    parser.add_argument("--exporter", metavar="PATH", default="",
                        help="the zt2export program; default: the one installed or built with the package")
    args = parser.parse_args(argv)
    if args.workers < 0:
        parser.error("--workers needs a number of workers of 1 or more")
    if not args.timeout > 0:
        parser.error("--timeout needs a number of seconds above 0")
    if args.memory_limit and not (args.memory_limit.isdigit() and len(args.memory_limit) <= 8 and
                                  1 <= int(args.memory_limit) <= 1 << 24):
        parser.error("--memory-limit %s: expected a whole number of MiB from 1 to 16777216" % args.memory_limit)
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
               "config_dir": args.config_dir, "sets": args.sets, "module": args.module, "exporter": args.exporter,
               "texture_paths": args.texture_paths, "missing_textures": args.missing_textures,
               "copy_textures_outside": args.copy_textures_outside, "memory_limit": args.memory_limit,
               "texture_names": args.texture_names, "wait": args.wait}
    try:
        return run(request, scheduler=args.scheduler, workers=args.workers, progress=sys.stdout.isatty())
    except BatchError as e:
        print("ztexport.batch: %s" % e, file=sys.stderr)
        return USAGE_ERROR
    except KeyboardInterrupt:
        # Before the run had anything to report: nothing was exported.
        print("ztexport.batch: interrupted", file=sys.stderr)
        return 128 + int(signal.SIGINT)


if __name__ == "__main__":
    # Run as the package's module, so that workers unpickle ztexport.batch.export_task, not __main__'s.
    from ztexport.batch import main as package_main
    sys.exit(package_main())
