#include "ncds/batch/DataSetAlignment.h"

#include <algorithm>
#include <cmath>
#include <istream>
#include <limits>
#include <memory>
#include <ostream>
#include <tuple>
#include <unordered_map>

#include "ncds/batch/BatchUtilities.h"
#include "ncds/dataset/NCDataSet.h"
#include "ncds/dataset/NCProjectBase.h"
#include "ncds/foundations/Exception.h"
#include "ncds/foundations/ExceptionMessage.h"
#include "ncds/foundations/InputStreamDirectory.h"
#include "ncds/foundations/OutputStreamDirectory.h"
#include "ncds/foundations/ReadFromStreamDir.h"
#include "ncds/foundations/StreamPrimitives.h"
#include "ncds/metadata/NCObservations.h"
#include "ncds/metadata/NCVariables.h"
#include "ncds/metadata/ObservationInfo.h"
#include "ncds/metadata/VariableInfo.h"
#include "ncds/smoothing/Smooth.h"

namespace ncds::detail {
namespace {

constexpr float kMissing = -99.0F;
constexpr std::int16_t kAlignmentVersion = 1;
constexpr std::uint16_t kAlignmentTags = 7;
constexpr std::uint16_t kTagMaturity = 0;
constexpr std::uint16_t kTagRelative = 1;
constexpr std::uint16_t kTagSmooth = 2;
constexpr std::uint16_t kTagExtend = 3;
constexpr std::uint16_t kTagPoints = 4;
constexpr std::uint16_t kTagPhases = 5;
constexpr std::uint16_t kTagSourceBatches = 6;

// A piece of one batch aligned onto one grid: rows [begin, end) of the source.
struct Segment {
  std::size_t begin;
  std::size_t end;
};

// The valid (first, last) maturity of rows [begin, end), or none.
bool Ends(const std::vector<float>& maturity, const Segment& segment, float& first, float& last) {
  std::size_t lo = segment.begin;
  std::size_t hi = segment.end;
  while (lo < hi && maturity[lo] == kMissing) ++lo;
  while (hi > lo && maturity[hi - 1] == kMissing) --hi;
  if (hi - lo < 2) return false;
  first = maturity[lo];
  last = maturity[hi - 1];
  return true;
}

// The entry of `entries` (pairs keyed by phase name) for `phase`, or end.
template <typename Entries>
auto FindPhase(Entries& entries, const std::string& phase) {
  return std::find_if(entries.begin(), entries.end(),
                      [&phase](const auto& entry) { return entry.first == phase; });
}

// `points` evenly spaced values from `from` to `to`.
NCDataVector<float> Grid(float from, float to, int points) {
  NCDataVector<float> grid(static_cast<std::size_t>(points));
  for (int j = 0; j < points; ++j) {
    grid[static_cast<std::size_t>(j)] =
        points == 1 ? from : from + (to - from) * static_cast<float>(j) / (points - 1);
  }
  if (points > 1) grid[grid.size() - 1] = to;  // exactly, whatever the rounding
  return grid;
}

}  // namespace
}  // namespace ncds::detail

const VStreamableData DataSetAlignment::msVStreamData(ncds::detail::kAlignmentVersion, "ALIGNMENT");

DataSetAlignment::DataSetAlignment(unsigned long maturityID, int points)
    : mMaturityID(maturityID), mPoints(points) {}

DataSetAlignment::DataSetAlignment(const DataSetAlignment& other) = default;

DataSetAlignment& DataSetAlignment::operator=(const DataSetAlignment& other) = default;

DataSetAlignment::~DataSetAlignment() = default;

void DataSetAlignment::SetPhasePoints(std::vector<std::pair<std::string, int>> phasePoints) {
  mPhasePoints = std::move(phasePoints);
}

bool DataSetAlignment::operator==(const DataSetAlignment& other) const {
  if (mMaturityID != other.mMaturityID || mPoints != other.mPoints ||
      mPhasePoints != other.mPhasePoints || mRelative != other.mRelative ||
      mSmooth != other.mSmooth || mExtend != other.mExtend ||
      mAligners.size() != other.mAligners.size() || mSourceBatches != other.mSourceBatches) {
    return false;
  }
  for (std::size_t k = 0; k < mAligners.size(); ++k) {
    const BatchAligner& a = mAligners[k].second;
    const BatchAligner& b = other.mAligners[k].second;
    if (mAligners[k].first != other.mAligners[k].first || a.IsAscending() != b.IsAscending() ||
        a.GetExtraPolateShortCutLongBatches() != b.GetExtraPolateShortCutLongBatches() ||
        !a.GetTimeMaturityVector() != !b.GetTimeMaturityVector() ||
        (a.GetTimeMaturityVector() && *a.GetTimeMaturityVector() != *b.GetTimeMaturityVector())) {
      return false;
    }
  }
  return true;
}

