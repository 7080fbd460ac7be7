#ifndef NCDS_TESTS_DATASET_DATASETFIXTURE_H
#define NCDS_TESTS_DATASET_DATASETFIXTURE_H

// A batch project and a dataset in it with every part filled, for the persistence tests: six
// observations in two batches and two phases, an X and a Y variable, trimmed values in both
// columns (the Y column trimmed first), local centers, a kind, a source and alias lists.

#include <boost/make_shared.hpp>
#include <cstdint>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "ncds/ncds.h"

namespace ncds::test {

inline ClassInfoVector Phases(int firstCount, int secondCount) {
  ClassInfoVector phases;
  for (const auto& [name, count] : {std::pair{"P1", firstCount}, std::pair{"P2", secondCount}}) {
    auto phase = boost::make_shared<ClassInfo>(name);
    phase->SetNumObs(count);
    phases.push_back(phase);
  }
  return phases;
}

// The stream `bytes` of magic `magic` (a directory of `tags` entries) rewritten with
// `version` and without the entries `omitted`; the other entries are copied as they are.
inline std::string Rewritten(const std::string& bytes, const char* magic, int tags,
                             std::uint16_t version, const std::set<int>& omitted) {
  std::istringstream is(bytes);
  std::uint16_t stored = 0;
  VStreamLight::CheckMagicStringAndVersionNumber(is, stored, magic);
  std::ostringstream os;
  VStreamLight::WriteMagicStringAndVersionNumber(os, version, magic);
  InputStreamDirectory in(is);
  OutputStreamDirectory out(os, static_cast<std::uint16_t>(tags));
  for (int tag = 0; tag < tags; ++tag) {
    std::istream* entry = in.GetInput(static_cast<std::uint16_t>(tag));
    if (entry && omitted.count(tag) == 0)
      out.GetOutput(static_cast<std::uint16_t>(tag)) << entry->rdbuf();
  }
  out.Close();
  return os.str();
}

struct BatchDataSet {
  static constexpr unsigned long kX = 10, kY = 11, kFirstRow = 100;
  static constexpr int kRows = 6;

  BatchDataSet() {
    project->GetVariables().Add(std::make_unique<QuantitativeVariableInfo>("X", kX));
    auto y = std::make_unique<QuantitativeVariableInfo>("Y", kY);
    y->SetVariableBlock(VariableInfo::eY);
    project->GetVariables().Add(std::move(y));
    NCObservations& observations = project->GetObservations();
    observations.AddSecondaryID("Batch");
    observations.AddSecondaryID("Phase");
    observations.SetBatchID(2);
    VarObsInfoVector<ObservationInfo> rows;
    NCDataMatrix<float> values(kRows, 2);
    for (int i = 0; i < kRows; ++i) {
      const std::vector<std::string> ids{"o" + std::to_string(i + 1), i < 3 ? "B1" : "B2",
                                         i % 3 < 2 ? "P1" : "P2"};
      rows.push_back(observations.Add(std::make_unique<ObservationInfo>(ids, kFirstRow + i)));
      values(i, 0) = static_cast<float>(i);
      values(i, 1) = static_cast<float>(10 * i);
    }
    BatchInfoVector batches;
    for (const char* name : {"B1", "B2"}) {
      auto batch = boost::make_shared<BatchInfo>(name);
      batch->SetClassVectorPtr(new ClassInfoVector(Phases(2, 1)));
      batches.push_back(batch);
    }
    const ClassInfoVector phases = Phases(4, 2);
    NCIntegralVector<unsigned long, 0> columns;
    columns.push_back(kX);
    columns.push_back(kY);
    dataSet = NCDataSet::Create(project, "Fermentation", 5, &values, std::move(rows), &columns,
                                {1, 3}, {1}, "read from run.csv", &batches, &phases);
    dataSet->SetValue(5, 2, 15.0F, true, false, false);
    dataSet->SetTrimValues(2, 15.0F);
    dataSet->SetValue(2, 1, 0.5F, true, false, false);
    dataSet->SetTrimValues(1, 0.5F);
    LocalCenteringInfo centers(7, true);
    centers.AddData("B1", "P1", "X", 1.5F);
    dataSet->SetLocalCenteringInfo(&centers);
    dataSet->SetSource(NCDataSet::kBatchBit | 2, 77);
  }

  boost::shared_ptr<NCProject> project = NCProject::Create();
  boost::shared_ptr<NCDataSet> dataSet;
};

}  // namespace ncds::test

#endif  // NCDS_TESTS_DATASET_DATASETFIXTURE_H
