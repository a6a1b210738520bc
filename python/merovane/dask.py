"""Many calibrations at once on a Dask cluster: one task per file, results gathered.

    from dask.distributed import Client, LocalCluster
    from merovane.dask import calibrate_many
    with LocalCluster(n_workers=2, threads_per_worker=1) as cluster, Client(cluster) as client:
        summaries = calibrate_many(["a.uvx", "b.uvx"], client=client, out_dir="cal", dig_power=True)
"""

from __future__ import annotations

import os
from typing import Any, Dict, List, Optional, Sequence, Tuple, Union

__all__ = ["calibrate_many", "output_path"]

PathLike = Union[str, "os.PathLike[str]"]


def output_path(inp: PathLike, out_dir: Optional[PathLike] = None, suffix: str = ".cal.uvx") -> str:
    """The output name calibrate_many gives ``inp``: its stem plus ``suffix``, in ``out_dir`` (or
    beside the input)."""
    inp = os.fspath(inp)
    stem = os.path.splitext(os.path.basename(inp))[0]
    folder = os.fspath(out_dir) if out_dir is not None else os.path.dirname(inp)
    return os.path.join(folder, stem + suffix)


def _calibrate_one(inp: str, out: str, passes: Dict[str, Any]) -> Dict[str, Any]:
    # Imported on the worker, which may be another process.
    import merovane

    return merovane.calibrate(inp, out, **passes)


def calibrate_many(files: Sequence[Union[PathLike, Tuple[Any, ...]]], client: Any = None,
                   out_dir: Optional[PathLike] = None, **passes: Any) -> List[Dict[str, Any]]:
    """Calibrates each file with the same passes (keywords as :func:`merovane.calibrate`), one Dask
    task per file, and returns the summaries in the order of ``files``.

    ``files`` holds input paths (outputs named by :func:`output_path` in ``out_dir``), (input, output)
    pairs, or (input, output, {option: value}) triples whose options add to or replace ``passes`` for
    that file (for example its own ``antab``). With ``client`` (a dask.distributed Client) the tasks run on its cluster;
    without one they run on Dask's local threaded scheduler. The first failing file's MerovaneError
    is raised once all tasks have ended.
    """
    import dask

    jobs = []
    for item in files:
        own: Dict[str, Any] = {}
        if isinstance(item, (tuple, list)):
            if len(item) == 3:
                inp, out, own = item
            elif len(item) == 2:
                inp, out = item
            else:
                raise ValueError("calibrate_many takes paths, (input, output) or (input, output, options)")
        else:
            inp, out = item, output_path(item, out_dir)
        jobs.append((os.fspath(inp), os.fspath(out), {**passes, **own}))
    if out_dir is not None:
        os.makedirs(os.fspath(out_dir), exist_ok=True)
    tasks = [dask.delayed(_calibrate_one, pure=False)(inp, out, options) for inp, out, options in jobs]
    if client is not None:
        futures = client.compute(tasks)
        return client.gather(futures)
    return list(dask.compute(*tasks, scheduler="threads"))
