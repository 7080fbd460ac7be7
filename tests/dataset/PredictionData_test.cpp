#include <gtest/gtest.h>

#include <boost/make_shared.hpp>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "ncds/dataset/DataSetPredictionData.h"
#include "ncds/ncds.h"

namespace {

using IDs = NCIntegralVector<unsigned long, 0>;
using Values = std::vector<std::vector<float>>;  // column by column

IDs IDsOf(const std::vector<unsigned long>& values) {
  IDs ids;
  for (const unsigned long value : values) ids.push_back(value);
  return ids;
}

NCDataMatrix<float> Matrix(const Values& columns) {
  NCDataMatrix<float> matrix(columns.empty() ? 0 : columns.front().size(), columns.size());
  for (std::size_t j = 0; j < columns.size(); ++j) matrix.SetColumn(j, columns[j].data());
  return matrix;
}

Values ValuesOf(const NCDataSet& dataSet) {
  Values columns(static_cast<std::size_t>(dataSet.SizeVariables()));
  for (std::size_t j = 0; j < columns.size(); ++j) {
    const float* cells = dataSet.GetMatrix().ColumnData(j);
    columns[j].assign(cells, cells + dataSet.SizeObservations());
  }
  return columns;
}

// A dataset over a project of seven variables; by default three rows and the columns 30, 10,
// 20, which are not in the order of their IDs.
struct Project {
  explicit Project(const Values& values = {{1, 2, 3}, {11, 12, 13}, {21, 22, 23}},
                   const IDs& columns = IDsOf({30, 10, 20})) {
    for (const unsigned long id : {10UL, 20UL, 30UL, 40UL, 45UL, 50UL, 60UL})
      project->GetVariables().Add(
          std::make_unique<QuantitativeVariableInfo>("V" + std::to_string(id), id));
    VarObsInfoVector<ObservationInfo> rows;
    const NCDataMatrix<float> matrix = Matrix(values);
    for (std::size_t i = 0; i < matrix.SizeRows(); ++i) {
      rows.push_back(project->GetObservations().Add(std::make_unique<ObservationInfo>(
          std::vector<std::string>{"o" + std::to_string(i)}, 100 + i)));
    }
    dataSet = NCDataSet::Create(project, "Run", 3, &matrix, std::move(rows), &columns, {1}, {1}, "",
                                nullptr, nullptr);
    prediction = boost::make_shared<DataSetPredictionData>(dataSet);
  }

  boost::shared_ptr<NCProject> project = NCProject::Create();
  boost::shared_ptr<NCDataSet> dataSet;
  boost::shared_ptr<DataSetPredictionData> prediction;
};

// The bytes a fingerprint covers, built without the library's encoding helpers.
std::vector<std::uint8_t> LittleEndianRows(const NCDataMatrix<float>& matrix) {
  std::vector<std::uint8_t> bytes;
  for (std::size_t row = 0; row < matrix.SizeRows(); ++row) {
    for (std::size_t column = 0; column < matrix.SizeColumns(); ++column) {
      std::uint32_t bits = 0;
      std::memcpy(&bits, &matrix(row, column), sizeof bits);
      for (int shift = 0; shift < 32; shift += 8)
        bytes.push_back(static_cast<std::uint8_t>(bits >> shift));
    }
  }
  return bytes;
}

}  // namespace

