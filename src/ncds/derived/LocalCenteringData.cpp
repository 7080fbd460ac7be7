#include "ncds/derived/LocalCenteringData.h"

#include <algorithm>
#include <cstring>
#include <istream>
#include <limits>
#include <ostream>
#include <unordered_map>

#include "ncds/dataset/NCProjectBase.h"
#include "ncds/foundations/Exception.h"
#include "ncds/foundations/InputStreamDirectory.h"
#include "ncds/foundations/OutputStreamDirectory.h"
#include "ncds/foundations/StreamPrimitives.h"
#include "ncds/foundations/detail/Prefetch.h"
#include "ncds/metadata/NCVariables.h"
#include "ncds/metadata/ObservationInfo.h"
#include "ncds/metadata/VariableInfo.h"
#include "ncds/metadata/detail/UserIDAt.h"

namespace ncds::detail {
namespace {

constexpr float kMissing = -99.0F;
constexpr std::uint32_t kMissingBits = 0xC2C60000U;  // the bits of -99.0F

// `value` - `center`, or `value` itself when it is missing. The choice is made on the bits
// with integer operations only: GCC vectorizes that loop under the default floating-point
// rules, where a float compare or select would keep it scalar.
inline float SubtractUnlessMissing(float value, float center) {
  const float centered = value - center;
  std::uint32_t bits = 0;
  std::uint32_t centeredBits = 0;
  std::memcpy(&bits, &value, sizeof bits);
  std::memcpy(&centeredBits, &centered, sizeof centeredBits);
  const std::uint32_t keep = 0U - static_cast<std::uint32_t>(bits == kMissingBits);
  const std::uint32_t result = (bits & keep) | (centeredBits & ~keep);
  float out = 0.0F;
  std::memcpy(&out, &result, sizeof out);
  return out;
}

// Subtracts `center` (one for all cells, or one per cell) from the `count` cells at `column`.
void SubtractKeepingMissing(float* column, std::size_t count, float center) {
  for (std::size_t r = 0; r < count; ++r) column[r] = SubtractUnlessMissing(column[r], center);
}
void SubtractKeepingMissing(float* __restrict column, std::size_t count,
                            const float* __restrict centers) {
  for (std::size_t r = 0; r < count; ++r) column[r] = SubtractUnlessMissing(column[r], centers[r]);
}

constexpr std::int16_t kLCDVersion = 1;
constexpr std::uint16_t kLCDTags = 1;
constexpr std::uint16_t kTagCenters = 1;

using Key = LocalCenteringData::Key;
using FirstKeys = LocalCenteringData::FirstKeys;
using Rows = VarObsInfoVector<ObservationInfo>;

Key Normalised(int index, const char* value) {
  if (index < 1 || !value || !*value) return Key(-1, std::string());
  return Key(index, value);
}

// Rows [begin, end) take `value`: the center numbered `center` (in key order), or the
// defaults' when `unmatched`.
struct Run {
  std::size_t begin;
  std::size_t end;
  float value;
  bool unmatched;
  int center = -1;
};

// Whether two variables' centers have the same keys, so that rows find the same ones.
bool SameKeys(const FirstKeys& a, const FirstKeys& b) {
  return a.size() == b.size() &&
         std::equal(a.begin(), a.end(), b.begin(), [](const auto& x, const auto& y) {
           return x.first == y.first && x.second.size() == y.second.size() &&
                  std::equal(x.second.begin(), x.second.end(), y.second.begin(),
                             [](const auto& u, const auto& v) { return u.first == v.first; });
         });
}

// The centers in key order.
std::vector<float> Flat(const FirstKeys& centers) {
  std::vector<float> values;
  for (const auto& entry : centers) {
    for (const auto& center : entry.second) values.push_back(center.second);
  }
  return values;
}

// The runs of rows whose identifiers agree in every series of `series`; a row without a
// record is a run of its own. Computed once per set of series and shared by the variables.
class Partitions {
 public:
  static constexpr std::size_t kRecordAhead = 16;
  static constexpr std::size_t kIDsAhead = 8;

