"""uvx_read: the header, records and tables of a UVX file, read with numpy from its documented layout."""
import numpy as np

HEADER_POS = 32
FIRST_RECORD = 498
TYPES = {'A': ('S', 1), 'L': ('u1', 1), 'I': ('<i2', 2), 'J': ('<i4', 4), 'E': ('<f4', 4), 'D': ('<f8', 8)}


def read(path):
    raw = np.fromfile(path, dtype=np.uint8).tobytes()
    assert raw[:8] == b'MEROVUVX', path + ': not a UVX file'
    count = int(np.frombuffer(raw, '<i8', 1, 16)[0])
    directory = int(np.frombuffer(raw, '<i8', 1, 24)[0])
    h = HEADER_POS
    header = {
        'refJD': float(np.frombuffer(raw, '<f8', 1, h + 12)[0]),
        'nStokes': int(np.frombuffer(raw, '<i2', 1, h + 176)[0]),
        'stokes': np.frombuffer(raw, '<i2', 8, h + 178).copy(),
        'nIF': max(1, int(np.frombuffer(raw, '<i4', 1, h + 194)[0])),
        'nChan': int(np.frombuffer(raw, '<i4', 1, h + 198)[0]),
    }
    n = header['nIF'] * header['nChan'] * header['nStokes']
    record = np.dtype([('flags', 'u1'), ('freqId', 'i1'), ('sourceId', '<i2'), ('u', '<f4'), ('v', '<f4'),
                       ('w', '<f4'), ('time', '<f8'), ('ant1', 'i1'), ('ant2', 'i1'), ('vis', '<f4', (n, 3))])
    records = np.frombuffer(raw, record, count, FIRST_RECORD)
    vis = records['vis'].reshape(count, header['nIF'], header['nChan'], header['nStokes'], 3)
    tables = {}
    n_tables = int(np.frombuffer(raw, '<i2', 1, directory)[0])
    for pos in np.frombuffer(raw, '<i8', n_tables, directory + 2):
        tables.update([_table(raw, int(pos))])
    return header, records, vis, tables


def _table(raw, pos):
    name = raw[pos:pos + 16].split(b'\0')[0].decode()
    n_cols, n_rows, row_bytes, n_keys = np.frombuffer(raw, '<i4', 4, pos + 16)
    fields, offset = [], 0
    for c in range(n_cols):
        d = pos + 32 + 36 * c
        col = raw[d:d + 20].split(b'\0')[0].decode()
        kind = chr(raw[d + 28])
        repeat = int(np.frombuffer(raw, '<i4', 1, d + 32)[0])
        code, size = TYPES[kind]
        fmt = 'S%d' % repeat if kind == 'A' else (code, (repeat,)) if repeat > 1 else code
        fields.append((col, fmt, offset))
        offset += size * repeat
    dtype = np.dtype({'names': [f[0] for f in fields], 'formats': [f[1] for f in fields],
                      'offsets': [f[2] for f in fields], 'itemsize': int(row_bytes)})
    rows_pos = pos + 32 + 36 * int(n_cols) + 40 * int(n_keys)
    return name, np.frombuffer(raw, dtype, int(n_rows), rows_pos)
