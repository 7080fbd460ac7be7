#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "ncds/ncds.h"
#include "support/TestSupport.h"
#include "tools/ncds/CsvExport.h"
#include "tools/ncds/CsvImport.h"

using ncds::tool::CsvExportOptions;
using ncds::tool::CsvImportOptions;
namespace CsvExport = ncds::tool::CsvExport;
namespace CsvImport = ncds::tool::CsvImport;

namespace {

std::uint32_t Bits(float value) {
  std::uint32_t bits = 0;
  std::memcpy(&bits, &value, sizeof bits);
  return bits;
}

// A dataset of every kind of column, built through the library: 1000 rows of IDs that need
// quoting, a secondary series, floats of every magnitude, levels, date-times with fractions
// of a second, and a column without values.
boost::shared_ptr<NCDataSet> MakeDataSet(const boost::shared_ptr<NCProject>& project) {
  constexpr std::size_t kRows = 1000;
  NCObservations& observations = project->GetObservations();
  const int batch = observations.AddSecondaryID("Batch");
  const std::vector<std::string> special = {"o,1", "say \"hi\"", "line\nbreak", "semi;colon"};
  VarObsInfoVector<ObservationInfo> infos;
  for (std::size_t i = 0; i < kRows; ++i) {
    const std::string id = i < special.size() ? special[i] : "o" + std::to_string(i);
    const std::string batchID = i % 7 == 3 ? "" : "B" + std::to_string(i / 100);
    infos.push_back(observations.Add(std::make_unique<ObservationInfo>(
        std::vector<std::string>{id, batchID}, project->CreateUniqueID())));
  }
  NCVariables& variables = project->GetVariables();
  NCIntegralVector<unsigned long, 0> varIDs;
  const auto add = [&](std::unique_ptr<VariableInfo> info) {
    varIDs.push_back(info->GetUniqueID());
    variables.Add(std::move(info));
  };
  add(std::make_unique<QuantitativeVariableInfo>("x", project->CreateUniqueID()));
  const NCStringVector levels(std::vector<std::string>{"low", "mid, high", "\"q\""});
  add(std::make_unique<QualitativeVariableInfo>("level", project->CreateUniqueID(), &levels));
  add(std::make_unique<DateTimeVariableInfo>(
      "t", project->CreateUniqueID(), VxTimeUtl::eParseISO8601, "", "",
      VxTimeUtl::SimpDateTime(2024, 3, 5, 10), VxTimeUtl::eSecond));
  add(std::make_unique<QuantitativeVariableInfo>("none", project->CreateUniqueID()));

  NCDataMatrix<float> values(kRows, 4);
  const std::vector<float> specialFloats = {
      -0.0F, FLT_MIN, FLT_TRUE_MIN, FLT_MAX,    -FLT_MAX, std::nextafter(-99.0F, 0.0F),
      0.1F,  -99.0F,  1e-45F,       16777217.0F};
  std::mt19937 random(11);
  const std::vector<float> times = {0.0F, 1.5F, 3600.25F, -99.0F, 86399.0F, 0.001F, 59.0F};
  for (std::size_t i = 0; i < kRows; ++i) {
    float x = 0.0F;
    if (i < specialFloats.size()) {
      x = specialFloats[i];
    } else {
      const std::uint32_t bits = random();
      std::memcpy(&x, &bits, sizeof x);
      if (!std::isfinite(x)) x = static_cast<float>(i);
    }
    values(i, 0) = x;
    values(i, 1) = i % 5 == 4 ? -99.0F : static_cast<float>(i % 3 + 1);
    values(i, 2) = times[i % times.size()];
  }
  return NCDataSet::Create(project, "all kinds", 3, &values, std::move(infos), &varIDs,
                           std::vector<int>{1, batch}, std::vector<int>{1}, nullptr, nullptr,
                           nullptr);
}

void ExpectSameDataSet(const NCDataSet& a, const NCDataSet& b) {
  ASSERT_EQ(a.SizeObservations(), b.SizeObservations());
  ASSERT_EQ(a.SizeVariables(), b.SizeVariables());
  // The same primary IDs and the same ID columns, labels included.
  const NCObservations& ao = a.GetProject()->GetObservations();
  const NCObservations& bo = b.GetProject()->GetObservations();
  const std::vector<int> as = CsvExport::ExportedSeries(a, ao);
  const std::vector<int> bs = CsvExport::ExportedSeries(b, bo);
  ASSERT_EQ(as.size(), bs.size());
  for (std::size_t k = 0; k < as.size(); ++k) {
    EXPECT_EQ(ao.GetIDLabelRaw(as[k]), bo.GetIDLabelRaw(bs[k]));
  }
  for (int obs = 1; obs <= a.SizeObservations(); ++obs) {
    ASSERT_EQ(a.GetObservationInfo(obs)->GetUserID(1), b.GetObservationInfo(obs)->GetUserID(1));
    for (std::size_t k = 0; k < as.size(); ++k) {
      ASSERT_EQ(a.GetObservationInfo(obs)->GetUserID(as[k]),
                b.GetObservationInfo(obs)->GetUserID(bs[k]));
    }
  }
  for (int var = 1; var <= a.SizeVariables(); ++var) {
    const VariableInfo* x = a.GetVariableInfo(var);
    const VariableInfo* y = b.GetVariableInfo(var);
    EXPECT_EQ(x->GetUserID(1), y->GetUserID(1));
    EXPECT_EQ(!x->AsQuantitativeVariableInfo(), !y->AsQuantitativeVariableInfo());
    EXPECT_EQ(!x->AsDateTimeVariableInfo(), !y->AsDateTimeVariableInfo());
    if (x->IsQualitative()) {
      ASSERT_TRUE(y->IsQualitative());
      EXPECT_EQ(x->AsQualitativeVariableInfo()->GetSettings(),
                y->AsQualitativeVariableInfo()->GetSettings());
    }
    if (x->AsDateTimeVariableInfo()) {
      EXPECT_EQ(x->AsDateTimeVariableInfo()->GetDateTimeOffset(),
                y->AsDateTimeVariableInfo()->GetDateTimeOffset());
    }
    for (int obs = 1; obs <= a.SizeObservations(); ++obs) {
      ASSERT_EQ(Bits(a.GetValue(obs, var)), Bits(b.GetValue(obs, var)))
          << x->GetUserID(1) << " row " << obs << ": " << a.GetValue(obs, var);
    }
  }
}

}  // namespace