  explicit Partitions(const Rows& rows) : mRows(rows) {}

  const std::vector<std::size_t>& Starts(const std::vector<int>& series) {
    auto found = mStarts.find(series);
    if (found != mStarts.end()) return found->second;
    std::vector<std::size_t> starts;
    const ObservationInfo* previous = nullptr;
    const std::size_t count = mRows.size();
    for (std::size_t r = 0; r < count; ++r) {
      // The records lie apart in memory: fetch a record some rows ahead, and the IDs of one
      // that has arrived by now, so that the comparisons below do not wait for memory.
      if (r + kRecordAhead < count) Prefetch(mRows[r + kRecordAhead]);
      if (r + kIDsAhead < count && mRows[r + kIDsAhead]) {
        Prefetch(mRows[r + kIDsAhead]->GetUserIDs().data());
      }
      const ObservationInfo* row = mRows[r];
      bool same = row && previous;
      for (std::size_t k = 0; same && k < series.size(); ++k) {
        same = UserIDAt(*row, series[k]) == UserIDAt(*previous, series[k]);
      }
      if (!same) starts.push_back(r);
      previous = row;
    }
    return mStarts.emplace(series, std::move(starts)).first->second;
  }

 private:
  const Rows& mRows;
  std::map<std::vector<int>, std::vector<std::size_t>> mStarts;
};

// The distinct series of a level of keys, ascending (the order in which keys are tried).
template <class Map>
std::vector<int> SeriesOf(const Map& keys) {
  std::vector<int> series;
  for (const auto& entry : keys) {
    if (series.empty() || series.back() != entry.first.first) series.push_back(entry.first.first);
  }
  return series;
}

// The first key of `keys` (tried series by series) that matches `row`, or end.
template <class Map>
typename Map::const_iterator Match(const Map& keys, const std::vector<int>& series,
                                   const ObservationInfo& row) {
  for (const int index : series) {
    // The empty key's series (-1) has the empty identifier, which it matches.
    const auto found = keys.find(Key(index, row.GetUserID(index)));
    if (found != keys.end()) return found;
  }
  return keys.end();
}

// The runs of one variable's centers over `rows` (numbering the centers, so that variables
// with the same keys share them), and whether a matching key used the batch-identifier series.
std::vector<Run> CenterRuns(const FirstKeys& centers, const Rows& rows, int batchSeries,
                            Partitions& partitions, bool& usedBatch) {
  const std::vector<int> firstSeries = SeriesOf(centers);
  std::vector<int> all = firstSeries;
  for (const auto& [first, seconds] : centers) {
    const std::vector<int> more = SeriesOf(seconds);
    all.insert(all.end(), more.begin(), more.end());
  }
  std::sort(all.begin(), all.end());
  all.erase(std::unique(all.begin(), all.end()), all.end());
  all.erase(std::remove(all.begin(), all.end(), -1), all.end());
  const std::vector<std::size_t>& starts = partitions.Starts(all);

  std::unordered_map<const float*, int> numbers;
  for (const auto& entry : centers) {
    for (const auto& center : entry.second) {
      numbers.emplace(&center.second, static_cast<int>(numbers.size()));
    }
  }
  std::vector<Run> runs;
  runs.reserve(starts.size());
  // The run being continued: its first row and the series of its two keys.
  const ObservationInfo* matchStart = nullptr;
  int series1 = -1;
  int series2 = -1;
  for (std::size_t s = 0; s < starts.size(); ++s) {
    const std::size_t begin = starts[s];
    const std::size_t end = s + 1 < starts.size() ? starts[s + 1] : rows.size();
    const ObservationInfo* row = rows[begin];
    if (!row) {
      runs.push_back(Run{begin, end, 0.0F, false});
      matchStart = nullptr;
      continue;
    }
    if (matchStart && row->GetUserID(series1) == matchStart->GetUserID(series1) &&
        row->GetUserID(series2) == matchStart->GetUserID(series2)) {
      runs.back().end = end;
      continue;
    }
    matchStart = nullptr;
    const auto first = Match(centers, firstSeries, *row);
    if (first != centers.end()) {
      const auto second = Match(first->second, SeriesOf(first->second), *row);
      if (second != first->second.end()) {
        runs.push_back(Run{begin, end, 0.0F, false, numbers.at(&second->second)});
        matchStart = row;
        series1 = first->first.first;
        series2 = second->first.first;
        usedBatch = usedBatch || (batchSeries != std::numeric_limits<int>::min() &&
                                  (series1 == batchSeries || series2 == batchSeries));
        continue;
      }
    }
    runs.push_back(Run{begin, end, 0.0F, true});
  }
  return runs;
}

// The centers of one variable over the rows: runs shared with the variables of the same keys
// (each run's center numbered into `values`), or runs of its own.
struct VariableCenters {
  unsigned long varID = 0;
  const std::vector<Run>* shared = nullptr;
  const std::vector<float>* values = nullptr;
  std::vector<Run> own;

