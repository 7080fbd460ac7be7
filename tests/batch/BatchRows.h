#ifndef NCDS_TESTS_BATCH_BATCHROWS_H
#define NCDS_TESTS_BATCH_BATCHROWS_H

// A project whose observations carry a batch series (2) and a phase series (3), and a batch
// dataset over them: one row per (batch, phase) pair given, one variable "X" whose value is
// the row's 0-based position, so that tests can tell which rows survived.

#include <gtest/gtest.h>

#include <boost/shared_ptr.hpp>
#include <memory>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "ncds/ncds.h"

namespace ncds::test {

struct BatchRows {
  using Row = std::pair<std::string, std::string>;

  // `runs`: (batch, phase, count) runs of rows, in order, in a new project or in `into`.
  explicit BatchRows(const std::vector<std::tuple<std::string, std::string, int>>& runs,
                     bool withPhases = true,
                     boost::shared_ptr<NCProject> into = NCProject::Create())
      : project(std::move(into)) {
    NCObservations& observations = project->GetObservations();
    observations.AddSecondaryID("Batch");
    observations.AddSecondaryID("Phase");
    VarObsInfoVector<ObservationInfo> rows;
    for (const auto& [batch, phase, count] : runs) {
      for (int k = 0; k < count; ++k) {
        const unsigned long id = project->CreateUniqueID();
        const std::string name = "o" + std::to_string(rows.size() + 1);
        rows.push_back(observations.Add(
            std::make_unique<ObservationInfo>(std::vector<std::string>{name, batch, phase}, id)));
      }
    }
    const unsigned long x = project->CreateUniqueID();
    project->GetVariables().Add(std::make_unique<QuantitativeVariableInfo>("X", x));
    NCDataMatrix<float> values(rows.size(), 1);
    for (std::size_t i = 0; i < rows.size(); ++i) values(i, 0) = static_cast<float>(i);
    NCIntegralVector<unsigned long, 0> columns;
    columns.push_back(x);
    dataSet = NCDataSet::Create(project, "runs", 1, &values, std::move(rows), &columns, {1}, {1},
                                nullptr, nullptr, nullptr);
    BatchUtilities::MakeBatchDataSet(*dataSet, 2, withPhases ? 3 : 0);
  }

  // Appends a quantitative column `name` (made unique) holding `values`; its variable ID.
  unsigned long AddColumn(const char* name, const std::vector<float>& values) {
    EXPECT_TRUE(dataSet->AddVariables(1, name, false, false));
    EXPECT_TRUE(dataSet->SetColValues(values.data(), dataSet->SizeVariables()));
    return dataSet->GetVarID(dataSet->SizeVariables());
  }

  // The values of column X, which name the rows that are left.
  std::vector<float> Values() const {
    std::vector<float> values;
    for (int i = 1; i <= dataSet->SizeObservations(); ++i)
      values.push_back(dataSet->GetValue(i, 1));
    return values;
  }
  // The phase name of each row.
  std::vector<std::string> PhaseNames() const {
    std::vector<std::string> names;
    for (const ObservationInfo* row : dataSet->GetObservationInfoVector()) {
      names.push_back(row->GetPhaseName(project->GetObservations()));
    }
    return names;
  }

  boost::shared_ptr<NCProject> project;
  boost::shared_ptr<NCDataSet> dataSet;
};

}  // namespace ncds::test

#endif  // NCDS_TESTS_BATCH_BATCHROWS_H
