#include "ncds/batch/DataSetAlignment.h"

#include <algorithm>
#include <cmath>
#include <istream>
#include <limits>
#include <memory>
#include <ostream>
#include <tuple>

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
constexpr std::uint16_t kAlignmentTags = 6;
constexpr std::uint16_t kTagMaturity = 0;
constexpr std::uint16_t kTagRelative = 1;
constexpr std::uint16_t kTagSmooth = 2;
constexpr std::uint16_t kTagExtend = 3;
constexpr std::uint16_t kTagPoints = 4;
constexpr std::uint16_t kTagPhases = 5;

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

std::string RowName(const std::string& batch, int position, int points) {
  const std::string digits = std::to_string(position);
  const std::size_t width = std::max<std::size_t>(3, std::to_string(points).size());
  return batch + "@" + std::string(width > digits.size() ? width - digits.size() : 0, '0') + digits;
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
      mAligners.size() != other.mAligners.size()) {
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
namespace {

// What aligning a dataset works from: the batches, the pieces of each batch that go onto one
// grid (the whole batch, or its phases), and the maturity as the grids see it.
struct Plan {
  boost::shared_ptr<NCProjectBase> project;
  std::vector<int> batchStarts;  // the first row (from 1) of every batch, then rows + 1
  std::vector<float> maturity;   // smoothed and rescaled as asked, kMissing where missing
  std::vector<std::string> phases{std::string()};  // one grid each
  std::vector<int> phasePoints;
  std::vector<Segment> segments;  // segments[b * phases + p], empty where a batch lacks p
  double front = 0;  // sums of the batches' first and last valid maturity: the direction
  double back = 0;

  std::size_t Batches() const { return batchStarts.size() - 1; }
  std::string BatchName(const NCDataSet& source, std::size_t b) const {
    const ObservationInfo* row =
        source.GetObservationInfoVector()[static_cast<std::size_t>(batchStarts[b] - 1)];
    return row ? row->GetBatchName(project->GetObservations()) : std::string();
  }
  // The lowest and highest maturity the segments of phase p reach (lo > hi: none).
  std::pair<float, float> Range(std::size_t p) const {
    float lo = std::numeric_limits<float>::max();
    float hi = std::numeric_limits<float>::lowest();
    for (std::size_t b = 0; b < Batches(); ++b) {
      const Segment& segment = segments[b * phases.size() + p];
      for (std::size_t i = segment.begin; i < segment.end; ++i) {
        if (maturity[i] == kMissing) continue;
        lo = std::min(lo, maturity[i]);
        hi = std::max(hi, maturity[i]);
      }
    }
    return {lo, hi};
  }
};

Plan MakePlan(NCDataSet& source, unsigned long maturityID, int wholePoints,
              const std::vector<std::pair<std::string, int>>& wantedPoints, bool relative,
              bool smooth) {
  Plan plan;
  plan.project = source.GetProject();
  if (!plan.project || !source.GetBatchInfoVector()) {
    throw NCError(ExceptionMessage::translate("Dataset \"{1}\" is not a batch dataset.") %
                  source.GetName());
  }
  NCObservations& observations = plan.project->GetObservations();
  const int maturityColumn = source.GetVarIDs().Find(maturityID);
  if (maturityColumn < 0) {
    throw NCError(
        ExceptionMessage::translate("The maturity is not a variable of dataset \"{1}\".") %
        source.GetName());
  }
  const bool phaseWise = !wantedPoints.empty();
  if (!phaseWise && wholePoints < 1) {
    throw NCError(ExceptionMessage::translate("The grid needs at least one point."));
  }
  for (const auto& [phase, points] : wantedPoints) {
    if (points < 1) {
      throw NCError(ExceptionMessage::translate("Phase {1} needs at least one point.") % phase);
    }
  }

  // The batches (and phase runs) of the rows.
  const auto& rows = source.GetObservationInfoVector();
  const std::size_t rowCount = rows.size();
  plan.batchStarts = BatchUtilities::GetRunStarts(observations, rows, false);
  plan.batchStarts.push_back(static_cast<int>(rowCount) + 1);
  const std::size_t batchCount = plan.Batches();
  const auto batchRows = [&plan](std::size_t b) {
    return Segment{static_cast<std::size_t>(plan.batchStarts[b] - 1),
                   static_cast<std::size_t>(plan.batchStarts[b + 1] - 1)};
  };

  // The maturity, non-finite values missing, smoothed batch by batch when asked.
  std::vector<float>& maturity = plan.maturity;
  maturity.resize(rowCount);
  const float* column = source.GetMatrix().ColumnData(static_cast<std::size_t>(maturityColumn));
  for (std::size_t i = 0; i < rowCount; ++i) {
    maturity[i] = std::isfinite(column[i]) ? column[i] : kMissing;
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
    plan.phasePoints.clear();
    if (source.GetPhaseInfoVector()) {
      const auto names = BatchUtilities::GetPhaseNames(*source.GetPhaseInfoVector(), false);
      for (const std::string& phase : names->GetVector()) {
        const auto wanted = FindPhase(wantedPoints, phase);
        if (wanted == wantedPoints.end()) {
          throw NCError(ExceptionMessage::translate("Phase {1} has no number of points.") % phase);
        }
        plan.phases.push_back(phase);
        plan.phasePoints.push_back(wanted->second);
      }
    }
    if (plan.phases.empty()) {
      throw NCError(ExceptionMessage::translate("Dataset \"{1}\" has no phases.") %
                    source.GetName());
    }
  }
  const std::size_t phaseCount = plan.phases.size();
  std::vector<Segment>& segments = plan.segments;
  segments.assign(batchCount * phaseCount, Segment{0, 0});
  if (phaseWise) {
    std::vector<int> runs = BatchUtilities::GetRunStarts(observations, rows, true);
    runs.push_back(static_cast<int>(rowCount) + 1);
    std::size_t b = 0;
    for (std::size_t r = 0; r + 1 < runs.size(); ++r) {
      while (b + 1 < batchCount && runs[r] >= plan.batchStarts[b + 1]) ++b;
      const ObservationInfo* row = rows[static_cast<std::size_t>(runs[r] - 1)];
      const std::string phase = row ? row->GetPhaseName(observations) : std::string();
      const std::size_t p = static_cast<std::size_t>(
          std::find(plan.phases.begin(), plan.phases.end(), phase) - plan.phases.begin());
      if (p == phaseCount) continue;
      Segment& segment = segments[b * phaseCount + p];
      if (segment.end > segment.begin) {
        throw NCError(ExceptionMessage::translate("Phase {1} of batch {2} is not in one piece.") %
                      phase % plan.BatchName(source, b));
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

DataSetAlignment::Extent DataSetAlignment::Measure(NCDataSet& source) const {
  const ncds::detail::Plan plan =
      ncds::detail::MakePlan(source, mMaturityID, mPoints, mPhasePoints, mRelative, mSmooth);
  Extent extent;
  for (std::size_t p = 0; p < plan.phases.size(); ++p) {
    extent.ranges.emplace_back(plan.phases[p], plan.Range(p));
  }
  extent.front = plan.front;
  extent.back = plan.back;
  return extent;
}

DataSetAlignment::Result DataSetAlignment::Apply(NCDataSet& source, const std::string& name,
                                                 int number) {
  namespace d = ncds::detail;
  using d::kMissing;
  const d::Plan plan = d::MakePlan(source, mMaturityID, mPoints, mPhasePoints, mRelative, mSmooth);
  const boost::shared_ptr<NCProjectBase>& project = plan.project;
  NCObservations& observations = project->GetObservations();
  const auto& rows = source.GetObservationInfoVector();
  const std::size_t rowCount = rows.size();
  const std::size_t batchCount = plan.Batches();
  const std::vector<float>& maturity = plan.maturity;
  const std::vector<std::string>& phases = plan.phases;
  const std::vector<int>& phasePoints = plan.phasePoints;
  const std::vector<d::Segment>& segments = plan.segments;
  const std::size_t phaseCount = phases.size();
  const bool phaseWise = !mPhasePoints.empty();
  const bool ascending =
      mRelative || (mExtent ? mExtent->back >= mExtent->front : plan.back >= plan.front);

  // One grid per phase over the range its segments reach.
  Result result;
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

  // Align every segment: the columns, and the row positions, whose nearest row gives the
  // levels of qualitative columns and the phase of the new row.
  const NCIntegralVector<unsigned long, 0> varIDs = source.GetVarIDs();
  const std::size_t columns = varIDs.size();
  const std::size_t points = static_cast<std::size_t>(result.points);
  std::vector<bool> qualitative(columns);
  for (std::size_t c = 0; c < columns; ++c) {
    const VariableInfo* variable = project->GetVariables()[varIDs[c]];
    qualitative[c] = variable && variable->IsQualitative();
  }
  NCDataMatrix<float> aligned(batchCount * points, columns);
  std::vector<float> nearest(batchCount * points, kMissing);
  std::vector<float> positions(rowCount);
  for (std::size_t i = 0; i < rowCount; ++i) positions[i] = static_cast<float>(i);
  std::vector<const float*> in(columns + 1);
  std::vector<float*> out(columns + 1);
  const NCDataMatrix<float>& data = source.GetMatrix();
  for (std::size_t b = 0; b < batchCount; ++b) {
    bool isShort = false;
    bool isMissing = false;
    for (std::size_t p = 0; p < phaseCount; ++p) {
      const d::Segment& segment = segments[b * phaseCount + p];
      const std::size_t at = b * points + offsets[p];
      for (std::size_t c = 0; c < columns; ++c) {
        in[c] = data.ColumnData(c) + segment.begin;
        out[c] = aligned.ColumnData(c) + at;
      }
      in[columns] = positions.data() + segment.begin;
      out[columns] = nearest.data() + at;
      const BatchAligner& aligner = mAligners[p].second;
      try {
        aligner.AlignColumns(in.data(), columns + 1, maturity.data() + segment.begin,
                             static_cast<int>(segment.end - segment.begin), out.data());
      } catch (const NCError&) {
        mAligners.clear();
        throw NCError(ExceptionMessage::translate("The maturity of batch {1} is not monotone.") %
                      plan.BatchName(source, b));
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
  for (std::size_t c = 0; c < columns; ++c) {
    if (!qualitative[c]) continue;
    float* values = aligned.ColumnData(c);
    const float* codes = data.ColumnData(c);
    for (std::size_t r = 0; r < nearest.size(); ++r) {
      values[r] = nearest[r] == kMissing ? kMissing
                                         : codes[static_cast<std::size_t>(std::lround(nearest[r]))];
    }
  }

  // The new rows' records, then the dataset; the records go again should that fail.
  const int batchSeries = observations.GetBatchIDRaw();
  const int phaseSeries = observations.GetPhaseIDRaw();
  const std::size_t idCount = static_cast<std::size_t>(std::max({1, batchSeries, phaseSeries}));
  VarObsInfoVector<ObservationInfo> infos;
  infos.reserve(batchCount * points);
  observations.Reserve(batchCount * points);
  NCIntegralVector<unsigned long, 0> added;
  try {
    std::vector<std::string> ids(idCount);
    for (std::size_t b = 0; b < batchCount; ++b) {
      const std::string batch = plan.BatchName(source, b);
      // Rows past a batch's end keep the last phase seen, the first row's at the start.
      const ObservationInfo* head = rows[static_cast<std::size_t>(plan.batchStarts[b] - 1)];
      std::string lastPhase = head && phaseSeries > 0 ? head->GetPhaseName(observations) : "";
      for (std::size_t j = 0; j < points; ++j) {
        std::fill(ids.begin(), ids.end(), std::string());
        ids[0] = d::RowName(batch, static_cast<int>(j + 1), result.points);
        if (batchSeries > 0) ids[static_cast<std::size_t>(batchSeries - 1)] = batch;
        if (phaseSeries > 0) {
          std::string phase;
          if (phaseWise) {
            const std::size_t p = static_cast<std::size_t>(
                std::upper_bound(offsets.begin(), offsets.end(), j) - offsets.begin() - 1);
            phase = phases[p];
          } else {
            if (nearest[b * points + j] != kMissing) {
              const ObservationInfo* row =
                  rows[static_cast<std::size_t>(std::lround(nearest[b * points + j]))];
              if (row) lastPhase = row->GetPhaseName(observations);
            }
            phase = lastPhase;
          }
          ids[static_cast<std::size_t>(phaseSeries - 1)] = phase;
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
    result.dataSet = NCDataSet::Create(project, name.c_str(), number, std::move(aligned),
                                       std::move(infos), &varIDs, aliases,
                                       source.GetUsedVarAliases(), log.c_str(), nullptr, nullptr);
    BatchUtilities::MakeBatchDataSet(*result.dataSet, batchSeries, std::max(phaseSeries, 0));
    result.dataSet->SetSource(result.dataSet->GetDataType(),
                              static_cast<unsigned long>(source.GetNumber()));
    result.dataSet->SetAlignment(this);
  } catch (...) {
    observations.DeleteVarObsInfos(added);
    throw;
  }
  result.batches = static_cast<int>(batchCount);
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