namespace ncds::detail {

// The rows to align, wherever they are held: the maturity, the batches and the phase runs.
struct Layout {
  std::string name;  // the dataset's, for messages
  std::size_t rowCount = 0;
  const float* maturity = nullptr;
  std::vector<int> batchStarts;  // the first row (from 1) of every batch, then rows + 1
  std::vector<std::string> batchNames;
  bool hasPhases = false;
  std::vector<int> phaseRuns;  // the first row (from 1) of every phase run, then rows + 1
  std::vector<int> runPhases;  // the phase of every run, an index into phaseTable
  std::vector<std::string> phaseTable;
  std::vector<std::string> gridPhases;  // the phases in the order of phase-wise grids

  // The phase of row `row` (from 0), an index into phaseTable; -1 without phases.
  int PhaseOf(std::size_t row) const {
    if (!hasPhases || runPhases.empty()) return -1;
    const auto run =
        std::upper_bound(phaseRuns.begin(), phaseRuns.end(), static_cast<int>(row + 1));
    return runPhases[static_cast<std::size_t>(run - phaseRuns.begin() - 1)];
  }
};

namespace {

// The layout of a dataset's rows, read from their records.
Layout DataSetLayout(NCDataSet& source, unsigned long maturityID) {
  Layout layout;
  layout.name = source.GetName();
  const boost::shared_ptr<NCProjectBase> project = source.GetProject();
  if (!project || !source.GetBatchInfoVector()) {
    throw NCError(ExceptionMessage::translate("Dataset \"{1}\" is not a batch dataset.") %
                  source.GetName());
  }
  const NCObservations& observations = project->GetObservations();
  const int maturityColumn = source.GetVarIDs().Find(maturityID);
  if (maturityColumn < 0) {
    throw NCError(
        ExceptionMessage::translate("The maturity is not a variable of dataset \"{1}\".") %
        source.GetName());
  }
  layout.maturity = source.GetMatrix().ColumnData(static_cast<std::size_t>(maturityColumn));
  const auto& rows = source.GetObservationInfoVector();
  layout.rowCount = rows.size();
  const auto end = static_cast<int>(layout.rowCount) + 1;
  layout.batchStarts = BatchUtilities::GetRunStarts(observations, rows, false);
  layout.batchStarts.push_back(end);
  for (std::size_t b = 0; b + 1 < layout.batchStarts.size(); ++b) {
    const ObservationInfo* row = rows[static_cast<std::size_t>(layout.batchStarts[b] - 1)];
    layout.batchNames.push_back(row ? row->GetBatchName(observations) : std::string());
  }
  layout.hasPhases = observations.GetPhaseIDRaw() > 0;
  if (layout.hasPhases) {
    layout.phaseRuns = BatchUtilities::GetRunStarts(observations, rows, true);
    std::unordered_map<std::string, int> known;
    for (const int run : layout.phaseRuns) {
      const ObservationInfo* row = rows[static_cast<std::size_t>(run - 1)];
      const std::string phase = row ? row->GetPhaseName(observations) : std::string();
      const auto [at, added] = known.emplace(phase, static_cast<int>(layout.phaseTable.size()));
      if (added) layout.phaseTable.push_back(phase);
      layout.runPhases.push_back(at->second);
    }
    layout.phaseRuns.push_back(end);
  }
  if (source.GetPhaseInfoVector()) {
    layout.gridPhases =
        BatchUtilities::GetPhaseNames(*source.GetPhaseInfoVector(), false)->GetVector();
  }
  return layout;
}

// The layout of rows held in plain arrays.
Layout RowsLayout(const DataSetAlignment::Rows& rows) {
  Layout layout;
  layout.name = rows.name;
  layout.rowCount = rows.count;
  if (rows.maturity >= rows.columns.size()) {
    throw NCError(
        ExceptionMessage::translate("The maturity is not a variable of dataset \"{1}\".") %
        rows.name);
  }
  layout.maturity = rows.columns[rows.maturity];
  const auto row = [](std::size_t i) { return static_cast<int>(i) + 1; };  // from 1
  bool ordered = rows.batchStarts.size() == rows.batches.size() &&
                 (rows.batchStarts.empty() ? rows.count == 0 : rows.batchStarts.front() == 0);
  for (std::size_t b = 0; ordered && b < rows.batchStarts.size(); ++b) {
    ordered = rows.batchStarts[b] <
              (b + 1 < rows.batchStarts.size() ? rows.batchStarts[b + 1] : rows.count);
    layout.batchStarts.push_back(row(rows.batchStarts[b]));
  }
  if (!ordered) throw InvalidArgument("DataSetAlignment: batches that are not runs of rows");
  layout.batchStarts.push_back(row(rows.count));
  layout.batchNames = rows.batches;
  layout.hasPhases = rows.phases != nullptr;
  if (layout.hasPhases) {
    // A run ends where the phase or the batch changes.
    std::size_t b = 0;
    for (std::size_t i = 0; i < rows.count; ++i) {
      const int phase = rows.phases[i];
      if (phase < 0 || static_cast<std::size_t>(phase) >= rows.phaseNames.size()) {
        throw InvalidArgument("DataSetAlignment: a phase outside the phase names");
      }
      const bool batchStarts = b < rows.batchStarts.size() && rows.batchStarts[b] == i;
      if (batchStarts) ++b;
      if (batchStarts || phase != layout.runPhases.back()) {
        layout.phaseRuns.push_back(row(i));
        layout.runPhases.push_back(phase);
      }
    }
    layout.phaseRuns.push_back(row(rows.count));
    layout.phaseTable = rows.phaseNames;
    layout.gridPhases = rows.phaseNames;
  }
  return layout;
}

// What aligning works from: the batches, the pieces of each batch that go onto one grid (the
// whole batch, or its phases), and the maturity as the grids see it.
struct Plan {
  std::vector<float> maturity;  // smoothed and rescaled as asked, kMissing where missing
  std::vector<std::string> phases{std::string()};  // one grid each
  std::vector<int> phaseIndex{-1};                 // each grid's phase in the layout's phase table
  std::vector<int> phasePoints;
  std::vector<Segment> segments;  // segments[b * phases + p], empty where a batch lacks p
  double front = 0;  // sums of the batches' first and last valid maturity: the direction
  double back = 0;

