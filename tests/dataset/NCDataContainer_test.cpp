#include <gtest/gtest.h>

#include <boost/make_shared.hpp>
#include <memory>

#include "ncds/ncds.h"

namespace {

// A container that answers only what every container must: the defaults of the interface
// do the rest.
class RowsOnly : public NCDataContainerBase {
 public:
  RowsOnly(boost::shared_ptr<NCProjectBase> project, VarObsInfoVector<ObservationInfo> rows,
           NCIntegralVector<unsigned long, 0> columns)
      : NCDataContainerBase(std::move(project)),
        mRows(std::move(rows)),
        mColumns(std::move(columns)) {}
  int GetNumber() const override { return 4; }
  int GetDataType() const override { return 1; }
  const VarObsInfoVector<ObservationInfo>& GetObservationInfoVector() const override {
    return mRows;
  }
  NCIntegralVector<unsigned long, 0> GetVarIDs() const override { return mColumns; }
  const std::vector<int>& GetUsedObsAliases() const override { return mAliases; }
  const std::vector<int>& GetUsedVarAliases() const override { return mAliases; }
  const std::string& GetVariableID(int, int) const override { return VxStdString::Empty(); }
  boost::shared_ptr<BatchInfoVector const> GetBatchInfoVector() const override { return mBatches; }
  boost::shared_ptr<BatchInfoVector> mBatches;

 private:
  VarObsInfoVector<ObservationInfo> mRows;
  NCIntegralVector<unsigned long, 0> mColumns;
  std::vector<int> mAliases{1, 2};
};

}  // namespace

TEST(NCDataContainer, DefaultsAnswerThroughTheProject) {
  auto project = NCProject::Create();
  NCObservations& observations = project->GetObservations();
  observations.AddSecondaryID("Batch");
  ObservationInfo* first =
      observations.Add(std::make_unique<ObservationInfo>(std::vector<std::string>{"o1", "B1"}, 1));
  ObservationInfo* second = observations.Add(std::make_unique<ObservationInfo>("o2", 2));
  auto* variable =
      project->GetVariables().Add(std::make_unique<QuantitativeVariableInfo>("Temp", 10UL));

  NCIntegralVector<unsigned long, 0> columns;
  columns.push_back(10);
  columns.push_back(11);  // no such variable
  RowsOnly container(project, {first, second, nullptr}, columns);
  EXPECT_EQ(container.SizeObservations(), 3);
  EXPECT_EQ(container.SizeVariables(), 2);
  EXPECT_EQ(container.GetVarID(1), 10U);
  EXPECT_EQ(container.GetVarID(0), 0U);
  EXPECT_EQ(container.GetVarID(3), 0U);
  EXPECT_EQ(container.GetVariableInfo(1), variable);
  EXPECT_EQ(container.GetVariableInfo(2), nullptr);
  EXPECT_EQ(container.GetObservationInfo(2), second);

  EXPECT_EQ(container.GetObservationID(1, 1), "o1");
  EXPECT_EQ(container.GetObservationID(1, 2), "B1");
  EXPECT_EQ(container.GetObservationID(2, 2), "") << "a record without that series";
  EXPECT_EQ(container.GetObservationID(0, 1), "");
  EXPECT_EQ(container.GetObservationID(4, 1), "");
  try {
    container.GetObservationID(3, 1);
    ADD_FAILURE() << "a row without its record must throw";
  } catch (const NCError& error) {
    EXPECT_EQ(error.GetLevel(), NCError::Inconsistency);
  }

  EXPECT_EQ(container.GetBatchNames().size(), 0U);
  container.mBatches = boost::make_shared<BatchInfoVector>();
  container.mBatches->push_back(boost::make_shared<BatchInfo>("B1"));
  container.mBatches->push_back(boost::make_shared<BatchInfo>("B2"));
  const NCStringVector names = container.GetBatchNames();
  ASSERT_EQ(names.size(), 2U);
  EXPECT_EQ(names[1], "B2");

  // The container holds its project weakly: once the project is gone it answers empty texts.
  project.reset();
  EXPECT_EQ(container.GetProject(), nullptr);
  EXPECT_EQ(container.GetObservationID(1, 1), "");
  EXPECT_EQ(container.GetVariableInfo(1), nullptr);
}