TEST(PredictionData, MergeColumnsReplacesKnownIDsAndAppendsNewOnesInIncomingOrder) {
  {  // Every ID a column already: values replaced where the IDs are, nothing added.
    Project p;
    EXPECT_TRUE(p.prediction->MergeColumns(Matrix({{7, 8, 9}, {4, 5, 6}}), IDsOf({20, 30})));
    EXPECT_EQ(p.dataSet->GetVarIDs(), IDsOf({30, 10, 20}));
    EXPECT_EQ(ValuesOf(*p.dataSet), (Values{{4, 5, 6}, {11, 12, 13}, {7, 8, 9}}));
  }
  {  // Every ID new: all appended as they come.
    Project p;
    EXPECT_TRUE(p.prediction->MergeColumns(Matrix({{5, 5, 5}, {4, 4, 4}}), IDsOf({50, 40})));
    EXPECT_EQ(p.dataSet->GetVarIDs(), IDsOf({30, 10, 20, 50, 40}));
    EXPECT_EQ(ValuesOf(*p.dataSet),
              (Values{{1, 2, 3}, {11, 12, 13}, {21, 22, 23}, {5, 5, 5}, {4, 4, 4}}));
  }
  {  // Mixed: the known one replaced, the new ones appended in their incoming order.
    Project p;
    EXPECT_TRUE(p.prediction->MergeColumns(Matrix({{6, 6, 6}, {1, 0, 1}, {-4, -5, -6}}),
                                           IDsOf({60, 10, 45})));
    EXPECT_EQ(p.dataSet->GetVarIDs(), IDsOf({30, 10, 20, 60, 45}));
    EXPECT_EQ(ValuesOf(*p.dataSet),
              (Values{{1, 2, 3}, {1, 0, 1}, {21, 22, 23}, {6, 6, 6}, {-4, -5, -6}}));
  }
}

TEST(PredictionData, MergeColumnsChangesNothingWithoutIDsOnBadShapesOrWhenRefused) {
  Project p;
  const Values before = ValuesOf(*p.dataSet);
  EXPECT_TRUE(p.prediction->MergeColumns(NCDataMatrix<float>(), IDs()));
  EXPECT_THROW(p.prediction->MergeColumns(Matrix({{1, 1}, {2, 2}}), IDsOf({10, 40})),
               InvalidArgument);
  // Adding the columns is allowed, setting a single column's values is not: the columns
  // added are taken out again.
  p.project->SetChangeCheck([](int, const IDs& ids) { return ids.size() != 1; });
  EXPECT_FALSE(p.prediction->MergeColumns(Matrix({{1, 1, 1}, {2, 2, 2}}), IDsOf({50, 40})));
  EXPECT_EQ(p.dataSet->GetVarIDs(), IDsOf({30, 10, 20}));
  EXPECT_EQ(ValuesOf(*p.dataSet), before);
}

TEST(PredictionData, DigestIsKeptUntilRecalculated) {
  Project p;
  const MD5::RawDigest first = p.prediction->GetMD5Digest();
  EXPECT_EQ(MD5::ToHex(first), DataSetPredictionData::Fingerprint(*p.dataSet));
  ASSERT_TRUE(p.dataSet->SetValue(2, 2, 99.5F, false, false, false));
  EXPECT_EQ(p.prediction->GetMD5Digest(), first);
  p.prediction->CalculateMD5();
  EXPECT_NE(p.prediction->GetMD5Digest(), first);
  EXPECT_EQ(MD5::ToHex(p.prediction->GetMD5Digest()),
            DataSetPredictionData::Fingerprint(*p.dataSet));
}

TEST(PredictionData, DigestCoversValuesRowByRowAsLittleEndianSingles) {
  // Rows (1, 2) and (3, missing): bytes 0000803f 00000040 00004040 0000c6c2 for md5sum.
  Project tiny({{1, 3}, {2, -99}}, IDsOf({10, 20}));
  EXPECT_EQ(MD5::ToHex(tiny.prediction->GetMD5Digest()), "a32ed89ef6c8b9b8837577175ae20f03");
  Project empty({}, IDs());
  EXPECT_EQ(MD5::ToHex(empty.prediction->GetMD5Digest()), "d41d8cd98f00b204e9800998ecf8427e");

  // Rows spanning several of the blocks the digest is fed in; a row larger than a block.
  for (const auto& [rows, columns] : {std::pair<std::size_t, std::size_t>{7001, 3}, {3, 20001}}) {
    NCDataMatrix<float> matrix(rows, columns);
    for (std::size_t r = 0; r < rows; ++r)
      for (std::size_t c = 0; c < columns; ++c)
        matrix(r, c) = 0.5F * static_cast<float>(r) - 3.0F * static_cast<float>(c);
    const std::vector<std::uint8_t> bytes = LittleEndianRows(matrix);
    EXPECT_EQ(PredictionData::DigestOfValues(matrix), MD5::Of(bytes.data(), bytes.size()))
        << rows << " x " << columns;
  }
}