  const std::vector<Run>& Runs() const { return shared ? *shared : own; }
  float ValueOf(const Run& run) const {
    return run.center >= 0 && values ? (*values)[static_cast<std::size_t>(run.center)] : run.value;
  }
};

// The centers of every variable of `varIDs` that has a center other than 0 somewhere, with
// the defaults in `defaults`; a variable without centers takes its defaults when it has any.
// Rows are matched once for all the variables that share their keys (`matched` keeps them).
std::vector<VariableCenters> VariableRuns(
    const std::map<std::uint32_t, FirstKeys>& store,
    const std::map<std::uint32_t, std::vector<float>>& values,
    const std::map<std::uint32_t, std::uint32_t>& keysOf, const Rows& rows,
    const NCIntegralVector<unsigned long, 0>& varIDs, const NCProjectBase& project,
    const DefaultCenterValues& defaults,
    std::map<std::uint32_t, std::pair<std::vector<Run>, bool>>& matched) {
  const int designated = project.GetBatchIdentifierSeries();
  const int batchSeries = designated > 0 ? designated : std::numeric_limits<int>::min();
  Partitions partitions(rows);
  std::vector<VariableCenters> result;
  for (const unsigned long varID : varIDs) {
    const auto id = static_cast<std::uint32_t>(varID);
    VariableCenters centers;
    centers.varID = varID;
    bool withDefaults = defaults.HasVar(varID);
    if (store.count(id) == 0) {
      if (!withDefaults) continue;
      centers.own.push_back(Run{0, rows.size(), 0.0F, true});
    } else {
      const std::uint32_t keys = keysOf.at(id);
      auto found = matched.find(keys);
      if (found == matched.end()) {
        bool usedBatch = false;
        std::vector<Run> keyRuns =
            CenterRuns(store.at(keys), rows, batchSeries, partitions, usedBatch);
        found = matched.emplace(keys, std::make_pair(std::move(keyRuns), usedBatch)).first;
      }
      centers.shared = &found->second.first;
      centers.values = &values.at(id);
      withDefaults = withDefaults && found->second.second;
    }
    // Rows without a center take their default row by row (in runs of their own), or keep 0.
    const std::vector<Run>& runs = centers.Runs();
    if (withDefaults &&
        std::any_of(runs.begin(), runs.end(), [](const Run& run) { return run.unmatched; })) {
      std::vector<Run> expanded;
      expanded.reserve(runs.size());
      for (const Run& run : runs) {
        if (!run.unmatched) {
          expanded.push_back(Run{run.begin, run.end, centers.ValueOf(run), false});
          continue;
        }
        for (std::size_t r = run.begin; r < run.end; ++r) {
          const ObservationInfo* row = rows[r];
          const float value = row ? defaults.GetDefaultValue(varID, *row) : 0.0F;
          if (!expanded.empty() && expanded.back().end == r && expanded.back().value == value) {
            expanded.back().end = r + 1;
          } else {
            expanded.push_back(Run{r, r + 1, value, false});
          }
        }
      }
      centers.own = std::move(expanded);
      centers.shared = nullptr;
      centers.values = nullptr;
    }
    const std::vector<Run>& final = centers.Runs();
    const bool allZero = std::all_of(final.begin(), final.end(), [&centers](const Run& run) {
      return centers.ValueOf(run) == 0.0F;
    });
    if (!allZero) result.push_back(std::move(centers));
  }
  return result;
}

void ThrowInternal(const char* function) { throw NCInternalError(function); }

}  // namespace
}  // namespace ncds::detail

