// Feeds arbitrary bytes to the readers of the phase and batch records, the batch vector, the
// import settings, the column concatenation, the batch aligner (which must then align a batch
// onto whatever grid it read), a dataset's alignment, a batch-level summary description, the
// per-dataset batch snapshots (RUSPDATA) and the bare phase-list form that owners keep under one
// tag. Whatever reads must write and read back to the same bytes: no crash, no hang, no allocation
// beyond what the input's size justifies.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <sstream>
#include <string>

#include "FuzzRoundTrip.h"
#include "ncds/ncds.h"

namespace {

using ncds::fuzz::Bytes;
using ncds::fuzz::RoundTrip;

std::string PhaseListBytes(const ClassInfoVector& phases) {
  std::ostringstream os;
  if (!phases.WriteToStream(os)) std::abort();
  return os.str();
}

void PhaseList(const std::string& bytes) {
  std::istringstream is(bytes);
  std::unique_ptr<ClassInfoVector> phases;
  try {
    phases = ClassInfoVector::ReadFromStream(is);
  } catch (const VxStreamError&) {
    return;
  }
  const std::string written = PhaseListBytes(*phases);
  std::istringstream back(written);
  const auto again = ClassInfoVector::ReadFromStream(back);
  if (*again != *phases || PhaseListBytes(*again) != written) std::abort();
}

std::string RUSPBytes(const RUSPData& data) {
  std::ostringstream os;
  if (!data.WriteObject(os)) std::abort();
  return os.str();
}

void Snapshots(const std::string& bytes) {
  const boost::shared_ptr<NCProject> project = NCProject::Create();
  RUSPData data(*project);
  std::istringstream is(bytes);
  if (!data.ReadObject(is)) return;
  const std::string written = RUSPBytes(data);
  RUSPData again(*project);
  std::istringstream back(written);
  if (!again.ReadObject(back) || RUSPBytes(again) != written) std::abort();
}

// Aligns a small batch with a gap and a missing maturity: any grid, however odd, gives a value
// per grid point or the monotony error.
void Aligned(const BatchAligner& aligner) {
  NCDataMatrix<float> data(5, 2);
  NCDataVector<float> maturity(5);
  for (std::size_t i = 0; i < 5; ++i) {
    maturity[i] = aligner.IsAscending() ? static_cast<float>(i) : static_cast<float>(5 - i);
    data(i, 0) = static_cast<float>(i * i);
    data(i, 1) = i == 2 ? -99.0F : static_cast<float>(i);
  }
  maturity[3] = -99.0F;
  try {
    const auto out = aligner.Align(data, maturity);
    if (out->SizeRows() != aligner.GridSize()) std::abort();
  } catch (const NCError&) {
    std::abort();  // these maturities are monotone
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  {
    ClassInfo object("");
    ClassInfo again("");
    RoundTrip(bytes, object, again);
  }
  {
    BatchInfo object("");
    BatchInfo again("");
    RoundTrip(bytes, object, again);
  }
  {
    BatchInfoVector object;
    BatchInfoVector again;
    RoundTrip(bytes, object, again);
  }
  {
    BatchImportSettings object;
    BatchImportSettings again;
    RoundTrip(bytes, object, again);
  }
  {
    ColumnConcatenateInfo object;
    ColumnConcatenateInfo again;
    RoundTrip(bytes, object, again);
  }
  {
    BatchAligner object;
    BatchAligner again;
    if (RoundTrip(bytes, object, again)) Aligned(object);
  }
  {
    DataSetAlignment object;
    DataSetAlignment again;
    RoundTrip(bytes, object, again);
  }
  {
    CreateBatchLevelInfo object;
    CreateBatchLevelInfo again;
    RoundTrip(bytes, object, again);
  }
  PhaseList(bytes);
  Snapshots(bytes);
  return 0;
}
