"""Merovane: calibration of VLBI visibility data in UVX files, from Python.

Read a file into numpy::

    import merovane
    with merovane.open("obs.uvx") as f:
        print(f.header["n_if"], f.n_records)
        an = f.tables["AN"]                  # numpy structured array, one row per station
        for chunk in f.records(chunk=10000):  # bounded memory for any file size
            amp = abs(chunk.vis)              # complex64, records x IF x channels x products

Calibrate with the passes of ``uvx-cal``, in the same order and with the same checks::

    summary = merovane.calibrate("obs.uvx", "cal.uvx", antab="obs.antab",
                                 dig_power=True, dig_bits=True, bp_amplitude=True, avg_step=60)

Check an ANTAB file (``merovane.antab.check``), simulate an observation with known truth
(``merovane.simulate``), and calibrate many files on a Dask cluster
(``merovane.dask.calibrate_many``).

Every failure the library reports is raised as :class:`MerovaneError` with the library's text.
"""

from __future__ import annotations

import os
from dataclasses import dataclass
from typing import Any, Callable, Dict, Iterator, Optional, Union

import numpy as np

from ._merovane import MerovaneError
from . import _merovane

__all__ = [
    "MerovaneError",
    "UVXFile",
    "Records",
    "open",
    "calibrate",
    "simulate",
    "load_truth",
    "antab",
]

PathLike = Union[str, "os.PathLike[str]"]

# Column types of UVX tables as numpy types (the file is little-endian).
_COLUMN_TYPES = {"A": "S", "L": "u1", "I": "<i2", "J": "<i4", "E": "<f4", "D": "<f8"}


@dataclass
class Records:
    """A run of records of a UVX file, as numpy arrays of one length ``n``.

    Attributes:
        start: index of the first record in the file (0-based).
        time: seconds from 0h of the reference day, float64 (n).
        ant1, ant2: telescope IDs of the baseline, int8 (n); equal for an autocorrelation.
        uvw: u, v, w in seconds of light travel, float32 (n x 3).
        source: source ID of the SU table, int16 (n).
        freq_id: frequency setup (FRQSEL of the FQ table), int8 (n).
        flags: the record's flag byte, uint8 (n).
        vis: visibilities, complex64 (n x IF x channels x products).
        weight: weights, float32 (n x IF x channels x products); not above 0 means flagged.
    """

    start: int
    time: np.ndarray
    ant1: np.ndarray
    ant2: np.ndarray
    uvw: np.ndarray
    source: np.ndarray
    freq_id: np.ndarray
    flags: np.ndarray
    vis: np.ndarray
    weight: np.ndarray

    def __len__(self) -> int:
        return int(self.time.shape[0])

    @property
    def baseline(self) -> np.ndarray:
        """Baseline codes 256 x ant1 + ant2, int32 (n)."""
        return self.ant1.astype(np.int32) * 256 + self.ant2.astype(np.int32)

    @property
    def flagged(self) -> np.ndarray:
        """True where an element is flagged (weight not above 0), bool like ``vis``."""
        return ~(self.weight > 0)