const VStreamableData LocalCenteringData::msVStreamData(ncds::detail::kLCDVersion, "LCD");

LocalCenteringData::LocalCenteringData() = default;

LocalCenteringData::LocalCenteringData(const LocalCenteringData& other)
    : VStreamBase(other), mCenters(other.mCenters) {}

LocalCenteringData& LocalCenteringData::operator=(const LocalCenteringData& other) {
  if (this != &other) {
    mCenters = other.mCenters;
    Changed();
  }
  return *this;
}

LocalCenteringData::~LocalCenteringData() = default;

void LocalCenteringData::Changed() {
  mAliasesKnown = false;
  mUsedAliases.clear();
  mLayout.reset();
}

const LocalCenteringData::Layout& LocalCenteringData::GetLayout() const {
  namespace d = ncds::detail;
  if (!mLayout) {
    auto layout = std::make_unique<Layout>();
    const FirstKeys* previous = nullptr;
    std::uint32_t previousID = 0;
    for (const auto& [varID, centers] : mCenters) {
      layout->values.emplace(varID, d::Flat(centers));
      if (!previous || !d::SameKeys(*previous, centers)) {
        previous = &centers;
        previousID = varID;
      }
      layout->keysOf.emplace(varID, previousID);
    }
    mLayout = std::move(layout);
  }
  return *mLayout;
}

void LocalCenteringData::AddInfo(float value, unsigned long varID, int index1, const char* value1,
                                 int index2, const char* value2) {
  namespace d = ncds::detail;
  mCenters[static_cast<std::uint32_t>(varID)][d::Normalised(index1, value1)]
          [d::Normalised(index2, value2)] = value;
  Changed();
}

DefaultCenterValues LocalCenteringData::GetDefaultCenters() const {
  DefaultCenterValues defaults;
  DefaultCenterValues::CenterTable table;
  for (const auto& [varID, firstKeys] : mCenters) {
    table.clear();
    for (const auto& [first, secondKeys] : firstKeys) {
      for (const auto& [second, center] : secondKeys)
        table.emplace(std::pair(first, second), center);
    }
    defaults.AddVar(varID, table);
  }
  return defaults;
}

float LocalCenteringData::GetInfo(unsigned long varID, int index1, const char* value1, int index2,
                                  const char* value2) const {
  namespace d = ncds::detail;
  const auto variable = mCenters.find(static_cast<std::uint32_t>(varID));
  if (variable == mCenters.end()) return d::kMissing;
  const auto mean = [](auto begin, auto end) {
    double sum = 0;
    std::size_t count = 0;
    for (auto first = begin; first != end; ++first) {
      for (const auto& entry : first->second) {
        sum += entry.second;
        ++count;
      }
    }
    return count == 0 ? d::kMissing : static_cast<float>(sum / static_cast<double>(count));
  };
  const auto first = variable->second.find(d::Normalised(index1, value1));
  if (first == variable->second.end())
    return mean(variable->second.begin(), variable->second.end());
  const d::Key second = d::Normalised(index2, value2);
  if (second.first == -1) return mean(first, std::next(first));
  const auto found = first->second.find(second);
  return found == first->second.end() ? d::kMissing : found->second;
}

void LocalCenteringData::Add(const LocalCenteringData& other) {
  for (const auto& [varID, firsts] : other.mCenters) {
    for (const auto& [first, seconds] : firsts) {
      for (const auto& [second, value] : seconds) mCenters[varID][first][second] = value;
    }
  }
  Changed();
}

NCIntegralVector<unsigned long, 0> LocalCenteringData::GetVariableIDs() const {
  NCIntegralVector<unsigned long, 0> ids;
  for (const auto& entry : mCenters) ids.push_back(entry.first);
  return ids;
}

