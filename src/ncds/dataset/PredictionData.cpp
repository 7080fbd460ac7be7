#include "ncds/dataset/PredictionData.h"

#include <algorithm>
#include <numeric>
#include <utility>
#include <vector>

#include "ncds/foundations/Exception.h"
#include "ncds/foundations/detail/Coding.h"

namespace {

// Rows are encoded into a buffer of about this size and handed to the digest in one call.
constexpr std::size_t kBlockBytes = 64 * 1024;

// The 1-based column number of 0-based `position`.
int ToColumn(std::size_t position) { return static_cast<int>(position) + 1; }

}  // namespace

PredictionData::PredictionData(boost::shared_ptr<NCProjectBase> project)
    : NCFullDataContainerBase(std::move(project)) {}

PredictionData::~PredictionData() = default;

unsigned int PredictionData::GetBatchProcessing(const char* /*phaseName*/,
                                                int /*modelNumber*/) const {
  return 127;
}

bool PredictionData::HasExternalLags() const { return false; }

boost::shared_ptr<PredictionData> PredictionData::CreateBatchSummaryPredictionData(int kind) {
  return DoCreateBatchSummaryPredictionData(kind);
}

boost::shared_ptr<PredictionData> PredictionData::DoCreateBatchSummaryPredictionData(int /*kind*/) {
  return nullptr;
}

MD5::RawDigest PredictionData::GetMD5Digest() const {
  if (!mDigest) CalculateMD5();
  return *mDigest;
}

void PredictionData::CalculateMD5() const { mDigest = DigestOfValues(GetData(false, nullptr)); }

MD5::RawDigest PredictionData::DigestOfValues(const NCDataMatrix<float>& values) {
  MD5 digest;
  const std::size_t rows = values.SizeRows();
  const std::size_t columns = values.SizeColumns();
  if (rows > 0 && columns > 0) {
    // The matrix is stored column by column but digested row by row: a block of rows is
    // gathered column by column (reading each column's run in order) into the buffer.
    const std::size_t rowBytes = columns * sizeof(float);
    const std::size_t blockRows = std::min(rows, std::max<std::size_t>(1, kBlockBytes / rowBytes));
    std::vector<unsigned char> buffer(blockRows * rowBytes);
    for (std::size_t first = 0; first < rows; first += blockRows) {
      const std::size_t count = std::min(blockRows, rows - first);
      for (std::size_t column = 0; column < columns; ++column) {
        const float* cells = values.ColumnData(column) + first;
        unsigned char* out = buffer.data() + column * sizeof(float);
        for (std::size_t row = 0; row < count; ++row, out += rowBytes)
          ncds::detail::EncodeFixed(out, cells[row]);
      }
      digest.Update(buffer.data(), count * rowBytes);
    }
  }
  digest.Finalize();
  return digest.GetRawDigest();
}

bool PredictionData::MergeColumns(const NCDataMatrix<float>& data,
                                  const NCIntegralVector<unsigned long, 0>& varIDs) {
  if (varIDs.empty()) return true;
  if (data.SizeColumns() != varIDs.size() ||
      data.SizeRows() != static_cast<std::size_t>(SizeObservations())) {
    throw InvalidArgument("PredictionData::MergeColumns: a " + std::to_string(data.SizeRows()) +
                          " x " + std::to_string(data.SizeColumns()) + " matrix with " +
                          std::to_string(varIDs.size()) + " IDs for " +
                          std::to_string(SizeObservations()) + " observations");
  }

  // Own columns by ID: their positions sorted by ID, searched with a lower bound.
  const NCIntegralVector<unsigned long, 0> own = GetVarIDs();
  std::vector<std::size_t> byID(own.size());
  std::iota(byID.begin(), byID.end(), std::size_t{0});
  std::sort(byID.begin(), byID.end(),
            [&own](std::size_t a, std::size_t b) { return own[a] < own[b]; });

  bool done = true;
  std::vector<std::size_t> fresh;  // incoming columns whose IDs are not columns here
  for (std::size_t i = 0; i < varIDs.size(); ++i) {
    const unsigned long id = varIDs[i];
    const auto found = std::lower_bound(
        byID.begin(), byID.end(), id,
        [&own](std::size_t position, unsigned long key) { return own[position] < key; });
    if (found != byID.end() && own[*found] == id) {
      done = ReplaceColumn(ToColumn(*found), data.GetColumn(i)) && done;
    } else {
      fresh.push_back(i);
    }
  }
  if (fresh.empty()) return done;
  if (fresh.size() == varIDs.size()) return AddColumns(data, varIDs) && done;

  // Only the new columns are added, in their incoming order.
  NCDataMatrix<float> added(data.SizeRows(), fresh.size());
  NCIntegralVector<unsigned long, 0> addedIDs;
  addedIDs.reserve(fresh.size());
  for (std::size_t k = 0; k < fresh.size(); ++k) {
    if (data.SizeRows() > 0) added.SetColumn(k, data.ColumnData(fresh[k]));
    addedIDs.push_back(varIDs[fresh[k]]);
  }
  return AddColumns(added, addedIDs) && done;
}