TEST(CsvExport, ExportThenImportGivesTheSameDataSet) {
  const auto project = NCProject::Create();
  const auto original = MakeDataSet(project);
  CsvImportOptions importOptions;
  importOptions.idColumns = {"Primary ID", "Batch"};
  for (const auto& [separator, decimal] :
       {std::pair{',', '.'}, {';', ','}, {'\t', ','}, {'1', '.'}}) {
    SCOPED_TRACE(std::string("separator ") + separator);
    CsvExportOptions options;
    options.separator = separator;
    options.decimal = decimal;
    ncds::test::ProgressRecorder progress;
    const std::string text = CsvExport::ToText(*original, options);
    importOptions.separator = separator;
    importOptions.decimal = decimal;
    const auto fresh = NCProject::Create();
    const auto copy = CsvImport::ImportText(fresh, text, "copy.csv", importOptions);
    // Both report their progress, forwards, to the end.
    ASSERT_EQ(progress.operations.size(), 3u);
    EXPECT_EQ(progress.operations[0].caption, "Writing dataset \"all kinds\"");
    EXPECT_EQ(progress.operations[1].caption, "Reading copy.csv");
    EXPECT_EQ(progress.operations[2].caption, "Adding the observations");
    for (const auto& operation : progress.operations) {
      EXPECT_FALSE(operation.backwards);
      EXPECT_EQ(operation.last, operation.maximum);
    }
    ExpectSameDataSet(*original, *copy);
    EXPECT_EQ(CsvExport::ToText(*copy, options), text) << "exporting the copy writes the same";
  }
}

TEST(CsvExport, FieldsQuotingAndMissingValues) {
  const auto project = NCProject::Create();
  CsvImportOptions options;
  options.idColumns = {"ID"};
  const auto data = CsvImport::ImportText(
      project, "ID,v,l,d\na,1.5,x,2024-03-05\nb,,\"p;q\",\nc,-0.25,\"\"\"\",2024-03-07\n", "f.csv",
      options);
  CsvExportOptions semicolons;
  semicolons.separator = ';';
  semicolons.decimal = ',';
  semicolons.primaryIDHeader = "ID";
  EXPECT_EQ(CsvExport::ToText(*data, semicolons),
            "ID;v;l;d\na;1,5;x;2024-03-05\nb;;\"p;q\";\nc;-0,25;\"\"\"\";2024-03-07\n");
  // Values that are no number and the unknown-level code come out empty.
  ASSERT_TRUE(data->SetValue(1, 1, NAN, false, false, false));
  ASSERT_TRUE(data->SetValue(2, 1, INFINITY, false, false, false));
  ASSERT_TRUE(data->SetValue(3, 2, FLT_MAX, false, false, false));
  EXPECT_EQ(CsvExport::ToText(*data, {}),
            "ID,v,l,d\na,,x,2024-03-05\nb,,p;q,\nc,-0.25,,2024-03-07\n");

  // A single ID column: an empty ID still makes a row.
  const auto single = NCDataSet::Create(project, 9);
  single->AddObservationInfos(1);
  project->GetObservations()[single->GetObservationInfo(1)->GetUniqueID()]->SetUserID("", 1,
                                                                                      nullptr);
  EXPECT_EQ(CsvExport::ToText(*single, semicolons), "ID\n\"\"\n");

  CsvExportOptions bad;
  bad.decimal = ',';
  EXPECT_THROW(CsvExport::ToText(*data, bad), NCError);
}

TEST(CsvExport, FilesAndFailures) {
  auto project = NCProject::Create();
  const auto data = MakeDataSet(project);
  const ncds::test::TempFile file("csv_export.csv");
  CsvExport::WriteFile(*data, file.path(), {});
  std::ifstream in(file.path(), std::ios::binary);
  std::stringstream content;
  content << in.rdbuf();
  EXPECT_EQ(content.str(), CsvExport::ToText(*data, {}));

  CsvImportOptions options;
  options.idColumns = {"Primary ID", "Batch"};
  const auto other = NCProject::Create();
  const auto copy = CsvImport::ImportFile(other, file.path(), options);
  ExpectSameDataSet(*data, *copy);
  EXPECT_STREQ(copy->GetName(), "tmp_csv_export");

  const std::string missing = file.path() + ".missing/x.csv";
  try {
    CsvExport::WriteFile(*data, missing, {});
    ADD_FAILURE() << "written into a missing folder";
  } catch (const NCError& e) {
    EXPECT_EQ(std::string(e.what()),
              missing + ": the file cannot be written (No such file or directory).");
  }
  try {
    CsvImport::ImportFile(project, missing, {});
    ADD_FAILURE() << "read a missing file";
  } catch (const NCError& e) {
    EXPECT_EQ(std::string(e.what()),
              missing + ": the file cannot be read (No such file or directory).");
  }

  project.reset();
  EXPECT_THROW(CsvExport::ToText(*data, {}), NCError) << "no project, no names";
}