const LocalCenteringData::FirstKeys* LocalCenteringData::GetCenters(unsigned long varID) const {
  const auto found = mCenters.find(static_cast<std::uint32_t>(varID));
  return found == mCenters.end() ? nullptr : &found->second;
}

bool LocalCenteringData::HasLocalCenteringData(
    const std::list<unsigned long>& varIDs, const VarObsInfoVector<ObservationInfo>& observations,
    const DefaultCenterValues* defaults) const {
  if (mCenters.empty() && (!defaults || defaults->SizeVars() == 0)) return false;
  for (const unsigned long varID : varIDs) {
    if (mCenters.count(static_cast<std::uint32_t>(varID))) return true;
    if (!defaults || !defaults->HasVar(varID)) continue;
    for (const ObservationInfo* row : observations) {
      if (row && !(defaults->GetDefaultValue(varID, *row) == 0.0F)) return true;
    }
  }
  return false;
}

bool LocalCenteringData::HasLocalCenteringData(const NCIntegralVector<unsigned long, 0>& varIDs,
                                               const std::vector<std::string>& observationNames,
                                               const DefaultCenterValues* defaults) const {
  if (mCenters.empty() && (!defaults || defaults->SizeVars() == 0)) return false;
  for (const unsigned long varID : varIDs) {
    if (mCenters.count(static_cast<std::uint32_t>(varID))) return true;
    if (!defaults || !defaults->HasVar(varID)) continue;
    for (const std::string& name : observationNames) {
      if (!(defaults->GetDefaultValue(varID, name) == 0.0F)) return true;
    }
  }
  return false;
}

void LocalCenteringData::PurgeUnUsedVars(const NCVariables& variables) {
  Changed();
  for (auto entry = mCenters.begin(); entry != mCenters.end();) {
    entry = variables[entry->first] ? std::next(entry) : mCenters.erase(entry);
  }
}

std::vector<int> LocalCenteringData::GetUsedVarAliases(const NCVariables& variables) const {
  if (!mAliasesKnown) {
    std::set<int> used;
    for (const auto& entry : mCenters) {
      const VariableInfo* variable = variables[entry.first];
      if (!variable) ncds::detail::ThrowInternal("LocalCenteringData::GetUsedVarAliases");
      for (int series = 2; series <= variable->GetNumIDs(); ++series) {
        if (!variable->GetUserID(series).empty()) used.insert(series);
      }
    }
    mUsedAliases = std::move(used);
    mAliasesKnown = true;
  }
  return std::vector<int>(mUsedAliases.begin(), mUsedAliases.end());
}

std::map<std::string, int> LocalCenteringData::GetIDNames() const {
  std::set<std::string> values;
  for (const auto& [varID, firsts] : mCenters) {
    for (const auto& [first, seconds] : firsts) {
      if (!first.second.empty()) values.insert(first.second);
      for (const auto& entry : seconds) {
        if (!entry.first.second.empty()) values.insert(entry.first.second);
      }
    }
  }
  std::map<std::string, int> names;
  for (const std::string& value : values) names.emplace(value, static_cast<int>(names.size()));
  return names;
}

NCDataMatrix<float> LocalCenteringData::GetLocalCenteringDataAsMat(
    const std::map<std::string, int>* names) const {
  namespace d = ncds::detail;
  if (!names) d::ThrowInternal("LocalCenteringData::GetLocalCenteringDataAsMat");
  NCDataMatrix<float> matrix(names->size(), mCenters.size());
  std::size_t column = 0;
  for (const auto& [varID, firsts] : mCenters) {
    for (const auto& [name, row] : *names) {
      if (row < 0 || static_cast<std::size_t>(row) >= names->size()) {
        d::ThrowInternal("LocalCenteringData::GetLocalCenteringDataAsMat");
      }
      double byFirst = 0;
      double bySecond = 0;
      std::size_t firstCount = 0;
      std::size_t secondCount = 0;
      for (const auto& [first, seconds] : firsts) {
        for (const auto& [second, value] : seconds) {
          if (first.second == name) {
            byFirst += value;
            ++firstCount;
          } else if (second.second == name) {
            bySecond += value;
            ++secondCount;
          }
        }
      }
      matrix(static_cast<std::size_t>(row), column) =
          firstCount    ? static_cast<float>(byFirst / static_cast<double>(firstCount))
          : secondCount ? static_cast<float>(bySecond / static_cast<double>(secondCount))
                        : d::kMissing;
    }
    ++column;
  }
  return matrix;
}

