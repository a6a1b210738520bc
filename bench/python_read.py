"""Reading every visibility of a large UVX file into numpy, against a plain copy of the same file.

    PYTHONPATH=build/python /usr/bin/python3 bench/python_read.py [SIZE_MB] [CHUNK]

Writes a simulated file of about SIZE_MB (default 256) megabytes into a temporary folder, then times,
three times each in turn, a plain copy of the file (read and written in 4 MiB blocks) and a read of
all its records in chunks into numpy (visibilities complex64 and weights), and prints the median
rates and their ratio. The target is a ratio of at least 0.5.
"""

import os
import shutil
import statistics
import sys
import tempfile
import time

import merovane


def main() -> int:
    size_mb = float(sys.argv[1]) if len(sys.argv) > 1 else 256.0
    chunk = int(sys.argv[2]) if len(sys.argv) > 2 else 20000
    work = tempfile.mkdtemp(prefix="merovane-bench-")
    try:
        # The default observation is about 47 MB for 1800 s: stretch the duration to the size asked.
        duration = 1800.0 * size_mb / 44.0
        sim = merovane.simulate(os.path.join(work, "big"), duration=duration, noise_scale=1.0, seed=5)
        path = sim["uvx"]
        nbytes = os.path.getsize(path)
        copies, reads = [], []
        for _ in range(3):
            t = time.perf_counter()
            with open(path, "rb") as src, open(os.path.join(work, "copy.uvx"), "wb") as dst:
                shutil.copyfileobj(src, dst, 4 << 20)
            copies.append(time.perf_counter() - t)
            os.remove(os.path.join(work, "copy.uvx"))
            t = time.perf_counter()
            n = 0
            with merovane.open(path) as f:
                for records in f.records(chunk=chunk):
                    n += records.vis.shape[0]
            reads.append(time.perf_counter() - t)
        copy_rate = nbytes / 1e6 / statistics.median(copies)
        read_rate = nbytes / 1e6 / statistics.median(reads)
        print("file %.1f MB, %d records" % (nbytes / 1e6, n))
        print("plain copy       %8.1f MB/s" % copy_rate)
        print("read into numpy  %8.1f MB/s" % read_rate)
        print("ratio            %8.2f (target >= 0.5)" % (read_rate / copy_rate))
    finally:
        shutil.rmtree(work, ignore_errors=True)
    return 0


if __name__ == "__main__":
    sys.exit(main())