  std::size_t Batches(const Layout& layout) const { return layout.batchStarts.size() - 1; }
  // The lowest and highest maturity the segments of phase p reach (lo > hi: none).
  std::pair<float, float> Range(std::size_t p) const {
    float lo = std::numeric_limits<float>::max();
    float hi = std::numeric_limits<float>::lowest();
    for (std::size_t k = p; k < segments.size(); k += phases.size()) {
      for (std::size_t i = segments[k].begin; i < segments[k].end; ++i) {
        if (maturity[i] == kMissing) continue;
        lo = std::min(lo, maturity[i]);
        hi = std::max(hi, maturity[i]);
      }
    }
    return {lo, hi};
  }
};

Plan MakePlan(Layout& layout, int wholePoints,
              const std::vector<std::pair<std::string, int>>& wantedPoints, bool relative,
              bool smooth) {
  Plan plan;
  const bool phaseWise = !wantedPoints.empty();
  if (!phaseWise && wholePoints < 1) {
    throw NCError(ExceptionMessage::translate("The grid needs at least one point."));
  }
  for (const auto& [phase, points] : wantedPoints) {
    if (points < 1) {
      throw NCError(ExceptionMessage::translate("Phase {1} needs at least one point.") % phase);
    }
  }
  const std::size_t rowCount = layout.rowCount;
  const std::size_t batchCount = plan.Batches(layout);
  const auto batchRows = [&layout](std::size_t b) {
    return Segment{static_cast<std::size_t>(layout.batchStarts[b] - 1),
                   static_cast<std::size_t>(layout.batchStarts[b + 1] - 1)};
  };

  // The maturity, non-finite values missing, smoothed batch by batch when asked.
  std::vector<float>& maturity = plan.maturity;
  maturity.resize(rowCount);
  for (std::size_t i = 0; i < rowCount; ++i) {
    maturity[i] = std::isfinite(layout.maturity[i]) ? layout.maturity[i] : kMissing;
  }
  std::vector<int> batchCounts(batchCount);
  for (std::size_t b = 0; b < batchCount; ++b) {
    const Segment batch = batchRows(b);
    batchCounts[b] = static_cast<int>(batch.end - batch.begin);
    float first = 0;
    float last = 0;
    if (!smooth || !Ends(maturity, batch, first, last)) continue;
    NCDataVector<float> values(batch.end - batch.begin);
    std::copy(maturity.begin() + batch.begin, maturity.begin() + batch.end, values.begin());
    const NCDataVector<float> smoothed =
        Smooth::SmoothVector(&values, nullptr, first, last, nullptr, false);
    std::copy(smoothed.begin(), smoothed.end(), maturity.begin() + batch.begin);
  }
  std::tie(plan.front, plan.back) =
      BatchUtilities::SumMaturityEnds(maturity.data(), maturity.size(), batchCounts);

  // The segments of every batch: the whole batch, or its phases in the order of the list.
  plan.phasePoints = {wholePoints};
  if (phaseWise) {
    plan.phases.clear();
    plan.phaseIndex.clear();
    plan.phasePoints.clear();
    for (const std::string& phase : layout.gridPhases) {
      const auto wanted = FindPhase(wantedPoints, phase);
      if (wanted == wantedPoints.end()) {
        throw NCError(ExceptionMessage::translate("Phase {1} has no number of points.") % phase);
      }
      plan.phases.push_back(phase);
      plan.phasePoints.push_back(wanted->second);
      auto known = std::find(layout.phaseTable.begin(), layout.phaseTable.end(), phase);
      if (known == layout.phaseTable.end()) {
        known = layout.phaseTable.insert(layout.phaseTable.end(), phase);
      }
      plan.phaseIndex.push_back(static_cast<int>(known - layout.phaseTable.begin()));
    }
    if (plan.phases.empty()) {
      throw NCError(ExceptionMessage::translate("Dataset \"{1}\" has no phases.") % layout.name);
    }
  }
  const std::size_t phaseCount = plan.phases.size();
  std::vector<Segment>& segments = plan.segments;
  segments.assign(batchCount * phaseCount, Segment{0, 0});
  if (phaseWise) {
    // Each phase of the table to its grid, or phaseCount when it has none.
    std::vector<std::size_t> gridOf(layout.phaseTable.size(), phaseCount);
    for (std::size_t p = 0; p < phaseCount; ++p) {
      gridOf[static_cast<std::size_t>(plan.phaseIndex[p])] = p;
    }
    const std::vector<int>& runs = layout.phaseRuns;
    std::size_t b = 0;
    for (std::size_t r = 0; r + 1 < runs.size(); ++r) {
      while (b + 1 < batchCount && runs[r] >= layout.batchStarts[b + 1]) ++b;
      const auto phase = static_cast<std::size_t>(layout.runPhases[r]);
      const std::size_t p = gridOf[phase];
      if (p == phaseCount) continue;
      Segment& segment = segments[b * phaseCount + p];
      if (segment.end > segment.begin) {
        throw NCError(ExceptionMessage::translate("Phase {1} of batch {2} is not in one piece.") %
                      layout.phaseTable[phase] % layout.batchNames[b]);
      }
      segment =
          Segment{static_cast<std::size_t>(runs[r] - 1), static_cast<std::size_t>(runs[r + 1] - 1)};
    }
  } else {
    for (std::size_t b = 0; b < batchCount; ++b) segments[b] = batchRows(b);
  }

  // With relative maturity each segment is rescaled to 0-100 % of its own range.
  if (relative) {
    for (const Segment& segment : segments) {
      float first = 0;
      float last = 0;
      const bool usable = Ends(maturity, segment, first, last) && first != last;
      for (std::size_t i = segment.begin; i < segment.end; ++i) {
        if (!usable) {
          maturity[i] = kMissing;
        } else if (maturity[i] != kMissing) {
          maturity[i] = (maturity[i] - first) / (last - first) * 100.0F;
        }
      }
    }
  }
  return plan;
}

DataSetAlignment::Extent MeasurePlan(const Plan& plan) {
  DataSetAlignment::Extent extent;
  for (std::size_t p = 0; p < plan.phases.size(); ++p) {
    extent.ranges.emplace_back(plan.phases[p], plan.Range(p));
  }
  extent.front = plan.front;
  extent.back = plan.back;
  return extent;
}

}  // namespace
}  // namespace ncds::detail

