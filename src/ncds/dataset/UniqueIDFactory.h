#ifndef NCDS_DATASET_UNIQUEIDFACTORY_H
#define NCDS_DATASET_UNIQUEIDFACTORY_H

// The source of unique IDs of a project: every variable and observation record gets its
// number here, and no two records of one project share one. The project implements it; the
// library only asks. A unique ID is never 3262240001 (the ID that names nothing) nor
// 3262240002 (the constant variable).

#include "ncds/ncds_export.h"

class NCDS_EXPORT UniqueIDFactory {
 public:
  virtual unsigned long CreateUniqueID() = 0;

 protected:
  UniqueIDFactory() = default;
  UniqueIDFactory(const UniqueIDFactory&) = default;
  UniqueIDFactory& operator=(const UniqueIDFactory&) = default;
  ~UniqueIDFactory() = default;
};

#endif  // NCDS_DATASET_UNIQUEIDFACTORY_H
