#!/bin/sh
# bench.sh [--quick]: compares the product with its alternatives and writes
# docs/benchmark-figures.md. With --quick, it only runs every benchmark for a moment and does not
# write the file. BUILD_DIR names the build directory. The default is "build-bench".
set -eu
cd "$(dirname "$0")/.."
. scripts/packages.sh
require c++=g++ cmake=cmake ninja=ninja-build pkg-config=pkg-config curl=curl tar=tar \
  openssl=openssl nginx=nginx-light jq=jq \
  minisign=minisign /usr/include/sodium.h=libsodium-dev /usr/include/benchmark/benchmark.h=libbenchmark-dev
# The peers are optional.
for peer in /usr/include/uv.h=libuv1-dev /usr/include/event2/event.h=libevent-dev \
  /usr/include/boost/pool/pool.hpp=libboost-dev \
  /usr/lib/x86_64-linux-gnu/libboost_filesystem.so=libboost-filesystem-dev \
  protoc=protobuf-compiler /usr/include/google/protobuf/message.h=libprotobuf-dev; do
  (require "$peer") || echo "Without ${peer#*=}, which cannot be installed."
done

build=${BUILD_DIR:-build-bench}
mkdir -p "$build"
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DBUILD_TESTING=OFF \
  -DRUNENV_BUILD_EXAMPLES=OFF -DRUNENV_BUILD_BENCHMARKS=ON >"$build/configure.log"
grep 'which is not installed' "$build/configure.log" || true
cmake --build "$build" --parallel
subjects='containers document streams processes sockets'

if [ "${1-}" = --quick ]; then
  for subject in $subjects; do
    "$build/bench/${subject}_bench" --benchmark_min_time=0.001
  done
  bench/bootstrap.sh "$build" "$build/bootstrap" quick
  jq -r . "$build/bootstrap.json"
  "$build/bench/soak" 1
  exit
fi

for subject in $subjects; do
  "$build/bench/${subject}_bench" --benchmark_min_time=0.1 --benchmark_repetitions=7 \
    --benchmark_enable_random_interleaving=true --benchmark_report_aggregates_only=true \
    --benchmark_out="$build/$subject.json" --benchmark_out_format=json
done
bench/bootstrap.sh "$build" "$build/bootstrap"

section() { jq -r --arg title "$2" -f bench/table.jq "$build/$1.json" && echo; }
{
  echo '# Benchmark figures'
  echo
  echo "Written by \`scripts/bench.sh\`. [benchmarks.md](benchmarks.md) says what they mean. Each row has"
  echo "the time of runenv, then how many times as much each peer takes."
  echo
  echo "Measured on $(date -u +%Y-%m-%d) with \`scripts/bench.sh\`: $(nproc) processors"
  echo "($(sed -n 's/^model name[^:]*: //p;T;q' /proc/cpuinfo)), Linux $(uname -r),"
  echo "$(c++ --version | head -n 1), $(curl --version | cut -d ' ' -f 1,2 | head -n 1)."
  echo "Peers: $(for package in libuv1-dev libevent-dev libboost-dev libprotobuf-dev libbenchmark-dev; do
    dpkg-query -W -f '${Package} ${Version}, ' "$package" 2>/dev/null || true
  done | sed 's/, $/./')"
  sed -n 's/^-- \(.*, which is not installed\)$/Missing: \1./p' "$build/configure.log"
  echo
  section bootstrap 'Bootstrapper'
  cat "$build/bootstrap.md"
  echo
  section document 'Document'
  section containers 'Containers'
  section streams 'Streams'
  section processes 'Child processes'
  section sockets 'Sockets'
} >"$build/figures.md"
cp "$build/figures.md" docs/benchmark-figures.md
