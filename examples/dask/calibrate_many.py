"""Calibrates several simulated observations at once on a local Dask cluster of two workers.

Run from a build of the project (the package is in build/python):

    PYTHONPATH=build/python /usr/bin/python3 examples/dask/calibrate_many.py [WORKDIR]

Each file becomes one task; the summaries come back in the order of the files.
"""

import os
import sys
import tempfile

from dask.distributed import Client, LocalCluster

import merovane
from merovane.dask import calibrate_many, output_path


def main() -> int:
    work = sys.argv[1] if len(sys.argv) > 1 else tempfile.mkdtemp(prefix="merovane-dask-")
    os.makedirs(work, exist_ok=True)
    inputs = []
    for i in range(4):
        sim = merovane.simulate(os.path.join(work, "obs%d" % i), stations=["EF", "WB", "ON", "MC"],
                                n_if=2, n_chan=16, duration=600, seed=100 + i)
        inputs.append((sim["uvx"], sim["antab"]))
    with LocalCluster(n_workers=2, threads_per_worker=1, dashboard_address=None) as cluster, \
            Client(cluster) as client:
        # The passes are shared; each observation brings its own ANTAB file as an option of its own.
        out_dir = os.path.join(work, "calibrated")
        os.makedirs(out_dir, exist_ok=True)
        jobs = [(uvx, output_path(uvx, out_dir), {"antab": antab}) for uvx, antab in inputs]
        summaries = calibrate_many(jobs, client=client, dig_power=True, dig_bits=True, avg_step=60)
    for (uvx, _), s in zip(inputs, summaries):
        print("%s: %d records read, %d written, %.1f MB/s" % (os.path.basename(uvx), s["records_in"],
                                                              s["records_written"], s["mb_per_second"]))
    print("outputs in", os.path.join(work, "calibrated"))
    return 0


if __name__ == "__main__":
    sys.exit(main())
