#include <gtest/gtest.h>

#include <boost/signals2/shared_connection_block.hpp>
#include <stdexcept>
#include <string>

#include "ncds/ncds.h"

namespace {

// Stand-ins for datasets: the signals only pass the pointers on.
alignas(8) char gStorage[2][8];
NCDataSet* const kFirst = reinterpret_cast<NCDataSet*>(&gStorage[0]);
NCDataSet* const kSecond = reinterpret_cast<NCDataSet*>(&gStorage[1]);

TEST(NCSignals, EachRaiserReachesOnlyItsOwnSubscribers) {
  std::string log;
  const auto note = [&log](const char* name) {
    return [&log, name](NCDataSet* dataSet) {
      log += std::string(name) + (dataSet == kFirst ? "1" : "2") + ";";
    };
  };
  boost::signals2::scoped_connection added = NCSignals::ConnectVarObsAdded(note("added"));
  boost::signals2::scoped_connection deleted = NCSignals::ConnectVarObsDeleted(note("deleted"));
  boost::signals2::scoped_connection values =
      NCSignals::ConnectDataSetValuesChanged(note("values"));
  boost::signals2::scoped_connection value = NCSignals::ConnectDataSetValueChanged(
      [&log](NCDataSet* dataSet, unsigned long obsID, unsigned long varID) {
        log += "value" + std::string(dataSet == kFirst ? "1" : "2") + "(" + std::to_string(obsID) +
               "," + std::to_string(varID) + ");";
      });
  NCSignals::RaiseVarObsAdded(kFirst);
  NCSignals::RaiseVarObsDeleted(kSecond);
  NCSignals::RaiseDataSetValuesChanged(kFirst);
  NCSignals::RaiseDataSetValueChanged(kSecond, 3262240001ul, 3262240002ul);
  EXPECT_EQ(log, "added1;deleted2;values1;value2(3262240001,3262240002);");

  log.clear();
  deleted.disconnect();
  {
    boost::signals2::shared_connection_block block(added);
    NCSignals::RaiseVarObsAdded(kFirst);
  }
  NCSignals::RaiseVarObsDeleted(kFirst);
  NCSignals::RaiseVarObsAdded(kSecond);
  EXPECT_EQ(log, "added2;");
}

TEST(NCSignals, MergeSubscribersShareTheInfoAndExceptionsReachTheRaiser) {
  // The slots capture what they use (gcc 12 warns wrongly about empty lambdas in slots).
  const std::string prefix = "first saw ";
  boost::signals2::scoped_connection first =
      NCSignals::ConnectDatasetMerged([&prefix](NCDataSet*, DatasetMergeInfo& info) {
        info.messages.push_back(prefix + info.mergedDatasetName);
      });
  boost::signals2::scoped_connection second = NCSignals::ConnectDatasetMerged(
      [expected = kSecond](NCDataSet* dataSet, DatasetMergeInfo& info) {
        info.messages.push_back(dataSet == expected ? "second" : "wrong dataset");
        if (info.variablesAdded == 0) throw std::runtime_error("nothing merged");
      });
  DatasetMergeInfo info;
  info.mergedDatasetName = "Wine";
  info.variablesAdded = 3;
  NCSignals::RaiseDatasetMerged(kSecond, info);
  EXPECT_EQ(VxStdString::FormatStringVector(info.messages), "first saw Wine, second");

  DatasetMergeInfo empty;
  EXPECT_THROW(NCSignals::RaiseDatasetMerged(kSecond, empty), std::runtime_error);
  first.disconnect();
  second.disconnect();
  NCSignals::RaiseDatasetMerged(kSecond, empty);  // nobody listens any more
  EXPECT_EQ(empty.messages.size(), 2u);
}

}  // namespace
