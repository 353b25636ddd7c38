"""Spreads the watching of children over the workers of Dask, or over threads.

In go jobs; out come their outcomes, as they end. A task only watches: the work is in the children,
and a worker that is killed takes the child that it watches with it and nothing else. As many jobs
as keep all workers busy are handed out at a time, so that neither this process nor the scheduler
carries more of a long batch than of a short one.

Where `distributed` is not installed, threads of this process watch the same children.
"""

from __future__ import annotations

import contextlib
import importlib
import logging
import signal
import tempfile
import threading
import time
from collections.abc import Generator, Iterable, Iterator
from concurrent import futures
from itertools import islice
from multiprocessing import resource_tracker
from typing import Any

from kestrane_tools.batch.folder import Folder
from kestrane_tools.batch.job import LOST, STOPPED, Job, Orders, Outcome
from kestrane_tools.batch.watch import watch
from kestrane_tools.cli.stop import Status, Stop

__all__ = ["ENGINE", "has_engine", "outcomes"]

ENGINE = "python3-distributed"
# Jobs handed out for each worker: while one is done, the next ones are there already.
_AHEAD = 3
_FEWEST_OUT = 16
# Seconds between two counts of a scheduler's workers.
_COUNT_EVERY = 10.0


def has_engine() -> bool:
    """Whether Dask distributed is installed."""
    try:
        _distributed()
    except ImportError:
        return False
    return True


def _distributed() -> Any:
    # Without annotations, and not installed everywhere.
    return importlib.import_module("distributed")


def outcomes(
    jobs: Iterable[Job],
    orders: Orders,
    folder: Folder,
    *,
    workers: int,
    address: str | None = None,
) -> Generator[Outcome, None, None]:
    """Have all jobs done. An iterator that is closed before its end has all children stopped.

    Parameters
    ----------
    jobs : iterable of Job
        The devices; drawn as workers become free.
    orders : Orders
        What holds for all.
    folder : Folder
        Of the batch.
    workers : int
        Children at a time on this machine.
    address : str, optional
        A scheduler whose workers are used instead.

    Yields
    ------
    Outcome
        One for each job, in the order in which they end.

    Raises
    ------
    Stop
        No scheduler answers.
    """
    engine = _on_dask if has_engine() else _on_threads
    return engine(iter(jobs), orders, folder, workers, address)


# --- threads --------------------------------------------------------------------------------------


def _on_threads(
    jobs: Iterator[Job], orders: Orders, folder: Folder, workers: int, _: str | None
) -> Generator[Outcome, None, None]:
    with futures.ThreadPoolExecutor(workers, "watcher") as pool:
        try:
            out = {pool.submit(watch, job, orders) for job in islice(jobs, _AHEAD * workers)}
            while out:
                ended, out = futures.wait(out, return_when=futures.FIRST_COMPLETED)
                out |= {pool.submit(watch, job, orders) for job in islice(jobs, len(ended))}
                yield from (future.result() for future in ended)
        except BaseException:
            folder.stop()  # before the pool waits for its watchers
            raise


# --- Dask -----------------------------------------------------------------------------------------


def _on_dask(
    jobs: Iterator[Job], orders: Orders, folder: Folder, workers: int, address: str | None
) -> Generator[Outcome, None, None]:
    with contextlib.ExitStack() as stack:
        if address is None:
            client = stack.enter_context(_local_client(workers))
        else:
            client = stack.enter_context(_client_of(address))
        stack.push(
            lambda kind, *_: folder.stop() if kind else None
        )  # before workers are waited for
        yield from _spread(client, jobs, orders)


def _spread(client: Any, jobs: Iterator[Job], orders: Orders) -> Iterator[Outcome]:
    names: dict[str, str] = {}
    numbers = iter(range(1 << 62))

    def submit(job: Job) -> Any:
        key = f"kestrane-{orders.token}-{next(numbers)}"
        names[key] = job.name
        return client.submit(watch, job, orders, key=key, pure=False, retries=0)

    width, asked = _width(client), time.monotonic()
    out = _distributed().as_completed(
        [submit(job) for job in islice(jobs, width)], loop=client.loop
    )
    for future in out:
        name = names.pop(future.key)
        try:
            outcome = future.result()
        except Exception as error:  # pylint: disable=broad-exception-caught # the workers are gone
            outcome = Outcome(name, LOST, f"{type(error).__name__}: {error}"[:300])
        future.release()
        if client.status != "running":
            yield from _given_up(outcome, names, jobs)
            return
        if time.monotonic() > asked + _COUNT_EVERY:  # workers come and go
            width, asked = _width(client), time.monotonic()
        for job in islice(jobs, max(1, width - len(names))):
            out.add(submit(job))
        yield outcome


def _given_up(last: Outcome, names: dict[str, str], jobs: Iterator[Job]) -> Iterator[Outcome]:
    yield last
    for name in names.values():
        yield Outcome(name, LOST, "the scheduler is gone")
    for job in jobs:
        yield Outcome(job.name, STOPPED, "the scheduler is gone")


def _width(client: Any) -> int:
    threads: int = sum(client.nthreads().values())
    return max(_FEWEST_OUT, _AHEAD * threads)


@contextlib.contextmanager
def _local_client(workers: int) -> Iterator[Any]:
    with tempfile.TemporaryDirectory(
        prefix="kestrane-batch-"
    ) as space, contextlib.ExitStack() as stack:
        with _unheard_interrupts():
            cluster = _distributed().LocalCluster(
                n_workers=workers,
                threads_per_worker=1,
                processes=True,
                # No dashboard; but its port is asked for all the same, and 8787 may be taken.
                dashboard_address="127.0.0.1:0",
                scheduler_kwargs={"dashboard": False},
                memory_limit=0,
                local_directory=space,
                silence_logs=logging.CRITICAL,
            )
            stack.callback(cluster.close)
            client = stack.enter_context(_distributed().Client(cluster, set_as_default=False))
        yield client


@contextlib.contextmanager
def _client_of(address: str) -> Iterator[Any]:
    try:
        client = _distributed().Client(address, set_as_default=False)
    except (OSError, ValueError) as error:
        reason = str(error).splitlines()[0] if str(error) else type(error).__name__
        raise Stop(Status.FILE, f"{address}: no scheduler answers: {reason}") from None
    with client:
        yield client


@contextlib.contextmanager
def _unheard_interrupts() -> Iterator[None]:
    # The workers inherit this. Ctrl-C reaches every process of a terminal; only this one may end by
    # it, and the others by this one's order.
    if threading.current_thread() is not threading.main_thread():
        yield
        return
    resource_tracker.ensure_running()  # it would let interrupts through again when it starts
    before = signal.pthread_sigmask(signal.SIG_BLOCK, {signal.SIGINT})
    try:
        yield
    finally:
        signal.pthread_sigmask(signal.SIG_SETMASK, before)