void DataSetAlignment::Extent::Add(const Extent& other) {
  for (const auto& [phase, range] : other.ranges) {
    const auto known = ncds::detail::FindPhase(ranges, phase);
    if (known == ranges.end()) {
      ranges.emplace_back(phase, range);
    } else {
      known->second.first = std::min(known->second.first, range.first);
      known->second.second = std::max(known->second.second, range.second);
    }
  }
  front += other.front;
  back += other.back;
}

std::optional<DataSetAlignment::Extent> DataSetAlignment::GetGridExtent() const {
  if (mAligners.empty()) return std::nullopt;
  Extent extent;
  bool ascending = true;
  for (const auto& [phase, aligner] : mAligners) {
    const NCDataVector<float>* grid = aligner.GetTimeMaturityVector();
    if (!grid || grid->size() == 0) return std::nullopt;
    const float first = (*grid)[0];
    const float last = (*grid)[grid->size() - 1];
    extent.ranges.emplace_back(phase, std::make_pair(std::min(first, last), std::max(first, last)));
    ascending = aligner.IsAscending();
  }
  // Only the direction of the sums counts.
  extent.front = ascending ? 0 : 1;
  extent.back = ascending ? 1 : 0;
  return extent;
}

DataSetAlignment::Extent DataSetAlignment::Measure(NCDataSet& source) const {
  namespace d = ncds::detail;
  d::Layout layout = d::DataSetLayout(source, mMaturityID);
  return d::MeasurePlan(d::MakePlan(layout, mPoints, mPhasePoints, mRelative, mSmooth));
}

