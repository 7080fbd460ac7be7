#ifndef NCDS_FOUNDATIONS_DATASETMERGEINFO_H
#define NCDS_FOUNDATIONS_DATASETMERGEINFO_H

// What a merge of one dataset into another did, passed to the subscribers of the merge
// notification. A plain value; the dataset that merges fills it and owns it for the duration
// of the notification, and subscribers receive it by reference so that they may add messages.

#include <cstddef>
#include <string>
#include <vector>

struct DatasetMergeInfo {
  std::string mergedDatasetName;      // the dataset whose data was merged in
  std::size_t variablesAdded = 0;     // variables the merge added to the receiving dataset
  std::size_t observationsAdded = 0;  // observations the merge added to it
  std::vector<std::string> messages;  // translated lines of the merge log, in order
};

#endif  // NCDS_FOUNDATIONS_DATASETMERGEINFO_H
