"""python3-casacore opens a Measurement Set written by the bridge and finds the UVX file's values in it.

usage: check_ms_export.py IN.uvx OUT.ms
"""
import os
import sys

import numpy as np
from casacore.tables import table

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import uvx_read  # noqa: E402

LIGHT = 299792458.0
# UVX (FITS) product codes and casacore's correlation types.
CORR = {-1: 5, -2: 8, -3: 6, -4: 7, -5: 9, -6: 12, -7: 10, -8: 11}


def main(uvx_path, ms_path):
    header, records, vis, tables = uvx_read.read(uvx_path)
    n_if, n_chan, n_corr = header['nIF'], header['nChan'], header['nStokes']
    failures = []

    def check(ok, what):
        if not ok:
            failures.append(what)

    ms = table(ms_path, ack=False)
    check(ms.info()['type'] == 'Measurement Set', 'table type is %r' % ms.info()['type'])
    for sub in ('ANTENNA', 'DATA_DESCRIPTION', 'FEED', 'FIELD', 'FLAG_CMD', 'HISTORY', 'OBSERVATION', 'POINTING',
                'POLARIZATION', 'PROCESSOR', 'SPECTRAL_WINDOW', 'STATE', 'SOURCE'):
        check(sub in ms.getkeywords(), 'subtable %s missing' % sub)
        table(ms.getkeyword(sub), ack=False).close()
    n_rec = len(records)
    check(ms.nrows() == n_rec * n_if, 'rows %d, expected %d' % (ms.nrows(), n_rec * n_if))
    if failures:
        raise SystemExit('\n'.join(failures))

    # MAIN: row = record x nIF + IF; DATA and FLAG are (channel, correlation) per row in Python.
    data = ms.getcol('DATA').reshape(n_rec, n_if, n_chan, n_corr)
    flag = ms.getcol('FLAG').reshape(n_rec, n_if, n_chan, n_corr)
    uvw = ms.getcol('UVW').reshape(n_rec, n_if, 3)
    time = ms.getcol('TIME').reshape(n_rec, n_if)
    ant1 = ms.getcol('ANTENNA1').reshape(n_rec, n_if)
    ant2 = ms.getcol('ANTENNA2').reshape(n_rec, n_if)
    ddid = ms.getcol('DATA_DESC_ID').reshape(n_rec, n_if)
    check(np.array_equal(data.real, vis[..., 0]), 'DATA real parts differ')
    check(np.array_equal(data.imag, vis[..., 1]), 'DATA imaginary parts differ')
    check(np.array_equal(flag, ~(vis[..., 2] > 0)), 'FLAG differs from the weights not above 0')
    check(flag.any() and not flag.all(), 'the file should hold some flagged elements, not only')
    for i, c in enumerate('uvw'):
        expected = records[c].astype(np.float64) * LIGHT
        check(np.array_equal(uvw[:, :, i], np.repeat(expected[:, None], n_if, 1)), 'UVW %s differs' % c)
    ref_seconds = (header['refJD'] - 2400000.5) * 86400.0
    check(np.all(np.abs(time - (ref_seconds + records['time'])[:, None]) <= 1e-6), 'TIME differs')
    check(np.array_equal(ant1, np.repeat(records['ant1'][:, None] - 1, n_if, 1)), 'ANTENNA1 differs')
    check(np.array_equal(ant2, np.repeat(records['ant2'][:, None] - 1, n_if, 1)), 'ANTENNA2 differs')
    check(np.array_equal(ddid, np.tile(np.arange(n_if), (n_rec, 1))), 'DATA_DESC_ID differs')

    # ANTENNA: row NOSTA - 1 holds ANNAME and STABXYZ.
    antenna = table(ms.getkeyword('ANTENNA'), ack=False)
    names, positions = antenna.getcol('NAME'), antenna.getcol('POSITION')
    for row in tables['AN']:
        k = int(row['NOSTA']) - 1
        check(names[k] == row['ANNAME'].decode(), 'ANTENNA NAME %s' % names[k])
        check(np.array_equal(positions[k], row['STABXYZ']), 'ANTENNA POSITION of %s' % names[k])

    # POLARIZATION: the header's products in order.
    corr = table(ms.getkeyword('POLARIZATION'), ack=False).getcol('CORR_TYPE')[0]
    check(list(corr) == [CORR[int(s)] for s in header['stokes'][:n_corr]], 'CORR_TYPE %s' % corr)

    if failures:
        raise SystemExit('\n'.join(failures))
    print('%s: %d rows, %d channels, %d products agree with %s' % (ms_path, ms.nrows(), n_chan, n_corr, uvx_path))


if __name__ == '__main__':
    main(sys.argv[1], sys.argv[2])