DataSetAlignment::Extent DataSetAlignment::Measure(const Rows& rows) const {
  namespace d = ncds::detail;
  d::Layout layout = d::RowsLayout(rows);
  return d::MeasurePlan(d::MakePlan(layout, mPoints, mPhasePoints, mRelative, mSmooth));
}

std::string DataSetAlignment::RowSuffix(int position, int points) {
  const std::string digits = std::to_string(position);
  const std::size_t width = std::max<std::size_t>(3, std::to_string(points).size());
  return "@" + std::string(width > digits.size() ? width - digits.size() : 0, '0') + digits;
}

std::string DataSetAlignment::RowName(const std::string& batch, int position, int points) {
  return batch + RowSuffix(position, points);
}

namespace ncds::detail {

// What the aligning of a layout gives, before it becomes a dataset or arrays.
struct AlignedRows {
  NCDataMatrix<float> values;
  std::vector<int> phases;  // every aligned row's phase in the layout's table; empty without
  int points = 0;
  int shortBatches = 0;
  int missingBatches = 0;
};

}  // namespace ncds::detail

ncds::detail::AlignedRows DataSetAlignment::AlignLayout(ncds::detail::Layout& layout,
                                                        const std::vector<const float*>& columns,
                                                        const std::vector<bool>& qualitative) {
  namespace d = ncds::detail;
  using d::kMissing;
  const d::Plan plan = d::MakePlan(layout, mPoints, mPhasePoints, mRelative, mSmooth);
  const std::size_t rowCount = layout.rowCount;
  const std::size_t batchCount = plan.Batches(layout);
  const std::vector<float>& maturity = plan.maturity;
  const std::vector<std::string>& phases = plan.phases;
  const std::vector<int>& phasePoints = plan.phasePoints;
  const std::vector<d::Segment>& segments = plan.segments;
  const std::size_t phaseCount = phases.size();
  const bool phaseWise = !mPhasePoints.empty();
  const bool ascending =
      mRelative || (mExtent ? mExtent->back >= mExtent->front : plan.back >= plan.front);

  // One grid per phase over the range its segments reach.
  d::AlignedRows result;
  std::vector<std::size_t> offsets(phaseCount);
  mAligners.clear();
  for (std::size_t p = 0; p < phaseCount; ++p) {
    std::pair<float, float> range;
    if (mExtent) {
      const auto fixed = d::FindPhase(mExtent->ranges, phases[p]);
      if (fixed == mExtent->ranges.end()) {
        throw NCError(ExceptionMessage::translate("The grids do not cover phase {1}.") % phases[p]);
      }
      range = fixed->second;
    } else {
      range = plan.Range(p);
    }
    const auto [lo, hi] = range;
    if (lo > hi) {
      throw NCError(ExceptionMessage::translate("The maturity has no values to align on."));
    }
    offsets[p] = static_cast<std::size_t>(result.points);
    result.points += phasePoints[p];
    const NCDataVector<float> grid =
        ascending ? d::Grid(lo, hi, phasePoints[p]) : d::Grid(hi, lo, phasePoints[p]);
    mAligners.emplace_back(phases[p], BatchAligner(grid, ascending, mExtend));
  }

  // Align every segment: the columns and, when the levels of qualitative columns or the
  // phases of the new rows come from their nearest row, the row positions.
  const std::size_t columnCount = columns.size();
  const std::size_t points = static_cast<std::size_t>(result.points);
  const bool byNearest =
      (layout.hasPhases && !phaseWise) ||
      std::find(qualitative.begin(), qualitative.end(), true) != qualitative.end();
  NCDataMatrix<float> aligned(batchCount * points, columnCount);
  std::vector<float> nearest(byNearest ? batchCount * points : 0, kMissing);
  std::vector<float> positions(byNearest ? rowCount : 0);
  for (std::size_t i = 0; i < positions.size(); ++i) positions[i] = static_cast<float>(i);
  const std::size_t alignedCount = columnCount + (byNearest ? 1 : 0);
  std::vector<const float*> in(alignedCount);
  std::vector<float*> out(alignedCount);
  for (std::size_t b = 0; b < batchCount; ++b) {
    bool isShort = false;
    bool isMissing = false;
    for (std::size_t p = 0; p < phaseCount; ++p) {
      const d::Segment& segment = segments[b * phaseCount + p];
      const std::size_t at = b * points + offsets[p];
      for (std::size_t c = 0; c < columnCount; ++c) {
        in[c] = columns[c] + segment.begin;
        out[c] = aligned.ColumnData(c) + at;
      }
      if (byNearest) {
        in[columnCount] = positions.data() + segment.begin;
        out[columnCount] = nearest.data() + at;
      }
      const BatchAligner& aligner = mAligners[p].second;
      try {
        aligner.AlignColumns(in.data(), alignedCount, maturity.data() + segment.begin,
                             static_cast<int>(segment.end - segment.begin), out.data());
      } catch (const NCError&) {
        mAligners.clear();
        throw NCError(ExceptionMessage::translate("The maturity of batch {1} is not monotone.") %
                      layout.batchNames[b]);
      }
      float first = 0;
      float last = 0;
      if (!d::Ends(maturity, segment, first, last)) {
        isMissing = true;
      } else {
        const NCDataVector<float>& grid = *aligner.GetTimeMaturityVector();
        isShort = isShort || BatchAligner::CompareTolerant(last, grid[grid.size() - 1]) != 0 ||
                  BatchAligner::CompareTolerant(first, grid[0]) != 0;
      }
    }
    result.shortBatches += isShort && !isMissing ? 1 : 0;
    result.missingBatches += isMissing ? 1 : 0;
  }
  for (std::size_t c = 0; c < columnCount; ++c) {
    if (!qualitative[c]) continue;
    float* values = aligned.ColumnData(c);
    const float* codes = columns[c];
    for (std::size_t r = 0; r < nearest.size(); ++r) {
      values[r] = nearest[r] == kMissing ? kMissing
                                         : codes[static_cast<std::size_t>(std::lround(nearest[r]))];
    }
  }

  // The phase of every new row: its grid's, or that of its nearest row (rows past a batch's
  // end keep the last phase seen, the first row's at the start).
  if (layout.hasPhases) {
    result.phases.resize(batchCount * points);
    // Phase-wise, a grid position's phase is the same in every batch.
    std::vector<int> gridPhases;
    for (std::size_t p = 0; phaseWise && p < phaseCount; ++p) {
      gridPhases.insert(gridPhases.end(), static_cast<std::size_t>(phasePoints[p]),
                        plan.phaseIndex[p]);
    }
    for (std::size_t b = 0; b < batchCount; ++b) {
      int lastPhase = layout.PhaseOf(static_cast<std::size_t>(layout.batchStarts[b] - 1));
      for (std::size_t j = 0; j < points; ++j) {
        const std::size_t r = b * points + j;
        if (phaseWise) {
          result.phases[r] = gridPhases[j];
        } else {
          if (nearest[r] != kMissing) {
            lastPhase = layout.PhaseOf(static_cast<std::size_t>(std::lround(nearest[r])));
          }
          result.phases[r] = lastPhase;
        }
      }
    }
  }
  result.values = std::move(aligned);
  return result;
}