def _table_array(columns, nrows: int, raw: bytes) -> np.ndarray:
    fields = []
    for name, kind, repeat, _unit in columns:
        if kind == "A":
            fields.append((name, "S%d" % repeat))
        elif repeat == 1:
            fields.append((name, _COLUMN_TYPES[kind]))
        else:
            fields.append((name, _COLUMN_TYPES[kind], (repeat,)))
    dtype = np.dtype(fields)
    if dtype.itemsize * nrows != len(raw):
        raise MerovaneError("table rows of %d bytes do not match the columns (%d bytes)"
                            % (len(raw) // max(nrows, 1), dtype.itemsize))
    return np.frombuffer(raw, dtype=dtype, count=nrows).copy()


class UVXFile:
    """A UVX file opened for reading (see :func:`open`).

    Attributes:
        path: the file's path.
        header: header fields by name (``n_if``, ``n_chan``, ``n_stokes``, ``stokes`` as FITS codes,
            ``ref_jd``, ``ref_freq`` in Hz, ``n_records``, ...).
        tables: tables by name as numpy structured arrays, one field per column (text columns as
            bytes). A name that occurs twice keeps the first table.
        keywords: the tables' keywords, by table name.
    """

    def __init__(self, path: PathLike):
        self.path = os.fspath(path)
        self._file = _merovane._UVXFile(self.path)
        self.header: Dict[str, Any] = self._file.header()
        self.tables: Dict[str, np.ndarray] = {}
        self.keywords: Dict[str, Dict[str, Any]] = {}
        for name, columns, keywords, nrows, raw in self._file.tables():
            if name in self.tables:
                continue
            self.tables[name] = _table_array(columns, nrows, raw)
            self.keywords[name] = keywords

    @property
    def n_records(self) -> int:
        """Records in the file."""
        return int(self.header["n_records"])

    def read(self, start: int = 0, count: Optional[int] = None) -> Records:
        """Records ``start`` .. ``start + count - 1`` (all from ``start`` when count is None).

        Raises MerovaneError when the file cannot be read there.
        """
        data = self._file.read(int(start), -1 if count is None else int(count))
        return Records(start=int(start), **data)

    def records(self, chunk: int = 65536) -> Iterator[Records]:
        """The records in file order, ``chunk`` at a time, so that memory stays bounded."""
        if chunk < 1:
            raise ValueError("chunk must be at least 1")
        for start in range(0, self.n_records, chunk):
            yield self.read(start, chunk)

    def close(self) -> None:
        """Releases the file; reading afterwards raises MerovaneError."""
        self._file.close()

    def __enter__(self) -> "UVXFile":
        return self

    def __exit__(self, *exc) -> None:
        self.close()

    def __repr__(self) -> str:
        h = self.header
        return "<UVXFile %s: %d records, %d IF x %d channels x %d products, tables %s>" % (
            self.path, self.n_records, max(h["n_if"], 1), h["n_chan"], h["n_stokes"],
            ", ".join(self.tables))


def open(path: PathLike) -> UVXFile:  # noqa: A001 - the natural name, as io.open
    """Opens a UVX file for reading: header, tables and records as numpy arrays.

    Raises MerovaneError with the library's text (which names the file) when it cannot be opened.
    """
    return UVXFile(path)


def calibrate(inp: PathLike, out: PathLike, *, progress: Optional[Callable[[str, int, int, int], None]] = None,
              report: Optional[PathLike] = None, **passes: Any) -> Dict[str, Any]:
    """Calibrates ``inp`` into ``out`` with the passes of ``uvx-cal``, in its one right order.

    The input is never changed; the output is written under a temporary name and renamed at the end.
    Passes and options (all keywords; the order they are given in does not matter):
        dig_power, dig_bits, dig_fix_bits (bool), dig_step (s): digitisation corrections.
        antab (path), antab_fix (bool), far_tsys ('hold' or 'drop'), far_tsys_minutes: amplitude
            calibration from an ANTAB file, checked first.
        bp_amplitude (bool), bp_ranges ([(first, last[, station])]), bp_phase (None, 'lms', 'lms1',
            'pha_apr'), bp_phase_order, bp_ref_ant (station name), bp_source, bp_step (s): bandpass.
        avg_step (s), use_scan_list, drop_flagged: averaging.
        source (name), start_time (s), before_start ('drop' or 'copy'): selection.
    ``progress(stage, walk, walks, percent)`` is called as the run goes; an exception raised in it
    stops the run and is raised again. ``report`` names a directory for the JSON summary, the
    bandpass store and the tables behind the plots. The interpreter is released during the run, so
    calibrations on several threads run side by side.

    Returns the summary as a dict (records read, written, dropped by reason, intervals, stations
    calibrated, what could not be done, messages, seconds, MB/s). Raises MerovaneError with the
    library's text on failure ("User abort" after Ctrl-C).
    """
    return _merovane.calibrate(os.fspath(inp), os.fspath(out), progress,
                               "" if report is None else os.fspath(report), **passes)


def simulate(path: PathLike, **options: Any) -> Dict[str, Any]:
    """Simulates an observation as ``uvx-sim`` does: PATH.uvx, PATH.antab and PATH.truth.

    Options as uvx-sim's: stations, sources, fluxes, bits, n_if, n_chan, products, int_time,
    duration, scan_length, scan_gap, year, day_of_year, start_time, ref_freq, if_bandwidth, seed,
    bandpass, levels, quantisation, noise_scale, flags, flag_fraction, min_elevation, tsys_step,
    bandpass_phase_max. Returns {"uvx", "antab", "truth_file", "truth"}, the truth as a dict
    (stations with their bandpass as IF x hand x channel complex arrays, sources with their fluxes).
    """
    return _merovane.simulate(os.fspath(path), **options)


def load_truth(path: PathLike) -> Dict[str, Any]:
    """Reads a simulator's truth file into the dict that :func:`simulate` gives."""
    return _merovane.load_truth(os.fspath(path))


from . import antab  # noqa: E402  (needs the names above)
