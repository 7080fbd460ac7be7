// The containers at dataset scale: a 1,000,000 x 100 matrix written to and read from a file
// through the stream framework, bulk row removal, and appending columns into reserved room.
// Peers: `peers.py matrix-io` (numpy.save / numpy.load + one pass) and `peers.py remove-rows`
// (numpy.delete, F order).

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "BenchSupport.h"
#include "ncds/ncds.h"

namespace {

using Matrix = NCDataMatrix<float>;

constexpr std::size_t kRows = 1000000;
constexpr std::size_t kColumns = 100;
constexpr std::size_t kRemovedRows = 100000;
constexpr double kMatrixBytes = double(kRows) * kColumns * sizeof(float);

// Fills `cells` with values spread over [-4, 4) (a cheap generator: the values do not matter,
// only that they are not one repeated pattern).
void FillRandom(float* cells, std::size_t count, std::uint64_t seed) {
  std::uint64_t state = seed * 0x9E3779B97F4A7C15ull + 1;
  for (std::size_t i = 0; i < count; ++i) {
    state ^= state << 13;
    state ^= state >> 7;
    state ^= state << 17;
    cells[i] = static_cast<float>(static_cast<std::int64_t>(state >> 40) - (1 << 23)) / (1 << 21);
  }
}

const Matrix& BigMatrix() {
  static const Matrix matrix = [] {
    Matrix m(kRows, kColumns);
    for (std::size_t j = 0; j < kColumns; ++j) FillRandom(m.ColumnData(j), kRows, j + 1);
    return m;
  }();
  return matrix;
}

// One pass over every cell, as the peer's sum; several accumulators keep the adds in flight.
double Sum(const Matrix& m) {
  double total = 0.0;
  for (std::size_t j = 0; j < m.SizeColumns(); ++j) {
    const float* column = m.ColumnData(j);
    double partial[8] = {};
    std::size_t i = 0;
    for (; i + 8 <= m.SizeRows(); i += 8) {
      for (int k = 0; k < 8; ++k) partial[k] += column[i + k];
    }
    for (; i < m.SizeRows(); ++i) partial[0] += column[i];
    for (const double p : partial) total += p;
  }
  return total;
}

// The file the read benchmarks read: written once, removed when the program ends.
const std::string& MatrixFile() {
  static const struct File {
    std::string path = ncds::bench::ScratchPath("ncds_bench_matrix_in.bin");
    File() {
      std::ofstream os(path, std::ios::binary | std::ios::trunc);
      os << BigMatrix();
    }
    ~File() { std::remove(path.c_str()); }
  } file;
  return file.path;
}

void SetThroughput(benchmark::State& state) {
  state.counters["GB/s"] =
      benchmark::Counter(kMatrixBytes / 1e9, benchmark::Counter::kIsIterationInvariantRate);
}

void BM_MatrixWriteToFile(benchmark::State& state) {
  ncds::bench::TimeWriteToNewFile(
      state, BigMatrix(), ncds::bench::ScratchPath("ncds_bench_matrix_out.bin"), kMatrixBytes);
  SetThroughput(state);
}
BENCHMARK(BM_MatrixWriteToFile)->Apply(ncds::bench::Repeated);

// Read into a new matrix each time, then one pass over it. The RSS growth includes the new
// matrix itself; the extra is what the read needs beyond it.
void BM_MatrixReadFromFile(benchmark::State& state) {
  const std::string& path = MatrixFile();
  double growth = 0.0;
  for (auto _ : state) {
    ncds::bench::ResetPeakRss();
    const std::int64_t before = ncds::bench::CurrentRssBytes();
    {
      Matrix m;
      std::ifstream is(path, std::ios::binary);
      if (!(is >> m) || m.SizeRows() != kRows) state.SkipWithError("read failed");
      benchmark::DoNotOptimize(Sum(m));
    }
    growth = std::max(growth, double(ncds::bench::PeakRssBytes() - before) / kMatrixBytes);
  }
  SetThroughput(state);
  state.counters["rss_growth/matrix"] = growth;
  state.counters["rss_extra/matrix"] = growth - 1.0;
}
BENCHMARK(BM_MatrixReadFromFile)->Apply(ncds::bench::Repeated);

// Read again into a matrix of the same shape: its buffer is reused, nothing grows.
void BM_MatrixReReadFromFile(benchmark::State& state) {
  const std::string& path = MatrixFile();
  Matrix m(kRows, kColumns, 0.0F);
  double growth = 0.0;
  for (auto _ : state) {
    ncds::bench::ResetPeakRss();
    const std::int64_t before = ncds::bench::CurrentRssBytes();
    std::ifstream is(path, std::ios::binary);
    if (!(is >> m) || m.SizeRows() != kRows) state.SkipWithError("read failed");
    benchmark::DoNotOptimize(Sum(m));
    growth = std::max(growth, double(ncds::bench::PeakRssBytes() - before) / kMatrixBytes);
  }
  SetThroughput(state);
  state.counters["rss_growth/matrix"] = growth;
}
BENCHMARK(BM_MatrixReReadFromFile)->Apply(ncds::bench::Repeated);

void BM_MatrixRemoveScatteredRows(benchmark::State& state) {
  std::vector<int> all(kRows);
  for (std::size_t i = 0; i < kRows; ++i) all[i] = static_cast<int>(i);
  std::mt19937_64 rng(2);
  std::shuffle(all.begin(), all.end(), rng);
  all.resize(kRemovedRows);
  std::sort(all.begin(), all.end());
  NCIntegralVector<int, -99> rows;
  rows.reserve(kRemovedRows);
  for (const int row : all) rows.push_back(row);

  for (auto _ : state) {
    state.PauseTiming();
    auto m = std::make_unique<Matrix>(BigMatrix());
    state.ResumeTiming();
    m->RemoveRows(rows);
    benchmark::DoNotOptimize(m->ColumnData(0));
    state.PauseTiming();
    if (m->SizeRows() != kRows - kRemovedRows) state.SkipWithError("wrong row count");
    m.reset();
    state.ResumeTiming();
  }
}
BENCHMARK(BM_MatrixRemoveScatteredRows)->Apply(ncds::bench::Repeated);

constexpr std::size_t kAppendRows = 10000;
constexpr std::size_t kAppendColumns = 10000;

// Appending columns one at a time, with the room reserved first (arg 1) or not (arg 0).
void BM_MatrixAppendColumns(benchmark::State& state) {
  NCDataVector<float> column(kAppendRows);
  FillRandom(column.data(), kAppendRows, 9);
  for (auto _ : state) {
    Matrix m(kAppendRows, 0);
    if (state.range(0) != 0) m.ReserveColumns(kAppendColumns);
    for (std::size_t j = 0; j < kAppendColumns; ++j) m.InsertColumn(j, column);
    benchmark::DoNotOptimize(m.ColumnData(kAppendColumns - 1));
    state.PauseTiming();
    m.Clear();
    state.ResumeTiming();
  }
  state.counters["ns/column"] =
      benchmark::Counter(double(kAppendColumns), benchmark::Counter::kIsIterationInvariantRate |
                                                     benchmark::Counter::kInvert);
}
BENCHMARK(BM_MatrixAppendColumns)->Arg(1)->Arg(0)->Apply(ncds::bench::Repeated);

// The floor for one appended column: one memcpy of its cells into the columns of a buffer as
// large as the matrix, untouched (arg 1, as reserved room is) or already touched (arg 0).
void BM_OneColumnCopy(benchmark::State& state) {
  std::vector<float> column(kAppendRows);
  FillRandom(column.data(), kAppendRows, 9);
  std::vector<float> touched;
  if (state.range(0) == 0) touched.assign(kAppendRows * kAppendColumns, 0.0F);
  for (auto _ : state) {
    // Built the way the matrix builds its buffer, so that both meet the same page faults.
    Matrix fresh;
    float* target = touched.data();
    if (state.range(0) != 0) {
      state.PauseTiming();
      fresh = Matrix(kAppendRows, 0);
      fresh.ReserveColumns(kAppendColumns);
      fresh.InsertColumns(0, 1);
      target = fresh.ColumnData(0);
      state.ResumeTiming();
    }
    for (std::size_t j = 0; j < kAppendColumns; ++j) {
      std::memcpy(target + j * kAppendRows, column.data(), kAppendRows * sizeof(float));
    }
    benchmark::DoNotOptimize(target);
    state.PauseTiming();
    fresh.Clear();
    state.ResumeTiming();
  }
  state.counters["ns/column"] =
      benchmark::Counter(double(kAppendColumns), benchmark::Counter::kIsIterationInvariantRate |
                                                     benchmark::Counter::kInvert);
}
BENCHMARK(BM_OneColumnCopy)->Arg(1)->Arg(0)->Apply(ncds::bench::Repeated);

}  // namespace