DataSetAlignment::Result DataSetAlignment::Apply(NCDataSet& source, const std::string& name,
                                                 int number) {
  namespace d = ncds::detail;
  d::Layout layout = d::DataSetLayout(source, mMaturityID);
  const boost::shared_ptr<NCProjectBase> project = source.GetProject();
  NCObservations& observations = project->GetObservations();
  const NCIntegralVector<unsigned long, 0> varIDs = source.GetVarIDs();
  std::vector<const float*> columns(varIDs.size());
  std::vector<bool> qualitative(varIDs.size());
  for (std::size_t c = 0; c < varIDs.size(); ++c) {
    columns[c] = source.GetMatrix().ColumnData(c);
    const VariableInfo* variable = project->GetVariables()[varIDs[c]];
    qualitative[c] = variable && variable->IsQualitative();
  }
  d::AlignedRows aligned = AlignLayout(layout, columns, qualitative);
  const std::size_t batchCount = layout.batchStarts.size() - 1;
  const auto points = static_cast<std::size_t>(aligned.points);

  // The new rows' records, then the dataset; the records go again should that fail.
  const int batchSeries = observations.GetBatchIDRaw();
  const int phaseSeries = observations.GetPhaseIDRaw();
  const std::size_t idCount = static_cast<std::size_t>(std::max({1, batchSeries, phaseSeries}));
  VarObsInfoVector<ObservationInfo> infos;
  infos.reserve(batchCount * points);
  observations.Reserve(batchCount * points);
  NCIntegralVector<unsigned long, 0> added;
  Result result;
  try {
    std::vector<std::string> ids(idCount);
    std::vector<std::string> suffixes;
    for (int j = 1; j <= aligned.points; ++j) suffixes.push_back(RowSuffix(j, aligned.points));
    for (std::size_t b = 0; b < batchCount; ++b) {
      const std::string& batch = layout.batchNames[b];
      for (std::size_t j = 0; j < points; ++j) {
        std::fill(ids.begin(), ids.end(), std::string());
        ids[0] = batch + suffixes[j];
        if (batchSeries > 0) ids[static_cast<std::size_t>(batchSeries - 1)] = batch;
        if (phaseSeries > 0) {
          const int phase = aligned.phases[b * points + j];
          if (phase >= 0) {
            ids[static_cast<std::size_t>(phaseSeries - 1)] =
                layout.phaseTable[static_cast<std::size_t>(phase)];
          }
        }
        const unsigned long id = project->CreateUniqueID();
        infos.push_back(observations.Add(std::make_unique<ObservationInfo>(ids, id), nullptr));
        added.push_back(id);
      }
    }
    // The new rows have names, batches and phases only: the other ID series stay unused.
    std::vector<int> aliases;
    for (const int series : source.GetUsedObsAliases()) {
      if (series == 1 || series == batchSeries || series == phaseSeries) aliases.push_back(series);
    }
    if (std::find(aliases.begin(), aliases.end(), 1) == aliases.end()) {
      aliases.insert(aliases.begin(), 1);
    }
    const std::string log = (ExceptionMessage::translate("Aligned from dataset {1} \"{2}\".") %
                             source.GetNumber() % source.GetName())
                                .str();
    result.dataSet = NCDataSet::Create(project, name.c_str(), number, std::move(aligned.values),
                                       std::move(infos), &varIDs, aliases,
                                       source.GetUsedVarAliases(), log.c_str(), nullptr, nullptr);
    BatchUtilities::MakeBatchDataSet(*result.dataSet, batchSeries, std::max(phaseSeries, 0));
    result.dataSet->SetSource(result.dataSet->GetDataType(),
                              static_cast<unsigned long>(source.GetNumber()));
    mSourceBatches = SourceBatches::Of(observations, source.GetObservationInfoVector());
    result.dataSet->SetAlignment(this);
  } catch (...) {
    observations.DeleteVarObsInfos(added);
    throw;
  }
  result.batches = static_cast<int>(batchCount);
  result.points = aligned.points;
  result.shortBatches = aligned.shortBatches;
  result.missingBatches = aligned.missingBatches;
  return result;
}

