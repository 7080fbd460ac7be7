#ifndef NCDS_DERIVED_DSGENVARDATA_H
#define NCDS_DERIVED_DSGENVARDATA_H

// One generated variable of a dataset: the recipe its values are computed by and the
// variable's own ID. A plain value.

#include <string>
#include <utility>

#include "ncds/metadata/UniqueIDs.h"

class DSGenVarData {
 public:
  DSGenVarData() = default;
  DSGenVarData(std::string recipe, unsigned long variableID)
      : mRecipe(std::move(recipe)), mVariableID(variableID) {}

  const std::string& GetRecipe() const { return mRecipe; }
  unsigned long GetVariableID() const { return mVariableID; }

  bool operator==(const DSGenVarData& other) const {
    return mRecipe == other.mRecipe && mVariableID == other.mVariableID;
  }

 private:
  std::string mRecipe;
  unsigned long mVariableID = NCUniqueIDs::kNone;
};

#endif  // NCDS_DERIVED_DSGENVARDATA_H
