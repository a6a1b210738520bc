"""A point source off the phase centre gives the same phase on the same baseline in both exports.

usage: check_phase_consistency.py DIR
DIR holds offset.txt (l m in radians), offset.ms (read with python3-casacore) and offset.uvfits (read
with astropy; without it the test is skipped with exit code 77). In each format the phase of every
element must follow -2 pi f (u l + v m + w (n - 1)) computed from that format's own u v w and channel
frequencies, and the two formats must agree element by element.
"""
import math
import os
import sys

import numpy as np
from astropy.io import fits
from casacore.tables import table

LIGHT = 299792458.0
SKIP = 77


def wrap(x):
    return (x + np.pi) % (2 * np.pi) - np.pi


def model(f, u, v, w, l, m):
    """Phase in radians of the offset source; f in Hz, u v w in seconds of light travel."""
    n1 = math.sqrt(1.0 - l * l - m * m) - 1.0
    return -2.0 * np.pi * f * (u * l + v * m + w * n1)


def read_ms(path):
    """{(ant1, ant2, time s from MJD 0, IF, channel): (phase, model phase)} of the first product."""
    ms = table(path, ack=False)
    spw = table(ms.getkeyword('SPECTRAL_WINDOW'), ack=False).getcol('CHAN_FREQ')
    dd = table(ms.getkeyword('DATA_DESCRIPTION'), ack=False).getcol('SPECTRAL_WINDOW_ID')
    data, uvw = ms.getcol('DATA'), ms.getcol('UVW') / LIGHT
    a1, a2, time, ddid = ms.getcol('ANTENNA1'), ms.getcol('ANTENNA2'), ms.getcol('TIME'), ms.getcol('DATA_DESC_ID')
    out = {}
    for r in range(ms.nrows()):
        freq = spw[dd[ddid[r]]]
        for k, f in enumerate(freq):
            out[(a1[r] + 1, a2[r] + 1, time[r], int(ddid[r]), k)] = (np.angle(data[r, k, 0]), (f,) + tuple(uvw[r]))
    return out


def read_uvfits(path):
    hdus = fits.open(path)
    g = hdus[0]
    h = g.header
    axes = {h['CTYPE%d' % i].strip(): i for i in range(2, h['NAXIS'] + 1)}
    names = [p.upper() for p in g.data.parnames]

    def par(prefix):
        return g.data.par(next(p for p in g.data.parnames if p.upper().startswith(prefix)))

    u, v, w = par('UU'), par('VV'), par('WW')
    baseline = par('BASELINE')
    jd = g.data.par('DATE')  # astropy sums the two DATE parameters
    assert names.count('DATE') in (1, 2)
    fa = axes['FREQ']
    chan_freq = h['CRVAL%d' % fa] + (np.arange(h['NAXIS%d' % fa]) + 1 - h['CRPIX%d' % fa]) * h['CDELT%d' % fa]
    if_freq = np.atleast_1d(hdus['AIPS FQ'].data['IF FREQ'][0])
    # astropy's array runs the FITS axes backwards: (group, DEC, RA, IF, FREQ, STOKES, COMPLEX).
    data = np.asarray(g.data.data)
    order = [0] + [h['NAXIS'] - axes[a] + 1 for a in ('IF', 'FREQ', 'STOKES', 'COMPLEX')]
    rest = [i for i in range(data.ndim) if i not in order]
    data = np.transpose(data, order + rest).reshape(data.shape[0], len(if_freq), len(chan_freq), -1, 3)
    out = {}
    for i in range(data.shape[0]):
        a1, a2 = int(baseline[i]) // 256, int(round(baseline[i])) % 256
        time = (float(jd[i]) - 2400000.5) * 86400.0
        for j, off in enumerate(if_freq):
            for k, f in enumerate(chan_freq):
                re, im = data[i, j, k, 0, 0], data[i, j, k, 0, 1]
                out[(a1, a2, time, j, k)] = (math.atan2(im, re), (f + off, u[i], v[i], w[i]))
    return out


def check_model(name, values, l, m):
    worst, largest = 0.0, 0.0
    for phase, (f, u, v, w) in values.values():
        expected = model(f, u, v, w, l, m)
        worst = max(worst, abs(wrap(phase - expected)))
        largest = max(largest, abs(expected))
    print('%s: %d elements, model phases up to %.1f rad, worst residual %.2e rad' % (name, len(values), largest, worst))
    if largest < 3.0:
        raise SystemExit('%s: the offset gives too little phase to tell the conventions apart' % name)
    if worst > 1e-4:
        raise SystemExit('%s: phases do not follow the offset source' % name)


def main(directory):
    with open(os.path.join(directory, 'offset.txt')) as f:
        l, m = (float(x) for x in f.read().split())
    ms = read_ms(os.path.join(directory, 'offset.ms'))
    check_model('Measurement Set', ms, l, m)
    fits_path = os.path.join(directory, 'offset.uvfits')
    if not os.path.exists(fits_path):
        print('no UVFITS export (FITS bridge not built): the comparison is skipped')
        return SKIP
    uv = read_uvfits(fits_path)
    check_model('UVFITS', uv, l, m)
    # The same element in both: same baseline, IF and channel, time to a millisecond (a Julian date in
    # a double carries some tens of microseconds; the integrations are seconds apart).
    by_key = {}
    for (a1, a2, t, j, k), value in uv.items():
        by_key[(a1, a2, round(t, 3), j, k)] = value
    matched, worst = 0, 0.0
    for (a1, a2, t, j, k), (phase, _) in ms.items():
        other = by_key.get((a1, a2, round(t, 3), j, k))
        if other is None:
            raise SystemExit('element %s of the Measurement Set has no UVFITS counterpart' % ((a1, a2, t, j, k),))
        matched += 1
        worst = max(worst, abs(wrap(phase - other[0])))
    print('%d elements on the same baselines, worst phase difference %.2e rad' % (matched, worst))
    if matched != len(uv) or worst > 1e-5:
        raise SystemExit('the two exports disagree')
    return 0


if __name__ == '__main__':
    sys.exit(main(sys.argv[1]))