DataSetAlignment::RowsResult DataSetAlignment::Apply(const Rows& rows) {
  namespace d = ncds::detail;
  d::Layout layout = d::RowsLayout(rows);
  d::AlignedRows aligned =
      AlignLayout(layout, rows.columns, std::vector<bool>(rows.columns.size(), false));
  RowsResult result;
  result.values = std::move(aligned.values);
  result.phases = std::move(aligned.phases);
  result.batches = static_cast<int>(layout.batchStarts.size() - 1);
  result.points = aligned.points;
  result.shortBatches = aligned.shortBatches;
  result.missingBatches = aligned.missingBatches;
  return result;
}

bool DataSetAlignment::VStreamableStartWrite(std::ostream& os) const {
  if (!mGuard.Enter()) return true;
  if (!msVStreamData.Write(os)) return false;
  namespace d = ncds::detail;
  OutputStreamDirectory directory(os, d::kAlignmentTags);
  bool ok = WriteToStreamDir(static_cast<std::uint32_t>(mMaturityID), directory, d::kTagMaturity) &&
            WriteToStreamDir(mRelative, directory, d::kTagRelative) &&
            WriteToStreamDir(mSmooth, directory, d::kTagSmooth) &&
            WriteToStreamDir(mExtend, directory, d::kTagExtend) &&
            WriteToStreamDir(static_cast<std::int32_t>(mPoints), directory, d::kTagPoints);
  if (ok) {
    std::ostream& phases = directory.GetOutput(d::kTagPhases);
    const auto count = static_cast<std::uint32_t>(mAligners.size());
    ok = WriteFourBytes(&count, 1, phases);
    for (const auto& [phase, aligner] : mAligners) {
      const auto wanted = ncds::detail::FindPhase(mPhasePoints, phase);
      const std::int32_t points = wanted == mPhasePoints.end() ? -1 : wanted->second;
      ok = ok && WriteBinaryString(phase, phases) && WriteFourBytes(&points, 1, phases) &&
           (phases << aligner);
    }
  }
  ok = ok && mSourceBatches.Write(directory.GetOutput(d::kTagSourceBatches));
  return directory.Close() && ok && static_cast<bool>(os);
}

