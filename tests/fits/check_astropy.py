"""astropy.io.fits against the FITS bridge: our UVFITS export read by astropy, and the real UVFITS
files read by astropy and by uvx-import, compared record by record.

  check_astropy.py export|real --sim uvx-sim --import uvx-import --export uvx-export
                   --dump merovane_fits_dump --data DIR --tmp DIR
"""
import argparse
import glob
import os
import subprocess
import sys
import warnings

import numpy as np
from astropy.io import fits
from astropy.utils.exceptions import AstropyWarning

warnings.simplefilter("ignore", AstropyWarning)

# Times: astropy adds the Julian-date offset in double (about 40 microseconds at today's dates), so
# times agree to that; values and weights are the same float32 numbers; u v w to float rounding.
TIME_TOL_S = 2e-4
UVW_REL = 2e-7


def run(cmd):
    done = subprocess.run(cmd, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
    if done.returncode != 0:
        sys.exit("FAIL: %s exited %d: %s" % (" ".join(cmd), done.returncode, done.stderr.strip()))
    return done.stdout


def read_dump(dump, path):
    shape, stations, recs = None, {}, []
    for line in run([dump, path]).splitlines():
        f = line.split()
        if f[0] == "shape":
            shape = dict(nIF=int(f[1]), nChan=int(f[2]), nStokes=int(f[3]), refJD=float(f[4]),
                         stokes=[int(x) for x in f[5:]])
        elif f[0] == "station":
            stations[int(f[1])] = (f[2], float(f[3]), float(f[4]), float(f[5]))
        elif f[0] == "rec":
            recs.append([float(x) for x in f[1:]])
    return shape, stations, np.array(recs)


def astropy_records(path):
    """The groups as astropy gives them, in the element order of a UVX record (IF, channel, product)."""
    hdul = fits.open(path)
    d = hdul[0].data
    h = hdul[0].header
    names = [h["CTYPE%d" % j].split("-")[0].strip() for j in range(2, h["NAXIS"] + 1)]
    # numpy's axes run from the last FITS axis to the first; put them as IF, FREQ, STOKES, COMPLEX.
    arr = np.asarray(d.data)
    order = [0] + [1 + names[::-1].index(n) for n in ("IF", "FREQ", "STOKES", "COMPLEX") if n in names]
    rest = [i for i in range(arr.ndim) if i not in order]
    arr = np.transpose(arr, order + rest).reshape(len(d), -1, h["NAXIS2"])
    pars = [p.upper() for p in d.parnames]
    uu = d.par([i for i, p in enumerate(pars) if p.startswith("UU")][0])
    vv = d.par([i for i, p in enumerate(pars) if p.startswith("VV")][0])
    ww = d.par([i for i, p in enumerate(pars) if p.startswith("WW")][0])
    date = np.asarray(d.par("DATE"), dtype=np.float64)
    bl = np.asarray(d.par("BASELINE"), dtype=np.float64)
    stokes = [int(round(h["CRVAL%d" % (2 + names.index("STOKES"))] +
                        (s + 1 - h["CRPIX%d" % (2 + names.index("STOKES"))]) *
                        h["CDELT%d" % (2 + names.index("STOKES"))]))
              for s in range(h["NAXIS%d" % (2 + names.index("STOKES"))])]
    return hdul, arr, uu, vv, ww, date, bl, stokes


def compare(label, shape, recs, fitspath, flip_y_stations=False, stations=None):
    hdul, arr, uu, vv, ww, date, bl, stokes = astropy_records(fitspath)
    n = arr.shape[0]
    assert len(recs) == n, "%s: %d records, astropy %d" % (label, len(recs), n)
    assert shape["stokes"] == stokes, "%s: Stokes %s, astropy %s" % (label, shape["stokes"], stokes)
    nelem = max(1, shape["nIF"]) * shape["nChan"] * shape["nStokes"]
    assert arr.shape[1] == nelem, "%s: %d elements, astropy %d" % (label, nelem, arr.shape[1])
    t_astropy = (date - shape["refJD"]) * 86400.0
    dt = np.max(np.abs(recs[:, 0] - t_astropy))
    assert dt < TIME_TOL_S, "%s: times differ by up to %.3g s" % (label, dt)
    a1 = np.floor(bl / 256).astype(int)
    a2 = np.floor(bl).astype(int) % 256
    assert np.array_equal(recs[:, 1].astype(int), a1) and np.array_equal(recs[:, 2].astype(int), a2), \
        "%s: baselines differ" % label
    for col, ref in ((3, uu), (4, vv), (5, ww)):
        err = np.max(np.abs(recs[:, col] - ref) / (np.abs(ref) + 1e-12))
        bad = np.abs(recs[:, col] - ref) > UVW_REL * np.abs(ref) + 1e-15
        assert not bad.any(), "%s: u v w column %d differs (relative %.3g)" % (label, col, err)
    ours = recs[:, 8:].reshape(n, nelem, 3).astype(np.float32)
    theirs = arr.astype(np.float32)
    if theirs.shape[2] == 2:
        theirs = np.concatenate([theirs, np.ones(theirs.shape[:2] + (1,), np.float32)], axis=2)
    nan = np.isnan(theirs).any(axis=2)
    assert np.array_equal(ours[~nan], theirs[~nan]), "%s: visibilities or weights differ" % label
    assert (ours[nan][:, 2] <= 0).all(), "%s: a NaN element is not flagged" % label
    if stations is not None:
        an = hdul["AIPS AN"].data
        for row in an:
            name, x, y, z = stations[int(row["NOSTA"])]
            assert name == row["ANNAME"].strip(), "%s: station name %s vs %s" % (label, name, row["ANNAME"])
            want_y = -row["STABXYZ"][1] if flip_y_stations else row["STABXYZ"][1]
            assert abs(x - row["STABXYZ"][0]) < 1e-5 and abs(y - want_y) < 1e-5 and abs(z - row["STABXYZ"][2]) < 1e-5, \
                "%s: station %s position differs" % (label, name)
    print("%s: %d records x %d IF x %d channels x %d products (%s) agree with astropy; first time %.3f s, "
          "baseline %d-%d, first element %r" % (label, n, shape["nIF"], shape["nChan"], shape["nStokes"],
                                                ",".join(str(s) for s in stokes), recs[0, 0], recs[0, 1], recs[0, 2],
                                                tuple(float(x) for x in ours[0, 0])))


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("mode", choices=("export", "real"))
    for name in ("sim", "import", "export", "dump", "data", "tmp"):
        ap.add_argument("--" + name, required=True)
    a = ap.parse_args()
    os.makedirs(a.tmp, exist_ok=True)
    if a.mode == "export":
        uvx = os.path.join(a.tmp, "sim.uvx")
        out = os.path.join(a.tmp, "sim.uvfits")
        # Crosses midnight, so that record times above one day travel as well.
        run([a.sim, "--nif", "2", "--nchan", "8", "--duration", "900", "--start", "85800", uvx])
        run([a.export, uvx, out])
        shape, stations, recs = read_dump(a.dump, uvx)
        assert recs[-1, 0] > 86400.0, "the simulated observation should cross midnight"
        compare("export", shape, recs, out, stations=stations)
        su = fits.open(out)["AIPS SU"].data
        assert [s.strip() for s in su["SOURCE"]] == ["3C84", "4C39.25", "3C345"], su["SOURCE"]
    else:
        files = sorted(glob.glob(os.path.join(a.data, "*.uvfits")))
        assert files, "no UVFITS files in " + a.data
        for path in files:
            out = os.path.join(a.tmp, os.path.basename(path) + ".uvx")
            note = run([getattr(a, "import"), path, out])
            shape, stations, recs = read_dump(a.dump, out)
            # A file without XYZHAND whose records show left-handed positions gets its Y negated.
            flip = "left-handed" in note
            compare(os.path.basename(path), shape, recs, path, flip_y_stations=flip, stations=stations)
    print("OK")


if __name__ == "__main__":
    main()
