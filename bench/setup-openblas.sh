#!/usr/bin/env bash
# Installs OpenBLAS, the reference that bench_qr_kernels times the QR kernels against. The benchmark
# builds without it too and then leaves the reference rows out; re-run CMake after installing.
set -euo pipefail
if dpkg -s libopenblas-dev >/dev/null 2>&1; then
  echo "libopenblas-dev is installed"
  exit 0
fi
apt-get update
DEBIAN_FRONTEND=noninteractive apt-get install -y libopenblas-dev
