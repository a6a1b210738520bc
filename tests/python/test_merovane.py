"""Tests of the Python module: reading against uvx-info and the simulator's truth, calibration against
uvx-cal bit for bit, errors, bounded chunked reads, threads and Dask."""

import filecmp
import os
import re
import subprocess
import threading
import tracemalloc

import numpy as np
import pytest

import merovane

BINARY_DIR = os.environ["MEROVANE_BINARY_DIR"]
TMP = os.environ["MEROVANE_TEST_TMP"]


def tool(name):
    return os.path.join(BINARY_DIR, "tools", name, name)


@pytest.fixture(scope="module")
def quiet_sim():
    """A small observation without noise, digitiser levels or flags: an RR autocorrelation then holds
    exactly float(|B|^2) of its station."""
    path = os.path.join(TMP, "py-quiet")
    return merovane.simulate(path, stations=["EF", "WB", "ON"], n_if=2, n_chan=16, duration=480,
                             noise_scale=0.0, levels=False, flags=False, seed=7)


@pytest.fixture(scope="module")
def sim():
    return merovane.simulate(os.path.join(TMP, "py-sim"), stations=["EF", "WB", "ON", "MC"], n_if=2,
                             n_chan=16, duration=600, seed=3)


def test_reading_agrees_with_uvx_info(sim):
    info = subprocess.run([tool("uvx-info"), sim["uvx"]], capture_output=True, text=True, check=True).stdout
    with merovane.open(sim["uvx"]) as f:
        records = f.read()
        assert re.search(r"\b%d records of" % f.n_records, info)
        assert len(records) == f.n_records
        # Records per source as uvx-info counts them.
        for sid, name, count in re.findall(r"source (\d+) (\S+): (\d+) records", info):
            assert np.count_nonzero(records.source == int(sid)) == int(count), name
        # Baselines: autocorrelations and cross-correlations.
        m = re.search(r"Baselines \((\d+): (\d+) autocorrelations", info)
        pairs = set(zip(records.ant1.tolist(), records.ant2.tolist()))
        assert len(pairs) == int(m.group(1))
        assert sum(a == b for a, b in pairs) == int(m.group(2))
        # The header's statistics are those of the elements.
        assert f.header["re_min"] == pytest.approx(float(records.vis.real.min()))
        assert f.header["im_max"] == pytest.approx(float(records.vis.imag.max()))
        # Tables as structured arrays with the stations of the truth.
        an = f.tables["AN"]
        assert [n.decode() for n in an["ANNAME"]] == [s["code"] for s in sim["truth"]["stations"]]
        assert an["NOSTA"].tolist() == [s["id"] for s in sim["truth"]["stations"]]
        assert an["STABXYZ"].shape == (4, 3)
        assert f.keywords["SL"]["REFDAY"] == round(sim["truth"]["ref_jd"] - 2400000.5)


def test_reading_agrees_with_the_truth(quiet_sim):
    truth = quiet_sim["truth"]
    rr = truth["stokes"].index(-1)
    with merovane.open(quiet_sim["uvx"]) as f:
        assert f.header["n_if"] == truth["n_if"] and f.header["n_chan"] == truth["n_chan"]
        assert f.header["stokes"] == truth["stokes"]
        r = f.read()
    auto = np.nonzero(r.ant1 == r.ant2)[0]
    assert auto.size > 0
    for k in auto[:20]:
        station = next(s for s in truth["stations"] if s["id"] == r.ant1[k])
        expected = (np.abs(station["bandpass"][:, 0, :]) ** 2).astype(np.float32)
        np.testing.assert_array_equal(r.vis[k, :, :, rr].real, expected)
        assert np.all(r.weight[k] > 0)
    assert r.vis.shape == (len(r), truth["n_if"], truth["n_chan"], len(truth["stokes"]))
    assert r.vis.dtype == np.complex64 and r.weight.dtype == np.float32
    assert r.uvw.dtype == np.float32 and r.time.dtype == np.float64


def test_chunks_cover_the_file_and_memory_stays_bounded(sim):
    with merovane.open(sim["uvx"]) as f:
        whole = f.read()
        full_bytes = whole.vis.nbytes + whole.weight.nbytes
        slice_time, slice_vis = whole.time[100:150].copy(), whole.vis[100:150].copy()
        del whole
        tracemalloc.start()
        n = 0
        times = []
        for chunk in f.records(chunk=100):
            n += len(chunk)
            times.append(chunk.time[0])
        _, peak = tracemalloc.get_traced_memory()
        tracemalloc.stop()
        assert n == f.n_records
        # A chunk of 100 records is a small share of the whole; the peak holds a couple of chunks.
        chunk_bytes = full_bytes * 100 / f.n_records
        assert peak < 4 * chunk_bytes + 2_000_000
        assert peak < full_bytes / 4
        # A read that starts anywhere gives what the whole read held there.
        again = f.read(100, 50)
        np.testing.assert_array_equal(again.time, slice_time)
        np.testing.assert_array_equal(again.vis, slice_vis)
        assert again.start == 100 and len(again) == 50


