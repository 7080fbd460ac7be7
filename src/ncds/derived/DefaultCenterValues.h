#ifndef NCDS_DERIVED_DEFAULTCENTERVALUES_H
#define NCDS_DERIVED_DEFAULTCENTERVALUES_H

// Per variable, the center value to subtract from an observation for which local centering
// holds no center of its own (for example an observation of a batch without a stored center).
// It travels as `boost::shared_ptr<DefaultCenterValues const>` from data retrieval to local
// centering. Copyable (deep); not synchronised.
//
// Each variable has an ordered list of rules (ID index, ID value, center). A rule with an ID
// index k >= 1 matches an observation whose k-th identifier is exactly the ID value
// (case-sensitive; a missing identifier is the empty text); a rule with an index below 1
// matches every observation and ends the search. The first matching rule gives the center; a
// variable without rules, or an observation no rule matches, gets 0.0.
//
// `AddVar` builds the rules of one variable from a table of center values keyed by a pair of
// observation keys (first key, second key), as local centering stores them:
//   - When every second key is empty, the table holds one center per first key (typically per
//     batch): each first key with ID index >= 1 and a non-missing center becomes a rule.
//   - Otherwise the centers are grouped by second key (typically per phase): each non-empty
//     second key becomes a rule whose center is the mean of its non-missing centers over all
//     first keys (the center of that phase in a batch without its own centers).
//   - Then a catch-all rule (-1, "", the mean of those centers: of the first keys in the first
//     case, of the per-second-key means in the second) ends the list.
// Missing centers (-99.0) and NaN count nowhere. Keys with an ID index below 1 make no rule
// of their own but count in the catch-all mean. A table without any non-missing center
// leaves the variable without rules, which removes it.
//
// Persistent: magic "DCV", version 1 (only 1 is read); tag 1 the variables (a four-byte count,
// then per variable in ascending ID order its ID in four bytes and a four-byte rule count,
// then per rule in order the ID index in four bytes, the ID value as a binary string and the
// center as a four-byte float), required. A failed read answers false and leaves the object
// as it was.

#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "ncds/foundations/NCIntegralVector.h"
#include "ncds/foundations/VStreamBase.h"
#include "ncds/foundations/VStreamableData.h"
#include "ncds/ncds_export.h"

class ObservationInfo;

class NCDS_EXPORT DefaultCenterValues : public VStreamBase {
 public:
  // An observation key (ID index, ID value): the observations whose identifier of series
  // `first` (1-based) is `second`. (-1, "") is the empty key; keys order by index, then by
  // value byte-wise.
  using ObservationKey = std::pair<int, std::string>;
  // Center values by (first key, second key).
  using CenterTable = std::map<std::pair<ObservationKey, ObservationKey>, float>;

  struct Rule {
    std::int32_t idIndex = -1;
    std::string idValue;
    float center = 0.0F;

    bool operator==(const Rule& other) const {
      return idIndex == other.idIndex && idValue == other.idValue && center == other.center;
    }
    bool operator!=(const Rule& other) const { return !(*this == other); }
  };
  using Rules = std::vector<Rule>;

  DefaultCenterValues();
  DefaultCenterValues(const DefaultCenterValues& other);
  DefaultCenterValues& operator=(const DefaultCenterValues& other);
  ~DefaultCenterValues() override;

  // The same variables with the same rules in the same order.
  bool operator==(const DefaultCenterValues& other) const;
  bool operator!=(const DefaultCenterValues& other) const { return !(*this == other); }

  // The center of the first rule of the variable that matches the observation, else 0.0.
  float GetDefaultValue(unsigned long varID, const ObservationInfo& observation) const;
  // The same, comparing each rule's ID value with `idValue` whatever the rule's index.
  float GetDefaultValue(unsigned long varID, const std::string& idValue) const;

  bool HasVar(unsigned long varID) const { return mRules.count(varID) != 0; }
  std::size_t SizeVars() const { return mRules.size(); }
  // The variable IDs, ascending.
  NCIntegralVector<unsigned long, 0> GetVariableIDs() const;
  // The rules of a variable, or null when it has none.
  const Rules* GetRules(unsigned long varID) const;
  void Clear() { mRules.clear(); }

  // Takes over the rules of every variable of `other`, replacing those this object has for
  // the same variable; other variables stay.
  void Add(const DefaultCenterValues& other);
  // Replaces the rules of `varID` by those built from `centers` (see above).
  void AddVar(unsigned long varID, const CenterTable& centers);
  // Sets the rules of `varID` as given, in order; an empty list removes the variable.
  void SetRules(unsigned long varID, Rules rules);

  static std::int16_t GetVStreamVersionNumber() { return msVStreamData.GetVStreamVersionNumber(); }
  static std::int16_t GetMyVStreamVersionNumber() {
    return msVStreamData.GetMyVStreamVersionNumber();
  }

 protected:
  // One rule per key with ID index >= 1 and a non-missing center, in the given order, then
  // the catch-all rule with the mean of all non-missing centers given (those of keys with an
  // index below 1 included); empty when no center is non-missing.
  static Rules AddBatchDefaults(const std::vector<std::pair<ObservationKey, float>>& centers);

  bool VStreamableStartWrite(std::ostream& os) const override;
  bool VStreamableStartRead(std::istream& is) override;
  void VStreamableReset() const override;

 private:
  bool VStreamableWrite(std::ostream& os) const;
  bool ReadStreamDirectory(std::istream& is);

  std::map<unsigned long, Rules> mRules;
  VStreamGuard mGuard;
  static const VStreamableData msVStreamData;
};

#endif  // NCDS_DERIVED_DEFAULTCENTERVALUES_H
