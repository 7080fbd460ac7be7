#ifndef NCDS_DATASET_PREDICTIONDATA_H
#define NCDS_DATASET_PREDICTIONDATA_H

// Data applied to models for prediction rather than fitted: a full container that can take
// columns in (`MergeColumns`), answers a content fingerprint (an MD5 digest of its values) and
// a few properties that prediction needs. Concrete prediction data belongs to the application;
// `DataSetPredictionData` presents a dataset this way.
//
// The fingerprint is computed on first use and kept: later changes of the values are not
// reflected until `CalculateMD5` is called again. One thread at a time.

#include <boost/shared_ptr.hpp>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "ncds/dataset/NCFullDataContainerBase.h"
#include "ncds/foundations/MD5.h"
#include "ncds/foundations/NCDataMatrix.h"
#include "ncds/foundations/NCDataVector.h"
#include "ncds/foundations/NCIntegralVector.h"
#include "ncds/ncds_export.h"

class NCDS_EXPORT PredictionData : public NCFullDataContainerBase {
 public:
  explicit PredictionData(boost::shared_ptr<NCProjectBase> project);
  ~PredictionData() override;

  // Prediction data of per-batch summaries made from this data, of the application's kind
  // `kind`; null when the class offers none.
  boost::shared_ptr<PredictionData> CreateBatchSummaryPredictionData(int kind);

  // The fingerprint of the values: computed by `CalculateMD5` on first use, the kept digest
  // afterwards.
  MD5::RawDigest GetMD5Digest() const;
  // Computes the fingerprint of the values as they are now (`GetData(false, null)`) and
  // keeps it, replacing any earlier one.
  void CalculateMD5() const;
  // The fingerprint of `values`: every value as its four bytes of little-endian IEEE single
  // precision, row by row, each row from the first column to the last.
  static MD5::RawDigest DigestOfValues(const NCDataMatrix<float>& values);

  // Takes in the columns of `data` (one row per observation), whose variable IDs are
  // `varIDs`: a column whose ID is a column here already replaces that column's values; the
  // others are added after the last column, in their order in `data`. No IDs: nothing
  // happens. Throws `InvalidArgument`, changing nothing, when the shape of `data` does not
  // match. False when the class refused a replacement or the addition; the parts done
  // before stay done.
  bool MergeColumns(const NCDataMatrix<float>& data,
                    const NCIntegralVector<unsigned long, 0>& varIDs);

  // The virtual operations keep this order, protected and public interleaved: classes of the
  // application are built against their slots.

  // The batch processing word for `phaseName` and `modelNumber`: seven flag bits whose
  // meaning is the application's. All seven (127) unless a class says otherwise.
  virtual unsigned int GetBatchProcessing(const char* phaseName, int modelNumber) const;
  // The name under which the application shows this prediction data.
  virtual std::string GetName() const = 0;
  // Whether the values carry lagged variables computed outside the library.
  virtual bool HasExternalLags() const;
  // Whether the data can still be read: false once what it presents (its project, its
  // source) is gone, and it then answers empty results.
  virtual bool IsAvailable() const = 0;

 protected:
  PredictionData(const PredictionData&) = default;
  PredictionData& operator=(const PredictionData&) = default;

  virtual boost::shared_ptr<PredictionData> DoCreateBatchSummaryPredictionData(int kind);

 public:
  // Appends the columns of `data` (SizeObservations() rows), whose variable IDs are
  // `varIDs`, none of them a column yet. Throws `InvalidArgument` when the shapes disagree;
  // false when refused. Either way nothing is added.
  virtual bool AddColumns(const NCDataMatrix<float>& data,
                          const NCIntegralVector<unsigned long, 0>& varIDs) = 0;
  // Replaces the values of `column` (from 1) with `values`, one per observation. Throws
  // `InvalidArgument` for a wrong count; false when refused or `column` is out of range.
  // Either way the column is unchanged.
  virtual bool ReplaceColumn(int column, const NCDataVector<float>& values) = 0;

 private:
  mutable std::optional<MD5::RawDigest> mDigest;
};

#endif  // NCDS_DATASET_PREDICTIONDATA_H