boost::shared_ptr<const DefaultCenterValues> LocalCenteringData::GetSubtractionMatrix(
    NCDataMatrix<float>& result, NCIntegralVector<unsigned long, 0>& resultIDs,
    const VarObsInfoVector<ObservationInfo>& observations,
    const NCIntegralVector<unsigned long, 0>& varIDs, const NCProjectBase& project,
    boost::shared_ptr<const DefaultCenterValues> defaults) const {
  if (mCenters.empty()) {
    if (!defaults) return boost::shared_ptr<const DefaultCenterValues>(new DefaultCenterValues());
    if (defaults->SizeVars() == 0) return defaults;
  }
  if (!defaults) defaults.reset(new DefaultCenterValues());
  const Layout& layout = GetLayout();
  std::map<std::uint32_t, std::pair<std::vector<ncds::detail::Run>, bool>> matched;
  const auto centers = ncds::detail::VariableRuns(
      mCenters, layout.values, layout.keysOf, observations, varIDs, project, *defaults, matched);
  result.Resize(observations.size(), centers.size());
  for (std::size_t c = 0; c < centers.size(); ++c) {
    float* column = result.ColumnData(c);
    for (const auto& run : centers[c].Runs()) {
      std::fill(column + run.begin, column + run.end, centers[c].ValueOf(run));
    }
    resultIDs.push_back(centers[c].varID);
  }
  return defaults;
}

boost::shared_ptr<const DefaultCenterValues> LocalCenteringData::Subtract(
    NCDataMatrix<float>& data, const VarObsInfoVector<ObservationInfo>& observations,
    const NCIntegralVector<unsigned long, 0>& varIDs, const NCProjectBase& project,
    boost::shared_ptr<const DefaultCenterValues> defaults) const {
  namespace d = ncds::detail;
  if (mCenters.empty()) {
    if (!defaults) return boost::shared_ptr<const DefaultCenterValues>(new DefaultCenterValues());
    if (defaults->SizeVars() == 0) return defaults;
  }
  if (!defaults) defaults.reset(new DefaultCenterValues());
  const std::size_t rows = std::min(data.SizeRows(), observations.size());
  const Layout& layout = GetLayout();
  std::map<std::uint32_t, std::pair<std::vector<d::Run>, bool>> matched;
  for (const d::VariableCenters& centers :
       d::VariableRuns(mCenters, layout.values, layout.keysOf, observations, varIDs, project,
                       *defaults, matched)) {
    const std::ptrdiff_t j = varIDs.Find(centers.varID);
    if (j < 0 || static_cast<std::size_t>(j) >= data.SizeColumns()) continue;
    float* column = data.ColumnData(static_cast<std::size_t>(j));
    for (const d::Run& run : centers.Runs()) {
      const float center = centers.ValueOf(run);
      if (center == 0.0F) continue;
      const std::size_t end = std::min(run.end, rows);
      if (run.begin < end) d::SubtractKeepingMissing(column + run.begin, end - run.begin, center);
    }
  }
  return defaults;
}

void LocalCenteringData::SubtractMatrix(NCDataMatrix<float>& data,
                                        const NCIntegralVector<unsigned long, 0>& varIDs,
                                        const NCDataMatrix<float>& centers,
                                        const NCIntegralVector<unsigned long, 0>& centerIDs) {
  const std::size_t rows = std::min(data.SizeRows(), centers.SizeRows());
  const std::size_t columns = std::min(centers.SizeColumns(), centerIDs.size());
  for (std::size_t k = 0; k < columns && rows > 0; ++k) {
    const std::ptrdiff_t j = varIDs.Find(centerIDs[k]);
    if (j < 0 || static_cast<std::size_t>(j) >= data.SizeColumns()) continue;
    ncds::detail::SubtractKeepingMissing(data.ColumnData(static_cast<std::size_t>(j)), rows,
                                         centers.ColumnData(k));
  }
}