bool DataSetAlignment::VStreamableStartRead(std::istream& is) {
  if (!mGuard.Enter()) return true;
  std::int16_t version = 0;
  if (!msVStreamData.Check(is, version) || version != ncds::detail::kAlignmentVersion) {
    return false;
  }
  return ReadStreamDirectory(is);
}

bool DataSetAlignment::ReadStreamDirectory(std::istream& is) {
  namespace d = ncds::detail;
  InputStreamDirectory directory(is);
  bool ok = true;
  try {
    std::uint32_t maturity = 0;
    std::int32_t points = 0;
    ReadFromStreamDir(maturity, directory, d::kTagMaturity, true);
    ReadFromStreamDir(mRelative, directory, d::kTagRelative, true);
    ReadFromStreamDir(mSmooth, directory, d::kTagSmooth, true);
    ReadFromStreamDir(mExtend, directory, d::kTagExtend, true);
    ReadFromStreamDir(points, directory, d::kTagPoints, true);
    std::istream* phases = directory.GetInput(d::kTagPhases);
    if (!phases) ThrowStreamReadError();
    std::uint32_t count = 0;
    ReadFourBytes(&count, 1, *phases);
    RequireStreamBytes(*phases, std::uint64_t{count} * 8);  // a name length and points each
    std::vector<std::pair<std::string, BatchAligner>> aligners;
    std::vector<std::pair<std::string, int>> phasePoints;
    for (std::uint32_t k = 0; k < count; ++k) {
      std::string phase;
      std::int32_t wanted = 0;
      ReadBinaryString(phase, *phases);
      ReadFourBytes(&wanted, 1, *phases);
      BatchAligner aligner;
      if (!(*phases >> aligner)) ThrowStreamReadError();
      if (wanted >= 0) phasePoints.emplace_back(phase, wanted);
      aligners.emplace_back(std::move(phase), std::move(aligner));
    }
    SourceBatches sourceBatches;
    if (std::istream* batches = directory.GetInput(d::kTagSourceBatches)) {
      sourceBatches.Read(*batches);
    }
    mSourceBatches = std::move(sourceBatches);
    mMaturityID = maturity;
    mPoints = points;
    mPhasePoints = std::move(phasePoints);
    mAligners = std::move(aligners);
  } catch (const VxStreamError&) {
    ok = false;
  }
  directory.Close();
  return ok && static_cast<bool>(is);
}

void DataSetAlignment::VStreamableReset() const { mGuard.Reset(); }
