#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "batch/BatchRows.h"
#include "ncds/ncds.h"
#include "support/TestSupport.h"

namespace {

using ncds::test::BatchRows;
using Floats = std::vector<float>;
constexpr float M = -99.0F;

// Two batches in phases P1 and P2; X (column 1) is the row's position, T (column 2) the
// maturity: B1 runs 0..4, B2 0..6 in steps of 2.
struct Batches : BatchRows {
  explicit Batches(const Floats& maturity = {0, 1, 2, 3, 4, 0, 2, 4, 6})
      : BatchRows({{"B1", "P1", 3}, {"B1", "P2", 2}, {"B2", "P1", 2}, {"B2", "P2", 2}}) {
    EXPECT_TRUE(dataSet->AddVariables(1, "T", false, true));
    EXPECT_TRUE(dataSet->SetColValues(maturity.data(), 2));
  }
  unsigned long T() const { return dataSet->GetVarID(2); }
};

Floats Column(const NCDataSet& dataSet, int column) {
  Floats values;
  for (int i = 1; i <= dataSet.SizeObservations(); ++i)
    values.push_back(dataSet.GetValue(i, column));
  return values;
}

std::vector<std::string> IDs(const NCDataSet& dataSet, int series) {
  std::vector<std::string> ids;
  for (const ObservationInfo* row : dataSet.GetObservationInfoVector()) {
    ids.push_back(row->GetUserID(series));
  }
  return ids;
}

TEST(DataSetAlignment, AlignsWholeBatchesOntoOneGrid) {
  Batches rows;
  DataSetAlignment alignment(rows.T(), 4);
  const DataSetAlignment::Result result = alignment.Apply(*rows.dataSet, "aligned", 2);
  const NCDataSet& aligned = *result.dataSet;
  EXPECT_EQ(result.batches, 2);
  EXPECT_EQ(result.points, 4);
  EXPECT_EQ(result.shortBatches, 1);  // B1 ends at 4, the grid at 6
  EXPECT_EQ(result.missingBatches, 0);
  EXPECT_EQ(Column(aligned, 1), (Floats{0, 2, 4, M, 5, 6, 7, 8}));
  EXPECT_EQ(Column(aligned, 2), (Floats{0, 2, 4, M, 0, 2, 4, 6}));
  EXPECT_EQ(IDs(aligned, 1)[3], "B1@004");
  // Each row keeps the phase of the nearest source row; past a batch's end, its last phase.
  EXPECT_EQ(IDs(aligned, 3),
            (std::vector<std::string>{"P1", "P1", "P2", "P2", "P1", "P1", "P2", "P2"}));
  ASSERT_TRUE(aligned.GetBatchInfoVector());
  EXPECT_EQ(aligned.GetBatchInfoVector()->size(), 2U);
  EXPECT_EQ(aligned.GetSourceID(), static_cast<unsigned long>(rows.dataSet->GetNumber()));
  ASSERT_TRUE(aligned.GetAlignment());
  EXPECT_EQ(*aligned.GetAlignment(), alignment);

  // Extended, the short batch holds its end; relative, every batch fills the grid.
  alignment.SetExtended(true);
  EXPECT_EQ(Column(*alignment.Apply(*rows.dataSet, "extended", 3).dataSet, 1),
            (Floats{0, 2, 4, 4, 5, 6, 7, 8}));
  alignment.SetExtended(false);
  alignment.SetRelative(true);
  const DataSetAlignment::Result relative = alignment.Apply(*rows.dataSet, "relative", 4);
  EXPECT_EQ(relative.shortBatches, 0);
  const Floats expected{0, 4.0F / 3, 8.0F / 3, 4, 0, 2, 4, 6};
  const Floats values = Column(*relative.dataSet, 2);
  ASSERT_EQ(values.size(), expected.size());
  for (std::size_t i = 0; i < values.size(); ++i) EXPECT_NEAR(values[i], expected[i], 1e-4) << i;
}

TEST(DataSetAlignment, AlignsPhaseByPhase) {
  Batches rows;
  DataSetAlignment alignment(rows.T());
  alignment.SetPhasePoints({{"P2", 3}, {"P1", 2}});
  const DataSetAlignment::Result result = alignment.Apply(*rows.dataSet, "phases", 2);
  EXPECT_EQ(result.points, 5);
  // P1 runs over 0..2 (2 points), P2 over 3..6 (3 points).
  EXPECT_EQ(Column(*result.dataSet, 1), (Floats{0, 2, 3, M, M, 5, 6, M, 7.25F, 8}));
  EXPECT_EQ(IDs(*result.dataSet, 3),
            (std::vector<std::string>{"P1", "P1", "P2", "P2", "P2", "P1", "P1", "P2", "P2", "P2"}));
  ASSERT_EQ(result.dataSet->GetAlignment()->GetAligners().size(), 2U);
  EXPECT_EQ(result.dataSet->GetAlignment()->GetAligners()[1].first, "P2");

  alignment.SetPhasePoints({{"P1", 2}});
  EXPECT_THROW(alignment.Apply(*rows.dataSet, "no P2", 3), NCError);
}

TEST(DataSetAlignment, PiecesAlignOntoTheGridsOfTheWhole) {
  Batches whole;
  BatchRows first({{"B1", "P1", 3}, {"B1", "P2", 2}});
  BatchRows second({{"B2", "P1", 2}, {"B2", "P2", 2}});
  const unsigned long t1 = first.AddColumn("T", {0, 1, 2, 3, 4});
  const unsigned long t2 = second.AddColumn("T", {0, 2, 4, 6});
  for (const bool phaseWise : {false, true}) {
    DataSetAlignment all(whole.T(), 4);
    DataSetAlignment a(t1, 4);
    DataSetAlignment b(t2, 4);
    if (phaseWise) {
      for (DataSetAlignment* alignment : {&all, &a, &b})
        alignment->SetPhasePoints({{"P1", 2}, {"P2", 3}});
    }
    DataSetAlignment::Extent extent = a.Measure(*first.dataSet);
    extent.Add(b.Measure(*second.dataSet));
    EXPECT_EQ(extent.ranges.size(), phaseWise ? 2U : 1U);
    a.SetExtent(extent);
    b.SetExtent(extent);
    Floats pieces = Column(*a.Apply(*first.dataSet, "a", 2).dataSet, 2);
    const Floats rest = Column(*b.Apply(*second.dataSet, "b", 2).dataSet, 2);
    pieces.insert(pieces.end(), rest.begin(), rest.end());
    EXPECT_EQ(pieces, Column(*all.Apply(*whole.dataSet, "all", 2).dataSet, 2)) << phaseWise;
  }
  // An extent without a phase of the data is refused.
  DataSetAlignment a(t1, 4);
  a.SetPhasePoints({{"P1", 2}, {"P2", 3}});
  DataSetAlignment::Extent partial;
  partial.ranges = {{"P1", {0.0F, 6.0F}}};
  a.SetExtent(partial);
  EXPECT_THROW(a.Apply(*first.dataSet, "partial", 2), NCError);
}

TEST(DataSetAlignment, RowsInArraysAlignAsTheirDataset) {
  Batches data({6, 5, 4, 3, 2, 6, 4, 2, 0});  // a falling maturity: grids run downwards
  DataSetAlignment::Rows rows;
  rows.name = "rows";
  rows.count = 9;
  rows.columns = {data.dataSet->GetMatrix().ColumnData(0), data.dataSet->GetMatrix().ColumnData(1)};
  rows.maturity = 1;
  rows.batchStarts = {0, 5};
  rows.batches = {"B1", "B2"};
  std::vector<std::int32_t> phases{1, 1, 1, 0, 0, 1, 1, 0, 0};  // names not in the rows' order
  rows.phases = phases.data();
  rows.phaseNames = {"P2", "P1"};
  for (const bool phaseWise : {false, true}) {
    for (const bool relative : {false, true}) {
      DataSetAlignment alignment(data.T(), 4);
      if (phaseWise) alignment.SetPhasePoints({{"P1", 2}, {"P2", 3}});
      alignment.SetRelative(relative);
      DataSetAlignment inArrays = alignment;
      if (phaseWise) rows.phaseNames = {"P1", "P2"}, phases = {0, 0, 0, 1, 1, 0, 0, 1, 1};
      const DataSetAlignment::Extent extent = inArrays.Measure(rows);
      EXPECT_EQ(extent.ranges, alignment.Measure(*data.dataSet).ranges);
      inArrays.SetExtent(extent);
      const DataSetAlignment::RowsResult result = inArrays.Apply(rows);
      const auto made = alignment.Apply(*data.dataSet, "aligned", 2).dataSet;
      const NCDataSet& aligned = *made;
      EXPECT_EQ(result.points, phaseWise ? 5 : 4);
      ASSERT_EQ(result.values.SizeRows(), static_cast<std::size_t>(aligned.SizeObservations()));
      for (int c = 1; c <= 2; ++c) {
        const float* values = result.values.ColumnData(static_cast<std::size_t>(c - 1));
        EXPECT_EQ(Floats(values, values + result.values.SizeRows()), Column(aligned, c));
      }
      std::vector<std::string> names;
      for (const std::string batch : {"B1", "B2"}) {
        for (int j = 1; j <= result.points; ++j)
          names.push_back(DataSetAlignment::RowName(batch, j, result.points));
      }
      EXPECT_EQ(names, IDs(aligned, 1));
      std::vector<std::string> phases;
      for (const int p : result.phases)
        phases.push_back(rows.phaseNames[static_cast<std::size_t>(p)]);
      EXPECT_EQ(phases, IDs(aligned, 3)) << phaseWise << relative;
      EXPECT_EQ(inArrays.GetAligners().size(), phaseWise ? 2U : 1U);
    }
  }
  // Batch starts that do not begin at row 0 or do not increase, or phases outside the names.
  DataSetAlignment alignment(data.T(), 4);
  for (const std::vector<std::size_t>& starts :
       {std::vector<std::size_t>{1, 5}, {0, 0}, {0, 9}, {0}}) {
    DataSetAlignment::Rows bad = rows;
    bad.batchStarts = starts;
    EXPECT_THROW(alignment.Apply(bad), InvalidArgument);
  }
  DataSetAlignment::Rows bad = rows;
  phases[4] = 2;
  EXPECT_THROW(alignment.Measure(bad), InvalidArgument);
  phases[4] = 1;
  bad.maturity = 2;
  EXPECT_THROW(alignment.Apply(bad), NCError);
  const Floats turning{0, 1, 2, 3, 4, 0, 4, 2, 6};
  rows.columns[1] = turning.data();
  try {
    alignment.Apply(rows);
    FAIL();
  } catch (const NCError& error) {
    EXPECT_STREQ(error.what(), "The maturity of batch B2 is not monotone.");
  }
}

TEST(DataSetAlignment, RefusalsNameTheBatchAndAddNothing) {
  Batches rows({0, 1, 2, 3, 4, 0, 4, 2, 6});
  const std::size_t before = rows.project->GetObservations().size();
  DataSetAlignment alignment(rows.T(), 4);
  try {
    alignment.Apply(*rows.dataSet, "turns back", 2);
    FAIL();
  } catch (const NCError& error) {
    EXPECT_STREQ(error.what(), "The maturity of batch B2 is not monotone.");
  }
  EXPECT_EQ(rows.project->GetObservations().size(), before);
  // Smoothed first, the same maturity aligns.
  alignment.SetSmoothed(true);
  EXPECT_EQ(alignment.Apply(*rows.dataSet, "smoothed", 2).batches, 2);

  Batches empty({M, M, M, M, M, M, M, M, M});
  EXPECT_THROW(DataSetAlignment(empty.T(), 4).Apply(*empty.dataSet, "empty", 2), NCError);
  EXPECT_THROW(DataSetAlignment(rows.T(), 0).Apply(*rows.dataSet, "none", 3), NCError);
  EXPECT_THROW(DataSetAlignment(424242, 4).Apply(*rows.dataSet, "unknown", 3), NCError);
  // A batch without two maturities gives missing rows.
  Batches sparse({0, 1, 2, 3, 4, M, 2, M, M});
  const DataSetAlignment::Result result =
      DataSetAlignment(sparse.T(), 3).Apply(*sparse.dataSet, "sparse", 2);
  EXPECT_EQ(result.missingBatches, 1);
  EXPECT_EQ(Column(*result.dataSet, 1), (Floats{0, 2, 4, M, M, M}));
}

TEST(DataSetAlignment, TravelsWithTheDatasetStream) {
  Batches rows;
  DataSetAlignment alignment(rows.T());
  alignment.SetPhasePoints({{"P1", 2}, {"P2", 3}});
  alignment.SetExtended(true);
  const auto aligned = alignment.Apply(*rows.dataSet, "aligned", 2).dataSet;
  const std::string bytes = ncds::test::WriteToString(*aligned);
  const auto read = NCDataSet::Create(rows.project, 2);
  ASSERT_TRUE(ncds::test::ReadFromString(bytes, *read));
  ASSERT_TRUE(read->GetAlignment());
  EXPECT_EQ(*read->GetAlignment(), alignment);

  const std::string valid = ncds::test::WriteToString(alignment);
  ncds::test::ForEachCorruption(valid, [](const std::string& damaged) {
    DataSetAlignment again;
    if (!ncds::test::ReadFromString(damaged, again)) return;
    const std::string written = ncds::test::WriteToString(again);
    DataSetAlignment second;
    ASSERT_TRUE(ncds::test::ReadFromString(written, second));
    EXPECT_EQ(second, again);
  });
}

}  // namespace