bool LocalCenteringData::VStreamableStartWrite(std::ostream& os) const {
  if (!mGuard.Enter()) return true;
  if (!msVStreamData.Write(os)) return false;
  OutputStreamDirectory directory(os, ncds::detail::kLCDTags);
  std::ostream& out = directory.GetOutput(ncds::detail::kTagCenters);
  const auto write4 = [&out](const auto& value) { return WriteFourBytes(&value, 1, out); };
  bool ok = write4(static_cast<std::uint32_t>(mCenters.size()));
  for (const auto& [varID, firsts] : mCenters) {
    ok = ok && write4(varID) && write4(static_cast<std::uint32_t>(firsts.size()));
    for (const auto& [first, seconds] : firsts) {
      ok = ok && write4(static_cast<std::int32_t>(first.first)) &&
           WriteBinaryString(first.second, out) &&
           write4(static_cast<std::uint32_t>(seconds.size()));
      for (const auto& [second, value] : seconds) {
        ok = ok && write4(static_cast<std::int32_t>(second.first)) &&
             WriteBinaryString(second.second, out) && write4(value);
      }
    }
  }
  return directory.Close() && ok && static_cast<bool>(os);
}

bool LocalCenteringData::VStreamableStartRead(std::istream& is) {
  if (!mGuard.Enter()) return true;
  mCenters.clear();
  Changed();
  std::int16_t version = 0;
  if (!msVStreamData.Check(is, version) || version != ncds::detail::kLCDVersion) return false;
  return ReadStreamDirectory(is);
}

bool LocalCenteringData::ReadStreamDirectory(std::istream& is) {
  InputStreamDirectory directory(is);
  std::map<std::uint32_t, FirstKeys> centers;
  bool ok = directory.IsValid();
  try {
    std::istream* input = ok ? directory.GetInput(ncds::detail::kTagCenters) : nullptr;
    if (!input) ThrowStreamReadError();
    std::istream& in = *input;
    const auto read4 = [&in](auto& value) {
      if (!ReadFourBytes(&value, 1, in)) ThrowStreamReadError();
    };
    const auto readText = [&in](std::string& text) {
      if (!ReadBinaryString(text, in)) ThrowStreamReadError();
    };
    std::uint32_t variables = 0;
    read4(variables);
    RequireStreamBytes(in, std::uint64_t{variables} * 8);  // an ID and a count each
    for (std::uint32_t v = 0; v < variables; ++v) {
      std::uint32_t varID = 0;
      std::uint32_t firstCount = 0;
      read4(varID);
      read4(firstCount);
      RequireStreamBytes(in, std::uint64_t{firstCount} * 12);  // index, string length, count
      FirstKeys& firsts = centers[varID];
      for (std::uint32_t f = 0; f < firstCount; ++f) {
        std::int32_t index = 0;
        std::string value;
        std::uint32_t secondCount = 0;
        read4(index);
        readText(value);
        read4(secondCount);
        RequireStreamBytes(in, std::uint64_t{secondCount} * 12);  // index, length, center
        LocalCenteringData::SecondKeys& seconds = firsts[Key(index, value)];
        for (std::uint32_t s = 0; s < secondCount; ++s) {
          std::int32_t secondIndex = 0;
          std::string secondValue;
          float center = 0;
          read4(secondIndex);
          readText(secondValue);
          read4(center);
          seconds[Key(secondIndex, std::move(secondValue))] = center;
        }
      }
    }
  } catch (const VxStreamError&) {
    ok = false;
  }
  directory.Close();
  if (!ok || !is) return false;
  mCenters = std::move(centers);
  Changed();
  return true;
}

void LocalCenteringData::VStreamableReset() const { mGuard.Reset(); }