def test_calibrate_reproduces_uvx_cal_bit_for_bit(sim):
    out_tool = os.path.join(TMP, "py-cal-tool.uvx")
    out_py = os.path.join(TMP, "py-cal-py.uvx")
    subprocess.run([tool("uvx-cal"), "--quiet", "--dig-power", "--dig-bits", "--antab", sim["antab"],
                    "--average", "60", sim["uvx"], out_tool], check=True)
    seen = []
    summary = merovane.calibrate(sim["uvx"], out_py, antab=sim["antab"], avg_step=60, dig_bits=True,
                                 dig_power=True, progress=lambda *a: seen.append(a))
    assert filecmp.cmp(out_tool, out_py, shallow=False)
    assert summary["records_written"] == merovane.open(out_py).n_records
    assert summary["records_in"] == merovane.open(sim["uvx"]).n_records
    assert summary["stations_calibrated"]
    assert seen and seen[-1][3] == 100


def test_errors_raise_merovane_error_with_the_library_text(sim):
    missing = os.path.join(TMP, "no-such-file.uvx")
    with pytest.raises(merovane.MerovaneError, match="Cannot open UVX file .*no-such-file.uvx"):
        merovane.open(missing)
    with pytest.raises(merovane.MerovaneError, match="unknown option dig_powr"):
        merovane.calibrate(sim["uvx"], os.path.join(TMP, "x.uvx"), dig_powr=True)
    with pytest.raises(merovane.MerovaneError, match="bp_phase must be one of"):
        merovane.calibrate(sim["uvx"], os.path.join(TMP, "x.uvx"), bp_phase="fourier")
    out = os.path.join(TMP, "py-fail.uvx")
    with pytest.raises(merovane.MerovaneError):
        merovane.calibrate(missing, out, dig_power=True)
    assert not os.path.exists(out)
    assert issubclass(merovane.MerovaneError, RuntimeError)


def test_an_exception_in_the_progress_callback_stops_the_run(sim):
    out = os.path.join(TMP, "py-abort.uvx")

    def progress(stage, walk, walks, percent):
        if percent >= 20:
            raise KeyboardInterrupt

    with pytest.raises(KeyboardInterrupt):
        merovane.calibrate(sim["uvx"], out, dig_power=True, progress=progress)
    assert not os.path.exists(out)


def test_two_threads_give_what_one_after_the_other_gives(sim):
    passes = dict(dig_power=True, antab=sim["antab"], avg_step=30)
    serial = [os.path.join(TMP, "py-serial-%d.uvx" % i) for i in range(2)]
    parallel = [os.path.join(TMP, "py-thread-%d.uvx" % i) for i in range(2)]
    for out in serial:
        merovane.calibrate(sim["uvx"], out, **passes)
    errors = []

    def run(out):
        try:
            merovane.calibrate(sim["uvx"], out, **passes)
        except Exception as e:  # noqa: BLE001 - reported below
            errors.append(e)

    threads = [threading.Thread(target=run, args=(out,)) for out in parallel]
    for t in threads:
        t.start()
    for t in threads:
        t.join()
    assert not errors
    for a, b in zip(serial, parallel):
        assert filecmp.cmp(a, b, shallow=False)


def test_antab_check_gives_records():
    text = os.path.join(TMP, "py-check.antab")
    with open(text, "w") as f:
        f.write("GAIN EF ELEV DPFU=1.5, 1.4 POLY=1.0 /\n"
                "TSYS EF FT=1.0 INDEX='R1','L1' /\n"
                "100 20:00.00 30.0 31.0\n/\n")
    findings = merovane.antab.check(text)
    assert findings and all(isinstance(f, merovane.antab.Finding) for f in findings)
    assert any(f.station == "EF" and f.line == 1 for f in findings)
    fixed = os.path.join(TMP, "py-check-fixed.antab")
    result = merovane.antab.normalise(text, fixed)
    assert result["changed"] and os.path.exists(fixed)
    assert "DPFU=1.5,1.4" in open(fixed).read()


def test_help_reads_well():
    import pydoc

    text = pydoc.render_doc(merovane, renderer=pydoc.plaintext)
    for name in ("open", "calibrate", "simulate", "MerovaneError", "Records"):
        assert name in text
    assert "order" in merovane.calibrate.__doc__
    import typing

    hints = typing.get_type_hints(merovane.UVXFile.read)
    assert hints["return"] is merovane.Records


def test_dask_local_cluster_gives_the_serial_outputs(sim, quiet_sim):
    distributed = pytest.importorskip("distributed")
    from merovane.dask import calibrate_many, output_path

    inputs = []
    for i in range(4):
        r = merovane.simulate(os.path.join(TMP, "py-dask-in-%d" % i), stations=["EF", "WB", "ON"], n_if=1,
                              n_chan=8, duration=300, seed=10 + i)
        inputs.append(r["uvx"])
    passes = dict(dig_power=True, avg_step=20)
    serial_dir = os.path.join(TMP, "py-dask-serial")
    cluster_dir = os.path.join(TMP, "py-dask-cluster")
    os.makedirs(serial_dir, exist_ok=True)
    serial = [merovane.calibrate(p, output_path(p, serial_dir), **passes) for p in inputs]
    with distributed.LocalCluster(n_workers=2, threads_per_worker=1, processes=True, dashboard_address=None) as c:
        with distributed.Client(c) as client:
            summaries = calibrate_many(inputs, client=client, out_dir=cluster_dir, **passes)
    assert [s["records_written"] for s in summaries] == [s["records_written"] for s in serial]
    for p in inputs:
        assert filecmp.cmp(output_path(p, serial_dir), output_path(p, cluster_dir), shallow=False)
